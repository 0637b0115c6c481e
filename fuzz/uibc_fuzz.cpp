// User input as the session client hands it over: queued, taken and injected, in any order. The
// worker does not run; what it would take is taken here.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "FuzzDevice.h"
#include "uibc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    flushUIBCList();
    size_t queued = 0;
    while (input.remaining_bytes() > 0) {
        const auto op = input.ConsumeIntegralInRange<uint32_t>(0, 3);
        if (op == 0) {
            WFD_uibc_event_t event{};
            event.type = input.ConsumeIntegralInRange<uint32_t>(0, 3);
            input.ConsumeData(event.params, sizeof event.params);
            require(injectEvent(&event, nullptr, nullptr, nullptr));
            ++queued;
            require(memcmp(myList.back().params, event.params, sizeof event.params) == 0);
        } else if (op == 1) {
            manipulateList(uibcItem{0, {}});
            queued -= std::min<size_t>(queued, 1);
        } else if (op == 2) {
            manipulateList(uibcItem{input.ConsumeIntegralInRange<uint32_t>(2, 300), {}});
        } else {
            const int code = keysym2keycode(input.ConsumeIntegral<unsigned>());
            require(code >= 0 && code <= 163);
        }
        require(myList.size() == queued);
    }
    require(!injectEvent(nullptr, nullptr, nullptr, nullptr));
    return 0;
}
