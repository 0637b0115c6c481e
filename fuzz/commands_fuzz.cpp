// Every command function with any text, in any state of the session.
//
// Sessions are started with a silent peer. No thread can be started, since some would stay for the
// life of the process, and after kMostClients there are no further session clients.
#include <fuzzer/FuzzedDataProvider.h>

#include "FuzzDevice.h"
#include "host/ScopedFault.h"
#include "miracast_sigma.h"

namespace {

using hostplatform::Fault;

constexpr int kMostClients = 10'000;

void getParameter(FuzzedDataProvider& input, const char* text) {
    const std::vector<char> name = exactText(input.ConsumeRandomLengthString(20));
    const auto size = input.ConsumeIntegralInRange<int>(-2, 600);
    std::vector<char> value(size < 0 ? 0 : static_cast<size_t>(size), 'x');
    const int result = get_param(text, name.data(), value.data(), size);
    require(result == 0 || result == -1);
}

void startSession(FuzzedDataProvider& input, const char* text) {
    static int clients = 0;
    if (++clients > kMostClients) return;
    const std::vector<char> address = exactText(input.ConsumeRandomLengthString(70));
    const int port = input.ConsumeBool() ? -100 : input.ConsumeIntegral<int>();
    const auto type = input.ConsumeIntegralInRange<int>(-1, 2);
    auto* const command = input.ConsumeBool() ? start_wfd_connection : connect_go_start_wfd;
    char* response = nullptr;
    const int result = command(text, address.data(), port, type, &response);
    require((result == -1) == (response == nullptr));
    free(response);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const hostplatform::ScopedFault noThread(Fault::ThreadCreation);
    uibc_setup_done = 1;  // as if the worker had been started
    wfd_device_type = input.ConsumeIntegralInRange<int>(0, 1);
    g_wfd_session_id = input.ConsumeBool() ? input.ConsumeIntegralInRange<int>(0, 20'000'000) : 0;
    const int command = input.ConsumeIntegralInRange<int>(0, 7);
    const bool noMemory = input.ConsumeIntegral<uint8_t>() == 1;
    hostplatform::device().faults().set(Fault::Allocation, noMemory ? -1 : 0);
    const std::vector<char> text =
        exactText(command == 0   ? input.ConsumeRandomLengthString(600)
                  : command == 1 ? input.ConsumeRandomLengthString(100)
                                 : input.ConsumeRemainingBytesAsString());
    char* response = nullptr;
    if (command == 0) getParameter(input, text.data());
    if (command == 1) startSession(input, text.data());
    if (command == 2) {
        const int result = sta_preset_testparameters(text.data(), &response);
        require(result == 0 || (result == -1 && noMemory && response == nullptr));
    }
    if (command == 3) dev_exec_action(text.data());
    if (command == 4) require(sta_reset_default(text.data()) == 0);
    if (command == 5) dev_send_frame(text.data());
    if (command == 6) sta_generate_event(text.data());
    if (command == 7) setParameter(0, 0, text.data());
    free(response);
    return 0;
}
