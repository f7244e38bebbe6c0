// The narrow string heap (32-byte granules), the narrow string engine and
// the initializer of the library's standard narrow strings.
#include <zel/string_engine.h>

#include "string_engine_impl.h"
#include "string_heap.h"

namespace zel {

namespace {
char const cstring_heap_tag = 0;
} // namespace

ZEL_DEFINE_STRING_HEAP(cstring_heap, 32u, cstring_heap_tag)

template class string_engine<char>;

// Zero-filled static storage: unbuilt until the first string needs it.
string_initializer<char, char_traits<char>, cstring_heap> detail::cstring_initializer;

} // namespace zel
