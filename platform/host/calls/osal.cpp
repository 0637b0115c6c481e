#include "osal/osal.h"

#include <cstdlib>

#include "host/SimulatedDevice.h"
#include "host/text_format.h"

using namespace hostplatform;

void osal_sleep_ms(uint32_t milliseconds) { device().clock().sleep(milliseconds); }

uint64_t osal_clock_ms(void) { return device().clock().milliseconds(); }

void* osal_calloc(size_t count, size_t size, const char* file, int line) {
    const bool fails = device().faults().next(Fault::Allocation) != 0;
    void* const memory = fails ? nullptr : calloc(count, size);
    device().journal().add("memory", format("calloc %zu x %zu at %s:%d%s", count, size, file, line,
                                            memory == nullptr ? " failed" : ""));
    return memory;
}
