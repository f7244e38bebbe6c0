// Number conversion costs, each zel case beside its standard-library twin:
// qtoa against snprintf and std::to_chars, strtoq against strtoll and
// std::from_chars, xstrtold against strtold, dtoa against snprintf. Every
// iteration converts one value from a fixed, seeded set of mixed magnitudes.
#include <zel/numconv.h>

#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

constexpr std::size_t set_size = 1024;  // a power of two, for the index mask

// Signed values of every length from 1 to 19 digits, half of them negative.
std::vector<std::int64_t> const& integers() {
    static std::vector<std::int64_t> const values = [] {
        std::mt19937_64 gen(42);
        std::vector<std::int64_t> v;
        for (std::size_t i = 0; i < set_size; ++i) {
            auto x = static_cast<std::int64_t>(gen() >> (1 + gen() % 63));
            v.push_back(i % 2 ? -x : x);
        }
        return v;
    }();
    return values;
}

std::vector<std::string> const& integer_texts() {
    static std::vector<std::string> const texts = [] {
        std::vector<std::string> t;
        for (std::int64_t x : integers())
            t.push_back(std::to_string(x));
        return t;
    }();
    return texts;
}

std::vector<double> const& doubles() {
    static std::vector<double> const values = [] {
        std::mt19937_64 gen(43);
        std::uniform_real_distribution<double> mantissa(-10.0, 10.0);
        std::uniform_int_distribution<int> exponent(-30, 30);
        std::vector<double> v;
        for (std::size_t i = 0; i < set_size; ++i)
            v.push_back(mantissa(gen) * std::pow(10.0, exponent(gen)));
        return v;
    }();
    return values;
}

std::vector<std::string> const& double_texts() {
    static std::vector<std::string> const texts = [] {
        std::vector<std::string> t;
        char b[64];
        for (double x : doubles()) {
            std::snprintf(b, sizeof b, "%.17g", x);
            t.emplace_back(b);
        }
        return t;
    }();
    return texts;
}

// Converts the items of `set` in turn, one per iteration.
template <class T, class Convert>
void over(benchmark::State& state, std::vector<T> const& set, Convert convert) {
    std::size_t i = 0;
    for (auto _ : state)
        convert(set[i++ & (set_size - 1)]);
}

// ---- Integer formatting --------------------------------------------------

void qtoa_case(benchmark::State& state, int radix) {
    char b[72];
    over(state, integers(), [&](std::int64_t v) {
        zel::qtoa(v, b, radix, false, false);
        benchmark::DoNotOptimize(b);
    });
}

void BM_qtoa(benchmark::State& state) { qtoa_case(state, 10); }
BENCHMARK(BM_qtoa);

void BM_snprintf_lld(benchmark::State& state) {
    char b[72];
    over(state, integers(), [&](std::int64_t v) {
        std::snprintf(b, sizeof b, "%" PRId64, v);
        benchmark::DoNotOptimize(b);
    });
}
BENCHMARK(BM_snprintf_lld);

void BM_to_chars(benchmark::State& state) {
    char b[72];
    over(state, integers(), [&](std::int64_t v) {
        *std::to_chars(b, b + sizeof b - 1, v).ptr = '\0';
        benchmark::DoNotOptimize(b);
    });
}
BENCHMARK(BM_to_chars);

void BM_qtoa_hex(benchmark::State& state) { qtoa_case(state, 16); }
BENCHMARK(BM_qtoa_hex);

void BM_snprintf_llx(benchmark::State& state) {
    char b[72];
    over(state, integers(), [&](std::int64_t v) {
        std::snprintf(b, sizeof b, "%" PRIx64, static_cast<std::uint64_t>(v));
        benchmark::DoNotOptimize(b);
    });
}
BENCHMARK(BM_snprintf_llx);

// ---- Integer parsing -----------------------------------------------------

void BM_strtoq(benchmark::State& state) {
    over(state, integer_texts(), [](std::string const& t) {
        benchmark::DoNotOptimize(zel::strtoq(t.c_str(), nullptr, 10));
    });
}
BENCHMARK(BM_strtoq);

void BM_strtoll(benchmark::State& state) {
    over(state, integer_texts(), [](std::string const& t) {
        benchmark::DoNotOptimize(std::strtoll(t.c_str(), nullptr, 10));
    });
}
BENCHMARK(BM_strtoll);

void BM_from_chars(benchmark::State& state) {
    over(state, integer_texts(), [](std::string const& t) {
        long long value = 0;
        std::from_chars(t.data(), t.data() + t.size(), value);
        benchmark::DoNotOptimize(value);
    });
}
BENCHMARK(BM_from_chars);

// ---- Floating parsing ----------------------------------------------------

void BM_xstrtold(benchmark::State& state) {
    over(state, double_texts(), [](std::string const& t) {
        benchmark::DoNotOptimize(zel::xstrtold(t.c_str(), nullptr));
    });
}
BENCHMARK(BM_xstrtold);

void BM_strtold(benchmark::State& state) {
    over(state, double_texts(), [](std::string const& t) {
        benchmark::DoNotOptimize(std::strtold(t.c_str(), nullptr));
    });
}
BENCHMARK(BM_strtold);

// ---- Floating formatting -------------------------------------------------

void BM_dtoa(benchmark::State& state) {
    char b[72];
    over(state, doubles(), [&](double v) {
        zel::dtoa(v, b, 0, false, false);
        benchmark::DoNotOptimize(b);
    });
}
BENCHMARK(BM_dtoa);

void BM_snprintf_g(benchmark::State& state) {
    char b[72];
    over(state, doubles(), [&](double v) {
        std::snprintf(b, sizeof b, "%.*g", 6, v);
        benchmark::DoNotOptimize(b);
    });
}
BENCHMARK(BM_snprintf_g);

} // namespace
