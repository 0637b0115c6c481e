// This device's end of the DNS-SD command channel: registers the device as a Wi-Fi Display R2 peer,
// browses, resolves a peer and runs the trigger. wfd_discovery.h documents these operations and
// their results and exports them for the one object of the process.
//
// It makes no DNS-SD call itself: it gives text commands to its channel and is the channel's
// listener. Every command begins with a sequence number, which the channel ignores.
//
// Threads. Operations are called on the command thread, one at a time; resolve also inside a
// discovery or address callback. The functions on...Result run on the channel's monitor thread and
// call the callbacks. Both threads give commands: the result of a command is the answer that
// sendMsg gets on the same thread, not mLastResult. The command thread alone uses the members that
// are neither atomic nor annotated. No lock is held during a command or a callback, because a stop
// may wait for a running result.
//
// Destruction, on the command thread, stops every request, and each stop waits until no result of
// the request runs: first the browses, whose results may start a resolution, then the resolution,
// whose result may start an address query, then the address query. An address callback may start a
// resolution, too: once mEnding is set, resolve refuses, and a resolve that had begun before stops
// its request itself.
#pragma once

#include <atomic>
#include <initializer_list>
#include <string>

#include "MDnsResultListener.h"
#include "MDnsSdChannel.h"
#include "WFDTriggerTcpServer.h"
#include "thread_annotations.h"
#include "utils/Mutex.h"
#include "wfd_discovery.h"

struct WfdServiceConsts;

class MIRACAST_SIGMA_EXPORT WFDmDns : public MDnsResultListener {
 public:
    // Starts the channel's monitor thread.
    WFDmDns() noexcept;
    WFDmDns(const WFDmDns&) = delete;
    WFDmDns& operator=(const WFDmDns&) = delete;
    // The trigger server keeps running, with its callback.
    ~WFDmDns() override;

    int sendMsg(int code, const char* message, bool flag) noexcept override;
    int sendBroadcast(int code, const char* message, bool flag) noexcept override;
    void onDiscoverResult(int code, const char* serviceName, const char* regType,
                          const char* domain) noexcept override;
    void onRegisterResult(int code, const char* serviceName, const char* regType,
                          const char* domain) noexcept override;
    void onResolveResult(int code, const char* fullName, const char* hostTarget, int port,
                         int txtLen, const unsigned char* txtRecord) noexcept override;
    void onGetAddrResult(int code, const char* hostname, const char* address) noexcept override;

    // Gives the channel one command. Returns MDnsSdChannel::runCommand's result; -1 also without
    // memory.
    int runCommand(std::initializer_list<std::string> args) noexcept;

    // Start and stop the platform's mDNS daemon. Return 0 whether or not it worked.
    int startService() noexcept;
    int stopService() noexcept;

    int registerSink(int deviceSinkType, MDnsRegisterCallback callback) noexcept;
    int registerSource(const std::string& name, int port, MDnsRegisterCallback callback) noexcept;
    int unregister() noexcept;

    int discover(int deviceTypes, MDnsDiscoverCallback callback) noexcept;
    int discoverAType(int type) noexcept;
    int stopDiscoverAType(int type) noexcept;
    int stopDiscovery() noexcept;

    int resolve(const MDnsWfdServiceInfo& info, MDnsRegisterCallback callback) noexcept;

    int setTriggerCallback(TriggerCallback callback) noexcept;
    int triggerSinkConnect(const MDnsWfdServiceInfo& peer, const std::string& localAddress,
                           int localPort) noexcept;

 private:
    // Gives the channel the command {next sequence number, words...}; returns the code of the
    // answer.
    template <typename... Words>
    int command(Words... words);
    int run(int argc, const char* const* argv);
    int registerService(const WfdServiceConsts& service, int port);
    bool makeTriggerServer();

    int mMyDeviceType = 0;   // of the last registration; 0 before
    int mDiscoverTypes = 0;  // device types that are browsed
    std::atomic<MDnsRegisterCallback> mRegisterCallback{nullptr};  // null when not registered
    std::atomic<MDnsDiscoverCallback> mDiscoverCallback{nullptr};
    MDnsRegisterCallback mResolveCallback SIGMA_GUARDED_BY(mResolveLock) = nullptr;
    MDnsSdChannel mChannel{this};
    MDnsWfdServiceInfo* mResolvingInfo SIGMA_GUARDED_BY(mResolveLock) = nullptr;  // owned
    WFDTriggerTcpServer* mTriggerServer = nullptr;  // lives until the process ends
    std::atomic<int> mLastResult{0};
    std::atomic<int> mCommandSeq{0};

    android::Mutex mResolveLock;
    // The record that the monitor thread is reporting. It deletes the record after the report if
    // another resolution has replaced it meanwhile.
    MDnsWfdServiceInfo* mReported SIGMA_GUARDED_BY(mResolveLock) = nullptr;
    bool mAddressQueried SIGMA_GUARDED_BY(mResolveLock) = false;
    bool mEnding SIGMA_GUARDED_BY(mResolveLock) = false;  // the destructor has begun
};
