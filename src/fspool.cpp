// The fixed-size pool's out-of-line part: set-up, the consistency check and
// the exhausted-pool raise. The allocation fast paths are inline in fspool.h.
//
// The checked throw sites sit on the lines the pool has always reported (133
// for a failed check, 140 and 141 for a bad set-up), so a report names the
// same place on every target and in every version; the notes below keep them
// there.
#include <zel/fspool.h>

#include <cstring>

#include <zel/exception.h>

namespace zel {

fs_pool::~fs_pool() = default;

unsigned long fs_pool::id() const { return id_of(data_); }

unsigned fs_pool::max_size() const {
    return data_->chunk_size * data_->chunk_count;
}

bool fs_pool::query_resize(unsigned, unsigned) const { return false; }

// An empty free list means the pool is exhausted. The raise goes through the
// plain exception overload, so the caller sees a zel::exception whose what()
// is "bad allocation", exactly as from an exhausted heap.
void fs_pool::exhausted() {
    ZEL_THROW(bad_alloc("bad allocation"));
}

// Notes on the pool
// -----------------
//
// Layout. The free list after init_pool(8, 4, m), after two allocations, and
// after the deallocation of the first chunk handed out (m+0):
//
//   free_list -> m+0 -> m+8 -> m+16 -> m+24 -> null      free_count 4
//   free_list -> m+16 -> m+24 -> null                    free_count 2
//   free_list -> m+0 -> m+16 -> m+24 -> null             free_count 3
//
// The list is threaded through the free chunks themselves, in the order they
// were given back; nothing records which chunks are handed out, and no chunk
// carries a header. So the only invariant the pool can verify is the count.
//
// Links. On a 32-bit target each arrow above is the next chunk's address,
// stored in the chunk's first four bytes. On a 64-bit target an address does
// not fit there, so the arrow is the signed distance to the next chunk (+8
// from m+0 to m+8 after init_pool, +16 from m+0 to m+16 at the end), and 0
// ends the list; the smallest chunk is four bytes on every target. A chunk
// cannot link to itself, so 0 is free to mean "none". Distances are 32-bit,
// which limits a 64-bit pool's block to 2 GiB.
//
// Alignment. The pool aligns nothing: chunk k starts at memory + k * size.
// A block aligned to 8 with a chunk size that is a multiple of 8 gives
// 8-aligned chunks; an odd chunk size gives unaligned ones, which the pool
// itself copes with (its links are copied with memcpy) but the objects an
// owner places in them may not.
//
// What is not checked. A chunk handed out is the caller's to overwrite whole,
// link included. A chunk given back twice, or one that never came from the
// pool, corrupts the list silently until check() or a later allocation meets
// it; the sizes passed to allocate are not compared with the chunk size.
//
// Threads. The pool takes no lock: a pool shared between threads needs an
// outside one, around allocate and deallocate alike.
//
// Sharing. An fs_pool holds only a pointer to its pool_data, so copies of
// it, and allocator_engine references to any of them, serve one pool; its
// id() is the address of that data.
//
// Growth. A pool never grows and never takes memory of its own. An owner
// that needs more chunks builds a second pool over a second block, or calls
// init_pool anew once every chunk has come back (init_pool forgets the
// chunks handed out, so calling it earlier leaks them into the list twice).
//
// Cost. allocate and deallocate are a handful of instructions each: no
// search, no header, no lock, and (called on an fs_pool rather than through
// allocator_engine) no virtual dispatch. check walks the free list once, one
// step per free chunk.
//
// Use for a container's nodes. An owner that makes nodes of one size builds
// a pool with that chunk size and hands it where an allocator_engine is
// taken:
//
//   struct node { node* next; int value; };
//   alignas(node) static char block[sizeof(node) * 256];
//   fs_pool::pool_data data;
//   fs_pool pool(data);
//   pool.init_pool(sizeof(node), 256, block);
//   node* n = static_cast<node*>(pool.allocate(sizeof(node)));
//   ...
//   pool.deallocate(n);
//
// The 257th allocation raises bad_alloc as a plain exception, as an exhausted
// heap does, so an owner written for the heaps needs no second error path.
//
// Pool or heap. A pool suits many short-lived objects of one size whose
// number has a known bound: nodes of a list or a tree, messages in flight.
// A heap suits everything else. A pool's memory is reused only for chunks of
// its own size, and it returns none of it until the owner frees the block.
//
// Debugging. check() after each suspect operation finds a list that no longer
// holds free_count chunks: a double deallocate, a chunk written after it was
// given back, or a stray pointer passed to deallocate. Between a corruption
// and the check, allocate may already hand out a chunk twice.
//
// Errors. Every raise goes through the library's throw path; the checked ones
// carry this file and a line that does not move between versions:
//
//   text                         class              raised by      line
//   "Invalid pool chunk size"    invalid_argument   init_pool      140
//   "Invalid pool chunk count"   invalid_argument   init_pool      141
//   "Incorrect pool count"       runtime_error      check          133
//   "bad allocation"             bad_alloc, as a    allocate       (none:
//                                plain exception                   dropped)
//
// A check that passes proves the count only: a chunk linked twice into a
// list of the right length goes unseen, which is why the debugging advice
// above pairs check() with the suspect operation rather than with the end of
// the program.

// The pool's invariant: the free list holds exactly free_count chunks. The
// walk stops once it has passed free_count (and so within chunk_count + 1
// steps of a sound pool), so a list that a stray pointer made longer or
// circular is reported rather than followed for ever.
void fs_pool::check() const {
    std::uint32_t counted = 0;
    for (pool_chunk* c = data_->free_list; c != nullptr && counted <= data_->free_count; c = next_of(c))
        ++counted;
    if (counted != data_->free_count)
        ZEL_THROW(runtime_error("Incorrect pool count"));
}

// The block is the owner's: init_pool only lays the list over it, and can be
// called again to forget every chunk handed out. The sizes are checked before
// anything changes, so a rejected set-up leaves the pool as it was.
void fs_pool::init_pool(unsigned chunk_size, unsigned chunk_count, void* memory) {
    if (chunk_size < 4) ZEL_THROW(invalid_argument("Invalid pool chunk size"));
    if (chunk_count < 2) ZEL_THROW(invalid_argument("Invalid pool chunk count"));
    data_->chunk_size = chunk_size;
    data_->chunk_count = chunk_count;
    data_->free_count = chunk_count;
    data_->free_list = static_cast<pool_chunk*>(memory);
    // Link the chunks in address order; the last one ends the list.
    char* const base = static_cast<char*>(memory);
    for (std::uint32_t k = 0; k + 1 < chunk_count; ++k)
        set_next(reinterpret_cast<pool_chunk*>(base + k * chunk_size),
                 reinterpret_cast<pool_chunk*>(base + (k + 1) * chunk_size));
    set_next(reinterpret_cast<pool_chunk*>(base + (chunk_count - 1) * chunk_size), nullptr);
}

} // namespace zel
