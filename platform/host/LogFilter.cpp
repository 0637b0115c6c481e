#include "LogFilter.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string_view>

#include "android/log.h"

namespace hostplatform {

namespace {

constexpr std::string_view kLetters = "??VDIWEFS";  // by android_LogPriority

}  // namespace

char priorityLetter(int priority) {
    if (priority < ANDROID_LOG_VERBOSE || priority > ANDROID_LOG_SILENT) return '?';
    return kLetters[static_cast<size_t>(priority)];
}

LogFilter::LogFilter(const char* tags) : mDefault(ANDROID_LOG_VERBOSE) {
    std::string list = tags == nullptr ? "" : tags;
    std::replace(list.begin(), list.end(), ',', ' ');
    std::istringstream items(list);
    for (std::string item; items >> item;) {
        const size_t colon = item.rfind(':');
        const std::string tag = item.substr(0, colon);
        int lowest = ANDROID_LOG_VERBOSE;
        if (colon != std::string::npos) {
            const std::string letter = item.substr(colon + 1);
            if (letter.size() != 1) continue;
            const size_t found = kLetters.find(
                static_cast<char>(std::toupper(static_cast<unsigned char>(letter.front()))), 2);
            if (found == std::string_view::npos) continue;
            lowest = static_cast<int>(found);
        }
        if (tag == "*") {
            mDefault = lowest;
        } else {
            mLowest[tag] = lowest;
        }
    }
}

bool LogFilter::shows(int priority, const std::string& tag) const {
    const auto found = mLowest.find(tag);
    const int lowest = found == mLowest.end() ? mDefault : found->second;
    return lowest != ANDROID_LOG_SILENT && priority >= lowest;
}

}  // namespace hostplatform
