// What this library adds to the installed DNS-SD client library: references of its own.
//
// It provides DNSServiceRegister (DnsSdRegister.cpp), and DNSServiceRefSockFD,
// DNSServiceProcessResult and DNSServiceRefDeallocate in place of the client library's; a reference
// of its own they serve here, any other they pass on. For this the product has to be linked with
// this library before the client library.
#pragma once

#include <dns_sd.h>

#include <memory>

namespace hostplatform {

// What stands behind a DNSServiceRef of this library.
//
// Lifetime: owned by the table of references from publish() until DNSServiceRefDeallocate, and in
// addition by a DNSServiceProcessResult in progress. Threading: as the interface demands of its
// callers, no two of the functions run at the same time, except that close() may be called inside
// process().
class DnsSdReference {
 public:
    virtual ~DnsSdReference() = default;

    // Readable while process() has something to do; the same one until close().
    virtual int descriptor() const = 0;
    // Does one round of what there is to do, calling back; blocks while there is nothing.
    virtual DNSServiceErrorType process() = 0;
    // Ends everything; no callback afterwards, also when called from inside one.
    virtual void close() = 0;

    DNSServiceRef handle() { return reinterpret_cast<DNSServiceRef>(this); }
};

// Makes the reference known and returns its handle, under which the three functions find it.
DNSServiceRef publish(std::shared_ptr<DnsSdReference> reference);

// The client library's own functions.
struct NativeDnsSd {
    decltype(&DNSServiceRegister) registerService;
    decltype(&DNSServiceRefSockFD) refSockFd;
    decltype(&DNSServiceProcessResult) processResult;
    decltype(&DNSServiceRefDeallocate) refDeallocate;
};
const NativeDnsSd& nativeDnsSd();

}  // namespace hostplatform
