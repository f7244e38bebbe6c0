// Stream state and format: defaults, the setf group rules, radix and the
// clamps, state and exceptions with the failure texts, the private words,
// format copies, basic_ios's buffer/tie/fill, and the manipulators.
#include <zel/ios.h>
#include <zel/streambuf.h>

#include <gtest/gtest.h>

#include "support/raises.h"

namespace {

using zel::ios_base;

template <class C>
struct ios_types : ::testing::Test {};
using char_types = ::testing::Types<char, unsigned short>;
TYPED_TEST_SUITE(ios_types, char_types, );

TYPED_TEST(ios_types, DefaultsBufferTieFillAndAssignment) {
    using C = TypeParam;
    zel::basic_stringbuf<C> b1, b2;
    zel::basic_ios<C> a(&b1), c(nullptr);
    EXPECT_EQ(a.flags(), 0x4400);
    EXPECT_EQ(a.radix(), 10);
    EXPECT_EQ(a.precision(), 6);
    EXPECT_EQ(a.width(), 0);
    EXPECT_EQ(a.fill(), C(' '));
    EXPECT_EQ(a.rdstate() | a.exceptions(), 0);
    EXPECT_EQ(a.tie(), nullptr);
    // A null buffer is badbit; rdbuf discards the old state either way.
    EXPECT_EQ(c.rdstate(), ios_base::badbit);
    EXPECT_EQ(c.rdbuf(&b2), nullptr);
    EXPECT_EQ(c.rdstate(), 0);
    c.clear(ios_base::eofbit | ios_base::failbit);
    EXPECT_EQ(c.rdbuf(nullptr), &b2);
    EXPECT_EQ(c.rdstate(), ios_base::badbit);

    auto* tied = reinterpret_cast<zel::basic_ostream<C>*>(&c);
    EXPECT_EQ(a.fill(C('*')), C(' '));
    EXPECT_EQ(a.tie(tied), nullptr);
    a.radix(16);
    a.width(9);
    a.clear(ios_base::eofbit);
    zel::basic_ios<C> d(a);  // copies state, format, buffer, tie and fill
    c = a;
    for (zel::basic_ios<C>* s : {&c, &d}) {
        EXPECT_EQ(s->rdbuf(), &b1);
        EXPECT_EQ(s->tie(), tied);
        EXPECT_EQ(s->fill(), C('*'));
        EXPECT_EQ(s->radix(), 16);
        EXPECT_EQ(s->width(), 9);
        EXPECT_EQ(s->rdstate(), ios_base::eofbit);
    }
    zel::locale const old = a.imbue(zel::locale::classic());
    EXPECT_TRUE(old == c.getloc());
    EXPECT_TRUE(b1.getloc() == zel::locale::classic());
}

TEST(IosBase, SetfReducesGroupsAndKeepsSixteenBits) {
    struct row {
        long set, clear, after;
    };
    row const rows[] = {
        {ios_base::hex, 0, 0xC400},                       // dec and hex stand together
        {ios_base::left | ios_base::right, 0, 0x4401},    // right first
        {ios_base::left | ios_base::internal, 0, 0x4402}, // then left
        {ios_base::fixed | ios_base::scientific, 0, 0x4480},
        {ios_base::oct | ios_base::bin, 0, 0x6400},
        {ios_base::hex | ios_base::bin, ios_base::radixfield, 0x8400},
        {0x7FFF0000L | ios_base::showpos, 0, 0x4410},     // high bits dropped
        {0, ios_base::skipws, 0x4000},
        {0xFFFF, 0xFFFF, 0x4FB9},                         // every group reduced
    };
    zel::basic_stringbuf<char> b;
    for (row const& r : rows) {
        zel::basic_ios<char> s(&b);
        EXPECT_EQ(s.setf(r.set, r.clear), 0x4400);
        EXPECT_EQ(s.flags(), r.after) << std::hex << r.set << " " << r.clear;
    }
    zel::basic_ios<char> s(&b);
    s.setf(ios_base::hex);
    EXPECT_EQ(s.radix(), 10);
    EXPECT_EQ(s.flags(0x12345678), 0xC400);
    EXPECT_EQ(s.flags(), 0x4678);  // all 16 bits replaced, groups reduced
}

TEST(IosBase, RadixWidthPrecision) {
    zel::basic_stringbuf<char> b;
    zel::basic_ios<char> s(&b);
    EXPECT_EQ(s.radix(16), 10);
    EXPECT_EQ(s.radix(7), 16);  // unsupported: flags unchanged
    EXPECT_EQ(s.flags(), 0x8400);
    for (int r : {2, 8, 10, 16, 0}) {
        s.radix(r);
        EXPECT_EQ(s.radix(), r);
    }
    EXPECT_EQ(s.flags() & ios_base::radixfield, 0);
    struct clamp {
        long in, width, precision;
    };
    for (clamp c : {clamp{-5, 0, 0}, clamp{70000, 65535, 53}, clamp{100, 100, 53}, clamp{7, 7, 7}}) {
        s.width(c.in);
        s.precision(c.in);
        EXPECT_EQ(s.width(), c.width);
        EXPECT_EQ(s.precision(), c.precision);
    }
}

TEST(IosBase, StatePredicates) {
    zel::basic_stringbuf<char> b;
    zel::basic_ios<char> s(&b);
    struct row {
        long state;
        bool good, eof, fail, bad;
    };
    for (row r : {row{0, true, false, false, false}, row{2, false, true, false, false},
                  row{4, false, false, true, false}, row{1, false, false, true, true},
                  row{7, false, true, true, true}}) {
        s.clear(r.state | 0x70);  // only the low three bits are stored
        EXPECT_EQ(s.rdstate(), r.state);
        EXPECT_EQ(s.good(), r.good);
        EXPECT_EQ(s.eof(), r.eof);
        EXPECT_EQ(s.fail(), r.fail);
        EXPECT_EQ(!s, r.fail);
        EXPECT_EQ(bool(s), !r.fail);  // end of file alone is still true
        EXPECT_EQ(s.bad(), r.bad);
    }
    s.clear();
    s.setstate(ios_base::eofbit);
    s.setstate(ios_base::failbit | 0x10);
    EXPECT_EQ(s.rdstate(), 6);
}

// The message names the bits of the mask, not of the state.
TEST(IosBase, FailureTextsNameTheMask) {
    struct row {
        long mask, state;
        char const* text;
    };
    row const rows[] = {
        {ios_base::failbit, ios_base::failbit, "ios_base failure bit(s) set [fail]"},
        {ios_base::badbit | ios_base::failbit, ios_base::failbit, "ios_base failure bit(s) set [bad fail]"},
        {7, ios_base::eofbit, "ios_base failure bit(s) set [bad eof fail]"},
        {ios_base::eofbit, ios_base::eofbit, "ios_base failure bit(s) set [eof]"},
        {ios_base::badbit | ios_base::eofbit, ios_base::badbit, "ios_base failure bit(s) set [bad eof]"},
        {ios_base::eofbit | ios_base::failbit, 7, "ios_base failure bit(s) set [eof fail]"},
        {ios_base::badbit, 7, "ios_base failure bit(s) set [bad]"},
    };
    zel::basic_stringbuf<char> b;
    for (row const& r : rows) {
        zel::basic_ios<char> s(&b);
        s.exceptions(r.mask | 0x10);
        EXPECT_EQ(s.exceptions(), r.mask);
        zel_test::expect_raised([&] { s.setstate(r.state); }, "iostreams failure", r.text, nullptr);
        EXPECT_EQ(s.rdstate(), r.state);  // stays set
    }
    zel::basic_ios<char> s(&b);  // a mask that meets the state throws at once
    s.clear(ios_base::failbit);
    EXPECT_THROW(s.exceptions(ios_base::failbit), ios_base::failure);
    zel::basic_ios<char> none(nullptr);
    EXPECT_THROW(none.exceptions(ios_base::badbit), ios_base::failure);
}

TEST(IosBase, PrivateWordsIndexAgainstTheirOwnCount) {
    zel::basic_stringbuf<char> b;
    zel::basic_ios<char> s(&b);
    int const first = ios_base::xalloc();
    EXPECT_EQ(ios_base::xalloc(), first + 1);
    zel_test::expect_raised([&] { s.iword(unsigned(first)); }, "iostreams failure", "invalid index",
                            "src/iosbase.cpp", 230);
    zel_test::expect_raised([&] { s.pword(unsigned(first)); }, "iostreams failure", "invalid index",
                            "src/iosbase.cpp", 243);
    EXPECT_EQ(s.word_count(), 0u);
}

TEST(IosBase, CopyfmtCopiesFormatNotStateOrLocale) {
    zel::basic_stringbuf<char> b;
    zel::basic_ios<char> a(&b), c(&b), d(&b);
    a.setf(ios_base::left | ios_base::showpos | ios_base::oct, ios_base::radixfield);
    a.width(12);
    a.precision(3);
    a.exceptions(ios_base::failbit);
    c.clear(ios_base::eofbit);
    c.ios_base::copyfmt(a);
    EXPECT_EQ(c.flags(), a.flags());
    EXPECT_EQ(c.width(), 12);
    EXPECT_EQ(c.precision(), 3);
    EXPECT_EQ(c.exceptions(), ios_base::failbit);
    EXPECT_EQ(c.rdstate(), ios_base::eofbit);
    d.clear(ios_base::failbit);  // the copied mask meets this state
    EXPECT_THROW(d.ios_base::copyfmt(a), ios_base::failure);
    EXPECT_EQ(d.width(), 12);
    a.basic_ios<char>::copyfmt(a);  // self: returns at once
}

TEST(Manipulators, EachSetsItsBitsAndClearsItsGroup) {
    struct row {
        ios_base& (*m)(ios_base&);
        long start, after;
    };
    row const rows[] = {
        {zel::right, 0x4406, 0x4401},       {zel::left, 0x4405, 0x4402},
        {zel::internal, 0x4403, 0x4404},    {zel::showbase, 0x4400, 0x4408},
        {zel::noshowbase, 0x4408, 0x4400},  {zel::showpos, 0x4400, 0x4410},
        {zel::noshowpos, 0x4410, 0x4400},   {zel::uppercase, 0x4400, 0x4420},
        {zel::nouppercase, 0x4420, 0x4400}, {zel::fixed, 0x4480, 0x4440},
        {zel::scientific, 0x4440, 0x4480},  {zel::floating, 0x44C0, 0x4400},
        {zel::showpoint, 0x4400, 0x4500},   {zel::noshowpoint, 0x4500, 0x4400},
        {zel::boolalpha, 0x4400, 0x4600},   {zel::noboolalpha, 0x4600, 0x4400},
        {zel::skipws, 0x4000, 0x4400},      {zel::noskipws, 0x4400, 0x4000},
        {zel::unitbuf, 0x4400, 0x4C00},     {zel::nounitbuf, 0x4C00, 0x4400},
        {zel::bin, 0xC400, 0x1400},         {zel::oct, 0xC400, 0x2400},
        {zel::dec, 0x9400, 0x4400},         {zel::hex, 0x4400, 0x8400},
        {zel::any, 0x4400, 0x0400},
    };
    zel::basic_stringbuf<char> b;
    for (row const& r : rows) {
        zel::basic_ios<char> s(&b);
        s.flags(0);
        for (long bit = 1; bit <= 0x8000; bit <<= 1)  // one at a time: several per group
            if (r.start & bit)
                s.setf(bit);
        EXPECT_EQ(&r.m(s), &s);
        EXPECT_EQ(s.flags(), r.after) << std::hex << r.start;
    }
}

TEST(Manipulators, Parameterised) {
    zel::basic_stringbuf<char> b;
    zel::basic_ios<char> s(&b);
    EXPECT_EQ(&zel::setiosflags(ios_base::hex | ios_base::showbase)(s), &s);
    EXPECT_EQ(s.flags(), 0xC408);  // setf(f, 0): dec stays
    zel::resetiosflags(ios_base::radixfield | ios_base::showbase)(s);
    EXPECT_EQ(s.flags(), 0x0400);
    struct row {
        zel::ios_manipulator<int> m;
        int radix;
    };
    for (row r : {row{zel::setbase(16), 16}, row{zel::setradix(2), 2}, row{zel::setbase(5), 2}}) {
        r.m(s);
        EXPECT_EQ(s.radix(), r.radix);
    }
    zel::setprecision(99)(s);
    zel::setw(70000)(s);
    EXPECT_EQ(s.precision(), 53);
    EXPECT_EQ(s.width(), 65535);
    auto m = zel::setwidth(4);
    m.action(s, m.value);
    EXPECT_EQ(s.width(), 4);
}

} // namespace
