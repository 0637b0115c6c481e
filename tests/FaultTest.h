// Tables of what the library says and answers when something under it fails, and that it is over
// with the fault.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "DiscoveryTest.h"
#include "Faults.h"
#include "SystemFaults.h"

class FaultTest : public DiscoveryTest {
 protected:
    struct Case {
        const char* name;
        std::function<std::shared_ptr<void>()> fails;  // until what it gives has gone
        std::function<std::string()> command;          // says how it came out
        std::string failed;
        Lines report;       // log lines, "PRIORITY/TAG: TEXT", in this order, with others between
        std::string works;  // once nothing fails any more
    };

    // Gives each command while it fails and once more afterwards, and cleans up after each time.
    void check(const std::vector<Case>& cases, const std::function<void()>& cleanUp) {
        for (const Case& given : cases) {
            SCOPED_TRACE(given.name);
            mark();
            {
                const std::shared_ptr<void> fault = given.fails();
                EXPECT_EQ(given.command(), given.failed);
                uint64_t from = marked();
                for (const std::string& line : given.report) {
                    const auto entry = journal().waitFor("log", line, from);
                    EXPECT_TRUE(entry) << line;
                    if (entry) from = entry->sequence + 1;
                }
            }
            cleanUp();
            mark();
            EXPECT_EQ(given.command(), given.works);
            cleanUp();
        }
    }

    static auto device(hostplatform::Fault fault, int status = -1) {
        return [=]() -> std::shared_ptr<void> {
            return std::make_shared<hostplatform::ScopedFault>(fault, status);
        };
    }
    // The library must come by: a command that does not make the call shows nothing.
    static auto system(SystemCall call, int error, int count = 1) {
        return [=]() -> std::shared_ptr<void> {
            const int before = failedCalls(call);
            const auto end = [=](const ScopedSystemFault* fault) {
                delete fault;
                EXPECT_GT(failedCalls(call), before) << "nothing has failed";
            };
            return {new ScopedSystemFault(call, error, count), end};
        };
    }
    // The next call on this thread that starts a DNS-SD request.
    static std::shared_ptr<void> dnsSd() {
        FakeDnsSd::failNextCall(kDNSServiceErr_Unknown);
        return nullptr;
    }
};
