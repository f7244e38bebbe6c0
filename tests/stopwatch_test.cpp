// The stopwatch: accumulation across stop and start, the kept double stop,
// and the units. The bounds are loose: they catch a wrong unit or a lost
// interval, not a slow machine.
#include <zel/stopwatch.h>

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

namespace {

void wait_ms(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// Between `low` and a generous upper bound for a loaded machine.
void expect_about(double ms, double low) {
    EXPECT_GE(ms, low);
    EXPECT_LT(ms, low + 400);
}

TEST(Stopwatch, ClockIsMonotonicMilliseconds) {
    std::int32_t a = zel::stopwatch::clock();
    wait_ms(30);
    std::int32_t b = zel::stopwatch::clock();
    expect_about(b - a, 30);
}

TEST(Stopwatch, StopAndStartAccumulate) {
    zel::stopwatch w;
    w.start();
    wait_ms(20);
    w.stop();
    double paused = w.msec_elapsed();
    expect_about(paused, 20);
    wait_ms(20);
    EXPECT_EQ(w.msec_elapsed(), paused) << "a stopped watch does not advance";
    w.start();
    wait_ms(20);
    expect_about(w.msec_elapsed(), 40);
    EXPECT_NEAR(w.sec_elapsed() * 1000.0, w.msec_elapsed(), 2.0);
}

TEST(Stopwatch, SecondStopAddsTheTimeSinceTheFirst) {
    zel::stopwatch w(true);
    w.stop();
    wait_ms(20);
    w.stop();
    expect_about(w.msec_elapsed(), 20);
}

// A default or not-running watch stays at zero, then measures from start().
TEST(Stopwatch, NotRunningConstructionMeasuresFromStart) {
    zel::stopwatch d, w(false);
    EXPECT_FALSE(d.running() || w.running());
    wait_ms(300);
    EXPECT_EQ(d.sec_elapsed(), 0.0);
    EXPECT_EQ(d.msec_elapsed(), 0.0);
    EXPECT_EQ(w.msec_elapsed(), 0.0);
    w.start();
    wait_ms(10);
    double ms = w.msec_elapsed();
    EXPECT_GE(ms, 10);
    EXPECT_LT(ms, 300) << "measured from start(), not from construction";
}

TEST(Stopwatch, StopOfANeverStartedWatchAddsTheWholeClock) {
    zel::stopwatch w;
    w.stop();
    EXPECT_NEAR(w.msec_elapsed(), zel::stopwatch::clock(), 2.0);
}

TEST(Stopwatch, RestartResetAndCopy) {
    zel::stopwatch w(true);
    wait_ms(20);
    w.stop();
    zel::stopwatch copy(w);
    EXPECT_EQ(copy.msec_elapsed(), w.msec_elapsed());
    w.restart();
    EXPECT_TRUE(w.running());
    EXPECT_LT(w.msec_elapsed(), 20);
    w.reset();
    EXPECT_FALSE(w.running());
    EXPECT_EQ(w.msec_elapsed(), 0.0);
    copy = w;
    EXPECT_EQ(copy.msec_elapsed(), 0.0);
}

} // namespace
