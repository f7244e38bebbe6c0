// Fuzz target for bit vectors read from text: bitv_from_string over a
// vector of any length (its words on the heap, sized exactly, so a write
// past them shows), and bitset<N> from text for a few sizes around the word
// boundary, then driven by the remaining bytes beside std::bitset<N>.
//
// Checked against a model of the documented rules: character i ('0' or
// '1') goes to bit i for i below the length (npos: strlen), clipped to the
// vector's bits; bits at or past it, and the unused bits of the last word,
// keep their values; any other character raises invalid_argument after the
// bits before it were written. bitv_to_string and bitv_enum then read the
// vector back.
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include <zel/bitset.h>
#include <zel/exception.h>

namespace {

[[noreturn]] void fail(char const* what) {
    std::fprintf(stderr, "bitset fuzz: %s\n", what);
    std::abort();
}

bool is_invalid_argument(zel::xexception const& e) {
    return std::strcmp(e.name(), "invalid_argument") == 0;
}

// What bitv_from_string must leave in `words`; whether it must throw.
bool model_from_string(unsigned bits, std::vector<zel::bitv_word>& words, std::string const& text,
                       unsigned length) {
    unsigned const n = length < bits ? length : bits;
    for (unsigned i = 0; i < n; ++i) {
        zel::bitv_word const mask = zel::bitv_word(1) << (i % 32);
        if (text[i] == '0')
            words[i / 32] &= ~mask;
        else if (text[i] == '1')
            words[i / 32] |= mask;
        else
            return true;
    }
    return false;
}

void vectors(FuzzedDataProvider& in) {
    unsigned const bits = in.ConsumeIntegralInRange<unsigned>(1, 300);
    unsigned const word_count = (bits + 31) / 32;
    std::vector<zel::bitv_word> words(word_count);
    for (zel::bitv_word& w : words)
        w = in.ConsumeIntegral<zel::bitv_word>();
    bool const measured = in.ConsumeBool();
    unsigned const asked = in.ConsumeIntegralInRange<unsigned>(0, 320);
    std::string const text = in.ConsumeRandomLengthString(400);
    unsigned const length = measured ? 0xFFFFFFFFu : std::min<unsigned>(asked, unsigned(text.size()));

    std::vector<zel::bitv_word> expected = words;
    bool const must_throw =
        model_from_string(bits, expected, text, measured ? unsigned(std::strlen(text.c_str())) : length);
    bool threw = false;
    try {
        zel::bitv_from_string(bits, words.data(), text.c_str(), length);
    } catch (zel::xexception const& e) {
        if (!is_invalid_argument(e))
            fail("bitv_from_string raised something other than invalid_argument");
        threw = true;
    }
    if (threw != must_throw)
        fail(must_throw ? "bitv_from_string accepted a bad character" : "bitv_from_string threw");
    if (words != expected)
        fail("bitv_from_string wrote other bits than the model");

    unsigned const shown = in.ConsumeIntegralInRange<unsigned>(0, bits + 40);
    std::vector<char> buffer(shown + 1, 'x');
    zel::bitv_to_string(bits, words.data(), buffer.data(), shown);
    unsigned const n = shown < bits ? shown : bits;
    for (unsigned i = 0; i < n; ++i)
        if (buffer[i] != ((words[i / 32] >> (i % 32)) & 1 ? '1' : '0'))
            fail("bitv_to_string shows another bit");
    if (buffer[n] != 0)
        fail("bitv_to_string did not terminate the text");

    std::vector<unsigned> indexes(zel::bitv_count(word_count, words.data()) + 1);
    unsigned const listed = zel::bitv_enum(word_count, words.data(), indexes.data());
    if (listed + 1 != indexes.size() || indexes[listed] != 0xFFFFFFFFu)
        fail("bitv_enum and bitv_count disagree");
    for (unsigned i = 0; i < listed; ++i)
        if (!((words[indexes[i] / 32] >> (indexes[i] % 32)) & 1) || (i && indexes[i] <= indexes[i - 1]))
            fail("bitv_enum listed a clear bit or out of order");
}

template <unsigned N>
std::bitset<N> twin_of(zel::bitset<N> const& b) {
    std::bitset<N> t;
    for (unsigned i = 0; i < N; ++i)
        t[i] = (b.words()[i / 32] >> (i % 32)) & 1;
    return t;
}

template <unsigned N, std::size_t M>
void expect_same(zel::bitset<N> const& b, std::bitset<M> const& twin) {
    if (twin_of(b) != twin)
        fail("bitset differs from std::bitset");
    if (N % 32 && b.words()[b.word_count - 1] >> (N % 32))
        fail("bitset set a bit past its size");
    if (b.count() != twin.count() || b.any() != twin.any())
        fail("bitset counts differently");
}

template <unsigned N>
void typed(FuzzedDataProvider& in) {
    std::string const text = in.ConsumeRandomLengthString(N + 8);
    bool const measured = in.ConsumeBool();
    unsigned const length = measured ? 0xFFFFFFFFu : unsigned(text.size());
    zel::bitset<N> b;
    try {
        b = zel::bitset<N>(text.c_str(), length);
    } catch (zel::xexception const& e) {
        if (!is_invalid_argument(e))
            fail("bitset(text) raised something other than invalid_argument");
        std::string const read = measured ? std::string(text.c_str()) : text;
        if (read.substr(0, N).find_first_not_of("01") == std::string::npos)
            fail("bitset(text) refused a text of 0 and 1");
        return;
    }
    std::bitset<N> twin;
    std::string const read = measured ? std::string(text.c_str()) : text;
    for (unsigned i = 0; i < N && i < read.size(); ++i)
        twin[i] = read[i] == '1';
    expect_same(b, twin);
    std::string shown = twin.to_string();
    shown.assign(shown.rbegin(), shown.rend());
    if (b.to_string() != shown)
        fail("bitset::to_string differs");

    zel::bitset<N> other;
    std::bitset<N> other_twin;
    while (in.remaining_bytes()) {
        unsigned const i = in.ConsumeIntegralInRange<unsigned>(0, N + 3);
        bool const inside = i < N;
        try {
            switch (in.ConsumeIntegralInRange<int>(0, 9)) {
            case 0: b.set(i); if (inside) twin.set(i); break;
            case 1: b.flip(i); if (inside) twin.flip(i); break;
            case 2: b.reset(i); if (inside) twin.reset(i); break;
            case 3: b <<= i * 3; twin <<= i * 3; break;
            case 4: b >>= i * 3; twin >>= i * 3; break;
            case 5: other = b; other_twin = twin; b = ~b; twin = ~twin; break;
            case 6: b &= other; twin &= other_twin; break;
            case 7: b |= other; twin |= other_twin; break;
            case 8: b ^= other; twin ^= other_twin; break;
            default: {
                unsigned const last = in.ConsumeIntegralInRange<unsigned>(0, N + 3);
                bool const value = in.ConsumeBool();
                b.set(i, last, value);
                for (unsigned k = i; k <= last; ++k)
                    twin[k] = value;  // reached only when both ends were inside
                break;
            }
            }
            if (!inside) {
                (void)b.test(i);  // must raise: i is past the size
                fail("an index past the size was accepted");
            }
        } catch (zel::xexception const& e) {
            if (std::strcmp(e.name(), "out_of_range") != 0)
                fail("a bit operation raised something other than out_of_range");
        }
        expect_same(b, twin);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    switch (in.ConsumeIntegralInRange<int>(0, 4)) {
    case 0: vectors(in); break;
    case 1: typed<1>(in); break;
    case 2: typed<32>(in); break;
    case 3: typed<33>(in); break;
    default: typed<100>(in); break;
    }
    return 0;
}
