// Internal to the library: the one allocation path of every heap. Each heap
// takes its memory from the global operator new with the process's
// new-handler removed for the call, so an allocation either succeeds at once
// or raises bad_alloc ("bad allocation") as a plain zel::exception.
#ifndef ZEL_SRC_HEAP_SUPPORT_H
#define ZEL_SRC_HEAP_SUPPORT_H

#include <cstddef>

namespace zel::detail {

// The heaps differ only in what happens to the removed handler when the
// call fails: the general heaps and the string heaps' one-argument
// allocate leave it removed, the string heaps' four-argument allocate
// reinstalls it before testing the result. Both are kept behaviours.
enum class on_failure { leave_handler_removed, reinstall_handler };

void* allocate_without_handler(std::size_t bytes, on_failure policy);

} // namespace zel::detail

#endif
