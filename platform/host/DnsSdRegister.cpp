// DNSServiceRegister as a device has it: a name that is taken gets a number. Avahi's client library
// does so when another host has the name, but refuses one that this host has registered itself.
#include <avahi-common/alternative.h>
#include <avahi-common/malloc.h>

#include <memory>

#include "DnsSdReference.h"

namespace {

// More registrations of one name than a host will have.
constexpr int kMostNames = 100;

struct AvahiFree {
    void operator()(char* text) const { avahi_free(text); }
};

}  // namespace

DNSServiceErrorType DNSSD_API DNSServiceRegister(DNSServiceRef* ref, DNSServiceFlags flags,
                                                 uint32_t interfaceIndex, const char* name,
                                                 const char* regtype, const char* domain,
                                                 const char* host, uint16_t port, uint16_t txtLen,
                                                 const void* txtRecord,
                                                 DNSServiceRegisterReply callBack, void* context) {
    const auto registerAs = [&](const char* as) {
        return hostplatform::nativeDnsSd().registerService(ref, flags, interfaceIndex, as, regtype,
                                                           domain, host, port, txtLen, txtRecord,
                                                           callBack, context);
    };
    DNSServiceErrorType error = registerAs(name);
    const bool mayRename = name != nullptr && (flags & kDNSServiceFlagsNoAutoRename) == 0;
    std::unique_ptr<char, AvahiFree> other;
    for (int i = 0; mayRename && error == kDNSServiceErr_NameConflict && i < kMostNames; ++i) {
        other.reset(avahi_alternative_service_name(other == nullptr ? name : other.get()));
        error = registerAs(other.get());
    }
    return error;
}
