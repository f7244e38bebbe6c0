// Locale descriptors: `locale_descriptor`, a fixed 992-byte snapshot of one
// named C-library locale (its name, numeric and monetary punctuation and the
// character-class, lower-case and upper-case tables for codes 0-255);
// `ldx_manager`, the process-wide registry of every descriptor made so far,
// which also remembers the descriptor the C library's own locale was last
// set to; `ldx_lock`, which switches the C library's locale for a scope; and
// the character routines `xgetc`, `xputc`, `xungetc` on a C `FILE`, whose
// wide forms convert between a 16-bit character and its multibyte form in a
// descriptor's locale.
//
// Names. The 128-byte name field holds at most the first 127 characters of
// the C library's full name; composite names (glibc's
// "LC_CTYPE=...;LC_NUMERIC=...;..." after single categories were set) are
// longer. The registry keeps the full name beside each record
// (`ldx_manager::full_name`), and every lookup and every switch of the C
// library's locale uses the full name, never the truncated field.
//
// Punctuation. Each string is copied bounded to its field: at most the
// field's size less one bytes, always NUL-terminated. A longer C-library
// string (none of the usual locales has one) is cut.
//
// Threads. Installing and finding descriptors is serialised inside the
// registry, so threads may install at the same time. `current(d)` and
// `ldx_lock` switch the process's C locale, as the library always has:
// that affects every thread that relies on the C library's global locale.
// The conversions the library does itself (the wide character routines,
// the number facets) never depend on that switch: they run under a
// per-thread locale object kept beside the descriptor, so two threads
// converting through different descriptors at the same time each get their
// own descriptor's results.
#ifndef ZEL_LDX_H
#define ZEL_LDX_H

#include <cstddef>
#include <cstdio>

#include <zel/config.h>

namespace zel {

// Locale categories. Values below 256 are C-library category numbers
// (0 all, 1 collation, 2 character types, 3 monetary, 4 numeric, 5 time);
// values of 256 and above are bit sets of the categories below.
struct locale_base {
    using category = int;
    static constexpr category none = 0;
    static constexpr category collate = 0x100;
    static constexpr category ctype = 0x200;
    static constexpr category monetary = 0x400;
    static constexpr category numeric = 0x800;
    static constexpr category time = 0x1000;
    static constexpr category all = 0x1F00;
};

// The record: plain data, zero-filled before it is set. Offsets are fixed
// (asserted below). Made only by ldx_manager; pointers to descriptors stay
// valid until ldx_manager::destroy_map().
struct locale_descriptor {
    // The class-table bits, which ctype_base::mask takes over.
    static constexpr unsigned char cntrl = 0x01;
    static constexpr unsigned char digit = 0x02;
    static constexpr unsigned char lower = 0x04;
    static constexpr unsigned char print = 0x08;
    static constexpr unsigned char punct = 0x10;
    static constexpr unsigned char space = 0x20;
    static constexpr unsigned char upper = 0x40;
    static constexpr unsigned char xdigit = 0x80;

    char name[128];               // first 127 characters of the full name
    char unused[4];               // always zero
    char decimal_point[4];
    char thousands_sep[12];
    char grouping[24];
    char int_curr_symbol[8];
    char mon_decimal_point[4];
    char mon_thousands_sep[8];
    char mon_grouping[8];
    char positive_sign[8];
    char negative_sign[8];
    char int_frac_digits;
    char frac_digits;
    char p_cs_precedes;
    char p_sep_by_space;
    char n_cs_precedes;
    // Kept behaviour: filled from p_sep_by_space, not from the C library's
    // own setting for negative values.
    char n_sep_by_space;
    char p_sign_posn;
    char n_sign_posn;
    unsigned char class_table[256];  // the bits above, per code 0-255
    unsigned char lower_table[256];  // lower-case form per code
    unsigned char upper_table[256];  // upper-case form per code
};

static_assert(sizeof(locale_descriptor) == 992, "the descriptor is a 992-byte record");
static_assert(offsetof(locale_descriptor, unused) == 128, "descriptor layout");
static_assert(offsetof(locale_descriptor, decimal_point) == 132, "descriptor layout");
static_assert(offsetof(locale_descriptor, thousands_sep) == 136, "descriptor layout");
static_assert(offsetof(locale_descriptor, grouping) == 148, "descriptor layout");
static_assert(offsetof(locale_descriptor, int_curr_symbol) == 172, "descriptor layout");
static_assert(offsetof(locale_descriptor, mon_decimal_point) == 180, "descriptor layout");
static_assert(offsetof(locale_descriptor, mon_thousands_sep) == 184, "descriptor layout");
static_assert(offsetof(locale_descriptor, mon_grouping) == 192, "descriptor layout");
static_assert(offsetof(locale_descriptor, positive_sign) == 200, "descriptor layout");
static_assert(offsetof(locale_descriptor, negative_sign) == 208, "descriptor layout");
static_assert(offsetof(locale_descriptor, int_frac_digits) == 216, "descriptor layout");
static_assert(offsetof(locale_descriptor, n_sep_by_space) == 221, "descriptor layout");
static_assert(offsetof(locale_descriptor, n_sign_posn) == 223, "descriptor layout");
static_assert(offsetof(locale_descriptor, class_table) == 224, "descriptor layout");
static_assert(offsetof(locale_descriptor, lower_table) == 480, "descriptor layout");
static_assert(offsetof(locale_descriptor, upper_table) == 736, "descriptor layout");

// The registry. All state is static; constructing an ldx_manager only makes
// sure the registry exists. Entry 0 is the "C" descriptor; the registry
// starts with 32 entries and grows by 32 (bad_alloc "bad allocation",
// src/ldx.cpp line 421, when that fails). Descriptors are never removed one
// by one.
//
// A name the C library refuses for the category gives null (install, find,
// current) or false (supports), and the registry is left unchanged. Kept
// behaviour: when a category bit set names several categories and the C
// library refuses one of them, the categories set before the refusal stay
// set in the C library's global locale.
class ZEL_API ldx_manager {
public:
    ldx_manager();

    // Entry 0, the "C" descriptor.
    static locale_descriptor const* C();
    // The descriptor the C library's locale was last set to through the
    // registry (after start-up: the locale the program had then).
    static locale_descriptor const* current();
    // Makes d current and sets the C library's locale (all categories) to
    // its full name. Null, changing nothing, for a null d or one that is not
    // in the registry.
    static locale_descriptor const* current(locale_descriptor const* d);
    // install(name, category) and make the result current.
    static locale_descriptor const* current(char const* name, int category);
    // The descriptor for `name` set in `category` on top of the C library's
    // present locale (the composite full name), made if new.
    static locale_descriptor const* install(char const* name, int category);
    // The descriptor whose name is the full name of `name` for all
    // categories, or null; never makes one.
    static locale_descriptor const* find(char const* name);
    // Whether the C library accepts `name` for `category`.
    static bool supports(char const* name, int category);

    // The full C-library name of a registered descriptor (its `name` field
    // holds at most the first 127 characters of it).
    static char const* full_name(locale_descriptor const* d) noexcept;

    // Entries in use, entries allocated, and entry i (null past the end).
    static unsigned size() noexcept;
    static unsigned capacity() noexcept;
    static locale_descriptor const* at(unsigned i) noexcept;

    // Frees every descriptor and the registry. Only for the end of the
    // program (ios_base::Init's destructor, after locale::shutdown): every
    // descriptor pointer held anywhere dangles afterwards.
    static void destroy_map() noexcept;

private:
    static locale_descriptor const* install(char const* name, int category, bool make_current);
    static void init();
};

// Switches the C library's locale to d for a scope and back afterwards.
// Kept behaviour: when no descriptor was current at construction the
// destructor switches nothing back, and the C library stays in d's locale.
class ZEL_API ldx_lock {
public:
    explicit ldx_lock(locale_descriptor const* d);
    ldx_lock(ldx_lock const&) = delete;
    ldx_lock& operator=(ldx_lock const&) = delete;
    ~ldx_lock();

private:
    locale_descriptor const* d_;
    locale_descriptor const* previous_;
};

// Narrow routines: one byte with fgetc/fputc/ungetc; d is not used.
// xgetc fails when the stream's error indicator is set or at end of file.
ZEL_API bool xgetc(char& c, std::FILE* f, locale_descriptor const* d);
ZEL_API bool xputc(char c, std::FILE* f, locale_descriptor const* d);
ZEL_API bool xungetc(char c, std::FILE* f, locale_descriptor const* d);

// Wide routines, converting in d's locale (the C locale for a null d).
// xgetc: a byte that is a character by itself is taken as its own value
// (0xE9 reads as 0x00E9 in any locale where it stands alone); otherwise
// bytes are read until they form one multibyte character, which is
// converted. End of file, a stream error or a conversion error fails; a
// character beyond 16 bits fails. xputc writes the multibyte form; kept
// behaviour: character 0 converts to nothing, writes nothing and succeeds.
// xungetc pushes the multibyte form back (last byte first, so the next read
// gives the character again); its result says only whether the conversion
// succeeded, not whether the C stream took every byte back.
ZEL_API bool xgetc(unsigned short& c, std::FILE* f, locale_descriptor const* d);
ZEL_API bool xputc(unsigned short c, std::FILE* f, locale_descriptor const* d);
ZEL_API bool xungetc(unsigned short c, std::FILE* f, locale_descriptor const* d);

} // namespace zel

#endif
