// The 8x8 transforms and the quantiser in their plain forms: the scalar transforms on
// 32-bit integers that wrap, the portable emulation of the SIMD form's 16-bit lanes, and
// the plain quantiser loops. The faster forms stand in TransformKernelsSSE2.cpp and
// TransformKernelsAVX2.cpp; the kernel table chooses.
#include "codec/TransformKernels.h"

#include "codec/KernelTable.h"
#include "codec/PixelKernelParts.h"
#include "codec/TransformKernelParts.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace {

// ---- Scalar transforms ------------------------------------------------------------

// Products and sums below are exact in 64 bits; reducing to 32 bits just before each
// shift gives the same bits as 32-bit arithmetic that wraps at every step.
int Wrap32(Wide v)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(v));
}

int R17(Wide v)
{
    return Wrap32(v + 65536) >> 17;
}

int R14(Wide v)
{
    return Wrap32(v + 8192) >> 14;
}

short Store16(int v)
{
    return static_cast<short>(v);
}

// cos(k * pi / 16) in fixed point: 16 fractional bits for the even part (C4, C2, C6),
// 14 for the odd part's rotations (C1, C7, C3, C5).
constexpr Wide kC4 = 46341;
constexpr Wide kC2 = 60547;
constexpr Wide kC6 = 25080;
constexpr Wide kC1 = 16069;
constexpr Wide kC7 = 3196;
constexpr Wide kC3 = 13623;
constexpr Wide kC5 = 9102;

// ---- Portable emulation of the SIMD form's lanes ------------------------------------

short Saturate16(int v)
{
    return static_cast<short>(std::clamp(v, -32768, 32767));
}

// Eight 16-bit lanes computed one at a time; each operation is the integer operation of
// its SSE2 counterpart. The operations stay calls: inlined, a pass of them grows beyond
// what the compiler's debug information for sanitized builds handles in reasonable time.
struct CPortableLanes {
    static constexpr int kBlocks = 1;

    struct tag_V16 {
        short n[kLanes];
    };
    struct tag_V32 {
        std::int32_t n[kLanes];
    };

    [[gnu::noinline]] static tag_V16 LoadRow(short* const* ppsBlocks, int nRow)
    {
        tag_V16 v;
        std::memcpy(v.n, ppsBlocks[0] + BLOCK_SIZE * nRow, sizeof v.n);
        return v;
    }

    [[gnu::noinline]] static void StoreRow(short* const* ppsBlocks, int nRow, const tag_V16& v)
    {
        std::memcpy(ppsBlocks[0] + BLOCK_SIZE * nRow, v.n, sizeof v.n);
    }

    [[gnu::noinline]] static void Transpose(tag_V16 (&x)[kLanes])
    {
        for (int r = 0; r < kLanes; ++r) {
            for (int c = r + 1; c < kLanes; ++c)
                std::swap(x[r].n[c], x[c].n[r]);
        }
    }

    template <int N>
    [[gnu::noinline]] static tag_V16 ShiftLeft(const tag_V16& a)
    {
        tag_V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = static_cast<short>(static_cast<std::uint16_t>(a.n[k]) << N);
        return v;
    }

    template <int N>
    [[gnu::noinline]] static tag_V16 ShiftRight(const tag_V16& a)
    {
        tag_V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = static_cast<short>(a.n[k] >> N);
        return v;
    }

    [[gnu::noinline]] static tag_V16 AddSat(const tag_V16& a, const tag_V16& b)
    {
        tag_V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Saturate16(a.n[k] + b.n[k]);
        return v;
    }

    [[gnu::noinline]] static tag_V16 AddSat(const tag_V16& a, short nConst)
    {
        tag_V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Saturate16(a.n[k] + nConst);
        return v;
    }

    [[gnu::noinline]] static tag_V16 SubSat(const tag_V16& a, const tag_V16& b)
    {
        tag_V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Saturate16(a.n[k] - b.n[k]);
        return v;
    }

    [[gnu::noinline]] static tag_V16 ClearLowBits2(const tag_V16& a)
    {
        tag_V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = static_cast<short>(a.n[k] & ~3);
        return v;
    }

    [[gnu::noinline]] static tag_V16 MulHigh(const tag_V16& a, short nConst)
    {
        tag_V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = static_cast<short>((a.n[k] * nConst) >> 16);
        return v;
    }

    // a * nA + b * nB per lane, in 32 bits.
    [[gnu::noinline]] static tag_V32 MulAdd(const tag_V16& a, const tag_V16& b, short nA, short nB)
    {
        tag_V32 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Wrap32(Wide{a.n[k]} * nA + Wide{b.n[k]} * nB);
        return v;
    }

    [[gnu::noinline]] static tag_V32 Add32(const tag_V32& a, const tag_V32& b)
    {
        tag_V32 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Wrap32(Wide{a.n[k]} + b.n[k]);
        return v;
    }

    [[gnu::noinline]] static tag_V32 Sub32(const tag_V32& a, const tag_V32& b)
    {
        tag_V32 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Wrap32(Wide{a.n[k]} - b.n[k]);
        return v;
    }

    // sat(v >> 16): the high half of a 32-bit sum, no rounding.
    [[gnu::noinline]] static tag_V16 Narrow(const tag_V32& a)
    {
        tag_V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Saturate16(a.n[k] >> 16);
        return v;
    }
};

void FDCTMMXPlain(short* const* ppsBlocks, int nBlocks)
{
    TransformBlocks<CPortableLanes, FDCTLanes<CPortableLanes>>(ppsBlocks, nBlocks);
}

void IDCTMMXPlain(short* const* ppsBlocks, int nBlocks)
{
    TransformBlocks<CPortableLanes, IDCTLanes<CPortableLanes>>(ppsBlocks, nBlocks);
}

std::uint64_t NonZeroMaskPlain(const short* psBlock)
{
    std::uint64_t qwMask = 0;
    for (int n = 0; n < BLOCK_SAMPLES; ++n)
        qwMask |= static_cast<std::uint64_t>(psBlock[n] != 0) << n;
    return qwMask;
}

// A macroblock's levels in scan order from its transform: each block in natural order
// through the forward transform and the quantiser, then reordered.
void QuantMBWith(void (*pfnForward)(short* const*, int), short* psLevel, const YUV_Block* pMB, int nQp,
                 int nMode)
{
    const tag_KERNELTABLE& kernels = GetKernelTable();
    for (int b = 0; b < MB_BLOCKS; ++b) {
        short block[BLOCK_SAMPLES];
        short* psBlock = block;
        CopyBlockFromMB(pMB, b, block);
        pfnForward(&psBlock, 1);
        kernels.pfnQuantBlock(block, block, nQp, nMode);
        NaturalToScan(block, psLevel + BLOCK_SAMPLES * b);
    }
}

void DequantMBWith(void (*pfnInverse)(short* const*, int), const short* psLevel, YUV_Block* pMB, int nQp,
                   int nMode)
{
    const tag_KERNELTABLE& kernels = GetKernelTable();
    for (int b = 0; b < MB_BLOCKS; ++b) {
        short block[BLOCK_SAMPLES];
        short* psBlock = block;
        ScanToNatural(psLevel + BLOCK_SAMPLES * b, block);
        kernels.pfnDequantBlock(block, block, nQp, nMode);
        pfnInverse(&psBlock, 1);
        CopyBlockToMB(block, b, pMB);
    }
}

void FDCTMMXOfTable(short* const* ppsBlocks, int nBlocks)
{
    GetKernelTable().pfnFDCTMMX(ppsBlocks, nBlocks);
}

void IDCTMMXOfTable(short* const* ppsBlocks, int nBlocks)
{
    GetKernelTable().pfnIDCTMMX(ppsBlocks, nBlocks);
}

} // namespace

void FDCT1D(short* psData, int nStride)
{
    short* const p = psData;
    const int x0 = p[0], x1 = p[nStride], x2 = p[2 * nStride], x3 = p[3 * nStride];
    const int x4 = p[4 * nStride], x5 = p[5 * nStride], x6 = p[6 * nStride], x7 = p[7 * nStride];

    const Wide s07 = x0 + x7, s16 = x1 + x6, s25 = x2 + x5, s34 = x3 + x4;
    const Wide d16 = x1 - x6, d25 = x2 - x5;

    const Wide a = s16 + s25, b = s16 - s25, c = s07 + s34, d = s07 - s34;
    p[0] = Store16(R17((c + a) * kC4));
    p[4 * nStride] = Store16(R17((c - a) * kC4));
    p[2 * nStride] = Store16(R17(d * kC2 + b * kC6));
    p[6 * nStride] = Store16(R17(d * kC6 - b * kC2));

    const Wide e = R14((d16 + d25) * kC4);
    const Wide f = R14((d16 - d25) * kC4);
    const Wide g = 4 * (x0 - x7);
    const Wide h = 4 * (x3 - x4);
    const Wide i = h + f, j = h - f, k = g + e, l = g - e;
    p[1 * nStride] = Store16(R17(k * kC1 + i * kC7));
    p[7 * nStride] = Store16(R17(k * kC7 - i * kC1));
    p[5 * nStride] = Store16(R17(j * kC3 + l * kC5));
    p[3 * nStride] = Store16(R17(l * kC3 - j * kC5));
}

void IDCT1D(short* psData, int nStride)
{
    short* const p = psData;
    const Wide x0 = p[0], x1 = p[nStride], x2 = p[2 * nStride], x3 = p[3 * nStride];
    const Wide x4 = p[4 * nStride], x5 = p[5 * nStride], x6 = p[6 * nStride], x7 = p[7 * nStride];

    const Wide e0 = (x0 + x4) * kC4, e1 = (x0 - x4) * kC4;
    const Wide pEven = x2 * kC2 + x6 * kC6, nEven = x2 * kC6 - x6 * kC2;
    const Wide a0 = e0 + pEven, a3 = e0 - pEven, a1 = e1 + nEven, a2 = e1 - nEven;

    const Wide t = R14((x3 + x5) * kC4), u = R14((x3 - x5) * kC4);
    const Wide k = 4 * x1 + t, l = 4 * x1 - t, i = 4 * x7 + u, j = 4 * x7 - u;
    const Wide b0 = k * kC1 + i * kC7, b3 = k * kC7 - i * kC1;
    const Wide b2 = j * kC3 + l * kC5, b1 = l * kC3 - j * kC5;

    p[0] = Store16(R17(a0 + b0));
    p[7 * nStride] = Store16(R17(a0 - b0));
    p[1 * nStride] = Store16(R17(a1 + b1));
    p[6 * nStride] = Store16(R17(a1 - b1));
    p[2 * nStride] = Store16(R17(a2 + b2));
    p[5 * nStride] = Store16(R17(a2 - b2));
    p[3 * nStride] = Store16(R17(a3 + b3));
    p[4 * nStride] = Store16(R17(a3 - b3));
}

void FDCTNatural(short* const* ppsBlocks, int nBlocks)
{
    for (int b = 0; b < nBlocks; ++b) {
        for (int r = 0; r < BLOCK_SIZE; ++r)
            FDCT1D(ppsBlocks[b] + BLOCK_SIZE * r, 1);
        for (int c = 0; c < BLOCK_SIZE; ++c)
            FDCT1D(ppsBlocks[b] + c, BLOCK_SIZE);
    }
}

void IDCTNatural(short* const* ppsBlocks, int nBlocks)
{
    for (int b = 0; b < nBlocks; ++b) {
        for (int r = 0; r < BLOCK_SIZE; ++r)
            IDCT1D(ppsBlocks[b] + BLOCK_SIZE * r, 1);
        for (int c = 0; c < BLOCK_SIZE; ++c)
            IDCT1D(ppsBlocks[b] + c, BLOCK_SIZE);
    }
}

void FDCTBlock(short* psBlock, short* psCoeff)
{
    FDCTNatural(&psBlock, 1);
    NaturalToScan(psBlock, psCoeff);
}

void IDCTBlock(const short* psCoeff, short* psBlock)
{
    ScanToNatural(psCoeff, psBlock);
    IDCTNatural(&psBlock, 1);
}

void FDCTBlockMMX(short* psBlock, short* psCoeff)
{
    GetKernelTable().pfnFDCTMMX(&psBlock, 1);
    NaturalToScan(psBlock, psCoeff);
}

void IDCTBlockMMX(const short* psCoeff, short* psBlock)
{
    ScanToNatural(psCoeff, psBlock);
    GetKernelTable().pfnIDCTMMX(&psBlock, 1);
}

void QuantBlock(const short* psCoeff, short* psLevel, int nQp, int nMode)
{
    GetKernelTable().pfnQuantBlock(psCoeff, psLevel, nQp, nMode);
}

void DequantBlock(const short* psLevel, short* psCoeff, int nQp, int nMode)
{
    GetKernelTable().pfnDequantBlock(psLevel, psCoeff, nQp, nMode);
}

void QuantMB(short* psLevel, const YUV_Block* pMB, int nQp, int nMode)
{
    QuantMBWith(FDCTNatural, psLevel, pMB, nQp, nMode);
}

void QuantMBwithMMX(short* psLevel, const YUV_Block* pMB, int nQp, int nMode)
{
    QuantMBWith(FDCTMMXOfTable, psLevel, pMB, nQp, nMode);
}

void DequantMB(const short* psLevel, YUV_Block* pMB, int nQp, int nMode)
{
    DequantMBWith(IDCTNatural, psLevel, pMB, nQp, nMode);
}

void DequantMBwithMMX(const short* psLevel, YUV_Block* pMB, int nQp, int nMode)
{
    DequantMBWith(IDCTMMXOfTable, psLevel, pMB, nQp, nMode);
}

void FillTransformKernels(tag_KERNELTABLE& table)
{
    table.pfnFDCTMMX = FDCTMMXPlain;
    table.pfnIDCTMMX = IDCTMMXPlain;
    table.pfnQuantBlock = QuantBlockPlain;
    table.pfnDequantBlock = DequantBlockPlain;
    table.pfnNonZeroMask = NonZeroMaskPlain;
}
