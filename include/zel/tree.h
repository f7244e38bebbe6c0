// tree_engine: the abstract base of the library's binary-tree engines. It
// knows link-only nodes with parent links, the four rotations, in-order
// neighbours, the in-order, pre-order and post-order walks and a traversal
// cursor; the derived engine says where the nil node, the root and the
// extreme nodes are (the red-black tree of rbtree.h is built on it).
//
// Shape every derived engine keeps: an absent child is a link to the
// engine's nil node; the root's parent is a header node whose right link is
// the root and whose left link is nil, so the root counts as a right child
// and climbing from the rightmost node ends at the header.
//
// Parent links are written with relaxed atomic stores (set_parent): a
// derived engine may share one nil node between all its trees, and every
// tree writes that node's parent link as scratch. On the library's targets
// such a store is an ordinary store.
#ifndef ZEL_TREE_H
#define ZEL_TREE_H

#include <zel/config.h>

namespace zel {

class ZEL_API tree_engine {
public:
    struct base_node {
        base_node* parent;
        base_node* left;
        base_node* right;

        constexpr explicit base_node(base_node* p = nullptr) noexcept
            : parent(p), left(nullptr), right(nullptr) {}
        constexpr base_node(base_node* p, base_node* l, base_node* r) noexcept
            : parent(p), left(l), right(r) {}
        base_node(base_node const&) noexcept = default;
        base_node& operator=(base_node const&) noexcept = default;

        // Whether this node is its parent's left (right) child.
        bool is_left() const noexcept { return parent->left == this; }
        bool is_right() const noexcept { return parent->right == this; }
        // Set the child and the child's parent link (also when the child is
        // the nil node).
        void link_left(base_node* n) noexcept {
            left = n;
            set_parent(n, this);
        }
        void link_right(base_node* n) noexcept {
            right = n;
            set_parent(n, this);
        }
    };

    static void set_parent(base_node* n, base_node* p) noexcept {
#if defined(__GNUC__)
        __atomic_store_n(&n->parent, p, __ATOMIC_RELAXED);
#else
        n->parent = p;
#endif
    }
    static base_node* get_parent(base_node const* n) noexcept {
#if defined(__GNUC__)
        return __atomic_load_n(&n->parent, __ATOMIC_RELAXED);
#else
        return n->parent;
#endif
    }

    enum visit_type { in_order = 0, pre_order = 1, post_order = 2 };
    enum move_type { move_left = 0, move_right = 1 };

    // A traversal position: the tree, the node (null before a start and on
    // an empty tree, nil at the end), the order, and the flag post-order
    // stepping uses to remember that it must first descend.
    class ZEL_API cursor {
    public:
        cursor() noexcept : owner_(nullptr), node_(nullptr), order_(in_order), descend_(false) {}
        // At the first node of the order; an empty tree leaves the node null.
        cursor(tree_engine const& tree, visit_type order);
        cursor(tree_engine const& tree, base_node* node, visit_type order) noexcept
            : owner_(&tree), node_(node), order_(order), descend_(false) {}

        // The next node of the order (nil after the last one); nothing when
        // the cursor has no owner or no node. Stepping on from nil raises
        // container_error "attempt to move forward past end()".
        void increment();
        // The previous node of the order (nil before the first one).
        // Stepping back from nil raises "attempt to move backward past
        // begin()".
        void decrement();
        // Restart at the first node of the order.
        void reset(visit_type order);
        void jumpto(base_node* node) noexcept {
            node_ = node;
            descend_ = false;
        }
        void jumpto(base_node* node, tree_engine const& tree) noexcept {
            owner_ = &tree;
            jumpto(node);
        }

        tree_engine const* owner() const noexcept { return owner_; }
        base_node* node() const noexcept { return node_; }
        visit_type order() const noexcept { return order_; }

    private:
        tree_engine const* owner_;
        base_node* node_;
        visit_type order_;
        bool descend_;
    };

    tree_engine() noexcept = default;
    tree_engine(tree_engine const&) noexcept = default;
    tree_engine& operator=(tree_engine const&) noexcept = default;

    // Slot 0: visits one node; the engine's own version does nothing.
    virtual void do_callback(void const* callback, base_node const* node) const;
    // Slots 1 to 4.
    virtual base_node* nil() const = 0;
    virtual base_node* leftmost() const = 0;
    virtual base_node* rightmost() const = 0;
    virtual base_node* root() const = 0;
    // Slot 5.
    virtual ~tree_engine();

    // Parent steps from the node up to the root.
    unsigned depth(base_node const* n) const;
    // Walk from the root along left (right) links; nil for an empty tree.
    base_node* find_leftmost() const;
    base_node* find_rightmost() const;
    // The leftmost node of n's right subtree, n itself when n has no right
    // child: it does not climb (removal of a node with two children uses
    // it). predecessor is the mirror image.
    base_node* successor(base_node* n) const;
    base_node* predecessor(base_node* n) const;

    // Lift x over its parent (x the right child for rotate_left, the left
    // child for rotate_right), or two levels over its parent and
    // grandparent (x the right child of a left child for
    // rotate_left_right, the mirror for rotate_right_left).
    void rotate_left(base_node* x) const noexcept;
    void rotate_right(base_node* x) const noexcept;
    void rotate_left_right(base_node* x) const noexcept;
    void rotate_right_left(base_node* x) const noexcept;

    // Traversal steps; nil is the end. At nil, the forward steps raise
    // container_error "attempt to move forward past end()" and the backward
    // steps "attempt to move backward past begin()". The flag is the
    // cursor's descend flag (used by the post-order steps only).
    base_node* next_in_order(base_node* n, bool& flag) const;
    base_node* prev_in_order(base_node* n, bool& flag) const;
    base_node* next_pre_order(base_node* n, bool& flag) const;
    base_node* prev_pre_order(base_node* n, bool& flag) const;
    base_node* next_post_order(base_node* n, bool& flag) const;
    base_node* prev_post_order(base_node* n, bool& flag) const;
    base_node* next_in_order(base_node* n) const {
        bool flag = false;
        return next_in_order(n, flag);
    }
    base_node* prev_in_order(base_node* n) const {
        bool flag = false;
        return prev_in_order(n, flag);
    }

    // Calls do_callback(callback, node) for every node in the given order.
    void visit(void const* callback, visit_type order) const;
};

} // namespace zel

#endif
