// What a controller sends: cut into lines, and accepted, refused or carried out by a library whose
// results the command chooses. Commands that take time are accepted only.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CommandRunner.h"
#include "LineSplitter.h"

namespace {

void require(bool condition) {
    if (!condition) abort();
}

std::vector<agent::Line> linesOf(std::string_view bytes, size_t piece) {
    agent::LineSplitter splitter;
    std::vector<agent::Line> lines;
    while (!bytes.empty()) {
        const std::string_view next = bytes.substr(0, piece);
        for (agent::Line& line : splitter.feed(next)) lines.push_back(std::move(line));
        bytes.remove_prefix(next.size());
    }
    if (auto last = splitter.finish()) lines.push_back(std::move(*last));
    return lines;
}

void carryOut(agent::CommandRunner& runner, const agent::Line& line) {
    const auto command = runner.accept(line);
    if (!command) return;
    (void)command->parameter("name");
    if (command->name() == "dev_exec_action" || command->name() == "sta_generate_event") return;
    const std::string answer = runner.run(*command);
    require(answer.rfind("status,", 0) == 0 && answer.find_first_of("\r\n") == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const agent::SigmaLibrary library(FAKE_LIBRARY_PATH);
    static agent::CommandRunner runner(library);
    if (size == 0) return 0;
    const size_t piece = data[0] + size_t{1};
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::vector<agent::Line> lines = linesOf(bytes, bytes.size());
    const std::vector<agent::Line> inPieces = linesOf(bytes, piece);
    require(lines.size() == inPieces.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        require(lines[i].kind == inPieces[i].kind && lines[i].text == inPieces[i].text);
        carryOut(runner, lines[i]);
    }
    return 0;
}
