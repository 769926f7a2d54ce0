// The 8x8 transforms and the quantiser. The scalar transforms compute on 32-bit integers
// that wrap; the SIMD forms follow one signal-flow graph in 16-bit lanes, written once as
// a template over a lane type: eight lanes of SSE2, or a portable emulation whose every
// step is the same integer operation. The quantiser's SSE2 twins give exactly the plain
// loops' bits, so they need no emulation: the plain loops are their reference.
#include "codec/TransformKernels.h"

#include "codec/BitstreamTables.h"
#include "codec/KernelForms.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#if ZNDVR_KERNELS_SSE2
#include <emmintrin.h>
#endif

namespace {

// ---- Scalar transforms ------------------------------------------------------------

// Products and sums below are exact in 64 bits; reducing to 32 bits just before each
// shift gives the same bits as 32-bit arithmetic that wraps at every step.
using Wide = std::int64_t;

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

// ---- Lanes of the SIMD forms --------------------------------------------------------

// The same cosines with 15 fractional bits, as 16-bit multipliers.
constexpr short kM4 = 23170;
constexpr short kM2 = 30274;
constexpr short kM6 = 12540;
constexpr short kM1 = 32138;
constexpr short kM7 = 6392;
constexpr short kM3 = 27246;
constexpr short kM5 = 18204;

constexpr int kLanes = 8;

short Saturate16(int v)
{
    return static_cast<short>(std::clamp(v, -32768, 32767));
}

// Eight 16-bit lanes computed one at a time; each operation is the integer operation of
// its SSE2 counterpart.
struct CPortableLanes {
    struct V16 {
        short n[kLanes];
    };
    struct V32 {
        std::int32_t n[kLanes];
    };

    static V16 LoadRow(const short* ps)
    {
        V16 v;
        std::memcpy(v.n, ps, sizeof v.n);
        return v;
    }

    static void StoreRow(short* ps, const V16& v)
    {
        std::memcpy(ps, v.n, sizeof v.n);
    }

    static void Transpose(V16 (&x)[kLanes])
    {
        for (int r = 0; r < kLanes; ++r) {
            for (int c = r + 1; c < kLanes; ++c)
                std::swap(x[r].n[c], x[c].n[r]);
        }
    }

    template <int N>
    static V16 ShiftLeft(const V16& a)
    {
        V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = static_cast<short>(static_cast<std::uint16_t>(a.n[k]) << N);
        return v;
    }

    template <int N>
    static V16 ShiftRight(const V16& a)
    {
        V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = static_cast<short>(a.n[k] >> N);
        return v;
    }

    static V16 AddSat(const V16& a, const V16& b)
    {
        V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Saturate16(a.n[k] + b.n[k]);
        return v;
    }

    static V16 AddSat(const V16& a, short nConst)
    {
        V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Saturate16(a.n[k] + nConst);
        return v;
    }

    static V16 SubSat(const V16& a, const V16& b)
    {
        V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Saturate16(a.n[k] - b.n[k]);
        return v;
    }

    static V16 ClearLowBits2(const V16& a)
    {
        V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = static_cast<short>(a.n[k] & ~3);
        return v;
    }

    static V16 MulHigh(const V16& a, short nConst)
    {
        V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = static_cast<short>((a.n[k] * nConst) >> 16);
        return v;
    }

    // a * nA + b * nB per lane, in 32 bits.
    static V32 MulAdd(const V16& a, const V16& b, short nA, short nB)
    {
        V32 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Wrap32(Wide{a.n[k]} * nA + Wide{b.n[k]} * nB);
        return v;
    }

    static V32 Add32(const V32& a, const V32& b)
    {
        V32 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Wrap32(Wide{a.n[k]} + b.n[k]);
        return v;
    }

    static V32 Sub32(const V32& a, const V32& b)
    {
        V32 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Wrap32(Wide{a.n[k]} - b.n[k]);
        return v;
    }

    // sat(v >> 16): the high half of a 32-bit sum, no rounding.
    static V16 Narrow(const V32& a)
    {
        V16 v;
        for (int k = 0; k < kLanes; ++k)
            v.n[k] = Saturate16(a.n[k] >> 16);
        return v;
    }
};

#if ZNDVR_KERNELS_SSE2

struct CSSE2Lanes {
    struct V16 {
        __m128i v;
    };
    // Lanes 0 to 3 in lo, 4 to 7 in hi.
    struct V32 {
        __m128i lo;
        __m128i hi;
    };

    static V16 LoadRow(const short* ps)
    {
        return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(ps))};
    }

    static void StoreRow(short* ps, const V16& a)
    {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(ps), a.v);
    }

    static void Transpose(V16 (&x)[kLanes])
    {
        const __m128i a0 = _mm_unpacklo_epi16(x[0].v, x[1].v);
        const __m128i a1 = _mm_unpackhi_epi16(x[0].v, x[1].v);
        const __m128i a2 = _mm_unpacklo_epi16(x[2].v, x[3].v);
        const __m128i a3 = _mm_unpackhi_epi16(x[2].v, x[3].v);
        const __m128i a4 = _mm_unpacklo_epi16(x[4].v, x[5].v);
        const __m128i a5 = _mm_unpackhi_epi16(x[4].v, x[5].v);
        const __m128i a6 = _mm_unpacklo_epi16(x[6].v, x[7].v);
        const __m128i a7 = _mm_unpackhi_epi16(x[6].v, x[7].v);
        const __m128i b0 = _mm_unpacklo_epi32(a0, a2);
        const __m128i b1 = _mm_unpackhi_epi32(a0, a2);
        const __m128i b2 = _mm_unpacklo_epi32(a1, a3);
        const __m128i b3 = _mm_unpackhi_epi32(a1, a3);
        const __m128i b4 = _mm_unpacklo_epi32(a4, a6);
        const __m128i b5 = _mm_unpackhi_epi32(a4, a6);
        const __m128i b6 = _mm_unpacklo_epi32(a5, a7);
        const __m128i b7 = _mm_unpackhi_epi32(a5, a7);
        x[0].v = _mm_unpacklo_epi64(b0, b4);
        x[1].v = _mm_unpackhi_epi64(b0, b4);
        x[2].v = _mm_unpacklo_epi64(b1, b5);
        x[3].v = _mm_unpackhi_epi64(b1, b5);
        x[4].v = _mm_unpacklo_epi64(b2, b6);
        x[5].v = _mm_unpackhi_epi64(b2, b6);
        x[6].v = _mm_unpacklo_epi64(b3, b7);
        x[7].v = _mm_unpackhi_epi64(b3, b7);
    }

    template <int N>
    static V16 ShiftLeft(const V16& a)
    {
        return {_mm_slli_epi16(a.v, N)};
    }

    template <int N>
    static V16 ShiftRight(const V16& a)
    {
        return {_mm_srai_epi16(a.v, N)};
    }

    static V16 AddSat(const V16& a, const V16& b)
    {
        return {_mm_adds_epi16(a.v, b.v)};
    }

    static V16 AddSat(const V16& a, short nConst)
    {
        return {_mm_adds_epi16(a.v, _mm_set1_epi16(nConst))};
    }

    static V16 SubSat(const V16& a, const V16& b)
    {
        return {_mm_subs_epi16(a.v, b.v)};
    }

    static V16 ClearLowBits2(const V16& a)
    {
        return {_mm_and_si128(a.v, _mm_set1_epi16(~3))};
    }

    static V16 MulHigh(const V16& a, short nConst)
    {
        return {_mm_mulhi_epi16(a.v, _mm_set1_epi16(nConst))};
    }

    static V32 MulAdd(const V16& a, const V16& b, short nA, short nB)
    {
        const __m128i pair = _mm_set1_epi32(static_cast<int>(static_cast<std::uint16_t>(nA))
                                            | static_cast<int>(static_cast<std::uint32_t>(static_cast<std::uint16_t>(nB)) << 16));
        return {_mm_madd_epi16(_mm_unpacklo_epi16(a.v, b.v), pair),
                _mm_madd_epi16(_mm_unpackhi_epi16(a.v, b.v), pair)};
    }

    static V32 Add32(const V32& a, const V32& b)
    {
        return {_mm_add_epi32(a.lo, b.lo), _mm_add_epi32(a.hi, b.hi)};
    }

    static V32 Sub32(const V32& a, const V32& b)
    {
        return {_mm_sub_epi32(a.lo, b.lo), _mm_sub_epi32(a.hi, b.hi)};
    }

    static V16 Narrow(const V32& a)
    {
        return {_mm_packs_epi32(_mm_srai_epi32(a.lo, 16), _mm_srai_epi32(a.hi, 16))};
    }
};

#endif

// sat(h + 1) >> 1: the rounded half of a product's high part.
template <class L>
typename L::V16 HalfRounded(const typename L::V16& h)
{
    return L::template ShiftRight<1>(L::AddSat(h, short{1}));
}

// The end of a pass: the first keeps two fractional bits, rounded, for the second pass;
// the second rounds them away.
template <class L, bool FIRST_PASS>
typename L::V16 FinishPass(const typename L::V16& z)
{
    const typename L::V16 rounded = L::AddSat(z, short{2});
    if constexpr (FIRST_PASS)
        return L::ClearLowBits2(rounded);
    else
        return L::template ShiftRight<2>(rounded);
}

// One 8-point inverse pass over eight lanes: x[k] holds input k of each lane.
template <class L, int SHIFT_ODD, int SHIFT, bool FIRST_PASS>
void IDCTPassLanes(typename L::V16 (&x)[kLanes])
{
    using V16 = typename L::V16;
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

// One 8-point forward pass over eight lanes.
template <class L, int SHIFT, bool FIRST_PASS>
void FDCTPassLanes(typename L::V16 (&x)[kLanes])
{
    using V16 = typename L::V16;
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

// Rows of a natural-order block into lanes so that x[k] holds sample k of every row.
template <class L>
void LoadTransposed(const short* psBlock, typename L::V16 (&x)[kLanes])
{
    for (int n = 0; n < kLanes; ++n)
        x[n] = L::LoadRow(psBlock + BLOCK_SIZE * n);
    L::Transpose(x);
}

// The reorderings between scan and natural order, unrolled over fixed offsets.
template <std::size_t... K>
void ScanToNaturalUnrolled(const short* psScan, short* psNatural, std::index_sequence<K...>)
{
    ((psNatural[K] = psScan[g_byZigZag[K]]), ...);
}

// Scan order into the transpose of natural order: psOut[8 * column + row].
template <std::size_t... K>
void ScanToTransposedUnrolled(const short* psScan, short* psOut, std::index_sequence<K...>)
{
    ((psOut[K] = psScan[g_byZigZag[BLOCK_SIZE * (K % BLOCK_SIZE) + K / BLOCK_SIZE]]), ...);
}

template <std::size_t... K>
void NaturalToScanUnrolled(const short* psNatural, short* psScan, std::index_sequence<K...>)
{
    ((psScan[g_byZigZag[K]] = psNatural[K]), ...);
}

void ScanToNatural(const short* psScan, short* psNatural)
{
    ScanToNaturalUnrolled(psScan, psNatural, std::make_index_sequence<BLOCK_SAMPLES>());
}

void NaturalToScan(const short* psNatural, short* psScan)
{
    NaturalToScanUnrolled(psNatural, psScan, std::make_index_sequence<BLOCK_SAMPLES>());
}

// Row pass (input shifts 4 and 2), then column pass (2 and 0), from scan-order
// coefficients to a natural-order block. The coefficients are gathered straight into
// the lane layout of the row pass.
template <class L>
void IDCTBlockLanes(const short* psCoeff, short* psBlock)
{
    short transposed[BLOCK_SAMPLES];
    ScanToTransposedUnrolled(psCoeff, transposed, std::make_index_sequence<BLOCK_SAMPLES>());
    typename L::V16 x[kLanes];
    for (int n = 0; n < kLanes; ++n)
        x[n] = L::LoadRow(transposed + BLOCK_SIZE * n);
    IDCTPassLanes<L, 4, 2, true>(x);
    L::Transpose(x);
    IDCTPassLanes<L, 2, 0, false>(x);
    for (int n = 0; n < kLanes; ++n)
        L::StoreRow(psBlock + BLOCK_SIZE * n, x[n]);
}

// Row pass (input shift 2), then column pass (0); the natural-order result is left in
// psBlock and written to psCoeff in scan order.
template <class L>
void FDCTBlockLanes(short* psBlock, short* psCoeff)
{
    typename L::V16 x[kLanes];
    LoadTransposed<L>(psBlock, x);
    FDCTPassLanes<L, 2, true>(x);
    L::Transpose(x);
    FDCTPassLanes<L, 0, false>(x);
    for (int n = 0; n < kLanes; ++n)
        L::StoreRow(psBlock + BLOCK_SIZE * n, x[n]);
    NaturalToScan(psBlock, psCoeff);
}

// ---- Quantiser ----------------------------------------------------------------------

short ClipLevel(int nLevel)
{
    return static_cast<short>(std::clamp(nLevel, -QUANT_MAX_LEVEL, QUANT_MAX_LEVEL));
}

short QuantIntraDC(int nCoeff)
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

short QuantIntraAC(int nCoeff, const CQuantDivisor& divisor)
{
    const int nMagnitude = divisor.Divide(std::abs(nCoeff));
    return ClipLevel(nCoeff < 0 ? -nMagnitude : nMagnitude);
}

// (|c| - Q/2) / 2Q, truncating toward zero, so a negative numerator gives 0.
short QuantInter(int nCoeff, int nHalfQp, const CQuantDivisor& divisor)
{
    const int nMagnitude = divisor.Divide(std::abs(nCoeff) - nHalfQp);
    return ClipLevel(nCoeff < 0 ? -nMagnitude : nMagnitude);
}

// The e of the reconstruction rule: 1 for even Q, 0 for odd.
int EvenQpCorrection(int nQp)
{
    return nQp % 2 == 0 ? 1 : 0;
}

// sign(L) * (Q * (2|L| + 1) - e); stored to 16 bits without a limit.
short DequantLevel(int nLevel, int nQp)
{
    if (nLevel == 0)
        return 0;
    const Wide nMagnitude = Wide{nQp} * (2 * Wide{std::abs(nLevel)} + 1) - EvenQpCorrection(nQp);
    return static_cast<short>(nLevel < 0 ? -nMagnitude : nMagnitude);
}

#if ZNDVR_KERNELS_SSE2

// ---- SSE2 twins of the quantiser ------------------------------------------------------

// The twins serve the quantisers the encoder codes with; any other Q runs the plain loop.
constexpr int kTwinMaxQp = 31;

bool HasQuantiserTwin(int nQp)
{
    return nQp >= 1 && nQp <= kTwinMaxQp;
}

// Truncating division of x < 128 * 2Q by 2Q in 16-bit lanes. With 2^k < 2Q <= 2^(k+1) and
// m = ceil(2^(16+k) / 2Q), which stays below 2^16, (x * m) >> (16 + k) is exactly x / 2Q:
// x * m / 2^(16+k) exceeds x / 2Q by x * e / (2Q * 2^(16+k)), e = m * 2Q - 2^(16+k) being
// below 2Q; for every k up to 7, x * e < 128 * (2Q)^2 <= 2^(16+k), so the excess stays
// below 1 / 2Q and cannot carry x / 2Q past the next integer.
struct tag_QUANTRECIPROCAL {
    std::uint16_t wMultiplier;
    int nShift;
};

constexpr tag_QUANTRECIPROCAL ReciprocalOf(int nQp)
{
    const std::uint32_t dwDivisor = 2 * static_cast<std::uint32_t>(nQp);
    const int nShift = std::bit_width(dwDivisor - 1) - 1;
    const std::uint32_t dwScale = std::uint32_t{1} << (16 + nShift);
    return {static_cast<std::uint16_t>((dwScale + dwDivisor - 1) / dwDivisor), nShift};
}

constexpr std::array<tag_QUANTRECIPROCAL, kTwinMaxQp + 1> MakeReciprocals()
{
    std::array<tag_QUANTRECIPROCAL, kTwinMaxQp + 1> reciprocals{};
    for (int q = 1; q <= kTwinMaxQp; ++q)
        reciprocals[q] = ReciprocalOf(q);
    return reciprocals;
}

constexpr std::array<tag_QUANTRECIPROCAL, kTwinMaxQp + 1> kReciprocals = MakeReciprocals();

__m128i LoadLanes(const short* ps)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(ps));
}

void StoreLanes(short* ps, __m128i v)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(ps), v);
}

// v negated in the lanes where sign is all ones. Taking |c| this way leaves 32768 for
// -32768, which the unsigned operations that follow read correctly.
__m128i WithSign(__m128i v, __m128i sign)
{
    return _mm_sub_epi16(_mm_xor_si128(v, sign), sign);
}

// Subtracting Q/2 (0 in intra) with unsigned saturation turns a negative numerator into 0,
// which is its truncating quotient; limiting the numerator to 128 * 2Q - 1 clips the
// quotient to 127 before the division.
void QuantBlockSSE2(const short* psCoeff, short* psLevel, int nQp, int nMode)
{
    const tag_QUANTRECIPROCAL& reciprocal = kReciprocals[nQp];
    const __m128i halfQp = _mm_set1_epi16(static_cast<short>(nMode == QUANT_MODE_INTRA ? 0 : nQp / 2));
    const __m128i limit = _mm_set1_epi16(static_cast<short>((QUANT_MAX_LEVEL + 1) * 2 * nQp - 1));
    const __m128i multiplier = _mm_set1_epi16(static_cast<short>(reciprocal.wMultiplier));
    const __m128i shift = _mm_cvtsi32_si128(reciprocal.nShift);
    const short nDC = psCoeff[0];
    for (int n = 0; n < BLOCK_SAMPLES; n += kLanes) {
        const __m128i coeff = LoadLanes(psCoeff + n);
        const __m128i sign = _mm_srai_epi16(coeff, 15);
        const __m128i numerator = _mm_subs_epu16(WithSign(coeff, sign), halfQp);
        const __m128i clipped = _mm_sub_epi16(numerator, _mm_subs_epu16(numerator, limit));
        const __m128i quotient = _mm_srl_epi16(_mm_mulhi_epu16(clipped, multiplier), shift);
        StoreLanes(psLevel + n, WithSign(quotient, sign));
    }
    if (nMode == QUANT_MODE_INTRA)
        psLevel[0] = QuantIntraDC(nDC);
}

// sign(L) * (Q * (2|L| + 1) - e) is 2Q * L + sign(L) * (Q - e). Both terms are taken to
// 16 bits, which wraps exactly as the plain form's store does.
void DequantBlockSSE2(const short* psLevel, short* psCoeff, int nQp, int nMode)
{
    const __m128i twiceQp = _mm_set1_epi16(static_cast<short>(2 * nQp));
    const __m128i offset = _mm_set1_epi16(static_cast<short>(nQp - EvenQpCorrection(nQp)));
    const __m128i zero = _mm_setzero_si128();
    const short nDC = psLevel[0];
    for (int n = 0; n < BLOCK_SAMPLES; n += kLanes) {
        const __m128i level = LoadLanes(psLevel + n);
        const __m128i nonZeroOffset = _mm_andnot_si128(_mm_cmpeq_epi16(level, zero), offset);
        const __m128i signedOffset = WithSign(nonZeroOffset, _mm_srai_epi16(level, 15));
        StoreLanes(psCoeff + n, _mm_add_epi16(_mm_mullo_epi16(level, twiceQp), signedOffset));
    }
    if (nMode == QUANT_MODE_INTRA)
        psCoeff[0] = static_cast<short>(nDC * INTRA_DC_SCALE);
}

#endif

// The natural-order 8x8 block b of a macroblock: luma blocks at row 8 * (b / 2) and
// column 8 * (b % 2) of Y, block 4 is U, block 5 is V.
void CopyBlockFromMB(const YUV_Block* pMB, int nBlock, short* psBlock)
{
    if (nBlock >= 4) {
        std::memcpy(psBlock, nBlock == 4 ? pMB->U : pMB->V, BLOCK_SAMPLES * sizeof(short));
        return;
    }
    const short* psSource = pMB->Y + MB_LUMA_SIZE * BLOCK_SIZE * (nBlock / 2) + BLOCK_SIZE * (nBlock % 2);
    for (int r = 0; r < BLOCK_SIZE; ++r)
        std::memcpy(psBlock + BLOCK_SIZE * r, psSource + MB_LUMA_SIZE * r, BLOCK_SIZE * sizeof(short));
}

void CopyBlockToMB(const short* psBlock, int nBlock, YUV_Block* pMB)
{
    if (nBlock >= 4) {
        std::memcpy(nBlock == 4 ? pMB->U : pMB->V, psBlock, BLOCK_SAMPLES * sizeof(short));
        return;
    }
    short* psTarget = pMB->Y + MB_LUMA_SIZE * BLOCK_SIZE * (nBlock / 2) + BLOCK_SIZE * (nBlock % 2);
    for (int r = 0; r < BLOCK_SIZE; ++r)
        std::memcpy(psTarget + MB_LUMA_SIZE * r, psBlock + BLOCK_SIZE * r, BLOCK_SIZE * sizeof(short));
}

using ForwardTransform = void (*)(short*, short*);
using InverseTransform = void (*)(const short*, short*);

void QuantMBWith(ForwardTransform pfnForward, short* psLevel, const YUV_Block* pMB, int nQp, int nMode)
{
    for (int b = 0; b < MB_BLOCKS; ++b) {
        short block[BLOCK_SAMPLES];
        short coeff[BLOCK_SAMPLES];
        CopyBlockFromMB(pMB, b, block);
        pfnForward(block, coeff);
        QuantBlock(coeff, psLevel + BLOCK_SAMPLES * b, nQp, nMode);
    }
}

void DequantMBWith(InverseTransform pfnInverse, const short* psLevel, YUV_Block* pMB, int nQp, int nMode)
{
    for (int b = 0; b < MB_BLOCKS; ++b) {
        short coeff[BLOCK_SAMPLES];
        short block[BLOCK_SAMPLES];
        DequantBlock(psLevel + BLOCK_SAMPLES * b, coeff, nQp, nMode);
        pfnInverse(coeff, block);
        CopyBlockToMB(block, b, pMB);
    }
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

void FDCTBlock(short* psBlock, short* psCoeff)
{
    for (int r = 0; r < BLOCK_SIZE; ++r)
        FDCT1D(psBlock + BLOCK_SIZE * r, 1);
    for (int c = 0; c < BLOCK_SIZE; ++c)
        FDCT1D(psBlock + c, BLOCK_SIZE);
    NaturalToScan(psBlock, psCoeff);
}

void IDCTBlock(const short* psCoeff, short* psBlock)
{
    ScanToNatural(psCoeff, psBlock);
    for (int r = 0; r < BLOCK_SIZE; ++r)
        IDCT1D(psBlock + BLOCK_SIZE * r, 1);
    for (int c = 0; c < BLOCK_SIZE; ++c)
        IDCT1D(psBlock + c, BLOCK_SIZE);
}

void FDCTBlockMMX(short* psBlock, short* psCoeff)
{
#if ZNDVR_KERNELS_SSE2
    if (IsSIMDKernelsEnabled()) {
        FDCTBlockLanes<CSSE2Lanes>(psBlock, psCoeff);
        return;
    }
#endif
    FDCTBlockLanes<CPortableLanes>(psBlock, psCoeff);
}

void IDCTBlockMMX(const short* psCoeff, short* psBlock)
{
#if ZNDVR_KERNELS_SSE2
    if (IsSIMDKernelsEnabled()) {
        IDCTBlockLanes<CSSE2Lanes>(psCoeff, psBlock);
        return;
    }
#endif
    IDCTBlockLanes<CPortableLanes>(psCoeff, psBlock);
}

void QuantBlock(const short* psCoeff, short* psLevel, int nQp, int nMode)
{
    if (nQp == 0) {
        std::memmove(psLevel, psCoeff, BLOCK_SAMPLES * sizeof(short));
        return;
    }
#if ZNDVR_KERNELS_SSE2
    if (HasQuantiserTwin(nQp) && IsSIMDKernelsEnabled()) {
        QuantBlockSSE2(psCoeff, psLevel, nQp, nMode);
        return;
    }
#endif
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

void DequantBlock(const short* psLevel, short* psCoeff, int nQp, int nMode)
{
    if (nQp == 0) {
        std::memmove(psCoeff, psLevel, BLOCK_SAMPLES * sizeof(short));
        return;
    }
#if ZNDVR_KERNELS_SSE2
    if (HasQuantiserTwin(nQp) && IsSIMDKernelsEnabled()) {
        DequantBlockSSE2(psLevel, psCoeff, nQp, nMode);
        return;
    }
#endif
    const short nDC = psLevel[0];
    for (int n = 0; n < BLOCK_SAMPLES; ++n)
        psCoeff[n] = DequantLevel(psLevel[n], nQp);
    if (nMode == QUANT_MODE_INTRA)
        psCoeff[0] = static_cast<short>(nDC * INTRA_DC_SCALE);
}

void QuantMB(short* psLevel, const YUV_Block* pMB, int nQp, int nMode)
{
    QuantMBWith(FDCTBlock, psLevel, pMB, nQp, nMode);
}

void QuantMBwithMMX(short* psLevel, const YUV_Block* pMB, int nQp, int nMode)
{
    QuantMBWith(FDCTBlockMMX, psLevel, pMB, nQp, nMode);
}

void DequantMB(const short* psLevel, YUV_Block* pMB, int nQp, int nMode)
{
    DequantMBWith(IDCTBlock, psLevel, pMB, nQp, nMode);
}

void DequantMBwithMMX(const short* psLevel, YUV_Block* pMB, int nQp, int nMode)
{
    DequantMBWith(IDCTBlockMMX, psLevel, pMB, nQp, nMode);
}
