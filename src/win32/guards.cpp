// The guards and synchronisation primitives over the kernel calls of
// kernel.h: mutex, nr_mutex, semaphore, condition and gateway, and the
// out-of-line parts of their interfaces and null variants.
#include <zel/guards.h>

#include <zel/exception.h>

#include "kernel.h"

namespace zel {

namespace {

// The kernel object or "Handle creation failed".
kernel::handle checked(kernel::handle h) {
    if (!h)
        ZEL_THROW(sync_error("Handle creation failed"));
    return h;
}

kernel::handle new_lock(bool recursive) { return checked(kernel::create_lock(recursive)); }

kernel::handle new_semaphore(unsigned initial, unsigned maximum) {
    return checked(kernel::create_semaphore(static_cast<std::int32_t>(initial),
                                            static_cast<std::int32_t>(maximum)));
}

// A wait on one object; true when it ended with the object taken,
// "Wait operation failed" when the wait itself failed. A zero time-out makes
// no attempt.
bool wait_checked(kernel::handle h, unsigned timeout) {
    if (timeout == 0)
        return false;
    std::uint32_t r = kernel::wait_for_single_object(h, timeout);
    if (r == kernel::wait_failed)
        ZEL_THROW(sync_error("Wait operation failed"));
    return r == kernel::wait_object_0 || r == kernel::wait_abandoned_0;
}

#if defined(__GNUC__)
#  define ZEL_NOINLINE __attribute__((noinline))
#else
#  define ZEL_NOINLINE
#endif

// The wait when another thread holds the lock; apart, so the uncontended
// paths of the acquires set up no frame for the throw.
ZEL_NOINLINE void wait_for_lock(kernel::handle h) {
    if (kernel::acquire_lock(h, kernel::infinite) == kernel::wait_failed)
        ZEL_THROW(sync_error("Wait operation failed"));
}

} // namespace

guard::~guard() = default;
mutex_base::~mutex_base() = default;
semaphore_base::~semaphore_base() = default;
condition_base::~condition_base() = default;
gateway_base::~gateway_base() = default;
null_guard::~null_guard() = default;
null_mutex::~null_mutex() = default;
null_semaphore::~null_semaphore() = default;
null_condition::~null_condition() = default;

// ---------------------------------------------------------------------------
// mutex

mutex::mutex() : handle_(new_lock(true)) {}

mutex::mutex(mutex const&) : mutex_base(), handle_(new_lock(true)) {}

mutex::~mutex() { kernel::close_handle(handle_); }

// An abandoned mutex is simply owned now.
void mutex::acquire() {
    if (!kernel::take_free_recursive_lock(handle_))
        wait_for_lock(handle_);
}

void mutex::release() { kernel::release_recursive_lock(handle_); }

bool mutex::try_acquire(unsigned timeout) {
    if (timeout == 0)
        return false;
    switch (kernel::acquire_lock(handle_, timeout)) {
    case kernel::wait_object_0:
        return true;
    case kernel::wait_abandoned_0:
        ZEL_THROW(sync_error("abandoned mutex"));
    case kernel::wait_failed:
        ZEL_THROW(sync_error("Wait operation failed"));
    default:
        return false;
    }
}

// ---------------------------------------------------------------------------
// nr_mutex: a lock that is not recursive (it behaves as a semaphore of one
// unit). The lock records the owner's id, so that a release by any other
// thread is ignored; keeping it there rather than beside the handle leaves
// one cache line for two threads to pass between them.

nr_mutex::nr_mutex() : handle_(new_lock(false)) {}

nr_mutex::nr_mutex(nr_mutex const&) : mutex_base(), handle_(new_lock(false)) {}

nr_mutex::~nr_mutex() { kernel::close_handle(handle_); }

void nr_mutex::acquire() {
    if (!kernel::take_free_plain_lock(handle_))
        wait_for_lock(handle_);
}

// Ignored (the lock reports false) unless the caller is the owner.
void nr_mutex::release() { kernel::release_plain_lock(handle_); }

bool nr_mutex::try_acquire(unsigned timeout) {
    if (timeout == 0)
        return false;
    std::uint32_t r = kernel::acquire_lock(handle_, timeout);
    if (r == kernel::wait_failed)
        ZEL_THROW(sync_error("Wait operation failed"));
    return r == kernel::wait_object_0;
}

// ---------------------------------------------------------------------------
// semaphore

semaphore::semaphore(unsigned count) : handle_(new_semaphore(count, count)) {}

semaphore::semaphore(semaphore const&, unsigned count)
    : semaphore_base(), handle_(new_semaphore(count, count)) {}

semaphore::~semaphore() { kernel::close_handle(handle_); }

void semaphore::acquire() { wait_checked(handle_, kernel::infinite); }

void semaphore::release() { kernel::release_semaphore(handle_, 1); }

void semaphore::release(unsigned count) {
    // n-1, n-2, ... until a step fails; the step of 0 always fails.
    for (unsigned c = count; c != 0;) {
        --c;
        if (!kernel::release_semaphore(handle_, static_cast<std::int32_t>(c)))
            break;
    }
}

bool semaphore::try_acquire(unsigned timeout) { return wait_checked(handle_, timeout); }

// ---------------------------------------------------------------------------
// condition: a semaphore the waiters sleep on, and their count

condition::condition(mutex_base& bound)
    : handle_(new_semaphore(0, 0x7FFFFFFF)), waiters_(0), bound_(bound) {}

condition::condition(condition const& other)
    : condition_base(), handle_(new_semaphore(0, 0x7FFFFFFF)), waiters_(0),
      bound_(other.bound_) {}

condition::~condition() { kernel::close_handle(handle_); }

void condition::wait() {
    ++waiters_;
    bound_.release();
    wait_checked(handle_, kernel::infinite);
    bound_.acquire();
    --waiters_;
}

bool condition::try_wait(unsigned timeout) {
    ++waiters_;
    bound_.release();
    // Timed out: the mutex stays released and the count stays raised.
    if (!wait_checked(handle_, timeout))
        return false;
    bound_.acquire();
    --waiters_;
    return true;
}

void condition::signal() {
    if (waiters_ > 0)
        kernel::release_semaphore(handle_, 1);
}

void condition::broadcast() {
    if (waiters_ > 0)
        kernel::release_semaphore(handle_, waiters_);
}

// ---------------------------------------------------------------------------
// gateway: two events, pulsed and never set

gateway::gateway() : single_(checked(kernel::create_event(false))), all_(nullptr) {
    all_ = kernel::create_event(true);
    if (!all_) {
        kernel::close_handle(single_);
        ZEL_THROW(sync_error("Handle creation failed"));
    }
}

gateway::gateway(gateway const&) : gateway() {}

gateway::~gateway() {
    kernel::close_handle(single_);
    kernel::close_handle(all_);
}

void gateway::signal() { kernel::pulse_event(single_); }

void gateway::broadcast() {
    kernel::sleep(0);
    kernel::pulse_event(all_);
}

void gateway::wait() {
    kernel::handle both[] = {single_, all_};
    kernel::wait_for_multiple_objects(2, both, kernel::infinite);
}

bool gateway::try_wait(unsigned timeout) {
    if (timeout == 0)
        return false;
    kernel::handle both[] = {single_, all_};
    std::uint32_t r = kernel::wait_for_multiple_objects(2, both, timeout);
    if (r == kernel::wait_failed)
        ZEL_THROW(sync_error("Wait operation failed"));
    return r != kernel::wait_timeout;
}

} // namespace zel
