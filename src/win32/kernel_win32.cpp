// The kernel calls of kernel.h on Windows: each is the system's own call.
//
// The library's lock is a kernel object too. A recursive lock is a kernel
// mutex, so the system counts its recursion and reports a lock whose owner
// ended (returned, exited or was terminated) as WAIT_ABANDONED to the next
// taker. A lock that is not recursive is a semaphore of one unit: its owner's
// second take blocks and it is never reported abandoned. The handle of such a
// lock carries a tag in its lowest bit, which kernel handles never use, so
// that release_lock knows which release call it needs without asking the
// system; every call here removes the tag before it hands a handle on.
#include "kernel.h"

#include <cerrno>
#include <cstdint>

#include <process.h>
#include <windows.h>

namespace zel {
namespace kernel {

// The wait results are the system's own values.
static_assert(wait_object_0 == WAIT_OBJECT_0, "wait result");
static_assert(wait_abandoned_0 == WAIT_ABANDONED_0, "wait result");
static_assert(wait_timeout == WAIT_TIMEOUT, "wait result");
static_assert(wait_failed == WAIT_FAILED, "wait result");
static_assert(infinite == INFINITE, "time-out");
static_assert(maximum_wait_objects == MAXIMUM_WAIT_OBJECTS, "wait limit");

namespace {

constexpr std::uintptr_t semaphore_lock_tag = 1;

HANDLE system_handle(handle h) noexcept {
    return reinterpret_cast<HANDLE>(reinterpret_cast<std::uintptr_t>(h) & ~semaphore_lock_tag);
}

bool is_semaphore_lock(handle h) noexcept {
    return (reinterpret_cast<std::uintptr_t>(h) & semaphore_lock_tag) != 0;
}

} // namespace

handle create_mutex() noexcept { return CreateMutexA(nullptr, FALSE, nullptr); }

bool release_mutex(handle mutex) noexcept { return ReleaseMutex(system_handle(mutex)) != 0; }

handle create_lock(bool recursive) noexcept {
    if (recursive)
        return create_mutex();
    HANDLE h = CreateSemaphoreA(nullptr, 1, 1, nullptr);
    if (h == nullptr)
        return nullptr;
    return reinterpret_cast<handle>(reinterpret_cast<std::uintptr_t>(h) | semaphore_lock_tag);
}

std::uint32_t acquire_lock(handle lock, std::uint32_t timeout) noexcept {
    if (lock == nullptr)
        return wait_failed;
    return WaitForSingleObject(system_handle(lock), timeout);
}

// A semaphore does not know who took it: a release of a lock that is not
// recursive fails only when the lock is free (the unit would pass its
// maximum). nr_mutex checks its owner before it releases.
bool release_lock(handle lock) noexcept {
    if (lock == nullptr)
        return false;
    if (is_semaphore_lock(lock))
        return ReleaseSemaphore(system_handle(lock), 1, nullptr) != 0;
    return ReleaseMutex(system_handle(lock)) != 0;
}

handle create_semaphore(std::int32_t initial, std::int32_t maximum) noexcept {
    if (maximum <= 0 || initial < 0 || initial > maximum)
        return nullptr;
    return CreateSemaphoreA(nullptr, initial, maximum, nullptr);
}

bool release_semaphore(handle semaphore, std::int32_t count) noexcept {
    if (count <= 0)
        return false;
    return ReleaseSemaphore(system_handle(semaphore), count, nullptr) != 0;
}

handle create_event(bool manual_reset) noexcept {
    return CreateEventA(nullptr, manual_reset ? TRUE : FALSE, FALSE, nullptr);
}

bool pulse_event(handle event) noexcept { return PulseEvent(system_handle(event)) != 0; }

std::uint32_t wait_for_single_object(handle object, std::uint32_t timeout) noexcept {
    if (object == nullptr)
        return wait_failed;
    return WaitForSingleObject(system_handle(object), timeout);
}

std::uint32_t wait_for_multiple_objects(std::uint32_t count, handle const* objects,
                                        std::uint32_t timeout) noexcept {
    if (count == 0 || count > maximum_wait_objects || objects == nullptr)
        return wait_failed;
    HANDLE handles[MAXIMUM_WAIT_OBJECTS];
    for (std::uint32_t i = 0; i < count; ++i)
        handles[i] = system_handle(objects[i]);
    return WaitForMultipleObjects(count, handles, FALSE, timeout);
}

bool close_handle(handle object) noexcept {
    return object != nullptr && CloseHandle(system_handle(object)) != 0;
}

std::uint32_t current_thread_id() noexcept { return GetCurrentThreadId(); }

void sleep(std::uint32_t ms) noexcept { Sleep(ms); }

// The same locked add InterlockedIncrement compiles to, on the atomic the
// callers hold.
std::int32_t interlocked_increment(std::atomic<std::int32_t>& value) noexcept {
    return value.fetch_add(1) + 1;
}

std::int32_t interlocked_decrement(std::atomic<std::int32_t>& value) noexcept {
    return value.fetch_sub(1) - 1;
}

// _beginthreadex rather than CreateThread: the C runtime sets up its
// per-thread data for the new thread, and errno reports a failure.
handle begin_thread(void* security, unsigned stack_size, thread_routine routine, void* argument,
                    std::uint32_t* thread_id) noexcept {
    if (routine == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    unsigned id = 0;
    std::uintptr_t h = _beginthreadex(security, stack_size, routine, argument, 0, &id);
    if (h == 0)
        return nullptr;
    if (thread_id)
        *thread_id = id;
    return reinterpret_cast<handle>(h);
}

std::uint32_t suspend_thread(handle thread) noexcept { return SuspendThread(system_handle(thread)); }

std::uint32_t resume_thread(handle thread) noexcept { return ResumeThread(system_handle(thread)); }

// TerminateThread only starts the end of another thread; the wait makes the
// call return once it is over, as the emulation's does, so that what it held
// is abandoned by then.
bool terminate_thread(handle thread, std::uint32_t exit_code) noexcept {
    HANDLE h = system_handle(thread);
    if (TerminateThread(h, exit_code) == 0)
        return false;
    WaitForSingleObject(h, INFINITE);
    return true;
}

} // namespace kernel
} // namespace zel
