// Allocation failure, everywhere: each scenario counts the requests to the
// global operator new that its operation makes, then runs again once per
// request with that one failing. Every run must report exhaustion as the
// library documents it (the heaps' "bad allocation", std::bad_alloc from a
// typed node, "Handle creation failed" from a kernel object such as a list's
// mutex, a string stream's badbit), leave its objects unchanged (strong) or
// valid and consistent (basic), and leak nothing: counted elements are
// counted, memory is left to the asan preset's LeakSanitizer.
#include <zel/deque.h>
#include <zel/hash_map.h>
#include <zel/list.h>
#include <zel/locale.h>
#include <zel/map.h>
#include <zel/regex.h>
#include <zel/sstream.h>
#include <zel/string.h>
#include <zel/vector.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/allocation_hook.h"
#include "support/platform.h"
#include "support/counted.h"
#include "support/streams.h"

namespace {

using zel_test::counted;
using zel_test::text;

// One run of a scenario: the objects are built outside the count, and only
// run()'s operation is counted, with request fail_at failing (0: none).
class trial {
public:
    explicit trial(std::size_t fail_at) : fail_at_(fail_at) {}

    // True when the operation completed; false when it raised exhaustion
    // the documented way (any other exception fails the test).
    template <class F>
    bool run(F op) {
        zel_test::counting_requests counter(fail_at_);
        try {
            op();
            requests_ = counter.count();
            hit_ = counter.failed();
            return true;
        } catch (std::bad_alloc const&) {
        } catch (zel::xexception const& e) {
            // A kernel object (a list's mutex) is heap memory too.
            EXPECT_STREQ(e.name(), "sync_error");
            EXPECT_STREQ(e.what(), "Handle creation failed");
        } catch (zel::exception const& e) {
            EXPECT_STREQ(e.what(), "bad allocation");
        } catch (...) {
            ADD_FAILURE() << "not the exhaustion of the heap";
        }
        hit_ = counter.failed();
        raised_ = true;
        EXPECT_TRUE(hit_) << "raised without a failed request";
        return false;
    }

    std::size_t requests() const { return requests_; }
    bool hit() const { return hit_; }
    bool raised() const { return raised_; }

private:
    std::size_t fail_at_;
    std::size_t requests_ = 0;
    bool hit_ = false;
    bool raised_ = false;
};

// Long enough to live on the heap, so element copies allocate too.
std::string word(int i) { return "element number " + std::to_string(i) + " of the sweep"; }

template <class C>
std::vector<std::string> values(C const& c) {
    std::vector<std::string> v;
    for (auto const& x : c)
        v.push_back(x.value());
    return v;
}

// A list whose engine splices by cloning, as between lists that allocate
// their nodes differently.
struct cloning_list : zel::list<counted> {
    using zel::list<counted>::list;
    void splice_cloning(unsigned pos, cloning_list& other, unsigned first, unsigned n) {
        zel::list_engine::splice(pos, other, false, first, n);
    }
};

struct scenario {
    char const* name;
    bool raises;   // false: exhaustion is reported as an error value
    std::function<void(trial&)> body;
};

std::vector<scenario> const scenarios = {
    {"string build", true, [](trial& t) {
         std::string const big(300, 'b');
         t.run([&] {
             zel::string s(big.c_str());
             s += zel::string(100, 'c');
             zel::string const copy = s.substr(10, 200);
         });
     }},
    {"string append", true, [](trial& t) {
         zel::string s("abc");
         std::string const was = text(s);
         std::string const more(200, 'x');
         if (t.run([&] { s.append(more.c_str()); }))
             EXPECT_EQ(text(s), was + more);
         else
             EXPECT_EQ(text(s), was) << "strong";
     }},
    {"string append to a shared string", true, [](trial& t) {
         zel::string s(std::string(40, 'a').c_str());
         zel::string const sharer = s;
         std::string const was = text(s);
         if (t.run([&] { s += 'z'; }))
             EXPECT_EQ(text(s), was + "z");
         else
             EXPECT_EQ(text(s), was) << "strong";
         EXPECT_EQ(text(sharer), was);
     }},
    {"string substitute", true, [](trial& t) {
         zel::regex const digits("[0-9]+");
         zel::string s("a1b22c333d4444e55555f");
         std::string const was = text(s);
         if (t.run([&] { s.tsub(digits, std::string(40, '#').c_str()); }))
             EXPECT_EQ(s.find('1'), zel::string::npos);
         else
             EXPECT_EQ(text(s), was) << "strong";
     }},
    {"vector growth", true, [](trial& t) {
         zel::vector<counted> v;
         for (int i = 0; i < 5; ++i)
             v.push_back(word(i));
         auto const was = values(v);
         int const count = 40;
         auto done = 0;
         bool const ok = t.run([&] {
             for (; done < count; ++done)
                 v.push_back(word(100 + done));
         });
         v.check();
         ASSERT_EQ(v.size(), was.size() + done) << "each push is strong";
         EXPECT_EQ(ok, done == count);
         for (unsigned i = 0; i < was.size(); ++i)
             EXPECT_EQ(v[i].value(), was[i]);
     }},
    {"vector insertion", true, [](trial& t) {
         zel::vector<counted> v;
         for (int i = 0; i < 8; ++i)
             v.push_back(word(i));
         auto const was = values(v);
         std::vector<counted> const more = {word(50), word(51), word(52), word(53)};
         auto const ok = t.run([&] { v.insert(v.begin() + 3, more.begin(), more.end()); });
         v.check();
         if (!ok)
             EXPECT_EQ(values(v), was) << "the new block's path is strong";
         else
             EXPECT_EQ(v[3].value(), word(50));
     }},
    {"vector insertion in place", true, [](trial& t) {
         zel::vector<counted> v;
         v.reserve(16);
         // At least half full afterwards, so the heap keeps the block.
         for (int i = 0; v.size() < v.capacity() / 2; ++i)
             v.push_back(word(i));
         unsigned const capacity = v.capacity(), size = v.size();
         counted const filler(word(60));
         auto const ok = t.run([&] { v.insert(v.begin() + 2, 5u, filler); });
         v.check();   // basic: the size counts exactly the constructed elements
         EXPECT_EQ(v.capacity(), capacity);
         EXPECT_EQ(v.size(), ok ? size + 5 : v.size());
         EXPECT_EQ(v.front().value(), word(0));
     }},
    {"deque growth", true, [](trial& t) {
         zel::deque<counted> d;
         d.push_back(word(0));
         int pushed = 0;
         t.run([&] {
             for (; pushed < 30; ++pushed)
                 pushed % 2 ? d.push_front(word(pushed)) : d.push_back(word(pushed));
         });
         d.check();
         EXPECT_EQ(d.size(), 1u + pushed) << "each push is strong";
     }},
    {"deque insertion", true, [](trial& t) {
         zel::deque<counted> d;
         for (int i = 0; i < 10; ++i)
             d.push_back(word(i));
         auto const was = values(d);
         if (t.run([&] { d.insert(d.begin() + 4, 6u, counted(word(70))); })) {
             EXPECT_EQ(d.size(), 16u);
         } else {
             d.check();
             EXPECT_EQ(values(d), was) << "a failed insertion closes its gap";
         }
         d.check();
     }},
    {"list growth and insertion", true, [](trial& t) {
         zel::list<counted> l = {word(1), word(2)};
         std::vector<counted> const more = {word(3), word(4), word(5)};
         auto const was = values(l);
         unsigned pushed = 0;
         bool const ok = t.run([&] {
             l.insert(std::next(l.begin()), more.begin(), more.end());
             for (; pushed < 3; ++pushed)
                 l.push_front(word(10 + int(pushed)));
         });
         l.check();
         if (!ok && l.size() == was.size()) {
             EXPECT_EQ(values(l), was) << "a range goes in whole or not at all";
         }
         EXPECT_EQ(l.size(), ok ? 8u : l.size() < 5u ? 2u : 5u + pushed);
     }},
    {"list splice by cloning", true, [](trial& t) {
         cloning_list a = {word(1), word(2), word(3)};
         cloning_list b = {word(4), word(5), word(6), word(7)};
         auto const was_a = values(a), was_b = values(b);
         bool const ok = t.run([&] { a.splice_cloning(1, b, 1, 2); });
         a.check();
         b.check();
         if (ok) {
             EXPECT_EQ(values(a), (std::vector<std::string>{word(1), word(5), word(6), word(2), word(3)}));
             EXPECT_EQ(b.size(), 2u);
         } else {
             EXPECT_EQ(values(a), was_a) << "strong";
             EXPECT_EQ(values(b), was_b) << "the source is erased only after the clones are in";
         }
     }},
    {"map insert", true, [](trial& t) {
         zel::map<counted, int> m;
         std::map<std::string, int> twin;
         for (int i = 0; i < 20; i += 2) {
             m.insert({word(i), i});
             twin[word(i)] = i;
         }
         int done = 1;
         t.run([&] {
             for (; done < 20; done += 2)
                 m.insert({word(done), done});
         });
         for (int i = 1; i < done; i += 2)
             twin[word(i)] = i;
         m.check();
         ASSERT_EQ(m.size(), twin.size()) << "each insert is strong";
         auto it = twin.begin();
         for (auto const& e : m)
             EXPECT_EQ(e.first.value(), (it++)->first);
     }},
    {"hash_map insert", true, [](trial& t) {
         zel::hash_map<std::string, counted> m;
         for (int i = 0; i < 40; i += 2)
             m.insert({word(i), word(i)});
         int done = 1;
         t.run([&] {
             for (; done < 120; done += 2)
                 m.insert({word(done), word(done)});
         });
         m.check();
         EXPECT_EQ(m.size(), 20u + unsigned(done - 1) / 2) << "each insert is strong";
         for (int i = 0; i < 40; i += 2)
             EXPECT_EQ(m.find(word(i))->second.value(), word(i));
     }},
    {"regex compile", true, [](trial& t) {
         zel::regex re;
         ASSERT_TRUE(re.compile("ab"));
         bool const ok = t.run([&] { re.compile("(x|y)+[0-9]*z$"); });
         EXPECT_EQ(re.search("--xyx12z").found(), ok) << "a failed compile leaves no program";
         ASSERT_TRUE(re.compile("q+"));
         EXPECT_EQ(re.search("aqq").position, 1u);
     }},
    {"locale creation", true, [](trial& t) {
         if (!zel_test::have_test_locale("de_DE.ISO-8859-1"))
             return;   // no request: passed over where the platform lacks it
         zel::locale const global;
         t.run([&] {
             zel::locale const de("de_DE.ISO-8859-1");
             zel::locale const mixed(zel::locale::classic(), de, zel::locale::numeric);
         });
         EXPECT_TRUE(zel::locale() == global);
     }},
    {"string stream output", false, [](trial& t) {
         zel::ostringstream out(zel::ios_base::out);
         out << "start ";
         t.run([&] {
             for (int i = 0; i < 30; ++i)
                 out << "value " << i * 1234567 << ' ' << 2.5 * i << '\n';
         });
         std::string const s = text(out.str());
         EXPECT_EQ(s.compare(0, 6, "start "), 0);
         if (t.hit()) {
             EXPECT_TRUE(out.bad()) << "the buffer reports a short write, not an exception";
             EXPECT_LT(s.size(), 600u);
         }
     }},
    // The string heaps' exhaustion reaches the reader: input swallows nothing.
    {"string stream input", true, [](trial& t) {
         zel::string const source("12 word 3.5 another-longer-word-that-lives-on-the-heap 99");
         zel::istringstream in(source, zel::ios_base::in);
         int a = 0, b = 0;
         double x = 0;
         zel::string w1, w2;
         t.run([&] { in >> a >> w1 >> x >> w2 >> b; });
         if (!t.hit()) {
             EXPECT_EQ(b, 99);
             EXPECT_EQ(text(w2), "another-longer-word-that-lives-on-the-heap");
         }
         EXPECT_EQ(a, 12);
         EXPECT_EQ(text(source), "12 word 3.5 another-longer-word-that-lives-on-the-heap 99");
     }},
};

TEST(AllocationSweep, EveryFailingRequestIsReportedAndLeavesTheObjectsAsDocumented) {
    zel_test::no_leaks guard;
    for (auto const& s : scenarios) {
        SCOPED_TRACE(s.name);
        trial warm(0);   // builds what the process makes once (heaps, tables)
        s.body(warm);
        trial counting(0);
        s.body(counting);
        if (counting.requests() == 0 && (!zel_test::have(zel_test::needs::runtime_allocations_replaced) ||
                                         !zel_test::have(zel_test::needs::test_locales)))
            continue;   // every request was the runtime's own, or the scenario cannot run here
        ASSERT_GT(counting.requests(), 0u);
        ASSERT_FALSE(counting.raised());
        std::size_t hits = 0;
        for (std::size_t k = 1; k <= counting.requests(); ++k) {
            SCOPED_TRACE("request " + std::to_string(k));
            trial t(k);
            s.body(t);
            hits += t.hit();
            if (t.hit()) {
                EXPECT_EQ(t.raised(), s.raises);
            }
            if (::testing::Test::HasFailure())
                return;
        }
        EXPECT_EQ(hits, counting.requests()) << "the same requests in every run";
        std::printf("[  sweep   ] %-36s %3zu failing runs\n", s.name, counting.requests());
    }
}

} // namespace
