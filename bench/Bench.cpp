#include "bench/Bench.h"

#include <cstdio>
#include <cstdlib>

void require(bool holds, const char* otherwise) {
    if (!holds) {
        fprintf(stderr, "%s\n", otherwise);
        _Exit(1);
    }
}
