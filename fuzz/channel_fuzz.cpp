// The DNS-SD command channel, on the tests' client library: a line is an argument vector, its words
// separated by tabs. A line that begins with "!" is the daemon's: "!answer", with the texts of a
// result of the newest request; "!break", its connection ends; "!refuse", so does the next call.
//
// At the end everything is stopped. Each command must have been answered once, and the client
// library must have nothing to complain of and nothing left.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "FakeDnsSd.h"
#include "FuzzDevice.h"
#include "MDnsSdChannel.h"

namespace {

constexpr size_t kMostCommands = 32;

class CountingListener : public MDnsResultListener {
 public:
    size_t answers = 0;  // on the thread of the commands

    int sendMsg(int /*code*/, const char* message, bool /*flag*/) override {
        require(message != nullptr);
        ++answers;
        return 0;
    }
    int sendBroadcast(int, const char*, bool) override { return 0; }
    void onDiscoverResult(int, const char*, const char*, const char*) override {}
    void onRegisterResult(int, const char*, const char*, const char*) override {}
    void onResolveResult(int, const char*, const char*, int, int, const unsigned char*) override {}
    void onGetAddrResult(int, const char*, const char*) override {}
};

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const size_t end = std::min(text.find(separator), text.size());
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

void give(MDnsSdChannel& channel, const std::vector<std::string>& words) {
    std::vector<std::vector<char>> texts;
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(texts.emplace_back(exactText(word)).data());
    arguments.shrink_to_fit();
    const int argc = static_cast<int>(arguments.size());
    require(channel.runCommand(argc, arguments.data()) == (argc < 2 ? -1 : 0));
}

void playDaemon(const std::vector<std::string>& words) {
    FakeDnsSd& library = FakeDnsSd::instance();
    const auto word = [&](size_t i) { return i < words.size() ? words[i] : ""; };
    if (words[0] == "!answer") {
        FakeDnsSd::Result result;
        result.error = atoi(word(1).c_str());
        result.name = result.target = word(2);
        result.type = word(3);
        result.domain = result.address = word(4);
        result.txt.assign(result.name.begin(), result.name.end());
        library.answer(library.newest(), result);
    } else if (words[0] == "!break") {
        library.breakConnection(library.newest());
    } else if (words[0] == "!refuse") {
        FakeDnsSd::failNextCall(kDNSServiceErr_Unknown);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static CountingListener listener;
    static MDnsSdChannel channel(&listener);
    FakeDnsSd& library = FakeDnsSd::instance();
    library.setJournalled(false);

    listener.answers = 0;
    size_t given = 0;
    std::vector<std::string> lines = split({reinterpret_cast<const char*>(data), size}, '\n');
    if (lines.size() > kMostCommands) lines.resize(kMostCommands);
    std::vector<std::string> ids;
    for (const std::string& line : lines) {
        const std::vector<std::string> words = split(line, '\t');
        if (!words.empty() && words[0].rfind('!', 0) == 0) {
            playDaemon(words);
            continue;
        }
        give(channel, words);
        ++given;
        if (words.size() > 2) ids.push_back(words[2]);
    }
    FakeDnsSd::failNextCall(kDNSServiceErr_NoError);
    for (const std::string& id : ids) give(channel, {"0", "stop-discover", id});
    require(listener.answers == given + ids.size());
    require(library.takeViolations().empty());
    require(library.liveCount() == 0);
    return 0;
}
