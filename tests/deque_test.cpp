// The deque engine and deque<T>: a seeded run beside std::deque with check()
// after every step, the map's growth, re-centring and shrinking, rollback of
// a failing copy, reserve, the check texts, and memory given back.
#include <zel/deque.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <string>

#include <gtest/gtest.h>

#include "support/allocation_hook.h"
#include "support/counted.h"
#include "support/model.h"

namespace {

using zel_test::counted;
using zel_test::expect_container_error;
using zel_test::live_blocks;
using zel_test::no_leaks;

// Twelve bytes with four-byte alignment: the pool rounds its chunks up to
// hold a free-list link.
struct twelve {
    std::int32_t a, b, c;
    friend bool operator==(twelve const& x, twelve const& y) {
        return x.a == y.a && x.b == y.b && x.c == y.c;
    }
    friend bool operator<(twelve const& x, twelve const& y) { return x.a < y.a; }
};
static_assert(sizeof(twelve) == 12, "a twelve-byte element");

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
    zel_test::model_run run(seed);
    probe<T> d;
    std::deque<T> twin;
    auto x = [&] { return make(run.rng()()); };
    // A range [a, a + k), a position and whether to take the typed form,
    // drawn before every step.
    unsigned n = 0, a = 0, k = 0, at = 0;
    bool typed = false;
    auto burst = [&] { return run.chance(33) ? run.pick(3000) : 1u; };  // so the map fills, grows, re-centres, shrinks
    zel_test::sequence_ops(run, d, twin, x);
    run.op("push back", 2, [&] {
           for (unsigned i = burst(); i; --i) {
               T e = x();
               d.push_back(e);
               twin.push_back(e);
           }
       })
        .op("push front", 2, [&] {
            unsigned const m = typed ? 1 : burst();
            T e = x();
            if (typed) d.push_front(e);
            else d.raw().push_front(&e, m);
            twin.insert(twin.begin(), m, e);
        })
        .op("pop", 1, [&] {
            if (typed) { d.raw().pop_back(k); twin.erase(twin.end() - k, twin.end()); }
            else { d.raw().pop_front(k); twin.erase(twin.begin(), twin.begin() + k); }
        })
        .op("insert a list of two", 1, [&] {
            T e = x();
            d.insert(d.begin() + at, {e, e});
            twin.insert(twin.begin() + at, 2, e);
        })
        .op("insert a range of our own", 1, [&] {
            std::deque<T> src(twin.begin() + a, twin.begin() + a + k);
            d.raw().insert(at, d.raw(), a, k);
            twin.insert(twin.begin() + at, src.begin(), src.end());
        })
        .op("swap there and back", 1, [&] {
            probe<T> other;
            other.push_back(x());
            d.raw().swap(other.raw(), false);
            d.raw().swap(other.raw(), false);
            ASSERT_EQ(other.size(), 1u);
        })
        .op("keep a range of our own", 1, [&] {
            d.raw().assign(d.raw(), a, k);
            twin = std::deque<T>(twin.begin() + a, twin.begin() + a + k);
        })
        .op("iterator misuse", 1, [&] {
            char const* const file = "src/dequebase.cpp";
            probe<T> other;
            expect_container_error([&] { d.erase(other.begin()); }, "mis-matched iterator(s)", file);
            expect_container_error([&] { d.erase(d.end()); }, "iterator points to end()", file);
        });
    run.go(steps, [&] {
        ASSERT_NO_THROW(d.check());
        zel_test::expect_same_sequence(d, twin);
        if (d.map_) {
            ASSERT_EQ(d.capacity() % 4096, 0u);
        }
        n = unsigned(twin.size());
        a = run.pick(n + 1), k = run.pick(n - a + 1), at = run.pick(n + 1);
        typed = run.chance(50);
    });
}

TEST(Deque, RunsBesideStdDeque) {
    run_beside_std<int>(3, 3000, [](unsigned r) { return int(r % 1000); });
    run_beside_std<twelve>(7, 1500, [](unsigned r) {
        return twelve{int(r % 500), int(r), -int(r)};
    });
    no_leaks guard;
    run_beside_std<counted>(5, 1500, [](unsigned r) { return counted(std::to_string(r % 300)); });
}

TEST(DequeEngine, TheFirstPushBuildsACentredMapThatGrowsByOneStep) {
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

    // It grows one step only when more than half full.
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
            EXPECT_TRUE(zel_test::throws_on_copy(fail_at, [&] { d.insert(d.begin() + at, more.begin(), more.end()); }));
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
    auto const fault = [&](auto const& d, auto& field, auto bad, char const* text, int line) {
        zel_test::expect_check_fault(d, field, bad, text, file, line);
    };
    probe<int> d{1, 2, 3};
    fault(d, d.data_[3], static_cast<void*>(&d), "invalid map termination - back", 201);
    fault(d, d.data_[-1], static_cast<void*>(&d), "invalid map termination - front", 200);
    fault(d, d.data_[1], nullptr, "null data pointer in map", 208);
    fault(d, d.size_, 5000u, "invalid size", 197);
    fault(d, d.data_, d.map_, "invalid pointer to data", 198);
    fault(d, d.capacity_, 0u, "invalid capacity", 196);   // the map's own field
    d.check();
    // The three fields of a deque without a map.
    probe<int> e;
    fault(e, e.capacity_, 4u, "invalid capacity", 213);
    fault(e, e.size_, 1u, "invalid size", 214);
    fault(e, e.data_, reinterpret_cast<void**>(&e), "invalid pointer to data", 215);
    e.check();
}

// Maps past 128 KiB grow into blocks half as big again, two of them taking
// turns; whatever the path, every block goes back on erase, clear and
// destruction, and the elements are destroyed exactly once.
template <class T, class Make>
void gives_everything_back(Make make) {
    no_leaks guard;
    long const before = live_blocks();
    {
        probe<T> d;
        std::array<T, 20> ends;   // what an erase of all but 10 at each end leaves
        {
            std::deque<T> model;
            for (int i = 0; i < 60000; ++i) {
                unsigned const capacity = d.capacity();
                d.push_back(make(2 * i));
                d.push_front(make(2 * i + 1));
                model.push_back(make(2 * i));
                model.push_front(make(2 * i + 1));
                if (d.capacity() != capacity) {
                    ASSERT_NO_THROW(d.check()) << i;
                    ASSERT_EQ(d.capacity(), capacity == 0 ? 4096u : capacity + 4096) << i;
                }
            }
            ASSERT_TRUE(std::equal(d.begin(), d.end(), model.begin()));
            std::copy(model.begin(), model.begin() + 10, ends.begin());
            std::copy(model.end() - 10, model.end(), ends.begin() + 10);
        }

        // Erasing nearly everything takes a small map and gives back the
        // big one and its spare; the pool keeps its blocks for reuse.
        long const full = live_blocks();
        d.erase(d.begin() + 10, d.end() - 10);
        EXPECT_EQ(d.capacity(), 4096u);
        EXPECT_EQ(live_blocks(), full - 1);
        d.sort();
        std::stable_sort(ends.begin(), ends.end());
        ASSERT_TRUE(std::equal(d.begin(), d.end(), ends.begin(), ends.end()));
        d.check();

        d.clear();
        EXPECT_EQ(live_blocks(), before) << "clear gives back maps and pool blocks";
        for (int i = 0; i < 30000; ++i) d.push_front(make(i));
        d.check();
    }
    EXPECT_EQ(live_blocks(), before) << "destruction gives back maps and pool blocks";
}

TEST(DequeMemory, EveryBlockGoesBack) {
    gives_everything_back<int>([](int i) { return i; });
    gives_everything_back<twelve>([](int i) { return twelve{i, i + 1, i + 2}; });
    gives_everything_back<counted>([](int i) { return counted(std::to_string(i)); });
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
