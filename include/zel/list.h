// The doubly linked list: list_engine, the non-template core that owns a ring
// of link-only nodes closed by a sentinel inside the engine and does all
// linking, splicing, merging, sorting, reversing and checking, and list<T>,
// the typed layer that makes, copies, destroys, compares and visits the
// values behind the links.
//
// The engine caches the last position looked up by index, so that walking a
// list by increasing or decreasing index costs one step per call. The cache
// is guarded by the engine's own mutex: pos() is const and may be called by
// several readers at once. Nothing else is locked.
#ifndef ZEL_LIST_H
#define ZEL_LIST_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <new>
#include <type_traits>
#include <utility>

#include <zel/callback.h>
#include <zel/comparator.h>
#include <zel/config.h>
#include <zel/exception.h>
#include <zel/sequence.h>

namespace zel {

class mutex;

// The engine. Index forms raise out_of_range (thrown directly, without file
// and line) when a start index lies past the end; counts are clipped to what
// remains. Cursor forms check their cursors first and raise container_error
// "mis-matched iterator(s)" for a cursor of another list; erase(cursor)
// raises "iterator points to end()" for the sentinel. Positions where nodes
// are inserted or spliced may be end().
//
// relink (splice, merge, swap): true when both lists allocate their nodes
// alike, so nodes move by relinking; false copies them into the target
// (clone_node) and erases them from the source.
//
// Copies are shallow (every field as it stands, the mutex pointer and the
// cache included) and the destructor frees no nodes: the typed layer calls
// clear() in its own destructor. Kept behaviour a caller must know: two
// engines copied from one share the mutex, and the destructor of each
// destroys it, so only one of them may be destroyed. The typed layer never
// copies an engine.
class ZEL_API list_engine {
public:
    static constexpr unsigned all = 0xFFFFFFFFu;

    // The link header at the front of every node.
    struct list_node {
        list_node* prev;
        list_node* next;
    };

    // A position: the engine whose ring holds the node, and the node; at
    // end() the node is the owner's sentinel.
    struct cursor {
        list_engine const* owner;
        list_node* node;
    };

    // Which matches remove() takes.
    enum lsv_flags { lsv_all = 0, lsv_first = 1, lsv_last = 2 };

    // An empty ring, no cache, and a mutex of its own.
    list_engine();
    list_engine(list_engine const&) noexcept = default;
    list_engine& operator=(list_engine const&) noexcept = default;
    // Destroys the mutex; frees no nodes (see above).
    virtual ~list_engine();

    unsigned size() const noexcept { return count_; }
    // The first and the last node; on an empty list they raise out_of_range
    // through the library's throw path.
    list_node* front() const;
    list_node* back() const;
    // The last node, unchecked (the sentinel when the list is empty).
    list_node* tail() const noexcept { return sentinel_.prev; }
    // The node at index i, through the position cache; i not below size()
    // raises out_of_range through the throw path.
    list_node* pos(unsigned i) const;
    // Index of b minus index of a, counting the sentinel as index size():
    // the number of next-steps from a to b, or, when the walk passes the
    // sentinel, steps - 1 - size() (negative: b lies before a).
    int distance(list_node const* a, list_node const* b) const noexcept;

    // n copies of *value behind the tail, or before the head. A copy that
    // throws leaves the ones made before it in the list.
    void push_back(void const* value, unsigned n);
    void push_front(void const* value, unsigned n);
    // n copies of *value before the node at pos (pos == size(): the end).
    void insert(unsigned pos, void const* value, unsigned n);
    // Copies of other's nodes (all, or [first, first + n)) before pos;
    // other may be this list. All or nothing: a copy that throws leaves the
    // list as it was.
    void insert(unsigned pos, list_engine const& other);
    void insert(unsigned pos, list_engine const& other, unsigned first, unsigned n);
    void insert(cursor const& pos, void const* value, unsigned n);
    void insert(cursor const& pos, cursor const& first, cursor const& last);

    // Replace the contents; copying assignments are all or nothing. A range
    // of this list itself is kept in place by erasing what lies behind and
    // before it (by index: only what there is on either side).
    void assign(void const* value, unsigned n);
    void assign(list_engine const& other);
    void assign(list_engine const& other, unsigned first, unsigned n);
    void assign(cursor const& first, cursor const& last);

    void erase(unsigned first, unsigned n);
    void erase(cursor const& pos);
    void erase(cursor const& first, cursor const& last);
    // min(n, size()) nodes from the tail, or from the head, one at a time.
    void pop_back(unsigned n);
    void pop_front(unsigned n);
    void clear();
    // Erase from n on, or append n - size() copies of *value.
    void resize(void const* value, unsigned n);

    // Calls do_callback on each node of [first, first + n) (n clipped) when
    // the callback is set.
    void visit(callback_base const& callback, unsigned first, unsigned n);
    void visit(callback_base const& callback, unsigned first, unsigned n) const;

    // Erases the nodes for which compare(node, value) is true: all of them,
    // the first from the front, or the first from the back; other flag
    // values erase nothing.
    void remove(void const* value, comparator_base const& comparator, lsv_flags flags);
    // Collapses each run of nodes that compare true against the run's first
    // node to that first node.
    void unique(comparator_base const& comparator);
    // Merges other into this list; a node of other goes before a node of
    // this list when compare(this node, other node) is false. other ends
    // empty. Nothing when other is this list.
    void merge(list_engine& other, bool relink, comparator_base const& comparator);
    // A bottom-up merge sort over 33 runs; no node is made or copied. The
    // comparator answers "a stays ahead of b" (an order_comparator).
    //
    // Kept behaviour: the sort is not stable. Within each run equal nodes
    // keep their order, but the closing merges take the runs from the
    // latest to the earliest and put the later run's nodes ahead of equal
    // nodes of an earlier one.
    void sort(comparator_base const& comparator);
    void reverse();

    // Move other's nodes (all, [first, first + n), or [first, last)) before
    // pos. By index, splicing a list into itself does nothing; with cursors
    // a range of this list moves within it, and a position inside the range
    // leaves the list unchanged.
    void splice(unsigned pos, list_engine& other, bool relink);
    void splice(unsigned pos, list_engine& other, bool relink, unsigned first, unsigned n);
    void splice(cursor const& pos, list_engine& other, bool relink);
    void splice(cursor const& pos, list_engine& other, bool relink, cursor const& first,
                cursor const& last);
    // relink: the two rings are exchanged. Otherwise the common prefix is
    // exchanged value by value and the bigger list's surplus is copied to the
    // smaller one and erased from the bigger.
    void swap(list_engine& other, bool relink);

    // Raises container_error when an invariant does not hold (see the .cpp).
    void check() const;

protected:
    // The typed layer's operations, in slot order. The engine's own versions
    // do nothing useful: the sort's temporary runs are plain engines, which
    // merge through the sorted list's compare.
    virtual void do_callback(void const* callback, list_node* node);
    virtual void do_callback(void const* callback, list_node const* node) const;
    // True when a stays ahead of b.
    virtual bool compare(list_node const* a, list_node const* b,
                         void_comparator const& comparator) const;
    // True when the node matches the loose value (remove).
    virtual bool compare(list_node const* a, void const* value,
                         void_comparator const& comparator) const;
    virtual list_node* clone_node(list_node const* node);
    virtual list_node* new_node(void const* value);
    virtual void delete_node(list_node* node);
    virtual void swap_values(list_node* a, list_node* b);

    list_node* head() const noexcept { return sentinel_.next; }
    list_node* sentinel() const noexcept { return const_cast<list_node*>(&sentinel_); }
    // pos(i), but index 0 gives the head, size() - 1 the tail and size() the
    // sentinel without a lookup.
    list_node* zpos(unsigned i) const;
    void invalidate_cache() const noexcept {
        cache_index_ = all;
        cache_node_ = sentinel();
    }
    // Links a detached node before `before` and counts it: the typed layer's
    // inline pushes use it.
    void link_counted(list_node* node, list_node* before) noexcept {
        invalidate_cache();
        link(node, before);
        ++count_;
    }
    static void link(list_node* node, list_node* before) noexcept {
        node->prev = before->prev;
        node->next = before;
        before->prev->next = node;
        before->prev = node;
    }

    [[noreturn]] static void index_out_of_range();

    std::uint32_t count_;
    list_node sentinel_;
    mutex* lock_;
    mutable std::uint32_t cache_index_;   // all: no cache
    mutable list_node* cache_node_;       // the sentinel when there is no cache

private:
    struct chain;

    static void link(list_node* first, list_node* last, list_node* before) noexcept;
    void unlink(list_node* first, list_node* last) noexcept;
    void unlink(list_node* node) noexcept { unlink(node, node); }
    void transfer(list_node* first, list_node* last, list_node* before) noexcept;
    void erase(list_node* node);
    void erase(list_node* first, list_node* last);
    void insert(void const* value, unsigned n, list_node* before);
    void insert(list_node const* node, list_node* before);
    void insert(list_engine const& source, list_node const* first, list_node const* last,
                list_node* before);
    void range(unsigned first, unsigned n, list_node*& start, list_node*& stop) const;
    void link(chain& c, list_node* before) noexcept;
    void replace_with(chain& c);
    void splice(list_node* before, list_engine& other, bool relink, list_node* first,
                list_node* last);
    void merge2(list_engine const& owner, list_engine& other, void_comparator const& ahead);
    void reset_sentinel() noexcept { sentinel_.prev = sentinel_.next = &sentinel_; }
    void check_cursor(cursor const& c, bool end_allowed, int line) const;
    static void check_range(cursor const& first, cursor const& last, list_engine const* owner,
                            int line);

};

static_assert(sizeof(list_engine) == (pointers_are_32_bits ? 28 : 56),
              "list_engine is a vtable pointer, count, sentinel, lock, cache index and node");

// A list node of the typed layer: the links, then the value.
template <class T>
struct list_value_node : list_engine::list_node {
    template <class... Args>
    explicit list_value_node(Args&&... args)
        : list_engine::list_node{nullptr, nullptr}, value(std::forward<Args>(args)...) {}
    T value;
};

// A bidirectional iterator that remembers its list, so the list can reject
// an iterator of another one. V is T or T const.
template <class T, class V>
class list_iterator {
public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = V*;
    using reference = V&;
    using node = list_value_node<T>;
    using link = list_engine::list_node;

    list_iterator() noexcept = default;
    list_iterator(list_engine const* owner, link* n) noexcept : owner_(owner), node_(n) {}
    // iterator -> const_iterator
    template <class U, class = std::enable_if_t<std::is_const_v<V> && std::is_same_v<U, T>>>
    list_iterator(list_iterator<T, U> const& other) noexcept
        : owner_(other.owner()), node_(other.get()) {}

    V& operator*() const noexcept { return static_cast<node*>(node_)->value; }
    V* operator->() const noexcept { return &**this; }
    list_iterator& operator++() noexcept { node_ = node_->next; return *this; }
    list_iterator operator++(int) noexcept { auto t = *this; node_ = node_->next; return t; }
    list_iterator& operator--() noexcept { node_ = node_->prev; return *this; }
    list_iterator operator--(int) noexcept { auto t = *this; node_ = node_->prev; return t; }
    friend bool operator==(list_iterator a, list_iterator b) noexcept { return a.node_ == b.node_; }
    friend bool operator!=(list_iterator a, list_iterator b) noexcept { return a.node_ != b.node_; }

    list_engine const* owner() const noexcept { return owner_; }
    link* get() const noexcept { return node_; }
    list_engine::cursor cursor() const noexcept { return {owner_, node_}; }

private:
    list_engine const* owner_ = nullptr;
    link* node_ = nullptr;
};

// The typed list. Nodes come from the global heap, so any two lists of one
// element type exchange nodes by relinking. Iterators and references stay
// valid until their element is erased; an iterator of another list passed to
// insert, erase or splice raises container_error "mis-matched iterator(s)",
// and erasing end() raises "iterator points to end()". Inserting a range,
// assigning and copying are all or nothing when a copy throws.
template <class T>
class list : protected list_engine,
             public sequence_members<list<T>, T, list_iterator<T, T>, list_iterator<T, T const>> {
    using node = list_value_node<T>;
    using members = sequence_members<list, T, list_iterator<T, T>, list_iterator<T, T const>>;

public:
    // value_type, size_type, reference and the reverse iterators come with
    // the members.
    using iterator = list_iterator<T, T>;
    using const_iterator = list_iterator<T, T const>;
    using list_engine::all;
    using list_engine::lsv_flags;

    list() = default;
    explicit list(unsigned n, T const& value = T()) { list_engine::push_back(&value, n); }
    list(std::initializer_list<T> il) : list(il.begin(), il.end()) {}
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    list(It first, It last) {
        try {
            for (; first != last; ++first)
                push_back(*first);
        } catch (...) {
            clear();
            throw;
        }
    }
    list(list const& other) { list_engine::insert(0, other); }
    list(list&& other) { swap(other); }  // NOLINT(performance-noexcept-move-constructor): a new mutex
    ~list() override { clear(); }

    list& operator=(list const& other) {
        list_engine::assign(other);
        return *this;
    }
    list& operator=(list&& other) noexcept { return move_assign(*this, other); }
    using members::operator=;
    void assign(unsigned n, T const& value) { list_engine::assign(&value, n); }
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    void assign(It first, It last) {
        list tmp(first, last);
        swap(tmp);
    }

    // On an empty list these raise out_of_range through the throw path.
    T& front() { return value(list_engine::front()); }
    T const& front() const { return value(list_engine::front()); }
    T& back() { return value(list_engine::back()); }
    T const& back() const { return value(list_engine::back()); }
    // By index through the position cache: walking by increasing or
    // decreasing index costs one step per call. An index not below size()
    // raises out_of_range through the throw path.
    T& operator[](unsigned i) { return value(pos(i)); }
    T const& operator[](unsigned i) const { return value(pos(i)); }
    T& at(unsigned i) { return value(pos(i)); }
    T const& at(unsigned i) const { return value(pos(i)); }

    iterator begin() noexcept { return {this, head()}; }
    iterator end() noexcept { return {this, sentinel()}; }
    const_iterator begin() const noexcept { return {this, head()}; }
    const_iterator end() const noexcept { return {this, sentinel()}; }

    using list_engine::check;
    using list_engine::clear;
    using list_engine::size;

    // One node at an end: inline, without the engine's per-node virtual call.
    void push_back(T const& value) { link_counted(new node(value), sentinel()); }
    void push_front(T const& value) { link_counted(new node(value), head()); }
    void pop_back() { list_engine::pop_back(1); }
    void pop_front() { list_engine::pop_front(1); }

    using members::insert;
    iterator insert(const_iterator pos, unsigned n, T const& value) {
        list_engine::insert(pos.cursor(), &value, n);
        return first_of(pos, n);
    }
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    iterator insert(const_iterator pos, It first, It last) {
        list tmp(first, last);
        unsigned const n = tmp.size();
        list_engine::splice(pos.cursor(), tmp, true);
        return first_of(pos, n);
    }
    iterator erase(const_iterator pos) {
        list_engine::list_node* const next = pos.get() ? pos.get()->next : nullptr;
        list_engine::erase(pos.cursor());
        return {this, next};
    }
    iterator erase(const_iterator first, const_iterator last) {
        list_engine::erase(first.cursor(), last.cursor());
        return {this, last.get()};
    }
    void resize(unsigned n) { resize(n, T()); }
    void resize(unsigned n, T const& value) { list_engine::resize(&value, n); }

    void swap(list& other) noexcept { list_engine::swap(other, true); }
    void reverse() { list_engine::reverse(); }

    // Not stable (see list_engine::sort); `comp` is a strict weak order.
    template <class Compare>
    void sort(Compare comp) {
        list_engine::sort(order_comparator<T, Compare>(std::move(comp)));
    }
    void sort() { sort(less<T>()); }
    // Both lists sorted by `comp`; equal elements of this list stay ahead.
    template <class Compare>
    void merge(list& other, Compare comp) {
        list_engine::merge(other, true, order_comparator<T, Compare>(std::move(comp)));
    }
    void merge(list& other) { merge(other, less<T>()); }

    // Moves all of other, one element, or [first, last) of other before pos.
    void splice(const_iterator pos, list& other) { list_engine::splice(pos.cursor(), other, true); }
    void splice(const_iterator pos, list& other, const_iterator it) {
        const_iterator next = it;
        if (it.get() != nullptr && it.owner() == &other && it != other.end())
            ++next;
        list_engine::splice(pos.cursor(), other, true, it.cursor(), next.cursor());
    }
    void splice(const_iterator pos, list& other, const_iterator first, const_iterator last) {
        list_engine::splice(pos.cursor(), other, true, first.cursor(), last.cursor());
    }

    // Erases the elements equal to value: all of them, or only the first
    // from the front (lsv_first) or from the back (lsv_last).
    void remove(T const& value, lsv_flags which = lsv_all) {
        list_engine::remove(&value, equal_to<T>(), which);
    }
    template <class Predicate>
    void remove_if(Predicate pred) {
        list_engine::remove(nullptr, predicate_comparator<Predicate>(pred), lsv_all);
    }
    // Collapses each run of elements equal to (pred true against) the run's
    // first element to that element.
    template <class Predicate>
    void unique(Predicate pred) {
        list_engine::unique(match_comparator<T, Predicate>(std::move(pred)));
    }
    void unique() { list_engine::unique(equal_to<T>()); }

    // Calls f(element) for [first, first + n), n clipped; f takes T& (T
    // const& on a const list).
    template <class F>
    void visit(F&& f, unsigned first = 0, unsigned n = all) {
        list_engine::visit(element_visitor<T>(f), first, n);
    }
    template <class F>
    void visit(F&& f, unsigned first = 0, unsigned n = all) const {
        list_engine::visit(element_visitor<T const>(f), first, n);
    }

protected:
    void do_callback(void const* callback, list_node* n) override {
        call_element_visitor(callback, &value(n));
    }
    void do_callback(void const* callback, list_node const* n) const override {
        call_element_visitor(callback, &value(n));
    }
    bool compare(list_node const* a, list_node const* b,
                 void_comparator const& comparator) const override {
        return comparator(&value(a), &value(b));
    }
    bool compare(list_node const* a, void const* v,
                 void_comparator const& comparator) const override {
        return comparator(&value(a), v);
    }
    list_node* clone_node(list_node const* n) override { return new node(value(n)); }
    list_node* new_node(void const* v) override { return new node(*static_cast<T const*>(v)); }
    void delete_node(list_node* n) override { delete static_cast<node*>(n); }
    void swap_values(list_node* a, list_node* b) override {
        using std::swap;
        swap(value(a), value(b));
    }

private:
    static T& value(list_node* n) noexcept { return static_cast<node*>(n)->value; }
    static T const& value(list_node const* n) noexcept {
        return static_cast<node const*>(n)->value;
    }
    // The first of n elements just inserted before pos.
    iterator first_of(const_iterator pos, unsigned n) noexcept {
        list_node* p = pos.get();
        for (; n != 0; --n)
            p = p->prev;
        return {this, p};
    }

    // remove_if's comparator: the predicate applied to the node's value.
    template <class Predicate>
    struct predicate_comparator final : comparator_base {
        explicit predicate_comparator(Predicate& p) noexcept : pred(p) {}
        bool compare(void const* a, void const*) const override {
            return bool(pred(*static_cast<T const*>(a)));
        }
        Predicate& pred;
    };
};

} // namespace zel

#endif
