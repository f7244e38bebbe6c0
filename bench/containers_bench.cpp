// The sequence containers beside their standard twins: each zel case is
// followed by the std case it is measured against, in the same binary.
#include <zel/deque.h>
#include <zel/list.h>
#include <zel/vector.h>

#include <algorithm>
#include <deque>
#include <iterator>
#include <list>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

constexpr int million = 1000000;

std::vector<int> shuffled(int n) {
    std::vector<int> v(n);
    std::mt19937 rng(42);
    for (int& x : v) x = int(rng());
    return v;
}

template <class V>
void push_back_ints(benchmark::State& state) {
    for (auto _ : state) {
        V v;
        for (int i = 0; i < million; ++i) v.push_back(i);
        benchmark::DoNotOptimize(v.data());
    }
}
BENCHMARK_TEMPLATE(push_back_ints, zel::vector<int>)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(push_back_ints, std::vector<int>)->Unit(benchmark::kMillisecond);

template <class V>
void push_back_strings(benchmark::State& state) {
    std::vector<std::string> src;
    for (int i = 0; i < 100000; ++i) src.push_back(std::to_string(i * 7919));
    for (auto _ : state) {
        V v;
        for (auto const& s : src) v.push_back(s);
        benchmark::DoNotOptimize(v.data());
    }
}
BENCHMARK_TEMPLATE(push_back_strings, zel::vector<std::string>)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(push_back_strings, std::vector<std::string>)->Unit(benchmark::kMillisecond);

template <class V>
void iterate(benchmark::State& state) {
    V v;
    for (int i = 0; i < million; ++i) v.push_back(i);
    for (auto _ : state) {
        long long sum = 0;
        for (int x : v) sum += x;
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK_TEMPLATE(iterate, zel::vector<int>)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(iterate, std::vector<int>)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(iterate, zel::deque<int>)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(iterate, std::deque<int>)->Unit(benchmark::kMicrosecond);

template <class V>
void insert_middle(benchmark::State& state) {
    for (auto _ : state) {
        V v;
        for (int i = 0; i < 20000; ++i) v.insert(v.begin() + v.size() / 2, i);
        benchmark::DoNotOptimize(&v.front());
    }
}
BENCHMARK_TEMPLATE(insert_middle, zel::vector<int>)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(insert_middle, std::vector<int>)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(insert_middle, zel::deque<int>)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(insert_middle, std::deque<int>)->Unit(benchmark::kMillisecond);

void sort_zel_vector(benchmark::State& state) {
    std::vector<int> const src = shuffled(million);
    for (auto _ : state) {
        state.PauseTiming();
        zel::vector<int> v(src.data(), src.data() + src.size());
        state.ResumeTiming();
        v.sort();
        benchmark::DoNotOptimize(v.data());
    }
}
BENCHMARK(sort_zel_vector)->Unit(benchmark::kMillisecond);

void sort_std_vector(benchmark::State& state) {
    std::vector<int> const src = shuffled(million);
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<int> v(src);
        state.ResumeTiming();
        std::sort(v.begin(), v.end());
        benchmark::DoNotOptimize(v.data());
    }
}
BENCHMARK(sort_std_vector)->Unit(benchmark::kMillisecond);

// The map grows by a fixed 4096 slots, so pushes cost O(n^2 / 4096) pointer
// copies overall: measured at two sizes to show where that starts to tell.
template <class D>
void deque_push_both_ends(benchmark::State& state) {
    int const n = int(state.range(0));
    for (auto _ : state) {
        D d;
        for (int i = 0; i < n / 2; ++i) {
            d.push_back(i);
            d.push_front(i);
        }
        benchmark::DoNotOptimize(&d.front());
    }
}
BENCHMARK_TEMPLATE(deque_push_both_ends, zel::deque<int>)->Arg(10000)->Arg(100000)->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(deque_push_both_ends, std::deque<int>)->Arg(10000)->Arg(100000)->Arg(million)->Unit(benchmark::kMillisecond);

template <class L>
void list_push(benchmark::State& state) {
    for (auto _ : state) {
        L l;
        for (int i = 0; i < million / 2; ++i) {
            l.push_back(i);
            l.push_front(i);
        }
        benchmark::DoNotOptimize(&l.front());
    }
}
BENCHMARK_TEMPLATE(list_push, zel::list<int>)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(list_push, std::list<int>)->Unit(benchmark::kMillisecond);

// Both lists are built in shuffled order and sorted by relinking, so the
// nodes are scattered in memory as they are in a long-lived list.
template <class L>
void list_sort(benchmark::State& state) {
    std::vector<int> const src = shuffled(million);
    for (auto _ : state) {
        state.PauseTiming();
        L l(src.begin(), src.end());
        state.ResumeTiming();
        l.sort();
        benchmark::DoNotOptimize(&l.front());
        state.PauseTiming();
        l.clear();
        state.ResumeTiming();
    }
}
BENCHMARK_TEMPLATE(list_sort, zel::list<int>)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(list_sort, std::list<int>)->Unit(benchmark::kMillisecond);

// Reading every element by index: the zel list walks one step from its
// cached position, std::list has to walk from the front each time.
void list_index_walk_zel(benchmark::State& state) {
    int const n = int(state.range(0));
    zel::list<int> l;
    for (int i = 0; i < n; ++i) l.push_back(i);
    for (auto _ : state) {
        long long sum = 0;
        for (int i = 0; i < n; ++i) sum += l[unsigned(i)];
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(list_index_walk_zel)->Arg(10000)->Unit(benchmark::kMicrosecond);

void list_index_walk_std(benchmark::State& state) {
    int const n = int(state.range(0));
    std::list<int> l;
    for (int i = 0; i < n; ++i) l.push_back(i);
    for (auto _ : state) {
        long long sum = 0;
        for (int i = 0; i < n; ++i) sum += *std::next(l.begin(), i);
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(list_index_walk_std)->Arg(10000)->Unit(benchmark::kMicrosecond);

} // namespace
