// The monitors: simple_monitor over one mutex, and the readers-writers
// monitors monitor_v1 (readers first) and monitor_v2 (writers first) over a
// count mutex, a resource semaphore and, for monitor_v2, a gate.
#include <zel/monitor.h>

#include <zel/stopwatch.h>

#include "kernel.h"

namespace zel {

namespace {

constexpr auto relaxed = std::memory_order_relaxed;

// What is left of `timeout` after the time the watch has measured; 0 (no
// attempt at all) once it is spent.
unsigned remaining(unsigned timeout, stopwatch const& watch) {
    auto spent = static_cast<unsigned>(watch.msec_elapsed());
    return spent < timeout ? timeout - spent : 0;
}

// The writer's bookkeeping, the same in both readers-writers monitors.
struct writing {
    std::atomic<std::uint32_t>& writer;
    std::uint32_t& recursion;

    // True (and one level deeper) when the caller already writes.
    bool reenter() const {
        if (writer.load(relaxed) != kernel::current_thread_id())
            return false;
        ++recursion;
        return true;
    }
    void begin() const {
        writer.store(kernel::current_thread_id(), relaxed);
        recursion = 0;
    }
    // True when the caller's last level ends and the locks are to be given
    // back; false for a level left or a caller that is not the writer.
    bool end() const {
        if (writer.load(relaxed) != kernel::current_thread_id())
            return false;
        if (recursion != 0) {
            --recursion;
            return false;
        }
        writer.store(0, relaxed);
        return true;
    }
};

// The last reader out gives the resource back; with no readers, nothing.
void leave_reading(std::atomic<std::int32_t>& readers, mutex& count_lock, semaphore& resource) {
    if (readers.load(relaxed) == 0)
        return;
    count_lock.acquire();
    if (readers.fetch_sub(1, relaxed) == 1)
        resource.release();
    count_lock.release();
}

} // namespace

monitor_base::~monitor_base() = default;
null_monitor::~null_monitor() = default;

// ---------------------------------------------------------------------------
// simple_monitor

simple_monitor::~simple_monitor() = default;

void simple_monitor::acquire() { mutex_.acquire(); }
void simple_monitor::release() { mutex_.release(); }
bool simple_monitor::try_acquire(unsigned timeout) { return mutex_.try_acquire(timeout); }
void simple_monitor::acquire_for_reading() { mutex_.acquire(); }
void simple_monitor::acquire_for_writing() { mutex_.acquire(); }
void simple_monitor::release_from_reading() { mutex_.release(); }
void simple_monitor::release_from_writing() { mutex_.release(); }
bool simple_monitor::try_acquire_for_reading(unsigned timeout) { return mutex_.try_acquire(timeout); }
bool simple_monitor::try_acquire_for_writing(unsigned timeout) { return mutex_.try_acquire(timeout); }

// ---------------------------------------------------------------------------
// monitor_v1

monitor_v1::monitor_v1() : readers_(0), recursion_(0), writer_(0), resource_(1) {}

monitor_v1::monitor_v1(monitor_v1 const&) : monitor_v1() {}

monitor_v1::~monitor_v1() = default;

void monitor_v1::acquire() { acquire_for_writing(); }
void monitor_v1::release() { release_from_writing(); }
bool monitor_v1::try_acquire(unsigned timeout) { return try_acquire_for_writing(timeout); }

void monitor_v1::acquire_for_reading() {
    count_lock_.acquire();
    // The first reader takes the resource while still holding the count
    // mutex, so later readers wait on the mutex until it is in.
    if (readers_.fetch_add(1, relaxed) == 0)
        resource_.acquire();
    count_lock_.release();
}

void monitor_v1::release_from_reading() { leave_reading(readers_, count_lock_, resource_); }

void monitor_v1::acquire_for_writing() {
    writing w{writer_, recursion_};
    if (w.reenter())
        return;
    resource_.acquire();
    w.begin();
}

void monitor_v1::release_from_writing() {
    if (writing{writer_, recursion_}.end())
        resource_.release();
}

bool monitor_v1::try_acquire_for_reading(unsigned timeout) {
    if (timeout == infinite) {
        acquire_for_reading();
        return true;
    }
    stopwatch watch(true);
    if (!count_lock_.try_acquire(timeout))
        return false;
    bool acquired = true;
    // A failed attempt leaves the count raised (see the header).
    if (readers_.fetch_add(1, relaxed) == 0)
        acquired = resource_.try_acquire(remaining(timeout, watch));
    count_lock_.release();
    return acquired;
}

bool monitor_v1::try_acquire_for_writing(unsigned timeout) {
    if (timeout == infinite) {
        acquire_for_writing();
        return true;
    }
    writing w{writer_, recursion_};
    if (w.reenter())
        return true;
    if (!resource_.try_acquire(timeout))
        return false;
    w.begin();
    return true;
}

// ---------------------------------------------------------------------------
// monitor_v2

monitor_v2::monitor_v2() : readers_(0), recursion_(0), writer_(0), resource_(1) {}

monitor_v2::monitor_v2(monitor_v2 const&) : monitor_v2() {}

monitor_v2::~monitor_v2() = default;

void monitor_v2::acquire() { acquire_for_writing(); }
void monitor_v2::release() { release_from_writing(); }
bool monitor_v2::try_acquire(unsigned timeout) { return try_acquire_for_writing(timeout); }

// The gate stays held for the whole write.
void monitor_v2::lock() {
    gate_.acquire();
    resource_.acquire();
}

bool monitor_v2::try_lock(unsigned timeout) {
    stopwatch watch(true);
    if (!gate_.try_acquire(timeout))
        return false;
    if (resource_.try_acquire(remaining(timeout, watch)))
        return true;
    gate_.release();
    return false;
}

void monitor_v2::acquire_for_reading() {
    gate_.acquire();
    count_lock_.acquire();
    if (readers_.fetch_add(1, relaxed) == 0)
        resource_.acquire();
    count_lock_.release();
    gate_.release();
}

void monitor_v2::release_from_reading() { leave_reading(readers_, count_lock_, resource_); }

void monitor_v2::acquire_for_writing() {
    writing w{writer_, recursion_};
    if (w.reenter())
        return;
    lock();
    w.begin();
}

void monitor_v2::release_from_writing() {
    if (writing{writer_, recursion_}.end()) {
        resource_.release();
        gate_.release();
    }
}

bool monitor_v2::try_acquire_for_reading(unsigned timeout) {
    if (timeout == infinite) {
        acquire_for_reading();
        return true;
    }
    stopwatch watch(true);
    if (!gate_.try_acquire(timeout))
        return false;
    unsigned r1 = remaining(timeout, watch);
    bool acquired = count_lock_.try_acquire(r1);
    if (acquired) {
        // Measured from r1 with all the time since the start: the first wait
        // counts twice (see the header).
        if (readers_.fetch_add(1, relaxed) == 0)
            acquired = resource_.try_acquire(remaining(r1, watch));
        count_lock_.release();
    }
    gate_.release();
    return acquired;
}

bool monitor_v2::try_acquire_for_writing(unsigned timeout) {
    if (timeout == infinite) {
        acquire_for_writing();
        return true;
    }
    writing w{writer_, recursion_};
    if (w.reenter())
        return true;
    if (!try_lock(timeout))
        return false;
    w.begin();
    return true;
}

} // namespace zel
