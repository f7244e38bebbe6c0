// Internal to the library: the process-wide lock, one of the library's own
// recursive mutexes. It serialises the one-time build of the string
// initializers.
#ifndef ZEL_SRC_GLOBAL_LOCK_H
#define ZEL_SRC_GLOBAL_LOCK_H

#include <zel/guards.h>

namespace zel::detail {

using global_lock_type = zel::mutex;

// The lock object, built on first use.
global_lock_type& global_lock() noexcept;

} // namespace zel::detail

#endif
