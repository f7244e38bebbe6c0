// The kernel calls of kernel.h on Windows: each is the system's own call,
// except the library's lock behind mutex and nr_mutex.
//
// That lock is a word holding its owner's thread id: an uncontended take is
// one compare-exchange and a release one store, so neither enters the
// kernel (a kernel mutex costs a system call each way, and under Wine a
// round trip to its server). A thread that must wait counts itself as a
// sleeper and sleeps on the lock's semaphore, which a release posts to when
// it sees a sleeper; a unit left over from a sleeper that timed out only
// costs a later sleeper one more look at the word. Recursion is counted by
// the owner.
//
// Abandonment: each thread keeps a list of the recursive locks it holds,
// plus the one it is taking or giving back at that moment, in a record
// registered by thread id. When a thread ends, the DLL's thread-detach
// notification walks its list; a thread ended by terminate_thread gets no
// notification, so terminate_thread walks it once the thread is gone. Every
// lock on the list passes to its next taker as abandoned (wait_abandoned_0).
// A lock that is not recursive is on no list and is never reported.
//
// Lock handles are heap objects tagged in their lowest bit, which kernel
// handles never use, so that close_handle and the waits tell them apart.
#include "kernel.h"

#include <cerrno>
#include <cstdint>
#include <new>

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

void thread_detached() noexcept;

namespace {

// ---------------------------------------------------------------------------
// The library's lock

struct lock_object {
    explicit lock_object(HANDLE wake_semaphore, bool is_recursive) noexcept
        : wake(wake_semaphore), recursive(is_recursive) {}
    ~lock_object() { CloseHandle(wake); }

    std::atomic<std::uint32_t> owner{0};  // the owner's thread id; 0 when free
    std::atomic<std::int32_t> sleepers{0};
    HANDLE wake;
    bool const recursive;
    unsigned depth = 0;      // the owner's takes
    bool abandoned = false;  // written before the word is freed, read by the next owner
    lock_object* previous = nullptr;  // the owner's list of held locks
    lock_object* next = nullptr;
};

// A thread's held recursive locks.
struct thread_record {
    std::uint32_t id;
    lock_object* held = nullptr;
    lock_object* pending = nullptr;  // being taken or given back
    thread_record* next_record = nullptr;
};

constexpr std::uintptr_t lock_tag = 1;

bool is_lock(handle h) noexcept { return (reinterpret_cast<std::uintptr_t>(h) & lock_tag) != 0; }

lock_object* as_lock(handle h) noexcept {
    return reinterpret_cast<lock_object*>(reinterpret_cast<std::uintptr_t>(h) & ~lock_tag);
}

// The records of every thread that holds or held a recursive lock, by id.
// Taken when a thread takes its first recursive lock and when it ends,
// never on the way to or from a lock.
SRWLOCK registry_lock = SRWLOCK_INIT;
thread_record* registry = nullptr;

DWORD record_slot() noexcept {
    static DWORD const slot = TlsAlloc();
    return slot;
}

thread_record* current_record() noexcept {
    auto* r = static_cast<thread_record*>(TlsGetValue(record_slot()));
    if (r != nullptr)
        return r;
    r = new (std::nothrow) thread_record{GetCurrentThreadId()};
    if (r == nullptr)
        return nullptr;
    AcquireSRWLockExclusive(&registry_lock);
    r->next_record = registry;
    registry = r;
    ReleaseSRWLockExclusive(&registry_lock);
    TlsSetValue(record_slot(), r);
    return r;
}

// Removes the record of thread `id` from the registry; null when it has none.
thread_record* unregister(std::uint32_t id) noexcept {
    AcquireSRWLockExclusive(&registry_lock);
    thread_record** at = &registry;
    while (*at != nullptr && (*at)->id != id)
        at = &(*at)->next_record;
    thread_record* r = *at;
    if (r != nullptr)
        *at = r->next_record;
    ReleaseSRWLockExclusive(&registry_lock);
    return r;
}

void link_held(thread_record* r, lock_object* m) noexcept {
    m->previous = nullptr;
    m->next = r->held;
    if (r->held != nullptr)
        r->held->previous = m;
    r->held = m;
}

void unlink_held(thread_record* r, lock_object* m) noexcept {
    if (m->previous != nullptr)
        m->previous->next = m->next;
    else if (r->held == m)
        r->held = m->next;
    if (m->next != nullptr)
        m->next->previous = m->previous;
    m->previous = m->next = nullptr;
}

void unlock_word(lock_object* m) noexcept {
    m->owner.store(0);
    if (m->sleepers.load() != 0)
        ReleaseSemaphore(m->wake, 1, nullptr);
}

void abandon(lock_object* m) noexcept {
    m->abandoned = true;
    m->depth = 0;
    m->previous = m->next = nullptr;
    unlock_word(m);
}

// Passes every lock of an ended thread on as abandoned, and frees its record.
void abandon_held(thread_record* r) noexcept {
    if (r == nullptr)
        return;
    if (lock_object* m = r->pending) {
        // Taken but not yet listed, or unlisted but not yet given back.
        bool const listed = m == r->held || m->previous != nullptr || m->next != nullptr;
        if (!listed && m->owner.load() == r->id)
            abandon(m);
        else if (!listed && m->sleepers.load() != 0)
            // Given back, perhaps before its release could wake a sleeper:
            // one more wake costs a sleeper only one more look at the word.
            ReleaseSemaphore(m->wake, 1, nullptr);
    }
    while (lock_object* m = r->held) {
        r->held = m->next;
        abandon(m);
    }
    delete r;
}

bool try_take(lock_object* m, std::uint32_t id) noexcept {
    std::uint32_t expected = 0;
    return m->owner.compare_exchange_strong(expected, id);
}

// Takes the word, spinning a little and then sleeping; false at the time-out.
bool take(lock_object* m, std::uint32_t id, std::uint32_t timeout) noexcept {
    if (try_take(m, id))
        return true;
    if (timeout == 0)
        return false;
    for (int spin = 0; spin < 64; ++spin) {
        YieldProcessor();
        if (m->owner.load(std::memory_order_relaxed) == 0 && try_take(m, id))
            return true;
    }
    ULONGLONG const start = GetTickCount64();
    m->sleepers.fetch_add(1);
    bool taken = false;
    for (;;) {
        // Counted as a sleeper before this look, so a release after it posts.
        if (try_take(m, id)) {
            taken = true;
            break;
        }
        DWORD wait = INFINITE;
        if (timeout != infinite) {
            ULONGLONG const spent = GetTickCount64() - start;
            if (spent >= timeout)
                break;
            wait = static_cast<DWORD>(timeout - spent);
        }
        if (WaitForSingleObject(m->wake, wait) == WAIT_FAILED)
            break;
    }
    m->sleepers.fetch_sub(1);
    return taken;
}

} // namespace

// The DLL's notification for each thread that ends by returning or exiting.
void thread_detached() noexcept {
    DWORD const slot = record_slot();
    auto* r = static_cast<thread_record*>(TlsGetValue(slot));
    if (r == nullptr)
        return;
    TlsSetValue(slot, nullptr);
    unregister(r->id);
    abandon_held(r);
}

handle create_mutex() noexcept { return CreateMutexA(nullptr, FALSE, nullptr); }

bool release_mutex(handle mutex) noexcept {
    return !is_lock(mutex) && ReleaseMutex(mutex) != 0;
}

handle create_lock(bool recursive) noexcept {
    HANDLE wake = CreateSemaphoreA(nullptr, 0, 0x7FFFFFFF, nullptr);
    if (wake == nullptr)
        return nullptr;
    auto* m = new (std::nothrow) lock_object(wake, recursive);
    if (m == nullptr) {
        CloseHandle(wake);
        return nullptr;
    }
    return reinterpret_cast<handle>(reinterpret_cast<std::uintptr_t>(m) | lock_tag);
}

std::uint32_t acquire_lock(handle lock, std::uint32_t timeout) noexcept {
    if (!is_lock(lock))
        return wait_failed;
    lock_object* m = as_lock(lock);
    std::uint32_t const id = GetCurrentThreadId();
    if (!m->recursive)
        return take(m, id, timeout) ? wait_object_0 : wait_timeout;
    if (m->owner.load(std::memory_order_relaxed) == id) {
        ++m->depth;
        return wait_object_0;
    }
    thread_record* r = current_record();
    if (r == nullptr)
        return wait_failed;
    r->pending = m;
    if (!take(m, id, timeout)) {
        r->pending = nullptr;
        return wait_timeout;
    }
    m->depth = 1;
    link_held(r, m);
    r->pending = nullptr;
    if (m->abandoned) {
        m->abandoned = false;
        return wait_abandoned_0;
    }
    return wait_object_0;
}

bool release_lock(handle lock) noexcept {
    if (!is_lock(lock))
        return false;
    lock_object* m = as_lock(lock);
    std::uint32_t const id = GetCurrentThreadId();
    if (m->owner.load(std::memory_order_relaxed) != id)
        return false;
    if (!m->recursive) {
        unlock_word(m);
        return true;
    }
    if (--m->depth != 0)
        return true;
    thread_record* r = current_record();
    r->pending = m;
    unlink_held(r, m);
    unlock_word(m);
    r->pending = nullptr;
    return true;
}

bool wait_on_address(std::atomic<std::uint32_t>& word, std::uint32_t expected,
                     std::uint32_t timeout) noexcept {
    static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t), "a plain word");
    if (WaitOnAddress(&word, &expected, sizeof expected, timeout))
        return true;
    return GetLastError() != ERROR_TIMEOUT;
}

void wake_by_address_all(std::atomic<std::uint32_t>& word) noexcept { WakeByAddressAll(&word); }

handle create_semaphore(std::int32_t initial, std::int32_t maximum) noexcept {
    if (maximum <= 0 || initial < 0 || initial > maximum)
        return nullptr;
    return CreateSemaphoreA(nullptr, initial, maximum, nullptr);
}

bool release_semaphore(handle semaphore, std::int32_t count) noexcept {
    if (count <= 0 || is_lock(semaphore))
        return false;
    return ReleaseSemaphore(semaphore, count, nullptr) != 0;
}

handle create_event(bool manual_reset) noexcept {
    return CreateEventA(nullptr, manual_reset ? TRUE : FALSE, FALSE, nullptr);
}

bool pulse_event(handle event) noexcept { return !is_lock(event) && PulseEvent(event) != 0; }

std::uint32_t wait_for_single_object(handle object, std::uint32_t timeout) noexcept {
    if (object == nullptr)
        return wait_failed;
    if (is_lock(object))
        return acquire_lock(object, timeout);
    return WaitForSingleObject(object, timeout);
}

std::uint32_t wait_for_multiple_objects(std::uint32_t count, handle const* objects,
                                        std::uint32_t timeout) noexcept {
    if (count == 0 || count > maximum_wait_objects || objects == nullptr)
        return wait_failed;
    // Locks are not kernel objects: they cannot be waited on together.
    for (std::uint32_t i = 0; i < count; ++i)
        if (objects[i] == nullptr || is_lock(objects[i]))
            return wait_failed;
    return WaitForMultipleObjects(count, objects, FALSE, timeout);
}

bool close_handle(handle object) noexcept {
    if (object == nullptr)
        return false;
    if (!is_lock(object))
        return CloseHandle(object) != 0;
    // A lock closed while the caller holds it leaves the caller's list.
    lock_object* m = as_lock(object);
    if (m->recursive && m->owner.load(std::memory_order_relaxed) == GetCurrentThreadId())
        unlink_held(current_record(), m);
    delete m;
    return true;
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

std::uint32_t suspend_thread(handle thread) noexcept {
    return is_lock(thread) ? 0xFFFFFFFFu : SuspendThread(thread);
}

std::uint32_t resume_thread(handle thread) noexcept {
    return is_lock(thread) ? 0xFFFFFFFFu : ResumeThread(thread);
}

// TerminateThread only starts the end of another thread, and the thread
// gets no detach notification. The call returns once the thread is gone,
// as the emulation's does, with its locks passed on as abandoned.
bool terminate_thread(handle thread, std::uint32_t exit_code) noexcept {
    if (thread == nullptr || is_lock(thread))
        return false;
    std::uint32_t const id = GetThreadId(thread);
    if (id == GetCurrentThreadId()) {
        thread_detached();
        TerminateThread(thread, exit_code);
        return false;  // not reached
    }
    if (TerminateThread(thread, exit_code) == 0)
        return false;
    WaitForSingleObject(thread, INFINITE);
    abandon_held(unregister(id));
    return true;
}

} // namespace kernel
} // namespace zel

// Every thread that ends by returning or exiting passes through here.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID);
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_THREAD_DETACH)
        zel::kernel::thread_detached();
    return TRUE;
}
