// Stream buffers: basic_streambuf (the get and put areas and the virtual
// hooks), basic_filebuf over a C FILE through xgetc/xputc/xungetc,
// basic_stringbuf over the library's strings, and xfopen. Each exists over
// `char` and over `unsigned short`. The buffer iterators the number facets
// use are in bufiter.h.
//
// Characters travel as `int`: for `char` its unsigned byte with end of file
// -1; for `unsigned short` the character itself with end of file 0xFFFF, so
// the wide character 0xFFFF cannot be told from end of file (kept).
// No operation here throws: failures are end of file, null or -1.
#ifndef ZEL_STREAMBUF_H
#define ZEL_STREAMBUF_H

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <typeinfo>

#include <zel/config.h>
#include <zel/ios.h>
#include <zel/ldx.h>
#include <zel/locale.h>
#include <zel/string.h>

namespace zel {

// Stream positions; -1 means failure.
using streampos = std::int64_t;

template <class C>
class ZEL_API basic_streambuf {
public:
    using char_type = C;
    using int_type = int;
    using pos_type = streampos;
    using off_type = long;
    using seekdir = ios_base::seekdir;

    basic_streambuf(basic_streambuf const&) = delete;
    basic_streambuf& operator=(basic_streambuf const&) = delete;
    virtual ~basic_streambuf();

    // The character at gptr, else underflow().
    int sgetc() {
        return gptr_ && gptr_ < egptr_ ? to_int(*gptr_) : underflow();
    }
    // As sgetc, and moves past it (uflow() when the get area is empty).
    int sbumpc() {
        return gptr_ && gptr_ < egptr_ ? to_int(*gptr_++) : uflow();
    }
    // Moves past one character and answers the next.
    int snextc() { return sbumpc() == eof() ? eof() : sgetc(); }
    // Kept behaviour of the base xsgetn: a call that stores n characters
    // consumes n + 1 when one more is available; that one is lost.
    long sgetn(C* s, long n) { return xsgetn(s, n); }
    // Steps back over c when it is the character before gptr, else
    // pbackfail(c).
    int sputbackc(C c) {
        if (eback_ && gptr_ > eback_ && gptr_[-1] == c)
            return to_int(*--gptr_);
        return pbackfail(to_int(c));
    }
    int sungetc() {
        if (eback_ && gptr_ > eback_)
            return to_int(*--gptr_);
        return pbackfail(eof());
    }
    int sputc(C c) {
        if (pptr_ && pptr_ < epptr_) {
            *pptr_++ = c;
            return to_int(c);
        }
        return overflow(to_int(c));
    }
    long sputn(C const* s, long n) { return xsputn(s, n, true); }
    // n copies of c (how the streams write fill characters).
    long sputn(C c, long n) { return xsputn(&c, n, false); }
    long in_avail() { return gptr_ && gptr_ < egptr_ ? long(egptr_ - gptr_) : showmanyc(); }
    long out_waiting() const noexcept { return pptr_ && pbase_ ? long(pptr_ - pbase_) : 0; }

    // Calls imbue(loc), takes loc, returns the old locale.
    locale pubimbue(locale const& loc);
    locale getloc() const { return loc_; }
    basic_streambuf* pubsetbuf(C* p, long n) { return setbuf(p, n); }
    streampos pubseekoff(long off, seekdir dir, long which = ios_base::in | ios_base::out) {
        return seekoff(off, dir, which);
    }
    streampos pubseekpos(streampos pos, long which = ios_base::in | ios_base::out) {
        return seekpos(pos, which);
    }
    int pubsync() { return sync(); }

    // End of file of this character type.
    static constexpr int eof() noexcept { return sizeof(C) == 1 ? -1 : 0xFFFF; }

protected:
    // The global locale, every area pointer null.
    basic_streambuf();
    // Builds only the locale (see zel_no_init).
    explicit basic_streambuf(zel_no_init const& tag);

    C* eback() const noexcept { return eback_; }
    C* gptr() const noexcept { return gptr_; }
    C* egptr() const noexcept { return egptr_; }
    C* pbase() const noexcept { return pbase_; }
    C* pptr() const noexcept { return pptr_; }
    C* epptr() const noexcept { return epptr_; }
    void gbump(long n) noexcept { gptr_ += n; }
    void pbump(long n) noexcept { pptr_ += n; }
    void setg(C* b, C* g, C* e) noexcept {
        eback_ = b;
        gptr_ = g;
        egptr_ = e;
    }
    // pptr starts at b.
    void setp(C* b, C* e) noexcept {
        pbase_ = pptr_ = b;
        epptr_ = e;
    }

    // `char` compares as signed characters.
    static constexpr bool eq_char(C a, C b) noexcept { return a == b; }
    static constexpr bool eq_int(int a, int b) noexcept { return a == b; }
    static constexpr bool eq_eof(int c) noexcept { return c == eof(); }
    static constexpr C to_char(int i) noexcept { return C(i); }
    static constexpr int to_int(C c) noexcept {
        return int(static_cast<std::make_unsigned_t<C>>(c));
    }

    // The hooks, in slot order after the destructor. The base versions:
    // imbue nothing, setbuf this, seeks -1, sync 0, pbackfail/underflow/
    // overflow end of file, uflow = underflow + advance, showmanyc 0.
    virtual void imbue(locale const& loc);
    virtual basic_streambuf* setbuf(C* p, long n);
    virtual streampos seekoff(long off, seekdir dir, long which);
    virtual streampos seekpos(streampos pos, long which);
    virtual int sync();
    virtual int pbackfail(int c);
    virtual int underflow();
    virtual int uflow();
    virtual long showmanyc();
    virtual long xsgetn(C* s, long n);
    virtual int overflow(int c);
    // n characters from s, stepping through s only when advance is true
    // (false writes *s n times); stops at the first overflow failure.
    virtual long xsputn(C const* s, long n, bool advance);

private:
    // The number facets write runs of text straight into the put area and
    // read characters that are already in the get area in place.
    friend class basic_obuf_iterator<C>;
    template <class, class> friend class num_get;
    // The output stream hands a run that fits straight to the put area of
    // the library's own buffers (see put_in_place).
    friend class basic_ostream<C>;

    // Whether the dynamic type is one of the library's own buffers, which
    // keep the base xsputn (a derived class may replace it).
    bool keeps_base_xsputn() const noexcept;
    // What xsputn(s, n, true) does when the run fits the put area, done in
    // place for a buffer that keeps the base xsputn; false, with nothing
    // done, for any other buffer or a run that does not fit, which then
    // takes the virtual call.
    bool put_in_place(C const* s, long n) noexcept;
    // Copies a run into the put area: short runs (a separator, a number's
    // text) in line, long ones by memcpy.
    static void copy_run(C* to, C const* from, long n) noexcept {
        if (n <= 16) {
            for (long i = 0; i < n; ++i)
                to[i] = from[i];
        } else {
            std::memcpy(to, from, std::size_t(n) * sizeof(C));
        }
    }
    // The same for one character.
    bool put_in_place(C c) noexcept {
        if (pptr_ == nullptr || pptr_ >= epptr_ || !keeps_base_xsputn())
            return false;
        *pptr_++ = c;
        return true;
    }

    locale loc_;
    C* pbase_;
    C* pptr_;
    C* epptr_;
    C* eback_;
    C* gptr_;
    C* egptr_;
};

template <class C>
void basic_obuf_iterator<C>::put_text(char const* text, unsigned n) {
    basic_streambuf<C>* const b = buf_;
    if (b != nullptr && b->pptr_ != nullptr && b->pptr_ < b->epptr_) {
        // What fits goes in at once; the rest meets overflow through sputc.
        unsigned long const room = static_cast<unsigned long>(b->epptr_ - b->pptr_);
        unsigned const k = room < n ? static_cast<unsigned>(room) : n;
        C* const p = b->pptr_;
        if constexpr (sizeof(C) == 1) {
            // A number's text is short: two overlapping fixed-size copies
            // cover 4 to 16 characters without a call.
            if (k >= 8 && k <= 16) {
                std::memcpy(p, text, 8);
                std::memcpy(p + k - 8, text + k - 8, 8);
            } else if (k >= 4 && k < 8) {
                std::memcpy(p, text, 4);
                std::memcpy(p + k - 4, text + k - 4, 4);
            } else if (k > 16) {
                std::memcpy(p, text, k);
            } else {
                for (unsigned i = 0; i < k; ++i)
                    p[i] = text[i];
            }
        } else {
            for (unsigned i = 0; i < k; ++i)
                p[i] = static_cast<C>(static_cast<unsigned char>(text[i]));
        }
        b->pptr_ = p + k;
        text += k;
        n -= k;
    }
    for (unsigned i = 0; i < n; ++i)
        *this = static_cast<C>(static_cast<unsigned char>(text[i]));
}

ZEL_EXTERN_TEMPLATE(basic_streambuf<char>);
ZEL_EXTERN_TEMPLATE(basic_streambuf<unsigned short>);

using streambuf = basic_streambuf<char>;
using wstreambuf = basic_streambuf<unsigned short>;

// Opens a C stream for an open mode: in "r", in|binary "rb", out and
// out|trunc "w", out|app "a", in|out "r+", in|out|trunc "w+", each with "b"
// added by binary. Every other mode, every mode with ate and in|out|app
// among them, gives null without calling fopen.
ZEL_API std::FILE* xfopen(char const* name, long mode);

// A buffer over a C FILE, one character at a time through xgetc, xputc and
// xungetc with the descriptors of the locale's codecvt facets; the C stream
// does the real buffering. (The narrow buffer hands its held characters
// over in one fwrite, the same bytes xputc would write one by one.)
//
// Cost: every flush of the staging area also flushes the C stream, so
// output makes one write to the system per 33 characters; that, not the
// formatting, is most of the time of writing numbers to a file.
//
// The staging area: the get area is at most one character at the start of
// the 32-character array; the put area, once output has started, is the
// whole array. The first character written opens the put area and is held
// in it, so 32 characters are held and the 33rd write sends all 33 to the C
// stream and flushes it (the same holds after every flush). Reading hands
// pending output to the C stream first and closes the put area; writing
// gives unread input back first and, after any reading, repositions the C
// stream (as C requires between input and output). So at most one area
// holds anything, and a character put back through pbackfail goes to the
// C stream (xungetc) while a staged one stays staged.
template <class C>
class ZEL_API basic_filebuf : public basic_streambuf<C> {
    using base = basic_streambuf<C>;

public:
    static constexpr unsigned staging_size = 32;

    // No file; open() attaches one the buffer will own.
    basic_filebuf();
    // Over an open FILE; the buffer closes it when `owns` is true.
    basic_filebuf(std::FILE* f, bool owns);
    explicit basic_filebuf(zel_no_init const& tag);
    // close(): an owned file is flushed and closed.
    ~basic_filebuf() override;

    // Null when a file is already attached or xfopen fails; then the buffer
    // stays as it was (closed if it was closed).
    basic_filebuf* open(char const* name, long mode);
    // Null for a file the buffer does not own (left open) or no file, or
    // when writing out or fclose fails; the buffer is closed afterwards in
    // every case but the first.
    basic_filebuf* close();
    bool is_open() const noexcept { return file_ != nullptr; }
    std::FILE* file() const noexcept { return file_; }

protected:
    void imbue(locale const& loc) override;
    base* setbuf(C* p, long n) override;
    streampos seekoff(long off, ios_base::seekdir dir, long which) override;
    streampos seekpos(streampos pos, long which) override;
    int sync() override;
    int pbackfail(int c) override;
    int underflow() override;
    int overflow(int c) override;

private:
    void initbuf(std::FILE* f, bool owns) noexcept;
    void initloc(locale const& loc);
    int syncout(int c);
    int syncin();

    std::FILE* file_;
    bool owns_;
    locale_descriptor const* in_ldx_;
    locale_descriptor const* out_ldx_;
    C stage_[staging_size];
};

ZEL_EXTERN_TEMPLATE(basic_filebuf<char>);
ZEL_EXTERN_TEMPLATE(basic_filebuf<unsigned short>);

using filebuf = basic_filebuf<char>;
using wfilebuf = basic_filebuf<unsigned short>;

// The string each character type's string buffer holds.
template <class C> struct stringbuf_string;
template <> struct stringbuf_string<char> { using type = string; };
template <> struct stringbuf_string<unsigned short> { using type = wstring; };

// A buffer over a string of its own. Both areas point into the string's
// storage: a buffer made from a text reads it from the start and writes over
// it from the start (it does not append).
//
// Growth: when the put area is full it is extended to what has been written
// plus 32 blanks, and the new character takes the first of them. So 32
// characters written and one more leave a put area of 64 characters, 33 of
// them written and 31 still free. The string beneath grows geometrically,
// so writing n characters costs time linear in n; what lies in it past the
// put area is never shown and becomes blanks only when the area reaches it.
//
// Kept behaviours: the get position can be sought anywhere below the end of
// the readable text but never onto its end, the put position up to and onto
// the end of the put area; in|out seeks are accepted only from beg or end;
// pbackfail (which sputbackc and sungetc reach only at the start of the
// text or with a differing character; a derived class may call it) answers
// a matching character through a signed char for `char`: a put-back of end
// of file moves back and still answers -1, a matching 0xFF answers -1 too,
// and 0x80-0xFE answer negative values.
template <class C>
class ZEL_API basic_stringbuf : public basic_streambuf<C> {
    using base = basic_streambuf<C>;

public:
    using string_type = typename stringbuf_string<C>::type;

    explicit basic_stringbuf(long mode = ios_base::in | ios_base::out);
    basic_stringbuf(string_base<C> const& s, long mode = ios_base::in | ios_base::out);
    ~basic_stringbuf() override;

    // With out: what has been written (pbase to pptr), so a buffer just made
    // from "abc" in mode out answers an empty string; else with in the
    // readable text; else empty.
    string_type str() const;
    // Starts over on a private copy of s.
    void str(string_base<C> const& s);
    long mode() const noexcept { return mode_; }

protected:
    streampos seekoff(long off, ios_base::seekdir dir, long which) override;
    streampos seekpos(streampos pos, long which) override;
    int pbackfail(int c) override;
    int underflow() override;
    int overflow(int c) override;

private:
    // How far past what has been written a grown put area ends.
    static constexpr unsigned window = 32;

    void initbuf(string_base<C> const& s);
    long setipos(long off, ios_base::seekdir dir);
    long setopos(long off, ios_base::seekdir dir);

    string_type str_;
    long mode_;
};

// The type test compares addresses: a copy of a type's record elsewhere
// only sends the run the long way.
template <class C>
inline bool basic_streambuf<C>::keeps_base_xsputn() const noexcept {
    std::type_info const* const t = &typeid(*this);
    return t == &typeid(basic_stringbuf<C>) || t == &typeid(basic_filebuf<C>);
}

template <class C>
inline bool basic_streambuf<C>::put_in_place(C const* s, long n) noexcept {
    if (s == nullptr || n < 1 || pptr_ == nullptr || epptr_ - pptr_ < n || !keeps_base_xsputn())
        return false;
    copy_run(pptr_, s, n);
    pptr_ += n;
    return true;
}

ZEL_EXTERN_TEMPLATE(basic_stringbuf<char>);
ZEL_EXTERN_TEMPLATE(basic_stringbuf<unsigned short>);

using stringbuf = basic_stringbuf<char>;
using wstringbuf = basic_stringbuf<unsigned short>;

} // namespace zel

#endif
