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

void BM_fs_pool(benchmark::State& state) {
    std::vector<char> block(chunk * 1024);
    zel::fs_pool::pool_data data;
    zel::fs_pool pool(data);
    pool.init_pool(chunk, 1024, block.data());
    zel::allocator_engine& engine = pool;
    for (auto _ : state) {
        void* p = engine.allocate(chunk);
        benchmark::DoNotOptimize(p);
        engine.deallocate(p);
    }
}
BENCHMARK(BM_fs_pool);

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
    zel::allocator_engine& engine = heap;
    for (auto _ : state) {
        void* p = engine.allocate(chunk);
        benchmark::DoNotOptimize(p);
        engine.deallocate(p);
    }
}
BENCHMARK(BM_std_heap);

void BM_vector_heap(benchmark::State& state) {
    zel::vector_heap heap;
    zel::allocator_engine& engine = heap;
    for (auto _ : state) {
        // 31 bytes round to the same 32-byte block operator new is asked for.
        void* p = engine.allocate(chunk - 1);
        benchmark::DoNotOptimize(p);
        engine.deallocate(p);
    }
}
BENCHMARK(BM_vector_heap);

void no_op_handler() {}

// With a new-handler installed the heaps remove and reinstall it around each
// allocation: the only cost they add.
void BM_vector_heap_with_handler(benchmark::State& state) {
    std::new_handler before = std::set_new_handler(&no_op_handler);
    zel::vector_heap heap;
    zel::allocator_engine& engine = heap;
    for (auto _ : state) {
        void* p = engine.allocate(chunk - 1);
        benchmark::DoNotOptimize(p);
        engine.deallocate(p);
    }
    std::set_new_handler(before);
}
BENCHMARK(BM_vector_heap_with_handler);

} // namespace
