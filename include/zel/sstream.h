// String streams: basic_istringstream and basic_ostringstream over `char`
// and `unsigned short`, each owning a basic_stringbuf as a member. There is
// no bidirectional string stream.
//
// The mode goes to the buffer unchanged: an istringstream reads only with
// `in` in its mode and an ostringstream writes only with `out` (the
// defaults). Kept behaviours of the buffer worth knowing here:
//   - an ostringstream made from a text writes over it from the start, and
//     str() answers only what has been written: made from "abc", str() is
//     empty until something is written, and after writing "Z" it is "Z";
//   - str(s) starts both areas over on a private copy of s.
#ifndef ZEL_SSTREAM_H
#define ZEL_SSTREAM_H

#include <zel/config.h>
#include <zel/istream.h>
#include <zel/ostream.h>
#include <zel/streambuf.h>
#include <zel/string.h>

namespace zel {

template <class C>
class string_stream_buffer {
protected:
    explicit string_stream_buffer(long mode) : sbuf_(mode) {}
    string_stream_buffer(string_base<C> const& s, long mode) : sbuf_(s, mode) {}
    basic_stringbuf<C> sbuf_;
};

#define ZEL_STRING_STREAM_MEMBERS(cls, default_mode)                                         \
public:                                                                                      \
    using string_type = typename basic_stringbuf<C>::string_type;                            \
    /* An empty buffer. */                                                                   \
    explicit cls(long mode = (default_mode));                                                \
    /* A buffer over a private copy of s. */                                                 \
    explicit cls(string_base<C> const& s, long mode = (default_mode));                       \
    explicit cls(C const* s, long mode = (default_mode)) : cls(string_type(s), mode) {}      \
    ~cls() override;                                                                         \
    string_type str() const { return this->sbuf_.str(); }                                    \
    void str(string_base<C> const& s) { this->sbuf_.str(s); }                                \
    basic_stringbuf<C>* rdbuf() const noexcept {                                             \
        return const_cast<basic_stringbuf<C>*>(&this->sbuf_);                                \
    }

template <class C>
class ZEL_API basic_istringstream : private string_stream_buffer<C>, public basic_istream<C> {
    ZEL_STRING_STREAM_MEMBERS(basic_istringstream, ios_base::in)
};

template <class C>
class ZEL_API basic_ostringstream : private string_stream_buffer<C>, public basic_ostream<C> {
    ZEL_STRING_STREAM_MEMBERS(basic_ostringstream, ios_base::out)
};

#undef ZEL_STRING_STREAM_MEMBERS

ZEL_EXTERN_TEMPLATE(basic_istringstream<char>);
ZEL_EXTERN_TEMPLATE(basic_istringstream<unsigned short>);
ZEL_EXTERN_TEMPLATE(basic_ostringstream<char>);
ZEL_EXTERN_TEMPLATE(basic_ostringstream<unsigned short>);

using istringstream = basic_istringstream<char>;
using ostringstream = basic_ostringstream<char>;
using wistringstream = basic_istringstream<unsigned short>;
using wostringstream = basic_ostringstream<unsigned short>;

} // namespace zel

#endif
