// Helpers of the concurrency tests: bounded waiting, so that a fault makes
// a check fail after a few seconds instead of hanging the suite, and the
// check of a sync_error's report.
#ifndef ZEL_TEST_CONCURRENCY_H
#define ZEL_TEST_CONCURRENCY_H

#include <chrono>
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>

#include <zel/exception.h>

#include "raises.h"

namespace zel_test {

// How many times slower than a plain build this run may be: the
// ZEL_TEST_TIME_SCALE environment variable (the valgrind preset sets it),
// else 1. It stretches the waits and the upper bounds of the timing checks,
// never their lower bounds.
inline unsigned time_scale() {
    char const* text = std::getenv("ZEL_TEST_TIME_SCALE");
    unsigned long const scale = text != nullptr ? std::strtoul(text, nullptr, 10) : 0;
    return scale > 0 && scale < 1000 ? static_cast<unsigned>(scale) : 1u;
}

// The longest any test waits for something that should happen promptly.
inline unsigned const patience_ms = 5000 * time_scale();

inline void pause_ms(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// Polls `done` until it holds or `limit_ms` pass; its last answer.
template <class Predicate>
bool eventually(Predicate done, unsigned limit_ms = patience_ms) {
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit_ms);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= until)
            return done();
        pause_ms(1);
    }
    return true;
}

// The answer of take() on a thread of its own, which gives back what it took.
template <class Take, class Give>
bool taken_by_another_thread(Take take, Give give_back) {
    bool taken = false;
    std::thread([&] {
        taken = take();
        if (taken)
            give_back();
    }).join();
    return taken;
}

// Milliseconds taken by `f()`.
template <class F>
long long elapsed_ms(F f) {
    auto start = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now() - start)
        .count();
}

// `f()` raises a sync_error with `text`, thrown from `file`.
template <class F>
void expect_sync_error(F f, char const* text, char const* file) {
    expect_raised(f, "sync_error", text, file);
}

} // namespace zel_test

#endif
