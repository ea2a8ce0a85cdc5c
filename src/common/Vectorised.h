// Loops that are worth a second, wider version.
#pragma once

// Put before a function, compiles it for processors with AVX2 as well; the program chooses when it
// starts. Both versions do the same operations sample by sample (AVX2 brings no fused
// multiply-add), so results do not depend on the processor. Without effect where the system's
// loader cannot choose, and under the sanitizers, which it would call too early.
#if defined(__x86_64__) && defined(__GLIBC__) && defined(__GNUC__) && !defined(__clang__) && \
    !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define NEBULEX_VECTORISED __attribute__((target_clones("avx2", "default")))
#else
#define NEBULEX_VECTORISED
#endif
