// SPDX-License-Identifier: Apache-2.0
// What is asked of the compiler beyond the language. All of it is about speed: a compiler that knows
// none of it makes the same bits.
#ifndef KEL_NN_COMPILER_H_
#define KEL_NN_COMPILER_H_

#include <cstdlib>  // defines __GLIBC__ where the loader can choose between copies

// In front of a function: builds it a second time for AVX2 on a PC; the loader picks. The loops below
// it stay plain C++. KEL_NN_CHOOSES_TARGETS is defined where that is so.
// -DKEL_NN_NO_TARGET_CLONES leaves the copies out: to measure what they give, and what older PCs see.
#define KEL_NN_TARGET_CLONES
#if defined(__x86_64__) && defined(__GLIBC__) && defined(__has_attribute) && \
    !defined(KEL_NN_NO_TARGET_CLONES)
#if __has_attribute(target_clones)
#undef KEL_NN_TARGET_CLONES
#define KEL_NN_CHOOSES_TARGETS
#define KEL_NN_TARGET_CLONES __attribute__((target_clones("avx2", "default")))
#endif
#endif

// A function that becomes part of the one it is called from, and so takes that one's target; of a
// lambda the second, behind its parameters.
#define KEL_NN_ALWAYS_INLINE inline KEL_NN_INLINED
#define KEL_NN_INLINED __attribute__((always_inline))
#define KEL_NN_NEVER_INLINE __attribute__((noinline))

// In front of a function beside hot ones that is itself called once: it is optimised for size.
#define KEL_NN_COLD __attribute__((cold))

// In front of a function that is built for several targets and must stay a function. Clang inlines no copy, and refuses to be told.
#if defined(__clang__) && defined(KEL_NN_CHOOSES_TARGETS)
#define KEL_NN_TARGET_CLONES_APART KEL_NN_TARGET_CLONES
#else
#define KEL_NN_TARGET_CLONES_APART KEL_NN_TARGET_CLONES KEL_NN_NEVER_INLINE
#endif

// Whether loops over 32 and 16 bits become vectors without being asked to. Where they do not, some
// are written for single words.
#if defined(__SSE2__) || defined(__ARM_NEON)
#define KEL_NN_HAS_VECTORS 1
#else
#define KEL_NN_HAS_VECTORS 0
#endif

// In front of loops, for GCC. A loop over one vector that is unrolled before it is vectorised stays
// scalar.
#if !defined(__clang__) && __GNUC__ >= 8
#define KEL_NN_KEEP_LOOP _Pragma("GCC unroll 1")
#else
#define KEL_NN_KEEP_LOOP
#endif

#endif  // KEL_NN_COMPILER_H_
