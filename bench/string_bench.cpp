// zel's strings beside the standard library's: copying (a shared engine and
// one atomic increment against a deep copy), appending one character at a
// time, searching, case-insensitive search, substituting every occurrence,
// and comparison. Each zel case is followed by its std twin.
#include <zel/string.h>

#include <algorithm>
#include <cctype>
#include <string>

#include <benchmark/benchmark.h>

namespace {

std::string make_text(unsigned n) {
    std::string s;
    for (unsigned i = 0; s.size() < n; ++i)
        s += "the quick brown fox jumps over the lazy dog "[i % 44];
    return s;
}

// A text ending in a word and a character found nowhere before them.
std::string haystack() { return make_text(4096) + "needle#"; }

template <class S>
void copy_case(benchmark::State& state) {
    S const s(make_text(unsigned(state.range(0))).c_str());
    for (auto _ : state) {
        S copy(s);
        benchmark::DoNotOptimize(copy);
    }
}
void BM_copy_zel(benchmark::State& state) { copy_case<zel::string>(state); }
void BM_copy_std(benchmark::State& state) { copy_case<std::string>(state); }
BENCHMARK(BM_copy_zel)->Arg(16)->Arg(256)->Arg(4096);
BENCHMARK(BM_copy_std)->Arg(16)->Arg(256)->Arg(4096);

template <class S>
void copy_wide_case(benchmark::State& state) {
    std::u16string const text(256, u'x');
    S const s(text.c_str());
    for (auto _ : state) {
        S copy(s);
        benchmark::DoNotOptimize(copy);
    }
}
void BM_copy_wide_zel(benchmark::State& state) { copy_wide_case<zel::wstring>(state); }
void BM_copy_wide_std(benchmark::State& state) { copy_wide_case<std::u16string>(state); }
BENCHMARK(BM_copy_wide_zel);
BENCHMARK(BM_copy_wide_std);

template <class S>
void append_case(benchmark::State& state) {
    for (auto _ : state) {
        S s;
        for (int i = 0; i < 1000; ++i)
            s += char('a' + i % 26);
        benchmark::DoNotOptimize(s.data());
    }
}
void BM_append_char_zel(benchmark::State& state) { append_case<zel::string>(state); }
void BM_append_char_std(benchmark::State& state) { append_case<std::string>(state); }
BENCHMARK(BM_append_char_zel);
BENCHMARK(BM_append_char_std);

template <class S, class Needle>
void find_case(benchmark::State& state, Needle needle) {
    S const s(haystack().c_str());
    for (auto _ : state)
        benchmark::DoNotOptimize(s.find(needle));
}
void BM_find_char_zel(benchmark::State& state) { find_case<zel::string>(state, '#'); }
void BM_find_char_std(benchmark::State& state) { find_case<std::string>(state, '#'); }
BENCHMARK(BM_find_char_zel);
BENCHMARK(BM_find_char_std);

void BM_find_word_zel(benchmark::State& state) { find_case<zel::string>(state, "needle"); }
void BM_find_word_std(benchmark::State& state) { find_case<std::string>(state, "needle"); }
BENCHMARK(BM_find_word_zel);
BENCHMARK(BM_find_word_std);

void BM_ifind_zel(benchmark::State& state) {
    zel::string const s(haystack().c_str());
    for (auto _ : state)
        benchmark::DoNotOptimize(s.ifind("NEEDLE"));
}
// The standard library has no case-insensitive find: std::search with a
// tolower comparison is what its users write.
void BM_ifind_std(benchmark::State& state) {
    std::string const s(haystack());
    std::string const word("NEEDLE");
    auto const same = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    };
    for (auto _ : state)
        benchmark::DoNotOptimize(std::search(s.begin(), s.end(), word.begin(), word.end(), same));
}
BENCHMARK(BM_ifind_zel);
BENCHMARK(BM_ifind_std);

void BM_tsub_all_zel(benchmark::State& state) {
    zel::string const text(make_text(4096).c_str());
    for (auto _ : state) {
        zel::string s(text);
        benchmark::DoNotOptimize(s.tsub("fox", "wolf"));
    }
}
void BM_tsub_all_std(benchmark::State& state) {
    std::string const text(make_text(4096));
    for (auto _ : state) {
        std::string s(text);
        for (std::size_t at = s.find("fox"); at != std::string::npos; at = s.find("fox", at + 4))
            s.replace(at, 3, "wolf");
        benchmark::DoNotOptimize(s.data());
    }
}
BENCHMARK(BM_tsub_all_zel);
BENCHMARK(BM_tsub_all_std);

template <class S>
void compare_case(benchmark::State& state) {
    S const a(make_text(256).c_str());
    S const b(make_text(256).c_str());
    for (auto _ : state)
        benchmark::DoNotOptimize(a.compare(b));
}
void BM_compare_zel(benchmark::State& state) { compare_case<zel::string>(state); }
void BM_compare_std(benchmark::State& state) { compare_case<std::string>(state); }
BENCHMARK(BM_compare_zel);
BENCHMARK(BM_compare_std);

} // namespace
