// Every command function with any text, in any state of the session.
//
// Sessions are started with a silent peer. What would leave a thread, or too many clients, behind
// for the life of the process is made to fail instead: registration and discovery find that no
// thread can be started, and after kMostClients there are no further session clients.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <iterator>
#include <memory>
#include <utility>

#include "Faults.h"
#include "FuzzDevice.h"
#include "miracast_sigma.h"

namespace {

using hostplatform::Fault;
using hostplatform::ScopedFault;

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
    if (++clients > kMostClients) hostplatform::setFault(Fault::SessionClient);
    const std::vector<char> address = exactText(input.ConsumeRandomLengthString(70));
    const int port = input.ConsumeBool() ? -100 : input.ConsumeIntegral<int>();
    const auto type = input.ConsumeIntegralInRange<int>(-1, 2);
    const bool discovers = input.ConsumeBool();
    const ScopedFault noThread(Fault::ThreadCreation);
    char* response = nullptr;
    const int result = (discovers ? start_wfd_connection : connect_go_start_wfd)(
        text, address.data(), port, type, &response);
    require((result == -1) == (response == nullptr));
    free(response);
}

void preset(const char* text) {
    const ScopedFault noThread(Fault::ThreadCreation);
    char* response = nullptr;
    const int result = sta_preset_testparameters(text, &response);
    const bool noMemory = hostplatform::faultStatus(Fault::Allocation) != 0;
    require(result == 0 || (result == -1 && noMemory && response == nullptr));
    free(response);
}

void execAction(const char* text) {
    dev_exec_action(text);
    if (const pthread_t thread = std::exchange(rtsp_playback_thread, 0); thread != 0) {
        pthread_join(thread, nullptr);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    // As if the worker had been started: it would never rest at this speed.
    uibc_setup_done = 1;
    wfd_device_type = input.ConsumeIntegralInRange<int>(0, 1);
    g_wfd_session_id = input.ConsumeBool() ? input.ConsumeIntegralInRange<int>(0, 20'000'000) : 0;
    const int command = input.ConsumeIntegralInRange<int>(0, 7);
    const bool noMemory = input.ConsumeIntegral<uint8_t>() == 1;
    hostplatform::setFault(Fault::Allocation, noMemory ? -1 : 0);

    switch (command) {
        case 0: {
            const std::vector<char> text = exactText(input.ConsumeRandomLengthString(600));
            getParameter(input, text.data());
            break;
        }
        case 1: {
            const std::vector<char> text = exactText(input.ConsumeRandomLengthString(100));
            startSession(input, text.data());
            break;
        }
        default: {
            const std::vector<char> text = exactText(input.ConsumeRemainingBytesAsString());
            if (command == 2) preset(text.data());
            if (command == 3) execAction(text.data());
            if (command == 4) require(sta_reset_default(text.data()) == 0);
            if (command == 5) dev_send_frame(text.data());
            if (command == 6) sta_generate_event(text.data());
            if (command == 7) setParameter(0, 0, text.data());
        }
    }
    return 0;
}
