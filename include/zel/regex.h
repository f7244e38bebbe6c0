// Regular expressions: regex_base over `char` subjects and wregex_base over
// 16-bit `unsigned short` subjects, each owning one compiled program, and the
// typed regex and wregex that compile into the standard heap.
//
// Pattern syntax (at most 127 units):
//   literals; "..." quotes everything up to the closing quotation mark;
//   white space outside quotes and classes is an error (code 18), so write
//   `\ ` or quote it; `\` escapes: \a \d \h \l \o \s \u \w (letters, digits,
//   hex digits, lower case, octal digits, white space, upper case, word
//   characters) and their upper-case negations, \cX control characters,
//   \e \f \n \r \t \v \z, \xHH, \0 to \9 back-references (groups count from
//   0), and `\` before any operator character;
//   `.` any unit but new line and carriage return; [a-z_] and [^...] classes
//   (a negated class never matches 10, 13 or 0), [:digit:] and the other
//   named classes as a whole class; (...) groups, () an empty group;
//   one postfix operator per atom: * + ? {n} {n,} {n,m};
//   r|s; ^ only first and $ only last in a branch; r/s trailing context
//   (the match must go on with s but ends where r ended), once per level.
//
// Matching: search returns the leftmost match of non-zero length, the
// longest at that position; among matches of equal length the captures of
// the path found first (left alternatives, longer repetitions first). An
// empty match is returned only when no position yields a non-empty one.
// How a search runs: a deterministic automaton, built lazily from the
// compiled program and cached in the expression, scans the subject once to
// find the leftmost start and the longest end; when captures are asked for,
// the backtracking explorer then runs on that span alone. So search and
// rsearch take time linear in the subject for every pattern without
// back-references or trailing context. Those two, and compare (whose reach
// the pattern bounds), go to the explorer, which remembers the states it has
// explored at each position and stays polynomial without back-references.
// The automaton's cache holds at most about 1 MiB per case mode (plus one
// state being built) and is flushed and rebuilt when full; a state of more
// than 64 KiB of threads sends the expression to the explorer for good. A
// compiled expression may be searched by several threads at once: one at a
// time uses the cache, the others build a private automaton for the call.
// Copies get a cache of their own.
//
// Kept behaviours worth knowing:
//   - compare tests the subject's first unit only: every single-unit test
//     (a literal character, a class, `.`, `$`, a new line) stops after it,
//     while a folded literal string or a back-reference may reach further.
//     compare with `abc` on "abcdef" finds 3 units, `a.c` finds nothing.
//   - rsearch reports the last match counted from the end of the match
//     before it (where its own search began), not from the subject's start.
//   - a 16-bit class range cannot hold the last code of its alphabet
//     block: the upper bound of every block is exclusive.
//   - a pattern that compiled with status 1 is required for matching; after
//     a failed compile every operation finds nothing.
#ifndef ZEL_REGEX_H
#define ZEL_REGEX_H

#include <cstdio>

#include <zel/config.h>
#include <zel/memory.h>
#include <zel/string.h>

namespace zel {

// Ready-made patterns: a decimal number with optional sign, fraction and
// exponent (its text has five groups: the mantissa, its three forms, and the
// exponent); an identifier; an integer.
ZEL_API extern char const* const re_pat_double;
ZEL_API extern char const* const re_pat_identifier;
ZEL_API extern char const* const re_pat_integer;

// The block of 16-bit codes above 255 that a wide expression's classes can
// hold (lower bound included, upper bound excluded).
enum wregex_alphabets : unsigned {
    latin_extended_a, latin_extended_b, greek, cyrillic, armenian, hebrew, arabic,
    devanagari, bengali, gurmukhi, gujarati, oriya, tamil, telugu, kannada, malayalam,
    thai, lao, georgian, hangul_jamo, hiragana, katakana, hiragana_katakana, bopomofo
};

struct xbuf;             // a compiled program (internal layout)
namespace detail {
struct regex_probe;      // the library's own tests reach the matcher through it
struct re_cache;         // the automaton's states and transitions (internal)
}
struct parse_op_buffer;  // the compiler's working state (internal)

// The heap the typed regex and wregex compile into.
ZEL_API allocator_engine& regex_heap() noexcept;

class ZEL_API regex_base {
public:
    static constexpr unsigned npos = 0xFFFFFFFFu;

    // Compile status codes; status() returns one of them.
    enum status_code : unsigned {
        ready = 0, ok = 1, unclosed_quotes = 2, bad_escape = 3, bad_macro = 4,
        bad_back_reference = 5, empty_closure = 6, unclosed_closure = 7, bad_closure = 8,
        too_many_closures = 9, empty_class = 10, unclosed_class = 11, bad_class = 12,
        too_many_classes = 13, empty_subexpression = 14, unclosed_subexpression = 15,
        bad_subexpression = 16, too_many_subexpressions = 17, white_space = 18,
        null_pattern = 19, empty_pattern = 20, too_big = 21, syntax_error = 22
    };

    virtual ~regex_base();
    regex_base& operator=(regex_base const& other) {
        assign(other);
        return *this;
    }

    // Compiles the pattern (length npos: up to its terminating 0) and returns
    // whether it compiled. Any earlier program is dropped first, whatever the
    // outcome; on failure status() and error_location() tell why and where.
    // The flag is kept for compatibility and changes nothing.
    bool compile(char const* pattern, unsigned length = npos, bool flag = false);
    bool compile(signed char const* pattern, unsigned length = npos, bool flag = false);
    bool compile(unsigned char const* pattern, unsigned length = npos, bool flag = false);
    bool compile(string_base<char> const& pattern, bool flag = false);

    // The three ways to apply the program; each returns the span found, or
    // position and length npos. A length of npos runs to the terminating 0.
    // subs, when given, receives one span per group of the pattern (npos in
    // both fields for a group that took no part). exact_case false ignores
    // case (through the C library's tolower and toupper).
    //   compare: a match that begins at the start (see the file comment for
    //            its one-unit bound);
    //   search:  the first match;
    //   rsearch: the last match, searching again after each match found;
    //            its position counts from the end of the match before it.
    //            An empty match ends the scan: it is the result only when it
    //            is the first match found, else the non-empty one before it
    //            is.
    // The string forms match in the part from pos (count units at most) and
    // count from pos; a pos past the size raises out_of_range. With the
    // defaults they match the whole string.
#define ZEL_REGEX_MATCH_FORMS(name, C)                                                          \
    match_pair name(C const* subject, unsigned length = npos, match_pair* subs = nullptr,       \
                    bool exact_case = true) const;                                              \
    match_pair name(string_base<C> const& subject, unsigned pos = 0, unsigned count = npos,    \
                    match_pair* subs = nullptr, bool exact_case = true) const;
#define ZEL_REGEX_NARROW_MATCH(name)                                                            \
    ZEL_REGEX_MATCH_FORMS(name, char)                                                           \
    match_pair name(signed char const* subject, unsigned length = npos,                        \
                    match_pair* subs = nullptr, bool exact_case = true) const {                 \
        return name(reinterpret_cast<char const*>(subject), length, subs, exact_case);          \
    }                                                                                           \
    match_pair name(unsigned char const* subject, unsigned length = npos,                      \
                    match_pair* subs = nullptr, bool exact_case = true) const {                 \
        return name(reinterpret_cast<char const*>(subject), length, subs, exact_case);          \
    }

    ZEL_REGEX_NARROW_MATCH(compare)
    ZEL_REGEX_NARROW_MATCH(search)
    ZEL_REGEX_NARROW_MATCH(rsearch)
#undef ZEL_REGEX_NARROW_MATCH

    unsigned status() const noexcept { return status_; }
    unsigned error_location() const noexcept { return location_; }
    // The number of groups of the compiled pattern (0 without a program):
    // the size subs must have.
    unsigned subexpressions() const noexcept;
    // Writes the status message ("%s at index %d" when there is a
    // location), without a line end, and flushes the stream.
    void print_status(std::FILE* stream) const;
    // The message of a status code (an empty text for an unknown code).
    static char const* message(unsigned code) noexcept;

protected:
    explicit regex_base(allocator_engine& heap) noexcept : regex_base(heap, 256, 512) {}
    regex_base(regex_base const&) = delete;
    // Copies the program into this expression's heap, with the status and
    // location; nothing when other is this.
    void assign(regex_base const& other);
    void clear() noexcept { delete_xbuf(); }

    // The shared core over 16-bit units: the compiler, and the matcher over
    // either unit width (unit_size 1 or 2).
    regex_base(allocator_engine& heap, unsigned alpha_lower, unsigned alpha_upper) noexcept
        : heap_(heap), program_(nullptr), status_(0), location_(npos),
          alpha_lower_(alpha_lower), alpha_upper_(alpha_upper), cache_(nullptr) {}
    bool compile_units(unsigned short const* pattern, unsigned length);
    match_pair match(void const* subject, unsigned unit_size, unsigned length, bool search,
                     bool exact_case, match_pair* subs) const;
    match_pair rmatch(void const* subject, unsigned unit_size, unsigned length,
                      bool exact_case, match_pair* subs) const;

private:
    friend struct detail::regex_probe;
    void create_xbuf(parse_op_buffer const* buffer);
    void copy_xbuf(xbuf const* program);
    void delete_xbuf() noexcept;

    allocator_engine& heap_;
    xbuf* program_;
    unsigned status_;
    unsigned location_;
    unsigned alpha_lower_;  // the class alphabet: lower included, upper excluded
    unsigned alpha_upper_;
    // The automaton's cache: made with the program, dropped with it, never
    // shared by copies; matching threads take turns building in it.
    detail::re_cache* cache_;
};

// The wide expression: patterns and subjects of 16-bit units. Its classes
// hold codes 0 to 255 and the codes of one alphabet block, fixed at
// construction.
class ZEL_API wregex_base : public regex_base {
public:
    ~wregex_base() override;
    wregex_base& operator=(wregex_base const& other) {
        assign(other);
        return *this;
    }

    bool compile(unsigned short const* pattern, unsigned length = npos, bool flag = false);
    bool compile(string_base<unsigned short> const& pattern, bool flag = false);

    ZEL_REGEX_MATCH_FORMS(compare, unsigned short)
    ZEL_REGEX_MATCH_FORMS(search, unsigned short)
    ZEL_REGEX_MATCH_FORMS(rsearch, unsigned short)
#undef ZEL_REGEX_MATCH_FORMS

    wregex_alphabets alphabet() const noexcept { return alphabet_; }

protected:
    wregex_base(allocator_engine& heap, wregex_alphabets alphabet) noexcept;
    // Copies the program, the status, the location and the alphabet.
    void assign(wregex_base const& other);

private:
    wregex_alphabets alphabet_;
};

// The typed expressions: a regex_base or wregex_base over regex_heap(),
// optionally compiled at construction (check status() for the outcome).
class regex : public regex_base {
public:
    regex() noexcept : regex_base(regex_heap()) {}
    explicit regex(char const* pattern, unsigned length = npos) : regex() { compile(pattern, length); }
    explicit regex(string_base<char> const& pattern) : regex() { compile(pattern); }
    regex(regex const& other) : regex() { assign(other); }
    regex& operator=(regex const& other) {
        assign(other);
        return *this;
    }
};

class wregex : public wregex_base {
public:
    explicit wregex(wregex_alphabets alphabet = latin_extended_a) noexcept
        : wregex_base(regex_heap(), alphabet) {}
    explicit wregex(unsigned short const* pattern, unsigned length = npos,
                    wregex_alphabets alphabet = latin_extended_a)
        : wregex(alphabet) {
        compile(pattern, length);
    }
    explicit wregex(string_base<unsigned short> const& pattern,
                    wregex_alphabets alphabet = latin_extended_a)
        : wregex(alphabet) {
        compile(pattern);
    }
    wregex(wregex const& other) : wregex(other.alphabet()) { assign(other); }
    wregex& operator=(wregex const& other) {
        assign(other);
        return *this;
    }
};

} // namespace zel

#endif
