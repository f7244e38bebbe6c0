// The general heaps (std_heap, vector_heap) and temporary buffers. Both heaps
// take memory from the global operator new with the new-handler removed, so
// an allocation either succeeds at once or raises bad_alloc. Their common
// case (no handler installed) is inline in memory.h; here are the raise, the
// allocation past an installed handler, and the string heaps' allocation
// with its two failure policies.
#include <zel/memory.h>

#include <zel/exception.h>

#include "heap_support.h"

#if defined(__GLIBC__)
#  include <dlfcn.h>
#  include <sys/auxv.h>
#  define ZEL_HAVE_DLADDR 1
#endif

namespace zel {

namespace {

// The global operator new, with a failure reported as null. The throwing
// form is called and its bad_alloc caught: with the new-handler removed it
// fails at once, exactly as the nothrow form would, and it saves the nothrow
// form's extra call on every allocation.
void* global_new(std::size_t bytes) {
    try {
        return ::operator new(bytes);
    } catch (std::bad_alloc const&) {
        return nullptr;
    }
}

// Whether the operator new that calls from this library reach is the
// runtime's: defined in the same shared object as the runtime's
// std::get_new_handler, and that object is not the program itself (a
// program linked with a static runtime may replace operator new beside it).
// Sanitizers and other interposers define their own, so the answer is false
// under them. Only where the dynamic linker can say where a function lives.
bool find_runtime_operator_new() noexcept {
#if defined(ZEL_HAVE_DLADDR)
    void* (*global)(std::size_t) = &::operator new;
    std::new_handler (*query)() noexcept = &std::get_new_handler;
    Dl_info allocator{}, runtime{}, program{};
    if (!dladdr(reinterpret_cast<void*>(global), &allocator) ||
        !dladdr(reinterpret_cast<void*>(query), &runtime) ||
        // The program's headers: the kernel passes their address as a number.
        !dladdr(reinterpret_cast<void*>(getauxval(AT_PHDR)), &program))  // NOLINT(performance-no-int-to-ptr)
        return false;
    return allocator.dli_fbase == runtime.dli_fbase && allocator.dli_fbase != program.dli_fbase;
#else
    return false;
#endif
}

char const std_heap_tag = 0;
char const vector_heap_tag = 0;

constexpr unsigned largest_block = 2147483647u;

} // namespace

bool detail::runtime_operator_new = find_runtime_operator_new();

void detail::heap_exhausted() {
    ZEL_THROW(bad_alloc("bad allocation"));
}

void* detail::allocate_past_handler(std::size_t bytes) {
    std::new_handler previous = std::set_new_handler(nullptr);
    void* p = global_new(bytes);
    if (!p)
        heap_exhausted();  // the handler stays removed
    std::set_new_handler(previous);
    return p;
}

void* detail::allocate_without_handler(std::size_t bytes, detail::on_failure policy) {
    if (policy == detail::on_failure::leave_handler_removed)
        return heap_allocate(bytes);
    // Put back before the result is looked at, on both paths.
    if (std::get_new_handler() == nullptr) {
        void* p = global_new(bytes);
        if (!runtime_operator_new && std::get_new_handler() != nullptr)
            std::set_new_handler(nullptr);
        if (!p)
            heap_exhausted();
        return p;
    }
    std::new_handler previous = std::set_new_handler(nullptr);
    void* p = global_new(bytes);
    std::set_new_handler(previous);
    if (!p)
        heap_exhausted();
    return p;
}

allocator_engine::~allocator_engine() = default;

// --- std_heap --------------------------------------------------------------

std_heap::~std_heap() = default;

unsigned long std_heap::id() const { return id_of(&std_heap_tag); }

unsigned std_heap::max_size() const { return largest_block; }

bool std_heap::query_resize(unsigned current, unsigned requested) const {
    return requested != current;
}

// --- vector_heap -----------------------------------------------------------

vector_heap::~vector_heap() = default;

unsigned long vector_heap::id() const { return id_of(&vector_heap_tag); }

unsigned vector_heap::max_size() const { return largest_block; }

bool vector_heap::query_resize(unsigned current, unsigned requested) const {
    return requested > current || requested < (current >> 1);
}

// --- temporary buffers -----------------------------------------------------

void return_temporary_buffer(void* buffer) noexcept { ::operator delete(buffer); }

} // namespace zel
