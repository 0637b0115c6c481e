// Whole sessions through the agent: from a controller's or a script's line to what the simulated
// device was made to do.
#include <gtest/gtest.h>

#include <csignal>
#include <sstream>
#include <string>
#include <vector>

#include "AgentProcess.h"
#include "Controller.h"

namespace {

using test::AgentProcess;
using test::Controller;
using test::countOf;

class AgentSession : public testing::Test {
 protected:
    // Sends `command`, expects its final line, and waits for each of `effects` in what the journal
    // gained since the last call, without the log lines and the commands.
    void step(const std::string& command, const std::string& answer,
              const std::vector<std::string>& effects) {
        EXPECT_EQ(mController.command(command), "status," + answer) << command;
        for (const std::string& effect : effects) {
            EXPECT_TRUE(test::waitUntil([&] {
                return journal().find(effect, mSeen) != std::string::npos;
            })) << command
                << " did not lead to \"" << effect << "\" but to\n"
                << journal().substr(mSeen);
        }
        mSeen = journal().size();
    }

    void frame(const std::string& parameters, const std::string& answer,
               const std::vector<std::string>& effects) {
        step("dev_send_frame,framename,RTSP,RtspMsgType," + parameters, answer, effects);
    }

    void start(const std::string& command) {
        const std::string before = "status,COMPLETE,WfdSessionID,";
        const std::string answer = mController.command(command);
        ASSERT_EQ(answer.substr(0, before.size()), before);
        mId = answer.substr(before.size());
        EXPECT_EQ(mId.size(), 8U) << mId;
        EXPECT_EQ(mId.find_first_not_of("0123456789"), std::string::npos) << mId;
        EXPECT_TRUE(test::waitUntil(
            [&] { return journal().find("startUIBC -> 0", mSeen) != std::string::npos; }));
        mSeen = journal().size();
    }

    void end() {
        mAgent.signal(SIGTERM);
        EXPECT_EQ(mAgent.wait(), 0) << mAgent.errors();
    }

    std::string journal() const {
        std::istringstream lines(test::readFile(mDirectory.path("journal")));
        std::string result;
        for (std::string line; std::getline(lines, line);) {
            const bool device = line.find(" log  ") == std::string::npos &&
                                line.find(" capi  ") == std::string::npos;
            if (device) result += line + '\n';
        }
        return result;
    }

    const test::TemporaryDirectory mDirectory;
    AgentProcess mAgent{
        {"--listen", "0", "--time-scale", "100", "--journal", mDirectory.path("journal")}};
    Controller mController{mAgent.port()};
    std::size_t mSeen = 0;
    std::string mId;
};

TEST_F(AgentSession, Source) {
    step("sta_reset_default", "COMPLETE", {"thread pool started"});
    start("start_wfd_connection,PeerAddress,192.168.49.2,RtspPort,7236,PeerDevType,p-sink");
    const std::string id = " id " + mId + " -> 0";
    EXPECT_NE(journal().find("as source"), std::string::npos);
    EXPECT_NE(journal().find("peer \"192.168.49.2\" port 7236"), std::string::npos);

    frame("PAUSE", "COMPLETE", {"pause_rtsp flag 0" + id, "PAUSE", "unavailable"});
    frame("play", "COMPLETE", {"play_rtsp flag 0" + id, "startUIBC"});
    frame("TRIGGER-PAUSE", "COMPLETE", {"pause_rtsp flag 0" + id, "unavailable"});
    frame("TRIGGER-PLAY \t", "COMPLETE", {"play_rtsp flag 0" + id, "startUIBC"});
    frame("SET_PARAMETER,SetParameter,Standby", "COMPLETE", {"standby_rtsp" + id, "STANDBY"});
    frame("SET_PARAMETER,SetParameter,CapReNego,CapReNegotiateCodecProfile,H264-1 ", "COMPLETE",
          {"sendAvFormatChange codec 0 profile 1"});
    frame("SET_PARAMETER,SetParameter,CapReNego,CapReNegotiateProfile,H265-5,TransportType,udp",
          "COMPLETE", {"sendAvFormatChange codec 1 profile 5", "negotiateRtpTransport 0"});
    frame("SET_PARAMETER,SetParameter,CapReNego,CapReNegotiateProfile,VP8", "ERROR,errorCode,2",
          {});
    frame("SET_PARAMETER,TransportType,tcp", "COMPLETE", {"negotiateRtpTransport 1"});
    frame("SET_PARAMETER", "ERROR,errorCode,2", {});
    frame("SETUP", "COMPLETE", {"negotiateRtpTransport 1"});
    frame("RECORD", "ERROR,errorCode,2", {});
    step("dev_exec_action,DirectStreaming,Start,CodecProfile,H264-0", "COMPLETE",
         {"executeRuntimeCommand 3 -> 0", "input keyevent 4", "am force-stop", "DS_BP_720.mp4"});
    step("dev_exec_action,DirectStreaming,Stop", "COMPLETE", {"input keyevent 4"});
    step("x_sink_input,kind,key,code,a,action,down", "COMPLETE", {});
    step("x_sink_input,kind,touch,action,move", "COMPLETE", {});
    step("sta_generate_event,UIBCEventType,Keyboard", "COMPLETE",
         {"input keyevent 29", "input tap 300 1000"});
    frame("TEARDOWN", "COMPLETE", {"teardown_rtsp flag 1" + id, "STOPPED"});
    step("x_sink_input,kind,key,code,a,action,down", "ERROR,errorCode,-1", {});
    step("sta_reset_default", "COMPLETE", {"thread pool runs already"});
    frame("PAUSE", "ERROR,errorCode,-1", {});
    end();
}

TEST_F(AgentSession, SinkAndTheNextOne) {
    step("sta_reset_default", "COMPLETE", {});
    start("start_wfd_connection,PeerAddress,192.168.49.1,RtspPort,7236,PeerDevType,source");
    std::string id = " id " + mId + " -> 0";
    EXPECT_NE(journal().find("as sink"), std::string::npos);

    step("sta_generate_event,Type,IdrReq", "COMPLETE", {"sendIDRRequest -> 0"});
    step("sta_generate_event,Type,Beep", "ERROR,errorCode,2", {});
    frame("TRIGGER-TEARDOWN", "COMPLETE", {"teardown_rtsp flag 1" + id, "STOPPED"});
    step("sta_reset_default", "COMPLETE", {});

    const std::string firstId = mId;
    start("connect_go_start_wfd,PeerAddress,192.168.49.1,RtspPort,7236,PeerDevType,source");
    EXPECT_NE(mId, firstId);
    id = " id " + mId + " -> 0";
    frame("PAUSE", "COMPLETE", {"pause_rtsp flag 0" + id});
    // A reset ends the session that still runs.
    step("sta_reset_default", "COMPLETE", {"teardown_rtsp flag 0" + id, "STOPPED"});
    end();
}

TEST(AgentSilentPeer, StartEndsWithAnError) {
    AgentProcess agent({"--listen", "0", "--time-scale", "200", "--peer", "silent"});
    Controller controller(agent.port());
    EXPECT_EQ(controller.command(
                  "start_wfd_connection,PeerAddress,192.168.49.2,RtspPort,7236,PeerDevType,p-sink"),
              "status,ERROR,errorCode,-1");
    EXPECT_EQ(countOf("Obtained session ID 0", agent.errors()), 60U);
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
}

TEST(AgentScript, ExitStatusSaysWhetherAllWasAsExpected) {
    const struct {
        std::string script;
        int status;
        const char* error;  // after the script's name
    } cases[] = {
        {"", 0, ""},
        {"# nothing\n\n \t\n", 0, ""},
        {"ca_get_version", 0, ""},
        {"ca_get_version\r\n#expect COMPLETE\n# between\n\ndevice_get_info \r\n", 0, ""},
        {"#expect ERROR,errorCode,-1\ndev_send_frame,framename,RTSP", 0, ""},
        {"#expect INVALID\nno_such_command\n#expect INVALID\n,\n", 0, ""},
        {std::string("#expect INVALID\nca\0get\n", 23), 0, ""},
        {"#settle\n", 0, ""},
        {"\n\nno_such_command\n", 1,
         ":3: expected status,COMPLETE, got status,INVALID,errorCode,-2"},
        {"#expect ERROR\nca_get_version\n", 1,
         ":2: expected status,ERROR, got status,COMPLETE,ver"},
        {"#expect ERROR,errorCode,-1\n\ndev_send_frame,framename,RTSP\nx\nca_get_version\n", 1,
         ":4: expected status,COMPLETE"},
        {"ca_get_version\n#expect COMPLETE\n", 1, ":2: expected status,COMPLETE, but no command"},
        {"#expect ERROR\n#expect COMPLETE\nca_get_version\n", 1,
         ":2: expected status,ERROR, but no"},
        {"#expect DONE\nca_get_version\n", 1, ":1: an expectation begins with"},
    };
    const test::TemporaryDirectory directory;
    const std::string path = directory.path("script.capi");
    for (const auto& c : cases) {
        test::writeFile(path, c.script);
        AgentProcess fromFile({path});
        EXPECT_EQ(fromFile.wait(), c.status) << c.script << fromFile.errors();
        AgentProcess fromInput({}, c.script);
        EXPECT_EQ(fromInput.wait(), c.status) << c.script << fromInput.errors();
        if (c.status == 0) {
            EXPECT_EQ(countOf(path, fromFile.errors()), 0U) << fromFile.errors();
        } else {
            EXPECT_EQ(countOf(path + c.error, fromFile.errors()), 1U) << fromFile.errors();
            EXPECT_EQ(countOf(path, fromFile.errors()), 1U) << fromFile.errors();
            EXPECT_EQ(countOf(std::string("(standard input)") + c.error, fromInput.errors()), 1U);
        }
    }
}

TEST(AgentScript, WaitsInTheJournalFromOneMatchToTheNext) {
    const test::TemporaryDirectory directory;
    const std::string path = directory.path("script.capi");
    const struct {
        std::string script;
        int status;
        const char* error;  // after the script's name
    } cases[] = {
        // What a command has already led to, and what comes when none is running any more.
        {"start_wfd_connection,PeerAddress,192.168.49.1,RtspPort,7236,PeerDevType,source\n"
         "#wait report ESTABLISHED\n#wait report PLAY\n",
         0, ""},
        {"dev_exec_action,DirectStreaming,Start,CodecProfile,H264-0\n#wait tool DS_BP_720.mp4\n", 0,
         ""},
        {"ca_get_version\nca_get_version\n#wait capi get_version\n#wait capi get_version\n", 0, ""},
        {"ca_get_version\n#wait capi get_version\n#wait capi get_version\n", 1,
         ":3: waited in vain for \"get_version\" of capi\n"},
        {"ca_get_version\n#wait log get_version\n", 1, ":2: waited in vain for"},
        {"#wait\nca_get_version\n", 1, ":1: a wait names a component"},
    };
    for (const auto& c : cases) {
        test::writeFile(path, c.script);
        AgentProcess agent(
            {"--time-scale", "20", "--wait-limit", c.status == 0 ? "30" : "1", path});
        EXPECT_EQ(agent.wait(), c.status) << c.script << agent.errors();
        EXPECT_EQ(countOf(path + c.error, agent.errors()), c.status == 0 ? 0U : 1U)
            << agent.errors();
    }
    // What an earlier script did is not this one's.
    test::writeFile(path, "#wait capi get_version\n");
    AgentProcess agent({"--wait-limit", "1", "-", path}, "ca_get_version\n");
    EXPECT_EQ(agent.wait(), 1);
    EXPECT_EQ(countOf(path + ":1: waited in vain", agent.errors()), 1U) << agent.errors();
}

TEST(AgentScript, ExamplesSucceedAndTheTraceStandsUnderTheCommand) {
    const std::string examples = std::string(EXAMPLES_DIRECTORY) + '/';
    AgentProcess agent({"--trace", "--time-scale", "100", examples + "source_session.capi",
                        examples + "sink_session.capi"});
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
    // Each of these lines somewhere after the one before.
    const std::string output = agent.output();
    std::size_t at = 0;
    for (const char* const line :
         {"\ndev_send_frame,framename,RTSP,RtspMsgType,PAUSE\n", "\nstatus,RUNNING\n",
          "\nstatus,COMPLETE\n    session    pause_rtsp flag 0 id ", "\n    report     ",
          "\ndev_send_frame,framename,RTSP,RtspMsgType,PLAY\n", "\nstatus,RUNNING\n",
          "\nstatus,COMPLETE\n    session    play_rtsp flag 0 id "}) {
        at = output.find(line, at);
        ASSERT_NE(at, std::string::npos) << line << " is missing in\n" << output;
    }
    EXPECT_EQ(agent.output().find("    log "), std::string::npos);
}

TEST(AgentScript, JournalTellsCommandsAnswersAndEffectsInOrder) {
    const test::TemporaryDirectory directory;
    AgentProcess agent({"--trace", "--time-scale", "100", "--journal", directory.path("journal")},
                       "sta_reset_default,DisplayR2,\x1b[1m \r\n#expect INVALID\nbeep\n");
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
    const std::string journal = test::readFile(directory.path("journal"));
    std::size_t at = 0;
    for (const char* const line :
         {" capi       sta_reset_default,DisplayR2,\\x1b[1m\n", " capi       status,RUNNING\n",
          " binder     thread pool started\n", " capi       status,COMPLETE\n",
          " capi       beep\n", " capi       status,INVALID,errorCode,-2\n"}) {
        at = journal.find(line, at);
        ASSERT_NE(at, std::string::npos) << line << " is missing in\n" << journal;
    }
    EXPECT_EQ(countOf(" capi ", journal), 5U) << journal;
    EXPECT_EQ(countOf("    capi ", agent.output()), 0U) << agent.output();
}

TEST(AgentScript, TraceShowsWhatComesAfterTheLastCommand) {
    AgentProcess agent({"--trace"}, "dev_exec_action,DirectStreaming,Start,CodecProfile,H264-1");
    EXPECT_EQ(agent.wait(), 0) << agent.errors();
    EXPECT_EQ(countOf("    tool       am start ", agent.output()), 1U) << agent.output();
}

TEST(AgentScript, RunsBesideTheServerAndKeepsItsStatus) {
    AgentProcess agent({"--listen", "0", "-"}, "no_such_command\n");
    EXPECT_TRUE(agent.waitForError("(standard input):1: expected"));
    Controller controller(agent.port());
    EXPECT_EQ(controller.command("ca_get_version"), "status,COMPLETE,version," AGENT_VERSION);
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 1);
}

TEST(AgentScript, InterruptedScriptHasNotSucceeded) {
    AgentProcess agent({"--time-scale", "10", "-"},
                       "sta_generate_event,UIBCEventType,Mouse\nca_get_version\n");
    EXPECT_TRUE(test::waitUntil(
        [&] { return agent.output().find("UIBCEventType is: Mouse") != std::string::npos; }));
    agent.signal(SIGTERM);
    EXPECT_EQ(agent.wait(), 1);
    EXPECT_EQ(agent.output().find("ca_get_version"), std::string::npos);
    EXPECT_NE(agent.errors().find("was stopped before its end"), std::string::npos);
}

TEST(AgentScript, SignalEndsAWaitAtOnce) {
    AgentProcess agent({"--wait-limit", "3600", "-"}, "ca_get_version\n#wait report never\nx\n");
    EXPECT_TRUE(test::waitUntil(
        [&] { return agent.output().find("status,COMPLETE") != std::string::npos; }));
    agent.signal(SIGINT);
    EXPECT_EQ(agent.wait(), 1);
    EXPECT_EQ(countOf("was stopped before its end", agent.errors()), 1U) << agent.errors();
    EXPECT_EQ(countOf(":2:", agent.errors()), 0U) << agent.errors();
}

}  // namespace
