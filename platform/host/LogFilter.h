// Which log lines are shown: the usual list of TAG:PRIORITY, as in ANDROID_LOG_TAGS.
#pragma once

#include <map>
#include <string>

namespace hostplatform {

// The letter of an android_LogPriority: V D I W E F S, or ? for another value.
char priorityLetter(int priority);

class LogFilter {
 public:
    // `tags`: items "TAG:P", separated by blanks or commas, P one of V D I W E F S in either case;
    // "TAG" alone means "TAG:V", "*:P" is the default for every other tag. An item that is not of
    // this form is passed over. Null or empty shows everything.
    explicit LogFilter(const char* tags);

    bool shows(int priority, const std::string& tag) const;

 private:
    std::map<std::string, int> mLowest;
    int mDefault;
};

}  // namespace hostplatform
