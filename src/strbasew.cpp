// The wide string class: string_base<unsigned short>. Its checked throw sites live
// here so that their reports name this file.
#include "string_base_impl.h"

namespace zel {

void detail::string_invalid_argument(unsigned short) { ZEL_THROW(invalid_argument()); }

void detail::string_put_out_of_range(unsigned short) { ZEL_THROW(out_of_range()); }

template class string_base<unsigned short>;

} // namespace zel
