#include "DnsSdReference.h"

#include <mutex>
#include <unordered_map>
#include <utility>

namespace hostplatform {

namespace {

class References {
 public:
    static References& instance() {
        static auto* const references = new References;
        return *references;
    }

    void add(std::shared_ptr<DnsSdReference> reference) {
        const std::lock_guard lock(mMutex);
        mReferences.emplace(reference->handle(), std::move(reference));
    }
    std::shared_ptr<DnsSdReference> find(DNSServiceRef handle) const {
        const std::lock_guard lock(mMutex);
        const auto found = mReferences.find(handle);
        return found == mReferences.end() ? nullptr : found->second;
    }
    std::shared_ptr<DnsSdReference> take(DNSServiceRef handle) {
        const std::lock_guard lock(mMutex);
        const auto node = mReferences.extract(handle);
        return node.empty() ? nullptr : node.mapped();
    }

 private:
    mutable std::mutex mMutex;  // guards mReferences; not held while a reference is called
    std::unordered_map<DNSServiceRef, std::shared_ptr<DnsSdReference>> mReferences;
};

}  // namespace

DNSServiceRef publish(std::shared_ptr<DnsSdReference> reference) {
    const DNSServiceRef handle = reference->handle();
    References::instance().add(std::move(reference));
    return handle;
}

}  // namespace hostplatform

using hostplatform::nativeDnsSd;
using hostplatform::References;

int DNSServiceRefSockFD(DNSServiceRef sdRef) {
    const auto own = References::instance().find(sdRef);
    return own != nullptr ? own->descriptor() : nativeDnsSd().refSockFd(sdRef);
}

DNSServiceErrorType DNSServiceProcessResult(DNSServiceRef sdRef) {
    const auto own = References::instance().find(sdRef);
    return own != nullptr ? own->process() : nativeDnsSd().processResult(sdRef);
}

void DNSServiceRefDeallocate(DNSServiceRef sdRef) {
    if (const auto own = References::instance().take(sdRef)) {
        own->close();
    } else {
        nativeDnsSd().refDeallocate(sdRef);
    }
}
