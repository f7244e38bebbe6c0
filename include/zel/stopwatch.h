// stopwatch: elapsed time in milliseconds of a monotonic clock, accumulated
// across stop and start. The timed monitor operations spend one time-out
// across several waits with it.
#ifndef ZEL_STOPWATCH_H
#define ZEL_STOPWATCH_H

#include <cstdint>

#include <zel/config.h>

namespace zel {

class ZEL_API stopwatch {
public:
    // A tick is one millisecond.
    static constexpr double ticks_per_second = 1000.0;

    // The clock the watch reads: milliseconds since the library was loaded,
    // from a monotonic clock (a sleeping thread's time counts too).
    static std::int32_t clock() noexcept;

    // Stopped, nothing accumulated, start tick 0.
    stopwatch() noexcept : running_(false), accumulated_(0.0), start_(0) {}
    // Takes the start tick now, even when `run` is false.
    explicit stopwatch(bool run) noexcept
        : running_(run), accumulated_(0.0), start_(clock()) {}
    stopwatch(stopwatch const&) noexcept = default;
    stopwatch& operator=(stopwatch const&) noexcept = default;
    virtual ~stopwatch();

    void reset() noexcept;
    // Runs from now on; the accumulated time is kept, so a stopped watch
    // resumes.
    void start() noexcept;
    // Runs from now on with nothing accumulated.
    void restart() noexcept;
    // Adds the ticks since the start tick and makes now the start tick.
    // Kept behaviour: the running flag is not looked at, so a second stop()
    // adds the time since the first one. Call it once to pause.
    void stop() noexcept;

    double sec_elapsed() const noexcept;
    // The elapsed ticks expressed as milliseconds.
    double msec_elapsed() const noexcept;

    bool running() const noexcept { return running_; }

private:
    double total() const noexcept;

    bool running_;
    double accumulated_;
    std::int32_t start_;
};

} // namespace zel

#endif
