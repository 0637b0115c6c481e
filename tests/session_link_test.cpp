// Sessions of two simulated devices, linked over TCP: two clients of this process, or one and a
// peer that the test plays.
#include <gtest/gtest.h>

#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/read_until.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Controller.h"
#include "Journal.h"
#include "LinkMessage.h"
#include "SessionService.h"
#include "SimulatedDevice.h"
#include "TextFormat.h"
#include "wfd/WiFiDisplayClient.h"

namespace {

using asio::ip::tcp;
using hostplatform::format;
using hostplatform::Journal;
using test::Controller;
using Texts = std::vector<std::string>;

constexpr char kEnded[] = "SessionState: STOPPED";

Journal& journal() { return Journal::instance(); }

// Reports go to the journal under the name of the end that got them.
void journalReport(const char* end, const char* name, int count, char (*objects)[256]) {
    std::string text = name;
    for (int i = 0; i < count; ++i) text += (i == 0 ? ": " : ", ") + std::string(objects[i]);
    journal().add(end, text);
}

void onSourceReport(const char* name, int count, char (*objects)[256], _jobject* const&) {
    journalReport("source", name, count, objects);
}

void onSinkReport(const char* name, int count, char (*objects)[256], _jobject* const&) {
    journalReport("sink", name, count, objects);
}

bool onInput(WFD_uibc_event_t* event, const void*, _jobject* const&, _jobject* const&) {
    journal().add("input",
                  hostplatform::toLine({hostplatform::LinkMessage::Kind::Input, 0, *event}));
    return true;
}

// Nobody listens there.
uint16_t freePort() {
    asio::io_context context;
    return tcp::acceptor(context, {tcp::v4(), 0}).local_endpoint().port();
}

WiFiDisplayClient* makeClient(WfdEventCallback callback) {
    return new (std::nothrow) WiFiDisplayClient(callback, onInput, nullptr);
}

WfdDevice device(const char* address, int port, int type) {
    WfdDevice record{};
    strncpy(record.ipAddress, address, sizeof record.ipAddress - 1);
    record.rtspPort = port;
    record.deviceType = type;
    return record;
}

int startSource(WiFiDisplayClient* client, int port) {
    WfdDevice local = device("", port, 0);
    WfdDevice peer = device("127.0.0.1", 7236, 1);
    return client->createWfdSession(&local, &peer);
}

int startSink(WiFiDisplayClient* client, int port, const char* address = "127.0.0.1") {
    WfdDevice local = device("", 0, 1);
    WfdDevice peer = device(address, port, 0);
    return client->createWfdSession(&local, &peer);
}

int newestId() { return hostplatform::currentSession()->id; }

// A source that the test plays.
class PlayedSource {
 public:
    uint16_t port() const { return mAcceptor.local_endpoint().port(); }

    // Takes the next sink and waits for its first line.
    std::string meet() {
        mSocket = mAcceptor.accept();
        std::string line;
        std::error_code error;
        asio::read_until(mSocket, asio::dynamic_buffer(line), '\n', error);
        return line;
    }

    void send(const std::string& bytes) { asio::write(mSocket, asio::buffer(bytes)); }

 private:
    asio::io_context mContext;
    tcp::acceptor mAcceptor{mContext, {asio::ip::address_v4::loopback(), 0}};
    tcp::socket mSocket{mContext};
};

class SessionLinkTest : public testing::Test {
 protected:
    SessionLinkTest() {
        hostplatform::setPeer(hostplatform::Peer::Linked);
        mark();
    }
    ~SessionLinkTest() override {
        EXPECT_TRUE(hostplatform::waitReported());
        hostplatform::resetSwitches();
    }

    void mark() { mMark = journal().mark(); }
    Texts reports(const char* end) const { return journal().texts(end, mMark); }
    bool waitFor(const char* component, const std::string& part) const {
        return journal().waitFor(component, part, mMark).has_value();
    }
    size_t count(const char* component, const std::string& part) const {
        return journal().count(component, part, mMark);
    }
    bool waitForBoth(const std::string& part) const {
        return waitFor("source", part) && waitFor("sink", part);
    }

    void startBoth() {
        mSource = makeClient(onSourceReport);
        ASSERT_EQ(startSource(mSource, mPort), 0);
        mId = newestId();
        mSink = makeClient(onSinkReport);
        ASSERT_EQ(startSink(mSink, mPort), 0);
        ASSERT_TRUE(waitForBoth("PLAY"));
    }

    // A source with a sink that the test plays.
    std::unique_ptr<Controller> startWithPlayedSink() {
        mSource = makeClient(onSourceReport);
        EXPECT_EQ(startSource(mSource, mPort), 0);
        mId = newestId();
        auto sink = std::make_unique<Controller>(mPort);
        sink->send("wfd-sink-1\n");
        EXPECT_TRUE(waitFor("source", "PLAY"));
        EXPECT_EQ(sink->readLine(), format("(no CRLF) session %d", mId));
        return sink;
    }

    const uint16_t mPort = freePort();
    WiFiDisplayClient* mSource = nullptr;
    WiFiDisplayClient* mSink = nullptr;
    int mId = 0;

 private:
    uint64_t mMark = 0;
};

TEST(LinkMessageTest, EveryMessageIsALineAndNothingElseIs) {
    using Kind = hostplatform::LinkMessage::Kind;
    WFD_uibc_event_t full{};
    memset(&full, 0xa5, sizeof full);
    const hostplatform::LinkMessage messages[] = {
        {Kind::Sink, 0, {}},
        {Kind::Session, 2147483647, {}},
        {Kind::Pause, 0, {}},
        {Kind::Play, 0, {}},
        {Kind::Standby, 0, {}},
        {Kind::Teardown, 0, {}},
        {Kind::Input, 0, hostplatform::touchEvent(0)},
        {Kind::Input, 0, hostplatform::keyEvent('a', 1)},
        {Kind::Input, 0, full},
    };
    for (const auto& message : messages) {
        const std::string line = toLine(message);
        const auto parsed = hostplatform::parseLinkLine(line);
        ASSERT_TRUE(parsed) << line;
        EXPECT_LT(line.size(), hostplatform::kMaxLinkLine);
        EXPECT_EQ(parsed->kind, message.kind) << line;
        EXPECT_EQ(parsed->sessionId, message.sessionId) << line;
        EXPECT_EQ(memcmp(&parsed->input, &message.input, sizeof full), 0) << line;
    }
    const std::string foreign[] = {"",
                                   " ",
                                   "PAUSE",
                                   "paused",
                                   "pause now",
                                   "pause\r",
                                   std::string("pause\0", 6),
                                   " pause",
                                   "wfd-sink-2",
                                   "session",
                                   "session 0",
                                   "session -1",
                                   "session +1",
                                   "session  1",
                                   "session 1x",
                                   "session 2147483648",
                                   "input",
                                   "input 0",
                                   "input 0g",
                                   "input -1",
                                   "input 0x",
                                   "input " + std::string(2 * sizeof full + 2, '0')};
    for (const std::string& line : foreign) EXPECT_FALSE(hostplatform::parseLinkLine(line)) << line;
}

TEST_F(SessionLinkTest, BothEndsGoThroughTheSessionTogether) {
    for (const bool sourceEnds : {true, false}) {
        mark();
        startBoth();
        EXPECT_EQ(newestId(), mId);  // the sink's is the source's
        const std::string id = std::to_string(mId);
        const Texts source = reports("source");
        ASSERT_EQ(source.size(), 5U);
        EXPECT_EQ(source[0], "SessionState: NEGOTIATED, 127.0.0.1, " + id);
        EXPECT_EQ(source[1], "SessionState: ESTABLISHED, 127.0.0.1, " + id);
        EXPECT_EQ(source[2].find("MMEvent: MMStreamStarted, 1280, 720, 0, "), 0U);
        EXPECT_EQ(source[3], "AudioEvent: AudioProxyOpened");
        EXPECT_EQ(source[4], "StreamControlCompleted: " + id + ", PLAY");
        EXPECT_EQ(reports("sink"), (Texts{"SessionState: NEGOTIATING, 127.0.0.1, " + id,
                                          "SessionState: NEGOTIATED, 127.0.0.1, " + id,
                                          "SessionState: ESTABLISHED, 127.0.0.1, " + id,
                                          "StreamControlCompleted: " + id + ", PLAY"}));

        for (WiFiDisplayClient* const end : {mSource, mSink}) {
            mark();
            EXPECT_EQ(end->pause_rtsp(mId, false), 0);
            EXPECT_TRUE(waitForBoth("StreamControlCompleted: " + id + ", PAUSE"));
            EXPECT_EQ(end->standby_rtsp(mId), 0);
            EXPECT_TRUE(waitForBoth("SessionState: STANDBY, 127.0.0.1, " + id));
            EXPECT_EQ(end->play_rtsp(mId, false), 0);
            EXPECT_TRUE(waitForBoth("StreamControlCompleted: " + id + ", PLAY"));
        }

        mark();
        EXPECT_EQ((sourceEnds ? mSource : mSink)->teardown_rtsp(mId, true), 0);
        ASSERT_TRUE(waitForBoth(kEnded));
        const Texts ending{"StreamControlCompleted: " + id + ", TEARDOWN",
                           "SessionState: STOPPED, 127.0.0.1, " + id};
        EXPECT_EQ(reports("source"), ending);
        EXPECT_EQ(reports("sink"), ending);
        EXPECT_EQ(mSource->pause_rtsp(mId, false), -1);
        EXPECT_EQ(mSink->pause_rtsp(mId, false), -1);
    }
}

TEST_F(SessionLinkTest, AStopWithoutTeardownIsALostConnectionToTheOtherEnd) {
    startBoth();
    mark();
    EXPECT_EQ(mSource->stopWfdSession(mId, nullptr), 0);
    ASSERT_TRUE(waitForBoth(kEnded));
    EXPECT_EQ(reports("source").size(), 1U);
    const Texts sink = reports("sink");
    ASSERT_EQ(sink.size(), 2U);
    EXPECT_EQ(sink[0], "Error: RTSPCloseCallback");
}

// What is on its way from the other end must not make it lose the teardown.
TEST_F(SessionLinkTest, TeardownsArriveWhateverElseIsUnderWay) {
    for (int round = 0; round < 20; ++round) {
        mark();
        startBoth();
        std::thread busy([this] {
            while (mSink->play_rtsp(mId, false) == 0) {
            }
        });
        std::thread other([this, round] {
            if (round % 2 == 0) mSink->teardown_rtsp(mId, true);
        });
        for (int i = 0; i < 5; ++i) mSource->pause_rtsp(mId, false);
        mSource->teardown_rtsp(mId, true);
        busy.join();
        other.join();
        ASSERT_TRUE(waitForBoth(kEnded));
        for (const char* const end : {"source", "sink"}) {
            EXPECT_EQ(count(end, "TEARDOWN"), 1U) << end;
            EXPECT_EQ(count(end, "Error"), 0U) << end;
            EXPECT_EQ(count(end, kEnded), 1U) << end;
        }
    }
}

TEST_F(SessionLinkTest, TheSinkMayBeQuicker) {
    mSink = makeClient(onSinkReport);
    ASSERT_EQ(startSink(mSink, mPort), 0);
    ASSERT_TRUE(waitFor("link", "does not answer yet"));
    EXPECT_EQ(mSink->pause_rtsp(newestId(), false), -1);
    EXPECT_EQ(reports("sink"), Texts{});
    mSource = makeClient(onSourceReport);
    ASSERT_EQ(startSource(mSource, mPort), 0);
    EXPECT_TRUE(waitForBoth("PLAY"));
    EXPECT_EQ(mSink->stopWfdSession(newestId(), nullptr), 0);
    EXPECT_TRUE(waitForBoth(kEnded));
}

TEST_F(SessionLinkTest, TheSinkDoesNotTryForEver) {
    mSink = makeClient(onSinkReport);
    ASSERT_EQ(startSink(mSink, mPort), 0);
    ASSERT_TRUE(waitFor("sink", kEnded));
    EXPECT_EQ(reports("sink").front(), "Error: RTSPCloseCallback");
    EXPECT_FALSE(hostplatform::currentSession()->active);
}

TEST_F(SessionLinkTest, AStoppedOrReplacedSinkTriesNoMore) {
    PlayedSource source;
    mSink = makeClient(onSinkReport);
    ASSERT_EQ(startSink(mSink, mPort), 0);
    WiFiDisplayClient* const newer = makeClient(onSinkReport);
    ASSERT_EQ(startSink(newer, source.port()), 0);
    EXPECT_EQ(count("link", "sink: closed before it was connected"), 1U);
    EXPECT_EQ(source.meet(), "wfd-sink-1\n");
    EXPECT_EQ(reports("sink"), Texts{});
    EXPECT_EQ(newer->teardown_rtsp(newestId(), true), 0);
    EXPECT_TRUE(waitFor("sink", kEnded));
    EXPECT_EQ(count("link", "sink: closed before it was connected"), 2U);
}

TEST_F(SessionLinkTest, SinksRefuseAnAddressThatIsNone) {
    const struct {
        const char* address;
        int port;
    } cases[] = {{"127.0.0.1", -100},  {"127.0.0.1", 0},    {"127.0.0.1", -1},
                 {"127.0.0.1", 65536}, {"", 7236},          {"source.local", 7236},
                 {"127.0.0", 7236},    {"127.0.0.1 ", 7236}};
    for (const auto& c : cases) {
        mark();
        EXPECT_LT(startSink(makeClient(onSinkReport), c.port, c.address), 0);
        EXPECT_TRUE(
            waitFor("link", format("no source at address \"%s\" port %d", c.address, c.port)));
        EXPECT_FALSE(hostplatform::currentSession());
    }
}

TEST_F(SessionLinkTest, OneSourceListensAndItsPortIsFreeAfterwards) {
    // In use: by somebody else, and once that is over no more.
    {
        asio::io_context context;
        const tcp::acceptor other(context, {asio::ip::address_v4::loopback(), mPort});
        EXPECT_LT(startSource(makeClient(onSourceReport), mPort), 0);
        EXPECT_TRUE(waitFor("link", format("cannot listen on port %u: Address", mPort)));
    }
    EXPECT_EQ(startSource(makeClient(onSourceReport), mPort), 0);
    // A newer session takes the place of one whose sink never came, without a report of the latter.
    EXPECT_EQ(startSource(makeClient(onSourceReport), mPort), 0);
    const uint16_t elsewhere = freePort();
    WiFiDisplayClient* const newest = makeClient(onSourceReport);
    EXPECT_EQ(startSource(newest, elsewhere), 0);
    EXPECT_THROW(Controller{mPort}, std::system_error);
    EXPECT_EQ(reports("source"), Texts{});
    // A stop ends the listening, too, and so does a sink.
    EXPECT_EQ(newest->pause_rtsp(newestId(), false), -1);
    EXPECT_EQ(newest->teardown_rtsp(newestId(), true), 0);
    EXPECT_TRUE(waitFor("source", kEnded));
    EXPECT_THROW(Controller{elsewhere}, std::system_error);
    EXPECT_EQ(startSource(newest, elsewhere), 0);
    EXPECT_EQ(newest->stopWfdSession(newestId(), nullptr), 0);
    const auto sink = startWithPlayedSink();
    EXPECT_THROW(Controller{mPort}, std::system_error);
    EXPECT_EQ(mSource->teardown_rtsp(mId, true), 0);
}

TEST_F(SessionLinkTest, WithoutAPortOfItsOwnTheSourceTakesTheUsualOne) {
    for (const int port : {0, -1, 65536}) {
        mark();
        // Whether that one is free depends on the machine.
        startSource(makeClient(onSourceReport), port);
        EXPECT_EQ(count("link", " on port 7236"), 1U);
    }
}

TEST_F(SessionLinkTest, StrangersNeitherMakeASessionNorKeepTheSinkOut) {
    mSource = makeClient(onSourceReport);
    ASSERT_EQ(startSource(mSource, mPort), 0);
    const std::string foreign[] = {"GET / HTTP/1.0\r\n",
                                   "wfd-sink-1\r\n",
                                   "session 1\n",
                                   "pause\n",
                                   std::string("\0\n", 2),
                                   std::string("wfd-sink-1\0\n", 12),
                                   "\n",
                                   std::string(hostplatform::kMaxLinkLine, 'x'),
                                   std::string(100'000, '\xff')};
    for (const std::string& bytes : foreign) {
        Controller stranger(mPort);
        stranger.send(bytes);
        const std::string end = stranger.readLine();
        EXPECT_TRUE(end == "(end)" || end == "(reset)") << end;
    }
    Controller(mPort).reset();
    Controller(mPort).send("wfd-si");
    std::vector<std::unique_ptr<Controller>> silent(40);
    for (auto& stranger : silent) stranger = std::make_unique<Controller>(mPort);
    EXPECT_EQ(silent.front()->readLine(), "(end)");
    EXPECT_EQ(reports("source"), Texts{});
    EXPECT_EQ(count("link", "connected to"), 0U);

    mSink = makeClient(onSinkReport);
    ASSERT_EQ(startSink(mSink, mPort), 0);
    EXPECT_TRUE(waitForBoth("PLAY"));
    for (const auto& stranger : silent) {
        const std::string end = stranger->readLine();
        EXPECT_TRUE(end == "(end)" || end == "(reset)") << end;
    }
    EXPECT_EQ(mSink->teardown_rtsp(newestId(), true), 0);
    EXPECT_TRUE(waitForBoth(kEnded));
}

TEST_F(SessionLinkTest, AnEndThatVanishesOrTalksNonsenseIsALostConnection) {
    const struct {
        std::string bytes;
        const char* why;
    } cases[] = {{"", "it closed the connection"},
                 {"paus", "it closed the connection"},
                 {"pause\nnonsense\n", "it sent \"nonsense\""},
                 {"wfd-sink-1\n", "it sent \"wfd-sink-1\""},
                 {"session 5\n", "it sent \"session 5\""},
                 {"input 0\n", "it sent \"input 0\""},
                 {std::string("play\0\n", 6), "it sent \"play"},
                 {std::string(5000, 'x'), "it sent a line that is too long"}};
    for (const auto& c : cases) {
        mark();
        startWithPlayedSink()->send(c.bytes);  // and goes away
        ASSERT_TRUE(waitFor("source", kEnded)) << c.bytes;
        const Texts source = reports("source");
        EXPECT_EQ(source[source.size() - 2], "Error: RTSPCloseCallback") << c.bytes;
        EXPECT_TRUE(waitFor("link", std::string(": ") + c.why)) << c.bytes;
        EXPECT_EQ(mSource->pause_rtsp(mId, false), -1);
    }
    mark();
    const auto crashed = startWithPlayedSink();
    crashed->reset();
    EXPECT_TRUE(waitFor("source", kEnded));
    EXPECT_TRUE(waitFor("source", "Error: RTSPCloseCallback"));
}

TEST_F(SessionLinkTest, TheSinkWaitsForARealSourceAndTakesItsIdentifier) {
    PlayedSource source;
    mSink = makeClient(onSinkReport);
    ASSERT_EQ(startSink(mSink, source.port()), 0);
    for (const char* const wrong : {"session 0\n", "RTSP/1.0 200 OK\r\n", "pause\n"}) {
        EXPECT_EQ(source.meet(), "wfd-sink-1\n");
        source.send(wrong);
    }
    EXPECT_EQ(source.meet(), "wfd-sink-1\n");
    EXPECT_EQ(reports("sink"), Texts{});
    source.send("session 77\nstandby\n");
    EXPECT_TRUE(waitFor("sink", "SessionState: ESTABLISHED, 127.0.0.1, 77"));
    EXPECT_TRUE(waitFor("sink", "SessionState: STANDBY, 127.0.0.1, 77"));
    EXPECT_EQ(newestId(), 77);
    source.send("input 00\n");  // only a sink has a user
    EXPECT_TRUE(waitFor("sink", kEnded));
    EXPECT_TRUE(waitFor("sink", "Error: RTSPCloseCallback"));
}

TEST_F(SessionLinkTest, InputOfTheSinksUserReachesTheSourceOnceItWantsIt) {
    EXPECT_FALSE(hostplatform::injectInput(hostplatform::keyEvent('a', 0)));
    startBoth();
    EXPECT_TRUE(hostplatform::injectInput(hostplatform::keyEvent('a', 0)));
    EXPECT_TRUE(waitFor("link", "source: input of type 1 refused: UIBC is not started"));

    EXPECT_EQ(mSource->startUIBC(), 0);
    WFD_uibc_event_t full{};
    memset(&full, 0x5a, sizeof full);
    EXPECT_TRUE(hostplatform::injectInput(hostplatform::keyEvent('a', 0)));
    EXPECT_TRUE(hostplatform::injectInput(hostplatform::touchEvent(2)));
    EXPECT_TRUE(hostplatform::injectInput(full));
    std::string hex;
    for (size_t i = 0; i < sizeof full; ++i) hex += "5a";
    ASSERT_TRUE(waitFor("input", hex));
    EXPECT_EQ(reports("input"), (Texts{"input 01000000000000000000000061",
                                       "input 000000000000000002", "input " + hex}));

    mSink->teardown_rtsp(mId, true);
    EXPECT_TRUE(waitForBoth(kEnded));
    EXPECT_FALSE(hostplatform::injectInput(hostplatform::keyEvent('a', 0)));
}

size_t threadCount() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}

// The exit status says what went wrong, 0 that nothing did.
[[noreturn]] void linkAndShutDown() {
    hostplatform::setPeer(hostplatform::Peer::Linked);
    std::thread([] {}).join();  // with the first thread a sanitizer may start one of its own
    const size_t threads = threadCount();
    const uint16_t port = freePort();
    if (startSource(makeClient(onSourceReport), port) != 0) exit(2);
    Controller sink(port);
    sink.send("wfd-sink-1\n");
    if (sink.readLine() != "(no CRLF) session " + std::to_string(newestId())) exit(3);
    const uint16_t otherPort = freePort();
    if (startSource(makeClient(onSourceReport), otherPort) != 0) exit(4);
    // The sink does not close its end, which does not keep the process from ending.
    hostplatform::shutdownSessions();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (threadCount() != threads) {
        if (std::chrono::steady_clock::now() > deadline) exit(5);
        std::this_thread::yield();
    }
    if (sink.readLine() != "(end)") exit(6);
    if (startSource(makeClient(onSourceReport), otherPort) == 0) exit(7);
    exit(0);
}

TEST(SessionLinkDeathTest, ShutdownLeavesNoLinkAndNoThread) {
#ifdef EMULATED
    GTEST_SKIP() << "an emulated program cannot start itself again";
#endif
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(linkAndShutDown(), testing::ExitedWithCode(0), "");
}

}  // namespace
