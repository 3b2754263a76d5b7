#pragma once

#include <cstdio>
#include <cstdlib>

// Aborts the run when an expectation does not hold, so that libFuzzer keeps the
// input and the replay test fails.
#define VR_FUZZ_CHECK(condition, what)                                                         \
    do {                                                                                       \
        if (!(condition)) {                                                                    \
            std::fprintf(stderr, "fuzz check failed: %s (%s:%d)\n", what, __FILE__, __LINE__); \
            std::abort();                                                                      \
        }                                                                                      \
    } while (false)
