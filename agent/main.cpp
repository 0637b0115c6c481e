#include <cstdio>
#include <optional>

#include "Agent.h"
#include "Log.h"
#include "Options.h"
#include "StartError.h"

int main(int argc, char** argv) {
    // The library prints its progress with the same stdio; in order and at once, also into a pipe.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    agent::Options options;
    if (const auto status = options.parse(argc, argv)) return *status;

    try {
        agent::Agent agent(options);
        return agent.run() ? 0 : 1;
    } catch (const agent::StartError& error) {
        agent::logLine(error.what());
        return 2;
    }
}
