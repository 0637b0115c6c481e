// The bytes that a controller sends: the same lines however they are cut into pieces, and a command
// whose tokens have no blanks around them.
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "agent/CapiCommand.h"
#include "agent/LineSplitter.h"
#include "agent/Text.h"

namespace {

std::vector<agent::Line> linesOf(std::string_view bytes, size_t piece) {
    agent::LineSplitter splitter;
    std::vector<agent::Line> lines;
    while (!bytes.empty()) {
        for (const agent::Line& line : splitter.feed(bytes.substr(0, piece))) lines.push_back(line);
        bytes.remove_prefix(std::min(piece, bytes.size()));
    }
    if (auto last = splitter.finish()) lines.push_back(std::move(*last));
    return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::vector<agent::Line> lines = linesOf(bytes, size);
    const std::vector<agent::Line> inPieces = linesOf(bytes, data[0] + size_t{1});
    if (lines.size() != inPieces.size()) abort();
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].text != inPieces[i].text || lines[i].fault != inPieces[i].fault) abort();
        const agent::CapiCommand command(lines[i].text);
        const std::string parameters = command.parameters();
        if (parameters != agent::trimmed(parameters)) abort();
        if (agent::CapiCommand("x," + parameters).parameters() != parameters) abort();
    }
    return 0;
}
