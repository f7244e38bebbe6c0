// Locale descriptors: every generated locale's snapshot against the C
// library's own localeconv and classification, the registry's order,
// growth and current descriptor, names beyond the 128-byte field, refused
// names, and the character routines in a UTF-8 and an ISO-8859-1 locale
// (from two threads at once: the locale tests).
#include <zel/ldx.h>

#include <clocale>
#include <cstdio>
#include <cstring>
#include <ctype.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/streams.h"

// glibc's newlocale keeps a copy of the LOCPATH search list it builds for
// each call and never frees it; the leak checker of the sanitizer builds is
// told so here (the hook is only consulted when the checker runs).
extern "C" char const* __lsan_default_suppressions();
extern "C" char const* __lsan_default_suppressions() {
    return "leak:__argz_add_sep\nleak:__argz_create_sep\n";
}

namespace {

using zel::ldx_manager;
using zel::locale_descriptor;

char const* const generated[] = {"de_DE.ISO-8859-1", "de_DE.UTF-8", "nl_NL.ISO-8859-1",
                                  "en_US.UTF-8"};

// The descriptor of a generated locale, all categories.
locale_descriptor const* named(char const* name) {
    return ldx_manager::install(name, 0);
}

#define REQUIRE_LOCALE(d, name)                                                  \
    ZEL_REQUIRE(test_locales);                                                   \
    locale_descriptor const* d = named(name);                                    \
    if (d == nullptr)                                                            \
    GTEST_SKIP() << name << " was not generated (localedef missing?)"

// Restores the C library's global locale after a test switched it.
class global_locale_guard {
public:
    global_locale_guard() : saved_(std::setlocale(LC_ALL, nullptr)) {}
    ~global_locale_guard() { std::setlocale(LC_ALL, saved_.c_str()); }

private:
    std::string saved_;
};

TEST(LdxSnapshot, MatchesTheCLibraryForEveryGeneratedLocale) {
    std::vector<char const*> names{"C"};
    names.insert(names.end(), std::begin(generated), std::end(generated));
    global_locale_guard restore;
    for (char const* name : names) {
        SCOPED_TRACE(name);
        REQUIRE_LOCALE(d, name);
        ASSERT_NE(std::setlocale(LC_ALL, name), nullptr);
        std::lconv const* lc = std::localeconv();
        EXPECT_STREQ(d->name, name);
        EXPECT_STREQ(ldx_manager::full_name(d), name);
        std::pair<char const*, char const*> const texts[] = {
            {d->decimal_point, lc->decimal_point},         {d->thousands_sep, lc->thousands_sep},
            {d->grouping, lc->grouping},                   {d->int_curr_symbol, lc->int_curr_symbol},
            {d->mon_decimal_point, lc->mon_decimal_point}, {d->mon_thousands_sep, lc->mon_thousands_sep},
            {d->positive_sign, lc->positive_sign},         {d->negative_sign, lc->negative_sign}};
        for (auto const& t : texts)
            EXPECT_STREQ(t.first, t.second) << "field " << &t - texts;
        EXPECT_EQ(d->frac_digits, lc->frac_digits);
        EXPECT_EQ(d->p_cs_precedes, lc->p_cs_precedes);
        EXPECT_EQ(d->n_sep_by_space, d->p_sep_by_space);  // kept copy
        EXPECT_EQ(d->n_sign_posn, lc->n_sign_posn);
        char const zeros[4] = {};
        EXPECT_EQ(std::memcmp(d->unused, zeros, 4), 0);
        // The class bits from the lowest: cntrl, digit, lower, print, punct, space, upper, xdigit.
        int (*const classes[])(int) = {iscntrl, isdigit, islower, isprint, ispunct, isspace, isupper, isxdigit};
        for (int c = 0; c < 256; ++c) {
            for (unsigned bit = 0; bit < 8; ++bit)
                ASSERT_EQ((d->class_table[c] >> bit & 1) != 0, classes[bit](c) != 0) << c << " bit " << bit;
            ASSERT_EQ(d->lower_table[c], static_cast<unsigned char>(tolower(c))) << c;
            ASSERT_EQ(d->upper_table[c], static_cast<unsigned char>(toupper(c))) << c;
        }
    }
}

TEST(LdxRegistry, OrderFindAndCurrent) {
    locale_descriptor const* c = ldx_manager::C();
    EXPECT_EQ(ldx_manager::at(0), c);
    EXPECT_STREQ(c->name, "C");
    EXPECT_EQ(ldx_manager::find("C"), c);
    ASSERT_NE(ldx_manager::current(), nullptr);

    REQUIRE_LOCALE(d, "nl_NL.ISO-8859-1");
    unsigned const size = ldx_manager::size();
    EXPECT_EQ(named("nl_NL.ISO-8859-1"), d);  // same name, same descriptor
    EXPECT_EQ(ldx_manager::size(), size);
    EXPECT_EQ(ldx_manager::find("nl_NL.ISO-8859-1"), d);
    bool listed = false;
    for (unsigned i = 1; i < size; ++i)
        listed = listed || ldx_manager::at(i) == d;
    EXPECT_TRUE(listed);
    EXPECT_EQ(ldx_manager::at(size), nullptr);

    global_locale_guard restore;
    locale_descriptor const* before = ldx_manager::current();
    {
        zel::ldx_lock lock(d);
        EXPECT_EQ(ldx_manager::current(), d);
        EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "nl_NL.ISO-8859-1");
    }
    EXPECT_EQ(ldx_manager::current(), before);
    EXPECT_EQ(ldx_manager::current(d), d);
    EXPECT_EQ(ldx_manager::current(), d);
    locale_descriptor foreign{};
    EXPECT_EQ(ldx_manager::current(&foreign), nullptr);
    EXPECT_EQ(ldx_manager::current(nullptr), nullptr);
    EXPECT_EQ(ldx_manager::current(), d);
    ldx_manager::current(before);
}

TEST(LdxRegistry, RefusedNamesLeaveItUnchanged) {
    unsigned const size = ldx_manager::size();
    locale_descriptor const* curr = ldx_manager::current();
    std::string const global = std::setlocale(LC_ALL, nullptr);
    for (int category : {0, 2, 4, 0x800, 0x1F00}) {
        EXPECT_EQ(ldx_manager::install("xx_YY.no-such-locale", category), nullptr);
        EXPECT_EQ(ldx_manager::current("xx_YY.no-such-locale", category), nullptr);
        EXPECT_FALSE(ldx_manager::supports("xx_YY.no-such-locale", category));
    }
    EXPECT_EQ(ldx_manager::install(nullptr, 0), nullptr);
    EXPECT_EQ(ldx_manager::install("C", 77), nullptr);  // no such category
    EXPECT_EQ(ldx_manager::find("xx_YY.no-such-locale"), nullptr);
    EXPECT_EQ(ldx_manager::size(), size);
    EXPECT_EQ(ldx_manager::current(), curr);
    EXPECT_EQ(global, std::setlocale(LC_ALL, nullptr));
    EXPECT_TRUE(ldx_manager::supports("C", 4));
}

TEST(LdxRegistry, CompositeNamesBeyondTheNameField) {
    REQUIRE_LOCALE(d, "de_DE.UTF-8");
    global_locale_guard restore;
    std::setlocale(LC_ALL, "C");
    locale_descriptor const* ctype = ldx_manager::install("de_DE.UTF-8", 2);
    ASSERT_NE(ctype, nullptr);
    std::string const full = ldx_manager::full_name(ctype);
    ASSERT_GT(full.size(), 127u);  // glibc: "LC_CTYPE=de_DE.UTF-8;LC_NUMERIC=C;..."
    EXPECT_EQ(std::strlen(ctype->name), 127u);
    EXPECT_EQ(full.compare(0, 127, ctype->name), 0);
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");  // set back
    EXPECT_STREQ(ctype->decimal_point, ".");             // numeric stayed "C"
    EXPECT_EQ(ldx_manager::install("de_DE.UTF-8", 0x200), ctype);  // the same composite

    // Making it current switches by the full name, not the cut field.
    EXPECT_EQ(ldx_manager::current(ctype), ctype);
    EXPECT_EQ(full, std::setlocale(LC_ALL, nullptr));
    ldx_manager::current(ldx_manager::C());
}

TEST(LdxRegistry, GrowsByThirtyTwo) {
    REQUIRE_LOCALE(d, "de_DE.ISO-8859-1");
    global_locale_guard restore;
    std::setlocale(LC_ALL, "C");
    unsigned const cap = ldx_manager::capacity();
    EXPECT_EQ(cap % 32, 0u);
    // Distinct composites: every non-empty set of categories from each of
    // the generated locales (4 x 31 names).
    for (char const* name : generated)
        for (int bits = 1; bits < 32 && ldx_manager::size() <= cap; ++bits)
            ASSERT_NE(ldx_manager::install(name, bits << 8), nullptr) << name << bits;
    ASSERT_GT(ldx_manager::size(), cap);
    EXPECT_EQ(ldx_manager::capacity(), cap + 32);
    EXPECT_EQ(ldx_manager::at(0), ldx_manager::C());
}

// ---- Character routines ----------------------------------------------------

std::string contents(std::FILE* f) {
    std::rewind(f);
    std::string s;
    for (int c; (c = std::fgetc(f)) != EOF;)
        s += static_cast<char>(c);
    std::rewind(f);
    return s;
}

struct wide_case {
    char const* locale;
    unsigned short c;
    char const* bytes;  // null: not representable
};

wide_case const wide_cases[] = {
    {"de_DE.UTF-8", 0x41, "A"},
    {"de_DE.UTF-8", 0xE9, "\xC3\xA9"},
    {"de_DE.UTF-8", 0x20AC, "\xE2\x82\xAC"},
    {"de_DE.UTF-8", 0xFFFD, "\xEF\xBF\xBD"},
    {"de_DE.ISO-8859-1", 0xE9, "\xE9"},
    {"de_DE.ISO-8859-1", 0xFF, "\xFF"},
    {"de_DE.ISO-8859-1", 0x20AC, nullptr},
    {"C", 0x41, "A"},
};

TEST(LdxWide, WriteReadAndPushBack) {
    for (wide_case const& w : wide_cases) {
        SCOPED_TRACE(std::string(w.locale) + " " + std::to_string(w.c));
        REQUIRE_LOCALE(d, w.locale);
        std::FILE* f = std::tmpfile();
        ASSERT_NE(f, nullptr);
        EXPECT_EQ(zel::xputc(w.c, f, d), w.bytes != nullptr);
        if (w.bytes != nullptr) {
            EXPECT_EQ(contents(f), w.bytes);
            unsigned short r = 0;
            ASSERT_TRUE(zel::xgetc(r, f, d));
            EXPECT_EQ(r, w.c);
            EXPECT_FALSE(zel::xgetc(r, f, d));  // end of file
            std::clearerr(f);
            EXPECT_TRUE(zel::xungetc(w.c, f, d));
            r = 0;
            ASSERT_TRUE(zel::xgetc(r, f, d));
            EXPECT_EQ(r, w.c);
        } else {
            EXPECT_EQ(contents(f), "");
            EXPECT_FALSE(zel::xungetc(w.c, f, d));
        }
        std::fclose(f);
    }
}

TEST(LdxWide, KeptCasesAndBadInput) {
    REQUIRE_LOCALE(utf8, "de_DE.UTF-8");
    REQUIRE_LOCALE(latin, "de_DE.ISO-8859-1");
    std::FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    EXPECT_TRUE(zel::xputc(static_cast<unsigned short>(0), f, utf8));  // writes nothing
    EXPECT_EQ(contents(f), "");
    // A lone byte is its own value in Latin-1; in UTF-8 a truncated sequence
    // or a lead byte without its continuation fails.
    struct row {
        locale_descriptor const* d;
        char const* bytes;
        bool ok;
    } const rows[] = {{latin, "\xE9", true}, {utf8, "\xE9", false}, {utf8, "\xC3(\x80", false}};
    unsigned short c = 0;
    for (row const& r : rows) {
        std::rewind(f);
        std::fputs(r.bytes, f);
        std::rewind(f);
        EXPECT_EQ(zel::xgetc(c, f, r.d), r.ok) << r.bytes;
        EXPECT_TRUE(!r.ok || c == 0xE9);
    }
    EXPECT_FALSE(zel::xgetc(c, f, utf8) && c == 0x80);  // the broken sequence yields nothing
    std::fclose(f);
    EXPECT_FALSE(zel::xgetc(c, nullptr, utf8));
    EXPECT_FALSE(zel::xputc(static_cast<unsigned short>('a'), nullptr, utf8));
}

TEST(LdxNarrow, BytesPassUnchanged) {
    std::FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    for (char c : {'a', '\xE9', '\0'})
        EXPECT_TRUE(zel::xputc(c, f, nullptr));
    EXPECT_EQ(contents(f), std::string("a\xE9\0", 3));
    char c = 0;
    EXPECT_TRUE(zel::xgetc(c, f, nullptr));
    EXPECT_EQ(c, 'a');
    EXPECT_TRUE(zel::xungetc('z', f, nullptr));
    EXPECT_TRUE(zel::xgetc(c, f, nullptr));
    EXPECT_EQ(c, 'z');
    EXPECT_TRUE(zel::xgetc(c, f, nullptr));
    EXPECT_TRUE(zel::xgetc(c, f, nullptr));
    EXPECT_FALSE(zel::xgetc(c, f, nullptr));
    std::fclose(f);
}

} // namespace
