// Number formatting: the integer engine's prefixes and output orders with
// width and fill, the floating engine's format, point and sign placement,
// the character-array conversions in both character types, and seeded
// differential runs against snprintf.
#include <zel/numconv.h>

#include <cerrno>
#include <functional>
#include <cfloat>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

// The differential runs take their formats from a table.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

using zel::ios_flags;

// Collects what the engines write; each sink call is recorded too, so the
// tests see the order and the fill calls of count 0.
struct collector {
    std::string text;
    std::string calls;  // "t" per text call, "f<count>" per fill call

    static void put(void* context, char const* s, unsigned n) {
        auto& c = *static_cast<collector*>(context);
        c.text.append(s, n);
        c.calls += 't';
    }
    static void fill(void* context, void const* f, unsigned n) {
        auto& c = *static_cast<collector*>(context);
        c.text.append(n, *static_cast<char const*>(f));
        c.calls += 'f' + std::to_string(n);
    }
};

char const star = '*';

std::string format_int(std::int64_t v, unsigned radix, unsigned width, long flags,
                   std::string* calls = nullptr) {
    collector c;
    unsigned const n =
        zel::insert(collector::put, &c, collector::fill, &star, v, radix, width, flags);
    EXPECT_EQ(n, c.text.size());
    if (calls)
        *calls = c.calls;
    return c.text;
}

std::string format_float(long double v, unsigned width, unsigned precision, long flags,
                   char point = '.') {
    collector c;
    unsigned const n =
        zel::insert(collector::put, &c, collector::fill, &star, v, width, precision, flags, point);
    EXPECT_EQ(n, c.text.size());
    return c.text;
}

std::string narrow(unsigned short const* w) {
    std::string s;
    for (; *w; ++w)
        s += static_cast<char>(*w);
    return s;
}

// One row per call: value, radix (0 takes it from the flags), width, flags,
// the text, and the sink calls when they matter (fill calls of count 0 too).
TEST(FormatInteger, SignsPrefixesRadixAndOrders) {
    long const base = ios_flags::showbase, up = ios_flags::uppercase, in = ios_flags::internal,
               left = ios_flags::left, right = ios_flags::right;
    struct {
        std::int64_t v;
        unsigned radix, width;
        long flags;
        char const* text;
        char const* calls = nullptr;
    } const cases[] = {
        {-255, 10, 0, 0, "-255"}, {-255, 16, 0, 0, "ffffffffffffff01"},  // no sign outside radix 10
        {std::numeric_limits<std::int64_t>::min(), 10, 0, 0, "-9223372036854775808"},
        {255, 10, 0, ios_flags::showpos, "+255"}, {255, 16, 0, base | up, "0xFF"}, {255, 8, 0, base, "0377"},
        {0, 8, 0, base, "0"},  // no octal prefix for 0
        {5, 2, 0, base, "0b101"}, {35, 36, 0, base, "z"}, {1295, 36, 0, up, "ZZ"},
        // the first of dec, hex, oct, bin in the flags
        {255, 0, 0, 0, "255"}, {255, 0, 0, ios_flags::dec | ios_flags::hex, "255"},
        {255, 0, 0, ios_flags::hex | ios_flags::oct, "ff"}, {255, 0, 0, ios_flags::oct | ios_flags::bin, "377"},
        {5, 0, 0, ios_flags::bin, "101"},
        // adjustment: right wins, then left, then internal; none means fill first
        {255, 16, 8, base | in, "0x****ff", "tf4t"}, {255, 16, 8, base | left, "0xff****", "tf4"},
        {255, 16, 8, base | right, "****0xff"}, {255, 16, 8, base, "****0xff"},
        {255, 16, 8, base | right | left, "****0xff"}, {255, 16, 8, base | left | in, "0xff****"},
        {-42, 10, 6, in, "-***42"}, {255, 8, 8, base | in, "****0377"},  // the octal zero clears internal
        {255, 16, 2, base, "0xff", "f0t"},  // the fill sink is called with a count of 0
    };
    for (auto const& c : cases) {
        std::string calls;
        EXPECT_EQ(format_int(c.v, c.radix, c.width, c.flags, &calls), c.text) << c.v << " radix " << c.radix;
        EXPECT_TRUE(!c.calls || calls == c.calls) << c.text << " made the calls " << calls;
    }
    EXPECT_EQ(format_int(-1, 2, 0, 0), std::string(64, '1'));
    collector c;
    zel::insert(collector::put, &c, collector::fill, &star, std::uint64_t{7}, 10, 0, ios_flags::showpos);
    EXPECT_EQ(c.text, "+7") << "the unsigned form takes showpos too";
    c = collector{};
    zel::insert(collector::put, &c, collector::fill, &star, ~std::uint64_t{0}, 10, 0, 0);
    EXPECT_EQ(c.text, "18446744073709551615");
}

// Missing sinks and a radix outside 2..36 write nothing and set EINVAL.
TEST(FormatInteger, RefusedArguments) {
    collector c;
    std::function<unsigned()> const refused[] = {
        [&] { return zel::insert(collector::put, &c, collector::fill, &star, std::int64_t{1}, 1, 5, 0); },
        [&] { return zel::insert(collector::put, &c, collector::fill, &star, std::int64_t{1}, 37, 5, 0); },
        [&] { return zel::insert(nullptr, &c, collector::fill, &star, std::int64_t{1}, 10, 5, 0); },
        [&] { return zel::insert(collector::put, &c, nullptr, &star, std::int64_t{1}, 10, 5, 0); },
        [&] { return zel::insert(collector::put, &c, nullptr, &star, 1.0, 5, 6, 0, '.'); },
    };
    for (auto const& f : refused) {
        errno = 0;
        EXPECT_EQ(f(), 0u);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(c.calls, "");
    format_int(1, 10, 0, 0);
    EXPECT_EQ(errno, 0);
}

TEST(FormatText, CharacterArrayForms) {
    char b[72];
    EXPECT_STREQ(zel::ltoa(-255, b, 16, false, false), "ffffffffffffff01");
    EXPECT_STREQ(zel::ltoa(-255, b, 10, false, false), "-255");
    EXPECT_STREQ(zel::ltoa(255, b, 16, true, true), "0xFF");
    EXPECT_STREQ(zel::ltoa(255, b, 10, false, true), "+255");
    EXPECT_STREQ(zel::ltoa(255, b, 0, false, true), "+255") << "radix 0 becomes 10 first";
    EXPECT_STREQ(zel::ltoa(255, b, 8, false, true), "0377");
    EXPECT_STREQ(zel::ultoa(std::numeric_limits<unsigned long>::max(), b, 10, false, false),
                 std::to_string(std::numeric_limits<unsigned long>::max()).c_str());
    EXPECT_STREQ(zel::qtoa(std::numeric_limits<std::int64_t>::min(), b, 2, false, true),
                 ("0b1" + std::string(63, '0')).c_str());
    EXPECT_STREQ(zel::uqtoa(~std::uint64_t{0}, b, 36, true, false), "3W5E11264SGSF");
    std::strcpy(b, "untouched");
    EXPECT_STREQ(zel::qtoa(5, b, 37, false, false), "");
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(zel::qtoa(5, nullptr, 10, false, false), nullptr);

    unsigned short w[72];
    EXPECT_EQ(narrow(zel::ltow(-255, w, 16, true, true)), "0xFFFFFFFFFFFFFF01");
    EXPECT_EQ(narrow(zel::ultow(255, w, 2, false, false)), "11111111");
    EXPECT_EQ(narrow(zel::qtow(-7, w, 0, false, true)), "-7");
    EXPECT_EQ(narrow(zel::uqtow(0, w, 16, false, true)), "0x0");
    EXPECT_EQ(zel::uqtow(1, nullptr, 10, false, false), nullptr);
    EXPECT_STREQ(zel::dtoa(0.5, b, 0, false, false), "0.5");
    EXPECT_STREQ(zel::dtoa(0.5, b, 0, false, true), "0.500000");
    EXPECT_STREQ(zel::dtoa(1e-20, b, 3, true, false), "1E-20");
    EXPECT_STREQ(zel::dtoa(1.0 / 3, b, -1, false, false),
                 "0.33333333333333331482961625624739099293947219848632812");
    EXPECT_STREQ(zel::ldtoa(0.25L, b, 2, false, true), "0.25");
    EXPECT_EQ(zel::dtoa(1, nullptr, 6, false, false), nullptr);
    EXPECT_EQ(narrow(zel::dtow(-2.5e-7, w, 0, true, false)), "-2.5E-07");
    EXPECT_EQ(narrow(zel::ldtow(100.0L, w, 0, false, true)), "100.000");
    EXPECT_EQ(zel::ldtow(1, nullptr, 6, false, false), nullptr);
}

// One row per call: value, width, precision, flags, decimal point, text.
TEST(FormatFloating, FormatPointAndOrders) {
    long const fixed = ios_flags::fixed, sci = ios_flags::scientific, up = ios_flags::uppercase,
               in = ios_flags::internal, left = ios_flags::left;
    struct {
        long double v;
        unsigned width, precision;
        long flags;
        char point;
        char const* text;
    } const cases[] = {
        {0.5L, 0, 6, 0, '.', "0.5"}, {0.5L, 0, 6, ios_flags::showpoint, '.', "0.500000"},
        {1234.5L, 0, 2, fixed | ios_flags::showpos, '.', "+1234.50"}, {1234.5L, 0, 2, sci | up, '.', "1.23E+03"},
        {1234.5L, 0, 2, fixed | sci, '.', "1.23e+03"}, {1e20L, 0, 3, up, '.', "1E+20"},
        {-1.5L, 0, 6, 0, ',', "-1,5"}, {2.0L, 0, 6, 0, ',', "2"}, {1.5L, 0, 6, 0, '\0', "1.5"},
        {-1.5L, 7, 6, in, '.', "-***1.5"}, {1.5L, 7, 6, in | ios_flags::showpos, '.', "+***1.5"},
        {1.5L, 7, 6, in, '.', "****1.5"}, {-1.5L, 7, 6, in | ios_flags::right, '.', "***-1.5"},
        {-1.5L, 7, 6, left, '.', "-1.5***"},
        {-1.5L, 7, 6, left | ios_flags::right, '.', "-1.5***"},  // left wins here, unlike the integer engine
        {-1.5L, 7, 6, 0, '.', "***-1.5"}, {-1.5L, 2, 6, 0, '.', "-1.5"},
    };
    for (auto const& c : cases)
        EXPECT_EQ(format_float(c.v, c.width, c.precision, c.flags, c.point), c.text) << c.text;
    EXPECT_EQ(format_float(0.1L, 0, 1000, fixed).size(), 55u) << "precision capped at 53";
    // Every digit of the largest long double is written.
    char expected[LDBL_MAX_10_EXP + 64];
    int const n = std::snprintf(expected, sizeof expected, "%.53Lf", LDBL_MAX);
    EXPECT_EQ(format_float(LDBL_MAX, 0, 53, fixed), std::string(expected, n));
}

// Only the integer engine clears errno: the floating forms leave it alone.
TEST(FormatFloating, ErrnoIsLeftAsItWas) {
    char b[72];
    unsigned short w[72];
    collector c;
    std::function<void()> const forms[] = {
        [&] { zel::dtoa(0.25, b, 0, false, false); },
        [&] { zel::ldtoa(0.25L, b, 0, false, false); },
        [&] { zel::dtow(0.25, w, 0, false, false); },
        [&] { zel::ldtow(0.25L, w, 0, false, false); },
        [&] { zel::insert(collector::put, &c, collector::fill, &star, 0.25, 5, 6, 0, '.'); },
        [&] { zel::insert(collector::put, &c, collector::fill, &star, 0.25L, 5, 6, 0, '.'); },
    };
    for (auto const& form : forms) {
        errno = ERANGE;
        form();
        EXPECT_EQ(errno, ERANGE);
    }
    EXPECT_STREQ(b, "0.25");
}

// ---- Differential runs -----------------------------------------------------

std::uint64_t random_bits(std::mt19937_64& gen) { return gen() >> (gen() % 64); }

// The C formats that write what qtoa and uqtoa write, plain and with the
// base (showpos in radix 10); "%#" writes no prefix for 0.
TEST(FormatIntegerDifferential, AgreesWithSnprintf) {
    struct form {
        char const* plain;
        char const* based;
        unsigned radix;
        bool is_signed, upper;
    } const forms[] = {
        {"%" PRId64, "%+" PRId64, 10, true, false}, {"%" PRIu64, "+%" PRIu64, 10, false, false},
        {"%" PRIo64, "%#" PRIo64, 8, true, false},  {"%" PRIx64, "%#" PRIx64, 16, false, false},
        {"%" PRIX64, "0x%" PRIX64, 16, false, true},
    };
    std::mt19937_64 gen(99173);
    char ours[72];
    char c[72];
    for (int i = 0; i < 6000; ++i) {
        std::uint64_t const bits = random_bits(gen) | (i % 7 == 0 ? 1ull << 63 : 0);
        form const& f = forms[i % 5];
        bool const base = bits != 0 && gen() % 2 != 0;
        char const* const format = base ? f.based : f.plain;
        if (f.is_signed) {
            std::snprintf(c, sizeof c, format, static_cast<std::int64_t>(bits));
            zel::qtoa(static_cast<std::int64_t>(bits), ours, f.radix, f.upper, base);
        } else {
            std::snprintf(c, sizeof c, format, bits);
            zel::uqtoa(bits, ours, f.radix, f.upper, base);
        }
        ASSERT_STREQ(ours, c) << "case " << i << " format " << format;
    }
}

TEST(FormatFloatingDifferential, AgreesWithSnprintf) {
    std::mt19937_64 gen(4413);
    char ours[72];
    char c[72];
    for (int i = 0; i < 4000; ++i) {
        double value;
        if (i % 2) {
            std::uint64_t bits = gen();
            std::memcpy(&value, &bits, sizeof value);  // any double, NaN and infinity too
        } else {
            value = static_cast<double>(gen() % 2000000) / 1000.0 - 1000.0;
        }
        int const precision = 1 + static_cast<int>(gen() % 53);
        bool const upper = gen() % 2 != 0;
        bool const point = gen() % 2 != 0;
        std::snprintf(c, sizeof c, point ? (upper ? "%#.*G" : "%#.*g") : (upper ? "%.*G" : "%.*g"),
                      precision, value);
        zel::dtoa(value, ours, precision, upper, point);
        ASSERT_STREQ(ours, c) << "precision " << precision << " upper " << upper
                              << " point " << point;
    }
}

} // namespace
