// The stopwatch and the millisecond clock it reads.
#include <zel/stopwatch.h>

#if defined(_WIN32)
#  include <windows.h>
#else
#  include <chrono>
#endif

namespace zel {

namespace {

#if defined(_WIN32)
// The performance counter: the system's monotonic clock, in its own units.
std::int64_t counter_ms() noexcept {
    static LARGE_INTEGER const frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER c;
    QueryPerformanceCounter(&c);
    std::int64_t const f = frequency.QuadPart;
    return c.QuadPart / f * 1000 + c.QuadPart % f * 1000 / f;
}

std::int64_t epoch() noexcept {
    static std::int64_t const first = counter_ms();
    return first;
}

// Milliseconds since the epoch.
std::int64_t elapsed_ms() noexcept { return counter_ms() - epoch(); }
#else
using steady = std::chrono::steady_clock;

steady::time_point epoch() noexcept {
    static steady::time_point const first = steady::now();
    return first;
}

// Milliseconds since the epoch.
std::int64_t elapsed_ms() noexcept {
    return std::chrono::duration_cast<std::chrono::milliseconds>(steady::now() - epoch()).count();
}
#endif

// Fix the epoch when the library is loaded, as a process clock starts with
// the process.
[[maybe_unused]] auto const load_time = epoch();

// The ticks from `from` to `to`, as a signed 32-bit difference.
double ticks_between(std::int32_t from, std::int32_t to) noexcept {
    auto diff = static_cast<std::uint32_t>(to) - static_cast<std::uint32_t>(from);
    return static_cast<double>(static_cast<std::int32_t>(diff));
}

} // namespace

std::int32_t stopwatch::clock() noexcept {
    // Wraps after 2^32 ms like a 32-bit tick counter; differences stay exact.
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(elapsed_ms()));
}

stopwatch::~stopwatch() = default;

void stopwatch::reset() noexcept {
    running_ = false;
    accumulated_ = 0.0;
    start_ = 0;
}

void stopwatch::start() noexcept {
    running_ = true;
    start_ = clock();
}

void stopwatch::restart() noexcept {
    running_ = true;
    accumulated_ = 0.0;
    start_ = clock();
}

void stopwatch::stop() noexcept {
    std::int32_t now = clock();
    running_ = false;
    accumulated_ += ticks_between(start_, now);
    start_ = now;
}

double stopwatch::total() const noexcept {
    return running_ ? accumulated_ + ticks_between(start_, clock()) : accumulated_;
}

double stopwatch::sec_elapsed() const noexcept {
    return total() / ticks_per_second;
}

double stopwatch::msec_elapsed() const noexcept {
    return total() / ticks_per_second * 1000.0;
}

} // namespace zel
