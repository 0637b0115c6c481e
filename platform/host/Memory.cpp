#include <cstdlib>

#include "Faults.h"
#include "Journal.h"
#include "osal/osal.h"

using namespace hostplatform;

void* osal_calloc(size_t count, size_t size, const char* file, int line) {
    void* const memory = faultStatus(Fault::Allocation) != 0 ? nullptr : calloc(count, size);
    Journal::instance().addFormatted("memory", "calloc %zu x %zu at %s:%d%s", count, size, file,
                                     line, memory == nullptr ? " failed" : "");
    return memory;
}
