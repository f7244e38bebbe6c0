// Locales and facets. A `locale` is a handle on a reference-counted
// `locale::engine`, which holds a locale descriptor (ldx.h) and an array of
// facet slots indexed by `locale::id`; each `locale::facet` is itself
// reference-counted and holds the descriptor it answers from. The facets
// here: `ctype` (character classes and case over the descriptor's tables),
// `numpunct` (decimal point, thousands separator, boolean names), `num_put`
// and `num_get` (numbers through the buffer iterators of bufiter.h, by the
// stream's flags, radix, width and precision, with the engines of
// numconv.h), and the three `codecvt` facets that carry the descriptors the
// file buffers convert with. Each exists for `char` and `unsigned short`.
//
// Constructors (the library's own design):
//   locale()                     a copy of the global locale (at start the
//                                classic "C" locale);
//   locale(name, cat = all)      every facet made for `name` in the facets'
//                                categories; runtime_error "locale name not
//                                recognised" (src/locale.cpp) when the C
//                                library does not know the name, and the
//                                descriptor registry is left unchanged;
//   locale(base, name, cat)      base's facets, with those whose category
//                                meets `cat` made anew for `name`;
//   locale(base, other, cat)     base's facets, with those whose category
//                                meets `cat` taken from `other`;
//   locale(base, facet*)         base's facets with the facet's slot
//                                replaced (a null facet copies base).
// `locale::global` replaces the global locale for later default-made
// locales; it does not switch the C library's locale (ldx_manager::current
// does that). Two locales compare equal when they share their engine, or
// when both were made from names alone and their engines hold the same
// descriptor.
//
// Threads: reference counts and facet ids are atomic, and the classic and
// global locales are guarded, so locales may be copied and dropped on
// several threads; a facet's answers depend only on its descriptor.
#ifndef ZEL_LOCALE_H
#define ZEL_LOCALE_H

#include <atomic>
#include <cstdint>

#include <zel/bufiter.h>
#include <zel/config.h>
#include <zel/ldx.h>
#include <zel/numconv.h>
#include <zel/string.h>

namespace zel {

class ios_base;

// Tag of the no-initialisation constructors: the object's memory is left as
// it is (used by the standard stream objects, built in place by
// ios_base::Init).
struct zel_no_init {};

// An object with a virtual destructor and a reference count. The count is
// atomic; the owner deletes the object when its release brings the count
// to 0.
template <class T>
class virtual_reference_count {
public:
    virtual ~virtual_reference_count() = default;
    virtual_reference_count(virtual_reference_count const&) = delete;
    virtual_reference_count& operator=(virtual_reference_count const&) = delete;

    T add_reference() noexcept { return ++count_; }
    T remove_reference() noexcept { return --count_; }
    T references() const noexcept { return count_.load(); }

protected:
    explicit virtual_reference_count(T refs = 0) noexcept : count_(refs) {}

private:
    std::atomic<T> count_;
};

class ZEL_API locale : public locale_base {
public:
    // A facet class's identity: 0 until first asked, then the next value of
    // the process-wide counter (the first id is 1).
    class ZEL_API id {
    public:
        constexpr id() noexcept : value_(0) {}
        id(id const&) = delete;
        id& operator=(id const&) = delete;
        operator unsigned() noexcept;

        static std::atomic<unsigned> id_pool;

    private:
        std::atomic<unsigned> value_;
    };

    // Base of every facet. `refs` is the starting reference count: 0 lets
    // the last locale holding the facet delete it; 1 keeps it alive (the
    // caller then owns it). The descriptor: install(name, category) for a
    // non-null, non-empty name other than "*", else the "C" descriptor; an
    // unknown name gives the "C" descriptor too.
    class ZEL_API facet : public virtual_reference_count<long> {
    public:
        ~facet() override;
        virtual unsigned facet_id() const;
        virtual category facet_category() const;
        locale_descriptor const* facet_ldx() const noexcept { return ldx_; }

    protected:
        facet(long refs, category cat, char const* name);

    private:
        category category_;
        locale_descriptor const* ldx_;
    };

    // The facet slots of a locale. The descriptor: install(name, category)
    // when the C library knows the name, else the current descriptor.
    class ZEL_API engine : public virtual_reference_count<long> {
    public:
        engine(category cat, char const* name, unsigned capacity);
        // A copy of other's slots (each facet gains a reference).
        explicit engine(engine const& other);
        ~engine() override;

        // The full name of the engine's descriptor.
        char const* name() const noexcept;
        locale_descriptor const* ldx() const noexcept { return ldx_; }
        category engine_category() const noexcept { return category_; }
        unsigned capacity() const noexcept { return capacity_; }

        // The facet in slot i; bad_cast "bad cast" (plain throw) if none.
        facet const* use_facet(unsigned i) const;
        bool has_facet(unsigned i) const noexcept;
        bool has_facet(facet const* f) const noexcept;
        // Puts f (gaining a reference) in slot i, growing the slots as
        // needed, and releases what the slot held. A null f empties it.
        void install_facet(unsigned i, facet* f);
        // Takes from `from` every facet whose category meets `cat`.
        void copy_facets(engine const& from, category cat);
        // Grows the slot array to at least n entries.
        void expand(unsigned n);
        // Makes this engine the global locale's.
        void set_global();

    private:
        locale_descriptor const* ldx_;
        category category_;
        unsigned capacity_;
        facet** slots_;

    public:
        // Made from names alone (locales compare by descriptor then).
        bool named = true;
    };

    locale();
    explicit locale(char const* name, category cat = all);
    locale(locale const& base, char const* name, category cat);
    locale(locale const& base, locale const& other, category cat);
    template <class Facet>
    locale(locale const& base, Facet* f) : locale(base, f, Facet::id) {}
    // Leaves the memory as it is (see zel_no_init).
    explicit locale(zel_no_init const&) noexcept {}
    locale(locale const& other) noexcept;
    locale& operator=(locale const& other) noexcept;
    ~locale();

    // The full name of the locale's descriptor.
    char const* name() const noexcept;
    bool operator==(locale const& other) const noexcept;
    bool operator!=(locale const& other) const noexcept { return !(*this == other); }

    // The facet with id i; bad_cast "bad cast" (plain throw) if there is
    // none.
    facet const* use(id& i) const;
    bool has(id& i) const noexcept;
    engine* get_engine() const noexcept { return engine_; }

    static locale const& classic();
    // Makes loc the global locale; returns the old one.
    static locale global(locale const& loc);
    // Build and tear down the classic and global locales (ios_base::Init
    // brackets the standard streams with them). Anything that needs them
    // before startup() or after shutdown() builds them again on demand.
    static void startup();
    static void shutdown() noexcept;

private:
    explicit locale(engine* e) noexcept;
    locale(locale const& base, facet* f, id& i);

    engine* engine_;
};

template <class Facet>
Facet const& use_facet(locale const& loc) {
    return static_cast<Facet const&>(*loc.use(Facet::id));
}

template <class Facet>
bool has_facet(locale const& loc) noexcept {
    return loc.has(Facet::id);
}

// The character-class mask: the descriptor's class-table bits.
struct ctype_base {
    using mask = unsigned char;
    static constexpr mask cntrl = locale_descriptor::cntrl;
    static constexpr mask digit = locale_descriptor::digit;
    static constexpr mask lower = locale_descriptor::lower;
    static constexpr mask print = locale_descriptor::print;
    static constexpr mask punct = locale_descriptor::punct;
    static constexpr mask space = locale_descriptor::space;
    static constexpr mask upper = locale_descriptor::upper;
    static constexpr mask xdigit = locale_descriptor::xdigit;
    static constexpr mask alpha = lower | upper;
    static constexpr mask alnum = alpha | digit;
    static constexpr mask graph = alnum | punct;
};

// Character classes and case from the descriptor's tables. Only codes
// 0-255 are in the tables; any other code has no class and keeps its case.
// Kept behaviour: a `char` is widened with its sign, so for ctype<char> the
// codes 0x80-0xFF are outside the tables (never classified, never
// case-mapped) even where the locale has letters there. ctype<unsigned
// short> classifies 0-255; its widen() extends a `char`'s sign (0xE9
// widens to 0xFFE9) and its narrow() keeps the low eight bits, ignoring the
// default character.
template <class C>
class ctype : public locale::facet, public ctype_base {
public:
    using char_type = C;
    static locale::id id;

    explicit ctype(long refs = 0, char const* name = nullptr);
    ~ctype() override;
    unsigned facet_id() const override;

    C const* is(C const* lo, C const* hi, mask* v) const { return do_is(lo, hi, v); }
    bool is(mask m, C c) const { return do_is(m, c); }
    C const* scan_is(mask m, C const* lo, C const* hi) const { return do_scan_is(m, lo, hi); }
    C const* scan_not(mask m, C const* lo, C const* hi) const { return do_scan_not(m, lo, hi); }
    C const* tolower(C* lo, C const* hi) const { return do_tolower(lo, hi); }
    C tolower(C c) const { return do_tolower(c); }
    C const* toupper(C* lo, C const* hi) const { return do_toupper(lo, hi); }
    C toupper(C c) const { return do_toupper(c); }
    C const* narrow(C const* lo, C const* hi, char dfault, char* to) const {
        return do_narrow(lo, hi, dfault, to);
    }
    char narrow(C c, char dfault) const { return do_narrow(c, dfault); }
    char const* widen(char const* lo, char const* hi, C* to) const { return do_widen(lo, hi, to); }
    C widen(char c) const { return do_widen(c); }

protected:
    virtual C const* do_is(C const* lo, C const* hi, mask* v) const;
    virtual bool do_is(mask m, C c) const;
    virtual C const* do_scan_is(mask m, C const* lo, C const* hi) const;
    virtual C const* do_scan_not(mask m, C const* lo, C const* hi) const;
    virtual C const* do_tolower(C* lo, C const* hi) const;
    virtual C do_tolower(C c) const;
    virtual C const* do_toupper(C* lo, C const* hi) const;
    virtual C do_toupper(C c) const;
    virtual C const* do_narrow(C const* lo, C const* hi, char dfault, char* to) const;
    virtual char do_narrow(C c, char dfault) const;
    virtual char const* do_widen(char const* lo, char const* hi, C* to) const;
    virtual C do_widen(char c) const;
};

// The library's string of each character type.
template <class C>
struct facet_string;
template <>
struct facet_string<char> {
    using type = string;
};
template <>
struct facet_string<unsigned short> {
    using type = wstring;
};

// Number punctuation from the descriptor (category numeric), and the
// boolean names ("true" and "false" unless given).
template <class C>
class numpunct : public locale::facet {
public:
    using char_type = C;
    using string_type = typename facet_string<C>::type;
    static locale::id id;

    explicit numpunct(long refs = 0);
    numpunct(long refs, char const* name, C const* truename = nullptr,
             C const* falsename = nullptr);
    ~numpunct() override;
    unsigned facet_id() const override;

    // The first character of the descriptor's decimal-point string (0 when
    // it is empty) and of its thousands separator.
    C decimal_point() const { return do_decimal_point(); }
    C thousands_sep() const { return do_thousands_sep(); }
    string grouping() const { return do_grouping(); }
    string_type truename() const { return do_truename(); }
    string_type falsename() const { return do_falsename(); }
    string_type boolname(bool b) const { return b ? truename() : falsename(); }

protected:
    virtual C do_decimal_point() const;
    virtual C do_thousands_sep() const;
    virtual string do_grouping() const;
    virtual string_type do_truename() const;
    virtual string_type do_falsename() const;

private:
    string grouping_;
    string_type truename_;
    string_type falsename_;
};

// The bridge between stream settings and the number engines.
struct ZEL_API num_base {
    // The type codes of the values passed between streams and facets.
    enum num_type {
        t_char = 0,
        t_schar = 1,
        t_uchar = 2,
        t_short = 3,
        t_ushort = 4,
        t_int = 5,
        t_uint = 6,
        t_long = 7,
        t_ulong = 8,
        t_int64 = 9,
        t_uint64 = 10,
        t_float = 11,
        t_double = 12,
        t_ldouble = 13,
        t_bool = 14,
        t_pointer = 15
    };

    // Formats the value at `value` (of the type `code` names) by the
    // stream's flags, radix (0 writes decimal), width and precision with
    // `fill`, through the sinks. The decimal point is the first character
    // of the descriptor held by the stream locale's `punct_id` facet, "."
    // when that is empty. Outside radix 10 signed values are written as
    // their unsigned partners (the int -1 in hex is "ffffffff"); pointers
    // are always written in radix 16. Returns the characters written.
    static unsigned insert(text_sink text, fill_sink fill, void* context, ios_base& io,
                           void const* fill_char, locale::id& punct_id, num_type code,
                           void const* value);

    // Reads a value of the type `code` names by the stream's flags and
    // radix (0: the text's prefix decides) through the getter, with `space`
    // as the white-space test. Adds eofbit (2) to `error` when input ended,
    // failbit (4) when nothing could be read or the value does not fit the
    // type; the target is stored only on success. Outside radix 10 a signed
    // target takes any value that fits its unsigned partner ("ff" in hex
    // reads as -1 into a signed char); an unsigned target takes "-1" as its
    // maximum. A pointer is read in radix 16 and may be any address of the
    // target (up to all bits of a pointer set). An exception from the
    // getter passes through; the target is then untouched.
    static void extract(number_getter get, space_predicate space, void* context, ios_base& io,
                        long& error, locale::id& punct_id, num_type code, void* value);
};

// Writes numbers through an output buffer iterator. The 64-bit forms take
// `long long` and `unsigned long long` (codes 9 and 10).
template <class C, class OutIt>
class num_put : public locale::facet, public num_base {
public:
    using char_type = C;
    using iter_type = OutIt;
    static locale::id id;

    explicit num_put(long refs = 0);
    num_put(long refs, char const* name);
    ~num_put() override;
    unsigned facet_id() const override;

    OutIt put(OutIt it, ios_base& io, C fill, bool v) const { return do_put(it, io, fill, v); }
    OutIt put(OutIt it, ios_base& io, C fill, long v) const { return do_put(it, io, fill, v); }
    OutIt put(OutIt it, ios_base& io, C fill, unsigned long v) const {
        return do_put(it, io, fill, v);
    }
    OutIt put(OutIt it, ios_base& io, C fill, double v) const { return do_put(it, io, fill, v); }
    OutIt put(OutIt it, ios_base& io, C fill, long double v) const {
        return do_put(it, io, fill, v);
    }
    OutIt put(OutIt it, ios_base& io, C fill, long long v) const {
        return do_put(it, io, fill, v);
    }
    OutIt put(OutIt it, ios_base& io, C fill, unsigned long long v) const {
        return do_put(it, io, fill, v);
    }
    // The general form: the value at `value` of type `code`.
    OutIt put(OutIt it, ios_base& io, C fill, num_type code, void const* value) const {
        return do_put(it, io, fill, code, value);
    }

    // Sinks for num_base::insert; the context is an OutIt.
    static void ccopy(void* context, char const* text, unsigned n);
    static void cfill(void* context, void const* fill, unsigned n);

protected:
    virtual OutIt do_put(OutIt it, ios_base& io, C fill, bool v) const;
    virtual OutIt do_put(OutIt it, ios_base& io, C fill, long v) const;
    virtual OutIt do_put(OutIt it, ios_base& io, C fill, unsigned long v) const;
    virtual OutIt do_put(OutIt it, ios_base& io, C fill, double v) const;
    virtual OutIt do_put(OutIt it, ios_base& io, C fill, long double v) const;
    virtual OutIt do_put(OutIt it, ios_base& io, C fill, long long v) const;
    virtual OutIt do_put(OutIt it, ios_base& io, C fill, unsigned long long v) const;
    // With `boolalpha` a bool is written by its numpunct name, padded to
    // the width (before it unless the adjustment is `left`).
    virtual OutIt do_put(OutIt it, ios_base& io, C fill, num_type code, void const* value) const;
};

// Reads numbers through an input buffer iterator. Errors go to `error`
// (eofbit 2, failbit 4); nothing throws for bad text.
template <class C, class InIt>
class num_get : public locale::facet, public num_base {
public:
    using char_type = C;
    using iter_type = InIt;
    static locale::id id;

    explicit num_get(long refs = 0);
    num_get(long refs, char const* name);
    ~num_get() override;
    unsigned facet_id() const override;

    template <class T>
    InIt get(InIt it, InIt end, ios_base& io, long& error, T& v) const {
        return do_get(it, end, io, error, v);
    }
    // The general form: the target at `value` of type `code`.
    InIt get(InIt it, InIt end, ios_base& io, long& error, num_type code, void* value) const {
        return do_get(it, end, io, error, code, value);
    }
    // Reads the numpunct true or false name: the longest prefix of the
    // input that matches one of them, which must be a whole name. failbit
    // when none is matched (characters read so far stay consumed).
    InIt get_boolalpha(InIt it, InIt end, ios_base& io, long& error, bool& v) const;

    // Callbacks for num_base::extract over an iterator pair.
    struct source {
        InIt* it;
        InIt* end;
        ctype<C> const* classes;
    };
    static unsigned cget(void* context, bool advance);
    static bool cspace(void* context, unsigned c);

protected:
    virtual InIt do_get(InIt it, InIt end, ios_base& io, long& error, bool& v) const;
    virtual InIt do_get(InIt it, InIt end, ios_base& io, long& error, long& v) const;
    virtual InIt do_get(InIt it, InIt end, ios_base& io, long& error, unsigned short& v) const;
    virtual InIt do_get(InIt it, InIt end, ios_base& io, long& error, unsigned int& v) const;
    virtual InIt do_get(InIt it, InIt end, ios_base& io, long& error, unsigned long& v) const;
    virtual InIt do_get(InIt it, InIt end, ios_base& io, long& error, float& v) const;
    virtual InIt do_get(InIt it, InIt end, ios_base& io, long& error, double& v) const;
    virtual InIt do_get(InIt it, InIt end, ios_base& io, long& error, long double& v) const;
    virtual InIt do_get(InIt it, InIt end, ios_base& io, long& error, long long& v) const;
    virtual InIt do_get(InIt it, InIt end, ios_base& io, long& error, unsigned long long& v) const;
    virtual InIt do_get(InIt it, InIt end, ios_base& io, long& error, num_type code,
                        void* value) const;
};

// The conversion facets: each holds the descriptor a file buffer converts
// with (category ctype). codecvt<char, char, int> serves the narrow
// buffers; codecvt<char, unsigned short, int> the wide buffers' input and
// codecvt<unsigned short, char, int> their output.
template <class From, class To, class State>
class codecvt : public locale::facet {
public:
    static locale::id id;

    explicit codecvt(long refs = 0, char const* name = nullptr);
    ~codecvt() override;
    unsigned facet_id() const override;
};

ZEL_EXTERN_TEMPLATE(ctype<char>);
ZEL_EXTERN_TEMPLATE(ctype<unsigned short>);
ZEL_EXTERN_TEMPLATE(numpunct<char>);
ZEL_EXTERN_TEMPLATE(numpunct<unsigned short>);
ZEL_EXTERN_TEMPLATE(num_put<char, obuf_iterator>);
ZEL_EXTERN_TEMPLATE(num_put<unsigned short, wobuf_iterator>);
ZEL_EXTERN_TEMPLATE(num_get<char, ibuf_iterator>);
ZEL_EXTERN_TEMPLATE(num_get<unsigned short, wibuf_iterator>);
ZEL_EXTERN_TEMPLATE(codecvt<char, char, int>);
ZEL_EXTERN_TEMPLATE(codecvt<char, unsigned short, int>);
ZEL_EXTERN_TEMPLATE(codecvt<unsigned short, char, int>);

} // namespace zel

#endif
