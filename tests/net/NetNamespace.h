// A network namespace of the test's own, with the links the test chooses, in
// which the test binary re-runs the current test in a fresh process: there the
// host's interfaces, routes and cached address list are the namespace's.
#pragma once

#include <string>
#include <vector>

namespace corvane_test {

// True in the run inside the namespace, where the test makes its checks.
bool isNamespaceRun();

// Builds a namespace with "ip -n NAME <command>" for each command, re-runs the
// current test inside and expects it to pass; skips where that needs root.
// Names looked up inside go to the namespace's own (unserved) loopback address.
void rerunInOwnNamespace(const std::vector<std::string>& in_ipCommands);

}  // namespace corvane_test
