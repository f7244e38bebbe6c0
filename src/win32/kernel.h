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

} // namespace kernel
} // namespace zel

#endif
