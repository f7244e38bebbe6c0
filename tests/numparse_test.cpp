// Number parsing: the digit table, the integer and floating engines through
// `extract` (stores, end flags, returned radix, the getter protocol), the
// character-array conversions in both character types, and seeded
// differential runs against strtoll, strtoull and strtod where the C
// library defines the same result.
#include <zel/numconv.h>

#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using zel::ios_flags;

constexpr std::uint64_t all_bits = ~std::uint64_t{0};

std::vector<unsigned short> widen(char const* s) {
    std::vector<unsigned short> w;
    for (; *s; ++s)
        w.push_back(static_cast<unsigned char>(*s));
    w.push_back(0);
    return w;
}

// A source for the engines' callbacks: the text, then end of input. It
// records the protocol: the first call must not advance, later ones must.
struct reader {
    std::string text;
    std::size_t at = 0;
    int calls = 0;
    bool protocol_kept = true;
    int error_at_end = 0;  // set in errno when the end is reported, as a failed read would

    static unsigned get(void* context, bool advance) {
        auto& r = *static_cast<reader*>(context);
        if (advance != (r.calls++ != 0))
            r.protocol_kept = false;
        if (advance && r.at < r.text.size())
            ++r.at;
        if (r.at < r.text.size())
            return static_cast<unsigned char>(r.text[r.at]);
        if (r.error_at_end)
            errno = r.error_at_end;
        return zel::end_of_input;
    }
};

bool blank(void*, unsigned c) { return c == ' ' || c == '\t'; }

template <class T>
int run_extract(reader& r, unsigned radix_or_point, long flags, T& result, bool* at_end) {
    return zel::extract(reader::get, &r, blank, nullptr, radix_or_point, flags, result, at_end);
}

TEST(Digits, TableCoversDigitsAndBothLetterCases) {
    struct {
        unsigned c, radix, digit;
    } const cases[] = {
        {'0', 10, 0}, {'9', 10, 9}, {'a', 36, 10}, {'Z', 36, 35}, {'z', 36, 35}, {'a', 10, ~0u},
        {'/', 36, ~0u}, {'{', 37, ~0u}, {0x100 + '1', 10, ~0u},  // no truncation to a byte
        {'f', 16, 15}, {'g', 16, ~0u}, {'1', 1, ~0u}, {zel::end_of_input, 36, ~0u},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(zel::todigit(c.c, c.radix), c.digit) << c.c << " radix " << c.radix;
        EXPECT_EQ(zel::isdigit(c.c, c.radix), c.digit != ~0u) << c.c << " radix " << c.radix;
    }
}

// Each text through the narrow and the wide form: the value, errno and how
// many characters were consumed.
TEST(ParseIntegerText, ValuesErrorsAndEndPointers) {
    constexpr std::int64_t min = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t max = std::numeric_limits<std::int64_t>::max();
    struct {
        char const* text;
        int radix;
        bool is_signed;
        std::uint64_t value;
        int error;
        unsigned consumed;
    } const cases[] = {
        // Rows for what strtoll and strtoull do otherwise, and for the limits,
        // radixes and octal corners the differential run below does not reach.
        {"  -0x1F", 2, true, std::uint64_t(-1), 0, 6},  // "0x" is a prefix in radix 2 too
        {"0b101", 0, true, 5, 0, 5},
        {"0B101", 16, true, 0x101, 0, 5},                 // a binary prefix in radix 16
        {"- \t42", 10, true, std::uint64_t(-42), 0, 5},  // white space after the sign
        {"zZ", 36, true, 35 * 36 + 35, 0, 2},
        {"0z", 0, true, 0, 0, 1},                         // the zero is an octal digit
        {"08", 0, true, 0, 0, 1},
        {"0x", 16, true, 0, EINVAL, 2},                   // the letter takes the zero's digit away
        {"9223372036854775808", 10, true, 0, ERANGE, 18},  // signed keeps 0; the digit stays unread
        {"-9223372036854775808", 10, true, std::uint64_t(min), 0, 20},
        {"9223372036854775807", 10, true, std::uint64_t(max), 0, 19},
        {"ffffffffffffffff", 16, true, std::uint64_t(-1), 0, 16},  // all 64 bits outside radix 10
        {"-ffffffffffffffff", 16, true, 1, 0, 17},
        {"1ffffffffffffffff", 16, true, 0, ERANGE, 16},
        {"18446744073709551615", 10, false, all_bits, 0, 20},
        {"18446744073709551616", 10, false, all_bits, ERANGE, 19},  // unsigned keeps the limit
        {"-18446744073709551616", 10, false, all_bits, ERANGE, 20},  // not negated
        {"  xyz", 10, true, 0, EINVAL, 2},                // the skipped white space is consumed
        {"+", 10, true, 0, EINVAL, 1},
        {"12", 1, false, 0, EINVAL, 0},
        {"12", 37, false, 0, EINVAL, 0},
        {"12", -10, false, 0, EINVAL, 0},
    };
    for (auto const& c : cases) {
        char const* end = nullptr;
        std::uint64_t const v = c.is_signed ? std::uint64_t(zel::strtoq(c.text, &end, c.radix))
                                            : zel::strtouq(c.text, &end, c.radix);
        EXPECT_EQ(v, c.value) << c.text << " radix " << c.radix;
        EXPECT_EQ(errno, c.error) << c.text << " radix " << c.radix;
        EXPECT_EQ(end, c.text + c.consumed) << c.text << " radix " << c.radix;
        auto const w = widen(c.text);
        unsigned short const* wend = nullptr;
        std::uint64_t const wv = c.is_signed ? std::uint64_t(zel::wstrtoq(w.data(), &wend, c.radix))
                                             : zel::wstrtouq(w.data(), &wend, c.radix);
        EXPECT_EQ(wv, c.value) << c.text;
        EXPECT_EQ(wend, w.data() + c.consumed) << c.text;
    }
    char const* end = "x";
    EXPECT_EQ(zel::strtoq(nullptr, &end, 10), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(end, nullptr);
    // 0x131 and 0x120 have the low bytes of "1" and " ": no truncation.
    unsigned short const odd[] = {'1', 0x131, 0};
    unsigned short const* wend = nullptr;
    EXPECT_EQ(zel::wstrtoq(odd, &wend, 10), 1);
    EXPECT_EQ(wend, odd + 1);
    unsigned short const spaced[] = {0x120, '1', 0};
    EXPECT_EQ(zel::wstrtoq(spaced, nullptr, 10), 0);
    EXPECT_EQ(errno, EINVAL);
}

TEST(ParseFloatingText, ValuesErrorsAndEndPointers) {
    struct {
        char const* text;
        long double value;
        int error;
        unsigned consumed;
    } const cases[] = {
        {"000.5", 0.5L, 0, 5},
        {"  -  2.5e1", -25.0L, 0, 10},           // white space after the sign
        {"1e000000000000003", 1000.0L, 0, 17},  // exponent zeros dropped
        {"1e", 0.0L, EINVAL, 2},                // the e is consumed
        {"", 0.0L, EINVAL, 0},
        {".", 0.0L, EINVAL, 1},
        {"-", 0.0L, EINVAL, 1},
        {"abc", 0.0L, EINVAL, 0},
        {"1e123456789012", HUGE_VALL, ERANGE, 14},  // eight exponent digits are kept
    };
    for (auto const& c : cases) {
        char const* end = nullptr;
        EXPECT_EQ(zel::xstrtold(c.text, &end), c.value) << c.text;
        EXPECT_EQ(errno, c.error) << c.text;
        EXPECT_EQ(end, c.text + c.consumed) << c.text;
    }
    std::string sixty(60, '7');
    double expected = std::strtod(sixty.substr(0, 55).c_str(), nullptr) * std::pow(10.0, 5);
    EXPECT_EQ(static_cast<double>(zel::xstrtold(sixty.c_str(), nullptr)), expected);
    // A zero integer part: the zeros after the point become a scale.
    volatile double scaled = std::strtod("0.0123", nullptr) * std::pow(10.0, -1);
    EXPECT_EQ(static_cast<double>(zel::xstrtold("0.00123", nullptr)), scaled);
    EXPECT_TRUE(std::signbit(zel::xstrtold("-0", nullptr)));
    char const* end = "x";
    EXPECT_EQ(zel::xstrtold(nullptr, &end), 0.0L);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(end, nullptr);

    auto wide = widen(" 2.25e-2;");
    unsigned short const* wend = nullptr;
    EXPECT_EQ(static_cast<double>(zel::xwstrtold(wide.data(), &wend)), 0.0225);
    EXPECT_EQ(wend, wide.data() + 8);
}

// One extract per row: the target's type and the value it held, the radix
// (or the decimal point), the flags, and an errno the getter leaves at the
// end; then the result, errno, the target afterwards, the end flag and
// where reading stopped. `any` (or NaN for the target) leaves one unchecked.
constexpr int any = -999;
constexpr long double unchecked = std::numeric_limits<long double>::quiet_NaN();
enum target { s64, u64, dbl, ldbl };
struct extract_row {
    char const* text;
    target type;
    unsigned radix_or_point;
    long flags;
    int getter_error;
    long double before;
    int result, error;
    long double after;
    int at_end = any, stop = any;
};

template <class T>
void run_row(extract_row const& c) {
    SCOPED_TRACE(std::string("[") + c.text + "] type " + std::to_string(c.type));
    reader r{c.text, 0, 0, true, c.getter_error};
    T v = T(c.before);
    bool at_end = c.at_end == 0;
    errno = 0;
    int const got = run_extract(r, c.radix_or_point, c.flags, v, &at_end);
    int const error = errno;
    EXPECT_TRUE(c.result == any || got == c.result) << "result " << got;
    EXPECT_TRUE(c.error == any || error == c.error) << "errno " << error;
    EXPECT_TRUE(std::isnan(c.after) || static_cast<long double>(v) == c.after) << "stored " << v;
    EXPECT_TRUE(c.at_end == any || at_end == (c.at_end != 0)) << "at end " << at_end;
    EXPECT_TRUE(c.stop == any || r.at == std::size_t(c.stop)) << "stopped at " << r.at;
    EXPECT_TRUE(r.protocol_kept);
}

// The signed and double forms store only on success; the unsigned and long
// double forms store what the engine made. An errno the getter leaves is the
// verdict unless the engine finds an error of its own. The radix comes from
// the flags (the first of dec, hex, oct, bin) or the text's prefix; white
// space is skipped without skipws but a sign after it is no digit.
TEST(ParseExtract, StoresErrorsRadixAndEndFlag) {
    long const skipws = ios_flags::skipws, dec = ios_flags::dec, hex = ios_flags::hex, oct = ios_flags::oct,
               bin = ios_flags::bin;
    long double const huge = HUGE_VALL, all = static_cast<long double>(all_bits);
    extract_row const rows[] = {
        {"99999999999999999999", s64, 10, 0, 0, 7, 10, ERANGE, 7},
        {"99999999999999999999", u64, 10, 0, 0, 7, any, ERANGE, all},
        {"-x", u64, 10, 0, 0, 7, -10, EINVAL, 7},  // no digit, nothing stored
        {"12", s64, 10, 0, EIO, 77, any, EIO, 77},
        {"12", u64, 10, 0, EIO, 77, any, EIO, 12},
        {"99999999999999999999", u64, 10, 0, EIO, 0, any, ERANGE, unchecked},  // the engine's own error wins
        {"2.5e1", dbl, '.', 0, EIO, 77, any, EIO, 77},
        {"25e-1", ldbl, '.', 0, EIO, 77, any, EIO, 2.5L},
        {"1e", dbl, '.', 0, EIO, 77, any, EINVAL, unchecked},
        {"10", s64, 0, dec | hex, 0, 0, 10, any, 10, 1},
        {"10", s64, 0, hex | oct, 0, 0, 16, any, 16, 1},
        {"10", s64, 0, oct | bin, 0, 0, 8, any, 8, 1},
        {"10", s64, 0, bin, 0, 0, 2, any, 2, 1},
        {"-0x10", s64, 0, 0, 0, 0, -16, any, -16, 1},
        {"  10", s64, 0, 0, 0, 0, 10, any, 10, 1},
        {"  +10", s64, 0, 0, 0, 3, 10, EINVAL, 3},
        {"12;", u64, 10, 0, 0, 0, any, any, 12, 0, 2},
        {"-1,5", dbl, ',', 0, 0, 0, -10, any, -1.5L, 1},
        {"1.5", dbl, ',', 0, 0, 0, any, any, 1.0L, 0},  // '.' is not the point here
        {" 1", dbl, '.', 0, 0, 3, any, EINVAL, 3},      // without skipws white space stops it
        {" 1", dbl, '.', skipws, 0, 3, 10, any, 1},
        {"1e999", dbl, '.', 0, 0, 3, any, ERANGE, 3},
        {"1e999", ldbl, '.', 0, 0, 3, any, ERANGE, huge},  // what strtod gave
    };
    for (auto const& c : rows) {
        switch (c.type) {
        case s64: run_row<std::int64_t>(c); break;
        case u64: run_row<std::uint64_t>(c); break;
        case dbl: run_row<double>(c); break;
        case ldbl: run_row<long double>(c); break;
        }
    }
    // Missing callbacks and a bad radix are refused before reading.
    std::int64_t v = 5;
    double d = 5;
    bool at_end = true;
    EXPECT_EQ(zel::extract(nullptr, nullptr, blank, nullptr, 10, 0, v, &at_end), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(at_end);
    reader r{"1"};
    EXPECT_EQ(zel::extract(reader::get, &r, nullptr, nullptr, 10, 0, v, nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(run_extract(r, 37, 0, v, nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(r.calls, 0);
    EXPECT_EQ(zel::extract(reader::get, &r, nullptr, nullptr, '.', 0, d, nullptr), 10);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(v, 5);
    EXPECT_EQ(d, 5);
}

// ---- Differential runs -----------------------------------------------------

// Integer texts the C library reads the same way: in range, digits after
// any prefix, no white space after the sign, no "0b".
std::string integer_text(std::mt19937_64& gen, int radix, bool is_signed) {
    std::string s(gen() % 3, ' ');
    std::uint64_t v = gen() >> (gen() % 64);
    bool negative = gen() % 2 != 0;
    if (is_signed && negative && v > (all_bits >> 1))
        v >>= 1;
    if (is_signed && !negative)
        v &= all_bits >> 1;
    if (negative)
        s += '-';
    else if (gen() % 4 == 0)
        s += '+';
    char digits[32];
    switch (radix) {
    case 8:
        std::snprintf(digits, sizeof digits, "%s%" PRIo64, gen() % 2 ? "0" : "", v);
        break;
    case 16:
        std::snprintf(digits, sizeof digits, gen() % 2 ? "0x%" PRIx64 : "%" PRIX64, v);
        break;
    case 0:
        std::snprintf(digits, sizeof digits, gen() % 2 ? "0X%" PRIx64 : "%" PRIu64, v);
        break;
    default:
        std::snprintf(digits, sizeof digits, "%" PRIu64, v);
    }
    s += digits;
    s += " z;."[gen() % 4];
    return s;
}

TEST(ParseIntegerDifferential, AgreesWithStrtollAndStrtoull) {
    std::mt19937_64 gen(20240611);
    for (int i = 0; i < 6000; ++i) {
        int const radix = std::vector<int>{0, 8, 10, 16}[i % 4];
        bool const is_signed = i % 8 < 4;
        std::string text = integer_text(gen, radix, is_signed);
        char const* ours_end = nullptr;
        char* c_end = nullptr;
        errno = 0;
        std::uint64_t const c = is_signed ? std::uint64_t(std::strtoll(text.c_str(), &c_end, radix))
                                          : std::strtoull(text.c_str(), &c_end, radix);
        int const c_errno = errno;
        std::uint64_t const ours = is_signed ? std::uint64_t(zel::strtoq(text.c_str(), &ours_end, radix))
                                             : zel::strtouq(text.c_str(), &ours_end, radix);
        ASSERT_EQ(ours, c) << text << " radix " << radix;
        ASSERT_EQ(errno, c_errno) << text;
        ASSERT_EQ(ours_end, c_end) << text;
    }
}

// Floating texts of at most 55 significant digits whose copy needs no
// scaling: a zero integer part is followed by a non-zero fraction digit.
std::string floating_text(std::mt19937_64& gen) {
    auto digit = [&](bool nonzero) {
        return static_cast<char>('0' + (nonzero ? 1 + gen() % 9 : gen() % 10));
    };
    std::string s;
    if (gen() % 3 == 0)
        s += gen() % 2 ? '-' : '+';
    unsigned const budget = 1 + gen() % 55;
    unsigned const integer = gen() % (budget + 1);
    if (integer == 0) {
        s += gen() % 2 ? "0." : ".";
    } else {
        s += digit(true);
        for (unsigned k = 1; k < integer; ++k)
            s += digit(false);
        if (integer < budget)
            s += '.';
    }
    for (unsigned k = integer; k < budget; ++k)
        s += digit(k == integer && integer == 0);
    if (gen() % 2) {
        char exp[16];
        std::snprintf(exp, sizeof exp, "e%+d", static_cast<int>(gen() % 600) - 300);
        s += exp;
    }
    s += " x"[gen() % 2];
    return s;
}

TEST(ParseFloatingDifferential, AgreesWithStrtod) {
    std::mt19937_64 gen(7031);
    for (int i = 0; i < 5000; ++i) {
        std::string text = floating_text(gen);
        char* c_end = nullptr;
        errno = 0;
        double const c = std::strtod(text.c_str(), &c_end);
        int const c_errno = errno;
        char const* ours_end = nullptr;
        long double const ours = zel::xstrtold(text.c_str(), &ours_end);
        ASSERT_EQ(static_cast<double>(ours), c) << text;
        ASSERT_EQ(errno, c_errno) << text;
        ASSERT_EQ(ours_end, c_end) << text;
    }
}

} // namespace
