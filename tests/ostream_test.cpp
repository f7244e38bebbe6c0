// Formatted output: every arithmetic type in every radix and adjustment
// against the library's number engines and, where the two agree by design,
// snprintf; text padding; the state rules of the prefix and suffix steps
// (tie, unitbuf, eofbit, failing buffers, exceptions masks); unformatted
// writes, the buffer copy and seeking.
#include <zel/ostream.h>
#include <zel/sstream.h>

#include <cinttypes>
#include <cstdio>
#include <limits>
#include <stdexcept>

#include <gtest/gtest.h>

#include "support/streams.h"

// The snprintf comparisons take their formats from tables.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

using zel::ios_base;
using zel_test::random_value;
using zel_test::text;

// What the number engines write for a value: the facet's rules (radix 0
// writes decimal; outside radix 10 a signed value is its unsigned partner).
struct engine_out {
    std::string s;
    static void put(void* c, char const* t, unsigned n) { static_cast<engine_out*>(c)->s.append(t, n); }
    static void fill(void* c, void const* f, unsigned n) {
        static_cast<engine_out*>(c)->s.append(n, *static_cast<char const*>(f));
    }
};

template <class T>
std::string by_engine(T v, long flags, unsigned width, char fill) {
    engine_out o;
    unsigned radix = zel::ios_flags::radix_of(flags);
    if (radix == 0)
        radix = 10;
    if constexpr (std::is_floating_point_v<T>) {
        zel::insert(engine_out::put, &o, engine_out::fill, &fill, static_cast<double>(v), width, 6,
                    flags, '.');
    } else if constexpr (std::is_signed_v<T>) {
        if (radix == 10)
            zel::insert(engine_out::put, &o, engine_out::fill, &fill, std::int64_t(v), radix, width,
                        flags);
        else
            zel::insert(engine_out::put, &o, engine_out::fill, &fill,
                        std::uint64_t(std::make_unsigned_t<T>(v)), radix, width, flags);
    } else {
        zel::insert(engine_out::put, &o, engine_out::fill, &fill, std::uint64_t(v), radix, width,
                    flags);
    }
    return o.s;
}

template <class T>
std::string by_stream(T v, long flags, unsigned width, char fill) {
    zel::ostringstream os;
    os.flags(flags);
    os.width(long(width));
    os.fill(fill);
    os << v;
    EXPECT_EQ(os.width(), 0);
    EXPECT_TRUE(os.good());
    return text(os.str());
}

long const radixes[] = {0, ios_base::bin, ios_base::oct, ios_base::dec, ios_base::hex};
long const adjustments[] = {0, ios_base::right, ios_base::left, ios_base::internal};

template <class... T>
void integers_against_engine(std::mt19937_64& rng) {
    auto one_type = [&rng](auto zero) {
        using U = decltype(zero);
        U const fixed_values[] = {U(0), U(1), std::numeric_limits<U>::min(), std::numeric_limits<U>::max()};
        for (int i = 0; i < 60; ++i) {
            U const v = i < 4 ? fixed_values[i] : random_value<U>(rng);
            for (long radix : radixes)
                for (long adjust : adjustments) {
                    long const flags = radix | adjust | long(rng() & 0x38);  // showbase, showpos, uppercase
                    unsigned const width = unsigned(rng() % 24);
                    EXPECT_EQ(by_stream(v, flags, width, '*'), by_engine(v, flags, width, '*'))
                        << "value " << +v << " flags " << std::hex << flags << " width " << width;
                }
        }
    };
    (one_type(T(0)), ...);
}

TEST(OstreamNumbers, EveryIntegerTypeRadixAndAdjustmentAsTheEngineWrites) {
    std::mt19937_64 rng(13);
    integers_against_engine<short, unsigned short, int, unsigned, long, unsigned long, long long,
                            unsigned long long>(rng);
}

// Integers and doubles with width, precision, fill and the flags whose text
// C's formats also write.
TEST(OstreamNumbers, AgreeWithSnprintfWhereTheFormatsMeet) {
    std::mt19937_64 rng(7);
    long const dec = ios_base::dec, hex = ios_base::hex, left = ios_base::left, fixed = ios_base::fixed,
               sci = ios_base::scientific, upper = ios_base::uppercase, internal = ios_base::internal;
    enum kind { signed_int, unsigned_int, floating };
    struct form {
        long flags;
        char const* format;  // the width (and precision) as '*'
        kind k;
        char fill;
    } const forms[] = {
        {dec, "%*lld", signed_int, ' '},
        {dec | left, "%-*lld", signed_int, ' '},
        {dec | ios_base::showpos, "%+*lld", signed_int, ' '},
        {dec | internal, "%0*lld", signed_int, '0'},  // internal with a fill of '0' is C's zero padding
        {hex, "%*llx", unsigned_int, ' '},
        {hex | upper | left, "%-*llX", unsigned_int, ' '},
        {ios_base::oct | ios_base::right, "%*llo", unsigned_int, ' '},
        {dec, "%*.*g", floating, ' '},
        {dec | fixed, "%*.*f", floating, ' '},
        {dec | sci, "%*.*e", floating, ' '},
        {dec | sci | upper | left, "%-*.*E", floating, ' '},
        {dec | ios_base::showpos | ios_base::showpoint, "%+#*.*g", floating, ' '},
        {dec | fixed | internal, "%0*.*f", floating, '0'},
    };
    char buf[256];
    for (int i = 0; i < 300; ++i) {
        long long const n = random_value<long long>(rng);
        double const v = random_value<double>(rng);
        int const width = int(rng() % 30);
        int const precision = int(rng() % 18);
        for (form const& f : forms) {
            zel::ostringstream os;
            os.flags(f.flags);
            os.precision(precision);
            os.fill(f.fill);
            os.width(width);
            if (f.k == signed_int) {
                std::snprintf(buf, sizeof buf, f.format, width, n);
                os << n;
            } else if (f.k == unsigned_int) {
                std::snprintf(buf, sizeof buf, f.format, width, static_cast<unsigned long long>(n));
                os << static_cast<unsigned long long>(n);
            } else {
                std::snprintf(buf, sizeof buf, f.format, width, precision, v);
                os << v;
            }
            EXPECT_EQ(text(os.str()), buf) << f.format << " " << n << " " << v;
        }
        float const fv = float(v);
        long double const lv = v;
        EXPECT_EQ(by_stream(fv, ios_base::dec, 12, '*'), by_engine(fv, ios_base::dec, 12, '*'));
        EXPECT_EQ(by_stream(lv, ios_base::dec | ios_base::left, 12, '*'),
                  by_engine(lv, ios_base::dec | ios_base::left, 12, '*'));
    }
}

TEST(OstreamNumbers, BooleansPointersAndTheDocumentedCases) {
    zel::ostringstream os;
    os << true << ' ' << false << ' ' << zel::boolalpha << zel::setw(6) << true << '|'
       << zel::left << zel::setw(7) << false << '|';
    EXPECT_EQ(text(os.str()), "1 0   true|false  |");

    // Pointers are written in radix 16 whatever the radix flags say.
    int object = 0;
    void const* p = &object;
    char expect[64];
    std::snprintf(expect, sizeof expect, "%" PRIxPTR, reinterpret_cast<std::uintptr_t>(p));
    for (long radix : {ios_base::dec, ios_base::bin})
        EXPECT_EQ(by_stream(p, radix, 0, ' '), expect);
}

TEST(OstreamText, PaddingAndAdjustment) {
    struct row {
        long width;
        long adjust;
        char const* value;  // null: a null pointer
        char const* expect;
    } const rows[] = {
        {5, 0, "ab", "***ab"},        {5, ios_base::right, "ab", "***ab"},
        {5, ios_base::left, "ab", "ab***"}, {5, ios_base::internal, "ab", "***ab"},
        {2, 0, nullptr, "**"},        {2, 0, "abcd", "abcd"},
        {0, 0, "", ""},
    };
    for (row const& r : rows) {
        zel::ostringstream os;
        os.fill('*');
        os.setf(r.adjust, ios_base::adjustfield);
        os.width(r.width);
        os << r.value << "|";
        EXPECT_EQ(text(os.str()), std::string(r.expect) + "|") << r.width << " " << r.adjust;
    }
    zel::ostringstream os;
    os.fill('.');
    os << zel::setw(3) << 'x' << zel::setw(3) << zel::string("yz") << zel::setw(2)
       << static_cast<unsigned char>('u') << zel::setw(2) << static_cast<signed char const*>(nullptr);
    EXPECT_EQ(text(os.str()), "..x.yz.u..");
}

TEST(OstreamText, WideStreamsWriteTheSameCharacters) {
    zel::wostringstream ws;
    ws.fill(u'*');
    ws << zel::setw(6) << zel::hex << zel::showbase << 255 << zel::setw(4)
       << reinterpret_cast<unsigned short const*>(u"ab") << static_cast<unsigned short>(u'!');
    zel::wstring expect(u"**0xff**ab!");
    EXPECT_TRUE(ws.str() == expect);
    zel::wostringstream d;
    d << 1.5 << static_cast<unsigned short>(u' ') << -7LL << ' ' << zel::setw(5) << "n\xe9";
    EXPECT_TRUE(d.str() == zel::wstring(u"1.5 -7    n\u00e9"));
}

// A put area of three characters, emptied into `out` by overflow: number
// text meets the end of the area at every offset.
struct narrow_area_buf : zel::streambuf {
    std::string out;
    char area[3];
    narrow_area_buf() { setp(area, area + sizeof area); }
    std::string all() const { return out + std::string(pbase(), pptr()); }

protected:
    int overflow(int c) override {
        out.append(pbase(), pptr());
        setp(area, area + sizeof area);
        return sputc(char(c));
    }
};

TEST(OstreamNumbers, TextSplitAcrossAFullPutAreaAsAStringStreamHasIt) {
    std::mt19937_64 rng(31);
    narrow_area_buf buf;
    zel::ostream narrow(&buf);
    zel::ostringstream roomy;
    for (int i = 0; i < 300; ++i) {
        long const flags = radixes[rng() % 5] | adjustments[rng() % 4] | long(rng() & 0x38);
        long const width = long(rng() % 12);
        auto const n = random_value<long long>(rng);
        auto const d = random_value<double>(rng);
        for (zel::ostream* os : {&narrow, static_cast<zel::ostream*>(&roomy)}) {
            os->flags(flags);
            os->width(width);
            if (i % 3 == 0)
                *os << n;
            else if (i % 3 == 1)
                *os << d;
            else
                *os << static_cast<unsigned short>(n);
            *os << ' ';
        }
    }
    EXPECT_EQ(buf.all(), text(roomy.str()));
}

// A buffer that counts syncs and can refuse or throw on writing.
struct probe_buf : zel::streambuf {
    enum mode { accept, refuse, raise } how = accept;
    std::string out;
    int syncs = 0;

protected:
    int overflow(int c) override {
        if (how == refuse)
            return eof();
        if (how == raise)
            throw std::runtime_error("probe");
        out += char(c);
        return c;
    }
    int sync() override {
        ++syncs;
        return 0;
    }
};

TEST(OstreamState, PrefixSuffixTieAndUnitbuf) {
    probe_buf tied_buf;
    zel::ostream tied(&tied_buf);
    probe_buf buf;
    zel::ostream os(&buf);
    os.tie(&tied);
    os << 1 << "a";
    EXPECT_EQ(tied_buf.syncs, 2);  // each operation flushes the tie first
    EXPECT_EQ(buf.syncs, 0);
    os << zel::unitbuf << 2 << 'b';
    EXPECT_EQ(buf.syncs, 2);
    os << zel::nounitbuf << zel::ends;
    EXPECT_EQ(buf.syncs, 3);
    EXPECT_EQ(buf.out, std::string("1a2b\0", 5));

    // eofbit alone stops text but not numbers; failbit stops everything.
    probe_buf b2;
    zel::ostream s2(&b2);
    s2.clear(ios_base::eofbit);
    s2 << "text" << 42 << 'c';
    s2.clear(ios_base::failbit);
    s2 << 7 << zel::endl;
    EXPECT_EQ(b2.out, "42");
    EXPECT_EQ(b2.syncs, 0);
}

TEST(OstreamState, FailingBuffersSetBitsAndExceptionsMasksThrow) {
    probe_buf buf;
    buf.how = probe_buf::refuse;
    zel::ostream os(&buf);
    os << "abc";
    EXPECT_EQ(os.rdstate(), ios_base::badbit);
    os.clear();
    os << 12;
    EXPECT_EQ(os.rdstate(), ios_base::badbit);  // the iterator failed

    buf.how = probe_buf::raise;
    os.clear();
    os << "x";
    EXPECT_EQ(os.rdstate(), ios_base::failbit);  // swallowed

    buf.how = probe_buf::refuse;
    os.clear();
    os.exceptions(ios_base::badbit | ios_base::failbit);
    EXPECT_EQ(zel_test::what_of<ios_base::failure>([&] { os << "abc"; }),
              "ios_base failure bit(s) set [bad fail]");
    EXPECT_EQ(os.rdstate(), ios_base::badbit);

    // The state already holds a bit of the mask: every operation that ends
    // in clear() throws again, after writing.
    probe_buf eof_buf;
    zel::ostream at_eof(&eof_buf);
    at_eof.exceptions(ios_base::eofbit);
    EXPECT_THROW(at_eof.clear(ios_base::eofbit), ios_base::failure);
    EXPECT_THROW(at_eof << 42, ios_base::failure);
    EXPECT_EQ(eof_buf.out, "42");

    zel::ostream none(nullptr);
    EXPECT_TRUE(none.bad());
    none << "x" << 1 << zel::flush;
    EXPECT_EQ(none.tellp(), -1);
}

// A string buffer that replaces xsputn: every text insertion reaches it,
// a lone character too, although the library's own buffers take that one
// in line.
struct counting_buf : zel::stringbuf {
    int calls = 0;

protected:
    long xsputn(char const* s, long n, bool advance) override {
        ++calls;
        return zel::stringbuf::xsputn(s, n, advance);
    }
};

TEST(OstreamText, ADerivedBufferSeesEveryTextWrite) {
    counting_buf buf;
    zel::ostream os(&buf);
    os << 'a' << "bc" << 'd' << zel::string("e");
    EXPECT_EQ(buf.calls, 4);
    EXPECT_EQ(text(buf.str()), "abcde");
}

TEST(OstreamUnformatted, PutWriteBufferCopyAndSeeking) {
    zel::ostringstream os;
    os.width(5);
    os.put('x', 3).write("abcd", 2).write(zel::string("yz"));
    EXPECT_EQ(os.width(), 5);  // unformatted output leaves the width
    EXPECT_EQ(text(os.str()), "xxxabyz");
    EXPECT_EQ(os.tellp(), 7);
    os.seekp(1);
    os.width(0);
    os << "Q";
    EXPECT_EQ(os.tellp(), 2);
    EXPECT_EQ(text(os.str()), "xQ");  // the buffer answers what lies before its put position

    zel::istringstream source("copied text");
    zel::ostringstream to;
    to << source.rdbuf();
    EXPECT_EQ(text(to.str()), "copied text");
    EXPECT_TRUE(to.good());
    to << source.rdbuf();  // nothing left
    EXPECT_EQ(to.rdstate(), ios_base::failbit);
    zel::ostringstream to_null;
    to_null << static_cast<zel::streambuf*>(nullptr);
    EXPECT_EQ(to_null.rdstate(), ios_base::failbit);
}

// A field one character wider than the text: the single fill character goes
// behind it with left, in front otherwise.
TEST(OstreamText, PaddingOfOneCharacter) {
    zel::ostringstream os;
    os.fill('*');
    os << zel::setw(3) << "ab" << '|';
    os.setf(ios_base::left, ios_base::adjustfield);
    os << zel::setw(3) << "ab" << '|' << zel::setw(2) << 'x' << '|' << zel::setw(4) << zel::string("yz.")
       << '|';
    EXPECT_EQ(text(os.str()), "*ab|ab*|x*|yz.*|");
}

} // namespace
