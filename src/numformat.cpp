// Number formatting: the integer and floating formatting engines behind the
// `insert` forms, and the character-array conversions (ltoa, qtoa, dtoa and
// their relatives) that lay out the same text and copy it into a caller's
// buffer.
//
// The integer engine writes its digits itself (two at a time in radix 10,
// by shifts in the power-of-two radixes); the floating engine hands the
// value to the C library's snprintf and lays out the text it gets back.
#include <zel/numconv.h>

#include <cerrno>
#include <cfloat>
#include <cstdio>
#include <cstring>

namespace zel {

namespace {

// ---- Integer engine ------------------------------------------------------

char const lower_alphabet[] = "0123456789abcdefghijklmnopqrstuvwxyz";
char const upper_alphabet[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

struct digit_pairs {
    char text[200];
};

constexpr digit_pairs make_digit_pairs() {
    digit_pairs p{};
    for (unsigned i = 0; i < 100; ++i) {
        p.text[2 * i] = static_cast<char>('0' + i / 10);
        p.text[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return p;
}

constexpr digit_pairs decimal_pairs = make_digit_pairs();

// Writes the decimal digits of v backwards, ending just before `end`, and
// returns where they start.
char* write_decimal(std::uint64_t v, char* end) noexcept {
    // 64-bit division is a library call on 32-bit targets: take the value
    // down to 32 bits first, then finish in 32-bit arithmetic.
    while (v > 0xFFFFFFFFu) {
        unsigned const r = static_cast<unsigned>(v % 100);
        v /= 100;
        end -= 2;
        std::memcpy(end, decimal_pairs.text + 2 * r, 2);
    }
    auto w = static_cast<std::uint32_t>(v);
    while (w >= 100) {
        unsigned const r = w % 100;
        w /= 100;
        end -= 2;
        std::memcpy(end, decimal_pairs.text + 2 * r, 2);
    }
    if (w >= 10) {
        end -= 2;
        std::memcpy(end, decimal_pairs.text + 2 * w, 2);
    } else {
        *--end = static_cast<char>('0' + w);
    }
    return end;
}

// Writes the digits of v in `radix` backwards, ending just before `end`, at
// least one digit; returns where they start.
char* write_digits(std::uint64_t v, unsigned radix, char const* alphabet, char* end) noexcept {
    if (radix == 10)
        return write_decimal(v, end);
    if ((radix & (radix - 1)) == 0) {
        unsigned shift = 1;
        while ((1u << shift) != radix)
            ++shift;
        do {
            *--end = alphabet[v & (radix - 1)];
            v >>= shift;
        } while (v != 0);
        return end;
    }
    do {
        *--end = alphabet[v % radix];
        v /= radix;
    } while (v != 0);
    return end;
}

// Where the fill goes in a field split into a head (prefix or sign) and the
// rest.
enum class fill_at { front, between, back };

// Writes the field; the fill sink is called even for a count of 0, the
// text sink never for an empty head.
void write_field(text_sink text, void* context, fill_sink fill, void const* fill_char,
                 fill_at where, char const* field, unsigned head, unsigned count,
                 unsigned fill_count) {
    switch (where) {
    case fill_at::front:
        fill(context, fill_char, fill_count);
        text(context, field, count);
        break;
    case fill_at::between:
        if (head != 0)
            text(context, field, head);
        fill(context, fill_char, fill_count);
        text(context, field + head, count - head);
        break;
    case fill_at::back:
        text(context, field, count);
        fill(context, fill_char, fill_count);
        break;
    }
}

// An integer's prefix and digits, laid out at the end of `text`.
struct integer_field {
    char text[72];  // room for 64 binary digits and a two-character prefix
    char const* start;
    unsigned prefix_count;
    unsigned count;
    long flags;  // the caller's, less `internal` after an octal "0"
};

// Lays out the field of the integer engine over the value's 64 bits;
// `is_signed` lets radix 10 write a negative value with "-". The radix is
// valid (0, or 2 to 36).
void lay_out_integer(integer_field& field, std::uint64_t bits, bool is_signed, unsigned radix,
                     long flags) noexcept {
    if (radix == 0) {
        radix = ios_flags::radix_of(flags);
        if (radix == 0)
            radix = 10;
    }
    bool const negative = is_signed && radix == 10 && (bits >> 63) != 0;
    // The most negative value negates to itself and prints as 2^63.
    std::uint64_t const magnitude = negative ? 0 - bits : bits;

    char* const end = field.text + sizeof field.text;
    char const* alphabet = (flags & ios_flags::uppercase) ? upper_alphabet : lower_alphabet;
    char* const digits = write_digits(magnitude, radix, alphabet, end);

    char const* prefix = "";
    if (radix == 10) {
        if (negative)
            prefix = "-";
        else if (flags & ios_flags::showpos)
            prefix = "+";
    } else if (flags & ios_flags::showbase) {
        if (radix == 16) {
            prefix = "0x";
        } else if (radix == 8 && bits != 0) {
            prefix = "0";
            flags &= ~ios_flags::internal;  // so "0" stays on the digits
        } else if (radix == 2) {
            prefix = "0b";
        }
    }
    auto const prefix_count = static_cast<unsigned>(std::strlen(prefix));
    char* const start = digits - prefix_count;
    std::memcpy(start, prefix, prefix_count);  // NOLINT(bugprone-not-null-terminated-result): a counted field

    field.start = start;
    field.prefix_count = prefix_count;
    field.count = static_cast<unsigned>(end - start);
    field.flags = flags;
}

inline bool valid_radix(unsigned radix) noexcept { return radix != 1 && radix <= 36; }

unsigned format_integer(text_sink text, void* context, fill_sink fill, void const* fill_char,
                        std::uint64_t bits, bool is_signed, unsigned radix, unsigned width,
                        long flags) {
    if (text == nullptr || fill == nullptr || !valid_radix(radix)) {
        errno = EINVAL;
        return 0;
    }
    errno = 0;
    integer_field field;
    lay_out_integer(field, bits, is_signed, radix, flags);
    unsigned const fill_count = width > field.count ? width - field.count : 0;
    fill_at where = fill_at::front;
    if (!(field.flags & ios_flags::right) &&
        (field.flags & (ios_flags::left | ios_flags::internal)))
        where = (field.flags & ios_flags::left) ? fill_at::back : fill_at::between;
    write_field(text, context, fill, fill_char, where, field.start, field.prefix_count,
                field.count, fill_count);
    return field.count + fill_count;
}

// ---- Floating engine -----------------------------------------------------

constexpr unsigned max_precision = 53;

// "%f" of the largest long double: every integer digit, sign, point, 53
// decimals and the null, with room to spare.
constexpr unsigned floating_text_size = LDBL_MAX_10_EXP + 64;

// Formats the value into `out` (`floating_text_size` characters) as the
// flags say and puts in the decimal point; returns the count, or -1 when
// the C library refuses. A `double` travels as a long double (exactly) and
// is handed back to snprintf as a double.
int print_floating(char* out, long double value, bool is_long, unsigned precision, long flags,
                   char decimal_point) {
    if (precision > max_precision)
        precision = max_precision;

    char format[8];
    char* f = format;
    *f++ = '%';
    if (flags & ios_flags::showpos)
        *f++ = '+';
    if (flags & ios_flags::showpoint)
        *f++ = '#';
    *f++ = '.';
    *f++ = '*';
    if (is_long)
        *f++ = 'L';
    char letter = (flags & ios_flags::scientific) ? 'e' : (flags & ios_flags::fixed) ? 'f' : 'g';
    if (flags & ios_flags::uppercase)
        letter = static_cast<char>(letter - 'a' + 'A');
    *f++ = letter;
    *f = '\0';

    // The format is built above from a fixed set of pieces, each matching the
    // arguments given here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    int const digits = static_cast<int>(precision);
    int const written =
        is_long ? std::snprintf(out, floating_text_size, format, digits, value)
                : std::snprintf(out, floating_text_size, format, digits,
                                static_cast<double>(value));
#pragma GCC diagnostic pop
    if (written > 0 && decimal_point != '\0' && decimal_point != '.') {
        // "%g" may print no point at all; then there is nothing to replace.
        if (auto* point = static_cast<char*>(std::memchr(out, '.', static_cast<unsigned>(written))))
            *point = decimal_point;
    }
    return written;
}

unsigned format_floating(text_sink text, void* context, fill_sink fill, void const* fill_char,
                         long double value, bool is_long, unsigned width, unsigned precision,
                         long flags, char decimal_point) {
    char out[floating_text_size];
    int const written = text == nullptr || fill == nullptr
                            ? -1
                            : print_floating(out, value, is_long, precision, flags, decimal_point);
    if (written < 0) {
        errno = EINVAL;
        return 0;
    }
    auto const count = static_cast<unsigned>(written);
    unsigned const fill_count = width > count ? width - count : 0;

    // Internal puts the fill after a sign, or in front when there is none.
    fill_at where = fill_at::front;
    unsigned head = 0;
    if ((flags & ios_flags::internal) && !(flags & (ios_flags::right | ios_flags::left))) {
        where = fill_at::between;
        head = count != 0 && (out[0] == '-' || out[0] == '+') ? 1 : 0;
    } else if (flags & ios_flags::left) {
        where = fill_at::back;
    }
    write_field(text, context, fill, fill_char, where, out, head, count, fill_count);
    return count + fill_count;
}

// ---- Character-array conversions ---------------------------------------

// The character-array forms run the engine with width 0, where the field
// is the whole output: they copy it without going through the sinks.
inline void copy_field(char* to, char const* from, unsigned count) noexcept {
    std::memcpy(to, from, count);
    to[count] = '\0';
}

inline void copy_field(unsigned short* to, char const* from, unsigned count) noexcept {
    for (unsigned i = 0; i < count; ++i)
        to[i] = static_cast<unsigned char>(from[i]);
    to[count] = 0;
}

template <class C>
C* integer_to_text(std::uint64_t bits, bool is_signed, C* buffer, int radix, bool upper,
                   bool base) {
    if (buffer == nullptr)
        return buffer;
    if (radix == 0)
        radix = 10;  // before the flags: base in radix 0 gets the "+" of radix 10
    if (!valid_radix(static_cast<unsigned>(radix))) {
        errno = EINVAL;
        *buffer = 0;
        return buffer;
    }
    errno = 0;
    long flags = ios_flags::right;
    if (upper)
        flags |= ios_flags::uppercase;
    if (base)
        flags |= ios_flags::showbase;
    if (base && radix == 10)
        flags |= ios_flags::showpos;
    integer_field field;
    lay_out_integer(field, bits, is_signed, static_cast<unsigned>(radix), flags);
    copy_field(buffer, field.start, field.count);
    return buffer;
}

template <class C>
C* floating_to_text(long double value, bool is_long, C* buffer, int precision, bool upper,
                    bool point) {
    if (buffer == nullptr)
        return buffer;
    if (precision == 0)
        precision = 6;
    long flags = ios_flags::right;
    if (upper)
        flags |= ios_flags::uppercase;
    if (point)
        flags |= ios_flags::showpoint;
    char out[floating_text_size];
    int const written = print_floating(out, value, is_long, static_cast<unsigned>(precision),
                                       flags, '.');
    if (written < 0)
        errno = EINVAL;  // success leaves errno as it was
    copy_field(buffer, out, written < 0 ? 0 : static_cast<unsigned>(written));
    return buffer;
}

// Sign extension of a `long` of either width to the engine's 64 bits.
inline std::uint64_t extend(long value) noexcept {
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(value));
}

} // namespace

unsigned insert(text_sink text, void* context, fill_sink fill, void const* fill_char,
                std::int64_t value, unsigned radix, unsigned width, long flags) {
    return format_integer(text, context, fill, fill_char, static_cast<std::uint64_t>(value), true,
                          radix, width, flags);
}

unsigned insert(text_sink text, void* context, fill_sink fill, void const* fill_char,
                std::uint64_t value, unsigned radix, unsigned width, long flags) {
    return format_integer(text, context, fill, fill_char, value, false, radix, width, flags);
}

unsigned insert(text_sink text, void* context, fill_sink fill, void const* fill_char,
                double value, unsigned width, unsigned precision, long flags,
                char decimal_point) {
    return format_floating(text, context, fill, fill_char, value, false, width, precision, flags,
                           decimal_point);
}

unsigned insert(text_sink text, void* context, fill_sink fill, void const* fill_char,
                long double value, unsigned width, unsigned precision, long flags,
                char decimal_point) {
    return format_floating(text, context, fill, fill_char, value, true, width, precision, flags,
                           decimal_point);
}

char* ltoa(long value, char* buffer, int radix, bool upper, bool base) noexcept {
    return integer_to_text(extend(value), true, buffer, radix, upper, base);
}

char* ultoa(unsigned long value, char* buffer, int radix, bool upper, bool base) noexcept {
    return integer_to_text(std::uint64_t{value}, false, buffer, radix, upper, base);
}

char* qtoa(std::int64_t value, char* buffer, int radix, bool upper, bool base) noexcept {
    return integer_to_text(static_cast<std::uint64_t>(value), true, buffer, radix, upper, base);
}

char* uqtoa(std::uint64_t value, char* buffer, int radix, bool upper, bool base) noexcept {
    return integer_to_text(value, false, buffer, radix, upper, base);
}

unsigned short* ltow(long value, unsigned short* buffer, int radix, bool upper,
                     bool base) noexcept {
    return integer_to_text(extend(value), true, buffer, radix, upper, base);
}

unsigned short* ultow(unsigned long value, unsigned short* buffer, int radix, bool upper,
                      bool base) noexcept {
    return integer_to_text(std::uint64_t{value}, false, buffer, radix, upper, base);
}

unsigned short* qtow(std::int64_t value, unsigned short* buffer, int radix, bool upper,
                     bool base) noexcept {
    return integer_to_text(static_cast<std::uint64_t>(value), true, buffer, radix, upper, base);
}

unsigned short* uqtow(std::uint64_t value, unsigned short* buffer, int radix, bool upper,
                      bool base) noexcept {
    return integer_to_text(value, false, buffer, radix, upper, base);
}

char* dtoa(double value, char* buffer, int precision, bool upper, bool point) noexcept {
    return floating_to_text(value, false, buffer, precision, upper, point);
}

char* ldtoa(long double value, char* buffer, int precision, bool upper, bool point) noexcept {
    return floating_to_text(value, true, buffer, precision, upper, point);
}

unsigned short* dtow(double value, unsigned short* buffer, int precision, bool upper,
                     bool point) noexcept {
    return floating_to_text(value, false, buffer, precision, upper, point);
}

unsigned short* ldtow(long double value, unsigned short* buffer, int precision, bool upper,
                      bool point) noexcept {
    return floating_to_text(value, true, buffer, precision, upper, point);
}

} // namespace zel
