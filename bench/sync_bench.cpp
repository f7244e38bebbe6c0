// Synchronisation costs, each zel case beside its standard-library twin:
// uncontended acquire+release of the mutexes, a semaphore and the monitors'
// read access; the mutexes and a monitor shared by two threads with short
// critical sections; and a thread's start+wait.
#include <zel/guards.h>
#include <zel/monitor.h>
#include <zel/thread.h>

#include <mutex>
#include <shared_mutex>
#include <thread>
#include <type_traits>

#include <benchmark/benchmark.h>

namespace {

// Called through the interface, as a class that chose its guard at
// construction calls it.
void guard_pairs(benchmark::State& state, zel::guard& g) {
    for (auto _ : state) {
        g.acquire();
        g.release();
    }
}

template <class Lockable>
void std_pairs(benchmark::State& state) {
    Lockable m;
    for (auto _ : state) {
        m.lock();
        m.unlock();
    }
}

void BM_zel_mutex(benchmark::State& state) {
    zel::mutex m;
    guard_pairs(state, m);
}
BENCHMARK(BM_zel_mutex);

void BM_std_recursive_mutex(benchmark::State& state) { std_pairs<std::recursive_mutex>(state); }
BENCHMARK(BM_std_recursive_mutex);

void BM_zel_nr_mutex(benchmark::State& state) {
    zel::nr_mutex m;
    guard_pairs(state, m);
}
BENCHMARK(BM_zel_nr_mutex);

void BM_std_mutex(benchmark::State& state) { std_pairs<std::mutex>(state); }
BENCHMARK(BM_std_mutex);

// Two threads taking turns on one lock with a short critical section. The
// zel lock is called on its own type, as the std one is.
long contended_counter = 0;

template <class Lock>
void BM_contended(benchmark::State& state) {
    static Lock lock;
    for (auto _ : state) {
        if constexpr (std::is_base_of_v<zel::guard, Lock>)
            lock.acquire();
        else
            lock.lock();
        benchmark::DoNotOptimize(++contended_counter);
        if constexpr (std::is_base_of_v<zel::guard, Lock>)
            lock.release();
        else
            lock.unlock();
    }
}
BENCHMARK_TEMPLATE(BM_contended, zel::mutex)->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(BM_contended, std::recursive_mutex)->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(BM_contended, zel::nr_mutex)->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(BM_contended, std::mutex)->Threads(2)->UseRealTime();

// A monitor shared by a writer and a reader, each with a short critical
// section, beside std::shared_mutex.
zel::monitor_v1 contended_monitor;
std::shared_mutex contended_shared;

void BM_zel_monitor_v1_contended(benchmark::State& state) {
    zel::monitor_base& m = contended_monitor;
    bool const writer = state.thread_index() == 0;
    for (auto _ : state) {
        if (writer) {
            m.acquire_for_writing();
            benchmark::DoNotOptimize(++contended_counter);
            m.release_from_writing();
        } else {
            m.acquire_for_reading();
            benchmark::DoNotOptimize(contended_counter);
            m.release_from_reading();
        }
    }
}
BENCHMARK(BM_zel_monitor_v1_contended)->Threads(2)->UseRealTime();

void BM_std_shared_mutex_contended(benchmark::State& state) {
    bool const writer = state.thread_index() == 0;
    for (auto _ : state) {
        if (writer) {
            contended_shared.lock();
            benchmark::DoNotOptimize(++contended_counter);
            contended_shared.unlock();
        } else {
            contended_shared.lock_shared();
            benchmark::DoNotOptimize(contended_counter);
            contended_shared.unlock_shared();
        }
    }
}
BENCHMARK(BM_std_shared_mutex_contended)->Threads(2)->UseRealTime();

void BM_zel_semaphore(benchmark::State& state) {
    zel::semaphore s(1);
    guard_pairs(state, s);
}
BENCHMARK(BM_zel_semaphore);

void BM_zel_monitor_v1_read(benchmark::State& state) {
    zel::monitor_v1 m;
    zel::monitor_base& policy = m;
    for (auto _ : state) {
        policy.acquire_for_reading();
        policy.release_from_reading();
    }
}
BENCHMARK(BM_zel_monitor_v1_read);

void BM_zel_monitor_v2_read(benchmark::State& state) {
    zel::monitor_v2 m;
    zel::monitor_base& policy = m;
    for (auto _ : state) {
        policy.acquire_for_reading();
        policy.release_from_reading();
    }
}
BENCHMARK(BM_zel_monitor_v2_read);

void BM_std_shared_mutex_read(benchmark::State& state) {
    std::shared_mutex m;
    for (auto _ : state) {
        m.lock_shared();
        m.unlock_shared();
    }
}
BENCHMARK(BM_std_shared_mutex_read);

struct empty_thread : zel::thread {
    void run() override {}
};

void BM_zel_thread_start_wait(benchmark::State& state) {
    empty_thread t;
    for (auto _ : state) {
        t.start();
        t.wait();
    }
}
BENCHMARK(BM_zel_thread_start_wait)->UseRealTime();

void BM_std_thread_start_join(benchmark::State& state) {
    for (auto _ : state)
        std::thread([] {}).join();
}
BENCHMARK(BM_std_thread_start_join)->UseRealTime();

} // namespace
