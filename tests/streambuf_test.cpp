// Stream buffers: the base operations over a plain area, xfopen's mode
// table, the file buffer beside a model file (both character types), its
// staging, opening and closing, and the string buffer's growth, seeks and
// put-back rules.
#include <zel/streambuf.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/model.h"
#include "support/streams.h"

namespace {

using zel::ios_base;

using zel_test::scratch;

// The base class over a caller's array, with the protected areas exposed.
template <class C>
struct plain_buf : zel::basic_streambuf<C> {
    C data[16];
    explicit plain_buf(char const* text) {
        unsigned n = 0;
        for (; text[n]; ++n)
            data[n] = C(text[n]);
        this->setg(data, data, data + n);
        this->setp(data + n, data + 16);
    }
    using zel::basic_streambuf<C>::gptr;
    using zel::basic_streambuf<C>::pptr;
};

template <class C>
struct buffer_types : ::testing::Test {};

// A string of either character type from a narrow text.
template <class S>
S text(char const* t) {
    return S(t, t + std::strlen(t));
}
using char_types = ::testing::Types<char, unsigned short>;
TYPED_TEST_SUITE(buffer_types, char_types, );

TYPED_TEST(buffer_types, BaseOperations) {
    using C = TypeParam;
    int const eof = zel::basic_streambuf<C>::eof();
    {
        // sgetn stores n and consumes n + 1 when one more is there (kept).
        plain_buf<C> b("abcd");
        C out[4] = {};
        EXPECT_EQ(b.sgetn(out, 3), 3);
        EXPECT_EQ(out[0], C('a'));
        EXPECT_EQ(out[2], C('c'));
        EXPECT_EQ(b.sgetc(), eof);
        EXPECT_EQ(b.in_avail(), 0);
    }
    plain_buf<C> b("xyz");
    EXPECT_EQ(b.in_avail(), 3);
    EXPECT_EQ(b.sbumpc(), 'x');
    EXPECT_EQ(b.snextc(), 'z');
    EXPECT_EQ(b.sputbackc(C('q')), eof);  // not the previous character: base pbackfail
    EXPECT_EQ(b.sputbackc(C('y')), 'y');  // steps back and answers the character now at gptr
    EXPECT_EQ(b.sgetc(), 'y');
    EXPECT_EQ(b.sungetc(), 'x');
    EXPECT_EQ(b.sungetc(), eof);  // at eback
    EXPECT_EQ(b.out_waiting(), 0);
    EXPECT_EQ(b.sputn(C('x'), 5), 5);  // five copies
    C const text[] = {C('1'), C('2'), C('3'), C('4'), C('5'), C('6'), C('7'), C('8'), C('9')};
    EXPECT_EQ(b.sputn(text, 9), 8);  // the area holds 13: the base overflow fails
    EXPECT_EQ(b.out_waiting(), 13);
    EXPECT_EQ(b.data[3], C('x'));
    EXPECT_EQ(b.data[15], C('8'));
    EXPECT_EQ(b.sputn(nullptr, 3), 0);
}

TEST(Xfopen, ModeTable) {
    scratch f("modes");
    constexpr long app = ios_base::app, bin = ios_base::binary, in = ios_base::in, out = ios_base::out,
                   trunc = ios_base::trunc;
    long const opens[] = {in, in | bin, out, out | app, out | bin, out | app | bin, in | out, in | out | bin,
                          out | trunc, out | trunc | bin, in | out | trunc, in | out | trunc | bin};
    for (long mode = 0; mode < 64; ++mode) {
        f.write("seed");
        bool expected = false;
        for (long m : opens)
            expected = expected || m == mode;
        std::FILE* p = zel::xfopen(f.name(), mode);
        EXPECT_EQ(p != nullptr, expected) << "mode " << mode;
        if (p) {
            bool const writes = (mode & out) != 0;
            if (writes)
                std::fputc('Z', p);
            std::fclose(p);
            // out truncates unless in or app keep the text; app appends.
            std::string const now = f.read();
            std::string const want = !writes ? "seed"
                                     : (mode & app)                     ? "seedZ"
                                     : (mode & in) && !(mode & trunc)   ? "Zeed"
                                                                        : "Z";
            EXPECT_EQ(now, want) << "mode " << mode;
        }
    }
    EXPECT_EQ(zel::xfopen(nullptr, in), nullptr);
}

TYPED_TEST(buffer_types, FileStagingHoldsThirtyTwo) {
    using C = TypeParam;
    scratch f("staging");
    zel::basic_filebuf<C> b;
    ASSERT_EQ(b.open(f.name(), ios_base::out), &b);
    for (int i = 0; i < 32; ++i)
        b.sputc(C('a' + i % 26));
    EXPECT_EQ(b.out_waiting(), 32);
    EXPECT_EQ(f.read(), "");  // all held
    EXPECT_EQ(b.sputc(C('!')), 0);  // the 33rd sends all 33 and flushes
    EXPECT_EQ(b.out_waiting(), 0);
    EXPECT_EQ(f.read().size(), 33u);
    b.sputc(C('?'));
    EXPECT_EQ(b.out_waiting(), 1);
    EXPECT_EQ(b.pubsync(), 0);
    EXPECT_EQ(f.read().size(), 34u);
    EXPECT_EQ(b.close(), &b);
    EXPECT_FALSE(b.is_open());
    EXPECT_EQ(b.close(), nullptr);
}

TYPED_TEST(buffer_types, FileOpenFailureAndOwnership) {
    using C = TypeParam;
    zel::basic_filebuf<C> b;
    int const eof = zel::basic_streambuf<C>::eof();
    EXPECT_EQ(b.open("/nonexistent-dir/x", ios_base::out), nullptr);
    EXPECT_FALSE(b.is_open());
    EXPECT_EQ(b.open("/nonexistent-dir/x", ios_base::in | ios_base::ate), nullptr);
    EXPECT_FALSE(b.is_open());
    // A closed buffer reads and writes nothing and cannot seek or sync.
    EXPECT_EQ(b.sgetc(), eof);
    EXPECT_EQ(b.sputc(C('a')), eof);
    EXPECT_EQ(b.pubseekoff(0, ios_base::beg), -1);
    EXPECT_EQ(b.pubsync(), -1);
    EXPECT_EQ(b.pubsetbuf(nullptr, 0), nullptr);

    scratch f("borrowed");
    std::FILE* raw = std::fopen(f.name(), "w+");
    ASSERT_NE(raw, nullptr);
    {
        zel::basic_filebuf<C> borrowed(raw, false);
        EXPECT_EQ(borrowed.open(f.name(), ios_base::in), nullptr);  // a file is attached
        borrowed.sputc(C('k'));
        EXPECT_EQ(borrowed.pubsync(), 0);
        EXPECT_EQ(borrowed.close(), nullptr);  // not its own: left open
        EXPECT_TRUE(borrowed.is_open());
    }
    EXPECT_EQ(std::fputc('m', raw), 'm');  // still usable
    std::fclose(raw);
    EXPECT_EQ(f.read(), "km");
}

// A seeded run of reads, writes, put-backs and seeks on an in|out file
// buffer beside a model of the file's bytes and position.
template <class C>
void run_file_beside_model(unsigned seed) {
    scratch f(sizeof(C) == 1 ? "model" : "wmodel");
    zel::basic_filebuf<C> b;
    ASSERT_EQ(b.open(f.name(), ios_base::in | ios_base::out | ios_base::trunc), &b);
    int const eof = zel::basic_streambuf<C>::eof();
    zel_test::model_run run(seed);
    std::string model;
    std::size_t pos = 0;
    auto put = [&] {
        char const c = char('a' + run.pick(26));
        if (pos < model.size())
            model[pos] = c;
        else
            model += c;
        ++pos;
        return C(c);
    };
    auto at_pos = [&] { return pos < model.size() ? int((unsigned char)model[pos]) : eof; };
    // Put-back is tried only right after a read took a character: the
    // buffer then steps back inside its get area. (pbackfail pushes through
    // the C stream, which does not know about a staged character.)
    bool just_read = false, may_put_back = false;
    run.op("sputc", 2, [&] { ASSERT_NE(b.sputc(put()), eof); })
        .op("sputn", 1, [&] {
            C text[40];
            long const n = long(run.pick(40));
            for (long i = 0; i < n; ++i)
                text[i] = put();
            ASSERT_EQ(b.sputn(text, n), n);
        })
        .op("sbumpc", 2, [&] {
            int const want = at_pos();
            ASSERT_EQ(b.sbumpc(), want);
            pos += want != eof;
            just_read = want != eof;
        })
        .op("sgetc", 1, [&] { ASSERT_EQ(b.sgetc(), at_pos()); })
        .op("put back the character before the position", 1, [&] {
            if (may_put_back) {
                ASSERT_NE(b.sputbackc(C(model[pos - 1])), eof);
                --pos;
            }
        })
        .op("seek from the start, the position or the end", 1, [&] {
            long const target = long(run.pick(unsigned(model.size()) + 1));
            int const dir = int(run.pick(3));
            long const off = dir == 0 ? target : dir == 1 ? target - long(pos) : target - long(model.size());
            ASSERT_EQ(b.pubseekoff(off, ios_base::seekdir(dir)), target) << "dir " << dir << " off " << off;
            pos = std::size_t(target);
        });
    run.go(3000, [&] {
        may_put_back = just_read;
        just_read = false;
    });
    EXPECT_EQ(b.pubseekpos(0), 0);
    EXPECT_EQ(b.close(), &b);
    EXPECT_EQ(f.read(), model);
}

TEST(Filebuf, BesideAModelNarrow) { run_file_beside_model<char>(20261123); }
TEST(Filebuf, BesideAModelWide) { run_file_beside_model<unsigned short>(17); }

// What is left to read, as narrow text (at most 200 characters).
template <class C>
std::string drain(zel::basic_streambuf<C>& b) {
    std::string s;
    for (int c; s.size() < 200 && (c = b.sbumpc()) != zel::basic_streambuf<C>::eof();)
        s += char(c);
    return s;
}

TYPED_TEST(buffer_types, StringReadWriteAndStr) {
    using C = TypeParam;
    using sb = zel::basic_stringbuf<C>;
    using str = typename sb::string_type;
    int const eof = zel::basic_streambuf<C>::eof();
    {
        sb io(text<str>("abc"), ios_base::in | ios_base::out);
        EXPECT_EQ(drain(io), "abc");
        EXPECT_TRUE(io.str() == str());  // nothing written yet
    }
    {
        sb io(text<str>("abc"), ios_base::in | ios_base::out);
        EXPECT_EQ(io.sputc(C('Z')), 'Z');  // overwrites from the start
        EXPECT_EQ(drain(io), "Zbc");
        EXPECT_TRUE(io.str() == text<str>("Z"));
    }
    {
        sb in_only(text<str>("abc"), ios_base::in);
        EXPECT_EQ(in_only.sputc(C('x')), eof);
        EXPECT_TRUE(in_only.str() == text<str>("abc"));
        sb out_only(text<str>("abc"), ios_base::out);
        EXPECT_TRUE(out_only.str() == str());
        EXPECT_EQ(out_only.sgetc(), eof);
        out_only.str(text<str>("hello"));
        C const he[] = {C('H'), C('E')};
        EXPECT_EQ(out_only.sputn(he, 2), 2);
        EXPECT_TRUE(out_only.str() == text<str>("HE"));
    }
    // The buffer keeps a private copy: the source string is not touched.
    str const source = text<str>("xyz");
    sb io(source, ios_base::in | ios_base::out);
    io.sputc(C('Q'));
    EXPECT_TRUE(source == text<str>("xyz"));
}

// 32 written and one more: the string holds 64 (33 written, 31 free).
TYPED_TEST(buffer_types, StringGrowth) {
    using C = TypeParam;
    using sb = zel::basic_stringbuf<C>;
    using str = typename sb::string_type;
    struct probe : sb {
        using sb::sb;
        long room() const { return long(this->epptr() - this->pbase()); }
    };
    probe b(ios_base::out);
    EXPECT_EQ(b.room(), 0);
    std::string model;
    for (int i = 0; i < 100; ++i) {
        char const c = char('A' + i % 26);
        ASSERT_EQ(b.sputc(C(c)), c);
        model += c;
        if (i == 0 || i == 31) {
            EXPECT_EQ(b.room(), 32);
        } else if (i == 32) {
            EXPECT_EQ(b.room(), 64);
        }
    }
    EXPECT_EQ(b.room(), 128);
    EXPECT_TRUE(b.str() == text<str>(model.c_str()));
    // The rest of the put area is blanks, and the area ends there.
    EXPECT_EQ(b.pubseekoff(0, ios_base::end, ios_base::out), 128);
    EXPECT_EQ(b.pubseekoff(1, ios_base::end, ios_base::out), -1);
    EXPECT_TRUE(b.str() == text<str>((model + std::string(28, ' ')).c_str()));
    // A wide 0xFFFF meeting a full area reads as end of file.
    if constexpr (sizeof(C) == 2) {
        probe w(text<str>("ab"), ios_base::out);
        w.sputc(C('x'));
        w.sputc(C('y'));
        EXPECT_EQ(w.sputc(C(0xFFFF)), 0xFFFF);
        EXPECT_EQ(w.room(), 2);  // not grown
    }
    // Written characters become readable.
    sb io(ios_base::in | ios_base::out);
    io.sputn(C('k'), 40);
    EXPECT_EQ(drain(io), std::string(40, 'k'));
}

// Seeded writes and put seeks beside a model of the put area: writing past
// its end extends it to 32 blanks beyond what has been written. The runs go
// on long enough for the string beneath to grow many times.
TYPED_TEST(buffer_types, StringGrowthBesideAModel) {
    using C = TypeParam;
    using sb = zel::basic_stringbuf<C>;
    using str = typename sb::string_type;
    std::mt19937_64 rng(101);
    for (int run = 0; run < 4; ++run) {
        std::string area = run % 2 ? "start" : "";  // the put area's characters
        long pos = 0;
        sb b(text<str>(area.c_str()), ios_base::out);
        for (int step = 0; step < 3000; ++step) {
            unsigned const what = unsigned(rng() % 16);
            if (what == 0) {
                long const to = long(rng() % (area.size() + 2));
                bool const ok = to <= long(area.size()) && !area.empty();
                EXPECT_EQ(b.pubseekoff(to, ios_base::beg, ios_base::out), ok ? to : -1);
                pos = ok ? to : pos;
            } else {
                C chars[40];
                long const n = what == 1 ? long(rng() % 40) : 1;
                for (long i = 0; i < n; ++i) {
                    char const c = char('a' + rng() % 26);
                    chars[i] = C(c);
                    if (pos == long(area.size()))
                        area.resize(area.size() + 32, ' ');
                    area[std::size_t(pos++)] = c;
                }
                ASSERT_EQ(n == 1 ? long(b.sputc(chars[0]) == chars[0]) : b.sputn(chars, n), n);
            }
            if (step % 100 == 0 || step == 2999) {
                ASSERT_TRUE(b.str() == text<str>(area.substr(0, std::size_t(pos)).c_str()));
                EXPECT_EQ(b.pubseekoff(0, ios_base::end, ios_base::out), long(area.size()));
                ASSERT_TRUE(b.str() == text<str>(area.c_str())) << step;
                b.pubseekoff(pos, ios_base::beg, ios_base::out);
            }
        }
    }
}

TYPED_TEST(buffer_types, StringSeeks) {
    using C = TypeParam;
    using sb = zel::basic_stringbuf<C>;
    using str = typename sb::string_type;
    constexpr long in = ios_base::in, out = ios_base::out;
    auto const beg = ios_base::beg, cur = ios_base::cur, end = ios_base::end;
    struct row {
        long off;
        ios_base::seekdir dir;
        long which;
        zel::streampos result;
    };
    row const rows[] = {
        {3, beg, in, -1},        {2, beg, in, 2},        {-1, end, in, 2},       {0, end, in, -1},
        {3, beg, out, 3},        {4, beg, out, -1},      {0, end, out, 3},       {-4, end, out, -1},
        {1, cur, in, 1},         {1, cur, out, 1},       {-1, beg, in, -1},      {0, cur, in | out, -1},
        {1, beg, in | out, 1},   {-1, end, in | out, 2}, {0, beg, ios_base::app, -1},
        {1, ios_base::seekdir(3), in, 1},  // an unknown origin counts from 0
    };
    for (row const& r : rows) {
        sb b(text<str>("abc"), in | out);
        EXPECT_EQ(b.pubseekoff(r.off, r.dir, r.which), r.result) << r.off << " " << r.dir << " " << r.which;
    }
    sb b(text<str>("abc"), in | out);
    EXPECT_EQ(b.pubseekoff(2, beg, in | out), 2);
    EXPECT_EQ(b.sgetc(), 'c');
    b.sputc(C('X'));
    EXPECT_TRUE(b.str() == text<str>("abX"));
    EXPECT_EQ(b.pubseekpos(1, in), 1);
    EXPECT_EQ(b.sgetc(), 'b');
    EXPECT_EQ(b.pubseekpos(3, in | out), 3);  // the put result; the get seek failed
    EXPECT_EQ(b.sgetc(), 'b');
    EXPECT_EQ(b.pubseekpos((zel::streampos(1) << 32) + 1, out), 1);  // low 32 bits only
    EXPECT_EQ(b.pubseekpos(0, 0), -1);
    sb empty(in | out);
    EXPECT_EQ(empty.pubseekoff(0, beg, in), -1);
    EXPECT_EQ(empty.pubseekoff(0, beg, out), -1);
}

TYPED_TEST(buffer_types, StringPutBack) {
    using C = TypeParam;
    using sb = zel::basic_stringbuf<C>;
    using str = typename sb::string_type;
    struct probe : sb {
        using sb::sb;
        using sb::pbackfail;
    };
    int const eof = zel::basic_streambuf<C>::eof();
    probe ro(text<str>("ab"), ios_base::in);
    EXPECT_EQ(ro.sungetc(), eof);  // at the start
    ro.sbumpc();
    EXPECT_EQ(ro.sputbackc(C('z')), eof);  // differs, and no out
    EXPECT_EQ(ro.sputbackc(C('a')), 'a');
    probe rw(text<str>("ab"), ios_base::in | ios_base::out);
    rw.sbumpc();
    rw.sbumpc();
    EXPECT_EQ(rw.sputbackc(C('z')), 'z');  // differs: stored
    EXPECT_EQ(rw.sgetc(), 'z');
    EXPECT_TRUE(rw.str() == str());  // the put area did not move
    // Kept: a put-back of end of file moves back and still answers eof.
    EXPECT_EQ(rw.pbackfail(eof), eof);
    EXPECT_EQ(rw.sgetc(), 'a');
    EXPECT_EQ(rw.pbackfail(eof), eof);  // at the start: nothing moves
    if constexpr (sizeof(C) == 1) {
        // Kept: a matching character answers through a signed char.
        char const bytes[] = {'q', char(0xFF), char(0xE9), 0};
        probe hi(text<str>(bytes), ios_base::in);
        hi.pubseekoff(2, ios_base::beg, ios_base::in);
        EXPECT_EQ(hi.pbackfail(0xFF), -1);
        EXPECT_EQ(hi.sgetc(), 0xFF);
        hi.pubseekoff(1, ios_base::beg, ios_base::in);
        EXPECT_EQ(hi.pbackfail('q'), 'q');
        EXPECT_EQ(hi.sbumpc(), 'q');
    } else {
        probe w(text<str>("ab"), ios_base::in);
        w.sbumpc();
        EXPECT_EQ(w.pbackfail('a'), 'a');  // the wide answer is the character
    }
}

} // namespace
