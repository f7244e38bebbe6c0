// Number parsing and formatting. Two scanning engines (integers, floating
// point) read characters through a caller's getter and white-space
// predicate; two formatting engines write through a caller's text and fill
// sinks. The character-array conversions (strtoq, xstrtold, qtoa, dtoa and
// their relatives) and the streams' number facets are built on them, for
// both `char` and the 16-bit wide `unsigned short`.
//
// None of these functions raises. They report through `errno`: EINVAL
// (22) for no digits, a bad radix or a missing callback, ERANGE (34) for a
// value out of range. The scanning engines and the integer formatting
// engine clear it first (0 on success); floating formatting (the floating
// insert, dtoa, ldtoa, dtow, ldtow) leaves it as it was unless it fails.
//
// Floating-point text goes through the C library (`strtod` to read,
// `snprintf` to write), so it follows the C library's rules for the
// decimal point of the current LC_NUMERIC locale, which must use "."
// (as the "C" locale does), and its spelling of infinity and NaN.
#ifndef ZEL_NUMCONV_H
#define ZEL_NUMCONV_H

#include <cstdint>

#include <zel/config.h>
#include <zel/ios_flags.h>

namespace zel {

// ---- Digits --------------------------------------------------------------

// True when c is below 128 and is a digit of the radix: "0"-"9" are 0-9 and
// the letters a-z and A-Z alike are 10-35.
ZEL_API bool isdigit(unsigned c, unsigned radix) noexcept;
// The value of digit c in the radix, or all bits set when c is none.
ZEL_API unsigned todigit(unsigned c, unsigned radix) noexcept;

// ---- Scanning engines ----------------------------------------------------

// Reads the source: with advance false returns the current character
// without moving, with advance true moves one character on and returns the
// new current one. `end_of_input` (all bits set) means the source is
// exhausted. The engines call it first with false, then only with true.
using number_getter = unsigned (*)(void* context, bool advance);
// Whether c is white space. The engines may ask about `end_of_input` too.
using space_predicate = bool (*)(void* context, unsigned c);

constexpr unsigned end_of_input = 0xFFFFFFFFu;

// The integer engine. `radix` 2-36 is used as given; 0 takes it from the
// radix flags (tested as dec, hex, oct, bin) and, when none is set, from the
// text ("0x" hexadecimal, "0b" binary, "0" octal, else decimal). With radix
// 2 or 16 a leading "0x", "0X", "0b" or "0B" is skipped (either prefix in
// either radix). White space is skipped before the sign when `skipws` is
// set, and after the place of the sign whatever the flags: so without
// `skipws` "  12" still reads 12 but "  +12" finds no digit.
//
// Limits: a signed target in radix 10 takes -2^63 to 2^63-1; every other
// case reads up to 2^64-1 and a "-" negates in two's complement, so
// `strtouq("-1")` is all bits set and the signed target reads "-ff...f"
// (radix 16) as 1.
//
// errno is cleared first and then set only for the engine's own errors, so
// a value the getter leaves there (EIO from a failed read, say) is the
// result: the signed form, which stores only when errno is 0, then stores
// nothing.
//
// Stores: the signed form stores only on success (errno 0). The unsigned
// form stores the value on success and the limit (all bits set) after an
// overflow. Without digits nothing is stored. On overflow the offending
// digit is the current character: it and the digits after it stay unread.
//
// `at_end`, when not null, receives whether the engine stopped at
// `end_of_input`. The result is the radix used, negated after a "-" sign;
// 0 when the arguments were refused (missing callback, radix 1 or above 36,
// errno 22).
ZEL_API int extract(number_getter get, void* get_context, space_predicate is_space,
                    void* space_context, unsigned radix, long flags,
                    std::int64_t& result, bool* at_end) noexcept;
ZEL_API int extract(number_getter get, void* get_context, space_predicate is_space,
                    void* space_context, unsigned radix, long flags,
                    std::uint64_t& result, bool* at_end) noexcept;

// The floating engine. It copies a normalised form of the number (at most
// 55 significant integer digits, 56 significant digits in all, 8 exponent
// digits) into a local text with "." as its point, converts that with
// `strtod` and scales the result by 10 to the power of the integer digits
// it dropped (or of the zeros it dropped after the point when the integer
// part is zero). So even the `long double` form has the precision of
// `double`. `decimal_point` is the character the source uses for the point.
// Leading zeros are dropped; white space after a sign is skipped; `skipws`
// decides about white space before the number.
//
// An "e" or "E" is consumed as the exponent marker wherever it follows the
// mantissa; without exponent digits after it the result is errno 22 and
// nothing is stored. Without mantissa digits: errno 22, nothing stored.
// Out of range: errno 34 from `strtod` or `pow`; the `double` form then
// stores nothing, the `long double` form stores what the C library gave
// (HUGE_VAL, 0 or a denormal, with its sign). As for integers, errno is
// cleared first and a value the getter leaves there is kept: the `double`
// form then stores nothing, the `long double` form stores the unscaled copy.
//
// `at_end` as for the integer engine. Returns -10 after a "-" sign, else 10.
ZEL_API int extract(number_getter get, void* get_context, space_predicate is_space,
                    void* space_context, unsigned decimal_point, long flags,
                    double& result, bool* at_end) noexcept;
ZEL_API int extract(number_getter get, void* get_context, space_predicate is_space,
                    void* space_context, unsigned decimal_point, long flags,
                    long double& result, bool* at_end) noexcept;

// ---- Character-array parsing ---------------------------------------------

// The integer engine over a null-terminated text, with `skipws` and the C
// library's `isspace` (wide characters above 255 are never white space).
// `end`, when not null, receives the first character not consumed; after an
// overflow that is the first digit that did not fit, and after a bare
// prefix ("0x") it is past the prefix. Results: the value; 0 with errno 22
// without digits or for a null text (whose `end` is null); after an
// overflow errno 34 and 0 from the signed forms, all bits set from the
// unsigned ones. Unlike `strtoll`, white space may follow the sign and
// "0b" introduces binary digits.
ZEL_API std::int64_t strtoq(char const* text, char const** end, int radix) noexcept;
ZEL_API std::uint64_t strtouq(char const* text, char const** end, int radix) noexcept;
ZEL_API std::int64_t wstrtoq(unsigned short const* text, unsigned short const** end,
                             int radix) noexcept;
ZEL_API std::uint64_t wstrtouq(unsigned short const* text, unsigned short const** end,
                               int radix) noexcept;

// The floating engine (`long double` form) over a null-terminated text with
// "." as the point and `skipws`. Returns 0 with errno 22 when nothing could
// be read. `end` as for strtoq: after "1e" it points past the "e".
ZEL_API long double xstrtold(char const* text, char const** end) noexcept;
ZEL_API long double xwstrtold(unsigned short const* text, unsigned short const** end) noexcept;

// ---- Formatting engines --------------------------------------------------
//
// The engines raise nothing themselves, but a sink may (a facet writing to a
// stream buffer of the caller's): its exception passes through to the
// caller, which is how the output streams turn it into failbit.

// Writes `count` characters of `text`.
using text_sink = void (*)(void* context, char const* text, unsigned count);
// Writes the fill character at `fill` (of the sink's character type)
// `count` times; `count` may be 0.
using fill_sink = void (*)(void* context, void const* fill, unsigned count);

// The integer engine. Returns the characters written; 0 with errno 22 and
// nothing written for a missing sink or a radix of 1 or above 36.
//
// Radix 0 is taken from the flags: decimal when `dec` or no radix bit is
// set, else `hex`, `oct`, `bin`. Only the signed form in radix 10 writes a
// "-"; in any other radix the 64 bits are written as unsigned. Letters are
// lower case unless `uppercase`. Prefix (the first that applies): "-";
// "+" for `showpos` in radix 10; "0x" for `showbase` in radix 16 (lower
// case even with `uppercase`); "0" for `showbase` in radix 8 when the value
// is not 0; "0b" for `showbase` in radix 2.
//
// Order: with `right` clear and `internal` set (and `left` clear): prefix,
// fill, digits; with `right` clear and `left` set: prefix, digits, fill;
// otherwise fill, prefix, digits. The octal "0" prefix turns `internal`
// into the right order. The fill sink is called even for a count of 0.
ZEL_API unsigned insert(text_sink text, void* context, fill_sink fill, void const* fill_char,
                        std::int64_t value, unsigned radix, unsigned width, long flags);
ZEL_API unsigned insert(text_sink text, void* context, fill_sink fill, void const* fill_char,
                        std::uint64_t value, unsigned radix, unsigned width, long flags);

// The floating engine: formats with the C library's `snprintf` using the
// flags (`showpos` "+", `showpoint` "#", `scientific` "e", else `fixed`
// "f", else "g"; `uppercase` makes the letter upper case) and `precision`,
// capped at 53. A `decimal_point` other than 0 and "." replaces the first
// "." of the text, if there is one. Order: `internal` with neither `right`
// nor `left`: a leading sign, fill, the rest; else `left`: text, fill
// (`left` wins over `right` here, unlike the integer engine); otherwise
// fill, text. Returns the characters written; 0 with errno 22 and nothing
// written for a missing sink.
ZEL_API unsigned insert(text_sink text, void* context, fill_sink fill, void const* fill_char,
                        double value, unsigned width, unsigned precision, long flags,
                        char decimal_point);
ZEL_API unsigned insert(text_sink text, void* context, fill_sink fill, void const* fill_char,
                        long double value, unsigned width, unsigned precision, long flags,
                        char decimal_point);

// ---- Character-array formatting ------------------------------------------

// Integer to text in `buffer`, null-terminated; returns `buffer` (a null
// buffer is returned untouched). Radix 0 means 10; `upper` selects upper
// case letters; `base` adds the prefix ("0x", "0b", octal "0") and, in
// radix 10 (also when 0 was given), a "+" before a non-negative value.
// The signed forms sign-extend to 64 bits, so a negative value in any
// radix but 10 shows all 64 bits: ltoa(-255, b, 16, ...) writes
// "ffffffffffffff01" on every target. An invalid radix writes "" with
// errno 22.
//
// Kept behaviour: the buffer's length is not checked. Radix 2 needs up to
// 67 characters (prefix, 64 digits, null), so give 68 for any radix.
ZEL_API char* ltoa(long value, char* buffer, int radix, bool upper, bool base) noexcept;
ZEL_API char* ultoa(unsigned long value, char* buffer, int radix, bool upper, bool base) noexcept;
ZEL_API char* qtoa(std::int64_t value, char* buffer, int radix, bool upper, bool base) noexcept;
ZEL_API char* uqtoa(std::uint64_t value, char* buffer, int radix, bool upper, bool base) noexcept;
ZEL_API unsigned short* ltow(long value, unsigned short* buffer, int radix, bool upper,
                             bool base) noexcept;
ZEL_API unsigned short* ultow(unsigned long value, unsigned short* buffer, int radix, bool upper,
                              bool base) noexcept;
ZEL_API unsigned short* qtow(std::int64_t value, unsigned short* buffer, int radix, bool upper,
                             bool base) noexcept;
ZEL_API unsigned short* uqtow(std::uint64_t value, unsigned short* buffer, int radix, bool upper,
                              bool base) noexcept;

// Floating point to text in `buffer` with the general ("%g") format,
// null-terminated; returns `buffer` (a null buffer is returned untouched).
// Precision 0 means 6, a negative one counts as 53 (the cap); `upper`
// writes "E" (and "INF", "NAN"); `point` keeps the point and trailing
// zeros ("%#g"), so dtoa(0.5, b, 0, false, true) writes "0.500000".
//
// Kept behaviour: the buffer's length is not checked. The general format
// with precision p needs at most p + 9 characters (sign, point, exponent,
// null), and 64 always suffice.
ZEL_API char* dtoa(double value, char* buffer, int precision, bool upper, bool point) noexcept;
ZEL_API char* ldtoa(long double value, char* buffer, int precision, bool upper,
                    bool point) noexcept;
ZEL_API unsigned short* dtow(double value, unsigned short* buffer, int precision, bool upper,
                             bool point) noexcept;
ZEL_API unsigned short* ldtow(long double value, unsigned short* buffer, int precision,
                              bool upper, bool point) noexcept;

} // namespace zel

#endif
