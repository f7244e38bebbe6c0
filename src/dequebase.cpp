// deque_engine: the map of element pointers behind the double-ended queue,
// and the element pool its typed layer makes elements in. Growing, closing
// and re-centring the map, the undo of a failed insertion and every check
// live here, shared by every element type, so that errors report this file.
//
// Errors (check, container_error): "invalid capacity", "invalid size",
// "invalid pointer to data", "invalid map termination - front",
// "invalid map termination - back", "null data pointer in map". Positions
// past the end raise out_of_range directly, without file and line.
#include <zel/deque.h>

#include <cstring>

namespace zel {

deque_engine::~deque_engine() = default;

void deque_engine::mismatched_iterator() {
    ZEL_THROW(container_error("mis-matched iterator(s)"));
}

void deque_engine::iterator_at_end() {
    ZEL_THROW(container_error("iterator points to end()"));
}

void deque_engine::index_out_of_range() {
    throw out_of_range();
}

void deque_engine::pcopy(unsigned n, void* const* from, void** to) noexcept {
    if (n != 0 && from != to)
        std::memmove(to, from, n * sizeof(void*));
}

// A new map for n slots (get_capacity(n)) with the used stretch centred.
// When opening, the front pointers go to the start of the stretch and the
// back pointers behind the gap; when closing, the back pointers found
// behind the gap go right behind the front ones.
//
// The map always keeps one slot for each terminator: where the rounded size
// would leave fewer than two free slots (a stretch of 4095 modulo 4096, or a
// gap larger than the growth step), the next size up is taken.
void deque_engine::alloc_map(unsigned n, unsigned used, unsigned front, unsigned gap,
                             unsigned back, bool opening) {
    unsigned capacity = get_capacity(n);
    if (capacity < used + 2)
        capacity = get_capacity(used + 1);
    void** map = allocate_map(capacity);
    void** data = map + (capacity - used) / 2;
    if (map_) {
        pcopy(front, data_, data);
        if (opening)
            pcopy(back, data_ + front, data + front + gap);
        else
            pcopy(back, data_ + front + gap, data + front);
        deallocate_map(map_);
    }
    map_ = map;
    data_ = data;
    capacity_ = capacity;
}

// Opens a gap of n slots at pos; size_ is left to the caller, which fills
// the gap. Moves the shorter side when there is room on it; otherwise
// re-centres in place while the map is at most half full, and grows the map
// by one step when it is more than that.
void deque_engine::expand_map(unsigned pos, unsigned n, safe_move* mover) {
    unsigned const back = size_ - pos;
    unsigned const new_size = size_ + n;
    if (!map_) {
        alloc_map(new_size, new_size, pos, n, back, true);
    } else if (pos < back) {
        unsigned const room_front = unsigned(data_ - map_);
        if (n + 1 < room_front) {
            pcopy(pos, data_, data_ - n);
            data_ -= n;
        } else if (new_size > capacity_ / 2) {
            alloc_map(capacity_ + 1, new_size, pos, n, back, true);
        } else {
            // The stretch ends at three quarters of the map; the back part
            // moves first, toward the end, so nothing is overwritten.
            void** data = map_ + capacity_ - (capacity_ / 4 + new_size);
            pcopy(back, data_ + pos, data + pos + n);
            pcopy(pos, data_, data);
            data_ = data;
        }
    } else {
        unsigned const room_back = capacity_ - (size_ + unsigned(data_ - map_));
        if (n + 1 < room_back) {
            pcopy(back, data_ + pos, data_ + pos + n);
        } else if (new_size > capacity_ / 2) {
            alloc_map(capacity_ + 1, new_size, pos, n, back, true);
        } else {
            // The stretch begins at a quarter of the map; the front part
            // moves first, toward the start.
            void** data = map_ + capacity_ / 4;
            pcopy(pos, data_, data);
            pcopy(back, data_ + pos, data + pos + n);
            data_ = data;
        }
    }
    terminate(new_size);
    if (mover) {
        mover->gap_start = data_ + pos;
        mover->gap_end = data_ + pos + n;
        mover->back = back;
    }
}

// Closes a gap of n slots at pos; size_ is already the new size. The map is
// kept unless it is more than a step bigger than the stretch needs; a
// smaller map that cannot be had leaves the big one in use.
void deque_engine::shrink_map(unsigned pos, unsigned n, safe_move* mover) {
    unsigned const back = size_ - pos;
    bool replaced = false;
    if (capacity_ - map_step >= ((size_ + 4098) & ~(map_step - 1))) {
        try {
            alloc_map(size_, size_, pos, n, back, false);
            replaced = true;
        } catch (...) {
        }
    }
    if (!replaced) {
        if (size_ == 0) {
            data_ = map_ + capacity_ / 2;
        } else if (pos < back) {
            pcopy(pos, data_, data_ + n);
            data_ += n;
        } else {
            pcopy(back, data_ + pos + n, data_ + pos);
        }
    }
    terminate(size_);
    if (mover)
        *mover = safe_move();
}

// Closes the gap a failed insertion opened: the pointers behind it come back
// to its start, and the stretch (of the old size) is terminated again.
void deque_engine::undo(safe_move const& mover) noexcept {
    pcopy(mover.back, mover.gap_end, mover.gap_start);
    terminate(size_);
}

// The engine's invariants:
//   With a map:
//     1. the capacity is not 0;
//     2. the capacity is not below the size;
//     3. data lies strictly after the map's first slot and before its end;
//     4. data[-1] is null;
//     5. data[size] is null;
//     6. data[0 .. size-1] are not null.
//   Without one:
//     7. the capacity is 0;
//     8. the size is 0;
//     9. data is null.
void deque_engine::check() const {
    if (map_) {
        if (capacity_ == 0)
            ZEL_THROW(container_error("invalid capacity"));                  // 1
        if (capacity_ < size_)
            ZEL_THROW(container_error("invalid size"));                      // 2
        if (data_ <= map_ || data_ >= map_ + capacity_)
            ZEL_THROW(container_error("invalid pointer to data"));           // 3
        if (data_[-1] != nullptr)
            ZEL_THROW(container_error("invalid map termination - front"));   // 4
        if (data_[size_] != nullptr)
            ZEL_THROW(container_error("invalid map termination - back"));    // 5
        for (unsigned i = 0; i < size_; ++i)
            if (data_[i] == nullptr)
                ZEL_THROW(container_error("null data pointer in map"));      // 6
    } else {
        if (capacity_ != 0)
            ZEL_THROW(container_error("invalid capacity"));                  // 7
        if (size_ != 0)
            ZEL_THROW(container_error("invalid size"));                      // 8
        if (data_ != nullptr)
            ZEL_THROW(container_error("invalid pointer to data"));           // 9
    }
}

void deque_engine::push_back(void const* value, unsigned n) {
    if (!map_ || capacity_ - unsigned(data_ - map_) - size_ <= n + 1) {
        insert(size_, value, n);
        return;
    }
    // Each element is counted and terminated as soon as it is made, so a
    // failure keeps the ones made before it.
    for (; n != 0; --n) {
        data_[size_] = new_element(value);
        data_[++size_] = nullptr;
    }
}

void deque_engine::push_front(void const* value, unsigned n) {
    if (!map_ || unsigned(data_ - map_) <= n + 1) {
        insert(0, value, n);
        return;
    }
    for (; n != 0; --n) {
        data_[-1] = new_element(value);
        --data_;
        ++size_;
        data_[-1] = nullptr;
    }
}

void deque_engine::pop_back(unsigned n) {
    for (n = std::min(n, size_); n != 0; --n) {
        --size_;
        delete_element(data_[size_]);
        data_[size_] = nullptr;
    }
}

void deque_engine::pop_front(unsigned n) {
    for (n = std::min(n, size_); n != 0; --n) {
        --size_;
        delete_element(data_[0]);
        data_[0] = nullptr;
        ++data_;
    }
}

// Opens the gap, then makes the n elements into it: copies of *value, or of
// other's [first, first + n). Copying from ourselves, the source indexes at
// or behind pos have moved n slots back with the gap. A failure deletes what
// was made and closes the gap, leaving the elements as they were.
void deque_engine::fill(unsigned pos, unsigned n, deque_engine const* other, unsigned first,
                        void const* value) {
    if (pos > size_)
        throw out_of_range();
    if (n == 0)
        return;
    safe_move mover;
    expand_map(pos, n, &mover);
    unsigned made = 0;
    try {
        for (; made < n; ++made) {
            void const* source = value;
            if (other == this) {
                unsigned const i = first + made;
                source = data_[i < pos ? i : i + n];
            } else if (other) {
                source = other->data_[first + made];
            }
            data_[pos + made] = new_element(source);
        }
    } catch (...) {
        for (unsigned i = 0; i < made; ++i)
            delete_element(data_[pos + i]);
        undo(mover);
        throw;
    }
    size_ += n;
}

void deque_engine::insert(unsigned pos, void const* value, unsigned n) {
    fill(pos, n, nullptr, 0, value);
}

void deque_engine::insert(unsigned pos, deque_engine const& other) {
    fill(pos, other.size_, &other, 0, nullptr);
}

void deque_engine::insert(unsigned pos, deque_engine const& other, unsigned first, unsigned n) {
    if (first > other.size_)
        throw out_of_range();
    fill(pos, std::min(n, other.size_ - first), &other, first, nullptr);
}

void deque_engine::erase(unsigned first, unsigned n) {
    if (first > size_)
        throw out_of_range();
    n = std::min(n, size_ - first);
    if (n == 0)
        return;
    for (unsigned i = 0; i < n; ++i)
        delete_element(data_[first + i]);
    size_ -= n;
    shrink_map(first, n, nullptr);
}

void deque_engine::clear() {
    if (!map_)
        return;
    for (unsigned i = 0; i < size_; ++i)
        delete_element(data_[i]);
    deallocate_map(map_);
    map_ = data_ = nullptr;
    capacity_ = size_ = 0;
}

void deque_engine::assign(void const* value, unsigned n) {
    erase(0, all);
    insert(0, value, n);
}

void deque_engine::assign(deque_engine const& other) {
    if (&other == this)
        return;
    erase(0, all);
    insert(0, other);
}

void deque_engine::assign(deque_engine const& other, unsigned first, unsigned n) {
    if (first > other.size_)
        throw out_of_range();
    n = std::min(n, other.size_ - first);
    if (&other != this) {
        erase(0, all);
        insert(0, other, first, n);
        return;
    }
    if (first + n < size_)
        erase(first + n, all);
    if (first != 0)
        erase(0, first);
}

void deque_engine::resize(unsigned n, void const* value) {
    if (n < size_)
        erase(n, all);
    else if (n > size_)
        push_back(value, n - size_);
}

void deque_engine::reverse(unsigned first, unsigned n) {
    if (first > size_)
        throw out_of_range();
    n = std::min(n, size_ - first);
    std::reverse(data_ + first, data_ + first + n);
}

// Sorts a copy of the pointers, so a comparator that throws half-way cannot
// leave a pointer twice (or not at all) in the map.
void deque_engine::sort(comparator_base const& comparator) {
    if (size_ < 2)
        return;
    void_comparator const ahead(comparator);
    void** scratch = allocate_map(size_);
    try {
        pcopy(size_, data_, scratch);
        std::stable_sort(scratch, scratch + size_,
                         [&](void const* a, void const* b) { return !ahead(b, a); });
    } catch (...) {
        deallocate_map(scratch);
        throw;
    }
    pcopy(size_, scratch, data_);
    deallocate_map(scratch);
}

void deque_engine::swap(deque_engine& other, bool same_layout) {
    if (&other == this)
        return;
    if (same_layout) {
        std::swap(map_, other.map_);
        std::swap(data_, other.data_);
        std::swap(capacity_, other.capacity_);
        std::swap(size_, other.size_);
        return;
    }
    deque_engine& small = size_ <= other.size_ ? *this : other;
    deque_engine& big = size_ <= other.size_ ? other : *this;
    unsigned const n = small.size_;
    for (unsigned i = 0; i < n; ++i)
        swap_elements(small.data_[i], big.data_[i]);
    small.insert(n, big, n, all);
    big.erase(n, all);
}

void deque_engine::reserve(unsigned n, rsv_flags where) {
    if (n <= capacity_)
        return;
    unsigned const extra = n - capacity_;
    unsigned const at_front = where == rsv_front ? extra : where == rsv_both ? extra / 2 : 0;
    unsigned const at_back = extra - at_front;
    // A gap opened at the front and left empty is room before the stretch;
    // one opened at the back is room behind it.
    if (at_front != 0) {
        expand_map(0, at_front, nullptr);
        data_ += at_front;
        terminate(size_);
    }
    if (at_back != 0) {
        expand_map(size_, at_back, nullptr);
        terminate(size_);
    }
}

// The element pool.

element_pool::element_pool(unsigned chunk_size, unsigned alignment) noexcept
    : chunk_(0), block_bytes_(4096) {
    unsigned const unit = std::max<unsigned>(alignment, sizeof(void*));
    chunk_ = (std::max<unsigned>(chunk_size, sizeof(void*)) + unit - 1) / unit * unit;
}

namespace {
// A block starts with the link to the block made before it, padded to the
// default alignment so the chunks behind it are aligned.
constexpr unsigned block_header = __STDCPP_DEFAULT_NEW_ALIGNMENT__;
constexpr unsigned largest_block = 64 * 1024;
} // namespace

void* element_pool::grow() {
    unsigned bytes = std::max(block_bytes_, block_header + chunk_);
    char* block = static_cast<char*>(heap_.allocate(bytes));
    *reinterpret_cast<void**>(block) = blocks_;
    blocks_ = block;
    next_ = block + block_header;
    end_ = next_ + (bytes - block_header) / chunk_ * chunk_;
    if (block_bytes_ < largest_block)
        block_bytes_ *= 2;
    void* p = next_;
    next_ += chunk_;
    return p;
}

void element_pool::release() noexcept {
    while (blocks_) {
        void* previous = *static_cast<void**>(blocks_);
        heap_.deallocate(blocks_);
        blocks_ = previous;
    }
    next_ = end_ = nullptr;
    free_ = nullptr;
    block_bytes_ = 4096;
}

void element_pool::swap(element_pool& other) noexcept {
    std::swap(chunk_, other.chunk_);
    std::swap(block_bytes_, other.block_bytes_);
    std::swap(next_, other.next_);
    std::swap(end_, other.end_);
    std::swap(free_, other.free_);
    std::swap(blocks_, other.blocks_);
}

} // namespace zel
