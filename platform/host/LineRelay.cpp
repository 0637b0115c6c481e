#include "LineRelay.h"

#include <cerrno>
#include <memory>
#include <utility>

#include "SmallThread.h"

namespace hostplatform {

namespace {

void readLines(int input, const std::function<void(const std::string&)>& onLine) {
    std::string text;
    char buffer[512];
    ssize_t got = 0;
    while ((got = TEMP_FAILURE_RETRY(read(input, buffer, sizeof buffer))) > 0) {
        text.append(buffer, static_cast<size_t>(got));
        size_t begin = 0;
        for (size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
            onLine(text.substr(begin, end - begin));
        }
        text.erase(0, begin);
    }
    if (!text.empty()) onLine(text);
}

}  // namespace

void relayLines(UniqueFd input, std::function<void(const std::string&)> onLine) {
    // std::function wants to copy what it holds.
    const auto shared = std::make_shared<UniqueFd>(std::move(input));
    startSmallThread([shared, onLine = std::move(onLine)] { readLines(shared->get(), onLine); });
}

}  // namespace hostplatform
