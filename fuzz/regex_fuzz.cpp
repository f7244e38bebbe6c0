// Fuzz target for the regular-expression compiler and matcher.
//
// The first byte chooses how the rest is read:
//   - raw (low bit clear): a pattern of arbitrary units and a subject of
//     arbitrary units, compiled narrow and wide (pattern bytes widened, or
//     paired into 16-bit units above 255, for an alphabet block the input
//     picks); search, rsearch and compare run with and without captures and
//     in both case modes. Checked: no crash or sanitizer report, every span
//     inside the subject, compare anchored at the start, the span of a search with
//     captures equal to the span without, and the narrow and wide forms
//     agreeing when the wide units are the narrow bytes widened.
//   - grammar (low bit set): the bytes drive a generator of patterns from
//     the subset zel shares with POSIX extended expressions, compared with
//     the C library's regcomp/regexec (REG_EXTENDED).
//
// The rule for comparing with regexec. Both matchers report the leftmost
// match and the longest one at that position over the whole pattern
// (zel by its automaton, POSIX by definition), so the overall span agrees
// wherever the subset's meaning agrees. The one difference: zel returns an
// empty match only when no position yields a non-empty one, while POSIX
// returns the leftmost match even when it is empty. So:
//   - regexec finds nothing          -> zel finds nothing;
//   - regexec finds a non-empty span -> zel finds the same position and
//                                      length (no earlier position matched
//                                      at all, so zel's preference for a
//                                      non-empty match changes nothing);
//   - regexec finds an empty span    -> not compared.
// The subset: literals a, b, c; `.`; classes of a-c letters and ranges,
// negated or not; groups; one of * + ? per atom; alternation; `^` first and
// `$` last in a branch of the whole pattern only (the C library lets a `^`
// inside a repeated group match again after the first pass: `(^a?.)+` on
// "abab" spans 4 there, while a `^` in the middle of the subject never
// matches here, as POSIX defines it). Subjects are over a, b, c, d only: no new line,
// carriage return or 0, where `.`, negated classes and the anchors differ
// (zel's `^`/`$` also meet at line ends, and its negated classes never
// take 10, 13 or 0). Captures are not compared: the two sides choose
// different paths among equal-length matches. Case-insensitive matching is
// not compared either (zel folds through tolower/toupper unit by unit).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <regex.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <zel/regex.h>

namespace {

using zel::match_pair;

// The input being run, for the report of a failure.
std::string current_pattern;
std::string current_subject;

[[noreturn]] void fail(char const* what) {
    std::fprintf(stderr, "regex fuzz: %s\npattern [%s]\nsubject [%s]\n", what,
                 current_pattern.c_str(), current_subject.c_str());
    std::abort();
}

void expect_inside(match_pair m, unsigned length, char const* what) {
    if (!m.found()) {
        if (m.length != match_pair::none) {
            std::fprintf(stderr, "regex fuzz: %s: no match but length %u\n", what, m.length);
            fail("no match with a length");
        }
        return;
    }
    if (m.position > length || m.length > length - m.position) {
        std::fprintf(stderr, "regex fuzz: %s: span %u+%u past the subject of %u\n", what, m.position,
                     m.length, length);
        fail("span outside the subject");
    }
}

// Runs the three operations in both case modes, with and without captures;
// returns the spans found by search, rsearch and compare in exact case.
template <class Re, class C>
std::vector<match_pair> exercise(Re const& re, C const* subject, unsigned length) {
    std::vector<match_pair> subs(re.subexpressions() + 1);
    std::vector<match_pair> exact;
    for (bool exact_case : {true, false}) {
        match_pair const s = re.search(subject, length, nullptr, exact_case);
        match_pair const sc = re.search(subject, length, subs.data(), exact_case);
        expect_inside(s, length, "search");
        if (s != sc) {
            std::fprintf(stderr, "regex fuzz: search %u+%u, with captures %u+%u\n", s.position,
                         s.length, sc.position, sc.length);
            fail("captures change the span");
        }
        for (unsigned i = 0; sc.found() && i < re.subexpressions(); ++i)
            expect_inside(subs[i], length, "capture");
        match_pair const r = re.rsearch(subject, length, nullptr, exact_case);
        match_pair const rc = re.rsearch(subject, length, subs.data(), exact_case);
        expect_inside(r, length, "rsearch");
        expect_inside(rc, length, "rsearch with captures");
        match_pair const c = re.compare(subject, length, nullptr, exact_case);
        match_pair const cc = re.compare(subject, length, subs.data(), exact_case);
        expect_inside(c, length, "compare");
        expect_inside(cc, length, "compare with captures");
        // compare tries the start and the one position its bound allows
        // after it, where only an empty match can be found.
        auto anchored = [](match_pair m) {
            return !m.found() || m.position == 0 || (m.position == 1 && m.length == 0);
        };
        if (!anchored(c) || !anchored(cc)) {
            fail("compare found a match past the start");
        }
        if (exact_case)
            exact = {s, r, c};
    }
    return exact;
}

void raw(FuzzedDataProvider& in, unsigned mode) {
    std::string const pattern = in.ConsumeRandomLengthString(160);
    // Subjects stay short: a search with a back-reference explores every
    // path, and one whose trail mark sits in a repeated group remembers a
    // visit per state, position and span end (time cubic in the subject's
    // length), past the fuzzer's time limit at a few hundred units under
    // the sanitizers.
    std::string const subject = in.ConsumeBytesAsString(128);
    current_pattern = pattern;
    current_subject = subject;
    unsigned const plen = unsigned(pattern.size());
    unsigned const slen = unsigned(subject.size());

    zel::regex re;
    re.compile(pattern.data(), plen);
    std::vector<match_pair> const narrow = exercise(re, subject.data(), slen);
    zel::regex copy(re);
    if (copy.status() != re.status())
        fail("a copy has another status");

    auto const alphabet = zel::wregex_alphabets((mode >> 2) % 24);
    std::vector<unsigned short> wpattern;
    std::vector<unsigned short> wsubject;
    bool const paired = (mode & 2) != 0;
    if (paired) {
        for (std::size_t i = 0; i + 1 < pattern.size(); i += 2)
            wpattern.push_back(
                static_cast<unsigned short>(static_cast<unsigned char>(pattern[i]) |
                                            static_cast<unsigned char>(pattern[i + 1]) << 8));
        for (std::size_t i = 0; i + 1 < subject.size(); i += 2)
            wsubject.push_back(
                static_cast<unsigned short>(static_cast<unsigned char>(subject[i]) |
                                            static_cast<unsigned char>(subject[i + 1]) << 8));
    } else {
        for (char c : pattern)
            wpattern.push_back(static_cast<unsigned char>(c));
        for (char c : subject)
            wsubject.push_back(static_cast<unsigned char>(c));
    }
    wpattern.push_back(0);
    wsubject.push_back(0);
    zel::wregex wre(alphabet);
    wre.compile(wpattern.data(), unsigned(wpattern.size() - 1));
    std::vector<match_pair> const wide = exercise(wre, wsubject.data(), unsigned(wsubject.size() - 1));
    if (!paired) {
        if (wre.status() != re.status())
            fail("narrow and wide compile differently");
        if (wide != narrow)
            fail("narrow and wide match differently");
    }
    zel::string s(subject.data(), slen);
    (void)s.find(re);
}

// Patterns of the subset shared with POSIX (see the file comment).
struct generator {
    FuzzedDataProvider& in;
    unsigned pick(unsigned n) { return in.ConsumeIntegralInRange<unsigned>(0, n - 1); }

    std::string cls() {
        std::string c = "[";
        if (pick(3) == 0)
            c += '^';
        for (unsigned n = 1 + pick(3); n; --n) {
            char const a = char('a' + pick(3));
            c += a;
            if (pick(3) == 0)
                c += std::string("-") + char(a + pick(unsigned('c' - a + 1)));
        }
        return c + "]";
    }
    std::string atom(int depth) {
        switch (pick(depth > 0 ? 7 : 5)) {
        case 0: return ".";
        case 1: return cls();
        case 2: return "a";
        case 3: return "b";
        case 4: return "c";
        default: return "(" + alternatives(depth - 1) + ")";
        }
    }
    std::string closed(int depth) {
        std::string a = atom(depth);
        switch (pick(6)) {
        case 0: return a + "*";
        case 1: return a + "+";
        case 2: return a + "?";
        default: return a;
        }
    }
    std::string branch(int depth, bool top) {
        std::string b = top && pick(6) == 0 ? "^" : "";
        for (unsigned n = 1 + pick(4); n; --n)
            b += closed(depth);
        if (top && pick(6) == 0)
            b += "$";
        return b;
    }
    std::string alternatives(int depth, bool top = false) {
        std::string a = branch(depth, top);
        for (unsigned n = pick(3); n; --n)
            a += "|" + branch(depth, top);
        return a;
    }
};

void grammar(FuzzedDataProvider& in) {
    generator g{in};
    std::string const pattern = g.alternatives(3, true);
    std::string subject;
    for (unsigned n = g.pick(40); n && in.remaining_bytes(); --n)
        subject += char('a' + g.pick(4));

    current_pattern = pattern;
    current_subject = subject;
    zel::regex re(pattern.c_str());
    if (re.status() != zel::regex_base::ok) {
        switch (re.status()) {
        case zel::regex_base::too_big:
        case zel::regex_base::too_many_classes:
        case zel::regex_base::too_many_subexpressions:
            return;  // past the compiler's limits, not a disagreement
        default:
            fail(zel::regex_base::message(re.status()));
        }
    }
    exercise(re, subject.c_str(), unsigned(subject.size()));

    regex_t posix;
    if (regcomp(&posix, pattern.c_str(), REG_EXTENDED) != 0)
        fail("regcomp refused a pattern of the shared subset");
    regmatch_t m[1];
    int const rc = regexec(&posix, subject.c_str(), 1, m, 0);
    regfree(&posix);
    match_pair const found = re.search(subject.c_str(), unsigned(subject.size()));
    if (rc != 0) {
        if (found.found())
            fail("zel matched where regexec did not");
    } else if (m[0].rm_eo > m[0].rm_so) {
        match_pair const expected{unsigned(m[0].rm_so), unsigned(m[0].rm_eo - m[0].rm_so)};
        if (found != expected) {
            std::fprintf(stderr, "regex fuzz: zel %u+%u, regexec %u+%u\n", found.position,
                         found.length, expected.position, expected.length);
            fail("the spans differ");
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    if (size == 0)
        return 0;
    FuzzedDataProvider in(data + 1, size - 1);
    if (data[0] & 1)
        grammar(in);
    else
        raw(in, data[0]);
    return 0;
}
