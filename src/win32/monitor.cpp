// The monitors: simple_monitor over one mutex, and the readers-writers
// monitors monitor_v1 (readers first) and monitor_v2 (writers first) over a
// count mutex, a resource and, for monitor_v2, a gate mutex.
//
// The readers-writers monitors follow the documented algorithms step by step
// (count mutex, then the count, then the resource for the first reader or
// the last), with one change of representation: the reader count and the
// one-unit resource live in a single atomic word, together with a mark that
// the count mutex is held (and, in monitor_v2, one that the gate is held).
//
//   bits 0-27  the reader count
//   bit 28     the resource is taken (by the readers as a group or a writer)
//   bit 29     the count mutex is held (set just after taking it, cleared
//              just before giving it back)
//   bit 30     the gate is held (monitor_v2: from the outermost take to the
//              outermost release)
//   bit 31     threads may sleep on the word, waiting for the resource
//
// A reader whose step would run while neither mark is set does that step as
// one compare-exchange on the word: entering with readers already counted
// is "count + 1", entering as the first with the resource free is "count 1,
// resource taken", leaving is "count - 1", and the last leaves with the
// resource given back. With a mark set, the count mutex held would make the
// reader wait, so it takes the documented slow path, which changes the count
// only while holding the count mutex with its mark set: the two paths never
// interleave. A reader that would have to wait for the resource also takes
// the slow path, and so holds the count mutex while it waits, as documented.
//
// The resource is a semaphore of one unit: taking it is setting bit 28,
// giving it back clears the bit, and giving back a free resource fails
// without effect, as a semaphore at its maximum does. A waiter spins a
// little, then sets bit 31 and sleeps on the word; whoever gives the
// resource back wakes the sleepers when the bit is set.
#include <zel/monitor.h>

#include <zel/exception.h>
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
    // A writer's way in: one level deeper for the writer, for anyone else
    // `take` (the monitor's own locks) and, when it succeeds, the writer's
    // place.
    template <class Take>
    bool enter(Take take) const {
        if (reenter())
            return true;
        if (!take())
            return false;
        begin();
        return true;
    }
};

// The state word (see the top of this file).
constexpr std::uint32_t reader_mask = (1u << 28) - 1;
constexpr std::uint32_t resource_taken = 1u << 28;
constexpr std::uint32_t count_held = 1u << 29;
constexpr std::uint32_t gate_held = 1u << 30;
constexpr std::uint32_t sleepers = 1u << 31;

using word = std::atomic<std::uint32_t>;
constexpr auto acq_rel = std::memory_order_acq_rel;

std::uint32_t readers_in(std::uint32_t s) { return s & reader_mask; }

// The word once a reader has entered: one more counted, and the resource
// taken by the first. 0 when the reader cannot enter in one step (the first
// finds the resource taken, or the count is full).
std::uint32_t entered(std::uint32_t s) {
    std::uint32_t n = readers_in(s);
    if (n == reader_mask)
        return 0;
    if (n != 0)
        return s + 1;
    return (s & resource_taken) ? 0 : (s + 1) | resource_taken;
}

// The word once a reader has left (readers_in(s) > 0): the last one gives
// the resource back, and takes the sleepers' mark with it (the caller wakes
// them).
std::uint32_t left(std::uint32_t s) {
    return readers_in(s) == 1 ? (s - 1) & ~(resource_taken | sleepers) : s - 1;
}

// A reader's entry in one step, when none of `marks` is set; false when the
// documented path must be taken.
bool try_enter_fast(word& state, std::uint32_t marks) {
    std::uint32_t s = state.load(relaxed);
    while (!(s & marks)) {
        std::uint32_t n = entered(s);
        if (n == 0)
            return false;
        if (state.compare_exchange_weak(s, n, acq_rel, relaxed))
            return true;
    }
    return false;
}

// Gives the resource back: a free resource stays as it is (the semaphore's
// release at its maximum fails); sleepers are woken.
void release_resource(word& state) {
    std::uint32_t s = state.load(relaxed);
    do {
        if (!(s & resource_taken))
            return;
    } while (!state.compare_exchange_weak(s, s & ~(resource_taken | sleepers), acq_rel, relaxed));
    if (s & sleepers)
        kernel::wake_by_address_all(state);
}

// The waiting part of take_resource: a short spin, since a holder with a
// short critical section gives the resource back within a few hundred
// cycles, then sleeps on the word until woken or out of time.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
bool take_resource_waiting(word& state, unsigned timeout) {
    stopwatch watch(true);
    for (int spins = 0;;) {
        std::uint32_t s = state.load(relaxed);
        if (!(s & resource_taken)) {
            if (state.compare_exchange_weak(s, s | resource_taken, acq_rel, relaxed))
                return true;
            continue;
        }
        if (spins < 64) {
            ++spins;
#if defined(__x86_64__) || defined(__i386__)
            __builtin_ia32_pause();
#endif
            continue;
        }
        if (!(s & sleepers) && !state.compare_exchange_weak(s, s | sleepers, relaxed, relaxed))
            continue;
        unsigned left_ms = timeout == infinite ? infinite : remaining(timeout, watch);
        if (left_ms == 0)
            return false;
        kernel::wait_on_address(state, s | sleepers, left_ms);
    }
}

// Takes the resource within `timeout`, as the semaphore's try_acquire: a
// time-out of 0 makes no attempt.
bool take_resource(word& state, unsigned timeout) {
    if (timeout == 0)
        return false;
    std::uint32_t s = state.load(relaxed);
    while (!(s & resource_taken))
        if (state.compare_exchange_weak(s, s | resource_taken, acq_rel, relaxed))
            return true;
    return take_resource_waiting(state, timeout);
}

// Holding the count mutex, with its mark set for as long as it is held. The
// mark is set after the mutex is taken and cleared before it is given back,
// so a mark left by a holder that ended goes with the next holder.
class count_section {
public:
    count_section(word& state, mutex& count_lock) : state_(state), lock_(count_lock) {
        state_.fetch_or(count_held, acq_rel);
    }
    ~count_section() {
        state_.fetch_and(~count_held, acq_rel);
        lock_.release();
    }
    count_section(count_section const&) = delete;
    count_section& operator=(count_section const&) = delete;

    // One more reader; true when it is the first. Nobody else changes the
    // count meanwhile: the mark keeps the one-step paths out.
    bool add_reader() {
        std::uint32_t s = state_.load(relaxed);
        if (readers_in(s) == reader_mask)
            ZEL_THROW(sync_error("Wait operation failed"));
        return readers_in(state_.fetch_add(1, acq_rel)) == 0;
    }
    // One reader less, when there is one (looked at again here, so that two
    // stray releases racing for the last reader lower the count once); the
    // last gives the resource back.
    void remove_reader() {
        if (readers_in(state_.load(relaxed)) == 0)
            return;
        if (readers_in(state_.fetch_sub(1, acq_rel)) == 1)
            release_resource(state_);
    }

private:
    word& state_;
    mutex& lock_;
};

// The last reader out gives the resource back; with no readers, nothing.
void leave_reading(word& state, mutex& count_lock) {
    std::uint32_t s = state.load(relaxed);
    for (;;) {
        if (readers_in(s) == 0)
            return;
        if (s & count_held)
            break;
        if (state.compare_exchange_weak(s, left(s), acq_rel, relaxed)) {
            if (readers_in(s) == 1 && (s & sleepers))
                kernel::wake_by_address_all(state);
            return;
        }
    }
    count_lock.acquire();
    count_section(state, count_lock).remove_reader();
}

// A timed read's way in, the same in both readers-writers monitors: with no
// time-out it waits as `block` does, a zero time-out makes no attempt on any
// mutex, the one-step path needs none (`marks`: the mutex marks that send
// it to the mutexes); only then `wait`, with the whole time-out.
template <class Block, class Wait>
bool timed_read(word& state, std::uint32_t marks, unsigned timeout, Block block, Wait wait) {
    if (timeout == infinite) {
        block();
        return true;
    }
    if (timeout == 0)
        return false;
    if (try_enter_fast(state, marks))
        return true;
    return wait();
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

monitor_v1::monitor_v1() : state_(0), recursion_(0), writer_(0) {}

monitor_v1::monitor_v1(monitor_v1 const&) : monitor_v1() {}

monitor_v1::~monitor_v1() = default;

void monitor_v1::acquire() { acquire_for_writing(); }
void monitor_v1::release() { release_from_writing(); }
bool monitor_v1::try_acquire(unsigned timeout) { return try_acquire_for_writing(timeout); }

void monitor_v1::acquire_for_reading() {
    if (try_enter_fast(state_, count_held))
        return;
    count_lock_.acquire();
    count_section count(state_, count_lock_);
    // The first reader takes the resource while still holding the count
    // mutex, so later readers wait on the mutex until it is in.
    if (count.add_reader())
        take_resource(state_, infinite);
}

void monitor_v1::release_from_reading() { leave_reading(state_, count_lock_); }

void monitor_v1::acquire_for_writing() {
    writing{writer_, recursion_}.enter([this] {
        take_resource(state_, infinite);
        return true;
    });
}

void monitor_v1::release_from_writing() {
    if (writing{writer_, recursion_}.end())
        release_resource(state_);
}

bool monitor_v1::try_acquire_for_reading(unsigned timeout) {
    return timed_read(state_, count_held, timeout, [this] { acquire_for_reading(); }, [&] {
        stopwatch watch(true);
        if (!count_lock_.try_acquire(timeout))
            return false;
        count_section count(state_, count_lock_);
        // A failed attempt leaves the count raised (see the header).
        if (count.add_reader())
            return take_resource(state_, remaining(timeout, watch));
        return true;
    });
}

bool monitor_v1::try_acquire_for_writing(unsigned timeout) {
    if (timeout == infinite) {
        acquire_for_writing();
        return true;
    }
    return writing{writer_, recursion_}.enter([&] { return take_resource(state_, timeout); });
}

// ---------------------------------------------------------------------------
// monitor_v2

monitor_v2::monitor_v2()
    : state_(0), recursion_(0), writer_(0), gate_owner_(0), gate_depth_(0) {}

monitor_v2::monitor_v2(monitor_v2 const&) : monitor_v2() {}

monitor_v2::~monitor_v2() = default;

void monitor_v2::acquire() { acquire_for_writing(); }
void monitor_v2::release() { release_from_writing(); }
bool monitor_v2::try_acquire(unsigned timeout) { return try_acquire_for_writing(timeout); }

// Called just after the gate is taken. A holder other than the caller is
// one that ended holding it: its depth goes with it.
void monitor_v2::enter_gate() {
    std::uint32_t const me = kernel::current_thread_id();
    if (gate_owner_ != me) {
        gate_owner_ = me;
        gate_depth_ = 0;
    }
    if (gate_depth_++ == 0)
        state_.fetch_or(gate_held, acq_rel);
}

// Gives the gate back; the outermost release clears its mark first.
void monitor_v2::leave_gate() {
    if (--gate_depth_ == 0) {
        gate_owner_ = 0;
        state_.fetch_and(~gate_held, acq_rel);
    }
    gate_.release();
}

// The gate stays held for the whole write.
void monitor_v2::lock() {
    gate_.acquire();
    enter_gate();
    take_resource(state_, infinite);
}

bool monitor_v2::try_lock(unsigned timeout) {
    stopwatch watch(true);
    if (!gate_.try_acquire(timeout))
        return false;
    enter_gate();
    if (take_resource(state_, remaining(timeout, watch)))
        return true;
    leave_gate();
    return false;
}

// Gives the gate back however the reader's pass through it ends.
struct monitor_v2::gate_pass {
    monitor_v2& m;
    ~gate_pass() { m.leave_gate(); }
};

void monitor_v2::acquire_for_reading() {
    if (try_enter_fast(state_, gate_held | count_held))
        return;
    gate_.acquire();
    enter_gate();
    gate_pass pass{*this};
    count_lock_.acquire();
    count_section count(state_, count_lock_);
    if (count.add_reader())
        take_resource(state_, infinite);
}

void monitor_v2::release_from_reading() { leave_reading(state_, count_lock_); }

void monitor_v2::acquire_for_writing() {
    writing{writer_, recursion_}.enter([this] {
        lock();
        return true;
    });
}

void monitor_v2::release_from_writing() {
    if (writing{writer_, recursion_}.end()) {
        release_resource(state_);
        leave_gate();
    }
}

bool monitor_v2::try_acquire_for_reading(unsigned timeout) {
    return timed_read(state_, gate_held | count_held, timeout, [this] { acquire_for_reading(); }, [&] {
        stopwatch watch(true);
        if (!gate_.try_acquire(timeout))
            return false;
        enter_gate();
        gate_pass pass{*this};
        unsigned r1 = remaining(timeout, watch);
        if (!count_lock_.try_acquire(r1))
            return false;
        count_section count(state_, count_lock_);
        // Measured from r1 with all the time since the start: the first
        // wait counts twice (see the header).
        if (count.add_reader())
            return take_resource(state_, remaining(r1, watch));
        return true;
    });
}

bool monitor_v2::try_acquire_for_writing(unsigned timeout) {
    if (timeout == infinite) {
        acquire_for_writing();
        return true;
    }
    return writing{writer_, recursion_}.enter([&] { return try_lock(timeout); });
}

} // namespace zel
