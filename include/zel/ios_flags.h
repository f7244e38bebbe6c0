// The stream format flags: plain `long` bits, only the low 16 of which are
// ever stored. The number scanning and formatting engines read them now; the
// stream classes take them over by deriving from `ios_flags`, so that
// `ios_base::hex` names the same bit and the manipulator functions of the
// same names can live beside them in namespace zel.
#ifndef ZEL_IOS_FLAGS_H
#define ZEL_IOS_FLAGS_H

namespace zel {

struct ios_flags {
    // Adjustment: which side of a field the fill goes. No bit set is the
    // default side of each inserter.
    static constexpr long right = 0x0001;
    static constexpr long left = 0x0002;
    static constexpr long internal = 0x0004;
    static constexpr long adjustfield = 0x0007;

    static constexpr long showbase = 0x0008;
    static constexpr long showpos = 0x0010;
    static constexpr long uppercase = 0x0020;

    // Floating-point notation. No bit set is the general ("%g") format.
    static constexpr long fixed = 0x0040;
    static constexpr long scientific = 0x0080;
    static constexpr long floatfield = 0x00C0;

    static constexpr long showpoint = 0x0100;
    static constexpr long boolalpha = 0x0200;
    static constexpr long skipws = 0x0400;
    static constexpr long unitbuf = 0x0800;

    // Radix. No bit set is the radix "any", whose meaning the engines settle
    // (a prefix decides on input, decimal on output).
    static constexpr long bin = 0x1000;
    static constexpr long oct = 0x2000;
    static constexpr long dec = 0x4000;
    static constexpr long hex = 0x8000;
    static constexpr long radixfield = 0xF000;

    // The bits that belong to no group.
    static constexpr long independent = 0x0F38;

    // The radix the flags name: 10 for `dec`, else 16 for `hex`, 8 for
    // `oct`, 2 for `bin` (this order decides when several are set), and 0
    // when no radix bit is set.
    static constexpr unsigned radix_of(long flags) noexcept {
        return (flags & dec) ? 10 : (flags & hex) ? 16 : (flags & oct) ? 8 : (flags & bin) ? 2 : 0;
    }
};

} // namespace zel

#endif
