// A network namespace of the test's own in which the test binary re-runs the
// current test in a fresh process: there the host's interfaces, routes and
// cached address list are the namespace's.
#pragma once

#include <string>
#include <vector>

namespace corvane_test {

// True in the run inside the namespace, where the test makes its checks.
bool isNamespaceRun();
// Builds the namespace with "ip -n NAME <command>" per command, re-runs the current test inside and expects it
// to pass; skips without root. Names looked up inside go to its own (unserved) loopback address.
void rerunInOwnNamespace(const std::vector<std::string>& in_ipCommands);

}  // namespace corvane_test
