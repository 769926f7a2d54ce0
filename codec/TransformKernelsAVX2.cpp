// The AVX2 forms of the transform kernels: the SIMD transform form on two blocks at once,
// one in each half of sixteen 16-bit lanes. Every operation stays within its half, so
// each block goes through exactly the steps of the eight-lane form.
#include "codec/KernelTable.h"

#if ZNDVR_KERNELS_X86

#include "codec/BitstreamTables.h"
#include "codec/CodecTypes.h"
#include "codec/KernelTargets.h"
#include "codec/TransformKernels.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <immintrin.h>

ZNDVR_BEGIN_TARGET_AVX2

#include "codec/TransformKernelParts.h"

namespace {

// Block one in lanes 0 to 7, block two in lanes 8 to 15.
struct CAVX2Lanes {
    static constexpr int kBlocks = 2;

    struct tag_V16 {
        __m256i v;
    };
    // Lanes 0 to 3 of each block in lo, 4 to 7 in hi.
    struct tag_V32 {
        __m256i lo;
        __m256i hi;
    };

    static tag_V16 LoadRow(short* const* ppsBlocks, int nRow)
    {
        const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(ppsBlocks[0] + BLOCK_SIZE * nRow));
        const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(ppsBlocks[1] + BLOCK_SIZE * nRow));
        return {_mm256_inserti128_si256(_mm256_castsi128_si256(first), second, 1)};
    }

    static void StoreRow(short* const* ppsBlocks, int nRow, const tag_V16& a)
    {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(ppsBlocks[0] + BLOCK_SIZE * nRow), _mm256_castsi256_si128(a.v));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(ppsBlocks[1] + BLOCK_SIZE * nRow), _mm256_extracti128_si256(a.v, 1));
    }

    static void Transpose(tag_V16 (&x)[kLanes])
    {
        const __m256i a0 = _mm256_unpacklo_epi16(x[0].v, x[1].v);
        const __m256i a1 = _mm256_unpackhi_epi16(x[0].v, x[1].v);
        const __m256i a2 = _mm256_unpacklo_epi16(x[2].v, x[3].v);
        const __m256i a3 = _mm256_unpackhi_epi16(x[2].v, x[3].v);
        const __m256i a4 = _mm256_unpacklo_epi16(x[4].v, x[5].v);
        const __m256i a5 = _mm256_unpackhi_epi16(x[4].v, x[5].v);
        const __m256i a6 = _mm256_unpacklo_epi16(x[6].v, x[7].v);
        const __m256i a7 = _mm256_unpackhi_epi16(x[6].v, x[7].v);
        const __m256i b0 = _mm256_unpacklo_epi32(a0, a2);
        const __m256i b1 = _mm256_unpackhi_epi32(a0, a2);
        const __m256i b2 = _mm256_unpacklo_epi32(a1, a3);
        const __m256i b3 = _mm256_unpackhi_epi32(a1, a3);
        const __m256i b4 = _mm256_unpacklo_epi32(a4, a6);
        const __m256i b5 = _mm256_unpackhi_epi32(a4, a6);
        const __m256i b6 = _mm256_unpacklo_epi32(a5, a7);
        const __m256i b7 = _mm256_unpackhi_epi32(a5, a7);
        x[0].v = _mm256_unpacklo_epi64(b0, b4);
        x[1].v = _mm256_unpackhi_epi64(b0, b4);
        x[2].v = _mm256_unpacklo_epi64(b1, b5);
        x[3].v = _mm256_unpackhi_epi64(b1, b5);
        x[4].v = _mm256_unpacklo_epi64(b2, b6);
        x[5].v = _mm256_unpackhi_epi64(b2, b6);
        x[6].v = _mm256_unpacklo_epi64(b3, b7);
        x[7].v = _mm256_unpackhi_epi64(b3, b7);
    }

    template <int N>
    static tag_V16 ShiftLeft(const tag_V16& a)
    {
        return {_mm256_slli_epi16(a.v, N)};
    }

    template <int N>
    static tag_V16 ShiftRight(const tag_V16& a)
    {
        return {_mm256_srai_epi16(a.v, N)};
    }

    static tag_V16 AddSat(const tag_V16& a, const tag_V16& b)
    {
        return {_mm256_adds_epi16(a.v, b.v)};
    }

    static tag_V16 AddSat(const tag_V16& a, short nConst)
    {
        return {_mm256_adds_epi16(a.v, _mm256_set1_epi16(nConst))};
    }

    static tag_V16 SubSat(const tag_V16& a, const tag_V16& b)
    {
        return {_mm256_subs_epi16(a.v, b.v)};
    }

    static tag_V16 ClearLowBits2(const tag_V16& a)
    {
        return {_mm256_and_si256(a.v, _mm256_set1_epi16(~3))};
    }

    static tag_V16 MulHigh(const tag_V16& a, short nConst)
    {
        return {_mm256_mulhi_epi16(a.v, _mm256_set1_epi16(nConst))};
    }

    static tag_V32 MulAdd(const tag_V16& a, const tag_V16& b, short nA, short nB)
    {
        const __m256i pair = _mm256_set1_epi32(static_cast<int>(static_cast<std::uint16_t>(nA))
                                            | static_cast<int>(static_cast<std::uint32_t>(static_cast<std::uint16_t>(nB)) << 16));
        return {_mm256_madd_epi16(_mm256_unpacklo_epi16(a.v, b.v), pair),
                _mm256_madd_epi16(_mm256_unpackhi_epi16(a.v, b.v), pair)};
    }

    static tag_V32 Add32(const tag_V32& a, const tag_V32& b)
    {
        return {_mm256_add_epi32(a.lo, b.lo), _mm256_add_epi32(a.hi, b.hi)};
    }

    static tag_V32 Sub32(const tag_V32& a, const tag_V32& b)
    {
        return {_mm256_sub_epi32(a.lo, b.lo), _mm256_sub_epi32(a.hi, b.hi)};
    }

    static tag_V16 Narrow(const tag_V32& a)
    {
        return {_mm256_packs_epi32(_mm256_srai_epi32(a.lo, 16), _mm256_srai_epi32(a.hi, 16))};
    }
};

void FDCTMMXAVX2(short* const* ppsBlocks, int nBlocks)
{
    TransformBlocks<CAVX2Lanes, FDCTLanes<CAVX2Lanes>>(ppsBlocks, nBlocks);
}

void IDCTMMXAVX2(short* const* ppsBlocks, int nBlocks)
{
    TransformBlocks<CAVX2Lanes, IDCTLanes<CAVX2Lanes>>(ppsBlocks, nBlocks);
}

} // namespace

ZNDVR_END_TARGET

void FillTransformKernelsAVX2(tag_KERNELTABLE& table)
{
    table.pfnFDCTMMX = FDCTMMXAVX2;
    table.pfnIDCTMMX = IDCTMMXAVX2;
}

#endif
