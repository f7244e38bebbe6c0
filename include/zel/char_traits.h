// Character traits over the library's two character types, `char` and the
// 16-bit `unsigned short`: the static character operations the strings and
// streams are built on, and the library's own search and comparison kernels
// with a case-insensitive twin (prefix i) of each.
//
// Rules every caller must know:
//   - compare orders `char` characters as signed 8-bit values, so every
//     character from 0x80 up sorts below the ASCII range (kept on purpose);
//     wide characters are ordered by their 16-bit value;
//   - an empty pattern is never found, in any text, also an empty one;
//   - case-insensitive operations pass characters through the C library's
//     tolower (in the current C locale); a wide character above 0xFF has no
//     case and is compared as it stands;
//   - searches return a pointer into the text, or null.
#ifndef ZEL_CHAR_TRAITS_H
#define ZEL_CHAR_TRAITS_H

#include <cctype>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include <zel/config.h>

namespace zel {

template <class C>
struct char_traits {
    static_assert(std::is_same_v<C, char> || std::is_same_v<C, unsigned short>,
                  "zel's character types are char and unsigned short");

    using char_type = C;
    using int_type = int;
    using pos_type = std::int64_t;
    using off_type = std::int64_t;
    using state_type = int;

    static constexpr bool narrow = sizeof(C) == 1;

    // --- character relations ------------------------------------------------
    static constexpr bool eq(C a, C b) noexcept { return a == b; }
    static constexpr bool ne(C a, C b) noexcept { return a != b; }
    // The order of compare: signed bytes for char, 16-bit values for wide.
    static constexpr bool lt(C a, C b) noexcept { return order(a) < order(b); }
    static constexpr bool eq_char_type(C a, C b) noexcept { return a == b; }
    static constexpr bool eq_int_type(int_type a, int_type b) noexcept { return a == b; }
    static bool ieq(C a, C b) noexcept { return tolower(a) == tolower(b); }
    static bool ine(C a, C b) noexcept { return tolower(a) != tolower(b); }
    static bool ilt(C a, C b) noexcept { return order(tolower(a)) < order(tolower(b)); }

    // --- single-character conversions ---------------------------------------
    static constexpr void assign(C& to, C const& from) noexcept { to = from; }
    static constexpr C to_char_type(int_type i) noexcept { return static_cast<C>(i); }
    // The unsigned byte for char, the character itself for wide.
    static constexpr int_type to_int_type(C c) noexcept {
        if constexpr (narrow)
            return static_cast<unsigned char>(c);
        else
            return c;
    }
    // -1 for char, 0xFFFF for wide.
    static constexpr int_type eof() noexcept { return narrow ? -1 : 0xFFFF; }
    static constexpr int_type not_eof(int_type i) noexcept { return i == eof() ? 0 : i; }
    static constexpr bool is_eof(int_type i) noexcept { return i == eof(); }
    static constexpr C newline() noexcept { return C('\n'); }
    static constexpr C eos() noexcept { return C(0); }

    static C tolower(C c) noexcept { return has_case(c) ? C(std::tolower(byte(c))) : c; }
    static C toupper(C c) noexcept { return has_case(c) ? C(std::toupper(byte(c))) : c; }
    // The other case: upper when the character is lower case, else lower.
    static C invert(C c) noexcept {
        if (!has_case(c))
            return c;
        return std::islower(byte(c)) ? C(std::toupper(byte(c))) : C(std::tolower(byte(c)));
    }

    // --- positions -----------------------------------------------------------
    // Positions carry no conversion state: the state is always 0.
    static constexpr state_type get_state(pos_type) noexcept { return 0; }
    static constexpr pos_type get_pos(pos_type pos, state_type) noexcept { return pos; }

    // --- ranges ----------------------------------------------------------------
    static unsigned length(C const* text) noexcept {
        if constexpr (narrow) {
            return static_cast<unsigned>(std::strlen(text));
        } else {
            C const* p = text;
            while (*p)
                ++p;
            return static_cast<unsigned>(p - text);
        }
    }
    // copy: the ranges must not overlap; move: they may.
    static C* copy(C* to, C const* from, unsigned n) noexcept {
        if (n)
            std::memcpy(to, from, n * sizeof(C));
        return to;
    }
    static C* move(C* to, C const* from, unsigned n) noexcept {
        if (n)
            std::memmove(to, from, n * sizeof(C));
        return to;
    }
    static C* fill(C* to, C c, unsigned n) noexcept {
        if constexpr (narrow) {
            if (n)
                std::memset(to, c, n);
        } else {
            for (unsigned i = 0; i < n; ++i)
                to[i] = c;
        }
        return to;
    }
    static C* tolower(C* to, C const* from, unsigned n) noexcept {
        for (unsigned i = 0; i < n; ++i)
            to[i] = tolower(from[i]);
        return to;
    }
    static C* toupper(C* to, C const* from, unsigned n) noexcept {
        for (unsigned i = 0; i < n; ++i)
            to[i] = toupper(from[i]);
        return to;
    }
    static C* invert(C* to, C const* from, unsigned n) noexcept {
        for (unsigned i = 0; i < n; ++i)
            to[i] = invert(from[i]);
        return to;
    }

    // --- comparison --------------------------------------------------------------
    // -1, 0 or 1 by the first differing character of the n.
    static int compare(C const* a, C const* b, unsigned n) noexcept {
        unsigned i = 0;
        if constexpr (narrow) {
            // Equal ranges take one memcmp; otherwise the first difference
            // is found eight bytes at a time and decided as signed bytes.
            if (n == 0 || std::memcmp(a, b, n) == 0)
                return 0;
            for (; n - i >= 8; i += 8) {
                std::uint64_t x, y;
                std::memcpy(&x, a + i, 8);
                std::memcpy(&y, b + i, 8);
                if (x != y)
                    break;
            }
        }
        for (; i < n; ++i)
            if (a[i] != b[i])
                return order(a[i]) < order(b[i]) ? -1 : 1;
        return 0;
    }
    // The common prefix decides; when it is equal, the shorter text is less.
    static int compare(C const* a, unsigned a_length, C const* b, unsigned b_length) noexcept {
        int const r = compare(a, b, a_length < b_length ? a_length : b_length);
        return r != 0 ? r : length_order(a_length, b_length);
    }
    static int icompare(C const* a, C const* b, unsigned n) noexcept {
        for (unsigned i = 0; i < n; ++i) {
            C const x = tolower(a[i]), y = tolower(b[i]);
            if (x != y)
                return order(x) < order(y) ? -1 : 1;
        }
        return 0;
    }
    static int icompare(C const* a, unsigned a_length, C const* b, unsigned b_length) noexcept {
        int const r = icompare(a, b, a_length < b_length ? a_length : b_length);
        return r != 0 ? r : length_order(a_length, b_length);
    }

    // --- search -------------------------------------------------------------------
    static C const* find(C const* text, C c, unsigned n) noexcept {
        if constexpr (narrow) {
            return n ? static_cast<C const*>(std::memchr(text, c, n)) : nullptr;
        } else {
            for (unsigned i = 0; i < n; ++i)
                if (text[i] == c)
                    return text + i;
            return nullptr;
        }
    }
    static C const* find(C const* text, unsigned n, C const* pattern, unsigned m) noexcept {
        if (n < m || m == 0)
            return nullptr;
        C const first = pattern[0];
        C const* const last = text + (n - m);  // the last possible start
        for (C const* p = text; p <= last; ++p) {
            p = find(p, first, static_cast<unsigned>(last - p) + 1);
            if (!p)
                return nullptr;
            if (compare(p, pattern, m) == 0)
                return p;
        }
        return nullptr;
    }
    static C const* rfind(C const* text, C c, unsigned n) noexcept {
        for (unsigned i = n; i-- > 0;)
            if (text[i] == c)
                return text + i;
        return nullptr;
    }
    static C const* rfind(C const* text, unsigned n, C const* pattern, unsigned m) noexcept {
        if (n < m || m == 0)
            return nullptr;
        for (unsigned i = n - m + 1; i-- > 0;)
            if (text[i] == pattern[0] && compare(text + i, pattern, m) == 0)
                return text + i;
        return nullptr;
    }
    static C const* find_first_of(C const* text, unsigned n, C const* set, unsigned m) noexcept {
        return scan<true, true, true>(text, n, set, m);
    }
    static C const* find_last_of(C const* text, unsigned n, C const* set, unsigned m) noexcept {
        return scan<false, true, true>(text, n, set, m);
    }
    static C const* find_first_not_of(C const* text, unsigned n, C const* set, unsigned m) noexcept {
        return scan<true, false, true>(text, n, set, m);
    }
    static C const* find_last_not_of(C const* text, unsigned n, C const* set, unsigned m) noexcept {
        return scan<false, false, true>(text, n, set, m);
    }

    // The case-insensitive twins.
    static C const* ifind(C const* text, C c, unsigned n) noexcept {
        C const lc = tolower(c);
        for (unsigned i = 0; i < n; ++i)
            if (tolower(text[i]) == lc)
                return text + i;
        return nullptr;
    }
    static C const* ifind(C const* text, unsigned n, C const* pattern, unsigned m) noexcept {
        if (n < m || m == 0)
            return nullptr;
        C const first = tolower(pattern[0]);
        for (unsigned i = 0; i <= n - m; ++i)
            if (tolower(text[i]) == first && icompare(text + i, pattern, m) == 0)
                return text + i;
        return nullptr;
    }
    static C const* irfind(C const* text, C c, unsigned n) noexcept {
        C const lc = tolower(c);
        for (unsigned i = n; i-- > 0;)
            if (tolower(text[i]) == lc)
                return text + i;
        return nullptr;
    }
    static C const* irfind(C const* text, unsigned n, C const* pattern, unsigned m) noexcept {
        if (n < m || m == 0)
            return nullptr;
        C const first = tolower(pattern[0]);
        for (unsigned i = n - m + 1; i-- > 0;)
            if (tolower(text[i]) == first && icompare(text + i, pattern, m) == 0)
                return text + i;
        return nullptr;
    }
    static C const* ifind_first_of(C const* text, unsigned n, C const* set, unsigned m) noexcept {
        return scan<true, true, false>(text, n, set, m);
    }
    static C const* ifind_last_of(C const* text, unsigned n, C const* set, unsigned m) noexcept {
        return scan<false, true, false>(text, n, set, m);
    }
    static C const* ifind_first_not_of(C const* text, unsigned n, C const* set, unsigned m) noexcept {
        return scan<true, false, false>(text, n, set, m);
    }
    static C const* ifind_last_not_of(C const* text, unsigned n, C const* set, unsigned m) noexcept {
        return scan<false, false, false>(text, n, set, m);
    }

    // --- other ---------------------------------------------------------------------
    // Space, newline, tab, carriage return, vertical tab and form feed. The
    // form that consults a locale's ctype comes with the locale classes.
    static constexpr bool is_whitespace(C c) noexcept {
        return c == C(' ') || c == C('\n') || c == C('\t') || c == C('\r') || c == C('\v') ||
               c == C('\f');
    }
    static constexpr bool case_sensitive() noexcept { return true; }

private:
    // The set searches: walk forward or backward and return the first
    // character that is (Member) or is not in the set, exactly or ignoring
    // case.
    template <bool Forward, bool Member, bool Exact>
    static C const* scan(C const* text, unsigned n, C const* set, unsigned m) noexcept {
        for (unsigned k = 0; k < n; ++k) {
            unsigned const i = Forward ? k : n - 1 - k;
            bool const in = (Exact ? find(set, text[i], m) : ifind(set, text[i], m)) != nullptr;
            if (in == Member)
                return text + i;
        }
        return nullptr;
    }
    static constexpr int order(C c) noexcept {
        if constexpr (narrow)
            return static_cast<signed char>(c);
        else
            return c;
    }
    static constexpr int length_order(unsigned a, unsigned b) noexcept {
        return a == b ? 0 : (a < b ? -1 : 1);
    }
    // The C library's case functions take an unsigned byte; a wide character
    // above 0xFF has no case here.
    static constexpr bool has_case(C c) noexcept {
        return narrow || static_cast<unsigned>(c) <= 0xFFu;
    }
    static constexpr int byte(C c) noexcept { return static_cast<unsigned char>(c); }
};

} // namespace zel

#endif
