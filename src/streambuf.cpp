// basic_streambuf: the base hooks (which do nothing and report end of file
// or -1), and the base bulk transfers that the file and string buffers
// inherit. The character fast paths are inline in the header.
#include <zel/streambuf.h>

#include <cstring>

namespace zel {

template <class C>
basic_streambuf<C>::basic_streambuf()
    : loc_(), pbase_(nullptr), pptr_(nullptr), epptr_(nullptr), eback_(nullptr), gptr_(nullptr),
      egptr_(nullptr) {}

// Only the locale is built; the area pointers stay as the storage holds them.
template <class C>
basic_streambuf<C>::basic_streambuf(zel_no_init const& tag) : loc_(tag) {}

template <class C>
basic_streambuf<C>::~basic_streambuf() = default;

template <class C>
locale basic_streambuf<C>::pubimbue(locale const& loc) {
    locale old(loc_);
    imbue(loc);
    loc_ = loc;
    return old;
}

template <class C>
void basic_streambuf<C>::imbue(locale const&) {}

template <class C>
basic_streambuf<C>* basic_streambuf<C>::setbuf(C*, long) {
    return this;
}

template <class C>
streampos basic_streambuf<C>::seekoff(long, seekdir, long) {
    return -1;
}

template <class C>
streampos basic_streambuf<C>::seekpos(streampos, long) {
    return -1;
}

template <class C>
int basic_streambuf<C>::sync() {
    return 0;
}

template <class C>
int basic_streambuf<C>::pbackfail(int) {
    return eof();
}

template <class C>
int basic_streambuf<C>::underflow() {
    return eof();
}

template <class C>
int basic_streambuf<C>::uflow() {
    int const c = underflow();
    if (c != eof())
        ++gptr_;
    return c;
}

template <class C>
long basic_streambuf<C>::showmanyc() {
    return 0;
}

// The next character is fetched before the count is compared with n, so a
// call that stores n consumes n + 1 when one more is there (kept).
template <class C>
long basic_streambuf<C>::xsgetn(C* s, long n) {
    if (n < 1)
        return 0;
    long count = 0;
    int c = sbumpc();
    while (count < n && c != eof()) {
        s[count++] = to_char(c);
        c = sbumpc();
    }
    return count;
}

template <class C>
int basic_streambuf<C>::overflow(int) {
    return eof();
}

template <class C>
long basic_streambuf<C>::xsputn(C const* s, long n, bool advance) {
    if (!s || n < 1)
        return 0;
    if (advance && pptr_ && epptr_ - pptr_ >= n) {
        // All of it fits: one copy, no overflow.
        copy_run(pptr_, s, n);
        pptr_ += n;
        return n;
    }
    long count = 0;
    while (count < n) {
        if (advance && pptr_ && epptr_ - pptr_ > 1) {
            // A run that fits the put area goes in at once.
            long const room = long(epptr_ - pptr_);
            long const k = n - count < room ? n - count : room;
            copy_run(pptr_, s, k);
            pptr_ += k;
            s += k;
            count += k;
            continue;
        }
        if (pptr_ && pptr_ < epptr_) {
            *pptr_++ = *s;
        } else if (overflow(to_int(*s)) == eof()) {
            break;
        }
        if (advance)
            ++s;
        ++count;
    }
    return count;
}

template class basic_streambuf<char>;
template class basic_streambuf<unsigned short>;

} // namespace zel
