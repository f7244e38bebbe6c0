// The ordered maps: map<Key, T> keeps each key once, multimap<Key, T> keeps
// equal keys in the order they were inserted. Elements are
// std::pair<Key const, T>; both are the red-black tree of rbtree.h ordered
// by Compare over the keys (less<Key> by default), with the interface of the
// standard containers. map adds operator[] (inserts (key, T()) when the key
// is absent) and at (raises out_of_range when it is absent).
#ifndef ZEL_MAP_H
#define ZEL_MAP_H

#include <utility>

#include <zel/associative.h>
#include <zel/comparator.h>
#include <zel/rbtree.h>

namespace zel {

template <class Key, class T, class Compare = less<Key>>
class map : public ordered_tree<map<Key, T, Compare>, map_keys<Key, T>, Compare, false>,
            public map_members<map<Key, T, Compare>, map_keys<Key, T>> {
    using base = ordered_tree<map<Key, T, Compare>, map_keys<Key, T>, Compare, false>;

public:
    using mapped_type = T;
    using base::base;
    using base::operator=;
    map() = default;
};

template <class Key, class T, class Compare = less<Key>>
class multimap : public ordered_tree<multimap<Key, T, Compare>, map_keys<Key, T>, Compare, true> {
    using base = ordered_tree<multimap<Key, T, Compare>, map_keys<Key, T>, Compare, true>;

public:
    using mapped_type = T;
    using base::base;
    using base::operator=;
    multimap() = default;
};

} // namespace zel

#endif
