// basic_filebuf and xfopen: a stream buffer over a C FILE that moves one
// character at a time through xgetc/xputc/xungetc with the descriptors of
// the locale's codecvt facets (the narrow buffer writes its held run with
// one fwrite). The 32-character array is only a staging area; the C stream
// does the real buffering.
//
// Staging (see streambuf.h): the first character written opens the put
// area and is held in it; a write that meets a full area sends the 32 held
// characters and itself to the C stream and flushes it. A read first hands
// pending output over, and a write first gives the unread character back.
#include <zel/streambuf.h>

#include <climits>

namespace zel {

// --- xfopen --------------------------------------------------------------------

namespace {

// Indexed by the mode without ate: each of app, binary, in, out, trunc
// (values 1, 4, 8, 16, 32) gives one bit of the index.
char const* mode_string(long mode) noexcept {
    constexpr long app = ios_base::app, bin = ios_base::binary, in = ios_base::in,
                   out = ios_base::out, trunc = ios_base::trunc;
    switch (mode) {
    case in: return "r";
    case in | bin: return "rb";
    case out: return "w";
    case out | app: return "a";
    case out | bin: return "wb";
    case out | app | bin: return "ab";
    case in | out: return "r+";
    case in | out | bin: return "r+b";
    case out | trunc: return "w";
    case out | trunc | bin: return "wb";
    case in | out | trunc: return "w+";
    case in | out | trunc | bin: return "w+b";
    default: return nullptr;  // every ate mode, in|out|app, ...
    }
}

} // namespace

std::FILE* xfopen(char const* name, long mode) {
    char const* m = mode_string(mode);
    if (!name || !m)
        return nullptr;
    std::FILE* f = std::fopen(name, m);
    if (!f)
        return nullptr;
    // No mode string above holds ate, so this never runs; kept all the same.
    if ((mode & ios_base::ate) && std::fseek(f, 0, SEEK_END) != 0) {
        (void)std::fclose(f);
        return nullptr;
    }
    return f;
}

// --- basic_filebuf ---------------------------------------------------------------

template <class C>
basic_filebuf<C>::basic_filebuf() : base() {
    initbuf(nullptr, true);
    initloc(this->getloc());
}

template <class C>
basic_filebuf<C>::basic_filebuf(std::FILE* f, bool owns) : base() {
    initbuf(f, owns);
    initloc(this->getloc());
}

// Only the locale is built; the rest stays as the storage holds it.
template <class C>
basic_filebuf<C>::basic_filebuf(zel_no_init const& tag) : base(tag) {}

template <class C>
basic_filebuf<C>::~basic_filebuf() {
    close();
}

template <class C>
void basic_filebuf<C>::initbuf(std::FILE* f, bool owns) noexcept {
    file_ = f;
    owns_ = owns;
    this->setg(stage_, stage_, stage_);
    this->setp(stage_, stage_);
}

template <class C>
void basic_filebuf<C>::initloc(locale const& loc) {
    if constexpr (sizeof(C) == 1) {
        in_ldx_ = out_ldx_ = use_facet<codecvt<char, char, int>>(loc).facet_ldx();
    } else {
        in_ldx_ = use_facet<codecvt<char, unsigned short, int>>(loc).facet_ldx();
        out_ldx_ = use_facet<codecvt<unsigned short, char, int>>(loc).facet_ldx();
    }
}

template <class C>
basic_filebuf<C>* basic_filebuf<C>::open(char const* name, long mode) {
    if (file_)
        return nullptr;
    std::FILE* f = xfopen(name, mode);
    if (!f)
        return nullptr;
    initbuf(f, true);
    return this;
}

template <class C>
basic_filebuf<C>* basic_filebuf<C>::close() {
    if (!owns_ || !file_)
        return nullptr;
    bool failed = false;
    if (this->pptr() - this->pbase() >= 1 && syncout(base::eof()) == base::eof())
        failed = true;
    std::clearerr(file_);
    if (std::fclose(file_) != 0)
        failed = true;
    initbuf(nullptr, true);
    return failed ? nullptr : this;
}

template <class C>
void basic_filebuf<C>::imbue(locale const& loc) {
    initloc(loc);
    base::imbue(loc);
}

template <class C>
basic_streambuf<C>* basic_filebuf<C>::setbuf(C* p, long n) {
    if (!file_)
        return nullptr;
    // The C stream's own buffer is bytes; p names n characters of storage.
    std::size_t const bytes = p ? std::size_t(n < 0 ? 0 : n) * sizeof(C) : std::size_t(n < 0 ? 0 : n);
    return std::setvbuf(file_, reinterpret_cast<char*>(p), _IOFBF, bytes) == 0 ? this : nullptr;
}

template <class C>
int basic_filebuf<C>::syncout(int c) {
    bool ok = true;
    if constexpr (sizeof(C) == 1) {
        // xputc of a `char` is fputc with no conversion: the held run goes
        // to the C stream in one fwrite, which stops where fputc would fail.
        std::size_t const n = std::size_t(this->pptr() - this->pbase());
        ok = n == 0 || std::fwrite(this->pbase(), 1, n, file_) == n;
    } else {
        for (C* p = this->pbase(); p < this->pptr(); ++p) {
            if (!xputc(*p, file_, out_ldx_)) {
                ok = false;
                break;
            }
        }
    }
    if (ok && c != base::eof())
        ok = xputc(base::to_char(c), file_, out_ldx_);
    this->setg(stage_, stage_, stage_);
    this->setp(stage_, stage_);
    if (!ok)
        return base::eof();
    return std::fflush(file_) == EOF ? base::eof() : 0;
}

template <class C>
int basic_filebuf<C>::syncin() {
    long const n = this->gptr() < this->egptr() ? long(this->egptr() - this->gptr()) : this->showmanyc();
    bool ok = true;
    for (long i = 1; i <= n; ++i) {
        if (!xungetc(this->egptr()[-i], file_, out_ldx_)) {
            ok = false;
            break;
        }
    }
    this->setg(stage_, stage_, stage_);
    this->setp(stage_, stage_);
    if (!ok)
        return base::eof();
    return std::fseek(file_, 0, SEEK_CUR) == -1 ? base::eof() : 0;
}

template <class C>
int basic_filebuf<C>::underflow() {
    if (this->gptr() < this->egptr())
        return base::to_int(*this->gptr());
    // Without a file there is nothing to read (the C routines need one).
    if (!file_)
        return base::eof();
    if (this->pptr() > this->pbase() && syncout(base::eof()) == base::eof())
        return base::eof();
    C ch;
    if (!xgetc(ch, file_, in_ldx_))
        return base::eof();
    // The put area closes (it may be open and empty after a flush), so the
    // next write meets overflow, which gives this character back first.
    stage_[0] = ch;
    this->setg(stage_, stage_, stage_ + 1);
    this->setp(stage_, stage_);
    return base::to_int(ch);
}

template <class C>
int basic_filebuf<C>::overflow(int c) {
    if (!file_)
        return base::eof();
    // Unread input goes back first. After any reading the C stream is
    // repositioned too (syncin ends with a seek), which C requires between
    // input and output on one stream.
    if (this->egptr() > this->eback() && syncin() == base::eof())
        return base::eof();
    int r = 0;
    if (this->epptr() > this->pbase() || c == base::eof()) {
        // A full area (or an explicit flush): the held characters, then c.
        r = syncout(c);
        this->setp(stage_, stage_ + staging_size);
    } else {
        // The first character of output opens the area and is held in it.
        this->setp(stage_, stage_ + staging_size);
        *this->pptr() = base::to_char(c);
        this->pbump(1);
    }
    return r == base::eof() || std::ferror(file_) ? base::eof() : 0;
}

template <class C>
int basic_filebuf<C>::pbackfail(int c) {
    if (!file_ || c == base::eof())
        return base::eof();
    if (this->eback() < this->gptr() && base::to_int(this->gptr()[-1]) == c) {
        this->gbump(-1);
        return c;
    }
    return xungetc(base::to_char(c), file_, out_ldx_) ? c : base::eof();
}

template <class C>
int basic_filebuf<C>::sync() {
    if (!file_)
        return -1;
    int r = 0;
    if (this->pptr() > this->pbase())
        r = syncout(base::eof());
    else if (this->gptr() < this->egptr())
        r = syncin();
    return r == base::eof() ? -1 : 0;
}

// Positions are byte offsets from the start of the C stream.
template <class C>
streampos basic_filebuf<C>::seekoff(long off, ios_base::seekdir dir, long) {
    if (sync() != 0 || std::fseek(file_, off, int(dir)) != 0)
        return -1;
    return streampos(std::ftell(file_));
}

template <class C>
streampos basic_filebuf<C>::seekpos(streampos pos, long) {
    if (sync() != 0 || pos < 0 || pos > streampos(LONG_MAX) || std::fseek(file_, long(pos), SEEK_SET) != 0)
        return -1;
    return pos;
}

template class basic_filebuf<char>;
template class basic_filebuf<unsigned short>;

} // namespace zel
