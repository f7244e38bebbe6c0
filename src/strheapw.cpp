// The wide string heap (64-byte granules), the wide string engine and
// the initializer of the library's standard wide strings.
#include <zel/string_engine.h>

#include "string_engine_impl.h"
#include "string_heap.h"

namespace zel {

namespace {
char const wstring_heap_tag = 0;
} // namespace

ZEL_DEFINE_STRING_HEAP(wstring_heap, 64u, wstring_heap_tag)

template class string_engine<unsigned short>;

// Zero-filled static storage: unbuilt until the first string needs it.
string_initializer<unsigned short, char_traits<unsigned short>, wstring_heap>
    detail::wstring_initializer;

} // namespace zel
