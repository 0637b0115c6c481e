#include "AgentProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

namespace test {

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

TemporaryDirectory::TemporaryDirectory()
    : mPath((std::filesystem::temp_directory_path() / "capi-agent-XXXXXX").string()) {
    if (mkdtemp(mPath.data()) == nullptr) throw std::runtime_error("no temporary directory");
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

std::size_t countOf(const std::string& part, const std::string& text) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

AgentProcess::AgentProcess(const std::vector<std::string>& arguments, const std::string& input,
                           std::vector<std::string> launcher) {
    writeFile(mDirectory.path("in"), input);
    std::vector<std::string>& words = launcher;
    words.emplace_back(CAPI_AGENT_PATH);
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);

    constexpr int kWrite = O_WRONLY | O_CREAT | O_APPEND;
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, mDirectory.path("in").c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, mDirectory.path("out").c_str(), kWrite, 0600);
    posix_spawn_file_actions_addopen(&files, 2, mDirectory.path("err").c_str(), kWrite, 0600);
    const int error =
        posix_spawnp(&mPid, pointers.front(), &files, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) throw std::runtime_error("cannot start the agent");
}

AgentProcess::~AgentProcess() {
    if (mEnded) return;
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
}

unsigned short AgentProcess::port() const {
    const std::string before = "capi-agent: listening on ";
    std::string line;
    waitUntil([&] {
        const std::string text = errors();
        const auto begin = text.find(before);
        const auto end = text.find('\n', begin);
        if (begin == std::string::npos || end == std::string::npos) return false;
        line = text.substr(begin, end - begin);
        return true;
    });
    if (line.empty()) return 0;
    return static_cast<unsigned short>(std::stoi(line.substr(line.rfind(':') + 1)));
}

bool AgentProcess::waitForError(const std::string& part) const {
    return waitUntil([&] { return errors().find(part) != std::string::npos; });
}

void AgentProcess::signal(int number) const { kill(mPid, number); }

int AgentProcess::wait() {
    int status = 0;
    mEnded = mEnded || waitUntil([&] { return waitpid(mPid, &status, WNOHANG) == mPid; });
    if (mEnded && WIFEXITED(status)) mStatus = WEXITSTATUS(status);
    return mStatus;
}

}  // namespace test
