// basic_stringbuf: a stream buffer whose get and put areas both point into
// the storage of one private string. Writing overwrites from the start;
// when the put area is full it is extended to 32 blanks beyond what has
// been written (see streambuf.h for the size that leaves), inside a string
// that doubles, so a long text costs linear time.
#include <zel/streambuf.h>

#include <cstdint>
#include <exception>

namespace zel {

template <class C>
basic_stringbuf<C>::basic_stringbuf(long mode) : base(), str_(), mode_(mode) {
    initbuf(str_);
}

template <class C>
basic_stringbuf<C>::basic_stringbuf(string_base<C> const& s, long mode) : base(), str_(), mode_(mode) {
    initbuf(s);
}

template <class C>
basic_stringbuf<C>::~basic_stringbuf() = default;

// The areas point into the string's own storage, so the storage must not
// be shared with any other string.
template <class C>
void basic_stringbuf<C>::initbuf(string_base<C> const& s) {
    str_ = s;
    str_.unique();
    if (str_.empty()) {
        this->setg(nullptr, nullptr, nullptr);
        this->setp(nullptr, nullptr);
        return;
    }
    C* d = const_cast<C*>(str_.data());
    C* e = d + str_.size();
    this->setg(d, d, (mode_ & ios_base::in) ? e : d);
    this->setp(d, (mode_ & ios_base::out) ? e : d);
}

template <class C>
typename basic_stringbuf<C>::string_type basic_stringbuf<C>::str() const {
    if ((mode_ & ios_base::out) && this->pptr())
        return string_type(this->pbase(), unsigned(this->pptr() - this->pbase()));
    if ((mode_ & ios_base::in) && this->gptr())
        return string_type(this->eback(), unsigned(this->egptr() - this->eback()));
    return string_type();
}

template <class C>
void basic_stringbuf<C>::str(string_base<C> const& s) {
    initbuf(s);
}

template <class C>
int basic_stringbuf<C>::underflow() {
    if (!this->gptr() || !(mode_ & ios_base::in))
        return base::eof();
    // What has been written becomes readable.
    if (this->egptr() < this->pptr())
        this->setg(this->eback(), this->gptr(), this->pptr());
    return this->gptr() < this->egptr() ? base::to_int(*this->gptr()) : base::eof();
}

template <class C>
int basic_stringbuf<C>::overflow(int c) {
    if (!(mode_ & ios_base::out) || c == base::eof())
        return base::eof();
    if (this->pptr() && this->pptr() < this->epptr()) {
        *this->pptr() = base::to_char(c);
        this->pbump(1);
        return c;
    }
    long const g = long(this->gptr() - this->eback());
    long const e = long(this->egptr() - this->eback());
    long const w = long(this->pptr() - this->pbase());
    unsigned const need = unsigned(w + window);
    if (str_.size() < need) {
        // The put area ends `window` characters past what has been
        // written, but the string itself grows geometrically, so each
        // growth moves the string at most once for as many characters as
        // it already holds. Only what the put area covers is kept: the
        // characters past it are shown by no member until the area
        // reaches them, and it fills them then, so they are neither
        // filled nor blanked here (the string's tail is scratch).
        unsigned const size = str_.size();
        unsigned const room = str_.max_size();
        unsigned const grown = need < room && room - need > size ? need + size : need;
        // A buffer never raises: a string that cannot grow (its heap is
        // exhausted) stays as it was, and the write fails by end of file.
        try {
            str_.adopt(str_.engine()->mutate(grown)->terminate(grown));
        } catch (std::exception const&) {
            return base::eof();
        }
    }
    C* d = const_cast<C*>(str_.data());
    this->setg(d, d + g, d + e);
    this->setp(d, d + need);
    this->pbump(w);
    // The new part of the put area: c, then blanks.
    C* const p = this->pptr();
    p[0] = base::to_char(c);
    for (unsigned i = 1; i < window; ++i)
        p[i] = C(' ');
    this->pbump(1);
    return c;
}

template <class C>
int basic_stringbuf<C>::pbackfail(int c) {
    if (!(mode_ & ios_base::in) || !this->gptr() || this->gptr() == this->eback())
        return base::eof();
    if (c != base::eof() && c != base::to_int(this->gptr()[-1])) {
        if (!(mode_ & ios_base::out))
            return base::eof();
        this->gbump(-1);
        *this->gptr() = base::to_char(c);
        return c;
    }
    this->gbump(-1);
    // Kept: the narrow answer goes through a signed char.
    if constexpr (sizeof(C) == 1)
        return int(static_cast<signed char>(c));
    else
        return c;
}

template <class C>
long basic_stringbuf<C>::setipos(long off, ios_base::seekdir dir) {
    if (!(mode_ & ios_base::in) || !this->gptr())
        return -1;
    long const size = long(this->egptr() - this->eback());
    long const from = dir == ios_base::cur ? long(this->gptr() - this->eback()) : dir == ios_base::end ? size : 0;
    long const to = from + off;
    if (to < 0 || to >= size)
        return -1;
    this->setg(this->eback(), this->eback() + to, this->egptr());
    return to;
}

template <class C>
long basic_stringbuf<C>::setopos(long off, ios_base::seekdir dir) {
    if (!(mode_ & ios_base::out) || !this->pptr())
        return -1;
    long const size = long(this->epptr() - this->pbase());
    long const from = dir == ios_base::cur ? long(this->pptr() - this->pbase()) : dir == ios_base::end ? size : 0;
    long const to = from + off;
    if (to < 0 || to > size)
        return -1;
    this->pbump(to - long(this->pptr() - this->pbase()));
    return to;
}

template <class C>
streampos basic_stringbuf<C>::seekoff(long off, ios_base::seekdir dir, long which) {
    switch (which) {
    case ios_base::in: return setipos(off, dir);
    case ios_base::out: return setopos(off, dir);
    case ios_base::in | ios_base::out: {
        if (dir != ios_base::beg && dir != ios_base::end)
            return -1;
        long const r = setipos(off, dir);
        setopos(off, dir);
        return r;
    }
    default: return -1;
    }
}

// Only the low 32 bits of pos count.
template <class C>
streampos basic_stringbuf<C>::seekpos(streampos pos, long which) {
    long const p = long(std::int32_t(std::uint32_t(std::uint64_t(pos))));
    streampos r = -1;
    if (which & ios_base::in)
        r = setipos(p, ios_base::beg);
    if (which & ios_base::out)
        r = setopos(p, ios_base::beg);
    return r;
}

template class basic_stringbuf<char>;
template class basic_stringbuf<unsigned short>;

} // namespace zel
