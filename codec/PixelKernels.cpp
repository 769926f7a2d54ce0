// Macroblock loads, stores and arithmetic, colour conversions and the processor probes,
// in their plain forms. Where hand-written SIMD beats what the compiler makes of the
// plain loop, a faster form stands in PixelKernelsX86.cpp and the kernel table chooses;
// the other kernels are plain loops that the compiler vectorises.
#include "codec/PixelKernels.h"

#include "codec/KernelTable.h"
#include "codec/PixelKernelParts.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace {

// ---- Plain forms ----------------------------------------------------------------

// Applies fn(first value, second value) to the 384 values of two macroblocks, plane by
// plane.
template <class Fn>
void ForEachPlane(YUV_Block* pFirst, const YUV_Block* pSecond, Fn fn)
{
    for (int n = 0; n < MB_LUMA_SAMPLES; ++n)
        fn(pFirst->Y[n], pSecond->Y[n]);
    for (int n = 0; n < MB_CHROMA_SAMPLES; ++n)
        fn(pFirst->U[n], pSecond->U[n]);
    for (int n = 0; n < MB_CHROMA_SAMPLES; ++n)
        fn(pFirst->V[n], pSecond->V[n]);
}

template <class T>
void GatherMB(const tag_MBPLANES& planes, T* pY, T* pU, T* pV)
{
    for (int r = 0; r < MB_LUMA_SIZE; ++r) {
        const BYTE* pbySource = planes.pbyY + static_cast<std::ptrdiff_t>(r) * planes.nLumaStride;
        for (int c = 0; c < MB_LUMA_SIZE; ++c)
            pY[MB_LUMA_SIZE * r + c] = static_cast<T>(pbySource[c]);
    }
    for (int r = 0; r < MB_CHROMA_SIZE; ++r) {
        const std::ptrdiff_t nOffset = static_cast<std::ptrdiff_t>(r) * planes.nChromaStride;
        for (int c = 0; c < MB_CHROMA_SIZE; ++c) {
            pU[MB_CHROMA_SIZE * r + c] = static_cast<T>(planes.pbyU[nOffset + c]);
            pV[MB_CHROMA_SIZE * r + c] = static_cast<T>(planes.pbyV[nOffset + c]);
        }
    }
}

template <class T>
void ScatterMB(const tag_MBPLANES& planes, const T* pY, const T* pU, const T* pV)
{
    for (int r = 0; r < MB_LUMA_SIZE; ++r) {
        BYTE* pbyTarget = planes.pbyY + static_cast<std::ptrdiff_t>(r) * planes.nLumaStride;
        for (int c = 0; c < MB_LUMA_SIZE; ++c)
            pbyTarget[c] = static_cast<BYTE>(pY[MB_LUMA_SIZE * r + c]);
    }
    for (int r = 0; r < MB_CHROMA_SIZE; ++r) {
        const std::ptrdiff_t nOffset = static_cast<std::ptrdiff_t>(r) * planes.nChromaStride;
        for (int c = 0; c < MB_CHROMA_SIZE; ++c) {
            planes.pbyU[nOffset + c] = static_cast<BYTE>(pU[MB_CHROMA_SIZE * r + c]);
            planes.pbyV[nOffset + c] = static_cast<BYTE>(pV[MB_CHROMA_SIZE * r + c]);
        }
    }
}

int SADMBPlain(const YUV_Block* pFirst, const YUV_Block* pSecond)
{
    int nSum = 0;
    for (int n = 0; n < MB_LUMA_SAMPLES; ++n)
        nSum += std::abs(pFirst->Y[n] - pSecond->Y[n]);
    return nSum;
}

void YUVToRGB24Plain(BYTE* pbyDst, const IMAGE& img, int nWidth, int nHeight)
{
    for (int y = 0; y < nHeight; ++y) {
        const tag_ROWPOINTERS row = RowOf(pbyDst, img, nWidth, y);
        ConvertPixels(row.pbyDst, row.pbyY, row.pbyU, row.pbyV, 0, nWidth);
    }
}

void PutMBPlain(int nCol, int nRow, const IMAGE& img, int nWidth, const YUV_Block* pMB)
{
    ScatterMB(LocateMB(nCol, nRow, img, nWidth), pMB->Y, pMB->U, pMB->V);
}

// ---- Processor probes ---------------------------------------------------------------

constexpr unsigned kAlignmentCheckFlag = 18;
constexpr unsigned kIdFlag = 21;
constexpr unsigned kMMXFeatureBit = 23;
constexpr unsigned kExtendedMMXFeatureBit = 31;
constexpr unsigned kExtendedLeafBase = 0x80000000u;

#if defined(__x86_64__) || defined(__i386__)

#if defined(__x86_64__)
using Flags = unsigned long long;
// Steps over the red zone below the stack pointer, where the compiler may keep values
// that the pushes of the probe would overwrite.
#define ZNDVR_ENTER_PROBE_STACK "add $-128, %%rsp\n\t"
#define ZNDVR_LEAVE_PROBE_STACK "sub $-128, %%rsp\n\t"
#else
using Flags = unsigned int;
#define ZNDVR_ENTER_PROBE_STACK ""
#define ZNDVR_LEAVE_PROBE_STACK ""
#endif

// Whether a bit of the processor flags can be changed. The toggled flags are read back
// and the original restored within one instruction sequence: with the alignment-check
// bit set, any unaligned access the compiler placed in between would trap.
bool CanToggleFlag(unsigned nBit)
{
    const Flags mask = Flags{1} << nBit;
    Flags original;
    Flags toggled;
    __asm__ volatile(ZNDVR_ENTER_PROBE_STACK
                     "pushf\n\t"
                     "pop %0\n\t"
                     "mov %0, %1\n\t"
                     "xor %2, %1\n\t"
                     "push %1\n\t"
                     "popf\n\t"
                     "pushf\n\t"
                     "pop %1\n\t"
                     "push %0\n\t"
                     "popf\n\t" ZNDVR_LEAVE_PROBE_STACK
                     : "=&r"(original), "=&r"(toggled)
                     : "r"(mask)
                     : "cc", "memory");
    return ((original ^ toggled) & mask) != 0;
}

#undef ZNDVR_ENTER_PROBE_STACK
#undef ZNDVR_LEAVE_PROBE_STACK

#endif

} // namespace

void GetMB(int nCol, int nRow, const IMAGE& img, int nWidth, YUV_Block* pMB)
{
    GatherMB(LocateMB(nCol, nRow, img, nWidth), pMB->Y, pMB->U, pMB->V);
}

void PutMB(int nCol, int nRow, const IMAGE& img, int nWidth, const YUV_Block* pMB)
{
    GetKernelTable().pfnPutMB(nCol, nRow, img, nWidth, pMB);
}

void GetMBBytes(int nCol, int nRow, const IMAGE& img, int nWidth, BYTE* pbyMB)
{
    GatherMB(LocateMB(nCol, nRow, img, nWidth), pbyMB, pbyMB + MB_LUMA_SAMPLES,
             pbyMB + MB_LUMA_SAMPLES + MB_CHROMA_SAMPLES);
}

void PutMBBytes(int nCol, int nRow, const IMAGE& img, int nWidth, const BYTE* pbyMB)
{
    ScatterMB(LocateMB(nCol, nRow, img, nWidth), pbyMB, pbyMB + MB_LUMA_SAMPLES,
              pbyMB + MB_LUMA_SAMPLES + MB_CHROMA_SAMPLES);
}

void ClipMB(YUV_Block* pMB)
{
    ForEachPlane(pMB, pMB, [](short& nValue, short) { nValue = static_cast<short>(std::clamp<int>(nValue, 0, 255)); });
}

void SubMB(YUV_Block* pFirst, const YUV_Block* pSecond)
{
    ForEachPlane(pFirst, pSecond, [](short& nFirst, short nSecond) { nFirst = static_cast<short>(nFirst - nSecond); });
}

void AddMB(YUV_Block* pFirst, const YUV_Block* pSecond)
{
    ForEachPlane(pFirst, pSecond, [](short& nFirst, short nSecond) { nFirst = static_cast<short>(nFirst + nSecond); });
}

int SADMB(const YUV_Block* pFirst, const YUV_Block* pSecond)
{
    return GetKernelTable().pfnSADMB(pFirst, pSecond);
}

int SADMBBytes(const BYTE* pbyFirst, const BYTE* pbySecond)
{
    int nSum = 0;
    for (int n = 0; n < MB_LUMA_SAMPLES; ++n)
        nSum += std::abs(pbyFirst[n] - pbySecond[n]);
    return nSum;
}

void UYVYToYUV420(const BYTE* pbyFrame, const IMAGE& img, int nWidth, int nHeight)
{
    const std::ptrdiff_t nRowBytes = 2 * static_cast<std::ptrdiff_t>(nWidth);
    const std::ptrdiff_t nSamples = static_cast<std::ptrdiff_t>(nWidth) * nHeight;
    for (std::ptrdiff_t i = 0; i < nSamples; ++i)
        img.Y[i] = pbyFrame[2 * i + 1];
    const int nChromaWidth = nWidth / 2;
    for (int r = 0; r < nHeight / 2; ++r) {
        const BYTE* pbyA = pbyFrame + 2 * r * nRowBytes;
        const BYTE* pbyB = pbyA + nRowBytes;
        BYTE* pbyU = img.U + static_cast<std::ptrdiff_t>(r) * nChromaWidth;
        BYTE* pbyV = img.V + static_cast<std::ptrdiff_t>(r) * nChromaWidth;
        for (int c = 0; c < nChromaWidth; ++c) {
            pbyU[c] = static_cast<BYTE>((pbyA[4 * c] + pbyB[4 * c]) >> 1);
            pbyV[c] = static_cast<BYTE>((pbyA[4 * c + 2] + pbyB[4 * c + 2]) >> 1);
        }
    }
}

namespace {

void ReducePlane(const BYTE* pbySource, BYTE* pbyTarget, int nSrcWidth, int nSrcHeight, int nDstWidth)
{
    for (int r = 0; r < nSrcHeight / 2; ++r) {
        const BYTE* pbyA = pbySource + static_cast<std::ptrdiff_t>(2 * r) * nSrcWidth;
        const BYTE* pbyB = pbyA + nSrcWidth;
        BYTE* pbyOut = pbyTarget + static_cast<std::ptrdiff_t>(r) * nDstWidth;
        for (int c = 0; c < nSrcWidth / 2; ++c)
            pbyOut[c] = static_cast<BYTE>((pbyA[2 * c] + pbyA[2 * c + 1] + pbyB[2 * c] + pbyB[2 * c + 1]) >> 2);
    }
}

} // namespace

void ReduceYUV420(const IMAGE& imgSrc, const IMAGE& imgDst, int nSrcWidth, int nSrcHeight, int nDstWidth)
{
    ReducePlane(imgSrc.Y, imgDst.Y, nSrcWidth, nSrcHeight, nDstWidth);
    ReducePlane(imgSrc.U, imgDst.U, nSrcWidth / 2, nSrcHeight / 2, nDstWidth / 2);
    ReducePlane(imgSrc.V, imgDst.V, nSrcWidth / 2, nSrcHeight / 2, nDstWidth / 2);
}

void YUVToRGB24(BYTE* pbyDst, const IMAGE& img, int nWidth, int nHeight)
{
    GetKernelTable().pfnYUVToRGB24(pbyDst, img, nWidth, nHeight);
}

BOOL IsIntelMMX()
{
#if defined(__x86_64__) || defined(__i386__)
    if (!CanToggleFlag(kAlignmentCheckFlag))
        return FALSE;
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(0, &a, &b, &c, &d))
        return FALSE;
    char strVendor[12];
    std::memcpy(strVendor, &b, 4);
    std::memcpy(strVendor + 4, &d, 4);
    std::memcpy(strVendor + 8, &c, 4);
    if (std::memcmp(strVendor, "GenuineIntel", sizeof strVendor) != 0)
        return FALSE;
    if (!__get_cpuid(1, &a, &b, &c, &d))
        return FALSE;
    return (d >> kMMXFeatureBit) & 1 ? TRUE : FALSE;
#else
    return FALSE;
#endif
}

BOOL HasExtendedMMX()
{
#if defined(__x86_64__) || defined(__i386__)
    if (!CanToggleFlag(kIdFlag))
        return FALSE;
    unsigned a = 0, b = 0, c = 0, d = 0;
    __cpuid(kExtendedLeafBase, a, b, c, d);
    if (a <= kExtendedLeafBase)
        return FALSE;
    __cpuid(kExtendedLeafBase + 1, a, b, c, d);
    return (d >> kExtendedMMXFeatureBit) & 1 ? TRUE : FALSE;
#else
    return FALSE;
#endif
}

BOOL HasMMX()
{
    return IsIntelMMX() || HasExtendedMMX() ? TRUE : FALSE;
}

void FillPixelKernels(tag_KERNELTABLE& table, DWORD dwFeatures)
{
    table.pfnPutMB = PutMBPlain;
    table.pfnSADMB = SADMBPlain;
    table.pfnYUVToRGB24 = YUVToRGB24Plain;
#if ZNDVR_KERNELS_X86
    FillPixelKernelsX86(table, dwFeatures);
#else
    static_cast<void>(dwFeatures);
#endif
}
