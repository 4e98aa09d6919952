// WV_VECTORISE: marks a hot sample loop that should be built with the loop
// vectoriser's full cost model where the project builds at -O2: GCC's -O2
// vectorises only the cheapest loops and takes -O3 per function; Clang
// vectorises these at -O2 and warns about (and ignores) the attribute, so
// there it is empty.
#pragma once

#if defined(__clang__)
#define WV_VECTORISE
#else
#define WV_VECTORISE __attribute__((optimize("O3")))
#endif
