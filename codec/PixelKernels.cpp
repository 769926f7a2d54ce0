// Macroblock loads, stores and arithmetic, and the colour conversions, in their plain
// forms. The kernels of the table have faster forms in PixelKernelsSSE2.cpp and
// PixelKernelsAVX2.cpp; their plain forms here follow the macroblock operations step by
// step and are the reference of the others.
#include "codec/PixelKernels.h"

#include "codec/KernelTable.h"
#include "codec/PixelKernelParts.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

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

void YUVToRGB24Plain(BYTE* pbyDst, const IMAGE& img, int nWidth, int nHeight)
{
    for (int y = 0; y < nHeight; ++y) {
        const tag_ROWPOINTERS row = RowOf(pbyDst, img, nWidth, y);
        ConvertPixels(row.pbyDst, row.pbyY, row.pbyU, row.pbyV, 0, nWidth);
    }
}

int SADLumaPlain(const BYTE* pbyFirst, const BYTE* pbySecond, int nStride)
{
    int nSum = 0;
    for (int r = 0; r < MB_LUMA_SIZE; ++r) {
        for (int c = 0; c < MB_LUMA_SIZE; ++c)
            nSum += std::abs(pbyFirst[r * nStride + c] - pbySecond[r * nStride + c]);
    }
    return nSum;
}

void UYVYToYUV420Plain(const BYTE* pbyFrame, const IMAGE& img, int nWidth, int nHeight)
{
    const std::ptrdiff_t nRowBytes = 2 * static_cast<std::ptrdiff_t>(nWidth);
    for (int r = 0; r < nHeight / 2; ++r) {
        const BYTE* pbyA = pbyFrame + 2 * r * nRowBytes;
        BYTE* pbyYA = img.Y + static_cast<std::ptrdiff_t>(2 * r) * nWidth;
        const std::ptrdiff_t nChroma = static_cast<std::ptrdiff_t>(r) * (nWidth / 2);
        ConvertPixelPairs(pbyA, pbyA + nRowBytes, pbyYA, pbyYA + nWidth, img.U + nChroma, img.V + nChroma, 0, nWidth);
    }
}

// The blocks of the macroblock in the planes, as GetMB loads it.
void LoadMBPlain(const IMAGE& img, int nCol, int nRow, int nWidth, short* psBlocks)
{
    YUV_Block mb;
    GetMB(nCol, nRow, img, nWidth, &mb);
    for (int b = 0; b < MB_BLOCKS; ++b)
        CopyBlockFromMB(&mb, b, psBlocks + BLOCK_SAMPLES * b);
}

// GetMB of both, then SubMB.
void LoadDifferenceMBPlain(const IMAGE& img, const IMAGE& imgReference, int nCol, int nRow, int nWidth,
                           short* psBlocks)
{
    YUV_Block mb;
    YUV_Block reference;
    GetMB(nCol, nRow, img, nWidth, &mb);
    GetMB(nCol, nRow, imgReference, nWidth, &reference);
    SubMB(&mb, &reference);
    for (int b = 0; b < MB_BLOCKS; ++b)
        CopyBlockFromMB(&mb, b, psBlocks + BLOCK_SAMPLES * b);
}

// ClipMB, then PutMB.
void StoreMBPlain(const short* psBlocks, const IMAGE& img, int nCol, int nRow, int nWidth)
{
    YUV_Block mb;
    for (int b = 0; b < MB_BLOCKS; ++b)
        CopyBlockToMB(psBlocks + BLOCK_SAMPLES * b, b, &mb);
    ClipMB(&mb);
    PutMB(nCol, nRow, img, nWidth, &mb);
}

// A block outside the pattern is a difference of zeros, so AddMB leaves the reference
// there; then ClipMB and PutMB into the target.
void StoreSumMBPlain(const short* psBlocks, int nPattern, const IMAGE& imgReference, const IMAGE& imgTarget, int nCol,
                     int nRow, int nWidth)
{
    YUV_Block difference;
    const short zeros[BLOCK_SAMPLES] = {};
    for (int b = 0; b < MB_BLOCKS; ++b) {
        const bool bCoded = (nPattern & (1 << (MB_BLOCKS - 1 - b))) != 0;
        CopyBlockToMB(bCoded ? psBlocks + BLOCK_SAMPLES * b : zeros, b, &difference);
    }
    YUV_Block reference;
    GetMB(nCol, nRow, imgReference, nWidth, &reference);
    AddMB(&difference, &reference);
    ClipMB(&difference);
    PutMB(nCol, nRow, imgTarget, nWidth, &difference);
}

} // namespace

void GetMB(int nCol, int nRow, const IMAGE& img, int nWidth, YUV_Block* pMB)
{
    GatherMB(LocateMB(nCol, nRow, img, nWidth), pMB->Y, pMB->U, pMB->V);
}

void PutMB(int nCol, int nRow, const IMAGE& img, int nWidth, const YUV_Block* pMB)
{
    ScatterMB(LocateMB(nCol, nRow, img, nWidth), pMB->Y, pMB->U, pMB->V);
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
    int nSum = 0;
    for (int n = 0; n < MB_LUMA_SAMPLES; ++n)
        nSum += std::abs(pFirst->Y[n] - pSecond->Y[n]);
    return nSum;
}

// The luma of a byte-sample macroblock is 16 rows of 16 bytes.
int SADMBBytes(const BYTE* pbyFirst, const BYTE* pbySecond)
{
    return GetKernelTable().pfnSADLuma(pbyFirst, pbySecond, MB_LUMA_SIZE);
}

void UYVYToYUV420(const BYTE* pbyFrame, const IMAGE& img, int nWidth, int nHeight)
{
    GetKernelTable().pfnUYVYToYUV420(pbyFrame, img, nWidth, nHeight);
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

// The SIMD form of the transforms runs on every processor: in SIMD code where the
// processor has it, which every x86-64 processor does, and elsewhere in its portable
// emulation, which gives the same bits. So every machine takes it, and a recording
// decodes to the same pictures wherever it was made or is played.
BOOL HasMMX()
{
    return TRUE;
}

void FillPixelKernels(tag_KERNELTABLE& table)
{
    table.pfnLoadMB = LoadMBPlain;
    table.pfnLoadDifferenceMB = LoadDifferenceMBPlain;
    table.pfnStoreMB = StoreMBPlain;
    table.pfnStoreSumMB = StoreSumMBPlain;
    table.pfnSADLuma = SADLumaPlain;
    table.pfnUYVYToYUV420 = UYVYToYUV420Plain;
    table.pfnYUVToRGB24 = YUVToRGB24Plain;
}
