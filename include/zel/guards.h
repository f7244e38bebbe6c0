// Guards and synchronisation primitives: small polymorphic classes over
// kernel objects. `mutex` (recursive) and `nr_mutex` (not recursive) guard
// exclusive access, `semaphore` counts, `condition` lets threads wait under a
// mutex, `gateway` holds threads until another lets one or all through. Each
// interface has a do-nothing null_ variant, so a class can be built without
// locking.
//
// Rules every class here keeps:
//   - Time-outs are milliseconds; `infinite` (all bits set) never times out.
//     A time-out of 0 makes no attempt at all: try_acquire(0) and try_wait(0)
//     of the kernel-backed classes return false at once, even when the
//     object is free. Use a time-out of 1 to test and take.
//   - Copies are independent: a copy constructor makes a new kernel object
//     (with the same construction parameters), and operator= copies nothing.
//   - Failures raise sync_error (caught as xexception) with the texts
//     "Handle creation failed", "Wait operation failed" and "abandoned mutex".
//     Releases never raise.
#ifndef ZEL_GUARDS_H
#define ZEL_GUARDS_H

#include <cstdint>

#include <zel/config.h>

namespace zel {

// The time-out that never passes.
constexpr unsigned infinite = 0xFFFFFFFFu;

// Exclusive access: take it, give it back, or try to take it within a
// time-out (true when taken).
class ZEL_API guard {
public:
    guard() noexcept = default;
    guard(guard const&) noexcept = default;
    guard& operator=(guard const&) noexcept = default;
    virtual void acquire() = 0;
    virtual void release() = 0;
    virtual bool try_acquire(unsigned timeout) = 0;
    virtual ~guard();
};

class ZEL_API mutex_base : public guard {
public:
    ~mutex_base() override;
};

class ZEL_API semaphore_base : public guard {
public:
    // Gives back `count` units by the semaphore's own rule.
    virtual void release(unsigned count) = 0;
    using guard::release;
    ~semaphore_base() override;
};

// Waiting for a signal: signal() lets one waiter through, broadcast() all.
class ZEL_API condition_base {
public:
    condition_base() noexcept = default;
    condition_base(condition_base const&) noexcept = default;
    condition_base& operator=(condition_base const&) noexcept = default;
    virtual void broadcast() = 0;
    virtual void signal() = 0;
    virtual bool try_wait(unsigned timeout) = 0;
    virtual void wait() = 0;
    virtual ~condition_base();
};

class ZEL_API gateway_base : public condition_base {
public:
    ~gateway_base() override;
};

// A recursive mutex: its owner may acquire it again and must release it as
// often. A release by a thread that does not own it is ignored.
class ZEL_API mutex : public mutex_base {
public:
    mutex();
    mutex(mutex const&);
    mutex& operator=(mutex const&) noexcept { return *this; }
    ~mutex() override;

    // Waits as long as it takes. When the previous owner ended while holding
    // the mutex, the caller simply owns it.
    void acquire() override;
    void release() override;
    // True when taken within `timeout`. When the previous owner ended while
    // holding the mutex, raises "abandoned mutex": the caller then owns the
    // mutex all the same and must release it.
    bool try_acquire(unsigned timeout) override;

private:
    void* handle_;
};

// A mutex that is not recursive: a second acquire by its owner blocks (a
// deadlock without a time-out). Only the owner's release counts; a release
// by any other thread is ignored and leaves it locked.
class ZEL_API nr_mutex : public mutex_base {
public:
    nr_mutex();
    nr_mutex(nr_mutex const&);
    nr_mutex& operator=(nr_mutex const&) noexcept { return *this; }
    ~nr_mutex() override;

    void acquire() override;
    void release() override;
    bool try_acquire(unsigned timeout) override;

private:
    void* handle_;  // the lock records its owner's id: only the owner releases
};

// A counting semaphore that starts full: `count` units, at most `count`.
class ZEL_API semaphore : public semaphore_base {
public:
    explicit semaphore(unsigned count);
    // A new semaphore of `count` units; nothing of `other` is copied.
    semaphore(semaphore const& other, unsigned count = 1);
    semaphore& operator=(semaphore const&) noexcept { return *this; }
    ~semaphore() override;

    void acquire() override;
    // Gives back one unit; giving back more than the maximum is ignored.
    void release() override;
    // Kept behaviour: gives back n-1, then n-2, ... units in successive
    // steps until a step would pass the maximum, so up to n(n-1)/2 units in
    // all. release(1) gives back nothing, release(2) one unit, release(3)
    // three. Use release() in a loop to give back exactly n.
    void release(unsigned count) override;
    bool try_acquire(unsigned timeout) override;

private:
    void* handle_;
};

// A condition bound to a mutex the waiters hold. The waiter count is kept
// under that mutex, so signal() and broadcast() must be called holding it.
class ZEL_API condition : public condition_base {
public:
    explicit condition(mutex_base& bound);
    // A new condition bound to the same mutex.
    condition(condition const& other);
    condition& operator=(condition const&) noexcept { return *this; }
    ~condition() override;

    // Releases the bound mutex, waits for a signal, acquires the mutex again.
    void wait() override;
    // As wait(), within `timeout`. Kept behaviour: when the time runs out it
    // returns false at once, without acquiring the bound mutex again and
    // without leaving the waiter count. The caller then does not hold the
    // mutex, and the count stays one too high, so a later broadcast() lets
    // one more waiter through than there are.
    bool try_wait(unsigned timeout) override;
    // Lets one waiter through, if any waits. Signals given before the
    // waiters wake add up: the extra units let later waiters straight
    // through.
    void signal() override;
    // Lets as many through as the waiter count says.
    void broadcast() override;

private:
    void* handle_;
    std::int32_t waiters_;
    mutex_base& bound_;
};

// A place where threads wait until another lets one (signal) or all
// (broadcast) of the threads waiting at that moment through. It keeps no
// memory: a signal or broadcast while nobody waits has no effect on later
// waiters. broadcast() first yields the processor once, to let threads that
// are about to wait reach the wait.
class ZEL_API gateway : public gateway_base {
public:
    gateway();
    gateway(gateway const&);
    gateway& operator=(gateway const&) noexcept { return *this; }
    ~gateway() override;

    void broadcast() override;
    void signal() override;
    // True unless the time ran out.
    bool try_wait(unsigned timeout) override;
    // Checks nothing: a failed wait returns as if let through.
    void wait() override;

private:
    void* single_;  // auto-reset event
    void* all_;     // manual-reset event
};

// Do-nothing variants: every try_ form returns true.
class ZEL_API null_guard : public guard {
public:
    void acquire() override {}
    void release() override {}
    bool try_acquire(unsigned) override { return true; }
    ~null_guard() override;
};

class ZEL_API null_mutex : public mutex_base {
public:
    void acquire() override {}
    void release() override {}
    bool try_acquire(unsigned) override { return true; }
    ~null_mutex() override;
};

class ZEL_API null_semaphore : public semaphore_base {
public:
    void acquire() override {}
    void release() override {}
    void release(unsigned) override {}
    bool try_acquire(unsigned) override { return true; }
    ~null_semaphore() override;
};

class ZEL_API null_condition : public condition_base {
public:
    void broadcast() override {}
    void signal() override {}
    bool try_wait(unsigned) override { return true; }
    void wait() override {}
    ~null_condition() override;
};

} // namespace zel

#endif
