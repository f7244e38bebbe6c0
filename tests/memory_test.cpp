// The general and string heaps: the sizes they ask the runtime for, the
// capacities they report, their resize rules, the new-handler removal and
// the failure path; temporary buffers and the pointer conversions.
#include <zel/memory.h>
#include <zel/string_engine.h>

#include <zel/exception.h>

#include <cstdint>
#include <new>
#include <typeinfo>

#include <gtest/gtest.h>

#include "support/allocation_hook.h"
#include "support/raises.h"

namespace {

using zel_test::failing_size;
using zel_test::last_request;

// Allocates through the interface, checks the runtime was asked for
// `expected` bytes, and gives the block back.
void expect_request(zel::allocator_engine& heap, unsigned bytes, std::size_t expected) {
    void* p = heap.allocate(bytes);
    EXPECT_EQ(last_request(), expected) << "allocate(" << bytes << ")";
    heap.deallocate(p);
}

TEST(VectorHeap, RoundsToTheNextPowerOfTwoStrictlyAbove) {
    struct {
        unsigned in, out;
    } const cases[] = {{0, 1},           {1, 2},        {2, 4},           {8, 16},
                       {9, 16},          {15, 16},      {16, 32},         {1000, 1024},
                       {0x7FFFFFFFu, 0x80000000u},
                       // 32 significant bits: the shift count wraps to 0.
                       {0x80000000u, 1}, {0xFFFFFFFFu, 1}};
    for (auto const& c : cases)
        EXPECT_EQ(zel::vector_heap::round(c.in), c.out) << c.in;
}

// The four heaps side by side: what they ask the runtime for, the
// capacities they report, their resize answers and their identities.
TEST(Heaps, BlockSizesCapacitiesAndResizeRules) {
    zel::std_heap s;
    zel::vector_heap v;
    zel::cstring_heap narrow;
    zel::wstring_heap wide;
    struct {
        zel::allocator_engine& heap;
        unsigned bytes;
        std::size_t request;
    } const one[] = {
        {s, 0, 0},       {s, 16, 16},      {s, 1000, 1000},
        {v, 0, 1},       {v, 16, 32},      {v, 1000, 1024},
        {v, 2147483648u, 1},  // 2^31 and up wrap to a 1-byte block, never 4 GiB
        {narrow, 0, 32}, {narrow, 31, 32}, {narrow, 32, 64}, {narrow, 63, 64},
        {narrow, 64, 96}, {narrow, 100, 128},  // a granule above the size rounded down
        {wide, 0, 64},   {wide, 32, 64},   {wide, 63, 64},   {wide, 64, 128}, {wide, 100, 128},
    };
    for (auto const& c : one)
        expect_request(c.heap, c.bytes, c.request);

    struct {
        zel::allocator_engine& heap;
        unsigned size, count, header;
        std::size_t request;
        unsigned capacity;
    } const four[] = {
        {s, 4, 10, 12, 52, 10},
        {v, 4, 10, 12, 64, 13},          // 52 rounds to 64: (64 - 12) / 4
        {v, 0x10000, 0x10000, 4, 8, 0},  // the product wraps to 0 in 32 bits
        {narrow, 1, 10, 20, 32, 12},
        {narrow, 1, 12, 20, 64, 44},
        {wide, 2, 10, 20, 64, 22},
    };
    for (auto const& c : four) {
        unsigned capacity = 0;
        void* p = c.heap.allocate(c.size, c.count, c.header, &capacity);
        EXPECT_EQ(last_request(), c.request) << c.count;
        EXPECT_EQ(capacity, c.capacity) << c.count;
        c.heap.deallocate(p);
    }
    s.deallocate(s.allocate(4, 10, 12, nullptr));  // a null capacity pointer is not written
    EXPECT_EQ(last_request(), 52u);

    struct {
        zel::allocator_engine& heap;
        unsigned current, requested;
        bool resize;
    } const resize[] = {
        {s, 64, 63, true},       {s, 64, 65, true},        {s, 64, 64, false},
        {v, 64, 64, false},      {v, 64, 65, true},        {v, 64, 32, false},
        {v, 64, 31, true},       {v, 0, 0, false},
        {narrow, 40, 64, false}, {narrow, 64, 65, true},   {narrow, 31, 32, false},
        {narrow, 32, 33, true},  {narrow, 64, 32, true},   // shrinking by a granule
        {wide, 65, 128, false},  {wide, 64, 65, true},
    };
    for (auto const& c : resize)
        EXPECT_EQ(c.heap.query_resize(c.current, c.requested), c.resize)
            << c.current << " -> " << c.requested;

    zel::allocator_engine* const heaps[] = {&s, &v, &narrow, &wide};
    for (auto* a : heaps) {
        EXPECT_EQ(a->max_size(), 2147483647u);
        for (auto* b : heaps)
            EXPECT_EQ(a->id() == b->id(), a == b);
    }
    EXPECT_EQ(zel::vector_heap().id(), v.id());
    EXPECT_EQ(zel::cstring_heap().id(), narrow.id());
    // Assignment copies nothing and keeps the identity.
    zel::allocator_engine& engine = v;
    engine = zel::vector_heap();
    EXPECT_EQ(engine.id(), v.id());
}

TEST(Heaps, CapacityHelperDividesInUnsignedArithmetic) {
    struct probe : zel::std_heap {
        unsigned cap(unsigned size, unsigned header, unsigned bytes) const {
            return capacity(size, header, bytes);
        }
    } p;
    EXPECT_EQ(p.cap(4, 12, 64), 13u);
    EXPECT_EQ(p.cap(8, 0, 7), 0u);
    EXPECT_EQ(p.cap(1, 5, 4), 0xFFFFFFFFu) << "block smaller than header wraps";
}

bool handler_ran = false;
void recording_handler() {
    handler_ran = true;
    std::set_new_handler(nullptr);
}

// Runs `allocate` with recording_handler installed and expects the plain
// "bad allocation" exception, the handler never run and left removed.
template <class F>
void expect_bad_allocation(F allocate) {
    handler_ran = false;
    std::set_new_handler(&recording_handler);
    zel_test::expect_bad_allocation(allocate);
    EXPECT_FALSE(handler_ran) << "the client's new-handler must never run";
    EXPECT_EQ(std::get_new_handler(), nullptr) << "the handler stays removed after a failure";
    std::set_new_handler(nullptr);
}

TEST(Heaps, FailureRaisesPlainExceptionAndLeavesTheHandlerRemoved) {
    zel::std_heap s;
    zel::vector_heap v;
    {
        failing_size fail(777);
        expect_bad_allocation([&] { s.allocate(777); });
        expect_bad_allocation([&] { s.allocate(1, 765, 12, nullptr); });
    }
    {
        failing_size fail(2048);
        expect_bad_allocation([&] { v.allocate(1500); });
        expect_bad_allocation([&] { v.allocate(8, 200, 16, nullptr); });
    }
}

// A handler there at entry is put back after a success, and never run;
// with none at entry there is none to put back, but one installed during
// the call (here by the runtime's operator new) is still removed.
TEST(Heaps, SuccessRestoresTheHandlerOfTheEntry) {
    zel::std_heap s;
    zel::vector_heap v;
    zel::cstring_heap narrow;
    zel::wstring_heap wide;
    struct {
        zel::allocator_engine& heap;
        bool four;
        std::size_t request;
    } const cases[] = {
        {s, false, 50}, {s, true, 52}, {v, false, 64}, {v, true, 64},
        {narrow, false, 64}, {narrow, true, 64}, {wide, false, 64}, {wide, true, 64},
    };
    for (auto const& c : cases) {
        std::set_new_handler(nullptr);
        auto allocate = [&c] { c.heap.deallocate(c.four ? c.heap.allocate(4, 8, 20, nullptr) : c.heap.allocate(50)); };
        {
            zel_test::installing_handler install(c.request, &recording_handler);
            allocate();
        }
        EXPECT_EQ(std::get_new_handler(), nullptr) << "request " << c.request;
        handler_ran = false;
        std::set_new_handler(&recording_handler);
        allocate();
        EXPECT_EQ(std::get_new_handler(), &recording_handler) << "request " << c.request;
        EXPECT_FALSE(handler_ran);
    }
    std::set_new_handler(nullptr);
}

TEST(TemporaryBuffer, HalvesUntilItFitsAndGivesBack) {
    auto full = zel::get_temporary_buffer<int>(100);
    EXPECT_NE(full.first, nullptr);
    EXPECT_EQ(full.second, 100);
    zel::return_temporary_buffer(full.first);

    auto none = zel::get_temporary_buffer<int>(0);
    EXPECT_EQ(none.first, nullptr);
    EXPECT_EQ(none.second, 0);

    failing_size fail(200 * sizeof(double));
    auto half = zel::get_temporary_buffer<double>(200);
    EXPECT_NE(half.first, nullptr);
    EXPECT_EQ(half.second, 100);
    zel::return_temporary_buffer(half.first);
}

TEST(PointerConversion, RoundTripsAtFullWidthAndZeroExtends) {
    int object = 0;
    EXPECT_EQ(zel::utype2ptr(zel::ptr2utype(&object)), &object);
    EXPECT_EQ(zel::ptr2utype(nullptr), 0u);
    void* high = reinterpret_cast<void*>(static_cast<std::uintptr_t>(0x80000000u));
    EXPECT_EQ(zel::ptr2utype(high), 0x80000000u) << "zero-extended, not sign-extended";
    if constexpr (sizeof(void*) == 8) {
        std::uint64_t const wide = 0x00007FFF12345678ull;
        EXPECT_EQ(zel::ptr2utype(zel::utype2ptr(wide)), wide);
    } else {
        EXPECT_EQ(zel::ptr2utype(zel::utype2ptr(0x1234567887654321ull)), 0x87654321u)
            << "a 32-bit pointer keeps the low 32 bits";
    }
}

} // namespace
