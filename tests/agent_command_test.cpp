// Command lines, scripts and arguments as the agent reads them, and what it makes of the library's
// results.
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "CapiCommand.h"
#include "CommandRunner.h"
#include "Options.h"
#include "Script.h"
#include "SessionService.h"
#include "SigmaLibrary.h"
#include "Text.h"

namespace {

using agent::CapiCommand;
using agent::CommandRunner;
using agent::Line;
using agent::ScriptLine;

TEST(CapiCommand, ReadsNameAndParameters) {
    const struct {
        const char* line;
        const char* name;
        const char* parameters;
    } cases[] = {
        {"ca_get_version", "ca_get_version", ""},
        {"CA_Get_Version \t\r", "ca_get_version", ""},
        {" \tdev_send_frame , framename,RTSP", "dev_send_frame", " framename,RTSP"},
        {"a,CodecProfile,H264-1 \r", "a", "CodecProfile,H264-1"},
        {"a,,b,, ", "a", ",b,,"},
        {"a b,c", "a b", "c"},
        {"\xc3\x84,c", "\xc3\x84", "c"},
    };
    for (const auto& c : cases) {
        const auto command = CapiCommand::parse(c.line);
        ASSERT_TRUE(command) << c.line;
        EXPECT_EQ(command->name(), c.name) << c.line;
        EXPECT_EQ(command->parameters(), c.parameters) << c.line;
    }
    for (const char* const line : {"", ",", " ,a,b", "\t\r", ",ca_get_version"}) {
        EXPECT_FALSE(CapiCommand::parse(line)) << line;
    }
}

TEST(CapiCommand, FindsParametersInPairs) {
    const auto command = CapiCommand::parse(
        "c,Kind,RtspPort, RTSPPORT , 7236 ,RtspPort,1,Empty,,UIBCEventType,x,Type,y,Last");
    const std::pair<const char*, const char*> cases[] = {
        {"RtspPort", "7236"},  // neither the value of that name nor the second one
        {"rtspport", "7236"}, {"Kind", "RtspPort"}, {"Type", "y"},  // not inside UIBCEventType
        {"Empty", ""},        {"Last", ""},         {"Absent", ""}, {"y", ""},
    };
    for (const auto& [name, value] : cases) EXPECT_EQ(command->parameter(name), value) << name;
}

TEST(Text, PrintableShowsNoControlCharacters) {
    EXPECT_EQ(agent::printable("a\n\x1b[1m\x7f\xc3\xa4"), "a\\x0a\\x1b[1m\\x7f\xc3\xa4");
    EXPECT_EQ(agent::printable("abcdef", 3), "abc...");
    EXPECT_EQ(agent::printable("abc", 3), "abc");
}

TEST(Script, TellsCommandsDirectivesAndComments) {
    using Kind = ScriptLine::Kind;
    const struct {
        const char* line;
        Kind kind;
        const char* text;
        const char* component = "";
    } cases[] = {
        {"", Kind::Nothing, ""},
        {" \t\r", Kind::Nothing, ""},
        {"# expect COMPLETE", Kind::Nothing, ""},
        {"  #comment", Kind::Nothing, ""},
        {"dev_send_frame,# ", Kind::Command, ""},
        {",", Kind::Command, ""},
        {" #settle ", Kind::Settle, ""},
        {"#expect COMPLETE", Kind::Expect, "COMPLETE"},
        {" #expect\t ERROR,errorCode,-1 \r", Kind::Expect, "ERROR,errorCode,-1"},
        {"#expect INVALID", Kind::Expect, "INVALID"},
        {" #wait report\tSessionState:  x \r", Kind::Wait, "SessionState:  x", "report"},
        {"# wait a moment", Kind::Nothing, ""},
    };
    for (const auto& c : cases) {
        const ScriptLine parsed = ScriptLine::parse(c.line);
        EXPECT_EQ(parsed.kind, c.kind) << c.line;
        EXPECT_EQ(parsed.text, c.text) << c.line;
        EXPECT_EQ(parsed.component, c.component) << c.line;
    }
    for (const char* const line : {"#expect", "#expect ", "#expectCOMPLETE", "#expect complete",
                                   "#expect RUNNING", "#expect COMPLETED", "#expected COMPLETE",
                                   "#wait", "#wait report", "#waiting report x"}) {
        EXPECT_EQ(ScriptLine::parse(line).kind, Kind::Wrong) << line;
    }
}

TEST(Script, ComparesWholeFields) {
    const struct {
        const char* answer;
        std::optional<std::string> expectation;
        bool expected;
    } cases[] = {
        {"status,COMPLETE", {}, true},
        {"status,COMPLETE,version,1", {}, true},
        {"status,ERROR,errorCode,2", {}, false},
        {"status,ERROR,errorCode,2", "ERROR", true},
        {"status,ERROR,errorCode,2", "ERROR,errorCode,2", true},
        {"status,ERROR,errorCode,21", "ERROR,errorCode,2", false},
        {"status,INVALID,errorCode,-2", "ERROR", false},
        {"status,COMPLETE", "COMPLETE,version", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(agent::isExpected(c.answer, c.expectation), c.expected)
            << c.answer << " / " << c.expectation.value_or("-");
    }
}

std::optional<int> parseOptions(std::vector<std::string> arguments, agent::Options& options) {
    arguments.insert(arguments.begin(), "capi-agent");
    std::vector<const char*> pointers;
    pointers.reserve(arguments.size());
    for (const std::string& argument : arguments) pointers.push_back(argument.c_str());
    testing::internal::CaptureStderr();
    const auto status = options.parse(static_cast<int>(pointers.size()), pointers.data());
    EXPECT_EQ(testing::internal::GetCapturedStderr().empty(), status != 2);
    return status;
}

TEST(Options, ListenAddress) {
    const std::pair<const char*, const char*> good[] = {{"9000", "127.0.0.1:9000"},
                                                        {"0", "127.0.0.1:0"},
                                                        {"0.0.0.0:65535", "0.0.0.0:65535"},
                                                        {"[::1]:80", "[::1]:80"}};
    for (const auto& [text, endpoint] : good) {
        agent::Options options;
        EXPECT_FALSE(parseOptions({"--listen", text}, options)) << text;
        ASSERT_TRUE(options.listen) << text;
        std::ostringstream shown;
        shown << *options.listen;
        EXPECT_EQ(shown.str(), endpoint);
        EXPECT_TRUE(options.scripts.empty());
    }
    for (const char* const text :
         {"", ":", "x", "-1", "65536", "80x", "+80", " 80", ":80", "localhost:80", "::1:80",
          "[127.0.0.1]:80", "[::1]", "1.2.3:80"}) {
        agent::Options options;
        EXPECT_EQ(parseOptions({"--listen", text}, options), 2) << text;
    }
}

TEST(Options, RefusesWhatItCannotDo) {
    const std::vector<std::string> cases[] = {
        {"--bogus"},           {"--time-scale", "0"},   {"--time-scale", "-1"},
        {"--time-scale", "x"}, {"--time-scale", "nan"}, {"--time-scale", "inf"},
        {"--wait-limit", "0"}, {"--wait-limit", "1.5"}, {"--peer", "loud"},
        {"--listen"},          {"--journal"},
    };
    for (const auto& arguments : cases) {
        agent::Options options;
        EXPECT_EQ(parseOptions(arguments, options), 2) << arguments.back();
    }
}

TEST(Options, ReadsStandardInputOnlyWhenNothingElseIsAsked) {
    agent::Options none;
    EXPECT_FALSE(parseOptions({"--peer", "silent", "--time-scale", "2.5"}, none));
    EXPECT_EQ(none.scripts, std::vector<std::string>{"-"});
    EXPECT_EQ(none.peer, hostplatform::Peer::Silent);
    EXPECT_EQ(none.timeScale, 2.5);

    agent::Options linked;
    EXPECT_FALSE(parseOptions({"--peer", "linked"}, linked));
    EXPECT_EQ(linked.peer, hostplatform::Peer::Linked);

    agent::Options both;
    EXPECT_FALSE(parseOptions({"a", "-", "--listen", "0", "--trace"}, both));
    EXPECT_EQ(both.scripts, (std::vector<std::string>{"a", "-"}));
    EXPECT_TRUE(both.trace);
}

class CommandRunnerTest : public testing::Test {
 protected:
    // The final line, and what was logged before it if it was refused.
    std::string answer(CommandRunner& runner, const std::string& line) {
        testing::internal::CaptureStderr();
        const auto command = runner.accept(Line{Line::Kind::Text, line});
        std::string result = command ? runner.run(*command) : "refused";
        mLog = testing::internal::GetCapturedStderr();
        return result;
    }

    const agent::SigmaLibrary mLibrary{FAKE_LIBRARY_PATH};
    std::string mLog;
};

TEST_F(CommandRunnerTest, TurnsResultsIntoStatusLines) {
    CommandRunner runner(mLibrary);
    const std::pair<const char*, const char*> cases[] = {
        {"dev_send_frame,0", "status,COMPLETE"},
        {"DEV_Send_Frame,1", "status,COMPLETE"},
        {"dev_send_frame,2", "status,ERROR,errorCode,2"},
        {"dev_send_frame,-1", "status,ERROR,errorCode,-1"},
        {"dev_send_frame,-2", "status,INVALID,errorCode,-2"},
        {"sta_reset_default,-22", "status,ERROR,errorCode,-22"},
        {"sta_reset_default", "status,COMPLETE"},
        {"sta_generate_event", "status,COMPLETE"},
        {"sta_preset_testparameters", "status,COMPLETE"},
        {"sta_preset_testparameters,a", "status,COMPLETE,InstanceName,a  source"},
        {"dev_send_frames,0", "refused"},
        {"dev_send,0", "refused"},
        {",dev_send_frame", "refused"},
    };
    for (const auto& [line, expected] : cases) EXPECT_EQ(answer(runner, line), expected) << line;

    EXPECT_FALSE(runner.accept(Line{Line::Kind::TooLong, {}}));
    EXPECT_FALSE(runner.accept(Line{Line::Kind::HasNul, {}}));
}

TEST_F(CommandRunnerTest, LibraryKnowsTheRoleOfASinkWhenItIsPreset) {
    CommandRunner runner(mLibrary);
    const struct {
        const char* parameters;
        const char* role;
    } cases[] = {
        {"wfddevtype,p-sink", "sink"},
        {"mdns_disc,enable,mdns_role,responder,WfdDevType, P-Sink ", "sink"},
        {"wfddevtype,source", "source"},
        {"wfddevtype,p-sink2", "source"},
        {"testid,wfddevtype,Program,p-sink", "source"},
    };
    for (const auto& c : cases) {
        *mLibrary.deviceType = 0;
        const std::string answered =
            answer(runner, std::string("sta_preset_testparameters,") + c.parameters);
        EXPECT_EQ(answered.substr(answered.rfind(' ') + 1), c.role) << answered;
        EXPECT_EQ(mLog, c.role == std::string("sink")
                            ? "capi-agent: this device is a primary sink from now on\n"
                            : "");
    }
}

TEST_F(CommandRunnerTest, HandsStartParametersOn) {
    CommandRunner runner(mLibrary);
    const struct {
        const char* line;
        const char* expected;
    } cases[] = {
        {"start_wfd_connection,PeerAddress,192.168.49.2,RtspPort,7236,PeerDevType,p-sink \r",
         "status,COMPLETE,WfdSessionID,start|192.168.49.2|7236|1|"
         "PeerAddress,192.168.49.2,RtspPort,7236,PeerDevType,p-sink"},
        {"connect_go_start_wfd,peerdevtype,SOURCE,rtspport,65535,peeraddress, 10.0.0.1 ",
         "status,COMPLETE,WfdSessionID,go|10.0.0.1|65535|0|"
         "peerdevtype,SOURCE,rtspport,65535,peeraddress, 10.0.0.1"},
        {"start_wfd_connection,RtspPort,-100,PeerDevType,source",
         "status,COMPLETE,WfdSessionID,start|null|-100|0|RtspPort,-100,PeerDevType,source"},
        {"start_wfd_connection,RtspPort,-100,PeerDevType,source,Result,-1",
         "status,ERROR,errorCode,-1"},
        {"start_wfd_connection,RtspPort,-100,PeerDevType,source,Result,7",
         "status,ERROR,errorCode,7"},
    };
    for (const auto& c : cases) EXPECT_EQ(answer(runner, c.line), c.expected) << c.line;
}

TEST_F(CommandRunnerTest, SaysWhichStartParameterIsWrong) {
    CommandRunner runner(mLibrary);
    const struct {
        const char* parameters;
        const char* named;
        const char* got;
    } cases[] = {
        {"RtspPort,7236,PeerDevType,source", "PeerAddress", "nothing"},
        {"PeerAddress,,RtspPort,7236,PeerDevType,source", "PeerAddress", "nothing"},
        {"PeerAddress,sink.local,RtspPort,1,PeerDevType,source", "PeerAddress", "sink.local"},
        {"PeerAddress,1.2.3.4.5,RtspPort,-100,PeerDevType,source", "PeerAddress", "1.2.3.4.5"},
        {"PeerAddress,::1,RtspPort,1,PeerDevType,source", "PeerAddress", "::1"},
        {"PeerAddress,1.2.3.4,PeerDevType,source", "RtspPort", "nothing"},
        {"PeerAddress,1.2.3.4,RtspPort,0,PeerDevType,source", "RtspPort", "\"0\""},
        {"PeerAddress,1.2.3.4,RtspPort,65536,PeerDevType,source", "RtspPort", "65536"},
        {"PeerAddress,1.2.3.4,RtspPort,-1,PeerDevType,source", "RtspPort", "-1"},
        {"PeerAddress,1.2.3.4,RtspPort,72x,PeerDevType,source", "RtspPort", "72x"},
        {"PeerAddress,1.2.3.4,RtspPort,99999999999,PeerDevType,source", "RtspPort", "9999"},
        {"PeerAddress,1.2.3.4,RtspPort,7236", "PeerDevType", "nothing"},
        {"PeerAddress,1.2.3.4,RtspPort,7236,PeerDevType,sink", "PeerDevType", "\"sink\""},
    };
    for (const char* const name : {"start_wfd_connection", "connect_go_start_wfd"}) {
        for (const auto& c : cases) {
            const std::string line = std::string(name) + ',' + c.parameters;
            EXPECT_EQ(answer(runner, line), "status,INVALID,errorCode,-2") << line;
            EXPECT_NE(mLog.find(std::string(name) + ": " + c.named), std::string::npos) << mLog;
            EXPECT_NE(mLog.find(c.got), std::string::npos) << mLog;
        }
    }
}

TEST_F(CommandRunnerTest, MakesInputOfTheSinksUser) {
    static WFD_uibc_event_t got;
    const auto onInput = [](WFD_uibc_event_t* event, const void*, _jobject* const&,
                            _jobject* const&) {
        got = *event;
        return true;
    };
    CommandRunner runner(mLibrary);
    EXPECT_EQ(answer(runner, "x_sink_input,kind,touch,action,down"), "status,ERROR,errorCode,-1");
    auto* const client = new (std::nothrow) WiFiDisplayClient(nullptr, onInput, nullptr);
    WfdDevice ends[2]{};
    ASSERT_EQ(client->createWfdSession(&ends[0], &ends[1]), 0);
    ASSERT_EQ(client->startUIBC(), 0);

    const struct {
        const char* parameters;
        WFD_uibc_event_t event;
    } cases[] = {
        {"kind,key,code,97,action,down", hostplatform::keyEvent(97, 0)},
        {"Action,UP,Kind,KEY,Code,A", hostplatform::keyEvent('A', 1)},
        {"kind,key,code,8,action,up", hostplatform::keyEvent(8, 1)},
        {"kind,key,code,~,action,up", hostplatform::keyEvent('~', 1)},
        {"kind,key,code,65535,action,up", hostplatform::keyEvent(65535, 1)},
        {"kind,touch,action,down", hostplatform::touchEvent(0)},
        {"kind,touch,action,move,code,x", hostplatform::touchEvent(2)},
    };
    for (const auto& c : cases) {
        memset(&got, 0xff, sizeof got);
        EXPECT_EQ(answer(runner, std::string("x_sink_input,") + c.parameters), "status,COMPLETE")
            << c.parameters << mLog;
        EXPECT_EQ(memcmp(&got, &c.event, sizeof got), 0) << c.parameters;
    }

    const struct {
        const char* parameters;
        const char* reason;
    } refused[] = {
        {"", "kind must be key or touch, got nothing"},
        {"kind,mouse,action,down", "kind must be key or touch, got \"mouse\""},
        {"kind,touch", "action must be down, up or move, got nothing"},
        {"kind,touch,action,0", "action must be"},
        {"kind,key,code,97,action,move", "action must be down or up, got \"move\""},
        {"kind,key,action,down", "code must be"},
        {"kind,key,code,ab,action,down", "code must be"},
        {"kind,key,code,-1,action,down", "code must be"},
        {"kind,key,code,65536,action,down", "code must be"},
        {"kind,key,code,\x7f,action,down", "code must be"},
        {"kind,key,code,\xc3\xa4,action,down", "code must be"},
    };
    for (const auto& c : refused) {
        EXPECT_EQ(answer(runner, std::string("x_sink_input,") + c.parameters),
                  "status,INVALID,errorCode,-2")
            << c.parameters;
        EXPECT_NE(mLog.find(std::string("x_sink_input: ") + c.reason), std::string::npos) << mLog;
    }
    EXPECT_EQ(client->stopWfdSession(hostplatform::currentSession()->id, nullptr), 0);
    EXPECT_TRUE(hostplatform::waitReported());
}

// ThreadSanitizer reports the threads that nobody joins.
TEST_F(CommandRunnerTest, JoinsPlaybackThreadsThatHaveEndedAndThatStillRun) {
    CommandRunner runner(mLibrary);
    for (const char* const milliseconds : {"0", "0", "50"}) {
        EXPECT_EQ(answer(runner, std::string("dev_exec_action,") + milliseconds),
                  "status,COMPLETE");
        EXPECT_EQ(*mLibrary.playbackThread, pthread_t{});
    }
}

}  // namespace
