// Fuzz target for number parsing and formatting.
//
// The input is read three ways at once:
//   - as text: strtoq and strtouq in every radix (0, 2 to 36, and the
//     invalid 1 and 37) and xstrtold, each beside its wide form over the same
//     text widened; both forms must agree on value, errno and how far they
//     read, and the end must lie inside the text;
//   - as numbers: 64-bit integers written by qtoa/uqtoa (and the wide
//     forms) in a radix, case and prefix the input picks, and read back by
//     strtoq/strtouq in the same radix; doubles written by dtoa with 17
//     digits and read back by xstrtold, exactly;
//   - as engine calls: the integer and floating insert engines with any
//     flags, width, precision and decimal point, into a string sink; the
//     count returned must be the count written, and an integer's digits,
//     with the fill taken out, must read back to the value.
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include <zel/ios_flags.h>
#include <zel/numconv.h>

namespace {

[[noreturn]] void fail(char const* what, std::string const& text) {
    std::fprintf(stderr, "numbers fuzz: %s\ntext [%s]\n", what, text.c_str());
    std::abort();
}

std::vector<unsigned short> widen(std::string const& s) {
    std::vector<unsigned short> w;
    for (char c : s)
        w.push_back(static_cast<unsigned char>(c));
    w.push_back(0);
    return w;
}

bool same(long double a, long double b) {
    return (std::isnan(a) && std::isnan(b)) || a == b;
}

// The text conversions, narrow beside wide.
void parse(std::string const& text) {
    char const* const s = text.c_str();
    std::size_t const n = std::strlen(s);
    std::vector<unsigned short> const w = widen(text.substr(0, n));
    static int const radixes[] = {0, 1, 2, 3, 7, 8, 10, 11, 16, 17, 35, 36, 37};
    for (int radix : radixes) {
        char const* end = nullptr;
        unsigned short const* wend = nullptr;
        std::int64_t const q = zel::strtoq(s, &end, radix);
        int const e = errno;
        std::int64_t const wq = zel::wstrtoq(w.data(), &wend, radix);
        if (end < s || end > s + n || q != wq || errno != e || end - s != wend - w.data())
            fail("strtoq and wstrtoq disagree", text);
        if (e != 0 && e != EINVAL && e != ERANGE)
            fail("strtoq set an unexpected errno", text);
        if (e != 0 && q != 0)
            fail("strtoq failed but returned a value", text);
        std::uint64_t const u = zel::strtouq(s, &end, radix);
        int const ue = errno;
        std::uint64_t const wu = zel::wstrtouq(w.data(), &wend, radix);
        if (end < s || end > s + n || u != wu || errno != ue || end - s != wend - w.data())
            fail("strtouq and wstrtouq disagree", text);
        if (ue == ERANGE && u != ~std::uint64_t{0})
            fail("strtouq overflowed to something other than all bits", text);
        if ((radix == 1 || radix == 37) && (e != EINVAL || ue != EINVAL))
            fail("an invalid radix was accepted", text);
    }
    char const* end = nullptr;
    unsigned short const* wend = nullptr;
    long double const d = zel::xstrtold(s, &end);
    int const e = errno;
    long double const wd = zel::xwstrtold(w.data(), &wend);
    if (end < s || end > s + n || !same(d, wd) || errno != e || end - s != wend - w.data())
        fail("xstrtold and xwstrtold disagree", text);
}

std::string wide_text(unsigned short const* w) {
    std::string s;
    for (; *w; ++w) {
        if (*w > 127)
            return "?";
        s += char(*w);
    }
    return s;
}

void integers(FuzzedDataProvider& in) {
    auto const v = in.ConsumeIntegral<std::int64_t>();
    int const radix = in.ConsumeIntegralInRange<int>(2, 36);
    bool const upper = in.ConsumeBool();
    bool const base = in.ConsumeBool();
    char buffer[80];
    unsigned short wbuffer[80];

    zel::uqtoa(std::uint64_t(v), buffer, radix, upper, base);
    char const* end = nullptr;
    std::uint64_t const u = zel::strtouq(buffer, &end, radix);
    if (u != std::uint64_t(v) || errno != 0 || *end != 0)
        fail("uqtoa does not read back", buffer);
    zel::uqtow(std::uint64_t(v), wbuffer, radix, upper, base);
    if (wide_text(wbuffer) != buffer)
        fail("uqtow writes another text than uqtoa", buffer);

    zel::qtoa(v, buffer, radix, upper, base);
    zel::qtow(v, wbuffer, radix, upper, base);
    if (wide_text(wbuffer) != buffer)
        fail("qtow writes another text than qtoa", buffer);
    if (radix == 10) {
        std::int64_t const q = zel::strtoq(buffer, &end, 10);
        if (q != v || errno != 0 || *end != 0)
            fail("qtoa does not read back", buffer);
    } else if (zel::strtouq(buffer, &end, radix) != std::uint64_t(v) || errno != 0 || *end != 0) {
        fail("qtoa does not read back as 64 bits", buffer);
    }
}

void floating(FuzzedDataProvider& in) {
    double const d = in.ConsumeFloatingPoint<double>();
    bool const upper = in.ConsumeBool();
    bool const point = in.ConsumeBool();
    char buffer[96];
    zel::dtoa(d, buffer, 17, upper, point);
    if (!std::isfinite(d) || std::fabs(d) < DBL_MIN)
        return;  // "inf"/"nan" are not numbers to the engine; strtod flags subnormals
    char const* end = nullptr;
    long double const back = zel::xstrtold(buffer, &end);
    if (errno != 0 || *end != 0 || double(back) != d)
        fail("dtoa does not read back", buffer);
    zel::ldtoa(static_cast<long double>(d), buffer, in.ConsumeIntegralInRange<int>(-1, 60), upper,
               point);
}

struct sink {
    std::string text;
    static void put(void* self, char const* text, unsigned count) {
        static_cast<sink*>(self)->text.append(text, count);
    }
    static void fill(void* self, void const* c, unsigned count) {
        static_cast<sink*>(self)->text.append(count, *static_cast<char const*>(c));
    }
};

void engines(FuzzedDataProvider& in) {
    long const flags = in.ConsumeIntegral<std::uint16_t>();
    unsigned const width = in.ConsumeIntegralInRange<unsigned>(0, 400);
    char const fill = '*';
    if (in.ConsumeBool()) {
        auto const v = in.ConsumeIntegral<std::int64_t>();
        unsigned const radix = in.ConsumeIntegralInRange<unsigned>(0, 37);
        bool const is_signed = in.ConsumeBool();
        sink out;
        unsigned const count =
            is_signed ? zel::insert(sink::put, &out, sink::fill, &fill, v, radix, width, flags)
                      : zel::insert(sink::put, &out, sink::fill, &fill, std::uint64_t(v), radix,
                                    width, flags);
        if (count != out.text.size())
            fail("the integer engine miscounts", out.text);
        if (radix == 1 || radix > 36) {
            if (count != 0)
                fail("the integer engine wrote in an invalid radix", out.text);
            return;
        }
        std::string digits;
        for (char c : out.text)
            if (c != fill)
                digits += c;
        using zel::ios_flags;
        unsigned effective = radix;
        if (effective == 0) {
            if ((flags & ios_flags::dec) || !(flags & (ios_flags::hex | ios_flags::oct | ios_flags::bin)))
                effective = 10;
            else
                effective = (flags & ios_flags::hex) ? 16 : (flags & ios_flags::oct) ? 8 : 2;
        }
        char const* end = nullptr;
        if (effective == 10 && is_signed) {
            if (zel::strtoq(digits.c_str(), &end, 10) != v || *end != 0)
                fail("the integer engine's text does not read back", out.text);
        } else if (zel::strtouq(digits.c_str(), &end, int(effective)) != std::uint64_t(v) ||
                   *end != 0) {
            fail("the integer engine's text does not read back as 64 bits", out.text);
        }
    } else {
        unsigned const precision = in.ConsumeIntegralInRange<unsigned>(0, 80);
        char const point = in.ConsumeIntegral<char>();
        sink out;
        unsigned count;
        if (in.ConsumeBool()) {
            count = zel::insert(sink::put, &out, sink::fill, &fill, in.ConsumeFloatingPoint<double>(),
                                width, precision, flags, point);
        } else {
            long double const v = in.ConsumeFloatingPoint<long double>();
            count = zel::insert(sink::put, &out, sink::fill, &fill, v, width, precision, flags, point);
        }
        if (count != out.text.size())
            fail("the floating engine miscounts", out.text);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text(reinterpret_cast<char const*>(data), size);
    parse(text);
    FuzzedDataProvider in(data, size);
    integers(in);
    floating(in);
    engines(in);
    return 0;
}
