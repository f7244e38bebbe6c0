// What the typed sequence containers share: a random-access iterator that
// remembers its container (so the container can reject an iterator of
// another one), and the comparison operators over begin()/end().
#ifndef ZEL_SEQUENCE_H
#define ZEL_SEQUENCE_H

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <type_traits>

namespace zel {

// Over a contiguous block (Indirect false: the position is a T*) or over a
// map of element pointers (Indirect true: the position is a slot holding the
// element's address).
template <class T, class Owner, bool Indirect>
class engine_iterator {
public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = std::remove_const_t<T>;
    using difference_type = std::ptrdiff_t;
    using pointer = T*;
    using reference = T&;
    using position = std::conditional_t<Indirect, void* const*, T*>;

    engine_iterator() noexcept = default;
    engine_iterator(Owner const* owner, position p) noexcept : owner_(owner), p_(p) {}
    // iterator -> const_iterator
    template <class U, class = std::enable_if_t<std::is_same_v<U const, T> && !std::is_same_v<U, T>>>
    engine_iterator(engine_iterator<U, Owner, Indirect> const& other) noexcept
        : owner_(other.owner()), p_(other.get()) {}

    T& operator*() const noexcept {
        if constexpr (Indirect)
            return *static_cast<T*>(*p_);
        else
            return *p_;
    }
    T* operator->() const noexcept { return &**this; }
    T& operator[](difference_type n) const noexcept { return *(*this + n); }
    engine_iterator& operator++() noexcept { ++p_; return *this; }
    engine_iterator operator++(int) noexcept { auto t = *this; ++p_; return t; }
    engine_iterator& operator--() noexcept { --p_; return *this; }
    engine_iterator operator--(int) noexcept { auto t = *this; --p_; return t; }
    engine_iterator& operator+=(difference_type n) noexcept { p_ += n; return *this; }
    engine_iterator& operator-=(difference_type n) noexcept { p_ -= n; return *this; }
    friend engine_iterator operator+(engine_iterator i, difference_type n) noexcept { return i += n; }
    friend engine_iterator operator+(difference_type n, engine_iterator i) noexcept { return i += n; }
    friend engine_iterator operator-(engine_iterator i, difference_type n) noexcept { return i -= n; }
    friend difference_type operator-(engine_iterator a, engine_iterator b) noexcept { return a.p_ - b.p_; }
    friend bool operator==(engine_iterator a, engine_iterator b) noexcept { return a.p_ == b.p_; }
    friend bool operator!=(engine_iterator a, engine_iterator b) noexcept { return a.p_ != b.p_; }
    friend bool operator<(engine_iterator a, engine_iterator b) noexcept { return a.p_ < b.p_; }
    friend bool operator>(engine_iterator a, engine_iterator b) noexcept { return a.p_ > b.p_; }
    friend bool operator<=(engine_iterator a, engine_iterator b) noexcept { return a.p_ <= b.p_; }
    friend bool operator>=(engine_iterator a, engine_iterator b) noexcept { return a.p_ >= b.p_; }

    Owner const* owner() const noexcept { return owner_; }
    position get() const noexcept { return p_; }

private:
    Owner const* owner_ = nullptr;
    position p_ = nullptr;
};

// cbegin/cend and the reverse walks of a container C, from its begin() and
// end(); as a base it adds no size.
template <class C>
struct range_access {
    auto cbegin() const noexcept { return self().begin(); }
    auto cend() const noexcept { return self().end(); }
    auto rbegin() noexcept { return std::make_reverse_iterator(self().end()); }
    auto rend() noexcept { return std::make_reverse_iterator(self().begin()); }
    auto rbegin() const noexcept { return std::make_reverse_iterator(self().end()); }
    auto rend() const noexcept { return std::make_reverse_iterator(self().begin()); }
    auto crbegin() const noexcept { return rbegin(); }
    auto crend() const noexcept { return rend(); }

private:
    C& self() noexcept { return static_cast<C&>(*this); }
    C const& self() const noexcept { return static_cast<C const&>(*this); }
};

// Equality and lexicographic order for a container C, as a base it adds no
// size to.
template <class C>
struct sequence_relations {
    friend bool operator==(C const& a, C const& b) {
        return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
    }
    friend bool operator!=(C const& a, C const& b) { return !(a == b); }
    friend bool operator<(C const& a, C const& b) {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end());
    }
    friend bool operator>(C const& a, C const& b) { return b < a; }
    friend bool operator<=(C const& a, C const& b) { return !(b < a); }
    friend bool operator>=(C const& a, C const& b) { return !(a < b); }
    friend void swap(C& a, C& b) noexcept { a.swap(b); }
};

} // namespace zel

#endif
