// Guards and primitives: the zero time-out rule, recursion and ownership,
// abandonment, the semaphore's release arithmetic, the condition's waiter
// count, the gateway's pulses, copies, creation failures, and counters
// incremented under every guard by several threads.
#include <zel/guards.h>
#include <zel/monitor.h>

#include <atomic>
#include <initializer_list>
#include <thread>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include "support/allocation_hook.h"
#include "support/concurrency.h"
#include "support/platform.h"

namespace {

using zel_test::eventually;
using zel_test::patience_ms;

constexpr char const* guards_file = "src/win32/guards.cpp";

// The answer of g.try_acquire(timeout) on another thread, which releases
// what it took.
bool other_thread_takes(zel::guard& g, unsigned timeout = 20) {
    return zel_test::taken_by_another_thread([&] { return g.try_acquire(timeout); }, [&] { g.release(); });
}

// The owner re-enters a mutex; an nr_mutex makes its owner's second attempt
// wait like anyone's. Only the owner releases either.
TEST(Mutex, OwnerReentersOnlyARecursiveMutexAndStrangersCannotRelease) {
    zel::mutex m;
    zel::nr_mutex nr;
    for (zel::guard* g : std::initializer_list<zel::guard*>{&m, &nr}) {
        bool const recursive = g == &m;
        SCOPED_TRACE(recursive);
        ASSERT_TRUE(g->try_acquire(1));
        EXPECT_EQ(g->try_acquire(20), recursive);
        if (recursive) {
            g->acquire();
            g->release();
            g->release();
        }
        EXPECT_FALSE(other_thread_takes(*g)) << "still held once";
        std::thread([g] { g->release(); }).join();
        EXPECT_FALSE(other_thread_takes(*g)) << "a stranger's release is ignored";
        g->release();
        EXPECT_TRUE(other_thread_takes(*g));
    }
}

TEST(Mutex, AbandonedMutexesAreReportedOnlyByTryAcquireAndThenOwned) {
    zel::mutex m;
    std::thread([&] { m.acquire(); }).join();  // ends holding it
    zel_test::expect_sync_error([&] { m.try_acquire(patience_ms); }, "abandoned mutex",
                                guards_file);
    EXPECT_FALSE(other_thread_takes(m)) << "the caller owns it after the report";
    m.release();
    EXPECT_TRUE(other_thread_takes(m));

    std::thread([&] { m.acquire(); }).join();
    m.acquire();  // no report: simply owned
    EXPECT_FALSE(other_thread_takes(m));
    m.release();
    EXPECT_TRUE(other_thread_takes(m));

    // A thread that ends holding two locks, taken and released out of order,
    // abandons both; one it closed while holding it has left its list.
    zel::mutex second;
    std::thread([&] {
        m.acquire();
        second.acquire();
        m.acquire();
        m.release();
        zel::mutex gone;  // held and closed: leaves the thread's list
        gone.acquire();
    }).join();
    zel_test::expect_sync_error([&] { second.try_acquire(patience_ms); }, "abandoned mutex",
                                guards_file);
    zel_test::expect_sync_error([&] { m.try_acquire(patience_ms); }, "abandoned mutex",
                                guards_file);
    EXPECT_TRUE(m.try_acquire(1)) << "owned once after the report, and recursive";
    m.release();
    m.release();
    second.release();
    EXPECT_TRUE(other_thread_takes(m));
    EXPECT_TRUE(other_thread_takes(second));
}

// The units a semaphore holds now, taken one by one.
int drain(zel::semaphore& s) {
    int units = 0;
    while (s.try_acquire(1))
        ++units;
    return units;
}

TEST(Semaphore, CountsDownAndReleaseOfNFollowsItsSteps) {
    zel::semaphore s(2);
    EXPECT_EQ(drain(s), 2);
    s.release(1);  // one step of 0 units, which fails
    EXPECT_EQ(drain(s), 0);
    s.release(2);  // 1
    EXPECT_EQ(drain(s), 1);
    s.release(3);  // 2, then 1 fails at the maximum
    EXPECT_EQ(drain(s), 2);
    s.release();
    s.release();
    s.release();  // past the maximum: ignored
    EXPECT_EQ(drain(s), 2);
    zel::semaphore wide(10);
    EXPECT_EQ(drain(wide), 10);
    wide.release(4);  // 3 + 2 + 1
    EXPECT_EQ(drain(wide), 6);
    wide.release(6);  // 5 + 4, then 3 would pass the maximum of 10
    EXPECT_EQ(drain(wide), 9);
}

TEST(Condition, WaitersAreSignalledUnderTheMutex) {
    zel::mutex m;
    zel::condition c(m);
    int items = 0;
    int taken = 0;
    std::thread consumer([&] {
        m.acquire();
        for (int i = 0; i < 3; ++i) {
            while (items == 0)
                if (!c.try_wait(patience_ms))
                    return;  // the mutex is not held after a time-out
            --items;
            ++taken;
        }
        m.release();
    });
    for (int i = 0; i < 3; ++i) {
        m.acquire();
        ++items;
        c.signal();
        m.release();
        zel_test::pause_ms(2);
    }
    consumer.join();
    EXPECT_EQ(taken, 3);
}

TEST(Condition, TimedOutWaitLeavesMutexReleasedAndCountRaised) {
    zel::mutex m;
    zel::condition c(m);
    m.acquire();
    long long ms = zel_test::elapsed_ms([&] { EXPECT_FALSE(c.try_wait(10)); });
    EXPECT_GE(ms, 9);
    EXPECT_TRUE(other_thread_takes(m)) << "the caller no longer holds the mutex";

    // One real waiter, but the count says two: a broadcast lets two units
    // through, and the extra one lets a later waiter straight through.
    std::atomic<bool> counted{false};
    std::atomic<bool> woken{false};
    std::thread waiter([&] {
        m.acquire();
        counted = true;
        woken = c.try_wait(patience_ms);
        m.release();
    });
    EXPECT_TRUE(eventually([&] { return counted.load(); }));
    m.acquire();
    c.broadcast();
    m.release();
    waiter.join();
    EXPECT_TRUE(woken);
    m.acquire();
    long long extra = zel_test::elapsed_ms([&] { EXPECT_TRUE(c.try_wait(patience_ms)); });
    EXPECT_LT(extra, 1000 * zel_test::time_scale()) << "the extra unit lets this waiter straight through";
    m.release();
}

// A signal lets one waiter through, a broadcast the rest; neither reaches a
// later waiter, and a pulse with no waiter is not kept.
TEST(Gateway, SignalLetsOneThroughAndBroadcastOnlyThoseWaiting) {
    zel::gateway g;
    std::atomic<int> started{0};
    std::atomic<int> through{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
        waiters.emplace_back([&] {
            ++started;
            if (g.try_wait(patience_ms))
                ++through;
        });
    EXPECT_TRUE(eventually([&] { return started == 3; }));
    zel_test::pause_ms(50);  // let them reach the wait
    g.signal();
    EXPECT_TRUE(eventually([&] { return through == 1; }));
    zel_test::pause_ms(30);
    EXPECT_EQ(through, 1) << "a signal lets at most one through";
    g.broadcast();
    for (auto& t : waiters)
        t.join();
    EXPECT_EQ(through, 3);
    EXPECT_FALSE(g.try_wait(50)) << "a later waiter is not let through";
    g.signal();
    g.broadcast();
    EXPECT_FALSE(g.try_wait(30)) << "a pulse with no waiter is not kept";
    EXPECT_FALSE(g.try_wait(0));
}

TEST(NullGuards, DoNothingAndAlwaysSucceed) {
    zel::null_guard g;
    zel::null_mutex m;
    zel::null_semaphore s;
    zel::null_condition c;
    zel::null_monitor n;
    EXPECT_TRUE(g.try_acquire(0));
    EXPECT_TRUE(m.try_acquire(0));
    EXPECT_TRUE(s.try_acquire(0));
    s.release(5);
    EXPECT_TRUE(c.try_wait(0));
    c.wait();
    EXPECT_TRUE(n.try_acquire_for_writing(0));
    EXPECT_TRUE(n.try_acquire_for_reading(0));
}

TEST(Copies, AreIndependentAndAssignmentCopiesNothing) {
    zel::mutex m;
    m.acquire();
    zel::mutex copy(m);
    EXPECT_TRUE(other_thread_takes(copy)) << "a copy is a new, free mutex";
    copy = m;
    EXPECT_TRUE(other_thread_takes(copy));
    m.release();

    zel::semaphore s(3);
    zel::semaphore one(s);  // one unit unless told otherwise
    zel::semaphore two(s, 2);
    EXPECT_TRUE(one.try_acquire(1));
    EXPECT_FALSE(one.try_acquire(1));
    EXPECT_TRUE(two.try_acquire(1));
    EXPECT_TRUE(two.try_acquire(1));
    EXPECT_FALSE(two.try_acquire(1));

    zel::condition c(m);
    zel::condition c2(c);  // bound to the same mutex
    m.acquire();
    EXPECT_FALSE(c2.try_wait(5));
    EXPECT_TRUE(other_thread_takes(m)) << "c2 released the shared mutex";
}

// The size of the one kernel object `make()` allocates.
template <class Make>
std::size_t kernel_object_size(Make make) {
    make();
    return zel_test::last_request();
}

TEST(Creation, FailureRaisesHandleCreationFailed) {
    ZEL_REQUIRE(kernel_objects_on_the_heap);
    auto fails = [](auto make) { zel_test::expect_sync_error(make, "Handle creation failed", guards_file); };
    {
        zel_test::failing_size fail(kernel_object_size([] { zel::mutex m; }));
        fails([] { zel::mutex m; });
        fails([] { zel::nr_mutex m; });
        fails([] { zel::monitor_v1 m; });
    }
    {
        zel_test::failing_size fail(kernel_object_size([] { zel::semaphore s(1); }));
        fails([] { zel::semaphore s(1); });
    }
    zel_test::failing_size fail(kernel_object_size([] { zel::gateway g; }));
    fails([] { zel::gateway g; });
}

// Every guard alike. A zero time-out makes no attempt, even on a free
// guard. The uncontended paths are inline; a thread whose first call into
// the library is an acquire has no id yet and goes the long way, for a free
// guard and for one it must wait for. Then threads add to one counter under
// the guard, and the total is exact.
TEST(Stress, EveryGuardWaitsWakesAndKeepsACounterExact) {
    zel::mutex m;
    zel::nr_mutex nr;
    zel::semaphore s(1);
    zel::simple_monitor sm;
    zel::monitor_v1 v1;
    zel::monitor_v2 v2;
    for (zel::guard* g : std::initializer_list<zel::guard*>{&m, &nr, &s, &sm, &v1, &v2}) {
        SCOPED_TRACE(typeid(*g).name());
        ASSERT_FALSE(g->try_acquire(0)) << "a zero time-out makes no attempt";
        std::thread([g] { g->acquire(); g->release(); }).join();
        g->acquire();
        std::atomic<bool> took{false};
        std::thread waiter([g, &took] { g->acquire(); took = true; g->release(); });
        zel_test::pause_ms(20);
        EXPECT_FALSE(took.load());
        g->release();
        waiter.join();
        EXPECT_TRUE(took.load());

        // Half the threads sleep in acquire(), half in timed takes; the
        // mutex is taken to depth 3.
        int const depth = g == &m ? 3 : 1;
        long counter = 0;
        std::vector<std::thread> pool;
        for (int t = 0; t < 4; ++t)
            pool.emplace_back([&, t] {
                for (int i = 0; i < 5000; ++i) {
                    if (t % 2 != 0)
                        g->acquire();
                    else if (!g->try_acquire(patience_ms))
                        return;
                    for (int d = 1; d < depth; ++d)
                        g->acquire();
                    long seen = counter;
                    counter = seen + 1;
                    for (int d = 0; d < depth; ++d)
                        g->release();
                }
            });
        for (auto& t : pool)
            t.join();
        EXPECT_EQ(counter, 4L * 5000);
        EXPECT_TRUE(other_thread_takes(*g));
    }
}

} // namespace
