#include "TextFormat.h"

#include <cstdio>
#include <ctime>

namespace hostplatform {

std::string formatArguments(const char* pattern, va_list arguments) {
    char small[512];
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(small, sizeof small, pattern, arguments);
    std::string text;
    if (length >= 0 && static_cast<size_t>(length) < sizeof small) {
        text.assign(small, static_cast<size_t>(length));
    } else if (length >= 0) {
        text.resize(static_cast<size_t>(length));
        vsnprintf(text.data(), text.size() + 1, pattern, again);
    }
    va_end(again);
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
    const auto fraction = std::chrono::duration_cast<std::chrono::milliseconds>(
        time - std::chrono::system_clock::from_time_t(seconds));
    return format("%02d-%02d %02d:%02d:%02d.%03d", local.tm_mon + 1, local.tm_mday, local.tm_hour,
                  local.tm_min, local.tm_sec, static_cast<int>(fraction.count()));
}

}  // namespace hostplatform
