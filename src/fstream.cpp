// The file streams: each builds its basic_ios on its own member buffer and
// passes open modes to it unchanged. As for the string streams, the
// constructors point the virtual base at the member buffer even when a
// derived class built it with another.
#include <zel/fstream.h>

namespace zel {

#define ZEL_FILE_STREAM_DEFINITIONS(cls, stream)                                             \
    template <class C>                                                                       \
    cls<C>::cls() : basic_ios<C>(&this->fbuf_), stream<C>(&this->fbuf_) {                    \
        basic_ios<C>::rdbuf(&this->fbuf_);                                                   \
    }                                                                                        \
                                                                                             \
    template <class C>                                                                       \
    cls<C>::cls(char const* name, long mode)                                                 \
        : basic_ios<C>(&this->fbuf_), stream<C>(&this->fbuf_) {                              \
        basic_ios<C>::rdbuf(&this->fbuf_);                                                   \
        open(name, mode);                                                                    \
    }                                                                                        \
                                                                                             \
    template <class C>                                                                       \
    cls<C>::~cls() = default;                                                                \
                                                                                             \
    template <class C>                                                                       \
    void cls<C>::open(char const* name, long mode) {                                         \
        this->mode_ = mode;                                                                  \
        if (!this->fbuf_.open(name, mode))                                                   \
            this->setstate(ios_base::failbit);                                               \
    }                                                                                        \
                                                                                             \
    template <class C>                                                                       \
    void cls<C>::close() {                                                                   \
        if (!this->fbuf_.close())                                                            \
            this->setstate(ios_base::failbit);                                               \
    }                                                                                        \
                                                                                             \
    template class cls<char>;                                                                \
    template class cls<unsigned short>;

ZEL_FILE_STREAM_DEFINITIONS(basic_ifstream, basic_istream)
ZEL_FILE_STREAM_DEFINITIONS(basic_ofstream, basic_ostream)
ZEL_FILE_STREAM_DEFINITIONS(basic_fstream, basic_iostream)

#undef ZEL_FILE_STREAM_DEFINITIONS

} // namespace zel
