// The streams beside the standard library's in one binary: a million ints
// and a million doubles written to and read back from string streams and
// file streams, with snprintf, strtol and strtod as the C baselines. Each
// family is one template over the stream types, run for zel's streams and
// then for the standard ones (and the C baseline after them).
#include <zel/fstream.h>
#include <zel/sstream.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
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

// The text each library's input string stream is made from.
template <class IS, class T>
auto const& source_text() {
    if constexpr (std::is_same_v<IS, zel::istringstream>) {
        static zel::string const s(text_of<T>().data(), unsigned(text_of<T>().size()));
        return s;
    } else {
        return text_of<T>();
    }
}

// ---- string streams, output ----------------------------------------------
// The count of values is the argument. The "to_array" cases below measure
// the formatting layers alone, over buffers that never grow.

template <class OS, class T>
void ostringstream_write(benchmark::State& state) {
    auto const n = std::size_t(state.range(0));
    for (auto _ : state) {
        OS os;
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
BENCHMARK_TEMPLATE(ostringstream_write, zel::ostringstream, int)->Arg(10000)->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(ostringstream_write, std::ostringstream, int)->Arg(10000)->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(snprintf_write, int)->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(ostringstream_write, zel::ostringstream, double)->Arg(10000)->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(ostringstream_write, std::ostringstream, double)->Arg(10000)->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(snprintf_write, double)->Arg(million)->Unit(benchmark::kMillisecond);

// Buffers over one fixed array that start over when it is full: only the
// streams' own formatting work is measured. A class derived from the
// library's buffer, as a user would write one.
template <class Base>
struct array_buf : Base {
    char area[1 << 16];
    array_buf() { this->setp(area, area + sizeof area); }
    int overflow(int c) override {
        this->setp(area, area + sizeof area);
        return this->sputc(char(c));
    }
};

template <class OS, class Buf, class T>
void ostream_to_array(benchmark::State& state) {
    array_buf<Buf> buf;
    OS os(&buf);
    for (auto _ : state)
        for (T x : values<T>())
            os << x << ' ';
}
BENCHMARK_TEMPLATE(ostream_to_array, zel::ostream, zel::streambuf, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(ostream_to_array, std::ostream, std::streambuf, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(ostream_to_array, zel::ostream, zel::streambuf, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(ostream_to_array, std::ostream, std::streambuf, double)->Unit(benchmark::kMillisecond);

// ---- string streams, input -----------------------------------------------

// Reads numbers until the stream fails, summing them so that none is
// optimised away: the input cases' measured work.
template <class T, class IS>
void read_all(IS& is) {
    T x{};
    T sum{};
    while (is >> x)
        sum += x;
    benchmark::DoNotOptimize(sum);
}

template <class IS, class T>
void istringstream_read(benchmark::State& state) {
    auto const& text = source_text<IS, T>();
    for (auto _ : state) {
        IS is(text);
        read_all<T>(is);
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
BENCHMARK_TEMPLATE(istringstream_read, zel::istringstream, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(istringstream_read, std::istringstream, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(strto_read, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(istringstream_read, zel::istringstream, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(istringstream_read, std::istringstream, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(strto_read, double)->Unit(benchmark::kMillisecond);

// ---- file streams --------------------------------------------------------
// The file buffer stages 32 characters in front of the C stream and
// flushes the C stream each time it hands them over, so zel's file output
// costs a write to the system per 33 characters. flush_floor_write writes
// the same text in 33-character pieces with fflush after each: the least
// that flushing costs, whatever the formatting.

template <class OFS, class T>
void ofstream_write(benchmark::State& state) {
    for (auto _ : state) {
        OFS os(file_name);
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
template <class T>
void flush_floor_write(benchmark::State& state) {
    std::string const& text = text_of<T>();
    for (auto _ : state) {
        std::FILE* f = std::fopen(file_name, "w");
        for (std::size_t at = 0; at < text.size(); at += 33) {
            std::fwrite(text.data() + at, 1, std::min<std::size_t>(33, text.size() - at), f);
            std::fflush(f);
        }
        std::fclose(f);
    }
    std::remove(file_name);
}
BENCHMARK_TEMPLATE(ofstream_write, zel::ofstream, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(ofstream_write, std::ofstream, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(fprintf_write, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(flush_floor_write, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(ofstream_write, zel::ofstream, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(ofstream_write, std::ofstream, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(fprintf_write, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(flush_floor_write, double)->Unit(benchmark::kMillisecond);

void write_text_file(std::string const& s) {
    std::FILE* f = std::fopen(file_name, "w");
    std::fwrite(s.data(), 1, s.size(), f);
    std::fclose(f);
}

template <class IFS, class T>
void ifstream_read(benchmark::State& state) {
    write_text_file(text_of<T>());
    for (auto _ : state) {
        IFS is(file_name);
        read_all<T>(is);
    }
    std::remove(file_name);
}
BENCHMARK_TEMPLATE(ifstream_read, zel::ifstream, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(ifstream_read, std::ifstream, int)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(ifstream_read, zel::ifstream, double)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(ifstream_read, std::ifstream, double)->Unit(benchmark::kMillisecond);

} // namespace
