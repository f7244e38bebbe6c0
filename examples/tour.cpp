// A tour of zel: each capability the library has, shown in a few lines.
// Build and run it with scripts/tour.
#include <zel/zel.h>

#include <cstdio>
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

    zel::deque<int> other{0};
    try {
        d.erase(other.begin());
    } catch (zel::xexception const& e) {
        std::printf("an iterator of another deque: %s (%s)\n", e.what(), e.file());
    }
}

} // namespace

int main() {
    std::printf("zel %d.%d.%d tour\n", ZEL_VERSION_MAJOR, ZEL_VERSION_MINOR, ZEL_VERSION_PATCH);
    exceptions();
    heaps();
    pool();
    timing();
    containers();
    return 0;
}
