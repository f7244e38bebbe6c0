// Locales and facets: facet identity and reference counts (nothing leaks or
// dies early when locales are copied, combined and dropped), ctype over
// the descriptor's tables for both character types, numpunct, and the
// number facets: a seeded round-trip run over every type code, radix and
// flag set in two locales and both character types, the documented edge
// cases, and two threads formatting numbers and converting characters in
// different locales at once.
#include <zel/locale.h>

#include <zel/ios.h>
#include <zel/streambuf.h>

#include <cerrno>
#include <cfloat>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "support/raises.h"
#include "support/streams.h"

namespace {

using zel::ios_base;
using zel::ldx_manager;
using zel::locale;
using zel::num_base;

char const latin1[] = "de_DE.ISO-8859-1";

// ---- identity and counts --------------------------------------------------

// A numpunct that counts its destruction.
int destroyed = 0;
struct counted_punct : zel::numpunct<char> {
    explicit counted_punct(long refs) : zel::numpunct<char>(refs) {}
    ~counted_punct() override { ++destroyed; }
};

// A facet class no locale holds.
struct stray_facet : locale::facet {
    static locale::id id;
    stray_facet() : locale::facet(0, locale::numeric, nullptr) {}
};
locale::id stray_facet::id;

TEST(LocaleFacets, IdsAreAssignedOnceAndDistinct) {
    unsigned const a = zel::ctype<char>::id;
    unsigned const b = zel::ctype<unsigned short>::id;
    unsigned const c = zel::num_get<char, zel::ibuf_iterator>::id;
    EXPECT_NE(a, 0u);
    EXPECT_NE(a, b);
    EXPECT_NE(b, c);
    EXPECT_EQ(unsigned(zel::ctype<char>::id), a);
    EXPECT_LE(a, unsigned(locale::id::id_pool));
    locale const l = locale::classic();
    EXPECT_EQ(zel::use_facet<zel::ctype<char>>(l).facet_id(), a);
    EXPECT_EQ(zel::use_facet<zel::ctype<char>>(l).facet_category(), locale::ctype);
    EXPECT_EQ(zel::use_facet<zel::numpunct<char>>(l).facet_category(), 0x800);
    EXPECT_FALSE(zel::has_facet<stray_facet>(l));
    EXPECT_EQ(zel_test::what_of<zel::bad_cast>([&] { zel::use_facet<stray_facet>(l); }), "bad cast");
}

TEST(LocaleFacets, CopiesShareAndCountTheEngine) {
    locale const a = locale::classic();
    long const before = a.get_engine()->references();
    {
        locale b(a);
        locale c;
        c = b;
        EXPECT_EQ(a.get_engine(), c.get_engine());
        EXPECT_EQ(a.get_engine()->references(), before + 2);
        EXPECT_EQ(&zel::use_facet<zel::ctype<char>>(a), &zel::use_facet<zel::ctype<char>>(c));
        locale const& same = c;
        c = same;  // self-assignment keeps the count
        EXPECT_EQ(a.get_engine()->references(), before + 2);
    }
    EXPECT_EQ(a.get_engine()->references(), before);
}

TEST(LocaleFacets, ReplacedFacetsLiveExactlyAsLongAsTheirLocales) {
    destroyed = 0;
    auto* owned = new counted_punct(0);   // the locales delete it
    counted_punct kept(1);                // the caller keeps it
    {
        locale const with(locale::classic(), owned);
        EXPECT_EQ(&zel::use_facet<zel::numpunct<char>>(with), owned);
        EXPECT_EQ(owned->references(), 1);
        {
            locale const copy(with);
            locale const combined(locale::classic(), with, locale::numeric);
            EXPECT_EQ(&zel::use_facet<zel::numpunct<char>>(combined), owned);
            EXPECT_EQ(owned->references(), 2);
            EXPECT_EQ(&zel::use_facet<zel::ctype<char>>(combined),
                      &zel::use_facet<zel::ctype<char>>(locale::classic()));
            locale const other(with, &kept);
            EXPECT_EQ(&zel::use_facet<zel::numpunct<char>>(other), &kept);
            EXPECT_FALSE(other == with);
        }
        EXPECT_EQ(destroyed, 0);
        EXPECT_EQ(kept.references(), 1);
    }
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(&zel::use_facet<zel::numpunct<char>>(locale(locale::classic(), (counted_punct*)nullptr)),
              &zel::use_facet<zel::numpunct<char>>(locale::classic()));
}

TEST(LocaleNames, NamedLocalesAndTheGlobalOne) {
    ZEL_REQUIRE_TEST_LOCALE(latin1);
    locale const de(latin1);
    EXPECT_STREQ(de.name(), latin1);
    EXPECT_STREQ(locale::classic().name(), "C");
    EXPECT_TRUE(de == locale(latin1));
    EXPECT_FALSE(de == locale::classic());
    EXPECT_EQ(zel::use_facet<zel::numpunct<char>>(de).decimal_point(), ',');

    // Only the numeric facets from the named locale.
    locale const mixed(locale::classic(), latin1, locale::numeric);
    EXPECT_EQ(zel::use_facet<zel::numpunct<char>>(mixed).decimal_point(), ',');
    EXPECT_EQ(zel::use_facet<zel::ctype<unsigned short>>(mixed).toupper(0xE9), 0xE9);
    EXPECT_EQ(zel::use_facet<zel::ctype<unsigned short>>(de).toupper(0xE9), 0xC9);

    locale const old = locale::global(de);
    EXPECT_TRUE(locale() == de);
    EXPECT_TRUE(locale::global(old) == de);
    EXPECT_TRUE(locale() == old);
}

TEST(LocaleNames, UnknownNamesThrowAndChangeNothing) {
    unsigned const size = ldx_manager::size();
    zel_test::expect_raised([] { locale l("xx_YY.no-such-locale"); }, "runtime_error",
                            "locale name not recognised", "src/locale.cpp");
    EXPECT_THROW(locale(locale::classic(), "xx_YY", locale::ctype), zel::xexception);
    EXPECT_THROW(locale(static_cast<char const*>(nullptr)), zel::xexception);
    EXPECT_EQ(ldx_manager::size(), size);
    // A facet made for an unknown name answers from the C descriptor.
    zel::numpunct<char> p(1, "xx_YY");
    EXPECT_EQ(p.facet_ldx(), ldx_manager::C());
}

// ---- ctype ----------------------------------------------------------------

TEST(LocaleCtype, AnswersFromTheTables) {
    ZEL_REQUIRE_TEST_LOCALE(latin1);
    locale const de(latin1);
    auto const& n = zel::use_facet<zel::ctype<char>>(de);
    auto const& w = zel::use_facet<zel::ctype<unsigned short>>(de);
    zel::locale_descriptor const* d = w.facet_ldx();
    using cb = zel::ctype_base;
    for (unsigned c = 0; c < 300; ++c) {
        unsigned const cls = c < 256 ? d->class_table[c] : 0;
        auto const wc = static_cast<unsigned short>(c);
        for (cb::mask m = 1; m != 0; m = cb::mask(m << 1))
            ASSERT_EQ(w.is(m, wc), (cls & m) != 0) << c;
        ASSERT_EQ(w.toupper(wc), c < 256 ? d->upper_table[c] : c);
        ASSERT_EQ(w.tolower(wc), c < 256 ? d->lower_table[c] : c);
        char const nc = static_cast<char>(c);
        bool const inside = c < 128;  // kept: a char is widened with its sign
        ASSERT_EQ(n.is(cb::alpha, nc), inside && (cls & cb::alpha) != 0) << c;
        ASSERT_EQ(n.toupper(nc), inside ? char(d->upper_table[c]) : nc) << c;
    }
    EXPECT_TRUE(w.is(cb::alpha, 0xE9));
    EXPECT_FALSE(n.is(cb::mask(0xFF), '\xE9'));
    EXPECT_EQ(w.widen('\xE9'), 0xFFE9);
    EXPECT_EQ(w.widen('a'), 'a');
    EXPECT_EQ(n.widen('\xE9'), '\xE9');
    EXPECT_EQ(w.narrow(0x1234, '?'), '\x34');

    unsigned short text[] = {'a', '1', ' ', 0xE9, 0x100};
    unsigned short const* end = text + 5;
    EXPECT_EQ(w.scan_is(cb::digit, text, end), text + 1);
    EXPECT_EQ(w.scan_not(cb::alnum, text, end), text + 2);
    EXPECT_EQ(w.scan_is(cb::cntrl, text, end), end);
    cb::mask classes[5];
    w.is(text, end, classes);
    EXPECT_EQ(classes[4], 0);
    EXPECT_EQ(classes[2], d->class_table[0x20]);
    w.toupper(text, end);
    EXPECT_EQ(text[0], 'A');
    EXPECT_EQ(text[3], 0xC9);
    EXPECT_EQ(text[4], 0x100);
    EXPECT_EQ(w.tolower(text, end), end);
    EXPECT_EQ(text[0], 'a');
    EXPECT_EQ(text[3], 0xE9);
    char narrow[5];
    EXPECT_EQ(w.narrow(text, end, '?', narrow), end);
    EXPECT_EQ(std::string(narrow, 5), std::string("a1 \xE9\0", 5));  // the low byte, no default
    unsigned short wide[5];
    EXPECT_EQ(w.widen(narrow, narrow + 5, wide), narrow + 5);
    EXPECT_EQ(wide[3], 0xFFE9);
    EXPECT_EQ(wide[1], '1');
}

// ---- number facets ----------------------------------------------------------

template <class C>
struct buffers {
    using sbuf = zel::basic_stringbuf<C>;
    using out_it = zel::basic_obuf_iterator<C>;
    using in_it = zel::basic_ibuf_iterator<C>;
    using put = zel::num_put<C, out_it>;
    using get = zel::num_get<C, in_it>;
};

template <class C>
std::string write(ios_base& io, num_base::num_type code, void const* value) {
    typename buffers<C>::sbuf sb;
    typename buffers<C>::out_it it(&sb);
    auto const& np = zel::use_facet<typename buffers<C>::put>(io.getloc());
    it = np.put(it, io, C(' '), code, value);
    EXPECT_FALSE(it.failed());
    auto const s = sb.str();
    std::string out;
    for (unsigned i = 0; i < s.size(); ++i) {
        EXPECT_LT(s.data()[i], 0x80);
        out += static_cast<char>(s.data()[i]);
    }
    return out;
}

// Reads `text`; returns the error bits and how many characters were left.
template <class C>
long read(ios_base& io, std::string const& text, num_base::num_type code, void* value,
          unsigned* left = nullptr) {
    typename buffers<C>::sbuf::string_type s;
    for (char c : text)
        s.append(static_cast<C>(static_cast<unsigned char>(c)));
    typename buffers<C>::sbuf sb(s, ios_base::in);
    typename buffers<C>::in_it it(&sb), end;
    long error = 0;
    auto const& ng = zel::use_facet<typename buffers<C>::get>(io.getloc());
    ng.get(it, end, io, error, code, value);
    if (left != nullptr) {
        *left = 0;
        while (sb.sbumpc() != zel::buffer_eof<C>::value)
            ++*left;
    }
    return error;
}

struct code_info {
    num_base::num_type code;
    unsigned size;
    bool is_signed;
};

code_info const int_codes[] = {
    {num_base::t_schar, 1, true},  {num_base::t_uchar, 1, false},
    {num_base::t_short, 2, true},  {num_base::t_ushort, 2, false},
    {num_base::t_int, 4, true},    {num_base::t_uint, 4, false},
    {num_base::t_long, sizeof(long), true}, {num_base::t_ulong, sizeof(long), false},
    {num_base::t_int64, 8, true},  {num_base::t_uint64, 8, false},
};

// The text the engines must produce for `bits` (the value's own bytes,
// sign-extended when signed) in a radix: the C library's own conversions.
std::string expected_int(std::uint64_t bits, code_info const& k, int radix, bool upper) {
    std::uint64_t const mask = k.size == 8 ? ~std::uint64_t(0) : (std::uint64_t(1) << (8 * k.size)) - 1;
    char buf[80];
    if (radix == 10 && k.is_signed)
        std::snprintf(buf, sizeof buf, "%" PRId64, static_cast<std::int64_t>(bits));
    else if (radix == 10)
        std::snprintf(buf, sizeof buf, "%" PRIu64, bits & mask);
    else if (radix == 8)
        std::snprintf(buf, sizeof buf, "%" PRIo64, bits & mask);
    else if (radix == 16)
        std::snprintf(buf, sizeof buf, upper ? "%" PRIX64 : "%" PRIx64, bits & mask);
    else {
        std::string s;
        std::uint64_t v = bits & mask;
        do {
            s.insert(s.begin(), char('0' + (v & 1)));
            v >>= 1;
        } while (v != 0);
        return s;
    }
    return buf;
}

template <class C>
void round_trips(unsigned seed) {
    std::mt19937_64 rng(seed);
    bool const have_de = zel_test::have_test_locale(latin1);
    locale const c_loc = locale::classic();
    locale const de_loc = have_de ? locale(latin1) : c_loc;
    long const radix_flags[] = {ios_base::bin, ios_base::oct, ios_base::dec, ios_base::hex, 0};
    for (int step = 0; step < 3000; ++step) {
        ios_base io;
        bool const de = (rng() & 1) != 0 && have_de;
        io.imbue(de ? de_loc : c_loc);
        std::uint64_t const r = rng();
        if ((r & 0xF) < 12) {
            // An integer of random type, radix and case.
            code_info const& k = int_codes[(r >> 4) % 10];
            long const radix_flag = radix_flags[(r >> 8) % 5];
            bool const upper = (r >> 12 & 1) != 0;
            io.flags(radix_flag | (upper ? ios_base::uppercase : 0));
            int const radix = io.radix() == 0 ? 10 : io.radix();
            // Values of all sizes: a random width of random bits.
            std::uint64_t bits = rng() >> (rng() % 64);
            if (k.is_signed && (rng() & 1) != 0)
                bits = 0 - bits;
            if (k.size < 8) {  // the value's own bytes, sign-extended back
                int const shift = 64 - 8 * int(k.size);
                bits = k.is_signed ? std::uint64_t(std::int64_t(bits << shift) >> shift)
                                   : (bits << shift) >> shift;
            }
            unsigned char value[8];
            std::memcpy(value, &bits, 8);  // little-endian targets
            std::string const text = write<C>(io, k.code, value);
            ASSERT_EQ(text, expected_int(bits, k, radix, upper))
                << "code " << k.code << " radix " << radix;
            unsigned char back[8] = {};
            long const error = read<C>(io, text, k.code, back);
            ASSERT_EQ(error, ios_base::eofbit) << text;
            ASSERT_EQ(std::memcmp(back, value, k.size), 0) << text << " code " << k.code;
        } else {
            // A double (or float) through the locale's decimal point.
            double v = std::ldexp(double(rng() >> 11), int(rng() % 200) - 100 - 53);
            if ((rng() & 1) != 0)
                v = -v;
            bool const is_float = (r & 0xF) == 12;
            io.flags(ios_base::dec | ((r >> 4 & 1) != 0 ? ios_base::scientific : 0));
            io.precision(is_float ? 9 : 17);
            float const f = static_cast<float>(v);
            void const* p = is_float ? static_cast<void const*>(&f) : &v;
            auto const code = is_float ? num_base::t_float : num_base::t_double;
            std::string const text = write<C>(io, code, p);
            ASSERT_EQ(text.find(de ? '.' : ','), std::string::npos) << text;
            double back = 0;
            float fback = 0;
            long const error = read<C>(io, text, code, is_float ? static_cast<void*>(&fback) : &back);
            if (is_float && f != 0 && std::fabs(f) < FLT_MIN) {
                ASSERT_EQ(error, ios_base::eofbit | ios_base::failbit) << text;  // denormal
                continue;
            }
            ASSERT_EQ(error, ios_base::eofbit) << text;
            // Exact from scientific text; the general format's "0.00ddd"
            // goes through the engine's power-of-ten scaling, which may
            // round the last bit.
            bool const exact = (io.flags() & ios_base::scientific) != 0;
            double const got = is_float ? fback : back, want = is_float ? f : v;
            if (exact)
                ASSERT_EQ(got, want) << text;
            else
                ASSERT_LE(std::fabs(got - want), std::fabs(want) * 1e-15) << text;
        }
    }
}

TEST(LocaleNumbers, RoundTripsNarrowAndWide) {
    round_trips<char>(12);
    round_trips<unsigned short>(34);
}

TEST(LocaleNumbers, DocumentedCases) {
    ios_base io;
    long const eof = ios_base::eofbit, fail = ios_base::failbit;
    // Reads `text` into a target holding `before`; checks the bits, the
    // target afterwards and, when asked, the characters left unread.
    auto expect_read = [&io](char const* text, num_base::num_type code, auto before, long error,
                             double after, int left = -1, bool wide = false) {
        auto v = before;
        unsigned rest = 0;
        long const got = wide ? read<unsigned short>(io, text, code, &v, &rest)
                              : read<char>(io, text, code, &v, &rest);
        EXPECT_EQ(got, error) << text;
        EXPECT_EQ(double(v), after) << text;
        EXPECT_TRUE(left < 0 || rest == unsigned(left)) << text << " left " << rest;
    };
    using sc = signed char;
    expect_read("-1", num_base::t_uint, 7u, eof, 4294967295.0);  // negated, as strtoul does
    expect_read("300", num_base::t_uchar, (unsigned char)7, eof | fail, 7);  // target unchanged
    expect_read("128 ", num_base::t_schar, sc(7), fail, 7);
    expect_read("-128 ", num_base::t_schar, sc(7), 0, -128);
    expect_read("  42x", num_base::t_int, 7, 0, 42, 1);  // the "x" stays in the buffer
    expect_read("x", num_base::t_int, 7, fail, 7);
    io.flags(ios_base::boolalpha | ios_base::skipws);
    expect_read(" true", num_base::t_bool, false, eof, 1);
    expect_read("falsehood", num_base::t_bool, true, 0, 0, 4);
    expect_read("fals", num_base::t_bool, true, eof | fail, 1);
    expect_read("true", num_base::t_bool, false, eof, 1, -1, true);
    io.flags(ios_base::dec | ios_base::skipws);
    expect_read("1e999", num_base::t_double, 0.0, eof | fail, 0);
    EXPECT_EQ(errno, 0);
    io.flags(ios_base::hex);
    expect_read("ff", num_base::t_schar, sc(0), eof, -1);  // the bits, not the value
    expect_read("1ff", num_base::t_schar, sc(0), eof | fail, 0);

    int const minus_one = -1;
    EXPECT_EQ(write<char>(io, num_base::t_int, &minus_one), "ffffffff");

    io.flags(ios_base::dec | ios_base::showbase);
    int x = 0;
    void const* p = &x;
    char buf[40];
    std::snprintf(buf, sizeof buf, "0x%" PRIxPTR, reinterpret_cast<std::uintptr_t>(p));
    EXPECT_EQ(write<char>(io, num_base::t_pointer, &p), buf);
    void* back = nullptr;
    EXPECT_EQ(read<char>(io, buf, num_base::t_pointer, &back), ios_base::eofbit);
    EXPECT_EQ(back, p);
}

// The decimal point follows the numeric facets; two threads format and read
// numbers and convert a character to bytes and back in different locales
// while the main thread switches the process locale, and each gets its own
// locale's text and bytes.
TEST(LocaleNumbers, ThreadsWithDifferentLocales) {
    ZEL_REQUIRE_TEST_LOCALE(latin1);
    ZEL_REQUIRE_TEST_LOCALE("de_DE.UTF-8");
    locale const de(latin1);
    {
        ios_base io;
        io.imbue(de);
        double const v = 2.5;
        EXPECT_EQ(write<unsigned short>(io, num_base::t_double, &v), "2,5");
        double back = 0;
        unsigned left = 0;
        EXPECT_EQ(read<char>(io, "3,25.5", num_base::t_double, &back, &left), 0);
        EXPECT_EQ(back, 3.25);
        EXPECT_EQ(left, 2u);
        io.imbue(locale(locale::classic(), de, locale::ctype));  // German ctype, C numbers
        EXPECT_EQ(write<char>(io, num_base::t_double, &v), "2.5");
    }
    using descriptor = zel::locale_descriptor const*;
    auto worker = [](locale const* loc, descriptor d, char const* number, std::string bytes, bool* ok) {
        ios_base io;
        io.imbue(*loc);
        *ok = true;
        for (int i = 0; i < 200 && *ok; ++i) {
            double const v = 1.5;
            double back = 0;
            *ok = write<char>(io, num_base::t_double, &v) == number &&
                  read<char>(io, number, num_base::t_double, &back) == ios_base::eofbit && back == 1.5;
            std::FILE* f = std::tmpfile();
            *ok = *ok && f != nullptr && zel::xputc(static_cast<unsigned short>(0xE9), f, d);
            if (f != nullptr) {
                char got[4] = {};
                unsigned short c = 0;
                std::rewind(f);
                *ok = *ok && std::fread(got, 1, 3, f) == bytes.size() && got == bytes;
                std::rewind(f);
                *ok = *ok && zel::xgetc(c, f, d) && c == 0xE9;
                std::fclose(f);
            }
        }
    };
    descriptor const ger = ldx_manager::install(latin1, 0), utf8 = ldx_manager::install("de_DE.UTF-8", 0);
    bool ok1 = false, ok2 = false;
    std::thread t1(worker, &de, ger, "1,5", "\xE9", &ok1);
    std::thread t2(worker, &locale::classic(), utf8, "1.5", "\xC3\xA9", &ok2);
    descriptor const before = ldx_manager::current();
    for (int i = 0; i < 60; ++i)
        ldx_manager::current(i % 3 == 0 ? ger : i % 3 == 1 ? utf8 : ldx_manager::C());
    ldx_manager::current(before);
    t1.join();
    t2.join();
    EXPECT_TRUE(ok1);
    EXPECT_TRUE(ok2);
}

} // namespace
