// Formats like printf into std::string, and the time as device logs do.
#pragma once

#include <chrono>
#include <cstdarg>
#include <string>

namespace hostplatform {

std::string format(const char* pattern, ...) __attribute__((__format__(printf, 1, 2)));
std::string formatArguments(const char* pattern, va_list arguments)
    __attribute__((__format__(printf, 1, 0)));

// Local time, "MM-DD HH:MM:SS.mmm".
std::string timeText(std::chrono::system_clock::time_point time);

}  // namespace hostplatform
