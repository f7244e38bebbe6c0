// The streams beside the standard library's in one binary: a million ints
// and a million doubles written to and read back from string streams and
// file streams, with snprintf, strtol and strtod as the C baselines. Each
// zel case is followed by the cases it is measured against.
#include <zel/fstream.h>
#include <zel/sstream.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

constexpr int million = 1000000;

std::vector<int> const& ints() {
    static std::vector<int> const v = [] {
        std::vector<int> r(million);
        std::mt19937 rng(42);
        for (int& x : r)
            x = int(rng()) >> (rng() % 31);
        return r;
    }();
    return v;
}

std::vector<double> const& doubles() {
    static std::vector<double> const v = [] {
        std::vector<double> r(million);
        std::mt19937_64 rng(42);
        std::uniform_real_distribution<double> d(-1e6, 1e6);
        for (double& x : r)
            x = d(rng);
        return r;
    }();
    return v;
}

// The text both libraries read back: one value and a blank each.
template <class T>
std::string const& text_of() {
    static std::string const s = [] {
        std::ostringstream os;
        if constexpr (std::is_same_v<T, int>)
            for (int x : ints())
                os << x << ' ';
        else
            for (double x : doubles())
                os << x << ' ';
        return os.str();
    }();
    return s;
}

template <class T>
std::vector<T> const& values() {
    if constexpr (std::is_same_v<T, int>)
        return ints();
    else
        return doubles();
}

char const* const file_name = "zel_streams_bench.txt";

// ---- string streams, output ----------------------------------------------
// The count of values is the argument. The "to_array" cases below measure
// the formatting layers alone, over buffers that never grow.

template <class T>
void zel_ostringstream_write(benchmark::State& state) {
    auto const n = std::size_t(state.range(0));
    for (auto _ : state) {
        zel::ostringstream os;
        for (std::size_t i = 0; i < n; ++i)
            os << values<T>()[i] << ' ';
        benchmark::DoNotOptimize(os.str().data());
    }
}
template <class T>
void std_ostringstream_write(benchmark::State& state) {
    auto const n = std::size_t(state.range(0));
    for (auto _ : state) {
        std::ostringstream os;
        for (std::size_t i = 0; i < n; ++i)
            os << values<T>()[i] << ' ';
        benchmark::DoNotOptimize(os.str().data());
    }
}
template <class T>
void snprintf_write(benchmark::State& state) {
    auto const n = std::size_t(state.range(0));
    std::string out;
    for (auto _ : state) {
        out.clear();
        char buf[64];
        for (std::size_t i = 0; i < n; ++i) {
            T const x = values<T>()[i];
            int const w = std::is_same_v<T, int> ? std::snprintf(buf, sizeof buf, "%d ", int(x))
                                                 : std::snprintf(buf, sizeof buf, "%g ", double(x));
            out.append(buf, std::size_t(w));
        }
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK_TEMPLATE(zel_ostringstream_write, int)->Arg(10000)->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(std_ostringstream_write, int)->Arg(10000)->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(snprintf_write, int)->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(zel_ostringstream_write, double)->Arg(10000)->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(std_ostringstream_write, double)->Arg(10000)->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(snprintf_write, double)->Arg(million)->Unit(benchmark::kMillisecond);

// Buffers over one fixed array that start over when it is full: only the
// streams' own formatting work is measured.
struct zel_array_buf : zel::streambuf {
    char area[1 << 16];
    zel_array_buf() { setp(area, area + sizeof area); }
    int overflow(int c) override {
        setp(area, area + sizeof area);
        return sputc(char(c));
    }
};
struct std_array_buf : std::streambuf {
    char area[1 << 16];
    std_array_buf() { setp(area, area + sizeof area); }
    int overflow(int c) override {
        setp(area, area + sizeof area);
        return sputc(char(c));
    }
};

template <class T>
void zel_ostream_to_array(benchmark::State& state) {
    zel_array_buf buf;
    zel::ostream os(&buf);
    for (auto _ : state)
        for (T x : values<T>())
            os << x << ' ';
}
template <class T>
void std_ostream_to_array(benchmark::State& state) {
    std_array_buf buf;
    std::ostream os(&buf);
    for (auto _ : state)
        for (T x : values<T>())
            os << x << ' ';
}
BENCHMARK_TEMPLATE(zel_ostream_to_array, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(std_ostream_to_array, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(zel_ostream_to_array, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(std_ostream_to_array, double)->Unit(benchmark::kMillisecond);

// ---- string streams, input -----------------------------------------------

template <class T>
void zel_istringstream_read(benchmark::State& state) {
    zel::string const text(text_of<T>().data(), unsigned(text_of<T>().size()));
    for (auto _ : state) {
        zel::istringstream is(text);
        T x{};
        T sum{};
        while (is >> x)
            sum += x;
        benchmark::DoNotOptimize(sum);
    }
}
template <class T>
void std_istringstream_read(benchmark::State& state) {
    for (auto _ : state) {
        std::istringstream is(text_of<T>());
        T x{};
        T sum{};
        while (is >> x)
            sum += x;
        benchmark::DoNotOptimize(sum);
    }
}
template <class T>
void strto_read(benchmark::State& state) {
    for (auto _ : state) {
        char const* p = text_of<T>().c_str();
        char* end = nullptr;
        T sum{};
        for (;;) {
            T const x = std::is_same_v<T, int> ? T(std::strtol(p, &end, 10)) : T(std::strtod(p, &end));
            if (end == p)
                break;
            sum += x;
            p = end;
        }
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK_TEMPLATE(zel_istringstream_read, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(std_istringstream_read, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(strto_read, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(zel_istringstream_read, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(std_istringstream_read, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(strto_read, double)->Unit(benchmark::kMillisecond);

// ---- file streams --------------------------------------------------------
// The file buffer stages 32 characters in front of the C stream and
// flushes the C stream each time it hands them over, so zel's file output
// costs a write to the system per 32 characters.

template <class T>
void zel_ofstream_write(benchmark::State& state) {
    for (auto _ : state) {
        zel::ofstream os(file_name);
        for (T x : values<T>())
            os << x << ' ';
    }
    std::remove(file_name);
}
template <class T>
void std_ofstream_write(benchmark::State& state) {
    for (auto _ : state) {
        std::ofstream os(file_name);
        for (T x : values<T>())
            os << x << ' ';
    }
    std::remove(file_name);
}
template <class T>
void fprintf_write(benchmark::State& state) {
    for (auto _ : state) {
        std::FILE* f = std::fopen(file_name, "w");
        for (T x : values<T>())
            if constexpr (std::is_same_v<T, int>)
                std::fprintf(f, "%d ", x);
            else
                std::fprintf(f, "%g ", x);
        std::fclose(f);
    }
    std::remove(file_name);
}
BENCHMARK_TEMPLATE(zel_ofstream_write, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(std_ofstream_write, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(fprintf_write, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(zel_ofstream_write, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(std_ofstream_write, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(fprintf_write, double)->Unit(benchmark::kMillisecond);

void write_text_file(std::string const& s) {
    std::FILE* f = std::fopen(file_name, "w");
    std::fwrite(s.data(), 1, s.size(), f);
    std::fclose(f);
}

template <class T>
void zel_ifstream_read(benchmark::State& state) {
    write_text_file(text_of<T>());
    for (auto _ : state) {
        zel::ifstream is(file_name);
        T x{};
        T sum{};
        while (is >> x)
            sum += x;
        benchmark::DoNotOptimize(sum);
    }
    std::remove(file_name);
}
template <class T>
void std_ifstream_read(benchmark::State& state) {
    write_text_file(text_of<T>());
    for (auto _ : state) {
        std::ifstream is(file_name);
        T x{};
        T sum{};
        while (is >> x)
            sum += x;
        benchmark::DoNotOptimize(sum);
    }
    std::remove(file_name);
}
BENCHMARK_TEMPLATE(zel_ifstream_read, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(std_ifstream_read, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(zel_ifstream_read, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(std_ifstream_read, double)->Unit(benchmark::kMillisecond);

} // namespace
