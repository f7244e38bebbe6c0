// Threads. A `thread` wraps one system thread whose code is the object's
// virtual run(); `callback_thread` runs an initiator (callback.h) instead.
//
//   struct worker : zel::thread {
//       void run() override { while (status() != exit_requested) step(); }
//   };
//   worker w;
//   w.start();
//   w.exit();   // a request: run() looks at status() and returns
//   w.wait();
//
// The status moves from created to running (start), suspended (suspend),
// exit_requested (exit) and done (the thread itself when run() returns, or
// terminate, or wait). Failures raise sync_error (caught as xexception) with
// the texts listed at each operation.
//
// A thread object must be done, terminated or never started before it is
// destroyed: the destructor of a started thread that is not done raises
// "thread not done", and the system thread may then still be running code of
// the destroyed object. Never let a running thread object go out of scope
// during stack unwinding: a destructor that raises then ends the program.
#ifndef ZEL_THREAD_H
#define ZEL_THREAD_H

#include <atomic>
#include <cstdint>

#include <zel/callback.h>
#include <zel/config.h>

namespace zel {

class gateway;

class ZEL_API thread_base {
public:
    enum state : std::int16_t {
        created = 0,         // never started, or done and started again
        running = 1,
        suspended = 2,
        exit_requested = 3,
        done = 4,
    };

    thread_base() noexcept = default;
    thread_base(thread_base const&) noexcept = default;
    thread_base& operator=(thread_base const&) noexcept = default;

    virtual int priority() const = 0;
    virtual state status() const = 0;
    virtual void exit() = 0;
    virtual void prioritize(int priority) = 0;
    virtual void resume() = 0;
    virtual void start() = 0;
    virtual void start_suspended(gateway& gate) = 0;
    virtual void suspend() = 0;
    virtual void terminate() = 0;
    virtual void wait() = 0;

protected:
    virtual void run() = 0;
    virtual void yield() = 0;

public:
    virtual ~thread_base() noexcept(false);

protected:
    virtual void set_status(state s) = 0;
};

class ZEL_API thread : public thread_base {
public:
    // The stack size (0: the system's default) and the security argument
    // (ignored on POSIX) are passed to the system at each start.
    explicit thread(unsigned stack_size = 0, void* security = nullptr) noexcept;
    // A fresh, unstarted thread with the given stack size and security;
    // nothing of `other` is copied.
    thread(thread const& other, unsigned stack_size = 0, void* security = nullptr) noexcept;
    thread& operator=(thread const&) noexcept { return *this; }
    // Raises "thread not done" unless the status is created or done.
    ~thread() noexcept(false) override;

    // The stored priority (25 at construction). prioritize() only stores it:
    // the system's scheduling priority is never changed.
    int priority() const override;
    void prioritize(int priority) override;
    state status() const override;

    // Starts run() on a new system thread. A done thread starts again. A
    // running, suspended or exit-requested thread raises "bad thread start";
    // the system's refusals raise "invalid thread argument" (EINVAL) and "no
    // more threads" (EAGAIN); any other failure raises nothing and leaves
    // the status at created.
    void start() override;
    // Starts the thread so that it calls run() only once `gate` is signalled
    // or broadcast; returns when the thread has reached the gate (it then
    // reports running). Calls are serialised process-wide.
    void start_suspended(gateway& gate) override;
    // Stops a running thread wherever it is, until resume(). A suspended
    // thread stays suspended (suspensions do not nest). Raises "cannot
    // suspend() - thread not running" unless running or suspended, and
    // "suspend() failed". A thread suspended while it holds a lock keeps it:
    // every other taker waits until it is resumed.
    void suspend() override;
    // Lets a suspended thread continue; does nothing to a running one.
    // Raises "cannot resume() - thread not running" unless running or
    // suspended, and "resume() failed".
    void resume() override;
    // A request only: the status becomes exit_requested, and run() is
    // expected to look at status() and return.
    void exit() override;
    // Ends a started thread at once, running none of its remaining code (not
    // even destructors of its local objects), and marks it done; does nothing
    // otherwise. Raises "terminate() failed". Harmful when the thread holds
    // anything: locks it holds stay held (a mutex is seen as abandoned), and
    // memory it owns is lost. Use exit() where the thread can cooperate.
    void terminate() override;
    // Waits until a started thread has ended and marks it done; does nothing
    // otherwise. Waiting for a suspended thread waits until someone else
    // resumes it. Raises "wait() failed".
    void wait() override;

protected:
    void run() override = 0;
    // Gives up the processor once.
    void yield() override;
    void set_status(state s) override;

private:
    friend struct thread_entry;

    void* handle_;
    std::uint32_t id_;
    // Written by the controlling thread and by the thread itself.
    std::atomic<std::int16_t> status_;
    std::int16_t priority_;
    unsigned stack_size_;
    void* security_;
    gateway* gate_;
};

// A thread that calls an initiator, which it does not own: the initiator
// must outlive the run. With no initiator, or an empty one, it ends at once.
class ZEL_API callback_thread : public thread {
public:
    explicit callback_thread(unsigned stack_size = 0, void* security = nullptr) noexcept;
    explicit callback_thread(initiator const& call, unsigned stack_size = 0,
                             void* security = nullptr) noexcept;
    // A fresh thread without initiator.
    callback_thread(callback_thread const& other, unsigned stack_size = 0,
                    void* security = nullptr) noexcept;
    callback_thread& operator=(callback_thread const&) noexcept { return *this; }
    callback_thread& operator=(thread const&) noexcept { return *this; }
    ~callback_thread() noexcept(false) override;

    void attach(initiator const& call) noexcept { call_ = &call; }

protected:
    void run() override;

private:
    initiator const* call_;
};

} // namespace zel

#endif
