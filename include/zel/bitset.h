// Bit vectors: the untyped bitv_* functions over a caller-owned array of
// 32-bit words, and the typed fixed-size bitset<N> over them.
//
// Bit i lives in word i / 32 at bit i % 32 (bit 0 is the least significant
// bit of word 0). Functions addressing single bits take the vector's length
// in bits and check the index against it (out_of_range through zel_throw,
// file src/bitset.cpp); functions over whole words take the length in words.
// A failing check changes nothing.
#ifndef ZEL_BITSET_H
#define ZEL_BITSET_H

#include <cstdint>
#include <string>

#include <zel/config.h>

namespace zel {

using bitv_word = std::uint32_t;

ZEL_API void bitv_set_bit(unsigned bits, bitv_word* words, unsigned index, bool value);
ZEL_API void bitv_invert_bit(unsigned bits, bitv_word* words, unsigned index);
ZEL_API bool bitv_test_bit(unsigned bits, bitv_word const* words, unsigned index);
// Sets or clears first..last, both included; nothing when first > last
// (the check of both indexes comes first all the same).
ZEL_API void bitv_set_bits(unsigned bits, bitv_word* words, unsigned first, unsigned last, bool value);
// Character i of the text ('0' or '1') goes to bit i, for i below the
// length (npos: strlen of the text), clipped to bits; bits past it keep
// their values. Any other character raises invalid_argument by a plain
// throw, without location; the bits before it are already written.
ZEL_API void bitv_from_string(unsigned bits, bitv_word* words, char const* text, unsigned length);
// Writes min(length, bits) characters '0'/'1' (bit i first) and a
// terminating zero: the buffer needs room for length + 1 characters.
ZEL_API char* bitv_to_string(unsigned bits, bitv_word const* words, char* buffer, unsigned length);
// result[i] = a[i] op b[i]; result may be a or b.
ZEL_API void bitv_and(unsigned count, bitv_word const* a, bitv_word const* b, bitv_word* result);
ZEL_API void bitv_or(unsigned count, bitv_word const* a, bitv_word const* b, bitv_word* result);
ZEL_API void bitv_xor(unsigned count, bitv_word const* a, bitv_word const* b, bitv_word* result);
ZEL_API void bitv_invert(unsigned count, bitv_word const* in, bitv_word* out);
ZEL_API unsigned bitv_count(unsigned count, bitv_word const* words);
ZEL_API bool bitv_empty(unsigned count, bitv_word const* words);
ZEL_API bool bitv_equal(unsigned count, bitv_word const* a, bitv_word const* b);
// Writes the indexes of the set bits in ascending order and then the
// terminator 0xFFFFFFFF; returns how many indexes it wrote. The output
// needs room for bitv_count + 1 entries. A null output raises
// invalid_argument.
ZEL_API unsigned bitv_enum(unsigned count, bitv_word const* words, unsigned* out);
// Shift toward higher (left) or lower (right) bit indexes over n words.
// Bits shifted past the top of the last word are not masked off.
//
// HARMFUL KEPT BEHAVIOUR: a shift of n * 32 bits or more clears n * 32
// BYTES from the start of the array, eight times the array's own size. A
// caller must either provide that room or never shift that far; bitset<N>
// never does (it clears the words itself).
ZEL_API void bitv_sh_left(unsigned n, bitv_word* words, unsigned shift);
ZEL_API void bitv_sh_right(unsigned n, bitv_word* words, unsigned shift);

// A fixed-size set of N bits over the bitv_* functions. The bits of the
// last word past N are kept at 0 by every operation.
template <unsigned N>
class bitset {
    static_assert(N > 0, "a bitset holds at least one bit");

public:
    static constexpr unsigned word_count = (N + 31) / 32;

    bitset() noexcept = default;
    // Character i ('0' or '1') is bit i; raises invalid_argument on any
    // other character.
    explicit bitset(char const* text, unsigned length = 0xFFFFFFFFu) {
        bitv_from_string(N, w_, text, length);
    }

    static constexpr unsigned size() noexcept { return N; }
    bitset& set() noexcept {
        for (bitv_word& w : w_)
            w = ~bitv_word(0);
        return trim();
    }
    bitset& set(unsigned i, bool value = true) {
        bitv_set_bit(N, w_, i, value);
        return *this;
    }
    bitset& set(unsigned first, unsigned last, bool value) {
        bitv_set_bits(N, w_, first, last, value);
        return *this;
    }
    bitset& reset() noexcept {
        for (bitv_word& w : w_)
            w = 0;
        return *this;
    }
    bitset& reset(unsigned i) { return set(i, false); }
    bitset& flip() noexcept {
        bitv_invert(word_count, w_, w_);
        return trim();
    }
    bitset& flip(unsigned i) {
        bitv_invert_bit(N, w_, i);
        return *this;
    }
    bool test(unsigned i) const { return bitv_test_bit(N, w_, i); }
    bool operator[](unsigned i) const { return test(i); }
    unsigned count() const noexcept { return bitv_count(word_count, w_); }
    bool any() const noexcept { return !bitv_empty(word_count, w_); }
    bool none() const noexcept { return bitv_empty(word_count, w_); }

    // Shifts of N bits or more clear the set; the oversized clear of the
    // word functions is never reached.
    bitset& operator<<=(unsigned s) noexcept {
        if (s >= word_count * 32)
            return reset();
        bitv_sh_left(word_count, w_, s);
        return trim();
    }
    bitset& operator>>=(unsigned s) noexcept {
        if (s >= word_count * 32)
            return reset();
        bitv_sh_right(word_count, w_, s);
        return *this;
    }
    bitset operator<<(unsigned s) const noexcept { return bitset(*this) <<= s; }
    bitset operator>>(unsigned s) const noexcept { return bitset(*this) >>= s; }

    bitset& operator&=(bitset const& o) noexcept { bitv_and(word_count, w_, o.w_, w_); return *this; }
    bitset& operator|=(bitset const& o) noexcept { bitv_or(word_count, w_, o.w_, w_); return *this; }
    bitset& operator^=(bitset const& o) noexcept { bitv_xor(word_count, w_, o.w_, w_); return *this; }
    bitset operator~() const noexcept { return bitset(*this).flip(); }
    friend bitset operator&(bitset a, bitset const& b) noexcept { return a &= b; }
    friend bitset operator|(bitset a, bitset const& b) noexcept { return a |= b; }
    friend bitset operator^(bitset a, bitset const& b) noexcept { return a ^= b; }
    friend bool operator==(bitset const& a, bitset const& b) noexcept {
        return bitv_equal(word_count, a.w_, b.w_);
    }
    friend bool operator!=(bitset const& a, bitset const& b) noexcept { return !(a == b); }

    // Bit 0 first, as bitset(text) reads it.
    std::string to_string() const {
        char buffer[N + 1];
        return std::string(bitv_to_string(N, w_, buffer, N), N);
    }
    bitv_word const* words() const noexcept { return w_; }

private:
    bitset& trim() noexcept {
        if (N % 32)
            w_[word_count - 1] &= (bitv_word(1) << (N % 32)) - 1;
        return *this;
    }

    bitv_word w_[word_count] = {};
};

} // namespace zel

#endif
