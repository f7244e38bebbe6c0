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
        if (p || !run_handler())
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

} // namespace

namespace zel_test {

std::size_t last_request() noexcept { return last; }

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
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::nothrow_t const&) noexcept { std::free(p); }
void operator delete[](void* p, std::nothrow_t const&) noexcept { std::free(p); }
