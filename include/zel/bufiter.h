// The buffer iterators through which the number facets read and write:
// `obuf_iterator` / `wobuf_iterator`, output iterators that put characters
// on a stream buffer, and `ibuf_iterator` / `wibuf_iterator`, input
// iterators that take them from one. Only the stream buffer's public
// operations are used, so this header needs the buffer class declared,
// not defined; the members are instantiated where the buffer is complete.
#ifndef ZEL_BUFITER_H
#define ZEL_BUFITER_H

#include <zel/config.h>

namespace zel {

template <class C>
class basic_streambuf;
template <class C, class InIt>
class num_get;

// The integer form of end of file for a character type: -1 for `char`,
// 0xFFFF for `unsigned short` (so the wide character 0xFFFF reads as end
// of file; kept as the buffers define it).
template <class C>
struct buffer_eof;
template <>
struct buffer_eof<char> {
    static constexpr int value = -1;
};
template <>
struct buffer_eof<unsigned short> {
    static constexpr int value = 0xFFFF;
};

// Output iterator: assignment puts one character on the buffer. Without a
// buffer, or when the buffer answers end of file, the iterator is marked
// failed; writing goes on after a failure (each later character is tried
// again), and failed() tells the writer afterwards.
template <class C>
class basic_obuf_iterator {
public:
    using char_type = C;

    basic_obuf_iterator() noexcept : buf_(nullptr), failed_(false) {}
    explicit basic_obuf_iterator(basic_streambuf<C>* b) noexcept : buf_(b), failed_(false) {}

    basic_obuf_iterator& operator=(C const& c) {
        if (buf_ == nullptr || buf_->sputc(c) == buffer_eof<C>::value)
            failed_ = true;
        return *this;
    }
    // Puts the n characters of text (widened from bytes) as n sputc calls
    // would: what fits in the put area goes in at once (sputc reaches no
    // hook there), the rest by sputc one at a time. Defined where the
    // buffer is complete (streambuf.h).
    void put_text(char const* text, unsigned n);
    basic_obuf_iterator& operator*() noexcept { return *this; }
    basic_obuf_iterator& operator++() noexcept { return *this; }
    basic_obuf_iterator& operator++(int) noexcept { return *this; }
    bool failed() const noexcept { return failed_; }
    basic_streambuf<C>* buffer() const noexcept { return buf_; }

private:
    basic_streambuf<C>* buf_;
    bool failed_;
};

// Input iterator: holds the buffer, the current character and an end flag.
// The current character is fetched (without consuming it) when the
// iterator is made and after each step; so a reader that stops at a
// character leaves it in the buffer. Two iterators are equal when both or
// neither are at the end. The default iterator is the end iterator.
template <class C>
class basic_ibuf_iterator {
public:
    using char_type = C;

    // What postfix ++ returns: the character it passed over.
    class proxy {
    public:
        C operator*() const noexcept { return c_; }

    private:
        friend class basic_ibuf_iterator;
        proxy(C c, basic_streambuf<C>* b) noexcept : c_(c), buf_(b) {}
        C c_;
        basic_streambuf<C>* buf_;
    };

    basic_ibuf_iterator() noexcept : buf_(nullptr), c_(buffer_eof<C>::value), end_(true) {}
    explicit basic_ibuf_iterator(basic_streambuf<C>* b) : buf_(b), c_(0), end_(false) { sgetc(); }
    basic_ibuf_iterator(proxy const& p) : buf_(p.buf_), c_(0), end_(false) { sgetc(); }

    C operator*() const noexcept { return static_cast<C>(c_); }
    basic_ibuf_iterator& operator++() {
        sbumpc();
        return *this;
    }
    proxy operator++(int) {
        proxy p(static_cast<C>(c_), buf_);
        sbumpc();
        return p;
    }
    bool equal(basic_ibuf_iterator const& other) const noexcept { return end_ == other.end_; }
    friend bool operator==(basic_ibuf_iterator const& a, basic_ibuf_iterator const& b) noexcept {
        return a.equal(b);
    }
    friend bool operator!=(basic_ibuf_iterator const& a, basic_ibuf_iterator const& b) noexcept {
        return !a.equal(b);
    }
    basic_streambuf<C>* buffer() const noexcept { return buf_; }

private:
    // The reader facet runs its engines over the buffer itself and leaves
    // the iterator where they stopped (see num_get::do_get).
    friend class num_get<C, basic_ibuf_iterator>;
    // Where the reader left off: no fetch.
    basic_ibuf_iterator(basic_streambuf<C>* b, int c, bool end) noexcept : buf_(b), c_(c), end_(end) {}

    void sgetc() {
        c_ = buf_ != nullptr ? buf_->sgetc() : buffer_eof<C>::value;
        end_ = c_ == buffer_eof<C>::value;
    }
    void sbumpc() {
        if (buf_ != nullptr && !end_)
            buf_->sbumpc();
        sgetc();
    }

    basic_streambuf<C>* buf_;
    int c_;
    bool end_;
};

using obuf_iterator = basic_obuf_iterator<char>;
using wobuf_iterator = basic_obuf_iterator<unsigned short>;
using ibuf_iterator = basic_ibuf_iterator<char>;
using wibuf_iterator = basic_ibuf_iterator<unsigned short>;

} // namespace zel

#endif
