#include "session_id_text.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "miracast_sigma.h"

namespace {

// A session that starts and one that is still reporting can write at once.
std::mutex sessionIdTextMutex;

}  // namespace

void setSessionIdText(std::string_view text) {
    const std::lock_guard lock(sessionIdTextMutex);
    const size_t length = std::min(text.size(), sizeof wfdSessionId - 1);
    memcpy(wfdSessionId, text.data(), length);
    wfdSessionId[length] = '\0';
}
