// A tour of zel: each capability the library has, shown in a few lines.
// Build and run it with scripts/tour.
#include <zel/zel.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

namespace {

void section(char const* title) { std::printf("\n== %s\n", title); }

void exceptions() {
    section("Exceptions carry their throw site");
    try {
        ZEL_THROW(zel::out_of_range("index 12 is past the end"));
    } catch (zel::xexception const& e) {
        // Whatever leaf was raised, the handler sees an xexception and tells
        // the kind by name().
        std::printf("caught %s: %s\n", e.name(), e.what());
        e.print();
    }
}

void heaps() {
    section("Heaps behind one allocator interface");
    zel::vector_heap vh;
    zel::std_heap sh;
    zel::allocator_engine* heaps[] = {&sh, &vh};
    for (zel::allocator_engine* heap : heaps) {
        unsigned capacity = 0;
        // Room for a 12-byte header and ten 4-byte elements.
        void* block = heap->allocate(4, 10, 12, &capacity);
        std::printf("%-11s asked for 10 elements, got room for %u; "
                    "grow to 52 bytes reallocates: %s\n",
                    heap == &vh ? "vector_heap" : "std_heap", capacity,
                    heap->query_resize(64, 52) ? "yes" : "no");
        heap->deallocate(block);
    }
}

void pool() {
    section("A fixed-size pool over a block you own");
    alignas(8) static char block[4 * 16];
    zel::fs_pool::pool_data data;
    zel::fs_pool pool(data);
    pool.init_pool(16, 4, block);
    void* a = pool.allocate(16);
    void* b = pool.allocate(16);
    pool.deallocate(a);
    std::printf("free chunks: %u of %u; next chunk is the one freed last: %s\n",
                data.free_count, data.chunk_count, pool.allocate(16) == a ? "yes" : "no");
    pool.deallocate(a);
    pool.deallocate(b);
    pool.check();
}

void strings() {
    section("Copy-on-write strings");
    zel::string a("the quick brown fox");
    zel::string b = a;  // shares a's characters: one atomic increment
    std::printf("after copy, one buffer: %s\n", a.data() == b.data() ? "yes" : "no");
    b.at(4) = 'Q';      // the first write gives b its own copy
    std::printf("a = \"%s\", b = \"%s\"\n", a.c_str(), b.c_str());
    zel::string c = a + ", " + "jumps";
    unsigned const n = c.itsub("FOX", "wolf");
    std::printf("%u substitution: \"%s\"; \"quick\" at %u; trimmed: \"%s\"\n", n, c.c_str(),
                c.find("quick"), zel::string("  padded  ").trim().c_str());
}

void patterns() {
    section("Regular expressions");
    char const* lines[] = {"total = 12.5e3;", "name = box_7", "-- no number here", "x = .25, y = -4"};
    zel::regex number(zel::re_pat_double);
    for (char const* line : lines) {  // grep: print each line with a number, and the first number
        zel::match_pair const m = number.search(line);
        if (m.found())
            std::printf("%-20s number \"%.*s\" at %u\n", line, int(m.length), line + m.position,
                        m.position);
    }
    zel::string text("x = .25, y = -4");
    unsigned const n = text.tsub(number, "<n>");  // substitute every match
    std::printf("%u substitutions: \"%s\"\n", n, text.c_str());
    zel::regex bad("a b");
    std::printf("compiling \"a b\": ");
    bad.print_status(stdout);
    std::printf("\n");
}

void timing() {
    section("A stopwatch that pauses");
    zel::stopwatch watch(true);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    watch.stop();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));  // not counted
    watch.start();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    std::printf("two 30 ms runs measured as %.0f ms\n", watch.msec_elapsed());
}

void numbers() {
    section("Numbers in any radix, written and read back");
    long long const values[] = {255, -255, 1000000007};
    for (long long value : values) {
        for (int radix : {2, 8, 10, 16, 36}) {
            char text[72];
            // base adds the radix prefix (and "+" in radix 10), so the text
            // reads back with radix 0, which takes the radix from the prefix.
            zel::qtoa(value, text, radix, false, radix != 36);
            char const* end = nullptr;
            long long back = zel::strtoq(text, &end, radix == 36 ? 36 : 0);
            std::printf("%-11lld radix %2d: %s -> %lld\n", value, radix, text, back);
        }
    }
    char text[72];
    std::printf("dtoa(1/3.0, 10 digits): %s; xstrtold(\" -2.5e3\"): %.1Lf\n",
                zel::dtoa(1 / 3.0, text, 10, false, false), zel::xstrtold(" -2.5e3", nullptr));
}

// A producer thread fills a small shelf; the main thread takes from it. The
// monitor keeps the shelf consistent, the condition lets each side wait.
class producer : public zel::thread {
public:
    static constexpr int items = 5;

    int take() {
        shelf_lock_.acquire();
        while (count_ == 0)
            filled_.wait();
        int item = shelf_[--count_];
        shelf_lock_.release();
        return item;
    }

protected:
    void run() override {
        for (int i = 1; i <= items; ++i) {
            shelf_lock_.acquire();
            shelf_[count_++] = i * i;
            filled_.signal();
            shelf_lock_.release();
            zel::thread::yield();
        }
    }

private:
    zel::mutex shelf_lock_;
    zel::condition filled_{shelf_lock_};
    int shelf_[items] = {};
    int count_ = 0;
};

void threads() {
    section("A producer thread and a consumer");
    producer p;
    p.start();
    int sum = 0;
    for (int i = 0; i < producer::items; ++i)
        sum += p.take();
    p.wait();
    std::printf("took %d items, their sum is %d\n", producer::items, sum);

    section("A monitor: many readers or one writer");
    zel::monitor_v2 monitor;  // writers first
    int value = 0;
    struct writer : zel::thread {
        writer(zel::monitor_base& m, int& v) : monitor(m), value(v) {}
        void run() override {
            for (int i = 0; i < 1000; ++i) {
                monitor.acquire_for_writing();
                ++value;
                monitor.release_from_writing();
            }
        }
        zel::monitor_base& monitor;
        int& value;
    } a(monitor, value), b(monitor, value);
    a.start();
    b.start();
    a.wait();
    b.wait();
    monitor.acquire_for_reading();
    std::printf("two writers counted to %d\n", value);
    monitor.release_from_reading();
}

template <class C>
void print(char const* name, C const& c) {
    std::printf("%-6s", name);
    for (int x : c)
        std::printf(" %d", x);
    std::printf("\n");
}

void containers() {
    section("Sequence containers over untyped engines");
    zel::vector<int> v{42, 7, 19, 3};
    v.push_back(11);
    v.sort();                          // a Shell sort over the engine's gap table
    print("vector", v);

    zel::deque<int> d{5, 9};
    d.push_front(1);
    d.push_back(2);
    d.sort(zel::greater<int>());       // stable, and only pointers move
    print("deque", d);

    zel::list<int> l{8, 6, 4};
    l.push_front(9);
    l.push_back(1);
    l.sort();                          // a merge sort that only relinks nodes
    l.remove(6);
    print("list", l);
    std::printf("list[2] = %d, walking by index costs a step from the last one\n", l[2]);

    zel::deque<int> other{0};
    try {
        d.erase(other.begin());
    } catch (zel::xexception const& e) {
        std::printf("an iterator of another deque: %s (%s)\n", e.what(), e.file());
    }
}

// A file written and read back through file buffers (32 characters staged in
// front of the C stream), and one number formatted under two locales. The
// build generates de_DE.UTF-8 into its own tree; the tour looks there first.
void buffers_and_locales() {
    section("A file through a file buffer; a number in two locales");
    std::string const path = (std::filesystem::temp_directory_path() / "zel_tour_buffer.txt").string();
    char const text[] = "a file buffer stages 32 characters\nin front of the C stream\n";
    zel::filebuf out;
    if (!out.open(path.c_str(), zel::ios_base::out)) {
        std::printf("cannot write %s\n", path.c_str());
        return;
    }
    out.sputn(text, long(sizeof text - 1));
    out.close();  // flushes what is still staged
    zel::filebuf in;
    in.open(path.c_str(), zel::ios_base::in);
    int lines = 0, chars = 0;
    for (int c; (c = in.sbumpc()) != zel::filebuf::eof(); ++chars)
        lines += c == '\n';
    in.close();
    (void)std::remove(path.c_str());
    std::printf("read back %d characters in %d lines\n", chars, lines);

#if defined(_WIN32)
    char const* german = "German_Germany.1252";  // the Windows C runtime's name
#else
    char const* german = "de_DE.UTF-8";
#  ifdef ZEL_TOUR_LOCPATH
    setenv("LOCPATH", ZEL_TOUR_LOCPATH, 0);  // the build's generated locales
#  endif
#endif
    for (char const* name : {"C", german}) {
        if (!zel::ldx_manager::supports(name, zel::locale_base::all)) {
            std::printf("%-12s not on this machine (the build generates it)\n", name);
            continue;
        }
        zel::locale loc(name);
        zel::stringbuf sb(zel::ios_base::out);
        zel::ios fmt(&sb);
        fmt.imbue(loc);
        zel::fixed(fmt);
        fmt.precision(2);
        zel::obuf_iterator it(&sb);
        zel::use_facet<zel::num_put<char, zel::obuf_iterator>>(loc).put(it, fmt, ' ', 1234567.891);
        std::printf("%-12s 1234567.891 with fixed, precision 2: %s\n", name, sb.str().c_str());
    }
}

// Formatted streams: a table with widths, fills and radixes written to a
// file stream and read back with extractors, then words counted with a
// character-class delimiter.
void streams() {
    section("Formatted streams: a table in a file, words by character class");
    std::string const path = std::string(P_tmpdir) + "/zel_tour_table.txt";
    {
        zel::ofstream table(path.c_str());
        for (int n : {7, 255, 4096}) {
            table.fill(' ');
            table << zel::dec << zel::setw(6) << n << ' ';
            table.fill('0');
            table << zel::internal << zel::showbase << zel::hex << zel::setw(8) << n << ' '
                  << zel::noshowbase << zel::right << zel::bin << zel::setw(14) << n << zel::endl;
        }
    }  // the stream's buffer closes the file
    zel::ifstream in(path.c_str());
    zel::string line;
    while (zel::getline(in, line))
        std::printf("| %s\n", line.c_str());
    in.clear();
    in.seekg(0);
    int d = 0, h = 0, b = 0;
    while (in >> zel::dec >> d >> zel::any >> h >> zel::bin >> b)  // "any": the 0x prefix decides
        std::printf("read back %d %d %d\n", d, h, b);
    in.close();
    (void)std::remove(path.c_str());

    zel::istringstream text("Streams read words, numbers (42) and lines; a class decides where words end.");
    zel::string word, last;
    int words = 0;
    for (;;) {
        text.eat(zel::ctype_base::alpha, true);  // skip everything that is not a letter
        if (!text.get(word, 64, zel::ctype_base::alpha, false))  // letters up to the next non-letter
            break;
        last = word;
        ++words;
    }
    std::printf("%d words, the last one \"%s\"\n", words, last.c_str());
}

// Counts the words of a text in an ordered map, then ranks them by count in
// a multimap (equal counts keep their alphabetical order); a hash map counts
// them again.
void word_count() {
    section("Ordered maps: the most frequent words of a text");
    char const* const text =
        "the engine keeps the tree balanced on the way down and the typed layer "
        "only makes copies and compares keys so the tree never walks back up the "
        "path it came down and the map stays in order";
    zel::map<std::string, int> counts;
    std::string word;
    for (char const* p = text;; ++p) {
        if (*p != ' ' && *p != '\0') {
            word += *p;
        } else if (!word.empty()) {
            ++counts[word];
            word.clear();
        }
        if (*p == '\0')
            break;
    }
    zel::multimap<int, std::string, zel::greater<int>> ranked;
    int total = 0;
    for (auto const& [w, n] : counts) {
        ranked.insert({n, w});
        total += n;
    }
    std::printf("%d words, %u different; the most frequent:", total, counts.size());
    int shown = 0;
    for (auto it = ranked.begin(); it != ranked.end() && shown < 4; ++it, ++shown)
        std::printf(" %s (%d)", it->second.c_str(), it->first);
    std::printf("\n");

    // The same count in a hash map: no order, one probe of a bucket per word.
    zel::hash_map<zel::string, int> hashed;
    zel::string w;
    for (char const* p = text;; ++p) {
        if (*p != ' ' && *p != '\0') {
            w += *p;
        } else if (!w.empty()) {
            ++hashed[w];
            w = "";
        }
        if (*p == '\0')
            break;
    }
    auto top = hashed.begin();
    for (auto it = hashed.begin(); it != hashed.end(); ++it)
        if (it->second > top->second)
            top = it;
    std::printf("the hash map agrees: %u words in %u buckets, \"%s\" %d times\n", hashed.size(),
                hashed.bucket_count(), top->first.c_str(), top->second);
}

} // namespace

int main() {
    std::printf("zel %d.%d.%d tour\n", ZEL_VERSION_MAJOR, ZEL_VERSION_MINOR, ZEL_VERSION_PATCH);
    exceptions();
    heaps();
    pool();
    strings();
    patterns();
    timing();
    numbers();
    threads();
    containers();
    word_count();
    buffers_and_locales();
    streams();
    return 0;
}
