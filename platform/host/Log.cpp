#include "host/Log.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <sstream>
#include <string_view>
#include <utility>

#include "android/log.h"
#include "host/text_format.h"

namespace hostplatform {

namespace {

constexpr std::string_view kLetters = "??VDIWEFS";  // by android_LogPriority

char letterOf(int priority) {
    const bool known = priority >= 0 && priority < static_cast<int>(kLetters.size());
    return known ? kLetters[static_cast<size_t>(priority)] : '?';
}

// Shows each line of a message with the whole prefix. A final end of line adds no empty line.
std::string threadtime(int priority, const char* tag, const std::string& text) {
    const std::string prefix =
        timeText(std::chrono::system_clock::now()) +
        format(" %5d %5d %c %-8s: ", getpid(), gettid(), letterOf(priority), tag);
    std::string lines;
    size_t begin = 0;
    do {
        const size_t end = std::min(text.find('\n', begin), text.size());
        lines += prefix + text.substr(begin, end - begin) + '\n';
        begin = end + 1;
    } while (begin < text.size());
    return lines;
}

}  // namespace

int Log::write(int priority, const char* tag, const char* pattern, va_list arguments) {
    if (mDropped.load(std::memory_order_relaxed)) {
        char message[1024];
        return vsnprintf(message, sizeof message, pattern, arguments);
    }
    const std::string text = formatArguments(pattern, arguments);
    writeLine(priority, tag == nullptr ? "" : tag, text);
    return static_cast<int>(text.size());
}

void Log::writeLine(int priority, const char* tag, const std::string& text) {
    std::function<void(const std::string&)> hook;
    {
        const Lock lock(mMutex);
        hook = mOnMessage;
        const auto found = mLowest.find(tag);
        const int lowest = (found != mLowest.end() ? found : mLowest.find("*"))->second;
        if (mStream != nullptr && lowest != ANDROID_LOG_SILENT && priority >= lowest) {
            fputs(threadtime(priority, tag, text).c_str(), mStream);
            fflush(mStream);
        }
    }
    mJournal.add("log", format("%c/%s: ", letterOf(priority), tag) + text);
    if (hook) hook(text);
}

void Log::writeTo(std::FILE* stream, const char* tags) {
    const Lock lock(mMutex);
    mStream = stream;
    mLowest = {{"*", ANDROID_LOG_VERBOSE}};
    std::string list = tags == nullptr ? "" : tags;
    std::replace(list.begin(), list.end(), ',', ' ');
    std::istringstream items(list);
    for (std::string item; items >> item;) {
        if (item.find(':') == std::string::npos) item += ":V";
        const size_t colon = item.rfind(':');
        const int letter = std::toupper(static_cast<unsigned char>(item.back()));
        const size_t priority = kLetters.find(static_cast<char>(letter), ANDROID_LOG_VERBOSE);
        if (colon + 2 != item.size() || priority == std::string_view::npos) continue;
        mLowest[item.substr(0, colon)] = static_cast<int>(priority);
    }
}

void Log::onMessage(std::function<void(const std::string&)> hook) {
    const Lock lock(mMutex);
    mOnMessage = std::move(hook);
}

void Log::complain(const std::string& text) {
    writeLine(ANDROID_LOG_ERROR, "hostplatform", text);
    Lock lock(mMutex);
    const auto handler = mComplaintHandler;
    lock.unlock();
    if (handler) handler(text);
}

void Log::setComplaintHandler(std::function<void(const std::string&)> handler) {
    const Lock lock(mMutex);
    mComplaintHandler = std::move(handler);
}

void Log::reset() {
    setDropped(false);
    onMessage({});
    setComplaintHandler({});
    writeTo(stderr, getenv("ANDROID_LOG_TAGS"));
}

}  // namespace hostplatform
