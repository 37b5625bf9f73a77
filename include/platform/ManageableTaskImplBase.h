// The task framework's implementation bases: a named task with a state and a
// configuration, a thread pool over one activation queue, and one-shot timers.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <ace/Method_Request.h>

#include "platform/GlobalConfig.h"
#include "platform/Task.h"

namespace Tarvik {

// A task's name, state and configuration.
class ManageableTaskImplBase {
public:
    explicit ManageableTaskImplBase(const std::string& in_strName);
    virtual ~ManageableTaskImplBase() = default;
    ManageableTaskImplBase(const ManageableTaskImplBase&) = delete;
    ManageableTaskImplBase& operator=(const ManageableTaskImplBase&) = delete;

    virtual bool start() = 0;
    virtual bool stop() = 0;
    virtual bool kill() { return stop(); }
    virtual bool waitUntilDone() = 0;
    // Keeps the configuration handle; false for a null handle.
    virtual bool configure(const TSHandle<ROConfiguration>& in_hConfig);
    // Queues a request for the task's threads. The task owns the request in
    // every case: a refused one (task not running) is destroyed at once.
    virtual bool enqueue(ACE_Method_Request* in_pRequest, const char* in_szLabel) = 0;

    Task::State getTaskState() const;
    // RUNNING is refused while STOPPING: only the end of the run or a new start follows a stop.
    void setTaskState(Task::State in_state);
    const std::string& getTaskName() const { return m_strName; }
    void setTaskName(const std::string& in_strName) { m_strName = in_strName; }
    TSHandle<ROConfiguration> getConfiguration() const;

private:
    std::string m_strName;                 // for logs; set before start
    mutable std::mutex m_stateMutex;       // guards m_state and m_hConfig
    Task::State m_state;                   // see Task::State
    TSHandle<ROConfiguration> m_hConfig;   // last configuration given to configure
};

// A pool of N threads over one activation queue. Its entry hook runs once per
// run of the service, in the first thread in, and its exit hook in the last
// thread out, both under the service lock; the other threads wait for the
// entry hook before taking work.
class StaticReactorTaskImpl : public ManageableTaskImplBase {
public:
    explicit StaticReactorTaskImpl(const std::string& in_strName);
    ~StaticReactorTaskImpl() override;

    // Sets the number of threads of the next start; false for 0, and false
    // (reported) while threads of a run are alive.
    bool setNumThread(size_t in_uiNumThread);
    size_t getNumThread() const;
    // After a stop that did not wait: waits up to in_bound for the threads of
    // the run to end (exit hook included) and joins them. True at once when
    // the task runs or never ran; false, reported, when the bound passes or
    // when called from one of the task's threads.
    bool waitForEndOfRun(std::chrono::milliseconds in_bound);

    // Launches the threads (the state becomes STARTING_STATE; the entry hook
    // makes it RUNNING). False while an earlier run has not been stopped, and
    // false, reported, when a thread cannot be made: the threads already made
    // are stopped and joined, and a later start may succeed.
    bool start() override;
    // Asks the threads to end after the request each is running; requests still
    // queued are destroyed. Returns at once.
    bool stop() override;
    // Joins the threads; false when called from one of them.
    bool waitUntilDone() override;
    bool enqueue(ACE_Method_Request* in_pRequest, const char* in_szLabel) override;

    // True when the calling thread is one of this task's: a pool thread, or a
    // thread of a derived service (the timer thread).
    bool isPoolThread() const;

protected:
    // Run once per run of the service (first thread in, last thread out).
    virtual void onSvcEntry() { setTaskState(Task::RUNNING); }
    virtual void onSvcExit() {}
    // Extra work of start and stop for derived services (timers).
    virtual bool startServices() { return true; }
    virtual void stopServices() {}
    virtual void joinServices() {}
    // Called first by a derived service's own thread: it then counts as one of
    // the task's threads, which may neither wait for nor restart the task.
    void markServiceThread() const;

private:
    void svc();
    void joinThreads();
    void joinThreadsLocked();  // m_joinMutex held
    // A start that could make only some of its threads: stops and joins them
    // (m_joinMutex held).
    void undoStart(size_t in_uiMissing, const std::string& in_strError);

    mutable std::mutex m_queueMutex;             // guards the members down to m_uiAlive
    std::condition_variable m_queueCond;         // signalled on new work and on stop
    std::deque<ACE_Method_Request*> m_queue;     // requests waiting for a thread
    bool m_bStopping = false;                    // the current run was asked to stop
    size_t m_uiNumThread = 1;                    // threads of the next start
    size_t m_uiActive = 0;                       // threads of the current run not yet past their loop
    size_t m_uiAlive = 0;                        // threads of the current run not yet past their exit hook
    std::condition_variable m_endCond;           // signalled when m_uiAlive reaches 0
    std::vector<std::thread> m_threads;          // threads of the current or last run, until joined
    std::mutex m_joinMutex;                      // serialises joins of m_threads
    std::recursive_mutex m_svcMutex;             // the service lock, held around the hooks
    bool m_bEntered = false;                     // the entry hook ran in this run; under m_svcMutex once threads run
};

}  // namespace Tarvik
