// Thread creation that fails on purpose, for the edges of a start: runs a
// function on a thread of its own on which (and on the threads it makes) the
// first in_iAllowed thread creations succeed and every later one fails with
// EAGAIN, as when the system has no thread left. Built on a seccomp filter
// that traps clone and clone3 and a supervisor that answers each trap.
#pragma once

#include <functional>
#include <string>

namespace corvane_test {

// False, saying why, when the kernel refuses the filter; the function then
// does not run.
bool runWithThreadLimit(int in_iAllowed, const std::function<void()>& in_function, std::string* out_error = nullptr);

}  // namespace corvane_test
