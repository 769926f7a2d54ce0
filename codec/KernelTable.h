// The codec's kernels that come in more than one form, as one table of function
// pointers. The process's table is filled once, at its first use: the plain forms, then
// every SIMD form that the build contains and the processor runs. Every form of a kernel
// gives the same bits, so the choice changes speed only; tests and benchmarks fill
// tables of their own to run a chosen form. Tables are constant once filled and may be
// read from any thread.
#pragma once

#include "codec/CodecTypes.h"
#include "platform/WinTypes.h"

// The SIMD forms are written with x86 intrinsics; a portable build leaves them out.
#if !defined(ZNDVR_PORTABLE) && defined(__x86_64__) && defined(__SSE2__)
#define ZNDVR_KERNELS_X86 1
#else
#define ZNDVR_KERNELS_X86 0
#endif

// Instruction-set extensions that a kernel form may use.
enum tag_KERNELFEATURE : DWORD {
    KERNEL_FEATURE_SSE2 = 1u << 0,
};

struct tag_KERNELTABLE {
    // The SIMD transform form; its reference form is a portable emulation of the same
    // 16-bit steps.
    void (*pfnFDCTBlockMMX)(short* psBlock, short* psCoeff);
    void (*pfnIDCTBlockMMX)(const short* psCoeff, short* psBlock);
    void (*pfnQuantBlock)(const short* psCoeff, short* psLevel, int nQp, int nMode);
    void (*pfnDequantBlock)(const short* psLevel, short* psCoeff, int nQp, int nMode);
    // Transform and quantiser of a whole macroblock, in each transform form.
    void (*pfnQuantMB)(short* psLevel, const YUV_Block* pMB, int nQp, int nMode);
    void (*pfnDequantMB)(const short* psLevel, YUV_Block* pMB, int nQp, int nMode);
    void (*pfnQuantMBwithMMX)(short* psLevel, const YUV_Block* pMB, int nQp, int nMode);
    void (*pfnDequantMBwithMMX)(const short* psLevel, YUV_Block* pMB, int nQp, int nMode);
    void (*pfnPutMB)(int nCol, int nRow, const IMAGE& img, int nWidth, const YUV_Block* pMB);
    int (*pfnSADMB)(const YUV_Block* pFirst, const YUV_Block* pSecond);
    void (*pfnYUVToRGB24)(BYTE* pbyDst, const IMAGE& img, int nWidth, int nHeight);
};

// The features that this build has forms for and this processor runs.
DWORD GetKernelFeatures();
// The plain forms, then every form whose features all lie in dwFeatures and that this
// build contains.
void FillKernelTable(tag_KERNELTABLE& table, DWORD dwFeatures);
// The process's table, filled for GetKernelFeatures().
const tag_KERNELTABLE& GetKernelTable();

// Each kernel file enters its forms: the plain ones always, the others for the features
// given.
void FillTransformKernels(tag_KERNELTABLE& table, DWORD dwFeatures);
void FillPixelKernels(tag_KERNELTABLE& table, DWORD dwFeatures);
#if ZNDVR_KERNELS_X86
void FillTransformKernelsX86(tag_KERNELTABLE& table, DWORD dwFeatures);
void FillPixelKernelsX86(tag_KERNELTABLE& table, DWORD dwFeatures);
#endif
