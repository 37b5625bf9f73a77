// A task shared by several clients: the first start reaches the start hook,
// and only the stop that balances the last start reaches the stop hook.
#pragma once

#include <mutex>

namespace Tarvik {

class TaskObserver;

class SharedTaskImpl {
public:
    // in_bStopOnLastUser: true, a stop reaches the hook only when it balances
    // the last successful start; false, every stop reaches it.
    explicit SharedTaskImpl(bool in_bStopOnLastUser);
    virtual ~SharedTaskImpl() = default;

    bool start();
    bool stop();
    bool kill();
    // Waits only when the task was really stopped; false while other users hold it.
    bool waitUntilDone();
    int getUserCount() const;

protected:
    // The hooks, in slot order.
    virtual bool sharedStart() = 0;
    virtual bool sharedStop() = 0;
    virtual bool sharedKill() = 0;
    virtual bool sharedWaitUntilDone() = 0;
    virtual bool sharedAddObserver(TaskObserver*) { return false; }
    virtual bool sharedRemoveObserver(TaskObserver*) { return false; }

private:
    const bool m_bStopOnLastUser;   // see the constructor
    mutable std::mutex m_mutex;     // guards m_iUsers and serialises the hooks' decisions
    int m_iUsers = 0;               // successful starts not yet balanced by a stop
};

}  // namespace Tarvik
