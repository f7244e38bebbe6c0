// fs_pool: an allocator_engine that hands out chunks of one fixed size from a
// block its owner supplies, keeping the free chunks on a singly linked list
// threaded through the chunks themselves. It never obtains or returns memory
// of its own, and allocation and deallocation are constant-time.
#ifndef ZEL_FSPOOL_H
#define ZEL_FSPOOL_H

#include <cstdint>
#include <cstring>
#include <type_traits>

#include <zel/config.h>
#include <zel/memory.h>

namespace zel {

class ZEL_API fs_pool : public allocator_engine {
public:
    // The link a free chunk holds in its first four bytes. On 32-bit targets
    // it is the next free chunk's address; on 64-bit targets it is the signed
    // distance in bytes to it (0: none), so that a 4-byte chunk still holds
    // it. A block on a 64-bit target must therefore be smaller than 2 GiB.
    // The decode and encode overloads for the target's link type are used.
    struct pool_chunk {
        std::conditional_t<pointers_are_32_bits, pool_chunk*, std::int32_t> next;
    };
    static_assert(sizeof(pool_chunk) == 4, "a free chunk's link takes four bytes");

    // The pool's state, owned by whoever constructs the pool.
    struct pool_data {
        std::uint32_t chunk_size;   // bytes per chunk, at least 4
        std::uint32_t chunk_count;  // chunks in the block, at least 2
        std::uint32_t free_count;   // chunks on the free list
        pool_chunk* free_list;      // first free chunk; null when exhausted
    };

    // The pool works on `data`, which must outlive it; copies share it.
    explicit fs_pool(pool_data& data) noexcept : data_(&data) {}
    fs_pool(fs_pool const&) noexcept = default;
    fs_pool& operator=(fs_pool const&) noexcept = default;
    // Frees nothing: the block belongs to the owner.
    ~fs_pool() override;

    // Lays `chunk_count` chunks of `chunk_size` bytes over `memory` and puts
    // them all on the free list in address order. Raises invalid_argument
    // ("Invalid pool chunk size" below 4 bytes, "Invalid pool chunk count"
    // below 2 chunks). `memory` must hold chunk_size * chunk_count bytes.
    void init_pool(unsigned chunk_size, unsigned chunk_count, void* memory);

    // Verifies that the free list holds free_count chunks; raises
    // runtime_error "Incorrect pool count" otherwise.
    void check() const;

    pool_data& data() const noexcept { return *data_; }

    // The address of the pool's data: copies sharing one pool share the id.
    unsigned long id() const override;
    // chunk size * chunk count.
    unsigned max_size() const override;
    // Always false: chunks never change size.
    bool query_resize(unsigned current, unsigned requested) const override;
    // One chunk, whatever the sizes asked; *granted (when not null) receives
    // the chunk size in bytes.
    void* allocate(unsigned size, unsigned count, unsigned header,
                   unsigned* granted) final;
    // Pops the first free chunk; the size asked is not looked at. An
    // exhausted pool raises bad_alloc ("bad allocation") as a plain
    // zel::exception and changes nothing.
    void* allocate(unsigned bytes) final;
    // Pushes the chunk on the front of the free list, so chunks come back
    // last-freed first. Nothing checks that it belongs to the pool.
    void deallocate(void* chunk) final;

private:
    using link_type = decltype(pool_chunk::next);

    [[noreturn]] static void exhausted();
    static pool_chunk* next_of(pool_chunk* chunk) noexcept;
    static void set_next(pool_chunk* chunk, pool_chunk* next) noexcept;
    static pool_chunk* decode(pool_chunk*, pool_chunk* next) noexcept { return next; }
    static pool_chunk* decode(pool_chunk* chunk, std::int32_t distance) noexcept;
    static void encode(pool_chunk*, pool_chunk* next, pool_chunk*& link) noexcept { link = next; }
    static void encode(pool_chunk* chunk, pool_chunk* next, std::int32_t& link) noexcept;

    pool_data* data_;
};

// The allocation fast paths are inline (and final, so a call on an fs_pool
// needs no virtual dispatch); they keep the pool's one invariant, free_count
// equal to the length of the free list, exactly as the engine's check()
// verifies it. The links are copied with memcpy because a chunk size need
// not be a multiple of four.

inline fs_pool::pool_chunk* fs_pool::decode(pool_chunk* chunk, std::int32_t distance) noexcept {
    return distance == 0 ? nullptr
                         : reinterpret_cast<pool_chunk*>(reinterpret_cast<char*>(chunk) + distance);
}

inline void fs_pool::encode(pool_chunk* chunk, pool_chunk* next, std::int32_t& link) noexcept {
    link = next == nullptr ? 0
                           : static_cast<std::int32_t>(reinterpret_cast<char*>(next) -
                                                       reinterpret_cast<char*>(chunk));
}

inline fs_pool::pool_chunk* fs_pool::next_of(pool_chunk* chunk) noexcept {
    link_type link;
    std::memcpy(&link, chunk, sizeof link);
    return decode(chunk, link);
}

inline void fs_pool::set_next(pool_chunk* chunk, pool_chunk* next) noexcept {
    link_type link;
    encode(chunk, next, link);
    std::memcpy(chunk, &link, sizeof link);
}

inline void* fs_pool::allocate(unsigned) {
    pool_chunk* chunk = data_->free_list;
    if (chunk == nullptr)
        exhausted();
    data_->free_list = next_of(chunk);
    --data_->free_count;
    return chunk;
}

inline void* fs_pool::allocate(unsigned, unsigned, unsigned, unsigned* granted) {
    if (data_->free_list == nullptr)
        exhausted();
    if (granted)
        *granted = data_->chunk_size;
    return allocate(0u);
}

inline void fs_pool::deallocate(void* p) {
    pool_chunk* chunk = static_cast<pool_chunk*>(p);
    set_next(chunk, data_->free_list);
    data_->free_list = chunk;
    ++data_->free_count;
}

} // namespace zel

#endif
