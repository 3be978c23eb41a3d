// KEL_NN_TARGET_CLONES in front of a function builds it a second time for AVX2 on a PC; the loader
// picks. The loops below it stay plain C++: clones differ in speed, never in a result bit.
// KEL_NN_CHOOSES_TARGETS is defined where that is so.
// -DKEL_NN_NO_TARGET_CLONES leaves them out: to measure what they give, and what older PCs see.
#ifndef KEL_NN_TARGET_CLONES_H_
#define KEL_NN_TARGET_CLONES_H_

#include <cstdlib>  // defines __GLIBC__ where the loader can choose between copies

#define KEL_NN_TARGET_CLONES
#if defined(__x86_64__) && defined(__GLIBC__) && defined(__has_attribute) && \
    !defined(KEL_NN_NO_TARGET_CLONES)
#if __has_attribute(target_clones)
#undef KEL_NN_TARGET_CLONES
#define KEL_NN_CHOOSES_TARGETS
#define KEL_NN_TARGET_CLONES __attribute__((target_clones("avx2", "default")))
#endif
#endif

#endif  // KEL_NN_TARGET_CLONES_H_
