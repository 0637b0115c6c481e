// The DNS-SD command channel: text commands in, result lines and structured results out.
//
// Usage. The owner implements MDnsResultListener, makes a channel with it and gives it commands as
// argument vectors {sequence, word, request id, ...}. Each is answered by one sendMsg. The caller
// chooses the request id of what it starts, and stops it by the same id; results carry it. Before
// an owner goes it stops every request that it started: their results go to the listener until
// then.
//
// Lifetime. The channel owns its handler. The monitor and its thread are made with the channel and
// live until the process ends.
//
// Threads and locks. Commands may come from any thread, also from inside a result. The monitor
// thread polls the sockets of all watched requests and runs every result. A stop waits for the
// request's result in progress: hold nothing across it that a result may wait for, and let no two
// channels' results stop each other's requests.
//
//   list, links, states, mRefOpen, mProcessing, mTurn    guarded by mMonitorLock
//   mMonitorThread                                       likewise; written once, by that thread
//   mLive                                                written under it, read anywhere: atomic
//   mServiceRef of an element                            the starting thread until startMonitoring;
//                                                        then whoever may use it, as below
//   mPollFds, mPollRefs, mPollCapacity, mFailed          the monitor thread alone
//   mControlSocket, mRunning                             written by the constructor alone
//
// mMonitorLock is never held during a result or a DNS-SD call, but for DNSServiceRefSockFD.
//
// A request's reference is open (mRefOpen) from startMonitoring until one stop closes it, and these
// hold:
//
// 1. A reference is not processed after or during its deallocation, nor deallocated twice. The
//    monitor processes, and looks up the socket of, open references only, and says under the lock
//    which one (mProcessing) before it begins. A stop closes the reference under the same lock;
//    only the one that found it open deallocates it, and not while it is being processed on another
//    thread.
// 2. A stop that is answered with 200 returns when no result of the request can run any more: every
//    such stop waits while the request is being processed, whether or not it is the one that
//    deallocates. On the monitor thread it does not wait: then it is inside that very result, and
//    DNS-SD delivers none after it for a reference deallocated there; or inside the result of
//    another request, and this one is not being processed.
// 3. A poll entry names its element, not its descriptor. Elements that the poll set names are
//    removed by the monitor thread alone, when it makes the next poll set. So an event on a
//    descriptor number that the kernel has given to another request meets a closed element, and is
//    dropped.
// 4. A request id is taken while any element in the list has it, and search and insertion are one
//    step under the lock. A watched request's element leaves the list in rescan and nowhere else.
// 5. Without a control socket or a thread the monitor is not running, and every command is refused.
//
// No command waits for the monitor thread to read a control byte, so results may give any number of
// commands: a byte that does not fit into the socket is not needed, since those in it cause a
// rescan after it.
#pragma once

#include <dns_sd.h>
#include <poll.h>
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "MDnsResultListener.h"

class MIRACAST_SIGMA_EXPORT MDnsSdChannel {
 public:
    class Handler;
    class Monitor;

    // What a request's DNS-SD callback gets: whom it reports to, and as what.
    class Context {
     public:
        Context(MDnsResultListener* listener, MDnsSdChannel* channel, int requestId)
            : mListener(listener), mChannel(channel), mRequestId(requestId) {}

        MDnsResultListener* const mListener;
        MDnsSdChannel* const mChannel;
        const int mRequestId;
    };

    // Starts the monitor thread. `listener` is not owned and outlives the channel's requests.
    explicit MDnsSdChannel(MDnsResultListener* listener);
    MDnsSdChannel(const MDnsSdChannel&) = delete;
    MDnsSdChannel& operator=(const MDnsSdChannel&) = delete;
    virtual ~MDnsSdChannel();

    // Carries out one command; its answer goes to the listener. The vector stays the caller's.
    // Returns -1 for a vector of less than two entries, else 0.
    int runCommand(int argc, char** argv);

 private:
    MDnsResultListener* mListener;
    Handler* mHandler;
};

// Parses commands and carries them out; keeps nothing between them.
class MIRACAST_SIGMA_EXPORT MDnsSdChannel::Handler {
 public:
    // Neither is owned.
    Handler(Monitor* monitor, MDnsSdChannel* channel);
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;
    virtual ~Handler();

    // As MDnsSdChannel::runCommand, with the answer to `listener`.
    int runCommand(MDnsResultListener* listener, int argc, char** argv);

 private:
    struct StartTexts;

    // Interface names are only logged, as are the request flags: every request is made for any
    // interface, without flags.
    void discover(MDnsResultListener* listener, const char* interfaceName, const char* regType,
                  const char* domain, int requestId, int requestFlags);
    // `port` in host byte order.
    void serviceRegister(MDnsResultListener* listener, int requestId, const char* interfaceName,
                         const char* serviceName, const char* serviceType, const char* domain,
                         const char* host, int port, int txtLen, void* txtRecord);
    void resolveService(MDnsResultListener* listener, int requestId, const char* interfaceName,
                        const char* serviceName, const char* regType, const char* domain);
    // `protocol` as DNSServiceGetAddrInfo takes it.
    void getAddrInfo(MDnsResultListener* listener, int requestId, const char* interfaceName,
                     uint32_t protocol, const char* hostname);
    void setHostname(MDnsResultListener* listener, int requestId, const char* hostname);
    // `operation` is the word of what is stopped; any request of that id is.
    void stop(MDnsResultListener* listener, int argc, char** argv, const char* operation);

    void registerFromText(MDnsResultListener* listener, char** argv);

    // What all starting operations have in common. `call` makes the DNS-SD call with the reference
    // to fill and the callback context, and returns its error.
    template <typename Call>
    void start(MDnsResultListener* listener, int requestId, const StartTexts& texts, Call call);

    // How flags and interface names of commands map to DNS-SD's: to none and any.
    static int iToFlags(int flags);
    static int ifaceNameToI(const char* interfaceName);
    static const char* iToIfaceName(int interfaceIndex);
    static int flagsToI(uint32_t flags);

    MDnsSdChannel* mChannel;
    Monitor* mMonitor;
};

// The table of outstanding requests and the thread that waits for their results.
class MIRACAST_SIGMA_EXPORT MDnsSdChannel::Monitor {
 public:
    // Starts the thread. A failure is logged; isRunning() tells.
    Monitor();
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;
    // Only for one that does not run: the thread of another goes on with it until the process ends.
    virtual ~Monitor();

    bool isRunning() const { return mRunning; }

    // Lists a request and takes possession of its context. Returns where its reference goes; null,
    // and the context deleted, when the id is in use.
    DNSServiceRef* allocateServiceRef(int requestId, Context* context);

    // Where the reference of a listed request is; null when the id is unknown.
    DNSServiceRef* lookupServiceRef(int requestId);

    // Begins to watch a request whose reference has been filled.
    void startMonitoring(int requestId);

    // The first half of a stop: closes the request's reference and waits until no result of it
    // runs. Returns where the reference is; null for an id that is unknown or still being started.
    // With *mine set, the caller deallocates the reference and then calls freeServiceRef; without,
    // another stop does, and the reference is not to be touched.
    DNSServiceRef* closeServiceRef(int requestId, bool* mine);

    // Ends a request: one that was never watched at once, a watched one, whose reference has been
    // closed and deallocated before, with the next rescan.
    void freeServiceRef(int requestId);

    // Starts or stops the platform's mDNS daemon and waits up to 5 seconds for it. -1 when that was
    // asked for, whatever came of it; 0 when the daemon runs already, or requests are listed.
    int startService();
    int stopService();

 private:
    struct Element;
    struct Free {
        void operator()(void* memory) const;
    };

    static void* threadStart(void* monitor);
    [[noreturn]] void run();
    int rescan();
    void allocatePollSet(const char* formatFds, const char* formatRefs);
    void processEntry(int entry);
    // With mMonitorLock held: what leads to the listed element, or to null.
    Element** findLink(int requestId);
    Element* find(int requestId);
    void requestRescan();

    Element* mElements = nullptr;  // newest first
    std::atomic<int32_t> mLive{0};
    std::unique_ptr<pollfd[], Free> mPollFds;     // entry 0: the control socket
    std::unique_ptr<Element*[], Free> mPollRefs;  // parallel to it
    int32_t mPollCapacity = 10;
    pthread_t mMonitorThread{};        // set by the thread itself, under mMonitorLock
    int mControlSocket[2] = {-1, -1};  // read end, write end
    std::mutex mMonitorLock;

    std::condition_variable mProcessed;    // mProcessing has changed
    const Element* mProcessing = nullptr;  // whose result may be running
    uint64_t mTurn = 0;                    // counts them
    bool mRunning = false;                 // written by the constructor alone
};

// The DNS-SD callbacks; the context is the request's MDnsSdChannel::Context.
MIRACAST_SIGMA_EXPORT void MDnsSdListenerDiscoverCallback(
    DNSServiceRef ref, DNSServiceFlags flags, uint32_t interfaceIndex, DNSServiceErrorType error,
    const char* serviceName, const char* regType, const char* domain, void* context);
MIRACAST_SIGMA_EXPORT void MDnsSdListenerRegisterCallback(DNSServiceRef ref, DNSServiceFlags flags,
                                                          DNSServiceErrorType error,
                                                          const char* serviceName,
                                                          const char* regType, const char* domain,
                                                          void* context);
MIRACAST_SIGMA_EXPORT void MDnsSdListenerResolveCallback(
    DNSServiceRef ref, DNSServiceFlags flags, uint32_t interfaceIndex, DNSServiceErrorType error,
    const char* fullName, const char* hostTarget, uint16_t port, uint16_t txtLen,
    const unsigned char* txtRecord, void* context);
MIRACAST_SIGMA_EXPORT void MDnsSdListenerGetAddrInfoCallback(
    DNSServiceRef ref, DNSServiceFlags flags, uint32_t interfaceIndex, DNSServiceErrorType error,
    const char* hostname, const struct sockaddr* address, uint32_t timeToLive, void* context);
MIRACAST_SIGMA_EXPORT void MDnsSdListenerSetHostnameCallback(DNSServiceRef ref,
                                                             DNSServiceFlags flags,
                                                             DNSServiceErrorType error,
                                                             const char* hostname, void* context);
