// Reactions to the session client's reports.
#pragma once

#include "jni.h"
#include "miracast_sigma.h"

// The session client's event callback, called on the client's threads: logs the report and reacts
// to it. It may block the client's thread: 3 seconds after it starts UIBC, and until the UIBC
// worker has ended when a source with UIBC is torn down.
//   name      the report's name; may be null
//   count     number of texts in `objects`
//   objects   the report's texts, of at most 256 bytes each; not kept
// It never reads past `count`, past a text's 256 bytes or through a null pointer.
MIRACAST_SIGMA_EXPORT void miracastWfdStringArrayCallback(const char* name, int count,
                                                          char (*objects)[256],
                                                          _jobject* const& javaObject) noexcept;
