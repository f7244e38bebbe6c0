// The dynamic array: vector_engine, the non-template core that owns one
// contiguous block and does all index arithmetic, growth, rollback and
// checking, and vector<T, Heap>, the typed layer that supplies the element
// operations (copy, assign, destroy, swap) and the heap's capacity policy.
//
// The engine never touches an element: every element operation is one of its
// virtual hooks, called once per range. Elements are addressed as (base,
// index) pairs, so one engine can copy from another engine's block or from a
// caller's plain array.
#ifndef ZEL_VECTOR_H
#define ZEL_VECTOR_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include <zel/comparator.h>
#include <zel/config.h>
#include <zel/exception.h>
#include <zel/memory.h>
#include <zel/sequence.h>

namespace zel {

// The engine. Counts and indexes are unsigned 32-bit; 0xFFFFFFFF ("all")
// stands for "everything from here on" in counts.
//
// Copies are shallow (the three fields as they stand) and the destructor
// frees nothing: the typed layer calls clear() in its own destructor and
// gives a copy its own elements through assign().
//
// Exception safety: the new-block and re-block paths are strong (a rollback
// guard frees the new block and leaves the engine as it was); the in-place
// insert is basic (size always counts exactly the constructed elements).
//
// Kept behaviours a caller must know (the typed layer never triggers them):
//  - insert in place of a range with `first` not 0 that reaches past the
//    old end takes the part beyond the old end from src[tail..], not from
//    src[first + tail..] (tail = size - pos). Pass first = 0 and advance src.
//    The sub-range forms insert(pos, other, first, count) and
//    assign(other, first, count) with another engine pass `first` through,
//    and so does the element-by-element swap when the smaller engine has
//    room for the surplus: they copy the wrong elements in those cases.
//  - assign(src, ...) with src inside this engine's own block destroys the
//    source before it copies it; use the sub-range form with this engine.
//  - reverse(0, 0) on two or more elements wraps its upper index to
//    0xFFFFFFFF and swaps far outside the block.
class ZEL_API vector_engine {
public:
    static constexpr unsigned all = 0xFFFFFFFFu;

    vector_engine() noexcept : data_(nullptr), size_(0), capacity_(0) {}
    vector_engine(vector_engine const&) noexcept = default;
    vector_engine& operator=(vector_engine const&) noexcept = default;
    // Frees nothing (see above).
    virtual ~vector_engine();

    void* data() const noexcept { return data_; }
    unsigned size() const noexcept { return size_; }
    unsigned capacity() const noexcept { return capacity_; }

    // pop_back(all), then insert(0, src, first, count).
    void assign(void const* src, unsigned first, unsigned count);
    // Nothing when other is this engine; else pop_back(all), insert(0, other).
    void assign(vector_engine const& other);
    // With this engine: keeps elements [first, first + count) in place by
    // erasing what lies behind and then before them (first > size raises
    // out_of_range). With another engine: pop_back(all), then
    // insert(0, other, first, count).
    void assign(vector_engine const& other, unsigned first, unsigned count);
    // Destroys every element and frees the block.
    void clear();
    // Erases [first, first + count), count clipped; first > size raises
    // out_of_range. May shrink the block through the capacity policy.
    void erase(unsigned first, unsigned count);
    // Inserts count elements src[first..] before pos, or count copies of
    // *src when first is all. A null src does nothing; pos > size raises
    // out_of_range. A source inside this engine's block, or a size the
    // capacity policy rejects, takes the new-block path.
    // Kept behaviour a caller must know: in place, when count exceeds the
    // elements behind pos, the part that lands past the old end is copied
    // from src[tail..] (tail = size - pos), not src[first + tail..]; the
    // result is exact only for first == 0, which is how the typed layer
    // calls it.
    void insert(unsigned pos, void const* src, unsigned first, unsigned count);
    // Inserts all of other (itself too: that always builds a new block).
    void insert(unsigned pos, vector_engine const& other);
    // Inserts other's [first, first + count), count clipped; first past
    // other's size raises out_of_range.
    void insert(unsigned pos, vector_engine const& other, unsigned first, unsigned count);
    // Destroys the last count elements (all: every one). Keeps the block.
    void pop_back(unsigned count);
    // Appends count copies of *value; a new block when capacity is short.
    void push_back(void const* value, unsigned count);
    // Re-blocks to n when n exceeds the capacity.
    void reserve(unsigned n);
    // Erases down to n or appends copies of *value up to n; at the same size
    // re-blocks when the capacity policy asks for it.
    void resize(unsigned n, void const* value);
    // Reverses [first, first + count), count clipped; first > size raises
    // out_of_range. Nothing when size is below 2.
    void reverse(unsigned first, unsigned count);
    // same_layout: exchange the three fields. Otherwise element by element:
    // the common prefix swapped pairwise, the surplus moved to the smaller.
    // Kept behaviour a caller must know: the surplus is appended through
    // insert(n, big, n, diff), so when the smaller engine has room it
    // receives big's first diff elements, not its last (see insert). The
    // typed vector always swaps with same_layout true.
    void swap(vector_engine& other, bool same_layout);
    // Raises container_error when an invariant does not hold (see the .cpp).
    void check() const;

    // The Shell-sort gaps (Sedgewick 1986), ascending.
    static std::uint32_t const shell_numbers[29];
    // Index of the largest gap not greater than n (0 for n below 5).
    static unsigned first_shell_index(unsigned n) noexcept;
    // shell_numbers[i], unchecked.
    static unsigned shell_number(unsigned i) noexcept { return shell_numbers[i]; }

protected:
    // The typed layer's element operations, in slot order. Counts may be 0.
    // Assigns count constructed targets from sources; the two ranges may
    // overlap in either direction within one block.
    virtual void assign_elements(unsigned count, void const* src, unsigned src_index,
                                 void* dst, unsigned dst_index) = 0;
    // Copy-constructs count elements into raw slots; all or nothing.
    virtual void construct_elements(unsigned count, void const* src, unsigned src_index,
                                    void* dst, unsigned dst_index) = 0;
    virtual void fill_assign(unsigned count, void const* value, void* dst, unsigned dst_index) = 0;
    // Copy-constructs count copies of *value into raw slots; all or nothing.
    virtual void fill_construct(unsigned count, void const* value, void* dst,
                                unsigned dst_index) = 0;
    virtual void destroy_elements(void* base, unsigned index, unsigned count) = 0;
    virtual void swap_elements(void* base1, unsigned index1, void* base2, unsigned index2) = 0;
    // Raw room for at least `requested` elements; *granted receives how many
    // the block really holds.
    virtual void* allocate(unsigned requested, unsigned* granted) = 0;
    virtual void deallocate(void* base) = 0;
    virtual unsigned element_size() const = 0;
    // The capacity policy: true when the block is not right for `count`.
    virtual bool needs_reallocation(unsigned count) const = 0;

    // Raise the typed layer's errors from this engine's source file.
    [[noreturn]] static void mismatched_iterator();
    [[noreturn]] static void iterator_at_end();
    [[noreturn]] static void too_long();
    [[noreturn]] static void index_out_of_range();

    void* data_;
    std::uint32_t size_;
    std::uint32_t capacity_;

private:
    void vcopy(unsigned pos, void const* src, unsigned first, unsigned count);
    void vcreate(unsigned pos, void const* src, unsigned first, unsigned count);
    void vresize(unsigned n);
    void reset() noexcept { data_ = nullptr; size_ = capacity_ = 0; }

    struct rollback;
};

static_assert(sizeof(vector_engine) == 2 * sizeof(void*) + 2 * sizeof(std::uint32_t),
              "vector_engine is a vtable pointer, data, size and capacity");

// The typed dynamic array over a heap (vector_heap by default: blocks grow
// to the next power of two and shrink when less than half used).
//
// Element types must be copy-constructible and copy-assignable; the engine
// copies (it never moves) when it shifts or re-blocks elements. A throwing
// copy leaves the vector as it was on the new-block paths (growth, insertion
// of its own elements) and valid, with every element still owned, on the
// in-place paths. Iterators are invalidated as for std::vector; an iterator
// of another vector passed to insert or erase raises container_error
// "mis-matched iterator(s)", and erasing end() raises "iterator points to
// end()".
template <class T, class Heap = vector_heap>
class vector : protected vector_engine, public indexed_members<vector<T, Heap>, T, vector_engine, false> {
    using members = indexed_members<vector, T, vector_engine, false>;
    friend members;
    static_assert(std::is_base_of_v<allocator_engine, Heap>, "a vector's heap is an allocator_engine");
    static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__,
                  "the heaps return blocks aligned for new's default alignment");

public:
    // value_type, size_type, reference and the reverse iterators come with
    // the members.
    using pointer = T*;
    using const_pointer = T const*;
    using iterator = engine_iterator<T, vector_engine, false>;
    using const_iterator = engine_iterator<T const, vector_engine, false>;

    vector() noexcept = default;
    explicit vector(unsigned n, T const& value = T()) { push_back_n(n, value); }
    vector(std::initializer_list<T> il) { append(il.begin(), static_cast<unsigned>(il.size())); }
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    vector(It first, It last) { insert(end(), first, last); }
    vector(vector const& other) : vector_engine() { append(other.data(), other.size()); }
    vector(vector&& other) noexcept : vector_engine() { vector_engine::swap(other, true); }
    ~vector() override { clear(); }

    vector& operator=(vector const& other) {
        vector_engine::assign(static_cast<vector_engine const&>(other));
        return *this;
    }
    vector& operator=(vector&& other) noexcept { return move_assign(*this, other); }
    using members::operator=;

    void assign(unsigned n, T const& value) {
        clear_elements();
        push_back_n(n, value);
    }
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    void assign(It first, It last) {
        if constexpr (std::is_pointer_v<It> || std::is_same_v<It, iterator> || std::is_same_v<It, const_iterator>) {
            // A range of our own is kept in place rather than copied from
            // elements already destroyed.
            if (first != last && owns(&*first)) {
                vector_engine::assign(*this, index_of(&*first), static_cast<unsigned>(last - first));
                return;
            }
        }
        clear_elements();
        insert(end(), first, last);
    }
    void assign(std::initializer_list<T> il) { assign(il.begin(), il.end()); }

    // Element access (at, front and back come with the members): [] is
    // unchecked.
    T& operator[](unsigned i) noexcept { return data()[i]; }
    T const& operator[](unsigned i) const noexcept { return data()[i]; }
    T* data() noexcept { return static_cast<T*>(data_); }
    T const* data() const noexcept { return static_cast<T const*>(data_); }

    iterator begin() noexcept { return {this, data()}; }
    iterator end() noexcept { return {this, data() + size_}; }
    const_iterator begin() const noexcept { return {this, data()}; }
    const_iterator end() const noexcept { return {this, data() + size_}; }

    using vector_engine::capacity;
    using vector_engine::check;
    using vector_engine::size;
    unsigned max_size() const noexcept { return heap_.max_size() / sizeof(T); }
    void reserve(unsigned n) { vector_engine::reserve(n); }

    // Destroys the elements and frees the block.
    using vector_engine::clear;

    // The fast path appends in place while there is room; the engine grows
    // the block otherwise (and copes with `value` being one of our own).
    void push_back(T const& value) {
        if (size_ < capacity_) {
            ::new (static_cast<void*>(data() + size_)) T(value);
            ++size_;
        } else {
            vector_engine::push_back(&value, 1);
        }
    }
    void pop_back() { vector_engine::pop_back(1); }

    using members::erase;
    using members::insert;
    iterator insert(const_iterator pos, unsigned n, T const& value) {
        unsigned const at_index = this->checked_index(pos);
        if (n != 0)
            vector_engine::insert(at_index, &value, all, n);
        return begin() + at_index;
    }
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    iterator insert(const_iterator pos, It first, It last) {
        unsigned const at_index = this->checked_index(pos);
        using category = typename std::iterator_traits<It>::iterator_category;
        if constexpr (std::is_pointer_v<It> || std::is_same_v<It, iterator> || std::is_same_v<It, const_iterator>) {
            if (first != last)
                vector_engine::insert(at_index, &*first, 0, static_cast<unsigned>(last - first));
        } else if constexpr (std::is_base_of_v<std::forward_iterator_tag, category>) {
            // Gather the range once, then insert it as one block.
            vector tmp;
            tmp.reserve(static_cast<unsigned>(std::distance(first, last)));
            for (; first != last; ++first)
                tmp.push_back(*first);
            insert(begin() + at_index, tmp.data(), tmp.data() + tmp.size());
        } else {
            vector tmp;
            for (; first != last; ++first)
                tmp.push_back(*first);
            insert(begin() + at_index, tmp.data(), tmp.data() + tmp.size());
        }
        return begin() + at_index;
    }

    void resize(unsigned n) { resize(n, T()); }
    void resize(unsigned n, T const& value) { vector_engine::resize(n, &value); }

    void swap(vector& other) noexcept { vector_engine::swap(other, true); }

    void reverse() {
        if (size_ > 1)
            vector_engine::reverse(0, size_);
    }
    // Shell sort over the engine's gap table: in place, no allocation, not
    // stable. `comp` is a strict weak order (a < b).
    template <class Compare>
    void sort(Compare comp) {
        T* a = data();
        unsigned const n = size_;
        if (n < 2)
            return;
        for (unsigned k = first_shell_index(n) + 1; k-- > 0;) {
            unsigned const gap = shell_number(k);
            for (unsigned i = gap; i < n; ++i) {
                if (!comp(a[i], a[i - gap]))
                    continue;
                T v = std::move(a[i]);
                unsigned j = i;
                do {
                    a[j] = std::move(a[j - gap]);
                    j -= gap;
                } while (j >= gap && comp(v, a[j - gap]));
                a[j] = std::move(v);
            }
        }
    }
    void sort() { sort(less<T>()); }

protected:
    void assign_elements(unsigned count, void const* src, unsigned src_index, void* dst,
                         unsigned dst_index) override {
        T const* s = static_cast<T const*>(src) + src_index;
        T* d = static_cast<T*>(dst) + dst_index;
        if (count == 0 || s == d)
            return;
        if constexpr (std::is_trivially_copyable_v<T>) {
            std::memmove(static_cast<void*>(d), s, count * sizeof(T));
        } else if (d < s) {
            std::copy(s, s + count, d);
        } else {
            std::copy_backward(s, s + count, d + count);
        }
    }
    void construct_elements(unsigned count, void const* src, unsigned src_index, void* dst,
                            unsigned dst_index) override {
        T const* s = static_cast<T const*>(src) + src_index;
        T* d = static_cast<T*>(dst) + dst_index;
        if constexpr (std::is_trivially_copyable_v<T>) {
            if (count != 0)
                std::memcpy(static_cast<void*>(d), s, count * sizeof(T));
        } else {
            std::uninitialized_copy(s, s + count, d);
        }
    }
    void fill_assign(unsigned count, void const* value, void* dst, unsigned dst_index) override {
        T* d = static_cast<T*>(dst) + dst_index;
        std::fill(d, d + count, *static_cast<T const*>(value));
    }
    void fill_construct(unsigned count, void const* value, void* dst, unsigned dst_index) override {
        T* d = static_cast<T*>(dst) + dst_index;
        std::uninitialized_fill(d, d + count, *static_cast<T const*>(value));
    }
    void destroy_elements(void* base, unsigned index, unsigned count) override {
        std::destroy_n(static_cast<T*>(base) + index, count);
    }
    void swap_elements(void* base1, unsigned index1, void* base2, unsigned index2) override {
        using std::swap;
        swap(static_cast<T*>(base1)[index1], static_cast<T*>(base2)[index2]);
    }
    void* allocate(unsigned requested, unsigned* granted) override {
        if (requested > max_size())
            too_long();
        return heap_.allocate(sizeof(T), requested, 0, granted);
    }
    void deallocate(void* base) override { heap_.deallocate(base); }
    unsigned element_size() const override { return sizeof(T); }
    bool needs_reallocation(unsigned count) const override {
        return heap_.query_resize(capacity_ * unsigned(sizeof(T)), count * unsigned(sizeof(T)));
    }

private:
    // Destroys every element but keeps the block, ready for a refill.
    void clear_elements() { vector_engine::pop_back(all); }
    void push_back_n(unsigned n, T const& value) {
        if (n != 0)
            vector_engine::push_back(&value, n);
    }
    void append(T const* src, unsigned n) {
        if (n != 0)
            vector_engine::insert(size_, src, 0, n);
    }
    bool owns(T const* p) const noexcept {
        auto const a = reinterpret_cast<std::uintptr_t>(p);
        return a >= reinterpret_cast<std::uintptr_t>(data()) &&
               a < reinterpret_cast<std::uintptr_t>(data() + size_);
    }
    unsigned index_of(T const* p) const noexcept { return static_cast<unsigned>(p - data()); }

    Heap heap_;
};

} // namespace zel

#endif
