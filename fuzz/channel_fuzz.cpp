// The DNS-SD command channel and the results of its requests. A line is an argument vector, its
// words separated by tabs. A line that begins with "!" is the daemon's: "!answer", with the fields
// of a result of the newest request; "!break", its connection ends; "!refuse", so does the next
// call.
//
// At the end everything is stopped. Each command must have been answered once, and the client
// library must have nothing to complain of and nothing left.
#include <cstring>
#include <sstream>

#include "FakeDnsSd.h"
#include "FuzzDevice.h"
#include "WFDmDns.h"

namespace {

FakeDnsSd& library() { return FakeDnsSd::instance(); }

// This device's own discovery, which gives no commands by itself.
struct Listener : WFDmDns {
    int sendMsg(int code, const char* message, bool flag) noexcept override {
        ++answers;
        return WFDmDns::sendMsg(code, message, flag);
    }
    void onResolveResult(int, const char*, const char*, int, int,
                         const unsigned char*) noexcept override {}
    size_t answers = 0;  // on the thread of the commands
};

void onService(int, const MDnsWfdServiceInfo* info) {
    require(info == nullptr || memchr(info->serviceName, 0, sizeof info->serviceName) != nullptr);
}

void playDaemon(const std::vector<std::string>& words) {
    const auto word = [&](size_t i) { return i < words.size() ? words[i] : ""; };
    if (words[0] == "!answer") {
        FakeDnsSd::Result result{word(2), word(3), word(4), word(2), 1, {}, word(4)};
        const std::string txt = word(5);
        result.txt.assign(txt.begin(), txt.end());
        result.error = atoi(word(1).c_str());
        library().answer(library().newest(), result);
    }
    if (words[0] == "!break") library().breakConnection(library().newest());
    if (words[0] == "!refuse") FakeDnsSd::failNextCall(kDNSServiceErr_Unknown);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static auto& listener = *new Listener;
    static MDnsSdChannel channel(&listener);
    FakeDnsSd::failNextCall(kDNSServiceErr_Unknown);  // without a request of its own
    static const int refused = listener.discover(WFD_R2_PRIMARY_SINK, onService);
    FakeDnsSd::failNextCall(kDNSServiceErr_NoError);
    library().journalled = false;
    const auto give = [](const std::vector<std::string>& words) {
        std::vector<std::vector<char>> texts;
        std::vector<char*> arguments;
        for (const std::string& word : words) {
            arguments.push_back(texts.emplace_back(exactText(word)).data());
        }
        const int count = static_cast<int>(arguments.size());
        require(channel.runCommand(count, arguments.data()) == (count < 2 ? -1 : 0));
    };
    require(refused == 501);
    listener.answers = 0;
    size_t given = 0;
    std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
    std::vector<std::string> ids;
    for (std::string line; given < 32 && std::getline(lines, line);) {
        std::vector<std::string> words;
        std::istringstream rest(line);
        for (std::string word; std::getline(rest, word, '\t');) words.push_back(word);
        const bool daemon = !words.empty() && words[0][0] == '!';
        daemon ? playDaemon(words) : give(words);
        if (!daemon) ++given;
        if (!daemon && words.size() > 2) ids.push_back(words[2]);
    }
    FakeDnsSd::failNextCall(kDNSServiceErr_NoError);
    for (const std::string& id : ids) give({"0", "stop-discover", id});
    require(listener.answers == given + ids.size());
    require(library().takeViolations().empty() && library().liveCount() == 0);
    return 0;
}
