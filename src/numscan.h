// The number scanning engines, shared by the character-array conversions
// (numparse.cpp) and the streams' number reader (locale.cpp), which runs
// them straight over a stream buffer. Each engine is a template over its
// character source: `first()` (the current character), `next()` (advance,
// then the new current character), `space(c)` and `usable()`. Internal to
// the library; not installed.
#ifndef ZEL_SRC_NUMSCAN_H
#define ZEL_SRC_NUMSCAN_H

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>

#include <zel/numconv.h>

namespace zel {
namespace detail {

// ---- Digit table ---------------------------------------------------------

struct digit_table {
    unsigned char value[128];
};

constexpr digit_table make_digit_table() {
    digit_table t{};
    for (unsigned c = 0; c < 128; ++c)
        t.value[c] = 255;
    for (unsigned d = 0; d < 10; ++d)
        t.value['0' + d] = static_cast<unsigned char>(d);
    for (unsigned d = 0; d < 26; ++d) {
        t.value['a' + d] = static_cast<unsigned char>(10 + d);
        t.value['A' + d] = static_cast<unsigned char>(10 + d);
    }
    return t;
}

// Built by the compiler, so there is nothing to build on first use and no
// race between threads that would build it.
inline constexpr digit_table digits = make_digit_table();

// 255 for anything that is no digit of any radix.
inline unsigned digit_value(unsigned c) noexcept { return c < 128 ? digits.value[c] : 255u; }

inline bool is_decimal(unsigned c) noexcept { return c - '0' < 10u; }

// ---- Character sources ---------------------------------------------------
//
// A source gives the engines `first()` (the current character), `next()`
// (advance, then the new current character) and `space(c)`.

struct callback_source {
    number_getter get;
    void* get_context;
    space_predicate is_space;
    void* space_context;

    bool usable() const noexcept { return get != nullptr && is_space != nullptr; }
    unsigned first() const { return get(get_context, false); }
    unsigned next() const { return get(get_context, true); }
    bool space(unsigned c) const { return is_space(space_context, c); }
};

// A null-terminated array; the terminator is an ordinary non-digit, so the
// engines never move past it.
template <class C>
struct array_source {
    C const* at;

    static constexpr bool usable() noexcept { return true; }
    unsigned first() const noexcept { return code(*at); }
    unsigned next() noexcept { return code(*++at); }
    // The C library's isspace, defined for bytes only.
    static bool space(unsigned c) noexcept { return c < 256 && std::isspace(static_cast<int>(c)); }

    static unsigned code(char c) noexcept { return static_cast<unsigned char>(c); }
    static unsigned code(unsigned short c) noexcept { return c; }
};

// A source may also give `decimal_run(c, value, max)`: it takes up to max
// decimal digits from c on, each as next() would, adds them to value
// (value * 10 + digit) and answers how many it took. The engines then skip
// the work a digit that cannot overflow does not need; a source without it
// goes one next() per digit.
template <class Source, class = void>
struct has_decimal_run : std::false_type {};
template <class Source>
struct has_decimal_run<Source, std::void_t<decltype(std::declval<Source&>().decimal_run(
                                   std::declval<unsigned&>(), std::declval<std::uint64_t&>(), 0u))>>
    : std::true_type {};

// ---- Integer engine ------------------------------------------------------

inline constexpr std::uint64_t all_bits = ~std::uint64_t{0};
inline constexpr std::uint64_t signed_max = all_bits >> 1;

// product = value * radix; true when that wrapped.
inline bool multiply_wraps(std::uint64_t value, unsigned radix, std::uint64_t& product) noexcept {
#if defined(__GNUC__)
    return __builtin_mul_overflow(value, std::uint64_t{radix}, &product);
#else
    product = value * radix;
    return radix != 0 && value > all_bits / radix;
#endif
}

// Two's-complement reinterpretation without implementation-defined
// conversions: the bits copied, with no branch on the sign (which no
// predictor can follow in mixed data).
inline std::int64_t as_signed(std::uint64_t u) noexcept {
    std::int64_t s;
    std::memcpy(&s, &u, sizeof s);
    return s;
}

// Runs the integer engine over `src`. Stores into `store` on success (the
// value, negated after "-") and after an overflow (the limit). errno is
// cleared first and set only for the engine's own errors, so a value the
// getter leaves there (a failed read) survives and the signed form, which
// stores only when errno is 0, then stores nothing.
template <class Source>
int scan_integer(Source& src, unsigned radix, long flags, bool is_signed, std::uint64_t& store,
                 bool* at_end) {
    errno = 0;
    if (!src.usable() || radix == 1 || radix > 36) {
        errno = EINVAL;
        if (at_end)
            *at_end = false;  // the current character counts as 0
        return 0;
    }
    if (radix == 0)
        radix = ios_flags::radix_of(flags);  // may stay 0: the text decides

    unsigned c = src.first();
    if (flags & ios_flags::skipws)
        while (src.space(c))
            c = src.next();
    bool const negative = c == '-';
    if (c == '+' || c == '-')
        c = src.next();
    // After the place of the sign, white space is skipped whatever the flags.
    while (src.space(c))
        c = src.next();

    bool counted = false;  // a digit was seen; a prefix "0" counts until its letter
    if (radix == 2 || radix == 16) {
        if (c == '0') {
            counted = true;
            c = src.next();
            if (c == 'x' || c == 'X' || c == 'b' || c == 'B') {
                counted = false;
                c = src.next();
            }
        }
    } else if (radix == 0) {
        if (c == '0') {
            c = src.next();
            if (c == 'x' || c == 'X') {
                radix = 16;
                c = src.next();
            } else if (c == 'b' || c == 'B') {
                radix = 2;
                c = src.next();
            } else {
                radix = 8;
                counted = true;
            }
        } else {
            radix = 10;
        }
    }

    std::uint64_t const limit =
        is_signed && radix == 10 ? (negative ? signed_max + 1 : signed_max) : all_bits;
    std::uint64_t value = 0;
    int error = 0;
    // Eighteen decimal digits stay below 10^18, under every limit: they
    // need no overflow test.
    if constexpr (has_decimal_run<Source>::value)
        if (radix == 10 && src.decimal_run(c, value, 18) != 0)
            counted = true;
    for (;;) {
        unsigned const d = digit_value(c);
        if (d >= radix)
            break;
        counted = true;
        std::uint64_t product;
        if (multiply_wraps(value, radix, product) || product > limit || d > limit - product) {
            error = ERANGE;  // the digit that did not fit stays unread
            break;
        }
        value = product + d;
        c = src.next();
    }

    if (error == ERANGE)
        store = limit;  // not negated
    else if (!counted)
        error = EINVAL;
    else
        store = negative ? 0 - value : value;
    if (error != 0)
        errno = error;
    if (at_end)
        *at_end = c == end_of_input;
    int const used = static_cast<int>(radix);
    return negative ? -used : used;
}

// ---- Floating engine -----------------------------------------------------

// Consumes a run of "0"; true when there was one.
template <class Source>
bool skip_zeros(Source& src, unsigned& c) {
    if (c != '0')
        return false;
    do
        c = src.next();
    while (c == '0');
    return true;
}

inline constexpr unsigned max_integer_digits = 55;
inline constexpr unsigned max_significant = 56;
inline constexpr unsigned max_exponent_digits = 8;
inline constexpr unsigned copy_size = 80;
// The normalised copy holds at most: sign, "0", 56 digits, ".", "0", "e",
// sign, 8 exponent digits, null.
static_assert(copy_size >= 1 + 1 + max_significant + 1 + 1 + 1 + 1 + max_exponent_digits + 1);

// Digits beyond what a double can show need no exact count: from this
// scale on, the result is infinity or zero anyway.
inline constexpr int scale_bound = 100000;

struct floating_result {
    double value = 0.0;
    bool stored = false;
};

// Rounds to double even where intermediate results carry extended precision
// (x87), so every target gives the same result.
inline double as_double(double x) noexcept {
    volatile double rounded = x;
    return rounded;
}

template <class Source>
int scan_floating(Source& src, unsigned decimal_point, long flags, floating_result& out,
                  bool* at_end) {
    errno = 0;  // from here on only the getter, strtod, pow and the engine's errors set it
    if (!src.usable()) {
        errno = EINVAL;
        if (at_end)
            *at_end = false;
        return 10;
    }

    char copy[copy_size];
    unsigned n = 0;
    unsigned c = src.first();
    if (flags & ios_flags::skipws)
        while (src.space(c))
            c = src.next();

    bool const negative = c == '-';
    if (c == '+' || c == '-') {
        copy[n++] = static_cast<char>(c);
        c = src.next();
        while (src.space(c))
            c = src.next();
    }

    unsigned mantissa = 0;     // digits written to the copy
    unsigned significant = 0;  // digits after the leading zeros (capped)
    int scale = 0;             // power of ten the converted copy is scaled by
    if (skip_zeros(src, c)) {
        copy[n++] = '0';
        ++mantissa;
    }
    for (; is_decimal(c); c = src.next()) {
        if (significant < max_integer_digits) {
            copy[n++] = static_cast<char>(c);
            ++mantissa;
        } else if (scale < scale_bound) {
            ++scale;  // the digit is dropped and stands for a factor of ten
        }
        // Past 55 integer digits this reaches the cap and stops the
        // fraction from being copied to a place the scale would move.
        if (significant < max_significant)
            ++significant;
    }
    if (c == decimal_point) {
        copy[n++] = '.';
        c = src.next();
        if (significant == 0 && c == '0') {
            // 0.000123 is copied as 0.0123 with a scale of -2 + 1.
            do {
                c = src.next();
                if (scale > -scale_bound)
                    --scale;
            } while (c == '0');
            copy[n++] = '0';
            ++mantissa;
            ++scale;
        }
        for (; is_decimal(c); c = src.next()) {
            if (significant < max_significant) {
                copy[n++] = static_cast<char>(c);
                ++mantissa;
                ++significant;
            }
        }
    }

    int error = 0;
    if (c == 'e' || c == 'E') {
        copy[n++] = static_cast<char>(c);
        c = src.next();
        if (c == '+' || c == '-') {
            copy[n++] = static_cast<char>(c);
            c = src.next();
        }
        unsigned exponent = 0;  // exponent digits seen (capped)
        if (skip_zeros(src, c)) {
            copy[n++] = '0';
            ++exponent;
        }
        for (; is_decimal(c); c = src.next()) {
            if (exponent < max_exponent_digits)
                copy[n++] = static_cast<char>(c);
            if (exponent <= max_exponent_digits)
                ++exponent;
        }
        if (exponent == 0)
            error = EINVAL;
    }

    if (error == 0) {
        if (mantissa == 0) {
            error = EINVAL;
        } else {
            copy[n] = '\0';
            double value = std::strtod(copy, nullptr);
            if (errno == 0 && scale != 0)
                value = as_double(value * std::pow(10.0, scale));
            out.value = value;
            out.stored = true;
        }
    }
    if (error != 0)
        errno = error;
    if (at_end)
        *at_end = c == end_of_input;
    return negative ? -10 : 10;
}

} // namespace detail
} // namespace zel

#endif
