#pragma once

/// Marks a function that is compiled for several processors; the loader picks the best for the one
/// at hand. Results do not depend on the choice: operations keep their order and are never fused.
/// ZELK_INLINE marks the helpers that become part of such a function.
/// Not under the sanitizers, which have not begun when the loader picks.
#if defined(__x86_64__) && defined(__gnu_linux__) && !defined(__SANITIZE_ADDRESS__) && \
    !defined(__SANITIZE_THREAD__) && !defined(__clang__)
#define ZELK_PROCESSOR_CLONES __attribute__((target_clones("default", "avx2", "avx512f")))
#else
#define ZELK_PROCESSOR_CLONES
#endif
#define ZELK_INLINE inline __attribute__((always_inline))
