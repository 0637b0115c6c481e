// The log: every line goes to the journal, and to standard error if the filter shows it.
#include "android/log.h"

#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Journal.h"
#include "LogFilter.h"
#include "TextFormat.h"

using namespace hostplatform;

namespace {

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

}  // namespace

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    static const LogFilter* const filter = new LogFilter(getenv("ANDROID_LOG_TAGS"));
    va_list arguments;
    va_start(arguments, fmt);
    std::string text = formatArguments(fmt, arguments);
    va_end(arguments);
    const int length = static_cast<int>(text.size());

    const char* const shownTag = tag == nullptr ? "" : tag;
    if (filter->shows(prio, shownTag)) show(prio, shownTag, text);
    Journal::instance().add("log", format("%c/%s: ", priorityLetter(prio), shownTag) + text);
    return length;
}
