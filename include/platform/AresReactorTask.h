// The process-wide DNS task: one thread that owns the use of a c-ares channel
// and runs its event loop. Any thread may search; the request is handed to the
// loop thread, because a c-ares channel must be used by one thread only.
#pragma once

#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <ares.h>

#include "platform/Task.h"

namespace Tarvik {

// Every search gets exactly one callback (c-ares form: argument, status,
// timeouts, answer, answer length):
// - on the loop thread: the answer, a c-ares error or time-out, and
//   ARES_ECANCELLED for a query in flight or still queued when the task stops;
// - on the caller's thread, before search returns: ARES_ECANCELLED (null
//   answer, length 0) when the task is not running, and ARES_EBADNAME when the
//   name is null.
// A callback may call search (on the loop thread the query is sent at once)
// and stop; start and waitUntilDone are refused there. A callback that
// searches again whenever it is cancelled keeps a stopping task busy for ever.
//
// The loop polls the channel's sockets as ares_getsock reports them, at most
// 16 (ample for a UDP socket per server and the odd TCP connection).
//
// States: STOPPED_STATE until start; RUNNING from start until stop;
// STOPPING_STATE from stop until the loop thread has cancelled what it held;
// then STOPPED_STATE again, and the task may be started again (after
// waitUntilDone, or start joins the ended thread itself).
class AresReactorTask : public TaskWithState {
public:
    // The process-wide task, created stopped on first use. At exit it is
    // stopped, waited for and destroyed with the process's other singletons.
    static AresReactorTask& getInstance();

    // A task of the caller's own, stopped, for a channel that is not the
    // process-wide one. The destructor stops the task and waits for its
    // thread: not on that thread, nor from one of its callbacks.
    AresReactorTask();
    ~AresReactorTask() override;

    // Hands over the channel to drive (made by the caller with
    // ares_init_options; the caller destroys it with ares_destroy after
    // stop and waitUntilDone). Null clears it. False, reported, while the task
    // is not stopped.
    bool setChannel(ares_channel in_channel);
    // For the owner of a channel about to destroy it: when the task exists and
    // was handed this channel, stops it, waits for it and forgets the channel.
    // Creates no task.
    static void releaseChannel(ares_channel in_channel);

    // Launches the loop thread; false without a channel, when not stopped
    // (also on the loop thread), or when the thread cannot be made.
    bool start() override;
    // Asks the loop thread to end: queries in flight and queued requests get
    // ARES_ECANCELLED on the loop thread. True (also when already stopped).
    bool stop() override;
    // As stop: nothing is dropped without its callback.
    bool kill() override;
    // Joins the loop thread; true once it has ended (at once when it never
    // ran). Blocks while the task runs and nobody stops it. False, reported,
    // on the loop thread itself.
    bool waitUntilDone() override;
    State getTaskState() const override;

    // Searches the name (ares_search) with the DNS class and type; the
    // callback gets in_pArg. See above for where and how the callback comes.
    void search(const char* in_szName, int in_iDnsClass, int in_iType, ares_callback in_callback,
                void* in_pArg);

    AresReactorTask(const AresReactorTask&) = delete;
    AresReactorTask& operator=(const AresReactorTask&) = delete;

private:
    struct Request {
        std::string name;        // the name to search
        int dnsClass;            // DNS class (1 = IN)
        int type;                // record type (1 = A)
        ares_callback callback;  // called exactly once
        void* arg;               // the callback's argument
    };

    static void destroyInstance(void* in_pTask);

    void run(ares_channel in_channel);
    // Moves the queue out and sends every request on the channel; true when
    // a stop was asked for. Loop thread only.
    bool takeRequests();
    // Cancels the queries in flight and every queued request, then marks the
    // task stopped. Loop thread only; the last thing the loop thread does.
    void finish();
    void wake();
    bool isLoopThread() const;

    int m_wakeFd;  // eventfd that wakes the loop; made in the constructor, -1 if that failed

    mutable std::mutex m_mutex;       // guards the members below it up to m_joinMutex
    ares_channel m_channel;           // the channel to drive; changed only while stopped
    State m_state;                    // the task's state (see above)
    bool m_bStopRequested;            // stop was asked for and the loop has not ended yet
    std::vector<Request> m_requests;  // searches waiting for the loop thread, oldest first

    std::mutex m_joinMutex;  // serialises joining and replacing m_thread; taken before m_mutex
    std::thread m_thread;    // the loop thread; joinable until joined (under m_joinMutex)

    // The channel the running loop drives (m_channel as it was at start). Loop thread only.
    ares_channel m_loopChannel;
    // Swapped with m_requests so the loop drains without allocating. Loop thread only.
    std::vector<Request> m_taken;
    // True while the loop thread may send queries (from start to its stop sequence).
    // Loop thread only.
    bool m_bLoopAccepting;
};

}  // namespace Tarvik
