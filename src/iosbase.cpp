// ios_base and basic_ios: format flags with their group rules, radix, width
// and precision clamps, the state and its exceptions mask, the private words
// behind iword/pword, format copies, and the manipulators.
//
// The state check throws ios_base::failure directly (no location); only the
// private-word index check goes through the library's error path, with the
// lines its reports have always named.
#include <zel/ios.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include <zel/exception.h>
#include <zel/streambuf.h>

namespace zel {

ios_base::failure::~failure() = default;

int ios_base::index_ = 0;

namespace {

// The failure texts, by exceptions mask: the prefix, the words of the bits
// in the mask (bad, eof, fail in that order) and the closing bracket. The
// texts are borrowed by the exception, so they are static.
char const* const failure_texts[8] = {
    "ios_base failure bit(s) set ]",  // never used: mask 0 never throws
    "ios_base failure bit(s) set [bad]",
    "ios_base failure bit(s) set [eof]",
    "ios_base failure bit(s) set [bad eof]",
    "ios_base failure bit(s) set [fail]",
    "ios_base failure bit(s) set [bad fail]",
    "ios_base failure bit(s) set [eof fail]",
    "ios_base failure bit(s) set [bad eof fail]",
};

} // namespace

ios_base::ios_base()
    : words_(nullptr), nwords_(0), loc_(), flags_(dec | skipws), state_(goodbit), except_(goodbit),
      width_(0), precision_(6) {}

ios_base::ios_base(ios_base const& other)
    : words_(nullptr), nwords_(0), loc_(other.loc_), flags_(dec | skipws), state_(goodbit),
      except_(goodbit), width_(0), precision_(6) {
    copyfmt(other);
}

// Only the locale is built; the rest of the storage stays as it is.
ios_base::ios_base(zel_no_init const& tag) : loc_(tag) {}

ios_base::~ios_base() { free_data(); }

ios_base& ios_base::operator=(ios_base const& other) {
    if (this != &other) {
        state_ = other.state_;
        copyfmt(other);
    }
    return *this;
}

long ios_base::setf(long set, long clear) noexcept {
    long const old = flags_;
    long groups = 0;
    if (set & adjustfield)
        groups |= (set & right) ? right : (set & left) ? left : internal;
    if (set & floatfield)
        groups |= (set & scientific) ? scientific : fixed;
    if (set & radixfield)
        groups |= (set & dec) ? dec : (set & hex) ? hex : (set & oct) ? oct : bin;
    flags_ &= ~clear;
    flags_ |= ((set & independent) | groups) & 0xFFFF;
    return old;
}

int ios_base::radix(int r) noexcept {
    int const old = radix();
    long const kept = flags_ & radixfield;
    flags_ &= ~radixfield;
    switch (r) {
    case 0: break;
    case 2: flags_ |= bin; break;
    case 8: flags_ |= oct; break;
    case 10: flags_ |= dec; break;
    case 16: flags_ |= hex; break;
    default: flags_ |= kept; break;
    }
    return old;
}

long ios_base::width(long w) noexcept {
    long const old = width_;
    width_ = std::uint16_t(w < 0 ? 0 : w > 65535 ? 65535 : w);
    return old;
}

long ios_base::precision(long p) noexcept {
    long const old = precision_;
    precision_ = std::uint16_t(p < 0 ? 0 : p > 53 ? 53 : p);
    return old;
}

void ios_base::clear(long s) {
    state_ = s & 7;
    if ((state_ & except_) == 0)
        return;
    // A plain throw: nothing is reported, the state stays set.
    throw failure(failure_texts[except_ & 7], nullptr, -1);
}

void ios_base::exceptions(long m) {
    except_ = m & 7;
    clear(state_);
}

locale ios_base::imbue(locale const& loc) {
    locale old(loc_);
    loc_ = loc;
    return old;
}

long& ios_base::iword(unsigned i) {
    if (i >= nwords_)
        ZEL_THROW_AT(failure("invalid index"), 230);
    if (i > nwords_ || !words_)
        expand_data(i);
    return words_[i].word;
}

void*& ios_base::pword(unsigned i) {
    if (i >= nwords_)
        ZEL_THROW_AT(failure("invalid index"), 243);
    if (i > nwords_ || !words_)
        expand_data(i);
    return words_[i].pointer;
}

int ios_base::xalloc() noexcept { return index_++; }

// Kept rule: the new count is (i + 16) & 15, that is i modulo 16. The
// copy takes no more than the new array holds.
void ios_base::expand_data(unsigned i) {
    unsigned const n = (i + 16) & 15;
    word_pair* fresh = n ? new word_pair[n]() : nullptr;
    if (words_) {
        unsigned const keep = nwords_ < n ? nwords_ : n;
        if (keep)
            std::memcpy(fresh, words_, keep * sizeof(word_pair));
        delete[] words_;
    }
    words_ = fresh;
    nwords_ = n;
}

void ios_base::free_data() noexcept {
    delete[] words_;
    words_ = nullptr;
    nwords_ = 0;
}

void ios_base::copy_data(ios_base const& other) {
    free_data();
    if (other.words_ && other.nwords_) {
        words_ = new word_pair[other.nwords_];
        std::memcpy(words_, other.words_, other.nwords_ * sizeof(word_pair));
        nwords_ = other.nwords_;
    }
}

void ios_base::copyfmt(ios_base const& other) {
    if (this == &other)
        return;
    copy_data(other);
    flags_ = other.flags_;
    width_ = other.width_;
    precision_ = other.precision_;
    exceptions(other.except_);
}

// --- basic_ios ------------------------------------------------------------------

template <class C>
basic_ios<C>::basic_ios(streambuf_type* buf)
    : ios_base(), buf_(buf), tie_(nullptr), fill_(C(' ')), classifier_(nullptr), reader_(nullptr),
      writer_(nullptr) {
    init(getloc());
    clear(buf ? rdstate() : rdstate() | badbit);
}

template <class C>
basic_ios<C>::basic_ios(basic_ios const& other)
    : ios_base(), buf_(nullptr), tie_(nullptr), fill_(C(' ')), classifier_(nullptr),
      reader_(nullptr), writer_(nullptr) {
    assign(other);
}

template <class C>
basic_ios<C>::basic_ios(zel_no_init const& tag) : ios_base(tag) {}

template <class C>
basic_ios<C>::~basic_ios() = default;

template <class C>
basic_ios<C>& basic_ios<C>::operator=(basic_ios const& other) {
    assign(other);
    return *this;
}

template <class C>
void basic_ios<C>::assign(basic_ios const& other) {
    if (this == &other)
        return;
    ios_base::operator=(other);
    buf_ = other.buf_;
    tie_ = other.tie_;
    fill_ = other.fill_;
    classifier_ = other.classifier_;
    reader_ = other.reader_;
    writer_ = other.writer_;
}

template <class C>
typename basic_ios<C>::streambuf_type* basic_ios<C>::rdbuf(streambuf_type* b) {
    streambuf_type* old = buf_;
    buf_ = b;
    clear(b ? goodbit : badbit);
    return old;
}

template <class C>
locale basic_ios<C>::imbue(locale const& loc) {
    init(loc);
    if (buf_)
        buf_->pubimbue(loc);
    return ios_base::imbue(loc);
}

// Kept: applies itself again to the same argument (see the header). The
// volatile store makes every round an observable step, so the recursion is
// what runs, never an assumption of the optimiser.
template <class C>
void basic_ios<C>::copyfmt(basic_ios const& other) {
    if (this == &other)
        return;
    tie_ = other.tie_;
    *static_cast<C volatile*>(&fill_) = other.fill_;
    copyfmt(other);
}

template <class C>
void basic_ios<C>::init(locale const& loc) {
    classifier_ = &use_facet<classifier_type>(loc);
    reader_ = &use_facet<reader_type>(loc);
    writer_ = &use_facet<writer_type>(loc);
}

template class basic_ios<char>;
template class basic_ios<unsigned short>;

// --- manipulators -----------------------------------------------------------------

#define ZEL_IOS_MANIPULATOR(name, set, clear) \
    ios_base& name(ios_base& s) {             \
        s.setf((set), (clear));               \
        return s;                             \
    }

ZEL_IOS_MANIPULATOR(right, ios_base::right, ios_base::adjustfield)
ZEL_IOS_MANIPULATOR(left, ios_base::left, ios_base::adjustfield)
ZEL_IOS_MANIPULATOR(internal, ios_base::internal, ios_base::adjustfield)
ZEL_IOS_MANIPULATOR(showbase, ios_base::showbase, 0)
ZEL_IOS_MANIPULATOR(noshowbase, 0, ios_base::showbase)
ZEL_IOS_MANIPULATOR(showpos, ios_base::showpos, 0)
ZEL_IOS_MANIPULATOR(noshowpos, 0, ios_base::showpos)
ZEL_IOS_MANIPULATOR(uppercase, ios_base::uppercase, 0)
ZEL_IOS_MANIPULATOR(nouppercase, 0, ios_base::uppercase)
ZEL_IOS_MANIPULATOR(fixed, ios_base::fixed, ios_base::floatfield)
ZEL_IOS_MANIPULATOR(scientific, ios_base::scientific, ios_base::floatfield)
ZEL_IOS_MANIPULATOR(floating, 0, ios_base::floatfield)
ZEL_IOS_MANIPULATOR(showpoint, ios_base::showpoint, 0)
ZEL_IOS_MANIPULATOR(noshowpoint, 0, ios_base::showpoint)
ZEL_IOS_MANIPULATOR(boolalpha, ios_base::boolalpha, 0)
ZEL_IOS_MANIPULATOR(noboolalpha, 0, ios_base::boolalpha)
ZEL_IOS_MANIPULATOR(skipws, ios_base::skipws, 0)
ZEL_IOS_MANIPULATOR(noskipws, 0, ios_base::skipws)
ZEL_IOS_MANIPULATOR(unitbuf, ios_base::unitbuf, 0)
ZEL_IOS_MANIPULATOR(nounitbuf, 0, ios_base::unitbuf)
ZEL_IOS_MANIPULATOR(bin, ios_base::bin, ios_base::radixfield)
ZEL_IOS_MANIPULATOR(oct, ios_base::oct, ios_base::radixfield)
ZEL_IOS_MANIPULATOR(dec, ios_base::dec, ios_base::radixfield)
ZEL_IOS_MANIPULATOR(hex, ios_base::hex, ios_base::radixfield)

#undef ZEL_IOS_MANIPULATOR

ios_base& any(ios_base& s) {
    s.radix(0);
    return s;
}

namespace {

ios_base& do_setiosflags(ios_base& s, long f) {
    s.setf(f, 0);
    return s;
}
ios_base& do_resetiosflags(ios_base& s, long f) {
    s.setf(0, f);
    return s;
}
ios_base& do_radix(ios_base& s, int r) {
    s.radix(r);
    return s;
}
ios_base& do_precision(ios_base& s, long p) {
    s.precision(p);
    return s;
}
ios_base& do_width(ios_base& s, long w) {
    s.width(w);
    return s;
}

} // namespace

ios_manipulator<long> setiosflags(long f) { return {&do_setiosflags, f}; }
ios_manipulator<long> resetiosflags(long f) { return {&do_resetiosflags, f}; }
ios_manipulator<int> setbase(int r) { return {&do_radix, r}; }
ios_manipulator<int> setradix(int r) { return {&do_radix, r}; }
ios_manipulator<long> setprecision(long p) { return {&do_precision, p}; }
ios_manipulator<long> setw(long w) { return {&do_width, w}; }
ios_manipulator<long> setwidth(long w) { return {&do_width, w}; }

} // namespace zel
