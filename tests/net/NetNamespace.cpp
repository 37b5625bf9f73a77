#include "NetNamespace.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#include <map>

#include "platform/StringVector.h"

namespace corvane_test {

const char* const kNamespaceCaseVariable = "CORVANE_NETNS_CASE";
const char* const kInnerTest = "NetNamespaceInner.CheckCase";

namespace {

const char* const kEtcNetns = "/etc/netns";
const int kCommandTimeoutMs = 20000;

std::atomic<int> s_counter{0};

using CheckFunction = void (*)(const std::string&);

std::map<std::string, CheckFunction>& checks() {
    static std::map<std::string, CheckFunction> s_checks;
    return s_checks;
}

}  // namespace

std::string NetNamespace::unavailableReason() {
    if (geteuid() != 0) return "needs root to create network namespaces";
    if (findProgram("ip").empty()) return "needs iproute2 (ip) to create network namespaces";
    return "";
}

NetNamespace::NetNamespace()
    : m_strName("corvane-" + std::to_string(getpid()) + "-" + std::to_string(++s_counter)),
      m_bCreated(false) {
    const SubprocessResult result = runSubprocess({"ip", "netns", "add", m_strName}, {}, kCommandTimeoutMs);
    m_bCreated = result.exitStatus == 0;
    if (!m_bCreated) m_strError = "ip netns add " + m_strName + ": " + result.output;
}

NetNamespace::~NetNamespace() {
    if (!m_strEtcDir.empty()) runSubprocess({"rm", "-rf", m_strEtcDir}, {}, kCommandTimeoutMs);
    if (m_bCreated) runSubprocess({"ip", "netns", "delete", m_strName}, {}, kCommandTimeoutMs);
}

bool NetNamespace::ip(const std::string& in_strArgs) {
    std::vector<std::string> argv = {"ip", "-n", m_strName};
    Tarvik::StringVector words;
    Tarvik::strTokenize(in_strArgs, words, ' ');
    argv.insert(argv.end(), words.begin(), words.end());
    const SubprocessResult result = runSubprocess(argv, {}, kCommandTimeoutMs);
    if (result.exitStatus == 0) return true;
    m_strError = "ip -n " + m_strName + " " + in_strArgs + ": " + result.output;
    return false;
}

bool NetNamespace::setEtcFile(const std::string& in_strFile, const std::string& in_strContent) {
    const std::string dir = std::string(kEtcNetns) + "/" + m_strName;
    mkdir(kEtcNetns, 0755);  // left in place: other test processes may be using it
    if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
        m_strError = "cannot create " + dir;
        return false;
    }
    m_strEtcDir = dir;
    std::ofstream file(dir + "/" + in_strFile);
    file << in_strContent;
    file.close();
    if (!file) {
        m_strError = "cannot write " + dir + "/" + in_strFile;
        return false;
    }
    return true;
}

SubprocessResult NetNamespace::runSelf(const std::string& in_strCase) const {
    return runSubprocess({"ip", "netns", "exec", m_strName, selfExecutable(),
                          std::string("--gtest_filter=") + kInnerTest},
                         {{kNamespaceCaseVariable, in_strCase}}, kCommandTimeoutMs * 3);
}

std::string NetNamespace::describe() const {
    return runSubprocess({"ip", "-n", m_strName, "-o", "addr"}, {}, kCommandTimeoutMs).output;
}

std::string namespaceCase() {
    const char* pValue = std::getenv(kNamespaceCaseVariable);
    return pValue != nullptr ? pValue : "";
}

bool innerRunPassed(const SubprocessResult& in_result) {
    return in_result.exitStatus == 0 &&
           in_result.output.find("[  PASSED  ] 1 test.") != std::string::npos &&
           in_result.output.find("[  SKIPPED ]") == std::string::npos;
}

void checkInNamespace(const std::string& in_strKind, const std::string& in_strName,
                      const std::function<bool(NetNamespace& io_ns, std::string& out_strSkip)>& in_build) {
    const std::string reason = NetNamespace::unavailableReason();
    if (!reason.empty()) GTEST_SKIP() << reason;
    NetNamespace ns;
    if (!ns.ok()) GTEST_SKIP() << "cannot create a network namespace: " << ns.error();
    std::string skip;
    const bool built = in_build(ns, skip);
    if (!skip.empty()) GTEST_SKIP() << skip;
    ASSERT_TRUE(built) << ns.error();
    ASSERT_TRUE(ns.setEtcFile("resolv.conf", "nameserver 127.0.0.1\n")) << ns.error();
    const SubprocessResult inner = ns.runSelf(in_strKind + "/" + in_strName);
    EXPECT_TRUE(innerRunPassed(inner)) << inner.output << "\nnamespace:\n" << ns.describe();
}

NamespaceCheckRegistrar::NamespaceCheckRegistrar(const char* in_szKind,
                                                 void (*in_pCheck)(const std::string& in_strName)) {
    checks()[in_szKind] = in_pCheck;
}

TEST(NetNamespaceInner, CheckCase) {
    const std::string which = namespaceCase();
    if (which.empty()) GTEST_SKIP() << "checks one case inside a test namespace; the namespace tests run it";
    const size_t slash = which.find('/');
    ASSERT_NE(slash, std::string::npos) << which;
    const auto found = checks().find(which.substr(0, slash));
    ASSERT_NE(found, checks().end()) << "no check for " << which;
    found->second(which.substr(slash + 1));
}

}  // namespace corvane_test
