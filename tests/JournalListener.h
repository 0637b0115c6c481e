// A listener of the DNS-SD command channel, and commands to it.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "MDnsSdChannel.h"

// Every call it gets is an entry of the journal's component "listener".
class JournalListener : public MDnsResultListener {
 public:
    enum class Form { Line, Parts };  // the two forms in which a result comes

    // Calls `action` with every result of the request in that form, on the monitor thread. An empty
    // function ends that.
    void onResult(int requestId, Form form, std::function<void()> action);

    int sendMsg(int code, const char* message, bool flag) override;
    int sendBroadcast(int code, const char* message, bool flag) override;
    void onDiscoverResult(int code, const char* serviceName, const char* regType,
                          const char* domain) override;
    void onRegisterResult(int code, const char* serviceName, const char* regType,
                          const char* domain) override;
    void onResolveResult(int code, const char* fullName, const char* hostTarget, int port,
                         int txtLen, const unsigned char* txtRecord) override;
    void onGetAddrResult(int code, const char* hostname, const char* address) override;

 private:
    void act(Form form);

    int mReporting = 0;  // the id of the result line before; on the monitor thread
    std::mutex mMutex;   // guards everything below
    std::map<std::pair<int, Form>, std::function<void()>> mActions;
};

// Gives one command: `words` after the sequence number.
int give(MDnsSdChannel& channel, const std::vector<std::string>& words);
