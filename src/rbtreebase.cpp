// rbtree_engine: the red-black tree behind the ordered containers, balanced
// top-down like a 2-3-4 tree. Insertion splits 4-nodes on the way down and
// erasure merges or borrows on the way down, so neither walks back up;
// every check lives here, so that errors report this file.
//
// Errors:
//   text                                    class            raised by       line
//   "invalid nil node link color"           container_error  check           1251
//   "invalid pointer"                       container_error  check           1252, 1253,
//                                                                             1315-1317, and
//                                                                             the link checks
//   "invalid black link count"              container_error  check           1292
//   "invalid link colors, 2 reds in a row"  container_error  check           1302
//   "invalid element count"                 container_error  check           1311
//   "invalid element order"                 container_error  check
//   "mis-matched iterator(s)"               container_error  cursor forms
//   "iterator points to end()"              container_error  erase(cursor) at end()
// The numbered lines are the ones these reports have always carried,
// wherever the code now sits (ZEL_THROW_AT); a cursor check reports the line
// of the operation that asked for it.
#include <zel/rbtree.h>

#include <zel/exception.h>

namespace zel {

// Constant-initialised: black, every link to itself, ready before any tree.
rbtree_engine::base_rbnode rbtree_engine::nil_node(black, &nil_node, &nil_node, &nil_node);
rbtree_engine::base_rbnode* rbtree_engine::nil_pointer = &nil_node;

namespace {

constexpr unsigned path_size = 64;

} // namespace

rbtree_engine::rbtree_engine(bool allow_duplicates) noexcept
    : header_(black, &header_, nil_pointer, nil_pointer), leftmost_(nil_pointer),
      rightmost_(nil_pointer), flags_(allow_duplicates ? 1u : 0u), count_(0) {}

rbtree_engine::~rbtree_engine() = default;

tree_engine::base_node* rbtree_engine::nil() const { return nil_pointer; }
tree_engine::base_node* rbtree_engine::leftmost() const { return leftmost_; }
tree_engine::base_node* rbtree_engine::rightmost() const { return rightmost_; }
tree_engine::base_node* rbtree_engine::root() const { return header_.right; }

rbtree_engine::base_rbnode* rbtree_engine::begin_post() const {
    cursor const c(*this, post_order);
    return c.node() ? rb(c.node()) : nil_pointer;
}

void rbtree_engine::reset() noexcept {
    header_.right = nil_pointer;
    leftmost_ = rightmost_ = nil_pointer;
    count_ = 0;
}

// ---------------------------------------------------------------------------
// Insertion

// Split of a 4-node x (both children red), p its parent, g p's parent:
// x turns red and its children black, as a 2-3-4 tree passes x's middle key
// up. A red p would now have a red child: p or x is lifted over g and made
// black, and g turns red.
/*
          g(b)                   p(b)              g(b)                x(b)
         /                      /    \            /                  /    \
       p(r)          =>      x(r)    g(r)       p(r)       =>     p(r)    g(r)
       /                                          \
     x(r)                                         x(r)
*/
void rbtree_engine::split(base_rbnode* x) noexcept {
    x->split();
    base_rbnode* const p = rb(x->parent);
    if (p->color == red) {
        base_rbnode* const g = rb(p->parent);   // p is red, so not the root: g is a node
        if (g->left == p) {
            if (p->left == x) {
                rotate_right(p);
                p->color = black;
            } else {
                rotate_left_right(x);
                x->color = black;
            }
        } else {
            if (p->right == x) {
                rotate_left(p);
                p->color = black;
            } else {
                rotate_right_left(x);
                x->color = black;
            }
        }
        g->color = red;
    }
    rb(header_.right)->color = black;
}

// The descent of an insertion: splits every 4-node met, and returns the
// last node whose key is not after the new key (the candidate for an equal
// key), with the parent and side where the new node goes.
rbtree_engine::base_rbnode* rbtree_engine::descend(void const* key, base_rbnode const* node,
                                                   base_rbnode*& parent, bool& right) {
    base_rbnode* const z = nil_pointer;
    base_rbnode* candidate = z;
    for (base_rbnode* x = rb(header_.right); x != z;) {
        if (rb(x->left)->color == red && rb(x->right)->color == red)
            split(x);
        parent = x;
        if (node ? compare(node, x) : compare(key, x)) {
            right = false;
            x = rb(x->left);
        } else {
            candidate = x;
            right = true;
            x = rb(x->right);
        }
    }
    return candidate;
}

void rbtree_engine::link_new(base_rbnode* n, base_rbnode* parent, bool right) noexcept {
    base_rbnode* const z = nil_pointer;
    n->left = n->right = z;
    if (count_ == 0) {
        n->color = black;
        header_.link_right(n);
        leftmost_ = rightmost_ = n;
        count_ = 1;
        return;
    }
    n->color = red;
    if (right)
        parent->link_right(n);
    else
        parent->link_left(n);
    split(n);   // repairs a red parent
    ++count_;
    // maintain leftmost and rightmost
    if (leftmost_->left == n)
        leftmost_ = n;
    else if (rightmost_->right == n)
        rightmost_ = n;
}

rbtree_engine::base_rbnode* rbtree_engine::insert_value(void const* key, void const* value) {
    base_rbnode* parent = &header_;
    bool right = true;
    if (count_ != 0) {
        base_rbnode* const c = descend(key, nullptr, parent, right);
        if (!duplicates_allowed() && c != nil_pointer && !compare(c, key))
            return c;   // equal: nothing is made
    }
    base_rbnode* const n = new_node(value);
    link_new(n, parent, right);
    return n;
}

rbtree_engine::base_rbnode* rbtree_engine::insert_node(base_rbnode* node) {
    base_rbnode* parent = &header_;
    bool right = true;
    if (count_ != 0) {
        base_rbnode* const c = descend(nullptr, node, parent, right);
        if (!duplicates_allowed() && c != nil_pointer && !compare(c, node))
            return c;
    }
    link_new(node, parent, right);
    return node;
}

rbtree_engine::base_rbnode* rbtree_engine::insert(rbcursor const& hint, void const* value) {
    if (hint.owner != this)
        zel_throw(container_error("mis-matched iterator(s)"), __FILE__, __LINE__);
    return insert_value(value, value);
}

// Copies of [first, last) of source made by this tree, chained through
// their left links (last made first). A copy that throws deletes the ones
// made before it.
rbtree_engine::base_rbnode* rbtree_engine::clone_chain(rbtree_engine const& source,
                                                       base_rbnode* first, base_rbnode* last) {
    base_rbnode* chain = nullptr;
    try {
        for (; first != last; first = source.step_next(first)) {
            base_rbnode* const n = clone_node(first);
            n->left = chain;
            chain = n;
        }
    } catch (...) {
        delete_chain(chain);
        throw;
    }
    return chain;
}

void rbtree_engine::delete_chain(base_rbnode* chain) noexcept {
    while (chain) {
        base_rbnode* const next = rb(chain->left);
        delete_node(chain);
        chain = next;
    }
}

// Links every node of the chain; a node whose key is already there (equal
// keys forbidden) is deleted.
void rbtree_engine::insert_chain(base_rbnode* chain) {
    while (chain) {
        base_rbnode* const next = rb(chain->left);
        if (insert_node(chain) != chain)
            delete_node(chain);
        chain = next;
    }
}

// Inserting a tree's own nodes copies them all first: linking changes the
// shape the walk would follow.
void rbtree_engine::insert_self(base_rbnode* first, base_rbnode* last) {
    insert_chain(clone_chain(*this, first, last));
}

void rbtree_engine::insert(rbtree_engine const& other) {
    if (&other == this) {
        insert_self(leftmost_, nil_pointer);
        return;
    }
    for (base_rbnode* x = other.leftmost_; x != nil_pointer; x = other.step_next(x)) {
        base_rbnode* const n = clone_node(x);
        if (insert_node(n) != n)
            delete_node(n);
    }
}

void rbtree_engine::insert(rbcursor const& first, rbcursor const& last) {
    check_cursors(first, last, __LINE__);
    if (first.owner == this) {
        insert_self(first.node, last.node);
        return;
    }
    for (base_rbnode* x = first.node; x != last.node; x = first.owner->step_next(x)) {
        base_rbnode* const n = clone_node(x);
        if (insert_node(n) != n)
            delete_node(n);
    }
}

void rbtree_engine::assign(rbtree_engine const& other) {
    if (&other == this)
        return;
    clear();
    copy_traits(other);
    insert(other);
}

void rbtree_engine::assign(rbcursor const& first, rbcursor const& last) {
    check_cursors(first, last, __LINE__);
    if (first.owner != this) {
        clear();
        insert(first, last);
        return;
    }
    // A range of our own stays: cut what lies behind it, then before it.
    if (last.node != nil_pointer)
        erase(rbcursor{this, last.node}, rbcursor{this, nil_pointer});
    if (first.node != leftmost_)
        erase(rbcursor{this, leftmost_}, rbcursor{this, first.node});
}

// ---------------------------------------------------------------------------
// Lookup

rbtree_engine::base_rbnode* rbtree_engine::lower_bound(void const* key) const {
    base_rbnode* const z = nil_pointer;
    base_rbnode* y = z;
    for (base_rbnode* x = rb(header_.right); x != z;) {
        if (!compare(x, key)) {
            y = x;
            x = rb(x->left);
        } else {
            x = rb(x->right);
        }
    }
    return y;
}

rbtree_engine::base_rbnode* rbtree_engine::upper_bound(void const* key) const {
    base_rbnode* const z = nil_pointer;
    base_rbnode* y = z;
    for (base_rbnode* x = rb(header_.right); x != z;) {
        if (compare(key, x)) {
            y = x;
            x = rb(x->left);
        } else {
            x = rb(x->right);
        }
    }
    return y;
}

rbtree_engine::base_rbnode* rbtree_engine::find(void const* key, base_rbnode* not_found) const {
    base_rbnode* const y = lower_bound(key);
    if (y != nil_pointer && !compare(key, y))
        return y;
    return not_found ? not_found : nil_pointer;
}

unsigned rbtree_engine::count(void const* key) const {
    base_rbnode* x = lower_bound(key);
    if (!duplicates_allowed())
        return x != nil_pointer && !compare(key, x) ? 1u : 0u;
    unsigned n = 0;
    for (base_rbnode* const y = upper_bound(key); x != y; x = step_next(x))
        ++n;
    return n;
}

// ---------------------------------------------------------------------------
// Erasure

// The moves from the root to z, then (when z has a right child) one step
// right and down the left spine of that subtree into nil: the path to z's
// in-order successor and below it. Its length.
unsigned rbtree_engine::get_erase_path(base_rbnode* z, unsigned char* path) const {
    unsigned const d = depth(z);
    unsigned i = d;
    for (base_node* n = z; i != 0; n = n->parent)
        path[--i] = n->is_left() ? move_left : move_right;
    unsigned len = d;
    if (z->right != nil_pointer && len < path_size) {
        path[len++] = move_right;
        for (base_node* n = z->right; n != nil_pointer && len < path_size; n = n->left)
            path[len++] = move_left;
    }
    return len;
}

// Before stepping from p into x (s the other child), make sure x is not a
// 2-node, so a node can later be taken out below without unbalancing:
//  1. x black and s red: lift s over p (s black, p red), x gets a black
//     sibling.
//  2. x a 2-node: with a 2-node sibling, fuse p, x and s into a 4-node
//     (p black, x and s red); otherwise borrow from s by a rotation, the
//     lifted node taking p's color, and make p black and x red.
void rbtree_engine::merge(base_rbnode* x, base_rbnode* s, base_rbnode* p) noexcept {
    base_rbnode* const z = nil_pointer;
    if (x->color == black && s != z && s->color == red) {
        s->color = black;
        p->color = red;
        if (p->left == s)
            rotate_right(s);
        else
            rotate_left(s);
        s = rb(p->left == x ? p->right : p->left);
    }
    if (x == z || !x->is_2node() || s == z)
        return;
    if (s->is_2node()) {
        p->color = black;
        x->color = red;
        s->color = red;
        return;
    }
    if (p->left == x) {
        base_rbnode* const t = rb(s->left);
        if (t->color == red) {
            rotate_right_left(t);
            t->color = p->color;
        } else {
            rotate_left(s);
            s->color = p->color;
            rb(s->right)->color = black;
        }
    } else {
        base_rbnode* const t = rb(s->right);
        if (t->color == red) {
            rotate_left_right(t);
            t->color = p->color;
        } else {
            rotate_right(s);
            s->color = p->color;
            rb(s->left)->color = black;
        }
    }
    p->color = black;
    x->color = red;
}

// Unlinks z. The replacement y is nil (no children), the only child, or the
// in-order successor, which takes z's place and color; its own right
// subtree takes its old place. y's parent link is set also when y is nil:
// that is the nil node's scratch link.
void rbtree_engine::remove(base_rbnode* z) noexcept {
    base_rbnode* const nil = nil_pointer;
    base_rbnode* y;
    if (z->left == nil) {
        y = rb(z->right);
    } else if (z->right == nil) {
        y = rb(z->left);
    } else {
        y = rb(successor(z));
        if (y != z->right) {
            y->parent->link_left(y->right);
            y->link_right(z->right);
        }
        y->link_left(z->left);
    }
    if (y != nil)
        y->color = z->color;
    base_node* const zp = z->parent;
    if (zp->left == z)
        zp->left = y;
    else
        zp->right = y;
    set_parent(y, zp);
}

unsigned rbtree_engine::erase_node(base_rbnode* z) {
    base_rbnode* const nil = nil_pointer;
    if (z == nil)
        return 0;
    unsigned char path[path_size];
    unsigned const len = get_erase_path(z, path);
#if defined(__GNUC__)
    // The nodes on the path are fresh from the lookup; their siblings and
    // the siblings' children, which the merges read, are fetched all at
    // once before the descent needs them.
    for (int pass = 0; pass < 2; ++pass) {
        base_node* q = header_.right;
        for (unsigned i = 0; q != nil; ++i) {
            bool const right = i < len && path[i] == move_right;
            base_node* const s = right ? q->left : q->right;
            if (pass == 0) {
                __builtin_prefetch(s);
            } else if (s != nil) {
                __builtin_prefetch(s->left);
                __builtin_prefetch(s->right);
            }
            q = right ? q->right : q->left;
        }
    }
#endif
    // Below z without a right child the path ends; the descent goes left.
    base_rbnode* p = rb(header_.right);
    for (unsigned i = 0;; ++i) {
        bool const right = i < len && path[i] == move_right;
        base_rbnode* const x = rb(right ? p->right : p->left);
        merge(x, rb(right ? p->left : p->right), p);
        if (x == nil)
            break;
        p = x;
    }
    remove(z);
    set_black(header_.right);
    if (--count_ == 0) {
        leftmost_ = rightmost_ = nil;
        header_.right = nil;
        set_parent(nil, &header_);
    } else {
        if (z == leftmost_)
            leftmost_ = rb(find_leftmost());
        if (z == rightmost_)
            rightmost_ = rb(find_rightmost());
    }
    delete_node(z);
    return 1;
}

unsigned rbtree_engine::erase(void const* key, bool all) {
    if (!duplicates_allowed() || !all)
        return erase_node(lower_bound(key));
    return erase(rbcursor{this, lower_bound(key)}, rbcursor{this, upper_bound(key)});
}

unsigned rbtree_engine::erase(rbcursor const& position) {
    check_cursor(position, __LINE__);
    return erase_node(position.node);
}

unsigned rbtree_engine::erase(rbcursor const& first, rbcursor const& last) {
    check_cursors(first, last, __LINE__);
    if (first.owner != this)
        zel_throw(container_error("mis-matched iterator(s)"), __FILE__, __LINE__);
    if (first.node == leftmost_ && last.node == nil_pointer) {
        unsigned const n = count_;
        clear();
        return n;
    }
    unsigned n = 0;
    for (base_rbnode* x = first.node; x != last.node; ++n) {
        base_rbnode* const next = step_next(x);   // nodes keep their places: next stays next
        erase_node(x);
        x = next;
    }
    return n;
}

// Post-order, so that a node is deleted only after its subtrees, and the
// cursor steps on before its node goes.
void rbtree_engine::clear() {
    if (count_ == 0)
        return;
    for (cursor c(*this, post_order); c.node() != nil_pointer;) {
        base_rbnode* const n = rb(c.node());
        c.increment();
        delete_node(n);
    }
    reset();
}

void rbtree_engine::set_duplication(bool allow) {
    bool const was = duplicates_allowed();
    flags_ = allow ? (flags_ | 1u) : (flags_ & ~1u);
    if (was && !allow)
        unique();
}

void rbtree_engine::unique() {
    if (count_ < 2)
        return;
    base_rbnode* const nil = nil_pointer;
    for (base_rbnode* a = leftmost_; a != nil;) {
        base_rbnode* b = step_next(a);
        while (b != nil && !compare(a, b)) {
            erase_node(b);
            b = step_next(a);
        }
        a = b;
    }
}

void rbtree_engine::swap(rbtree_engine& other, bool relink) {
    if (&other == this)
        return;
    if (!relink) {
        // Both sets of copies first, each made by the tree that will own it.
        base_rbnode* const mine = clone_chain(other, other.leftmost_, nil_pointer);
        base_rbnode* theirs;
        try {
            theirs = other.clone_chain(*this, leftmost_, nil_pointer);
        } catch (...) {
            delete_chain(mine);
            throw;
        }
        swap_traits(other);
        clear();
        other.clear();
        insert_chain(mine);
        other.insert_chain(theirs);
        return;
    }
    swap_traits(other);
    std::swap(header_.right, other.header_.right);
    std::swap(leftmost_, other.leftmost_);
    std::swap(rightmost_, other.rightmost_);
    std::swap(count_, other.count_);
    if (header_.right != nil_pointer)
        set_parent(header_.right, &header_);
    if (other.header_.right != nil_pointer)
        set_parent(other.header_.right, &other.header_);
}

// ---------------------------------------------------------------------------
// Checks

void rbtree_engine::check_cursor(rbcursor const& c, int line) const {
    if (c.owner != this)
        zel_throw(container_error("mis-matched iterator(s)"), __FILE__, line);
    if (c.node == nil_pointer)
        zel_throw(container_error("iterator points to end()"), __FILE__, line);
}

void rbtree_engine::check_cursors(rbcursor const& first, rbcursor const& last, int line) const {
    if (!first.owner || first.owner != last.owner || !first.node || !last.node)
        zel_throw(container_error("mis-matched iterator(s)"), __FILE__, line);
}

// The invariants:
//  1. The nil node is black and its children are itself.
//  2. The header's parent is itself and its left link nil; the root's
//     parent is the header.
//  3. An empty tree has nil root, leftmost and rightmost.
//  4. Every path from a leaf up to the root (the root excluded) holds the
//     same number of black nodes.
//  5. No red node has a red parent.
//  6. A full walk meets count nodes, each child links back to its parent,
//     and keys never decrease (never repeat when equal keys are forbidden).
//  7. leftmost and rightmost are the extreme nodes.
void rbtree_engine::check() const {
    base_rbnode const* const z = nil_pointer;
    if (z->color != black)
        ZEL_THROW_AT(container_error("invalid nil node link color"), 1251);   // 1
    if (z->left != z)
        ZEL_THROW_AT(container_error("invalid pointer"), 1252);
    if (z->right != z)
        ZEL_THROW_AT(container_error("invalid pointer"), 1253);
    if (header_.parent != &header_ || header_.left != z)   // 2
        ZEL_THROW(container_error("invalid pointer"));
    base_node* const r = header_.right;
    if (count_ == 0) {   // 3
        if (leftmost_ != z)
            ZEL_THROW_AT(container_error("invalid pointer"), 1315);
        if (rightmost_ != z)
            ZEL_THROW_AT(container_error("invalid pointer"), 1316);
        if (r != z)
            ZEL_THROW_AT(container_error("invalid pointer"), 1317);
        return;
    }
    if (r == z || r->parent != &header_)
        ZEL_THROW(container_error("invalid pointer"));
    unsigned n = 0;
    unsigned blacks = 0;
    bool first_leaf = true;
    base_rbnode const* prev = nullptr;
    for (cursor c(*this, in_order); c.node() != z && n <= count_; c.increment()) {
        base_rbnode const* const x = rb(c.node());
        ++n;
        if ((x->left != z && x->left->parent != x) || (x->right != z && x->right->parent != x))
            ZEL_THROW(container_error("invalid pointer"));   // 6
        if (prev && (compare(x, prev) || (!duplicates_allowed() && !compare(prev, x))))
            ZEL_THROW(container_error("invalid element order"));
        prev = x;
        if (x->left != z || x->right != z)
            continue;
        unsigned b = 0;   // 4
        for (base_node const* y = x; y != r; y = y->parent)
            if (rb(y)->color == black)
                ++b;
        if (first_leaf) {
            blacks = b;
            first_leaf = false;
        } else if (b != blacks) {
            ZEL_THROW_AT(container_error("invalid black link count"), 1292);
        }
        for (base_node const* y = x; y != r; y = y->parent)   // 5
            if (rb(y)->color == red && rb(y->parent)->color == red)
                ZEL_THROW_AT(container_error("invalid link colors, 2 reds in a row"), 1302);
    }
    if (n != count_)
        ZEL_THROW_AT(container_error("invalid element count"), 1311);   // 6
    if (leftmost_ != find_leftmost() || rightmost_ != find_rightmost())
        ZEL_THROW(container_error("invalid pointer"));   // 7
}

} // namespace zel
