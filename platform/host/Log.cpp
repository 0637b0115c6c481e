// The log: every line goes to the journal, and to standard error if the filter shows it.
#include "android/log.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Journal.h"
#include "LogFilter.h"
#include "LogSwitch.h"
#include "TextFormat.h"

using namespace hostplatform;

namespace {

// Written by who measures, read by every thread that logs; it orders nothing.
std::atomic<bool> dropped{false};

// A message of several lines is shown as that many lines, each with the whole prefix; an end of
// line at the message's end adds none.
void show(int priority, const char* tag, std::string_view text) {
    const std::string prefix =
        timeText(std::chrono::system_clock::now()) +
        format(" %5d %5d %c %s: ", getpid(), gettid(), priorityLetter(priority), tag);
    std::string lines;
    size_t begin = 0;
    do {
        const size_t end = text.find('\n', begin);
        lines += prefix;
        lines += text.substr(begin, end - begin);
        lines += '\n';
        begin = end == std::string_view::npos ? text.size() : end + 1;
    } while (begin < text.size());
    fputs(lines.c_str(), stderr);  // one call, so that lines of two threads do not mix
}

int log(int priority, const char* tag, const char* pattern, va_list arguments) {
    if (dropped.load(std::memory_order_relaxed)) {
        char message[1024];
        return vsnprintf(message, sizeof message, pattern, arguments);
    }
    static const LogFilter* const filter = new LogFilter(getenv("ANDROID_LOG_TAGS"));
    std::string text = formatArguments(pattern, arguments);
    const int length = static_cast<int>(text.size());

    const char* const shownTag = tag == nullptr ? "" : tag;
    if (filter->shows(priority, shownTag)) show(priority, shownTag, text);
    Journal::instance().add("log", format("%c/%s: ", priorityLetter(priority), shownTag) + text);
    return length;
}

}  // namespace

void hostplatform::setLogDropped(bool drop) { dropped = drop; }

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    const int length = log(prio, tag, fmt, arguments);
    va_end(arguments);
    return length;
}

// This device shows all of its buffers as one log.
int __android_log_buf_print(int, int prio, const char* tag, const char* fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    const int length = log(prio, tag, fmt, arguments);
    va_end(arguments);
    return length;
}

void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...) {
    if (fmt != nullptr) {
        va_list arguments;
        va_start(arguments, fmt);
        log(ANDROID_LOG_FATAL, tag, fmt, arguments);
        va_end(arguments);
    } else {
        __android_log_print(ANDROID_LOG_FATAL, tag, "Assertion failed: %s",
                            cond == nullptr ? "" : cond);
    }
    abort();
}
