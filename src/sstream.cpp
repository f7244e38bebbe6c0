// The string streams: each builds its basic_ios on its own member buffer.
// The virtual base is built by the most derived class, so a class derived
// from a string stream may have given it another buffer (or none): the
// constructors point it at the member buffer in every case.
#include <zel/sstream.h>

namespace zel {

template <class C>
basic_istringstream<C>::basic_istringstream(long mode)
    : basic_ios<C>(&this->sbuf_), string_stream_buffer<C>(mode), basic_istream<C>(&this->sbuf_) {
    basic_ios<C>::rdbuf(&this->sbuf_);
}

template <class C>
basic_istringstream<C>::basic_istringstream(string_base<C> const& s, long mode)
    : basic_ios<C>(&this->sbuf_), string_stream_buffer<C>(s, mode),
      basic_istream<C>(&this->sbuf_) {
    basic_ios<C>::rdbuf(&this->sbuf_);
}

template <class C>
basic_istringstream<C>::~basic_istringstream() = default;

template <class C>
basic_ostringstream<C>::basic_ostringstream(long mode)
    : basic_ios<C>(&this->sbuf_), string_stream_buffer<C>(mode), basic_ostream<C>(&this->sbuf_) {
    basic_ios<C>::rdbuf(&this->sbuf_);
}

template <class C>
basic_ostringstream<C>::basic_ostringstream(string_base<C> const& s, long mode)
    : basic_ios<C>(&this->sbuf_), string_stream_buffer<C>(s, mode),
      basic_ostream<C>(&this->sbuf_) {
    basic_ios<C>::rdbuf(&this->sbuf_);
}

template <class C>
basic_ostringstream<C>::~basic_ostringstream() = default;

template class basic_istringstream<char>;
template class basic_istringstream<unsigned short>;
template class basic_ostringstream<char>;
template class basic_ostringstream<unsigned short>;

} // namespace zel
