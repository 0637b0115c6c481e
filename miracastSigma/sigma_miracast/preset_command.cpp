// sta_preset_testparameters.
#include <cstring>
#include <string>

#include "discovery.h"
#include "miracast_sigma.h"
#include "osal/osal.h"
#include "parameter.h"
#include "sigma_log.h"

namespace {

// What the command reads. Nothing acts on those without a name here; looking them up leaves the
// test's parameters in the log.
struct Preset {
    explicit Preset(const char* command)
        : discovery(command, "mdns_disc"),
          role(command, "mdns_role"),
          deviceType(command, "wfddevtype") {
        for (const char* const name :
             {"ctt_sequence1", "ctt_sequence2", "ctt_sequence3", "ctt_sequence6"}) {
            const Parameter<512> unused(command, name);
        }
        const Parameter<16> program(command, "Program");
        const Parameter<64> profileChange(command, "ProfileChange");
        const Parameter<512> parameter(command, "Parameter");
        const Parameter<32> testId(command, "testid");
        const Parameter<64> optionalFeature(command, "OptionalFeature");
    }

    const Parameter<32> discovery;
    const Parameter<32> role;
    const Parameter<32> deviceType;
};

int answerInstanceName(char** response) {
    getInstanceName();
    // A copy: a later result of the registration may change the name meanwhile.
    const std::string name = registeredInstanceName();
    *response = static_cast<char*>(
        osal_calloc(1, name.size() + 1, "miracastSigma/sigma_miracast", __LINE__));
    if (*response == nullptr) {
        SIGMA_LOG("vestor: Calloc failed for respBuf");
        return -1;
    }
    memcpy(*response, name.c_str(), name.size() + 1);
    return 0;
}

}  // namespace

int sta_preset_testparameters(const char* command, char** response) {
    SIGMA_LOG("vestor: sta_preset_testparameters %s", printable(command));
    const Preset preset(command);
    if (response == nullptr) {
        SIGMA_LOG("vestor: respBuf is NULL");
        return -1;
    }
    *response = nullptr;
    resetmDNSParams();
    if (!preset.discovery.is("enable")) return 0;

    if (preset.role.is("responder")) {
        if (preset.deviceType.is("p-sink")) {
            registerPrimarySink();
        } else if (preset.deviceType.is("source")) {
            registerSource();
        }
        return answerInstanceName(response);
    }
    // A browser has nothing to prepare: start_wfd_connection browses.
    if (preset.role.is("browser")) {
        if (preset.deviceType.is("p-sink")) {
            SIGMA_LOG("DO nothing for now for p-sink browser");
        } else if (preset.deviceType.is("source")) {
            SIGMA_LOG("DO nothing for now for source browser");
        }
    }
    return 0;
}
