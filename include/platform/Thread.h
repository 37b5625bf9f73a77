// Thread creation for the platform's tasks: one place where a thread that
// cannot be had turns into an error the caller handles, and where tests make
// creation fail on purpose.
#pragma once

#include <functional>
#include <string>
#include <thread>

namespace Tarvik {

// Starts in_body on a new thread. False, with out_strError saying why, when
// the system refuses the thread (or the test hook below refuses it); never
// throws.
bool startThread(std::thread& out_thread, std::function<void()> in_body, std::string& out_strError);

// Test hook: every later creation asks in_refuse first and fails when it
// answers true (null removes the hook). The predicate runs on the creating
// thread and must be thread-safe.
void setThreadCreationFaultForTest(std::function<bool()> in_refuse);

}  // namespace Tarvik
