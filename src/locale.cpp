// Locales and facets: facet ids, the facet and engine reference counts and
// slot arrays, the classic and global locales, ctype over the descriptor's
// tables, numpunct, and the number facets with num_base, the bridge from a
// stream's flags, radix, width and precision to the engines of numconv.h.
//
// The number engines format and parse "."-pointed text through the C
// library (snprintf, strtod); they run under the "C" descriptor's locale
// object on the calling thread, and the locale's decimal point is put in
// (or read) by the engines themselves, so a number's text never depends on
// the process locale or on another thread.
//
// Errors:
//   "bad cast"                     bad_cast       use_facet (plain throw)
//   "locale name not recognised"   runtime_error  locale constructors
#include <zel/locale.h>

#include <cerrno>
#include <cfloat>
#include <cstring>
#include <mutex>
#include <typeinfo>

#include <zel/exception.h>
#include <zel/ios.h>
#include <zel/memory.h>
#include <zel/streambuf.h>

#include "ldx_native.h"
#include "numscan.h"

namespace zel {

// ---- ids, facets, engines ---------------------------------------------------

std::atomic<unsigned> locale::id::id_pool{0};

locale::id::operator unsigned() noexcept {
    unsigned v = value_.load(std::memory_order_acquire);
    if (v == 0) {
        unsigned const fresh = ++id_pool;
        // Two threads may race for the first use: the first store wins and
        // the other number is simply never used.
        if (value_.compare_exchange_strong(v, fresh, std::memory_order_acq_rel))
            v = fresh;
    }
    return v;
}

locale::facet::facet(long refs, category cat, char const* name)
    : virtual_reference_count<long>(refs), category_(cat), ldx_(nullptr) {
    if (name != nullptr && *name != '\0' && std::strcmp(name, "*") != 0)
        ldx_ = ldx_manager::install(name, cat);
    if (ldx_ == nullptr)
        ldx_ = ldx_manager::C();
}

locale::facet::~facet() = default;

unsigned locale::facet::facet_id() const {
    return 0;
}

locale::category locale::facet::facet_category() const {
    return category_;
}

namespace {

void release(locale::facet* f) noexcept {
    if (f != nullptr && f->remove_reference() == 0)
        delete f;
}

void release(locale::engine* e) noexcept {
    if (e != nullptr && e->remove_reference() == 0)
        delete e;
}

} // namespace

locale::engine::engine(category cat, char const* name, unsigned capacity)
    : ldx_(nullptr), category_(cat), capacity_(capacity), slots_(nullptr) {
    ldx_ = ldx_manager::supports(name, cat) ? ldx_manager::install(name, cat)
                                            : ldx_manager::current();
    slots_ = new facet*[capacity_]();
}

locale::engine::engine(engine const& other)
    : virtual_reference_count<long>(0),
      ldx_(other.ldx_),
      category_(other.category_),
      capacity_(other.capacity_),
      slots_(new facet*[other.capacity_]()),
      named(other.named) {
    for (unsigned i = 0; i < capacity_; ++i)
        if ((slots_[i] = other.slots_[i]) != nullptr)
            slots_[i]->add_reference();
}

locale::engine::~engine() {
    for (unsigned i = 0; i < capacity_; ++i)
        release(slots_[i]);
    delete[] slots_;
}

char const* locale::engine::name() const noexcept {
    return ldx_manager::full_name(ldx_);
}

locale::facet const* locale::engine::use_facet(unsigned i) const {
    if (i >= capacity_ || slots_[i] == nullptr)
        throw bad_cast();
    return slots_[i];
}

bool locale::engine::has_facet(unsigned i) const noexcept {
    return i < capacity_ && slots_[i] != nullptr;
}

bool locale::engine::has_facet(facet const* f) const noexcept {
    for (unsigned i = 0; i < capacity_; ++i)
        if (f != nullptr && slots_[i] == f)
            return true;
    return false;
}

void locale::engine::install_facet(unsigned i, facet* f) {
    if (i >= capacity_)
        expand(i + 1);
    if (f != nullptr)
        f->add_reference();
    facet* const old = slots_[i];
    slots_[i] = f;
    release(old);
}

void locale::engine::copy_facets(engine const& from, category cat) {
    for (unsigned i = 0; i < from.capacity_; ++i)
        if (from.slots_[i] != nullptr && (from.slots_[i]->facet_category() & cat) != 0)
            install_facet(i, from.slots_[i]);
}

void locale::engine::expand(unsigned n) {
    if (n <= capacity_)
        return;
    unsigned const cap = n + 8;
    facet** const fresh = new facet*[cap]();
    for (unsigned i = 0; i < capacity_; ++i)
        fresh[i] = slots_[i];
    delete[] slots_;
    slots_ = fresh;
    capacity_ = cap;
}

void locale::engine::set_global() {
    add_reference();
    locale::global(locale(this));
}

// ---- locales ------------------------------------------------------------------

namespace {

std::mutex locales_mutex;
locale* classic_locale = nullptr;
locale* global_locale = nullptr;

constexpr unsigned initial_slots = 16;

// Makes every standard facet whose category meets `cat` for `name`.
void make_facets(locale::engine& e, char const* name, locale::category cat) {
    auto put = [&](locale::id& i, locale::facet* (*make)(char const*), locale::category fc) {
        if ((fc & cat) != 0)
            e.install_facet(i, make(name));
    };
    put(ctype<char>::id, [](char const* n) -> locale::facet* { return new ctype<char>(0, n); },
        locale::ctype);
    put(ctype<unsigned short>::id,
        [](char const* n) -> locale::facet* { return new ctype<unsigned short>(0, n); },
        locale::ctype);
    put(numpunct<char>::id,
        [](char const* n) -> locale::facet* { return new numpunct<char>(0, n); },
        locale::numeric);
    put(numpunct<unsigned short>::id,
        [](char const* n) -> locale::facet* { return new numpunct<unsigned short>(0, n); },
        locale::numeric);
    put(num_put<char, obuf_iterator>::id,
        [](char const* n) -> locale::facet* { return new num_put<char, obuf_iterator>(0, n); },
        locale::numeric);
    put(num_put<unsigned short, wobuf_iterator>::id,
        [](char const* n) -> locale::facet* {
            return new num_put<unsigned short, wobuf_iterator>(0, n);
        },
        locale::numeric);
    put(num_get<char, ibuf_iterator>::id,
        [](char const* n) -> locale::facet* { return new num_get<char, ibuf_iterator>(0, n); },
        locale::numeric);
    put(num_get<unsigned short, wibuf_iterator>::id,
        [](char const* n) -> locale::facet* {
            return new num_get<unsigned short, wibuf_iterator>(0, n);
        },
        locale::numeric);
    put(codecvt<char, char, int>::id,
        [](char const* n) -> locale::facet* { return new codecvt<char, char, int>(0, n); },
        locale::ctype);
    put(codecvt<char, unsigned short, int>::id,
        [](char const* n) -> locale::facet* {
            return new codecvt<char, unsigned short, int>(0, n);
        },
        locale::ctype);
    put(codecvt<unsigned short, char, int>::id,
        [](char const* n) -> locale::facet* {
            return new codecvt<unsigned short, char, int>(0, n);
        },
        locale::ctype);
}

// An engine with no references yet, holding name's facets in `cat` and
// the classic locale's elsewhere.
locale::engine* make_engine(char const* name, locale::category cat,
                            locale::engine const* rest) {
    auto* e = new locale::engine(cat, name, initial_slots);
    try {
        if (rest != nullptr)
            e->copy_facets(*rest, locale::all);
        make_facets(*e, name, cat);
    } catch (...) {
        delete e;
        throw;
    }
    return e;
}

void check_name(char const* name, locale::category cat) {
    if (name == nullptr || !ldx_manager::supports(name, cat))
        ZEL_THROW(runtime_error("locale name not recognised"));
}

} // namespace

locale::locale(engine* e) noexcept : engine_(e) {}

void locale::startup() {
    std::lock_guard<std::mutex> g(locales_mutex);
    if (classic_locale != nullptr)
        return;
    engine* e = make_engine("C", all, nullptr);
    e->add_reference();
    e->add_reference();
    classic_locale = new locale(e);
    global_locale = new locale(e);
}

void locale::shutdown() noexcept {
    std::lock_guard<std::mutex> g(locales_mutex);
    delete global_locale;
    delete classic_locale;
    global_locale = nullptr;
    classic_locale = nullptr;
}

locale const& locale::classic() {
    startup();
    return *classic_locale;
}

locale locale::global(locale const& loc) {
    startup();
    std::lock_guard<std::mutex> g(locales_mutex);
    locale old(*global_locale);
    *global_locale = loc;
    return old;
}

locale::locale() : engine_(nullptr) {
    startup();
    std::lock_guard<std::mutex> g(locales_mutex);
    engine_ = global_locale->engine_;
    engine_->add_reference();
}

locale::locale(char const* name, category cat) : engine_(nullptr) {
    check_name(name, cat);
    engine_ = make_engine(name, cat, cat == all ? nullptr : classic().engine_);
    engine_->named = cat == all;
    engine_->add_reference();
}

locale::locale(locale const& base, char const* name, category cat) : engine_(nullptr) {
    check_name(name, cat);
    engine_ = make_engine(name, cat, base.engine_);
    engine_->named = false;
    engine_->add_reference();
}

locale::locale(locale const& base, locale const& other, category cat)
    : engine_(new engine(*base.engine_)) {
    engine_->named = false;
    engine_->add_reference();
    engine_->copy_facets(*other.engine_, cat);
}

locale::locale(locale const& base, facet* f, id& i) : engine_(new engine(*base.engine_)) {
    engine_->add_reference();
    if (f != nullptr) {
        engine_->named = false;
        engine_->install_facet(i, f);
    }
}

locale::locale(locale const& other) noexcept : engine_(other.engine_) {
    engine_->add_reference();
}

locale& locale::operator=(locale const& other) noexcept {
    other.engine_->add_reference();
    release(engine_);
    engine_ = other.engine_;
    return *this;
}

locale::~locale() {
    release(engine_);
}

char const* locale::name() const noexcept {
    return engine_->name();
}

bool locale::operator==(locale const& other) const noexcept {
    return engine_ == other.engine_ ||
           (engine_->named && other.engine_->named && engine_->ldx() == other.engine_->ldx());
}

locale::facet const* locale::use(id& i) const {
    return engine_->use_facet(i);
}

bool locale::has(id& i) const noexcept {
    return engine_->has_facet(i);
}

// ---- ctype ----------------------------------------------------------------------

namespace {

// A character's table index: a `char` is widened with its sign (kept), so
// codes 0x80-0xFF land outside the tables.
inline std::uint32_t code_of(char c) noexcept {
    return static_cast<std::uint32_t>(static_cast<int>(static_cast<signed char>(c)));
}
inline std::uint32_t code_of(unsigned short c) noexcept {
    return c;
}

template <class C>
inline ctype_base::mask class_of(locale_descriptor const* d, C c) noexcept {
    std::uint32_t const k = code_of(c);
    return k < 256 ? d->class_table[k] : 0;
}

// A case table's answer for c; characters outside the tables stay as they are.
template <class C>
inline C case_mapped(unsigned char const* table, C c) noexcept {
    std::uint32_t const k = code_of(c);
    return k < 256 ? static_cast<C>(table[k]) : c;
}

// The range forms: each character of [lo, hi) through `one`, the
// single-character form (which a derived class may replace), into `to`
// (lo itself for the forms that work in place); answers hi.
template <class From, class To, class One>
From const* map_each(From const* lo, From const* hi, To* to, One one) {
    for (; lo < hi; ++lo, ++to)
        *to = one(*lo);
    return hi;
}

} // namespace

template <class C>
locale::id ctype<C>::id;

template <class C>
ctype<C>::ctype(long refs, char const* name) : locale::facet(refs, locale::ctype, name) {}

template <class C>
ctype<C>::~ctype() = default;

template <class C>
unsigned ctype<C>::facet_id() const {
    return id;
}

template <class C>
C const* ctype<C>::do_is(C const* lo, C const* hi, mask* v) const {
    for (; lo < hi; ++lo, ++v)
        *v = class_of(facet_ldx(), *lo);
    return hi;
}

template <class C>
bool ctype<C>::do_is(mask m, C c) const {
    return (class_of(facet_ldx(), c) & m) != 0;
}

template <class C>
C const* ctype<C>::do_scan_is(mask m, C const* lo, C const* hi) const {
    while (lo < hi && (class_of(facet_ldx(), *lo) & m) == 0)
        ++lo;
    return lo;
}

template <class C>
C const* ctype<C>::do_scan_not(mask m, C const* lo, C const* hi) const {
    while (lo < hi && (class_of(facet_ldx(), *lo) & m) != 0)
        ++lo;
    return lo;
}

template <class C>
C ctype<C>::do_tolower(C c) const {
    return case_mapped(facet_ldx()->lower_table, c);
}

template <class C>
C const* ctype<C>::do_tolower(C* lo, C const* hi) const {
    return map_each<C>(lo, hi, lo, [this](C c) { return do_tolower(c); });
}

template <class C>
C ctype<C>::do_toupper(C c) const {
    return case_mapped(facet_ldx()->upper_table, c);
}

template <class C>
C const* ctype<C>::do_toupper(C* lo, C const* hi) const {
    return map_each<C>(lo, hi, lo, [this](C c) { return do_toupper(c); });
}

template <class C>
char ctype<C>::do_narrow(C c, char) const {
    return static_cast<char>(c & 0xFF);
}

template <class C>
C const* ctype<C>::do_narrow(C const* lo, C const* hi, char dfault, char* to) const {
    return map_each(lo, hi, to, [this, dfault](C c) { return do_narrow(c, dfault); });
}

template <class C>
C ctype<C>::do_widen(char c) const {
    return static_cast<C>(static_cast<signed char>(c));  // kept: with its sign
}

template <class C>
char const* ctype<C>::do_widen(char const* lo, char const* hi, C* to) const {
    return map_each(lo, hi, to, [this](char c) { return do_widen(c); });
}

// ---- numpunct -------------------------------------------------------------------

namespace {

template <class S>
S from_text(char const* text) {
    S s;
    for (; *text != '\0'; ++text)
        s.append(static_cast<typename S::value_type>(static_cast<unsigned char>(*text)));
    return s;
}

} // namespace

template <class C>
locale::id numpunct<C>::id;

template <class C>
numpunct<C>::numpunct(long refs) : numpunct(refs, nullptr) {}

template <class C>
numpunct<C>::numpunct(long refs, char const* name, C const* truename, C const* falsename)
    : locale::facet(refs, locale::numeric, name),
      grouping_(facet_ldx()->grouping),
      truename_(truename != nullptr ? string_type(truename) : from_text<string_type>("true")),
      falsename_(falsename != nullptr ? string_type(falsename) : from_text<string_type>("false")) {}

template <class C>
numpunct<C>::~numpunct() = default;

template <class C>
unsigned numpunct<C>::facet_id() const {
    return id;
}

template <class C>
C numpunct<C>::do_decimal_point() const {
    return static_cast<C>(static_cast<unsigned char>(facet_ldx()->decimal_point[0]));
}

template <class C>
C numpunct<C>::do_thousands_sep() const {
    return static_cast<C>(static_cast<unsigned char>(facet_ldx()->thousands_sep[0]));
}

template <class C>
string numpunct<C>::do_grouping() const {
    return grouping_;
}

template <class C>
typename numpunct<C>::string_type numpunct<C>::do_truename() const {
    return truename_;
}

template <class C>
typename numpunct<C>::string_type numpunct<C>::do_falsename() const {
    return falsename_;
}

// ---- num_base ---------------------------------------------------------------------

namespace {

char decimal_point_of(locale const& loc, locale::id& punct_id) {
    char const p = loc.use(punct_id)->facet_ldx()->decimal_point[0];
    return p != '\0' ? p : '.';
}

// The unsigned partner of a signed code.
num_base::num_type unsigned_partner(num_base::num_type code) noexcept {
    switch (code) {
    case num_base::t_char:
    case num_base::t_schar: return num_base::t_uchar;
    case num_base::t_short: return num_base::t_ushort;
    case num_base::t_int: return num_base::t_uint;
    case num_base::t_long: return num_base::t_ulong;
    case num_base::t_int64: return num_base::t_uint64;
    default: return code;
    }
}

template <class T>
T load(void const* p) noexcept {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <class T>
void store(void* p, T v) noexcept {
    std::memcpy(p, &v, sizeof v);
}

// The largest value of an unsigned code (and of a signed code's partner).
std::uint64_t unsigned_max(num_base::num_type code) noexcept {
    switch (code) {
    case num_base::t_char:
    case num_base::t_schar:
    case num_base::t_uchar: return 0xFFu;
    case num_base::t_short:
    case num_base::t_ushort: return 0xFFFFu;
    case num_base::t_int:
    case num_base::t_uint: return 0xFFFFFFFFu;
    case num_base::t_long:
    case num_base::t_ulong: return static_cast<unsigned long>(-1);
    // Any address of the target: 32-bit Windows kept user addresses below
    // 0x80000000, but 32-bit Linux places stacks above it.
    case num_base::t_pointer: return static_cast<std::uintptr_t>(-1);
    default: return ~std::uint64_t(0);
    }
}

struct signed_bounds {
    std::int64_t lo, hi;
};

signed_bounds signed_range(num_base::num_type code) noexcept {
    switch (code) {
    case num_base::t_char:
    case num_base::t_schar: return {-128, 127};
    case num_base::t_short: return {-32768, 32767};
    case num_base::t_int: return {-2147483647 - 1, 2147483647};
    case num_base::t_long: return {LONG_MIN, LONG_MAX};
    default: return {INT64_MIN, INT64_MAX};
    }
}

} // namespace

unsigned num_base::insert(text_sink text, fill_sink fill, void* context, ios_base& io,
                          void const* fill_char, locale::id& punct_id, num_type code,
                          void const* value) {
    unsigned radix = static_cast<unsigned>(io.radix());
    if (radix == 0)
        radix = 10;
    long flags = io.flags();
    unsigned const width = static_cast<unsigned>(io.width());
    unsigned const precision = static_cast<unsigned>(io.precision());
    if (radix != 10)
        code = unsigned_partner(code);

    auto put_signed = [&](std::int64_t v) {
        return zel::insert(text, context, fill, fill_char, v, radix, width, flags);
    };
    auto put_unsigned = [&](std::uint64_t v) {
        return zel::insert(text, context, fill, fill_char, v, radix, width, flags);
    };
    switch (code) {
    case t_char:
    case t_schar: return put_signed(load<signed char>(value));
    case t_uchar: return put_unsigned(load<unsigned char>(value));
    case t_short: return put_signed(load<short>(value));
    case t_ushort: return put_unsigned(load<unsigned short>(value));
    case t_int: return put_signed(load<int>(value));
    case t_uint: return put_unsigned(load<unsigned>(value));
    case t_long: return put_signed(load<long>(value));
    case t_ulong: return put_unsigned(load<unsigned long>(value));
    case t_int64: return put_signed(load<long long>(value));
    case t_uint64: return put_unsigned(load<unsigned long long>(value));
    case t_bool: return put_signed(load<unsigned char>(value) != 0 ? 1 : 0);
    case t_pointer:
        radix = 16;
        flags = (flags & ~ios_flags::radixfield) | ios_flags::hex;
        return put_unsigned(ptr2utype(load<void const*>(value)));
    case t_float:
    case t_double:
    case t_ldouble:
        break;
    }
    // Floating point goes through snprintf: under the "C" locale on this
    // thread, with the locale's point put in by the engine.
    char const point = decimal_point_of(io.loc_, punct_id);
    detail::thread_locale scope(detail::c_native());
    if (code == t_ldouble)
        return zel::insert(text, context, fill, fill_char, load<long double>(value), width,
                           precision, flags, point);
    double const v = code == t_float ? double(load<float>(value)) : load<double>(value);
    return zel::insert(text, context, fill, fill_char, v, width, precision, flags, point);
}

namespace {

// The bridge behind num_base::extract over any character source of
// numscan.h: the callbacks of the public form, or a stream buffer that
// num_get reads in place. The engines and every rule are the same either
// way. `loc` is the stream's locale (for the decimal point).
template <class Source>
void extract_from(Source& src, ios_base& io, locale const& loc, long& error,
                  locale::id& punct_id, num_base::num_type code, void* value) {
    using nb = num_base;
    unsigned const radix = static_cast<unsigned>(io.radix());
    long const flags = io.flags();
    bool at_end = false;

    switch (code) {
    case nb::t_char:
    case nb::t_schar:
    case nb::t_short:
    case nb::t_int:
    case nb::t_long:
    case nb::t_int64:
    case nb::t_bool: {
        std::uint64_t bits = 0;
        int const r = detail::scan_integer(src, radix, flags, true, bits, &at_end);
        std::int64_t const v = detail::as_signed(bits);
        int err = errno;  // read once: errno is a call away
        if (err == 0) {
            // One test for either sign: the sign of a value is no pattern
            // a branch predictor could follow.
            if ((r < 0 ? -r : r) == 10) {
                signed_bounds const b = signed_range(code);
                if (v < b.lo || v > b.hi)
                    err = errno = ERANGE;
            } else {
                std::uint64_t const magnitude = r < 0 ? 0 - bits : bits;
                if (magnitude > unsigned_max(code))
                    err = errno = ERANGE;
            }
        }
        if (at_end)
            error |= 2;
        if (err != 0)
            break;
        switch (code) {
        case nb::t_short: store(value, static_cast<short>(v)); break;
        case nb::t_int: store(value, static_cast<int>(v)); break;
        case nb::t_long: store(value, static_cast<long>(v)); break;
        case nb::t_int64: store(value, static_cast<long long>(v)); break;
        case nb::t_bool: store(value, v != 0); break;
        default: store(value, static_cast<signed char>(v)); break;
        }
        return;
    }
    case nb::t_uchar:
    case nb::t_ushort:
    case nb::t_uint:
    case nb::t_ulong:
    case nb::t_uint64:
    case nb::t_pointer: {
        std::uint64_t v = 0;
        int const r = detail::scan_integer(src, code == nb::t_pointer ? 16 : radix, flags, false,
                                           v, &at_end);
        int err = errno;
        if (err == 0) {
            std::uint64_t const magnitude = r < 0 ? 0 - v : v;
            if (magnitude > unsigned_max(code))
                err = errno = ERANGE;
        }
        if (at_end)
            error |= 2;
        if (err != 0)
            break;
        switch (code) {
        case nb::t_uchar: store(value, static_cast<unsigned char>(v)); break;
        case nb::t_ushort: store(value, static_cast<unsigned short>(v)); break;
        case nb::t_uint: store(value, static_cast<unsigned>(v)); break;
        case nb::t_ulong: store(value, static_cast<unsigned long>(v)); break;
        case nb::t_uint64: store(value, static_cast<unsigned long long>(v)); break;
        default: store(value, utype2ptr(v)); break;
        }
        return;
    }
    case nb::t_float:
    case nb::t_double:
    case nb::t_ldouble: {
        double lo = DBL_MIN, hi = DBL_MAX;
        if (code == nb::t_float) {
            lo = FLT_MIN;
            hi = FLT_MAX;
        }
        // strtod under the "C" locale on this thread; the engine reads the
        // locale's point and hands "." to strtod.
        unsigned char const point = static_cast<unsigned char>(decimal_point_of(loc, punct_id));
        detail::thread_locale scope(detail::c_native());
        detail::floating_result out;
        detail::scan_floating(src, point, flags, out, &at_end);
        long double const v = out.stored ? out.value : 0;
        int err = errno;
        if (err == 0) {
            long double const m = v < 0 ? -v : v;
            if (m != 0 && (m < lo || m > hi))
                err = errno = ERANGE;
        }
        if (at_end)
            error |= 2;
        if (err != 0)
            break;
        if (code == nb::t_float)
            store(value, static_cast<float>(v));
        else if (code == nb::t_double)
            store(value, static_cast<double>(v));
        else
            store(value, v);
        return;
    }
    }
    error |= 4;
    errno = 0;
}

} // namespace

void num_base::extract(number_getter get, space_predicate space, void* context, ios_base& io,
                       long& error, locale::id& punct_id, num_type code, void* value) {
    detail::callback_source src{get, context, space, context};
    extract_from(src, io, io.loc_, error, punct_id, code, value);
}

// ---- num_put's decimal digits -----------------------------------------------

namespace {

// "00" to "99", for the plain decimal case of num_put::do_put.
char const digit_pairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

} // namespace

// ---- num_get's buffer source ------------------------------------------------

namespace {

// The engines' character source over the buffer an input iterator reads,
// starting from the iterator's current character and end flag. It has the
// effect of the sbumpc and sgetc calls the iterator makes behind cget, in
// the same order, minus a call through a pointer per character: when the
// next character is already in the get area neither call could reach a
// hook, so the source steps gptr itself; otherwise it makes the two calls
// (so a derived buffer sees the same underflow and uflow calls). White
// space is tested on the descriptor's class table when `table` is set (the
// classifier is the library's own ctype, whose answers come from that
// table: for `char` only codes below 0x80 are in it, by the sign rule),
// else by the classifier.
template <class C>
struct buffer_source {
    basic_streambuf<C>* buf;
    C*& gptr;
    C* const& egptr;
    int c;
    bool end;
    ctype<C> const* classes;
    unsigned char const* table;

    static constexpr bool usable() noexcept { return true; }
    unsigned first() const noexcept { return end ? end_of_input : static_cast<unsigned>(c); }
    unsigned next() {
        if (end)
            return end_of_input;
        C* const g = gptr;
        if (g != nullptr && egptr - g > 1) {
            gptr = g + 1;
            c = static_cast<int>(static_cast<std::make_unsigned_t<C>>(g[1]));
            return static_cast<unsigned>(c);
        }
        buf->sbumpc();
        c = buf->sgetc();
        end = c == basic_streambuf<C>::eof();
        return first();
    }
    // Decimal digits that lie before the get area's last character are
    // stepped over in place, as next() steps over them.
    unsigned decimal_run(unsigned& ch, std::uint64_t& value, unsigned max) noexcept {
        C* g = gptr;
        if (end || g == nullptr || egptr - g <= 1)
            return 0;
        C* const last = egptr - 1;
        std::uint64_t v = value;
        unsigned u = ch;
        unsigned n = 0;
        while (n < max && u - '0' < 10u && g < last) {
            v = v * 10 + (u - '0');
            u = static_cast<std::make_unsigned_t<C>>(*++g);
            ++n;
        }
        gptr = g;
        c = static_cast<int>(u);
        ch = u;
        value = v;
        return n;
    }
    bool space(unsigned ch) const {
        if (ch == end_of_input)
            return false;
        if (table) {
            constexpr unsigned in_table = sizeof(C) == 1 ? 0x80u : 0x100u;
            return ch < in_table && (table[ch] & ctype_base::space) != 0;
        }
        return classes->is(ctype_base::space, static_cast<C>(ch));
    }
};

} // namespace

// ---- the number facets ------------------------------------------------------

// The members both number facets define alike: the id, the two
// constructors (a number facet's category), the destructor and facet_id().
#define ZEL_NUMBER_FACET_MEMBERS(cls, It)                                              \
    template <class C, class It>                                                        \
    locale::id cls<C, It>::id;                                                          \
    template <class C, class It>                                                        \
    cls<C, It>::cls(long refs) : cls(refs, nullptr) {}                                  \
    template <class C, class It>                                                        \
    cls<C, It>::cls(long refs, char const* name) : locale::facet(refs, locale::numeric, name) {} \
    template <class C, class It>                                                        \
    cls<C, It>::~cls() = default;                                                       \
    template <class C, class It>                                                        \
    unsigned cls<C, It>::facet_id() const {                                             \
        return id;                                                                      \
    }
ZEL_NUMBER_FACET_MEMBERS(num_put, OutIt)
ZEL_NUMBER_FACET_MEMBERS(num_get, InIt)
#undef ZEL_NUMBER_FACET_MEMBERS

// ---- num_put --------------------------------------------------------------------

template <class C, class OutIt>
void num_put<C, OutIt>::ccopy(void* context, char const* text, unsigned n) {
    static_cast<OutIt*>(context)->put_text(text, n);
}

template <class C, class OutIt>
void num_put<C, OutIt>::cfill(void* context, void const* fill, unsigned n) {
    OutIt& it = *static_cast<OutIt*>(context);
    C const f = *static_cast<C const*>(fill);
    for (unsigned i = 0; i < n; ++i, ++it)
        *it = f;
}

// Each typed form hands its value's address and type code to the general
// form.
#define ZEL_NUM_PUT_TYPED(T, code)                                                      \
    template <class C, class OutIt>                                                     \
    OutIt num_put<C, OutIt>::do_put(OutIt it, ios_base& io, C fill, T v) const {        \
        return do_put(it, io, fill, code, &v);                                          \
    }
ZEL_NUM_PUT_TYPED(bool, t_bool)
ZEL_NUM_PUT_TYPED(long, t_long)
ZEL_NUM_PUT_TYPED(unsigned long, t_ulong)
ZEL_NUM_PUT_TYPED(double, t_double)
ZEL_NUM_PUT_TYPED(long double, t_ldouble)
ZEL_NUM_PUT_TYPED(long long, t_int64)
ZEL_NUM_PUT_TYPED(unsigned long long, t_uint64)
#undef ZEL_NUM_PUT_TYPED

template <class C, class OutIt>
OutIt num_put<C, OutIt>::do_put(OutIt it, ios_base& io, C fill, num_type code,
                                void const* value) const {
    if (code == t_bool && (io.flags() & ios_flags::boolalpha) != 0) {
        locale const loc = io.getloc();
        auto const name = use_facet<numpunct<C>>(loc).boolname(load<bool>(value));
        unsigned const len = name.size();
        unsigned const width = static_cast<unsigned>(io.width());
        unsigned const pad = width > len ? width - len : 0;
        bool const left = (io.flags() & ios_flags::adjustfield) == ios_flags::left;
        if (!left)
            cfill(&it, &fill, pad);
        for (unsigned i = 0; i < len; ++i, ++it)
            *it = name.data()[i];
        if (left)
            cfill(&it, &fill, pad);
        return it;
    }
    if (code >= t_char && code <= t_uint64 && io.width() == 0 && (io.radix() == 0 || io.radix() == 10) &&
        (io.flags() & ios_flags::showpos) == 0) {
        // Plain decimal, the common case: a "-" and the digits, which is
        // all the integer engine writes here (no prefix, no fill: its fill
        // of 0 characters writes nothing), sent in one run. The engine
        // clears errno; so does this.
        std::uint64_t magnitude = 0;
        bool negative = false;
        auto take = [&](auto v) {
            magnitude = static_cast<std::uint64_t>(+v);  // a character type promoted first
            if constexpr (std::is_signed_v<decltype(v)>) {
                negative = v < 0;
                magnitude = negative ? 0 - magnitude : magnitude;
            }
        };
        switch (code) {
        case t_char:
        case t_schar: take(load<signed char>(value)); break;
        case t_uchar: take(load<unsigned char>(value)); break;
        case t_short: take(load<short>(value)); break;
        case t_ushort: take(load<unsigned short>(value)); break;
        case t_int: take(load<int>(value)); break;
        case t_uint: take(load<unsigned>(value)); break;
        case t_long: take(load<long>(value)); break;
        case t_ulong: take(load<unsigned long>(value)); break;
        case t_int64: take(load<long long>(value)); break;
        default: take(load<unsigned long long>(value)); break;
        }
        char text[24];
        char* const end = text + sizeof text;
        char* p = end;
        // 64-bit division is a library call on 32-bit targets.
        while (magnitude > 0xFFFFFFFFu) {
            *--p = static_cast<char>('0' + magnitude % 10);
            magnitude /= 10;
        }
        auto w = static_cast<std::uint32_t>(magnitude);
        while (w >= 100) {
            unsigned const r = w % 100;
            w /= 100;
            p -= 2;
            std::memcpy(p, digit_pairs + 2 * r, 2);
        }
        // The last one or two digits: a pair is written either way and a
        // lone digit's leading "0" dropped, with no branch on the count
        // of digits.
        p -= 2;
        std::memcpy(p, digit_pairs + 2 * w, 2);
        p += w < 10;
        *--p = '-';  // kept only for a negative value, again without a branch
        p += !negative;
        errno = 0;
        it.put_text(p, static_cast<unsigned>(end - p));
        return it;
    }
    insert(&ccopy, &cfill, &it, io, &fill, numpunct<C>::id, code, value);
    return it;
}

// ---- num_get --------------------------------------------------------------------

template <class C, class InIt>
unsigned num_get<C, InIt>::cget(void* context, bool advance) {
    source& s = *static_cast<source*>(context);
    if (advance && *s.it != *s.end)
        ++*s.it;
    if (*s.it == *s.end)
        return end_of_input;
    return static_cast<std::make_unsigned_t<C>>(**s.it);
}

template <class C, class InIt>
bool num_get<C, InIt>::cspace(void* context, unsigned c) {
    if (c == end_of_input)
        return false;
    return static_cast<source*>(context)->classes->is(ctype_base::space, static_cast<C>(c));
}

template <class C, class InIt>
InIt num_get<C, InIt>::get_boolalpha(InIt it, InIt end, ios_base& io, long& error,
                                     bool& v) const {
    locale const loc = io.getloc();
    auto const& punct = use_facet<numpunct<C>>(loc);
    auto const t = punct.truename();
    auto const f = punct.falsename();
    if ((io.flags() & ios_flags::skipws) != 0) {
        auto const& classes = use_facet<ctype<C>>(loc);
        while (it != end && classes.is(ctype_base::space, *it))
            ++it;
    }
    // Consume while the text read so far is a prefix of a name that is
    // still longer; then it must be one whole name.
    bool in_t = true, in_f = true;
    unsigned n = 0;
    while (it != end) {
        C const c = *it;
        bool const next_t = in_t && n < t.size() && t.data()[n] == c;
        bool const next_f = in_f && n < f.size() && f.data()[n] == c;
        if (!next_t && !next_f)
            break;
        in_t = next_t;
        in_f = next_f;
        ++n;
        ++it;
    }
    if (it == end)
        error |= 2;
    if (in_t && n == t.size())
        v = true;
    else if (in_f && n == f.size())
        v = false;
    else
        error |= 4;
    return it;
}

#define ZEL_NUM_GET_TYPED(T, code)                                                          \
    template <class C, class InIt>                                                          \
    InIt num_get<C, InIt>::do_get(InIt it, InIt end, ios_base& io, long& error, T& v) const { \
        return do_get(it, end, io, error, code, &v);                                       \
    }
ZEL_NUM_GET_TYPED(bool, t_bool)
ZEL_NUM_GET_TYPED(long, t_long)
ZEL_NUM_GET_TYPED(unsigned short, t_ushort)
ZEL_NUM_GET_TYPED(unsigned int, t_uint)
ZEL_NUM_GET_TYPED(unsigned long, t_ulong)
ZEL_NUM_GET_TYPED(float, t_float)
ZEL_NUM_GET_TYPED(double, t_double)
ZEL_NUM_GET_TYPED(long double, t_ldouble)
ZEL_NUM_GET_TYPED(long long, t_int64)
ZEL_NUM_GET_TYPED(unsigned long long, t_uint64)
#undef ZEL_NUM_GET_TYPED

template <class C, class InIt>
InIt num_get<C, InIt>::do_get(InIt it, InIt end, ios_base& io, long& error, num_type code,
                              void* value) const {
    if (code == t_bool && (io.flags() & ios_flags::boolalpha) != 0)
        return get_boolalpha(it, end, io, error, *static_cast<bool*>(value));
    ctype<C> const& classes = use_facet<ctype<C>>(io.loc_);
    if (it.buf_ != nullptr && end.end_) {
        // Reading a buffer to its end (as the streams do): the engines run
        // over the buffer itself and leave the iterator where they stopped.
        // The library's own ctype answers from its descriptor's table, so
        // that is read directly; a derived classifier is asked.
        unsigned char const* table =
            typeid(classes) == typeid(ctype<C>) ? classes.facet_ldx()->class_table : nullptr;
        buffer_source<C> src{it.buf_, it.buf_->gptr_, it.buf_->egptr_, it.c_, it.end_, &classes, table};
        extract_from(src, io, io.loc_, error, numpunct<C>::id, code, value);
        // Built from the values, not stored into `it` and read back whole:
        // that makes the processor wait for the two stores.
        return InIt(it.buf_, src.c, src.end);
    }
    source s{&it, &end, &classes};
    extract(&cget, &cspace, &s, io, error, numpunct<C>::id, code, value);
    return it;
}

// ---- codecvt --------------------------------------------------------------------

template <class From, class To, class State>
locale::id codecvt<From, To, State>::id;

template <class From, class To, class State>
codecvt<From, To, State>::codecvt(long refs, char const* name)
    : locale::facet(refs, locale::ctype, name) {}

template <class From, class To, class State>
codecvt<From, To, State>::~codecvt() = default;

template <class From, class To, class State>
unsigned codecvt<From, To, State>::facet_id() const {
    return id;
}

template class ctype<char>;
template class ctype<unsigned short>;
template class numpunct<char>;
template class numpunct<unsigned short>;
template class num_put<char, obuf_iterator>;
template class num_put<unsigned short, wobuf_iterator>;
template class num_get<char, ibuf_iterator>;
template class num_get<unsigned short, wibuf_iterator>;
template class codecvt<char, char, int>;
template class codecvt<char, unsigned short, int>;
template class codecvt<unsigned short, char, int>;

} // namespace zel
