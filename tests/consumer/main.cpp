// Links against an installed zel and uses its throw path and a heap.
#include <zel/zel.h>

#include <cstdio>
#include <cstring>

int main() {
    zel::vector_heap heap;
    unsigned capacity = 0;
    heap.deallocate(heap.allocate(4, 10, 12, &capacity));
    try {
        ZEL_THROW(zel::out_of_range("consumer"));
    } catch (zel::xexception const& e) {
        if (capacity == 13 && std::strcmp(e.name(), "out_of_range") == 0) {
            std::puts("consumer: ok");
            return 0;
        }
    }
    std::puts("consumer: FAILED");
    return 1;
}
