// The installed client library: how it is found behind this one, and what it needs to run well.
#include <avahi-common/malloc.h>
#include <dlfcn.h>

#include <cstdlib>

#include "DnsSdReference.h"
#include "android/log.h"

namespace hostplatform {

namespace {

template <typename Function>
void load(void* library, const char* name, Function& function) {
    void* const symbol = dlsym(library, name);
    if (symbol == nullptr) {
        __android_log_assert(name, "hostplatform", "no %s in the DNS-SD client library", name);
    }
    function = reinterpret_cast<Function>(symbol);
}

// When its daemon goes, Avahi's client library calls the first of a reference's callbacks (browse,
// resolve, domains, query) that is not null, but it leaves those of the other kinds as malloc gave
// them: a resolve or query then jumps to what the heap held before. In memory that is zero at first
// it calls the right one.
const AvahiAllocator zeroingAllocator = {
    [](size_t size) { return calloc(1, size); },
    free,
    realloc,
    calloc,
};

// When this library is loaded: before anything of Avahi has allocated, and before a thread that
// reads the environment could run.
__attribute__((constructor)) void prepareClientLibrary() {
    avahi_set_allocator(&zeroingAllocator);
    // Else it tells every program on standard error that it should use another interface.
    setenv("AVAHI_COMPAT_NOWARN", "1", 0);
}

}  // namespace

// Found through a function that only the client library has: the next library in the search order
// is not the same one for a program that was linked with it and for one that loaded it.
const NativeDnsSd& nativeDnsSd() {
    static const NativeDnsSd native = [] {
        NativeDnsSd functions{};
        Dl_info info{};
        void* library = nullptr;
        if (dladdr(reinterpret_cast<const void*>(&DNSServiceQueryRecord), &info) != 0) {
            library = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
        }
        load(library, "DNSServiceRegister", functions.registerService);
        load(library, "DNSServiceRefSockFD", functions.refSockFd);
        load(library, "DNSServiceProcessResult", functions.processResult);
        load(library, "DNSServiceRefDeallocate", functions.refDeallocate);
        return functions;
    }();
    return native;
}

}  // namespace hostplatform
