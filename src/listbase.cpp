// list_engine: the ring of link-only nodes behind the doubly linked list.
// Linking, splicing, merging, the merge sort, the position cache and every
// check live here, shared by every element type, so that errors report this
// file; the typed layer only makes, copies, destroys, compares and visits
// the values behind the links.
//
// Errors:
//   text                          class            raised by     line
//   "bad connection to sentinel"  container_error  check         286, 287
//   "invalid element count"       container_error  check         295
//   "corrupt cache pointer"       container_error  check         307, 311
//   "invalid sentinel node"       container_error  check         316, 317
//   "mis-matched iterator(s)"     container_error  cursor forms, a cursor
//                                                  of another list
//   "iterator points to end()"    container_error  erase(cursor) at end()
//   (none)                        out_of_range     back 360, front 376,
//                                                  pos 393 (through the
//                                                  throw path)
//   (none)                        out_of_range     index forms, a start
//                                                  index past the end
//                                                  (thrown directly)
// These reports carry the lines they have always carried, wherever the code
// now sits (ZEL_THROW_AT); a cursor check reports the line of the operation
// that asked for it.
#include <zel/list.h>

#include <algorithm>

#include <zel/guards.h>

namespace zel {

namespace {

// Holds the engine's mutex for a scope.
class hold {
public:
    explicit hold(mutex& m) : m_(m) { m_.acquire(); }
    hold(hold const&) = delete;
    hold& operator=(hold const&) = delete;
    ~hold() { m_.release(); }

private:
    mutex& m_;
};

} // namespace

// A detached chain of nodes made for an insertion or an assignment. Unless
// released, it deletes them again, so a copy that throws half-way leaves the
// list as it was.
struct list_engine::chain {
    list_engine& owner;
    list_node* first = nullptr;
    list_node* last = nullptr;
    unsigned n = 0;

    explicit chain(list_engine& e) noexcept : owner(e) {}
    chain(chain const&) = delete;
    chain& operator=(chain const&) = delete;
    ~chain() {
        while (first) {
            list_node* const next = first->next;
            owner.delete_node(first);
            first = next;
        }
    }
    void append(list_node* node) noexcept {
        node->prev = last;
        node->next = nullptr;
        (last ? last->next : first) = node;
        last = node;
        ++n;
    }
    // Copies of source's [from, to), passing over source's sentinel.
    void clone(list_engine const& source, list_node const* from, list_node const* to) {
        for (; from != to; from = from->next)
            if (from != source.sentinel())
                append(owner.clone_node(from));
    }
    void release() noexcept { first = last = nullptr; n = 0; }
};

list_engine::list_engine()
    : count_(0), sentinel_{&sentinel_, &sentinel_}, lock_(new mutex), cache_index_(all),
      cache_node_(&sentinel_) {}

list_engine::~list_engine() { delete lock_; }

// The engine's own operations: the sort's runs are plain engines and never
// call them; the typed layer overrides every one.
void list_engine::do_callback(void const*, list_node*) {}
void list_engine::do_callback(void const*, list_node const*) const {}
bool list_engine::compare(list_node const*, list_node const*, void_comparator const&) const {
    return true;
}
bool list_engine::compare(list_node const*, void const*, void_comparator const&) const {
    return true;
}
list_engine::list_node* list_engine::clone_node(list_node const*) { return nullptr; }
list_engine::list_node* list_engine::new_node(void const*) { return nullptr; }
void list_engine::delete_node(list_node*) {}
void list_engine::swap_values(list_node*, list_node*) {}

void list_engine::index_out_of_range() { throw out_of_range(); }

// Cursor checks report the line their operation has always reported (588
// assign, 633 and 649 erase, 719 and 735/736 insert, 1002 and 1024/1025
// splice), passed by that operation.
void list_engine::check_cursor(cursor const& c, bool end_allowed, int line) const {
    if (c.owner != this)
        zel_throw(container_error("mis-matched iterator(s)"), __FILE__, line);
    if (!end_allowed && c.node == sentinel())
        zel_throw(container_error("iterator points to end()"), __FILE__, line);
}

void list_engine::check_range(cursor const& first, cursor const& last,
                              list_engine const* owner, int line) {
    if (!owner || first.owner != owner || last.owner != owner)
        zel_throw(container_error("mis-matched iterator(s)"), __FILE__, line);
}

// ---------------------------------------------------------------------------
// Link primitives. A detached chain has first->prev and last->next null.

//   before->prev <-> first ... last <-> before
void list_engine::link(list_node* first, list_node* last, list_node* before) noexcept {
    first->prev = before->prev;
    last->next = before;
    before->prev->next = first;
    before->prev = last;
}

void list_engine::unlink(list_node* first, list_node* last) noexcept {
    if (first == sentinel() || last == sentinel())
        return;
    first->prev->next = last->next;
    last->next->prev = first->prev;
    first->prev = nullptr;
    last->next = nullptr;
}

// Moves first..last of this ring before a node of this or another ring.
void list_engine::transfer(list_node* first, list_node* last, list_node* before) noexcept {
    if (first == sentinel() || last == sentinel())
        return;
    unlink(first, last);
    link(first, last, before);
}

void list_engine::erase(list_node* node) {
    if (node == sentinel())
        return;
    invalidate_cache();
    unlink(node);
    --count_;
    delete_node(node);
}

// Erases [first, last), passing over the sentinel.
void list_engine::erase(list_node* first, list_node* last) {
    while (first != last) {
        list_node* const next = first->next;
        erase(first);
        first = next;
    }
}

// n new nodes before `before`, each linked as soon as it is made.
void list_engine::insert(void const* value, unsigned n, list_node* before) {
    for (; n != 0; --n)
        link_counted(new_node(value), before);
}

// A copy of one node before `before`.
void list_engine::insert(list_node const* node, list_node* before) {
    link_counted(clone_node(node), before);
}

// Copies of source's [first, last) before `before`: all made first, then
// linked in one step.
void list_engine::insert(list_engine const& source, list_node const* first,
                         list_node const* last, list_node* before) {
    if (first == last)
        return;
    chain c(*this);
    c.clone(source, first, last);
    link(c, before);
}

// Links the chain's nodes before `before` and counts them.
void list_engine::link(chain& c, list_node* before) noexcept {
    if (c.n == 0)
        return;
    invalidate_cache();
    link(c.first, c.last, before);
    count_ += c.n;
    c.release();
}

// The contents become the chain's nodes.
void list_engine::replace_with(chain& c) {
    clear();
    link(c, sentinel());
}

// ---------------------------------------------------------------------------
// The engine's invariants:
//   1. a list with nodes has its head linked back to the sentinel;
//   2. the tail links forward to the sentinel;
//   3. the nodes from the head to the sentinel number count;
//   4. a set cache names an index below count, and the node at that index;
//   5. without a cache, the cache node is the sentinel;
//   6. an empty list's sentinel links to itself, forward
//   7. and back.
void list_engine::check() const {
    hold const h(*lock_);
    if (count_ != 0 && head()->prev != sentinel())
        ZEL_THROW_AT(container_error("bad connection to sentinel"), 286);    // 1
    if (tail()->next != sentinel())
        ZEL_THROW_AT(container_error("bad connection to sentinel"), 287);    // 2
    unsigned n = 0;
    for (list_node const* p = head(); p && p != sentinel() && n <= count_; p = p->next)
        ++n;
    if (n != count_)
        ZEL_THROW_AT(container_error("invalid element count"), 295);         // 3
    if (cache_index_ != all) {
        list_node const* p = head();
        for (unsigned i = 0; i < cache_index_ && p != sentinel(); ++i)
            p = p->next;
        if (cache_index_ >= count_ || p != cache_node_)
            ZEL_THROW_AT(container_error("corrupt cache pointer"), 307);     // 4
    } else if (cache_node_ != sentinel()) {
        ZEL_THROW_AT(container_error("corrupt cache pointer"), 311);         // 5
    }
    if (count_ == 0 && sentinel_.next != sentinel())
        ZEL_THROW_AT(container_error("invalid sentinel node"), 316);         // 6
    if (count_ == 0 && sentinel_.prev != sentinel())
        ZEL_THROW_AT(container_error("invalid sentinel node"), 317);         // 7
}

list_engine::list_node* list_engine::back() const {
    if (count_ == 0)
        ZEL_THROW_AT(out_of_range(), 360);
    return tail();
}

list_engine::list_node* list_engine::front() const {
    if (count_ == 0)
        ZEL_THROW_AT(out_of_range(), 376);
    return head();
}

// The node at index i, looked up from the nearest of the cache, the head,
// the tail and the sentinel; the cache then names it.
list_engine::list_node* list_engine::pos(unsigned i) const {
    if (i >= count_)
        ZEL_THROW_AT(out_of_range(), 393);
    hold const h(*lock_);
    if (cache_index_ == all) {
        cache_index_ = 0;
        cache_node_ = head();
    }
    unsigned const c = cache_index_;
    list_node* node = cache_node_;
    if (i > c) {
        if (i == c + 1) {
            node = node->next;
        } else if (i == count_ - 1) {
            node = tail();
        } else if (i - c <= count_ - i) {
            for (unsigned k = i - c; k != 0; --k)
                node = node->next;
        } else {
            node = sentinel();
            for (unsigned k = count_ - i; k != 0; --k)
                node = node->prev;
        }
    } else if (i < c) {
        if (i == c - 1) {
            node = node->prev;
        } else if (i == 0) {
            node = head();
        } else if (i <= c - i) {
            node = head();
            for (unsigned k = i; k != 0; --k)
                node = node->next;
        } else {
            for (unsigned k = c - i; k != 0; --k)
                node = node->prev;
        }
    }
    cache_index_ = i;
    cache_node_ = node;
    return node;
}

list_engine::list_node* list_engine::zpos(unsigned i) const {
    if (i == count_)
        return sentinel();
    if (i == 0)
        return head();
    if (i == count_ - 1)
        return tail();
    return pos(i);
}

int list_engine::distance(list_node const* a, list_node const* b) const noexcept {
    int steps = 0;
    bool passed = false;
    for (; a != b; a = a->next, ++steps)
        passed = passed || a == sentinel();
    return passed ? steps - 1 - int(count_) : steps;
}

// ---------------------------------------------------------------------------
// Insertion and assignment. The index forms look their positions up before
// they change anything.

void list_engine::push_back(void const* value, unsigned n) { insert(value, n, sentinel()); }

void list_engine::push_front(void const* value, unsigned n) { insert(value, n, head()); }

void list_engine::insert(unsigned pos, void const* value, unsigned n) {
    if (pos > count_)
        index_out_of_range();
    insert(value, n, zpos(pos));
}

void list_engine::insert(unsigned pos, list_engine const& other) {
    if (pos > count_)
        index_out_of_range();
    insert(other, other.head(), other.sentinel(), zpos(pos));
}

void list_engine::insert(unsigned pos, list_engine const& other, unsigned first, unsigned n) {
    if (pos > count_ || first > other.count_)
        index_out_of_range();
    n = std::min(n, other.count_ - first);
    insert(other, other.zpos(first), other.zpos(first + n), zpos(pos));
}

void list_engine::assign(void const* value, unsigned n) {
    chain c(*this);
    for (; n != 0; --n)
        c.append(new_node(value));
    replace_with(c);
}

void list_engine::assign(list_engine const& other) {
    if (&other == this)
        return;
    chain c(*this);
    c.clone(other, other.head(), other.sentinel());
    replace_with(c);
}

void list_engine::assign(list_engine const& other, unsigned first, unsigned n) {
    if (first > other.count_)
        index_out_of_range();
    n = std::min(n, other.count_ - first);
    if (&other == this) {
        // Our own range stays where it is.
        if (first + n < count_)
            erase(first + n, all);
        if (first != 0)
            erase(0, first);
        return;
    }
    chain c(*this);
    c.clone(other, other.zpos(first), other.zpos(first + n));
    replace_with(c);
}

void list_engine::assign(cursor const& first, cursor const& last) {
    check_range(first, last, first.owner, 588);
    if (first.owner == this) {
        erase(head(), first.node);
        erase(last.node, sentinel());
        return;
    }
    chain c(*this);
    c.clone(*first.owner, first.node, last.node);
    replace_with(c);
}

// ---------------------------------------------------------------------------
// Erasure.

void list_engine::erase(unsigned first, unsigned n) {
    if (first > count_)
        index_out_of_range();
    n = std::min(n, count_ - first);
    if (n != 0)
        erase(zpos(first), zpos(first + n));
}

void list_engine::erase(cursor const& pos) {
    check_cursor(pos, false, 633);
    erase(pos.node);
}

void list_engine::erase(cursor const& first, cursor const& last) {
    check_range(first, last, this, 649);
    erase(first.node, last.node);
}

void list_engine::pop_back(unsigned n) {
    for (n = std::min(n, unsigned(count_)); n != 0; --n)
        erase(tail());
}

void list_engine::pop_front(unsigned n) {
    for (n = std::min(n, unsigned(count_)); n != 0; --n)
        erase(head());
}

void list_engine::clear() { erase(head(), sentinel()); }

void list_engine::resize(void const* value, unsigned n) {
    if (n < count_)
        erase(n, all);
    else if (n > count_)
        push_back(value, n - count_);
}

// Cursor forms of insertion: the position may be end().

void list_engine::insert(cursor const& pos, void const* value, unsigned n) {
    check_cursor(pos, true, 719);
    insert(value, n, pos.node);
}

void list_engine::insert(cursor const& pos, cursor const& first, cursor const& last) {
    check_cursor(pos, true, 735);
    check_range(first, last, first.owner, 736);
    insert(*first.owner, first.node, last.node, pos.node);
}

// ---------------------------------------------------------------------------
// Visits, removal, unique.

// The nodes [start, stop) of [first, first + n), n clipped.
void list_engine::range(unsigned first, unsigned n, list_node*& start, list_node*& stop) const {
    if (first > count_)
        index_out_of_range();
    n = std::min(n, count_ - first);
    start = first == 0 ? head() : zpos(first);
    stop = first + n == count_ ? sentinel() : zpos(first + n);
}

void list_engine::visit(callback_base const& callback, unsigned first, unsigned n) {
    if (!callback.is_set())
        return;
    list_node *p, *stop;
    range(first, n, p, stop);
    for (; p != stop; p = p->next)
        do_callback(&callback, p);
}

void list_engine::visit(callback_base const& callback, unsigned first, unsigned n) const {
    if (!callback.is_set())
        return;
    list_node *p, *stop;
    range(first, n, p, stop);
    for (; p != stop; p = p->next)
        do_callback(&callback, static_cast<list_node const*>(p));
}

void list_engine::remove(void const* value, comparator_base const& comparator, lsv_flags flags) {
    if (count_ == 0)
        return;
    invalidate_cache();
    void_comparator const matches(comparator);
    switch (flags) {
    case lsv_all:
        for (list_node* p = head(); p != sentinel();) {
            list_node* const next = p->next;
            if (compare(p, value, matches))
                erase(p);
            p = next;
        }
        break;
    case lsv_first:
        for (list_node* p = head(); p != sentinel(); p = p->next)
            if (compare(p, value, matches))
                return erase(p);
        break;
    case lsv_last:
        for (list_node* p = tail(); p != sentinel(); p = p->prev)
            if (compare(p, value, matches))
                return erase(p);
        break;
    }
}

// Each run collapses to its first node: b is compared with the run's first
// node a, not with its predecessor.
void list_engine::unique(comparator_base const& comparator) {
    if (count_ < 2)
        return;
    invalidate_cache();
    void_comparator const matches(comparator);
    for (list_node* a = head(); a != sentinel();) {
        list_node* b = a->next;
        while (b != sentinel() && compare(a, b, matches)) {
            erase(b);
            b = a->next;
        }
        a = b;
    }
}

// ---------------------------------------------------------------------------
// Merging and sorting.

void list_engine::merge(list_engine& other, bool relink, comparator_base const& comparator) {
    if (&other == this)
        return;
    invalidate_cache();
    other.invalidate_cache();
    void_comparator const ahead(comparator);
    list_node* a = head();
    list_node* b = other.head();
    while (a != sentinel() && b != other.sentinel()) {
        if (compare(a, b, ahead)) {
            a = a->next;
            continue;
        }
        // b goes before a.
        list_node* const next = b->next;
        if (relink) {
            other.unlink(b);
            --other.count_;
            link_counted(b, a);
        } else {
            insert(b, a);
        }
        b = next;
    }
    // What is left of other goes behind our tail; copied, other's nodes
    // are all erased.
    if (relink) {
        other.transfer(b, other.tail(), sentinel());
        count_ += other.count_;
        other.count_ = 0;
    } else {
        insert(other, b, other.sentinel(), sentinel());
        other.clear();
    }
}

// Merges the sort run `other` into this run by relinking, comparing through
// `owner`, the list being sorted (the runs have no typed layer). The counts
// are settled at the end. A comparator that throws leaves every node in
// one of the two rings.
void list_engine::merge2(list_engine const& owner, list_engine& other,
                         void_comparator const& ahead) {
    list_node* a = head();
    list_node* b = other.head();
    unsigned moved = 0;
    try {
        while (a != sentinel() && b != other.sentinel()) {
            if (owner.compare(a, b, ahead)) {
                a = a->next;
                continue;
            }
            list_node* const next = b->next;
            other.unlink(b);
            link(b, a);
            ++moved;
            b = next;
        }
    } catch (...) {
        count_ += moved;
        other.count_ -= moved;
        throw;
    }
    other.transfer(b, other.tail(), sentinel());
    count_ += other.count_;
    other.count_ = 0;
}

// Bottom-up merge sort. run[k] holds a sorted run; a new run of two nodes
// is pushed on top, and while the run below holds as many nodes the two
// merge, like a binary counter, so run sizes halve going up and 33 runs
// cover 2^32 nodes. When the list is empty the runs are merged back into
// it from the top (latest) down.
void list_engine::sort(comparator_base const& comparator) {
    if (count_ < 2)
        return;
    list_engine run[33];
    int top = -1;
    invalidate_cache();
    void_comparator const ahead(comparator);
    try {
        while (count_ != 0) {
            list_engine& r = run[++top];
            list_node* const x = head();
            unlink(x);
            --count_;
            r.link_counted(x, r.sentinel());
            if (count_ != 0) {
                // y joins x's run behind it when x stays ahead, else before.
                list_node* const y = head();
                bool const behind = compare(x, y, ahead);
                unlink(y);
                --count_;
                r.link_counted(y, behind ? r.sentinel() : x);
            }
            while (top > 0 && run[top - 1].count_ == run[top].count_) {
                run[top - 1].merge2(*this, run[top], ahead);
                --top;
            }
        }
        for (; top >= 0; --top)
            merge2(*this, run[top], ahead);
    } catch (...) {
        // A comparator threw: every node is in this list or in a run. Put
        // them all back, in no particular order.
        for (list_engine& r : run) {
            if (r.count_ == 0)
                continue;
            r.transfer(r.head(), r.tail(), sentinel());
            count_ += r.count_;
            r.count_ = 0;
        }
        throw;
    }
}

void list_engine::reverse() {
    if (count_ < 2)
        return;
    invalidate_cache();
    list_node* p = head();
    unlink(p, tail());
    while (p) {
        list_node* const next = p->next;
        link(p, head());
        p = next;
    }
}

void list_engine::swap(list_engine& other, bool relink) {
    if (&other == this)
        return;
    invalidate_cache();
    other.invalidate_cache();
    list_engine& small = count_ <= other.count_ ? *this : other;
    list_engine& big = count_ <= other.count_ ? other : *this;
    if (relink) {
        list_node* const small_first = small.head();
        list_node* const small_last = small.tail();
        list_node* const big_first = big.head();
        list_node* const big_last = big.tail();
        small.unlink(small_first, small_last);
        big.unlink(big_first, big_last);
        if (big.count_ != 0)
            link(big_first, big_last, small.sentinel());
        if (small.count_ != 0)
            link(small_first, small_last, big.sentinel());
        std::swap(count_, other.count_);
        return;
    }
    list_node* a = small.head();
    list_node* b = big.head();
    for (; a != small.sentinel(); a = a->next, b = b->next)
        swap_values(a, b);
    small.insert(big, b, big.sentinel(), small.sentinel());
    big.erase(b, big.sentinel());
}

// ---------------------------------------------------------------------------
// Splicing.

// Moves other's [first, last) before `before`. A range that would wrap past
// other's end moves nothing.
void list_engine::splice(list_node* before, list_engine& other, bool relink, list_node* first,
                         list_node* last) {
    int const n = other.distance(first, last);
    if (n <= 0)
        return;
    if (!relink) {
        // The copies are linked only when the originals are gone: within
        // one list, `before` may be `last`.
        chain c(*this);
        c.clone(other, first, last);
        other.erase(first, last);
        link(c, before);
        return;
    }
    invalidate_cache();
    other.invalidate_cache();
    other.transfer(first, last->prev, before);
    count_ += unsigned(n);
    other.count_ -= unsigned(n);
}

void list_engine::splice(unsigned pos, list_engine& other, bool relink) {
    if (&other == this)
        return;
    if (pos > count_)
        index_out_of_range();
    splice(zpos(pos), other, relink, other.head(), other.sentinel());
}

void list_engine::splice(unsigned pos, list_engine& other, bool relink, unsigned first,
                         unsigned n) {
    if (&other == this)
        return;
    if (pos > count_ || first > other.count_)
        index_out_of_range();
    n = std::min(n, other.count_ - first);
    splice(zpos(pos), other, relink, other.zpos(first), other.zpos(first + n));
}

void list_engine::splice(cursor const& pos, list_engine& other, bool relink) {
    check_cursor(pos, true, 1002);
    if (&other == this)
        return;
    splice(pos.node, other, relink, other.head(), other.sentinel());
}

void list_engine::splice(cursor const& pos, list_engine& other, bool relink, cursor const& first,
                         cursor const& last) {
    check_cursor(pos, true, 1024);
    check_range(first, last, &other, 1025);
    if (&other == this) {
        // Within one list the position must lie outside the range.
        for (list_node const* p = first.node; p != last.node; p = p->next)
            if (p == pos.node)
                return;
    }
    splice(pos.node, other, relink, first.node, last.node);
}

} // namespace zel
