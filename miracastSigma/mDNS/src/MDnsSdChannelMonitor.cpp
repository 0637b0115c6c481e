// Locking rules: see MDnsSdChannelMonitor.h.
#include "MDnsSdChannelMonitor.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "SigpipeBlock.h"
#include "cutils/properties.h"
#include "detached_thread.h"
#include "mdns_log.h"
#include "osal/osal.h"

namespace {

constexpr int kRetired = -1;
constexpr int kAllocated = 0;
constexpr int kWatched = 1;

constexpr char kRescanByte = '1';
constexpr int kPollTimeoutMs = 10000000;
constexpr int kSpareEntries = 5;
constexpr int64_t kRemovalWaitNs = 1'000'000'000;

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
    bool mRefOpen = false;  // the monitor thread may process the reference
    // Not null while the stop that closed the reference waits for this request's result: that
    // stop's mustDeallocate, which a stop inside the result clears.
    bool* mWaitingStop = nullptr;
    bool mFailed = false;  // DNSServiceProcessResult failed; not polled any more
};

void MDnsSdChannel::Monitor::Free::operator()(void* memory) const { free(memory); }

MDnsSdChannel::Monitor::Monitor() noexcept {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, mControlSocket) != 0) {
        MDNS_LOGE("Error creating the monitor's control socket - got %d", errno);
        return;
    }
    const int error = startDetachedThread(threadStart, this);
    if (error != 0) {
        MDNS_LOGE("Error creating the monitor's thread - got %d", error);
        for (int& end : mControlSocket) close(std::exchange(end, -1));
        return;
    }
    mRunning = true;
}

MDnsSdChannel::Monitor::~Monitor() = default;

void* MDnsSdChannel::Monitor::threadStart(void* monitor) noexcept {
    static_cast<Monitor*>(monitor)->run();
}

void MDnsSdChannel::Monitor::run() noexcept {
    const SigpipeBlock noSigpipe;
    {
        const android::Mutex::Autolock lock(mMonitorLock);
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
        const android::Mutex::Autolock lock(mResultLock);
        if (!element->mRefOpen) {
            // A stop has closed the reference; the descriptor may belong to another request by now.
            // Do not poll it again before the next rescan.
            polled.fd = -1;
            return;
        }
        ref = element->mServiceRef;
        mProcessing = element;
        ++mResultCount;
    }
    MDNS_LOGD("Monitor found [%d].revents = %d - calling ProcessResults", entry, revents);
    const DNSServiceErrorType error = DNSServiceProcessResult(ref);
    bool failed = false;
    {
        const android::Mutex::Autolock lock(mResultLock);
        mProcessing = nullptr;
        element->mWaitingStop = nullptr;
        failed = error != kDNSServiceErr_NoError && element->mRefOpen;
    }
    mProcessed.broadcast();
    if (failed) {
        // The daemon has gone and its socket stays readable: polling it would never wait.
        MDNS_LOGE("Request %d got an error from DNSServiceProcessResult %d, not polled any more",
                  element->mRequestId, error);
        element->mFailed = true;
        polled.fd = -1;
    }
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

int MDnsSdChannel::Monitor::rescan() noexcept {
    MDNS_LOGD("MDnsSdChannel::Monitor poll rescanning - size=%d, live=%d", mPollCapacity,
              mLive.load());
    const android::Mutex::Autolock lock(mMonitorLock);
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
    bool removed = false;
    for (Element** link = &mElements; *link != nullptr;) {
        Element* const element = *link;
        if (element->mState == kRetired) {
            *link = element->mNext;
            delete element;
            removed = true;
            continue;
        }
        link = &element->mNext;
        // Skip a closed reference: another thread may be deallocating it.
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
    if (removed) mRemoved.broadcast();
    return count;
}

bool MDnsSdChannel::Monitor::onMonitorThread() const {
    return pthread_equal(pthread_self(), mMonitorThread) != 0;
}

MDnsSdChannel::Monitor::Element** MDnsSdChannel::Monitor::findLink(int requestId) {
    Element** link = &mElements;
    while (*link != nullptr && (*link)->mRequestId != requestId) link = &(*link)->mNext;
    return link;
}

MDnsSdChannel::Monitor::Element* MDnsSdChannel::Monitor::find(int requestId) {
    return *findLink(requestId);
}

// Never blocks: when the socket is full, the bytes in it cause a rescan after the change.
void MDnsSdChannel::Monitor::requestRescan() {
    const ssize_t sent =
        TEMP_FAILURE_RETRY(send(mControlSocket[1], &kRescanByte, 1, MSG_DONTWAIT | MSG_NOSIGNAL));
    if (sent != 1 && errno != EAGAIN) MDNS_LOGE("Error in asking for a rescan - got %d", errno);
    MDNS_LOGD("triggering rescan");
}

DNSServiceRef* MDnsSdChannel::Monitor::allocateServiceRef(int requestId,
                                                          Context* context) noexcept {
    std::unique_ptr<Element> element(new (std::nothrow) Element(requestId, context));
    if (element == nullptr) {
        delete context;
        errno = ENOMEM;
        return nullptr;
    }
    const android::Mutex::Autolock lock(mMonitorLock);
    const auto beingStopped = [](const Element& listed) {
        return listed.mState != kAllocated && !listed.mRefOpen;
    };
    for (const Element* listed = find(requestId);
         listed != nullptr && beingStopped(*listed) && !onMonitorThread();
         listed = find(requestId)) {
        if (mRemoved.waitRelative(mMonitorLock, kRemovalWaitNs) != android::OK) break;
    }
    if (find(requestId) != nullptr) {
        errno = EBUSY;
        return nullptr;  // deletes the element and with it the context
    }
    element->mNext = mElements;
    mElements = element.release();
    return &mElements->mServiceRef;
}

DNSServiceRef* MDnsSdChannel::Monitor::lookupServiceRef(int requestId) noexcept {
    const android::Mutex::Autolock lock(mMonitorLock);
    Element* const element = find(requestId);
    return element == nullptr ? nullptr : &element->mServiceRef;
}

void MDnsSdChannel::Monitor::startMonitoring(int requestId) noexcept {
    MDNS_LOGD("startMonitoring %d", requestId);
    {
        const android::Mutex::Autolock lock(mMonitorLock);
        Element* const element = find(requestId);
        if (element == nullptr) return;
        ++mLive;
        element->mState = kWatched;
        const android::Mutex::Autolock resultLock(mResultLock);
        element->mRefOpen = true;
    }
    requestRescan();
}

DNSServiceRef* MDnsSdChannel::Monitor::closeServiceRef(int requestId, bool* mustDeallocate) {
    Element* element = nullptr;
    DNSServiceRef* ref = nullptr;
    uint64_t count = 0;
    {
        const android::Mutex::Autolock lock(mMonitorLock);
        element = find(requestId);
        // The reference of an allocated element is still being filled.
        if (element == nullptr || element->mState == kAllocated) return nullptr;
        ref = &element->mServiceRef;
        const android::Mutex::Autolock resultLock(mResultLock);
        *mustDeallocate = std::exchange(element->mRefOpen, false);
        if (onMonitorThread()) {
            if (bool* const waiting = std::exchange(element->mWaitingStop, nullptr)) {
                *waiting = false;
                *mustDeallocate = true;
            }
            return ref;
        }
        if (*mustDeallocate && mProcessing == element) element->mWaitingStop = mustDeallocate;
        count = mResultCount;
    }
    // If another stop deallocates the reference, the element may be deleted by now and its address
    // reused. Compare the pointer only; mResultCount tells a reused address from the same element.
    const android::Mutex::Autolock resultLock(mResultLock);
    while (mProcessing == element && mResultCount == count) mProcessed.wait(mResultLock);
    return ref;
}

void MDnsSdChannel::Monitor::freeServiceRef(int requestId) noexcept {
    MDNS_LOGD("freeServiceRef %d", requestId);
    {
        const android::Mutex::Autolock lock(mMonitorLock);
        Element** const link = findLink(requestId);
        Element* const element = *link;
        if (element == nullptr) return;
        if (element->mState == kAllocated) {
            *link = element->mNext;
            delete element;
            return;
        }
        if (element->mState != kWatched) return;
        // The monitor thread removes the element: its poll set may still name it.
        --mLive;
        element->mState = kRetired;
    }
    // Without the lock, for which the monitor thread would wait as soon as it wakes up.
    requestRescan();
}

int MDnsSdChannel::Monitor::startService() noexcept {
    const android::Mutex::Autolock lock(mMonitorLock);
    char value[PROPERTY_VALUE_MAX] = "";
    property_get(kServiceState, value, "");
    if (strcmp(value, "running") == 0) return 0;
    MDNS_LOGD("Starting MDNSD");
    property_set("ctl.start", kService);
    waitForService("running");
    return -1;
}

int MDnsSdChannel::Monitor::stopService() noexcept {
    const android::Mutex::Autolock lock(mMonitorLock);
    if (mElements != nullptr) return 0;
    MDNS_LOGD("Stopping MDNSD");
    property_set("ctl.stop", kService);
    waitForService("stopped");
    return -1;
}
