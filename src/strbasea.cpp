// The narrow string class: string_base<char>. Its checked throw sites live
// here so that their reports name this file.
#include "string_base_impl.h"

namespace zel {

void detail::string_invalid_argument(char) { ZEL_THROW(invalid_argument()); }

void detail::string_put_out_of_range(char) { ZEL_THROW(out_of_range()); }

template class string_base<char>;

} // namespace zel
