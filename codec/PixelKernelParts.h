// What the plain and SIMD forms of the pixel kernels share: where a macroblock lies in
// the planes, and the colour tables with the conversion of single pixels. Included by
// the kernel files only; everything here has internal linkage.
#pragma once

#include "codec/CodecTypes.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace {

struct tag_MBPLANES {
    BYTE* pbyY;
    BYTE* pbyU;
    BYTE* pbyV;
    int nLumaStride;
    int nChromaStride;
};

inline tag_MBPLANES LocateMB(int nCol, int nRow, const IMAGE& img, int nWidth)
{
    const int nChromaStride = nWidth / 2;
    return {img.Y + static_cast<std::ptrdiff_t>(MB_LUMA_SIZE) * nRow * nWidth + MB_LUMA_SIZE * nCol,
            img.U + static_cast<std::ptrdiff_t>(MB_CHROMA_SIZE) * nRow * nChromaStride + MB_CHROMA_SIZE * nCol,
            img.V + static_cast<std::ptrdiff_t>(MB_CHROMA_SIZE) * nRow * nChromaStride + MB_CHROMA_SIZE * nCol,
            nWidth, nChromaStride};
}

// Colour tables: TB and TR are the rounded blue and red offsets of U and V, TG the green
// contribution of either chroma value in 16.16 fixed point. The chroma zero point lies
// between 127 and 128, so no TB or TR entry is 0.
constexpr double kBlueFromU = 1.772;
constexpr double kRedFromV = 1.402;
constexpr double kChromaCentre = 127.5;
constexpr int kGreenWeight = 22554;
constexpr int kGreenZero = 128;
constexpr int kGreenOffset = 21491;

constexpr int RoundHalfAway(double v)
{
    return v >= 0 ? static_cast<int>(v + 0.5) : -static_cast<int>(-v + 0.5);
}

constexpr std::array<int, 256> BuildChromaTable(double dWeight)
{
    std::array<int, 256> table{};
    for (int i = 0; i < 256; ++i)
        table[i] = RoundHalfAway(dWeight * (i - kChromaCentre));
    return table;
}

constexpr std::array<int, 256> BuildGreenTable()
{
    std::array<int, 256> table{};
    for (int i = 0; i < 256; ++i)
        table[i] = kGreenWeight * (kGreenZero - i) + kGreenOffset;
    return table;
}

constexpr std::array<int, 256> kTableB = BuildChromaTable(kBlueFromU);
constexpr std::array<int, 256> kTableR = BuildChromaTable(kRedFromV);
constexpr std::array<int, 256> kTableG = BuildGreenTable();
static_assert(kTableB[0] == -226 && kTableB[255] == 226 && kTableR[0] == -179 && kTableR[255] == 179);

inline BYTE ClipByte(int v)
{
    return static_cast<BYTE>(std::clamp(v, 0, 255));
}

inline void ConvertPixels(BYTE* pbyDst, const BYTE* pbyY, const BYTE* pbyU, const BYTE* pbyV, int nFrom, int nTo)
{
    for (int x = nFrom; x < nTo; ++x) {
        const int nY = pbyY[x];
        const int nU = pbyU[x / 2];
        const int nV = pbyV[x / 2];
        BYTE* pbyPixel = pbyDst + 3 * static_cast<std::ptrdiff_t>(x);
        pbyPixel[0] = ClipByte(nY + kTableB[nU]);
        pbyPixel[1] = ClipByte(nY + ((kTableG[nU] + kTableG[nV]) >> 16));
        pbyPixel[2] = ClipByte(nY + kTableR[nV]);
    }
}

struct tag_ROWPOINTERS {
    BYTE* pbyDst;
    const BYTE* pbyY;
    const BYTE* pbyU;
    const BYTE* pbyV;
};

inline tag_ROWPOINTERS RowOf(BYTE* pbyDst, const IMAGE& img, int nWidth, int nRow)
{
    const std::ptrdiff_t nChroma = static_cast<std::ptrdiff_t>(nRow / 2) * (nWidth / 2);
    return {pbyDst + static_cast<std::ptrdiff_t>(nRow) * nWidth * 3,
            img.Y + static_cast<std::ptrdiff_t>(nRow) * nWidth, img.U + nChroma, img.V + nChroma};
}

} // namespace
