// Helpers shared by the locale and stream tests: the test locales (see
// platform.h), scratch files, a zel string as a std::string, seeded values
// of every arithmetic type at every magnitude, and the text an expected
// exception carries.
#ifndef ZEL_TEST_STREAMS_H
#define ZEL_TEST_STREAMS_H

#include <zel/ldx.h>
#include <zel/string.h>

#include "platform.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <type_traits>

#include <unistd.h>

#include <gtest/gtest.h>

namespace zel_test {

// A scratch file in the tests' temporary folder, removed afterwards.
class scratch {
public:
    explicit scratch(char const* tag)
        : name_(std::string(::testing::TempDir()) + "zel_" + tag + "_" + std::to_string(::getpid())) {}
    ~scratch() { std::remove(name_.c_str()); }
    scratch(scratch const&) = delete;
    scratch& operator=(scratch const&) = delete;
    char const* name() const { return name_.c_str(); }
    void write(std::string const& s) const {
        std::FILE* f = std::fopen(name(), "wb");
        std::fwrite(s.data(), 1, s.size(), f);
        std::fclose(f);
    }
    std::string read() const {
        std::string s;
        if (std::FILE* f = std::fopen(name(), "rb")) {
            for (int c; (c = std::fgetc(f)) != EOF;)
                s += char(c);
            std::fclose(f);
        }
        return s;
    }

private:
    std::string name_;
};

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
