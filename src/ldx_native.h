// Inside the library: the C-library locale object cached beside each
// descriptor, and a scope that makes it the calling thread's locale. The
// library's own conversions (wide characters, number text) run under it,
// so their results depend on the descriptor passed and never on the
// process locale another thread may switch.
#ifndef ZEL_SRC_LDX_NATIVE_H
#define ZEL_SRC_LDX_NATIVE_H

#include <locale.h>

#include <string>

#include <zel/ldx.h>

namespace zel {
namespace detail {

#if defined(_WIN32)
// The Windows C runtime has no uselocale: a thread switched to per-thread
// locales (_configthreadlocale) and then given the locale with setlocale is
// the same thing. A descriptor's native locale is its full name.
using native_locale = char const*;
#else
using native_locale = locale_t;
#endif

// d's locale object; the "C" descriptor's for a null d.
native_locale ldx_native(locale_descriptor const* d);
// The "C" descriptor's locale object, without taking the registry's lock
// once the registry exists.
native_locale c_native();

// Makes `l` the calling thread's locale for the scope.
#if defined(_WIN32)
class thread_locale {
public:
    explicit thread_locale(native_locale l);
    thread_locale(thread_locale const&) = delete;
    thread_locale& operator=(thread_locale const&) = delete;
    ~thread_locale();

private:
    int mode_;           // the thread's locale mode before the scope
    std::string saved_;  // its own locale, when it had one and the scope changed it
    bool changed_;
};
#else
class thread_locale {
public:
    explicit thread_locale(native_locale l) noexcept : old_(uselocale(l)) {}
    thread_locale(thread_locale const&) = delete;
    thread_locale& operator=(thread_locale const&) = delete;
    ~thread_locale() { uselocale(old_); }

private:
    locale_t old_;
};
#endif

} // namespace detail
} // namespace zel

#endif
