// The SSE2 forms of the transform kernels: the SIMD transform form in eight 16-bit lanes,
// which gives the bits of its portable emulation, and twins of the quantiser, which give
// the bits of its plain loops.
#include "codec/KernelTable.h"

#if ZNDVR_KERNELS_X86

#include "codec/TransformKernelParts.h"

#include <array>
#include <bit>
#include <cstdint>

#include <emmintrin.h>

namespace {

// ---- Transform lanes ----------------------------------------------------------------

struct CSSE2Lanes {
    static constexpr int kBlocks = 1;

    struct tag_V16 {
        __m128i v;
    };
    // Lanes 0 to 3 in lo, 4 to 7 in hi.
    struct tag_V32 {
        __m128i lo;
        __m128i hi;
    };

    static tag_V16 LoadRow(short* const* ppsBlocks, int nRow)
    {
        return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(ppsBlocks[0] + BLOCK_SIZE * nRow))};
    }

    static void StoreRow(short* const* ppsBlocks, int nRow, const tag_V16& a)
    {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(ppsBlocks[0] + BLOCK_SIZE * nRow), a.v);
    }

    static void Transpose(tag_V16 (&x)[kLanes])
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
    static tag_V16 ShiftLeft(const tag_V16& a)
    {
        return {_mm_slli_epi16(a.v, N)};
    }

    template <int N>
    static tag_V16 ShiftRight(const tag_V16& a)
    {
        return {_mm_srai_epi16(a.v, N)};
    }

    static tag_V16 AddSat(const tag_V16& a, const tag_V16& b)
    {
        return {_mm_adds_epi16(a.v, b.v)};
    }

    static tag_V16 AddSat(const tag_V16& a, short nConst)
    {
        return {_mm_adds_epi16(a.v, _mm_set1_epi16(nConst))};
    }

    static tag_V16 SubSat(const tag_V16& a, const tag_V16& b)
    {
        return {_mm_subs_epi16(a.v, b.v)};
    }

    static tag_V16 ClearLowBits2(const tag_V16& a)
    {
        return {_mm_and_si128(a.v, _mm_set1_epi16(~3))};
    }

    static tag_V16 MulHigh(const tag_V16& a, short nConst)
    {
        return {_mm_mulhi_epi16(a.v, _mm_set1_epi16(nConst))};
    }

    static tag_V32 MulAdd(const tag_V16& a, const tag_V16& b, short nA, short nB)
    {
        const __m128i pair = _mm_set1_epi32(static_cast<int>(static_cast<std::uint16_t>(nA))
                                            | static_cast<int>(static_cast<std::uint32_t>(static_cast<std::uint16_t>(nB)) << 16));
        return {_mm_madd_epi16(_mm_unpacklo_epi16(a.v, b.v), pair),
                _mm_madd_epi16(_mm_unpackhi_epi16(a.v, b.v), pair)};
    }

    static tag_V32 Add32(const tag_V32& a, const tag_V32& b)
    {
        return {_mm_add_epi32(a.lo, b.lo), _mm_add_epi32(a.hi, b.hi)};
    }

    static tag_V32 Sub32(const tag_V32& a, const tag_V32& b)
    {
        return {_mm_sub_epi32(a.lo, b.lo), _mm_sub_epi32(a.hi, b.hi)};
    }

    static tag_V16 Narrow(const tag_V32& a)
    {
        return {_mm_packs_epi32(_mm_srai_epi32(a.lo, 16), _mm_srai_epi32(a.hi, 16))};
    }
};

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
    if (!HasQuantiserTwin(nQp)) {
        QuantBlockPlain(psCoeff, psLevel, nQp, nMode);
        return;
    }
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
    if (!HasQuantiserTwin(nQp)) {
        DequantBlockPlain(psLevel, psCoeff, nQp, nMode);
        return;
    }
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

void FDCTMMXSSE2(short* const* ppsBlocks, int nBlocks)
{
    TransformBlocks<CSSE2Lanes, FDCTLanes<CSSE2Lanes>>(ppsBlocks, nBlocks);
}

void IDCTMMXSSE2(short* const* ppsBlocks, int nBlocks)
{
    TransformBlocks<CSSE2Lanes, IDCTLanes<CSSE2Lanes>>(ppsBlocks, nBlocks);
}

// Lanes compared with zero, narrowed to bytes with saturation, which keeps every value
// that is not 0 so; one bit a value.
std::uint64_t NonZeroMaskSSE2(const short* psBlock)
{
    const __m128i zero = _mm_setzero_si128();
    std::uint64_t qwMask = 0;
    for (int n = 0; n < BLOCK_SAMPLES; n += 2 * kLanes) {
        const __m128i bytes = _mm_packs_epi16(LoadLanes(psBlock + n), LoadLanes(psBlock + n + kLanes));
        const unsigned nZero = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, zero)));
        qwMask |= static_cast<std::uint64_t>(~nZero & 0xFFFFu) << n;
    }
    return qwMask;
}

} // namespace

void FillTransformKernelsSSE2(tag_KERNELTABLE& table)
{
    table.pfnFDCTMMX = FDCTMMXSSE2;
    table.pfnIDCTMMX = IDCTMMXSSE2;
    table.pfnQuantBlock = QuantBlockSSE2;
    table.pfnDequantBlock = DequantBlockSSE2;
    table.pfnNonZeroMask = NonZeroMaskSSE2;
}

#endif
