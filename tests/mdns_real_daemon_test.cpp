// The DNS-SD command channel on a real daemon.
#include <memory>
#include <string>
#include <vector>

#include "Journal.h"
#include "JournalListener.h"
#include "RealDaemon.h"

namespace {

using hostplatform::Journal;

class ChannelOnDaemonTest : public RealDaemonTest {
 protected:
    void SetUp() override {
        RealDaemonTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        mChannel = std::make_unique<MDnsSdChannel>(&mListener);
        mark();
    }

    void TearDown() override {
        // What an answer refuses was not there.
        for (int id = 1; mChannel != nullptr && id <= kLastId; ++id) stop(id);
        mChannel.reset();
        RealDaemonTest::TearDown();
    }

    void mark() { mMark = Journal::instance().mark(); }

    // The answer to a command.
    std::string answer(const std::vector<std::string>& words) {
        const uint64_t from = Journal::instance().mark();
        give(*mChannel, words);
        const auto found = Journal::instance().waitFor("listener", "sendMsg(", from);
        return found ? found->text : "none";
    }
    std::string stop(int id) { return answer({"stop-discover", std::to_string(id)}); }

    // A result since the mark: one form of it that contains `part`.
    bool hears(const std::string& part) const {
        const bool heard = Journal::instance().waitFor("listener", part, mMark).has_value();
        if (!heard) {
            std::string seen;
            for (const std::string& text : Journal::instance().texts("listener", mMark)) {
                seen += "\n  " + text;
            }
            ADD_FAILURE() << "not heard: " << part << "; but" << seen;
        }
        return heard;
    }
    // Since the mark, at any time so far.
    bool heard(const std::string& part) const {
        return Journal::instance().count("listener", part, mMark) > 0;
    }

    static constexpr int kLastId = 9;

    JournalListener mListener;
    std::unique_ptr<MDnsSdChannel> mChannel;
    uint64_t mMark = 0;
};

TEST_F(ChannelOnDaemonTest, FindsWhatItRegistered) {
    EXPECT_EQ(answer({"register", "1", "display", "_display._tcp", "7236", ""}),
              "sendMsg(200, serviceRegister started, 0)");
    EXPECT_TRUE(hears("sendBroadcast(606, 1 \"display\", 0)"));
    EXPECT_TRUE(hears("onRegisterResult(0, display, _display._tcp"));
    EXPECT_EQ(answer({"discover", "2", "_display._tcp"}),
              "sendMsg(200, Discover operation started, 0)");
    EXPECT_TRUE(hears("sendBroadcast(603, 2 \"display\" _display._tcp"));
    EXPECT_EQ(answer({"resolve", "3", "display", "_display._tcp", "local"}),
              "sendMsg(200, resolveService started, 0)");
    // This daemon's empty TXT record is one empty string.
    EXPECT_TRUE(
        hears("sendBroadcast(608, 3 \"display._display._tcp.local.\" \"device.local.\" 7236 "
              "1 \"AA==\", 0)"));
    EXPECT_TRUE(
        hears("onResolveResult(0, display._display._tcp.local., device.local., 7236, 1, 00)"));
    EXPECT_EQ(answer({"getaddrinfo", "4", "device.local."}),
              "sendMsg(200, getAddrInfo started, 0)");
    for (const char* const address : {RealDaemon::ipv4(Host::Here), RealDaemon::ipv6(Host::Here)}) {
        EXPECT_TRUE(hears("sendBroadcast(612, 4 \"device.local.\" 0 " + std::string(address)));
        EXPECT_TRUE(hears("onGetAddrResult(0, device.local., " + std::string(address) + ")"));
    }
    EXPECT_FALSE(heard("sendBroadcast(604"));
    EXPECT_EQ(answer({"stop-register", "1"}), "sendMsg(200, register stopped, 0)");
    EXPECT_TRUE(hears("sendBroadcast(604, 2 \"display\" _display._tcp"));
}

TEST_F(ChannelOnDaemonTest, KeepsNamesAsTheyAre) {
    struct {
        const char* name;
        const char* quoted;
    } const cases[] = {
        {"two  words", R"("two  words")"},
        {R"(a "quoted" \ name)", R"("a \"quoted\" \\ name")"},
        {"Gr\xc3\xbc\xc3\x9f"
         "e \xe2\x86\x92",
         "\"Gr\xc3\xbc\xc3\x9f"
         "e \xe2\x86\x92\""},
        {"dots. and, commas", "\"dots. and, commas\""},
    };
    answer({"discover", "1", "_display._tcp"});
    for (const auto& c : cases) {
        mark();
        answer({"register", "2", c.name, "_display._tcp", "1", ""});
        EXPECT_TRUE(hears("sendBroadcast(606, 2 " + std::string(c.quoted) + ", 0)"));
        EXPECT_TRUE(hears("sendBroadcast(603, 1 " + std::string(c.quoted) + " _display._tcp"));
        EXPECT_TRUE(hears("onDiscoverResult(0, " + std::string(c.name) + ", _display._tcp"));
        // It can be resolved by the name as it was reported.
        answer({"resolve", "3", c.name, "_display._tcp", "local"});
        EXPECT_TRUE(hears("sendBroadcast(608, 3 "));
        answer({"stop-resolve", "3"});
        answer({"stop-register", "2"});
        EXPECT_TRUE(hears("sendBroadcast(604, 1 " + std::string(c.quoted) + " _display._tcp"));
        // The id is free when the monitor has taken the request out.
        ASSERT_TRUE(Journal::instance().waitQuiet(std::chrono::milliseconds(100),
                                                  std::chrono::seconds(20)));
    }
}

TEST_F(ChannelOnDaemonTest, TellsTheNameThatTheDaemonChose) {
    answer({"register", "1", "display", "_display._tcp", "1", ""});
    ASSERT_TRUE(hears("sendBroadcast(606, 1 \"display\", 0)"));
    // Taken on this host.
    answer({"register", "2", "display", "_display._tcp", "2", ""});
    EXPECT_TRUE(hears("sendBroadcast(606, 2 \"display #2\", 0)"));
    EXPECT_TRUE(hears("onRegisterResult(0, display #2, _display._tcp"));

    mark();
    answer({"sethostname", "3", "renamed"});
    EXPECT_TRUE(hears("sendBroadcast(610, 3 \"renamed\", 0)"));
    answer({"getaddrinfo", "4", "renamed.local"});
    EXPECT_TRUE(hears("onGetAddrResult(0, renamed.local."));
}

TEST_F(ChannelOnDaemonTest, OutlivesTheDaemon) {
    answer({"discover", "1", "_display._tcp"});
    answer({"resolve", "2", "nobody", "_display._tcp", "local"});
    answer({"getaddrinfo", "3", "nobody.local"});
    answer({"register", "4", "display", "_display._tcp", "1", ""});
    ASSERT_TRUE(hears("sendBroadcast(603, 1 "));
    daemon().kill();
    // Every wake-up of the monitor is a log line: it comes to rest, neither spinning nor stuck.
    EXPECT_TRUE(
        Journal::instance().waitQuiet(std::chrono::milliseconds(500), std::chrono::seconds(20)));
    EXPECT_NE(answer({"discover", "5", "_display._tcp"}).substr(0, 11), "sendMsg(200")
        << "there is no daemon";
    for (int id = 1; id <= 4; ++id) {
        EXPECT_EQ(stop(id), "sendMsg(200, discover stopped, 0)") << id;
    }

    ASSERT_TRUE(daemon().start());
    mark();
    answer({"discover", "6", "_display._tcp"});
    answer({"register", "7", "again", "_display._tcp", "1", ""});
    EXPECT_TRUE(hears("sendBroadcast(603, 6 \"again\""));
}

TEST_F(ChannelOnDaemonTest, SeesAnotherHostComeAndGo) {
    answer({"discover", "1", "_display._tcp"});
    RealDaemon peer(Host::Peer, "other");
    ASSERT_TRUE(peer.start());
    answer({"getaddrinfo", "2", "other.local"});
    EXPECT_TRUE(hears("onGetAddrResult(0, other.local., " +
                      std::string(RealDaemon::ipv4(Host::Peer)) + ")"));
}

}  // namespace
