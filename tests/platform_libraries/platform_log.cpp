// Takes what the platform's log library writes into the simulated device's log.
#include <android/log.h>

#include <cstdarg>

#include "host/SimulatedDevice.h"

namespace {

__attribute__((format(printf, 3, 4))) void write(int priority, const char* tag, const char* pattern,
                                                 ...) {
    va_list arguments;
    va_start(arguments, pattern);
    hostplatform::device().log().write(priority, tag, pattern, arguments);
    va_end(arguments);
}

__attribute__((constructor)) void takeLog() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_default_tag("");  // else the program's name
    __android_log_set_logger([](const __android_logger_data* data, const char* message) {
        write(data->priority, data->tag, "%s", message);
    });
}

}  // namespace
