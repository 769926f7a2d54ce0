// The codec's kernels that come in more than one form, as one table of function
// pointers. The process's table is filled once, at its first use: the plain forms, then
// every SIMD form that the build contains and the processor runs. Every form of a kernel
// gives the same bits, so the choice changes speed only; tests and benchmarks fill
// tables of their own to run a chosen form. Tables are constant once filled and may be
// read from any thread.
#pragma once

#include "platform/PrivateHeader.h"

#include "codec/CodecTypes.h"
#include "platform/WinTypes.h"

#include <cstdint>
#include <string>
#include <vector>

// The SIMD forms are written with x86 intrinsics; a portable build leaves them out.
#if !defined(ZNDVR_PORTABLE) && defined(__x86_64__) && defined(__SSE2__)
#define ZNDVR_KERNELS_X86 1
#else
#define ZNDVR_KERNELS_X86 0
#endif

// Instruction-set extensions that a kernel form may use, in the order in which the
// forms build on each other.
enum tag_KERNELFEATURE : DWORD {
    KERNEL_FEATURE_SSE2 = 1u << 0,
    KERNEL_FEATURE_AVX2 = 1u << 1,
};

struct tag_KERNELTABLE {
    // The SIMD transform form on natural-order blocks, in place, nBlocks of them at
    // ppsBlocks; its reference form is a portable emulation of the same 16-bit steps.
    void (*pfnFDCTMMX)(short* const* ppsBlocks, int nBlocks);
    void (*pfnIDCTMMX)(short* const* ppsBlocks, int nBlocks);
    // The quantiser on 64 values; position 0 is the DC, the others need no order.
    void (*pfnQuantBlock)(const short* psCoeff, short* psLevel, int nQp, int nMode);
    void (*pfnDequantBlock)(const short* psLevel, short* psCoeff, int nQp, int nMode);
    // Bit n set where value n of the 64 is not 0.
    std::uint64_t (*pfnNonZeroMask)(const short* psBlock);

    // The six natural-order blocks of the macroblock at (nCol, nRow): its samples, or
    // its samples less those of the reference.
    void (*pfnLoadMB)(const IMAGE& img, int nCol, int nRow, int nWidth, short* psBlocks);
    void (*pfnLoadDifferenceMB)(const IMAGE& img, const IMAGE& imgReference, int nCol, int nRow, int nWidth,
                                short* psBlocks);
    // Six blocks clipped to 0..255 into the macroblock's place.
    void (*pfnStoreMB)(const short* psBlocks, const IMAGE& img, int nCol, int nRow, int nWidth);
    // Each block whose bit 5 - b is set in nPattern added to the reference, clipped, into
    // the target; the others copied from the reference where the target is elsewhere.
    void (*pfnStoreSumMB)(const short* psBlocks, int nPattern, const IMAGE& imgReference, const IMAGE& imgTarget,
                          int nCol, int nRow, int nWidth);
    // Sum of absolute differences of two 16x16 squares of bytes. The compiler makes of the
    // plain loop what a hand-written SSE2 form would be.
    int (*pfnSADLuma)(const BYTE* pbyFirst, const BYTE* pbySecond, int nStride);

    void (*pfnUYVYToYUV420)(const BYTE* pbyFrame, const IMAGE& img, int nWidth, int nHeight);
    void (*pfnYUVToRGB24)(BYTE* pbyDst, const IMAGE& img, int nWidth, int nHeight);
};

// The features that this build has forms for and this processor runs.
DWORD GetKernelFeatures();
// The plain forms, then every form whose features all lie in dwFeatures and that this
// build contains.
void FillKernelTable(tag_KERNELTABLE& table, DWORD dwFeatures);
// The process's table, filled for GetKernelFeatures().
const tag_KERNELTABLE& GetKernelTable();

// One form of every kernel, for the kernel checker and the benchmarks, which run each
// form through a table of its own.
struct tag_KERNELFORM {
    std::string strName;
    tag_KERNELTABLE table;
};
// The plain table, then one table per feature that this build and processor offer, each
// adding that feature to the one before.
std::vector<tag_KERNELFORM> GetKernelForms();

// Each kernel file enters its forms.
void FillTransformKernels(tag_KERNELTABLE& table);
void FillPixelKernels(tag_KERNELTABLE& table);
#if ZNDVR_KERNELS_X86
void FillTransformKernelsSSE2(tag_KERNELTABLE& table);
void FillPixelKernelsSSE2(tag_KERNELTABLE& table);
void FillTransformKernelsAVX2(tag_KERNELTABLE& table);
void FillPixelKernelsAVX2(tag_KERNELTABLE& table);
#endif
