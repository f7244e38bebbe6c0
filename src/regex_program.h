// Internal to the library: the compiled program (xbuf) that the compiler in
// src/re_compile.cpp writes and the matcher in src/re_match.cpp runs.
//
// One block: a 24-byte header, then the areas it describes, offsets counted
// from the end of the header:
//   states       8 bytes each, state 0 meaning none; area rounded up to
//                the next multiple of 16 bytes (a multiple gains 16)
//   literals     the folded strings' 16-bit units, rounded the same way
//   class sets   32 bytes (256 bits, codes 0..255) per class, then the
//                start set
//   closures     {minimum, maximum} per counted closure
//   groups       {start, length} in pattern units per group
//   alphabet     wide programs only: lower and upper bound, then one
//                32-byte set per class for the codes of the block
#ifndef ZEL_SRC_REGEX_PROGRAM_H
#define ZEL_SRC_REGEX_PROGRAM_H

#include <cstdint>

#include <zel/regex.h>

namespace zel {

struct xbuf;

namespace detail {

// State kinds. 2 to 10 and 16 stand for one parse operation each; the rest
// link the machine together.
enum re_kind : std::uint8_t {
    re_link = 1,         // go on to next1
    re_char = 2,         // arg: the unit
    re_string = 3,       // arg: offset in the literal area | length << 8
    re_class = 4,        // arg: class index
    re_any = 5,          // any unit but 10 and 13
    re_backref = 6,      // arg: group number
    re_begin = 7,        // ^
    re_end = 8,          // $
    re_newline = 9,      // 10 or 13 (13 10 counts as one)
    re_empty = 10,       // ()
    re_split = 11,       // try next1, then next2
    re_open = 12,        // arg: group number; the group starts here
    re_close = 13,       // arg: group number; the group ends here
    re_loop = 14,        // * and +: arg slot; body next1, exit next2
    re_count_loop = 15,  // {n,m}: arg slot | closure << 8; body next1, exit next2
    re_final = 16,
    re_count_enter = 17, // arg slot: a loop starts: count 0, no body entered yet
    re_trail = 18,       // r/s: the reported span ends here
    re_count_next = 19,  // arg slot: one more repetition completed
};

enum re_state_flag : std::uint8_t {
    re_join = 1,  // two edges lead here (or the entry and one edge)
};

struct re_state {
    std::uint8_t kind;
    std::uint8_t flags;           // re_state_flag bits
    std::uint16_t arg;
    std::uint16_t next1;
    std::uint16_t next2;
};
static_assert(sizeof(re_state) == 8, "a state is 8 bytes");

enum re_feature : std::uint8_t {
    re_has_backref = 1,
    re_has_trail = 2,
    re_has_count = 4,
    re_has_alphabet = 8,
};

struct re_pair {
    std::uint32_t first;
    std::uint32_t second;
};

using re_set = std::uint32_t[8];  // 256 bits

inline bool re_set_has(std::uint32_t const* set, unsigned c) noexcept {
    return (set[c >> 5] >> (c & 31)) & 1u;
}

// The case forms of the codes 0..255 (the C library's tolower and toupper,
// taken once, on first use); codes above have no case.
struct re_case_map {
    unsigned char lower[256];
    unsigned char upper[256];
};
re_case_map const& re_cases();

// How both matchers test units: with exact false, case is ignored.
struct re_unit_test {
    xbuf const& p;
    re_case_map const& cases;
    bool exact;

    unsigned lower(unsigned c) const noexcept { return c < 256 ? cases.lower[c] : c; }
    unsigned upper(unsigned c) const noexcept { return c < 256 ? cases.upper[c] : c; }
    bool same(unsigned a, unsigned b) const noexcept { return a == b || (!exact && lower(a) == lower(b)); }
    // Whether class k holds c; units above 255 through the program's
    // alphabet, when it has one.
    bool in_class(unsigned k, unsigned c) const noexcept;
    bool class_accepts(unsigned k, unsigned c) const noexcept {
        return exact ? in_class(k, c) : in_class(k, lower(c)) || in_class(k, upper(c));
    }
    // Whether a match may begin with u (the start set holds codes 0..255
    // only).
    bool starts(unsigned u) const noexcept;
};

// The automaton's cache, one per compiled program (src/re_automaton.cpp).
struct re_cache;
re_cache* re_cache_create();
void re_cache_destroy(re_cache* cache) noexcept;
enum re_outcome { re_found, re_missed, re_refused };
// The leftmost-longest span of a search (no captures), or re_refused for a
// pattern the automaton does not serve. steps, when given, is increased by
// the positions the automaton stepped over.
re_outcome re_automaton_search(re_cache* cache, xbuf const& p, void const* subject, unsigned unit_size,
                               unsigned length, bool exact, match_pair& span, std::uint64_t* steps);

// The last match of rsearch's chain of searches, counted from `offset`,
// where the search that found it began.
re_outcome re_automaton_rsearch(re_cache* cache, xbuf const& p, void const* subject, unsigned unit_size,
                                unsigned length, bool exact, match_pair& span, unsigned& offset,
                                std::uint64_t* steps);
// How a search runs: as searches do (the automaton, then the explorer on
// the span for captures, or the explorer alone for what the automaton does
// not serve), the remembered exploration alone, or the reference: every
// path one repetition at a time with no shortcut.
enum class re_path { automaton, remembered, reference };

// For the library's tests: the narrow or wide search along a chosen path;
// steps, when given, counts the automaton's positions and the explorer's
// state visits.
struct ZEL_API regex_probe {
    static match_pair search(regex_base const& re, void const* subject, unsigned unit_size, unsigned length,
                             match_pair* subs, bool exact, re_path path, std::uint64_t* steps = nullptr);
    // The same for rsearch.
    static match_pair rsearch(regex_base const& re, void const* subject, unsigned unit_size, unsigned length,
                              match_pair* subs, bool exact, re_path path, std::uint64_t* steps = nullptr);
    // The compiled program (null without one).
    static xbuf const* program(regex_base const& re);
    // Raises compile error `code` the way a compile does.
    [[noreturn]] static void raise(unsigned code);
};

} // namespace detail

struct xbuf {
    std::uint16_t state_bytes;
    std::uint16_t literal_units;
    std::uint16_t class_offset;
    std::uint16_t class_sets;      // classes + 1: the last set is the start set
    std::uint16_t closure_offset;
    std::uint16_t class_bytes;
    std::uint16_t group_count;
    std::uint16_t group_offset;
    std::uint8_t anchored;         // 1 when the pattern has a ^ anchor
    // Beside the documented fields, in the header's padding:
    std::uint8_t start;            // start state
    std::uint8_t top_state;        // highest state number in use
    std::uint8_t slots;            // loops with a counter or progress mark
    std::uint8_t features;         // re_feature bits
    std::uint8_t padding[3];

    unsigned char* area() noexcept { return reinterpret_cast<unsigned char*>(this + 1); }
    unsigned char const* area() const noexcept {
        return reinterpret_cast<unsigned char const*>(this + 1);
    }
    detail::re_state const* states() const noexcept {
        return reinterpret_cast<detail::re_state const*>(area());
    }
    std::uint16_t const* literals() const noexcept {
        return reinterpret_cast<std::uint16_t const*>(area() + state_bytes);
    }
    std::uint32_t const* set(unsigned i) const noexcept {
        return reinterpret_cast<std::uint32_t const*>(area() + class_offset) + i * 8;
    }
    std::uint32_t const* start_set() const noexcept { return set(class_sets - 1u); }
    detail::re_pair const* closures() const noexcept {
        return reinterpret_cast<detail::re_pair const*>(area() + closure_offset);
    }
    unsigned alphabet_offset() const noexcept { return group_offset + group_count * 8u; }
    std::uint32_t const* alphabet() const noexcept {
        return reinterpret_cast<std::uint32_t const*>(area() + alphabet_offset());
    }
    unsigned size() const noexcept {
        unsigned n = sizeof(xbuf) + alphabet_offset();
        if (features & detail::re_has_alphabet)
            n += 8 + (class_sets - 1u) * 32u;
        return n;
    }
};
static_assert(sizeof(xbuf) == 24, "the program header is 24 bytes");

inline bool detail::re_unit_test::in_class(unsigned k, unsigned c) const noexcept {
    if (c < 256)
        return re_set_has(p.set(k), c);
    if (!(p.features & re_has_alphabet))
        return false;
    std::uint32_t const* alpha = p.alphabet();
    return c >= alpha[0] && c < alpha[1] && re_set_has(alpha + 2 + k * 8, c - alpha[0]);
}

inline bool detail::re_unit_test::starts(unsigned u) const noexcept {
    if (u >= 256)
        return true;
    std::uint32_t const* set = p.start_set();
    return re_set_has(set, u) || (!exact && (re_set_has(set, lower(u)) || re_set_has(set, upper(u))));
}

} // namespace zel

#endif
