// The out-of-line parts of the callback family: the initiator interface and
// initiator0.
#include <zel/callback.h>

namespace zel {

initiator::~initiator() = default;
initiator0::~initiator0() = default;

initiator0::operator bool() const { return static_cast<bool>(call_); }

void initiator0::operator()() const { call_(); }

} // namespace zel
