// Macroblock loads, stores and arithmetic, colour conversions and the processor probes.
// Where hand-written SSE2 beats what the compiler makes of the plain loop (macroblock
// stores, the 16-bit SAD, colour conversion) it stands beside a reference loop, and
// KernelForms chooses; the other kernels are plain loops that the compiler vectorises.
#include "codec/PixelKernels.h"

#include "codec/KernelForms.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#if ZNDVR_KERNELS_SSE2
#include <emmintrin.h>
#endif
#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace {

struct tag_MBPLANES {
    BYTE* pbyY;
    BYTE* pbyU;
    BYTE* pbyV;
    int nLumaStride;
    int nChromaStride;
};

tag_MBPLANES LocateMB(int nCol, int nRow, const IMAGE& img, int nWidth)
{
    const int nChromaStride = nWidth / 2;
    return {img.Y + static_cast<std::ptrdiff_t>(MB_LUMA_SIZE) * nRow * nWidth + MB_LUMA_SIZE * nCol,
            img.U + static_cast<std::ptrdiff_t>(MB_CHROMA_SIZE) * nRow * nChromaStride + MB_CHROMA_SIZE * nCol,
            img.V + static_cast<std::ptrdiff_t>(MB_CHROMA_SIZE) * nRow * nChromaStride + MB_CHROMA_SIZE * nCol,
            nWidth, nChromaStride};
}

// ---- Reference loops ----------------------------------------------------------------

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

int SADMBReference(const YUV_Block* pFirst, const YUV_Block* pSecond)
{
    int nSum = 0;
    for (int n = 0; n < MB_LUMA_SAMPLES; ++n)
        nSum += std::abs(pFirst->Y[n] - pSecond->Y[n]);
    return nSum;
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

BYTE ClipByte(int v)
{
    return static_cast<BYTE>(std::clamp(v, 0, 255));
}

void ConvertPixels(BYTE* pbyDst, const BYTE* pbyY, const BYTE* pbyU, const BYTE* pbyV, int nFrom, int nTo)
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

tag_ROWPOINTERS RowOf(BYTE* pbyDst, const IMAGE& img, int nWidth, int nRow)
{
    const std::ptrdiff_t nChroma = static_cast<std::ptrdiff_t>(nRow / 2) * (nWidth / 2);
    return {pbyDst + static_cast<std::ptrdiff_t>(nRow) * nWidth * 3,
            img.Y + static_cast<std::ptrdiff_t>(nRow) * nWidth, img.U + nChroma, img.V + nChroma};
}

void YUVToRGB24Reference(BYTE* pbyDst, const IMAGE& img, int nWidth, int nHeight)
{
    for (int y = 0; y < nHeight; ++y) {
        const tag_ROWPOINTERS row = RowOf(pbyDst, img, nWidth, y);
        ConvertPixels(row.pbyDst, row.pbyY, row.pbyU, row.pbyV, 0, nWidth);
    }
}

#if ZNDVR_KERNELS_SSE2

// ---- SSE2 twins ---------------------------------------------------------------------

__m128i LoadBytes(const BYTE* pby)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(pby));
}

void StoreBytes(BYTE* pby, __m128i v)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pby), v);
}

__m128i LoadHalf(const BYTE* pby)
{
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(pby));
}

void StoreHalf(BYTE* pby, __m128i v)
{
    _mm_storel_epi64(reinterpret_cast<__m128i*>(pby), v);
}

// The low byte of each 16-bit lane of a and b, in order.
__m128i LowBytes(__m128i a, __m128i b)
{
    const __m128i mask = _mm_set1_epi16(0x00FF);
    return _mm_packus_epi16(_mm_and_si128(a, mask), _mm_and_si128(b, mask));
}

void PutMBSSE2(const tag_MBPLANES& planes, const YUV_Block* pMB)
{
    for (int r = 0; r < MB_LUMA_SIZE; ++r) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pMB->Y + MB_LUMA_SIZE * r));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pMB->Y + MB_LUMA_SIZE * r + 8));
        StoreBytes(planes.pbyY + static_cast<std::ptrdiff_t>(r) * planes.nLumaStride, LowBytes(a, b));
    }
    for (int r = 0; r < MB_CHROMA_SIZE; r += 2) {
        const std::ptrdiff_t nOffset = static_cast<std::ptrdiff_t>(r) * planes.nChromaStride;
        const __m128i u = LowBytes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pMB->U + MB_CHROMA_SIZE * r)),
                                   _mm_loadu_si128(reinterpret_cast<const __m128i*>(pMB->U + MB_CHROMA_SIZE * (r + 1))));
        const __m128i v = LowBytes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pMB->V + MB_CHROMA_SIZE * r)),
                                   _mm_loadu_si128(reinterpret_cast<const __m128i*>(pMB->V + MB_CHROMA_SIZE * (r + 1))));
        StoreHalf(planes.pbyU + nOffset, u);
        StoreHalf(planes.pbyU + nOffset + planes.nChromaStride, _mm_srli_si128(u, 8));
        StoreHalf(planes.pbyV + nOffset, v);
        StoreHalf(planes.pbyV + nOffset + planes.nChromaStride, _mm_srli_si128(v, 8));
    }
}

int HorizontalSum32(__m128i v)
{
    v = _mm_add_epi32(v, _mm_srli_si128(v, 8));
    v = _mm_add_epi32(v, _mm_srli_si128(v, 4));
    return _mm_cvtsi128_si32(v);
}

// |a - b| of 16-bit values is max - min taken as an unsigned 16-bit number, which holds
// even the difference of -32768 and 32767.
int SADMBSSE2(const YUV_Block* pFirst, const YUV_Block* pSecond)
{
    const __m128i zero = _mm_setzero_si128();
    __m128i sum = zero;
    for (int n = 0; n < MB_LUMA_SAMPLES; n += 8) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pFirst->Y + n));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pSecond->Y + n));
        const __m128i diff = _mm_sub_epi16(_mm_max_epi16(a, b), _mm_min_epi16(a, b));
        sum = _mm_add_epi32(sum, _mm_unpacklo_epi16(diff, zero));
        sum = _mm_add_epi32(sum, _mm_unpackhi_epi16(diff, zero));
    }
    return HorizontalSum32(sum);
}

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

__m128i PairConstant(short nFirst, short nSecond)
{
    return _mm_set1_epi32(static_cast<int>(static_cast<std::uint16_t>(nFirst))
                          | static_cast<int>(static_cast<std::uint32_t>(static_cast<std::uint16_t>(nSecond)) << 16));
}

// (a * nScale + nWith * nOffset) >> nShift per 16-bit lane, exact in 32 bits.
__m128i ScaleLanes(__m128i a, __m128i with, __m128i pair, int nShift)
{
    const __m128i lo = _mm_madd_epi16(_mm_unpacklo_epi16(a, with), pair);
    const __m128i hi = _mm_madd_epi16(_mm_unpackhi_epi16(a, with), pair);
    return _mm_packs_epi32(_mm_srai_epi32(lo, nShift), _mm_srai_epi32(hi, nShift));
}

// 16 pixels of B, G, R bytes to 48 bytes B G R B G R ...; writes 2 bytes past the 48.
void StorePixels(BYTE* pbyDst, __m128i b, __m128i g, __m128i r)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i bgLo = _mm_unpacklo_epi8(b, g);
    const __m128i bgHi = _mm_unpackhi_epi8(b, g);
    const __m128i rLo = _mm_unpacklo_epi8(r, zero);
    const __m128i rHi = _mm_unpackhi_epi8(r, zero);
    const __m128i quads[4] = {_mm_unpacklo_epi16(bgLo, rLo), _mm_unpackhi_epi16(bgLo, rLo),
                              _mm_unpacklo_epi16(bgHi, rHi), _mm_unpackhi_epi16(bgHi, rHi)};
    const __m128i lowPixel = _mm_set1_epi64x(0x0000000000FFFFFF);
    const __m128i highPixel = _mm_set1_epi64x(0x0000FFFFFF000000);
    for (int n = 0; n < 4; ++n) {
        // Two 4-byte pixels per 64-bit half become 6 packed bytes.
        const __m128i packed = _mm_or_si128(_mm_and_si128(quads[n], lowPixel),
                                            _mm_and_si128(_mm_srli_epi64(quads[n], 8), highPixel));
        StoreHalf(pbyDst + 12 * n, packed);
        StoreHalf(pbyDst + 12 * n + 6, _mm_srli_si128(packed, 8));
    }
}

constexpr int kPixelsPerStep = 16;

void ConvertRowSSE2(const tag_ROWPOINTERS& row, int nPixels)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i ones = _mm_set1_epi16(1);
    const __m128i twos = _mm_set1_epi16(2);
    const __m128i centre = _mm_set1_epi16(128);
    const __m128i greenZero = _mm_set1_epi16(2 * kGreenZero);
    const __m128i blue = PairConstant(kBlueScale, kBlueOffset);
    const __m128i red = PairConstant(kRedScale, kRedOffset);
    const __m128i green = PairConstant(kGreenWeight, kGreenOffset);
    for (int x = 0; x < nPixels; x += kPixelsPerStep) {
        const __m128i u = _mm_unpacklo_epi8(LoadHalf(row.pbyU + x / 2), zero);
        const __m128i v = _mm_unpacklo_epi8(LoadHalf(row.pbyV + x / 2), zero);
        const __m128i tb = ScaleLanes(_mm_sub_epi16(u, centre), ones, blue, kColourShift);
        const __m128i tr = ScaleLanes(_mm_sub_epi16(v, centre), ones, red, kColourShift);
        const __m128i tg = ScaleLanes(_mm_sub_epi16(_mm_sub_epi16(greenZero, u), v), twos, green, 16);
        const __m128i y = LoadBytes(row.pbyY + x);
        const __m128i yLo = _mm_unpacklo_epi8(y, zero);
        const __m128i yHi = _mm_unpackhi_epi8(y, zero);
        const auto channel = [&](__m128i t) {
            return _mm_packus_epi16(_mm_add_epi16(yLo, _mm_unpacklo_epi16(t, t)),
                                    _mm_add_epi16(yHi, _mm_unpackhi_epi16(t, t)));
        };
        StorePixels(row.pbyDst + 3 * static_cast<std::ptrdiff_t>(x), channel(tb), channel(tg), channel(tr));
    }
}

// Whole steps of 16 pixels run in SSE2; the rest of a row runs the reference loop. A
// step's stores reach 2 bytes past its pixels, into the next pixels, which are written
// afterwards; the picture's last step would reach past the end and runs the reference
// loop.
void YUVToRGB24SSE2(BYTE* pbyDst, const IMAGE& img, int nWidth, int nHeight)
{
    for (int y = 0; y < nHeight; ++y) {
        const tag_ROWPOINTERS row = RowOf(pbyDst, img, nWidth, y);
        int nSimd = nWidth / kPixelsPerStep * kPixelsPerStep;
        const bool bLastRow = y == nHeight - 1;
        if (bLastRow && nSimd == nWidth && nSimd > 0)
            nSimd -= kPixelsPerStep;
        ConvertRowSSE2(row, nSimd);
        ConvertPixels(row.pbyDst, row.pbyY, row.pbyU, row.pbyV, nSimd, nWidth);
    }
}

#endif

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
    const tag_MBPLANES planes = LocateMB(nCol, nRow, img, nWidth);
#if ZNDVR_KERNELS_SSE2
    if (IsSIMDKernelsEnabled()) {
        PutMBSSE2(planes, pMB);
        return;
    }
#endif
    ScatterMB(planes, pMB->Y, pMB->U, pMB->V);
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
#if ZNDVR_KERNELS_SSE2
    if (IsSIMDKernelsEnabled())
        return SADMBSSE2(pFirst, pSecond);
#endif
    return SADMBReference(pFirst, pSecond);
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
#if ZNDVR_KERNELS_SSE2
    if (IsSIMDKernelsEnabled()) {
        YUVToRGB24SSE2(pbyDst, img, nWidth, nHeight);
        return;
    }
#endif
    YUVToRGB24Reference(pbyDst, img, nWidth, nHeight);
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
