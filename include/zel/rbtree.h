// The red-black tree: rbtree_engine, the non-template core of the ordered
// containers, and ordered_tree, the typed core that set, multiset, map and
// multimap (set.h, map.h) are made of.
//
// The engine balances top-down, as a 2-3-4 tree: an insertion splits every
// 4-node it meets on the way down and an erasure merges or borrows on the
// way down so that it never descends into a 2-node; neither walks back up.
// It keeps a header node (the root is its right child), the leftmost and
// rightmost nodes, the element count and a flags word whose bit 0 allows
// equal keys. Ordering, making, copying and freeing values belong to the
// typed layer, through the virtual operations below.
//
// Every absent child is a link to one shared, static nil node (black, both
// children itself). Its parent link is scratch that removals and rotations
// write; those writes are relaxed atomic stores, so trees used by different
// threads at once do not race on it. The nil node is constant-initialised:
// the first tree finds it ready.
#ifndef ZEL_RBTREE_H
#define ZEL_RBTREE_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <type_traits>
#include <utility>

#include <zel/associative.h>
#include <zel/callback.h>
#include <zel/comparator.h>
#include <zel/config.h>
#include <zel/tree.h>

namespace zel {

// The engine. Operations taking cursors check them first and raise
// container_error "mis-matched iterator(s)" for a cursor of another tree
// (or a range whose ends belong to different trees) and "iterator points to
// end()" where a single cursor must name a node.
//
// Copies are shallow (every field as it stands) and the destructor frees
// nothing: the typed layer calls clear() and gives a copy its own nodes.
class ZEL_API rbtree_engine : public tree_engine {
public:
    enum color_type { red = 0, black = 1 };

    struct base_rbnode : base_node {
        color_type color;

        // All three links nil, red.
        base_rbnode() noexcept : base_node(nil_pointer, nil_pointer, nil_pointer), color(red) {}
        constexpr base_rbnode(color_type c, base_node* p, base_node* l, base_node* r) noexcept
            : base_node(p, l, r), color(c) {}
        base_rbnode(base_rbnode const&) noexcept = default;
        base_rbnode& operator=(base_rbnode const&) noexcept = default;

        bool is_red() const noexcept { return color == red; }
        bool is_black() const noexcept { return color == black; }
        bool is_leaf() const noexcept { return left == nil_pointer && right == nil_pointer; }
        // The node and both its children black.
        bool is_2node() const noexcept {
            return color == black && rb(left)->color == black && rb(right)->color == black;
        }
        // Both children red.
        bool is_4node() const noexcept {
            return rb(left)->color == red && rb(right)->color == red;
        }
        // Node red, both children black (a nil child is left as it is:
        // it is black already).
        void split() noexcept {
            color = red;
            set_black(left);
            set_black(right);
        }
        // Node black, both children red (a nil child is left black).
        void merge() noexcept {
            color = black;
            if (left != nil_pointer)
                rb(left)->color = red;
            if (right != nil_pointer)
                rb(right)->color = red;
        }
        base_rbnode* sibling() const noexcept {
            return rb(parent->left == this ? parent->right : parent->left);
        }
        void set_color(color_type c) noexcept { color = c; }
        void init(color_type c, base_node* p, base_node* l, base_node* r) noexcept {
            color = c;
            parent = p;
            left = l;
            right = r;
        }
    };

    // A position: the tree and the node; nil at end().
    struct rbcursor {
        rbtree_engine const* owner;
        base_rbnode* node;
    };

    explicit rbtree_engine(bool allow_duplicates) noexcept;
    rbtree_engine(rbtree_engine const&) noexcept = default;
    rbtree_engine& operator=(rbtree_engine const&) noexcept = default;

    // Slots 1 to 4.
    base_node* nil() const override;
    base_node* leftmost() const override;
    base_node* rightmost() const override;
    base_node* root() const override;
    // Slot 5: frees nothing (see above).
    ~rbtree_engine() override;

    unsigned size() const noexcept { return count_; }
    bool duplicates_allowed() const noexcept { return (flags_ & 1u) != 0; }
    base_rbnode* end() const noexcept { return nil_pointer; }
    // The first node of an in-order, pre-order and post-order walk.
    base_rbnode* begin_in() const noexcept { return leftmost_; }
    base_rbnode* begin_pre() const noexcept { return rb(header_.right); }
    base_rbnode* begin_post() const;

    // Inserts a copy of *value: the new node, or the existing equal node
    // (and nothing is made) when equal keys are forbidden. The hint is
    // checked but not used for placement.
    base_rbnode* insert(void const* value) { return insert_value(value, value); }
    base_rbnode* insert(rbcursor const& hint, void const* value);
    // Copies of other's nodes, or of the range (possibly of this tree).
    void insert(rbtree_engine const& other);
    void insert(rbcursor const& first, rbcursor const& last);

    // clear, copy_traits(other), insert(other); nothing for itself.
    void assign(rbtree_engine const& other);
    // Replaces the contents by the range; a range of this tree keeps its
    // nodes and loses what lies before and behind it.
    void assign(rbcursor const& first, rbcursor const& last);

    // The lower bound when its key equals key; otherwise not_found, or nil
    // when not_found is null.
    base_rbnode* find(void const* key, base_rbnode* not_found = nullptr) const;
    base_rbnode* lower_bound(void const* key) const;
    base_rbnode* upper_bound(void const* key) const;
    unsigned count(void const* key) const;
    bool contains(void const* key) const { return find(key) != nil_pointer; }

    // Kept behaviour: when equal keys are forbidden or all is false, the
    // node erased is lower_bound(key) with no test that its key is equal,
    // so an absent key erases the next larger element when there is one.
    // With equal keys allowed and all true, every equal node goes. Returns
    // the number erased.
    unsigned erase(void const* key, bool all);
    unsigned erase(rbcursor const& position);
    unsigned erase(rbcursor const& first, rbcursor const& last);
    // Deletes every node.
    void clear();

    // Bit 0 of the flags; switching equal keys off runs unique().
    void set_duplication(bool allow);
    // Erases each node whose key equals that of the node before it.
    void unique();
    // swap_traits(other), then the contents change places: by relinking, or
    // (relink false) by copying each tree's nodes into the other. Copying
    // is all or nothing when a copy throws. Nothing for itself.
    void swap(rbtree_engine& other, bool relink);

    // Raises container_error when an invariant does not hold (see the .cpp).
    void check() const;
    // Cursor checks, reported from this engine's file with the given line.
    void check_cursor(rbcursor const& c, int line) const;
    void check_cursors(rbcursor const& first, rbcursor const& last, int line) const;

    // The in-order neighbours the typed iterators step with: inline, without
    // a virtual call. Stepping forward from nil raises "attempt to move
    // forward past end()"; back from nil gives the rightmost node (on an
    // empty tree it raises "attempt to move backward past begin()").
    base_rbnode* step_next(base_rbnode* n) const {
        base_node* const z = header_.left;
        if (n == z)
            return rb(next_in_order(n));
        base_node* m = n;
        if (m->right != z) {
            for (m = m->right; m->left != z;)
                m = m->left;
            return rb(m);
        }
        base_node* p = m->parent;
        for (; m == p->right; p = p->parent)
            m = p;
        return p == &header_ ? rb(z) : rb(p);   // climbing from the rightmost ends at the header
    }
    base_rbnode* step_prev(base_rbnode* n) const {
        base_node* const z = header_.left;
        if (n == z)
            return count_ == 0 ? rb(prev_in_order(n)) : rightmost_;
        base_node* m = n;
        if (m->left != z) {
            for (m = m->left; m->right != z;)
                m = m->right;
            return rb(m);
        }
        base_node* p = m->parent;
        for (; m == p->left; p = p->parent)
            m = p;
        return p == &header_ ? rb(z) : rb(p);
    }

protected:
    // Slots 6 to 13, supplied by the typed layer.
    // True when a's key orders strictly before b's (before key; key before b's).
    virtual bool compare(base_rbnode const* a, base_rbnode const* b) const = 0;
    virtual bool compare(base_rbnode const* a, void const* key) const = 0;
    virtual bool compare(void const* key, base_rbnode const* b) const = 0;
    // Take over (exchange) the typed layer's per-tree state.
    virtual void copy_traits(rbtree_engine const& other) = 0;
    virtual void swap_traits(rbtree_engine& other) = 0;
    // A red, unlinked node holding a copy of *value (of n's value).
    virtual base_rbnode* new_node(void const* value) = 0;
    virtual base_rbnode* clone_node(base_rbnode const* n) = 0;
    virtual void delete_node(base_rbnode* n) = 0;

    static base_rbnode* rb(base_node* n) noexcept { return static_cast<base_rbnode*>(n); }
    static base_rbnode const* rb(base_node const* n) noexcept {
        return static_cast<base_rbnode const*>(n);
    }
    static void set_black(base_node* n) noexcept {
        if (n != nil_pointer)
            rb(n)->color = black;
    }

    // Insertion with the key the descent compares and the value a new node
    // copies kept apart (a map compares keys but copies pairs).
    base_rbnode* insert_value(void const* key, void const* value);
    // Links a ready node; returns it, or the existing equal node (and the
    // node is not linked) when equal keys are forbidden.
    base_rbnode* insert_node(base_rbnode* node);
    // Unlinks and deletes z; 1, or 0 for nil.
    unsigned erase_node(base_rbnode* z);

    base_rbnode header_;
    base_rbnode* leftmost_;
    base_rbnode* rightmost_;
    std::uint32_t flags_;
    std::uint32_t count_;

    static base_rbnode nil_node;
    static base_rbnode* nil_pointer;

private:
    base_rbnode* descend(void const* key, base_rbnode const* node, base_rbnode*& parent,
                         bool& right);
    void link_new(base_rbnode* n, base_rbnode* parent, bool right) noexcept;
    void split(base_rbnode* x) noexcept;
    void merge(base_rbnode* x, base_rbnode* s, base_rbnode* p) noexcept;
    void remove(base_rbnode* z) noexcept;
    unsigned get_erase_path(base_rbnode* z, unsigned char* path) const;
    void reset() noexcept;
    void insert_self(base_rbnode* first, base_rbnode* last);
    base_rbnode* clone_chain(rbtree_engine const& source, base_rbnode* first, base_rbnode* last);
    void delete_chain(base_rbnode* chain) noexcept;
    void insert_chain(base_rbnode* chain);
};

static_assert(sizeof(rbtree_engine) == (pointers_are_32_bits ? 36 : 64),
              "rbtree_engine is a vtable pointer, header, leftmost, rightmost, flags and count");

// A node of the typed layer: the links and color, then the value.
template <class V>
struct rbtree_value_node : rbtree_engine::base_rbnode {
    template <class... Args>
    explicit rbtree_value_node(Args&&... args) : value(std::forward<Args>(args)...) {}
    V value;
};

// How the typed iterators walk the engine (see associative.h).
template <class V>
struct rbtree_position {
    using owner = rbtree_engine;
    using node = rbtree_engine::base_rbnode;
    using value_type = V;
    static V& value(node* n) noexcept { return static_cast<rbtree_value_node<V>*>(n)->value; }
    static node* next(owner const* t, node* n) { return t->step_next(n); }
    static node* prev(owner const* t, node* n) { return t->step_prev(n); }
};

// The typed core of set, multiset, map and multimap: C is the container
// itself, K its key policy (associative.h), Compare a strict weak order over
// keys, Multi whether equal keys are kept. Lookups (find, bounds, counts)
// run inline with the comparator; insertion, erasure and every check run
// in the engine. Iterators stay valid until their element is erased; an
// iterator of another container passed to insert, erase or a range raises
// container_error "mis-matched iterator(s)", erasing end() raises "iterator
// points to end()", and stepping past end() raises "attempt to move forward
// past end()". An element copy that throws leaves the container valid and
// leak-free; copying a whole container and copy assignment are all or
// nothing.
template <class C, class K, class Compare, bool Multi>
class ordered_tree : protected rbtree_engine,
                     public associative_relations<C, K, true>,
                     public associative_members<C, K>,
                     public range_access<ordered_tree<C, K, Compare, Multi>> {
    using members = associative_members<C, K>;
    using link = rbtree_engine::base_rbnode;
    static constexpr bool is_set = std::is_same_v<typename K::key_type, typename K::value_type>;

public:
    using key_type = typename K::key_type;
    using value_type = typename K::value_type;
    using key_compare = Compare;
    using size_type = unsigned;
    using difference_type = std::ptrdiff_t;
    using reference = std::conditional_t<is_set, value_type const&, value_type&>;
    using const_reference = value_type const&;
    using iterator = associative_iterator<rbtree_position<value_type>,
                                          std::conditional_t<is_set, value_type const, value_type>>;
    using const_iterator = associative_iterator<rbtree_position<value_type>, value_type const>;
    using reverse_iterator = std::reverse_iterator<iterator>;
    using const_reverse_iterator = std::reverse_iterator<const_iterator>;
    using insert_result = std::conditional_t<Multi, iterator, std::pair<iterator, bool>>;
    using rbtree_engine::visit_type;
    using rbtree_engine::in_order;
    using rbtree_engine::pre_order;
    using rbtree_engine::post_order;

    ordered_tree() : rbtree_engine(Multi), comp_() {}
    explicit ordered_tree(Compare const& comp) : rbtree_engine(Multi), comp_(comp) {}
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    ordered_tree(It first, It last, Compare const& comp = Compare()) : ordered_tree(comp) {
        guarded([&] { members::insert(first, last); });
    }
    ordered_tree(std::initializer_list<value_type> il, Compare const& comp = Compare())
        : ordered_tree(il.begin(), il.end(), comp) {}
    ordered_tree(ordered_tree const& other) : rbtree_engine(Multi), comp_(other.comp_) {
        guarded([&] { rbtree_engine::insert(other); });
    }
    // NOLINTNEXTLINE(performance-noexcept-move-constructor): copies the comparator
    ordered_tree(ordered_tree&& other) : rbtree_engine(Multi), comp_(other.comp_) {
        rbtree_engine::swap(other, true);
    }
    ~ordered_tree() override { clear(); }

    ordered_tree& operator=(ordered_tree const& other) {
        if (this != &other) {
            ordered_tree tmp(other);
            rbtree_engine::swap(tmp, true);
        }
        return *this;
    }
    ordered_tree& operator=(ordered_tree&& other) noexcept {
        if (this != &other) {
            clear();
            rbtree_engine::swap(other, true);
        }
        return *this;
    }
    ordered_tree& operator=(std::initializer_list<value_type> il) {
        members::assign(il);
        return *this;
    }

    iterator begin() noexcept { return {this, leftmost_}; }
    iterator end() noexcept { return {this, nil_link()}; }
    const_iterator begin() const noexcept { return {this, leftmost_}; }
    const_iterator end() const noexcept { return {this, nil_link()}; }

    bool empty() const noexcept { return count_ == 0; }
    using rbtree_engine::check;
    using rbtree_engine::clear;
    using rbtree_engine::size;
    key_compare key_comp() const { return comp_; }

    // A copy of value; for unique containers (iterator, inserted), where
    // the iterator names the element that kept an equal key out.
    insert_result insert(value_type const& value) {
        unsigned const n = count_;
        iterator const it(this, insert_value(&K::key(value), &value));
        if constexpr (Multi)
            return it;
        else
            return {it, count_ != n};
    }
    // The hint is checked, not used.
    iterator insert(const_iterator hint, value_type const& value) {
        if (hint.owner() != this)
            check_cursors({hint.owner(), hint.get()}, {this, nil_link()}, __LINE__);
        return position(insert(value));
    }
    using members::assign;
    using members::contains;
    using members::insert;
    template <class... Args>
    insert_result emplace(Args&&... args) {
        return insert(value_type(std::forward<Args>(args)...));
    }

    // Erases the element and returns the one after it.
    iterator erase(const_iterator pos) {
        link* const n = pos.get();
        if (pos.owner() != this || n == nil_link())
            rbtree_engine::erase(rbcursor{pos.owner(), n});   // raises
        link* const next = step_next(n);
        erase_node(n);
        return {this, next};
    }
    iterator erase(const_iterator first, const_iterator last) {
        rbtree_engine::erase(rbcursor{first.owner(), first.get()},
                             rbcursor{last.owner(), last.get()});
        return {this, last.get()};
    }
    // The elements with an equal key; their number.
    unsigned erase(key_type const& key) {
        if constexpr (Multi)
            return rbtree_engine::erase(&key, true);
        else
            return erase_node(find_link(key));
    }

    void swap(C& other) noexcept { rbtree_engine::swap(static_cast<ordered_tree&>(other), true); }

    iterator find(key_type const& key) { return {this, find_link(key)}; }
    const_iterator find(key_type const& key) const { return {this, find_link(key)}; }
    unsigned count(key_type const& key) const {
        if constexpr (Multi) {
            unsigned n = 0;
            for (link* x = lower(key), *const y = upper(key); x != y; x = step_next(x))
                ++n;
            return n;
        } else {
            return find_link(key) != nil_link() ? 1u : 0u;
        }
    }
    iterator lower_bound(key_type const& key) { return {this, lower(key)}; }
    const_iterator lower_bound(key_type const& key) const { return {this, lower(key)}; }
    iterator upper_bound(key_type const& key) { return {this, upper(key)}; }
    const_iterator upper_bound(key_type const& key) const { return {this, upper(key)}; }
    std::pair<iterator, iterator> equal_range(key_type const& key) {
        return {lower_bound(key), upper_bound(key)};
    }
    std::pair<const_iterator, const_iterator> equal_range(key_type const& key) const {
        return {lower_bound(key), upper_bound(key)};
    }

    // Calls f(element) for every element in the given order (in-order is
    // ascending); f takes the element by reference (const on a const
    // container and for sets).
    template <class F>
    void visit(F&& f, visit_type order = in_order) {
        callback_base const c = element_visitor<reference>(f);
        tree_engine::visit(&c, order);
    }
    template <class F>
    void visit(F&& f, visit_type order = in_order) const {
        callback_base const c = element_visitor<value_type const>(f);
        tree_engine::visit(&c, order);
    }

protected:
    using node = rbtree_value_node<value_type>;

    bool compare(link const* a, link const* b) const override {
        return comp_(key(a), key(b));
    }
    bool compare(link const* a, void const* k) const override {
        return comp_(key(a), *static_cast<key_type const*>(k));
    }
    bool compare(void const* k, link const* b) const override {
        return comp_(*static_cast<key_type const*>(k), key(b));
    }
    void copy_traits(rbtree_engine const& other) override {
        comp_ = static_cast<ordered_tree const&>(other).comp_;
    }
    void swap_traits(rbtree_engine& other) override {
        using std::swap;
        swap(comp_, static_cast<ordered_tree&>(other).comp_);
    }
    link* new_node(void const* v) override { return new node(*static_cast<value_type const*>(v)); }
    link* clone_node(link const* n) override {
        return new node(static_cast<node const*>(n)->value);
    }
    void delete_node(link* n) override { delete static_cast<node*>(n); }
    void do_callback(void const* callback, base_node const* n) const override {
        call_element_visitor(callback, &static_cast<node const*>(n)->value);
    }

    link* nil_link() const noexcept { return rb(header_.left); }

private:
    static key_type const& key(link const* n) noexcept {
        return K::key(static_cast<node const*>(n)->value);
    }
    // The first node whose key is not before k (after k); nil if none.
    link* lower(key_type const& k) const {
        link* const z = nil_link();
        link* y = z;
        for (link* x = rb(header_.right); x != z;) {
            if (!comp_(key(x), k)) {
                y = x;
                x = rb(x->left);
            } else {
                x = rb(x->right);
            }
        }
        return y;
    }
    link* upper(key_type const& k) const {
        link* const z = nil_link();
        link* y = z;
        for (link* x = rb(header_.right); x != z;) {
            if (comp_(k, key(x))) {
                y = x;
                x = rb(x->left);
            } else {
                x = rb(x->right);
            }
        }
        return y;
    }
    link* find_link(key_type const& k) const {
        link* const y = lower(k);
        return y != nil_link() && !comp_(k, key(y)) ? y : nil_link();
    }
    static iterator position(iterator it) noexcept { return it; }
    static iterator position(std::pair<iterator, bool> r) noexcept { return r.first; }

    // Clears what a constructor inserted before a copy threw.
    template <class F>
    void guarded(F f) {
        try {
            f();
        } catch (...) {
            clear();
            throw;
        }
    }

    Compare comp_;
};

} // namespace zel

#endif
