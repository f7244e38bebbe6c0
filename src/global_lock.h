// Internal to the library: the process-wide lock. It serialises the one-time
// build of the string initializers.
//
// This is the one place to switch to zel::mutex when the synchronisation
// classes land; until then the lock is a std::recursive_mutex (recursive,
// as the library's mutex is).
#ifndef ZEL_SRC_GLOBAL_LOCK_H
#define ZEL_SRC_GLOBAL_LOCK_H

#include <mutex>

namespace zel::detail {

using global_lock_type = std::recursive_mutex;

// The lock object, built on first use.
global_lock_type& global_lock() noexcept;

} // namespace zel::detail

#endif
