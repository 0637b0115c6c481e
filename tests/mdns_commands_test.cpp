// The commands of the DNS-SD command channel: their answers, DNS-SD calls and log lines.
#include <gtest/gtest.h>
#include <resolv.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include "ChannelTest.h"
#include "TextFormat.h"

using hostplatform::format;

namespace {

using Lines = std::vector<std::string>;

struct Operation {
    const char* word;
    Lines command;  // for request 7
    Lines entryLog;
    const char* call;
    const char* inUseLog;  // the texts of a request id in use, and of a DNS-SD error of -65537
    const char* inUseAnswer;
    const char* errorLog;
    const char* errorAnswer;
    const char* successLog;
    const char* startedAnswer;
};

const std::array kOperations{
    Operation{"discover",
              {"discover", "7", "_display._tcp"},
              {"D/MDnsDS: discover((null), _display._tcp, (null), 7, 0)"},
              "DNSServiceBrowse(0, 0, _display._tcp, (null))",
              "E/MDnsDS: requestId 7 already in use during discover call",
              "RequestId already in use during discover call",
              "E/MDnsDS: Discover request 7 got an error from DNSServiceBrowse -65537",
              "Discover request got an error from DNSServiceBrowse",
              "D/MDnsDS: discover successful",
              "Discover operation started"},
    Operation{"register",
              {"register", "7", "A sink", "_display._tcp", "7236", "A2E9MQ=="},
              {"D/MDnsDS: serviceRegister(7, (null), A sink, _display._tcp, (null), (null), 7236, "
               "4, <binary>)"},
              "DNSServiceRegister(0, 0, A sink, _display._tcp, (null), (null), 7236, 4:03613d31)",
              "E/MDnsDS: requestId 7 already in use during register call",
              "RequestId already in use during register call",
              "E/MDnsDS: service register request 7 got an error from DNSServiceRegister -65537",
              "serviceRegister request got an error from DNSServiceRegister",
              "D/MDnsDS: serviceRegister successful",
              "serviceRegister started"},
    Operation{"resolve",
              {"resolve", "7", "A sink", "_display._tcp", "local."},
              {"D/MDnsDS: resolveService(7, (null), A sink, _display._tcp, local.)"},
              "DNSServiceResolve(0, 0, A sink, _display._tcp, local.)",
              "E/MDnsDS: request Id 7 already in use during resolve call",
              "RequestId already in use during resolve call",
              "E/MDnsDS: service resolve request 7 got an error from DNSServiceResolve -65537",
              "resolveService got an error from DNSServiceResolve",
              "D/MDnsDS: resolveService successful",
              "resolveService started"},
    Operation{"getaddrinfo",
              {"getaddrinfo", "7", "sink.local."},
              {"D/MDnsDS: getAddrInfo(7, (null) 0, sink.local.)"},
              "DNSServiceGetAddrInfo(0, 0, 0, sink.local.)",
              "E/MDnsDS: request ID 7 already in use during getAddrInfo call",
              "RequestId already in use during getAddrInfo call",
              "E/MDnsDS: getAddrInfo request 7 got an error from DNSServiceGetAddrInfo -65537",
              "getAddrInfo request got an error from DNSServiceGetAddrInfo",
              "D/MDnsDS: getAddrInfo successful",
              "getAddrInfo started"},
    Operation{"sethostname",
              {"sethostname", "7", "sink"},
              {"D/MDnsDS: setHostname(7, sink)"},
              "DNSSetHostname(0, sink)",
              "E/MDnsDS: request Id 7 already in use during setHostname call",
              "RequestId already in use during setHostname call",
              "E/MDnsDS: setHostname request 7 got an error from DNSSetHostname -65537",
              "setHostname got an error from DNSSetHostname",
              "D/MDnsDS: setHostname successful",
              "setHostname started"},
};

std::string sent(int code, const std::string& text) {
    return format("sendMsg(%d, %s, 0)", code, text.c_str());
}

class CommandsTest : public ChannelTest {
 protected:
    // What a command has this thread do.
    Lines traceOf(const Lines& words) {
        mark();
        EXPECT_EQ(command(words), 0);
        return trace(gettid());
    }
};

TEST_F(CommandsTest, EachOperationStartsFailsAndStops) {
    for (const Operation& operation : kOperations) {
        SCOPED_TRACE(operation.word);
        Lines begin = operation.entryLog;
        const std::string usingRef = "D/MDnsDS: using ref *";
        if (operation.word == std::string("discover")) begin.push_back(usingRef);
        begin.emplace_back(operation.call);

        // Refused by DNS-SD: nothing is left, the id is free at once.
        library().failNextCall(kDNSServiceErr_Unknown);
        Lines expected = begin;
        expected.insert(expected.end(), {operation.errorLog, "D/MDnsDS: freeServiceRef 7",
                                         sent(501, operation.errorAnswer)});
        EXPECT_EQ(traceOf(operation.command), expected);
        EXPECT_EQ(library().liveCount(), 0U);

        expected = begin;
        expected.insert(expected.end(),
                        {"D/MDnsDS: startMonitoring 7", "D/MDnsDS: triggering rescan",
                         operation.successLog, sent(200, operation.startedAnswer)});
        EXPECT_EQ(traceOf(operation.command), expected);
        EXPECT_EQ(waitRescanned(), 2);

        // The id is in use for every operation.
        for (const Operation& other : kOperations) {
            expected = other.entryLog;
            expected.insert(expected.end(), {other.inUseLog, sent(501, other.inUseAnswer)});
            EXPECT_EQ(traceOf(other.command), expected);
        }

        const std::string word = operation.word;
        EXPECT_EQ(traceOf({"stop-" + word, "7"}),
                  (Lines{"D/MDnsDS: Stopping " + word + " with ref *", "DNSServiceRefDeallocate",
                         "D/MDnsDS: freeServiceRef 7", "D/MDnsDS: triggering rescan",
                         sent(200, word + " stopped")}));
        EXPECT_EQ(waitRescanned(), 1);
        EXPECT_EQ(traceOf({"stop-" + word, "7"}),
                  (Lines{"E/MDnsDS: " + word + " stop used unknown requestId 7",
                         sent(501, "Unknown requestId")}));
    }
}

TEST_F(CommandsTest, StopsByIdWhateverTheOperation) {
    for (const Operation& started : kOperations) {
        for (const Operation& stopped : kOperations) {
            SCOPED_TRACE(std::string(started.word) + ", stop-" + stopped.word);
            mark();
            EXPECT_EQ(answer(started.command), std::string("200 ") + started.startedAnswer);
            EXPECT_EQ(stop(7, stopped.word), std::string("200 ") + stopped.word + " stopped");
            EXPECT_EQ(library().liveCount(), 0U);
            EXPECT_EQ(waitRescanned(), 1);
        }
    }
}

TEST_F(CommandsTest, RefusesWhatIsNotACommand) {
    const struct {
        Lines words;
        Lines trace;
    } cases[] = {
        {{"browse"}, {"E/MDnsDS: Unknown cmd browse", sent(500, "Unknown mdnssd cmd")}},
        {{""}, {"E/MDnsDS: Unknown cmd ", sent(500, "Unknown mdnssd cmd")}},
        {{"Discover", "1", "_x._tcp"},
         {"E/MDnsDS: Unknown cmd Discover", sent(500, "Unknown mdnssd cmd")}},
        {{"discover "}, {"E/MDnsDS: Unknown cmd discover ", sent(500, "Unknown mdnssd cmd")}},
        {{"stop"}, {"E/MDnsDS: Unknown cmd stop", sent(500, "Unknown mdnssd cmd")}},
    };
    for (const auto& given : cases) EXPECT_EQ(traceOf(given.words), given.trace) << given.words[0];

    for (const Operation& operation : kOperations) {
        const std::string word = operation.word;
        for (const size_t size : {operation.command.size() - 1, operation.command.size() + 1}) {
            Lines words = operation.command;
            words.resize(size, "x");
            EXPECT_EQ(traceOf(words),
                      Lines{sent(501, "Invalid number of arguments to mdnssd " + word)});
        }
        EXPECT_EQ(traceOf({word}),
                  Lines{sent(501, "Invalid number of arguments to mdnssd " + word)});
        EXPECT_EQ(traceOf({"stop-" + word}),
                  Lines{sent(501, "Invalid number of arguments to " + word)});
        EXPECT_EQ(traceOf({"stop-" + word, "7", "8"}),
                  Lines{sent(501, "Invalid number of arguments to " + word)});
    }
    EXPECT_EQ(library().liveCount(), 0U);
}

TEST_F(CommandsTest, RefusesAVectorWithoutACommandWord) {
    char sequence[] = "1";
    char* arguments[] = {sequence, nullptr};
    for (const int count : {1, 0}) {
        mark();
        EXPECT_EQ(mChannel->runCommand(count, arguments), -1);
        const std::string text = format("Invalid number of arguments to mdnssd: %d", count);
        EXPECT_EQ(trace(gettid()), (Lines{"W/MDnsDS: " + text, sent(501, text)}));
    }
}

TEST_F(CommandsTest, AnswersTheListenerGivenAndReportsToTheChannels) {
    class Answers : public JournalListener {
     public:
        int sendMsg(int code, const char* message, bool /*flag*/) override {
            mGot += format("%d %s;", code, message);
            return 0;
        }
        int sendBroadcast(int /*code*/, const char* message, bool /*flag*/) override {
            mGot += format("%s;", message);
            return 0;
        }
        std::string mGot;
    } answers;
    MDnsSdChannel::Handler handler(new MDnsSdChannel::Monitor, mChannel.get());
    char words[][12] = {"1", "discover", "7", "_x._tcp"};
    char* arguments[] = {words[0], words[1], words[2], words[3]};
    EXPECT_EQ(handler.runCommand(&answers, 4, arguments), 0);
    EXPECT_TRUE(library().answer(library().newest(), {}));
    EXPECT_TRUE(journal().waitFor("listener", "onDiscoverResult", marked()));
    EXPECT_EQ(count("listener", "sendBroadcast(604, 7 "), 1U);
    char stopWord[] = "stop-discover";
    arguments[1] = stopWord;
    EXPECT_EQ(handler.runCommand(&answers, 3, arguments), 0);
    EXPECT_EQ(answers.mGot, "200 Discover operation started;200 discover stopped;");
    EXPECT_EQ(count("listener", "sendMsg"), 0U);
}

TEST_F(CommandsTest, ReadsRequestIds) {
    const struct {
        const char* text;
        const char* same;
    } cases[] = {{"x", "0"}, {"", "0"}, {"12x", "12"}, {"-5", "-5"}, {" 3", "3"}};
    for (const auto& id : cases) {
        mark();
        EXPECT_EQ(answer({"discover", id.text, "_x._tcp"}), "200 Discover operation started");
        EXPECT_EQ(answer({"discover", id.same, "_x._tcp"}),
                  "501 RequestId already in use during discover call");
        EXPECT_EQ(answer({"stop-discover", id.same}), "200 discover stopped");
        EXPECT_EQ(waitRescanned(), 1);
    }
}

TEST_F(CommandsTest, DecodesTxtRecords) {
    const auto encoded = [](size_t size) {
        const std::vector<unsigned char> bytes(size, 0xa5);
        std::string text(4 * size / 3 + 5, '\0');
        text.resize(
            static_cast<size_t>(__b64_ntop(bytes.data(), bytes.size(), text.data(), text.size())));
        return text;
    };
    const auto decoded = [](size_t size) {
        std::string text = format("%zu:", size);
        for (size_t i = 0; i < size; ++i) text += "a5";
        return text;
    };
    const struct {
        std::string base64;
        std::string txt;  // empty: refused
    } cases[] = {
        {"", "0:"},
        {"AA==", "1:00"},  // a record of one empty string, not the end of a text
        {"/+8=", "2:ffef"},
        {"YQ = =", "1:61"},  // blanks do not count
        {encoded(256), decoded(256)},
        {encoded(1299), decoded(1299)},
        {encoded(1300), decoded(1300)},
        {encoded(1301), ""},
        {encoded(4000), ""},
        {"!!!!", ""},
        {"A", ""},
        {"AAA", ""},
        {"AA==AA==", ""},
        {"AB==", ""},  // bits that belong to no byte
        {"_-8=", ""},  // another alphabet
    };
    for (const auto& record : cases) {
        SCOPED_TRACE(record.base64);
        mark();
        const std::string reply = answer({"register", "1", "s", "_x._tcp", "7236", record.base64});
        if (record.txt.empty()) {
            EXPECT_EQ(reply, "501 Could not decode txtRecord");
            EXPECT_EQ(count("dns-sd", "DNSServiceRegister"), 0U);
            continue;
        }
        EXPECT_EQ(reply, "200 serviceRegister started");
        EXPECT_EQ(count("dns-sd", ", 7236, " + record.txt + ")"), 1U);
        stop(1, "register");
        EXPECT_EQ(waitRescanned(), 1);
    }
}

TEST_F(CommandsTest, RegistersTheLow16BitsOfThePort) {
    const struct {
        const char* text;
        int port;
    } cases[] = {{"7236", 7236}, {"0", 0}, {"65535", 65535}, {"65537", 1}, {"-1", 65535}, {"x", 0}};
    for (const auto& given : cases) {
        mark();
        answer({"register", "1", "s", "_x._tcp", given.text, ""});
        EXPECT_EQ(count("dns-sd", format("(null), %d, 0:)", given.port)), 1U) << given.text;
        stop(1, "register");
        EXPECT_EQ(waitRescanned(), 1);
    }
}

}  // namespace
