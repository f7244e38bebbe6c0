// The general heaps (std_heap, vector_heap) and temporary buffers. Both heaps
// take memory from the global operator new with the new-handler removed, so
// an allocation either succeeds at once or raises bad_alloc.
#include <zel/memory.h>

#include <zel/exception.h>

#include "heap_support.h"

namespace zel {

namespace {

[[noreturn]] void out_of_memory() {
    ZEL_THROW(bad_alloc("bad allocation"));
}

// The global operator new, with a failure reported as null. The throwing
// form is called and its bad_alloc caught: with the new-handler removed it
// fails at once, exactly as the nothrow form would, and it saves the nothrow
// form's extra call on every allocation.
void* global_new(std::size_t bytes) {
    try {
        return ::operator new(bytes);
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

} // namespace

void* detail::allocate_without_handler(std::size_t bytes, detail::on_failure policy) {
    // With no handler at entry the one to reinstall is null: instead of two
    // exchanges, one load afterwards, and null put back only when a handler
    // was installed during the call (which the reinstall would overwrite).
    if (std::get_new_handler() == nullptr) {
        void* p = global_new(bytes);
        if (std::get_new_handler() != nullptr)
            std::set_new_handler(nullptr);
        if (!p)
            out_of_memory();
        return p;
    }
    std::new_handler previous = std::set_new_handler(nullptr);
    void* p = global_new(bytes);
    if (!p) {
        if (policy == detail::on_failure::reinstall_handler)
            std::set_new_handler(previous);
        out_of_memory();
    }
    std::set_new_handler(previous);
    return p;
}

namespace {

void* allocate_without_handler(std::size_t bytes) {
    return detail::allocate_without_handler(bytes, detail::on_failure::leave_handler_removed);
}

char const std_heap_tag = 0;
char const vector_heap_tag = 0;

constexpr unsigned largest_block = 2147483647u;

} // namespace

allocator_engine::~allocator_engine() = default;

// --- std_heap --------------------------------------------------------------

std_heap::~std_heap() = default;

unsigned long std_heap::id() const { return id_of(&std_heap_tag); }

unsigned std_heap::max_size() const { return largest_block; }

bool std_heap::query_resize(unsigned current, unsigned requested) const {
    return requested != current;
}

void* std_heap::allocate(unsigned size, unsigned count, unsigned header,
                         unsigned* capacity) {
    void* p = allocate_without_handler(header + size * count);
    if (capacity)
        *capacity = count;
    return p;
}

void* std_heap::allocate(unsigned bytes) { return allocate_without_handler(bytes); }

void std_heap::deallocate(void* block) { ::operator delete(block); }

// --- vector_heap -----------------------------------------------------------

vector_heap::~vector_heap() = default;

unsigned vector_heap::round(unsigned bytes) noexcept {
    // b = the number of significant bits of `bytes`. The power is taken with
    // the shift count modulo 32, as the 32-bit shift instruction does, so
    // counts from 2^31 up (b = 32) give 1.
    unsigned b = 0;
#if defined(__GNUC__) || defined(__clang__)
    if (bytes != 0)
        b = 32u - static_cast<unsigned>(__builtin_clz(bytes));
#else
    for (unsigned n = bytes; n != 0; n >>= 1)
        ++b;
#endif
    return 1u << (b & 31u);
}

unsigned long vector_heap::id() const { return id_of(&vector_heap_tag); }

unsigned vector_heap::max_size() const { return largest_block; }

bool vector_heap::query_resize(unsigned current, unsigned requested) const {
    return requested > current || requested < (current >> 1);
}

void* vector_heap::allocate(unsigned size, unsigned count, unsigned header,
                            unsigned* capacity) {
    unsigned const block = round(header + size * count);
    void* p = allocate_without_handler(block);
    if (capacity)
        *capacity = allocator_engine::capacity(size, header, block);
    return p;
}

void* vector_heap::allocate(unsigned bytes) { return allocate_without_handler(round(bytes)); }

void vector_heap::deallocate(void* block) { ::operator delete(block); }

// --- temporary buffers -----------------------------------------------------

void return_temporary_buffer(void* buffer) noexcept { ::operator delete(buffer); }

} // namespace zel
