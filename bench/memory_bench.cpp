// Allocation costs: the pool and the heaps against malloc/free and the
// global operator new/delete, one allocate+deallocate pair per iteration.
#include <zel/fspool.h>
#include <zel/memory.h>

#include <cstdlib>
#include <new>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

constexpr unsigned chunk = 32;

// One allocate+deallocate pair per iteration, called through the interface
// as every owner of storage calls it.
void pairs(benchmark::State& state, zel::allocator_engine& engine, unsigned bytes) {
    for (auto _ : state) {
        void* p = engine.allocate(bytes);
        benchmark::DoNotOptimize(p);
        engine.deallocate(p);
    }
}

void BM_fs_pool(benchmark::State& state) {
    std::vector<char> block(chunk * 1024);
    zel::fs_pool::pool_data data;
    zel::fs_pool pool(data);
    pool.init_pool(chunk, 1024, block.data());
    pairs(state, pool, chunk);
}
BENCHMARK(BM_fs_pool);

// A pool serving a burst: 64 chunks taken, then all given back, as a
// container's nodes are. Items are allocate+deallocate pairs.
constexpr int burst = 64;

void BM_fs_pool_burst(benchmark::State& state) {
    std::vector<char> block(chunk * burst);
    zel::fs_pool::pool_data data;
    zel::fs_pool pool(data);
    pool.init_pool(chunk, burst, block.data());
    void* held[burst];
    for (auto _ : state) {
        for (void*& p : held)
            p = pool.allocate(chunk);
        benchmark::DoNotOptimize(held);
        for (void* p : held)
            pool.deallocate(p);
    }
    state.SetItemsProcessed(state.iterations() * burst);
}
BENCHMARK(BM_fs_pool_burst);

void BM_malloc_free_burst(benchmark::State& state) {
    void* held[burst];
    for (auto _ : state) {
        for (void*& p : held)
            p = std::malloc(chunk);
        benchmark::DoNotOptimize(held);
        for (void* p : held)
            std::free(p);
    }
    state.SetItemsProcessed(state.iterations() * burst);
}
BENCHMARK(BM_malloc_free_burst);

void BM_malloc_free(benchmark::State& state) {
    for (auto _ : state) {
        void* p = std::malloc(chunk);
        benchmark::DoNotOptimize(p);
        std::free(p);
    }
}
BENCHMARK(BM_malloc_free);

void BM_operator_new_delete(benchmark::State& state) {
    for (auto _ : state) {
        void* p = ::operator new(chunk);
        benchmark::DoNotOptimize(p);
        ::operator delete(p);
    }
}
BENCHMARK(BM_operator_new_delete);

void BM_std_heap(benchmark::State& state) {
    zel::std_heap heap;
    pairs(state, heap, chunk);
}
BENCHMARK(BM_std_heap);

// 31 bytes round to the same 32-byte block operator new is asked for above.
void BM_vector_heap(benchmark::State& state) {
    zel::vector_heap heap;
    pairs(state, heap, chunk - 1);
}
BENCHMARK(BM_vector_heap);

void no_op_handler() {}

// With a new-handler installed the heaps remove and reinstall it around each
// allocation: the only cost they add.
void BM_vector_heap_with_handler(benchmark::State& state) {
    std::new_handler before = std::set_new_handler(&no_op_handler);
    zel::vector_heap heap;
    pairs(state, heap, chunk - 1);
    std::set_new_handler(before);
}
BENCHMARK(BM_vector_heap_with_handler);

} // namespace
