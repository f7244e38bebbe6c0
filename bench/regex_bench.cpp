// zel's regular expressions beside std::regex (ECMAScript and extended), the
// C library's regexec (REG_EXTENDED) and, when it is installed, RE2 in its
// longest-match mode. Each workload finds every match in turn over the same
// 1 MB of generated text (words, numbers, identifiers, blanks and new lines,
// from a fixed seed): an identifier pattern, re_pat_double, a five-word
// alternation, a literal, a multi-unit literal prefix before a class loop
// and a digit run; the number pattern again with its
// captures asked for, and a case-insensitive alternation. The counter
// "matches" lets the engines be checked against each other. Three growth
// cases search 64 KiB that holds no match ([a-z]*X over 'a's, (a|b)*c over
// "ab", a*a*a*b over 'a's), where a matcher that explores from every start
// position to the end takes quadratic time or worse; std::regex is left out
// of them (it takes minutes). A last case runs the nested closure (a*)*b
// against 30 'a's, which an unremembered backtracking matcher takes
// exponential time over.
#include <zel/regex.h>

#include <regex.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <regex>
#include <string>

#include <benchmark/benchmark.h>

#ifdef ZEL_BENCH_RE2
#include <re2/re2.h>
#endif

namespace {

// Tokens drawn with a fixed seed; the raw generator output (not a
// distribution, whose mapping differs between libraries) picks each one.
std::string make_text(std::size_t size) {
    static char const* const words[] = {
        "the", "of", "and", "to", "in", "is", "was", "that", "for", "it", "with", "as",
        "his", "on", "be", "at", "by", "had", "not", "are", "but", "from", "or", "have",
        "alpha", "bravo", "charlie", "delta", "echo", "quartz", "matrix", "vector", "signal",
        "river", "stone", "window", "garden", "letter", "number", "yellow", "silent", "music",
    };
    static char const* const identifiers[] = {
        "_tmp", "x1", "fooBar_2", "__init", "count_", "MAX_SIZE", "p7q", "node_next", "i",
    };
    static char const* const numbers[] = {
        "0", "7", "42", "1999", "3.14", "-12", ".5", "6.02e23", "1e-9", "-0.25", "65536", "10.",
    };
    std::mt19937 random(20240605u);
    std::string text;
    text.reserve(size + 16);
    while (text.size() < size) {
        std::uint32_t const r = random();
        unsigned const pick = r >> 8;
        switch (r % 8) {
        case 0: case 1: case 2: case 3: case 4:
            text += words[pick % (sizeof words / sizeof *words)];
            break;
        case 5:
            text += identifiers[pick % (sizeof identifiers / sizeof *identifiers)];
            text += std::to_string(pick % 100);
            break;
        default:
            text += numbers[pick % (sizeof numbers / sizeof *numbers)];
            break;
        }
        unsigned const gap = (r >> 4) % 16;
        text += gap == 0 ? "\n" : gap == 1 ? ", " : gap == 2 ? "\t" : gap == 3 ? ". " : " ";
    }
    text.resize(size);
    return text;
}

enum text_id { prose, as, abs };

std::string const& text(text_id which) {
    static std::string const t = make_text(std::size_t(1) << 20);
    static std::string const a(std::size_t(1) << 16, 'a');
    static std::string const ab = [] {
        std::string s;
        while (s.size() < (std::size_t(1) << 16))
            s += "ab";
        return s;
    }();
    return which == prose ? t : which == as ? a : ab;
}

struct workload {
    char const* zel;
    char const* ecmascript;  // also RE2's
    char const* posix;       // std::regex extended and regexec
    unsigned groups = 0;     // captures asked for (every group and the whole match)
    bool icase = false;
    text_id over = prose;
};

enum workload_id {
    identifier, number, words, literal, prefix, digits, captures, ignore_case,
    no_match_star, alternation_star, nested_star
};

workload const workloads[] = {
    {zel::re_pat_identifier, "_*[a-zA-Z][0-9a-zA-Z_]*", "_*[a-zA-Z][0-9a-zA-Z_]*"},
    {zel::re_pat_double, R"(-?((\d+\.\d*)|(\d+)|(\.\d+))([eE][+\-]?\d+)?)",
     R"(-?(([0-9]+\.[0-9]*)|([0-9]+)|(\.[0-9]+))([eE][+-]?[0-9]+)?)"},
    {"alpha|bravo|charlie|delta|echo", "alpha|bravo|charlie|delta|echo",
     "alpha|bravo|charlie|delta|echo"},
    {"quartz", "quartz", "quartz"},
    {"wind[a-z]*", "wind[a-z]*", "wind[a-z]*"},
    {"[0-9]+", "[0-9]+", "[0-9]+"},
    {zel::re_pat_double, R"(-?((\d+\.\d*)|(\d+)|(\.\d+))([eE][+\-]?\d+)?)",
     R"(-?(([0-9]+\.[0-9]*)|([0-9]+)|(\.[0-9]+))([eE][+-]?[0-9]+)?)", 5},
    {"QUARTZ|Matrix|signal", "QUARTZ|Matrix|signal", "QUARTZ|Matrix|signal", 0, true},
    {"[a-z]*X", "[a-z]*X", "[a-z]*X", 0, false, as},
    {"(a|b)*c", "(a|b)*c", "(a|b)*c", 0, false, abs},
    {"a*a*a*b", "a*a*a*b", "a*a*a*b", 0, false, as},
};

// Each finder reports the next match at or after `at` as absolute offsets.
struct span {
    std::size_t position;
    std::size_t length;
};

class zel_finder {
public:
    explicit zel_finder(char const* pattern, unsigned groups = 0, bool icase = false)
        : re_(pattern), groups_(groups), icase_(icase) {}
    explicit zel_finder(workload const& w) : zel_finder(w.zel, w.groups, w.icase) {}
    bool find(std::string const& t, std::size_t at, span& m) const {
        zel::match_pair subs[8];
        zel::match_pair const r =
            re_.search(t.data() + at, unsigned(t.size() - at), groups_ ? subs : nullptr, !icase_);
        m = {at + r.position, r.length};
        return r.found();
    }

private:
    zel::regex re_;
    unsigned groups_;
    bool icase_;
};

class std_finder {
public:
    std_finder(char const* pattern, std::regex::flag_type syntax, bool icase)
        : re_(pattern, icase ? syntax | std::regex::icase : syntax) {}
    bool find(std::string const& t, std::size_t at, span& m) const {
        std::cmatch r;
        auto const flags = at ? std::regex_constants::match_prev_avail : std::regex_constants::match_default;
        if (!std::regex_search(t.data() + at, t.data() + t.size(), r, re_, flags))
            return false;
        m = {at + std::size_t(r.position(0)), std::size_t(r.length(0))};
        return true;
    }

private:
    std::regex re_;
};

class posix_finder {
public:
    explicit posix_finder(char const* pattern, unsigned groups = 0, bool icase = false) : groups_(groups) {
        ok_ = regcomp(&re_, pattern, REG_EXTENDED | (icase ? REG_ICASE : 0)) == 0;
    }
    explicit posix_finder(workload const& w) : posix_finder(w.posix, w.groups, w.icase) {}
    ~posix_finder() {
        if (ok_)
            regfree(&re_);
    }
    posix_finder(posix_finder const&) = delete;
    posix_finder& operator=(posix_finder const&) = delete;
    // REG_STARTEND bounds the subject without copying it.
    bool find(std::string const& t, std::size_t at, span& m) const {
        regmatch_t r[8];
        r[0].rm_so = regoff_t(at);
        r[0].rm_eo = regoff_t(t.size());
        if (!ok_ || regexec(&re_, t.c_str(), 1 + groups_, r, REG_STARTEND | (at ? REG_NOTBOL : 0)) != 0)
            return false;
        m = {std::size_t(r[0].rm_so), std::size_t(r[0].rm_eo - r[0].rm_so)};
        return true;
    }

private:
    regex_t re_;
    unsigned groups_;
    bool ok_;
};

#ifdef ZEL_BENCH_RE2
class re2_finder {
public:
    explicit re2_finder(char const* pattern, unsigned groups = 0, bool icase = false)
        : re_(pattern, options(icase)), groups_(groups) {}
    explicit re2_finder(workload const& w) : re2_finder(w.ecmascript, w.groups, w.icase) {}
    bool find(std::string const& t, std::size_t at, span& m) const {
        re2::StringPiece r[8];
        if (!re_.Match(t, at, t.size(), RE2::UNANCHORED, r, int(1 + groups_)))
            return false;
        m = {std::size_t(r[0].data() - t.data()), r[0].size()};
        return true;
    }

private:
    static RE2::Options options(bool icase) {
        RE2::Options o;
        o.set_longest_match(true);
        o.set_case_sensitive(!icase);
        return o;
    }
    RE2 re_;
    unsigned groups_;
};
#endif

// Finds every match in turn: the next search begins where the match ended.
template <class Finder>
void scan(benchmark::State& state, Finder const& finder, text_id over) {
    std::string const& t = text(over);
    std::size_t matches = 0;
    for (auto _ : state) {
        matches = 0;
        span m{};
        for (std::size_t at = 0; at < t.size() && finder.find(t, at, m); at = m.position + (m.length ? m.length : 1))
            ++matches;
        benchmark::DoNotOptimize(matches);
    }
    state.counters["matches"] = double(matches);
    state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(t.size()));
}

void BM_zel(benchmark::State& state, workload_id w) { scan(state, zel_finder(workloads[w]), workloads[w].over); }
void BM_std_ecmascript(benchmark::State& state, workload_id w) {
    scan(state, std_finder(workloads[w].ecmascript, std::regex::ECMAScript, workloads[w].icase), workloads[w].over);
}
void BM_std_extended(benchmark::State& state, workload_id w) {
    scan(state, std_finder(workloads[w].posix, std::regex::extended, workloads[w].icase), workloads[w].over);
}
void BM_regexec(benchmark::State& state, workload_id w) { scan(state, posix_finder(workloads[w]), workloads[w].over); }
#ifdef ZEL_BENCH_RE2
void BM_re2_longest(benchmark::State& state, workload_id w) {
    scan(state, re2_finder(workloads[w]), workloads[w].over);
}
#define ZEL_RE2_CASE(w) BENCHMARK_CAPTURE(BM_re2_longest, w, w)->Unit(benchmark::kMillisecond);
#else
#define ZEL_RE2_CASE(w)
#endif

#define ZEL_WORKLOAD(w)                                                        \
    BENCHMARK_CAPTURE(BM_zel, w, w)->Unit(benchmark::kMillisecond);            \
    BENCHMARK_CAPTURE(BM_std_ecmascript, w, w)->Unit(benchmark::kMillisecond); \
    BENCHMARK_CAPTURE(BM_std_extended, w, w)->Unit(benchmark::kMillisecond);   \
    BENCHMARK_CAPTURE(BM_regexec, w, w)->Unit(benchmark::kMillisecond);        \
    ZEL_RE2_CASE(w)

ZEL_WORKLOAD(identifier)
ZEL_WORKLOAD(number)
ZEL_WORKLOAD(words)
ZEL_WORKLOAD(literal)
ZEL_WORKLOAD(prefix)
ZEL_WORKLOAD(digits)
ZEL_WORKLOAD(captures)
ZEL_WORKLOAD(ignore_case)

#define ZEL_GROWTH(w)                                                   \
    BENCHMARK_CAPTURE(BM_zel, w, w)->Unit(benchmark::kMillisecond);     \
    BENCHMARK_CAPTURE(BM_regexec, w, w)->Unit(benchmark::kMillisecond); \
    ZEL_RE2_CASE(w)

ZEL_GROWTH(no_match_star)
ZEL_GROWTH(alternation_star)
ZEL_GROWTH(nested_star)

// (a*)*b against 30 'a's: no match, after every way of splitting the 'a's
// between the two closures has been ruled out.
template <class Finder>
void nested(benchmark::State& state, Finder const& finder) {
    std::string const subject(30, 'a');
    span m{};
    for (auto _ : state)
        benchmark::DoNotOptimize(finder.find(subject, 0, m));
}
void BM_nested_closure_zel(benchmark::State& state) { nested(state, zel_finder("(a*)*b")); }
void BM_nested_closure_regexec(benchmark::State& state) { nested(state, posix_finder("(a*)*b")); }
BENCHMARK(BM_nested_closure_zel)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_nested_closure_regexec)->Unit(benchmark::kMicrosecond);
#ifdef ZEL_BENCH_RE2
void BM_nested_closure_re2_longest(benchmark::State& state) { nested(state, re2_finder("(a*)*b")); }
BENCHMARK(BM_nested_closure_re2_longest)->Unit(benchmark::kMicrosecond);
#endif

} // namespace
