// The library's process-wide lock and the exported entry points the string
// initializers (built in clients' code) take it through.
#include "global_lock.h"

#include <zel/string_engine.h>

namespace zel::detail {

global_lock_type& global_lock() noexcept {
    static global_lock_type lock;
    return lock;
}

void lock_global() noexcept { global_lock().acquire(); }

void unlock_global() noexcept { global_lock().release(); }

} // namespace zel::detail
