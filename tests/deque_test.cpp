// The deque engine and deque<T>: a seeded run beside std::deque with check()
// after every step, the map's growth, re-centring and shrinking, rollback of
// a failing copy, reserve, and the check texts.
#include <zel/deque.h>

#include <deque>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/counted.h"

namespace {

using zel_test::counted;
using zel_test::expect_container_error;
using zel_test::no_leaks;

template <class T>
struct probe : zel::deque<T> {
    using engine = zel::deque_engine;
    using zel::deque<T>::deque;
    using engine::capacity_;
    using engine::data_;
    using engine::map_;
    using engine::size_;
    engine& raw() { return *this; }
    unsigned front_room() const { return unsigned(data_ - map_); }
};

template <class T, class Make>
void run_beside_std(unsigned seed, int steps, Make make) {
    std::mt19937 rng(seed);
    auto pick = [&](unsigned n) { return n == 0 ? 0u : unsigned(rng() % n); };
    probe<T> d;
    std::deque<T> model;
    for (int step = 0; step < steps; ++step) {
        unsigned const n = unsigned(model.size());
        switch (pick(11)) {
        case 0: case 1: {
            // Bursts, so the map fills, grows, re-centres and shrinks.
            for (unsigned k = pick(3) == 0 ? pick(3000) : 1; k; --k) {
                T x = make(rng());
                d.push_back(x);
                model.push_back(x);
            }
            break;
        }
        case 2: case 3: {
            unsigned k = pick(3) == 0 ? pick(3000) : 1;
            T x = make(rng());
            d.raw().push_front(&x, k);
            model.insert(model.begin(), k, x);
            break;
        }
        case 4: {
            unsigned k = pick(n + 1);
            if (pick(2)) { d.raw().pop_back(k); model.erase(model.end() - k, model.end()); }
            else { d.raw().pop_front(k); model.erase(model.begin(), model.begin() + k); }
            break;
        }
        case 5: {
            unsigned at = pick(n + 1), k = pick(6);
            T x = make(rng());
            d.insert(d.begin() + at, k, x);
            model.insert(model.begin() + at, k, x);
            break;
        }
        case 6: {   // our own range into ourselves
            unsigned a = pick(n + 1), k = pick(n - a + 1), at = pick(n + 1);
            std::deque<T> src(model.begin() + a, model.begin() + a + k);
            d.raw().insert(at, d.raw(), a, k);
            model.insert(model.begin() + at, src.begin(), src.end());
            break;
        }
        case 7: {
            unsigned a = pick(n + 1), b = a + pick(n - a + 1);
            d.erase(d.begin() + a, d.begin() + b);
            model.erase(model.begin() + a, model.begin() + b);
            break;
        }
        case 8:
            if (pick(2)) { d.sort(); std::stable_sort(model.begin(), model.end()); }
            else { d.reverse(); std::reverse(model.begin(), model.end()); }
            break;
        case 9: {
            probe<T> other;
            other.push_back(make(rng()));
            d.raw().swap(other.raw(), false);
            d.raw().swap(other.raw(), false);
            ASSERT_EQ(other.size(), 1u);
            unsigned k = pick(2 * n + 2);
            T x = make(rng());
            d.resize(k, x);
            model.resize(k, x);
            break;
        }
        case 10: {
            unsigned a = pick(n + 1), k = pick(n - a + 1);
            d.raw().assign(d.raw(), a, k);
            model = std::deque<T>(model.begin() + a, model.begin() + a + k);
            break;
        }
        }
        ASSERT_NO_THROW(d.check()) << "step " << step;
        ASSERT_EQ(d.size(), model.size()) << "step " << step;
        ASSERT_TRUE(std::equal(d.begin(), d.end(), model.begin())) << "step " << step;
        if (d.map_) {
            ASSERT_EQ(d.capacity() % 4096, 0u);
        }
    }
}

TEST(Deque, RunsBesideStdDequeWithInts) {
    run_beside_std<int>(3, 3000, [](unsigned r) { return int(r % 1000); });
}

TEST(Deque, RunsBesideStdDequeWithCountedStrings) {
    no_leaks guard;
    run_beside_std<counted>(5, 1500, [](unsigned r) { return counted(std::to_string(r % 300)); });
}

TEST(Deque, TypedInterface) {
    no_leaks guard;
    zel::deque<counted> d{"b", "c"};
    d.push_front("a");
    d.push_back("d");
    EXPECT_EQ(d, (zel::deque<counted>{"a", "b", "c", "d"}));
    zel::deque<counted> e(d);
    e.insert(e.begin() + 2, {"x", "y"});
    e.sort([](counted const& a, counted const& b) { return b < a; });
    EXPECT_EQ(e, (zel::deque<counted>{"y", "x", "d", "c", "b", "a"}));
    EXPECT_TRUE(d < e);
    e.assign(e.begin() + 1, e.begin() + 3);
    EXPECT_EQ(e, (zel::deque<counted>{"x", "d"}));
    zel::deque<counted> moved(std::move(e));
    EXPECT_TRUE(e.empty());
    EXPECT_EQ(moved.back().value(), "d");
    EXPECT_THROW(moved.at(2), zel::out_of_range);
    std::string joined;
    for (counted const& c : d) joined += c.value();
    EXPECT_EQ(joined, "abcd");
    expect_container_error([&] { d.erase(moved.begin()); }, "mis-matched iterator(s)",
                           "src/dequebase.cpp");
    expect_container_error([&] { d.erase(d.end()); }, "iterator points to end()",
                           "src/dequebase.cpp");
}

TEST(Deque, SortIsStable) {
    zel::deque<std::pair<int, int>> d;
    for (int i = 0; i < 200; ++i) d.push_back({i % 7, i});
    d.sort([](auto const& a, auto const& b) { return a.first < b.first; });
    for (unsigned i = 1; i < d.size(); ++i)
        ASSERT_TRUE(d[i - 1].first < d[i].first ||
                    (d[i - 1].first == d[i].first && d[i - 1].second < d[i].second));
}

TEST(DequeEngine, TheFirstPushBuildsACentredMap) {
    probe<int> d;
    d.push_back(1);
    ASSERT_NE(d.map_, nullptr);
    EXPECT_EQ(d.capacity(), 4096u);
    EXPECT_EQ(d.front_room(), (4096u - 1) / 2);
    EXPECT_EQ(d.data_[-1], nullptr);
    EXPECT_EQ(d.data_[1], nullptr);
    EXPECT_EQ(zel::deque_engine::get_capacity(0), 4096u);
    EXPECT_EQ(zel::deque_engine::get_capacity(4095), 4096u);
    EXPECT_EQ(zel::deque_engine::get_capacity(4096), 8192u);
}

TEST(DequeEngine, GrowsOneStepOnlyWhenMoreThanHalfFull) {
    probe<int> d;
    unsigned recentred = 0;
    for (int i = 0; i < 5000; ++i) {
        unsigned const capacity = d.capacity();
        int** const data = reinterpret_cast<int**>(d.data_);
        d.push_back(i);
        if (capacity != 0 && d.capacity() != capacity) {
            EXPECT_EQ(d.capacity(), capacity + 4096);
            EXPECT_GT(d.size(), capacity / 2);
        } else if (capacity != 0 && reinterpret_cast<int**>(d.data_) != data) {
            ++recentred;   // re-placed at a quarter of the same map
            EXPECT_EQ(d.front_room(), d.capacity() / 4);
        }
    }
    EXPECT_EQ(recentred, 1u);
    d.check();
}

TEST(DequeEngine, PoppingKeepsTheMapAndErasingShrinksIt) {
    probe<int> d;
    for (int i = 0; i < 20000; ++i) d.push_back(i);
    unsigned const capacity = d.capacity();
    d.raw().pop_back(5);
    d.raw().pop_front(5);
    d.raw().pop_back(100000);
    EXPECT_EQ(d.size(), 0u);
    EXPECT_EQ(d.capacity(), capacity);
    d.check();

    for (int i = 0; i < 20000; ++i) d.push_back(i);
    d.erase(d.begin() + 10, d.end() - 10);
    EXPECT_EQ(d.capacity(), 4096u);
    EXPECT_EQ(d[10], 19990);
    d.check();
}

// The engine's clear closes the gap as erase does; the typed clear gives
// everything back.
TEST(DequeEngine, ClearKeepsACentredMap) {
    no_leaks guard;
    for (int n : {1, 100, 20000}) {
        probe<counted> d;
        for (int i = 0; i < n; ++i) d.push_back(counted(std::to_string(i)));
        d.raw().clear();
        EXPECT_EQ(counted::live, 0) << n;
        ASSERT_NE(d.map_, nullptr) << n;
        EXPECT_EQ(d.size(), 0u);
        EXPECT_EQ(d.capacity(), 4096u) << n;
        EXPECT_EQ(d.front_room(), 2048u) << n;
        d.check();
        d.raw().clear();  // no elements: the stretch is re-centred in place
        EXPECT_EQ(d.capacity(), 4096u);
        d.push_front(counted("x"));
        d.check();
        d.clear();
        EXPECT_EQ(d.map_, nullptr);
        EXPECT_EQ(d.capacity(), 0u);
    }
}

TEST(DequeEngine, ReserveOpensRoomAtEitherEnd) {
    probe<int> d;
    d.reserve(10000, zel::deque_engine::rsv_both);
    EXPECT_EQ(d.size(), 0u);
    // 5000 slots opened at the front build an 8192-slot map; 5000 more at
    // the back no longer fit behind the stretch, so the map grows a step.
    EXPECT_EQ(d.capacity(), 12288u);
    d.check();
    probe<int> e{1, 2, 3};
    e.reserve(9000, zel::deque_engine::rsv_front);
    EXPECT_GT(e.front_room(), 4900u);
    EXPECT_EQ(e, (zel::deque<int>{1, 2, 3}));
    e.check();
}

TEST(DequeEngine, FailingCopyInAnInsertChangesNothing) {
    no_leaks guard;
    zel::deque<counted> d{"a", "b", "c", "d", "e"};
    zel::deque<counted> const more{"x", "y", "z"};
    for (int fail_at = 0; fail_at < 3; ++fail_at) {
        for (unsigned at : {0u, 2u, 5u}) {
            counted::copies_until_throw = fail_at;
            EXPECT_THROW(d.insert(d.begin() + at, more.begin(), more.end()), std::runtime_error);
            EXPECT_EQ(d, (zel::deque<counted>{"a", "b", "c", "d", "e"}));
            d.check();
        }
    }
    // A throwing comparator leaves the order as it was.
    zel::deque<int> n{3, 1, 2};
    EXPECT_THROW(n.sort([](int, int) -> bool { throw 1; }), int);
    EXPECT_EQ(n, (zel::deque<int>{3, 1, 2}));
}

TEST(DequeEngine, CheckTexts) {
    char const* const file = "src/dequebase.cpp";
    probe<int> d{1, 2, 3};
    void* const saved = d.data_[3];
    d.data_[3] = &d;
    expect_container_error([&] { d.check(); }, "invalid map termination - back", file, 201);
    d.data_[3] = saved;
    d.data_[-1] = &d;
    expect_container_error([&] { d.check(); }, "invalid map termination - front", file, 200);
    d.data_[-1] = nullptr;
    void* const first = d.data_[1];
    d.data_[1] = nullptr;
    expect_container_error([&] { d.check(); }, "null data pointer in map", file, 208);
    d.data_[1] = first;
    d.size_ = 5000;
    expect_container_error([&] { d.check(); }, "invalid size", file, 197);
    d.size_ = 3;
    void** const data = d.data_;
    d.data_ = d.map_;
    expect_container_error([&] { d.check(); }, "invalid pointer to data", file, 198);
    d.data_ = data;
    d.check();

    // The map's own capacity field, then the three fields of a deque
    // without a map.
    unsigned const capacity = d.capacity_;
    d.capacity_ = 0;
    expect_container_error([&] { d.check(); }, "invalid capacity", file, 196);
    d.capacity_ = capacity;

    probe<int> e;
    e.capacity_ = 4;
    expect_container_error([&] { e.check(); }, "invalid capacity", file, 213);
    e.capacity_ = 0;
    e.size_ = 1;
    expect_container_error([&] { e.check(); }, "invalid size", file, 214);
    e.size_ = 0;
    e.data_ = reinterpret_cast<void**>(&e);
    expect_container_error([&] { e.check(); }, "invalid pointer to data", file, 215);
    e.data_ = nullptr;
    e.check();
}

} // namespace

namespace {

// A 12-byte element fills a chunk rounded up to the pool's unit: writing
// one element never touches its neighbours.
TEST(Deque, TwelveByteElementsKeepTheirOwnChunks) {
    struct twelve {
        std::uint32_t a, b, c;
    };
    static_assert(sizeof(twelve) == 12, "a 12-byte element");
    zel::deque<twelve> d;
    for (std::uint32_t i = 0; i < 2000; ++i)
        i % 2 ? d.push_back({i, ~i, i * 7}) : d.push_front({i, ~i, i * 7});
    for (auto const& x : d)
        ASSERT_TRUE(x.b == ~x.a && x.c == x.a * 7) << x.a;
}

// The typed push_front writes the front terminator anew: slots left behind
// by an erasure at the front hold stale pointers.
TEST(Deque, TypedPushFrontAfterFrontErasuresKeepsTheMapTerminated) {
    zel::deque<int> d;
    for (int i = 0; i < 10; ++i)
        d.push_back(i);
    d.erase(d.begin(), d.begin() + 5);
    d.check();
    for (int i = 0; i < 3; ++i) {
        d.push_front(-i);
        d.check();
    }
    EXPECT_EQ(d.size(), 8u);
    EXPECT_EQ(d.front(), -2);
}

} // namespace
