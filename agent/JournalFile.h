// The simulated device's journal as a file.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace agent {

// Writes every further entry of the journal to a file as it is made, a line each. At most one such
// object at a time.
class JournalFile {
 public:
    // Replaces the file. Throws StartError when it cannot be written.
    explicit JournalFile(const std::string& path);
    ~JournalFile();
    JournalFile(const JournalFile&) = delete;
    JournalFile& operator=(const JournalFile&) = delete;

 private:
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> mFile;
};

}  // namespace agent
