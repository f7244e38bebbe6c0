// Build configuration shared by every zel header: the export macro, the
// library version and the data-model facts the engines rely on.
#ifndef ZEL_CONFIG_H
#define ZEL_CONFIG_H

#include <climits>
#include <cstdint>

#define ZEL_VERSION_MAJOR 0
#define ZEL_VERSION_MINOR 1
#define ZEL_VERSION_PATCH 0

// ZEL_API marks what the shared library exports; everything else is hidden.
#if defined(_WIN32) || defined(__CYGWIN__)
#  if defined(ZEL_BUILDING)
#    define ZEL_API __declspec(dllexport)
#  else
#    define ZEL_API __declspec(dllimport)
#  endif
#else
#  define ZEL_API __attribute__((visibility("default")))
#endif

// The headers declare the library's own instantiations of its class
// templates extern (ZEL_EXTERN_TEMPLATE(string_base<char>);), so clients
// call those. A DLL built by GCC exports only their out-of-line members,
// not the inline ones, so a Windows client instantiates the templates
// itself: the inline members are its own copies, the rest come from the DLL.
#if (defined(_WIN32) || defined(__CYGWIN__)) && !defined(ZEL_BUILDING)
#  define ZEL_EXTERN_TEMPLATE(...) static_assert(true, "")
#else
#  define ZEL_EXTERN_TEMPLATE(...) extern template class ZEL_API __VA_ARGS__
#endif

// Counts, positions, element sizes and time-outs are `unsigned`, 32 bits on
// every target (ILP32, LP64 and LLP64 alike).
static_assert(sizeof(unsigned) == 4, "zel needs a 32-bit unsigned");
static_assert(CHAR_BIT == 8, "zel needs 8-bit bytes");

namespace zel {

// True where pointers are 32 bits wide: the data model the library was first
// laid out for, where every documented record size holds exactly.
constexpr bool pointers_are_32_bits = sizeof(void*) == 4;

} // namespace zel

#endif
