// The locale-descriptor registry and the character routines on C files.
//
// Each registry entry is an ldx_record: the 992-byte descriptor the library
// hands out, followed by what the fixed record has no room for: the full
// C-library name (composite names outgrow the 128-byte field) and a
// `newlocale` object of that name. The descriptor is the record's first
// member, so a descriptor pointer leads back to its record.
//
// The full name of a (name, category) pair is formed the way the C library
// itself forms it: set the category (or categories) in the global locale,
// read the resulting name, set the global locale back. The snapshot of
// punctuation and tables is taken under the record's own locale object on
// the calling thread only, so it never disturbs other threads.
//
// One mutex serialises every registry operation (the C library's global
// locale is part of the state it guards).
//
// Errors:
//   "bad allocation"  bad_alloc  expand_map, line 421 (through the throw path)
#include <zel/ldx.h>

#include <clocale>
#include <climits>
#include <cstring>
#include <ctype.h>
#include <cwchar>
#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <string>

#include <zel/exception.h>

#include "ldx_native.h"

namespace zel {

namespace {

struct ldx_record {
    locale_descriptor d;
    char* full;
    detail::native_locale native;
};

ldx_record** map_ = nullptr;
unsigned size_ = 0;
unsigned cap_ = 0;
locale_descriptor const* curr_ = nullptr;
std::mutex registry_mutex;
std::atomic<detail::native_locale> c_native_{detail::native_locale(nullptr)};

ldx_record const* record_of(locale_descriptor const* d) noexcept {
    return reinterpret_cast<ldx_record const*>(d);
}

// Bounded copy: at most n - 1 bytes, always terminated.
void copy_field(char* field, std::size_t n, char const* text) noexcept {
    if (text == nullptr)
        return;
    std::size_t len = std::strlen(text);
    if (len > n - 1)
        len = n - 1;
    std::memcpy(field, text, len);
    field[len] = '\0';
}

void expand_map() {
    unsigned const n = cap_ + 32;
    std::new_handler const handler = std::set_new_handler(nullptr);
    ldx_record** const fresh = new (std::nothrow) ldx_record*[n];
    std::set_new_handler(handler);
    if (fresh == nullptr)
        ZEL_THROW_AT(bad_alloc("bad allocation"), 421);
    std::fill_n(fresh, n, nullptr);
    if (size_ != 0)
        std::copy_n(map_, size_, fresh);
    delete[] map_;
    map_ = fresh;
    cap_ = n;
}

// The C-library category of a category number below 256, or -1.
int c_category(int category) noexcept {
    switch (category) {
    case 0: return LC_ALL;
    case 1: return LC_COLLATE;
    case 2: return LC_CTYPE;
    case 3: return LC_MONETARY;
    case 4: return LC_NUMERIC;
    case 5: return LC_TIME;
    default: return -1;
    }
}

// The full name of `name` set in `category` over the present locale. On a
// refusal the global locale is not set back (kept: with a bit set, the
// categories set before the refusal stay).
bool get_fullname(std::string& out, char const* name, int category) {
    if (name == nullptr)
        return false;
    std::string const saved = std::setlocale(LC_ALL, nullptr);
    bool ok = true;
    if (category < 256) {
        int const cat = c_category(category);
        ok = cat != -1 && std::setlocale(cat, name) != nullptr;
    } else if (category == locale_base::all) {
        ok = std::setlocale(LC_ALL, name) != nullptr;
    } else {
        static int const bits[5][2] = {{locale_base::collate, LC_COLLATE},
                                       {locale_base::ctype, LC_CTYPE},
                                       {locale_base::monetary, LC_MONETARY},
                                       {locale_base::numeric, LC_NUMERIC},
                                       {locale_base::time, LC_TIME}};
        for (auto const& b : bits)
            if ((category & b[0]) != 0 && std::setlocale(b[1], name) == nullptr) {
                ok = false;
                break;
            }
    }
    if (!ok)
        return false;
    out = std::setlocale(LC_ALL, nullptr);
    (void)std::setlocale(LC_ALL, saved.c_str());
    return true;
}

ldx_record* find_ldx(char const* full) noexcept {
    if (full == nullptr)
        return nullptr;
    for (unsigned i = 0; i < size_; ++i)
        if (std::strcmp(map_[i]->full, full) == 0)
            return map_[i];
    return nullptr;
}

#if defined(_WIN32)
// The character classes and case maps of the calling thread's locale.
void class_tables(locale_descriptor& d) noexcept {
    for (int c = 0; c < 256; ++c) {
        unsigned char m = 0;
        if (iscntrl(c)) m |= locale_descriptor::cntrl;
        if (isdigit(c)) m |= locale_descriptor::digit;
        if (islower(c)) m |= locale_descriptor::lower;
        if (isprint(c)) m |= locale_descriptor::print;
        if (ispunct(c)) m |= locale_descriptor::punct;
        if (isspace(c)) m |= locale_descriptor::space;
        if (isupper(c)) m |= locale_descriptor::upper;
        if (isxdigit(c)) m |= locale_descriptor::xdigit;
        d.class_table[c] = m;
        d.lower_table[c] = static_cast<unsigned char>(tolower(c));
        d.upper_table[c] = static_cast<unsigned char>(toupper(c));
    }
}
#endif

void init_ldx(ldx_record& r, std::string const& full) {
    std::memset(static_cast<void*>(&r.d), 0, sizeof r.d);
    r.full = new char[full.size() + 1];
    std::memcpy(r.full, full.c_str(), full.size() + 1);
#if defined(_WIN32)
    r.native = r.full;
#else
    r.native = newlocale(LC_ALL_MASK, full.c_str(), locale_t(nullptr));
    if (r.native == locale_t(nullptr))
        r.native = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    if (r.native == locale_t(nullptr)) {
        delete[] r.full;
        throw std::bad_alloc();
    }
#endif

    locale_descriptor& d = r.d;
    copy_field(d.name, sizeof d.name, r.full);
    {
        detail::thread_locale scope(r.native);
        std::lconv const* lc = std::localeconv();
        copy_field(d.decimal_point, sizeof d.decimal_point, lc->decimal_point);
        copy_field(d.thousands_sep, sizeof d.thousands_sep, lc->thousands_sep);
        copy_field(d.grouping, sizeof d.grouping, lc->grouping);
        copy_field(d.int_curr_symbol, sizeof d.int_curr_symbol, lc->int_curr_symbol);
        copy_field(d.mon_decimal_point, sizeof d.mon_decimal_point, lc->mon_decimal_point);
        copy_field(d.mon_thousands_sep, sizeof d.mon_thousands_sep, lc->mon_thousands_sep);
        copy_field(d.mon_grouping, sizeof d.mon_grouping, lc->mon_grouping);
        copy_field(d.positive_sign, sizeof d.positive_sign, lc->positive_sign);
        copy_field(d.negative_sign, sizeof d.negative_sign, lc->negative_sign);
        d.int_frac_digits = lc->int_frac_digits;
        d.frac_digits = lc->frac_digits;
        d.p_cs_precedes = lc->p_cs_precedes;
        d.p_sep_by_space = lc->p_sep_by_space;
        d.n_cs_precedes = lc->n_cs_precedes;
        d.n_sep_by_space = lc->p_sep_by_space;  // kept: the positive value's setting
        d.p_sign_posn = lc->p_sign_posn;
        d.n_sign_posn = lc->n_sign_posn;
#if defined(_WIN32)
        // The classification below runs under this scope's thread locale.
        class_tables(d);
    }
#else
    }
    locale_t const l = r.native;
    for (int c = 0; c < 256; ++c) {
        unsigned char m = 0;
        if (iscntrl_l(c, l)) m |= locale_descriptor::cntrl;
        if (isdigit_l(c, l)) m |= locale_descriptor::digit;
        if (islower_l(c, l)) m |= locale_descriptor::lower;
        if (isprint_l(c, l)) m |= locale_descriptor::print;
        if (ispunct_l(c, l)) m |= locale_descriptor::punct;
        if (isspace_l(c, l)) m |= locale_descriptor::space;
        if (isupper_l(c, l)) m |= locale_descriptor::upper;
        if (isxdigit_l(c, l)) m |= locale_descriptor::xdigit;
        d.class_table[c] = m;
        d.lower_table[c] = static_cast<unsigned char>(tolower_l(c, l));
        d.upper_table[c] = static_cast<unsigned char>(toupper_l(c, l));
    }
#endif
}

void set_current(ldx_record const* r) noexcept {
    curr_ = &r->d;
    (void)std::setlocale(LC_ALL, r->full);
}

locale_descriptor const* install_locked(char const* name, int category, bool make_current) {
    std::string full;
    if (!get_fullname(full, name, category))
        return nullptr;
    ldx_record* r = find_ldx(full.c_str());
    if (r == nullptr) {
        if (size_ == cap_)
            expand_map();
        r = new ldx_record;
        try {
            init_ldx(*r, full);
        } catch (...) {
            delete r;
            throw;
        }
        map_[size_++] = r;
    }
    if (make_current)
        set_current(r);
    return &r->d;
}

void init_locked() {
    expand_map();
    install_locked("C", 0, false);
    c_native_.store(map_[0]->native, std::memory_order_release);
    std::string const present = std::setlocale(LC_ALL, nullptr);
    install_locked(present.c_str(), 0, true);
}

void ensure_locked() {
    if (map_ == nullptr)
        init_locked();
}

bool registered(locale_descriptor const* d) noexcept {
    for (unsigned i = 0; i < size_; ++i)
        if (&map_[i]->d == d)
            return true;
    return false;
}

using guard = std::lock_guard<std::mutex>;

} // namespace

// ---- ldx_manager ----------------------------------------------------------

ldx_manager::ldx_manager() {
    guard g(registry_mutex);
    ensure_locked();
}

locale_descriptor const* ldx_manager::C() {
    guard g(registry_mutex);
    ensure_locked();
    return &map_[0]->d;
}

locale_descriptor const* ldx_manager::current() {
    guard g(registry_mutex);
    ensure_locked();
    return curr_;
}

locale_descriptor const* ldx_manager::current(locale_descriptor const* d) {
    guard g(registry_mutex);
    ensure_locked();
    if (d == nullptr || !registered(d))
        return nullptr;
    set_current(record_of(d));
    return d;
}

locale_descriptor const* ldx_manager::current(char const* name, int category) {
    return install(name, category, true);
}

locale_descriptor const* ldx_manager::install(char const* name, int category) {
    return install(name, category, false);
}

locale_descriptor const* ldx_manager::install(char const* name, int category, bool make_current) {
    guard g(registry_mutex);
    ensure_locked();
    return install_locked(name, category, make_current);
}

locale_descriptor const* ldx_manager::find(char const* name) {
    guard g(registry_mutex);
    ensure_locked();
    std::string full;
    if (!get_fullname(full, name, 0))
        return nullptr;
    ldx_record const* r = find_ldx(full.c_str());
    return r != nullptr ? &r->d : nullptr;
}

bool ldx_manager::supports(char const* name, int category) {
    guard g(registry_mutex);
    ensure_locked();
    std::string full;
    return get_fullname(full, name, category);
}

char const* ldx_manager::full_name(locale_descriptor const* d) noexcept {
    return d != nullptr ? record_of(d)->full : nullptr;
}

unsigned ldx_manager::size() noexcept {
    guard g(registry_mutex);
    return size_;
}

unsigned ldx_manager::capacity() noexcept {
    guard g(registry_mutex);
    return cap_;
}

locale_descriptor const* ldx_manager::at(unsigned i) noexcept {
    guard g(registry_mutex);
    return i < size_ ? &map_[i]->d : nullptr;
}

void ldx_manager::init() {
    guard g(registry_mutex);
    ensure_locked();
}

void ldx_manager::destroy_map() noexcept {
    guard g(registry_mutex);
    if (map_ == nullptr)
        return;
    c_native_.store(detail::native_locale(nullptr), std::memory_order_release);
    for (unsigned i = 0; i < size_; ++i) {
#if !defined(_WIN32)
        freelocale(map_[i]->native);
#endif
        delete[] map_[i]->full;
        delete map_[i];
    }
    delete[] map_;
    map_ = nullptr;
    curr_ = nullptr;
    size_ = 0;
    cap_ = 0;
}

detail::native_locale detail::ldx_native(locale_descriptor const* d) {
    if (d == nullptr)
        d = ldx_manager::C();
    return record_of(d)->native;
}

detail::native_locale detail::c_native() {
    native_locale const l = c_native_.load(std::memory_order_acquire);
    return l != native_locale(nullptr) ? l : ldx_native(nullptr);
}

#if defined(_WIN32)
detail::thread_locale::thread_locale(native_locale l)
    : mode_(_configthreadlocale(_ENABLE_PER_THREAD_LOCALE)), changed_(false) {
    char const* present = std::setlocale(LC_ALL, nullptr);
    if (present != nullptr && std::strcmp(present, l) == 0)
        return;
    if (mode_ == _ENABLE_PER_THREAD_LOCALE && present != nullptr)
        saved_ = present;
    changed_ = std::setlocale(LC_ALL, l) != nullptr;
}

detail::thread_locale::~thread_locale() {
    // A thread that used the process's locale goes back to it, and the
    // locale the scope set is dropped with the thread's own.
    if (changed_ && !saved_.empty())
        std::setlocale(LC_ALL, saved_.c_str());
    if (mode_ != _ENABLE_PER_THREAD_LOCALE)
        _configthreadlocale(mode_);
}
#endif

// ---- ldx_lock -------------------------------------------------------------

ldx_lock::ldx_lock(locale_descriptor const* d) : d_(d), previous_(ldx_manager::current()) {
    if (d_ != nullptr && d_ != previous_)
        ldx_manager::current(d_);
}

ldx_lock::~ldx_lock() {
    if (d_ != nullptr && previous_ != d_)
        ldx_manager::current(previous_);
}

// ---- Character routines ---------------------------------------------------

bool xgetc(char& c, std::FILE* f, locale_descriptor const*) {
    if (f == nullptr || std::ferror(f))
        return false;
    int const b = std::fgetc(f);
    if (b == EOF)
        return false;
    c = static_cast<char>(b);
    return true;
}

bool xputc(char c, std::FILE* f, locale_descriptor const*) {
    return f != nullptr && std::fputc(static_cast<unsigned char>(c), f) != EOF;
}

bool xungetc(char c, std::FILE* f, locale_descriptor const*) {
    return f != nullptr && std::ungetc(static_cast<unsigned char>(c), f) != EOF;
}

bool xgetc(unsigned short& c, std::FILE* f, locale_descriptor const* d) {
    if (f == nullptr || std::ferror(f))
        return false;
    detail::thread_locale scope(detail::ldx_native(d));
    int b = std::fgetc(f);
    if (b == EOF)
        return false;
    char byte = static_cast<char>(b);
    std::mbstate_t state{};
    wchar_t w = 0;
    std::size_t r = std::mbrtowc(&w, &byte, 1, &state);
    if (r != static_cast<std::size_t>(-2)) {
        if (r == static_cast<std::size_t>(-1))
            return false;
        c = static_cast<unsigned char>(byte);  // a character by itself: its own value
        return true;
    }
    // The rest of one multibyte character.
    for (int n = 1; r == static_cast<std::size_t>(-2) && n < MB_LEN_MAX; ++n) {
        if (std::ferror(f) || (b = std::fgetc(f)) == EOF)
            return false;
        byte = static_cast<char>(b);
        r = std::mbrtowc(&w, &byte, 1, &state);
    }
    if (r == static_cast<std::size_t>(-1) || r == static_cast<std::size_t>(-2))
        return false;
    // Nothing to refuse where wchar_t is 16 bits (Windows).
    std::uint32_t const code = static_cast<std::uint32_t>(w);  // NOLINT(bugprone-signed-char-misuse): wchar_t
    if (code > 0xFFFFu)
        return false;
    c = static_cast<unsigned short>(code);
    return true;
}

namespace {

// c's multibyte form in d's locale, NUL-terminated; its length or -1.
int to_multibyte(unsigned short c, locale_descriptor const* d, char (&out)[MB_LEN_MAX + 1]) {
    detail::thread_locale scope(detail::ldx_native(d));
    std::mbstate_t state{};
    std::size_t const n = std::wcrtomb(out, static_cast<wchar_t>(c), &state);
    if (n == static_cast<std::size_t>(-1))
        return -1;
    out[n] = '\0';
    return static_cast<int>(n);
}

} // namespace

bool xputc(unsigned short c, std::FILE* f, locale_descriptor const* d) {
    char bytes[MB_LEN_MAX + 1];
    if (f == nullptr || to_multibyte(c, d, bytes) < 0)
        return false;
    return std::fputs(bytes, f) != EOF;
}

bool xungetc(unsigned short c, std::FILE* f, locale_descriptor const* d) {
    char bytes[MB_LEN_MAX + 1];
    int const n = f != nullptr ? to_multibyte(c, d, bytes) : -1;
    if (n < 0)
        return false;
    for (int i = n - 1; i >= 0; --i)
        (void)std::ungetc(static_cast<unsigned char>(bytes[i]), f);
    return true;
}

} // namespace zel
