// The double-ended queue: deque_engine, the non-template core that keeps the
// addresses of the elements, in order, in one array of pointers (the map),
// and deque<T>, the typed layer that makes and destroys the elements.
//
// The used stretch of the map floats inside it with free slots on both
// sides and a null pointer just before and just after it. Elements never
// move in memory: inserting, erasing, reversing and sorting move pointers.
// The map grows by 4096 slots at a time, and only when it is more than half
// full; otherwise the engine re-centres the stretch in the map it has.
#ifndef ZEL_DEQUE_H
#define ZEL_DEQUE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <new>
#include <type_traits>
#include <utility>

#include <zel/comparator.h>
#include <zel/config.h>
#include <zel/exception.h>
#include <zel/memory.h>
#include <zel/sequence.h>

namespace zel {

// The engine. Index forms raise out_of_range (thrown directly, without file
// and line) when a position lies past the end; counts are clipped.
//
// Copies are shallow and the destructor frees nothing: the typed layer calls
// release_all(), which deletes the elements and gives the map back (the
// typed deque destroys its elements first and lets its pool take their
// memory back in one sweep).
//
// Insertions are strong: the gap is opened first (recording a safe_move),
// and a failure while the new elements are made deletes those made so far
// and closes the gap again.
class ZEL_API deque_engine {
public:
    static constexpr unsigned all = 0xFFFFFFFFu;
    // The map grows and shrinks by this many slots.
    static constexpr unsigned map_step = 4096;

    // Where reserve adds room.
    enum rsv_flags { rsv_back = 0, rsv_front = 1, rsv_both = 2 };

    // What expand_map records so that a failed insertion can close its gap
    // again: the gap's first slot, the slot behind it, and how many element
    // pointers lie behind it.
    struct safe_move {
        void** gap_start = nullptr;
        void** gap_end = nullptr;
        unsigned back = 0;
    };

    deque_engine() noexcept : map_(nullptr), data_(nullptr), capacity_(0), size_(0) {}
    deque_engine(deque_engine const&) noexcept = default;
    deque_engine& operator=(deque_engine const&) noexcept = default;
    virtual ~deque_engine();

    unsigned size() const noexcept { return size_; }
    unsigned capacity() const noexcept { return capacity_; }
    // Element addresses, unchecked.
    void* at_pos(unsigned i) const noexcept { return data_[i]; }
    void* at_front() const noexcept { return data_[0]; }
    void* at_back() const noexcept { return data_[size_ - 1]; }

    // Appends n copies of *value; in place while the slots behind the
    // stretch number more than n + 1, through insert otherwise.
    void push_back(void const* value, unsigned n);
    // Prepends n copies of *value; in place while the slots before the
    // stretch number more than n + 1 (the mirror of push_back's test),
    // through insert otherwise.
    void push_front(void const* value, unsigned n);
    // Remove min(n, size) elements; the map is kept.
    void pop_back(unsigned n);
    void pop_front(unsigned n);
    // n copies of *value before pos.
    void insert(unsigned pos, void const* value, unsigned n);
    // Copies of all of other's elements (this engine's too) before pos.
    void insert(unsigned pos, deque_engine const& other);
    // Copies of other's [first, first + n) before pos, n clipped.
    void insert(unsigned pos, deque_engine const& other, unsigned first, unsigned n);
    // Deletes [first, first + n), n clipped, and closes the gap; a map far
    // too big for what remains is replaced by a smaller one.
    void erase(unsigned first, unsigned n);
    // Deletes every element and closes the gap as erase does: the map stays,
    // its empty stretch re-centred (or it is replaced by a 4096-slot one
    // when it is bigger than that).
    void clear();
    // Replace the contents. A sub-range of this engine itself is kept in
    // place by erasing what lies behind it and then before it.
    void assign(void const* value, unsigned n);
    void assign(deque_engine const& other);
    void assign(deque_engine const& other, unsigned first, unsigned n);
    void resize(unsigned n, void const* value);
    // Reverse [first, first + n), n clipped; only pointers move.
    void reverse(unsigned first, unsigned n);
    // A stable merge sort of the element pointers. The comparator answers
    // "a stays ahead of b" (an order_comparator); a comparator that throws
    // leaves the order unchanged.
    void sort(comparator_base const& comparator);
    // same_layout: exchange the four fields. Otherwise the common prefix is
    // exchanged value by value (swap_elements) and the bigger engine's
    // surplus is copied to the smaller one and erased from the bigger.
    void swap(deque_engine& other, bool same_layout);
    // Only when n exceeds the capacity: opens n - capacity free slots at
    // the back, the front, or half (rounded down) at the front and the
    // rest at the back. The map grows only when it is more than half full,
    // so the capacity afterwards may still be below n.
    void reserve(unsigned n, rsv_flags where);
    // Raises container_error when an invariant does not hold (see the .cpp).
    void check() const;

    // Map size for n slots: (n + 4096) rounded down to a multiple of 4096,
    // so always more than n.
    static unsigned get_capacity(unsigned n) noexcept { return (n + map_step) & ~(map_step - 1); }

protected:
    // The typed layer's operations, in slot order.
    virtual void** allocate_map(unsigned n) = 0;
    virtual void* new_element(void const* value) = 0;
    virtual void deallocate_map(void* map) = 0;
    virtual void delete_element(void* element) = 0;
    // Exchanges the values of two elements (the element-by-element swap).
    virtual void swap_elements(void* a, void* b) = 0;

    // Deletes every element and gives the map back (no map, capacity 0):
    // what the typed layer's destructor and clear() do.
    void release_all() noexcept;

    [[noreturn]] static void mismatched_iterator();
    [[noreturn]] static void iterator_at_end();
    [[noreturn]] static void index_out_of_range();

    void** map_;
    void** data_;
    std::uint32_t capacity_;
    std::uint32_t size_;

private:
    void alloc_map(unsigned n, unsigned used, unsigned front, unsigned gap, unsigned back,
                   bool opening);
    void expand_map(unsigned pos, unsigned n, safe_move* mover);
    void shrink_map(unsigned pos, unsigned n, safe_move* mover);
    void undo(safe_move const& mover) noexcept;
    void terminate(unsigned n) noexcept {
        data_[-1] = nullptr;
        data_[n] = nullptr;
    }
    static void pcopy(unsigned n, void* const* from, void** to) noexcept;
    void fill(unsigned pos, unsigned n, deque_engine const* other, unsigned first,
              void const* value);
};

static_assert(sizeof(deque_engine) == 3 * sizeof(void*) + 2 * sizeof(std::uint32_t),
              "deque_engine is a vtable pointer, map, data, capacity and size");

// Fixed-size chunks carved from blocks of growing size, with freed chunks
// kept on a list for reuse: making a deque element costs a few instructions
// instead of a trip to the global heap. Blocks come from a std_heap and go
// back only in release() (and the destructor).
class ZEL_API element_pool {
public:
    // chunk_size is rounded up to a multiple of alignment and of a pointer.
    element_pool(unsigned chunk_size, unsigned alignment) noexcept;
    element_pool(element_pool const&) = delete;
    element_pool& operator=(element_pool const&) = delete;
    ~element_pool() { release(); }

    void* allocate() {
        if (free_) {
            // The links are kept as integers so that a push hands them on in
            // registers.
            void* p = reinterpret_cast<void*>(free_);  // NOLINT(performance-no-int-to-ptr)
            free_ = *static_cast<std::uintptr_t*>(p);
            return p;
        }
        if (next_ != end_) {
            std::uintptr_t const p = next_;
            next_ = p + chunk_;
            return reinterpret_cast<void*>(p);  // NOLINT(performance-no-int-to-ptr)
        }
        return grow();
    }
    void deallocate(void* p) noexcept {
        *static_cast<std::uintptr_t*>(p) = free_;
        free_ = reinterpret_cast<std::uintptr_t>(p);
    }
    // Gives every block back; every chunk handed out is void afterwards.
    void release() noexcept;
    void swap(element_pool& other) noexcept;

private:
    void* grow();   // out of line: runs once per block

    // The cursor and the free list are kept as integers, not pointers: a
    // store of an element pointer into a map cannot alias them, so the
    // compiler keeps them in registers from one inline push to the next.
    unsigned chunk_;
    unsigned block_bytes_;
    std::uintptr_t next_ = 0;   // the next fresh chunk of the newest block
    std::uintptr_t end_ = 0;
    std::uintptr_t free_ = 0;   // freed chunks, each linking the next
    void* blocks_ = nullptr;    // each block's first word links the previous
    std_heap heap_;
};

// The blocks behind a deque's maps. The engine grows its map by one step of
// 4096 slots at a time, each time into a new map: taken fresh from the C
// library, every step would cost an allocation and, for a big map, page
// faults over the whole block. So a growing map gets a block half as big
// again as it asks for, and the block of the map it replaces is kept as a
// spare; the next steps usually fit in the spare, and the two blocks take
// turns, so only about two blocks are taken per growth by half. A request
// that is not a growth (a smaller map, the sort's scratch) gets an exact
// block, and a spare too big for it is given back. Each block keeps its
// slot count in the word before slot 0.
class ZEL_API map_blocks {
public:
    map_blocks() noexcept = default;
    map_blocks(map_blocks const&) = delete;
    map_blocks& operator=(map_blocks const&) = delete;
    ~map_blocks() { release(); }

    // A block of at least n slots for a map that replaces one of
    // `capacity` slots (0: none).
    void** allocate(unsigned n, unsigned capacity);
    // Keeps the block as the spare when the last allocate was a growth
    // (the map it replaced); gives it back otherwise.
    void deallocate(void* map) noexcept;
    // Gives the spare back.
    void release() noexcept;
    void swap(map_blocks& other) noexcept;

private:
    void** spare_ = nullptr;
    bool keep_ = false;
    std_heap heap_;
};

// The typed double-ended queue. Elements live in the deque's own pool and
// never move; iterators are invalidated by every insertion and erasure
// (the map moves), references only by erasing their element. An iterator
// of another deque passed to insert or erase raises container_error
// "mis-matched iterator(s)", and erasing end() raises "iterator points to
// end()". A throwing copy leaves the deque as it was.
template <class T>
class deque : protected deque_engine, public indexed_members<deque<T>, T, deque_engine, true> {
    using members = indexed_members<deque, T, deque_engine, true>;
    friend members;
    static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__,
                  "pool blocks are aligned for new's default alignment");

public:
    // value_type, size_type, reference and the reverse iterators come with
    // the members.
    using iterator = engine_iterator<T, deque_engine, true>;
    using const_iterator = engine_iterator<T const, deque_engine, true>;

    deque() noexcept : pool_(sizeof(T), alignof(T)) {}
    explicit deque(unsigned n, T const& value = T()) : deque() { push_back_n(n, value); }
    deque(std::initializer_list<T> il) : deque(il.begin(), il.end()) {}
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    deque(It first, It last) : deque() {
        for (; first != last; ++first)
            push_back(*first);
    }
    deque(deque const& other) : deque() { deque_engine::insert(0, other); }
    deque(deque&& other) noexcept : deque() { swap(other); }
    ~deque() override { destroy_all(); }

    deque& operator=(deque const& other) {
        deque_engine::assign(other);
        return *this;
    }
    deque& operator=(deque&& other) noexcept { return move_assign(*this, other); }
    using members::operator=;
    void assign(unsigned n, T const& value) { deque_engine::assign(&value, n); }
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    void assign(It first, It last) {
        deque tmp(first, last);   // the source may be our own elements
        this->erase(begin(), end());
        deque_engine::insert(0, tmp);
    }

    // Unchecked; at, front and back come with the members.
    T& operator[](unsigned i) noexcept { return *static_cast<T*>(data_[i]); }
    T const& operator[](unsigned i) const noexcept { return *static_cast<T const*>(data_[i]); }

    iterator begin() noexcept { return {this, data_}; }
    iterator end() noexcept { return {this, data_ + size_}; }
    const_iterator begin() const noexcept { return {this, data_}; }
    const_iterator end() const noexcept { return {this, data_ + size_}; }

    using deque_engine::capacity;
    using deque_engine::check;
    using deque_engine::size;
    using deque_engine::rsv_flags;
    void reserve(unsigned n, rsv_flags where = rsv_back) { deque_engine::reserve(n, where); }

    // Deletes every element and gives back the map and the pool's blocks.
    // Unlike the engine's clear(), which keeps the map.
    void clear() noexcept { destroy_all(); }

    // The fast paths run the engine's own room tests (more than n + 1 free
    // slots on that side, n = 1) and otherwise leave the work to it.
    // Without a map all three fields are 0, so the tests fail without a
    // separate look at the map.
    // The fields are written last, after the element and the map slots,
    // so that no store can alias them before the next push reads them.
    void push_back(T const& value) {
        void** const data = data_;
        unsigned const size = size_;
        if (capacity_ - unsigned(data - map_) - size > 2) {
            T* const element = make_element(value);
            data[size] = element;
            data[size + 1] = nullptr;
            size_ = size + 1;
        } else {
            deque_engine::push_back(&value, 1);
        }
    }
    void push_front(T const& value) {
        void** const data = data_;
        if (unsigned(data - map_) > 2) {
            T* const element = make_element(value);
            data[-1] = element;
            data[-2] = nullptr;
            data_ = data - 1;
            ++size_;
        } else {
            deque_engine::push_front(&value, 1);
        }
    }
    void pop_back() { deque_engine::pop_back(1); }
    void pop_front() { deque_engine::pop_front(1); }

    using members::erase;
    using members::insert;
    iterator insert(const_iterator pos, unsigned n, T const& value) {
        unsigned const i = this->checked_index(pos);
        deque_engine::insert(i, &value, n);
        return begin() + i;
    }
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    iterator insert(const_iterator pos, It first, It last) {
        unsigned const i = this->checked_index(pos);
        deque tmp(first, last);
        deque_engine::insert(i, tmp);
        return begin() + i;
    }
    void resize(unsigned n) { resize(n, T()); }
    void resize(unsigned n, T const& value) { deque_engine::resize(n, &value); }

    void swap(deque& other) noexcept {
        deque_engine::swap(other, true);
        pool_.swap(other.pool_);
        maps_.swap(other.maps_);
    }
    void reverse() { deque_engine::reverse(0, size_); }
    // Stable; `comp` is a strict weak order (a < b).
    template <class Compare>
    void sort(Compare comp) {
        deque_engine::sort(order_comparator<T, Compare>(std::move(comp)));
    }
    void sort() { sort(less<T>()); }

protected:
    void** allocate_map(unsigned n) override { return maps_.allocate(n, capacity_); }
    void* new_element(void const* value) override { return make_element(*static_cast<T const*>(value)); }
    void deallocate_map(void* map) override { maps_.deallocate(map); }
    void delete_element(void* element) override {
        static_cast<T*>(element)->~T();
        pool_.deallocate(element);
    }
    void swap_elements(void* a, void* b) override {
        using std::swap;
        swap(*static_cast<T*>(a), *static_cast<T*>(b));
    }

private:
    // Every element lives in this deque's pool, so the pool's blocks go back
    // in one sweep instead of chunk by chunk: only the destructors run, one
    // loop without virtual calls, and none at all for trivial elements.
    void destroy_all() noexcept {
        if constexpr (!std::is_trivially_destructible_v<T>) {
            for (unsigned i = 0; i < size_; ++i)
                static_cast<T*>(data_[i])->~T();
        }
        size_ = 0;
        release_all();   // no element left: gives back the map
        maps_.release();
        pool_.release();
    }
    // new_element without the virtual call, for the inline fast paths.
    T* make_element(T const& value) {
        void* p = pool_.allocate();
        if constexpr (std::is_nothrow_copy_constructible_v<T>) {
            return ::new (p) T(value);
        } else {
            try {
                return ::new (p) T(value);
            } catch (...) {
                pool_.deallocate(p);
                throw;
            }
        }
    }
    void push_back_n(unsigned n, T const& value) {
        if (n != 0)
            deque_engine::push_back(&value, n);
    }

    element_pool pool_;
    map_blocks maps_;
};

} // namespace zel

#endif
