#include "NetNamespace.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include <gtest/gtest.h>

#include "support/Subprocess.h"

namespace corvane_test {

namespace {

const char* const kInnerRunVariable = "CORVANE_NETNS_RUN";
const int kTimeoutMs = 60000;

}  // namespace

bool isNamespaceRun() { return std::getenv(kInnerRunVariable) != nullptr; }

void rerunInOwnNamespace(const std::vector<std::string>& in_ipCommands) {
    if (geteuid() != 0 || findProgram("ip").empty()) GTEST_SKIP() << "needs root and iproute2 for namespaces";
    static std::atomic<int> s_counter{0};
    const std::string name = "corvane-" + std::to_string(getpid()) + "-" + std::to_string(++s_counter);
    const std::string etc = "/etc/netns/" + name;  // its files are mounted over /etc inside
    std::string script = "ip netns add " + name + " && mkdir -p " + etc +
                         " && echo nameserver 127.0.0.1 >" + etc + "/resolv.conf";
    for (const std::string& command : in_ipCommands) script += " && ip -n " + name + " " + command;
    const SubprocessResult built = runSubprocess({"sh", "-c", script}, {}, kTimeoutMs);
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string("--gtest_filter=") + test.test_suite_name() + "." + test.name();
    const SubprocessResult inner =
        built.exitStatus != 0 ? built
                              : runSubprocess({"ip", "netns", "exec", name, selfExecutable(), filter},
                                              {{kInnerRunVariable, "1"}}, kTimeoutMs);
    const std::string links = runSubprocess({"ip", "-n", name, "-o", "addr"}, {}, kTimeoutMs).output;
    runSubprocess({"sh", "-c", "rm -rf " + etc + "; ip netns delete " + name}, {}, kTimeoutMs);
    ASSERT_EQ(built.exitStatus, 0) << script << "\n" << built.output;
    EXPECT_TRUE(inner.exitStatus == 0 && inner.output.find("[  PASSED  ] 1 test.") != std::string::npos &&
                inner.output.find("[  SKIPPED ]") == std::string::npos)
        << inner.output << "\nnamespace:\n" << links;
}

}  // namespace corvane_test
