// This device in the discovery of Wi-Fi Display R2 peers: registers it, browses for peers, resolves
// one, and runs the trigger. WfdDiscovery.h says what each operation does; those here have the same
// results.
//
// It makes no DNS-SD call itself: it gives text commands to its channel and is the channel's
// listener. Every command begins with a sequence number, which the channel ignores.
//
// Threads. Operations are called on the command thread, one at a time; resolve also from inside a
// discovery callback. on...Result run on the channel's monitor thread, and call the callbacks.
//
//   mRegisterCallback, mDiscoverCallback: atomic; written by the command thread, read by the
//   monitor thread.
//   mResolveCallback, mResolvingInfo: mResolveLock; both threads read and write them.
//   mCommandSeq, mLastResult, mAddressQueried: atomic. Both threads make commands, so that what is
//   read from mLastResult after a command may be the answer to one of the other thread.
//   Everything else: the command thread alone.
//
// No lock is held during a command or a callback, so a stop may wait for the result in progress.
//
// Destruction, on the command thread, stops every request, and each stop waits until no result of
// it runs. The browses go before the resolution, which their results may begin, and that before the
// address query, which its result may begin. A failed resolution was stopped by its own result,
// whose last touch of this object is the critical section in which it clears the callback.
#pragma once

#include <atomic>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <string>

#include "MDnsResultListener.h"
#include "MDnsSdChannel.h"
#include "WFDTriggerTcpServer.h"
#include "WfdDiscovery.h"

struct WfdServiceConsts;

class MIRACAST_SIGMA_EXPORT WFDmDns : public MDnsResultListener {
 public:
    // Starts the channel's monitor thread.
    WFDmDns();
    WFDmDns(const WFDmDns&) = delete;
    WFDmDns& operator=(const WFDmDns&) = delete;
    // Leaves the trigger server running, with the callback that it has.
    ~WFDmDns() override;

    int sendMsg(int code, const char* message, bool flag) override;
    int sendBroadcast(int code, const char* message, bool flag) override;
    void onDiscoverResult(int code, const char* serviceName, const char* regType,
                          const char* domain) override;
    void onRegisterResult(int code, const char* serviceName, const char* regType,
                          const char* domain) override;
    void onResolveResult(int code, const char* fullName, const char* hostTarget, int port,
                         int txtLen, const unsigned char* txtRecord) override;
    void onGetAddrResult(int code, const char* hostname, const char* address) override;

    // Gives the channel one command, whose reply is in mLastResult afterwards. The channel's
    // result.
    int runCommand(std::initializer_list<std::string> args);

    // The platform's mDNS daemon; 0 whatever came of it.
    int startService();
    int stopService();

    int registerSink(int deviceSinkType, MDnsRegisterCallback callback);
    int registerSource(const std::string& name, int port, MDnsRegisterCallback callback);
    int unregister();

    int discover(int deviceTypes, MDnsDiscoverCallback callback);
    int discoverAType(int type);
    int stopDiscoverAType(int type);
    int stopDiscovery();

    int resolve(const MDnsWfdServiceInfo& info, MDnsRegisterCallback callback);

    int setTriggerCallback(TriggerCallback callback);
    int triggerSinkConnect(const MDnsWfdServiceInfo& peer, const std::string& localAddress,
                           int localPort);

 private:
    std::string nextSequence();
    int registerService(const WfdServiceConsts& service, int port);
    bool makeTriggerServer();

    int mMyDeviceType = 0;                                         // as what it was last registered
    int mDiscoverTypes = 0;                                        // whose browses run
    std::atomic<MDnsRegisterCallback> mRegisterCallback{nullptr};  // while a registration is active
    std::atomic<MDnsDiscoverCallback> mDiscoverCallback{nullptr};
    MDnsRegisterCallback mResolveCallback = nullptr;
    TriggerCallback mTriggerCallback = nullptr;
    MDnsSdChannel mChannel{this};
    // Shared with a callback that is being given it while another resolution replaces it.
    std::shared_ptr<MDnsWfdServiceInfo> mResolvingInfo;
    WFDTriggerTcpServer* mTriggerServer = nullptr;  // never destroyed
    std::atomic<int> mLastResult{0};
    std::atomic<int> mCommandSeq{0};

    std::mutex mResolveLock;
    std::atomic<bool> mAddressQueried{false};
};
