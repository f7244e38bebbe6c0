// A replacement of the global operator new and delete for the tests: it
// records the size of each request and can make requests of one size fail,
// as an exhausted process would, to drive the heaps' failure paths.
#ifndef ZEL_TEST_ALLOCATION_HOOK_H
#define ZEL_TEST_ALLOCATION_HOOK_H

#include <cstddef>
#include <new>

namespace zel_test {

// The size of the last request to the global operator new on this thread.
std::size_t last_request() noexcept;

// Blocks obtained from the global operator new and not yet given back, over
// all threads: a test compares it before and after to see memory returned.
long live_blocks() noexcept;

// While alive, counts this thread's requests to the global operator new
// (every form); with `fail_at` non-zero, the request of that number (from 1)
// fails as under failing_size. Other threads are neither counted nor failed.
class counting_requests {
public:
    explicit counting_requests(std::size_t fail_at = 0) noexcept;
    ~counting_requests();
    counting_requests(counting_requests const&) = delete;
    counting_requests& operator=(counting_requests const&) = delete;

    std::size_t count() const noexcept;
    // Whether the request to fail was made.
    bool failed() const noexcept;
};

// While alive, every request of exactly `bytes` fails: the new-handler, if
// one is installed, is called as the runtime would, and then the request
// fails (null for the nothrow forms, std::bad_alloc otherwise).
class failing_size {
public:
    explicit failing_size(std::size_t bytes) noexcept;
    ~failing_size();
    failing_size(failing_size const&) = delete;
    failing_size& operator=(failing_size const&) = delete;
};

// While alive, a request of exactly `bytes` installs `handler` as the
// new-handler before it succeeds, as a replaced operator new might.
class installing_handler {
public:
    installing_handler(std::size_t bytes, std::new_handler handler) noexcept;
    ~installing_handler();
    installing_handler(installing_handler const&) = delete;
    installing_handler& operator=(installing_handler const&) = delete;
};

} // namespace zel_test

#endif
