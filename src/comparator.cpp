// The comparator interface's out-of-line member, so its virtual table and
// type information live once, in the library.
#include <zel/comparator.h>

namespace zel {

comparator_base::~comparator_base() = default;

} // namespace zel
