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

// Every step has a mirror image that swaps left and right: each is written
// once over the side it favours (Near) and the other one (Far).
using side = node* node::*;

// Set a child link and the child's parent link (also when it is nil).
void attach(node* parent, side s, node* child) noexcept {
    parent->*s = child;
    tree_engine::set_parent(child, parent);
}

// Point the link that held `from` at `to`; the header's right link when
// `from` was the root.
void replace_child(node* parent, node* from, node* to) noexcept {
    if (parent->left == from)
        parent->left = to;
    else
        parent->right = to;
    tree_engine::set_parent(to, parent);
}

// The last node reached from n along Near links; nil stays nil.
template <side Near>
node* outermost(node* n, node* z) noexcept {
    if (n != z)
        while (n->*Near != z)
            n = n->*Near;
    return n;
}

// Lift x, its parent's Far child, over the parent.
template <side Near, side Far>
void lift(node* x) noexcept {
    node* const p = x->parent;
    replace_child(p->parent, p, x);
    attach(p, Far, x->*Near);   // written even when the child is nil
    attach(x, Near, p);
}

// Lift x, the Far child of its parent p, itself g's Near child, over both.
template <side Near, side Far>
void lift_twice(node* x) noexcept {
    node* const p = x->parent;
    node* const g = p->parent;
    replace_child(g->parent, g, x);
    attach(g, Near, x->*Far);
    attach(p, Far, x->*Near);
    attach(x, Near, p);
    attach(x, Far, g);
}

// The in-order neighbour on the Far side of a node that has one.
template <side Near, side Far>
node* neighbour(node* n, node* z) noexcept {
    if (n->*Far != z)
        return outermost<Near>(n->*Far, z);
    node* p = n->parent;
    for (; n == p->*Far; p = p->parent)
        n = p;
    return p;
}

// Node, Near subtree, Far subtree: the next node after n, nil after the last.
template <side Near, side Far>
node* near_first(node* n, node* z, node* root) noexcept {
    if (n->*Near != z)
        return n->*Near;
    if (n->*Far != z)
        return n->*Far;
    // Climb to the first ancestor reached from its Near side that has a Far
    // child: that child is next.
    for (; n != root; n = n->parent) {
        node* const p = n->parent;
        if (p->*Near == n && p->*Far != z)
            return p->*Far;
    }
    return z;
}

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
    return outermost<&node::left>(root(), nil());
}

tree_engine::base_node* tree_engine::find_rightmost() const {
    return outermost<&node::right>(root(), nil());
}

tree_engine::base_node* tree_engine::successor(base_node* n) const {
    base_node* const z = nil();
    return n->right != z ? outermost<&node::left>(n->right, z) : n;
}

tree_engine::base_node* tree_engine::predecessor(base_node* n) const {
    base_node* const z = nil();
    return n->left != z ? outermost<&node::right>(n->left, z) : n;
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
    lift<&node::left, &node::right>(x);
}

void tree_engine::rotate_right(base_node* x) const noexcept {
    lift<&node::right, &node::left>(x);
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
    lift_twice<&node::left, &node::right>(x);
}

void tree_engine::rotate_right_left(base_node* x) const noexcept {
    lift_twice<&node::right, &node::left>(x);
}

tree_engine::base_node* tree_engine::next_in_order(base_node* n, bool&) const {
    base_node* const z = nil();
    if (n == z)
        ZEL_THROW_AT(container_error("attempt to move forward past end()"), 494);
    return n == rightmost() ? z : neighbour<&node::left, &node::right>(n, z);
}

tree_engine::base_node* tree_engine::prev_in_order(base_node* n, bool&) const {
    base_node* const z = nil();
    if (n == z)
        ZEL_THROW_AT(container_error("attempt to move backward past begin()"), 543);
    return n == leftmost() ? z : neighbour<&node::right, &node::left>(n, z);
}

// Node, left subtree, right subtree.
tree_engine::base_node* tree_engine::next_pre_order(base_node* n, bool&) const {
    base_node* const z = nil();
    if (n == z)
        ZEL_THROW_AT(container_error("attempt to move forward past end()"), 587);
    return near_first<&node::left, &node::right>(n, z, root());
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
    return near_first<&node::right, &node::left>(n, z, root());
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
