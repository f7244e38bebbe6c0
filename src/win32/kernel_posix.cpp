// The POSIX emulation of the kernel calls in kernel.h. Each handle points to
// an object that carries its own locks: no path here takes a lock shared by
// two unrelated objects.
//
//   mutex      the library's own lock: a word holding the owner's id, taken
//              by one compare-exchange, with a futex wait under contention.
//              Every recursive lock is on one registry; a thread that ends or
//              is terminated while its count of held locks is not 0 walks it
//              and gives back the locks whose word names it, so that their
//              next taker learns they were abandoned;
//   semaphore  an atomic count with a lock-free fast path, and a pthread
//              mutex and condition for the threads that must sleep;
//   event      a list of waiting threads; a pulse hands itself to the threads
//              on the list (or the first one still waiting) and keeps no state,
//              so a later waiter never sees it. A thread waiting on several
//              events sits on each list, and the first pulse to claim it wins;
//   thread     a joinable pthread; suspension and termination are a handshake
//              over one real-time signal (control_signal below): the thread's
//              handler acknowledges, then sleeps in sigsuspend until resumed,
//              or jumps back to the thread's start routine to end it there.
#include "kernel.h"

#include <cerrno>
#include <climits>
#include <csetjmp>
#include <cstring>
#include <ctime>
#include <new>

#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zel {
namespace kernel {

// Shared with kernel.h's inline lock paths.
__thread std::uint32_t posix::current_id __attribute__((tls_model("initial-exec"))) = 0;
__thread unsigned posix::recursive_held __attribute__((tls_model("initial-exec"))) = 0;

namespace {

// ---------------------------------------------------------------------------
// Time

constexpr long nanos_per_second = 1000000000L;

timespec now(clockid_t clock) noexcept {
    timespec t;
    clock_gettime(clock, &t);
    return t;
}

timespec add_ms(timespec t, std::uint32_t ms) noexcept {
    t.tv_sec += static_cast<time_t>(ms / 1000);
    t.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
    if (t.tv_nsec >= nanos_per_second) {
        t.tv_nsec -= nanos_per_second;
        ++t.tv_sec;
    }
    return t;
}

bool reached(timespec const& deadline, timespec const& t) noexcept {
    return t.tv_sec > deadline.tv_sec ||
           (t.tv_sec == deadline.tv_sec && t.tv_nsec >= deadline.tv_nsec);
}

// Whole nanoseconds from `from` to `to`, 0 when `to` is not later.
long long nanos_until(timespec const& to, timespec const& from) noexcept {
    long long d = (static_cast<long long>(to.tv_sec) - from.tv_sec) * nanos_per_second +
                  (to.tv_nsec - from.tv_nsec);
    return d > 0 ? d : 0;
}

// A monotonic deadline `ms` from now; infinite waits never compute one.
struct deadline {
    explicit deadline(std::uint32_t ms) noexcept : at(add_ms(now(CLOCK_MONOTONIC), ms)) {}
    bool passed() const noexcept { return reached(at, now(CLOCK_MONOTONIC)); }
    timespec at;
};

// A condition variable that measures its time-outs on the monotonic clock.
void init_monotonic_cond(pthread_cond_t* cond) noexcept {
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    pthread_cond_init(cond, &attr);
    pthread_condattr_destroy(&attr);
}

// Waits on `cond` until woken, or until `limit` (null: no limit) passes.
void cond_wait(pthread_cond_t* cond, pthread_mutex_t* lock, deadline const* limit) noexcept {
    if (limit)
        pthread_cond_clockwait(cond, lock, CLOCK_MONOTONIC, &limit->at);
    else
        pthread_cond_wait(cond, lock);
}

// ---------------------------------------------------------------------------
// Objects

// The object header, the lock word and its sleepers bit are in kernel.h,
// for the guards' inline paths.
using posix::kind;
using posix::object;
using posix::lock_sleepers;
using posix::current_id;

struct mutex_object : posix::lock_head {
    explicit mutex_object(bool r) noexcept : lock_head(r) {}
    // A recursive lock's place on the registry, under its lock.
    mutex_object* prev = nullptr;
    mutex_object* next = nullptr;
};

struct semaphore_object : object {
    semaphore_object(std::int32_t initial, std::int32_t max) noexcept
        : object(kind::semaphore), count(initial), maximum(max) {
        pthread_mutex_init(&lock, nullptr);
        init_monotonic_cond(&available);
    }
    ~semaphore_object() {
        pthread_cond_destroy(&available);
        pthread_mutex_destroy(&lock);
    }
    // Takes one unit if there is one, without blocking.
    bool try_take() noexcept {
        std::int32_t c = count.load(std::memory_order_relaxed);
        while (c > 0)
            if (count.compare_exchange_weak(c, c - 1, std::memory_order_acquire,
                                            std::memory_order_relaxed))
                return true;
        return false;
    }

    std::atomic<std::int32_t> count;
    std::int32_t const maximum;
    // Threads between registering under `lock` and leaving the slow path;
    // a release wakes sleepers only when this is not 0.
    std::atomic<std::int32_t> sleepers{0};
    pthread_mutex_t lock;
    pthread_cond_t available;
};

// One thread's wait on one or more events. `result` is -1 while it waits;
// the first pulse to claim it stores the event's index there, or the waiter
// itself stores `timed_out` when its time runs out first.
struct event_wait {
    static constexpr int waiting = -1;
    static constexpr int timed_out = -2;

    event_wait() noexcept {
        pthread_mutex_init(&lock, nullptr);
        init_monotonic_cond(&woken);
    }
    ~event_wait() {
        pthread_cond_destroy(&woken);
        pthread_mutex_destroy(&lock);
    }
    bool claim(int index) noexcept {
        int expected = waiting;
        return result.compare_exchange_strong(expected, index);
    }

    std::atomic<int> result{waiting};
    pthread_mutex_t lock;
    pthread_cond_t woken;
};

// The place of one event_wait on one event's list.
struct event_link {
    event_wait* wait;
    int index;
    event_link* prev;
    event_link* next;
};

struct event_object : object {
    explicit event_object(bool manual) noexcept : object(kind::event), manual_reset(manual) {
        pthread_mutex_init(&lock, nullptr);
    }
    ~event_object() { pthread_mutex_destroy(&lock); }

    bool const manual_reset;
    pthread_mutex_t lock;  // guards the list
    event_link* first = nullptr;
    event_link* last = nullptr;
};

// The states of a suspension or termination request.
enum request : int { no_request, suspend_request, terminate_request };

struct thread_object : object {
    thread_object(thread_routine r, void* a, std::uint32_t thread_id) noexcept
        : object(kind::thread), routine(r), argument(a), id(thread_id) {
        pthread_mutex_init(&control, nullptr);
        pthread_mutex_init(&wait_lock, nullptr);
        pthread_mutex_init(&done_lock, nullptr);
        init_monotonic_cond(&done_cond);
        sem_init(&acknowledged, 0, 0);
    }
    ~thread_object() {
        sem_destroy(&acknowledged);
        pthread_cond_destroy(&done_cond);
        pthread_mutex_destroy(&done_lock);
        pthread_mutex_destroy(&wait_lock);
        pthread_mutex_destroy(&control);
    }

    thread_routine const routine;
    void* const argument;
    std::uint32_t const id;
    pthread_t thread{};
    // The handle and the running thread each hold one reference.
    std::atomic<int> references{2};

    // Serialises the controlling calls (suspend, resume, terminate), each of
    // which finishes its handshake before the next begins.
    pthread_mutex_t control;
    unsigned suspend_count = 0;  // under `control`
    std::atomic<bool> suspended{false};
    std::atomic<int> pending{no_request};
    std::atomic<bool> ended{false};  // the thread no longer takes the signal
    sem_t acknowledged;              // posted once per request, by whoever takes it
    sigjmp_buf exit_point;           // where a terminated thread resumes, to end
    // A request that came while the thread was inside this emulation, to be
    // honoured when it leaves (see kernel_region).
    std::atomic<int> deferred{no_request};
    // The condition the thread sleeps on inside this emulation, if any, so a
    // deferred termination can wake it. Under wait_lock.
    pthread_mutex_t wait_lock;
    pthread_mutex_t* wait_mutex = nullptr;
    pthread_cond_t* wait_cond = nullptr;

    pthread_mutex_t done_lock;
    pthread_cond_t done_cond;
    bool done = false;  // under done_lock: the routine has returned or was ended
};

// The object behind `h` when it is of kind K, else null.
template <class T, kind K>
T* as(handle h) noexcept {
    auto* o = static_cast<object*>(h);
    return o && o->type == K ? static_cast<T*>(o) : nullptr;
}

void release_reference(thread_object* t) noexcept {
    if (t->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete t;
}

// ---------------------------------------------------------------------------
// Threads: ids, the control signal and the start routine

// Initial-exec TLS: one instruction per access instead of a call, which the
// mutex fast paths that ask for the current thread id depend on.
#if defined(__GNUC__)
#  define ZEL_FAST_TLS __attribute__((tls_model("initial-exec")))
#else
#  define ZEL_FAST_TLS
#endif

thread_local thread_object* current_thread ZEL_FAST_TLS = nullptr;
// How deep the current thread is inside this emulation's own locks.
thread_local unsigned kernel_depth ZEL_FAST_TLS = 0;

// The lock this thread sleeps on, if any.
thread_local mutex_object* sleeping_on ZEL_FAST_TLS = nullptr;

// Every recursive lock, so that the end of a thread can find the ones it
// holds. Plain data: a thread that ends during the program's exit may still
// walk it after static objects are gone. Its lock is a flag that a waiter
// yields on: it is held for a link or an unlink, inside a region (so no
// holder is ever suspended), or for the rare walk of a thread that ends
// holding locks, and a lock's creation is cheaper for it than with a
// pthread mutex.
std::atomic_flag registry_busy = ATOMIC_FLAG_INIT;
mutex_object* registry = nullptr;

void lock_registry() noexcept {
    while (registry_busy.test_and_set(std::memory_order_acquire))
        sched_yield();
}

void unlock_registry() noexcept { registry_busy.clear(std::memory_order_release); }

std::atomic<std::uint32_t> last_id{0};

std::uint32_t next_id() noexcept {
    std::uint32_t id;
    do
        id = last_id.fetch_add(1, std::memory_order_relaxed) + 1;
    while ((id & ~lock_sleepers) == 0);  // 0 (when the counter wraps) and 2^31
    return id;
}

int control_signal() noexcept { return SIGRTMIN + 3; }

// The signal mask of the current thread with the control signal let through.
sigset_t mask_open_to_control() noexcept {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    sigdelset(&mask, control_signal());
    return mask;
}

// Sleeps until resumed, or ends the thread when terminated meanwhile (the
// handler run inside sigsuspend jumps away). The control signal must be
// blocked on entry, so that no wake-up is lost between test and sleep.
void stay_suspended(thread_object* t) noexcept {
    sigset_t open = mask_open_to_control();
    while (t->suspended.load())
        sigsuspend(&open);
}

void on_control_signal(int) noexcept {
    thread_object* t = current_thread;
    if (!t)
        return;
    int saved_errno = errno;
    int what = t->pending.exchange(no_request);
    if (what != no_request && kernel_depth != 0) {
        // Inside the emulation the thread may hold an object's lock: it
        // stops or ends only on its way out (kernel_region).
        if (what == terminate_request || t->deferred.load() == no_request)
            t->deferred.store(what);
        sem_post(&t->acknowledged);
        errno = saved_errno;
        return;
    }
    switch (what) {
    case suspend_request:
        sem_post(&t->acknowledged);
        stay_suspended(t);
        break;
    case terminate_request:
        sem_post(&t->acknowledged);
        siglongjmp(t->exit_point, 1);
    default:
        break;  // a resume's wake-up, or a request already answered
    }
    errno = saved_errno;
}

void install_control_handler() noexcept {
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = on_control_signal;
    sigemptyset(&action.sa_mask);
    // Interrupted system calls continue after a resume.
    action.sa_flags = SA_RESTART;
    sigaction(control_signal(), &action, nullptr);
}

void set_control_signal(int how) noexcept {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, control_signal());
    pthread_sigmask(how, &set, nullptr);
}

// Hands `what` to thread `t` (not the caller) and returns once the thread
// has taken it, or once it has ended without taking it. Runs under t->control.
void hand_over(thread_object* t, request what) noexcept {
    t->pending.store(what);
    // The thread sets `ended` and then takes any pending request, so either
    // the thread sees this request or this test sees that it has ended.
    if (t->ended.load()) {
        if (t->pending.exchange(no_request) != no_request)
            return;  // taken back: nobody will acknowledge it
    } else {
        pthread_kill(t->thread, control_signal());
    }
    while (sem_wait(&t->acknowledged) != 0 && errno == EINTR) {
    }
}

void abandon_held_locks() noexcept;

void* start_routine(void* argument) {
    // volatile: read again after siglongjmp returns here.
    thread_object* volatile t = static_cast<thread_object*>(argument);
    current_thread = t;
    current_id = t->id;
    // The exit point is set before the control signal comes in: a request
    // made before the thread ran waits, blocked, until a termination has
    // somewhere to jump to (the jump brings back this blocked mask).
    if (sigsetjmp(t->exit_point, 1) == 0) {
        set_control_signal(SIG_UNBLOCK);
        t->routine(t->argument);
    }
    // From here on the thread takes no more requests; one that arrived too
    // late for the handler is answered here.
    set_control_signal(SIG_BLOCK);
    abandon_held_locks();
    t->ended.store(true);
    if (t->pending.exchange(no_request) != no_request)
        sem_post(&t->acknowledged);
    current_thread = nullptr;
    pthread_mutex_lock(&t->done_lock);
    t->done = true;
    pthread_cond_broadcast(&t->done_cond);
    pthread_mutex_unlock(&t->done_lock);
    release_reference(t);
    return nullptr;
}

pthread_once_t handler_once = PTHREAD_ONCE_INIT;

// Out of line and rarely run: kept away from the lock fast paths.
#if defined(__GNUC__)
#  define ZEL_COLD __attribute__((noinline, cold))
#else
#  define ZEL_COLD
#endif

// Honours a request deferred while the thread was inside the emulation.
ZEL_COLD void honour_deferred(thread_object* t) noexcept {
    switch (t->deferred.exchange(no_request)) {
    case suspend_request:
        set_control_signal(SIG_BLOCK);
        stay_suspended(t);
        set_control_signal(SIG_UNBLOCK);
        break;
    case terminate_request:
        siglongjmp(t->exit_point, 1);
    default:
        break;
    }
}

// Marks a call that takes the emulation's own locks. A thread suspended or
// terminated inside one stops or ends when it leaves, so no object is left
// locked by a thread that will not come back.
struct kernel_region {
    // The signal fences keep the region's work (a lock word's change above
    // all) between the two changes of the depth.
    kernel_region() noexcept {
        ++kernel_depth;
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
    ~kernel_region() {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        thread_object* t = current_thread;
        if (--kernel_depth == 0 && t && t->deferred.load(std::memory_order_relaxed) != no_request)
            honour_deferred(t);
    }
    kernel_region(kernel_region const&) = delete;
    kernel_region& operator=(kernel_region const&) = delete;
};

// True when the current thread was terminated during its wait: the wait
// gives up at once, and the thread ends as it leaves the emulation.
bool terminating() noexcept {
    thread_object* t = current_thread;
    return t && t->deferred.load() == terminate_request;
}

// While alive, a deferred termination of the current thread can wake its
// sleep on (lock, cond).
class interruptible_sleep {
public:
    interruptible_sleep(pthread_mutex_t* lock, pthread_cond_t* cond) noexcept
        : thread_(current_thread) {
        set(lock, cond);
    }
    ~interruptible_sleep() { set(nullptr, nullptr); }
    interruptible_sleep(interruptible_sleep const&) = delete;
    interruptible_sleep& operator=(interruptible_sleep const&) = delete;

    // Wakes the sleep of thread `t`, if it sleeps in the emulation.
    static void wake(thread_object* t) noexcept {
        pthread_mutex_lock(&t->wait_lock);
        if (t->wait_cond) {
            pthread_mutex_lock(t->wait_mutex);
            pthread_cond_broadcast(t->wait_cond);
            pthread_mutex_unlock(t->wait_mutex);
        }
        pthread_mutex_unlock(&t->wait_lock);
    }

private:
    void set(pthread_mutex_t* lock, pthread_cond_t* cond) noexcept {
        if (!thread_)
            return;
        pthread_mutex_lock(&thread_->wait_lock);
        thread_->wait_mutex = lock;
        thread_->wait_cond = cond;
        pthread_mutex_unlock(&thread_->wait_lock);
    }

    thread_object* thread_;
};

// ---------------------------------------------------------------------------
// Waits

// Locks

long futex(std::atomic<std::uint32_t>* word, int op, std::uint32_t value,
           timespec const* timeout) noexcept {
    return syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word), op, value, timeout,
                   nullptr, 0);
}

using posix::owner_key;
using posix::single_threaded;  // see kernel.h

// The owner part of a lock word.
std::uint32_t owner_of(mutex_object const* m) noexcept {
    return owner_key(m->state.load(std::memory_order_relaxed));
}

// Registry changes run in a region, so that no thread stops or ends holding
// the registry.
void register_lock(mutex_object* m) noexcept {
    lock_registry();
    m->next = registry;
    if (registry)
        registry->prev = m;
    registry = m;
    unlock_registry();
}

void unregister_lock(mutex_object* m) noexcept {
    lock_registry();
    (m->prev ? m->prev->next : registry) = m->next;
    if (m->next)
        m->next->prev = m->prev;
    unlock_registry();
}

struct held_walker {
    ~held_walker() { abandon_held_locks(); }
    void arm() noexcept {}
};

// Threads the library did not start walk the registry at their end through
// this thread-local object, made when they get their id.
thread_local held_walker walker_at_exit;

// The current thread is ending: every recursive lock it still holds passes
// to its next taker as abandoned. A thread that ends on its way out of a
// sleep on a lock may have taken the wake meant for the next taker, so that
// lock gets one more.
void abandon_held_locks() noexcept {
    if (posix::recursive_held != 0) {
        std::uint32_t const key = owner_key(current_id);
        lock_registry();
        for (mutex_object* m = registry; m; m = m->next)
            if (owner_of(m) == key) {
                m->depth = 0;
                m->abandoned = true;
                posix::give_back_word(m);
            }
        unlock_registry();
        posix::recursive_held = 0;
    }
    if (mutex_object* m = sleeping_on) {
        sleeping_on = nullptr;
        futex(&m->state, FUTEX_WAKE_PRIVATE, 1, nullptr);
    }
}

// The contended path: sleeps on the word until it is free and taken, or the
// time runs out. Nothing here runs in a region, so a suspension or
// termination reaches a sleeping thread at once. Out of line, to keep the
// fast path short.
ZEL_COLD bool take_slow(mutex_object* m, std::uint32_t key, std::uint32_t timeout) noexcept {
    // Only a timed wait needs the clock.
    timespec limit{};
    if (timeout != infinite)
        limit = add_ms(now(CLOCK_MONOTONIC), timeout);
    sleeping_on = m;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    for (;;) {
        std::uint32_t seen = m->state.load(std::memory_order_relaxed);
        if (seen == 0) {
            // Taken with the bit set: others may still sleep here.
            if (m->recursive ? posix::claim_recursive(m, key | lock_sleepers)
                             : posix::claim_word(m, key | lock_sleepers)) {
                std::atomic_signal_fence(std::memory_order_seq_cst);
                sleeping_on = nullptr;
                return true;
            }
            continue;
        }
        if (!(seen & lock_sleepers)) {
            if (!m->state.compare_exchange_strong(seen, seen | lock_sleepers,
                                                  std::memory_order_relaxed))
                continue;
            seen |= lock_sleepers;
        }
        timespec left;
        timespec const* bound = nullptr;
        if (timeout != infinite) {
            long long ns = nanos_until(limit, now(CLOCK_MONOTONIC));
            if (ns == 0)
                break;
            left.tv_sec = static_cast<time_t>(ns / nanos_per_second);
            left.tv_nsec = static_cast<long>(ns % nanos_per_second);
            bound = &left;
        }
        // Returns at once when the word no longer holds `seen`.
        futex(&m->state, FUTEX_WAIT_PRIVATE, seen, bound);
    }
    std::atomic_signal_fence(std::memory_order_seq_cst);
    sleeping_on = nullptr;
    return false;
}

// Takes m for the caller within `timeout`; true when taken.
bool take(mutex_object* m, std::uint32_t key, std::uint32_t timeout) noexcept {
    if (m->recursive ? posix::claim_recursive(m, key) : posix::claim_word(m, key))
        return true;
    return timeout != 0 && take_slow(m, key, timeout);
}

std::uint32_t wait_semaphore(semaphore_object* s, std::uint32_t timeout) noexcept {
    if (s->try_take())
        return wait_object_0;
    if (timeout == 0)
        return wait_timeout;
    deadline limit(timeout == infinite ? 0 : timeout);
    deadline const* bound = timeout == infinite ? nullptr : &limit;
    std::uint32_t result = wait_object_0;
    interruptible_sleep sleep(&s->lock, &s->available);
    pthread_mutex_lock(&s->lock);
    s->sleepers.fetch_add(1);
    // A release adds to the count before it looks at `sleepers`, and this
    // thread raised `sleepers` before trying: one of the two sees the other.
    while (!s->try_take()) {
        if ((bound && bound->passed()) || terminating()) {
            result = wait_timeout;
            break;
        }
        cond_wait(&s->available, &s->lock, bound);
    }
    s->sleepers.fetch_sub(1);
    pthread_mutex_unlock(&s->lock);
    return result;
}

std::uint32_t wait_thread(thread_object* t, std::uint32_t timeout) noexcept {
    deadline limit(timeout == infinite ? 0 : timeout);
    deadline const* bound = timeout == infinite ? nullptr : &limit;
    interruptible_sleep sleep(&t->done_lock, &t->done_cond);
    pthread_mutex_lock(&t->done_lock);
    while (!t->done && timeout != 0 && !(bound && bound->passed()) && !terminating())
        cond_wait(&t->done_cond, &t->done_lock, bound);
    bool done = t->done;
    pthread_mutex_unlock(&t->done_lock);
    return done ? wait_object_0 : wait_timeout;
}

void link_wait(event_object* e, event_link* link) noexcept {
    pthread_mutex_lock(&e->lock);
    link->prev = e->last;
    link->next = nullptr;
    (e->last ? e->last->next : e->first) = link;
    e->last = link;
    pthread_mutex_unlock(&e->lock);
}

void unlink_wait(event_object* e, event_link* link) noexcept {
    pthread_mutex_lock(&e->lock);
    (link->prev ? link->prev->next : e->first) = link->next;
    (link->next ? link->next->prev : e->last) = link->prev;
    pthread_mutex_unlock(&e->lock);
}

// Events hold no signalled state, so a wait always sleeps until a pulse
// claims it or its time runs out.
std::uint32_t wait_events(std::uint32_t count, event_object* const* events,
                          std::uint32_t timeout) noexcept {
    if (timeout == 0)
        return wait_timeout;
    event_wait wait;
    event_link links[maximum_wait_objects];
    for (std::uint32_t i = 0; i < count; ++i) {
        links[i].wait = &wait;
        links[i].index = static_cast<int>(i);
        link_wait(events[i], &links[i]);
    }
    deadline limit(timeout == infinite ? 0 : timeout);
    deadline const* bound = timeout == infinite ? nullptr : &limit;
    {
        interruptible_sleep sleep(&wait.lock, &wait.woken);
        pthread_mutex_lock(&wait.lock);
        while (wait.result.load() == event_wait::waiting && !(bound && bound->passed()) &&
               !terminating())
            cond_wait(&wait.woken, &wait.lock, bound);
        pthread_mutex_unlock(&wait.lock);
    }
    // A pulse that claimed the wait just as the time ran out still counts.
    wait.claim(event_wait::timed_out);
    // A pulse wakes a wait under its event's lock, so once unlinked from
    // every event nobody touches `wait` again.
    for (std::uint32_t i = 0; i < count; ++i)
        unlink_wait(events[i], &links[i]);
    int result = wait.result.load();
    return result == event_wait::timed_out ? wait_timeout
                                           : wait_object_0 + static_cast<std::uint32_t>(result);
}

} // namespace

// ---------------------------------------------------------------------------
// The calls

handle create_lock(bool recursive) noexcept {
    kernel_region region;
    auto* m = new (std::nothrow) mutex_object(recursive);
    if (m && recursive)
        register_lock(m);
    return m;
}

std::uint32_t acquire_lock(handle lock, std::uint32_t timeout) noexcept {
    auto* m = as<mutex_object, kind::mutex>(lock);
    if (!m)
        return wait_failed;
    std::uint32_t const key = current_thread_id() & ~lock_sleepers;
    if (m->recursive && owner_of(m) == key) {
        ++m->depth;
        return wait_object_0;
    }
    if (!take(m, key, timeout))
        return wait_timeout;
    if (m->recursive && m->abandoned) {
        m->abandoned = false;
        return wait_abandoned_0;
    }
    return wait_object_0;
}

void posix::wake_lock_sleeper(lock_head* m) noexcept {
    futex(&m->state, FUTEX_WAKE_PRIVATE, 1, nullptr);
}

bool release_lock(handle lock) noexcept {
    auto* m = as<mutex_object, kind::mutex>(lock);
    if (!m)
        return false;
    return m->recursive ? release_recursive_lock(m) : release_plain_lock(m);
}

bool wait_on_address(std::atomic<std::uint32_t>& word, std::uint32_t expected,
                     std::uint32_t timeout) noexcept {
    timespec left;
    timespec const* bound = nullptr;
    if (timeout != infinite) {
        left.tv_sec = static_cast<time_t>(timeout / 1000);
        left.tv_nsec = static_cast<long>(timeout % 1000) * 1000000L;
        bound = &left;
    }
    // A suspension or termination reaches the sleeper at once: the signal
    // interrupts the wait, which holds nothing of the emulation's.
    return !(futex(&word, FUTEX_WAIT_PRIVATE, expected, bound) == -1 && errno == ETIMEDOUT);
}

void wake_by_address_all(std::atomic<std::uint32_t>& word) noexcept {
    futex(&word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr);
}

handle create_mutex() noexcept { return create_lock(true); }

bool release_mutex(handle mutex) noexcept { return release_lock(mutex); }

handle create_semaphore(std::int32_t initial, std::int32_t maximum) noexcept {
    kernel_region region;
    if (maximum <= 0 || initial < 0 || initial > maximum)
        return nullptr;
    return new (std::nothrow) semaphore_object(initial, maximum);
}

bool release_semaphore(handle semaphore, std::int32_t count) noexcept {
    kernel_region region;
    auto* s = as<semaphore_object, kind::semaphore>(semaphore);
    if (!s || count <= 0)
        return false;
    std::int32_t c = s->count.load(std::memory_order_relaxed);
    do {
        if (count > s->maximum - c)
            return false;
    } while (!s->count.compare_exchange_weak(c, c + count));
    if (s->sleepers.load() != 0) {
        pthread_mutex_lock(&s->lock);
        if (count == 1)
            pthread_cond_signal(&s->available);
        else
            pthread_cond_broadcast(&s->available);
        pthread_mutex_unlock(&s->lock);
    }
    return true;
}

handle create_event(bool manual_reset) noexcept {
    kernel_region region;
    return new (std::nothrow) event_object(manual_reset);
}

bool pulse_event(handle event) noexcept {
    kernel_region region;
    auto* e = as<event_object, kind::event>(event);
    if (!e)
        return false;
    pthread_mutex_lock(&e->lock);
    for (event_link* link = e->first; link; link = link->next) {
        // A wait already claimed (by another event, or by its time-out) is
        // no longer waiting here.
        if (!link->wait->claim(link->index))
            continue;
        pthread_mutex_lock(&link->wait->lock);
        pthread_cond_signal(&link->wait->woken);
        pthread_mutex_unlock(&link->wait->lock);
        if (!e->manual_reset)
            break;
    }
    pthread_mutex_unlock(&e->lock);
    return true;
}

std::uint32_t wait_for_single_object(handle object_handle, std::uint32_t timeout) noexcept {
    auto* o = static_cast<object*>(object_handle);
    if (!o)
        return wait_failed;
    // A lock needs no region: the walk at a thread's end covers a thread
    // that stops or ends anywhere inside it, and the fast path stays short.
    if (o->type == kind::mutex)
        return acquire_lock(o, timeout);
    kernel_region region;
    switch (o->type) {
    case kind::mutex:
        break;
    case kind::semaphore:
        return wait_semaphore(static_cast<semaphore_object*>(o), timeout);
    case kind::event: {
        auto* e = static_cast<event_object*>(o);
        return wait_events(1, &e, timeout);
    }
    case kind::thread:
        return wait_thread(static_cast<thread_object*>(o), timeout);
    }
    return wait_failed;
}

// Only events can be waited on together here; that is all the library needs.
std::uint32_t wait_for_multiple_objects(std::uint32_t count, handle const* objects,
                                        std::uint32_t timeout) noexcept {
    kernel_region region;
    if (count == 0 || count > maximum_wait_objects || !objects)
        return wait_failed;
    event_object* events[maximum_wait_objects];
    for (std::uint32_t i = 0; i < count; ++i) {
        auto* o = static_cast<object*>(objects[i]);
        if (!o || o->type != kind::event)
            return wait_failed;
        events[i] = static_cast<event_object*>(o);
    }
    return wait_events(count, events, timeout);
}

bool close_handle(handle object_handle) noexcept {
    kernel_region region;
    auto* o = static_cast<object*>(object_handle);
    if (!o)
        return false;
    switch (o->type) {
    case kind::mutex: {
        // A lock closed while the caller holds it leaves the caller's count.
        auto* m = static_cast<mutex_object*>(o);
        if (m->recursive) {
            unregister_lock(m);
            if (posix::owned_by_caller(m))
                --posix::recursive_held;
        }
        delete m;
        break;
    }
    case kind::semaphore:
        delete static_cast<semaphore_object*>(o);
        break;
    case kind::event:
        delete static_cast<event_object*>(o);
        break;
    case kind::thread: {
        // The thread may run on; detached, it frees its own resources.
        auto* t = static_cast<thread_object*>(o);
        pthread_detach(t->thread);
        release_reference(t);
        break;
    }
    }
    return true;
}

std::uint32_t current_thread_id() noexcept {
    std::uint32_t id = current_id;
    if (id == 0) {
        // A thread the library did not start: it gives back what it holds
        // when it ends, through its thread-local walker.
        current_id = id = next_id();
        walker_at_exit.arm();
    }
    return id;
}

void sleep(std::uint32_t ms) noexcept {
    if (ms == 0) {
#if defined(__SANITIZE_THREAD__)
        // The thread sanitizer runs signal handlers only inside calls it
        // intercepts, and it does not intercept sched_yield: without this a
        // thread that only yields would never take a suspension.
        timespec zero{0, 0};
        nanosleep(&zero, nullptr);
#endif
        sched_yield();
        return;
    }
    if (ms == infinite) {
        for (;;)
            pause();
    }
    timespec until = add_ms(now(CLOCK_MONOTONIC), ms);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

std::int32_t interlocked_increment(std::atomic<std::int32_t>& value) noexcept {
    return value.fetch_add(1) + 1;
}

std::int32_t interlocked_decrement(std::atomic<std::int32_t>& value) noexcept {
    return value.fetch_sub(1) - 1;
}

handle begin_thread(void*, unsigned stack_size, thread_routine routine, void* argument,
                    std::uint32_t* thread_id) noexcept {
    if (!routine) {
        errno = EINVAL;
        return nullptr;
    }
    kernel_region region;
    pthread_once(&handler_once, install_control_handler);
    pthread_attr_t attr;
    if (int rc = pthread_attr_init(&attr)) {
        errno = rc;
        return nullptr;
    }
    if (stack_size != 0) {
        // Like _beginthreadex, a small stack is raised to what the system
        // needs rather than refused.
        auto const least = static_cast<std::size_t>(PTHREAD_STACK_MIN);
        std::size_t size = stack_size < least ? least : stack_size;
        pthread_attr_setstacksize(&attr, size);
    }
    std::uint32_t id = next_id();
    thread_object* t = new (std::nothrow) thread_object(routine, argument, id);
    if (!t) {
        pthread_attr_destroy(&attr);
        errno = ENOMEM;
        return nullptr;
    }
    // The thread starts with the control signal blocked and lets it in once
    // its handler can find it, so that an early request waits for it.
    sigset_t control, previous;
    sigemptyset(&control);
    sigaddset(&control, control_signal());
    pthread_sigmask(SIG_BLOCK, &control, &previous);
    int rc = pthread_create(&t->thread, &attr, start_routine, t);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        delete t;
        errno = rc;
        return nullptr;
    }
    if (thread_id)
        *thread_id = id;
    return t;
}

std::uint32_t suspend_thread(handle thread) noexcept {
    kernel_region region;
    auto* t = as<thread_object, kind::thread>(thread);
    if (!t)
        return 0xFFFFFFFFu;
    pthread_mutex_lock(&t->control);
    unsigned previous = t->suspend_count++;
    if (previous == 0) {
        t->suspended.store(true);
        if (t == current_thread)
            t->deferred.store(suspend_request);  // stops as it leaves, unlocked
        else
            hand_over(t, suspend_request);
    }
    pthread_mutex_unlock(&t->control);
    return previous;
}

std::uint32_t resume_thread(handle thread) noexcept {
    kernel_region region;
    auto* t = as<thread_object, kind::thread>(thread);
    if (!t)
        return 0xFFFFFFFFu;
    pthread_mutex_lock(&t->control);
    unsigned previous = t->suspend_count;
    if (previous != 0 && --t->suspend_count == 0) {
        t->suspended.store(false);
        // Wakes the handler's sigsuspend; a thread that has ended ignores it.
        if (!t->ended.load())
            pthread_kill(t->thread, control_signal());
    }
    pthread_mutex_unlock(&t->control);
    return previous;
}

bool terminate_thread(handle thread, std::uint32_t) noexcept {
    kernel_region region;
    auto* t = as<thread_object, kind::thread>(thread);
    if (!t)
        return false;
    if (t == current_thread) {
        t->deferred.store(terminate_request);  // ends as it leaves
        return true;
    }
    pthread_mutex_lock(&t->control);
    hand_over(t, terminate_request);
    pthread_mutex_unlock(&t->control);
    // A thread that took the request inside a wait of the emulation ends as
    // soon as that wait gives up.
    if (t->deferred.load() == terminate_request)
        interruptible_sleep::wake(t);
    return true;
}

} // namespace kernel
} // namespace zel
