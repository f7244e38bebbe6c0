// The list engine and list<T>: a seeded run beside std::list with check()
// after every step, the position cache, the sort's run order, relinking
// and copying forms of splice, merge and swap, failures that must leave
// the list whole, cursor misuse and the check texts.
#include <zel/list.h>

#include <algorithm>
#include <iterator>
#include <list>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/counted.h"
#include "support/model.h"

namespace {

using zel_test::counted;
using zel_test::expect_container_error;
using zel_test::no_leaks;
using engine = zel::list_engine;

template <class T>
struct probe : zel::list<T> {
    using zel::list<T>::list;
    using engine::cache_index_;
    using engine::cache_node_;
    using engine::count_;
    using engine::distance;
    using engine::pos;
    using engine::sentinel_;
    using engine::zpos;
    engine& raw() { return *this; }
    engine::list_node* sentinel() const { return engine::sentinel(); }
};

template <class T>
std::list<T> to_std(zel::list<T> const& l) {
    return std::list<T>(l.begin(), l.end());
}

template <class T>
typename zel::list<T>::iterator at(zel::list<T>& l, unsigned i) {
    return std::next(l.begin(), i);
}

// f raises out_of_range through the throw path from the given line.
template <class F>
void raises(F f, int line) {
    zel_test::expect_raised(f, "out_of_range", zel_test::any, "src/listbase.cpp", line);
}

template <class T, class Make>
void run_beside_std(unsigned seed, int steps, Make make) {
    zel_test::model_run run(seed);
    zel::less<T> const order;
    zel::equal_to<T> const equal;
    probe<T> l;
    std::list<T> twin;
    auto x = [&] { return make(run.rng()()); };
    auto tw = [&](unsigned i) { return std::next(twin.begin(), i); };
    // Every step draws a range [a, b) of k elements and whether to relink;
    // `by_index` picks the engine's index form over the cursor form.
    unsigned n = 0, a = 0, k = 0, b = 0;
    bool relink = false, by_index = false;
    auto filled = [&](probe<T>& o, unsigned most) {
        for (unsigned i = run.pick(most); i; --i) o.push_back(x());
        return to_std(o);
    };
    zel_test::sequence_ops(run, l, twin, x);
    run.op("push_front", 1, [&] {
           T e = x();
           l.push_front(e);
           twin.push_front(e);
       })
        .op("insert copies", 1, [&] {
            unsigned m = run.pick(4);
            T e = x();
            if (by_index) {
                l.raw().insert(a, &e, m);
            } else {   // the list form answers its first element
                auto const first = l.insert(at(l, a), {e, e});   // before begin() is read
                ASSERT_EQ(unsigned(std::distance(l.begin(), first)), a);
                m = 2;
            }
            twin.insert(tw(a), m, e);
        })
        .op("insert a range of our own", 1, [&] {
            std::list<T> src(tw(a), tw(b));
            unsigned to = run.pick(n + 1);
            if (by_index) l.raw().insert(to, l.raw(), a, k);
            else l.raw().insert(at(l, to).cursor(), at(l, a).cursor(), at(l, b).cursor());
            twin.insert(tw(to), src.begin(), src.end());
        })
        .op("erase a range by index", 1, [&] {
            l.raw().erase(a, k);
            twin.erase(tw(a), tw(b));
        })
        .op("erase one", 1, [&] {
            if (n == 0) return;
            unsigned i = run.pick(n);
            l.erase(at(l, i));
            twin.erase(tw(i));
        })
        .op("pop k", 1, [&] {
            if (by_index) { l.raw().pop_back(k); for (unsigned i = 0; i < k; ++i) twin.pop_back(); }
            else { l.raw().pop_front(k); for (unsigned i = 0; i < k; ++i) twin.pop_front(); }
        })
        .op("keep a range of our own", 1, [&] {
            if (by_index) l.raw().assign(l.raw(), a, k);
            else l.raw().assign(at(l, a).cursor(), at(l, b).cursor());
            twin = std::list<T>(tw(a), tw(b));
        })
        .op("remove all, first, last or (other flags) none", 1, [&] {
            T e = n ? *tw(run.pick(n)) : x();
            auto flags = zel::list_engine::lsv_flags(run.pick(4));
            if (by_index) l.raw().remove(&e, equal, flags);
            else l.remove(e, flags);
            if (flags == engine::lsv_all) {
                twin.remove(e);
            } else if (flags == engine::lsv_first) {
                auto it = std::find(twin.begin(), twin.end(), e);
                if (it != twin.end()) twin.erase(it);
            } else if (flags == engine::lsv_last) {
                auto it = std::find(twin.rbegin(), twin.rend(), e);
                if (it != twin.rend()) twin.erase(std::prev(it.base()));
            }
        })
        .op("unique", 1, [&] {
            auto not_above = [](T const& first, T const& e) { return !(first < e); };   // asymmetric
            if (relink) { l.unique(); twin.unique(); }
            else { l.unique(not_above); twin.unique(not_above); }
        })
        .op("merge a sorted list into the sorted list", 1, [&] {
            probe<T> other;
            filled(other, 20);
            other.sort();
            l.sort();
            twin.sort();
            std::list<T> t2 = to_std(other);
            if (by_index && relink) l.merge(other);
            else l.raw().merge(other.raw(), relink, zel::order_comparator<T, zel::less<T>>(order));
            twin.merge(t2);
            ASSERT_TRUE(other.empty());
            other.check();
        })
        .op("splice from another list", 1, [&] {
            probe<T> other;
            std::list<T> t2 = filled(other, 8);
            unsigned f = run.pick(unsigned(t2.size()) + 1), m = run.pick(unsigned(t2.size()) - f + 1);
            auto tf = std::next(t2.begin(), f), tl = std::next(tf, m);
            if (by_index) l.raw().splice(a, other.raw(), relink, f, m);
            else if (!relink) l.raw().splice(at(l, a).cursor(), other.raw(), relink, at(other, f).cursor(),
                                             at(other, f + m).cursor());
            else if (m == 1) l.splice(at(l, a), other, at(other, f));
            else if (m == t2.size()) l.splice(at(l, a), other);
            else l.splice(at(l, a), other, at(other, f), at(other, f + m));
            twin.splice(tw(a), t2, tf, tl);
            other.check();
            ASSERT_EQ(to_std(other), t2);
        })
        .op("splice within the list", 1, [&] {
            unsigned to = run.pick(n + 1);
            if (by_index) {   // the index forms leave the list as it is
                l.raw().splice(to, l.raw(), relink);
                l.raw().splice(to, l.raw(), relink, a, k);
                return;
            }
            l.raw().splice(at(l, to).cursor(), l.raw(), relink, at(l, a).cursor(), at(l, b).cursor());
            if (to < a || to >= b)   // a position inside the range leaves it too
                twin.splice(tw(to), twin, tw(a), tw(b));
        })
        .op("swap there and back", 1, [&] {
            probe<T> other;
            std::list<T> t2 = filled(other, 2 * n + 2);
            l.raw().swap(other.raw(), relink);
            other.check();
            l.check();
            ASSERT_EQ(to_std(l), t2);
            ASSERT_EQ(to_std(other), twin);
            l.raw().swap(other.raw(), !relink);
        })
        .op("visit and remove_if", 1, [&] {
            T const v = x();
            std::string seen, expected;
            std::as_const(l).visit([&](T const& e) { seen += ::testing::PrintToString(e); }, a, k);
            for (auto it = tw(a); it != tw(b); ++it) expected += ::testing::PrintToString(*it);
            ASSERT_EQ(seen, expected);
            l.visit([&](T& e) { e = v; }, a, k);
            std::fill(tw(a), tw(b), v);
            ASSERT_THROW(l.visit([](T&) {}, n + 1), zel::out_of_range);   // thrown directly
            l.remove_if([&](T const& e) { return e < v; });
            twin.remove_if([&](T const& e) { return e < v; });
        })
        .op("checked access", 1, [&] {
            raises([&] { l.at(n); }, 393);
            if (n == 0) {
                raises([&] { l.front(); }, 376);
                raises([&] { l.back(); }, 360);
            } else {
                ASSERT_EQ(l.front(), twin.front());
                ASSERT_EQ(l.back(), twin.back());
                ASSERT_EQ(l.at(a % n), *tw(a % n));
            }
        })
        .op("reads by index through the cache", 1, [&] {
            for (unsigned r = 0; r < 4 && n != 0; ++r) {
                unsigned i = run.pick(n);
                ASSERT_EQ(l[i], *tw(i));
                ASSERT_EQ(l.cache_index_, i);
            }
        });
    run.go(steps, [&] {
        ASSERT_NO_THROW(l.check());
        zel_test::expect_same_sequence(l, twin);
        n = unsigned(twin.size());   // the next step's draws
        a = run.pick(n + 1), k = run.pick(n - a + 1), b = a + k;
        relink = run.chance(50), by_index = run.chance(50);
    });
}

TEST(List, RunsBesideStdList) {
    run_beside_std<int>(7, 4000, [](unsigned r) { return int(r % 50); });
    no_leaks guard;
    run_beside_std<counted>(11, 2000, [](unsigned r) { return counted(std::to_string(r % 40)); });
}

TEST(ListEngine, ThePositionCache) {
    probe<int> l{10, 11, 12, 13, 14};
    l.check();
    EXPECT_EQ(l.cache_index_, engine::all);
    EXPECT_EQ(l.cache_node_, l.sentinel());
    EXPECT_EQ(l.pos(2), std::next(l.begin(), 2).get());
    EXPECT_EQ(l.cache_index_, 2u);
    l.check();
    for (unsigned i = 0; i < 5; ++i) {
        EXPECT_EQ(l[i], int(10 + i));
        EXPECT_EQ(l.cache_index_, i);
    }
    l.pos(0);
    EXPECT_EQ(l.pos(4), l.sentinel_.prev);   // straight to the tail
    EXPECT_EQ(l.pos(1), l.sentinel_.next->next);
    l.check();
    EXPECT_EQ(l.zpos(5), l.sentinel());
    raises([&] { l.pos(5); }, 0);
    EXPECT_EQ(l.distance(l.pos(1), l.pos(3)), 2);
    EXPECT_EQ(l.distance(l.pos(1), l.sentinel()), 4);
    // Back through the sentinel: 4 steps, less 1 and the count.
    EXPECT_EQ(l.distance(l.pos(3), l.pos(1)), -2);
    EXPECT_EQ(l.distance(l.sentinel(), l.pos(2)), -3);
    l.push_back(15);   // linking drops the cache
    EXPECT_EQ(l.cache_index_, engine::all);
    l.check();
    EXPECT_THROW(l.raw().erase(7, 1), zel::out_of_range);
    EXPECT_THROW(l.raw().insert(7, &l.front(), 1), zel::out_of_range);
}

TEST(ListEngine, ConcurrentReadersByIndexShareTheCache) {
    probe<int> l;
    for (int i = 0; i < 2000; ++i) l.push_back(i);
    auto reader = [&](bool up) {
        for (int round = 0; round < 5; ++round)
            for (int i = 0; i < 2000; ++i) {
                unsigned const k = up ? unsigned(i) : unsigned(1999 - i);
                if (l[k] != int(k)) ADD_FAILURE() << k;
            }
    };
    std::thread a(reader, true), b(reader, false);
    a.join();
    b.join();
    l.check();
}

// The runs are merged back from the latest to the earliest, and the list
// being filled keeps its nodes ahead of equal ones: equal elements of the
// last run end up in front of those of the earlier runs.
TEST(ListEngine, SortMergesTheRunsFromTheLatest) {
    using item = std::pair<int, int>;
    auto by_key = [](item const& a, item const& b) { return a.first < b.first; };
    zel::list<item> l;
    for (int i = 0; i < 5; ++i) l.push_back({0, i});
    l.sort(by_key);
    std::vector<int> order;
    for (auto const& x : l) order.push_back(x.second);
    EXPECT_EQ(order, (std::vector<int>{4, 0, 1, 2, 3}));

    std::mt19937 rng(3);
    zel::list<item> big;
    for (int i = 0; i < 3001; ++i) big.push_back({int(rng() % 100), i});
    big.sort(by_key);
    EXPECT_TRUE(std::is_sorted(big.begin(), big.end(), by_key));
    EXPECT_EQ(big.size(), 3001u);
    big.check();
}

TEST(ListEngine, FailingCopiesLeaveTheListWhole) {
    using zel_test::throws_on_copy;
    no_leaks guard;
    probe<counted> l{"a", "b", "c"};
    zel::list<counted> const more{"x", "y", "z"}, was{"a", "b", "c"};
    for (int fail_at = 0; fail_at < 3; ++fail_at) {
        EXPECT_TRUE(throws_on_copy(fail_at, [&] { l.insert(std::next(l.begin()), more.begin(), more.end()); }));
        EXPECT_EQ(l, was);
        EXPECT_TRUE(throws_on_copy(fail_at, [&] { static_cast<zel::list<counted>&>(l) = more; }));
        EXPECT_EQ(l, was);
        EXPECT_TRUE(throws_on_copy(fail_at, [&] { zel::list<counted> copy(more); }));
        EXPECT_TRUE(throws_on_copy(
            fail_at, [&] { l.raw().insert(l.begin().cursor(), more.begin().cursor(), more.end().cursor()); }));
        EXPECT_TRUE(throws_on_copy(fail_at, [&] { l.raw().assign(more.begin().cursor(), more.end().cursor()); }));
        EXPECT_EQ(l, was);
        l.check();
    }
    // New values are linked one by one: those made before a failure stay.
    EXPECT_TRUE(throws_on_copy(2, [&] { l.insert(l.end(), 5, counted("n")); }));
    EXPECT_EQ(l, (zel::list<counted>{"a", "b", "c", "n", "n"}));
    l.check();
}

TEST(ListEngine, AThrowingComparatorLosesNoNode) {
    no_leaks guard;
    std::mt19937 rng(9);
    for (int limit : {0, 5, 40, 300}) {
        zel::list<counted> l;
        for (int i = 0; i < 100; ++i) l.push_back(std::to_string(rng() % 1000));
        std::list<counted> before = to_std(l);
        int calls = 0;
        EXPECT_THROW(l.sort([&](counted const& a, counted const& b) {
            if (++calls > limit) throw 1;
            return a < b;
        }), int);
        l.check();
        std::list<counted> after = to_std(l);
        before.sort();
        after.sort();
        EXPECT_EQ(after, before);
    }
}

TEST(ListEngine, CursorMisuse) {
    char const* const file = "src/listbase.cpp";
    zel::list<int> l{1, 2, 3}, other{4};
    // Each check reports the line of the operation that asked for it.
    expect_container_error([&] { l.erase(other.begin()); }, "mis-matched iterator(s)", file, 633);
    expect_container_error([&] { l.erase(l.end()); }, "iterator points to end()", file, 633);
    expect_container_error([&] { l.erase(l.begin(), other.end()); }, "mis-matched iterator(s)", file,
                           649);
    expect_container_error([&] { l.insert(other.begin(), 7); }, "mis-matched iterator(s)", file, 719);
    expect_container_error([&] { l.insert(zel::list<int>::iterator(), 7); },
                           "mis-matched iterator(s)", file, 719);
    // The engine's cursor forms of insert and assign (the typed layer takes
    // any iterator range there).
    probe<int> p{1, 2}, q{3};
    expect_container_error(
        [&] { p.raw().insert(p.begin().cursor(), q.begin().cursor(), p.end().cursor()); },
        "mis-matched iterator(s)", file, 736);
    expect_container_error(
        [&] { p.raw().insert(q.end().cursor(), p.begin().cursor(), p.end().cursor()); },
        "mis-matched iterator(s)", file, 735);
    expect_container_error([&] { p.raw().assign(p.begin().cursor(), q.end().cursor()); },
                           "mis-matched iterator(s)", file, 588);
    expect_container_error([&] { l.splice(other.begin(), other); }, "mis-matched iterator(s)", file,
                           1002);
    expect_container_error([&] { l.splice(other.end(), other, other.begin(), other.end()); },
                           "mis-matched iterator(s)", file, 1024);
    expect_container_error([&] { l.splice(l.begin(), other, l.begin(), l.end()); },
                           "mis-matched iterator(s)", file, 1025);
    expect_container_error([&] { l.splice(l.begin(), other, l.begin()); },
                           "mis-matched iterator(s)", file, 1025);
    EXPECT_EQ(l, (zel::list<int>{1, 2, 3}));
    EXPECT_EQ(other, zel::list<int>{4});
    l.check();
    other.check();
}

TEST(ListEngine, CheckTexts) {
    char const* const file = "src/listbase.cpp";
    auto const fault = [&](auto const& l, auto& field, auto bad, char const* text, int line) {
        zel_test::expect_check_fault(l, field, bad, text, file, line);
    };
    probe<int> l{1, 2, 3};
    fault(l, l.count_, 4u, "invalid element count", 295);
    fault(l, l.sentinel_.next->prev, l.sentinel_.prev, "bad connection to sentinel", 286);
    fault(l, l.sentinel_.prev->next, l.sentinel_.next, "bad connection to sentinel", 287);
    l.pos(1);
    fault(l, l.cache_node_, l.sentinel_.next, "corrupt cache pointer", 307);
    fault(l, l.cache_index_, engine::all, "corrupt cache pointer", 311);
    // A cache index must lie below the count: one naming the end (the
    // sentinel, which a walk of count steps reaches) is corrupt too.
    l.cache_node_ = l.sentinel();
    fault(l, l.cache_index_, 3u, "corrupt cache pointer", 307);
    l.cache_index_ = engine::all;
    l.check();

    probe<int> e;
    e.check();
    // A head that is null and a tail that links back: only the sentinel
    // itself tells.
    engine::list_node stray{e.sentinel(), e.sentinel()};
    e.sentinel_.prev = &stray;
    fault(e, e.sentinel_.next, nullptr, "invalid sentinel node", 316);
    expect_container_error([&] { e.check(); }, "invalid sentinel node", file, 317);
    e.sentinel_.prev = e.sentinel();
}

} // namespace
