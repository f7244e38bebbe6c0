// The vector engine and vector<T>: a seeded run beside std::vector with
// check() after every step, the engine's documented edge cases and kept
// behaviours, rollback of a failing copy, and the errors with their texts.
#include <zel/vector.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/counted.h"
#include "support/model.h"

namespace {

using zel_test::counted;
using zel_test::expect_container_error;
using zel_test::no_leaks;

// Opens the engine's own operations of a typed vector to the tests.
template <class T>
struct probe : zel::vector<T> {
    using engine = zel::vector_engine;
    using zel::vector<T>::vector;
    using engine::all;
    using engine::data_;
    using engine::size_;
    using engine::capacity_;
    engine& raw() { return *this; }
    void insert_raw(unsigned pos, void const* src, unsigned first, unsigned count) {
        raw().insert(pos, src, first, count);
    }
};

template <class T, class Make>
void run_beside_std(unsigned seed, Make make) {
    zel_test::model_run run(seed);
    probe<T> v;
    std::vector<T> twin;
    auto x = [&] { return make(run.rng()()); };
    unsigned a = 0, b = 0, at = 0;   // a range [a, b) and a position, drawn per step
    auto draw = [&](unsigned most) {
        unsigned const n = unsigned(twin.size());
        a = run.pick(n + 1), b = a + run.pick(std::min(n - a, most) + 1), at = run.pick(n + 1);
    };
    zel_test::sequence_ops(run, v, twin, x);
    run.op("pop_back", 1, [&] { if (!twin.empty()) { v.pop_back(); twin.pop_back(); } })
        .op("insert a range of our own", 1, [&] {
            draw(~0u);
            std::vector<T> src(twin.begin() + a, twin.begin() + b);
            v.insert(v.begin() + at, v.begin() + a, v.begin() + b);
            twin.insert(twin.begin() + at, src.begin(), src.end());
        })
        .op("insert a caller's range, then one of our own elements", 1, [&] {
            std::vector<T> src;
            for (unsigned k = run.pick(6); k; --k) src.push_back(x());
            draw(0);
            v.insert(v.begin() + at, src.begin(), src.end());
            twin.insert(twin.begin() + at, src.begin(), src.end());
            if (twin.empty()) return;
            unsigned from = run.pick(unsigned(twin.size()));
            T e = twin[from];
            v.insert(v.begin(), v[from]);
            twin.insert(twin.begin(), e);
        })
        .op("reserve", 1, [&] { v.reserve(unsigned(twin.size()) + run.pick(40)); })
        .op("clear", 1, [&] { if (run.chance(3)) { v.clear(); twin.clear(); } });
    run.go(4000, [&] {
        ASSERT_NO_THROW(v.check());
        ASSERT_LE(v.size(), v.capacity());
        zel_test::expect_same_sequence(v, twin);
    });
}

TEST(Vector, RunsBesideStdVector) {
    run_beside_std<int>(7, [](unsigned r) { return int(r % 1000); });
    no_leaks guard;
    run_beside_std<counted>(11, [](unsigned r) { return counted(std::to_string(r % 500)); });
}

TEST(Vector, GrowsAndShrinksThroughTheHeapPolicy) {
    zel::vector<int> v;
    std::vector<unsigned> capacities;
    for (int i = 0; i < 40; ++i) {
        v.push_back(i);
        if (capacities.empty() || capacities.back() != v.capacity())
            capacities.push_back(v.capacity());
    }
    // vector_heap: the smallest power of two strictly above the bytes.
    EXPECT_EQ(capacities, (std::vector<unsigned>{2, 4, 8, 16, 32, 64}));
    v.erase(v.begin() + 10, v.end());    // 10 of 64 is below half: re-block
    EXPECT_EQ(v.capacity(), 16u);
    v.pop_back();                        // pop_back never shrinks
    EXPECT_EQ(v.capacity(), 16u);
}

TEST(VectorEngine, EdgeCases) {
    probe<int> v{1, 2, 3};
    v.reserve(10);
    void* block = v.data_;
    // A range of our own takes the new-block path although it would fit.
    v.insert_raw(1, v.data(), 0, 2);
    EXPECT_NE(v.data_, block);
    EXPECT_EQ(v, (zel::vector<int>{1, 1, 2, 2, 3}));

    block = v.data_;
    int const x = 9;
    v.raw().push_back(&x, 0);
    v.insert_raw(0, nullptr, 0, 3);
    EXPECT_EQ(v.size(), 5u);
    v.raw().pop_back(100);
    EXPECT_EQ(v.size(), 0u);
    EXPECT_EQ(v.data_, block) << "pop_back keeps the block";

    v = {1, 2, 3};
    v.raw().erase(3, 5);
    EXPECT_EQ(v.size(), 3u);
    zel_test::expect_raised([&] { v.raw().erase(4, 1); }, "out_of_range", zel_test::any, nullptr);
    v.raw().reverse(2, 0);
    EXPECT_EQ(v, (zel::vector<int>{1, 2, 3}));

    EXPECT_EQ(zel::vector_engine::first_shell_index(0), 0u);
    EXPECT_EQ(zel::vector_engine::first_shell_index(4), 0u);
    EXPECT_EQ(zel::vector_engine::first_shell_index(5), 1u);
    EXPECT_EQ(zel::vector_engine::first_shell_index(19), 2u);
    EXPECT_EQ(zel::vector_engine::first_shell_index(2161), 8u);
    EXPECT_EQ(zel::vector_engine::first_shell_index(0xFFFFFFFFu), 28u);
    EXPECT_EQ(zel::vector_engine::shell_number(28), 2415771649u);
    EXPECT_EQ(sizeof(zel::vector<int>), sizeof(zel::vector_engine) + sizeof(void*)) << "the typed layer adds the heap";

    // The in-place insert keeps its source index asymmetry.
    v = {10, 11, 12};
    v.reserve(7);   // 8 slots: six elements fit without the policy re-blocking
    int const src[] = {0, 1, 2, 3, 4, 5};
    // pos 2, tail 1, count 3 from first 2: the part beyond the old end comes
    // from src[tail..] = {1, 2}, the rest from src[first..] = {2}.
    v.insert_raw(2, src, 2, 3);
    EXPECT_EQ(v, (zel::vector<int>{10, 11, 2, 1, 2, 12}));

    // The elementwise swap moves the surplus.
    probe<int> a{1, 2, 3};
    a.raw().swap(v.raw(), false);   // a holds 4 slots: the surplus re-blocks it
    EXPECT_EQ(a, (zel::vector<int>{10, 11, 2, 1, 2, 12}));
    EXPECT_EQ(v, (zel::vector<int>{1, 2, 3}));
    a.check();
    v.check();
}

// A new block's path changes nothing; in place every element stays owned.
TEST(VectorEngine, FailingCopiesInAnInsert) {
    using zel_test::throws_on_copy;
    no_leaks guard;
    zel::vector<counted> v{"a", "b", "c"};
    zel::vector<counted> const more{"x", "y", "z", "w"}, was{"a", "b", "c"};
    counted const* data = v.data();
    unsigned const capacity = v.capacity();
    for (int fail_at = 0; fail_at < 7; ++fail_at) {
        EXPECT_TRUE(throws_on_copy(fail_at, [&] { v.insert(v.begin() + 1, more.begin(), more.end()); }));
        EXPECT_EQ(v.data(), data);
        EXPECT_EQ(v.capacity(), capacity);
        EXPECT_EQ(v, was);
        v.check();
    }
    EXPECT_TRUE(throws_on_copy(1, [&] { v.reserve(100); }));
    EXPECT_EQ(v.data(), data);

    v.push_back("d");
    v.reserve(20);
    for (int fail_at = 0; fail_at < 5; ++fail_at) {
        zel::vector<counted> w(v);
        w.reserve(20);
        throws_on_copy(fail_at, [&] { w.insert(w.begin() + 1, more.begin(), more.begin() + 2); });
        w.check();
        EXPECT_GE(w.size(), 4u);
    }
}

TEST(VectorEngine, ErrorsCarryTheirTexts) {
    char const* const file = "src/vectorbase.cpp";
    probe<int> v{1, 2};
    expect_container_error([&] { v.erase(zel::vector<int>{}.begin()); }, "mis-matched iterator(s)", file);
    expect_container_error([&] { v.erase(v.end()); }, "iterator points to end()", file);
    zel_test::expect_raised([&] { v.insert_raw(3, v.data(), 0, 1); }, "out_of_range", zel_test::any,  // past the end
                            file, 693);

    zel_test::expect_check_fault(v, v.size_, 5u, "invalid array size", file, 195);   // above the capacity
    probe<int> empty;
    zel_test::expect_check_fault(empty, empty.size_, 1u, "invalid array size", file, 199);
    zel_test::expect_check_fault(empty, empty.capacity_, 4u, "invalid array capacity", file, 200);
}

} // namespace
