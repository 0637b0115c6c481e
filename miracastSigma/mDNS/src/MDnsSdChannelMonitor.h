// The requests of one channel, and the thread that waits for their results.
//
// Locking. mMonitorLock guards the list of elements, the fields of each element, and the members
// annotated with it. It is held for seconds while the daemon starts or stops. The monitor thread
// holds it during a rescan, whose only DNS-SD call is DNSServiceRefSockFD, and never during a
// result. So a result waits for it only if a rescan is due or the result gives a command. What each
// result needs is guarded by mResultLock, which is held for a few instructions. Where both are
// held, mMonitorLock is taken first. The other data:
//
//   an element's mServiceRef     filled by the starting thread before startMonitoring; afterwards
//                                the rules below hold
//   an element's mRefOpen        written with both locks held, read with either
//   an element's mWaitingStop    guarded by mResultLock
//   an element's mFailed         used by the monitor thread only
//   mLive                        atomic: written with mMonitorLock held, read without it
//   mPollFds, mPollRefs,
//   mPollCapacity                used by the monitor thread only
//   mControlSocket, mRunning     written by the constructor only
//
// A request's reference is open (mRefOpen) from startMonitoring until the first stop closes it.
//
// 1. A reference is never processed during or after its deallocation, and never deallocated twice.
//    The monitor thread processes open references only, and stores the element in mProcessing,
//    under mResultLock, before it begins. A stop closes the reference under the same lock. Only the
//    stop that closed it deallocates it, after the running result has returned; rule 2 has an
//    exception.
// 2. When a stop has been answered with 200, no result of the request runs any more: the stop waits
//    while the request is being processed. A stop on the monitor thread runs inside a result and
//    does not wait. If another thread's stop has closed the reference and waits for this result,
//    the stop inside the result deallocates the reference instead: otherwise DNS-SD could deliver
//    more results in the same call.
// 3. A poll entry names its element, not its descriptor. Only the monitor thread removes watched
//    elements, when it builds the next poll set. If the kernel has given the descriptor number of a
//    stopped request to another one, the event finds a closed element and is dropped.
// 4. A request id is in use while any element in the list has it, also a retired one. Search and
//    insertion are one step under mMonitorLock.
// 5. Without a control socket or a thread the monitor is not running, and the channel refuses every
//    command.
//
// No command waits until the monitor thread has read a control byte, so a result may give any
// number of commands: when the socket is full, the bytes in it cause a rescan after the change.
#pragma once

#include <dns_sd.h>
#include <poll.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "MDnsSdChannel.h"
#include "thread_annotations.h"
#include "utils/Condition.h"
#include "utils/Mutex.h"

class MIRACAST_SIGMA_EXPORT MDnsSdChannel::Monitor {
 public:
    // Starts the thread, which uses the monitor until the process ends. A failure is logged and
    // leaves isRunning() false.
    Monitor() noexcept;
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;
    virtual ~Monitor();  // call it only if no thread was started

    bool isRunning() const { return mRunning; }

    // Adds a request to the list and takes ownership of its context. Returns the place for the
    // request's reference. Returns null, with the context deleted and errno set, when the id is in
    // use (EBUSY) or without memory (ENOMEM). While a request that is being stopped has the id,
    // waits up to a second until the monitor thread has removed it; on the monitor thread it does
    // not wait.
    DNSServiceRef* allocateServiceRef(int requestId, Context* context) noexcept;

    // Returns the place of a listed request's reference; null when the id is unknown.
    DNSServiceRef* lookupServiceRef(int requestId) noexcept;

    // Starts to watch a request whose reference has been filled.
    void startMonitoring(int requestId) noexcept;

    // The first half of a stop: closes the request's reference and waits until no result of the
    // request runs. Returns the place of the reference; null for an id that is unknown or still
    // being started. When it sets *mustDeallocate, the caller deallocates the reference and then
    // calls freeServiceRef. When it clears it, another stop does so, and the caller must not touch
    // the reference.
    DNSServiceRef* closeServiceRef(int requestId, bool* mustDeallocate);

    // Removes a request: at once if it was never watched; with the next rescan if it was watched
    // and its reference has been closed and deallocated.
    void freeServiceRef(int requestId) noexcept;

    // Start or stop the platform's mDNS daemon and wait up to 5 seconds for it. Return -1 after
    // asking init for the change, even if the daemon did not follow. Return 0 without asking:
    // startService when the daemon runs already, stopService while requests are listed.
    int startService() noexcept;
    int stopService() noexcept;

 private:
    struct Element;
    struct Free {
        void operator()(void* memory) const;
    };

    static void* threadStart(void* monitor) noexcept;
    [[noreturn]] void run() noexcept;
    int rescan() noexcept;
    void allocatePollSet(const char* formatFds, const char* formatRefs);
    void processEntry(int entry);
    void requestRescan();
    bool onMonitorThread() const SIGMA_REQUIRES(mMonitorLock);
    // Returns the link to the element with that id, or the null link at the end of the list.
    Element** findLink(int requestId) SIGMA_REQUIRES(mMonitorLock);
    Element* find(int requestId) SIGMA_REQUIRES(mMonitorLock);

    Element* mElements SIGMA_GUARDED_BY(mMonitorLock) = nullptr;  // newest first
    std::atomic<int32_t> mLive{0};
    std::unique_ptr<pollfd[], Free> mPollFds;     // entry 0: the control socket
    std::unique_ptr<Element*[], Free> mPollRefs;  // of the same entry
    int32_t mPollCapacity = 10;
    pthread_t mMonitorThread SIGMA_GUARDED_BY(mMonitorLock){};  // set by the thread itself
    int mControlSocket[2] = {-1, -1};                           // read end, write end
    android::Mutex mMonitorLock;

    android::Condition mRemoved;  // with mMonitorLock: retired elements have been removed

    android::Mutex mResultLock;
    android::Condition mProcessed;  // with mResultLock: a result has returned
    // The element whose result may be running.
    const Element* mProcessing SIGMA_GUARDED_BY(mResultLock) = nullptr;
    uint64_t mResultCount SIGMA_GUARDED_BY(mResultLock) = 0;  // number of results so far
    bool mRunning = false;
};
