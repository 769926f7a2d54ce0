// What every form of the transform kernels shares: the signal-flow graphs of the SIMD
// transform form, written once over a lane type L that supplies 16-bit lanes and the
// integer operations on them; the quantiser's rules; the reorderings and macroblock
// helpers. Included by the kernel files only; everything here has internal linkage, so
// that a file may compile it for its own instruction set.
#pragma once

#include "platform/PrivateHeader.h"

#include "codec/BitstreamTables.h"
#include "codec/CodecTypes.h"
#include "codec/TransformKernels.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// ---- Quantiser rules ----------------------------------------------------------------

using Wide = std::int64_t;

inline short ClipLevel(int nLevel)
{
    return static_cast<short>(std::clamp(nLevel, -QUANT_MAX_LEVEL, QUANT_MAX_LEVEL));
}

inline short QuantIntraDC(int nCoeff)
{
    return static_cast<short>(std::clamp(nCoeff >> 3, INTRA_DC_MIN, INTRA_DC_MAX));
}

// Truncating division by 2Q. For 0 < Q < 2^15 it is a multiplication by
// m = floor(2^32 / 2Q) + 1: with the error m * 2Q - 2^32 at most 2Q, any numerator n of
// size below 2^16 has n * error < 2^32, which makes (n * m) >> 32 exactly n / 2Q. Other
// Q, which no picture carries, divide.
class CQuantDivisor {
public:
    explicit CQuantDivisor(int nQp)
        : m_nDivisor(2 * Wide{nQp}),
          m_nMultiplier(nQp > 0 && nQp < kFastLimit ? (std::uint64_t{1} << 32) / m_nDivisor + 1 : 0)
    {
    }

    int Divide(int nNumerator) const
    {
        if (m_nMultiplier == 0)
            return static_cast<int>(nNumerator / m_nDivisor);
        const std::uint64_t nMagnitude = static_cast<std::uint64_t>(std::abs(nNumerator));
        const int nQuotient = static_cast<int>((nMagnitude * m_nMultiplier) >> 32);
        return nNumerator < 0 ? -nQuotient : nQuotient;
    }

private:
    static constexpr int kFastLimit = 1 << 15;

    Wide m_nDivisor;
    std::uint64_t m_nMultiplier;
};

inline short QuantIntraAC(int nCoeff, const CQuantDivisor& divisor)
{
    const int nMagnitude = divisor.Divide(std::abs(nCoeff));
    return ClipLevel(nCoeff < 0 ? -nMagnitude : nMagnitude);
}

// (|c| - Q/2) / 2Q, truncating toward zero, so a negative numerator gives 0.
inline short QuantInter(int nCoeff, int nHalfQp, const CQuantDivisor& divisor)
{
    const int nMagnitude = divisor.Divide(std::abs(nCoeff) - nHalfQp);
    return ClipLevel(nCoeff < 0 ? -nMagnitude : nMagnitude);
}

// The e of the reconstruction rule: 1 for even Q, 0 for odd.
inline int EvenQpCorrection(int nQp)
{
    return nQp % 2 == 0 ? 1 : 0;
}

// sign(L) * (Q * (2|L| + 1) - e); stored to 16 bits without a limit.
inline short DequantLevel(int nLevel, int nQp)
{
    if (nLevel == 0)
        return 0;
    const Wide nMagnitude = Wide{nQp} * (2 * Wide{std::abs(nLevel)} + 1) - EvenQpCorrection(nQp);
    return static_cast<short>(nLevel < 0 ? -nMagnitude : nMagnitude);
}

// The plain quantiser loops, the reference of every faster form.
inline void QuantBlockPlain(const short* psCoeff, short* psLevel, int nQp, int nMode)
{
    if (nQp == 0) {
        std::memmove(psLevel, psCoeff, BLOCK_SAMPLES * sizeof(short));
        return;
    }
    const CQuantDivisor divisor(nQp);
    if (nMode == QUANT_MODE_INTRA) {
        psLevel[0] = QuantIntraDC(psCoeff[0]);
        for (int n = 1; n < BLOCK_SAMPLES; ++n)
            psLevel[n] = QuantIntraAC(psCoeff[n], divisor);
        return;
    }
    for (int n = 0; n < BLOCK_SAMPLES; ++n)
        psLevel[n] = QuantInter(psCoeff[n], nQp / 2, divisor);
}

inline void DequantBlockPlain(const short* psLevel, short* psCoeff, int nQp, int nMode)
{
    if (nQp == 0) {
        std::memmove(psCoeff, psLevel, BLOCK_SAMPLES * sizeof(short));
        return;
    }
    const short nDC = psLevel[0];
    for (int n = 0; n < BLOCK_SAMPLES; ++n)
        psCoeff[n] = DequantLevel(psLevel[n], nQp);
    if (nMode == QUANT_MODE_INTRA)
        psCoeff[0] = static_cast<short>(nDC * INTRA_DC_SCALE);
}

// ---- Transforms in lanes -------------------------------------------------------------

// cos(k * pi / 16) with 15 fractional bits, as 16-bit multipliers.
constexpr short kM4 = 23170;
constexpr short kM2 = 30274;
constexpr short kM6 = 12540;
constexpr short kM1 = 32138;
constexpr short kM7 = 6392;
constexpr short kM3 = 27246;
constexpr short kM5 = 18204;

constexpr int kLanes = 8;

// sat(h + 1) >> 1: the rounded half of a product's high part.
template <class L>
typename L::tag_V16 HalfRounded(const typename L::tag_V16& h)
{
    return L::template ShiftRight<1>(L::AddSat(h, short{1}));
}

// The end of a pass: the first keeps two fractional bits, rounded, for the second pass;
// the second rounds them away.
template <class L, bool FIRST_PASS>
typename L::tag_V16 FinishPass(const typename L::tag_V16& z)
{
    const typename L::tag_V16 rounded = L::AddSat(z, short{2});
    if constexpr (FIRST_PASS)
        return L::ClearLowBits2(rounded);
    else
        return L::template ShiftRight<2>(rounded);
}

// One 8-point inverse pass over the lanes: x[k] holds input k of each lane.
template <class L, int SHIFT_ODD, int SHIFT, bool FIRST_PASS>
void IDCTPassLanes(typename L::tag_V16 (&x)[kLanes])
{
    using V16 = typename L::tag_V16;
    const V16 a3 = L::template ShiftLeft<SHIFT_ODD>(x[3]);
    const V16 a5 = L::template ShiftLeft<SHIFT_ODD>(x[5]);
    const V16 a1 = L::template ShiftLeft<SHIFT>(x[1]);
    const V16 a7 = L::template ShiftLeft<SHIFT>(x[7]);
    const V16 b0 = L::template ShiftLeft<SHIFT>(x[0]);
    const V16 b4 = L::template ShiftLeft<SHIFT>(x[4]);
    const V16 c2 = L::template ShiftLeft<SHIFT>(x[2]);
    const V16 c6 = L::template ShiftLeft<SHIFT>(x[6]);

    const V16 t = HalfRounded<L>(L::MulHigh(L::AddSat(a3, a5), kM4));
    const V16 u = HalfRounded<L>(L::MulHigh(L::SubSat(a3, a5), kM4));

    const V16 k = L::AddSat(a1, t);
    const V16 l = L::SubSat(a1, t);
    const V16 i = L::AddSat(a7, u);
    const V16 j = L::SubSat(a7, u);

    const V16 sum04 = L::AddSat(b0, b4);
    const V16 dif04 = L::SubSat(b0, b4);
    const auto e0 = L::MulAdd(sum04, dif04, kM4, 0);
    const auto e1 = L::MulAdd(sum04, dif04, 0, kM4);
    const auto p = L::MulAdd(c2, c6, kM2, kM6);
    const auto n = L::MulAdd(c2, c6, kM6, -kM2);

    const auto a0 = L::Add32(e0, p);
    const auto a3Even = L::Sub32(e0, p);
    const auto a1Even = L::Add32(e1, n);
    const auto a2 = L::Sub32(e1, n);

    const auto bb0 = L::MulAdd(k, i, kM1, kM7);
    const auto bb3 = L::MulAdd(k, i, kM7, -kM1);
    const auto bb2 = L::MulAdd(l, j, kM5, kM3);
    const auto bb1 = L::MulAdd(l, j, kM3, -kM5);

    x[0] = FinishPass<L, FIRST_PASS>(L::Narrow(L::Add32(a0, bb0)));
    x[7] = FinishPass<L, FIRST_PASS>(L::Narrow(L::Sub32(a0, bb0)));
    x[1] = FinishPass<L, FIRST_PASS>(L::Narrow(L::Add32(a1Even, bb1)));
    x[6] = FinishPass<L, FIRST_PASS>(L::Narrow(L::Sub32(a1Even, bb1)));
    x[2] = FinishPass<L, FIRST_PASS>(L::Narrow(L::Add32(a2, bb2)));
    x[5] = FinishPass<L, FIRST_PASS>(L::Narrow(L::Sub32(a2, bb2)));
    x[3] = FinishPass<L, FIRST_PASS>(L::Narrow(L::Add32(a3Even, bb3)));
    x[4] = FinishPass<L, FIRST_PASS>(L::Narrow(L::Sub32(a3Even, bb3)));
}

// One 8-point forward pass over the lanes.
template <class L, int SHIFT, bool FIRST_PASS>
void FDCTPassLanes(typename L::tag_V16 (&x)[kLanes])
{
    using V16 = typename L::tag_V16;
    V16 in[kLanes];
    for (int n = 0; n < kLanes; ++n)
        in[n] = L::template ShiftLeft<SHIFT>(x[n]);

    const V16 s07 = L::AddSat(in[0], in[7]);
    const V16 s16 = L::AddSat(in[1], in[6]);
    const V16 s25 = L::AddSat(in[2], in[5]);
    const V16 s34 = L::AddSat(in[3], in[4]);
    const V16 d07 = L::SubSat(in[0], in[7]);
    const V16 d16 = L::SubSat(in[1], in[6]);
    const V16 d25 = L::SubSat(in[2], in[5]);
    const V16 d34 = L::SubSat(in[3], in[4]);

    const V16 d16x4 = L::template ShiftLeft<2>(d16);
    const V16 d25x4 = L::template ShiftLeft<2>(d25);
    const V16 t = HalfRounded<L>(L::MulHigh(L::AddSat(d16x4, d25x4), kM4));
    const V16 u = HalfRounded<L>(L::MulHigh(L::SubSat(d16x4, d25x4), kM4));

    const V16 p = L::AddSat(d07, t);
    const V16 q = L::SubSat(d07, t);
    const V16 r = L::AddSat(d34, u);
    const V16 w = L::SubSat(d34, u);

    const V16 z1 = L::Narrow(L::MulAdd(p, r, kM1, kM7));
    const V16 z7 = L::Narrow(L::MulAdd(p, r, kM7, -kM1));
    const V16 z5 = L::Narrow(L::MulAdd(q, w, kM5, kM3));
    const V16 z3 = L::Narrow(L::MulAdd(q, w, kM3, -kM5));

    const V16 a = L::AddSat(s07, s34);
    const V16 b = L::SubSat(s07, s34);
    const V16 c = L::AddSat(s16, s25);
    const V16 d = L::SubSat(s16, s25);

    const V16 z0 = L::MulHigh(L::AddSat(a, c), kM4);
    const V16 z4 = L::MulHigh(L::SubSat(a, c), kM4);
    const V16 z2 = L::Narrow(L::MulAdd(b, d, kM2, kM6));
    const V16 z6 = L::Narrow(L::MulAdd(b, d, kM6, -kM2));

    x[0] = FinishPass<L, FIRST_PASS>(z0);
    x[1] = FinishPass<L, FIRST_PASS>(z1);
    x[2] = FinishPass<L, FIRST_PASS>(z2);
    x[3] = FinishPass<L, FIRST_PASS>(z3);
    x[4] = FinishPass<L, FIRST_PASS>(z4);
    x[5] = FinishPass<L, FIRST_PASS>(z5);
    x[6] = FinishPass<L, FIRST_PASS>(z6);
    x[7] = FinishPass<L, FIRST_PASS>(z7);
}

// The reorderings between scan and natural order, unrolled over fixed offsets.
template <std::size_t... K>
void ScanToNaturalUnrolled(const short* psScan, short* psNatural, std::index_sequence<K...>)
{
    ((psNatural[K] = psScan[g_byZigZag[K]]), ...);
}

template <std::size_t... K>
void NaturalToScanUnrolled(const short* psNatural, short* psScan, std::index_sequence<K...>)
{
    ((psScan[g_byZigZag[K]] = psNatural[K]), ...);
}

inline void ScanToNatural(const short* psScan, short* psNatural)
{
    ScanToNaturalUnrolled(psScan, psNatural, std::make_index_sequence<BLOCK_SAMPLES>());
}

inline void NaturalToScan(const short* psNatural, short* psScan)
{
    NaturalToScanUnrolled(psNatural, psScan, std::make_index_sequence<BLOCK_SAMPLES>());
}

// The L::kBlocks natural-order blocks at ppsBlocks, transformed in place: row pass, then
// column pass. A lane type holds one row of each of its blocks; the rows are turned into
// columns so that the first pass works on all rows at once.
template <class L>
void FDCTLanes(short* const* ppsBlocks)
{
    typename L::tag_V16 x[kLanes];
    for (int n = 0; n < kLanes; ++n)
        x[n] = L::LoadRow(ppsBlocks, n);
    L::Transpose(x);
    FDCTPassLanes<L, 2, true>(x);
    L::Transpose(x);
    FDCTPassLanes<L, 0, false>(x);
    for (int n = 0; n < kLanes; ++n)
        L::StoreRow(ppsBlocks, n, x[n]);
}

// Row pass (input shifts 4 and 2), then column pass (2 and 0).
template <class L>
void IDCTLanes(short* const* ppsBlocks)
{
    typename L::tag_V16 x[kLanes];
    for (int n = 0; n < kLanes; ++n)
        x[n] = L::LoadRow(ppsBlocks, n);
    L::Transpose(x);
    IDCTPassLanes<L, 4, 2, true>(x);
    L::Transpose(x);
    IDCTPassLanes<L, 2, 0, false>(x);
    for (int n = 0; n < kLanes; ++n)
        L::StoreRow(ppsBlocks, n, x[n]);
}

// nBlocks blocks, L::kBlocks at a time; a last block that fills no lane type alone is
// transformed in all its lanes, which store the same values to it.
template <class L, void (*TRANSFORM)(short* const*)>
void TransformBlocks(short* const* ppsBlocks, int nBlocks)
{
    for (int n = 0; n < nBlocks; n += L::kBlocks) {
        short* apsBlocks[L::kBlocks];
        for (int k = 0; k < L::kBlocks; ++k)
            apsBlocks[k] = ppsBlocks[n + k < nBlocks ? n + k : nBlocks - 1];
        TRANSFORM(apsBlocks);
    }
}

} // namespace
