// A DNS-SD command channel on the fake client library, and its listener.
#pragma once

#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "DeviceTest.h"
#include "FakeDnsSd.h"
#include "MDnsSdChannel.h"
#include "host/text_format.h"

// Every result is an entry of the journal's component "result": a line as "CODE TEXT", the parts as
// "CODE PART PART...".
struct TestListener : MDnsResultListener {
    int sendMsg(int code, const char* message, bool flag) override {
        sAnswers += line(code, message, flag);
        return -1;  // the channel ignores it
    }
    int sendBroadcast(int code, const char* message, bool flag) override {
        mRequestId = atoi(message);
        report(line(code, message, flag), message);
        return -1;
    }
    void onDiscoverResult(int code, const char* name, const char* type,
                          const char* domain) override {
        report(line(code, name) + ' ' + orNull(type) + ' ' + orNull(domain));
    }
    void onRegisterResult(int code, const char* name, const char* type,
                          const char* domain) override {
        onDiscoverResult(code, name, type, domain);
    }
    void onResolveResult(int code, const char* name, const char* target, int port, int txtLen,
                         const unsigned char* txt) override {
        std::string text = hostplatform::format("%s %d %d ", orNull(target), port, txtLen);
        for (int i = 0; i < txtLen; ++i) text += hostplatform::format("%02x", txt[i]);
        report(line(code, name) + ' ' + text + (txt == nullptr ? "(null)" : ""));
    }
    void onGetAddrResult(int code, const char* host, const char* address) override {
        report(line(code, host) + ' ' + orNull(address));
    }

    // Called with every result, on the monitor thread: with its line, and without a line for its
    // parts. Set it while no result is under way.
    std::function<void(int requestId, const char* line)> onResult;
    // The answers to this thread's commands, as "CODE TEXT".
    inline static thread_local std::string sAnswers;

 private:
    static const char* orNull(const char* text) { return text == nullptr ? "(null)" : text; }
    static std::string line(int code, const char* text, bool flag = false) {
        return std::to_string(code) + ' ' + orNull(text) + (flag ? " with errno" : "");
    }
    void report(const std::string& text, const char* message = nullptr) const {
        hostplatform::device().journal().add("result", text);
        if (onResult) onResult(mRequestId, message);
    }

    int mRequestId = 0;  // of the result line before; on the monitor thread
};

// Gives one command, `words` after the sequence number, and returns its answer. On any thread.
inline std::string giveCommand(MDnsSdChannel& channel, Lines words) {
    words.insert(words.begin(), "1");
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    EXPECT_EQ(channel.runCommand(static_cast<int>(arguments.size()), arguments.data()), 0);
    return std::exchange(TestListener::sAnswers, "");
}

// At the end of a test everything that it started is stopped, and the fake must have no violation
// and no reference left.
class ChannelTest : public DeviceTest {
 protected:
    const std::string kStarted = "200 Discover operation started";
    const std::string kStopped = "200 discover stopped";
    const std::string kUnknown = "501 Unknown requestId";

    ChannelTest() { mThreads = LONG_MAX; }  // a channel's monitor stays
    ~ChannelTest() override {
        library().onStart(nullptr);
        library().onDeallocate(nullptr);
        EXPECT_EQ(library().takeViolations(), Lines{});
        EXPECT_EQ(library().liveCount(), 0U) << "the test has not stopped every request";
    }

    static FakeDnsSd& library() { return FakeDnsSd::instance(); }

    std::string command(const Lines& words) { return giveCommand(mChannel, words); }
    std::string start(int requestId) {
        return command({"discover", std::to_string(requestId), "_x._tcp"});
    }
    DNSServiceRef browse(int requestId) {
        EXPECT_EQ(start(requestId), kStarted);
        return library().newest();
    }
    std::string stop(int requestId, const std::string& operation = "discover") {
        return command({"stop-" + operation, std::to_string(requestId)});
    }
    // How many result lines of browses with that id there are since the mark.
    size_t results(int requestId) const {
        return journal().count("result", "604 " + std::to_string(requestId) + ' ', marked());
    }
    bool waitResult(int requestId) const {
        return waitUntil([&] { return results(requestId) != 0; });
    }
    // Waits until the monitor has carried out every rescan asked for: the one that finds the probe
    // comes after the changes made before.
    void settle() {
        const int probe = mProbe++;
        EXPECT_TRUE(library().answer(browse(probe), {}));
        EXPECT_TRUE(waitResult(probe));
        stop(probe);
    }

    TestListener mListener;
    MDnsSdChannel mChannel{&mListener};

 private:
    int mProbe = 900'000;  // its id
};
