// Model-based container tests: a seeded random run of weighted operations,
// each applied to the container under test and to its standard twin, with
// the caller's verification (check() and a comparison with the twin) after
// every step. Run it over zel_test::counted elements inside a no_leaks guard
// so leaks and double destruction show.
//
//   zel_test::model_run run(7);                    // the seed
//   run.op("insert", 3, [&] { auto k = key(run.pick(500)); c.insert(k); twin.insert(k); })
//      .op("erase", 2, [&] { ... });
//   run.go(5000, [&] {
//       c.check();
//       zel_test::expect_same_elements(c, twin);   // or expect_same_sequence
//   });
//
// The first failing step stops the run; the failure names the seed, the step
// and the operation. An operation may call ASSERT_* itself: a fatal failure
// inside it stops the run the same way.
//
// sequence_ops (vector, deque, list) and associative_ops (the ordered and
// hashed sets and maps) register the operations a family shares through its
// typed interface; each test file adds its engine's own forms to the run.
#ifndef ZEL_TEST_MODEL_H
#define ZEL_TEST_MODEL_H

#include <algorithm>
#include <cstddef>
#include <functional>
#include <iterator>
#include <list>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "counted.h"

namespace zel_test {

class model_run {
public:
    explicit model_run(unsigned seed) : seed_(seed), rng_(seed) {}
    model_run(model_run const&) = delete;
    model_run& operator=(model_run const&) = delete;

    // A uniform number below n (0 when n is 0).
    unsigned pick(unsigned n) { return n == 0 ? 0u : unsigned(rng_() % n); }
    // True with the given chance in percent.
    bool chance(unsigned percent) { return pick(100) < percent; }
    std::mt19937& rng() { return rng_; }
    unsigned seed() const { return seed_; }

    // An operation drawn with probability weight / (sum of the weights).
    model_run& op(char const* name, unsigned weight, std::function<void()> f) {
        ops_.push_back({name, weight, std::move(f)});
        total_ += weight;
        return *this;
    }

    // `steps` draws, `verify` after each one. Returns false when a step failed.
    template <class Verify>
    bool go(int steps, Verify verify) {
        for (int step = 0; step < steps; ++step) {
            unsigned r = pick(total_);
            std::size_t i = 0;
            while (r >= ops_[i].weight)
                r -= ops_[i++].weight;
            SCOPED_TRACE("seed " + std::to_string(seed_) + ", step " + std::to_string(step) +
                         ", operation " + ops_[i].name);
            ops_[i].run();
            if (!::testing::Test::HasFailure())
                verify();
            if (::testing::Test::HasFailure())
                return false;
        }
        return true;
    }

private:
    struct operation {
        char const* name;
        unsigned weight;
        std::function<void()> run;
    };

    unsigned seed_;
    std::mt19937 rng_;
    std::vector<operation> ops_;
    unsigned total_ = 0;
};

// The key of a set's element or of a map's pair.
template <class K>
K const& key_of(K const& k) { return k; }
template <class K, class V>
K const& key_of(std::pair<K const, V> const& p) { return p.first; }

namespace detail {

template <class T>
struct plain {
    using type = T;
};
template <class K, class V>
struct plain<std::pair<K const, V>> {
    using type = std::pair<K, V>;
};

template <class C>
std::vector<typename plain<typename C::value_type>::type> listed(C const& c) {
    std::vector<typename plain<typename C::value_type>::type> out;
    out.reserve(c.size());
    for (auto const& v : c)
        out.push_back(v);
    return out;
}

} // namespace detail

// The same elements in the same order (ordered containers, sequences),
// walking forwards and backwards.
template <class C, class Twin>
void expect_same_sequence(C const& c, Twin const& twin) {
    ASSERT_EQ(c.size(), twin.size());
    ASSERT_EQ(detail::listed(c), detail::listed(twin));
    ASSERT_EQ(std::size_t(std::distance(c.begin(), c.end())), twin.size());
    ASSERT_TRUE(std::equal(c.rbegin(), c.rend(), twin.rbegin(), twin.rend())) << "walking backwards";
}

// The same elements in any order (hashed containers): both listings sorted,
// then compared; the element type needs operator<.
template <class C, class Twin>
void expect_same_elements(C const& c, Twin const& twin) {
    ASSERT_EQ(c.size(), twin.size());
    auto a = detail::listed(c);
    auto b = detail::listed(twin);
    ASSERT_EQ(a.size(), twin.size()) << "iteration does not reach every element";
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    ASSERT_EQ(a, b);
}


// Erases one element of the twin equal to v.
template <class Twin, class V>
void erase_one(Twin& twin, V const& v) {
    auto r = twin.equal_range(key_of(v));
    for (auto it = r.first; it != r.second; ++it)
        if (*it == v) {
            twin.erase(it);
            return;
        }
    ADD_FAILURE() << "the twin has no such element";
}

// The operations the ordered and the hashed containers share, through the
// typed interface, beside the std twin: insertion (with a failing copy),
// erasure by key, at an iterator and of a range, lookups, copies and
// assignments (with a failing copy). element() draws a value. Each file adds
// its container's own operations to the same run.
template <class C, class Twin, class Element>
void associative_ops(model_run& run, C& c, Twin& twin, Element element) {
    // The ops run after this returns: locals are captured by copy; c, twin
    // and run are the caller's.
    auto const nth = [&c](unsigned i) { return std::next(c.begin(), i); };
    run.op("insert", 6, [&, element] {
           auto const v = element();
           auto const r = c.insert(v);
           auto const t = twin.insert(v);
           if constexpr (std::is_same_v<std::decay_t<decltype(t)>, typename Twin::iterator>) {
               ASSERT_EQ(*r, *t);
           } else {
               ASSERT_EQ(r.second, t.second);
               ASSERT_EQ(*r.first, *t.first);
           }
       })
        .op("insert with a failing copy", 1, [&, element] {
            auto const v = element();
            if (!throws_on_copy(0, [&] { c.insert(v); }))
                twin.insert(v);   // nothing was copied: a key copies none, or the key was there
        })
        .op("erase a key", 3, [&, element] {
            auto const k = key_of(element());
            ASSERT_EQ(c.erase(k), twin.erase(k));
        })
        .op("erase at an iterator", 3, [&, nth] {
            if (c.empty()) return;
            unsigned const i = run.pick(unsigned(c.size()));
            auto const v = *nth(i);
            typename C::const_iterator const next = c.erase(nth(i));
            ASSERT_EQ(std::distance(std::as_const(c).begin(), next), std::ptrdiff_t(i)) << "the next element";
            erase_one(twin, v);
        })
        .op("erase a range", 1, [&, nth] {
            unsigned const n = unsigned(c.size()), i = run.pick(n + 1), j = i + run.pick(std::min(n - i, 30u) + 1);
            for (auto const& v : std::vector<typename C::value_type>(nth(i), nth(j)))
                erase_one(twin, v);
            c.erase(nth(i), nth(j));
        })
        .op("look up", 3, [&, element] {
            auto const k = key_of(element());
            ASSERT_EQ(c.count(k), twin.count(k));
            ASSERT_EQ(c.contains(k), twin.count(k) != 0);
            ASSERT_EQ(c.find(k) == c.end(), twin.find(k) == twin.end());
            auto const r = c.equal_range(k);
            ASSERT_EQ(unsigned(std::distance(r.first, r.second)), twin.count(k));
        })
        .op("copy and assign", 1, [&, element] {
            C copy(c);
            copy.check();
            expect_same_elements(copy, twin);
            ASSERT_TRUE(copy == c);
            if (!copy.empty()) {
                copy.erase(copy.begin());
                ASSERT_TRUE(copy != c);
            }
            C other;
            for (unsigned n = run.pick(20); n; --n) other.insert(element());
            other = c;   // reuses other's nodes
            other.check();
            expect_same_elements(other, twin);
            c = std::move(other);
            ASSERT_TRUE(other.empty());
            other.check();
        })
        .op("copy and assign with a failing copy", 1, [&, element] {
            bool const fails = !c.empty() && !std::is_same_v<std::decay_t<decltype(key_of(*c.begin()))>, int>;
            ASSERT_EQ(throws_on_copy(int(run.pick(unsigned(c.size()))), [&] { C copy(c); }), fails);
            C t;
            t.insert(element());
            if (throws_on_copy(int(run.pick(unsigned(c.size()) + 1)), [&] { t = c; })) {
                t.check();   // keeps what was copied before the throw
                ASSERT_LE(t.size(), c.size());
            }
        });
}

// The twin sorted as a stable sort would (std::list sorts itself).
template <class Twin, class Less>
void twin_sort(Twin& twin, Less less) {
    if constexpr (std::is_same_v<Twin, std::list<typename Twin::value_type>>)
        twin.sort(less);
    else
        std::stable_sort(twin.begin(), twin.end(), less);
}

// The operations vector, deque and list share, through the typed interface,
// beside a std sequence twin: push_back, insertion of copies, erasure of a
// range, resize, sort (against a stable sort) and reverse, keeping a range of
// their own, copies, moves, swaps, relations and checked access. element()
// draws a value. Each file adds its container's own (engine) operations.
template <class C, class Twin, class Element>
void sequence_ops(model_run& run, C& c, Twin& twin, Element element) {
    // The ops run after this returns: locals are captured by copy; c, twin
    // and run are the caller's.
    auto const ci = [&c](unsigned i) { return std::next(c.begin(), i); };
    auto const ti = [&twin](unsigned i) { return std::next(twin.begin(), i); };
    auto const span = [&run, &twin](unsigned most) {   // a range [first, second), at most `most` long
        unsigned const n = unsigned(twin.size()), a = run.pick(n + 1);
        return std::make_pair(a, a + run.pick(std::min(n - a, most) + 1));
    };
    run.op("push_back", 2, [&, element] {
           auto const e = element();
           c.push_back(e);
           twin.push_back(e);
       })
        .op("insert copies", 1, [&, element, ci, ti] {
            unsigned const at = run.pick(unsigned(twin.size()) + 1), m = run.pick(5);
            auto const e = element();
            c.insert(ci(at), m, e);
            twin.insert(ti(at), m, e);
        })
        .op("erase a range", 1, [&, ci, ti, span] {
            auto const r = span(run.chance(20) ? ~0u : 8);
            c.erase(ci(r.first), ci(r.second));
            twin.erase(ti(r.first), ti(r.second));
        })
        .op("resize", 1, [&, element] {
            unsigned const m = run.pick(2 * unsigned(twin.size()) + 3);
            auto const e = element();
            c.resize(m, e);
            twin.resize(m, e);
        })
        .op("sort or reverse", 1, [&] {
            auto const down = [](auto const& p, auto const& q) { return q < p; };
            if (run.chance(50)) {
                c.reverse();
                std::reverse(twin.begin(), twin.end());
            } else if (run.chance(50)) {
                c.sort();
                twin_sort(twin, std::less<>());
            } else {
                c.sort(down);
                twin_sort(twin, down);
            }
        })
        .op("keep a range of our own", 1, [&, ci, ti, span] {
            auto const r = span(~0u);
            c.assign(ci(r.first), ci(r.second));
            twin = Twin(ti(r.first), ti(r.second));
        })
        .op("copy, move, swap, compare, checked access", 1, [&, element, ti, span] {
            C copy(c);
            ASSERT_TRUE(copy == c);
            C moved(std::move(copy));
            ASSERT_TRUE(copy.empty());
            copy.check();
            C other{element()};
            other.swap(moved);
            moved.check();
            ASSERT_EQ(moved.size(), 1u);
            ASSERT_TRUE(other == c);
            c = other;
            auto const r = span(~0u);
            Twin const part(ti(r.first), ti(r.second));
            ASSERT_EQ(C(part.begin(), part.end()) < c, part < twin);
            ASSERT_EQ(c < C(part.begin(), part.end()), twin < part);
            expect_raised([&] { c.at(unsigned(twin.size())); }, "out_of_range", any, any);   // directly or not
            if (twin.empty()) return;
            unsigned const i = run.pick(unsigned(twin.size()));
            ASSERT_EQ(c.at(i), *ti(i));
            ASSERT_EQ(c.front(), twin.front());
            ASSERT_EQ(c.back(), twin.back());
        });
}

} // namespace zel_test

#endif
