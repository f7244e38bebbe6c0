// vector_engine: the element-independent work of the dynamic array. Every
// element operation goes through the typed layer's hooks; this file decides
// which elements are made, copied and destroyed, in which order, and how a
// failure is rolled back. The checks and the slow paths live here rather
// than in the header so that every instantiation shares one copy and every
// error reports this file.
//
// Errors:
//   text                       class            raised by           line
//   "invalid array size"       container_error  check               195, 199
//   "invalid array capacity"   container_error  check               200
//   (none)                     out_of_range     insert, position    609 (in
//                                               past size           place), 693
//                                                                   (new block)
// Those reports carry the lines they have always carried, wherever the code
// now sits (ZEL_THROW_AT); the rest report their real line.
//   (none)                     out_of_range     erase, reverse, sub-range
//                                               insert and assign: start
//                                               past size (thrown directly,
//                                               without file and line)
#include <zel/vector.h>

#include <cstdint>
#include <functional>

namespace zel {

std::uint32_t const vector_engine::shell_numbers[29] = {
    1u,         5u,         19u,        41u,        109u,       209u,
    505u,       929u,       2161u,      3905u,      8929u,      16001u,
    36289u,     64769u,     146305u,    260609u,    587521u,    1045505u,
    2354689u,   4188161u,   9427969u,   16764929u,  37730305u,  67084289u,
    150958081u, 268386305u, 603906049u, 1073643521u, 2415771649u};

vector_engine::~vector_engine() = default;

// Holds a freshly allocated block while it is filled. Unless released, it
// destroys what was constructed in it and frees it, so a throwing copy leaves
// the engine exactly as it was.
struct vector_engine::rollback {
    vector_engine& engine;
    void* base;
    unsigned constructed = 0;

    rollback(vector_engine& e, void* b) noexcept : engine(e), base(b) {}
    rollback(rollback const&) = delete;
    rollback& operator=(rollback const&) = delete;
    ~rollback() {
        if (!base)
            return;
        if (constructed != 0)
            engine.destroy_elements(base, 0, constructed);
        engine.deallocate(base);
    }
    void* release() noexcept {
        void* b = base;
        base = nullptr;
        return b;
    }
};

// The engine's invariants:
//   1. with a block, the capacity is at least the size;
//   2. without a block, the size is 0;
//   3. without a block, the capacity is 0.
void vector_engine::check() const {
    if (data_) {
        if (capacity_ < size_)
            ZEL_THROW_AT(container_error("invalid array size"), 195);        // 1
    } else {
        if (size_ != 0)
            ZEL_THROW_AT(container_error("invalid array size"), 199);        // 2
        if (capacity_ != 0)
            ZEL_THROW_AT(container_error("invalid array capacity"), 200);    // 3
    }
}

void vector_engine::mismatched_iterator() {
    ZEL_THROW(container_error("mis-matched iterator(s)"));
}

void vector_engine::iterator_at_end() {
    ZEL_THROW(container_error("iterator points to end()"));
}

void vector_engine::too_long() {
    ZEL_THROW(length_error("vector too long"));
}

void vector_engine::index_out_of_range() {
    throw out_of_range();
}

// The bound keeps the look-ahead inside the table: from 2415771649 up the
// last gap is the answer.
unsigned vector_engine::first_shell_index(unsigned n) noexcept {
    unsigned i = 0;
    while (i + 1 < 29 && shell_numbers[i + 1] <= n)
        ++i;
    return i;
}

void vector_engine::assign(void const* src, unsigned first, unsigned count) {
    pop_back(all);
    insert(0, src, first, count);
}

void vector_engine::assign(vector_engine const& other) {
    if (&other == this)
        return;
    pop_back(all);
    insert(0, other);
}

void vector_engine::assign(vector_engine const& other, unsigned first, unsigned count) {
    if (&other != this) {
        pop_back(all);
        insert(0, other, first, count);
        return;
    }
    // A range of our own stays where it is: cut what lies behind it, then
    // what lies before it.
    if (first > size_)
        throw out_of_range();
    count = std::min(count, size_ - first);
    if (first + count < size_)
        erase(first + count, all);
    if (first != 0)
        erase(0, first);
}

void vector_engine::clear() {
    if (!data_)
        return;
    destroy_elements(data_, 0, size_);
    deallocate(data_);
    reset();
}

void vector_engine::erase(unsigned first, unsigned count) {
    if (!data_ || count == 0)
        return;
    if (first > size_)
        throw out_of_range();
    count = std::min(count, size_ - first);
    unsigned const rest = size_ - (first + count);
    if (rest != 0)
        assign_elements(rest, data_, first + count, data_, first);
    destroy_elements(data_, first + rest, count);
    size_ -= count;
    // Erase and resize are the only operations that let the policy shrink.
    if (needs_reallocation(size_))
        vresize(size_);
}

void vector_engine::insert(unsigned pos, void const* src, unsigned first, unsigned count) {
    if (!src)
        return;
    // A source inside our own block would move under the copy.
    auto const at = reinterpret_cast<std::uintptr_t>(src);
    auto const begin = reinterpret_cast<std::uintptr_t>(data_);
    auto const end = begin + std::uintptr_t(size_) * element_size();
    if (needs_reallocation(size_ + count) || (data_ && begin <= at && at < end))
        vcreate(pos, src, first, count);
    else
        vcopy(pos, src, first, count);
}

void vector_engine::insert(unsigned pos, vector_engine const& other) {
    if (&other == this)
        vcreate(pos, data_, 0, size_);
    else
        insert(pos, other.data_, 0, other.size_);
}

void vector_engine::insert(unsigned pos, vector_engine const& other, unsigned first,
                           unsigned count) {
    if (first > other.size_)
        throw out_of_range();
    count = std::min(count, other.size_ - first);
    if (&other == this)
        vcreate(pos, data_, first, count);
    else
        insert(pos, other.data_, first, count);
}

void vector_engine::pop_back(unsigned count) {
    if (!data_ || count == 0)
        return;
    count = std::min(count, size_);
    destroy_elements(data_, size_ - count, count);
    size_ -= count;
}

void vector_engine::push_back(void const* value, unsigned count) {
    if (count == 0)
        return;
    if (size_ + count > capacity_) {
        vcreate(size_, value, all, count);
        return;
    }
    fill_construct(count, value, data_, size_);
    size_ += count;
}

void vector_engine::reserve(unsigned n) {
    if (n > capacity_)
        vresize(n);
}

void vector_engine::resize(unsigned n, void const* value) {
    if (n < size_)
        erase(n, all);
    else if (n > size_)
        push_back(value, n - size_);
    else if (needs_reallocation(size_))
        vresize(size_);
}

void vector_engine::reverse(unsigned first, unsigned count) {
    if (size_ < 2)
        return;
    if (first > size_)
        throw out_of_range();
    count = std::min(count, size_ - first);
    // Unsigned on purpose: count 0 at first 0 wraps j (see the header).
    for (unsigned i = first, j = first + count - 1; i < j; ++i, --j)
        swap_elements(data_, i, data_, j);
}

void vector_engine::swap(vector_engine& other, bool same_layout) {
    if (&other == this)
        return;
    if (same_layout) {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
        return;
    }
    vector_engine& small = size_ <= other.size_ ? *this : other;
    vector_engine& big = size_ <= other.size_ ? other : *this;
    unsigned const n = small.size_;
    unsigned const diff = big.size_ - n;
    for (unsigned i = 0; i < n; ++i)
        swap_elements(small.data_, i, big.data_, i);
    small.insert(n, big.data_, n, diff);
    big.erase(n, all);
}

// Insert in place. The block has room; elements behind pos move toward the
// end by count. size_ grows after each construction step, so a copy that
// throws later leaves every constructed element counted (and the engine
// valid, with some elements already overwritten).
//
//   before:  [0 .. pos)[pos .. size)
//   after:   [0 .. pos)[new: count][old tail]
void vector_engine::vcopy(unsigned pos, void const* src, unsigned first, unsigned count) {
    if (pos > size_)
        ZEL_THROW_AT(out_of_range(), 609);
    unsigned const tail = size_ - pos;
    bool const fill = first == all;
    if (count > tail) {
        // The new elements reach past the old end: the part beyond it is
        // constructed from the source, the old tail is constructed behind
        // it, and the rest of the source is assigned over the old tail.
        unsigned const extra = count - tail;
        if (fill)
            fill_construct(extra, src, data_, size_);
        else
            construct_elements(extra, src, tail, data_, size_);   // tail, not first + tail
        size_ += extra;
        construct_elements(tail, data_, pos, data_, pos + count);
        size_ += tail;
        if (fill)
            fill_assign(tail, src, data_, pos);
        else
            assign_elements(tail, src, first, data_, pos);
    } else {
        // The old tail reaches past the new elements: its last count
        // elements are constructed past the end, the rest shifted within.
        unsigned const d = tail - count;
        construct_elements(count, data_, pos + d, data_, size_);
        size_ += count;
        assign_elements(d, data_, pos, data_, pos + count);
        if (fill)
            fill_assign(count, src, data_, pos);
        else
            assign_elements(count, src, first, data_, pos);
    }
}

// Insert into a new block: prefix, new elements, tail, each constructed in
// the new block under the rollback guard; the old block goes only when all
// are in place.
void vector_engine::vcreate(unsigned pos, void const* src, unsigned first, unsigned count) {
    if (pos > size_)
        ZEL_THROW_AT(out_of_range(), 693);
    unsigned const new_size = size_ + count;
    unsigned const tail = size_ - pos;
    unsigned granted = 0;
    rollback guard(*this, allocate(new_size, &granted));
    if (data_ && pos != 0) {
        construct_elements(pos, data_, 0, guard.base, 0);
        guard.constructed += pos;
    }
    if (count != 0) {
        if (first == all)
            fill_construct(count, src, guard.base, pos);
        else
            construct_elements(count, src, first, guard.base, pos);
        guard.constructed += count;
    }
    if (data_) {
        if (tail != 0) {
            construct_elements(tail, data_, pos, guard.base, pos + count);
            guard.constructed += tail;
        }
        destroy_elements(data_, 0, size_);
        deallocate(data_);
    }
    data_ = guard.release();
    size_ = new_size;
    capacity_ = granted;
}

// Re-block to room for n (at least size) elements; a block is made even
// when the engine had none.
void vector_engine::vresize(unsigned n) {
    n = std::max(n, size_);
    unsigned granted = 0;
    rollback guard(*this, allocate(n, &granted));
    if (data_) {
        construct_elements(size_, data_, 0, guard.base, 0);
        guard.constructed = size_;
        destroy_elements(data_, 0, size_);
        deallocate(data_);
    }
    data_ = guard.release();
    capacity_ = granted;
}

} // namespace zel
