// Fuzz target for the containers: the bytes choose a container and then a
// sequence of operations, each applied to the zel container and to its
// std twin, with check() (the engine's own invariants) and a comparison of
// the elements, walked forwards and backwards, after every step.
//
// The elements own heap memory and count their live objects, so a leak, a
// double destruction or a use after free shows through the sanitizers and
// the count. This is the shape of the model runs of the test suite
// (tests/support/model.h), driven by the fuzzer's bytes instead of a seed;
// that harness reports through GoogleTest, so its checks are written out
// here with abort().
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include <zel/deque.h>
#include <zel/hash_map.h>
#include <zel/hash_set.h>
#include <zel/list.h>
#include <zel/map.h>
#include <zel/set.h>
#include <zel/vector.h>

namespace {

[[noreturn]] void fail(char const* what, int step) {
    std::fprintf(stderr, "containers fuzz: %s at step %d\n", what, step);
    std::abort();
}

// A value on the heap, with a count of live objects.
class item {
public:
    static inline long live = 0;
    item() : v_(std::make_unique<int>(0)) { ++live; }
    explicit item(int v) : v_(std::make_unique<int>(v)) { ++live; }
    item(item const& o) : v_(std::make_unique<int>(*o.v_)) { ++live; }
    item& operator=(item const& o) {
        *v_ = *o.v_;
        return *this;
    }
    ~item() { --live; }
    int value() const { return *v_; }
    friend bool operator==(item const& a, item const& b) { return *a.v_ == *b.v_; }
    friend bool operator<(item const& a, item const& b) { return *a.v_ < *b.v_; }

private:
    std::unique_ptr<int> v_;
};

template <class C, class Twin>
void expect_same_sequence(C const& c, Twin const& twin, int step) {
    c.check();
    if (c.size() != twin.size() || std::size_t(std::distance(c.begin(), c.end())) != twin.size())
        fail("sizes differ", step);
    if (!std::equal(c.begin(), c.end(), twin.begin()))
        fail("elements differ", step);
    if (!std::equal(c.rbegin(), c.rend(), twin.rbegin()))
        fail("elements differ walking backwards", step);
}

// vector, deque and list beside their std twins.
template <class C, class Twin>
void sequence(FuzzedDataProvider& in) {
    C c;
    Twin twin;
    C other;
    Twin other_twin;
    constexpr bool has_front = !std::is_same_v<C, zel::vector<item>>;
    constexpr bool is_list = std::is_same_v<C, zel::list<item>>;
    for (int step = 0; in.remaining_bytes() && step < 300; ++step) {
        unsigned const n = unsigned(twin.size());
        auto pick = [&](unsigned limit) { return in.ConsumeIntegralInRange<unsigned>(0, limit); };
        item const x(in.ConsumeIntegralInRange<int>(0, 20));
        switch (in.ConsumeIntegralInRange<int>(0, 17)) {
        case 0: c.push_back(x); twin.push_back(x); break;
        case 1:
            if (n) { c.pop_back(); twin.pop_back(); }
            break;
        case 2: {
            unsigned const at = pick(n), k = pick(5);
            c.insert(std::next(c.begin(), at), k, x);
            twin.insert(std::next(twin.begin(), at), k, x);
            break;
        }
        case 3: {
            // A range of the container itself, inserted into itself.
            unsigned const a = pick(n), k = pick(n - a), at = pick(n);
            Twin const src(std::next(twin.begin(), a), std::next(twin.begin(), a + k));
            c.insert(std::next(c.begin(), at), std::next(c.begin(), a), std::next(c.begin(), a + k));
            twin.insert(std::next(twin.begin(), at), src.begin(), src.end());
            break;
        }
        case 4:
            if (n) {
                unsigned const at = pick(n - 1);
                c.erase(std::next(c.begin(), at));
                twin.erase(std::next(twin.begin(), at));
            }
            break;
        case 5: {
            unsigned const a = pick(n), b = a + pick(n - a);
            c.erase(std::next(c.begin(), a), std::next(c.begin(), b));
            twin.erase(std::next(twin.begin(), a), std::next(twin.begin(), b));
            break;
        }
        case 6: {
            unsigned const k = pick(2 * n + 3);
            c.resize(k, x);
            twin.resize(k, x);
            break;
        }
        case 7: c.clear(); twin.clear(); break;
        case 8: {
            unsigned const k = pick(8);
            c.assign(k, x);
            twin.assign(k, x);
            break;
        }
        case 9: other = c; other_twin = twin; break;
        case 10: c = other; twin = other_twin; break;
        case 11: c.swap(other); twin.swap(other_twin); break;
        case 12: {
            C copy(c);
            expect_same_sequence(copy, twin, step);
            c = copy;  // assignment from an equal copy
            break;
        }
        case 13: {
            // Assignment from a range of itself.
            unsigned const a = pick(n), k = pick(n - a);
            Twin const src(std::next(twin.begin(), a), std::next(twin.begin(), a + k));
            c.assign(std::next(c.begin(), a), std::next(c.begin(), a + k));
            twin.assign(src.begin(), src.end());
            break;
        }
        case 14:
            if constexpr (has_front) {
                c.push_front(x);
                twin.push_front(x);
            }
            break;
        case 15:
            if constexpr (has_front) {
                if (n) { c.pop_front(); twin.pop_front(); }
            }
            break;
        case 16:
            if constexpr (is_list) {
                switch (pick(4)) {
                case 0: c.sort(); twin.sort(); break;
                case 1: c.reverse(); twin.reverse(); break;
                case 2: c.unique(); twin.unique(); break;
                case 3: c.remove(x); twin.remove(x); break;
                default: {
                    c.sort(); twin.sort();
                    other.sort(); other_twin.sort();
                    c.merge(other); twin.merge(other_twin);
                    break;
                }
                }
            } else {
                c.sort();
                std::sort(twin.begin(), twin.end());
            }
            break;
        default:
            if constexpr (is_list) {
                unsigned const at = pick(n);
                c.splice(std::next(c.begin(), at), other);
                twin.splice(std::next(twin.begin(), at), other_twin);
            } else if (n) {
                unsigned const i = pick(n - 1);
                c[i] = x;
                twin[i] = x;
            }
            break;
        }
        expect_same_sequence(c, twin, step);
        expect_same_sequence(other, other_twin, step);
    }
}

template <class K>
int key_of(K const& k) { return k; }
template <class V>
int key_of(std::pair<int const, V> const& p) { return p.first; }

// Ordered and hashed containers beside their std twins. Ordered ones must
// agree in order; hashed ones as sorted listings.
template <class C, class Twin, bool Ordered, bool Map>
void associative(FuzzedDataProvider& in) {
    C c;
    Twin twin;
    C other;
    Twin other_twin;
    auto same = [&](C const& a, Twin const& b, int step) {
        a.check();
        if (a.size() != b.size() || std::size_t(std::distance(a.begin(), a.end())) != b.size())
            fail("sizes differ", step);
        std::vector<std::pair<int, int>> got, want;
        for (auto const& v : a) {
            if constexpr (Map)
                got.emplace_back(v.first, v.second.value());
            else
                got.emplace_back(v, 0);
        }
        for (auto const& v : b) {
            if constexpr (Map)
                want.emplace_back(v.first, v.second.value());
            else
                want.emplace_back(v, 0);
        }
        if (!Ordered) {
            std::sort(got.begin(), got.end());
            std::sort(want.begin(), want.end());
        }
        if (got != want)
            fail("elements differ", step);
    };
    for (int step = 0; in.remaining_bytes() && step < 400; ++step) {
        int const k = in.ConsumeIntegralInRange<int>(0, 40);
        int const v = in.ConsumeIntegralInRange<int>(0, 9);
        switch (in.ConsumeIntegralInRange<int>(0, 9)) {
        case 0:
        case 1:
        case 2:
            if constexpr (Map) {
                c.insert(std::make_pair(k, item(v)));
                twin.insert(std::make_pair(k, item(v)));
            } else {
                c.insert(k);
                twin.insert(k);
            }
            break;
        case 3:
            if (c.erase(k) != twin.erase(k))
                fail("erase by key counts differently", step);
            break;
        case 4: {
            auto const it = c.find(k);
            auto const tit = twin.find(k);
            if ((it == c.end()) != (tit == twin.end()))
                fail("find differs", step);
            if (it != c.end()) {
                if (key_of(*it) != k)
                    fail("find returned another key", step);
                c.erase(it);
                twin.erase(tit);
            }
            break;
        }
        case 5:
            if (c.count(k) != twin.count(k))
                fail("count differs", step);
            if constexpr (Ordered) {
                auto const lb = c.lower_bound(k);
                auto const tlb = twin.lower_bound(k);
                if ((lb == c.end()) != (tlb == twin.end()) || (lb != c.end() && key_of(*lb) != key_of(*tlb)))
                    fail("lower_bound differs", step);
                auto const ub = c.upper_bound(k);
                c.erase(lb, ub);
                twin.erase(tlb, twin.upper_bound(k));
            }
            break;
        case 6: other = c; other_twin = twin; break;
        case 7: c.swap(other); twin.swap(other_twin); break;
        case 8:
            if (in.ConsumeBool()) {
                c.clear();
                twin.clear();
            } else {
                C copy(c);
                same(copy, twin, step);
                c = copy;
            }
            break;
        default:
            // The other container's elements inserted as a range.
            c.insert(other.begin(), other.end());
            twin.insert(other_twin.begin(), other_twin.end());
            break;
        }
        same(c, twin, step);
        same(other, other_twin, step);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    switch (in.ConsumeIntegralInRange<int>(0, 7)) {
    case 0: sequence<zel::vector<item>, std::vector<item>>(in); break;
    case 1: sequence<zel::deque<item>, std::deque<item>>(in); break;
    case 2: sequence<zel::list<item>, std::list<item>>(in); break;
    case 3: associative<zel::map<int, item>, std::map<int, item>, true, true>(in); break;
    case 4: associative<zel::multiset<int>, std::multiset<int>, true, false>(in); break;
    case 5: associative<zel::set<int>, std::set<int>, true, false>(in); break;
    case 6: associative<zel::hash_map<int, item>, std::unordered_map<int, item>, false, true>(in); break;
    default: associative<zel::hash_multiset<int>, std::unordered_multiset<int>, false, false>(in); break;
    }
    if (item::live != 0) {
        std::fprintf(stderr, "containers fuzz: %ld items still live\n", item::live);
        std::abort();
    }
    return 0;
}
