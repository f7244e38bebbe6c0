// Monitors: guards with two kinds of access, shared for reading and
// exclusive for writing. A class picks its locking policy at construction
// through monitor_base:
//   null_monitor    no locking at all;
//   simple_monitor  one mutex: readers exclude each other too;
//   monitor_v1      readers first: a steady stream of readers can keep a
//                   writer out indefinitely;
//   monitor_v2      writers first: a waiting writer holds the gate, so no new
//                   reader gets in before it.
//
// The writer is known by thread id and may re-enter; it must release as
// often as it acquired. Readers are not known: any thread's
// release_from_reading lowers the count. A writer that asks for read access,
// or a reader that asks for write access, deadlocks in monitor_v1 and
// monitor_v2. Time-outs follow the guards' rules (guards.h): 0 makes no
// attempt, `infinite` waits as long as it takes; a timed form spends one
// time-out across all the waits it makes.
//
// Copies are fresh monitors (no readers, no writer); operator= copies
// nothing. Errors of the underlying mutexes propagate.
//
// In monitor_v1 and monitor_v2 the reader count and the resource (the unit
// readers as a group and writers take in turn) live in one atomic word,
// beside marks saying that the count mutex (and monitor_v2's gate) is held.
// A reader that finds neither held, and no writer holding the resource when
// it is the first, enters or leaves with one compare-exchange and no kernel
// call; everything else takes the mutexes in the documented order, so every
// rule below holds on both paths.
#ifndef ZEL_MONITOR_H
#define ZEL_MONITOR_H

#include <atomic>
#include <cstdint>

#include <zel/config.h>
#include <zel/guards.h>

namespace zel {

class ZEL_API monitor_base : public guard {
public:
    // acquire, release and try_acquire (from guard) are the write forms,
    // except in simple_monitor, where every form is the same.
    virtual void acquire_for_reading() = 0;
    virtual void acquire_for_writing() = 0;
    virtual void release_from_reading() = 0;
    virtual void release_from_writing() = 0;
    virtual bool try_acquire_for_reading(unsigned timeout) = 0;
    virtual bool try_acquire_for_writing(unsigned timeout) = 0;
    ~monitor_base() override;
};

class ZEL_API null_monitor : public monitor_base {
public:
    void acquire() override {}
    void release() override {}
    bool try_acquire(unsigned) override { return true; }
    void acquire_for_reading() override {}
    void acquire_for_writing() override {}
    void release_from_reading() override {}
    void release_from_writing() override {}
    bool try_acquire_for_reading(unsigned) override { return true; }
    bool try_acquire_for_writing(unsigned) override { return true; }
    ~null_monitor() override;
};

// Every acquire form takes the one (recursive) mutex, every release form
// gives it back.
class ZEL_API simple_monitor : public monitor_base {
public:
    simple_monitor() = default;
    simple_monitor(simple_monitor const&) : monitor_base() {}
    simple_monitor& operator=(simple_monitor const&) noexcept { return *this; }
    ~simple_monitor() override;

    void acquire() override;
    void release() override;
    bool try_acquire(unsigned timeout) override;
    void acquire_for_reading() override;
    void acquire_for_writing() override;
    void release_from_reading() override;
    void release_from_writing() override;
    bool try_acquire_for_reading(unsigned timeout) override;
    bool try_acquire_for_writing(unsigned timeout) override;

private:
    mutex mutex_;
};

// Readers first. The first reader takes the resource for all readers; the
// last gives it back.
//
// Kept behaviours:
//   - when try_acquire_for_reading fails on the resource (a writer holds it
//     past the time-out), the reader count is not taken back. It stays
//     raised with no reader holding the resource, so later readers walk in
//     beside the writer, and the count never returns to 0 by itself: a
//     caller whose timed read fails must call release_from_reading once to
//     undo it;
//   - readers are not identified: a release_from_reading by a thread that
//     does not read still lowers the count, and if it was the last one gives
//     the resource back, letting a writer in beside the reader that is
//     still there. With no readers counted it does nothing at all.
// At most 2^28 - 1 readers are counted at once (left-raised counts
// included); a reader beyond that raises "Wait operation failed".
class ZEL_API monitor_v1 : public monitor_base {
public:
    monitor_v1();
    monitor_v1(monitor_v1 const&);
    monitor_v1& operator=(monitor_v1 const&) noexcept { return *this; }
    ~monitor_v1() override;

    void acquire() override;
    void release() override;
    bool try_acquire(unsigned timeout) override;
    void acquire_for_reading() override;
    void acquire_for_writing() override;
    // Does nothing when there are no readers.
    void release_from_reading() override;
    // Does nothing unless the caller is the writer.
    void release_from_writing() override;
    bool try_acquire_for_reading(unsigned timeout) override;
    bool try_acquire_for_writing(unsigned timeout) override;

private:
    // The reader count, the resource and the count mutex's mark (see
    // monitor.cpp); the writer is looked at before any lock is taken and
    // changed only by the thread holding the resource.
    std::atomic<std::uint32_t> state_;
    std::uint32_t recursion_;
    std::atomic<std::uint32_t> writer_;  // thread id, 0 = none
    mutex count_lock_;
};

// Writers first. Readers and writers pass the gate mutex first; a writer
// keeps it for the whole write, so readers that come later wait. Lock order:
// gate, count mutex, resource.
//
// Kept behaviours: as in monitor_v1, a timed read that fails on the resource
// leaves the reader count raised, and any thread's release_from_reading
// lowers the count. A timed read measures the time left for its last wait
// from what was left after the first, so the first wait is subtracted twice
// and the last wait is shorter than the time-out implies. The gate is a
// recursive mutex: a writer's own timed read passes it, then fails on the
// resource it holds (and leaves the count raised).
class ZEL_API monitor_v2 : public monitor_base {
public:
    monitor_v2();
    monitor_v2(monitor_v2 const&);
    monitor_v2& operator=(monitor_v2 const&) noexcept { return *this; }
    ~monitor_v2() override;

    void acquire() override;
    void release() override;
    bool try_acquire(unsigned timeout) override;
    void acquire_for_reading() override;
    void acquire_for_writing() override;
    void release_from_reading() override;
    void release_from_writing() override;
    bool try_acquire_for_reading(unsigned timeout) override;
    bool try_acquire_for_writing(unsigned timeout) override;

private:
    void lock();
    bool try_lock(unsigned timeout);
    struct gate_pass;
    void enter_gate();
    void leave_gate();

    std::atomic<std::uint32_t> state_;  // as monitor_v1's, and the gate's mark
    std::uint32_t recursion_;
    std::atomic<std::uint32_t> writer_;
    mutex gate_;
    // The gate's holder and depth, kept by the holder so that the mark
    // goes when its outermost hold ends.
    std::uint32_t gate_owner_;
    std::uint32_t gate_depth_;
    mutex count_lock_;
};

} // namespace zel

#endif
