// The general heaps: the sizes they ask the runtime for, the capacities they
// report, their resize rule, the new-handler removal and the failure path;
// temporary buffers and the pointer conversions.
#include <zel/memory.h>
#include <zel/string_engine.h>

#include <zel/exception.h>

#include <cstdint>
#include <new>
#include <typeinfo>

#include <gtest/gtest.h>

#include "support/allocation_hook.h"

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

TEST(VectorHeap, AsksTheRuntimeForTheRoundedSize) {
    zel::vector_heap heap;
    expect_request(heap, 0, 1);
    expect_request(heap, 16, 32);
    expect_request(heap, 1000, 1024);
    // A count from 2^31 up wraps to a 1-byte block (outside the contract,
    // but it must not ask for 4 GiB).
    expect_request(heap, 2147483648u, 1);

    unsigned capacity = 0;
    void* p = heap.allocate(4, 10, 12, &capacity);
    EXPECT_EQ(last_request(), 64u) << "header 12 + 4 x 10 = 52 rounds to 64";
    EXPECT_EQ(capacity, 13u) << "(64 - 12) / 4";
    heap.deallocate(p);

    // header + size * count is computed in 32 bits: 0x10000 * 0x10000 wraps to 0.
    p = heap.allocate(0x10000, 0x10000, 4, &capacity);
    EXPECT_EQ(last_request(), 8u);
    EXPECT_EQ(capacity, 0u);
    heap.deallocate(p);
}

TEST(StdHeap, AsksForExactlyWhatIsAsked) {
    zel::std_heap heap;
    expect_request(heap, 0, 0);
    expect_request(heap, 16, 16);
    expect_request(heap, 1000, 1000);

    unsigned capacity = 0;
    void* p = heap.allocate(4, 10, 12, &capacity);
    EXPECT_EQ(last_request(), 52u);
    EXPECT_EQ(capacity, 10u);
    heap.deallocate(p);

    capacity = 99;
    p = heap.allocate(4, 10, 12, nullptr);
    EXPECT_EQ(last_request(), 52u);
    EXPECT_EQ(capacity, 99u) << "a null capacity pointer stores nothing";
    heap.deallocate(p);
}

TEST(Heaps, ResizeRules) {
    zel::vector_heap v;
    EXPECT_FALSE(v.query_resize(64, 64));
    EXPECT_TRUE(v.query_resize(64, 65));
    EXPECT_FALSE(v.query_resize(64, 32));
    EXPECT_TRUE(v.query_resize(64, 31));
    EXPECT_FALSE(v.query_resize(0, 0));

    zel::std_heap s;
    EXPECT_TRUE(s.query_resize(64, 63));
    EXPECT_TRUE(s.query_resize(64, 65));
    EXPECT_FALSE(s.query_resize(64, 64));
}

TEST(Heaps, IdentityAndLimits) {
    zel::vector_heap v1, v2;
    zel::std_heap s1, s2;
    EXPECT_EQ(v1.id(), v2.id());
    EXPECT_EQ(s1.id(), s2.id());
    EXPECT_NE(v1.id(), s1.id());
    EXPECT_EQ(v1.max_size(), 2147483647u);
    EXPECT_EQ(s1.max_size(), 2147483647u);

    // Assignment copies nothing and keeps the identity.
    zel::allocator_engine& engine = v1;
    engine = v2;
    EXPECT_EQ(engine.id(), v2.id());
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
    bool raised = false;
    try {
        allocate();
    } catch (zel::bad_alloc const&) {
        ADD_FAILURE() << "bad_alloc must arrive as a plain exception";
    } catch (zel::exception const& e) {
        raised = true;
        EXPECT_EQ(typeid(e), typeid(zel::exception));
        EXPECT_STREQ(e.what(), "bad allocation");
    }
    EXPECT_TRUE(raised);
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

TEST(Heaps, SuccessRestoresTheHandler) {
    handler_ran = false;
    std::set_new_handler(&recording_handler);
    zel::vector_heap v;
    zel::std_heap s;
    v.deallocate(v.allocate(10));
    s.deallocate(s.allocate(2, 3, 4, nullptr));
    EXPECT_EQ(std::get_new_handler(), &recording_handler);
    EXPECT_FALSE(handler_ran);
    std::set_new_handler(nullptr);
}

// With no handler at entry there is none to put back, but one installed
// during the call (here by the runtime's operator new) is still removed.
TEST(Heaps, AHandlerInstalledDuringTheCallIsRemoved) {
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
        {
            zel_test::installing_handler install(c.request, &recording_handler);
            void* p = c.four ? c.heap.allocate(4, 8, 20, nullptr) : c.heap.allocate(50);
            c.heap.deallocate(p);
        }
        EXPECT_EQ(std::get_new_handler(), nullptr) << "request " << c.request;
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
