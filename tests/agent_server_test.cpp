// The agent as controllers on the network meet it.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "AgentProcess.h"
#include "Controller.h"

namespace {

using test::AgentProcess;
using test::Controller;
using test::countOf;

constexpr char kRunning[] = "status,RUNNING";
constexpr char kComplete[] = "status,COMPLETE";
constexpr char kInvalid[] = "status,INVALID,errorCode,-2";
constexpr char kBusy[] = "status,ERROR,errorCode,-1";
constexpr char kVersion[] = "status,COMPLETE,version," AGENT_VERSION;
constexpr char kEnd[] = "(end)";
constexpr char kTenSeconds[] = "sta_generate_event,UIBCEventType,Mouse\r\n";

using Lines = std::vector<std::string>;

TEST(AgentServer, AnswersAThousandCommandsInOrder) {
    const struct {
        const char* command;
        Lines answer;
    } kinds[] = {
        {"ca_get_version", {kRunning, kVersion}},
        {"no_such_command", {kInvalid}},
        {"dev_send_frame,framename,RTSP,RtspMsgType,PLAY", {kRunning, "status,ERROR,errorCode,-1"}},
        {"dev_send_frame,framename,ARP", {kRunning, kComplete}},
        {"dev_exec_action,DirectStreaming,Pause", {kRunning, kInvalid}},
    };
    // Together more than the agent reads ahead.
    const std::string padding = ",padding," + std::string(2500, 'x') + " \r\n\r\n";
    std::string commands;
    Lines expected;
    for (unsigned i = 0; i < 1000; ++i) {
        const auto& kind = kinds[i * i / 7 % std::size(kinds)];
        commands += kind.command + padding;
        expected.insert(expected.end(), kind.answer.begin(), kind.answer.end());
    }
    expected.push_back(kEnd);

    AgentProcess agent({"--listen", "0"});
    Controller controller(agent.port());
    ASSERT_TRUE(controller.send(commands));
    controller.finishSending();
    EXPECT_EQ(controller.readAll(), expected);
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
}

TEST(AgentServer, GivesEveryLineAClearAnswer) {
    using namespace std::string_literals;
    const std::string command = "ca_get_version,padding,";
    const std::string longest = command + std::string(65536 - command.size(), 'x');
    const struct {
        const char* name;
        std::string bytes;
        Lines answers;
    } cases[] = {
        {"LF and blanks",
         " \n\t\r\nca_get_version \t\nCa_Get_Version\r\n",
         {kRunning, kVersion, kRunning, kVersion}},
        {"device information",
         "device_get_info\r\n",
         {kRunning,
          "status,COMPLETE,vendor,simulated-device,model,linux-host,version," AGENT_VERSION}},
        {"NUL", "ca_get_version\0\nca_get_version\n"s, {kInvalid, kRunning, kVersion}},
        {"no name", ",ca_get_version\r\n,\r\n", {kInvalid, kInvalid}},
        {"no comment over the network", "#settle\r\n", {kInvalid}},
        {"longest", longest + "\r\nx\n", {kRunning, kVersion, kInvalid}},
        {"too long", longest + "x\r\nca_get_version\n", {kInvalid, kRunning, kVersion}},
        {"much too long",
         std::string(3'000'000, 'x') + "\nca_get_version\n",
         {kInvalid, kRunning, kVersion}},
        {"half a line", "ca_get_version\nca_get_version", {kRunning, kVersion}},
        {"nothing", "", {}},
    };
    AgentProcess agent({"--listen", "0"});
    for (const auto& c : cases) {
        Controller controller(agent.port());
        EXPECT_TRUE(controller.send(c.bytes)) << c.name;
        controller.finishSending();
        Lines expected = c.answers;
        expected.push_back(kEnd);
        EXPECT_EQ(controller.readAll(), expected) << c.name;
    }
    EXPECT_TRUE(agent.waitForError("has no end and is dropped: \"ca_get_version\""));
}

TEST(AgentServer, AnswersATooLongLineBeforeItEnds) {
    AgentProcess agent({"--listen", "0"});
    Controller controller(agent.port());
    controller.send(std::string(65537, 'x'));
    EXPECT_EQ(controller.readLine(), kInvalid);
    controller.send("xx\r\nca_get_version\r\n");
    EXPECT_EQ(controller.readLine(), kRunning);
    EXPECT_EQ(controller.readLine(), kVersion);
}

TEST(AgentServer, ServesOneControllerAtATime) {
    AgentProcess agent({"--listen", "0"});
    auto first = std::make_unique<Controller>(agent.port());
    EXPECT_EQ(first->command("ca_get_version"), kVersion);
    for (int i = 0; i < 20; ++i) {
        // What the refused one has sent already must not cost it the answer.
        Controller second(agent.port());
        second.send("ca_get_version\r\n");
        EXPECT_EQ(second.readAll(), (Lines{kBusy, kEnd}));
    }
    EXPECT_EQ(first->command("ca_get_version"), kVersion);
    // The next one may come before the agent has read the end of the one before.
    agent.signal(SIGSTOP);
    first->send(std::string(100'000, '\n'));
    first.reset();
    Controller next(agent.port());
    agent.signal(SIGCONT);
    EXPECT_EQ(next.command("ca_get_version"), kVersion);
}

TEST(AgentServer, ControllerVanishesInATenSecondCommand) {
    AgentProcess agent({"--listen", "0", "--time-scale", "10"});
    auto gone = std::make_unique<Controller>(agent.port());
    gone->send(std::string(kTenSeconds) + kTenSeconds + kTenSeconds);
    EXPECT_EQ(gone->readLine(), kRunning);
    gone->reset();

    // Its turn comes after the command that runs, and the two that do not any more.
    Controller next(agent.port());
    EXPECT_EQ(next.command("ca_get_version"), kVersion);
    EXPECT_TRUE(agent.waitForError("2 queued commands are dropped"));
    EXPECT_EQ(countOf("UIBCEventType is: Mouse", agent.output()), 1U);
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
}

TEST(AgentServer, ControllerThatEndedItsSideIsStillAnswered) {
    AgentProcess agent({"--listen", "0", "--library", FAKE_LIBRARY_PATH});
    constexpr int kCommands = 100;
    const auto commands = [] {
        std::string text;
        for (int i = 0; i < kCommands; ++i) text += "sta_generate_event,5\r\n";
        return text;
    }();
    Controller earlier(agent.port());
    earlier.send(commands);
    earlier.finishSending();
    // While the first one's commands run, the second is served; the library still gets them one by
    // one: the fake answers 2 to two at once.
    Controller later(agent.port());
    later.send(commands);
    later.finishSending();
    Lines expected;
    for (int i = 0; i < kCommands; ++i) expected.insert(expected.end(), {kRunning, kComplete});
    expected.push_back(kEnd);
    EXPECT_EQ(later.readAll(), expected);
    EXPECT_EQ(earlier.readAll(), expected);
}

TEST(AgentServer, ReadsAheadOnlySoFar) {
    AgentProcess agent({"--listen", "0", "--library", FAKE_LIBRARY_PATH});
    Controller controller(agent.port());
    controller.send("sta_generate_event,20000\r\n");
    EXPECT_EQ(controller.readLine(), kRunning);
    // The kernel's buffers on both sides take some megabytes more than the agent does.
    constexpr std::size_t kMegabyte = 1'048'576;
    const std::string line = std::string(1000, 'x') + "\r\n";
    EXPECT_LT(controller.sendUntilBlocked(line, 64 * kMegabyte), 32 * kMegabyte);
}

TEST(AgentServer, SignalLetsTheRunningCommandEnd) {
    AgentProcess agent({"--listen", "0", "--time-scale", "10"});
    auto controller = std::make_unique<Controller>(agent.port());
    controller->send(std::string(kTenSeconds) + kTenSeconds);
    EXPECT_EQ(controller->readLine(), kRunning);
    EXPECT_TRUE(test::waitUntil(
        [&] { return agent.output().find("UIBCEventType is: Mouse") != std::string::npos; }));
    // One whose turn has not come.
    controller->finishSending();
    auto waiting = std::make_unique<Controller>(agent.port());
    waiting->send(kTenSeconds);
    EXPECT_EQ(waiting->readLine(), kRunning);

    agent.signal(SIGINT);
    EXPECT_EQ(controller->readAll(), (Lines{kComplete, kEnd}));
    EXPECT_EQ(waiting->readAll(), Lines{kEnd});
    controller.reset();
    waiting.reset();
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
    EXPECT_EQ(countOf("UIBCEventType is: Mouse", agent.output()), 1U);
}

TEST(AgentServer, ControllerThatDoesNotReadDoesNotKeepTheAgentFromEnding) {
    AgentProcess agent({"--listen", "0"});
    Controller controller(agent.port());
    // Answers are larger than commands, so in the end the agent reads no more and cannot write
    // either.
    std::thread sender([&] {
        std::string lines;
        for (int i = 0; i < 10'000; ++i) lines += "ca_get_version\n";
        while (controller.send(lines)) {
        }
    });
    controller.readLine();
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
    sender.join();
}

TEST(AgentServer, OutlastsAShortageOfDescriptors) {
    AgentProcess agent({"--listen", "0"});
    const unsigned short port = agent.port();
    { EXPECT_EQ(Controller(port).command("ca_get_version"), kVersion); }
    // A sanitizer needs descriptors to look at an object for the first time.
    EXPECT_TRUE(agent.waitForError(" left"));
    rlimit usual{};
    ASSERT_EQ(prlimit(agent.pid(), RLIMIT_NOFILE, nullptr, &usual), 0);
    const rlimit none{3, usual.rlim_max};
    ASSERT_EQ(prlimit(agent.pid(), RLIMIT_NOFILE, &none, nullptr), 0);
    Controller controller(port);
    controller.send("ca_get_version\r\n");
    EXPECT_TRUE(agent.waitForError("cannot accept a controller")) << agent.errors();
    ASSERT_EQ(prlimit(agent.pid(), RLIMIT_NOFILE, &usual, nullptr), 0);
    EXPECT_EQ(controller.readLine(), kRunning);
    EXPECT_EQ(controller.readLine(), kVersion);
    EXPECT_LT(countOf("cannot accept a controller", agent.errors()), 10U);
}

TEST(AgentStart, SaysInOneLineWhyItCannot) {
    const test::TemporaryDirectory directory;
    AgentProcess running({"--listen", "0"});
    const std::string port = std::to_string(running.port());
    const struct {
        std::vector<std::string> arguments;
        const char* reason;
    } cases[] = {
        {{"--listen", port}, "Address already in use"},
        {{"--listen", "192.0.2.1:" + port}, "cannot listen on 192.0.2.1"},
        {{"--library", directory.path("missing.so")}, "missing.so"},
        {{"--library", "missing.so"}, "missing.so"},
        {{"--library", INCOMPLETE_LIBRARY_PATH}, "does not export sta_generate_event"},
        {{directory.path("missing.capi")}, "cannot read the script"},
        {{directory.path("")}, "it is a directory"},
        {{"--journal", directory.path("missing/journal")}, "cannot write the journal"},
    };
    for (const auto& c : cases) {
        AgentProcess agent(c.arguments);
        EXPECT_EQ(agent.wait(), 2) << c.reason;
        EXPECT_EQ(countOf("\n", agent.errors()), 1U) << agent.errors();
        EXPECT_NE(agent.errors().find(c.reason), std::string::npos) << agent.errors();
        EXPECT_EQ(agent.output(), "");
    }
}

}  // namespace
