// File streams with every open mode, open and close failures, a formatted
// table written and read back, wide file streams through a UTF-8 and an
// ISO-8859-1 locale, and the standard objects' ties. (A program whose
// static constructor writes to cout runs as its own test:
// stdstreams_static.cpp.)
#include <zel/fstream.h>
#include <zel/iostream.h>
#include <zel/sstream.h>

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "support/streams.h"

namespace {

using zel::ios_base;
using zel_test::text;

using zel_test::scratch;

TEST(Fstream, EveryOpenMode) {
    long const in = ios_base::in, out = ios_base::out, app = ios_base::app,
               trunc = ios_base::trunc, bin = ios_base::binary, ate = ios_base::ate;
    struct row {
        long mode;
        bool opens;
        char const* read;   // the first word read, null when the mode cannot read
        char const* after;  // the file after writing "NEW" (null: nothing written)
    } const rows[] = {  // the stream's view; the buffer tests run every mode through xfopen
        {in, true, "oldtext", nullptr},  // each mode that opens, also with binary
        {out, true, nullptr, "NEW"},
        {out | app, true, nullptr, "oldtext\nNEW"},
        {in | out, true, "oldtext", "NEWtext\n"},
        {in | out | trunc, true, "", "NEW"},
        {in | ate, false, nullptr, nullptr},
        {in | out | app, false, nullptr, nullptr},
        {0, false, nullptr, nullptr},
    };
    for (row const& r : rows)
        for (long const mode : {r.mode, r.opens ? r.mode | bin : r.mode}) {
            SCOPED_TRACE(mode);
            scratch file("modes");
            file.write("oldtext\n");
            zel::fstream f(file.name(), mode);
            EXPECT_EQ(f.mode(), mode);
            EXPECT_EQ(f.is_open(), r.opens);
            EXPECT_EQ(f.fail(), !r.opens);
            if (!r.opens)
                continue;
            if (r.read) {
                zel::string word;
                f >> word;
                EXPECT_EQ(text(word), r.read);
                f.clear();
                f.seekp(0);
            }
            if (r.after)
                f << "NEW";
            f.close();
            EXPECT_FALSE(f.fail());
            EXPECT_EQ(file.read(), r.after ? r.after : "oldtext\n");
        }
}

TEST(Fstream, OpenAndCloseFailures) {
    zel::ifstream none;
    EXPECT_FALSE(none.is_open());
    EXPECT_EQ(none.mode(), 0);
    none.close();
    EXPECT_EQ(none.rdstate(), ios_base::failbit);

    zel::ifstream missing("zel_fstream_no_such_dir/none.txt");
    EXPECT_TRUE(missing.fail());
    EXPECT_FALSE(missing.is_open());

    scratch file("twice");
    zel::ofstream os(file.name());
    EXPECT_TRUE(os.is_open() && os.good());
    os.open(file.name(), ios_base::out | ios_base::app);  // already open
    EXPECT_TRUE(os.fail());
    EXPECT_EQ(os.mode(), ios_base::out | ios_base::app);
    EXPECT_EQ(os.rdbuf(), os.zel::ios::rdbuf());

    zel::ofstream throwing;
    throwing.exceptions(ios_base::failbit);
    EXPECT_THROW(throwing.close(), ios_base::failure);
}

TEST(Fstream, ATableWrittenAndReadBack) {
    scratch file("table");
    {
        zel::ofstream os(file.name());
        for (int i = 0; i < 50; ++i)
            os << zel::setw(6) << zel::dec << i * 37 << ' ' << zel::setw(8) << zel::hex << zel::showbase
               << i * 4099 << ' ' << zel::noshowbase << zel::left << zel::setw(10) << 1.0 / (i + 1)
               << zel::right << zel::setw(4) << zel::bin << (i & 7) << zel::endl;
    }
    zel::ifstream is(file.name());
    for (int i = 0; i < 50; ++i) {
        int d = -1, h = -1, b = -1;
        double x = 0;
        is >> zel::dec >> d >> zel::any >> h >> zel::dec >> x >> zel::bin >> b;
        ASSERT_TRUE(is.good()) << i;
        EXPECT_EQ(d, i * 37);
        EXPECT_EQ(h, i * 4099);
        EXPECT_NEAR(x, 1.0 / (i + 1), 1e-5);
        EXPECT_EQ(b, i & 7);
    }
    is >> zel::ws;
    EXPECT_TRUE(is.eof());
}

// Wide text through a named locale's multibyte form.
void wide_round_trip(char const* locale_name, zel::wstring const& chars, std::string const& bytes) {
    ZEL_REQUIRE_TEST_LOCALE(locale_name);
    zel::locale const loc(locale_name);
    scratch file("wide");
    {
        zel::wofstream os;
        os.imbue(loc);
        os.open(file.name(), ios_base::out);
        os << chars << zel::setw(4) << 42;
        EXPECT_TRUE(os.good());
    }
    EXPECT_EQ(file.read(), bytes + "  42");
    zel::wifstream is;
    is.imbue(loc);
    is.open(file.name(), ios_base::in);
    zel::wstring back;
    is.get(back, 100, zel::ctype_base::digit, true);  // everything before the digits
    int n = 0;
    is >> n;
    EXPECT_TRUE(back == zel::wstring(chars, zel::wstring(u"  ")));
    EXPECT_EQ(n, 42);
}

TEST(FstreamWide, ThroughUtf8AndIso8859_1) {
    wide_round_trip("de_DE.UTF-8", zel::wstring(u"gr\u00fc\u00df \u20ac"),
                    "gr\xc3\xbc\xc3\x9f \xe2\x82\xac");
    wide_round_trip("de_DE.ISO-8859-1", zel::wstring(u"gr\u00fc\u00df"), "gr\xfc\xdf");
    if (!zel_test::have_test_locale("de_DE.ISO-8859-1"))
        return;  // skipped above, with the reason
    // A character the locale cannot write is a bad write.
    scratch file("euro");
    zel::wofstream os;
    os.imbue(zel::locale("de_DE.ISO-8859-1"));
    os.open(file.name(), ios_base::out);
    os << zel::wstring(u"\u20ac") << zel::flush;
    EXPECT_TRUE(os.bad());
}

TEST(StandardStreams, BuiltTiedAndUsable) {
    EXPECT_EQ(zel::cin.tie(), &zel::cout);
    EXPECT_EQ(zel::cerr.tie(), &zel::cout);
    EXPECT_EQ(zel::clog.tie(), &zel::cout);
    EXPECT_EQ(zel::cout.tie(), nullptr);
    EXPECT_EQ(zel::wcin.tie(), &zel::wcout);
    EXPECT_EQ(zel::wclog.tie(), &zel::wcout);
    EXPECT_EQ(zel::cerr.rdbuf(), zel::clog.rdbuf());
    EXPECT_TRUE(zel::cerr.flags() & ios_base::unitbuf);
    EXPECT_TRUE(zel::cout.good() && zel::cin.good() && zel::wcout.good());
    zel::cout << "" << zel::flush;
    EXPECT_TRUE(zel::cout.good());
}

} // namespace
