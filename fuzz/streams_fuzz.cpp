// Fuzz target for formatted and unformatted stream input: an istringstream
// (and a wide one over the same bytes, widened or paired into 16-bit
// units) reads arbitrary text through a sequence of extractions the input
// chooses: integers of every width, floating values, bool, strings, single
// characters, arrays with a width, get/getline into arrays and strings with
// a character or a character-class delimiter, read, ignore, eat, peek,
// putback, ws, seeks, format flags (radix, skipws, boolalpha) and clear().
//
// Checked after every step: no crash, leak or sanitizer report; the state
// holds only the three state bits; gcount is within what the call asked;
// arrays are terminated within their size; tellg is -1 (after a failure)
// or a position inside the text; the failing prefix really extracts
// nothing.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <type_traits>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include <zel/ios.h>
#include <zel/istream.h>
#include <zel/sstream.h>
#include <zel/string.h>

namespace {

[[noreturn]] void fail(char const* what, int step) {
    std::fprintf(stderr, "streams fuzz: %s at step %d\n", what, step);
    std::abort();
}

template <class C>
using string_of = std::conditional_t<std::is_same_v<C, char>, zel::string, zel::wstring>;

template <class C>
unsigned length_of(C const* s, unsigned limit) {
    unsigned n = 0;
    while (n < limit && s[n] != 0)
        ++n;
    return n;
}

template <class C>
void run(FuzzedDataProvider& ops, zel::basic_istringstream<C>& in, long size) {
    using istream = zel::basic_istream<C>;
    using mask = typename istream::mask;
    using zel::ios_base;
    static long const flag_sets[] = {ios_base::hex, ios_base::oct, ios_base::dec, ios_base::bin,
                                     ios_base::boolalpha, 0};
    for (int step = 0; ops.remaining_bytes() && step < 64; ++step) {
        long asked = -1;  // the gcount limit of an unformatted call
        long const n = ops.ConsumeIntegralInRange<long>(0, 12);
        C const delim = C(ops.ConsumeIntegralInRange<unsigned>(0, 130));
        mask const classes = ops.ConsumeIntegral<mask>();
        bool const negate = ops.ConsumeBool();
        switch (ops.ConsumeIntegralInRange<int>(0, 33)) {
        case 0: { int v = 7; in >> v; break; }
        case 1: { long v = 7; in >> v; break; }
        case 2: { unsigned v = 7; in >> v; break; }
        case 3: { unsigned long v = 7; in >> v; break; }
        case 4: { long long v = 7; in >> v; break; }
        case 5: { unsigned long long v = 7; in >> v; break; }
        case 6: { short v = 7; in >> v; break; }
        case 7: { double v = 7; in >> v; break; }
        case 8: { float v = 7; in >> v; break; }
        case 9: { long double v = 7; in >> v; break; }
        case 10: { bool v = false; in >> v; break; }
        case 11: { void* v = nullptr; in >> v; break; }
        case 12: { string_of<C> s; in >> s; break; }
        case 13: { C c = 0; in >> c; break; }
        case 14: {
            std::vector<C> buffer(n + 1, C('x'));
            in.width(n + 1);
            in >> buffer.data();
            if (length_of(buffer.data(), unsigned(n + 1)) > unsigned(n))
                fail("a word overran its width", step);
            break;
        }
        case 15:
        case 16: {
            std::vector<C> buffer(n + 1, C('x'));
            if (ops.ConsumeBool())
                in.get(buffer.data(), n + 1, delim);
            else
                in.get(buffer.data(), n + 1, classes, negate);
            asked = n;
            if (length_of(buffer.data(), unsigned(n + 1)) > unsigned(n))
                fail("get did not terminate the array", step);
            break;
        }
        case 17:
        case 18: {
            std::vector<C> buffer(n + 1, C('x'));
            if (ops.ConsumeBool())
                in.getline(buffer.data(), n + 1, delim);
            else
                in.getline(buffer.data(), n + 1, classes, negate);
            asked = n + 1;  // the delimiter counts
            if (length_of(buffer.data(), unsigned(n + 1)) > unsigned(n))
                fail("getline did not terminate the array", step);
            break;
        }
        case 19: {
            string_of<C> s;
            if (ops.ConsumeBool())
                in.getline(s, istream::no_limit, delim);
            else
                in.getline(s, n, classes, negate);
            if (long(s.size()) > size)
                fail("getline read more than the text", step);
            break;
        }
        case 20: {
            string_of<C> s;
            in.get(s, n, classes, negate);
            break;
        }
        case 21: {
            std::vector<C> buffer(n + 1);
            in.read(buffer.data(), n);
            asked = n;
            break;
        }
        case 22:
            if (ops.ConsumeBool())
                in.ignore(n, int(delim));
            else
                in.ignore(n, classes, negate);
            break;
        case 23:
            if (ops.ConsumeBool())
                in.eat(delim);
            else
                in.eat(classes, negate);
            break;
        case 24: (void)in.peek(); break;
        case 25: in.putback(delim); break;
        case 26: in.unget(); break;
        case 27: in >> zel::ws<C>; break;
        case 28: in.seekg(ops.ConsumeIntegralInRange<long>(-2, size + 2), ios_base::seekdir(ops.ConsumeIntegralInRange<int>(0, 2))); break;
        case 29: {
            long const f = flag_sets[ops.ConsumeIntegralInRange<unsigned>(0, 5)];
            if (f == ios_base::boolalpha || f == 0)
                in.flags(in.flags() ^ (f ? f : ios_base::skipws));
            else
                in.setf(f, ios_base::radixfield);
            break;
        }
        case 30: in.clear(); break;
        case 31: { std::vector<C> buffer(n + 1); (void)in.readsome(buffer.data(), n); asked = n; break; }
        case 32: { C c = 0; in.get(c); asked = 1; break; }
        default: { string_of<C> s; zel::getline(in, s, delim); break; }
        }
        long const state = in.rdstate();
        if (state & ~long(ios_base::badbit | ios_base::eofbit | ios_base::failbit))
            fail("a state bit outside the three", step);
        if (asked >= 0 && (in.gcount() < 0 || in.gcount() > asked))
            fail("gcount past what was asked", step);
        std::int64_t const at = in.tellg();
        if (at != -1 && (at < 0 || at > size))
            fail("tellg outside the text", step);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    FuzzedDataProvider ops(data, size);
    unsigned const mode = ops.ConsumeIntegral<std::uint8_t>();
    std::string const text = ops.ConsumeRandomLengthString(256);
    if (mode & 1) {
        zel::string const s(text.data(), unsigned(text.size()));
        zel::istringstream in(s);
        run(ops, in, long(text.size()));
    } else {
        std::vector<unsigned short> units;
        if (mode & 2) {
            for (std::size_t i = 0; i + 1 < text.size(); i += 2)
                units.push_back(static_cast<unsigned short>(static_cast<unsigned char>(text[i]) |
                                                            static_cast<unsigned char>(text[i + 1]) << 8));
        } else {
            for (char c : text)
                units.push_back(static_cast<unsigned char>(c));
        }
        zel::wstring const s(units.data(), unsigned(units.size()));
        zel::wistringstream in(s);
        run(ops, in, long(units.size()));
    }
    return 0;
}
