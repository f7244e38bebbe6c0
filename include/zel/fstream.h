// File streams: basic_ifstream, basic_ofstream and basic_fstream over `char`
// and `unsigned short`, each owning a basic_filebuf as a member (the stream's
// buffer from the start, so rdbuf() of a fresh stream is its own buffer).
//
// The open mode goes to the buffer unchanged: an input stream does not add
// `in` and an output stream does not add `out`, so a mode without either
// has no C mode string and the open fails with failbit. The defaults of the
// constructors and of open() are `in` (ifstream), `out` (ofstream, which
// truncates, as C's "w" does) and `in | out` (fstream, an existing file).
// Only open and close change the state (failbit through setstate, so the
// exceptions mask can make them throw).
#ifndef ZEL_FSTREAM_H
#define ZEL_FSTREAM_H

#include <zel/config.h>
#include <zel/istream.h>
#include <zel/ostream.h>
#include <zel/streambuf.h>

namespace zel {

// What the three file streams share: the member buffer and the mode. It is
// a base placed ahead of the stream classes, so the buffer is built before
// the streams that are handed its address.
template <class C>
class file_stream_buffer {
protected:
    file_stream_buffer() = default;
    basic_filebuf<C> fbuf_;
    long mode_ = 0;
};

#define ZEL_FILE_STREAM_MEMBERS(cls, default_mode)                                           \
public:                                                                                      \
    /* No file; mode 0. */                                                                   \
    cls();                                                                                   \
    /* Opens at once; see open(). */                                                         \
    explicit cls(char const* name, long mode = (default_mode));                              \
    /* The member buffer closes an owned file (flushing it). */                              \
    ~cls() override;                                                                         \
    /* failbit when the buffer does not open (a file already open, a mode    */              \
    /* without a C mode string, a file that cannot be opened); the mode is   */              \
    /* recorded in every case. */                                                            \
    void open(char const* name, long mode = (default_mode));                                 \
    /* failbit when the buffer does not close (nothing open, a failed write). */            \
    void close();                                                                            \
    bool is_open() const noexcept { return this->fbuf_.is_open(); }                          \
    long mode() const noexcept { return this->mode_; }                                       \
    basic_filebuf<C>* rdbuf() const noexcept {                                               \
        return const_cast<basic_filebuf<C>*>(&this->fbuf_);                                  \
    }

template <class C>
class ZEL_API basic_ifstream : private file_stream_buffer<C>, public basic_istream<C> {
    ZEL_FILE_STREAM_MEMBERS(basic_ifstream, ios_base::in)
};

template <class C>
class ZEL_API basic_ofstream : private file_stream_buffer<C>, public basic_ostream<C> {
    ZEL_FILE_STREAM_MEMBERS(basic_ofstream, ios_base::out)
};

template <class C>
class ZEL_API basic_fstream : private file_stream_buffer<C>, public basic_iostream<C> {
    ZEL_FILE_STREAM_MEMBERS(basic_fstream, ios_base::in | ios_base::out)
};

#undef ZEL_FILE_STREAM_MEMBERS

ZEL_EXTERN_TEMPLATE(basic_ifstream<char>);
ZEL_EXTERN_TEMPLATE(basic_ifstream<unsigned short>);
ZEL_EXTERN_TEMPLATE(basic_ofstream<char>);
ZEL_EXTERN_TEMPLATE(basic_ofstream<unsigned short>);
ZEL_EXTERN_TEMPLATE(basic_fstream<char>);
ZEL_EXTERN_TEMPLATE(basic_fstream<unsigned short>);

using ifstream = basic_ifstream<char>;
using ofstream = basic_ofstream<char>;
using fstream = basic_fstream<char>;
using wifstream = basic_ifstream<unsigned short>;
using wofstream = basic_ofstream<unsigned short>;
using wfstream = basic_fstream<unsigned short>;

} // namespace zel

#endif
