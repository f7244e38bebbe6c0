// The hash table engine, the string hashes and the hashed sets and maps:
// bucket counts in both growth modes, thresholds and load clamping, the ten
// hash functions on fixed texts, duplicate order, cursor and check texts,
// and seeded runs beside the std unordered containers with check() after
// every step.
#include <zel/hash_map.h>
#include <zel/hash_set.h>
#include <zel/string.h>

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

#include "support/counted.h"
#include "support/model.h"

namespace {

using zel::hash_table_engine;
using zel_test::counted;
using zel_test::expect_container_error;
using zel_test::key_of;
using zel_test::no_leaks;

char const* const source = "src/hashbase.cpp";

struct counted_hash {
    std::size_t operator()(counted const& c) const { return zel::hash<std::string>()(c.value()); }
};

// A table with its engine in reach.
template <class C>
struct probe : C {
    using C::C;
    using hash_table_engine::buckets_;
    using hash_table_engine::count_;
    using hash_table_engine::sentinel_;
    hash_table_engine& raw() { return *this; }
    hash_table_engine const& raw() const { return *this; }
    hash_table_engine::cursor at(unsigned i) const { return {this, raw().pos(i)}; }
};

using int_set = probe<zel::hash_set<int>>;

TEST(Hash, BucketCountsInBothGrowthModes) {
    struct {
        unsigned asked;
        zel::grow_type growth;
        unsigned up, down;
    } const cases[] = {
        {0, zel::grow_one_step, 257, 257},     {257, zel::grow_one_step, 257, 257},
        {258, zel::grow_one_step, 367, 257},   {258, zel::grow_two_steps, 521, 257},
        {522, zel::grow_two_steps, 1031, 521}, {1000, zel::grow_one_step, 1031, 727},
        {4194319, zel::grow_one_step, 4194319, 2965847},
        {4194319, zel::grow_two_steps, 4194319, 2097169},
    };
    for (auto const& c : cases) {
        int_set s;
        s.set_growth(c.growth);
        EXPECT_EQ(s.raw().find_prime(c.asked, true), c.up) << c.asked;
        EXPECT_EQ(s.raw().find_prime(c.asked, false), c.down) << c.asked;
    }
    EXPECT_EQ(hash_table_engine::primes[hash_table_engine::prime_count], 4294967295u);
    EXPECT_EQ(int_set(0).bucket_count(), 257u);
    EXPECT_EQ(int_set(258).bucket_count(), 521u);   // the typed default grows by two steps
    int_set s;
    expect_container_error([&] { s.raw().find_prime(4194320, true); },
                           "requested bucket count exceeds maximum", source, 1342);
    expect_container_error([&] { s.rehash(4194320); }, "requested bucket count exceeds maximum",
                           source, 1342);
}

TEST(Hash, ExpandsAfterTheThresholdAndContractsBelowIt) {
    for (auto growth : {zel::grow_one_step, zel::grow_two_steps}) {
        int_set s;
        s.set_growth(growth);
        EXPECT_EQ(s.raw().expand_threshold(), 257u);
        EXPECT_EQ(s.buckets_, nullptr);   // built by the first insertion
        for (int k = 0; k < 257; ++k)
            s.insert(k);
        EXPECT_EQ(s.bucket_count(), 257u);
        s.insert(257);
        unsigned const grown = growth == zel::grow_one_step ? 367 : 521;
        EXPECT_EQ(s.bucket_count(), grown);
        s.check();
        s.min_load_factor(0.9f);   // 258 nodes are below it: the next erasure shrinks
        EXPECT_EQ(s.raw().contract_threshold(), unsigned(grown * 0.9f));
        EXPECT_EQ(s.bucket_count(), grown);
        s.erase(0);
        EXPECT_EQ(s.bucket_count(), 257u);   // one step down from either
        s.erase(s.begin());                   // erasing by iterator never shrinks
        s.check();
    }
    // Rehash keeps every run together, in list order.
    int_set s{1, 258, 515, 2, 259};
    s.rehash(1000);
    EXPECT_EQ(s.bucket_count(), 1031u);
    s.check();
    EXPECT_EQ(s.size(), 5u);
}

TEST(Hash, LoadFactorsAreClamped) {
    struct {
        float min, max, got_min, got_max;
    } const cases[] = {{2.0f, 0.5f, 1.0f, 1.0f}, {-1.0f, 3.0f, 0.0f, 3.0f},
                       {0.25f, 2.0f, 0.25f, 2.0f}, {0.5f, 0.0f, 0.5f, 1.0f}};
    for (auto const& c : cases) {
        int_set s;
        s.raw().set_loading(c.min, c.max);
        EXPECT_EQ(s.min_load_factor(), c.got_min);
        EXPECT_EQ(s.max_load_factor(), c.got_max);
        EXPECT_EQ(s.raw().expand_threshold(), unsigned(257 * c.got_max));
        EXPECT_EQ(s.raw().contract_threshold(), unsigned(257 * c.got_min));
    }
    int_set s;
    s.max_load_factor(1e30f);   // a threshold beyond 32 bits saturates
    EXPECT_EQ(s.raw().expand_threshold(), 0xFFFFFFFFu);
}

TEST(Hash, StringHashesOnFixedTexts) {
    zel::char_hash1 h1;
    zel::char_hash2 h2;
    zel::char_hash3 h3;
    zel::char_hash4 h4;
    zel::char_hash5 h5;
    zel::hash_function<char const*> const* narrow[] = {&h1, &h2, &h3, &h4, &h5};
    zel::wchar_hash1 w1;
    zel::wchar_hash2 w2;
    zel::wchar_hash3 w3;
    zel::wchar_hash4 w4;
    zel::wchar_hash5 w5;
    zel::hash_function<unsigned short const*> const* wide[] = {&w1, &w2, &w3, &w4, &w5};

    // Hashes 1, 2 and 5 differ only where a value reaches P (mod P) and in
    // how a byte above 127 is taken.
    struct {
        char const* text;
        unsigned h1, h2, h5;
    } const texts[] = {
        {"", 0, 0, 0},
        {"a", 97, 97, 97},
        {"hello", 1695091042, 1695091042, 1695091042},
        {"The quick brown fox", 290862091, 290862091, 290862091},
        {"\xe9t\xe9 \xff", 2321722795u, 2321722795u, 1956467883},
        {"\xff\xff", 1019, 256, 65280},
    };
    for (auto const& t : texts) {
        EXPECT_EQ(h1(t.text), t.h1) << t.text;
        EXPECT_EQ(h2(t.text), t.h2) << t.text;
        EXPECT_EQ(h5(t.text), t.h5) << t.text;
    }
    std::vector<unsigned short> const cjk = {0x4E2D, 0x6587, 0x00FF, 0x1234, 0};
    for (auto const* w : {wide[0], wide[1], wide[4]})
        EXPECT_EQ((*w)(cjk.data()), 3705934177u);

    // The Pearson hashes over the shared permutation.
    unsigned char const* const t = zel::pearson_table();
    std::vector<int> seen(256);
    for (int i = 0; i < 256; ++i)
        ++seen[t[i]];
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), 256) << "not a permutation";
    auto pair_result = [](unsigned a, unsigned b) {
        unsigned long long const v = a * 256ull + b;
        return unsigned((v * 65536 + v) % 4294967291ull);
    };
    EXPECT_EQ(h3(""), 65537u);
    EXPECT_EQ(h4(""), 0u);
    EXPECT_EQ(h3("ab"), pair_result(t[t[0 ^ 'a'] ^ 'b'], t[t[1 ^ 'a'] ^ 'b']));
    EXPECT_EQ(h4("abc"), pair_result(t[t[int('a')] ^ 'c'], t[int('b')]));
    // A wide character is folded to its low byte XOR its high byte.
    std::vector<unsigned short> const folded = {0x6162, 0x0100 | 'b', 0};   // folds to 3, 'b' ^ 1
    EXPECT_EQ(w3(folded.data()),
              pair_result(t[t[0 ^ (0x61 ^ 0x62)] ^ ('b' ^ 1)], t[t[1 ^ (0x61 ^ 0x62)] ^ ('b' ^ 1)]));
    std::vector<unsigned short> const ab = {'a', 'b', 'c', 0};
    EXPECT_EQ(w3(ab.data()), h3("abc"));
    EXPECT_EQ(w4(ab.data()), h4("abc"));

    for (auto const* h : narrow)
        EXPECT_EQ((*h)(nullptr), 4294967295u);
    for (auto const* h : wide) {
        EXPECT_EQ((*h)(nullptr), 4294967295u);
        unsigned short const empty = 0;
        EXPECT_EQ((*h)(&empty), h == &w3 ? 65537u : 0u);
    }

    // The string hashes as hashers of zel::string keys.
    zel::hash_set<zel::string, zel::char_hash1> names{"ada", "grace", "ada"};
    EXPECT_EQ(names.size(), 2u);
    EXPECT_TRUE(names.contains("grace"));
    // The default hasher sees a string's characters, whichever class holds them.
    EXPECT_EQ(zel::hash<zel::string>()(zel::string("hello")), zel::hash<std::string>()("hello"));
    EXPECT_NE(zel::hash<std::string>()("hello"), zel::hash<std::string>()("hellp"));
}

TEST(Hash, DuplicatesStandTogetherNewestFirst) {
    no_leaks guard;
    zel::hash_multimap<int, counted> m;
    m.insert({5, "old"});
    m.insert({5 + 257, "other"});   // the same bucket
    m.insert({5, "new"});
    auto r = m.equal_range(5);
    std::vector<std::string> got;
    for (auto it = r.first; it != r.second; ++it)
        got.push_back(it->second.value());
    EXPECT_EQ(got, (std::vector<std::string>{"new", "old"}));
    EXPECT_EQ(m.count(5), 2u);
    EXPECT_EQ(m.erase(5), 2u);
    EXPECT_EQ(m.size(), 1u);

    // find_next walks the rest of one key's nodes.
    probe<zel::hash_multiset<int>> s{7, 7, 7, 264};
    int const key = 7;
    hash_table_engine::cursor c{&s.raw(), s.raw().find(&key, nullptr)};
    unsigned n = 1;
    while (!s.raw().is_end(c = {&s.raw(), s.raw().find_next(&key, &c)}))
        ++n;
    EXPECT_EQ(n, 3u);
    s.raw().set_duplication(false);
    EXPECT_EQ(s.size(), 2u);
    s.check();
}

TEST(Hash, CursorMisuseAndCheckTexts) {
    int_set a{1, 2, 3}, b{4};
    expect_container_error([&] { a.erase(b.begin()); }, "mis-matched iterator(s)", source);
    expect_container_error([&] { a.erase(a.end()); }, "iterator points to end()", source);
    expect_container_error([&] { a.erase(a.begin(), b.end()); }, "mis-matched iterator(s)", source);
    expect_container_error([&] { a.raw().insert(b.at(1)); }, "iterator points to end()", source);
    expect_container_error([&] { a.raw().insert(a.at(0), b.at(1)); }, "mis-matched iterator(s)",
                           source);
    hash_table_engine::cursor const e = b.raw().end_cursor();
    int const key = 4;
    expect_container_error([&] { b.raw().find_next(&key, &e); }, "iterator points to end()", source);
    EXPECT_THROW(a.raw().pos(4), zel::xexception);
    EXPECT_TRUE(a.raw().is_end(a.at(3)));

    // Each corruption, the text and line it is reported with.
    auto const fault = [&](int_set const& t, auto& field, auto bad, char const* text, int line) {
        zel_test::expect_check_fault(t, field, bad, text, source, line);
    };
    int_set s{10, 20, 30};
    fault(s, s.sentinel_.next->prev, nullptr, "bad connection to sentinel", 262);
    fault(s, s.sentinel_.prev->next, s.sentinel_.prev, "bad connection to sentinel", 263);
    fault(s, s.count_, 4u, "invalid element count", 272);
    fault(s, s.buckets_[s.sentinel_.next->index], nullptr, "invalid bucket pointer", 288);
    s.check();
    int_set none;   // no buckets yet
    fault(none, none.count_, 1u, "invalid element count", 295);
    hash_table_engine::hash_node stray{};
    fault(none, none.sentinel_.next, &stray, "invalid sentinel node", 296);
    fault(none, none.sentinel_.prev, &stray, "invalid sentinel node", 297);
    none.check();
}

// What the model runs do not reach: visits and a list assignment.
TEST(Hash, VisitsAndListAssignment) {
    no_leaks guard;
    zel::hash_map<counted, int, counted_hash> m{{"a", 2}, {"b", 2}, {"c", 3}};
    int sum = 0;
    m.visit([&](std::pair<counted const, int>& e) { sum += e.second++; });
    EXPECT_EQ(sum, 7);
    static_cast<decltype(m) const&>(m).visit([&](std::pair<counted const, int> const& e) { sum += e.second; });
    EXPECT_EQ(sum, 17);
    m = {{"x", 0}};
    EXPECT_EQ(m.size(), 1u);
    m.check();
}

// ---------------------------------------------------------------------------
// Seeded runs beside the std twins.

template <class C>
std::vector<typename C::value_type> values(typename C::const_iterator first,
                                           typename C::const_iterator last) {
    return std::vector<typename C::value_type>(first, last);
}

template <class C, bool Multi, bool Map, class Twin, class Make>
void run_beside_std(unsigned seed, int steps, Make make) {
    using P = probe<C>;
    P c;
    Twin twin;
    zel_test::model_run run(seed);
    auto nth = [&](unsigned i) { return std::next(c.cbegin(), i); };
    zel_test::associative_ops(run, c, twin, [&] { return make(run); });
    run.op("assign a range of itself", 1, [&] {
            unsigned i = run.pick(c.size() + 1);
            unsigned j = i + run.pick(std::min(c.size() - i, 40u) + 1);
            auto const kept = values<C>(nth(i), nth(j));
            c.raw().assign(c.at(i), c.at(j));
            twin = Twin(kept.begin(), kept.end());
        })
        .op("insert a range of a table", 1, [&] {
            P other;
            for (unsigned n = run.pick(20); n; --n)
                other.insert(make(run));
            P& from = run.chance(50) ? other : c;
            unsigned i = run.pick(from.size() + 1);
            unsigned j = i + run.pick(from.size() - i + 1);
            auto const added = values<C>(std::next(from.cbegin(), i), std::next(from.cbegin(), j));
            c.raw().insert(from.at(i), from.at(j));
            for (auto const& v : added)
                twin.insert(v);
        })
        .op("swap there and back", 1, [&] {
            P other;
            Twin other_twin;
            for (unsigned n = run.pick(30); n; --n) {
                auto const v = make(run);
                other.insert(v);
                other_twin.insert(v);
            }
            bool const relink = run.chance(50);
            c.raw().swap(other.raw(), relink);
            c.check();
            other.check();
            zel_test::expect_same_elements(c, other_twin);
            zel_test::expect_same_elements(other, twin);
            if (relink)
                c.raw().swap(other.raw(), false);
            else
                c.swap(other);
        })
        .op("loading", 1, [&] {
            float const mins[] = {0.0f, 0.25f, 0.5f, 1.0f};
            float const maxes[] = {1.0f, 1.5f, 3.0f};
            c.min_load_factor(mins[run.pick(4)]);
            c.max_load_factor(maxes[run.pick(3)]);
            if (run.chance(30))
                c.rehash(run.pick(3000));
            c.set_growth(run.chance(50) ? zel::grow_one_step : zel::grow_two_steps);
        });
    if constexpr (Multi)
        run.op("drop duplicates", 1, [&] {
            c.raw().set_duplication(false);
            c.check();
            for (auto const& v : c) {
                ASSERT_EQ(c.count(key_of(v)), 1u);
                ASSERT_NE(twin.count(key_of(v)), 0u);
            }
            twin = Twin(c.begin(), c.end());
            c.raw().set_duplication(true);
        });
    if constexpr (Map && !Multi)
        run.op("subscript", 2, [&] {
            auto const k = key_of(make(run));
            auto const v = make(run).second;
            c[k] = v;
            twin[k] = v;
            C& typed = c;   // the probe's at() is the engine's
            ASSERT_EQ(typed.at(k), v);
            auto const absent = key_of(make(run));
            if (twin.count(absent) == 0) {
                ASSERT_THROW(typed.at(absent), zel::out_of_range);
            }
        });
    run.go(steps, [&] {
        ASSERT_NO_THROW(c.check());
        zel_test::expect_same_elements(c, twin);
        std::size_t back = 0;   // and backwards from end()
        for (auto it = c.cend(); it != c.cbegin(); --it)
            ++back;
        ASSERT_EQ(back, twin.size());
    });
}

int small(zel_test::model_run& run) { return int(run.pick(400)); }
counted word(zel_test::model_run& run) { return counted(std::to_string(run.pick(300))); }

// Each table with ints, then with counted strings inside a leak guard.
TEST(Hash, RunsBesideTheUnorderedTwins) {
    no_leaks guard;
    run_beside_std<zel::hash_set<int>, false, false, std::unordered_set<int>>(1, 4000, small);
    run_beside_std<zel::hash_set<counted, counted_hash>, false, false,
                   std::unordered_set<counted, counted_hash>>(2, 2000, word);
    run_beside_std<zel::hash_multiset<int>, true, false, std::unordered_multiset<int>>(3, 4000, small);
    run_beside_std<zel::hash_multiset<counted, counted_hash>, true, false,
                   std::unordered_multiset<counted, counted_hash>>(4, 2000, word);
    auto pairs = [](zel_test::model_run& run) { return std::pair<int const, int>(small(run), small(run)); };
    run_beside_std<zel::hash_map<int, int>, false, true, std::unordered_map<int, int>>(5, 4000, pairs);
    auto words = [](zel_test::model_run& run) {
        return std::pair<counted const, counted>(word(run), word(run));
    };
    run_beside_std<zel::hash_map<counted, counted, counted_hash>, false, true,
                   std::unordered_map<counted, counted, counted_hash>>(6, 2000, words);
    auto multi_pairs = [](zel_test::model_run& run) {
        return std::pair<int const, int>(small(run) / 2, int(run.pick(3)));
    };
    run_beside_std<zel::hash_multimap<int, int>, true, true, std::unordered_multimap<int, int>>(
        7, 4000, multi_pairs);
    auto multi_words = [](zel_test::model_run& run) {
        return std::pair<counted const, counted>(word(run), std::to_string(run.pick(3)));
    };
    run_beside_std<zel::hash_multimap<counted, counted, counted_hash>, true, true,
                   std::unordered_multimap<counted, counted, counted_hash>>(8, 2000, multi_words);
}

} // namespace
