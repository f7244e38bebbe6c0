// Everything zel offers, in one include.
#ifndef ZEL_ZEL_H
#define ZEL_ZEL_H

#include <zel/comparator.h>
#include <zel/config.h>
#include <zel/deque.h>
#include <zel/exception.h>
#include <zel/fspool.h>
#include <zel/memory.h>
#include <zel/sequence.h>
#include <zel/stopwatch.h>
#include <zel/vector.h>

#endif
