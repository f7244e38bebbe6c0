// tree_engine: rotations, neighbours, the three traversal orders and the
// traversal cursor, shared by every binary-tree engine, so that traversal
// errors report this file.
//
// Errors:
//   text                                     class            raised by        line
//   "attempt to move forward past end()"     container_error  next_in_order    494
//   "attempt to move backward past begin()"  container_error  prev_in_order    543
//   "attempt to move forward past end()"     container_error  next_pre_order   587
//   "attempt to move forward past end()"     container_error  next_post_order  662
//   "attempt to move backward past begin()"  container_error  prev_pre_order,
//                                                              prev_post_order
// The first four carry the lines they have always carried, wherever the
// code now sits (ZEL_THROW_AT); the backward pre- and post-order steps
// report their real line.
#include <zel/tree.h>

#include <zel/exception.h>

namespace zel {

namespace {

using node = tree_engine::base_node;
using step = node* (*)(tree_engine const&, node*, bool&);

node* next_in(tree_engine const& t, node* n, bool& f) { return t.next_in_order(n, f); }
node* next_pre(tree_engine const& t, node* n, bool& f) { return t.next_pre_order(n, f); }
node* next_post(tree_engine const& t, node* n, bool& f) { return t.next_post_order(n, f); }
node* prev_in(tree_engine const& t, node* n, bool& f) { return t.prev_in_order(n, f); }
node* prev_pre(tree_engine const& t, node* n, bool& f) { return t.prev_pre_order(n, f); }
node* prev_post(tree_engine const& t, node* n, bool& f) { return t.prev_post_order(n, f); }

// The forward and backward steps of each order, indexed by visit_type.
constexpr step forward[3] = {&next_in, &next_pre, &next_post};
constexpr step backward[3] = {&prev_in, &prev_pre, &prev_post};

} // namespace

tree_engine::~tree_engine() = default;

void tree_engine::do_callback(void const*, base_node const*) const {}

unsigned tree_engine::depth(base_node const* n) const {
    base_node const* const r = root();
    unsigned d = 0;
    // The header is its own parent: a node outside the tree stops there.
    for (; n != r && n != nil() && n->parent != n; n = n->parent)
        ++d;
    return d;
}

tree_engine::base_node* tree_engine::find_leftmost() const {
    base_node* const z = nil();
    base_node* n = root();
    if (n != z)
        while (n->left != z)
            n = n->left;
    return n;
}

tree_engine::base_node* tree_engine::find_rightmost() const {
    base_node* const z = nil();
    base_node* n = root();
    if (n != z)
        while (n->right != z)
            n = n->right;
    return n;
}

tree_engine::base_node* tree_engine::successor(base_node* n) const {
    base_node* const z = nil();
    if (n->right != z) {
        n = n->right;
        while (n->left != z)
            n = n->left;
    }
    return n;
}

tree_engine::base_node* tree_engine::predecessor(base_node* n) const {
    base_node* const z = nil();
    if (n->left != z) {
        n = n->left;
        while (n->right != z)
            n = n->right;
    }
    return n;
}

/*
        g              g
        |              |
        p              x
       / \            / \
      a   x    =>    p   c
         / \        / \
        b   c      a   b
*/
void tree_engine::rotate_left(base_node* x) const noexcept {
    base_node* const p = x->parent;
    base_node* const g = p->parent;
    if (g->left == p)
        g->left = x;
    else
        g->right = x;   // the header's right link, when p was the root
    set_parent(x, g);
    p->link_right(x->left);   // written even when the child is nil
    x->link_left(p);
}

void tree_engine::rotate_right(base_node* x) const noexcept {
    base_node* const p = x->parent;
    base_node* const g = p->parent;
    if (g->left == p)
        g->left = x;
    else
        g->right = x;
    set_parent(x, g);
    p->link_left(x->right);
    x->link_right(p);
}

/*
          gg             gg
          |              |
          g              x
         / \           /   \
        p   d   =>    p     g
       / \           / \   / \
      a   x         a   b c   d
         / \
        b   c
*/
void tree_engine::rotate_left_right(base_node* x) const noexcept {
    base_node* const p = x->parent;
    base_node* const g = p->parent;
    base_node* const gg = g->parent;
    if (gg->left == g)
        gg->left = x;
    else
        gg->right = x;
    set_parent(x, gg);
    g->link_left(x->right);
    p->link_right(x->left);
    x->link_left(p);
    x->link_right(g);
}

void tree_engine::rotate_right_left(base_node* x) const noexcept {
    base_node* const p = x->parent;
    base_node* const g = p->parent;
    base_node* const gg = g->parent;
    if (gg->left == g)
        gg->left = x;
    else
        gg->right = x;
    set_parent(x, gg);
    g->link_right(x->left);
    p->link_left(x->right);
    x->link_right(p);
    x->link_left(g);
}

tree_engine::base_node* tree_engine::next_in_order(base_node* n, bool&) const {
    base_node* const z = nil();
    if (n == z)
        ZEL_THROW_AT(container_error("attempt to move forward past end()"), 494);
    if (n == rightmost())
        return z;
    if (n->right != z)
        return successor(n);
    base_node* p = n->parent;
    for (; n == p->right; p = p->parent)
        n = p;
    return p;
}

tree_engine::base_node* tree_engine::prev_in_order(base_node* n, bool&) const {
    base_node* const z = nil();
    if (n == z)
        ZEL_THROW_AT(container_error("attempt to move backward past begin()"), 543);
    if (n == leftmost())
        return z;
    if (n->left != z)
        return predecessor(n);
    base_node* p = n->parent;
    for (; n == p->left; p = p->parent)
        n = p;
    return p;
}

// Node, left subtree, right subtree.
tree_engine::base_node* tree_engine::next_pre_order(base_node* n, bool&) const {
    base_node* const z = nil();
    if (n == z)
        ZEL_THROW_AT(container_error("attempt to move forward past end()"), 587);
    if (n->left != z)
        return n->left;
    if (n->right != z)
        return n->right;
    // Climb to the first ancestor reached from its left side that has a
    // right child: that child is next.
    base_node* const r = root();
    for (; n != r; n = n->parent) {
        base_node* const p = n->parent;
        if (p->left == n && p->right != z)
            return p->right;
    }
    return z;
}

tree_engine::base_node* tree_engine::prev_pre_order(base_node* n, bool&) const {
    base_node* const z = nil();
    if (n == z)
        ZEL_THROW(container_error("attempt to move backward past begin()"));
    if (n == root())
        return z;
    base_node* const p = n->parent;
    if (p->left == n || p->left == z)
        return p;
    // The last node of the left sibling's subtree in pre-order.
    for (n = p->left;;) {
        if (n->right != z)
            n = n->right;
        else if (n->left != z)
            n = n->left;
        else
            return n;
    }
}

// Left subtree, right subtree, node. With the flag set the step first
// descends to the first leaf of n's subtree.
tree_engine::base_node* tree_engine::next_post_order(base_node* n, bool& flag) const {
    base_node* const z = nil();
    if (n == z)
        ZEL_THROW_AT(container_error("attempt to move forward past end()"), 662);
    if (!flag) {
        if (n == root())
            return z;
        base_node* const p = n->parent;
        if (p->left != n || p->right == z)
            return p;
        n = p->right;
        flag = true;
    }
    for (;;) {
        while (n->left != z)
            n = n->left;
        if (n->right == z)
            break;
        n = n->right;
    }
    flag = false;
    return n;
}

// The mirror of the pre-order step: node, right subtree, left subtree.
tree_engine::base_node* tree_engine::prev_post_order(base_node* n, bool& flag) const {
    base_node* const z = nil();
    if (n == z)
        ZEL_THROW(container_error("attempt to move backward past begin()"));
    flag = false;
    if (n->right != z)
        return n->right;
    if (n->left != z)
        return n->left;
    base_node* const r = root();
    for (; n != r; n = n->parent) {
        base_node* const p = n->parent;
        if (p->right == n && p->left != z)
            return p->left;
    }
    return z;
}

void tree_engine::visit(void const* callback, visit_type order) const {
    base_node* const z = nil();
    for (cursor c(*this, order); c.node() != nullptr && c.node() != z; c.increment())
        do_callback(callback, c.node());
}

tree_engine::cursor::cursor(tree_engine const& tree, visit_type order)
    : owner_(&tree), node_(nullptr), order_(order), descend_(false) {
    reset(order);
}

void tree_engine::cursor::reset(visit_type order) {
    order_ = order;
    descend_ = false;
    if (!owner_ || owner_->root() == owner_->nil())
        return;
    switch (order) {
    case in_order:
        node_ = owner_->leftmost();
        break;
    case pre_order:
        node_ = owner_->root();
        break;
    case post_order:
        node_ = owner_->root();
        descend_ = true;
        increment();
        break;
    }
}

void tree_engine::cursor::increment() {
    if (owner_ && node_)
        node_ = forward[order_](*owner_, node_, descend_);
}

void tree_engine::cursor::decrement() {
    if (owner_ && node_)
        node_ = backward[order_](*owner_, node_, descend_);
}

} // namespace zel
