// The platform's log: the part of liblog that the library calls.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

// The log buffers that the library writes to.
typedef enum log_id {
    LOG_ID_MAIN = 0,
    LOG_ID_SYSTEM = 3,
} log_id_t;

// Writes one formatted message with an android_LogPriority and a tag (null: no tag). Any thread may
// call. Returns the number of bytes of the message.
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((__format__(printf, 3, 4)));

// Like __android_log_print, but into the buffer `bufID` (a log_id_t).
int __android_log_buf_print(int bufID, int prio, const char* tag, const char* fmt, ...)
    __attribute__((__format__(printf, 4, 5)));

// Writes the message with ANDROID_LOG_FATAL and aborts the process. `cond` is the text of the
// failed condition; the simulated device does not print it.
void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...)
    __attribute__((__noreturn__, __format__(printf, 3, 4)));

#ifdef __cplusplus
}
#endif
