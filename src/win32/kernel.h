// The kernel calls that the guards, monitors and threads are written against,
// named and shaped after the Windows calls they stand for (CreateMutexA,
// WaitForSingleObject, PulseEvent, SuspendThread, ...). On Windows each is the
// system's own call (kernel_win32.cpp); on POSIX kernel_posix.cpp emulates
// exactly this set.
// Nothing outside this header and its emulation may assume either system.
//
// Handles are opaque and owned by their creator, who closes each exactly
// once. A null handle means creation failed.
#ifndef ZEL_SRC_WIN32_KERNEL_H
#define ZEL_SRC_WIN32_KERNEL_H

#include <atomic>
#include <cstdint>
#if !defined(_WIN32) && __has_include(<sys/single_threaded.h>)
#  include <sys/single_threaded.h>
#endif

namespace zel {
namespace kernel {

using handle = void*;

constexpr std::uint32_t infinite = 0xFFFFFFFFu;

// Wait results: object i ended the wait; object i was a mutex whose owner
// ended while holding it (the caller owns it now); the time-out passed; the
// wait itself failed.
constexpr std::uint32_t wait_object_0 = 0x00;
constexpr std::uint32_t wait_abandoned_0 = 0x80;
constexpr std::uint32_t wait_timeout = 0x102;
constexpr std::uint32_t wait_failed = 0xFFFFFFFFu;

// The most objects one wait_for_multiple_objects call takes.
constexpr std::uint32_t maximum_wait_objects = 64;

// A recursive mutex, not owned. Releasing reports false when the caller does
// not own it.
handle create_mutex() noexcept;
bool release_mutex(handle mutex) noexcept;

// The lock behind the library's mutex classes. A recursive lock behaves as
// a kernel mutex: its owner may take it again, and a lock whose owner ended
// (returned or was terminated) while holding it is taken by the next waiter
// with wait_abandoned_0. A lock that is not recursive blocks its owner's
// second attempt and is never reported abandoned, as a semaphore of one
// unit. acquire_lock returns the wait results below (a time-out of 0 tests
// once); release_lock reports false when the caller does not own it. On
// every system an uncontended lock is taken and released without a system
// call; a lock handle can be waited on alone, not with other objects.
handle create_lock(bool recursive) noexcept;
std::uint32_t acquire_lock(handle lock, std::uint32_t timeout) noexcept;
bool release_lock(handle lock) noexcept;

// The uncontended paths of a lock that is not recursive, for the guards to
// try before the calls above: take_free_plain_lock takes the lock when it is
// free (false: the caller waits through acquire_lock); release_plain_lock is
// release_lock for such a lock. Inline where the system's lock allows it, so
// an nr_mutex pays no call into the kernel layer when nobody contends.
bool take_free_plain_lock(handle lock) noexcept;
bool release_plain_lock(handle lock) noexcept;

// The same for a recursive lock, straight to its own steps without the
// checks of the general calls: take_free_recursive_lock enters again when
// the caller owns the lock, or takes it when it is free (a lock abandoned by
// its previous owner is then simply owned, its report dropped); false when
// another thread holds it. release_recursive_lock is release_lock for such
// a lock. Handles from create_lock(true) only.
bool take_free_recursive_lock(handle lock) noexcept;
bool release_recursive_lock(handle lock) noexcept;

// Waiting on a word, for objects that keep their state in one atomic word
// (WaitOnAddress and WakeByAddressAll on Windows, a futex on Linux).
// wait_on_address sleeps while `word` holds `expected` (it returns at once
// when it does not), until a wake_by_address_all on the word or `timeout`
// milliseconds; it may also return for no reason, so a caller tests its
// word again. False when the time ran out. wake_by_address_all wakes every
// thread sleeping on the word.
bool wait_on_address(std::atomic<std::uint32_t>& word, std::uint32_t expected,
                     std::uint32_t timeout) noexcept;
void wake_by_address_all(std::atomic<std::uint32_t>& word) noexcept;

// A counting semaphore. Releasing fails (false, count unchanged) when
// `count` is not positive or the count would pass the maximum.
handle create_semaphore(std::int32_t initial, std::int32_t maximum) noexcept;
bool release_semaphore(handle semaphore, std::int32_t count) noexcept;

// An event, not signalled. A pulse lets through the threads waiting on it at
// that moment (every one for a manual-reset event, at most one for an
// auto-reset event) and leaves it not signalled.
handle create_event(bool manual_reset) noexcept;
bool pulse_event(handle event) noexcept;

// Waits until the object is signalled: a mutex or semaphore can be taken, an
// event is pulsed, a thread has ended. `timeout` in milliseconds; 0 only tests.
std::uint32_t wait_for_single_object(handle object, std::uint32_t timeout) noexcept;
// Waits until any one of `count` objects is signalled and returns
// wait_object_0 plus its index.
std::uint32_t wait_for_multiple_objects(std::uint32_t count, handle const* objects,
                                        std::uint32_t timeout) noexcept;

bool close_handle(handle object) noexcept;

// The calling thread's id: 32 bits, never 0 for a live thread.
std::uint32_t current_thread_id() noexcept;
// Gives up the processor for `ms` milliseconds; 0 gives up the rest of the
// time slice.
void sleep(std::uint32_t ms) noexcept;

std::int32_t interlocked_increment(std::atomic<std::int32_t>& value) noexcept;
std::int32_t interlocked_decrement(std::atomic<std::int32_t>& value) noexcept;

#if defined(_WIN32)
#  define ZEL_KERNEL_CALL __stdcall
#else
#  define ZEL_KERNEL_CALL
#endif

using thread_routine = unsigned(ZEL_KERNEL_CALL*)(void* argument);

// Starts `routine(argument)` on a new thread, as the C runtime's
// _beginthreadex does. On failure returns null with errno set: EINVAL for an
// invalid argument, EAGAIN when no more threads can be made, another value
// for other failures. A stack size of 0 means the system's default.
handle begin_thread(void* security, unsigned stack_size, thread_routine routine,
                    void* argument, std::uint32_t* thread_id) noexcept;
// Suspend and resume count: a thread runs while its count is 0. Both return
// the previous count, or 0xFFFFFFFF on failure.
std::uint32_t suspend_thread(handle thread) noexcept;
std::uint32_t resume_thread(handle thread) noexcept;
// Ends the thread at once, without running any more of its code.
bool terminate_thread(handle thread, std::uint32_t exit_code) noexcept;

#if defined(_WIN32)

// The Win32 lock keeps its whole protocol behind its calls.
inline bool take_free_plain_lock(handle) noexcept { return false; }
inline bool release_plain_lock(handle lock) noexcept { return release_lock(lock); }
inline bool take_free_recursive_lock(handle) noexcept { return false; }
inline bool release_recursive_lock(handle lock) noexcept { return release_lock(lock); }

#else

// The POSIX emulation's object header and the head of its lock, declared
// here only for the inline paths below; nothing outside the emulation reads
// them otherwise.
namespace posix {

enum class kind : unsigned char { mutex, semaphore, event, thread };

struct object {
    explicit object(kind k) noexcept : type(k) {}
    kind type;
};

// The top bit of a lock word: threads may sleep on it, so its release wakes
// one. The other bits are the owner's thread id (ids never have them all 0).
constexpr std::uint32_t lock_sleepers = 0x80000000u;

struct lock_head : object {
    explicit lock_head(bool r) noexcept : object(kind::mutex), recursive(r) {}
    // The futex word: the owner's id and the sleepers bit, 0 when free.
    std::atomic<std::uint32_t> state{0};
    bool const recursive;
    // A recursive lock's own: the owner's acquisitions, and whether its
    // previous owner ended holding it. Written by the owner, or by the end
    // of a thread that owned it, before the word is given back.
    bool abandoned = false;
    unsigned depth = 0;
};

// The calling thread's id once it has one (0 before its first look).
// Initial-exec TLS: one instruction per access, no wrapper call.
extern __thread std::uint32_t current_id __attribute__((tls_model("initial-exec")));

// How many recursive locks the calling thread may hold: never fewer than it
// does, since it counts one up before it takes a word and down only after it
// has given one back. Its end looks for locks left held only when this is
// not 0, so a thread ended anywhere in a take or release leaves none behind,
// and the lock paths keep no list.
extern __thread unsigned recursive_held __attribute__((tls_model("initial-exec")));

// While the process has only ever had one thread, nobody else can touch a
// lock word, and plain loads and stores take the place of the locked
// instructions (as the C library does for its own mutexes). Once a second
// thread has started the C library never reports one thread again.
inline bool single_threaded() noexcept {
#if __has_include(<sys/single_threaded.h>)
    return __libc_single_threaded != 0;
#else
    return false;
#endif
}

// Wakes one thread sleeping on the word. Out of line: only a contended
// release reaches it.
void wake_lock_sleeper(lock_head* m) noexcept;

inline lock_head* lock_of(handle lock) noexcept {
    return static_cast<lock_head*>(static_cast<object*>(lock));
}

// The owner part of a word or an id.
inline std::uint32_t owner_key(std::uint32_t word) noexcept { return word & ~lock_sleepers; }

// Takes the word for `key` when it is free: one compare-exchange, with no
// read before it (under contention a read first costs the cache line one
// more trip). `seen` is what the word held.
inline bool claim_word(lock_head* m, std::uint32_t key, std::uint32_t& seen) noexcept {
    if (single_threaded()) {
        seen = m->state.load(std::memory_order_relaxed);
        if (seen != 0)
            return false;  // held by this very thread
        m->state.store(key, std::memory_order_relaxed);
        return true;
    }
    seen = 0;
    return m->state.compare_exchange_strong(seen, key, std::memory_order_acquire,
                                            std::memory_order_relaxed);
}

inline bool claim_word(lock_head* m, std::uint32_t key) noexcept {
    std::uint32_t seen;
    return claim_word(m, key, seen);
}

// Gives the word back and wakes a sleeper when the bit says there may be
// one. Nothing of the lock is read after the exchange, since its next owner
// may close it at once; a wake on a word that has gone wakes nobody of ours.
inline void give_back_word(lock_head* m) noexcept {
    if (single_threaded())
        m->state.store(0, std::memory_order_relaxed);
    else if (m->state.exchange(0, std::memory_order_release) & lock_sleepers)
        wake_lock_sleeper(m);
}

// True when the calling thread owns the lock; a thread without an id yet
// owns nothing.
inline bool owned_by_caller(lock_head const* m) noexcept {
    std::uint32_t const id = current_id;
    return id != 0 && owner_key(m->state.load(std::memory_order_relaxed)) == owner_key(id);
}

// A recursive take of a free word, counted before it and uncounted when it
// fails, so that an end at any point leaves the count no lower than the
// locks held. The signal fences keep the compiler from moving the count
// past the word's change.
inline bool claim_recursive(lock_head* m, std::uint32_t key, std::uint32_t& seen) noexcept {
    ++recursive_held;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (!claim_word(m, key, seen)) {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        --recursive_held;
        return false;
    }
    m->depth = 1;
    return true;
}

inline bool claim_recursive(lock_head* m, std::uint32_t key) noexcept {
    std::uint32_t seen;
    return claim_recursive(m, key, seen);
}

} // namespace posix

// One compare-exchange. A thread without an id yet gets one in acquire_lock,
// with a time-out of 0 (a single try). A handle from create_lock(false) only.
inline bool take_free_plain_lock(handle lock) noexcept {
    std::uint32_t const id = posix::current_id;
    if (id == 0)
        return acquire_lock(lock, 0) == wait_object_0;
    return posix::claim_word(posix::lock_of(lock), posix::owner_key(id));
}

// Only the owner gives the word back.
inline bool release_plain_lock(handle lock) noexcept {
    posix::lock_head* m = posix::lock_of(lock);
    if (!posix::owned_by_caller(m))
        return false;
    posix::give_back_word(m);
    return true;
}

inline bool take_free_recursive_lock(handle lock) noexcept {
    std::uint32_t const id = posix::current_id;
    if (id == 0) {
        std::uint32_t const r = acquire_lock(lock, 0);
        return r == wait_object_0 || r == wait_abandoned_0;
    }
    posix::lock_head* m = posix::lock_of(lock);
    std::uint32_t const key = posix::owner_key(id);
    std::uint32_t seen;
    if (posix::claim_recursive(m, key, seen)) {
        m->abandoned = false;
        return true;
    }
    if (posix::owner_key(seen) != key)
        return false;
    ++m->depth;
    return true;
}

inline bool release_recursive_lock(handle lock) noexcept {
    posix::lock_head* m = posix::lock_of(lock);
    if (!posix::owned_by_caller(m))
        return false;
    if (--m->depth != 0)
        return true;
    posix::give_back_word(m);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    --posix::recursive_held;
    return true;
}

#endif

} // namespace kernel
} // namespace zel

#endif
