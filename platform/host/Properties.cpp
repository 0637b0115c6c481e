#include "Properties.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "Faults.h"
#include "Journal.h"
#include "MdnsService.h"
#include "android/log.h"
#include "cutils/properties.h"

using namespace hostplatform;

namespace {

constexpr const char* kMdnsState = "init.svc.mdnsd";

std::mutex propertiesMutex;
std::map<std::string, std::string>& properties() {  // under propertiesMutex
    static auto* const map = new std::map<std::string, std::string>;
    return *map;
}

std::string propertyValue(const std::string& key) {
    if (key == kMdnsState) {
        const bool running = MdnsService::instance().ask() == MdnsService::Answer::Running;
        return running ? "running" : "stopped";
    }
    const std::lock_guard lock(propertiesMutex);
    const auto found = properties().find(key);
    return found == properties().end() ? "" : found->second;
}

bool control(const std::string& action, const std::string& service) {
    if (service != "mdnsd") {
        __android_log_print(ANDROID_LOG_ERROR, "hostplatform", "there is no init service \"%s\"",
                            service.c_str());
        return false;
    }
    if (action == "ctl.start") {
        MdnsService::instance().start();
    } else {
        MdnsService::instance().stop();
    }
    return true;
}

}  // namespace

namespace hostplatform {

void setMdnsCommand(std::vector<std::string> command) {
    MdnsService::instance().setCommand(std::move(command));
}

}  // namespace hostplatform

int property_get(const char* key, char* value, const char* default_value) {
    const bool silent = faultStatus(Fault::PropertyService) != 0;
    std::string text = silent ? "" : propertyValue(key);
    if (text.empty() && default_value != nullptr) text = default_value;
    const size_t length = std::min(text.size(), size_t{PROPERTY_VALUE_MAX - 1});
    memcpy(value, text.data(), length);
    value[length] = '\0';
    return static_cast<int>(length);
}

int property_set(const char* key, const char* value) {
    const std::string name = key;
    const std::string text = value == nullptr ? "" : value;
    Journal::instance().add("property", name + " = \"" + text + "\"");
    const int fault = faultStatus(Fault::PropertyService);
    if (fault != 0) return fault;
    if (name.empty() || text.size() >= PROPERTY_VALUE_MAX || name == kMdnsState) return -1;
    if (name == "ctl.start" || name == "ctl.stop") return control(name, text) ? 0 : -1;
    const std::lock_guard lock(propertiesMutex);
    properties()[name] = text;
    return 0;
}
