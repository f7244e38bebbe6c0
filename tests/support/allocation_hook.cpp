// The test binary's global operator new and delete (see allocation_hook.h).
// Every form is replaced, so memory from any new goes back through the same
// free, under the sanitizers too.
#include "allocation_hook.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t no_size = static_cast<std::size_t>(-1);
std::atomic<std::size_t> poisoned{no_size};
thread_local std::size_t last = 0;
std::atomic<long> live{0};
std::atomic<std::size_t> installing{no_size};
std::atomic<std::new_handler> installed{nullptr};
// counting_requests: this thread's count while one is alive, and the number
// of the request to fail (0: none).
thread_local bool counting = false;
thread_local std::size_t counted_requests = 0;
thread_local std::size_t fail_request = 0;
thread_local bool request_failed = false;

// Calls the new-handler until it gives up; false when none is installed.
bool run_handler() {
    std::new_handler handler = std::get_new_handler();
    if (!handler)
        return false;
    handler();
    return true;
}

void* obtain(std::size_t bytes) {
    last = bytes;
    if (bytes == installing.load(std::memory_order_relaxed))
        std::set_new_handler(installed.load());
    bool doomed = bytes == poisoned.load(std::memory_order_relaxed);
    if (counting && ++counted_requests == fail_request) {
        doomed = true;
        request_failed = true;
    }
    for (;;) {
        void* p = doomed ? nullptr : std::malloc(bytes ? bytes : 1);
        if (p) {
            live.fetch_add(1, std::memory_order_relaxed);
            return p;
        }
        if (!run_handler())
            return p;
    }
}

void* obtain_or_throw(std::size_t bytes) {
    if (void* p = obtain(bytes))
        return p;
    throw std::bad_alloc();
}

void* obtain_nothrow(std::size_t bytes) noexcept {
    try {
        return obtain(bytes);
    } catch (...) {
        return nullptr;
    }
}

void give_back(void* p) noexcept {
    if (p)
        live.fetch_sub(1, std::memory_order_relaxed);
    std::free(p);
}

} // namespace

namespace zel_test {

std::size_t last_request() noexcept { return last; }

long live_blocks() noexcept { return live.load(std::memory_order_relaxed); }
counting_requests::counting_requests(std::size_t fail_at) noexcept {
    counting = true;
    counted_requests = 0;
    fail_request = fail_at;
    request_failed = false;
}
counting_requests::~counting_requests() { counting = false; }
std::size_t counting_requests::count() const noexcept { return counted_requests; }
bool counting_requests::failed() const noexcept { return request_failed; }

failing_size::failing_size(std::size_t bytes) noexcept { poisoned.store(bytes); }
failing_size::~failing_size() { poisoned.store(no_size); }

installing_handler::installing_handler(std::size_t bytes, std::new_handler handler) noexcept {
    installed.store(handler);
    installing.store(bytes);
}
installing_handler::~installing_handler() { installing.store(no_size); }

} // namespace zel_test

void* operator new(std::size_t n) { return obtain_or_throw(n); }
void* operator new[](std::size_t n) { return obtain_or_throw(n); }
void* operator new(std::size_t n, std::nothrow_t const&) noexcept { return obtain_nothrow(n); }
void* operator new[](std::size_t n, std::nothrow_t const&) noexcept { return obtain_nothrow(n); }
void operator delete(void* p) noexcept { give_back(p); }
void operator delete[](void* p) noexcept { give_back(p); }
void operator delete(void* p, std::size_t) noexcept { give_back(p); }
void operator delete[](void* p, std::size_t) noexcept { give_back(p); }
void operator delete(void* p, std::nothrow_t const&) noexcept { give_back(p); }
void operator delete[](void* p, std::nothrow_t const&) noexcept { give_back(p); }

#if defined(_WIN32)
// A replaced operator new reaches a shared library on ELF targets by itself.
// A Windows DLL calls the runtime's through its import table instead, so the
// test program points libzel.dll's entries for the forms above at its own,
// before any test runs: the library's requests are then seen and failed like
// the program's. Both end in the same C runtime's malloc and free, so a block
// taken before the switch may be given back after it.
#  include <windows.h>

#  include <cstring>

namespace {

#  if defined(_WIN64)
#    define ZEL_SIZE "y"
#  else
#    define ZEL_SIZE "j"
#  endif

struct replacement {
    char const* name;
    void* function;
};

void* as_pointer(void* (*f)(std::size_t)) { return reinterpret_cast<void*>(f); }
void* as_pointer(void* (*f)(std::size_t, std::nothrow_t const&) noexcept) {
    return reinterpret_cast<void*>(f);
}
void* as_pointer(void (*f)(void*) noexcept) { return reinterpret_cast<void*>(f); }
void* as_pointer(void (*f)(void*, std::size_t) noexcept) { return reinterpret_cast<void*>(f); }
void* as_pointer(void (*f)(void*, std::nothrow_t const&) noexcept) {
    return reinterpret_cast<void*>(f);
}

void* replacement_for(char const* name) {
    using nothrow_new = void* (*)(std::size_t, std::nothrow_t const&) noexcept;
    using plain_new = void* (*)(std::size_t);
    using plain_delete = void (*)(void*) noexcept;
    using sized_delete = void (*)(void*, std::size_t) noexcept;
    using nothrow_delete = void (*)(void*, std::nothrow_t const&) noexcept;
    replacement const table[] = {
        {"_Znw" ZEL_SIZE, as_pointer(static_cast<plain_new>(&::operator new))},
        {"_Zna" ZEL_SIZE, as_pointer(static_cast<plain_new>(&::operator new[]))},
        {"_Znw" ZEL_SIZE "RKSt9nothrow_t", as_pointer(static_cast<nothrow_new>(&::operator new))},
        {"_Zna" ZEL_SIZE "RKSt9nothrow_t", as_pointer(static_cast<nothrow_new>(&::operator new[]))},
        {"_ZdlPv", as_pointer(static_cast<plain_delete>(&::operator delete))},
        {"_ZdaPv", as_pointer(static_cast<plain_delete>(&::operator delete[]))},
        {"_ZdlPv" ZEL_SIZE, as_pointer(static_cast<sized_delete>(&::operator delete))},
        {"_ZdaPv" ZEL_SIZE, as_pointer(static_cast<sized_delete>(&::operator delete[]))},
        {"_ZdlPvRKSt9nothrow_t", as_pointer(static_cast<nothrow_delete>(&::operator delete))},
        {"_ZdaPvRKSt9nothrow_t", as_pointer(static_cast<nothrow_delete>(&::operator delete[]))},
    };
    for (replacement const& r : table)
        if (std::strcmp(r.name, name) == 0)
            return r.function;
    return nullptr;
}

void redirect_imports(HMODULE module) {
    auto* base = reinterpret_cast<unsigned char*>(module);
    auto const* dos = reinterpret_cast<IMAGE_DOS_HEADER const*>(base);
    auto const* nt = reinterpret_cast<IMAGE_NT_HEADERS const*>(base + dos->e_lfanew);
    IMAGE_DATA_DIRECTORY const& imports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (imports.VirtualAddress == 0)
        return;
    auto const* d = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR const*>(base + imports.VirtualAddress);
    for (; d->Name != 0; ++d) {
        DWORD const names_at = d->OriginalFirstThunk != 0 ? d->OriginalFirstThunk : d->FirstThunk;
        auto const* names = reinterpret_cast<IMAGE_THUNK_DATA const*>(base + names_at);
        auto* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + d->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++slots) {
            if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal))
                continue;
            auto const* by_name = reinterpret_cast<IMAGE_IMPORT_BY_NAME const*>(base + names->u1.AddressOfData);
            void* f = replacement_for(reinterpret_cast<char const*>(by_name->Name));
            if (f == nullptr)
                continue;
            DWORD old = 0;
            VirtualProtect(&slots->u1.Function, sizeof slots->u1.Function, PAGE_READWRITE, &old);
            slots->u1.Function = reinterpret_cast<ULONG_PTR>(f);
            VirtualProtect(&slots->u1.Function, sizeof slots->u1.Function, old, &old);
        }
    }
}

struct library_redirect {
    library_redirect() {
        if (HMODULE zel = GetModuleHandleA("libzel.dll"))
            redirect_imports(zel);
    }
};
library_redirect const redirect;

} // namespace
#endif
