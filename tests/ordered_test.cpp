// The tree engine, the red-black tree engine and the ordered containers:
// seeded runs beside std::set/multiset/map/multimap with check() after
// every step, the depth bound, the engine's kept behaviours, cursor
// traversal and misuse, the check texts, and two threads erasing in their
// own trees at once (the shared nil node).
#include <zel/map.h>
#include <zel/set.h>

#include <cmath>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/counted.h"
#include "support/model.h"

namespace {

using zel_test::counted;
using zel_test::expect_container_error;
using zel_test::key_of;
using zel_test::no_leaks;
using engine = zel::rbtree_engine;
using node = engine::base_rbnode;

// A container with its engine in reach.
template <class C>
struct probe : C {
    using C::C;
    using engine::count_;
    using engine::header_;
    using engine::nil_pointer;
    engine& raw() { return *this; }
    node* root_node() const { return static_cast<node*>(engine::root()); }
    static unsigned height(node const* n) {
        return n == nil_pointer ? 0 : 1 + std::max(height(static_cast<node*>(n->left)),
                                                   height(static_cast<node*>(n->right)));
    }
    unsigned height() const { return height(root_node()); }
};

counted key(unsigned k) { return counted(std::to_string(1000 + k)); }

// The operations every ordered container shares, against its std twin.
// Z is the zel container, S the std twin, make(n) an element.
template <class Z, class S, class Make>
void run_beside_std(unsigned seed, int steps, Make make) {
    no_leaks guard;
    zel_test::model_run run(seed);
    Z c;
    S twin;
    auto element = [&] { return make(run.pick(300)); };
    zel_test::associative_ops(run, c, twin, element);
    run.op("insert with hint and a range", 2, [&] {
           auto v = element();
           // The hint is not used: equal keys still go behind their equals.
           c.insert(c.begin(), v);
           twin.insert(twin.end(), v);
           std::vector<typename S::value_type> more;
           for (unsigned i = run.pick(6); i; --i) more.push_back(element());
           c.insert(more.begin(), more.end());
           twin.insert(more.begin(), more.end());
       })
        .op("bounds", 2, [&] {
            auto k = key_of(element());
            ASSERT_EQ(std::distance(c.begin(), c.lower_bound(k)), std::distance(twin.begin(), twin.lower_bound(k)));
            ASSERT_EQ(std::distance(c.begin(), c.upper_bound(k)), std::distance(twin.begin(), twin.upper_bound(k)));
        })
        .op("compare and swap", 1, [&] {
            Z other{element(), element()};
            other = c;
            ASSERT_TRUE(!(other < c) && other <= c && !(c < other));
            c.clear();
            swap(c, other);
            other.check();
            ASSERT_TRUE(other.empty());
        })
        .op("clear", 1, [&] {
            if (run.chance(10)) {
                c.clear();
                twin.clear();
            }
        });
    run.go(steps, [&] {
        ASSERT_NO_THROW(c.check());
        zel_test::expect_same_sequence(c, twin);
    });
}

// In the multimap equal keys keep the order of their insertion: the twin's
// values tell.
TEST(OrderedModel, BesideTheStdTwins) {
    run_beside_std<zel::set<counted>, std::set<counted>>(11, 4000, [](unsigned k) { return key(k); });
    run_beside_std<zel::multiset<counted>, std::multiset<counted>>(12, 4000,
                                                                  [](unsigned k) { return key(k / 4); });
    unsigned serial = 0;
    run_beside_std<zel::map<counted, counted>, std::map<counted, counted>>(13, 4000, [&](unsigned k) {
        return std::pair<counted const, counted>(key(k), key(++serial));
    });
    run_beside_std<zel::multimap<counted, counted>, std::multimap<counted, counted>>(
        14, 4000, [&](unsigned k) { return std::pair<counted const, counted>(key(k / 8), key(++serial)); });
}

TEST(OrderedTree, DepthStaysWithinTwiceLog2AfterRandomInsertsAndErasures) {
    std::mt19937 rng(5);
    probe<zel::multiset<int>> s;
    std::vector<int> in;
    for (int round = 0; round < 4; ++round) {
        for (int i = 0; i < 20000; ++i) {
            int const k = int(rng() % 50000);
            s.insert(k);
            in.push_back(k);
        }
        std::shuffle(in.begin(), in.end(), rng);
        for (int i = 0; i < 12000; ++i) {
            s.erase(s.find(in.back()));
            in.pop_back();
        }
        s.check();
        ASSERT_EQ(s.size(), in.size());
        ASSERT_LE(s.height(), 2 * std::log2(double(s.size()) + 1)) << "round " << round;
    }
}

// The engine's documented behaviours that a typed container does not show.
TEST(OrderedTree, EngineKeptBehaviours) {
    no_leaks guard;
    probe<zel::multiset<counted>> s{"1", "1", "2", "2", "3", "5"};
    counted const four("4"), nine("9"), one("1");
    // erase(key, false) of an absent key takes the next larger element.
    EXPECT_EQ(s.raw().erase(&four, false), 1u);
    EXPECT_EQ(s.count("5"), 0u);
    EXPECT_EQ(s.raw().erase(&nine, false), 0u);
    EXPECT_EQ(s.raw().count(&one), 2u);
    // Switching equal keys off collapses 1, 1, 2, 2, 3 to 1, 2, 3.
    s.raw().set_duplication(false);
    s.check();
    EXPECT_TRUE(std::equal(s.begin(), s.end(), std::vector<counted>{"1", "2", "3"}.begin()));
    // An equal key with equal keys forbidden: the existing node, no copy.
    counted::copies_until_throw = 0;
    node* const existing = s.raw().insert(&one);
    counted::copies_until_throw = -1;
    EXPECT_EQ(existing, s.find("1").get());
    EXPECT_EQ(s.size(), 3u);
    // Inserting a tree into itself, relinking and copying swaps.
    s.raw().set_duplication(true);
    s.raw().insert(s.raw());
    s.check();
    EXPECT_EQ(s.size(), 6u);
    probe<zel::multiset<counted>> t{"7"};
    s.raw().swap(t.raw(), false);
    s.check();
    t.check();
    EXPECT_EQ(s.size(), 1u);
    EXPECT_EQ(t.size(), 6u);
    t.raw().assign(engine::rbcursor{&t.raw(), t.find("2").get()},
                   engine::rbcursor{&t.raw(), t.find("3").get()});
    t.check();
    EXPECT_EQ(t.size(), 2u);
    // Erasing the only node returns the tree to the empty state; nil's
    // scratch parent is left pointing at the header.
    s.erase(s.begin());
    EXPECT_NO_THROW(s.check());
    EXPECT_EQ(s.begin(), s.end());
    EXPECT_EQ(s.raw().nil()->parent, &s.header_);
}

TEST(OrderedContainers, MapAccessRelationsAndVisits) {
    no_leaks guard;
    zel::map<std::string, counted> m{{"b", "2"}, {"a", "1"}};
    m["c"] = "3";
    EXPECT_EQ(m["a"], counted("1"));
    EXPECT_EQ(m.at("c"), counted("3"));
    EXPECT_THROW(m.at("z"), zel::out_of_range);
    EXPECT_EQ(m.size(), 3u);
    auto r = m.insert({"a", "9"});
    EXPECT_FALSE(r.second);
    EXPECT_EQ(r.first->second, counted("1"));
    std::string keys;
    m.visit([&](std::pair<std::string const, counted>& v) { keys += v.first; });
    EXPECT_EQ(keys, "abc");
    keys.clear();
    m.visit([&](auto const& v) { keys += v.first; }, zel::map<std::string, counted>::post_order);
    EXPECT_EQ(keys, "acb");
    zel::map<std::string, counted> n = m;
    EXPECT_TRUE(n == m);
    n["d"];
    EXPECT_TRUE(m < n && n > m && m != n);
    zel::set<int, zel::greater<int>> down{1, 3, 2};
    EXPECT_EQ(*down.begin(), 3);
    down = {5, 4};
    EXPECT_EQ(*down.rbegin(), 4);
}

TEST(TreeCursor, OrdersOverAThreeNodeTree) {
    probe<zel::set<int>> s{2, 1, 3};
    using tree = zel::tree_engine;
    auto walk = [&](tree::visit_type order) {
        std::vector<int> seen;
        tree::cursor c(s.raw(), order);
        for (; c.node() != s.raw().nil(); c.increment())
            seen.push_back(static_cast<zel::rbtree_value_node<int>*>(c.node())->value);
        expect_container_error([&] { c.increment(); }, "attempt to move forward past end()",
                               "src/treebase.cpp", order == tree::in_order ? 494 : order == tree::pre_order ? 587 : 662);
        return seen;
    };
    EXPECT_EQ(walk(tree::in_order), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(walk(tree::pre_order), (std::vector<int>{2, 1, 3}));
    EXPECT_EQ(walk(tree::post_order), (std::vector<int>{1, 3, 2}));
    tree::cursor back(s.raw(), s.root_node(), tree::in_order);
    back.decrement();
    back.decrement();
    EXPECT_EQ(back.node(), s.raw().nil());
    expect_container_error([&] { back.decrement(); }, "attempt to move backward past begin()",
                           "src/treebase.cpp", 543);
    // A cursor on an empty tree stays where its constructor left it.
    probe<zel::set<int>> empty;
    tree::cursor c(empty.raw(), tree::post_order);
    EXPECT_EQ(c.node(), nullptr);
    c.increment();
    EXPECT_EQ(c.node(), nullptr);
}

TEST(OrderedContainers, IteratorMisuse) {
    zel::set<int> a{1, 2}, b{3};
    char const* const file = "src/rbtreebase.cpp";
    expect_container_error([&] { a.erase(a.end()); }, "iterator points to end()", file);
    expect_container_error([&] { a.erase(b.begin()); }, "mis-matched iterator(s)", file);
    expect_container_error([&] { a.erase(a.begin(), b.end()); }, "mis-matched iterator(s)", file);
    expect_container_error([&] { a.insert(b.begin(), 5); }, "mis-matched iterator(s)", file);
    expect_container_error([&] { auto e = a.end(); ++e; }, "attempt to move forward past end()",
                           "src/treebase.cpp", 494);
    zel::set<int> none;
    expect_container_error([&] { auto e = none.end(); --e; },
                           "attempt to move backward past begin()", "src/treebase.cpp", 543);
    EXPECT_EQ(*--a.end(), 2);
    EXPECT_EQ(a.size(), 2u);
}

// Each broken invariant, its text and line; the tree is mended after each.
TEST(OrderedContainers, CheckTexts) {
    probe<zel::set<int>> s{2, 1, 3};   // 2 black, 1 and 3 red
    char const* const file = "src/rbtreebase.cpp";
    node* const r = s.root_node();
    node* const leaf = static_cast<node*>(r->left);
    ASSERT_TRUE(r->is_black() && leaf->is_red());
    auto const fault = [&](auto& field, auto bad, char const* text, int line) {
        zel_test::expect_check_fault(s, field, bad, text, file, line);
    };
    fault(s.nil_pointer->color, engine::red, "invalid nil node link color", 1251);
    fault(leaf->color, engine::black, "invalid black link count", 1292);
    fault(r->color, engine::red, "invalid link colors, 2 reds in a row", 1302);
    fault(s.count_, 4u, "invalid element count", 1311);
    fault(s.count_, 0u, "invalid pointer", 1315);
    s.check();
}

// Two trees in two threads: removals write the shared nil node's scratch
// parent link at once (the thread sanitizer watches).
TEST(OrderedContainers, TwoThreadsEachWithItsOwnTree) {
    auto work = [](unsigned seed) {
        std::mt19937 rng(seed);
        zel::set<int> s;
        for (int i = 0; i < 20000; ++i) {
            int const k = int(rng() % 2000);
            if (rng() % 2)
                s.insert(k);
            else
                s.erase(k);
        }
        s.check();
    };
    std::thread a(work, 1u), b(work, 2u);
    a.join();
    b.join();
}

} // namespace
