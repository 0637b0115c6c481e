#include "JournalFile.h"

#include <cerrno>
#include <system_error>

#include "Journal.h"
#include "StartError.h"

namespace agent {

JournalFile::JournalFile(const std::string& path)
    : mFile(std::fopen(path.c_str(), "we"), &std::fclose) {
    if (mFile == nullptr) {
        throw StartError("cannot write the journal " + path + ": " +
                         std::generic_category().message(errno));
    }
    hostplatform::Journal::instance().setObserver(
        [file = mFile.get()](const hostplatform::JournalEntry& entry) {
            std::fprintf(file, "%s\n", hostplatform::toString(entry).c_str());
            std::fflush(file);
        });
}

JournalFile::~JournalFile() { hostplatform::Journal::instance().setObserver({}); }

}  // namespace agent
