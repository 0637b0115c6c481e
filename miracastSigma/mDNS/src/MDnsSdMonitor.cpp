// The monitor of the DNS-SD command channel. Why it is right: MDnsSdChannel.h.
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "MDnsSdChannel.h"
#include "cutils/properties.h"
#include "mdns_log.h"
#include "osal/osal.h"

namespace {

constexpr int kRetired = -1;
constexpr int kAllocated = 0;
constexpr int kWatched = 1;

constexpr char kRescanByte = '1';
constexpr int kPollTimeoutMs = 10000000;
constexpr int kSpareEntries = 5;

constexpr const char* kService = "mdnsd";
constexpr const char* kServiceState = "init.svc.mdnsd";

// Waits up to 5 seconds for the daemon to reach a state.
void waitForService(const char* state) {
    char value[PROPERTY_VALUE_MAX] = "";
    for (int i = 0; i < 25; ++i) {
        osal_sleep_ms(200);
        if (property_get(kServiceState, value, nullptr) > 0 && strcmp(value, state) == 0) return;
    }
}

}  // namespace

struct MDnsSdChannel::Monitor::Element {
    Element(int requestId, Context* context) : mRequestId(requestId), mContext(context) {}
    virtual ~Element() { delete mContext; }
    Element(const Element&) = delete;
    Element& operator=(const Element&) = delete;

    const int mRequestId;
    Element* mNext = nullptr;
    DNSServiceRef mServiceRef = nullptr;
    Context* const mContext;  // owned
    int mState = kAllocated;
    bool mRefOpen = false;  // the reference may be processed; whoever clears it deallocates
    bool mFailed = false;   // processing it failed: its socket tells nothing any more
};

void MDnsSdChannel::Monitor::Free::operator()(void* memory) const { free(memory); }

MDnsSdChannel::Monitor::Monitor() {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, mControlSocket) != 0) {
        MDNS_LOGE("Error creating the monitor's control socket - got %d", errno);
        return;
    }
    pthread_t thread{};
    const int error = pthread_create(&thread, nullptr, threadStart, this);
    if (error != 0) {
        MDNS_LOGE("Error creating the monitor's thread - got %d", error);
        for (int& end : mControlSocket) close(std::exchange(end, -1));
        return;
    }
    pthread_detach(thread);
    mRunning = true;
}

MDnsSdChannel::Monitor::~Monitor() = default;

void* MDnsSdChannel::Monitor::threadStart(void* monitor) { static_cast<Monitor*>(monitor)->run(); }

void MDnsSdChannel::Monitor::run() {
    {
        const std::lock_guard lock(mMonitorLock);
        mMonitorThread = pthread_self();
    }
    allocatePollSet("initial calloc failed on mPollFds with a size of %d",
                    "initial calloc failed on mPollRefs with a size of %d");
    mPollFds[0].fd = mControlSocket[0];
    mPollFds[0].events = POLLIN;
    MDNS_LOGD("MDnsSdChannel starting to monitor");
    int pollCount = 1;
    while (true) {
        MDNS_LOGD("Going to poll with pollCount %d", pollCount);
        const int result = poll(mPollFds.get(), static_cast<nfds_t>(pollCount), kPollTimeoutMs);
        if (result < 0) {
            MDNS_LOGE("Error in poll - got %d", errno);
            continue;
        }
        if (result == 0) {
            MDNS_LOGD("MDnsSdChannel::Monitor poll timed out");
            continue;
        }
        MDNS_LOGD("Monitor poll got data pollCount = %d, %d", pollCount, result);
        for (int i = 1; i < pollCount; ++i) {
            if (mPollFds[i].revents != 0) processEntry(i);
        }
        MDNS_LOGD("controlSocket shows revent= %d", mPollFds[0].revents);
        const bool controlled = mPollFds[0].revents == POLLIN;
        mPollFds[0].revents = 0;
        if (!controlled) continue;
        char byte = 0;
        if (TEMP_FAILURE_RETRY(read(mControlSocket[0], &byte, 1)) != 1) {
            MDNS_LOGE("Error in reading the control socket - got %d", errno);
            continue;
        }
        MDNS_LOGD("MDnsSdChannel::Monitor got %c", byte);
        if (byte == kRescanByte) pollCount = rescan();
    }
}

void MDnsSdChannel::Monitor::processEntry(int entry) {
    Element* const element = mPollRefs[entry];
    pollfd& polled = mPollFds[entry];
    const int revents = polled.revents;
    polled.revents = 0;
    DNSServiceRef ref = nullptr;
    {
        const std::lock_guard lock(mMonitorLock);
        // A stop came first. The event may even be that of another request's socket; not to be seen
        // again before the next poll set.
        if (!element->mRefOpen) {
            polled.fd = -1;
            return;
        }
        ref = element->mServiceRef;
        mProcessing = element;
        ++mTurn;
    }
    MDNS_LOGD("Monitor found [%d].revents = %d - calling ProcessResults", entry, revents);
    const DNSServiceErrorType error = DNSServiceProcessResult(ref);
    {
        const std::lock_guard lock(mMonitorLock);
        mProcessing = nullptr;
        if (error != kDNSServiceErr_NoError && element->mRefOpen) {
            // The daemon is gone: the socket would stay readable, and poll would never wait again.
            MDNS_LOGE(
                "Request %d got an error from DNSServiceProcessResult %d, not polled any more",
                element->mRequestId, error);
            element->mFailed = true;
            polled.fd = -1;
        }
    }
    mProcessed.notify_all();
}

void MDnsSdChannel::Monitor::allocatePollSet(const char* formatFds, const char* formatRefs) {
    const auto capacity = static_cast<size_t>(mPollCapacity);
    const int size = mPollCapacity * 8;
    mPollFds.reset(static_cast<pollfd*>(calloc(capacity, sizeof(pollfd))));
    if (mPollFds == nullptr) __android_log_assert("(mPollFds == NULL)", "MDnsDS", formatFds, size);
    mPollRefs.reset(static_cast<Element**>(calloc(capacity, sizeof(Element*))));
    if (mPollRefs == nullptr)
        __android_log_assert("(mPollRefs == NULL)", "MDnsDS", formatRefs, size);
}

int MDnsSdChannel::Monitor::rescan() {
    MDNS_LOGD("MDnsSdChannel::Monitor poll rescanning - size=%d, live=%d", mPollCapacity,
              mLive.load());
    const std::lock_guard lock(mMonitorLock);
    if (mPollCapacity > mLive) {
        const auto capacity = static_cast<size_t>(mPollCapacity);
        memset(mPollFds.get(), 0, capacity * sizeof(pollfd));
        memset(mPollRefs.get(), 0, capacity * sizeof(Element*));
    } else {
        mPollCapacity = mLive + kSpareEntries;
        allocatePollSet("calloc failed on mPollFds with a size of %d",
                        "calloc failed on mPollRefs with a size of %d");
    }
    mPollFds[0].fd = mControlSocket[0];
    mPollFds[0].events = POLLIN;
    int count = 1;
    for (Element** link = &mElements; *link != nullptr;) {
        Element* const element = *link;
        if (element->mState == kRetired) {
            *link = element->mNext;
            delete element;
            continue;
        }
        link = &element->mNext;
        // A stop that has closed the reference may be deallocating it right now.
        if (element->mState != kWatched || !element->mRefOpen || element->mFailed) continue;
        const int socket = DNSServiceRefSockFD(element->mServiceRef);
        if (socket == -1) {
            MDNS_LOGE("Error retreving socket FD for live ServiceRef");
            continue;
        }
        mPollFds[count].fd = socket;
        mPollFds[count].events = POLLIN;
        mPollRefs[count] = element;
        ++count;
    }
    return count;
}

MDnsSdChannel::Monitor::Element** MDnsSdChannel::Monitor::findLink(int requestId) {
    Element** link = &mElements;
    while (*link != nullptr && (*link)->mRequestId != requestId) link = &(*link)->mNext;
    return link;
}

MDnsSdChannel::Monitor::Element* MDnsSdChannel::Monitor::find(int requestId) {
    return *findLink(requestId);
}

// Never waits: a full socket holds bytes that cause a rescan after this.
void MDnsSdChannel::Monitor::requestRescan() {
    const ssize_t sent =
        TEMP_FAILURE_RETRY(send(mControlSocket[1], &kRescanByte, 1, MSG_DONTWAIT | MSG_NOSIGNAL));
    if (sent != 1 && errno != EAGAIN) MDNS_LOGE("Error in asking for a rescan - got %d", errno);
    MDNS_LOGD("triggering rescan");
}

DNSServiceRef* MDnsSdChannel::Monitor::allocateServiceRef(int requestId, Context* context) {
    std::unique_ptr<Context> owned(context);
    std::unique_ptr<Element> element(new (std::nothrow) Element(requestId, context));
    if (element == nullptr) return nullptr;
    (void)owned.release();
    const std::lock_guard lock(mMonitorLock);
    if (find(requestId) != nullptr) return nullptr;  // the context goes with the element
    element->mNext = mElements;
    mElements = element.release();
    return &mElements->mServiceRef;
}

DNSServiceRef* MDnsSdChannel::Monitor::lookupServiceRef(int requestId) {
    const std::lock_guard lock(mMonitorLock);
    Element* const element = find(requestId);
    return element == nullptr ? nullptr : &element->mServiceRef;
}

void MDnsSdChannel::Monitor::startMonitoring(int requestId) {
    MDNS_LOGD("startMonitoring %d", requestId);
    {
        const std::lock_guard lock(mMonitorLock);
        Element* const element = find(requestId);
        if (element == nullptr) return;
        ++mLive;
        element->mState = kWatched;
        element->mRefOpen = true;
    }
    requestRescan();
}

DNSServiceRef* MDnsSdChannel::Monitor::closeServiceRef(int requestId, bool* mine) {
    std::unique_lock lock(mMonitorLock);
    Element* const element = find(requestId);
    // One that is being started has no reference yet that could be closed.
    if (element == nullptr || element->mState == kAllocated) return nullptr;
    *mine = element->mRefOpen;
    element->mRefOpen = false;
    DNSServiceRef* const ref = &element->mServiceRef;
    if (!pthread_equal(pthread_self(), mMonitorThread)) {
        // The element may be gone after the wait, when another stop was the one to deallocate, and
        // its address may be that of another: it is only compared, and its turn with it.
        const uint64_t turn = mTurn;
        mProcessed.wait(lock, [&] { return mProcessing != element || mTurn != turn; });
    }
    return ref;
}

void MDnsSdChannel::Monitor::freeServiceRef(int requestId) {
    MDNS_LOGD("freeServiceRef %d", requestId);
    const std::lock_guard lock(mMonitorLock);
    Element** const link = findLink(requestId);
    Element* const element = *link;
    if (element == nullptr) return;
    if (element->mState == kWatched) {
        --mLive;
        element->mState = kRetired;
        requestRescan();
    } else if (element->mState == kAllocated) {
        *link = element->mNext;
        delete element;
    }
    // A retired one is the monitor thread's to remove: its poll set may still name it.
}

int MDnsSdChannel::Monitor::startService() {
    const std::lock_guard lock(mMonitorLock);
    char value[PROPERTY_VALUE_MAX] = "";
    property_get(kServiceState, value, "");
    if (strcmp(value, "running") == 0) return 0;
    MDNS_LOGD("Starting MDNSD");
    property_set("ctl.start", kService);
    waitForService("running");
    return -1;
}

int MDnsSdChannel::Monitor::stopService() {
    const std::lock_guard lock(mMonitorLock);
    if (mElements != nullptr) return 0;
    MDNS_LOGD("Stopping MDNSD");
    property_set("ctl.stop", kService);
    waitForService("stopped");
    return -1;
}
