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
#include <cstring>
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

// ---- Integer formatting --------------------------------------------------

void BM_qtoa(benchmark::State& state) {
    auto const& v = integers();
    char buffer[72];
    std::size_t i = 0;
    for (auto _ : state) {
        zel::qtoa(v[i++ & (set_size - 1)], buffer, 10, false, false);
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_qtoa);

void BM_qtoa_hex(benchmark::State& state) {
    auto const& v = integers();
    char buffer[72];
    std::size_t i = 0;
    for (auto _ : state) {
        zel::qtoa(v[i++ & (set_size - 1)], buffer, 16, false, false);
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_qtoa_hex);

void BM_snprintf_lld(benchmark::State& state) {
    auto const& v = integers();
    char buffer[72];
    std::size_t i = 0;
    for (auto _ : state) {
        std::snprintf(buffer, sizeof buffer, "%" PRId64, v[i++ & (set_size - 1)]);
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_snprintf_lld);

void BM_snprintf_llx(benchmark::State& state) {
    auto const& v = integers();
    char buffer[72];
    std::size_t i = 0;
    for (auto _ : state) {
        std::snprintf(buffer, sizeof buffer, "%" PRIx64,
                      static_cast<std::uint64_t>(v[i++ & (set_size - 1)]));
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_snprintf_llx);

void BM_to_chars(benchmark::State& state) {
    auto const& v = integers();
    char buffer[72];
    std::size_t i = 0;
    for (auto _ : state) {
        auto r = std::to_chars(buffer, buffer + sizeof buffer - 1, v[i++ & (set_size - 1)]);
        *r.ptr = '\0';
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_to_chars);

// ---- Integer parsing -----------------------------------------------------

void BM_strtoq(benchmark::State& state) {
    auto const& t = integer_texts();
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(zel::strtoq(t[i++ & (set_size - 1)].c_str(), nullptr, 10));
}
BENCHMARK(BM_strtoq);

void BM_strtoll(benchmark::State& state) {
    auto const& t = integer_texts();
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(std::strtoll(t[i++ & (set_size - 1)].c_str(), nullptr, 10));
}
BENCHMARK(BM_strtoll);

void BM_from_chars(benchmark::State& state) {
    auto const& t = integer_texts();
    std::size_t i = 0;
    for (auto _ : state) {
        std::string const& s = t[i++ & (set_size - 1)];
        long long value = 0;
        std::from_chars(s.data(), s.data() + s.size(), value);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BM_from_chars);

// ---- Floating parsing ----------------------------------------------------

void BM_xstrtold(benchmark::State& state) {
    auto const& t = double_texts();
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(zel::xstrtold(t[i++ & (set_size - 1)].c_str(), nullptr));
}
BENCHMARK(BM_xstrtold);

void BM_strtold(benchmark::State& state) {
    auto const& t = double_texts();
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(std::strtold(t[i++ & (set_size - 1)].c_str(), nullptr));
}
BENCHMARK(BM_strtold);

// ---- Floating formatting -------------------------------------------------

void BM_dtoa(benchmark::State& state) {
    auto const& v = doubles();
    char buffer[72];
    std::size_t i = 0;
    for (auto _ : state) {
        zel::dtoa(v[i++ & (set_size - 1)], buffer, 0, false, false);
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_dtoa);

void BM_snprintf_g(benchmark::State& state) {
    auto const& v = doubles();
    char buffer[72];
    std::size_t i = 0;
    for (auto _ : state) {
        std::snprintf(buffer, sizeof buffer, "%.*g", 6, v[i++ & (set_size - 1)]);
        benchmark::DoNotOptimize(buffer);
    }
}
BENCHMARK(BM_snprintf_g);

} // namespace
