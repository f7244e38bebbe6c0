// A bounded soak: library threads started on callbacks share copy-on-write
// strings (copies, appends, compares, hand-overs between threads), read
// one list through its locked position cache, and meet in the three
// locking monitors as readers and writers. Every worker checks what it
// sees as it goes; the shared state is checked once all have ended.
// ZEL_SOAK_MS sets the length (default 3 s, 1.5 s under the thread sanitizer).
#include <zel/callback.h>
#include <zel/list.h>
#include <zel/monitor.h>
#include <zel/string.h>
#include <zel/thread.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#if defined(__SANITIZE_THREAD__)
#define ZEL_SOAK_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZEL_SOAK_TSAN 1
#endif
#endif

namespace {

long soak_ms() {
    if (char const* s = std::getenv("ZEL_SOAK_MS"))
        return std::atol(s);
#ifdef ZEL_SOAK_TSAN
    return 1500;
#else
    return 3000;
#endif
}

// A pair that writers keep equal, and the sightings of broken exclusion.
struct guarded {
    zel::monitor_base* monitor;
    long a = 0, b = 0;
    std::atomic<int> readers{0}, writers{0};
    std::atomic<long> violations{0};
};

struct shared_state {
    std::vector<zel::string> seeds;
    zel::list<unsigned> numbers;
    zel::simple_monitor simple;
    zel::monitor_v1 v1;
    zel::monitor_v2 v2;
    guarded rooms[3] = {{&simple}, {&v1}, {&v2}};
    zel::string mailbox;   // written under rooms[2]'s write access
    std::atomic<long> callbacks{0};
    std::chrono::steady_clock::time_point until;

    void count_callback() { callbacks.fetch_add(1, std::memory_order_relaxed); }
};

// A worker: its run() is the body of one callback_thread.
struct worker {
    shared_state* s;
    unsigned id;
    long writes[3] = {0, 0, 0};
    long callbacks = 0;
    long errors = 0;

    void fail() { ++errors; }

    void strings(std::mt19937& rng) {
        zel::string const& seed = s->seeds[rng() % s->seeds.size()];
        zel::string copy = seed;   // shares the engine
        if (copy.data() != seed.data())
            fail();
        copy += 'x';               // a private copy now
        copy.append(zel::string(3, char('a' + id % 26)));
        if (copy.compare(0, seed.size(), seed, 0, seed.size()) != 0 || copy.size() != seed.size() + 4 ||
            seed.compare(copy) >= 0)
            fail();
        zel::string second = copy;
        second.resize(seed.size());
        if (second != seed)
            fail();
    }

    void list(std::mt19937& rng) {
        zel::list<unsigned> const& l = s->numbers;
        unsigned i = unsigned(rng() % l.size());
        // Near and far steps from wherever the cache was left.
        for (unsigned k = 0; k < 4; ++k, i = (i + 1 + k * 7) % l.size())
            if (l[i] != i * 3)
                fail();
    }

    void monitors(std::mt19937& rng) {
        unsigned const r = unsigned(rng() % 3);
        guarded& g = s->rooms[r];
        if (rng() % 4 == 0) {
            g.monitor->acquire_for_writing();
            if (g.writers.fetch_add(1) != 0 || g.readers.load() != 0)
                g.violations.fetch_add(1);
            ++g.a;
            ++g.b;
            if (r == 2)
                s->mailbox = zel::string(("mail from " + std::to_string(id)).c_str());
            ++writes[r];
            g.writers.fetch_sub(1);
            g.monitor->release_from_writing();
        } else {
            g.monitor->acquire_for_reading();
            g.readers.fetch_add(1);
            if (g.writers.load() != 0)
                g.violations.fetch_add(1);
            if (g.a != g.b)
                fail();
            if (r == 2) {
                zel::string const mail = s->mailbox;   // outlives the write access
                g.readers.fetch_sub(1);
                g.monitor->release_from_reading();
                if (mail.size() != 0 && mail.compare(0, 10, "mail from ", 10) != 0)
                    fail();
                return;
            }
            g.readers.fetch_sub(1);
            g.monitor->release_from_reading();
        }
    }

    void run() {
        std::mt19937 rng(id);
        zel::callback0 const tick = zel::make_callback(*s, &shared_state::count_callback);
        while (std::chrono::steady_clock::now() < s->until) {
            for (int k = 0; k < 16; ++k) {
                switch (rng() % 4) {
                case 0: strings(rng); break;
                case 1: list(rng); break;
                case 2: monitors(rng); break;
                default: tick(); ++callbacks; break;
                }
            }
        }
    }
};

TEST(Soak, ThreadsShareStringsAListAndMonitors) {
    shared_state s;
    std::vector<std::string> seed_texts;
    for (int i = 0; i < 8; ++i) {
        seed_texts.emplace_back(size_t(5 + 9 * i), char('A' + i));
        s.seeds.emplace_back(seed_texts.back().c_str());
    }
    for (unsigned i = 0; i < 500; ++i)
        s.numbers.push_back(i * 3);

    unsigned const count = 8;
    std::vector<worker> workers(count);
    std::vector<zel::initiator0> calls(count);
    std::vector<std::unique_ptr<zel::callback_thread>> threads;
    s.until = std::chrono::steady_clock::now() + std::chrono::milliseconds(soak_ms());
    for (unsigned i = 0; i < count; ++i) {
        workers[i] = worker{&s, i};
        calls[i].reset(zel::make_callback(workers[i], &worker::run));
        threads.push_back(std::make_unique<zel::callback_thread>(calls[i]));
    }
    for (auto& t : threads)
        t->start();
    for (auto& t : threads)
        t->wait();

    long writes[3] = {0, 0, 0}, callbacks = 0;
    for (auto const& w : workers) {
        EXPECT_EQ(w.errors, 0) << "worker " << w.id << " saw a broken invariant";
        for (int r = 0; r < 3; ++r)
            writes[r] += w.writes[r];
        callbacks += w.callbacks;
    }
    for (int r = 0; r < 3; ++r) {
        SCOPED_TRACE(r);
        EXPECT_EQ(s.rooms[r].violations.load(), 0) << "a writer beside another thread";
        EXPECT_EQ(s.rooms[r].a, writes[r]);
        EXPECT_EQ(s.rooms[r].b, writes[r]);
        EXPECT_GT(writes[r], 0);
        // Idle again: a writer gets in at once.
        EXPECT_TRUE(s.rooms[r].monitor->try_acquire_for_writing(1000));
        s.rooms[r].monitor->release_from_writing();
    }
    EXPECT_EQ(s.callbacks.load(), callbacks);
    for (unsigned i = 0; i < s.seeds.size(); ++i)
        EXPECT_EQ(std::string(s.seeds[i].data(), s.seeds[i].size()), seed_texts[i]);
    s.numbers.check();
    ASSERT_EQ(s.numbers.size(), 500u);
    unsigned i = 0;
    for (unsigned x : s.numbers)
        EXPECT_EQ(x, 3 * i++);
}

} // namespace
