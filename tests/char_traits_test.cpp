// Character traits over both character types: the signed-byte order of
// compare, the never-found empty pattern, the backward searches and the
// case-insensitive twins.
#include <zel/char_traits.h>

#include <gtest/gtest.h>

namespace {

using narrow = zel::char_traits<char>;
using wide = zel::char_traits<unsigned short>;

// A narrow literal widened character by character.
struct wtext {
    unsigned short c[64];
    explicit wtext(char const* s) {
        unsigned i = 0;
        for (; s[i]; ++i)
            c[i] = static_cast<unsigned char>(s[i]);
        c[i] = 0;
    }
    operator unsigned short const*() const { return c; }
};

TEST(CharTraits, CompareDecidesByTheFirstDifferenceThenByLength) {
    EXPECT_EQ(narrow::compare("a", 1, "ab", 2), -1);
    EXPECT_EQ(narrow::compare("ab", 2, "a", 1), 1);
    EXPECT_EQ(narrow::compare("ab", 2, "ab", 2), 0);
    EXPECT_EQ(narrow::compare("b", 1, "ab", 2), 1);
    // Signed bytes: 0xE9 sorts below 'a' for char, above it for wide.
    EXPECT_EQ(narrow::compare("\xE9", 1, "a", 1), -1);
    EXPECT_TRUE(narrow::lt('\xE9', 'a'));
    unsigned short const e9[] = {0xE9};
    EXPECT_EQ(wide::compare(e9, 1, wtext("a"), 1), 1);
    // A difference past the first memcmp block is still decided signed.
    char a[100], b[100];
    for (int i = 0; i < 100; ++i)
        a[i] = b[i] = 'x';
    a[70] = '\x80';
    b[70] = 'a';
    EXPECT_EQ(narrow::compare(a, b, 100), -1);
    EXPECT_EQ(narrow::compare(b, a, 100), 1);
    EXPECT_EQ(narrow::compare(a, a, 100), 0);
}

TEST(CharTraits, CaseInsensitiveRelationsAndConversions) {
    EXPECT_TRUE(narrow::ieq('A', 'a'));
    EXPECT_FALSE(narrow::ine('A', 'a'));
    EXPECT_EQ(narrow::invert('A'), 'a');
    EXPECT_EQ(narrow::invert('a'), 'A');
    EXPECT_EQ(narrow::invert('1'), '1');
    EXPECT_EQ(narrow::icompare("ABC", 3, "abd", 3), -1);
    EXPECT_EQ(narrow::icompare("HeLLo", 5, "hello", 5), 0);
    char out[4];
    narrow::invert(out, "aB1", 3);
    EXPECT_EQ(std::string(out, 3), "Ab1");
    EXPECT_EQ(wide::toupper(0x101), 0x101) << "no case above 0xFF";
    EXPECT_EQ(wide::toupper('q'), 'Q');
    EXPECT_TRUE(wide::ieq('Q', 'q'));
}

TEST(CharTraits, IntegerFormsEndOfFileAndWhiteSpace) {
    EXPECT_EQ(narrow::to_int_type('\xFF'), 255);
    EXPECT_EQ(narrow::eof(), -1);
    EXPECT_TRUE(narrow::is_eof(-1));
    EXPECT_NE(narrow::not_eof(-1), -1);
    EXPECT_EQ(wide::eof(), 0xFFFF);
    EXPECT_EQ(wide::to_int_type(0xFFFE), 0xFFFE);
    EXPECT_EQ(narrow::length("four"), 4u);
    EXPECT_EQ(wide::length(wtext("four")), 4u);
    for (char c : {' ', '\n', '\t', '\r', '\v', '\f'})
        EXPECT_TRUE(narrow::is_whitespace(c)) << int(c);
    EXPECT_FALSE(narrow::is_whitespace('x'));
    EXPECT_FALSE(narrow::is_whitespace('\0'));
}

// An empty pattern is never found; the backward searches include a match
// ending at the last character.
TEST(CharTraits, ForwardAndBackwardSearches) {
    char const* text = "abc";
    EXPECT_EQ(narrow::find(text, 3, "", 0), nullptr);
    EXPECT_EQ(narrow::find(text, 0, "", 0), nullptr);
    EXPECT_EQ(narrow::rfind(text, 3, "", 0), nullptr);
    EXPECT_EQ(narrow::ifind(text, 3, "", 0), nullptr);
    EXPECT_EQ(narrow::irfind(text, 0, "", 0), nullptr);
    EXPECT_EQ(narrow::find(text, 2, "abc", 3), nullptr) << "pattern longer than text";
    char const* t = "abcabcab";
    EXPECT_EQ(narrow::find(t, 8, "cab", 3), t + 2);
    EXPECT_EQ(narrow::rfind(t, 8, "cab", 3), t + 5);
    EXPECT_EQ(narrow::find(t, 'c', 8), t + 2);
    EXPECT_EQ(narrow::rfind(t, 'c', 8), t + 5);
    EXPECT_EQ(narrow::find(t, 8, "ab", 2), t);
    EXPECT_EQ(narrow::rfind(t, 8, "ab", 2), t + 6) << "a match ending at the last character";
    EXPECT_EQ(narrow::find(t, 8, "abd", 3), nullptr);
    EXPECT_EQ(narrow::find_first_of(t, 8, "xc", 2), t + 2);
    EXPECT_EQ(narrow::find_last_of(t, 8, "xc", 2), t + 5);
    EXPECT_EQ(narrow::find_first_not_of(t, 8, "ab", 2), t + 2);
    EXPECT_EQ(narrow::find_last_not_of(t, 8, "ab", 2), t + 5);
    EXPECT_EQ(narrow::find_first_of(t, 8, "xyz", 3), nullptr);
    EXPECT_EQ(narrow::find_last_not_of(t, 8, "abc", 3), nullptr);

    char const* u = "xxABcabC";
    EXPECT_EQ(narrow::ifind(u, 8, "abc", 3), u + 2);
    EXPECT_EQ(narrow::irfind(u, 8, "ABC", 3), u + 5);
    EXPECT_EQ(narrow::ifind_first_of(u, 8, "c", 1), u + 4);
    EXPECT_EQ(narrow::ifind_last_not_of(u, 8, "CAB", 3), u + 1);

    wtext w("abcabcab");
    EXPECT_EQ(wide::find(w, 8, wtext("cab"), 3), w.c + 2);
    EXPECT_EQ(wide::irfind(w, 8, wtext("CAB"), 3), w.c + 5);
}

} // namespace
