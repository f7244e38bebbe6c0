// The bit-vector functions (bitv_*): single bits, ranges, whole-word logic,
// counting, enumeration, text conversion and shifts over a caller-owned
// array of 32-bit words.
//
// The checked throw sites sit on the lines the bit vectors have always
// reported: 95 (invert a bit), 113 (set a bit), 134 (set a range), 162
// (test a bit) and 274 (enumerate into a null output). The notes between
// the functions keep them there; tests pin every one.
#include <zel/bitset.h>

#include <cstring>

#include <zel/exception.h>

namespace zel {

namespace {

constexpr bitv_word bit_of(unsigned index) noexcept { return bitv_word(1) << (index % 32); }

// The clear both shifts perform when the word shift reaches the count: n *
// 32 bytes, eight times the array. Kept as the library has always done it;
// see the header comment.
void oversized_clear(unsigned n, bitv_word* words) {
    std::memset(words, 0, std::size_t(n) * 32);
}

} // namespace

// Notes on the layout
// -------------------
//
// A vector of b bits needs (b + 31) / 32 words; the functions addressing
// single bits never touch a word past index / 32, so a caller may hand
// them a longer array than the bit count suggests.
//
// The single-bit functions check their index against the bit count before
// anything is written, so a failed call leaves the vector as it was. The
// whole-word functions trust their word count: they have nothing to check
// it against.
//
// Bits past the bit count in the last word are the caller's: nothing here
// clears them, and the word functions (count, equal, empty, enum) see them.
// bitset<N> keeps them at 0.
//
// The shifts move whole words first and then the remaining bits, so each
// word is read before it is overwritten: upward shifts walk from the top
// word down, downward shifts from the bottom word up.
//
// Text conversion goes character by character in bit order, so a text
// reads the way the vector is indexed (the first character is bit 0),
// unlike the usual most-significant-first printing of numbers.
//
// Enumeration writes one index per set bit and a terminator, so its output
// needs bitv_count + 1 entries; zero words are passed over whole.
//
// Counting and enumeration pass over zero words with one comparison and
// then take the set bits of a word one at a time, lowest first.
//
// The functions hold no state and take no lock; concurrent calls on
// different arrays are independent, and concurrent writes to one array
// must be serialised by the caller.
//
// Every index and count is unsigned 32-bit on every target, so a vector
// holds at most 2^32 - 1 bits.
//
// The functions follow in the order the vectors have always listed them;
// the notes between them keep the throw sites on their lines.

// Worked example of the layout, a 40-bit vector in two words:
//
//   bit     39 ... 32 | 31 ............................ 0
//   word    w[1] bits 7..0 | w[0] bits 31..0
//
//   bitv_set_bit(40, w, 33, true)    w[1] |= 1 << 1
//   bitv_set_bits(40, w, 30, 33, 1)  w[0] |= 0xC0000000, w[1] |= 0x3
//   bitv_to_string(40, w, buf, 8)    "00000000" plus the terminator
//
// The top 24 bits of w[1] lie past the bit count. Nothing in this file
// clears them, and the word functions count, compare and enumerate them;
// a typed owner that wants them ignored must keep them at 0 itself, as
// bitset<N> does after every whole-word operation.
//
// Single bits
// -----------
//
// Flips one bit. The index check comes first: a bad index writes
// nothing. Flipping twice restores the vector.
//
// Complexity: constant. No allocation, no lock; the index check is the
// only branch besides the store itself, and the word index is index / 32
// (a shift), the bit index % 32 (a mask).
void bitv_invert_bit(unsigned bits, bitv_word* words, unsigned index) {
    if (index >= bits)
        ZEL_THROW(out_of_range());
    words[index / 32] ^= bit_of(index);
}

// Single bits are independent of each other, so no ordering between the
// calls of one thread matters; two threads writing bits of one word race
// (each call is a read-modify-write of the whole word) and must be
// serialised by their owner.
//
// The value argument is a bool; a caller passing an integer gets the
// usual conversion (any non-zero value sets the bit). The check comes
// first here too.

// Sets the bit when value is true, clears it otherwise. The index check
// comes first: a bad index writes nothing.

void bitv_set_bit(unsigned bits, bitv_word* words, unsigned index, bool value) {
    if (index >= bits)
        ZEL_THROW(out_of_range());
    if (value)
        words[index / 32] |= bit_of(index);
    else
        words[index / 32] &= ~bit_of(index);
}

// Ranges
// ------
//
// The range form is the fast way to fill: it writes each word once.
// Typical uses are a class range a-z (bits 97 to 122 of a 256-bit set)
// and clearing a tail. Both indexes are inclusive.
// An empty range (first above last) writes nothing.

// Both ends are checked, also when first > last makes the range empty.
// Whole words inside the range are written at once; the partial words at
// either end through masks.

void bitv_set_bits(unsigned bits, bitv_word* words, unsigned first, unsigned last, bool value) {
    if (first >= bits || last >= bits)
        ZEL_THROW(out_of_range());
    if (first > last)
        return;
    unsigned const fw = first / 32, lw = last / 32;
    for (unsigned w = fw; w <= lw; ++w) {
        bitv_word mask = ~bitv_word(0);
        if (w == fw)
            mask &= ~(bit_of(first) - 1);
        if (w == lw && last % 32 != 31)
            mask &= (bit_of(last) << 1) - 1;
        if (value)
            words[w] |= mask;
        else
            words[w] &= ~mask;
    }
}


// Reading
// -------
// The test is the one check on the matcher's hot path: a regular
// expression's classes are 256-bit vectors, but the matcher reads their
// words directly once its class index is known to be in range; only
// callers with untrusted indexes pay for the check below.


bool bitv_test_bit(unsigned bits, bitv_word const* words, unsigned index) {
    if (index >= bits)
        ZEL_THROW(out_of_range());
    return (words[index / 32] & bit_of(index)) != 0;
}

void bitv_from_string(unsigned bits, bitv_word* words, char const* text, unsigned length) {
    if (length == 0xFFFFFFFFu)
        length = unsigned(std::strlen(text));
    if (length > bits)
        length = bits;
    for (unsigned i = 0; i < length; ++i) {
        if (text[i] == '1')
            words[i / 32] |= bit_of(i);
        else if (text[i] == '0')
            words[i / 32] &= ~bit_of(i);
        else
            throw invalid_argument();
    }
}

char* bitv_to_string(unsigned bits, bitv_word const* words, char* buffer, unsigned length) {
    unsigned const n = length < bits ? length : bits;
    for (unsigned i = 0; i < n; ++i)
        buffer[i] = (words[i / 32] & bit_of(i)) ? '1' : '0';
    buffer[n] = '\0';
    return buffer;
}

void bitv_and(unsigned count, bitv_word const* a, bitv_word const* b, bitv_word* result) {
    for (unsigned i = 0; i < count; ++i)
        result[i] = a[i] & b[i];
}

void bitv_or(unsigned count, bitv_word const* a, bitv_word const* b, bitv_word* result) {
    for (unsigned i = 0; i < count; ++i)
        result[i] = a[i] | b[i];
}

void bitv_xor(unsigned count, bitv_word const* a, bitv_word const* b, bitv_word* result) {
    for (unsigned i = 0; i < count; ++i)
        result[i] = a[i] ^ b[i];
}

void bitv_invert(unsigned count, bitv_word const* in, bitv_word* out) {
    for (unsigned i = 0; i < count; ++i)
        out[i] = ~in[i];
}

unsigned bitv_count(unsigned count, bitv_word const* words) {
    unsigned n = 0;
    for (unsigned i = 0; i < count; ++i)
        for (bitv_word w = words[i]; w; w &= w - 1)
            ++n;
    return n;
}

bool bitv_empty(unsigned count, bitv_word const* words) {
    for (unsigned i = 0; i < count; ++i)
        if (words[i])
            return false;
    return true;
}

bool bitv_equal(unsigned count, bitv_word const* a, bitv_word const* b) {
    return std::memcmp(a, b, std::size_t(count) * sizeof(bitv_word)) == 0;
}

// Splits a shift into words q and bits r; false when nothing is left to do.
static bool split_shift(unsigned n, bitv_word* words, unsigned shift, unsigned& q, unsigned& r) {
    q = shift / 32, r = shift % 32;
    if (shift != 0 && q >= n)
        oversized_clear(n, words);  // a shift past the vector
    return shift != 0 && q < n;
}

void bitv_sh_left(unsigned n, bitv_word* words, unsigned shift) {
    unsigned q, r;
    if (!split_shift(n, words, shift, q, r))
        return;
    if (q) {
        for (unsigned i = n; i-- > q;)
            words[i] = words[i - q];
        std::memset(words, 0, q * sizeof(bitv_word));
    }
    if (r) {
        for (unsigned i = n - 1; i > 0; --i)
            words[i] = (words[i] << r) | (words[i - 1] >> (32 - r));
        words[0] <<= r;
    }
}

void bitv_sh_right(unsigned n, bitv_word* words, unsigned shift) {
    unsigned q, r;
    if (!split_shift(n, words, shift, q, r))
        return;
    if (q) {
        for (unsigned i = 0; i + q < n; ++i)
            words[i] = words[i + q];
        std::memset(words + (n - q), 0, q * sizeof(bitv_word));
    }
    if (r) {
        for (unsigned i = 0; i + 1 < n; ++i)
            words[i] = (words[i] >> r) | (words[i + 1] << (32 - r));
        words[n - 1] >>= r;
    }
}

// Enumeration writes one index per set bit, ascending, then the
// terminator, so its output needs bitv_count + 1 entries. The output
// pointer is checked before anything is read.
//
unsigned bitv_enum(unsigned count, bitv_word const* words, unsigned* out) {
    if (!out)
        ZEL_THROW(invalid_argument());
    unsigned n = 0;
    for (unsigned i = 0; i < count; ++i)
        for (bitv_word w = words[i]; w; w &= w - 1)
            out[n++] = i * 32 + unsigned(__builtin_ctz(w));
    out[n] = 0xFFFFFFFFu;
    return n;
}

} // namespace zel
