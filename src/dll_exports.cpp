// Windows only: a definition of each constant member of the exported
// classes. Clients see these classes as imported, so a constant they bind a
// reference to (EXPECT_EQ(state, ios_base::eofbit), std::min(n, npos)) is
// taken from the DLL, and a DLL exports an inline constant only where it is
// defined. The redundant definitions make them so; elsewhere they would only
// be deprecated noise.
#include <zel/zel.h>

namespace zel {

constexpr unsigned callback_base::buffer_size;
constexpr unsigned deque_engine::all;
constexpr unsigned deque_engine::map_step;
constexpr unsigned hash_table_engine::prime_count;
constexpr unsigned hash_table_engine::max_buckets;
constexpr long ios_base::goodbit;
constexpr long ios_base::badbit;
constexpr long ios_base::eofbit;
constexpr long ios_base::failbit;
constexpr long ios_base::app;
constexpr long ios_base::ate;
constexpr long ios_base::binary;
constexpr long ios_base::in;
constexpr long ios_base::out;
constexpr long ios_base::trunc;
constexpr unsigned list_engine::all;
constexpr unsigned regex_base::npos;
constexpr double stopwatch::ticks_per_second;
constexpr unsigned vector_engine::all;

} // namespace zel
