#include "MDnsResultListener.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "android/log.h"

MDnsResultListener::~MDnsResultListener() = default;

char* MDnsResultListener::quoteArg(const char* text) noexcept {
    const size_t length = strlen(text);
    auto* const quoted = static_cast<char*>(malloc(2 * length + 3));
    if (quoted == nullptr) {
        __android_log_buf_print(LOG_ID_SYSTEM, ANDROID_LOG_WARN, "MDnsDS", "malloc error (%s)",
                                strerror(errno));
        return nullptr;
    }
    char* end = quoted;
    *end++ = '"';
    for (const char* c = text; *c != '\0'; ++c) {
        if (*c == '\\' || *c == '"') *end++ = '\\';
        *end++ = *c;
    }
    *end++ = '"';
    *end++ = '\0';
    auto* const shrunk = static_cast<char*>(realloc(quoted, static_cast<size_t>(end - quoted)));
    return shrunk == nullptr ? quoted : shrunk;
}
