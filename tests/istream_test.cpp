// Formatted input: round trips of seeded random values of every type in
// every radix, the documented field, line and skip cases with character and
// class delimiters, state bits and exceptions masks at failure and end of
// input, arbitrary bytes into every extractor, a derived stream that
// replaces a do_ operation, and the wide stream.
#include <zel/istream.h>
#include <zel/sstream.h>

#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/streams.h"

namespace {

using zel::ios_base;
using zel_test::text;

long const radix_bits[] = {ios_base::bin, ios_base::oct, ios_base::dec, ios_base::hex};

// Writes 40 values in one radix (with or without showbase) and reads them
// back, with the same radix, or with radix "any" when the prefix says it.
template <class T>
void round_trip_one(std::mt19937_64& rng) {
    for (long radix : radix_bits)
        for (bool base : {false, true}) {
            if (std::is_floating_point_v<T> && radix != ios_base::dec)
                continue;
            // long double keeps double's precision and range through the engines.
            using limits = std::numeric_limits<std::conditional_t<std::is_same_v<T, long double>, double, T>>;
            T values[40];
            zel::ostringstream os;
            os.flags(radix | (base ? ios_base::showbase : 0) |
                     (std::is_floating_point_v<T> ? ios_base::scientific : 0));
            os.precision(std::is_same_v<T, float> ? 9 : 17);
            for (int i = 0; i < 40; ++i) {
                values[i] = i == 0 ? T(limits::lowest())
                            : i == 1 ? T(limits::max())
                            : i == 2 ? T(0)
                                     : zel_test::random_value<T>(rng, std::is_same_v<T, float> ? 60 : 300);
                if constexpr (std::is_same_v<T, long double>)
                    values[i] = static_cast<double>(values[i]);
                os << values[i] << ' ';
            }
            zel::istringstream is(os.str());
            is.flags(base ? 0 : radix);  // radix "any" and no skipws: the prefix decides,
            is.setf(ios_base::skipws);   // white space is skipped before each value
            for (int i = 0; i < 40; ++i) {
                T v{};
                is >> v;
                ASSERT_FALSE(is.fail()) << "value " << i << " radix " << radix << " in "
                                        << text(os.str());
                EXPECT_EQ(v, values[i]) << i;
            }
            T extra{};
            is >> extra;
            EXPECT_EQ(is.rdstate(), ios_base::eofbit | ios_base::failbit);
        }
}

template <class... T>
void round_trip(std::mt19937_64& rng) {
    (round_trip_one<T>(rng), ...);
}

TEST(IstreamNumbers, RoundTripsOfEveryTypeAndRadix) {
    std::mt19937_64 rng(5);
    round_trip<short, unsigned short, int, unsigned, long, unsigned long, long long, unsigned long long,
               float, double, long double>(rng);

    zel::istringstream is("1 0 true false");
    bool a = false, b = true, c = false, d = true;
    is >> a >> b >> zel::boolalpha >> c >> d;
    EXPECT_TRUE(a && !b && c && !d);
    EXPECT_TRUE(is.eof() && !is.fail());
}

TEST(IstreamNumbers, EndOfInputAndRefusedValues) {
    struct row {
        char const* input;
        long state;      // after one int extraction
        int value;       // -99: left as it was
        int next;        // the next character, after clear()
    } const rows[] = {
        {"12", ios_base::eofbit, 12, -1},
        {"  12 ", 0, 12, ' '},
        {"-", ios_base::eofbit | ios_base::failbit, -99, -1},
        {"", ios_base::eofbit | ios_base::failbit, -99, -1},
        {"x1", ios_base::failbit, -99, 'x'},
        {"99999999999", ios_base::eofbit | ios_base::failbit, -99, -1},
        {"00000000000000000000000012 ", 0, 12, ' '},
    };
    for (row const& r : rows) {
        zel::istringstream is(r.input);
        int v = -99;
        is >> v;
        EXPECT_EQ(is.rdstate(), r.state) << '"' << r.input << '"';
        EXPECT_EQ(v, r.value) << r.input;
        is.clear();
        EXPECT_EQ(is.peek(), r.next) << r.input;
    }
    zel::istringstream big("70000");
    short s = 5;
    big >> s;
    EXPECT_TRUE(big.fail());
    EXPECT_EQ(s, 5);  // out of the type's range: left as it was
}

// One unformatted operation on a fresh stream: what it stored, the state,
// the count and the character left next.
TEST(IstreamFields, GetGetlineIgnoreReadAndSkips) {
    long const eof = ios_base::eofbit, fail = ios_base::failbit;
    using op = void (*)(zel::istream&, char*);
    struct row {
        char const* input;
        op f;
        char const* stored;
        long state, gcount;  // gcount -1: not checked
        int next;
    } const rows[] = {
        {"abcdef\nnext", [](zel::istream& is, char* b) { is.getline(b, 4); }, "abc", fail, 3, 'd'},
        {"abcdef\nnext", [](zel::istream& is, char* b) { is.get(b, 4); }, "abc", 0, 3, 'd'},
        {"\nxyz", [](zel::istream& is, char* b) { is.getline(b, 16); }, "", 0, 1, 'x'},
        {"xyz", [](zel::istream& is, char* b) { is.get(b, 16); }, "xyz", eof, 3, -1},
        {"abc123 rest", [](zel::istream& is, char* b) { is.get(b, 16, zel::ctype_base::alpha, false); },
         "abc", 0, 3, '1'},
        {"  abcdef gh", [](zel::istream& is, char* b) { is >> zel::setw(4) >> b; }, "abc", 0, -1, 'd'},
        {"abxcd", [](zel::istream& is, char*) { is.eat('x'); }, "", 0, -1, 'x'},
        {"ab\ncd", [](zel::istream& is, char*) { is >> zel::skipl; }, "", 0, -1, 'c'},
        {"", [](zel::istream& is, char* b) { b[0] = char(is.get()); }, "\xff", eof | fail, 0, -1},
        {"   ", [](zel::istream& is, char*) { is >> zel::ws; }, "", eof, -1, -1},
        {"key = value", [](zel::istream& is, char*) { is.ignore(100, '='); }, "", 0, 5, ' '},
        {"value; more",  // through the ';'
         [](zel::istream& is, char*) { is.ignore(zel::istream::no_limit, zel::ctype_base::alpha, false); }, "", 0,
         6, ' '},
        {"more", [](zel::istream& is, char* b) { is.read(b, 8); }, "more", eof, 4, -1},
    };
    for (row const& r : rows) {
        zel::istringstream is(r.input);
        char buf[16] = {};
        r.f(is, buf);
        EXPECT_STREQ(buf, r.stored) << r.input;
        EXPECT_EQ(is.rdstate(), r.state) << r.input;
        EXPECT_TRUE(r.gcount < 0 || is.gcount() == r.gcount) << r.input << " " << is.gcount();
        EXPECT_EQ(is.rdbuf()->sgetc(), r.next) << r.input;
        EXPECT_EQ(is.width(), 0);
        EXPECT_EQ(bool(is), (r.state & fail) == 0);  // end of input alone still tests true
    }
}

TEST(IstreamFields, WordsLinesPutbackAndSeeks) {
    zel::istringstream d("123 rest");
    zel::string s;
    d.getline(s, 100, zel::ctype_base::space, true);  // stop at the first blank, consume it
    EXPECT_EQ(text(s), "123");
    EXPECT_EQ(d.peek(), 'r');

    zel::istringstream e("def gh");
    e >> s;
    EXPECT_EQ(text(s), "def");
    e >> s;
    EXPECT_EQ(text(s), "gh");
    EXPECT_EQ(e.rdstate(), ios_base::eofbit);
    e >> s;
    EXPECT_EQ(e.rdstate(), ios_base::eofbit | ios_base::failbit);

    zel::istringstream lines("one\ntwo\n\nlast");
    std::string all;
    while (zel::getline(lines, s))
        all += text(s) + "|";
    EXPECT_EQ(all, "one|two||last|");

    zel::istringstream p("xyz");
    EXPECT_EQ(p.get(), 'x');
    p.unget();
    p.putback('q');  // not the character before: the buffer refuses (mode in only)
    EXPECT_TRUE(p.bad());
    char buf[8] = {};
    zel::istringstream q("xyz");
    char ch = 0;
    q.get(ch);
    q.putback('x');
    EXPECT_TRUE(q.good());
    EXPECT_EQ(q.tellg(), 0);
    q.seekg(2);
    EXPECT_EQ(q.get(), 'z');
    EXPECT_EQ(q.get(), -1);
    q.seekg(0, ios_base::beg);  // clears eofbit, but failbit stays
    EXPECT_TRUE(q.fail());
    q.clear();
    q.seekg(1, ios_base::beg);
    EXPECT_EQ(q.readsome(buf, 8), 2);  // the rest of the text is ready in the get area
}

TEST(IstreamState, ExceptionsMasksAndFailedPrefixes) {
    zel::istringstream a("x");
    a.exceptions(ios_base::failbit);
    int v = 0;
    EXPECT_EQ(zel_test::what_of<ios_base::failure>([&] { a >> v; }), "ios_base failure bit(s) set [fail]");
    zel::istringstream b("7");
    b.exceptions(ios_base::eofbit);
    EXPECT_THROW(b >> v, ios_base::failure);
    EXPECT_EQ(v, 7);  // stored before the state was applied

    zel::istringstream c("abc");
    c.clear(ios_base::eofbit);
    char ch = '?';
    c >> ch;
    EXPECT_EQ(ch, '?');
    EXPECT_EQ(c.rdstate(), ios_base::eofbit | ios_base::failbit);
    EXPECT_EQ(c.gcount(), 0);

    zel::istream none(nullptr);
    EXPECT_EQ(none.peek(), -1);
    EXPECT_TRUE(none.bad() && none.fail());
}

// A buffer that hands its text over one character per underflow, so every
// number is split across refills.
class trickle_buf : public zel::streambuf {
public:
    explicit trickle_buf(std::string s) : text_(std::move(s)) {}

protected:
    int underflow() override {
        if (at_ == text_.size())
            return eof();
        one_ = text_[at_++];
        setg(&one_, &one_, &one_ + 1);
        return static_cast<unsigned char>(one_);
    }

private:
    std::string text_;
    std::size_t at_ = 0;
    char one_ = 0;
};

// Seeded texts of numbers, signs, blanks, stray and arbitrary bytes, read by
// every extractor in turn under random flags from a string stream and from
// the trickling buffer: the same values, states and next characters after
// every extraction, a numeric target changed only on success, and nothing
// read beyond the input.
TEST(IstreamDerived, AOneCharacterBufferReadsWhatAStringStreamReads) {
    std::mt19937_64 rng(57);
    char const stray[] = " \t\n+-.eExXbB,#zZ\xe9\xff\x80";
    for (int run = 0; run < 600; ++run) {
        std::string input;
        for (int n = int(rng() % 8); n > 0; --n) {
            zel::ostringstream os;
            os.flags(rng() % 2 ? ios_base::scientific : 0);
            // Runs of zeros and digit strings longer than any value: the
            // reader takes long runs of digits in one step where it can.
            if (rng() % 4 == 0)
                os << zel::string(unsigned(rng() % 24), '0');
            if (rng() % 5 == 0)
                os << std::to_string(rng()).c_str() << std::to_string(rng() % 1000).c_str();
            else if (rng() % 2)
                os << zel_test::random_value<long long>(rng);
            else
                os << zel_test::random_value<double>(rng, 80);
            input += text(os.str());
            input += stray[rng() % (sizeof stray - 1)];
            if (rng() % 8 == 0)
                input += char(rng());
        }
        zel::istringstream whole(zel::string(input.data(), unsigned(input.size())));
        trickle_buf buf(input);
        zel::istream trickled(&buf);
        long const skip = rng() % 4 ? ios_base::skipws : 0;
        long const flags = rng() % 2 ? long(rng() & 0xF7FF) : skip | radix_bits[rng() % 4] * long(rng() % 2);
        whole.flags(flags);
        trickled.flags(flags);
        for (int step = 0; step < 12; ++step) {
            std::string got[2];
            zel::istream* streams[] = {&whole, &trickled};
            for (int k = 0; k < 2; ++k) {
                zel::istream& is = *streams[k];
                long long i = 7;
                double d = 7;
                short h = 7;
                unsigned long long u = 7;
                bool b = true;
                char word[32] = {};
                zel::string s;
                int const kind = step % 8;
                if (kind == 0)
                    is >> i;
                else if (kind == 1)
                    is >> d;
                else if (kind == 2)
                    is >> h;
                else if (kind == 3)
                    is >> u >> b;
                else if (kind == 4)
                    is >> zel::setw(32) >> word;
                else if (kind == 5)
                    is >> s;
                else if (kind == 6)
                    is.getline(word, 32, zel::ctype_base::digit, true);
                else
                    is.ignore(3);
                if (is.fail() && kind < 3) {
                    EXPECT_TRUE(i == 7 && d == 7 && h == 7) << input;
                }
                char line[128];
                std::snprintf(line, sizeof line, "%lld %.17g %d %llu %d state %ld next %d", i, d, h, u, int(b),
                              is.rdstate(), is.rdbuf()->sgetc());
                got[k] = line + ("|" + std::string(word)) + "|" + text(s);
                is.clear();
            }
            ASSERT_EQ(got[0], got[1]) << "step " << step << " of " << input;
        }
        EXPECT_LE(whole.tellg(), std::int64_t(input.size()));
    }
}

// A classifier that also takes ',' for white space: the prefix step and
// the number reader must ask it rather than the tables.
struct comma_space : zel::ctype<char> {
protected:
    using zel::ctype<char>::do_is;
    bool do_is(mask m, char c) const override {
        return ((m & space) != 0 && c == ',') || zel::ctype<char>::do_is(m, c);
    }
};

TEST(IstreamDerived, ADerivedClassifierDecidesWhatIsWhiteSpace) {
    zel::istringstream is("1,,2, -,3");
    is.imbue(zel::locale(zel::locale::classic(), new comma_space));
    int a = 0, b = 0, c = 0;
    is >> a >> b >> c;
    EXPECT_EQ(a, 1);
    EXPECT_EQ(b, 2);
    EXPECT_EQ(c, -3);
    EXPECT_EQ(is.rdstate(), ios_base::eofbit);
}

// A derived stream that treats '#' lines as white space before each
// formatted extraction, by replacing the prefix step.
class commented_istream : public zel::istringstream {
public:
    // The virtual base is built by the most derived class; the string
    // stream points it at its own buffer whatever this passes.
    explicit commented_istream(char const* s) : zel::ios(nullptr), zel::istringstream(s) {}

protected:
    bool do_ipfx(bool noskip) override {
        if (!zel::istringstream::do_ipfx(noskip))
            return false;
        if (noskip)
            return true;
        zel::streambuf* b = rdbuf();
        while (b->sgetc() == '#') {
            while (b->sgetc() != '\n' && b->sgetc() != -1)
                b->sbumpc();
            // Skip the newline and the white space after it.
            if (!zel::istringstream::do_ipfx(false))
                return false;
        }
        return true;
    }
};

TEST(IstreamDerived, AReplacedPrefixStepServesEveryExtractor) {
    commented_istream is("# numbers\n1 2\n# a word\n  three # tail\n4");
    int a = 0, b = 0, d = 0;
    zel::string c;
    is >> a >> b >> c >> d;
    EXPECT_EQ(a, 1);
    EXPECT_EQ(b, 2);
    EXPECT_EQ(text(c), "three");
    EXPECT_EQ(d, 4);
    EXPECT_EQ(is.rdstate(), ios_base::eofbit);
}

TEST(IstreamWide, WordsNumbersAndClassDelimiters) {
    zel::wistringstream is(zel::wstring(u"12 \u00e9t\u00e9 3.5 abc,def"));
    int n = 0;
    zel::wstring word;
    double d = 0;
    is >> n >> word >> d;
    EXPECT_EQ(n, 12);
    EXPECT_TRUE(word == zel::wstring(u"\u00e9t\u00e9"));
    EXPECT_EQ(d, 3.5);
    is >> zel::ws;
    is.get(word, 100, zel::ctype_base::alpha, false);
    EXPECT_TRUE(word == zel::wstring(u"abc"));
    EXPECT_EQ(is.get(), u',');
    unsigned short ch = 0;
    is >> ch;
    EXPECT_EQ(ch, u'd');
    is.ignore(zel::wistream::no_limit);
    EXPECT_EQ(is.get(), 0xFFFF);
}

} // namespace
