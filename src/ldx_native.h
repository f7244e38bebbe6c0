// Inside the library: the C-library locale object cached beside each
// descriptor, and a scope that makes it the calling thread's locale. The
// library's own conversions (wide characters, number text) run under it,
// so their results depend on the descriptor passed and never on the
// process locale another thread may switch.
#ifndef ZEL_SRC_LDX_NATIVE_H
#define ZEL_SRC_LDX_NATIVE_H

#include <locale.h>

#include <zel/ldx.h>

namespace zel {
namespace detail {

// d's locale object; the "C" descriptor's for a null d.
locale_t ldx_native(locale_descriptor const* d);
// The "C" descriptor's locale object, without taking the registry's lock
// once the registry exists.
locale_t c_native();

// Makes `l` the calling thread's locale for the scope.
class thread_locale {
public:
    explicit thread_locale(locale_t l) noexcept : old_(uselocale(l)) {}
    thread_locale(thread_locale const&) = delete;
    thread_locale& operator=(thread_locale const&) = delete;
    ~thread_locale() { uselocale(old_); }

private:
    locale_t old_;
};

} // namespace detail
} // namespace zel

#endif
