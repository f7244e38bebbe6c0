// The fixed-size pool. Free chunks form a singly linked list through their
// first four bytes; the pool never looks at a chunk while it is handed out.
//
// Links are copied with memcpy: a chunk size need not be a multiple of four.
//
// The throw sites sit on the lines the pool has always reported (75 and 91
// for an exhausted pool, 133 for a failed check, 140 and 141 for a bad
// set-up), so a report names the same place on every target.
#include <zel/fspool.h>

#include <cstring>

#include <zel/exception.h>

namespace zel {

namespace {

using pool_chunk = fs_pool::pool_chunk;
using link_type = decltype(pool_chunk::next);

pool_chunk* chunk_at(void* p) noexcept { return static_cast<pool_chunk*>(p); }

// A link is the next chunk's address where that fits in four bytes, else the
// distance from the chunk to the next one; the target's link type picks.
[[maybe_unused]] pool_chunk* decode(pool_chunk*, pool_chunk* next) noexcept { return next; }
[[maybe_unused]] pool_chunk* decode(pool_chunk* chunk, std::int32_t distance) noexcept {
    return distance == 0 ? nullptr : chunk_at(reinterpret_cast<char*>(chunk) + distance);
}
[[maybe_unused]] void encode(pool_chunk*, pool_chunk* next, pool_chunk*& link) noexcept { link = next; }
[[maybe_unused]] void encode(pool_chunk* chunk, pool_chunk* next, std::int32_t& link) noexcept {
    link = next == nullptr ? 0 : static_cast<std::int32_t>(reinterpret_cast<char*>(next) -
                                                          reinterpret_cast<char*>(chunk));
}

pool_chunk* next_of(pool_chunk* chunk) noexcept {
    link_type link;
    std::memcpy(&link, chunk, sizeof link);
    return decode(chunk, link);
}

void set_next(pool_chunk* chunk, pool_chunk* next) noexcept {
    link_type link;
    encode(chunk, next, link);
    std::memcpy(chunk, &link, sizeof link);
}

// Unlinks the head of a non-empty free list.
pool_chunk* pop(fs_pool::pool_data& data) noexcept {
    pool_chunk* chunk = data.free_list;
    data.free_list = next_of(chunk);
    --data.free_count;
    return chunk;
}

} // namespace

fs_pool::~fs_pool() = default;

unsigned long fs_pool::id() const { return id_of(data_); }

unsigned fs_pool::max_size() const {
    return data_->chunk_size * data_->chunk_count;
}

bool fs_pool::query_resize(unsigned, unsigned) const { return false; }

// Both allocate forms hand out one whole chunk, whatever was asked for: a
// pool serves one size, and the owner that built it knows which. An empty
// list means the pool is exhausted; the raise goes through the plain
// exception overload, so the caller sees a zel::exception whose what() is
// "bad allocation", exactly as from an exhausted heap.
void* fs_pool::allocate(unsigned) {
    if (data_->free_list == nullptr)
        ZEL_THROW(bad_alloc("bad allocation"));
    return pop(*data_);
}

// The four-argument form reports the chunk size as what the caller was
// granted. Note the unit: the heaps report a capacity in elements after the
// header, the pool reports the chunk's bytes. An owner that keeps single
// nodes in a pool asks for one element of the node's size and gets a chunk
// at least that big, since it built the pool with that chunk size; the
// element size, count and header it passes are not looked at, so a request
// larger than a chunk is the owner's error and is not detected here (no
// header is kept per chunk to detect it with).
//
// As above, an exhausted pool raises before anything changes.
void* fs_pool::allocate(unsigned, unsigned, unsigned, unsigned* granted) {
    if (data_->free_list == nullptr)
        ZEL_THROW(bad_alloc("bad allocation"));
    if (granted)
        *granted = data_->chunk_size;
    return pop(*data_);
}

void fs_pool::deallocate(void* p) {
    pool_chunk* chunk = chunk_at(p);
    set_next(chunk, data_->free_list);
    data_->free_list = chunk;
    ++data_->free_count;
}

// The free list after init_pool(8, 4, m), and after two allocations and the
// deallocation of the first chunk handed out (m+0):
//
//   free_list -> m+0 -> m+8 -> m+16 -> m+24 -> null      free_count 4
//   free_list -> m+16 -> m+24 -> null                    free_count 2
//   free_list -> m+0 -> m+16 -> m+24 -> null             free_count 3
//
// On a 32-bit target each arrow is the next chunk's address, stored in the
// chunk's first four bytes; on a 64-bit target it is the distance to it
// (+8 from m+0 to m+8 after init_pool, +16 from m+0 to m+16 at the end), so
// that the link still fits the four bytes of the smallest chunk. Either way a
// null link ends the list.
//
// The list is threaded through the free chunks themselves, in the order they
// were given back; nothing records which chunks are handed out. So the only
// invariant the pool can verify is the count.
//
// A chunk handed out is the caller's to overwrite whole, link included; a
// chunk given back twice, or one that never came from the pool, corrupts the
// list silently until check() or a later allocation meets it.
//
// The pool's invariant: the free list holds exactly free_count chunks. The
// walk stops once it has passed free_count, so a list that a stray pointer
// made longer or circular is reported rather than followed for ever.
void fs_pool::check() const {
    std::uint32_t counted = 0;
    for (pool_chunk* c = data_->free_list; c != nullptr && counted <= data_->free_count; c = next_of(c))
        ++counted;
    if (counted != data_->free_count)
        ZEL_THROW(runtime_error("Incorrect pool count"));
}

// The block is the owner's: init_pool only lays the list over it, and can be
// called again to forget every chunk handed out. The sizes are checked before
// anything changes.
void fs_pool::init_pool(unsigned chunk_size, unsigned chunk_count, void* memory) {
    if (chunk_size < 4) ZEL_THROW(invalid_argument("Invalid pool chunk size"));
    if (chunk_count < 2) ZEL_THROW(invalid_argument("Invalid pool chunk count"));
    data_->chunk_size = chunk_size;
    data_->chunk_count = chunk_count;
    data_->free_count = chunk_count;
    data_->free_list = chunk_at(memory);
    // Link the chunks in address order; the last one ends the list.
    char* const base = static_cast<char*>(memory);
    for (std::uint32_t k = 0; k + 1 < chunk_count; ++k)
        set_next(chunk_at(base + k * chunk_size), chunk_at(base + (k + 1) * chunk_size));
    set_next(chunk_at(base + (chunk_count - 1) * chunk_size), nullptr);
}

} // namespace zel
