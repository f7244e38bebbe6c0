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
    for (;;) {
        void* p = bytes == poisoned.load(std::memory_order_relaxed) ? nullptr
                                                                     : std::malloc(bytes ? bytes : 1);
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
