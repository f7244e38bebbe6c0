// Number parsing: the `extract` forms that run the scanning engines of
// numscan.h over a caller's getter, and the character-array conversions
// (strtoq, xstrtold and their relatives).
//
// Each engine is a template over its character source, instantiated here
// for the caller's callbacks, a narrow array and a wide array, and in
// locale.cpp over a stream buffer. The array sources inline the character
// walk, which keeps strtoq as fast as the C library's strtoll; the rules
// live in one place.
#include <zel/numconv.h>

#include <cerrno>

#include "numscan.h"

namespace zel {

using namespace detail;

namespace {

// ---- Character-array conversions -----------------------------------------

template <class C>
std::uint64_t integer_from_text(C const* text, C const** end, int radix, bool is_signed) {
    if (text == nullptr) {
        errno = EINVAL;
        if (end)
            *end = text;
        return 0;
    }
    array_source<C> src{text};
    std::uint64_t value = 0;
    scan_integer(src, static_cast<unsigned>(radix), ios_flags::skipws, is_signed, value,
                 nullptr);
    if (end)
        *end = src.at;
    // The signed form keeps its result only on success: 0 after an overflow.
    return is_signed && errno != 0 ? 0 : value;
}

template <class C>
long double floating_from_text(C const* text, C const** end) {
    if (text == nullptr) {
        errno = EINVAL;
        if (end)
            *end = text;
        return 0;
    }
    array_source<C> src{text};
    floating_result result;
    scan_floating(src, '.', ios_flags::skipws, result, nullptr);
    if (end)
        *end = src.at;
    return result.value;
}

} // namespace

bool isdigit(unsigned c, unsigned radix) noexcept { return digit_value(c) < radix; }

unsigned todigit(unsigned c, unsigned radix) noexcept {
    unsigned const d = digit_value(c);
    return d < radix ? d : ~0u;
}

int extract(number_getter get, void* get_context, space_predicate is_space, void* space_context,
            unsigned radix, long flags, std::int64_t& result, bool* at_end) noexcept {
    callback_source src{get, get_context, is_space, space_context};
    std::uint64_t value = 0;
    int const used = scan_integer(src, radix, flags, true, value, at_end);
    if (errno == 0)
        result = as_signed(value);
    return used;
}

int extract(number_getter get, void* get_context, space_predicate is_space, void* space_context,
            unsigned radix, long flags, std::uint64_t& result, bool* at_end) noexcept {
    callback_source src{get, get_context, is_space, space_context};
    return scan_integer(src, radix, flags, false, result, at_end);
}

int extract(number_getter get, void* get_context, space_predicate is_space, void* space_context,
            unsigned decimal_point, long flags, double& result, bool* at_end) noexcept {
    callback_source src{get, get_context, is_space, space_context};
    floating_result out;
    int const used = scan_floating(src, decimal_point, flags, out, at_end);
    if (out.stored && errno == 0)
        result = out.value;
    return used;
}

int extract(number_getter get, void* get_context, space_predicate is_space, void* space_context,
            unsigned decimal_point, long flags, long double& result, bool* at_end) noexcept {
    callback_source src{get, get_context, is_space, space_context};
    floating_result out;
    int const used = scan_floating(src, decimal_point, flags, out, at_end);
    if (out.stored)
        result = out.value;
    return used;
}

std::int64_t strtoq(char const* text, char const** end, int radix) noexcept {
    return as_signed(integer_from_text(text, end, radix, true));
}

std::uint64_t strtouq(char const* text, char const** end, int radix) noexcept {
    return integer_from_text(text, end, radix, false);
}

std::int64_t wstrtoq(unsigned short const* text, unsigned short const** end, int radix) noexcept {
    return as_signed(integer_from_text(text, end, radix, true));
}

std::uint64_t wstrtouq(unsigned short const* text, unsigned short const** end,
                       int radix) noexcept {
    return integer_from_text(text, end, radix, false);
}

long double xstrtold(char const* text, char const** end) noexcept {
    return floating_from_text(text, end);
}

long double xwstrtold(unsigned short const* text, unsigned short const** end) noexcept {
    return floating_from_text(text, end);
}

} // namespace zel
