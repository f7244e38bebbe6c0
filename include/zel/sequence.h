// What the typed sequence containers share: a random-access iterator that
// remembers its container (so the container can reject an iterator of
// another one), the comparison operators over begin()/end(), and the
// members they would otherwise each write out the same way.
#ifndef ZEL_SEQUENCE_H
#define ZEL_SEQUENCE_H

#include <algorithm>
#include <cstddef>
#include <initializer_list>
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

// A container's move assignment: clear, then take other's contents by an
// exchange, so other ends empty. Nothing when both are one container.
template <class C>
C& move_assign(C& to, C& from) noexcept {
    if (&to != &from) {
        to.clear();
        to.swap(from);
    }
    return to;
}

// The member types and members a typed sequence C of T (iterators It and
// CIt) spells the same way as every other, built on C's own
// insert(pos, n, value), insert(pos, first, last) and assign(first, last);
// C names insert and operator= with using-declarations beside its own. As a
// base it adds no size.
template <class C, class T, class It, class CIt>
struct sequence_members : sequence_relations<C>, range_access<C> {
    using value_type = T;
    using size_type = unsigned;
    using difference_type = std::ptrdiff_t;
    using reference = T&;
    using const_reference = T const&;
    using reverse_iterator = std::reverse_iterator<It>;
    using const_reverse_iterator = std::reverse_iterator<CIt>;

    C& operator=(std::initializer_list<T> il) {
        self().assign(il.begin(), il.end());
        return self();
    }
    bool empty() const noexcept { return static_cast<C const&>(*this).size() == 0; }
    auto insert(CIt pos, T const& value) { return self().insert(pos, 1u, value); }
    auto insert(CIt pos, std::initializer_list<T> il) { return self().insert(pos, il.begin(), il.end()); }

private:
    C& self() noexcept { return static_cast<C&>(*this); }
};

// What a sequence C of T over an Engine addressed by index (an
// engine_iterator, Indirect as C's) adds: checked access, the iterator
// checks and erasure. C makes this base its friend, to reach the engine.
// at() raises out_of_range; an iterator of another container raises
// container_error "mis-matched iterator(s)", and erasing end() raises
// "iterator points to end()".
template <class C, class T, class Engine, bool Indirect>
struct indexed_members : sequence_members<C, T, engine_iterator<T, Engine, Indirect>,
                                          engine_iterator<T const, Engine, Indirect>> {
private:
    using const_position = engine_iterator<T const, Engine, Indirect>;

public:
    T& at(unsigned i) {
        if (i >= self().size())
            C::index_out_of_range();
        return self()[i];
    }
    T const& at(unsigned i) const {
        if (i >= cself().size())
            C::index_out_of_range();
        return cself()[i];
    }
    T& front() noexcept { return self()[0]; }
    T const& front() const noexcept { return cself()[0]; }
    T& back() noexcept { return self()[self().size() - 1]; }
    T const& back() const noexcept { return cself()[cself().size() - 1]; }

    auto erase(const_position pos) {
        unsigned const i = checked_index(pos);
        if (i == self().size())
            C::iterator_at_end();
        engine().erase(i, 1);
        return self().begin() + i;
    }
    auto erase(const_position first, const_position last) {
        unsigned const i = checked_index(first);
        unsigned const j = checked_index(last);
        if (j > i)
            engine().erase(i, j - i);
        return self().begin() + i;
    }

protected:
    unsigned checked_index(const_position pos) const {
        if (pos.owner() != static_cast<Engine const*>(&cself()))
            C::mismatched_iterator();
        return static_cast<unsigned>(pos.get() - cself().begin().get());
    }

private:
    C& self() noexcept { return static_cast<C&>(*this); }
    C const& cself() const noexcept { return static_cast<C const&>(*this); }
    Engine& engine() noexcept { return static_cast<Engine&>(self()); }
};

} // namespace zel

#endif
