// Bit vectors: the bitv_* functions (bit order, ranges across words, text
// conversion, enumeration, shifts, the checks with their pinned lines) and
// the typed bitset<N> beside std::bitset on seeded random operations.
#include <zel/bitset.h>

#include <zel/exception.h>

#include <bitset>
#include <random>

#include <gtest/gtest.h>

#include "support/raises.h"

namespace {

using zel::bitv_word;

// Expects `f` to raise `name` through zel_throw at the given line of
// src/bitset.cpp.
template <class F>
void expect_bitset_error(F f, char const* name, int line) {
    zel_test::expect_raised(f, name, nullptr, "src/bitset.cpp", line);
}

// The bit order and ranges across words are checked word by word in the
// run beside std::bitset below; here the corners it does not reach.
TEST(BitVector, EmptyRangeEnumerationAndEquality) {
    bitv_word w[2] = {0x80000001u, 0x4u};
    zel::bitv_set_bits(64, w, 5, 3, true);  // first above last: nothing
    EXPECT_EQ(w[0], 0x80000001u);
    unsigned out[70];
    ASSERT_EQ(zel::bitv_enum(2, w, out), 3u);
    EXPECT_EQ(out[0], 0u);
    EXPECT_EQ(out[1], 31u);
    EXPECT_EQ(out[2], 34u);
    EXPECT_EQ(out[3], 0xFFFFFFFFu);
    bitv_word zero[2] = {0, 0};
    EXPECT_EQ(zel::bitv_enum(2, zero, out), 0u);
    EXPECT_EQ(out[0], 0xFFFFFFFFu);
    EXPECT_FALSE(zel::bitv_equal(2, w, zero));
    EXPECT_TRUE(zel::bitv_empty(0, w));
}

TEST(BitVector, ChecksComeBeforeTheWriteOnTheirLines) {
    bitv_word w[2] = {0x12345678u, 0x9ABCDEF0u};
    expect_bitset_error([&] { zel::bitv_invert_bit(40, w, 40); }, "out_of_range", 95);
    expect_bitset_error([&] { zel::bitv_set_bit(40, w, 40, true); }, "out_of_range", 113);
    expect_bitset_error([&] { zel::bitv_set_bits(40, w, 0, 40, true); }, "out_of_range", 134);
    expect_bitset_error([&] { zel::bitv_set_bits(40, w, 40, 0, true); }, "out_of_range", 134);
    expect_bitset_error([&] { zel::bitv_test_bit(40, w, 41); }, "out_of_range", 162);
    expect_bitset_error([&] { zel::bitv_enum(2, w, nullptr); }, "invalid_argument", 274);
    EXPECT_EQ(w[0], 0x12345678u);
    EXPECT_EQ(w[1], 0x9ABCDEF0u);
}

TEST(BitVector, TextConversion) {
    bitv_word w[2] = {0xF0u, 0};
    zel::bitv_from_string(8, w, "101", 0xFFFFFFFFu);
    EXPECT_EQ(w[0], 0xF5u);  // bits 0 and 2 set, 1 cleared, 3..7 kept
    zel::bitv_from_string(4, w, "00000000", 0xFFFFFFFFu);  // clipped to 4 bits
    EXPECT_EQ(w[0], 0xF0u);
    // A bad character raises by a plain throw, after the bits before it.
    try {
        zel::bitv_from_string(8, w, "11x1", 0xFFFFFFFFu);
        ADD_FAILURE() << "nothing thrown";
    } catch (zel::invalid_argument const& e) {
        EXPECT_EQ(e.file(), nullptr);
    }
    EXPECT_EQ(w[0], 0xF3u);

    bitv_word v[2] = {0x5u, 0x80u};
    char buffer[41];
    EXPECT_STREQ(zel::bitv_to_string(40, v, buffer, 8), "10100000");
    EXPECT_STREQ(zel::bitv_to_string(40, v, buffer, 100),
                 "1010000000000000000000000000000000000001");
}

// The oversized clear writes n * 32 bytes: run it only on an array with
// that room, and check it reaches exactly that far.
TEST(BitVector, ShiftOfTheWholeVectorClearsEightTimesTheArray) {
    bitv_word room[17];
    for (bitv_word& w : room)
        w = 0xA5A5A5A5u;
    zel::bitv_sh_left(2, room, 64);  // 2 words: clears 64 bytes = 16 words
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(room[i], 0u) << i;
    EXPECT_EQ(room[16], 0xA5A5A5A5u);
    room[0] = 7;
    zel::bitv_sh_right(1, room, 40);
    EXPECT_EQ(room[0], 0u);
}

// bitset<N> beside std::bitset<N> on seeded random operations, the words
// compared bit by bit after each: the bitv_* functions' ranges across
// words, shifts that move words then bits, and the word operations.
template <unsigned N>
void run_beside_std(unsigned seed) {
    std::mt19937 rng(seed);
    zel::bitset<N> z;
    std::bitset<N> s;
    for (int step = 0; step < 2000; ++step) {
        unsigned const i = rng() % N;
        switch (rng() % 10) {
        case 0: z.set(i); s.set(i); break;
        case 1: z.reset(i); s.reset(i); break;
        case 2: z.flip(i); s.flip(i); break;
        case 3: { unsigned const k = rng() % (N + 40); z <<= k; s <<= k; break; }
        case 4: { unsigned const k = rng() % (N + 40); z >>= k; s >>= k; break; }
        case 5: z = ~z; s = ~s; break;
        case 6: { unsigned const j = i + rng() % (N - i); z.set(i, j, true); for (unsigned k = i; k <= j; ++k) s.set(k); break; }
        case 7: z ^= zel::bitset<N>().set(i); s ^= std::bitset<N>().set(i); break;
        case 8: z = (z | (z << 3)) & ~(z >> 1); s = (s | (s << 3)) & ~(s >> 1); break;
        default: z.set(); s.set(); break;
        }
        ASSERT_EQ(z.count(), s.count()) << step;
        ASSERT_EQ(z.any(), s.any());
        ASSERT_EQ(z.test(i), s.test(i));
        bool same = true;  // bit k is bit k % 32 of word k / 32
        for (unsigned k = 0; k < N; ++k)
            same &= ((z.words()[k / 32] >> k % 32 & 1) != 0) == s.test(k);
        ASSERT_TRUE(same) << step;
    }
    std::string text = s.to_string();  // std prints bit N-1 first
    EXPECT_EQ(z.to_string(), std::string(text.rbegin(), text.rend()));
    EXPECT_TRUE(zel::bitset<N>(z.to_string().c_str()) == z);
}

TEST(Bitset, AgreesWithStdBitset) {
    run_beside_std<1>(1);
    run_beside_std<31>(2);
    run_beside_std<32>(3);
    run_beside_std<70>(4);
    run_beside_std<256>(5);
}

TEST(Bitset, TextOrderAndChecks) {
    zel::bitset<10> a("1100000001");
    EXPECT_EQ((a << 1).to_string(), "0110000000") << "the text starts at bit 0";
    EXPECT_THROW(a.test(10), zel::xexception);
    EXPECT_THROW(zel::bitset<4>("10x0"), zel::invalid_argument);
}

} // namespace
