// Reports of the session client: names, counts and texts.
//
// A count is never larger than the array, which is of exactly that size: nobody could tell. The
// number that stands for a producer's address is always that of one that there is. No thread can be
// started, so that an input does the same every time. The same input then goes through the queue of
// the user's events.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <memory>

#include "FuzzDevice.h"
#include "gui/IGraphicBufferProducer.h"
#include "host/ScopedFault.h"
#include "session_events.h"
#include "uibc.h"
#include "wfd/WiFiDisplayClient.h"

namespace {

using Object = char[256];

constexpr const char* kNames[] = {
    "",           "SessionState", "MMEvent", "StreamControlCompleted", "UIBCControlCompleted",
    "AudioEvent", "Error"};
constexpr const char* kTexts[] = {
    // clang-format off
    "PLAY", "PAUSE", "TEARDOWN", "STANDBY", "STOPPED", "NEGOTIATED", "NEGOTIATING", "ESTABLISHED",
    "ENABLED", "MMStreamStarted", "AudioProxyOpened", "10000001", "RTSPCloseCallback"
    // clang-format on
};

struct Producer : android::IGraphicBufferProducer {};

template <size_t count>
std::string textOf(FuzzedDataProvider& input, const char* const (&known)[count], size_t longest) {
    return input.ConsumeBool() ? input.PickValueInArray(known)
                               : input.ConsumeRandomLengthString(longest);
}

void useExistingProducer(Object& object) {
    static const android::sp<android::IGraphicBufferProducer> producer = new Producer;
    char text[sizeof object + 1] = {};
    memcpy(text, object, sizeof object);
    if (strtoull(text, nullptr, 10) == 0) return;
    snprintf(object, sizeof object, "%zu", reinterpret_cast<uintptr_t>(producer.get()));
}

void report(FuzzedDataProvider& input) {
    const std::vector<char> name = exactText(textOf(input, kNames, 40));
    const auto count = input.ConsumeIntegralInRange<int>(-3, 8);
    const std::unique_ptr<Object[]> objects(new Object[static_cast<size_t>(std::max(count, 0))]());
    for (int i = 0; i < count; ++i) {
        const std::string text = textOf(input, kTexts, sizeof(Object));
        // Without an end when it fills the object.
        memcpy(objects[static_cast<size_t>(i)], text.data(), text.size());
    }
    if (count >= 5) useExistingProducer(objects[4]);
    const int choice = input.ConsumeIntegralInRange<int>(0, 15);
    miracastWfdStringArrayCallback(choice == 0 ? nullptr : name.data(), count,
                                   choice == 1 ? nullptr : objects.get(), nullptr);
    require(memchr(wfdSessionId, '\0', sizeof wfdSessionId) != nullptr);
}

void injectInput(FuzzedDataProvider input) {
    while (input.remaining_bytes() > 0) {
        WFD_uibc_event_t event{};
        event.type = input.ConsumeIntegralInRange<uint32_t>(0, 3);
        input.ConsumeData(event.params, input.ConsumeIntegralInRange<size_t>(1, 8));
        require(injectEvent(&event, nullptr, nullptr, nullptr));
        manipulateList(uibcItem{input.ConsumeIntegralInRange<uint32_t>(0, 3) & ~1U, {}});
    }
    flushUIBCList();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    static const int made = startWfdConnection("", "192.168.49.2", 7236, 1, nullptr, nullptr);
    require(made == 0);
    WfdDevice local{};
    WfdDevice peer{};
    gWFDClient.load()->createWfdSession(&local, &peer);  // refused while there is one
    const hostplatform::ScopedFault noThread(hostplatform::Fault::ThreadCreation);
    wfd_device_type = input.ConsumeIntegralInRange<int>(0, 1);
    uibc_setup_done = input.ConsumeIntegralInRange<int>(0, 1);
    while (input.remaining_bytes() > 0) report(input);
    injectInput(FuzzedDataProvider(data, size));
    return 0;
}
