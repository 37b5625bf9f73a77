// A network namespace of the test's own, with the interfaces a test chooses,
// in which the test binary re-runs itself to check one case: the host's
// interface list, routes and cached address list then are the namespace's,
// in a fresh process.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "support/Subprocess.h"

namespace corvane_test {

// The environment variable that marks an inner run and names its case.
extern const char* const kNamespaceCaseVariable;

class NetNamespace {
public:
    // Why namespaces cannot be used here (not root, no iproute2), or empty.
    static std::string unavailableReason();

    // Creates a namespace named after the process and a counter. ok() tells
    // whether it exists; error() says why not.
    NetNamespace();
    // Deletes the namespace and its /etc overlay.
    ~NetNamespace();
    NetNamespace(const NetNamespace&) = delete;
    NetNamespace& operator=(const NetNamespace&) = delete;

    bool ok() const { return m_bCreated; }
    const std::string& error() const { return m_strError; }
    const std::string& name() const { return m_strName; }

    // Runs "ip -n NAME <words>" (in_strArgs split at spaces); false with the
    // output in error() when it fails.
    bool ip(const std::string& in_strArgs);
    // A file that "ip netns exec" mounts over /etc/<in_strFile> inside the
    // namespace.
    bool setEtcFile(const std::string& in_strFile, const std::string& in_strContent);
    // Re-runs this test binary inside, running only its inner test, with
    // kNamespaceCaseVariable set to in_strCase ("kind/name").
    SubprocessResult runSelf(const std::string& in_strCase) const;
    // The namespace's links and addresses, for failure messages.
    std::string describe() const;

private:
    std::string m_strName;    // namespace name, unique per process and object
    std::string m_strEtcDir;  // /etc/netns/<name> once created, else empty
    bool m_bCreated;          // the namespace exists and must be deleted
    std::string m_strError;   // output of the last failed command
};

// The case an inner run checks ("kind/name"), or empty in an ordinary run.
std::string namespaceCase();

// The test that an inner run runs: it hands the case to the check registered
// for its kind.
extern const char* const kInnerTest;

// Registers the check of one kind of case; it runs inside the inner test, so
// it reports through gtest's EXPECT and ASSERT macros.
struct NamespaceCheckRegistrar {
    NamespaceCheckRegistrar(const char* in_szKind, void (*in_pCheck)(const std::string& in_strName));
};

// True when the inner run ran its one test and it passed.
bool innerRunPassed(const SubprocessResult& in_result);

// Builds links with in_build (false: failed, with the reason in the
// namespace's error(); a text in out_strSkip: cannot be built on this host),
// then checks the case "kind/name" inside. Skips where namespaces cannot be
// used. Lookups of names inside go to the namespace's own loopback address.
void checkInNamespace(const std::string& in_strKind, const std::string& in_strName,
                      const std::function<bool(NetNamespace& io_ns, std::string& out_strSkip)>& in_build);

// The case of a table that has the given name, or null.
template <class Case>
const Case* findCase(const std::vector<Case>& in_cases, const std::string& in_strName) {
    for (const Case& candidate : in_cases) {
        if (in_strName == candidate.name) return &candidate;
    }
    return nullptr;
}

}  // namespace corvane_test
