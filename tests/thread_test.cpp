// Threads: the status through start, exit, wait and restart, the misuse
// texts, suspension of a counting thread, termination (also inside a wait),
// starts behind a gateway, and callback threads.
#include <zel/exception.h>
#include <zel/guards.h>
#include <zel/thread.h>

#include <atomic>

#include <gtest/gtest.h>

#include "support/concurrency.h"
#include "support/platform.h"

namespace {

using zel_test::eventually;
using zel_test::expect_sync_error;
using zel_test::patience_ms;

constexpr char const* threads_file = "src/win32/threads.cpp";

// Counts until asked to exit (or terminated); `runs` counts the calls of run().
struct counter_thread : zel::thread {
    void run() override {
        ++runs;
        while (status() != exit_requested) {
            count.fetch_add(1, std::memory_order_relaxed);
            yield();
        }
    }
    std::atomic<long> count{0};
    std::atomic<int> runs{0};
};

// Ends at once.
struct quick_thread : zel::thread {
    void run() override { ++runs; }
    std::atomic<int> runs{0};
};

// Ends when its gate lets it through, or after a while.
struct waiting_thread : zel::thread {
    void run() override { passed = gate.try_wait(patience_ms); }
    zel::gateway gate;
    std::atomic<bool> passed{false};
};

// Lets a test put a thread that never started in any state.
struct pretending_thread : quick_thread {
    void pretend(state s) { set_status(s); }
};

TEST(Thread, StatusFromCreationToDoneAndAgain) {
    quick_thread t;
    EXPECT_EQ(t.status(), zel::thread::created);
    EXPECT_EQ(t.priority(), 25);
    t.prioritize(3);
    EXPECT_EQ(t.priority(), 3);
    t.wait();  // never started: nothing to wait for
    t.terminate();
    EXPECT_EQ(t.status(), zel::thread::created);

    t.start();
    t.wait();
    EXPECT_EQ(t.status(), zel::thread::done);
    EXPECT_EQ(t.runs, 1);
    t.wait();
    EXPECT_EQ(t.status(), zel::thread::done);

    t.start();  // a done thread starts again
    t.wait();
    EXPECT_EQ(t.runs, 2);
    EXPECT_EQ(t.status(), zel::thread::done);
}

TEST(Thread, MisuseTexts) {
    counter_thread t;
    auto not_running = [&] {
        expect_sync_error([&] { t.suspend(); }, "cannot suspend() - thread not running", threads_file);
        expect_sync_error([&] { t.resume(); }, "cannot resume() - thread not running", threads_file);
    };
    not_running();
    t.start();
    expect_sync_error([&] { t.start(); }, "bad thread start", threads_file);
    t.resume();  // running: nothing to do
    t.suspend();
    t.suspend();  // suspended: nothing to do, and no nesting
    expect_sync_error([&] { t.start(); }, "bad thread start", threads_file);
    t.resume();
    EXPECT_EQ(t.status(), zel::thread::running);
    t.exit();
    // Whether the thread has ended yet or not, it is no longer running. (No
    // start() here: a thread that has already ended may be started again.)
    not_running();
    t.wait();
    not_running();
}

TEST(Thread, DestroyingAThreadThatIsNotDoneRaises) {
    { quick_thread never_started; }
    for (auto s : {zel::thread::running, zel::thread::suspended, zel::thread::exit_requested})
        expect_sync_error(
            [&] {
                pretending_thread t;
                t.pretend(s);
            },
            "thread not done", threads_file);
}

// Suspension stops the counting until resume; exit is a request run honours;
// terminate() ends the thread at once, suspended too.
TEST(Thread, SuspendResumeExitAndTerminate) {
    counter_thread t;
    t.start();
    EXPECT_EQ(t.status(), zel::thread::running);
    ASSERT_TRUE(eventually([&] { return t.count > 0; }));
    t.suspend();
    EXPECT_EQ(t.status(), zel::thread::suspended);
    long stopped = t.count;
    zel_test::pause_ms(50);
    EXPECT_EQ(t.count, stopped) << "a suspended thread does not run";
    t.resume();
    EXPECT_EQ(t.status(), zel::thread::running);
    EXPECT_TRUE(eventually([&] { return t.count > stopped; }));
    t.exit();
    zel::thread::state s = t.status();
    EXPECT_TRUE(s == zel::thread::exit_requested || s == zel::thread::done)
        << "the thread may already have seen the request and ended";
    t.wait();
    EXPECT_EQ(t.status(), zel::thread::done);

    // Terminated once it runs, it ends at once without the request.
    stopped = t.count;
    t.start();
    ASSERT_TRUE(eventually([&] { return t.count > stopped; }));
    t.terminate();
    EXPECT_EQ(t.status(), zel::thread::done);
    stopped = t.count;
    zel_test::pause_ms(30);
    EXPECT_EQ(t.count, stopped) << "no more of its code runs";
    t.wait();

    // A suspended thread can be terminated too, and started again.
    t.start();
    ASSERT_TRUE(eventually([&] { return t.count > stopped; }));
    t.suspend();
    t.terminate();
    EXPECT_EQ(t.status(), zel::thread::done);
}

// Terminated before it has run a line, a thread ends as cleanly: the request
// waits until the thread can take it.
TEST(Thread, TerminatedAsItStartsEnds) {
    ZEL_REQUIRE(termination_anywhere);
    counter_thread t;
    for (int round = 0; round < 50; ++round) {
        t.start();
        t.terminate();
        EXPECT_EQ(t.status(), zel::thread::done);
        t.wait();
    }
}

// Takes its mutex twice and gives it back, for ever; `stay` keeps the first
// take held.
struct churner : zel::thread {
    churner(zel::mutex& mx, bool stay_holding = false) : m(mx), stay(stay_holding) {}
    void run() override {
        for (;;) {
            m.acquire();
            m.acquire();
            count.fetch_add(1, std::memory_order_relaxed);
            m.release();
            while (stay)
                yield();
            m.release();
        }
    }
    zel::mutex& m;
    bool const stay;
    std::atomic<long> count{0};
};

TEST(Thread, TerminatedThreadHoldingAMutexAbandonsIt) {
    zel::mutex m;
    churner t(m, true);
    t.start();
    ASSERT_TRUE(eventually([&] { return t.count > 0; }));
    t.terminate();
    expect_sync_error([&] { m.try_acquire(patience_ms); }, "abandoned mutex",
                      "src/win32/guards.cpp");
    m.release();
}

// Ended at any point of its lock calls (taking, recursing, releasing, asleep
// on the word), a thread leaves the mutex free or abandoned, never held, and
// a thread still contending keeps its turn.
TEST(Thread, TerminatedAnywhereInItsLockCallsLeavesTheMutexUsable) {
    ZEL_REQUIRE(termination_anywhere);
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(round);
        zel::mutex m;
        churner ended(m);
        churner going_on(m);
        ended.start();
        going_on.start();
        ASSERT_TRUE(eventually([&] { return ended.count > round % 5 && going_on.count > 0; }));
        ended.terminate();
        long const before = going_on.count;
        EXPECT_TRUE(eventually([&] { return going_on.count > before + 100; }));
        going_on.terminate();
        bool taken = false;
        try {
            taken = m.try_acquire(patience_ms);
        } catch (zel::xexception const&) {
            taken = true;  // abandoned: owned all the same
        }
        ASSERT_TRUE(taken);
        m.release();
    }
}

TEST(Thread, TerminatedWhileWaitingLeavesTheGatewayUsable) {
    waiting_thread t;
    t.start();
    zel_test::pause_ms(30);  // now waiting at its gate
    long long ms = zel_test::elapsed_ms([&] { t.terminate(); });
    EXPECT_LT(ms, 1000 * zel_test::time_scale()) << "the wait gives up at once";
    EXPECT_FALSE(t.passed);
    // The gate no longer lists the ended waiter.
    t.gate.broadcast();
    EXPECT_FALSE(t.gate.try_wait(10));
}

TEST(Thread, StartSuspendedRunsOnlyWhenTheGatewayOpens) {
    zel::gateway gate;
    quick_thread a;
    quick_thread b;
    a.start_suspended(gate);
    b.start_suspended(gate);
    EXPECT_EQ(a.status(), zel::thread::running);
    zel_test::pause_ms(30);
    EXPECT_EQ(a.runs + b.runs, 0);
    gate.signal();
    EXPECT_TRUE(eventually([&] { return a.runs + b.runs == 1; }));
    gate.broadcast();
    EXPECT_TRUE(eventually([&] { return a.runs + b.runs == 2; }));
    a.wait();
    b.wait();
}

TEST(CallbackThread, RunsItsInitiatorOrNothing) {
    static std::atomic<int> calls{0};
    struct target {
        void hit() { ++calls; }
    } object;
    zel::initiator0 call(zel::make_callback(object, &target::hit));
    zel::callback_thread t(call);
    t.start();
    t.wait();
    EXPECT_EQ(calls, 1);

    zel::callback_thread bare;
    bare.start();
    bare.wait();
    zel::initiator0 empty;
    bare.attach(empty);
    bare.start();
    bare.wait();
    EXPECT_EQ(bare.status(), zel::thread::done);

    zel::callback_thread copy(t);  // no initiator
    copy.start();
    copy.wait();
    EXPECT_EQ(calls, 1);
    copy.attach(call);
    copy.start();
    copy.wait();
    EXPECT_EQ(calls, 2);
}

} // namespace
