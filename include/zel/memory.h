// The allocator interface every heap-backed object of the library calls, the
// two general heaps behind it, temporary buffers and the pointer/integer
// conversions used by number formatting.
//
// An owner of storage holds an allocator_engine and never calls the global
// allocation functions itself; the heap decides how big a block really is
// (the capacity it reports) and when a block must be reallocated
// (query_resize), so a container's growth policy lives in its heap.
#ifndef ZEL_MEMORY_H
#define ZEL_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include <zel/config.h>

namespace zel {

class ZEL_API allocator_engine {
public:
    allocator_engine() noexcept = default;
    allocator_engine(allocator_engine const&) noexcept = default;
    // Copies nothing: a heap's identity is its class.
    allocator_engine& operator=(allocator_engine const&) noexcept { return *this; }
    virtual ~allocator_engine();

    // The same for every object of one heap class, different between classes.
    virtual unsigned long id() const = 0;
    // The largest block, in bytes, a caller may request. Nothing checks it.
    virtual unsigned max_size() const = 0;
    // Whether a block of `current` bytes must be reallocated to hold
    // `requested` bytes.
    virtual bool query_resize(unsigned current, unsigned requested) const = 0;
    // A block for `header` bytes followed by `count` elements of `size`
    // bytes. When `capacity` is not null it receives the number of elements
    // the block really holds.
    virtual void* allocate(unsigned size, unsigned count, unsigned header,
                           unsigned* capacity) = 0;
    // A block of at least `bytes` bytes.
    virtual void* allocate(unsigned bytes) = 0;
    // Gives back a block obtained from this heap.
    virtual void deallocate(void* block) = 0;

protected:
    // How many elements of `size` bytes fit in a block of `bytes` bytes after
    // `header` bytes, in unsigned 32-bit arithmetic.
    unsigned capacity(unsigned size, unsigned header, unsigned bytes) const noexcept {
        return (bytes - header) / size;
    }
    // An id() value made from the address of a static object.
    static unsigned long id_of(void const* tag) noexcept {
        return static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(tag));
    }
};

namespace detail {

// Raises bad_alloc ("bad allocation") as a plain zel::exception, from the
// heaps' source file.
[[noreturn]] ZEL_API void heap_exhausted();
// The general heaps' allocation while a new-handler is installed: removed
// for the call, and put back unless the call fails.
ZEL_API void* allocate_past_handler(std::size_t bytes);

// True when the global operator new this process calls is the C++
// runtime's own, which never installs a new-handler (set once while the
// library loads; false, the safe answer, before that and wherever it cannot
// be told).
extern ZEL_API bool runtime_operator_new;

// The general heaps' allocation: the global operator new with the process's
// new-handler removed for the call. Inline for the common case, where no
// handler is installed: then there is none to remove, and the reinstall of
// the null handler after a successful call only matters when one was
// installed during it. A replaced operator new can do that, and one look
// afterwards finds it; the runtime's own cannot, so that look is skipped
// (another thread's install during the call is overwritten or not as the
// two calls happen to order, as it is with the look). Called on a heap of
// known type (a container's own heap member), the whole allocation is
// inline.
inline void* heap_allocate(std::size_t bytes) {
    if (std::get_new_handler() != nullptr)
        return allocate_past_handler(bytes);
    void* p;
    try {
        p = ::operator new(bytes);
    } catch (std::bad_alloc const&) {
        p = nullptr;  // with no handler the runtime fails at once
    }
    if (p == nullptr)
        heap_exhausted();  // not reinstalled on this path
    if (!runtime_operator_new && std::get_new_handler() != nullptr)
        std::set_new_handler(nullptr);
    return p;
}

} // namespace detail

// Allocates exactly what is asked.
//
// Every allocation of both heaps removes the process's new-handler for the
// call, so the client's handler never runs and nothing is retried. A failed
// allocation raises bad_alloc ("bad allocation") as a plain zel::exception,
// and kept behaviour: the new-handler then stays removed. Kept too: the
// remove-and-reinstall is not atomic, so a handler another thread (or a
// replaced operator new) installs during an allocation is overwritten.
class ZEL_API std_heap : public allocator_engine {
public:
    std_heap() noexcept = default;
    ~std_heap() override;

    unsigned long id() const override;
    unsigned max_size() const override;        // 2147483647
    bool query_resize(unsigned current, unsigned requested) const override;
    void* allocate(unsigned size, unsigned count, unsigned header,
                   unsigned* capacity) override {
        void* p = detail::heap_allocate(header + size * count);
        if (capacity)
            *capacity = count;
        return p;
    }
    void* allocate(unsigned bytes) override { return detail::heap_allocate(bytes); }
    void deallocate(void* block) override { ::operator delete(block); }
};

// Rounds every block up to the smallest power of two strictly greater than
// the byte count (0 -> 1, 16 -> 32, 1000 -> 1024), and reallocates only when
// the need grows past the block or falls below half of it.
//
// Kept behaviour: the byte count header + size * count is computed in 32-bit
// arithmetic without overflow check, and a count of 2^31 or more wraps the
// power to 2^0, so such a request gets a 1-byte block. Requests above
// max_size() are outside the contract. `size` must not be 0.
class ZEL_API vector_heap : public allocator_engine {
public:
    vector_heap() noexcept = default;
    ~vector_heap() override;

    // The block size this heap hands out for a request of `bytes`.
    static unsigned round(unsigned bytes) noexcept {
        // b = the number of significant bits of `bytes`. The power is taken
        // with the shift count modulo 32, as the 32-bit shift instruction
        // does, so counts from 2^31 up (b = 32) give 1.
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

    unsigned long id() const override;
    unsigned max_size() const override;        // 2147483647
    bool query_resize(unsigned current, unsigned requested) const override;
    void* allocate(unsigned size, unsigned count, unsigned header,
                   unsigned* capacity) override {
        unsigned const block = round(header + size * count);
        void* p = detail::heap_allocate(block);
        if (capacity)
            *capacity = allocator_engine::capacity(size, header, block);
        return p;
    }
    void* allocate(unsigned bytes) override { return detail::heap_allocate(round(bytes)); }
    void deallocate(void* block) override { ::operator delete(block); }
};

// The typed handle through which a string engine reaches its heap: one
// pointer to an allocator_engine, so any heap (a string heap, a general
// heap, a user's) can back strings. String engines record a pointer to a
// handle and call the heap through it; the handle must outlive every engine
// allocated through it.
template <class C>
class virtual_allocator {
public:
    using value_type = C;

    virtual_allocator() noexcept = default;
    explicit virtual_allocator(allocator_engine* heap) noexcept : heap_(heap) {}

    allocator_engine* heap() const noexcept { return heap_; }

    // The heap's operations (see allocator_engine).
    unsigned long id() const { return heap_->id(); }
    unsigned max_size() const { return heap_->max_size(); }
    bool query_resize(unsigned current, unsigned requested) const {
        return heap_->query_resize(current, requested);
    }
    void* allocate(unsigned size, unsigned count, unsigned header, unsigned* capacity) {
        return heap_->allocate(size, count, header, capacity);
    }
    void* allocate(unsigned bytes) { return heap_->allocate(bytes); }
    void deallocate(void* block) { heap_->deallocate(block); }

private:
    allocator_engine* heap_ = nullptr;
};

static_assert(sizeof(virtual_allocator<char>) == sizeof(void*), "a handle is one pointer");

// Gives back a buffer obtained from get_temporary_buffer.
ZEL_API void return_temporary_buffer(void* buffer) noexcept;

// A buffer for up to `count` objects of T, uninitialised: the pair holds the
// buffer and how many objects it really holds (fewer when memory is short,
// {nullptr, 0} when none could be had). Never raises.
template <class T>
std::pair<T*, std::ptrdiff_t> get_temporary_buffer(std::ptrdiff_t count) noexcept {
    std::ptrdiff_t const most = PTRDIFF_MAX / static_cast<std::ptrdiff_t>(sizeof(T));
    if (count > most)
        count = most;
    for (; count > 0; count /= 2) {
        void* p = ::operator new(static_cast<std::size_t>(count) * sizeof(T), std::nothrow);
        if (p)
            return {static_cast<T*>(p), count};
    }
    return {nullptr, 0};
}

// A pointer as an unsigned 64-bit integer, zero-extended, and back. They
// round-trip at full pointer width on every target.
inline std::uint64_t ptr2utype(void const* p) noexcept {
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(p));
}
inline void* utype2ptr(std::uint64_t v) noexcept {
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(v));  // NOLINT(performance-no-int-to-ptr): its purpose
}

} // namespace zel

#endif
