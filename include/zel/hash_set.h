// The hashed sets: hash_set<Key> holds each key once, hash_multiset<Key> any
// number of times, equal keys standing together (a new duplicate just before
// the others). Both are hash_container (hash.h) over set keys; iteration
// follows the table's node list, not any order of the keys.
//
//   zel::hash_set<int> s{3, 1, 4};
//   auto [it, inserted] = s.insert(1);       // inserted == false
//   zel::hash_set<zel::string, zel::char_hash1> names;   // a string hash as hasher
#ifndef ZEL_HASH_SET_H
#define ZEL_HASH_SET_H

#include <zel/hash.h>

namespace zel {

template <class Key, class Hash = hash<Key>, class Equal = equal_to<Key>>
using hash_set = hash_container<set_keys<Key>, Hash, Equal, false>;

template <class Key, class Hash = hash<Key>, class Equal = equal_to<Key>>
using hash_multiset = hash_container<set_keys<Key>, Hash, Equal, true>;

} // namespace zel

#endif
