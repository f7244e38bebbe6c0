// The string engine, the string heaps and the string class: block sizes and
// capacities, copy-on-write, merges from a string's own characters, the
// shared empty engine, the search, substitution and strip rules, the
// exceptions and their files, both character types, and sharing across
// threads.
#include <zel/string.h>

#include <zel/exception.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "support/allocation_hook.h"
#include "support/raises.h"

namespace {

using zel::string;
using zel::wstring;
using zel_test::failing_size;
using zel_test::last_request;
using engine = zel::string_engine<char>;
using wengine = zel::string_engine<unsigned short>;
constexpr unsigned npos = string::npos;

// Holds an engine the way a handle does, for the engine-level tests.
template <class E>
struct held {
    E* e;
    explicit held(E* x) : e(x) { e->acquire(); }
    held(held const&) = delete;
    ~held() { e->release(); }
    // Switches to the engine an operation returned.
    void take(E* r) {
        if (r != e) {
            r->acquire();
            e->release();
            e = r;
        }
    }
    std::string text() const { return std::string(e->data(), e->size()); }
};

engine* empty_narrow() { return zel::detail::cstring_initializer.init(); }
wengine* empty_wide() { return zel::detail::wstring_initializer.init(); }

// Exposes the engine of a string for the sharing tests.
struct peek : string {
    using string::string;
    peek(string const& s) : string(s) {}
    using string_base::engine;
};
zel::string_engine<char>* engine_of(string const& s) { return peek(s).engine(); }

// A heap that records its calls and takes its blocks from std_heap.
struct recording_heap : zel::std_heap {
    using std_heap::allocate;
    static inline std::string log;
    static inline int blocks = 0;
    bool query_resize(unsigned current, unsigned requested) const override {
        log += "q" + std::to_string(current) + "," + std::to_string(requested) + " ";
        return std_heap::query_resize(current, requested);
    }
    void* allocate(unsigned size, unsigned count, unsigned header, unsigned* capacity) override {
        log += "a" + std::to_string(count) + " ";
        ++blocks;
        return std_heap::allocate(size, count, header, capacity);
    }
    void deallocate(void* block) override {
        --blocks;
        std_heap::deallocate(block);
    }
};
using rstring = zel::basic_string<char, zel::char_traits<char>, recording_heap>;

std::u16string to_u16(wstring const& w) {
    return std::u16string(reinterpret_cast<char16_t const*>(w.data()), w.size());
}

// --- heaps -------------------------------------------------------------------

void no_memory_handler() {}

TEST(StringHeap, OnlyTheFourArgumentAllocateKeepsTheNewHandlerAfterAFailure) {
    zel::cstring_heap heap;
    std::set_new_handler(&no_memory_handler);
    {
        failing_size fail(32);
        EXPECT_THROW(heap.allocate(1, 10, 20, nullptr), zel::exception);
    }
    EXPECT_EQ(std::get_new_handler(), &no_memory_handler);
    {
        failing_size fail(64);
        zel_test::expect_bad_allocation([&] { heap.allocate(40); });
    }
    EXPECT_EQ(std::get_new_handler(), nullptr) << "kept: the handler stays removed";
    std::set_new_handler(nullptr);
}

// --- engine --------------------------------------------------------------------

TEST(StringEngine, LayoutAndCapacities) {
    unsigned const h = engine::header_allowance();
    EXPECT_EQ(h, sizeof(engine) + 4);
    held<engine> e(empty_narrow()->allocate(10));
    EXPECT_EQ(last_request(), ((10 + h) & ~31u) + 32);
    EXPECT_EQ(e.e->capacity(), ((10 + h) & ~31u) + 32 - h);
    held<engine> f(empty_narrow()->allocate(12));
    EXPECT_EQ(f.e->capacity(), ((12 + h) & ~31u) + 32 - h);
    held<wengine> w(empty_wide()->allocate(10));
    unsigned const wh = wengine::header_allowance();
    EXPECT_EQ(w.e->capacity(), (((20 + wh) & ~63u) + 64 - wh) / 2);
    if (zel::pointers_are_32_bits) {  // the sizes of the 32-bit model
        EXPECT_EQ(sizeof(engine), 16u);
        EXPECT_EQ(h, 20u);
        EXPECT_EQ(e.e->capacity(), 12u);
        EXPECT_EQ(f.e->capacity(), 44u);
        EXPECT_EQ(w.e->capacity(), 22u);
    }
    EXPECT_EQ(e.e->max_size(), 2147483647u);
    EXPECT_EQ(w.e->max_size(), 1073741823u);
}

TEST(StringEngine, CreateResizeAndAssignWithTheNullCharacter) {
    held<engine> e(empty_narrow()->create('\0', 5));
    EXPECT_EQ(e.e->size(), 0u);
    EXPECT_GE(e.e->capacity(), 5u);

    held<engine> s(empty_narrow()->create("abcdef", npos, 0, npos));
    s.take(s.e->resize(9, '\0'));
    EXPECT_EQ(s.text(), "abcdef") << "a null fill only reserves";
    EXPECT_GE(s.e->capacity(), 9u);
    s.take(s.e->resize(8, 'x'));
    EXPECT_EQ(s.text(), "abcdefxx");
    s.take(s.e->resize(6, 'y'));
    EXPECT_EQ(s.text(), "abcdef");
    s.take(s.e->assign('\0', 3));
    EXPECT_EQ(s.text(), "abc");
    EXPECT_EQ(s.e->data()[3], '\0');
    s.take(s.e->assign('Z', 1));
    EXPECT_EQ(s.text(), "aZc");

    held<engine> part(empty_narrow()->create("hello world", npos, 6, 100));
    EXPECT_EQ(part.text(), "world") << "the count is cut to what remains";
    held<engine> none(empty_narrow()->create(static_cast<char const*>(nullptr), npos, 0, 3));
    EXPECT_EQ(none.e->size(), 0u);
}

TEST(StringEngine, MergeReadsASourceInsideTheSameBlockBeforeWriting) {
    held<engine> s(empty_narrow()->create("abcdef", npos, 0, npos));
    s.e->acquire();  // sole-owner check below must see one handle
    s.e->release();
    // Replace "cd" by the whole string itself: the source overlaps the target.
    s.take(s.e->merge(2, 2, s.e->data(), s.e->size(), 0, npos));
    EXPECT_EQ(s.text(), "ababcdefef");
    // Insert a part of the string into itself, where the tail must move.
    s.take(s.e->merge(0, 0, s.e->data(6), npos, 0, 2));
    EXPECT_EQ(s.text(), "efababcdefef");
    s.take(s.e->merge(3, 100, 'q', 2));
    EXPECT_EQ(s.text(), "efaqq");
    s.take(s.e->merge(1, 0, '\0', 4));
    EXPECT_EQ(s.text(), "e") << "a null fill truncates at the position";
}

TEST(StringEngine, MutateCopiesASharedEngineAndKeepsAPrivateOneWithinItsGranule) {
    held<engine> s(empty_narrow()->create("abc", npos, 0, npos));
    EXPECT_EQ(s.e->mutate(s.e->capacity()), s.e) << "private and within the granule";
    s.e->terminate(3);
    s.e->acquire();  // now shared
    engine* copy = s.e->mutate(3);
    EXPECT_NE(copy, s.e);
    EXPECT_EQ(std::string(copy->data(), 3), "abc");
    EXPECT_EQ(copy->refs(), 0);
    copy->acquire();
    copy->release();
    s.e->release();
}

TEST(StringEngine, PositionChecksRaiseOutOfRangeWithoutLocation) {
    held<engine> s(empty_narrow()->create("abc", npos, 0, npos));
    auto expect_plain = [](auto&& f) { zel_test::expect_raised(f, "out_of_range", nullptr, nullptr); };
    expect_plain([&] { s.e->assign('x', 3); });
    expect_plain([&] { s.e->remove(4, 1); });
    expect_plain([&] { s.e->merge(4, 0, 'x', 1); });
    expect_plain([&] { s.e->merge(0, 0, "ab", 2, 3, 1); });
    expect_plain([&] { empty_narrow()->create("ab", 2, 3, 1); });
    EXPECT_EQ(s.e->remove(3, 5), s.e) << "removing nothing changes nothing";
}

TEST(StringEngine, TheSharedEmptyEngineIsNeverFreed) {
    engine* empty = empty_narrow();
    long const before = empty->refs();
    EXPECT_GE(before, 2);
    {
        string a;
        string b(a);
        string c = b;
        EXPECT_EQ(engine_of(a), empty);
        EXPECT_EQ(empty->refs(), before + 3);
    }
    EXPECT_EQ(empty->refs(), before);
    EXPECT_EQ(empty->size(), 0u);
    EXPECT_EQ(*empty->data(), '\0');
    EXPECT_EQ(empty->pool(), zel::detail::cstring_initializer.storage());
}

// The allocator an engine records is a one-pointer handle onto any heap.
TEST(StringEngine, AnyAllocatorEngineBacksStrings) {
    EXPECT_FALSE((std::is_base_of_v<zel::allocator_engine, zel::virtual_allocator<char>>));
    auto& narrow = zel::detail::cstring_initializer;
    narrow.init();
    EXPECT_EQ(narrow.storage()->heap(), narrow.heap());

    {
        rstring s("hello");
        rstring t(s);
        t += " world";
        EXPECT_STREQ(t.c_str(), "hello world");
        EXPECT_STREQ(s.c_str(), "hello");
        EXPECT_EQ(recording_heap::blocks, 2);
        EXPECT_EQ(rstring::initializer().storage()->heap(), rstring::initializer().heap());
    }
    EXPECT_EQ(recording_heap::blocks, 0);

    // An engine over a general heap, reached through a handle of its own.
    zel::vector_heap heap;
    zel::virtual_allocator<char> handle(&heap);
    alignas(engine) unsigned char room[sizeof(engine) + 4];
    engine* empty = ::new (static_cast<void*>(room)) engine(2, &handle, 0, 0);
    empty->terminate(0);
    held<engine> e(empty->create("abc", npos, 0, npos));
    EXPECT_EQ(e.text(), "abc");
    EXPECT_EQ(e.e->pool(), &handle);
    unsigned const h = engine::header_allowance();
    EXPECT_EQ(e.e->capacity(), zel::vector_heap::round(3 + h) - h);
}

// A heap that keeps every block, whatever the size asked.
struct keeping_heap : recording_heap {
    bool query_resize(unsigned, unsigned) const override { return false; }
};
using kstring = zel::basic_string<char, zel::char_traits<char>, keeping_heap>;

TEST(StringEngine, MergeAndMutateAskTheHeapFirst) {
    unsigned const h = engine::header_allowance();
    rstring s("abcdef");
    char const* const before = s.c_str();
    recording_heap::log.clear();
    s.insert(2, s.c_str() + 1, 0);
    EXPECT_EQ(recording_heap::log, "a6 ") << "an empty source inside the block: a fresh engine";
    EXPECT_NE(s.c_str(), before);
    EXPECT_STREQ(s.c_str(), "abcdef");

    rstring g("abc");
    recording_heap::log.clear();
    g.append("defgh");
    EXPECT_EQ(recording_heap::log, "q" + std::to_string(3 + h) + "," + std::to_string(8 + h) + " a8 ")
        << "an unshared engine asks before it grows";
    EXPECT_STREQ(g.c_str(), "abcdefgh");

    {
        kstring k("abc");
        k.append("defgh");  // the heap says keep, but the block is too small
        k.append(k);
        EXPECT_STREQ(k.c_str(), "abcdefghabcdefgh");
    }
    EXPECT_EQ(recording_heap::blocks, 2);  // s and g
}

// --- sharing and copy-on-write -----------------------------------------------------

TEST(String, CopiesShareUntilOneSideWrites) {
    string a("shared text");
    string b(a);
    EXPECT_EQ(a.data(), b.data());
    EXPECT_EQ(engine_of(a)->refs(), 2);
    b += '!';
    EXPECT_NE(a.data(), b.data());
    EXPECT_EQ(a, "shared text");
    EXPECT_EQ(b, "shared text!");

    string c = a;
    c.at(0) = 'S';  // at detaches before the write
    EXPECT_EQ(a, "shared text");
    EXPECT_EQ(c, "Shared text");

    string d = a;
    d.put('X', 1);
    EXPECT_EQ(a, "shared text");
    EXPECT_EQ(d, "sXared text");
    d.put('\0', 2);
    EXPECT_EQ(d.size(), 11u) << "put stores a null character without truncating";

    string const& ca = a;
    string e = a;
    EXPECT_EQ(ca.at(0), 's');
    EXPECT_EQ(a.data(), e.data()) << "const access never copies";
    e.unique();
    EXPECT_NE(a.data(), e.data());
}

TEST(String, ConstructionConcatenationAndComparison) {
    string hello("hello");
    string world = "world";
    EXPECT_EQ(hello + ", " + world + '!', "hello, world!");
    EXPECT_EQ('<' + hello, "<hello");
    EXPECT_EQ("say " + hello, "say hello");
    EXPECT_EQ(string(3, 'z'), "zzz");
    EXPECT_EQ(string({'a', '\0', 'b'}).size(), 3u);
    std::vector<char> v{'x', 'y'};
    EXPECT_EQ(string(v.begin(), v.end()), "xy");
    EXPECT_EQ(string("abcdef", 3), "abc");
    EXPECT_TRUE(string().empty());
    EXPECT_EQ(engine_of(string("")), empty_narrow()) << "an empty text takes no block";

    EXPECT_LT(string("a"), string("ab"));
    EXPECT_LT(string("\xE9"), string("a")) << "signed byte order";
    EXPECT_EQ(hello.compare("hello"), 0);
    EXPECT_LT(hello.compare("help"), 0);
    EXPECT_EQ(hello.compare(1, 3, "ell", npos), 0);
    EXPECT_EQ(hello.compare(1, 3, world, 1, 1), -1) << "\"ell\" against \"o\"";
    EXPECT_EQ(hello.icompare("HELLO"), 0);
    EXPECT_EQ(hello.compare('h', 0), 1) << "longer than the one character";
}

TEST(String, EditingFamilies) {
    string s("world");
    s.prepend("hello ").append('!', 2).insert(5, ',');
    EXPECT_EQ(s, "hello, world!!");
    s.replace(7, 5, "there").erase(s.size() - 1);
    EXPECT_EQ(s, "hello, there!");
    s.append(s);  // from its own characters
    EXPECT_EQ(s, "hello, there!hello, there!");
    s.assign(s, 7, 5);
    EXPECT_EQ(s, "there");
    s.insert(s.begin() + 1, 2u, '-');
    EXPECT_EQ(s, "t--here");
    s.erase(s.begin(), s.begin() + 3);
    EXPECT_EQ(s, "here");
    s.append('\0');
    EXPECT_EQ(s, "here") << "kept: a null character through a fill form truncates";
    s.append("\0x", 2);
    EXPECT_EQ(s.size(), 6u) << "the text form stores it";
    EXPECT_EQ(s.substr(1, 2), "er");
    s.resize(2);
    EXPECT_EQ(s, "he");
    s.reserve(100);
    EXPECT_GE(s.capacity(), 100u);
    EXPECT_EQ(s, "he");
    s.clear();
    EXPECT_TRUE(s.empty());
    EXPECT_THROW(s.insert(1, "x"), zel::out_of_range);
    EXPECT_THROW(s.erase(1), zel::out_of_range);
}

TEST(String, SearchesAndTheBackwardRule) {
    string s("abcabc");
    EXPECT_EQ(s.find('c'), 2u);
    EXPECT_EQ(s.find("bc", 3), 4u);
    EXPECT_EQ(s.find('a', 6), npos) << "from the size: nothing, no exception";
    EXPECT_THROW(s.find('a', 7), zel::out_of_range);
    EXPECT_EQ(s.rfind('c'), 5u);
    EXPECT_EQ(s.rfind('c', 2), 2u) << "the position itself is searched";
    EXPECT_EQ(s.rfind("bc", 2), 1u);
    EXPECT_EQ(s.rfind("bc", 1), npos) << "a pattern must end by the position";
    EXPECT_EQ(s.find_first_of("xc"), 2u);
    EXPECT_EQ(s.find_last_not_of("c"), 4u);
    EXPECT_EQ(s.find_first_not_of("ab"), 2u);
    EXPECT_EQ(s.find_last_of('a', 2), 0u);
    EXPECT_EQ(s.find(3, 2, 'c'), npos) << "a range excludes its end";
    EXPECT_EQ(s.find(3, 3, 'c'), 5u);
    EXPECT_EQ(s.find(0, npos, string("xabc"), 1, 2), 0u);
    EXPECT_EQ(s.ifind("BCA"), 1u);
    EXPECT_EQ(s.irfind('A'), 3u);
    EXPECT_EQ(s.ifind_first_of("XYC"), 2u);
    EXPECT_EQ(s.find(""), npos);
    EXPECT_TRUE(s.contains("cab"));
    EXPECT_FALSE(s.contains("CAB"));
    EXPECT_TRUE(s.icontains("CAB"));
}

TEST(String, NullTextsRaiseInvalidArgumentFromTheFileOfTheCharacterType) {
    string s("abc");
    wstring w(u"abc");
    auto expect_from = [](char const* file, auto&& f) {
        zel_test::expect_raised(f, "invalid_argument", zel_test::any, file);
    };
    char const* none = nullptr;
    unsigned short const* wnone = nullptr;
    expect_from("src/strbasea.cpp", [&] { s.find(none); });
    expect_from("src/strbasea.cpp", [&] { s.compare(none); });
    expect_from("src/strbasea.cpp", [&] { s.tsub(none, "x"); });
    expect_from("src/strbasea.cpp", [&] { s.strip(none); });
    expect_from("src/strbasew.cpp", [&] { w.rfind(wnone); });

    zel_test::expect_raised([&] { s.put('x', 3); }, "out_of_range", zel_test::any, "src/strbasea.cpp");
    zel_test::expect_raised([&] { s.compare("x", 4); }, "out_of_range", zel_test::any, nullptr);  // a position
}

TEST(String, Substitution) {
    string s("aaa");
    EXPECT_EQ(s.tsub("a", "ab"), 3u);
    EXPECT_EQ(s, "ababab") << "the search resumes after each replacement";
    EXPECT_EQ(s.tsub("", "x"), npos);
    EXPECT_EQ(s, "ababab");
    EXPECT_EQ(s.tsub("ab", "X", string::sub_first), 1u);
    EXPECT_EQ(s.tsub("ab", "Y", string::sub_last), 1u);
    EXPECT_EQ(s, "XabY");
    EXPECT_EQ(s.tsub("ab", "Z", 3), 0u) << "an unknown flag does nothing";
    EXPECT_EQ(s.itsub("AB", '-', 3), 1u);
    EXPECT_EQ(s, "X---Y");
    EXPECT_EQ(s.remove('-'), 3u);
    EXPECT_EQ(s, "XY");
    EXPECT_EQ(s.iremove("x"), 1u);
    EXPECT_EQ(s.tsub("q", "r"), 0u);

    string t("abcabc");
    string const shared = t;
    // Pattern and replacement point into the string itself.
    EXPECT_EQ(t.tsub(t.c_str() + 3, t.c_str()), 2u);
    EXPECT_EQ(t, "abcabcabcabc");
    EXPECT_EQ(shared, "abcabc");
}

TEST(String, StripTrimCaseAndTabs) {
    string s(" \t \t ");
    EXPECT_TRUE(s.trim().empty());
    string t("xxhixx");
    EXPECT_EQ(t.strip('x', string::strip_front), "hixx");
    EXPECT_EQ(t.strip("x"), "hi");
    EXPECT_EQ(t.strip(""), "hi");
    string u("  pad  ");
    EXPECT_EQ(string(u).trim_back(), "  pad");
    EXPECT_EQ(string(u).trim_front(), "pad  ");

    string c("Hello World");
    EXPECT_EQ(string(c).toupper(), "HELLO WORLD");
    EXPECT_EQ(string(c).tolower(6), "Hello world");
    EXPECT_EQ(string(c).toinverse(0, 5), "hELLO World");
    EXPECT_EQ(string(c).reverse(6, 5), "Hello dlroW");
    EXPECT_EQ(c, "Hello World");

    EXPECT_EQ(string("a\tb").expand_tabs(4), "a   b");
    EXPECT_EQ(string("ab\ncd\tx").expand_tabs(4), "ab\ncd  x");
    EXPECT_EQ(string("a\tb").expand_tabs(512), "a\tb");
    // Longer than the work buffer: every tab still expands (8 spaces at
    // column 0, then 7 after each "x").
    string longer;
    for (int i = 0; i < 600; ++i)
        longer += "\tx";
    longer.expand_tabs(8);
    EXPECT_EQ(longer.size(), 9u + 599 * 8);
    EXPECT_EQ(longer.find('\t'), npos);
}

TEST(String, IteratorsHashAndFiles) {
    string s("abc");
    EXPECT_EQ(std::string(s.begin(), s.end()), "abc");
    string t = s;
    for (char& c : t)
        c = char(c - 32);
    EXPECT_EQ(t, "ABC");
    EXPECT_EQ(s, "abc");
    EXPECT_EQ(std::string(s.rbegin(), s.rend()), "cba");
    EXPECT_EQ(s.hash([](char const* p) { return unsigned(std::strlen(p)); }), 3u);

    std::FILE* f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(s.write(f), 3u);
    std::rewind(f);
    string r;
    EXPECT_EQ(r.read(f), 3u);
    EXPECT_EQ(r, "abc");
    std::fclose(f);
    EXPECT_EQ(s.write(nullptr), npos);
}

TEST(WideString, SameRulesOverSixteenBitCharacters) {
    wstring w(u"Grüße, Ωmega");
    EXPECT_EQ(w.size(), 12u);
    EXPECT_EQ(w.find(wstring(u"Ω")), 7u);
    wstring v = w;
    v.toupper(0, 5);
    EXPECT_EQ(to_u16(v), u"GRüßE, Ωmega") << "only characters up to 0xFF have a case";
    EXPECT_EQ(to_u16(w), u"Grüße, Ωmega");
    EXPECT_EQ(v.tsub(wstring(u"Ω"), wstring(u"O")), 1u);
    EXPECT_EQ(to_u16(v + u'!'), u"GRüßE, Omega!");
    wstring e;
    for (int i = 0; i < 40; ++i)
        e += static_cast<unsigned short>('a' + i % 26);
    EXPECT_EQ(e.size(), 40u);
    EXPECT_EQ(e.rfind(static_cast<unsigned short>('a')), 26u);
}

// One character at a time, += takes inline paths (in place within the
// granule, a new block across it); append(c, 1) always goes through the
// engine's merge. A seeded run keeps the two beside each other, with
// reserves, shared copies and null characters (which truncate) mixed in:
// sizes, capacities, characters and share counts must agree after every
// step, and a shared copy must never change.
template <class S>
void append_beside_the_engine(unsigned seed) {
    using C = typename S::value_type;
    struct handle : S {
        using S::S;
        handle(S const& s) : S(s) {}
        using S::engine;
    };
    std::mt19937 rng(seed);
    auto text = [](S const& x) { return std::vector<C>(x.data(), x.data() + x.size()); };
    S fast, slow;
    S kept, kept_slow;
    std::vector<C> kept_text;
    unsigned const granule = sizeof(C) == 1 ? 32 : 64;
    for (int step = 0; step < 3000; ++step) {
        unsigned const r = unsigned(rng() % 100);
        if (r < 2) {
            unsigned const n = unsigned(rng() % 300);
            fast.reserve(n);
            slow.reserve(n);
        } else if (r < 4) {
            kept = fast;   // shared: the next += must copy
            kept_slow = slow;
            kept_text = text(fast);
        } else {
            C const c = r < 6 ? C(0) : C('a' + r % 26);
            fast += c;
            slow.append(c, 1u);
        }
        ASSERT_EQ(fast.size(), slow.size()) << step;
        ASSERT_EQ(fast.capacity(), slow.capacity()) << step;
        ASSERT_EQ(text(fast), text(slow)) << step;
        ASSERT_EQ(fast.data()[fast.size()], C(0)) << step;
        ASSERT_EQ(handle(fast).engine()->refs(), handle(slow).engine()->refs()) << step;
        if (fast.capacity() != 0) {
            unsigned const bytes = fast.capacity() * unsigned(sizeof(C)) +
                                   zel::string_engine<C>::header_allowance();
            ASSERT_EQ(bytes % granule, 0u) << "the capacity fills the block, step " << step;
        }
        ASSERT_EQ(text(kept), kept_text) << step;
    }
}

TEST(String, AppendingOneCharacterInlineMatchesTheEngine) {
    append_beside_the_engine<string>(11);
    append_beside_the_engine<wstring>(12);
}

// --- threads ------------------------------------------------------------------------

TEST(StringThreads, SharedCountsStayExactUnderConcurrentCopies) {
    string const original("a string shared by every thread, long enough for its own block");
    engine* const e = engine_of(original);
    std::atomic<bool> mismatch{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                if (t % 2 == 0) {
                    string a(original);
                    string b = a;
                    string c;
                    c = b;
                    if (c.data() != original.data())
                        mismatch = true;
                } else {
                    string mine(original);
                    mine.at(0) = 'A';  // a private copy
                    mine += 'x';
                    if (mine[1] != ' ' || original[0] != 'a')
                        mismatch = true;
                }
            }
        });
    }
    for (auto& th : threads)
        th.join();
    EXPECT_FALSE(mismatch);
    EXPECT_EQ(e->refs(), 1) << "only the original is left";
}

// The character forms truncate at a null character instead of storing it,
// in the inline fast path of += as in the engine.
TEST(String, AppendingTheNullCharacterTruncates) {
    string s("abc");
    s += '\0';
    EXPECT_EQ(s.size(), 3u);
    s.push_back('\0');
    EXPECT_EQ(s.size(), 3u);
    EXPECT_EQ(s, "abc");
    wstring w(u"ab");
    w += static_cast<unsigned short>(0);
    EXPECT_EQ(w.size(), 2u);
}

} // namespace
