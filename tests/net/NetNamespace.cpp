#include "NetNamespace.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "support/Subprocess.h"

namespace corvane_test {

namespace {

const char* const kInnerRunVariable = "CORVANE_NETNS_RUN";
const int kCommandTimeoutMs = 20000;

// A namespace named after the process and a counter, with its /etc overlay;
// both are removed when it goes.
struct Namespace {
    Namespace() {
        static std::atomic<int> s_counter{0};
        name = "corvane-" + std::to_string(getpid()) + "-" + std::to_string(++s_counter);
        etc = "/etc/netns/" + name;
        created = run({"ip", "netns", "add", name});
    }
    ~Namespace() {
        run({"rm", "-rf", etc});
        if (created) run({"ip", "netns", "delete", name});
    }
    // False, with the command and its output in error, when the command fails.
    bool run(const std::vector<std::string>& in_argv) {
        const SubprocessResult result = runSubprocess(in_argv, {}, kCommandTimeoutMs);
        if (result.exitStatus == 0) return true;
        error.clear();
        for (const std::string& word : in_argv) error += word + " ";
        error += ": " + result.output;
        return false;
    }
    std::string name;   // unique per process and object
    std::string etc;    // its files are mounted over /etc inside
    bool created;       // the namespace exists and must be deleted
    std::string error;  // the last failed command and its output
};

}  // namespace

bool isNamespaceRun() { return std::getenv(kInnerRunVariable) != nullptr; }

void rerunInOwnNamespace(const std::vector<std::string>& in_ipCommands) {
    if (geteuid() != 0 || findProgram("ip").empty()) GTEST_SKIP() << "needs root and iproute2 (ip) for namespaces";
    Namespace ns;
    if (!ns.created) GTEST_SKIP() << "cannot make a network namespace: " << ns.error;
    for (const std::string& command : in_ipCommands) {
        std::vector<std::string> argv = {"ip", "-n", ns.name};
        std::istringstream words(command);
        for (std::string word; words >> word;) argv.push_back(word);
        ASSERT_TRUE(ns.run(argv)) << ns.error;
    }
    mkdir("/etc/netns", 0755);  // left in place: other test processes may be using it
    ASSERT_TRUE(mkdir(ns.etc.c_str(), 0755) == 0 || errno == EEXIST) << ns.etc;
    std::ofstream resolverConfig(ns.etc + "/resolv.conf");
    ASSERT_TRUE(resolverConfig << "nameserver 127.0.0.1\n" << std::flush) << ns.etc;
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string("--gtest_filter=") + test.test_suite_name() + "." + test.name();
    const SubprocessResult inner = runSubprocess({"ip", "netns", "exec", ns.name, selfExecutable(), filter},
                                                 {{kInnerRunVariable, "1"}}, 3 * kCommandTimeoutMs);
    EXPECT_TRUE(inner.exitStatus == 0 && inner.output.find("[  PASSED  ] 1 test.") != std::string::npos &&
                inner.output.find("[  SKIPPED ]") == std::string::npos)
        << inner.output << "\nnamespace:\n"
        << runSubprocess({"ip", "-n", ns.name, "-o", "addr"}, {}, kCommandTimeoutMs).output;
}

}  // namespace corvane_test
