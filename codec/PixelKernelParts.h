// What the forms of the pixel kernels share: where a macroblock and its blocks lie in the
// planes, the blocks of a YUV_Block, and the colour tables with the conversion of single
// pixels. Included by
// the kernel files only; everything here has internal linkage.
#pragma once

#include "platform/PrivateHeader.h"

#include "codec/CodecTypes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

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

// Where block b of the macroblock at (nCol, nRow) starts, and its stride: luma blocks
// at row 8 * (b / 2) and column 8 * (b % 2) of the macroblock, block 4 in U, block 5 in V.
struct tag_BLOCKPLACE {
    BYTE* pby;
    int nStride;
};

inline tag_BLOCKPLACE LocateBlock(const tag_MBPLANES& planes, int nBlock)
{
    if (nBlock >= 4)
        return {nBlock == 4 ? planes.pbyU : planes.pbyV, planes.nChromaStride};
    return {planes.pbyY + static_cast<std::ptrdiff_t>(BLOCK_SIZE) * (nBlock / 2) * planes.nLumaStride +
                BLOCK_SIZE * (nBlock % 2),
            planes.nLumaStride};
}

// The natural-order 8x8 block b of a macroblock: luma blocks at row 8 * (b / 2) and
// column 8 * (b % 2) of Y, block 4 is U, block 5 is V.
inline void CopyBlockFromMB(const YUV_Block* pMB, int nBlock, short* psBlock)
{
    if (nBlock >= 4) {
        std::memcpy(psBlock, nBlock == 4 ? pMB->U : pMB->V, BLOCK_SAMPLES * sizeof(short));
        return;
    }
    const short* psSource = pMB->Y + MB_LUMA_SIZE * BLOCK_SIZE * (nBlock / 2) + BLOCK_SIZE * (nBlock % 2);
    for (int r = 0; r < BLOCK_SIZE; ++r)
        std::memcpy(psBlock + BLOCK_SIZE * r, psSource + MB_LUMA_SIZE * r, BLOCK_SIZE * sizeof(short));
}

inline void CopyBlockToMB(const short* psBlock, int nBlock, YUV_Block* pMB)
{
    if (nBlock >= 4) {
        std::memcpy(nBlock == 4 ? pMB->U : pMB->V, psBlock, BLOCK_SAMPLES * sizeof(short));
        return;
    }
    short* psTarget = pMB->Y + MB_LUMA_SIZE * BLOCK_SIZE * (nBlock / 2) + BLOCK_SIZE * (nBlock % 2);
    for (int r = 0; r < BLOCK_SIZE; ++r)
        std::memcpy(psTarget + MB_LUMA_SIZE * r, psBlock + BLOCK_SIZE * r, BLOCK_SIZE * sizeof(short));
}

// Pixels nFrom to nTo - 1 of two rows of a packed frame (U, Y, V, Y) into planes: the Y of
// each row, and for each pixel pair the truncating mean of the two rows' U and of their V.
inline void ConvertPixelPairs(const BYTE* pbyA, const BYTE* pbyB, BYTE* pbyYA, BYTE* pbyYB, BYTE* pbyU, BYTE* pbyV,
                              int nFrom, int nTo)
{
    for (int x = nFrom; x < nTo; x += 2) {
        pbyYA[x] = pbyA[2 * x + 1];
        pbyYA[x + 1] = pbyA[2 * x + 3];
        pbyYB[x] = pbyB[2 * x + 1];
        pbyYB[x + 1] = pbyB[2 * x + 3];
        pbyU[x / 2] = static_cast<BYTE>((pbyA[2 * x] + pbyB[2 * x]) >> 1);
        pbyV[x / 2] = static_cast<BYTE>((pbyA[2 * x + 2] + pbyB[2 * x + 2]) >> 1);
    }
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

// The colour tables as arithmetic on u = U - 128: (m * u + o) >> 13 reproduces TB and TR
// for all 256 values, and 22554 * (256 - U - V) + 2 * 21491 is TG[U] + TG[V].
constexpr int kColourShift = 13;
constexpr short kBlueScale = 14516;
constexpr short kBlueOffset = 11344;
constexpr short kRedScale = 11485;
constexpr short kRedOffset = 9812;

constexpr bool MatchesTable(const std::array<int, 256>& table, int nScale, int nOffset)
{
    for (int i = 0; i < 256; ++i) {
        if (((nScale * (i - 128) + nOffset) >> kColourShift) != table[i])
            return false;
    }
    return true;
}
static_assert(MatchesTable(kTableB, kBlueScale, kBlueOffset));
static_assert(MatchesTable(kTableR, kRedScale, kRedOffset));

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
