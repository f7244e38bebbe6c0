// Regular expressions: the compiler's status codes and error locations, the
// syntax the grammar admits, the matcher's documented results (longest
// match, first-found captures, the compare bound, new-line pairs, anchors,
// case rules, counted closures, trailing context), both character types,
// the predefined patterns, and two seeded differential runs: against the C
// library's POSIX extended matcher, and between the remembered and the
// plain exploration.
#include <zel/regex.h>

#include <zel/exception.h>
#include <zel/string.h>

#include "support/platform.h"

#if ZEL_TEST_HAVE_POSIX_REGEX
#  include <regex.h>
#endif

#include <cstdio>
#include <cstring>
#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/raises.h"

#include "../src/regex_program.h"

namespace {

using zel::match_pair;
constexpr unsigned npos = 0xFFFFFFFFu;
constexpr match_pair none{npos, npos};

struct status {
    unsigned code;
    unsigned location;
};

status compile_status(char const* pattern, unsigned length = npos) {
    zel::regex re;
    re.compile(pattern, length);
    return {re.status(), re.error_location()};
}

#define EXPECT_COMPILES(pattern) EXPECT_EQ(compile_status(pattern).code, 1u) << (pattern)
#define EXPECT_FAILS(pattern, c, at)                                        \
    do {                                                                    \
        status const s_ = compile_status(pattern);                          \
        EXPECT_EQ(s_.code, unsigned(c)) << (pattern);                       \
        EXPECT_EQ(s_.location, unsigned(at)) << (pattern);                  \
    } while (0)

// Status 1 compiles; any other code fails at the location given.
TEST(RegexCompile, StatusCodesAndErrorLocations) {
    struct {
        char const* pattern;
        unsigned code, location;
    } const cases[] = {
        {nullptr, 19, 0}, {"", 20, 0},
        // quotes, escapes and white space
        {"a b", 18, 1}, {"a\\ b", 1, 0}, {"\"a b\"", 1, 0}, {"\"abc", 2, 3}, {"ab\\", 3, 2},
        {"\\q", 3, 0}, {"x\\c", 3, 1}, {"\\xg1", 3, 0}, {"\\-\\,\\:\\*\\(\\{\\|\\/\\^\\\"\\\\", 1, 0},
        {"\\cA\\c[\\x41\\e\\f\\n\\r\\t\\v\\z", 1, 0},
        {"\"\"a", 1, 0},  // two quotation marks stand for nothing
        // closures and their specifiers
        {"a**", 22, 2}, {"a*?", 22, 2}, {"a{2}*", 22, 4}, {"a{2,1}", 8, 5}, {"a{0}", 8, 3},
        {"a{,3}", 8, 2}, {"a{}", 8, 2}, {"a{2, 3}", 18, 4}, {"a{0,}", 1, 0}, {"a{1,1}", 1, 0},
        // groups and back-references
        {"(a)\\0", 1, 0}, {"(a)\\1", 5, 3}, {"\\0(a)", 5, 0}, {"(a\\0)", 1, 0}, {"()", 1, 0},
        {"(", 22, 1}, {")", 22, 0}, {"a(b", 22, 3},
        // classes; white space is a literal inside one
        {"[\\d]", 1, 0}, {"[\\1]", 3, 1}, {"[:foo:]", 12, 2}, {"[[:alpha:]]", 22, 1},
        {"[:DIGIT:]", 1, 0}, {"[^:space:]", 1, 0}, {"[]", 22, 1}, {"[a^]", 22, 2},
        {"[a-\\d]", 22, 3}, {"[a b]", 1, 0},
        // anchors and trailing context
        {"x^", 22, 1}, {"$x", 22, 1}, {"^", 1, 0}, {"$", 1, 0}, {"^$", 1, 0}, {"^a|b$", 1, 0},
        {"a/b", 1, 0}, {"a/b/c", 22, 3}, {"(a/b)", 1, 0}, {"a|", 22, 2},
    };
    for (auto const& c : cases) {
        status const s = compile_status(c.pattern);
        EXPECT_EQ(s.code, c.code) << (c.pattern ? c.pattern : "null");
        EXPECT_EQ(s.location, c.code == 1 ? npos : c.location) << (c.pattern ? c.pattern : "null");
    }
    zel::regex re;
    EXPECT_EQ(re.status(), 0u);
    EXPECT_EQ(re.error_location(), npos);
}

// The tables' limits: 127 pattern units, closure pairs (equal ones shared),
// 64 groups, 32 classes (a 33rd fails even when equal to an earlier one).
TEST(RegexCompile, TableLimits) {
    std::string p(127, 'a');
    EXPECT_COMPILES(p.c_str());
    EXPECT_FAILS((p + 'a').c_str(), 21, 0);
    std::string closures;
    for (int i = 2; i < 33; ++i)
        closures += "a{" + std::to_string(i) + "}";
    EXPECT_COMPILES(closures.substr(0, 127).c_str());
    std::string shared;
    for (int i = 0; i < 31; ++i)
        shared += "a{2}";  // 124 units, one shared pair
    EXPECT_COMPILES(shared.c_str());
    std::string twenty;
    for (int i = 2; i < 22; ++i)
        twenty += "a{" + std::to_string(i) + "}";  // 20 pairs in 114 units
    EXPECT_COMPILES(twenty.c_str());
    EXPECT_FAILS(std::string(65, '(').c_str(), 17, 64);
    EXPECT_COMPILES((std::string(63, '(') + std::string(63, ')')).c_str());
    std::string classes;
    for (char c : std::string("abcdefghijklmnopqrstuvwxyz012345"))
        classes += std::string("[") + c + "]";
    EXPECT_COMPILES(classes.substr(0, 96).c_str());
    EXPECT_EQ(compile_status((classes.substr(0, 96) + "[a]").c_str()).code, 13u);
    EXPECT_EQ(compile_status((classes.substr(0, 96) + "\\d").c_str()).code, 13u);
}

TEST(RegexCompile, FailedCompileDropsTheProgram) {
    zel::regex re("abc");
    EXPECT_TRUE(re.search("xabc").found());
    EXPECT_FALSE(re.compile("a b"));
    EXPECT_EQ(re.status(), 18u);
    EXPECT_EQ(re.error_location(), 1u);
    EXPECT_EQ(re.search("xabc"), none);
    EXPECT_EQ(re.compare("abc"), none);
    EXPECT_EQ(re.rsearch("abc"), none);
    EXPECT_TRUE(re.compile("b"));
    EXPECT_EQ(re.error_location(), npos);
    // Compile errors are raised on one line of src/re_compile.cpp (compile
    // catches them); the probe raises one the same way.
    zel_test::expect_raised([] { zel::detail::regex_probe::raise(8); }, "invalid_argument",
                            "invalid closure specifier", "src/re_compile.cpp", 248);
}

TEST(RegexCompile, PrintStatus) {
    std::FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    zel::regex re;
    re.print_status(f);
    re.compile("a{2,1}");
    std::fputc('|', f);
    re.print_status(f);
    re.compile("a");
    std::fputc('|', f);
    re.print_status(f);
    char text[128] = {};
    std::rewind(f);
    EXPECT_GT(std::fread(text, 1, sizeof text - 1, f), 0u);
    std::fclose(f);
    EXPECT_STREQ(text, "ready to compile|invalid closure specifier at index 5|OK - no errors");
    EXPECT_STREQ(zel::regex_base::message(22), "syntax error");
}

// Spans: search (exact case or not) and compare, which tests the first unit
// and what literal strings and back-references reach from it.
TEST(RegexMatch, SpansOfSearchAndCompare) {
    enum how { exact, any_case, compared, reversed };
    struct {
        char const* pattern;
        char const* subject;
        how form;
        match_pair span;
    } const cases[] = {
        // longest leftmost; an empty match only when nothing longer exists
        {"a*", "baa", exact, {1, 2}}, {"a*", "bbb", exact, {0, 0}}, {"a|ab", "xab", exact, {1, 2}},
        {"(a*)*b", "aaab", exact, {0, 4}}, {"x", "", exact, none}, {"a{2,3}", "aaaa", exact, {0, 3}},
        {"(ab){2}", "abababab", exact, {0, 4}}, {"(a|b){3,}", "xabbaab", exact, {1, 6}},
        {"(a*){2,}b", "aab", exact, {0, 3}}, {"()a", "ba", exact, {1, 1}},
        // a literal start that fills the rest of the subject, at once or after a near miss
        {"abc", "abc", exact, {0, 3}}, {"ab", "aab", exact, {1, 2}},
        // the compare bound
        {"abc", "abcdef", compared, {0, 3}}, {"a.c", "abcdef", compared, none},
        {"a", "", compared, none}, {"a", "ab", compared, {0, 1}}, {"b", "ab", compared, none},
        {"(a)\\0", "aa", compared, none},  // a back-reference must start before the end
        {"a*", "aaa", compared, {0, 1}}, {"$", "x", compared, {1, 0}},  // 1 is the subject end
        // anchors and line ends
        {"^b", "a\nb", exact, {2, 1}}, {"^b", "a\rb", exact, {2, 1}}, {"^b", "ab", exact, none},
        {"a$", "ba\r\n", exact, {1, 1}}, {"a$", "ab", exact, none}, {"^$", "", exact, {0, 0}},
        {"a\\nb", "a\r\nb", exact, {0, 4}}, {"a\\nb", "a\rb", exact, {0, 3}},
        {"a.b", "a\nb", exact, none},
        // case
        {"abc", "xABC", any_case, {1, 3}}, {"abc", "xABC", exact, none},
        {"[a-z]", "Q", any_case, {0, 1}}, {"[A-Z]+", "abC", any_case, {0, 3}},
        {"(a)\\0", "aA", any_case, {0, 2}}, {"(a)\\0", "aA", exact, none},
        // trailing context and back-references
        {"ab/cd", "xabcd", exact, {1, 2}}, {"ab/cd", "xabce", exact, none},
        {"a*/b", "aaab", exact, {0, 3}}, {"(a+)b\\0", "aabaa", exact, {0, 5}},
        {"(a+)b\\0", "aaba", exact, {1, 3}},
        {"(a\\0)", "aa", exact, none},  // an open group has captured nothing yet
        // the longer span's trail comes second, and what follows it was seen
        // after the first
        {"(a|ab)/b*c", "abbc", exact, {0, 2}}, {"(a|ab)/(b|c)*c", "xabbc", exact, {1, 2}},
        // rsearch counts from the end of the previous match; the empty
        // match at the end is not taken
        {"ab", "abxab", reversed, {1, 2}}, {"ab", "xxab", reversed, {2, 2}}, {"ab", "xx", reversed, none},
        {"a*", "baa", reversed, {1, 2}}, {"a*", "bbb", reversed, {0, 0}},
        // the predefined patterns
        {zel::re_pat_identifier, "1 __x9_ y", exact, {2, 5}}, {zel::re_pat_integer, "a-12b", exact, {1, 3}},
        {zel::re_pat_double, ".5", exact, {0, 2}}, {zel::re_pat_double, "7.", exact, {0, 2}},
        {zel::re_pat_double, "-", exact, none},
    };
    for (auto const& c : cases) {
        zel::regex re(c.pattern);
        EXPECT_EQ(re.status(), 1u) << c.pattern;
        match_pair const m = c.form == compared ? re.compare(c.subject)
                             : c.form == reversed ? re.rsearch(c.subject)
                                                  : re.search(c.subject, npos, nullptr, c.form == exact);
        EXPECT_EQ(m, c.span) << c.pattern << " on [" << c.subject << "]";
    }
    zel::regex not_x("[^x]");
    EXPECT_EQ(not_x.search("\n\r\0y", 4), (match_pair{3, 1}));
}

// Among paths of equal length the first found gives the captures; a group
// that took no part has none. Below its maximum a bounded closure may run
// another repetition after an empty one at the same position; every such
// path is explored.
TEST(RegexMatch, CapturesOfTheFirstPathAndRepeatsAfterAnEmptyRepetition) {
    struct {
        char const* pattern;
        char const* subject;
        match_pair span;
        std::vector<match_pair> groups;
    } const cases[] = {
        {"(a|ab)(c|bcd)", "abcd", {0, 4}, {{0, 1}, {1, 3}}},
        {"(a)|(a)", "a", {0, 1}, {{0, 1}, none}},
        {"(a*)(a*)", "aaa", {0, 3}, {{0, 3}, {3, 0}}},
        {zel::re_pat_double, "x -12.5e+3y", {2, 8}, {{3, 4}, {3, 4}, none, none, {7, 3}}},
        {"x((c?)|(d?)){1,2}\\1\\2y", "xy", {0, 2}, {{1, 0}, {1, 0}, {1, 0}}},
        {"x((c?)|(d?)){0,2}\\1\\2y", "xy", {0, 2}, {{1, 0}, {1, 0}, {1, 0}}},
        {"(c?|b){1,2}", "b", {0, 1}, {{0, 1}}},
        {"(c?|b){0,2}", "b", {0, 1}, {{0, 1}}},
        {"(a?|b){2,3}", "b", {0, 1}, {{0, 1}}},
        {"x((c?)|(d?)){1,1}\\1\\2y", "xy", none, {}},  // at the maximum: no more
        {"(c?|b){1,}", "b", {0, 1}, {{1, 0}}},  // unbounded: b, then one empty repetition
        // trailing context: the captures of the first path to the longest span
        {"(a|ab)/b*(c)", "abbc", {0, 2}, {{0, 2}, {3, 1}}},
    };
    for (auto const& c : cases) {
        zel::regex re(c.pattern);
        match_pair subs[5];
        EXPECT_EQ(re.search(c.subject, npos, subs), c.span) << c.pattern;
        for (std::size_t i = 0; i < c.groups.size(); ++i)
            EXPECT_EQ(subs[i], c.groups[i]) << c.pattern << " group " << i;
    }
    EXPECT_EQ(zel::regex(zel::re_pat_double).subexpressions(), 5u);
}

TEST(RegexMatch, StringFormsCountFromTheirPosition) {
    zel::regex re("b+");
    zel::string s("abba b");
    EXPECT_EQ(re.search(s), (match_pair{1, 2}));
    EXPECT_EQ(re.search(s, 3, npos), (match_pair{2, 1}));
    EXPECT_EQ(re.search(s, 6, npos), none);
    EXPECT_THROW(re.search(s, 7, npos), zel::out_of_range);
    EXPECT_EQ(re.search(s, 0, 2), (match_pair{1, 1}));
    EXPECT_EQ(re.compare(s, 1, npos), (match_pair{0, 1}));
}

TEST(RegexMatch, CopiesOwnTheirProgram) {
    zel::regex a("x+");
    zel::regex b(a);
    a.compile("y");
    EXPECT_EQ(b.search("axxb"), (match_pair{1, 2}));
    b = a;
    EXPECT_EQ(b.search("axyb"), (match_pair{2, 1}));
    zel::regex& self = b;
    b = self;
    EXPECT_EQ(b.status(), 1u);
    zel::regex failed("(");
    b = failed;
    EXPECT_EQ(b.status(), 22u);
    EXPECT_EQ(b.search("("), none);
}

std::vector<unsigned short> wide(char16_t const* s) {
    std::vector<unsigned short> v;
    for (; *s; ++s)
        v.push_back(static_cast<unsigned short>(*s));
    v.push_back(0);
    return v;
}

TEST(WideRegex, AlphabetClassesAndSubjects) {
    auto pattern = wide(u"[\u03B1-\u03C9]+");
    zel::wregex greek(pattern.data(), npos, zel::greek);
    ASSERT_EQ(greek.status(), 1u);
    auto subject = wide(u"ab\u03B3\u03B4c");
    EXPECT_EQ(greek.search(subject.data()), (match_pair{2, 2}));
    // A range outside the block is dropped, and the block's last code
    // (its upper bound) is outside it.
    zel::wregex cyr(wide(u"[\u03B1]x").data(), npos, zel::cyrillic);
    EXPECT_EQ(cyr.search(wide(u"\u03B1x").data()), none);
    zel::wregex last(wide(u"[\u03FF]").data(), npos, zel::greek);
    EXPECT_EQ(last.search(wide(u"\u03FF").data()), none);
    zel::wregex neg(wide(u"[^a]").data(), npos, zel::greek);
    EXPECT_EQ(neg.search(wide(u"a\u03FE").data()), (match_pair{1, 1}));
    zel::wregex lit(wide(u"\u3042+").data(), npos, zel::hiragana);
    EXPECT_EQ(lit.search(wide(u"x\u3042\u3042").data()), (match_pair{1, 2}));
    zel::wstring ws(u"xxAB");
    zel::wregex ab(wide(u"ab").data());
    EXPECT_EQ(ab.search(ws, 1, npos, nullptr, false), (match_pair{1, 2}));
    EXPECT_EQ(ab.rsearch(wide(u"abab").data()), (match_pair{0, 2}));
}

// --- differential runs -----------------------------------------------------------

// A generator of patterns from the subset both matchers share, over the
// alphabet a, b, c, with subjects over a, b, c and new lines.
struct generator {
    std::mt19937 rng;
    bool inner_anchors = false;  // a last branch anchored at its start
    bool inner_trails = false;   // trailing context inside groups, repeated or not
    char const* units = "abcab\n";
    explicit generator(unsigned seed) : rng(seed) {}
    unsigned pick(unsigned n) { return rng() % n; }

    std::string atom(int depth) {
        switch (pick(depth > 0 ? 8 : 6)) {
        case 0: return ".";
        case 1: return "[ab]";
        case 2: return "[^a\n]";
        case 3: return "b";
        case 4: return "c";
        case 5: return "a";
        default:
            return "(" + alternatives(depth - 1) + (inner_trails && pick(3) == 0 ? "/" + branch(depth - 1) : "") + ")";
        }
    }
    std::string closed(int depth) {
        std::string a = atom(depth);
        switch (pick(9)) {
        case 0: return a + "*";
        case 1: return a + "+";
        case 2: return a + "?";
        case 3: return a + "{" + std::to_string(pick(3)) + "," + std::to_string(2 + pick(2)) + "}";
        case 4: return a + "{" + std::to_string(1 + pick(2)) + "}";
        default: return a;
        }
    }
    std::string branch(int depth) {
        std::string b;
        for (unsigned n = 1 + pick(3); n; --n)
            b += closed(depth);
        return b;
    }
    std::string alternatives(int depth) {
        std::string a = branch(depth);
        if (pick(4) == 0)
            a += "|" + branch(depth);
        return a;
    }
    std::string pattern() {
        std::string p = alternatives(2);
        if (pick(8) == 0 && p[0] != '^')
            p = "^" + p;
        if (pick(8) == 0 && p.back() != '$')
            p += "$";
        if (inner_anchors && pick(3) == 0)
            p += std::string("|^") + branch(1) + (pick(2) ? "$" : "");
        return p;
    }
    std::string subject(unsigned longest = 11) {
        std::string s;
        for (unsigned n = pick(longest + 1); n; --n)
            s += units[pick(unsigned(std::strlen(units)))];
        return s;
    }
};

TEST(RegexDifferential, AgreesWithPosixExtendedMatching) {
    ZEL_REQUIRE(posix_regex);
#if ZEL_TEST_HAVE_POSIX_REGEX
    generator g(20240611);
    int compared = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string const p = g.pattern();
        zel::regex re(p.c_str());
        ASSERT_EQ(re.status(), 1u) << p;
        if (re.search("").found())  // the common subset excludes patterns matching nothing
            continue;
        regex_t posix;
        ASSERT_EQ(regcomp(&posix, p.c_str(), REG_EXTENDED | REG_NEWLINE), 0) << p;
        for (int k = 0; k < 4; ++k) {
            std::string const s = g.subject();
            regmatch_t m[1];
            match_pair expected = none;
            if (regexec(&posix, s.c_str(), 1, m, 0) == 0)
                expected = {unsigned(m[0].rm_so), unsigned(m[0].rm_eo - m[0].rm_so)};
            ASSERT_EQ(re.search(s.c_str()), expected) << "pattern " << p << " subject " << s;
            ++compared;
        }
        regfree(&posix);
    }
    EXPECT_GT(compared, 4000);
#endif
}

match_pair probe(zel::regex_base const& re, void const* s, unsigned unit, std::size_t n, match_pair* subs,
                 bool exact, zel::detail::re_path path, std::uint64_t* steps = nullptr) {
    return zel::detail::regex_probe::search(re, s, unit, unsigned(n), subs, exact, path, steps);
}

match_pair rprobe(zel::regex_base const& re, void const* s, unsigned unit, std::size_t n, match_pair* subs,
                  bool exact, zel::detail::re_path path, std::uint64_t* steps = nullptr) {
    return zel::detail::regex_probe::rsearch(re, s, unit, unsigned(n), subs, exact, path, steps);
}

// Search and rsearch on the path under test give the span and the captures
// of the reference path.
void agree(zel::regex_base const& re, void const* s, unsigned unit, std::size_t n, bool exact,
           zel::detail::re_path reference, zel::detail::re_path path, std::string const& what) {
    for (auto run : {probe, rprobe}) {
        match_pair a[64], b[64];
        match_pair const expected = run(re, s, unit, n, a, exact, reference, nullptr);
        match_pair const found = run(re, s, unit, n, b, exact, path, nullptr);
        ASSERT_EQ(found, expected) << (run == probe ? "" : "rsearch ") << what;
        for (unsigned j = 0; found.found() && j < re.subexpressions(); ++j)
            ASSERT_EQ(b[j], a[j]) << "group " << j << " of " << what;
    }
}

// Every way a search can run reports the span and the captures of the
// reference exploration (every path, no shortcut): the automaton with the
// explorer on its span (or the explorer alone for back-references and
// trailing context), and the remembered exploration; anchors in any branch,
// counted closures, both case modes, wide subjects with a unit above 255,
// and long subjects (where the remembered exploration is the reference);
// trail marks inside groups, repeated (passed more than once) or not;
// rsearch's chain of searches the same.
TEST(RegexDifferential, SearchPathsAgreeWithTheReference) {
    using zel::detail::re_path;
    generator g(77);
    g.inner_anchors = true;
    g.inner_trails = true;
    g.units = "abcaAB\n\r";
    for (int i = 0; i < 1500; ++i) {
        std::string p = g.pattern();
        if (g.pick(6) == 0 && p.back() != '$')
            p += "/" + g.branch(1);
        else if (p.find('(') != std::string::npos && g.pick(8) == 0 && p.back() != '$')
            p += "\\0";
        zel::regex re(p.c_str());
        if (re.status() == 21)
            continue;  // past the state limit
        ASSERT_EQ(re.status(), 1u) << p;
        std::vector<unsigned short> wp(p.begin(), p.end());
        wp.push_back(0);
        zel::wregex wre(wp.data());
        for (int k = 0; k < 3; ++k) {
            std::string const s = g.subject(7);  // the reference is exponential
            std::string const what = "[" + p + "] on [" + s + "]" + (k == 2 ? " ignoring case" : "");
            for (re_path path : {re_path::automaton, re_path::remembered})
                agree(re, s.data(), 1, s.size(), k != 2, re_path::reference, path, what);
            std::vector<unsigned short> ws(s.begin(), s.end());
            for (unsigned short& u : ws)
                u = u == 'A' ? 0x100 : u;
            ws.push_back(0);
            agree(wre, ws.data(), 2, s.size(), k != 2, re_path::reference, re_path::automaton, "wide " + what);
        }
        if (i % 100 == 0) {  // over 64 KiB
            std::string const s = std::string(34000, '\n') + g.subject() + std::string(32000, '\n') + g.subject();
            agree(re, s.data(), 1, s.size(), (i / 100) % 2 == 0, re_path::remembered, re_path::automaton, "long, " + p);
        }
    }
}

// What the automaton does not serve (back-references, trailing context, a
// state of too many threads) is searched by the explorer alone, with the
// same results as before; an automaton of more states than its cache holds
// (2^13 here) is flushed and rebuilt on the way, with the same results too.
TEST(RegexDifferential, FallbackAndAFullCacheKeepTheResults) {
    using zel::detail::re_path;
    std::string const many = std::string(90, 'a') + "x";
    std::string random;
    for (std::mt19937 rng(3); random.size() < 8000;)
        random += "ab"[rng() % 2];
    char const* const cases[][2] = {
        {"(a+)b\\0", "xaabaab"}, {"(a|b)+/c", "abcabc"}, {"[ab]{0,30}[ab]{0,30}[ab]{0,30}x", many.c_str()},
        {"(a|b)*a(a|b){12}", random.c_str()},
    };
    for (auto const& c : cases) {
        zel::regex re(c[0]);
        agree(re, c[1], 1, std::strlen(c[1]), true, re_path::remembered, re_path::automaton, c[0]);
        EXPECT_TRUE(re.search(c[1]).found()) << c[0];
    }
}

// The steps of a search or an rsearch (the automaton's positions and the
// explorer's visits on the span) at most double when the subject doubles,
// whether it fails or matches with captures; rsearch's searches each scan
// past their short match to the end here (each search once remembered).
TEST(RegexDifferential, StepsGrowLinearlyWithTheSubject) {
    using zel::detail::re_path;
    char const* const cases[][4] = {
        {"[a-z]*X", "a", ""}, {"(a|b)*c", "ab", ""}, {"a*a*a*b", "a", ""}, {"(a*)*b", "a", ""},
        {"(a|b)*c", "ab", "c"}, {"((a|aa)+)+c", "a", "c"}, {"(A|B)*(b{1,3})C", "Ab", "bbc"},
        {"a|a*b", "a", "", "r"}, {"[a-z]*X|a", "a", "", "r"}, {"(a)|a(aa)*b", "a", "", "r"},
        {"[a-z]*X", "a", "", "r"}, {"(a|b)*c", "ab", "cab", "r"}, {"(b)|[ab]{1,3}c|ab*c", "ab", "", "r"},
    };
    for (auto const& c : cases) {
        zel::regex re(c[0]);
        std::uint64_t steps[2] = {0, 0};
        for (unsigned n : {4096u, 8192u}) {
            std::string s;
            while (s.size() < n)
                s += c[1];
            s += c[2];
            match_pair subs[4];
            (c[3] ? rprobe : probe)(re, s.data(), 1, s.size(), subs, false, re_path::automaton, &steps[n == 8192]);
        }
        EXPECT_GT(steps[0], 4096u) << c[0];
        EXPECT_LE(steps[1], 2 * steps[0] + 4) << c[0];  // the chain's last search, at the end, is a constant
    }
}

// Two threads searching with one expression at once get what one alone
// does (the automaton's cache is built by one at a time).
TEST(RegexThreads, TwoThreadsShareOneExpression) {
    zel::regex re(zel::re_pat_double);
    generator g(5);
    g.units = "12.e-+x3\n";
    std::vector<std::string> subjects;
    std::vector<match_pair> expected;
    for (int i = 0; i < 200; ++i) {
        subjects.push_back(g.subject(40));
        match_pair subs[5];
        expected.push_back(probe(re, subjects.back().data(), 1, subjects.back().size(), subs, true,
                                 zel::detail::re_path::remembered));
    }
    std::atomic<int> wrong{0};
    auto work = [&](int way) {
        for (int round = 0; round < 20; ++round)
            for (std::size_t i = 0; i < subjects.size(); ++i) {
                std::size_t const k = way ? subjects.size() - 1 - i : i;
                match_pair subs[5];
                if (!(re.search(subjects[k].c_str(), npos, subs) == expected[k]))
                    ++wrong;
            }
    };
    std::thread other(work, 1);
    work(0);
    other.join();
    EXPECT_EQ(wrong.load(), 0);
}

// The largest programs the tables allow: the header's areas follow one
// another as its sizes say, and the programs match.
void expect_consistent_layout(zel::regex const& re) {
    zel::xbuf const* p = zel::detail::regex_probe::program(re);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->state_bytes, (p->top_state + 1u) * 8u / 16u * 16u + 16u);
    EXPECT_EQ(p->class_offset, p->state_bytes + p->literal_units * 2u);
    EXPECT_EQ(p->class_bytes, p->class_sets * 32u);
    EXPECT_EQ(p->closure_offset, p->class_offset + p->class_bytes);
    EXPECT_GE(p->group_offset, p->closure_offset);
}

TEST(RegexCompile, LargestProgramsKeepTheirLayout) {
    using zel::detail::regex_probe;
    std::string states, groups, subject;
    for (int i = 0; i < 63; ++i)
        states += "a*";  // 63 closures and a literal: 253 states
    states += 'b';
    for (char c = 'a'; c < 'a' + 15; ++c) {  // 15 groups, each with a class and a counted closure
        groups += std::string("([") + c + "]{" + char('1' + c % 2) + "})";
        subject += std::string(1 + c % 2, c);
    }
    std::string const literal(127, 'q');  // one string of 127 units
    unsigned const n = unsigned(subject.size());
    struct {
        std::string pattern, subject;
        match_pair span, last;
    } const cases[] = {
        {states, "xxaaab", {2, 4}, none}, {literal, "x" + literal, {1, 127}, none},
        {groups, subject, {0, n}, {n - 2, 2}},
    };
    for (auto const& c : cases) {
        zel::regex re(c.pattern.c_str());
        ASSERT_EQ(re.status(), 1u) << c.pattern;
        expect_consistent_layout(re);
        match_pair subs[15] = {};
        EXPECT_EQ(re.search(c.subject.c_str(), npos, subs), c.span) << c.pattern;
        EXPECT_TRUE(re.subexpressions() != 15 || subs[14] == c.last) << "\"oo\" of " << c.pattern;
    }
    EXPECT_GE(regex_probe::program(zel::regex(states.c_str()))->top_state, 250u);
    EXPECT_EQ(regex_probe::program(zel::regex(literal.c_str()))->literal_units, 128u);
    EXPECT_EQ(zel::regex(groups.c_str()).subexpressions(), 15u);
}

TEST(StringRegex, FindContainsAndSubstitute) {
    zel::regex word("[a-z]+"), digits("\\d+"), star("x*");
    zel::string s("Ab 12 cd 345");
    EXPECT_EQ(s.find(word), (match_pair{1, 1}));
    EXPECT_EQ(s.ifind(word), (match_pair{0, 2}));
    EXPECT_EQ(s.find(digits, 4), (match_pair{4, 1}));  // positions count from the string's start
    EXPECT_EQ(s.find(digits, 0, 4), (match_pair{3, 1}));
    EXPECT_EQ(s.find(digits, 0, npos, true, true, true), (match_pair{9, 3}));
    EXPECT_EQ(s.find(digits, 3, npos, false, true, false), (match_pair{3, 1}));  // the compare bound
    EXPECT_EQ(s.find(digits, 12), none);
    EXPECT_THROW(s.find(digits, 13), zel::out_of_range);
    EXPECT_TRUE(s.contains(digits));
    EXPECT_FALSE(s.contains(word, 9));
    EXPECT_TRUE(s.icontains(word, 0, 1));

    zel::string t(s);
    EXPECT_EQ(t.tsub(digits, "#"), 2u);
    EXPECT_EQ(t, "Ab # cd #");
    EXPECT_EQ(s, "Ab 12 cd 345");  // the sharer is untouched
    t = s;
    EXPECT_EQ(t.tsub(digits, '*', 2, zel::string::sub_last), 1u);
    EXPECT_EQ(t, "Ab 12 cd **");
    EXPECT_EQ(t.itsub(word, t.substr(0, 2), zel::string::sub_first), 1u);
    EXPECT_EQ(t, "Ab 12 cd **");
    EXPECT_EQ(t.remove(word), 2u);
    EXPECT_EQ(t, "A 12  **");
    EXPECT_EQ(t.iremove(zel::regex("a")), 1u);
    EXPECT_EQ(t.remove(star), 0u);  // only non-empty matches are replaced
    EXPECT_EQ(t.tsub(digits, "x", 8u), 0u);  // an unknown flag does nothing
    zel::regex anchored("^a");
    zel::string u("aaab");
    EXPECT_EQ(u.remove(anchored), 3u);  // each search starts a subject of its own
    EXPECT_EQ(u, "b");

    zel::wstring w(u"x12y3");
    zel::wregex wd(reinterpret_cast<unsigned short const*>(u"\\d+"));
    EXPECT_EQ(w.find(wd), (match_pair{1, 2}));
    EXPECT_EQ(w.tsub(wd, u'-', 1), 2u);
    EXPECT_TRUE(w == zel::wstring(u"x-y-"));
}

// One search and one replacement, whatever the match's length; only the
// every-occurrence form passes over empty matches.
TEST(StringRegex, FirstAndLastOccurrenceReplaceAnEmptyMatch) {
    zel::regex star("a*");
    auto const first = zel::string::sub_first;
    zel::string s("bbb");
    EXPECT_EQ(s.tsub(star, "X", first), 1u);
    EXPECT_EQ(s, "Xbbb");
    EXPECT_EQ(s.tsub(star, '-', 2, first), 1u);
    EXPECT_EQ(s, "--Xbbb");
    EXPECT_EQ(s.remove(star, first), 1u);
    EXPECT_EQ(s, "--Xbbb");
    EXPECT_EQ(s.tsub(star, "X"), 0u);
    zel::string last("bcb");
    EXPECT_EQ(last.tsub(star, "L", zel::string::sub_last), 1u);
    EXPECT_EQ(last, "Lbcb");
    zel::string a("baa");
    EXPECT_EQ(a.itsub(zel::regex("A*"), "Y", first), 1u);
    EXPECT_EQ(a, "bY") << "a non-empty match later on is preferred";
    zel::wstring w(u"bbb");
    EXPECT_EQ(w.tsub(zel::wregex(reinterpret_cast<unsigned short const*>(u"a*")), u'Z', 1, first), 1u);
    EXPECT_TRUE(w == zel::wstring(u"Zbbb"));
}

// The last-match scan also runs on an empty range, where the only match an
// expression can have is the empty one at the range's start.
TEST(StringRegex, LastMatchOnAnEmptyRangeIsTheEmptyMatch) {
    zel::regex const star("x*"), digits("\\d+");
    zel::string const s("ab12");
    EXPECT_EQ(zel::string().find(star, 0, npos, true, true, true), (match_pair{0, 0}));
    EXPECT_EQ(s.find(star, 4, npos, true, true, true), (match_pair{4, 0}));
    EXPECT_EQ(s.find(star, 1, 0, true, true, true), (match_pair{1, 0}));
    EXPECT_EQ(s.find(digits, 4, npos, true, true, true), none);
}

// Every white-space unit (tab to carriage return, and the blank) is refused
// outside quotes and classes, in a closure specifier too; inside a class it
// is a literal.
TEST(RegexCompile, EveryWhiteSpaceUnitIsRefused) {
    for (char const u : {'\t', '\n', '\v', '\f', '\r', ' '}) {
        std::string const plain = std::string("a") + u + "b", closure = std::string("a{1,") + u + "2}";
        EXPECT_FAILS(plain.c_str(), 18, 1);
        EXPECT_FAILS(closure.c_str(), 18, 4);
        EXPECT_COMPILES((std::string("[") + u + "]").c_str());
    }
}

} // namespace
