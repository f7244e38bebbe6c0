// deque_engine: the map of element pointers behind the double-ended queue,
// and the element pool its typed layer makes elements in. Growing, closing
// and re-centring the map, the undo of a failed insertion and every check
// live here, shared by every element type, so that errors report this file.
//
// Errors. check() raises container_error through the library's throw path,
// from lines that do not move between versions, so a report names the same
// place on every target:
//
//   text                                 condition                  line
//   "invalid capacity"                   a map of capacity 0        196
//   "invalid size"                       capacity below the size    197
//   "invalid pointer to data"            data outside the map       198
//   "invalid map termination - front"    data[-1] not null          200
//   "invalid map termination - back"     data[size] not null        201
//   "null data pointer in map"           an empty slot in the run   208
//   "invalid capacity"                   no map, capacity not 0     213
//   "invalid size"                       no map, size not 0         214
//   "invalid pointer to data"            no map, data not null      215
//
// The cursor checks of the typed layer raise "mis-matched iterator(s)" and
// "iterator points to end()" from the helpers below. Positions past the end
// raise out_of_range directly, without file and line.
//
// Order of the file: the raise helpers, the map primitives (alloc_map,
// expand_map, shrink_map, undo), check(), then the operations in the order
// the header declares them, and last the element pool and the map blocks.
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
// the gap. With f the pos pointers in front of the gap and b the ones
// behind it, a gap of two nearer the back moves only b:
//
//   before:  [ . . . . 0 f f f f f f b b b 0 . . . . . . ]
//   after:   [ . . . . 0 f f f f f f _ _ b b b 0 . . . . ]
//
// (_ marks the gap's slots, which the caller fills), and a gap nearer the
// front moves only f, toward the map's start. 0 marks the null terminators
// around the used stretch, which move with it. When the side to move has
// no room, the whole stretch is re-placed at a quarter (gap behind the
// middle) or three quarters (gap in front of it) of the map while the map
// is at most half full, and the map grows by one step when it is more.
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

// The engine's invariants, checked in this order:
//   With a map:
//     1. the capacity is not 0;
//     2. the capacity is not below the size;
//     3. data lies strictly after the map's first slot and before its end,
//        so the front terminator has a slot of its own;
//     4. data[-1] is null;
//     5. data[size] is null;
//     6. data[0 .. size-1] are not null.
//   Without one:
//     7. the capacity is 0;
//     8. the size is 0;
//     9. data is null.
// A deque that passes can be walked from data[0] to the null behind the
// last element, and every pointer met on the way is not null. It proves no
// more than that: a pointer stored in two slots, or one to an element of
// another deque, goes unseen; the elements themselves are never read, so
// the check works alike for every element type.
// The check costs one pass over the used stretch, so the tests run it after
// every step; a program that suspects a stray write runs it after the
// suspect operation.
void deque_engine::check() const {
    void** const end = map_ + capacity_;
    if (map_) {
        if (capacity_ == 0) ZEL_THROW(container_error("invalid capacity"));
        if (capacity_ < size_) ZEL_THROW(container_error("invalid size"));
        if (data_ <= map_ || data_ >= end) ZEL_THROW(container_error("invalid pointer to data"));
        // 4 and 5: the terminators on both sides of the used stretch.
        if (data_[-1] != nullptr) ZEL_THROW(container_error("invalid map termination - front"));
        if (data_[size_] != nullptr) ZEL_THROW(container_error("invalid map termination - back"));
        // 6: the only check that walks the used stretch. A null inside it
        // means an element was lost: a failed insertion left open, or a
        // stray write into the map.
        for (unsigned i = 0; i < size_; ++i) {
            if (data_[i] != nullptr)
                continue;
            ZEL_THROW(container_error("null data pointer in map"));
        }
        return;
    }
    // 7 to 9: without a map every field is back at its empty value.
    if (capacity_ != 0) ZEL_THROW(container_error("invalid capacity"));
    if (size_ != 0) ZEL_THROW(container_error("invalid size"));
    if (data_ != nullptr) ZEL_THROW(container_error("invalid pointer to data"));
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
    unsigned const n = size_;
    for (unsigned i = 0; i < n; ++i)
        delete_element(data_[i]);
    size_ = 0;
    shrink_map(0, n, nullptr);
}

void deque_engine::release_all() noexcept {
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
    char* const first = block + block_header;
    next_ = reinterpret_cast<std::uintptr_t>(first + chunk_);
    end_ = reinterpret_cast<std::uintptr_t>(first + (bytes - block_header) / chunk_ * chunk_);
    if (block_bytes_ < largest_block)
        block_bytes_ *= 2;
    return first;
}

void element_pool::release() noexcept {
    while (blocks_) {
        void* previous = *static_cast<void**>(blocks_);
        heap_.deallocate(blocks_);
        blocks_ = previous;
    }
    next_ = end_ = 0;
    free_ = 0;
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

// The map blocks.

namespace {
// A block is its slot count in one word, then the slots.
constexpr std::size_t big_map_slots = 128 * 1024 / sizeof(void*);
std::size_t& slots_of(void** map) noexcept { return *reinterpret_cast<std::size_t*>(map - 1); }
} // namespace

void** map_blocks::allocate(unsigned n, unsigned capacity) {
    bool const growing = n > capacity;
    if (spare_ && slots_of(spare_) >= n && (growing || slots_of(spare_) / 2 <= n)) {
        void** map = spare_;
        spare_ = nullptr;
        keep_ = growing;
        return map;
    }
    release();
    // Half as big again for a growth of a big map, while the byte count
    // stays in range. Small maps come from the C library's heap, where a
    // fresh block is cheap; over-sizing them would only push them past
    // the size (128 KiB by default) from which it maps every block on its
    // own and faults it in page by page.
    std::size_t slots = n;
    if (growing && n >= big_map_slots && n <= heap_.max_size() / sizeof(void*) / 2)
        slots += n / 2;
    void** block = static_cast<void**>(
        heap_.allocate(sizeof(void*), unsigned(slots + 1), 0, nullptr));
    *reinterpret_cast<std::size_t*>(block) = slots;
    keep_ = growing;
    return block + 1;
}

void map_blocks::deallocate(void* map) noexcept {
    void** const block = static_cast<void**>(map);
    if (keep_ && !spare_) {
        spare_ = block;
    } else {
        heap_.deallocate(block - 1);
    }
    keep_ = false;
}

void map_blocks::release() noexcept {
    if (spare_)
        heap_.deallocate(spare_ - 1);
    spare_ = nullptr;
    keep_ = false;
}

void map_blocks::swap(map_blocks& other) noexcept {
    std::swap(spare_, other.spare_);
    std::swap(keep_, other.keep_);
}

} // namespace zel
