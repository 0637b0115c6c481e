// sta_preset_testparameters.
#include <cstring>
#include <initializer_list>

#include "Parameter.h"
#include "c_text.h"
#include "discovery.h"
#include "miracast_sigma.h"
#include "osal/osal.h"
#include "sigma_log.h"

namespace {

// Looks up the parameters that no code uses, so that they appear in the log.
void logUnusedParameters(const char* command) {
    for (const char* const name :
         {"ctt_sequence1", "ctt_sequence2", "ctt_sequence3", "ctt_sequence6"}) {
        const Parameter<512> sequence(command, name);
    }
    const Parameter<16> program(command, "Program");
    const Parameter<64> profileChange(command, "ProfileChange");
    const Parameter<512> parameter(command, "Parameter");
    const Parameter<32> testId(command, "testid");
    const Parameter<64> optionalFeature(command, "OptionalFeature");
}

int answerInstanceName(char** response) {
    getInstanceName();
    // Answer a copy: a later result of the registration may change instanceName.
    char name[sizeof instanceName];
    copyInstanceName(name);
    const size_t size = strlen(name) + 1;
    *response = static_cast<char*>(osal_calloc(1, size, "miracastSigma/sigma_miracast", __LINE__));
    if (*response == nullptr) {
        SIGMA_LOG("vestor: Calloc failed for respBuf");
        return MIRACAST_ERROR;
    }
    memcpy(*response, name, size);
    return MIRACAST_COMPLETED;
}

}  // namespace

int sta_preset_testparameters(const char* command, char** response) noexcept {
    SIGMA_LOG("vestor: sta_preset_testparameters %s", printable(command));
    const Parameter<32> discovery(command, "mdns_disc");
    const Parameter<32> role(command, "mdns_role");
    const Parameter<32> deviceType(command, "wfddevtype");
    logUnusedParameters(command);
    if (response != nullptr) *response = nullptr;
    resetmDNSParams();
    if (response == nullptr) {
        SIGMA_LOG("vestor: respBuf is NULL");
        return MIRACAST_ERROR;
    }
    if (!discovery.is("enable")) return MIRACAST_COMPLETED;

    if (role.is("responder")) {
        if (deviceType.is("p-sink")) {
            registerPrimarySink();
        } else if (deviceType.is("source")) {
            registerSource();
        }
        return answerInstanceName(response);
    }
    // There is nothing to prepare for a browser: start_wfd_connection browses.
    if (role.is("browser")) {
        if (deviceType.is("p-sink")) {
            SIGMA_LOG("DO nothing for now for p-sink browser");
        } else if (deviceType.is("source")) {
            SIGMA_LOG("DO nothing for now for source browser");
        }
    }
    return MIRACAST_COMPLETED;
}
