#include <cstdarg>
#include <cstdlib>

#include "android/log.h"
#include "host/SimulatedDevice.h"

using hostplatform::device;

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    const int length = device().log().write(prio, tag, fmt, arguments);
    va_end(arguments);
    return length;
}

// This device keeps one log for all buffers.
int __android_log_buf_print(int, int prio, const char* tag, const char* fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    const int length = device().log().write(prio, tag, fmt, arguments);
    va_end(arguments);
    return length;
}

void __android_log_assert(const char*, const char* tag, const char* fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    device().log().write(ANDROID_LOG_FATAL, tag, fmt, arguments);
    va_end(arguments);
    abort();
}
