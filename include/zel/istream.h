// Formatted input: basic_istream over `char` and the 16-bit `unsigned
// short`, basic_iostream, the manipulators ws and skipl, and the free
// getline and read_line.
//
// Every extraction runs through a small set of protected virtual operations
// (do_ipfx, do_isfx, do_sync, do_peek, do_putback, the do_get family and
// do_skip), so a derived class can replace any of them. A delimiter is
// either one character or a character class (a ctype_base::mask, with a
// negation flag): a class names the characters that are accepted, and
// reading stops at the first character outside it (with negation, at the
// first one inside it).
//
// State bits, applied through clear() (so the exceptions mask can make
// them throw ios_base::failure):
//   failbit  the prefix step failed (any state bit, eofbit included, or no
//            buffer); nothing was extracted; a line did not fit (getline);
//            a failed sync; a number the reader refused;
//   eofbit   the input ended;
//   badbit   a failed putback; a null target buffer.
//
// Deriving: basic_ios is a virtual base, built by the most derived class,
// so a class derived from a stream names basic_ios<C>(buffer) in its own
// constructor. The string and file streams point it at their own buffer in
// every case, so a class derived from them may pass null there.
//
// Choices where the behaviour was open:
//   - A number that reaches the end of input is stored and sets eofbit
//     without failbit ("12" then end: 12, eofbit), so `while (in >> x)`
//     sees every value; input that ends before a number is complete ("-",
//     "1e", "0x") sets failbit and eofbit and leaves the target as it was.
//     Either way the next extraction fails, since eofbit fails the prefix.
//   - ws at end of input sets eofbit but not failbit, as do eat() and
//     ignore() there: the stream still tests true, and the next extraction
//     fails.
//
// Kept behaviours worth knowing:
//   - a stream in eofbit alone cannot put back or peek (the prefix step
//     fails on any state bit); clear() it first;
//   - get(array, n, ...) and getline(array, n, ...) always store a NUL, also
//     for n of 0 or 1, so the array must hold at least one character;
//     operator>>(C*) without a width has no limit at all: set a width;
//   - the prefix step's white-space skip does not set eofbit when the input
//     ends there; the extraction that follows does.
#ifndef ZEL_ISTREAM_H
#define ZEL_ISTREAM_H

#include <cstdint>
#include <type_traits>

#include <zel/bufiter.h>
#include <zel/config.h>
#include <zel/ios.h>
#include <zel/locale.h>
#include <zel/ostream.h>
#include <zel/streambuf.h>
#include <zel/string.h>

namespace zel {

template <class C>
class ZEL_API basic_istream : virtual public basic_ios<C> {
    using ios_type = basic_ios<C>;
    // The narrow stream's extra forms (see the extractor below).
    template <class T>
    static constexpr bool narrow_extra = narrow_extra_form<C, T>;

public:
    using char_type = C;
    using streambuf_type = basic_streambuf<C>;
    using string_type = string_base<C>;
    using mask = typename ctype_base::mask;
    using iterator_type = typename ios_iterators<C>::input;
    using pos_type = std::int64_t;

    // End of file for this character type: -1 for `char`, 0xFFFF wide.
    static constexpr int end_of_file = buffer_eof<C>::value;
    // The count that means "no limit" to ignore and the skips.
    static constexpr long no_limit = 0x7FFFFFFF;

    explicit basic_istream(streambuf_type* buffer);
    // For storage that already holds a constructed stream (see ostream.h).
    explicit basic_istream(zel_no_init const& n);
    basic_istream(basic_istream const& other);
    basic_istream& operator=(basic_istream const& other);
    ~basic_istream() override;

    // Characters taken by the last extraction (a consumed delimiter counts)
    // and the last character looked at (or end_of_file).
    long gcount() const noexcept { return gcount_; }
    int glast() const noexcept { return glast_; }

    // --- characters and words ---
    // One character, after skipping white space when skipws is set.
    basic_istream& operator>>(C& c) {
        do_get(c, false);
        return *this;
    }
    // A word: up to white space, at most width() - 1 characters when a
    // width is set (the width is then 0), NUL-terminated.
    basic_istream& operator>>(C* s) {
        do_get(s);
        return *this;
    }
    basic_istream& operator>>(string_type& s) {
        do_get(s);
        return *this;
    }
    // The narrow stream's signed and unsigned char forms and its `unsigned
    // short` number; on the wide stream `unsigned short` is the character.
    template <class T, std::enable_if_t<narrow_extra<T>, int> = 0>
    basic_istream& operator>>(T& v) {
        if constexpr (std::is_pointer_v<T>)
            do_get(reinterpret_cast<C*>(v));
        else if constexpr (std::is_same_v<T, unsigned short>)
            do_get(static_cast<void*>(&v), num_base::num_type(4));
        else
            do_get(reinterpret_cast<C&>(v), false);
        return *this;
    }

    // --- numbers, booleans and pointers: through the reader facet ---
    basic_istream& operator>>(short& v) { return number(&v, 3); }
    basic_istream& operator>>(int& v) { return number(&v, 5); }
    basic_istream& operator>>(unsigned int& v) { return number(&v, 6); }
    basic_istream& operator>>(long& v) { return number(&v, 7); }
    basic_istream& operator>>(unsigned long& v) { return number(&v, 8); }
    basic_istream& operator>>(long long& v) { return number(&v, 9); }
    basic_istream& operator>>(unsigned long long& v) { return number(&v, 10); }
    basic_istream& operator>>(float& v) { return number(&v, 11); }
    basic_istream& operator>>(double& v) { return number(&v, 12); }
    basic_istream& operator>>(long double& v) { return number(&v, 13); }
    basic_istream& operator>>(bool& v) { return number(&v, 14); }
    basic_istream& operator>>(void*& v) { return number(&v, 15); }

    // Copies everything up to end of input into `to` (badbit when null).
    basic_istream& operator>>(streambuf_type* to) {
        do_get(to, end_of_file);
        return *this;
    }

    basic_istream& operator>>(basic_istream& (*f)(basic_istream&)) { return f(*this); }
    basic_istream& operator>>(ios_type& (*f)(ios_type&)) {
        f(*this);
        return *this;
    }
    basic_istream& operator>>(ios_base& (*f)(ios_base&)) {
        f(*this);
        return *this;
    }
    template <class T>
    basic_istream& operator>>(ios_manipulator<T> const& m) {
        m.action(*this, m.value);
        return *this;
    }

    // --- unformatted ---
    // One character, white space included.
    basic_istream& get(C& c) {
        do_get(c, true);
        return *this;
    }
    // The next character, or end_of_file.
    int get() {
        C c;
        do_get(c, true);
        return glast_;
    }
    // Up to n - 1 characters before the delimiter (left unread) into s,
    // then a NUL; failbit when nothing was stored.
    basic_istream& get(C* s, long n, C d = C('\n')) {
        do_get(s, n, 0, false, to_int(d), mask(0xFF), false);
        return *this;
    }
    basic_istream& get(C* s, long n, mask m, bool negate) {
        do_get(s, n, 1, false, -1, m, negate);
        return *this;
    }
    // As get, but the delimiter is consumed (and counted), and a line that
    // does not fit in n - 1 characters sets failbit.
    basic_istream& getline(C* s, long n, C d = C('\n')) {
        do_get(s, n, 0, true, to_int(d), mask(0xFF), false);
        return *this;
    }
    basic_istream& getline(C* s, long n, mask m, bool negate) {
        do_get(s, n, 1, true, -1, m, negate);
        return *this;
    }
    // The string forms: the string is emptied first; no NUL is stored.
    basic_istream& get(string_type& s, long n, C d = C('\n')) {
        do_get(s, n, 0, false, to_int(d), mask(0xFF), false);
        return *this;
    }
    basic_istream& get(string_type& s, long n, mask m, bool negate) {
        do_get(s, n, 1, false, -1, m, negate);
        return *this;
    }
    basic_istream& getline(string_type& s, long n, C d = C('\n')) {
        do_get(s, n, 0, true, to_int(d), mask(0xFF), false);
        return *this;
    }
    basic_istream& getline(string_type& s, long n, mask m, bool negate) {
        do_get(s, n, 1, true, -1, m, negate);
        return *this;
    }
    // Copies into `to` up to the delimiter, which stays unread.
    basic_istream& get(streambuf_type& to, C d = C('\n')) {
        do_get(&to, to_int(d));
        return *this;
    }
    // n characters (fewer at end of input: eofbit, and failbit when none);
    // no NUL.
    basic_istream& read(C* s, long n) {
        do_get(s, n);
        return *this;
    }
    // What the buffer holds ready, at most n; returns the count read.
    long readsome(C* s, long n);
    // Skips n characters (no_limit: no limit) or through the delimiter,
    // which is consumed. For `char`, a negative d other than -1 is taken as
    // the char it came from, so ignore(n, '\xe9') works.
    basic_istream& ignore(long n = 1, int d = end_of_file) {
        do_skip(n, 0, true, delim_of(d), mask(0xFF), false);
        return *this;
    }
    // Skips through the first character outside the class (inside it with
    // negate), consuming it.
    basic_istream& ignore(long n, mask m, bool negate) {
        do_skip(n, 1, true, -1, m, negate);
        return *this;
    }
    // Skips up to, not including, the next d.
    basic_istream& eat(C d) {
        do_skip(no_limit, 0, false, to_int(d), mask(0xFF), false);
        return *this;
    }
    // Skips the characters of the class (outside it with negate).
    basic_istream& eat(mask m, bool negate = false) {
        do_skip(no_limit, 1, false, -1, m, negate);
        return *this;
    }
    int peek() { return do_peek(); }
    basic_istream& putback(C c) {
        do_putback(to_int(c));
        return *this;
    }
    basic_istream& unget() {
        do_putback(end_of_file);
        return *this;
    }
    int sync() { return do_sync(); }
    bool ipfx(bool noskip = false) { return do_ipfx(noskip); }
    void isfx() { do_isfx(); }

    // Seeking clears eofbit first, so a stream that reached the end can be
    // rewound; a failed seek sets failbit. Nothing happens on a stream in
    // badbit or failbit; tellg answers -1 there.
    basic_istream& seekg(pos_type pos);
    basic_istream& seekg(long off, ios_base::seekdir dir);
    pos_type tellg();

protected:
    virtual bool do_ipfx(bool noskip);
    virtual void do_isfx();
    virtual int do_sync();
    virtual int do_peek();
    virtual void do_putback(int c);
    virtual void do_get(string_type& s, long n, int by_class, bool take_delim, int delim, mask m,
                        bool negate);
    virtual void do_get(C* s, long n, int by_class, bool take_delim, int delim, mask m,
                        bool negate);
    virtual void do_get(C* s, long n);
    virtual void do_get(void* p, num_base::num_type t);
    virtual void do_get(string_type& s);
    virtual void do_get(C* s);
    virtual void do_get(C& c, bool noskip);
    virtual void do_get(streambuf_type* to, int delim);
    virtual void do_skip(long n, int by_class, bool take_delim, int delim, mask m, bool negate);

    // For derived classes that replace an operation: the two fields.
    void set_gcount(long n) noexcept { gcount_ = n; }
    void set_glast(int c) noexcept { glast_ = c; }
    static constexpr int to_int(C c) noexcept {
        return int(static_cast<std::make_unsigned_t<C>>(c));
    }
    bool is_delimiter(int by_class, int c, int delim, mask m, bool negate) const {
        if (by_class == 0)
            return c == delim;
        return !this->is_ctype(m, C(c), negate);
    }

private:
    basic_istream& number(void* p, int code) {
        do_get(p, num_base::num_type(code));
        return *this;
    }
    static int delim_of(int d) noexcept {
        if constexpr (std::is_same_v<C, char>)
            return d < -1 && d >= -128 ? d & 0xFF : d;
        else
            return d;
    }
    template <class Sink>
    void read_field(Sink& sink, long n, int by_class, bool take_delim, int delim, mask m,
                    bool negate);

    long gcount_;
    int glast_;
};

ZEL_EXTERN_TEMPLATE(basic_istream<char>);
ZEL_EXTERN_TEMPLATE(basic_istream<unsigned short>);

using istream = basic_istream<char>;
using wistream = basic_istream<unsigned short>;

// Input and output over one basic_ios (one buffer, one state).
template <class C>
class ZEL_API basic_iostream : public basic_istream<C>, public basic_ostream<C> {
public:
    explicit basic_iostream(basic_streambuf<C>* buffer);
    explicit basic_iostream(zel_no_init const& n);
    ~basic_iostream() override;
};

ZEL_EXTERN_TEMPLATE(basic_iostream<char>);
ZEL_EXTERN_TEMPLATE(basic_iostream<unsigned short>);

using iostream = basic_iostream<char>;
using wiostream = basic_iostream<unsigned short>;

// Skips white space (the space class). At end of input it sets eofbit, not
// failbit.
template <class C>
basic_istream<C>& ws(basic_istream<C>& is) {
    return is.eat(ctype_base::mask(0x20), false);
}
// Skips the rest of the line and its newline.
template <class C>
basic_istream<C>& skipl(basic_istream<C>& is) {
    return is.ignore(basic_istream<C>::no_limit, int('\n'));
}

// Reads a line (without its newline or other delimiter) into s, of any
// length. An empty last line at end of input is failbit, as for getline
// into an array.
template <class C>
basic_istream<C>& getline(basic_istream<C>& is, string_base<C>& s,
                          typename std::common_type<C>::type delim = C('\n')) {
    return is.getline(s, basic_istream<C>::no_limit, delim);
}
// As getline, and answers whether a line was read.
template <class C>
bool read_line(basic_istream<C>& is, string_base<C>& s,
               typename std::common_type<C>::type delim = C('\n')) {
    return bool(is.getline(s, basic_istream<C>::no_limit, delim));
}

} // namespace zel

#endif
