// Everything zel offers, in one include.
#ifndef ZEL_ZEL_H
#define ZEL_ZEL_H

#include <zel/associative.h>
#include <zel/bitset.h>
#include <zel/bufiter.h>
#include <zel/callback.h>
#include <zel/char_traits.h>
#include <zel/comparator.h>
#include <zel/config.h>
#include <zel/deque.h>
#include <zel/exception.h>
#include <zel/fspool.h>
#include <zel/fstream.h>
#include <zel/guards.h>
#include <zel/hash.h>
#include <zel/hash_map.h>
#include <zel/hash_set.h>
#include <zel/ios.h>
#include <zel/ios_flags.h>
#include <zel/iostream.h>
#include <zel/istream.h>
#include <zel/ldx.h>
#include <zel/list.h>
#include <zel/locale.h>
#include <zel/map.h>
#include <zel/memory.h>
#include <zel/monitor.h>
#include <zel/numconv.h>
#include <zel/ostream.h>
#include <zel/rbtree.h>
#include <zel/regex.h>
#include <zel/sequence.h>
#include <zel/set.h>
#include <zel/sstream.h>
#include <zel/stopwatch.h>
#include <zel/streambuf.h>
#include <zel/string.h>
#include <zel/string_engine.h>
#include <zel/thread.h>
#include <zel/tree.h>
#include <zel/vector.h>

#endif
