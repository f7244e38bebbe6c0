// Formatted output: basic_ostream over `char` and the 16-bit `unsigned
// short`, the manipulators endl, ends and flush, and the aliases ostream and
// wostream.
//
// Every output operation runs between a prefix step (do_opfx: nothing
// happens on a stream in badbit or failbit; a tied stream is flushed first)
// and a suffix step (do_osfx: a stream with unitbuf flushes itself). Text
// is padded to the field width with the fill character; numbers, booleans
// and pointers go to the stream's cached num_put facet, which writes
// through an output buffer iterator into the stream's buffer. Failures set
// state bits through clear(), so the exceptions mask can turn them into an
// ios_base::failure:
//   badbit   a short write, a failing numeric put, a failing pubsync;
//   failbit  an exception thrown by the buffer or the facet (swallowed), a
//            null or empty source buffer for operator<<(basic_streambuf*).
//
// Kept behaviours worth knowing:
//   - text steps require a clear state (no bit at all): a stream whose state
//     is eofbit alone writes no text but still writes numbers, whose prefix
//     step tests only badbit and failbit;
//   - the wide do_put(text, n) takes the text's length only when n is -1 and
//     writes only the fill characters for any other n (the inserters always
//     pass -1, so only a derived class calling do_put can meet this);
//   - ends writes a NUL character and then flushes the buffer;
//   - inserting into a stream whose tie is the stream itself flushes it.
#ifndef ZEL_OSTREAM_H
#define ZEL_OSTREAM_H

#include <cstdint>
#include <type_traits>

#include <zel/config.h>
#include <zel/ios.h>
#include <zel/locale.h>
#include <zel/streambuf.h>
#include <zel/string.h>

namespace zel {

template <class C>
class ZEL_API basic_ostream : virtual public basic_ios<C> {
    using ios_type = basic_ios<C>;
    // The narrow stream's extra forms (see the inserter below).
    template <class T>
    static constexpr bool narrow_extra =
        narrow_extra_form<C, T> || (std::is_same_v<C, char> && (std::is_same_v<T, signed char const*> ||
                                                                std::is_same_v<T, unsigned char const*>));
    // The wide stream's narrow forms (see the inserter below).
    template <class T>
    static constexpr bool wide_extra =
        !std::is_same_v<C, char> &&
        (std::is_same_v<T, char> || std::is_same_v<T, char const*> || std::is_same_v<T, char*>);

public:
    using char_type = C;
    using streambuf_type = basic_streambuf<C>;
    using string_type = string_base<C>;
    using iterator_type = typename ios_iterators<C>::output;
    using pos_type = std::int64_t;

    explicit basic_ostream(streambuf_type* buffer);
    // For storage that already holds a constructed stream; every field but
    // the locale keeps what the memory holds. The library's standard
    // objects do not need it (see iostream.h).
    explicit basic_ostream(zel_no_init const& n);
    basic_ostream(basic_ostream const& other);
    basic_ostream& operator=(basic_ostream const& other);
    ~basic_ostream() override;

    // --- characters and text: padded to the width, which is then 0 ---
    basic_ostream& operator<<(C c) {
        // The common case in line: a clear state, no width, no tie, no
        // unitbuf and room in one of the library's own buffers leave the
        // general path nothing to do but store c.
        basic_streambuf<C>* const b = this->rdbuf();
        if (this->rdstate() == 0 && this->width() == 0 && this->tie() == nullptr &&
            (this->flags() & ios_base::unitbuf) == 0 && b != nullptr && b->put_in_place(c))
            return *this;
        return put_text(&c, 1);
    }
    basic_ostream& operator<<(C const* s) { return do_put(s, -1); }
    basic_ostream& operator<<(string_type const& s) { return do_put(s); }
    // The narrow stream's signed and unsigned char forms (characters and
    // texts) and its `unsigned short` number; on the wide stream `unsigned
    // short` is the character type.
    template <class T, std::enable_if_t<narrow_extra<T>, int> = 0>
    basic_ostream& operator<<(T v) {
        if constexpr (std::is_pointer_v<T>)
            return do_put(reinterpret_cast<C const*>(v), -1);
        else if constexpr (std::is_same_v<T, unsigned short>)
            return do_put(static_cast<void const*>(&v), num_base::num_type(4));
        else {
            C const c = C(v);
            return put_text(&c, 1);
        }
    }

    // The wide stream takes a narrow character or text too, each byte
    // widened as its unsigned value (ISO-8859-1), so `wcout << "text"`
    // writes the text rather than the pointer.
    template <class T, std::enable_if_t<wide_extra<T>, int> = 0>
    basic_ostream& operator<<(T v) {
        if constexpr (std::is_same_v<T, char>) {
            C const c = C(static_cast<unsigned char>(v));
            return put_text(&c, 1);
        } else {
            return put_narrow(v);
        }
    }

    // --- numbers, booleans and pointers: through the writer facet ---
    basic_ostream& operator<<(short v) { return do_put(&v, num_base::num_type(3)); }
    basic_ostream& operator<<(int v) { return do_put(&v, num_base::num_type(5)); }
    basic_ostream& operator<<(unsigned int v) { return do_put(&v, num_base::num_type(6)); }
    basic_ostream& operator<<(long v) { return do_put(&v, num_base::num_type(7)); }
    basic_ostream& operator<<(unsigned long v) { return do_put(&v, num_base::num_type(8)); }
    basic_ostream& operator<<(long long v) { return do_put(&v, num_base::num_type(9)); }
    basic_ostream& operator<<(unsigned long long v) { return do_put(&v, num_base::num_type(10)); }
    basic_ostream& operator<<(float v) { return do_put(&v, num_base::num_type(11)); }
    basic_ostream& operator<<(double v) { return do_put(&v, num_base::num_type(12)); }
    basic_ostream& operator<<(long double v) { return do_put(&v, num_base::num_type(13)); }
    basic_ostream& operator<<(bool v) { return do_put(&v, num_base::num_type(14)); }
    basic_ostream& operator<<(void const* v) { return do_put(&v, num_base::num_type(15)); }

    // Copies every character of `from` (failbit when it is null or gave
    // nothing).
    basic_ostream& operator<<(streambuf_type* from) { return do_write(from); }

    basic_ostream& operator<<(basic_ostream& (*f)(basic_ostream&)) { return f(*this); }
    basic_ostream& operator<<(ios_type& (*f)(ios_type&)) {
        f(*this);
        return *this;
    }
    basic_ostream& operator<<(ios_base& (*f)(ios_base&)) {
        f(*this);
        return *this;
    }
    template <class T>
    basic_ostream& operator<<(ios_manipulator<T> const& m) {
        m.action(*this, m.value);
        return *this;
    }

    // --- unformatted: no fill, the width is left as it is ---
    // n copies of c.
    basic_ostream& put(C c, long n = 1) { return do_write(c, n); }
    basic_ostream& write(C const* s, long n) { return do_write(s, n); }
    basic_ostream& write(string_type const& s) { return do_write(s.data(), long(s.size())); }
    basic_ostream& flush() {
        do_flush();
        return *this;
    }
    bool opfx() { return do_opfx(); }
    void osfx() { do_osfx(); }

    // Seeking moves the buffer's output position; a failed seek changes no
    // state. tellp is -1 on a failed stream or one without a buffer.
    basic_ostream& seekp(pos_type pos);
    basic_ostream& seekp(long off, ios_base::seekdir dir);
    pos_type tellp();

protected:
    bool do_opfx();
    void do_osfx();
    void do_flush();
    // Text with fill to the width; n -1 takes the text's length (see the
    // file comment for the wide form's other n).
    basic_ostream& do_put(C const* s, long n);
    basic_ostream& do_put(string_type const& s);
    // A number, boolean or pointer of the given type code.
    basic_ostream& do_put(void const* value, num_base::num_type code);
    basic_ostream& do_write(C c, long n);
    basic_ostream& do_write(C const* s, long n);
    basic_ostream& do_write(streambuf_type* from);

private:
    basic_ostream& put_text(C const* s, unsigned long n);
    basic_ostream& put_narrow(char const* s);
    template <class Put>
    basic_ostream& write_run(long n, Put put);
    void finish();
};

ZEL_EXTERN_TEMPLATE(basic_ostream<char>);
ZEL_EXTERN_TEMPLATE(basic_ostream<unsigned short>);

using ostream = basic_ostream<char>;
using wostream = basic_ostream<unsigned short>;

// Writes a newline and flushes.
template <class C>
basic_ostream<C>& endl(basic_ostream<C>& os) {
    os.put(C('\n'), 1);
    return os.flush();
}
// Writes a NUL character and flushes (it flushes on purpose).
template <class C>
basic_ostream<C>& ends(basic_ostream<C>& os) {
    os.put(C(0), 1);
    return os.flush();
}
template <class C>
basic_ostream<C>& flush(basic_ostream<C>& os) {
    return os.flush();
}

} // namespace zel

#endif
