// The associative containers beside their standard twins: each zel case is
// followed by the std case it is measured against, in the same binary.
// Insert, find (hit and miss), erase and iterate over 1M int keys and 100k
// string keys: zel::hash_map beside std::unordered_map, zel::map beside
// std::map.
#include <zel/hash_map.h>
#include <zel/map.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

constexpr int million = 1000000;

// n distinct keys in random order; `miss` gives n keys none of which is
// among them.
std::vector<int> int_keys(int n, bool miss = false) {
    std::vector<int> v(n);
    for (int i = 0; i < n; ++i)
        v[i] = 2 * i + (miss ? 1 : 0);
    std::shuffle(v.begin(), v.end(), std::mt19937(42));
    return v;
}

std::vector<std::string> string_keys(int n, bool miss = false) {
    std::vector<std::string> v;
    v.reserve(n);
    for (int k : int_keys(n, miss))
        v.push_back("key-" + std::to_string(k * 7919));
    return v;
}

template <class K>
std::vector<K> keys(bool miss = false);
template <>
std::vector<int> keys<int>(bool miss) { return int_keys(million, miss); }
template <>
std::vector<std::string> keys<std::string>(bool miss) { return string_keys(100000, miss); }

template <class M>
M filled(std::vector<typename M::key_type> const& ks) {
    M m;
    for (auto const& k : ks)
        m.insert({k, 1});
    return m;
}

// Each case runs over every container: the template argument names it.
template <class M>
void insert(benchmark::State& state) {
    auto const ks = keys<typename M::key_type>();
    for (auto _ : state) {
        M m;
        for (auto const& k : ks)
            m.insert({k, 1});
        benchmark::DoNotOptimize(m.size());
    }
}

// Looks up every key (miss = 0) or n keys none of which is there (miss = 1).
template <class M>
void find(benchmark::State& state) {
    auto const ks = keys<typename M::key_type>();
    auto const probes = keys<typename M::key_type>(state.range(0) != 0);
    M const m = filled<M>(ks);
    for (auto _ : state) {
        long found = 0;
        for (auto const& k : probes)
            found += m.find(k) != m.end();
        benchmark::DoNotOptimize(found);
    }
}

// The misses with both hash tables given the same bucket count first: the
// default runs compare at the loads each table's growth rules leave (zel's
// max load is at least 1.0 and its counts come from a fixed prime table, so
// at 1M keys it sits near 0.95 where std::unordered_map sits near 0.69).
template <class M>
void find_miss_same_buckets(benchmark::State& state) {
    auto const ks = keys<typename M::key_type>();
    auto const misses = keys<typename M::key_type>(true);
    M m;
    m.rehash(unsigned(2 * ks.size()));
    for (auto const& k : ks)
        m.insert({k, 1});
    for (auto _ : state) {
        long found = 0;
        for (auto const& k : misses)
            found += m.find(k) != m.end();
        benchmark::DoNotOptimize(found);
    }
    state.counters["buckets"] = double(m.bucket_count());
}

template <class M>
void erase(benchmark::State& state) {
    auto const ks = keys<typename M::key_type>();
    for (auto _ : state) {
        state.PauseTiming();
        M m = filled<M>(ks);
        state.ResumeTiming();
        for (auto const& k : ks)
            m.erase(k);
        benchmark::DoNotOptimize(m.size());
    }
}

template <class M>
void iterate(benchmark::State& state) {
    M const m = filled<M>(keys<typename M::key_type>());
    for (auto _ : state) {
        long sum = 0;
        for (auto const& e : m)
            sum += e.second;
        benchmark::DoNotOptimize(sum);
    }
}

// zel's container and then its standard twin, for int and string keys.
#define ZEL_PAIR(name, zel_map, std_map, args)                                           \
    BENCHMARK_TEMPLATE(name, zel_map<int, int>)->Unit(benchmark::kMillisecond) args;         \
    BENCHMARK_TEMPLATE(name, std_map<int, int>)->Unit(benchmark::kMillisecond) args;         \
    BENCHMARK_TEMPLATE(name, zel_map<std::string, int>)->Unit(benchmark::kMillisecond) args; \
    BENCHMARK_TEMPLATE(name, std_map<std::string, int>)->Unit(benchmark::kMillisecond) args
#define ZEL_BOTH(name, args)                                   \
    ZEL_PAIR(name, zel::hash_map, std::unordered_map, args); \
    ZEL_PAIR(name, zel::map, std::map, args)
ZEL_BOTH(insert, );
ZEL_BOTH(find, ->ArgName("miss")->Arg(0)->Arg(1));
ZEL_PAIR(find_miss_same_buckets, zel::hash_map, std::unordered_map, );
ZEL_BOTH(erase, );
ZEL_BOTH(iterate, );

} // namespace
