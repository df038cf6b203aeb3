// Compile-time description of the one instruction set a companion library is
// built for. Every source of a companion is compiled with OQA_VECTOR_LEVEL
// set to 1 (SSE4), 2 (AVX2) or 3 (AVX-512); this header must come before any
// Highway header, because it narrows Highway's targets to that one (plus the
// portable fallback Highway always compiles, which is never called).
#ifndef OQA_VECTOR_LEVEL_CONFIG_H
#define OQA_VECTOR_LEVEL_CONFIG_H

#if !defined(OQA_VECTOR_LEVEL)
#error "OQA_VECTOR_LEVEL must be 1, 2 or 3"
#elif OQA_VECTOR_LEVEL == 1
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_AVX2 | HWY_AVX3 | HWY_AVX3_DL)
#define OQA_KERNEL_TARGET_NAMESPACE N_SSE4
#define OQA_KERNEL_NAMESPACE oqa_vector_sse
#define OQA_VECTOR_ISA_NAME sse
#elif OQA_VECTOR_LEVEL == 2
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_SSE4 | HWY_AVX3 | HWY_AVX3_DL)
#define OQA_KERNEL_TARGET_NAMESPACE N_AVX2
#define OQA_KERNEL_NAMESPACE oqa_vector_avx2
#define OQA_VECTOR_ISA_NAME avx2
#elif OQA_VECTOR_LEVEL == 3
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_SSE4 | HWY_AVX2 | HWY_AVX3_DL)
#define OQA_KERNEL_TARGET_NAMESPACE N_AVX3
#define OQA_KERNEL_NAMESPACE oqa_vector_avx512
#define OQA_VECTOR_ISA_NAME avx512
#else
#error "OQA_VECTOR_LEVEL must be 1, 2 or 3"
#endif

// The kernel never uses AES or carry-less multiplication; leaving them out of
// the compiler flags keeps the SSE4 companion usable on processors without them.
#ifndef HWY_DISABLE_PCLMUL_AES
#define HWY_DISABLE_PCLMUL_AES
#endif

#endif  // OQA_VECTOR_LEVEL_CONFIG_H
