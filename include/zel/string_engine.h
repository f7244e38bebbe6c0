// The shared storage of the library's strings: string_engine, the string
// heaps it is allocated from, and string_initializer, which owns a heap and
// the shared empty engine every default-constructed string starts from.
//
// An engine is one heap block: a header (share count, allocator, size,
// capacity) followed directly by the characters and a null terminator.
// Blocks are requested with a header allowance four bytes larger than the
// header, so there is always room for the terminator of either character
// type after `capacity` characters. On 32-bit targets the header is 16 bytes
// and the allowance 20; on 64-bit targets the allocator pointer widens the
// header to 24 bytes and the allowance to 28.
//
// The engine does the storage work; it touches the share count only through
// the handle protocol (acquire/release) that string_base drives. Every
// operation that may change characters returns the engine now holding the
// result: this one, or a new one with a share count of 0 that the caller
// must take (acquire) before releasing the old one.
#ifndef ZEL_STRING_ENGINE_H
#define ZEL_STRING_ENGINE_H

#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>

#include <zel/char_traits.h>
#include <zel/config.h>
#include <zel/memory.h>

namespace zel {

template <class C>
class ZEL_API string_engine {
public:
    using traits_type = char_traits<C>;
    static constexpr unsigned npos = 0xFFFFFFFFu;

    // The bytes asked for in front of the characters of every block: the
    // header plus four bytes of terminator room.
    static constexpr unsigned header_allowance() noexcept {
        return static_cast<unsigned>(sizeof(string_engine)) + 4;
    }

    string_engine(virtual_allocator<C>* allocator, unsigned capacity) noexcept
        : string_engine(0, allocator, 0, capacity) {}
    string_engine(virtual_allocator<C>* allocator, unsigned size, unsigned capacity) noexcept
        : string_engine(0, allocator, size, capacity) {}
    string_engine(long refs, virtual_allocator<C>* allocator, unsigned size,
                  unsigned capacity) noexcept
        : refs_(static_cast<std::int32_t>(refs)), allocator_(allocator), size_(size),
          capacity_(capacity) {}
    string_engine(string_engine const&) = delete;
    string_engine& operator=(string_engine const&) = delete;
    ~string_engine() = default;

    // Gives the block back to the heap named in its own allocator field.
    // NOLINTNEXTLINE(cert-dcl54-cpp): engines are placed by new (p) in a heap's block
    static void operator delete(void* block) noexcept {
        static_cast<string_engine*>(block)->allocator_->deallocate(block);
    }

    // --- storage operations (see the file comment for the returned engine) --

    // A new, empty engine from the same allocator with room for n characters
    // (the heap may give more: capacity() tells).
    string_engine* allocate(unsigned n) const;
    // A new engine with room for size() + extra characters, holding a copy
    // of these.
    string_engine* clone(unsigned extra) const;
    // A new engine of n copies of c. A null c only reserves: the result is
    // empty, with room for n characters.
    string_engine* create(C c, unsigned n) const;
    // A new engine holding characters pos to pos + len of the text p of
    // length n (npos: the text's traits length); len is cut to what remains.
    // A null p gives an empty engine. Raises out_of_range when pos > n.
    string_engine* create(C const* p, unsigned n, unsigned pos, unsigned len) const;
    // Stores c at index pos, in a copy of the same capacity when shared. A
    // null c truncates the string at pos instead. Raises out_of_range when
    // pos >= size().
    string_engine* assign(C c, unsigned pos);
    // Replaces the len characters at pos (cut to what remains) by n copies
    // of c; a null c truncates the string at pos instead. Raises
    // out_of_range when pos > size().
    string_engine* merge(unsigned pos, unsigned len, C c, unsigned n);
    // Replaces the len characters at pos (cut) by characters ppos to
    // ppos + pn of the text p of length plen (npos: traits length; pn cut to
    // what remains; a null p is empty). The source may lie inside this very
    // string: it is read before anything is overwritten, and the result is
    // then always a new engine, even for an empty source. Raises
    // out_of_range when pos > size() or ppos > plen.
    string_engine* merge(unsigned pos, unsigned len, C const* p, unsigned plen, unsigned ppos,
                         unsigned pn);
    // An engine the caller may write, with room for n characters, its size
    // field set to n and the first min(n, size()) characters preserved. An
    // unshared engine asks its heap's query_resize first, whatever n is; it
    // is this one when the heap keeps the block (false); otherwise a new one.
    // A heap that answers false for more than the capacity holds is
    // overruled: the engine takes a new block rather than write past its
    // own. The caller must set the final size (terminate) before handing the
    // engine on.
    string_engine* mutate(unsigned n);
    // Removes n characters at pos (cut to what remains); removing nothing
    // returns this engine unchanged. Raises out_of_range when pos > size().
    string_engine* remove(unsigned pos, unsigned n);
    // Makes the size n: growing pads with c, or with a null c only reserves
    // room (the size stays); shrinking truncates.
    string_engine* resize(unsigned n, C c);
    // Sets the size to n and writes the terminator there. Only for an
    // engine the caller holds alone (or a new one).
    string_engine* terminate(unsigned n) noexcept {
        size_ = n;
        data()[n] = C(0);
        return this;
    }

    // --- access ---------------------------------------------------------------
    C* data(unsigned i = 0) noexcept { return reinterpret_cast<C*>(this + 1) + i; }
    C const* data(unsigned i = 0) const noexcept {
        return reinterpret_cast<C const*>(this + 1) + i;
    }
    C* begin() noexcept { return data(); }
    C const* begin() const noexcept { return data(); }
    C* end() noexcept { return data(size_); }
    C const* end() const noexcept { return data(size_); }
    unsigned size() const noexcept { return size_; }
    unsigned capacity() const noexcept { return capacity_; }
    virtual_allocator<C>* pool() const noexcept { return allocator_; }
    // The heap's largest block; for wide characters, half of it.
    unsigned max_size() const { return allocator_->max_size() >> (sizeof(C) - 1); }

    // --- the handle protocol -------------------------------------------------
    long refs() const noexcept { return refs_.load(std::memory_order_acquire); }
    bool shared() const noexcept { return refs_.load(std::memory_order_acquire) > 1; }
    // A handle takes the engine.
    void acquire() noexcept { refs_.fetch_add(1, std::memory_order_relaxed); }
    // A handle lets the engine go; the last one gives the block back. The
    // release test uses the value the decrement returns, never a re-read.
    void release() noexcept {
        if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            allocator_->deallocate(this);
    }
    // A handle that holds this engine switches to r, the engine an edit
    // returned. Two shortcuts leave every count as the protocol above has
    // it, without its two locked instructions (each of which waits for the
    // characters just copied to drain from the store buffer):
    //   - an engine no handle has taken yet (refs 0) is reachable from the
    //     switching thread alone, so its first count is a plain store;
    //   - an engine whose count reads 1 (acquire) belongs to this handle
    //     alone, the same evidence on which a handle writes into it in
    //     place, so it goes back to its heap without the decrement: no
    //     other handle exists that could take it or count it down.
    // Anything else (a shared r, a shared old engine) takes the locked way.
    string_engine* switch_to(string_engine* r) noexcept {
        if (r->refs_.load(std::memory_order_relaxed) == 0)
            r->refs_.store(1, std::memory_order_relaxed);
        else
            r->acquire();
        if (refs_.load(std::memory_order_acquire) == 1)
            allocator_->deallocate(this);
        else
            release();
        return r;
    }

private:
    // Whether p points into this block's characters.
    bool holds(C const* p) const noexcept {
        return !(p < data()) && !(p > data(capacity_));
    }

    std::atomic<std::int32_t> refs_;
    virtual_allocator<C>* allocator_;
    unsigned size_;
    unsigned capacity_;
};

ZEL_EXTERN_TEMPLATE(string_engine<char>);
ZEL_EXTERN_TEMPLATE(string_engine<unsigned short>);

static_assert(sizeof(std::atomic<std::int32_t>) == 4, "share counts are 32-bit");
static_assert(sizeof(string_engine<char>) == (pointers_are_32_bits ? 16 : 24),
              "the engine header is four 32-bit fields (the pointer widens on 64-bit)");

// The string heaps. Every block is a whole number of granules (32 bytes
// narrow, 64 bytes wide) and the granule is what decides reallocation.
//
// Kept behaviours:
//   - allocate always adds a whole granule above the size rounded down
//     (31 bytes give a 32-byte block, 32 give 64, 0 give 32), while
//     query_resize compares sizes rounded up (31 and 32 share a granule);
//   - like the general heaps they remove the process's new-handler around
//     the global operator new; the four-argument allocate reinstalls it
//     before testing the result, so it survives a failure, while the
//     one-argument allocate reinstalls it only on success.
// A failed allocation raises bad_alloc ("bad allocation") as a plain
// zel::exception.
class ZEL_API cstring_heap : public allocator_engine {
public:
    cstring_heap() noexcept = default;
    ~cstring_heap() override;

    unsigned long id() const override;
    unsigned max_size() const override;        // 2147483647
    bool query_resize(unsigned current, unsigned requested) const override;
    void* allocate(unsigned size, unsigned count, unsigned header,
                   unsigned* capacity) override;
    void* allocate(unsigned bytes) override;
    void deallocate(void* block) override;
};

class ZEL_API wstring_heap : public allocator_engine {
public:
    wstring_heap() noexcept = default;
    ~wstring_heap() override;

    unsigned long id() const override;
    unsigned max_size() const override;        // 2147483647
    bool query_resize(unsigned current, unsigned requested) const override;
    void* allocate(unsigned size, unsigned count, unsigned header,
                   unsigned* capacity) override;
    void* allocate(unsigned bytes) override;
    void deallocate(void* block) override;
};

namespace detail {
// The library's process-wide lock, taken for the one-time build of a string
// initializer.
ZEL_API void lock_global() noexcept;
ZEL_API void unlock_global() noexcept;
} // namespace detail

// Owns a string heap, the virtual_allocator handle onto it (storage(), the
// allocator every engine of these strings records) and the shared empty
// engine of the strings over it. Meant for static storage: zero-filled, it
// is unbuilt, and init() builds it on first use, once, under the library's
// global lock. Heap is any default-constructible allocator_engine.
//
// The empty engine starts with a share count of 2, one more than handles
// ever give back, so it is never freed.
template <class C, class Traits, class Heap>
class string_initializer {
public:
    using engine_type = string_engine<C>;

    engine_type* init() {
        if (state_.load(std::memory_order_acquire) == 0)
            return spbuild();
        return engine_;
    }
    engine_type* engine() const noexcept { return engine_; }
    Heap* heap() const noexcept { return heap_; }
    virtual_allocator<C>* storage() const noexcept { return storage_; }

    // Kept behaviour: copies the whole object as raw words, so the copy's
    // pointers still name the source's heap and engine. Harmful: the copy
    // must not outlive the source.
    string_initializer& operator=(string_initializer const& other) noexcept {
        std::memcpy(static_cast<void*>(this), static_cast<void const*>(&other), sizeof *this);
        return *this;
    }

private:
    engine_type* spbuild() {
        detail::lock_global();
        if (state_.load(std::memory_order_relaxed) == 0) {
            heap_ = ::new (static_cast<void*>(heap_object_)) Heap();
            storage_ = ::new (static_cast<void*>(allocator_object_)) virtual_allocator<C>(heap_);
            engine_ = ::new (static_cast<void*>(empty_)) engine_type(2, storage_, 0, 0);
            engine_->terminate(0);
            state_.store(-1, std::memory_order_release);
        }
        engine_type* e = engine_;
        detail::unlock_global();
        return e;
    }

    std::atomic<int> state_;
    Heap* heap_;
    virtual_allocator<C>* storage_;
    engine_type* engine_;
    alignas(Heap) unsigned char heap_object_[sizeof(Heap)];
    alignas(virtual_allocator<C>) unsigned char allocator_object_[sizeof(virtual_allocator<C>)];
    alignas(engine_type) unsigned char empty_[sizeof(engine_type) + 4];
};

// The initializers of the library's standard strings (zel::string over
// cstring_heap, zel::wstring over wstring_heap).
namespace detail {
extern ZEL_API string_initializer<char, char_traits<char>, cstring_heap> cstring_initializer;
extern ZEL_API string_initializer<unsigned short, char_traits<unsigned short>, wstring_heap>
    wstring_initializer;
} // namespace detail

} // namespace zel

#endif
