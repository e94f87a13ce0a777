#pragma once

/// VNK_CLONES makes a static function exist twice, for the plain x86-64 and for AVX2, picked at load. Without
/// FMA, which would change results. A cloned function is static and called by a plain one of the same file
/// (clang 14 cannot link it otherwise); its helpers are VNK_INLINE. Instrumented builds go without: their
/// resolvers would run before the sanitizer is ready.
#if defined(__x86_64__) && defined(__ELF__) && !defined(VNK_SANITIZED) && \
    (defined(__clang__) ? __clang_major__ >= 14 : defined(__GNUC__))
#define VNK_CLONES __attribute__((target_clones("default", "avx2")))
#else
#define VNK_CLONES
#endif

#define VNK_INLINE inline __attribute__((always_inline))
