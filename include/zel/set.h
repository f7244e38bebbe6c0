// The ordered sets: set<Key> keeps each key once, multiset<Key> keeps equal
// keys in the order they were inserted. Both are the red-black tree of
// rbtree.h ordered by Compare (less<Key> by default), with the interface of
// the standard containers; their elements cannot be changed in place.
#ifndef ZEL_SET_H
#define ZEL_SET_H

#include <zel/associative.h>
#include <zel/comparator.h>
#include <zel/rbtree.h>

namespace zel {

template <class Key, class Compare = less<Key>>
class set : public ordered_tree<set<Key, Compare>, set_keys<Key>, Compare, false> {
    using base = ordered_tree<set<Key, Compare>, set_keys<Key>, Compare, false>;

public:
    using base::base;
    using base::operator=;
    set() = default;
};

template <class Key, class Compare = less<Key>>
class multiset : public ordered_tree<multiset<Key, Compare>, set_keys<Key>, Compare, true> {
    using base = ordered_tree<multiset<Key, Compare>, set_keys<Key>, Compare, true>;

public:
    using base::base;
    using base::operator=;
    multiset() = default;
};

} // namespace zel

#endif
