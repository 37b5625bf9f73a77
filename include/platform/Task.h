// The task interfaces of the threading framework: an object with a life of
// its own that can be started, stopped, killed and waited for.
#pragma once

namespace Tarvik {

template <class T>
class TSHandle;
class ROConfiguration;

class Object {
public:
    virtual ~Object() = default;
};

class Stoppable : public virtual Object {
public:
    virtual bool stop() = 0;
    // Blocks until the task's threads have ended; true when they have.
    virtual bool waitUntilDone() = 0;
};

class Task : public virtual Stoppable {
public:
    enum State {
        STOPPED_STATE = 0,   // never started, or every thread has ended
        STARTING_STATE = 1,  // threads launched, not yet ready
        RUNNING = 2,         // ready to serve
        STOPPING_STATE = 3   // asked to stop; threads still ending
    };
    virtual bool start() = 0;
    virtual bool kill() = 0;
};

class TaskWithState : public virtual Task {
public:
    virtual State getTaskState() const = 0;
};

// A task that is configured before it starts.
class ManageableTask : public virtual TaskWithState {
public:
    virtual bool configure(const TSHandle<ROConfiguration>& in_hConfig) = 0;
};

}  // namespace Tarvik
