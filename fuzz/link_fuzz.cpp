// A line of a session link: when it is a message, the message's own line means the same.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "LinkMessage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace hostplatform;
    const auto message = parseLinkLine({reinterpret_cast<const char*>(data), size});
    if (!message) return 0;
    const std::string line = toLine(*message);
    const auto again = parseLinkLine(line);
    const bool same = again && line.size() < kMaxLinkLine && again->kind == message->kind &&
                      again->sessionId == message->sessionId &&
                      memcmp(&again->input, &message->input, sizeof again->input) == 0;
    if (!same) abort();
    return 0;
}
