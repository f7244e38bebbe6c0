// basic_istream over `char` and `unsigned short`: the prefix step, the
// field reader behind get, getline and the word extractors, character,
// block and buffer reads, numbers through the reader facet, the skips, and
// basic_iostream. Every outcome is state bits applied once through
// clear() at the end of the operation, after which do_isfx() runs.
#include <zel/istream.h>

#include <typeinfo>

namespace zel {

namespace {

// Where the field reader stores: a character array (NUL-terminated at the
// end) or a string (filled in chunks, to spare the string one call per
// character).
template <class C>
struct array_sink {
    C* s;
    long n = 0;
    void put(C c) noexcept { s[n++] = c; }
    void finish() noexcept { s[n] = C(0); }
};

template <class C>
struct string_sink {
    string_base<C>& s;
    C chunk[128];
    unsigned n = 0;
    explicit string_sink(string_base<C>& str) : s(str) { s.erase(); }
    void put(C c) {
        chunk[n++] = c;
        if (n == 128)
            flush();
    }
    void flush() {
        if (n)
            s.append(chunk, n);
        n = 0;
    }
    void finish() { flush(); }
};

} // namespace

template <class C>
basic_istream<C>::basic_istream(streambuf_type* buffer) : ios_type(buffer), gcount_(0), glast_(end_of_file) {}

template <class C>
basic_istream<C>::basic_istream(zel_no_init const& n) : ios_type(n) {}

template <class C>
basic_istream<C>::basic_istream(basic_istream const& other)
    : ios_type(other), gcount_(0), glast_(end_of_file) {}

template <class C>
basic_istream<C>& basic_istream<C>::operator=(basic_istream const& other) {
    ios_type::operator=(other);
    return *this;
}

template <class C>
basic_istream<C>::~basic_istream() = default;

template <class C>
bool basic_istream<C>::do_ipfx(bool noskip) {
    streambuf_type* b = this->rdbuf();
    long const err = (this->rdstate() != 0 || !b) ? ios_base::failbit : 0;
    gcount_ = 0;
    glast_ = end_of_file;
    if (err == 0) {
        if (basic_ostream<C>* t = this->tie())
            t->flush();
        if (!noskip && (this->flags() & ios_base::skipws)) {
            // End of input ends the skip without eofbit; the extraction
            // that follows meets it again and says so.
            // The library's own ctype answers from its descriptor's class
            // table, so that is read directly (for `char` only codes below
            // 0x80 are in it, by the sign rule); a derived one is asked.
            int c = b->sgetc();
            ctype<C> const* classes = this->classifier();
            if (typeid(*classes) == typeid(ctype<C>)) {
                constexpr unsigned in_table = sizeof(C) == 1 ? 0x80u : 0x100u;
                unsigned char const* table = classes->facet_ldx()->class_table;
                while (c != end_of_file && unsigned(c) < in_table && (table[c] & 0x20) != 0)
                    c = b->snextc();
            } else {
                while (c != end_of_file && this->is_ctype(mask(0x20), C(c), false))
                    c = b->snextc();
            }
        }
    }
    this->add_state(err);
    return this->rdstate() == 0;
}

template <class C>
void basic_istream<C>::do_isfx() {}

template <class C>
int basic_istream<C>::do_sync() {
    streambuf_type* b = this->rdbuf();
    if (!b || b->pubsync() == -1) {
        this->setstate(ios_base::failbit);
        return -1;
    }
    return 0;
}

template <class C>
int basic_istream<C>::do_peek() {
    if (do_ipfx(true)) {
        glast_ = this->rdbuf()->sgetc();
        if (glast_ == end_of_file)
            this->setstate(ios_base::eofbit);
    }
    return glast_;
}

template <class C>
void basic_istream<C>::do_putback(int c) {
    if (!do_ipfx(true))
        return;
    streambuf_type* b = this->rdbuf();
    int const r = c == end_of_file ? b->sungetc() : b->sputbackc(C(c));
    if (r == end_of_file)
        this->setstate(ios_base::badbit);
}

// The line and field reader: stores until a delimiter (consumed and counted
// when take_delim), n - 1 characters (failbit when take_delim: the line did
// not fit) or end of input (eofbit). failbit when nothing was taken.
template <class C>
template <class Sink>
void basic_istream<C>::read_field(Sink& sink, long n, int by_class, bool take_delim, int delim,
                                  mask m, bool negate) {
    long bits = 0;
    if (do_ipfx(true)) {
        streambuf_type* b = this->rdbuf();
        glast_ = b->sgetc();
        for (;;) {
            if (glast_ == end_of_file) {
                bits |= ios_base::eofbit;
                break;
            }
            if (is_delimiter(by_class, glast_, delim, m, negate)) {
                if (take_delim) {
                    b->sbumpc();
                    ++gcount_;
                }
                break;
            }
            if (gcount_ >= n - 1) {
                if (take_delim)
                    bits |= ios_base::failbit;
                break;
            }
            sink.put(C(glast_));
            ++gcount_;
            glast_ = b->snextc();
        }
        if (gcount_ == 0)
            bits |= ios_base::failbit;
    }
    sink.finish();
    this->add_state(bits);
    do_isfx();
}

template <class C>
void basic_istream<C>::do_get(string_type& s, long n, int by_class, bool take_delim, int delim,
                              mask m, bool negate) {
    string_sink<C> sink(s);
    read_field(sink, n, by_class, take_delim, delim, m, negate);
}

template <class C>
void basic_istream<C>::do_get(C* s, long n, int by_class, bool take_delim, int delim, mask m,
                              bool negate) {
    if (!s) {
        this->setstate(ios_base::failbit);
        return;
    }
    array_sink<C> sink{s};
    read_field(sink, n, by_class, take_delim, delim, m, negate);
}

template <class C>
void basic_istream<C>::do_get(C* s, long n) {
    long bits = 0;
    if (do_ipfx(true) && n > 0) {
        streambuf_type* b = this->rdbuf();
        while (gcount_ < n) {
            int const c = b->sbumpc();
            if (c == end_of_file) {
                bits |= ios_base::eofbit;
                break;
            }
            s[gcount_++] = C(c);
            glast_ = c;
        }
        if (gcount_ == 0)
            bits |= ios_base::failbit;
    }
    this->add_state(bits);
    do_isfx();
}

template <class C>
void basic_istream<C>::do_get(void* p, num_base::num_type t) {
    long err = 0;
    if (do_ipfx(false)) {
        iterator_type it(this->rdbuf());
        iterator_type last;
        this->reader()->get(it, last, *this, err, t, p);
    }
    this->reset_width();
    this->add_state(err & 7);
    do_isfx();
}

template <class C>
void basic_istream<C>::do_get(string_type& s) {
    long const n = this->width() != 0 ? this->width() : no_limit;
    // The prefix skips white space; the field reader's own prefix (which
    // does not skip) then finds the same state.
    do_ipfx(false);
    do_get(s, n, 1, false, -1, mask(0x20), true);
    this->reset_width();
}

template <class C>
void basic_istream<C>::do_get(C* s) {
    long const n = this->width() != 0 ? this->width() : no_limit;
    do_ipfx(false);
    do_get(s, n, 1, false, -1, mask(0x20), true);
    this->reset_width();
}

template <class C>
void basic_istream<C>::do_get(C& c, bool noskip) {
    long bits = 0;
    if (do_ipfx(noskip)) {
        glast_ = this->rdbuf()->sbumpc();
        if (glast_ == end_of_file) {
            bits |= ios_base::eofbit | ios_base::failbit;
        } else {
            c = C(glast_);
            gcount_ = 1;
        }
    }
    if (!noskip)
        this->reset_width();
    this->add_state(bits);
    do_isfx();
}

template <class C>
void basic_istream<C>::do_get(streambuf_type* to, int delim) {
    long bits = 0;
    if (do_ipfx(true)) {
        if (!to) {
            bits |= ios_base::badbit;
        } else {
            streambuf_type* b = this->rdbuf();
            glast_ = b->sgetc();
            for (;;) {
                if (glast_ == end_of_file) {
                    bits |= ios_base::eofbit;
                    break;
                }
                // The delimiter, and a character the target refuses, stay
                // unread.
                if (glast_ == delim || to->sputc(C(glast_)) == end_of_file)
                    break;
                ++gcount_;
                glast_ = b->snextc();
            }
            if (gcount_ == 0)
                bits |= ios_base::failbit;
        }
    }
    this->add_state(bits);
    do_isfx();
}

template <class C>
void basic_istream<C>::do_skip(long n, int by_class, bool take_delim, int delim, mask m,
                               bool negate) {
    long bits = 0;
    if (do_ipfx(true)) {
        streambuf_type* b = this->rdbuf();
        glast_ = b->sgetc();
        for (;;) {
            if (n != no_limit && gcount_ >= n)
                break;
            if (glast_ == end_of_file) {
                bits |= ios_base::eofbit;
                break;
            }
            if (is_delimiter(by_class, glast_, delim, m, negate)) {
                if (take_delim) {
                    b->sbumpc();
                    ++gcount_;
                }
                break;
            }
            ++gcount_;
            glast_ = b->snextc();
        }
    }
    this->add_state(bits);
    do_isfx();
}

template <class C>
long basic_istream<C>::readsome(C* s, long n) {
    if (!do_ipfx(true))
        return 0;
    long const a = this->rdbuf()->in_avail();
    if (a < 0) {
        this->setstate(ios_base::eofbit);
        return 0;
    }
    if (a == 0 || n <= 0)
        return 0;
    do_get(s, a < n ? a : n);
    return gcount_;
}

template <class C>
basic_istream<C>& basic_istream<C>::seekg(pos_type pos) {
    if (this->fail() || !this->rdbuf())
        return *this;
    this->clear(this->rdstate() & ~ios_base::eofbit);
    if (this->rdbuf()->pubseekpos(pos, ios_base::in) == -1)
        this->setstate(ios_base::failbit);
    return *this;
}

template <class C>
basic_istream<C>& basic_istream<C>::seekg(long off, ios_base::seekdir dir) {
    if (this->fail() || !this->rdbuf())
        return *this;
    this->clear(this->rdstate() & ~ios_base::eofbit);
    if (this->rdbuf()->pubseekoff(off, dir, ios_base::in) == -1)
        this->setstate(ios_base::failbit);
    return *this;
}

template <class C>
typename basic_istream<C>::pos_type basic_istream<C>::tellg() {
    if (this->fail() || !this->rdbuf())
        return -1;
    return this->rdbuf()->pubseekoff(0, ios_base::cur, ios_base::in);
}

template class basic_istream<char>;
template class basic_istream<unsigned short>;

template <class C>
basic_iostream<C>::basic_iostream(basic_streambuf<C>* buffer)
    : basic_ios<C>(buffer), basic_istream<C>(buffer), basic_ostream<C>(buffer) {}

template <class C>
basic_iostream<C>::basic_iostream(zel_no_init const& n)
    : basic_ios<C>(n), basic_istream<C>(n), basic_ostream<C>(n) {}

template <class C>
basic_iostream<C>::~basic_iostream() = default;

template class basic_iostream<char>;
template class basic_iostream<unsigned short>;

} // namespace zel
