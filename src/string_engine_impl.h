// Internal to the library: the string engine's storage operations, written
// once over the character type and instantiated by src/strheapa.cpp (char)
// and src/strheapw.cpp (unsigned short).
//
// Every operation follows one pattern: check the position, cut the count,
// obtain the engine to write (mutate, or a fresh block when the source lies
// in this one), move the tail, fill or copy, set the size, terminate. The
// old engine is never released here: that is the handle's work, so a source
// inside it stays readable until the result is complete.
#ifndef ZEL_SRC_STRING_ENGINE_IMPL_H
#define ZEL_SRC_STRING_ENGINE_IMPL_H

#include <zel/exception.h>
#include <zel/string_engine.h>

namespace zel {

namespace detail {
// The engine's position checks raise out_of_range by a plain throw, without
// message or location, so handlers see out_of_range itself.
[[noreturn]] inline void engine_out_of_range() { throw out_of_range(); }

inline unsigned least(unsigned a, unsigned b) noexcept { return a < b ? a : b; }
} // namespace detail

template <class C>
string_engine<C>* string_engine<C>::allocate(unsigned n) const {
    unsigned capacity = 0;
    void* block = allocator_->allocate(sizeof(C), n, header_allowance(), &capacity);
    return ::new (block) string_engine(allocator_, 0, capacity);
}

template <class C>
string_engine<C>* string_engine<C>::clone(unsigned extra) const {
    string_engine* r = allocate(size_ + extra);
    traits_type::copy(r->data(), data(), size_);
    return r->terminate(size_);
}

template <class C>
string_engine<C>* string_engine<C>::create(C c, unsigned n) const {
    string_engine* r = allocate(n);
    if (c == C(0))
        return r->terminate(0);
    traits_type::fill(r->data(), c, n);
    return r->terminate(n);
}

template <class C>
string_engine<C>* string_engine<C>::create(C const* p, unsigned n, unsigned pos,
                                           unsigned len) const {
    if (!p)
        return allocate(0)->terminate(0);
    if (n == npos)
        n = traits_type::length(p);
    if (pos > n)
        detail::engine_out_of_range();
    len = detail::least(len, n - pos);
    string_engine* r = allocate(len);
    traits_type::copy(r->data(), p + pos, len);
    return r->terminate(len);
}

template <class C>
string_engine<C>* string_engine<C>::assign(C c, unsigned pos) {
    if (pos >= size_)
        detail::engine_out_of_range();
    string_engine* r = shared() ? clone(capacity_ - size_) : this;
    if (c == C(0))
        return r->terminate(pos);
    *r->data(pos) = c;
    return r;
}

template <class C>
string_engine<C>* string_engine<C>::mutate(unsigned n) {
    unsigned const h = header_allowance();
    // An unshared engine asks its heap first. The capacity test comes after
    // the answer and only guards against a heap that would keep a block too
    // small (the string heaps never do: their capacity fills the block).
    if (!shared() &&
        !allocator_->query_resize(capacity_ * unsigned(sizeof(C)) + h,
                                  n * unsigned(sizeof(C)) + h) &&
        n <= capacity_)
        return this;
    string_engine* r = allocate(n);
    r->size_ = n;
    traits_type::copy(r->data(), data(), detail::least(n, size_));
    return r;
}

template <class C>
string_engine<C>* string_engine<C>::merge(unsigned pos, unsigned len, C c, unsigned n) {
    if (pos > size_)
        detail::engine_out_of_range();
    if (c == C(0))
        return mutate(pos)->terminate(pos);
    len = detail::least(len, size_ - pos);
    unsigned const tail = size_ - pos - len;
    unsigned const m = pos + n + tail;
    string_engine* r = mutate(m);
    traits_type::move(r->data(pos + n), data(pos + len), tail);
    traits_type::fill(r->data(pos), c, n);
    return r->terminate(m);
}

template <class C>
string_engine<C>* string_engine<C>::merge(unsigned pos, unsigned len, C const* p,
                                          unsigned plen, unsigned ppos, unsigned pn) {
    if (!p)
        plen = 0;
    else if (plen == npos)
        plen = traits_type::length(p);
    if (pos > size_ || ppos > plen)
        detail::engine_out_of_range();
    len = detail::least(len, size_ - pos);
    pn = detail::least(pn, plen - ppos);
    unsigned const tail = size_ - pos - len;
    unsigned const m = pos + pn + tail;
    C const* const source = p ? p + ppos : p;
    string_engine* r;
    if (p && holds(source)) {
        // The source is part of this string, even an empty part: build the
        // result beside it.
        r = allocate(m);
        traits_type::copy(r->data(), data(), pos);
    } else {
        r = mutate(m);
    }
    traits_type::move(r->data(pos + pn), data(pos + len), tail);
    traits_type::copy(r->data(pos), source, pn);
    return r->terminate(m);
}

template <class C>
string_engine<C>* string_engine<C>::remove(unsigned pos, unsigned n) {
    if (pos > size_)
        detail::engine_out_of_range();
    n = detail::least(n, size_ - pos);
    if (n == 0)
        return this;
    unsigned const m = size_ - n;
    string_engine* r = mutate(m);
    traits_type::move(r->data(pos), data(pos + n), m - pos);
    return r->terminate(m);
}

template <class C>
string_engine<C>* string_engine<C>::resize(unsigned n, C c) {
    unsigned const old = size_;
    string_engine* r = mutate(n);
    if (n <= old)
        return r->terminate(n);
    if (c == C(0))
        return r->terminate(old);  // only reserves
    traits_type::fill(r->data(old), c, n - old);
    return r->terminate(n);
}

} // namespace zel

#endif
