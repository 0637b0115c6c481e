// Reports of the session client: names, counts and texts.
//
// A count is never larger than the array, which is of exactly that size: nobody could tell. The
// workers that the handler starts run at once and on its own thread, so that an input does the same
// every time (the target is linked with --wrap=pthread_create). The number that stands for a
// producer's address is always that of one that there is.
#include <fuzzer/FuzzedDataProvider.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "FuzzDevice.h"
#include "gui/IGraphicBufferProducer.h"
#include "session_events.h"
#include "wfd/WiFiDisplayClient.h"

extern "C" int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*body)(void*), void* argument);
extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                     void* (*body)(void*), void* argument) {
    int state = PTHREAD_CREATE_JOINABLE;
    if (attributes != nullptr) pthread_attr_getdetachstate(attributes, &state);
    if (state == PTHREAD_CREATE_JOINABLE) {
        return __real_pthread_create(thread, attributes, body, argument);
    }
    body(argument);
    return 0;
}

namespace {

using Object = char[256];

constexpr const char* kNames[] = {
    "",           "SessionState", "MMEvent", "StreamControlCompleted", "UIBCControlCompleted",
    "AudioEvent", "Error"};
constexpr const char* kTexts[] = {"PLAY",
                                  "PAUSE",
                                  "TEARDOWN",
                                  "STANDBY",
                                  "STOPPED",
                                  "NEGOTIATED",
                                  "NEGOTIATING",
                                  "ESTABLISHED",
                                  "ENABLED",
                                  "MMStreamStarted",
                                  "AudioProxyOpened",
                                  "10000001",
                                  "RTSPCloseCallback"};

struct Producer : android::IGraphicBufferProducer {};

// One client, with a session whenever an input begins.
void prepareSession() {
    static const int made = startWfdConnection("", "192.168.49.2", 7236, 1, nullptr, nullptr);
    require(made == 0);
    WfdDevice local{};
    WfdDevice peer{};
    gWFDClient.load()->createWfdSession(&local, &peer);  // refused while there is one
}

void fill(FuzzedDataProvider& input, Object& object) {
    if (input.ConsumeBool()) {
        snprintf(object, sizeof object, "%s", input.PickValueInArray(kTexts));
        return;
    }
    const std::string text = input.ConsumeRandomLengthString(sizeof object);
    memcpy(object, text.data(), text.size());  // without an end when it fills the object
}

void useExistingProducer(Object& object) {
    static const android::sp<android::IGraphicBufferProducer> producer = new Producer;
    char text[sizeof object + 1] = {};
    memcpy(text, object, sizeof object);
    if (strtoull(text, nullptr, 10) == 0) return;
    snprintf(object, sizeof object, "%zu", reinterpret_cast<uintptr_t>(producer.get()));
}

void report(FuzzedDataProvider& input) {
    const std::vector<char> name = exactText(
        input.ConsumeBool() ? input.PickValueInArray(kNames) : input.ConsumeRandomLengthString(40));
    const auto count = input.ConsumeIntegralInRange<int>(-3, 8);
    const std::unique_ptr<Object[]> objects(new Object[static_cast<size_t>(std::max(count, 0))]());
    for (int i = 0; i < count; ++i) fill(input, objects[static_cast<size_t>(i)]);
    if (count >= 5) useExistingProducer(objects[4]);
    const int choice = input.ConsumeIntegralInRange<int>(0, 15);
    miracastWfdStringArrayCallback(choice == 0 ? nullptr : name.data(), count,
                                   choice == 1 ? nullptr : objects.get(), nullptr);
    require(memchr(wfdSessionId, '\0', sizeof wfdSessionId) != nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    prepareSession();
    wfd_device_type = input.ConsumeIntegralInRange<int>(0, 1);
    uibc_setup_done = input.ConsumeIntegralInRange<int>(0, 1);
    while (input.remaining_bytes() > 0) report(input);
    return 0;
}
