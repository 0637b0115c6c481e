#include "host/read_lines.h"

#include <unistd.h>

#include <cerrno>

namespace hostplatform {

void readLines(int input, const std::function<void(const std::string&)>& onLine) {
    std::string line;
    char bytes[512];
    ssize_t size = 0;
    while ((size = TEMP_FAILURE_RETRY(read(input, bytes, sizeof bytes))) > 0) {
        for (ssize_t i = 0; i < size; ++i) {
            if (bytes[i] != '\n') {
                line += bytes[i];
            } else {
                onLine(line);
                line.clear();
            }
        }
    }
    if (!line.empty()) onLine(line);
}

}  // namespace hostplatform
