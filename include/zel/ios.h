// Stream state and format: ios_base (flags, radix, width, precision, state,
// exceptions mask, locale and the private words), basic_ios over `char` and
// `unsigned short` (buffer, tie, fill and the three cached facets), the
// manipulators, ios_base::failure and the declaration of ios_base::Init.
//
// Flags, states, masks and open modes are plain `long` bit sets; the flag
// values live in ios_flags (ios_flags.h), which ios_base derives from, so
// `ios_base::hex` is the bit and `zel::hex` the manipulator.
#ifndef ZEL_IOS_H
#define ZEL_IOS_H

#include <cstdint>
#include <type_traits>

#include <zel/bufiter.h>
#include <zel/config.h>
#include <zel/exception.h>
#include <zel/ios_flags.h>
#include <zel/locale.h>

namespace zel {

// zel_no_init, the tag of the no-initialisation constructors, comes with
// locale.h. Such a constructor builds only the locale member and leaves
// every other field as the storage holds it: the standard stream objects
// are built once, in place, by ios_base::Init. Never use it on storage that
// does not already hold a constructed object.

// The visibility goes on these first declarations: Clang takes a class
// template's visibility from its first declaration.
template <class C> class ZEL_API basic_streambuf;
template <class C> class ZEL_API basic_ostream;

class ZEL_API ios_base : public ios_flags {
public:
    // State bits; only these three (mask 7) are ever stored.
    static constexpr long goodbit = 0;
    static constexpr long badbit = 1;
    static constexpr long eofbit = 2;
    static constexpr long failbit = 4;

    // Open modes, for the buffers and the file and string streams.
    static constexpr long app = 1;
    static constexpr long ate = 2;
    static constexpr long binary = 4;
    static constexpr long in = 8;
    static constexpr long out = 16;
    static constexpr long trunc = 32;

    // Seek origins: the C library's fseek origins, passed to it unchanged.
    enum seekdir { beg = 0, cur = 1, end = 2 };

    // The exception the stream classes raise. State changes throw it
    // directly (no location, line -1); iword/pword raise it through the
    // library's error path, so there it arrives as an xexception whose
    // name() is "iostreams failure".
    class ZEL_API failure : public runtime_error {
    public:
        explicit failure(char const* what, char const* file = nullptr, int line = -1) noexcept
            : runtime_error("iostreams failure", what, file, line) {}
        failure(failure const&) noexcept = default;
        failure const& operator=(failure const& other) noexcept {
            runtime_error::operator=(other);
            return *this;
        }
        ~failure() override;
    };

    // Builds the eight standard stream objects once (the first Init of the
    // program does the work) and tears them down with the last. Defined
    // beside the standard objects. An Init holds no state: assignment does
    // nothing, and it is not copied (a copy would unbalance the count).
    class ZEL_API Init {
    public:
        Init();
        Init(Init const&) = delete;
        ~Init();
        Init& operator=(Init const&) noexcept { return *this; }
    };

    // One private word: what iword and pword return references into.
    struct word_pair {
        long word;
        void* pointer;
    };

    ios_base();
    // Locale copied, state 0, then copyfmt (which cannot throw: the state
    // is 0).
    ios_base(ios_base const& other);
    explicit ios_base(zel_no_init const&);
    virtual ~ios_base();
    // State, then copyfmt: throws when the copied mask meets the copied state.
    ios_base& operator=(ios_base const& other);

    long flags() const noexcept { return flags_; }
    // Replaces all 16 stored bits (each group reduced to one bit).
    long flags(long f) noexcept { return setf(f, 0xFFFF); }
    long setf(long f) noexcept { return setf(f, 0); }
    // Clears the bits of `clear` (a mask, not a field selector), then adds
    // `set` with each of its groups reduced to one bit (right before left
    // before internal; scientific before fixed; dec, hex, oct, bin). A group
    // bit already set stays: setf(hex) on a dec stream leaves both set, and
    // radix() still answers 10. Bits above 0xFFFF are dropped.
    long setf(long set, long clear) noexcept;
    long unsetf(long f) noexcept { return setf(0, f); }

    // 10, 16, 8 or 2 from the radix bits (in that order when several are
    // set), 0 for none ("any").
    int radix() const noexcept { return int(radix_of(flags_)); }
    // 0 (any), 2, 8, 10 or 16; any other value leaves the flags unchanged.
    // Returns the old radix().
    int radix(int r) noexcept;

    long width() const noexcept { return width_; }
    // Clamped to 0..65535; returns the old width.
    long width(long w) noexcept;
    long precision() const noexcept { return precision_; }
    // Clamped to 0..53; returns the old precision.
    long precision(long p) noexcept;

    long rdstate() const noexcept { return state_; }
    // Stores s & 7; throws failure when the new state meets the exceptions
    // mask. The message names the bits of the mask (not of the state):
    // "ios_base failure bit(s) set [bad eof fail]" with the words present in
    // the mask. The state stays set when the exception leaves.
    void clear(long s = goodbit);
    void setstate(long s) { clear(state_ | (s & 7)); }
    bool good() const noexcept { return state_ == 0; }
    bool eof() const noexcept { return (state_ & eofbit) != 0; }
    bool fail() const noexcept { return (state_ & (badbit | failbit)) != 0; }
    bool bad() const noexcept { return (state_ & badbit) != 0; }
    bool operator!() const noexcept { return fail(); }
    // True at end of input as long as neither badbit nor failbit is set.
    explicit operator bool() const noexcept { return !fail(); }

    long exceptions() const noexcept { return except_; }
    // Stores m & 7 and re-checks the state: throws at once when a bit of the
    // new mask is already set.
    void exceptions(long m);

    locale getloc() const { return loc_; }
    // Replaces the locale, returns the old one.
    locale imbue(locale const& loc);

    // Kept behaviour: the index is checked against the private word array's
    // own count, which only copyfmt and the growth step ever make non-zero,
    // so on a stream that never received words by copyfmt every call raises
    // failure "invalid index" (through the error path) whatever xalloc said.
    long& iword(unsigned i);
    void*& pword(unsigned i);
    // The next index of the process-wide counter (a plain static, unlocked).
    static int xalloc() noexcept;

    // Copies the private words, flags, width and precision, then the
    // exceptions mask through exceptions(), which may throw. The locale and
    // the state stay.
    void copyfmt(ios_base const& other);

    // The private words, for tests and diagnostics.
    unsigned word_count() const noexcept { return nwords_; }

protected:
    // clear(rdstate() | bits), as every stream operation ends; the call is
    // left out when it would only store the state it finds and throw
    // nothing.
    void add_state(long bits) {
        long const s = state_ | bits;
        if (s != state_ || (s & except_) != 0)
            clear(s);
    }
    // Sets the width to 0; most operations find it 0 already.
    void reset_width() noexcept {
        if (width_ != 0)
            width(0);
    }

private:
    // The number facets read the locale in place: a copy of it per value
    // would cost two atomic operations on its engine.
    friend struct num_base;
    template <class C, class It> friend class num_get;

    void expand_data(unsigned i);
    void copy_data(ios_base const& other);
    void free_data() noexcept;

    word_pair* words_;
    std::uint32_t nwords_;
    locale loc_;
    long flags_;
    long state_;
    long except_;
    std::uint16_t width_;
    std::uint16_t precision_;

    static int index_;
};

// The iterator types of a character type's number facets.
// The narrow streams' forms beside `char`: signed and unsigned characters,
// arrays of them, and `unsigned short` as a number (on the wide streams it
// is the character type). The output stream adds the const arrays.
template <class C, class T>
inline constexpr bool narrow_extra_form =
    std::is_same_v<C, char> &&
    (std::is_same_v<T, signed char> || std::is_same_v<T, unsigned char> || std::is_same_v<T, signed char*> ||
     std::is_same_v<T, unsigned char*> || std::is_same_v<T, unsigned short>);

template <class C> struct ios_iterators;
template <> struct ios_iterators<char> {
    using input = ibuf_iterator;
    using output = obuf_iterator;
};
template <> struct ios_iterators<unsigned short> {
    using input = wibuf_iterator;
    using output = wobuf_iterator;
};

// basic_ios over `char` and `unsigned short`: the buffer (not owned), the
// tied output stream, the fill character and the three facets taken from
// the locale, which the inserters and extractors use.
template <class C>
class ZEL_API basic_ios : public ios_base {
public:
    using char_type = C;
    using streambuf_type = basic_streambuf<C>;
    using ostream_type = basic_ostream<C>;
    using classifier_type = ctype<C>;
    using reader_type = num_get<C, typename ios_iterators<C>::input>;
    using writer_type = num_put<C, typename ios_iterators<C>::output>;

    // Takes the facets from the global locale; a null buffer sets badbit
    // (which throws only if the mask asks, and a fresh mask is 0).
    explicit basic_ios(streambuf_type* buf);
    // Default-constructs, then assigns (which copies the other's facets).
    basic_ios(basic_ios const& other);
    explicit basic_ios(zel_no_init const& tag);
    ~basic_ios() override;
    // ios_base assignment, then buffer, tie, fill and the facet pointers.
    // The locale is not copied: the facets may then belong to another locale
    // than getloc() returns.
    basic_ios& operator=(basic_ios const& other);

    streambuf_type* rdbuf() const noexcept { return buf_; }
    // Stores b and clears the state to goodbit, or to badbit for a null b
    // (the old state is discarded either way); returns the old buffer.
    streambuf_type* rdbuf(streambuf_type* b);
    ostream_type* tie() const noexcept { return tie_; }
    ostream_type* tie(ostream_type* t) noexcept {
        ostream_type* old = tie_;
        tie_ = t;
        return old;
    }
    C fill() const noexcept { return fill_; }
    C fill(C c) noexcept {
        C old = fill_;
        fill_ = c;
        return old;
    }
    // Re-takes the facets, gives the buffer the locale, then replaces the
    // stream's own; returns the old locale.
    locale imbue(locale const& loc);

    // Kept behaviour, harmful: for any stream other than this one the call
    // copies tie and fill and then applies itself again to the same
    // argument, without end, until the stack is exhausted. Copy another
    // stream's format with operator= or ios_base::copyfmt instead.
    void copyfmt(basic_ios const& other);

protected:
    classifier_type const* classifier() const noexcept { return classifier_; }
    reader_type const* reader() const noexcept { return reader_; }
    writer_type const* writer() const noexcept { return writer_; }
    // The classifier's answer for c against the class mask m, negated when
    // n is true.
    bool is_ctype(typename ctype_base::mask m, C c, bool n) const {
        bool const r = classifier_->is(m, c);
        return n ? !r : r;
    }

private:
    void init(locale const& loc);
    void assign(basic_ios const& other);

    streambuf_type* buf_;
    ostream_type* tie_;
    C fill_;
    classifier_type const* classifier_;
    reader_type const* reader_;
    writer_type const* writer_;
};

ZEL_EXTERN_TEMPLATE(basic_ios<char>);
ZEL_EXTERN_TEMPLATE(basic_ios<unsigned short>);

using ios = basic_ios<char>;
using wios = basic_ios<unsigned short>;

// --- manipulators --------------------------------------------------------------
// Each changes the format state through setf and returns its argument; the
// grouped ones clear their whole group first.
ZEL_API ios_base& right(ios_base& s);
ZEL_API ios_base& left(ios_base& s);
ZEL_API ios_base& internal(ios_base& s);
ZEL_API ios_base& showbase(ios_base& s);
ZEL_API ios_base& noshowbase(ios_base& s);
ZEL_API ios_base& showpos(ios_base& s);
ZEL_API ios_base& noshowpos(ios_base& s);
ZEL_API ios_base& uppercase(ios_base& s);
ZEL_API ios_base& nouppercase(ios_base& s);
ZEL_API ios_base& fixed(ios_base& s);
ZEL_API ios_base& scientific(ios_base& s);
// The general floating-point format (no floatfield bit).
ZEL_API ios_base& floating(ios_base& s);
ZEL_API ios_base& showpoint(ios_base& s);
ZEL_API ios_base& noshowpoint(ios_base& s);
ZEL_API ios_base& boolalpha(ios_base& s);
ZEL_API ios_base& noboolalpha(ios_base& s);
ZEL_API ios_base& skipws(ios_base& s);
ZEL_API ios_base& noskipws(ios_base& s);
ZEL_API ios_base& unitbuf(ios_base& s);
ZEL_API ios_base& nounitbuf(ios_base& s);
ZEL_API ios_base& bin(ios_base& s);
ZEL_API ios_base& oct(ios_base& s);
ZEL_API ios_base& dec(ios_base& s);
ZEL_API ios_base& hex(ios_base& s);
// The radix "any": no radix bit; radix() answers 0.
ZEL_API ios_base& any(ios_base& s);

// A parameterised manipulator: the stream inserters and extractors that
// take one call action(stream, value) and return the stream.
template <class T>
struct ios_manipulator {
    using action_type = ios_base& (*)(ios_base&, T);
    ios_manipulator(action_type a, T v) noexcept : action(a), value(v) {}
    ios_base& operator()(ios_base& s) const { return action(s, value); }

    action_type action;
    T value;
};

ZEL_API ios_manipulator<long> setiosflags(long f);
ZEL_API ios_manipulator<long> resetiosflags(long f);
ZEL_API ios_manipulator<int> setbase(int r);
ZEL_API ios_manipulator<int> setradix(int r);
ZEL_API ios_manipulator<long> setprecision(long p);
ZEL_API ios_manipulator<long> setw(long w);
ZEL_API ios_manipulator<long> setwidth(long w);

} // namespace zel

#endif
