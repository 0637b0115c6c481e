#include "session_id_text.h"

#include <algorithm>
#include <cstring>

#include "Undestroyed.h"
#include "miracast_sigma.h"
#include "utils/Mutex.h"

namespace {

// Guards wfdSessionId against two writers: a starting session and one that still reports.
Undestroyed<android::Mutex> sessionIdTextLock;

}  // namespace

void setSessionIdText(std::string_view text) {
    const android::Mutex::Autolock lock(*sessionIdTextLock);
    const size_t length = std::min(text.size(), sizeof wfdSessionId - 1);
    memcpy(wfdSessionId, text.data(), length);
    wfdSessionId[length] = '\0';
}
