// Helpers shared by the locale and stream tests: the test locales (see
// platform.h), a zel string as a std::string, seeded values of every arithmetic type at
// every magnitude, and the text an expected exception carries.
#ifndef ZEL_TEST_STREAMS_H
#define ZEL_TEST_STREAMS_H

#include <zel/string.h>

#include "platform.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <type_traits>

namespace zel_test {

inline std::string text(zel::string_base<char> const& s) { return std::string(s.data(), s.size()); }

// Integers: a random width of random bits, so small values come as often
// as large ones. Floating point: a mantissa in (-1, 1) times 2^[-exp, exp].
template <class T>
T random_value(std::mt19937_64& rng, int exp = 30) {
    if constexpr (std::is_floating_point_v<T>) {
        std::uniform_real_distribution<double> mant(-1.0, 1.0);
        std::uniform_int_distribution<int> e(-exp, exp);
        return T(std::ldexp(mant(rng), e(rng)));
    } else {
        return T(rng() >> (rng() % 64));
    }
}

// What E's what() says when f() throws it; "(no throw)" when nothing does.
template <class E, class F>
std::string what_of(F&& f) {
    try {
        f();
    } catch (E const& e) {
        return e.what();
    }
    return "(no throw)";
}

} // namespace zel_test

#endif
