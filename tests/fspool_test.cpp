// The fixed-size pool: set-up errors with their texts and lines, order of
// chunks, exhaustion, sharing between copies and the consistency check.
#include <zel/fspool.h>

#include <zel/exception.h>

#include <algorithm>
#include <random>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include "support/raises.h"

namespace {

// A pool of `count` chunks of `size` bytes over its own block.
struct pool_fixture {
    pool_fixture(unsigned size, unsigned count) : block(size * count), pool(data) {
        pool.init_pool(size, count, block.data());
    }
    char* at(unsigned offset) { return block.data() + offset; }

    std::vector<char> block;
    zel::fs_pool::pool_data data{};
    zel::fs_pool pool;
};

// Expects `f` to raise through zel_throw with the given class name, text and
// line of src/fspool.cpp.
template <class F>
void expect_pool_error(F f, char const* name, char const* text, int line) {
    zel_test::expect_raised(f, name, text, "src/fspool.cpp", line);
}

TEST(FsPool, SetUpRejectsSmallChunksAndCounts) {
    std::vector<char> block(64);
    zel::fs_pool::pool_data data{};
    zel::fs_pool pool(data);
    expect_pool_error([&] { pool.init_pool(3, 4, block.data()); }, "invalid_argument",
                      "Invalid pool chunk size", 140);
    expect_pool_error([&] { pool.init_pool(4, 1, block.data()); }, "invalid_argument",
                      "Invalid pool chunk count", 141);
    EXPECT_EQ(data.free_list, nullptr) << "a rejected set-up changes nothing";
    EXPECT_NO_THROW(pool.init_pool(4, 2, block.data()));
}

TEST(FsPool, ServesChunksInAddressOrderUntilExhausted) {
    pool_fixture f(4, 2);
    EXPECT_EQ(f.data.free_count, 2u);
    EXPECT_EQ(f.pool.allocate(4), f.at(0));
    // The size asked is not looked at.
    EXPECT_EQ(f.pool.allocate(1000), f.at(4));
    EXPECT_EQ(f.data.free_count, 0u);
    EXPECT_EQ(f.data.free_list, nullptr);
    zel_test::expect_bad_allocation([&] { f.pool.allocate(4); });
    zel_test::expect_bad_allocation([&] { f.pool.allocate(4, 1, 0, nullptr); });
    EXPECT_EQ(f.data.free_count, 0u) << "a failed allocation changes nothing";
    EXPECT_NO_THROW(f.pool.check());

    // Odd chunk sizes need no alignment; the four-argument form grants the
    // chunk size.
    pool_fixture odd(5, 7);
    unsigned granted = 0;
    EXPECT_EQ(odd.pool.allocate(8, 100, 12, &granted), odd.at(0));
    EXPECT_EQ(granted, 5u);
    EXPECT_EQ(odd.pool.allocate(8, 100, 12, nullptr), odd.at(5));
    for (unsigned i = 2; i < 7; ++i)
        EXPECT_EQ(odd.pool.allocate(5), odd.at(5 * i));
    for (unsigned i = 0; i < 7; ++i)
        odd.pool.deallocate(odd.at(5 * i));
    EXPECT_NO_THROW(odd.pool.check());
}

TEST(FsPool, CopiesShareOnePool) {
    pool_fixture f(8, 4);
    zel::fs_pool copy(f.pool);
    zel::allocator_engine& engine = copy;
    EXPECT_EQ(engine.id(), f.pool.id());
    EXPECT_EQ(engine.max_size(), 32u);
    EXPECT_FALSE(engine.query_resize(8, 16));
    void* p = engine.allocate(8);
    EXPECT_EQ(f.data.free_count, 3u);
    f.pool.deallocate(p);
    EXPECT_EQ(engine.allocate(8), p);

    zel::fs_pool::pool_data other{};
    zel::fs_pool elsewhere(other);
    EXPECT_NE(elsewhere.id(), f.pool.id());
    elsewhere = f.pool;
    EXPECT_EQ(elsewhere.id(), f.pool.id());
}

// Random matched use beside a model: a freed chunk is handed out again
// first (last freed first), then the untouched ones in address order.
TEST(FsPool, RandomMatchedUseReturnsLastFreedFirstAndKeepsTheCheck) {
    pool_fixture f(12, 64);
    std::mt19937 rng(20261121);
    std::vector<void*> out;
    std::vector<void*> freed;
    unsigned fresh = 0;
    for (int step = 0; step < 5000; ++step) {
        bool take = out.empty() || (out.size() < 64 && rng() % 2 == 0);
        if (take) {
            void* const expected = freed.empty() ? f.at(12 * fresh++) : freed.back();
            if (!freed.empty())
                freed.pop_back();
            out.push_back(f.pool.allocate(12));
            ASSERT_EQ(out.back(), expected) << step;
        } else {
            std::swap(out[rng() % out.size()], out.back());
            freed.push_back(out.back());
            f.pool.deallocate(out.back());
            out.pop_back();
        }
        ASSERT_EQ(f.data.free_count, 64u - out.size());
        ASSERT_NO_THROW(f.pool.check());
    }
}

TEST(FsPool, CheckReportsAWrongCount) {
    pool_fixture f(8, 4);
    f.data.free_count = 3;
    expect_pool_error([&] { f.pool.check(); }, "runtime_error", "Incorrect pool count", 133);
    f.data.free_count = 5;
    expect_pool_error([&] { f.pool.check(); }, "runtime_error", "Incorrect pool count", 133);

    // A chunk given back twice corrupts the list; check reports it and
    // terminates even where the list now loops.
    pool_fixture g(8, 4);
    void* p = g.pool.allocate(8);
    g.pool.deallocate(p);
    g.pool.deallocate(p);
    expect_pool_error([&] { g.pool.check(); }, "runtime_error", "Incorrect pool count", 133);
}

} // namespace
