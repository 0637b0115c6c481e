#include "host/text_format.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace hostplatform {

std::string formatArguments(const char* pattern, va_list arguments) {
    char* buffer = nullptr;
    const int length = vasprintf(&buffer, pattern, arguments);
    if (length < 0) return "";
    std::string text(buffer, static_cast<size_t>(length));
    free(buffer);
    return text;
}

std::string format(const char* pattern, ...) {
    va_list arguments;
    va_start(arguments, pattern);
    std::string text = formatArguments(pattern, arguments);
    va_end(arguments);
    return text;
}

std::string timeText(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    const size_t length = strftime(text, sizeof text, "%m-%d %H:%M:%S", &local);
    const auto fraction = std::chrono::duration_cast<std::chrono::milliseconds>(
        time - std::chrono::system_clock::from_time_t(seconds));
    return std::string(text, length) + format(".%03d", static_cast<int>(fraction.count()));
}

}  // namespace hostplatform
