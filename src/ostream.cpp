// basic_ostream over `char` and `unsigned short`: the prefix and suffix
// steps, text with fill, numbers through the writer facet, unformatted
// writes and the copy of a whole buffer. Every failure becomes state bits
// applied through clear(), which throws ios_base::failure when the
// exceptions mask asks; nothing here raises through the error path.
#include <zel/ostream.h>

namespace zel {

template <class C>
basic_ostream<C>::basic_ostream(streambuf_type* buffer) : ios_type(buffer) {}

template <class C>
basic_ostream<C>::basic_ostream(zel_no_init const& n) : ios_type(n) {}

template <class C>
basic_ostream<C>::basic_ostream(basic_ostream const& other) : ios_type(other) {}

template <class C>
basic_ostream<C>& basic_ostream<C>::operator=(basic_ostream const& other) {
    ios_type::operator=(other);
    return *this;
}

template <class C>
basic_ostream<C>::~basic_ostream() = default;

template <class C>
bool basic_ostream<C>::do_opfx() {
    if (this->fail())
        return false;
    if (basic_ostream* t = this->tie())
        t->do_flush();
    return true;
}

template <class C>
void basic_ostream<C>::do_osfx() {
    if (this->flags() & ios_base::unitbuf)
        do_flush();
}

// The ending every output operation shares.
template <class C>
void basic_ostream<C>::finish() {
    if (!this->fail())
        do_osfx();
}

template <class C>
void basic_ostream<C>::do_flush() {
    if (this->fail())
        return;
    // A stream without a buffer has badbit unless a caller cleared it; it
    // has nothing to flush either way.
    streambuf_type* b = this->rdbuf();
    if (!b || b->pubsync() == -1)
        this->add_state(ios_base::badbit);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::put_text(C const* s, unsigned long n) {
    unsigned long const w = static_cast<unsigned long>(this->width());
    long const pad = w > n ? long(w - n) : 0;
    bool const on_left = (this->flags() & ios_base::left) != 0;
    if (this->rdstate() == 0 && pad > 0 && !on_left)
        do_write(this->fill(), pad);
    if (this->rdstate() == 0 && n > 0)
        do_write(s, long(n));
    if (this->rdstate() == 0 && pad > 0 && on_left)
        do_write(this->fill(), pad);
    this->reset_width();
    return *this;
}

template <class C>
basic_ostream<C>& basic_ostream<C>::put_narrow(char const* s) {
    if (!s)
        return put_text(nullptr, 0);
    // Widened in pieces on the stack when short, else in one string.
    unsigned long const n = char_traits<char>::length(s);
    C local[64];
    if (n <= 64) {
        for (unsigned long i = 0; i < n; ++i)
            local[i] = C(static_cast<unsigned char>(s[i]));
        return put_text(local, n);
    }
    typename stringbuf_string<C>::type wide;
    for (unsigned long i = 0; i < n; ++i)
        wide += C(static_cast<unsigned char>(s[i]));
    return put_text(wide.data(), wide.size());
}

template <class C>
basic_ostream<C>& basic_ostream<C>::do_put(C const* s, long n) {
    unsigned long length = 0;
    if (s) {
        if (n == -1)
            length = char_traits<C>::length(s);
        else if constexpr (std::is_same_v<C, char>)
            length = n > 0 ? static_cast<unsigned long>(n) : 0;
        // The wide form keeps a length of 0 for every other n.
    }
    return put_text(s, length);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::do_put(string_type const& s) {
    return put_text(s.data(), s.size());
}

template <class C>
basic_ostream<C>& basic_ostream<C>::do_put(void const* value, num_base::num_type code) {
    if (!do_opfx())
        return *this;
    long err = 0;
    try {
        iterator_type it(this->rdbuf());
        it = this->writer()->put(it, *this, this->fill(), code, value);
        if (it.failed())
            err |= ios_base::badbit;
    } catch (...) {
        err |= ios_base::failbit;
    }
    this->reset_width();
    this->add_state(err);
    finish();
    return *this;
}

// The two runs of do_write: `put` hands the n characters to the buffer and
// answers how many it took.
template <class C>
template <class Put>
basic_ostream<C>& basic_ostream<C>::write_run(long n, Put put) {
    if (!do_opfx())
        return *this;
    long err = 0;
    try {
        if (put(this->rdbuf()) < n)
            err |= ios_base::badbit;
    } catch (...) {
        err |= ios_base::failbit;
    }
    this->add_state(err);
    finish();
    return *this;
}

template <class C>
basic_ostream<C>& basic_ostream<C>::do_write(C c, long n) {
    return write_run(n, [c, n](streambuf_type* b) { return b->sputn(c, n); });
}

template <class C>
basic_ostream<C>& basic_ostream<C>::do_write(C const* s, long n) {
    return write_run(n, [s, n](streambuf_type* b) { return b->put_in_place(s, n) ? n : b->sputn(s, n); });
}

template <class C>
basic_ostream<C>& basic_ostream<C>::do_write(streambuf_type* from) {
    if (!do_opfx())
        return *this;
    long err = 0;
    if (!from) {
        err |= ios_base::failbit;
    } else {
        streambuf_type* to = this->rdbuf();
        int const eof = streambuf_type::eof();
        long copied = 0;
        for (;;) {
            int c;
            try {
                c = from->sbumpc();
            } catch (...) {
                // The source's failure is the caller's to see.
                this->add_state(ios_base::failbit);
                throw;
            }
            if (c == eof)
                break;
            int r;
            try {
                r = to->sputc(C(c));
            } catch (...) {
                err |= ios_base::failbit;  // the character is lost
                continue;
            }
            if (r == eof)
                break;
            ++copied;
        }
        if (copied == 0)
            err |= ios_base::failbit;
    }
    this->add_state(err);
    finish();
    return *this;
}

template <class C>
basic_ostream<C>& basic_ostream<C>::seekp(pos_type pos) {
    if (!this->fail() && this->rdbuf())
        this->rdbuf()->pubseekpos(pos, ios_base::out);
    return *this;
}

template <class C>
basic_ostream<C>& basic_ostream<C>::seekp(long off, ios_base::seekdir dir) {
    if (!this->fail() && this->rdbuf())
        this->rdbuf()->pubseekoff(off, dir, ios_base::out);
    return *this;
}

template <class C>
typename basic_ostream<C>::pos_type basic_ostream<C>::tellp() {
    if (this->fail() || !this->rdbuf())
        return -1;
    return this->rdbuf()->pubseekoff(0, ios_base::cur, ios_base::out);
}

template class basic_ostream<char>;
template class basic_ostream<unsigned short>;

} // namespace zel
