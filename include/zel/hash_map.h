// The hashed maps: hash_map<Key, T> maps each key to one value,
// hash_multimap<Key, T> holds any number of elements per key, equal keys
// standing together (a new one just before the others). Both are
// hash_container (hash.h) over pair<Key const, T> elements; hash_map adds
// operator[] (inserting T() for a missing key) and at (out_of_range for a
// missing key).
//
//   zel::hash_map<zel::string, unsigned> counts;
//   ++counts[word];
#ifndef ZEL_HASH_MAP_H
#define ZEL_HASH_MAP_H

#include <zel/hash.h>

namespace zel {

template <class Key, class T, class Hash = hash<Key>, class Equal = equal_to<Key>>
using hash_map = hash_container<map_keys<Key, T>, Hash, Equal, false>;

template <class Key, class T, class Hash = hash<Key>, class Equal = equal_to<Key>>
using hash_multimap = hash_container<map_keys<Key, T>, Hash, Equal, true>;

} // namespace zel

#endif
