// Internal to the library: the granule rules shared by the two string heaps
// (32-byte granules narrow, 64-byte wide) and the macro that defines each
// heap's members over them, so src/strheapa.cpp and src/strheapw.cpp state
// only their granule.
#ifndef ZEL_SRC_STRING_HEAP_H
#define ZEL_SRC_STRING_HEAP_H

#include "heap_support.h"

namespace zel::detail {

template <unsigned Granule>
struct granule_rules {
    static_assert((Granule & (Granule - 1)) == 0, "a granule is a power of two");

    // Allocation adds a whole granule above the size rounded down: 31 gives
    // one granule, 32 gives two.
    static constexpr unsigned block(unsigned bytes) noexcept {
        return (bytes & ~(Granule - 1)) + Granule;
    }
    // Reallocation compares sizes rounded up: 31 and 32 share a granule.
    static constexpr unsigned round_up(unsigned bytes) noexcept {
        return (bytes + (Granule - 1)) & ~(Granule - 1);
    }
};

} // namespace zel::detail

// The members of a string heap class `heap` with the given granule; `tag` is
// a file-local static whose address is the class's id.
#define ZEL_DEFINE_STRING_HEAP(heap, granule, tag)                                        \
    heap::~heap() = default;                                                              \
    unsigned long heap::id() const { return id_of(&tag); }                                \
    unsigned heap::max_size() const { return 2147483647u; }                               \
    bool heap::query_resize(unsigned current, unsigned requested) const {                 \
        using rules = detail::granule_rules<granule>;                                     \
        return rules::round_up(current) != rules::round_up(requested);                    \
    }                                                                                     \
    void* heap::allocate(unsigned size, unsigned count, unsigned header,                  \
                         unsigned* capacity) {                                            \
        unsigned const block = detail::granule_rules<granule>::block(size * count + header); \
        void* p = detail::allocate_without_handler(block,                                 \
                                                   detail::on_failure::reinstall_handler); \
        if (capacity)                                                                     \
            *capacity = allocator_engine::capacity(size, header, block);                  \
        return p;                                                                         \
    }                                                                                     \
    void* heap::allocate(unsigned bytes) {                                                \
        return detail::allocate_without_handler(detail::granule_rules<granule>::block(bytes), \
                                                detail::on_failure::leave_handler_removed); \
    }                                                                                     \
    void heap::deallocate(void* block) { ::operator delete(block); }

#endif
