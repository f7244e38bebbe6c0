// What the eight typed associative containers share: a bidirectional
// iterator that remembers its container (so the container can reject an
// iterator of another one), the key policies of sets and maps, the
// relations and swap, range and initializer-list insertion and assignment,
// and the map's operator[] and at.
//
// How a container plugs in:
//
//  1. A position policy P describes how the iterator walks the engine:
//       using owner = E;          // the engine the iterator remembers
//       using node = N;           // the engine's link node
//       using value_type = V;     // the element (pair<Key const, T> for maps)
//       static V& value(node* n) noexcept;
//       static node* next(owner const* e, node* n);   // the position after n
//       static node* prev(owner const* e, node* n);   // before n; end() -> last
//     Then iterator = associative_iterator<P, V> (for sets: V const) and
//     const_iterator = associative_iterator<P, V const>. it.owner() and
//     it.get() give the engine position back, for the engine's cursor check.
//
//  2. A key policy K (set_keys<Key> or map_keys<Key, T>) says where the key
//     of an element is: K::key_type, K::value_type, K::key(value).
//
//  3. The container C derives publicly from
//       associative_relations<C, K, ordered>     ==, != (and <, <=, >, >=
//                                                when ordered), swap(a, b)
//       associative_members<C, K>                insert(first, last),
//                                                insert({...}), assign(...),
//                                                contains(key)
//       map_members<C, K>  (maps only)           operator[], at
//     and provides the public members these call:
//       begin(), end(), size(), clear(), swap(C&), find(key),
//       insert(value_type const&)   (for any container; its result is not used),
//       equal_range(key)            (unordered relations only: equal keys
//                                    must be adjacent in iteration order).
//     Because C declares its own insert(), it must bring the shared forms in
//     with `using associative_members<C, K>::insert;` (and ::assign and
//     ::contains when its engine base has members of those names). The
//     shared bases declare no member types, so C's key_type, value_type, ...
//     are never ambiguous.
#ifndef ZEL_ASSOCIATIVE_H
#define ZEL_ASSOCIATIVE_H

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <type_traits>
#include <utility>

#include <zel/exception.h>
#include <zel/sequence.h>

namespace zel {

// A bidirectional iterator over engine positions. V is P::value_type,
// possibly const. Stepping past the end or before the beginning is the
// engine's to report (see the position policy).
template <class P, class V>
class associative_iterator {
public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = std::remove_const_t<V>;
    using difference_type = std::ptrdiff_t;
    using pointer = V*;
    using reference = V&;
    using owner_type = typename P::owner;
    using node_type = typename P::node;

    associative_iterator() noexcept = default;
    associative_iterator(owner_type const* owner, node_type* n) noexcept : owner_(owner), node_(n) {}
    // iterator -> const_iterator
    template <class U, class = std::enable_if_t<std::is_same_v<U const, V> && !std::is_same_v<U, V>>>
    associative_iterator(associative_iterator<P, U> const& other) noexcept
        : owner_(other.owner()), node_(other.get()) {}

    V& operator*() const noexcept { return P::value(node_); }
    V* operator->() const noexcept { return &P::value(node_); }
    associative_iterator& operator++() {
        node_ = P::next(owner_, node_);
        return *this;
    }
    associative_iterator operator++(int) {
        auto t = *this;
        ++*this;
        return t;
    }
    associative_iterator& operator--() {
        node_ = P::prev(owner_, node_);
        return *this;
    }
    associative_iterator operator--(int) {
        auto t = *this;
        --*this;
        return t;
    }
    friend bool operator==(associative_iterator a, associative_iterator b) noexcept {
        return a.node_ == b.node_;
    }
    friend bool operator!=(associative_iterator a, associative_iterator b) noexcept {
        return a.node_ != b.node_;
    }

    owner_type const* owner() const noexcept { return owner_; }
    node_type* get() const noexcept { return node_; }

private:
    owner_type const* owner_ = nullptr;
    node_type* node_ = nullptr;
};

// Key policies: where the key of an element is.
template <class Key>
struct set_keys {
    using key_type = Key;
    using value_type = Key;
    static Key const& key(value_type const& v) noexcept { return v; }
};

template <class Key, class T>
struct map_keys {
    using key_type = Key;
    using mapped_type = T;
    using value_type = std::pair<Key const, T>;
    static Key const& key(value_type const& v) noexcept { return v.first; }
};

// Equality (and, for ordered containers, lexicographic order) of two
// containers of one type, and swap; as a base it adds no size. Unordered
// equality holds when both hold the same elements the same number of times,
// whatever their iteration order.
template <class C, class K, bool Ordered>
struct associative_relations {
    friend bool operator==(C const& a, C const& b) {
        if (a.size() != b.size())
            return false;
        if constexpr (Ordered) {
            return std::equal(a.begin(), a.end(), b.begin());
        } else {
            for (auto it = a.begin(); it != a.end();) {
                auto const ra = a.equal_range(K::key(*it));
                auto const rb = b.equal_range(K::key(*it));
                if (std::distance(ra.first, ra.second) != std::distance(rb.first, rb.second) ||
                    !std::is_permutation(ra.first, ra.second, rb.first))
                    return false;
                it = ra.second;
            }
            return true;
        }
    }
    friend bool operator!=(C const& a, C const& b) { return !(a == b); }
    template <bool O = Ordered, class = std::enable_if_t<O>>
    friend bool operator<(C const& a, C const& b) {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end());
    }
    template <bool O = Ordered, class = std::enable_if_t<O>>
    friend bool operator>(C const& a, C const& b) { return b < a; }
    template <bool O = Ordered, class = std::enable_if_t<O>>
    friend bool operator<=(C const& a, C const& b) { return !(b < a); }
    template <bool O = Ordered, class = std::enable_if_t<O>>
    friend bool operator>=(C const& a, C const& b) { return !(a < b); }
    friend void swap(C& a, C& b) noexcept { a.swap(b); }
};

// Range and initializer-list insertion and assignment, and contains, built
// on the container's insert(value), find, clear and end. An element copy
// that throws leaves the elements inserted before it in the container.
template <class C, class K>
struct associative_members {
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    void insert(It first, It last) {
        for (; first != last; ++first)
            self().insert(static_cast<typename K::value_type const&>(*first));
    }
    void insert(std::initializer_list<typename K::value_type> il) { insert(il.begin(), il.end()); }

    // Replaces the contents; when a copy throws, what was inserted before it
    // stays.
    template <class It, class = typename std::iterator_traits<It>::iterator_category>
    void assign(It first, It last) {
        self().clear();
        insert(first, last);
    }
    void assign(std::initializer_list<typename K::value_type> il) { assign(il.begin(), il.end()); }

    bool contains(typename K::key_type const& key) const { return cself().find(key) != cself().end(); }

private:
    C& self() noexcept { return static_cast<C&>(*this); }
    C const& cself() const noexcept { return static_cast<C const&>(*this); }
};

// A map's element access by key. operator[] inserts (key, T()) when the key
// is absent; at raises out_of_range (thrown directly, without file and
// line) when it is absent.
template <class C, class K>
struct map_members {
    typename K::mapped_type& operator[](typename K::key_type const& key) {
        auto it = self().find(key);
        if (it == self().end())
            it = position(self().insert(typename K::value_type(key, typename K::mapped_type())));
        return it->second;
    }
    typename K::mapped_type& at(typename K::key_type const& key) {
        auto it = self().find(key);
        if (it == self().end())
            throw out_of_range("key not found");
        return it->second;
    }
    typename K::mapped_type const& at(typename K::key_type const& key) const {
        auto it = static_cast<C const&>(*this).find(key);
        if (it == static_cast<C const&>(*this).end())
            throw out_of_range("key not found");
        return it->second;
    }

private:
    C& self() noexcept { return static_cast<C&>(*this); }
    // insert() gives (iterator, bool) in unique maps, an iterator in multi maps.
    template <class It>
    static It position(It it) noexcept { return it; }
    template <class It>
    static It position(std::pair<It, bool> r) noexcept { return r.first; }
};

} // namespace zel

#endif
