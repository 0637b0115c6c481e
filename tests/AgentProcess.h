// The agent as a program of its own, for tests.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace test {

// Asks `condition` again and again until it holds; false when it does not within `timeout`.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(30));

// A directory that is removed, with what is in it, at the end of the scope.
class TemporaryDirectory {
 public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::string path(const std::string& name) const { return mPath + "/" + name; }

 private:
    std::string mPath;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);

// Number of times that `part` occurs in `text`.
std::size_t countOf(const std::string& part, const std::string& text);

// A running agent; it is killed at the end of the scope if it has not ended by then.
class AgentProcess {
 public:
    // `input` is its whole standard input; `launcher` the words before the command, of a program
    // that becomes the agent.
    explicit AgentProcess(const std::vector<std::string>& arguments, const std::string& input = "",
                          std::vector<std::string> launcher = {});
    ~AgentProcess();
    AgentProcess(const AgentProcess&) = delete;
    AgentProcess& operator=(const AgentProcess&) = delete;

    pid_t pid() const { return mPid; }

    // The port it listens on, once it does; 0 when it does not come to that.
    unsigned short port() const;

    // What it has written so far.
    std::string output() const { return readFile(mDirectory.path("out")); }
    std::string errors() const { return readFile(mDirectory.path("err")); }
    bool waitForError(const std::string& part) const;

    void signal(int number) const;

    // Waits for its end. Returns the exit status; -1 when a signal ended it or it does not end.
    int wait();

 private:
    TemporaryDirectory mDirectory;
    pid_t mPid = -1;
    bool mEnded = false;
    int mStatus = -1;
};

}  // namespace test
