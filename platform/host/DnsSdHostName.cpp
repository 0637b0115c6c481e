// DNSSetHostname on Avahi's daemon.
#include <avahi-client/client.h>
#include <avahi-common/domain.h>
#include <avahi-common/error.h>
#include <avahi-common/thread-watch.h>
#include <dns_sd.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "DnsSdReference.h"
#include "UniqueFd.h"

using namespace hostplatform;

namespace {

DNSServiceErrorType toDnsSdError(int avahiError) {
    switch (avahiError) {
        case AVAHI_ERR_NO_DAEMON:
        case AVAHI_ERR_DISCONNECTED:
        case AVAHI_ERR_DBUS_ERROR:
            return kDNSServiceErr_ServiceNotRunning;
        case AVAHI_ERR_INVALID_HOST_NAME:
            return kDNSServiceErr_BadParam;
        case AVAHI_ERR_COLLISION:
            return kDNSServiceErr_NameConflict;
        case AVAHI_ERR_ACCESS_DENIED:
        case AVAHI_ERR_NOT_PERMITTED:
            return kDNSServiceErr_NoAuth;
        case AVAHI_ERR_NO_MEMORY:
        case AVAHI_ERR_TOO_MANY_CLIENTS:
        case AVAHI_ERR_TOO_MANY_OBJECTS:
            return kDNSServiceErr_NoMemory;
        case AVAHI_ERR_VERSION_MISMATCH:
            return kDNSServiceErr_Incompatible;
        default:
            return kDNSServiceErr_Unknown;
    }
}

// A connection to the daemon of its own, served by a thread of Avahi's until the reference is
// closed; what comes of it is handed over under mMutex and announced on mReady.
class HostNameChange : public DnsSdReference {
 public:
    HostNameChange(const char* hostName, DNSSetHostnameReply reply, void* context)
        : mHostName(hostName), mReply(reply), mContext(context) {}
    ~HostNameChange() override { close(); }

    DNSServiceErrorType start();

    int descriptor() const override { return mReady.get(); }
    DNSServiceErrorType process() override;
    void close() override;

 private:
    struct Result {
        DNSServiceErrorType error = kDNSServiceErr_NoError;
        std::string hostName;
    };

    static void onState(AvahiClient* client, AvahiClientState state, void* self) {
        static_cast<HostNameChange*>(self)->advance(client, state);
    }
    void advance(AvahiClient* client, AvahiClientState state);
    void succeed(AvahiClient* client);
    void finish(Result result);

    const std::string mHostName;
    const DNSSetHostnameReply mReply;
    void* const mContext;
    UniqueFd mReady{eventfd(0, EFD_CLOEXEC)};
    AvahiThreadedPoll* mPoll = nullptr;
    AvahiClient* mClient = nullptr;

    // Of the daemon's thread, and before it has started of start().
    bool mAsked = false;
    bool mFinished = false;

    std::mutex mMutex;  // guards mResult
    std::optional<Result> mResult;
};

DNSServiceErrorType HostNameChange::start() {
    if (!mReady) return kDNSServiceErr_NoMemory;
    mPoll = avahi_threaded_poll_new();
    if (mPoll == nullptr) return kDNSServiceErr_NoMemory;
    int error = 0;
    // Calls onState at once, with the daemon's present state.
    mClient =
        avahi_client_new(avahi_threaded_poll_get(mPoll), AvahiClientFlags{}, onState, this, &error);
    if (mClient == nullptr) return toDnsSdError(error);
    if (mResult && mResult->error != kDNSServiceErr_NoError) return mResult->error;
    return avahi_threaded_poll_start(mPoll) == 0 ? kDNSServiceErr_NoError : kDNSServiceErr_NoMemory;
}

// The daemon takes the name over at once, and then probes for it on the network (REGISTERING); on a
// conflict (COLLISION) it tries further names by itself. When it is RUNNING again, its name is
// established. Asking only a RUNNING daemon makes sure that the next RUNNING belongs to our name.
void HostNameChange::advance(AvahiClient* client, AvahiClientState state) {
    if (mFinished) return;
    if (state == AVAHI_CLIENT_FAILURE) {
        finish({toDnsSdError(avahi_client_errno(client)), {}});
    } else if (state == AVAHI_CLIENT_S_RUNNING && mAsked) {
        succeed(client);
    } else if (state == AVAHI_CLIENT_S_RUNNING) {
        mAsked = true;
        const int error = avahi_client_set_host_name(client, mHostName.c_str());
        if (error == AVAHI_ERR_NO_CHANGE) {
            succeed(client);
        } else if (error != AVAHI_OK) {
            finish({toDnsSdError(error), {}});
        }
    }
}

void HostNameChange::succeed(AvahiClient* client) {
    const char* const name = avahi_client_get_host_name(client);
    if (name != nullptr) {
        finish({kDNSServiceErr_NoError, name});
    } else {
        finish({toDnsSdError(avahi_client_errno(client)), {}});
    }
}

void HostNameChange::finish(Result result) {
    mFinished = true;
    {
        const std::lock_guard lock(mMutex);
        mResult = std::move(result);
    }
    eventfd_write(mReady.get(), 1);
}

DNSServiceErrorType HostNameChange::process() {
    eventfd_t count = 0;
    if (TEMP_FAILURE_RETRY(eventfd_read(mReady.get(), &count)) != 0) return kDNSServiceErr_Unknown;
    Result result;
    {
        const std::lock_guard lock(mMutex);
        result = *mResult;
    }
    mReply(handle(), 0, result.error,
           result.error == kDNSServiceErr_NoError ? result.hostName.c_str() : nullptr, mContext);
    return kDNSServiceErr_NoError;
}

void HostNameChange::close() {
    if (mPoll != nullptr) avahi_threaded_poll_stop(mPoll);  // from here on no other thread
    if (mClient != nullptr) avahi_client_free(std::exchange(mClient, nullptr));
    if (mPoll != nullptr) avahi_threaded_poll_free(std::exchange(mPoll, nullptr));
    mReady.reset();
}

}  // namespace

DNSServiceErrorType DNSSetHostname(DNSServiceRef* ref, DNSServiceFlags flags, const char* hostName,
                                   DNSSetHostnameReply callBack, void* context) {
    if (flags != 0) return kDNSServiceErr_BadFlags;
    if (ref == nullptr || hostName == nullptr || callBack == nullptr ||
        avahi_is_valid_host_name(hostName) == 0) {
        return kDNSServiceErr_BadParam;
    }
    auto change = std::make_shared<HostNameChange>(hostName, callBack, context);
    const DNSServiceErrorType error = change->start();
    if (error == kDNSServiceErr_NoError) *ref = publish(std::move(change));
    return error;
}
