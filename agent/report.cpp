#include "agent/report.h"

#include <cerrno>
#include <chrono>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>

#include "agent/Log.h"
#include "agent/report_page.h"
#include "host/SimulatedDevice.h"

namespace agent {

namespace {

using nlohmann::json;

// In one line, and without '<', so that no text ends the element of the page in which it lies.
std::string journalAsJson(double timeScale) {
    const auto entries = hostplatform::device().journal().entries();
    json list = json::array();
    for (const auto& entry : entries) {
        const auto time =
            std::chrono::duration_cast<std::chrono::microseconds>(entry.time.time_since_epoch());
        list.push_back(json::array({time.count(), entry.thread, entry.component, entry.text}));
    }
    const json data = {{"scale", timeScale},
                       {"dropped", entries.empty() ? 0 : entries.front().sequence},
                       {"entries", std::move(list)}};
    std::string text = data.dump(-1, ' ', false, json::error_handler_t::replace);
    for (std::size_t at = 0; (at = text.find('<', at)) != std::string::npos;) {
        text.replace(at, 1, "\\u003c");
    }
    return text;
}

}  // namespace

bool writeReport(const std::string& path, double timeScale) {
    static std::mutex mutex;  // one writer at a time
    const std::lock_guard lock(mutex);
    constexpr std::string_view kPage = kReportPage;
    constexpr std::string_view kPlace = "{\"entries\":[]}";
    const auto at = kPage.find(kPlace);
    std::ofstream file(path, std::ios::binary);
    file << kPage.substr(0, at) << journalAsJson(timeScale) << kPage.substr(at + kPlace.size());
    file.close();
    if (!file) {
        logLine("cannot write the report " + path + ": " + std::generic_category().message(errno));
    }
    return !file.fail();
}

}  // namespace agent
