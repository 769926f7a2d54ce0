#include "codec/CDecoder.h"

#include "codec/BitstreamTables.h"
#include "codec/CodecMemory.h"
#include "codec/KernelTable.h"
#include "codec/PixelKernels.h"
#include "codec/TransformKernels.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

namespace {

constexpr int kLumaCapacity = CDecoder::MAX_WIDTH * CDecoder::MAX_HEIGHT;
constexpr int kChromaCapacity = kLumaCapacity / 4;
constexpr int kPlaneSetBytes = kLumaCapacity + 2 * kChromaCapacity;
constexpr BYTE kBlackLuma = 0;
constexpr BYTE kNeutralChroma = 128;

constexpr unsigned kStartCode = 0x10;   // sixteen 0 bits, 1, four 0 bits
constexpr int kStartCodeBits = 21;
constexpr int kLastStartCodeOffset = 160;
constexpr int kTypeBits = 2;
constexpr int kSizeBits = 10;
constexpr int kQuantBits = 8;
constexpr int kGroupsBits = 16;
constexpr int kDCBits = 8;
constexpr int kCBPCBits = 2;
constexpr int kGroupMacroblocks = 10;
constexpr int kPFrameType = 2;
constexpr unsigned kForbiddenDC = 128;
constexpr unsigned kDCStoredFor128 = 255;
constexpr int kCacheBits = 64;
// Zero bytes behind the copy of the input, which a refill at its end reads.
constexpr int kFetchPadding = 8;
constexpr int kAlignBits = 16;

// Display scaling of the coded sizes of revision 0x20020219.
constexpr int kWideSourceRows = 120;   // a 160x128 picture shows its first 120 rows

std::uint64_t LoadBigEndian64(const BYTE* p)
{
    std::uint64_t qwValue;
    std::memcpy(&qwValue, p, sizeof qwValue);
    if constexpr (std::endian::native == std::endian::little)
        qwValue = __builtin_bswap64(qwValue);
    return qwValue;
}

// Points img at one plane set of the full capacity at pbyPlanes, cleared to black.
void AssignPlanes(IMAGE& img, BYTE* pbyPlanes)
{
    std::memset(pbyPlanes, kBlackLuma, kLumaCapacity);
    std::memset(pbyPlanes + kLumaCapacity, kNeutralChroma, 2 * kChromaCapacity);
    img.Y = pbyPlanes;
    img.U = pbyPlanes + kLumaCapacity;
    img.V = pbyPlanes + kLumaCapacity + kChromaCapacity;
}

// Each row: out[2x] = s[x], out[2x + 1] the mean of s[x] and s[x + 1]; the last pair
// repeats the last sample.
void WidenPlane(BYTE* pDst, const BYTE* pSrc, int nWidth, int nRows)
{
    for (int y = 0; y < nRows; ++y) {
        const BYTE* s = pSrc + y * nWidth;
        BYTE* o = pDst + y * 2 * nWidth;
        for (int x = 0; x < nWidth - 1; ++x) {
            o[2 * x] = s[x];
            o[2 * x + 1] = static_cast<BYTE>((s[x] + s[x + 1]) >> 1);
        }
        o[2 * nWidth - 2] = o[2 * nWidth - 1] = s[nWidth - 1];
    }
}

// Doubles nRows rows of a plane nWidth wide both ways. The row below the last one is
// the plane's next row when the picture has one (nPlaneRows), else the row itself.
void DoublePlane(BYTE* pDst, const BYTE* pSrc, int nWidth, int nRows, int nPlaneRows)
{
    for (int y = 0; y < nRows; ++y) {
        const BYTE* s = pSrc + y * nWidth;
        const BYTE* t = y + 1 < nPlaneRows ? s + nWidth : s;
        BYTE* o0 = pDst + 2 * y * 2 * nWidth;
        BYTE* o1 = o0 + 2 * nWidth;
        for (int x = 0; x < nWidth; ++x) {
            const int a = s[x];
            const int c = t[x];
            if (x == nWidth - 1) {
                o0[2 * x] = o0[2 * x + 1] = static_cast<BYTE>(a);
                o1[2 * x] = o1[2 * x + 1] = static_cast<BYTE>(c);
                continue;
            }
            const int b = s[x + 1];
            const int d = t[x + 1];
            const int o01 = (a + b) >> 1;
            const int o10 = (a + c) >> 1;
            o0[2 * x] = static_cast<BYTE>(a);
            o0[2 * x + 1] = static_cast<BYTE>(o01);
            o1[2 * x] = static_cast<BYTE>(o10);
            o1[2 * x + 1] = static_cast<BYTE>((((o01 + o10) >> 1) + d) >> 1);
        }
    }
}

// How a coded picture of revision 0x20020219 reaches its display size.
enum tag_DISPLAYSCALING {
    DISPLAY_COPY,
    DISPLAY_WIDEN,    // twice as wide
    DISPLAY_DOUBLE,   // twice as wide and high, from the rows that hold picture
};

tag_DISPLAYSCALING GetDisplayScaling(int nWidth, int nHeight, BOOL bKeepSize)
{
    if (!bKeepSize && ((nWidth == 320 && nHeight == 240) || (nWidth == 352 && nHeight == 288)))
        return DISPLAY_WIDEN;
    if ((nWidth == 160 && nHeight == 128) || (nWidth == 176 && nHeight == 144))
        return DISPLAY_DOUBLE;
    return DISPLAY_COPY;
}

int GetPictureRows(int nWidth, int nHeight)
{
    return nWidth == 160 ? kWideSourceRows : nHeight;
}

} // namespace

CDecoder::CDecoder() = default;

CDecoder::~CDecoder()
{
    FreeAllMemory();
}

BOOL CDecoder::Create(DWORD dwRevision)
{
    FreeAllMemory();
    m_dwRevision = dwRevision;
    m_pBitStream = AllocateArray<BYTE>(BITSTREAM_BYTES + kFetchPadding);
    m_pBitReader.reset(new (std::nothrow) tag_BITREADER());
    m_pPlanes = AllocateArray<BYTE>(2 * kPlaneSetBytes);
    if (!m_pBitStream || !m_pBitReader || !m_pPlanes) {
        FreeAllMemory();
        return FALSE;
    }
    AssignPlanes(m_imgDecoded, m_pPlanes.get());
    AssignPlanes(m_imgDisplay, m_pPlanes.get() + kPlaneSetBytes);
    m_nBitStreamLen = 0;
    m_bUseMMX = HasMMX();
    m_pKernels = &GetKernelTable();
    return TRUE;
}

void CDecoder::FreeAllMemory()
{
    m_pBitStream.reset();
    m_pBitReader.reset();
    m_pPlanes.reset();
    m_imgDecoded = m_imgDisplay = {};
}

void CDecoder::SetDecoderPara(int nHeight, int nWidth, int nQi, int nQp)
{
    SetPicSize(nWidth, nHeight);
    SetQi(nQi);
    SetQp(nQp);
}

void CDecoder::SetPicSize(int nWidth, int nHeight)
{
    m_nWidth = nWidth;
    m_nHeight = nHeight;
    m_nMBCols = nWidth / MB_LUMA_SIZE;
    m_nMBRows = nHeight / MB_LUMA_SIZE;
    m_nMBCount = m_nMBCols * m_nMBRows;
}

void CDecoder::SetQi(int nQi)
{
    m_nQi = nQi;
}

void CDecoder::SetQp(int nQp)
{
    m_nQp = nQp;
}

// ---------------------------------------------------------------------------
// Bit reader: the unread bits stand at the top of a 64-bit cache. Every refill ORs the
// next 8 bytes in below them and advances by the whole bytes that found room, which
// leaves 56 to 63 bits to read without a test; bytes that found room only in part come
// again at the next refill, over the same bits.

void CDecoder::InitBitStreamBuf()
{
    tag_BITREADER& r = *m_pBitReader;
    r.rdptr = m_pBitStream.get();
    r.qwCache = 0;
    r.incnt = 0;
    r.bitcnt = 0;
}

// A reader that runs past the copy stays at its end, where 8 zero bytes follow it, and
// reads zeros, as the bits beyond the copy are zeros too.
inline void CDecoder::FillCache(tag_BITREADER& r, const BYTE* pLastFetch)
{
    r.qwCache |= LoadBigEndian64(r.rdptr) >> r.incnt;
    r.rdptr = std::min(r.rdptr + ((kCacheBits - 1 - r.incnt) >> 3), pLastFetch);
    r.incnt |= kCacheBits - 8;
}

void CDecoder::FillBitStreamBuffer()
{
    FillCache(*m_pBitReader, m_pBitStream.get() + BITSTREAM_BYTES);
}

// nBits from 1 to 32.
inline unsigned CDecoder::ShowBits(int nBits)
{
    tag_BITREADER& r = *m_pBitReader;
    FillCache(r, m_pBitStream.get() + BITSTREAM_BYTES);
    return static_cast<unsigned>(r.qwCache >> (kCacheBits - nBits));
}

inline void CDecoder::FlushBits(int nBits)
{
    tag_BITREADER& r = *m_pBitReader;
    FillCache(r, m_pBitStream.get() + BITSTREAM_BYTES);
    r.qwCache <<= nBits;
    r.incnt -= nBits;
    r.bitcnt += nBits;
}

inline unsigned CDecoder::GetBits(int nBits)
{
    const unsigned nValue = ShowBits(nBits);
    FlushBits(nBits);
    return nValue;
}

// ---------------------------------------------------------------------------
// Picture

DECODER_RETURN CDecoder::DecodeOneFrame(const BYTE* pIn, int nInLen, BYTE* pOut, BOOL bKeepSize)
{
    DECODER_RETURN result = {FALSE, FALSE, m_nWidth, m_nHeight, 0, FALSE};
    if (!m_pBitStream || nInLen < 0 || nInLen > BITSTREAM_BYTES || (pIn == nullptr && nInLen > 0)) {
        result.bError = TRUE;
        return result;
    }
    CopyInput(pIn, nInLen);
    InitBitStreamBuf();
    if (!GetStartBitStream()) {
        result.bError = TRUE;
        return result;
    }
    result.nFrameType = static_cast<int>(GetBits(kTypeBits));
    if (result.nFrameType == 0 || result.nFrameType == 1) {
        const int nWidth = static_cast<int>(GetBits(kSizeBits));
        const int nHeight = static_cast<int>(GetBits(kSizeBits));
        const int nQuant = static_cast<int>(GetBits(kQuantBits));
        if (nWidth == 0 || nHeight == 0 || nWidth % MB_LUMA_SIZE != 0 || nHeight % MB_LUMA_SIZE != 0 ||
            nWidth > MAX_WIDTH || nHeight > MAX_HEIGHT || !FitsOutput(nWidth, nHeight, bKeepSize)) {
            result.bError = TRUE;
            return result;
        }
        if (nWidth != m_nWidth || nHeight != m_nHeight) {
            SetDecoderPara(nHeight, nWidth, nQuant, nQuant);
            result.bSizeChanged = TRUE;
            result.nWidth = nWidth;
            result.nHeight = nHeight;
        } else {
            SetQi(nQuant);
            SetQp(nQuant);
        }
        FlushBits(1);
        const BOOL bGood = m_bUseMMX ? IFrameDecodewithMMX(m_imgDecoded) : IFrameDecode(m_imgDecoded);
        result.bError = !bGood;
    } else {
        result.nFrameType = kPFrameType;
        if (!FitsOutput(m_nWidth, m_nHeight, bKeepSize)) {
            result.bError = TRUE;
            return result;
        }
        if (GetBits(1) != 0) {
            SetQp(static_cast<int>(GetBits(kQuantBits)));
            const BOOL bGood = m_bUseMMX ? PFrameDecodewithMMX(m_imgDecoded) : PFrameDecode(m_imgDecoded);
            result.bError = !bGood;
        } else {
            result.bNotCoded = TRUE;
        }
    }
    AlignBits();
    WriteOutput(pOut, bKeepSize, result);
    return result;
}

// The private copy is zero beyond the record, so that reads past its end see 0 bits.
// Only what the previous record left there needs clearing.
void CDecoder::CopyInput(const BYTE* pIn, int nInLen)
{
    if (nInLen > 0)
        std::memcpy(m_pBitStream.get(), pIn, static_cast<std::size_t>(nInLen));
    if (m_nBitStreamLen > nInLen)
        std::memset(m_pBitStream.get() + nInLen, 0, static_cast<std::size_t>(m_nBitStreamLen - nInLen));
    m_nBitStreamLen = nInLen;
}

void CDecoder::WriteOutput(BYTE* pOut, BOOL bKeepSize, DECODER_RETURN& result)
{
    if (m_dwRevision == STREAM_REVISION_20020219) {
        int nWidth = m_nWidth;
        int nHeight = m_nHeight;
        IQImage(m_imgDisplay, m_imgDecoded, nWidth, nHeight, bKeepSize);
        m_pKernels->pfnYUVToRGB24(pOut, m_imgDisplay, nWidth, nHeight);
        result.nWidth = nWidth;
        result.nHeight = nHeight;
    } else {
        m_pKernels->pfnYUVToRGB24(pOut, m_imgDecoded, m_nWidth, m_nHeight);
    }
}

void CDecoder::IQImage(const IMAGE& imgDst, const IMAGE& imgSrc, int& nWidth, int& nHeight, BOOL bKeepSize)
{
    const int w = nWidth;
    const int h = nHeight;
    switch (GetDisplayScaling(w, h, bKeepSize)) {
    case DISPLAY_WIDEN:
        WidenPlane(imgDst.Y, imgSrc.Y, w, h);
        WidenPlane(imgDst.U, imgSrc.U, w / 2, h / 2);
        WidenPlane(imgDst.V, imgSrc.V, w / 2, h / 2);
        nWidth = 2 * w;
        return;
    case DISPLAY_DOUBLE: {
        const int nRows = GetPictureRows(w, h);
        DoublePlane(imgDst.Y, imgSrc.Y, w, nRows, h);
        DoublePlane(imgDst.U, imgSrc.U, w / 2, nRows / 2, h / 2);
        DoublePlane(imgDst.V, imgSrc.V, w / 2, nRows / 2, h / 2);
        nWidth = 2 * w;
        nHeight = 2 * nRows;
        return;
    }
    case DISPLAY_COPY:
        break;
    }
    const std::size_t nLuma = static_cast<std::size_t>(w) * h;
    std::memcpy(imgDst.Y, imgSrc.Y, nLuma);
    std::memcpy(imgDst.U, imgSrc.U, nLuma / 4);
    std::memcpy(imgDst.V, imgSrc.V, nLuma / 4);
}

void CDecoder::SetOutputCapacity(int nBytes)
{
    m_nOutputCapacity = nBytes;
}

// Whether the output of a coded picture of this size fits the caller's area.
BOOL CDecoder::FitsOutput(int nWidth, int nHeight, BOOL bKeepSize) const
{
    long long nOutWidth = nWidth;
    long long nOutHeight = nHeight;
    if (m_dwRevision == STREAM_REVISION_20020219) {
        const tag_DISPLAYSCALING nScaling = GetDisplayScaling(nWidth, nHeight, bKeepSize);
        if (nScaling != DISPLAY_COPY)
            nOutWidth = 2LL * nWidth;
        if (nScaling == DISPLAY_DOUBLE)
            nOutHeight = 2LL * GetPictureRows(nWidth, nHeight);
    }
    return nOutWidth * nOutHeight * 3 <= m_nOutputCapacity;
}

// ---------------------------------------------------------------------------
// Syntax

void CDecoder::AlignBits()
{
    const int nRest = m_pBitReader->bitcnt % kAlignBits;
    if (nRest != 0)
        FlushBits(kAlignBits - nRest);
}

BOOL CDecoder::GetStartBitStream()
{
    for (int nOffset = 0; nOffset <= kLastStartCodeOffset; ++nOffset) {
        if (ShowBits(kStartCodeBits) == kStartCode) {
            FlushBits(kStartCodeBits);
            return TRUE;
        }
        FlushBits(1);
    }
    return FALSE;
}

// The inter column of the CBPY table; the six-bit values that start no code are taken
// like the code 11.
int CDecoder::GetCBPY()
{
    const unsigned nNext = ShowBits(CBPY_LOOKAHEAD_BITS);
    const tag_CBPYENTRY& entry = g_cbpyRead[nNext];
    if (entry.byLength == 0 || nNext >= 48) {
        FlushBits(2);
        return 0;
    }
    FlushBits(entry.byLength);
    return 15 - entry.byIntra;
}

// Coefficient events of one block, inverse quantised, each put at the natural position of
// its scan position; only the coefficients of events are written. One look-up of the
// next 12 bits finds any table code, and the sign bit after a code of up to 11 bits lies
// among them. A refilled cache holds 56 bits, more than the longest event, ESCAPE with
// its fields.
BOOL CDecoder::DecodeDCTCoeff(short* psBlock, BOOL bInter, BOOL bQp)
{
    const int nQ = bQp ? m_nQp : m_nQi;
    const int e = nQ % 2 == 0 ? 1 : 0;
    const BYTE* pEnd = m_pBitStream.get() + BITSTREAM_BYTES;
    tag_BITREADER r = *m_pBitReader;
    BOOL bGood = FALSE;
    for (int nPos = bInter ? 0 : 1;;) {
        FillCache(r, pEnd);
        const tag_TCOEFENTRY entry = g_tcoefRead[r.qwCache >> (kCacheBits - TCOEF_LOOKAHEAD_BITS)];
        if (entry.byLength == 0)
            break;
        // Both readings are formed and one is taken by a mask, as a branch on ESCAPE would
        // guess wrong too often on busy pictures.
        const auto nFields = static_cast<int>(r.qwCache >> (kCacheBits - TCOEF_ESCAPE_EVENT_BITS));
        const int nEscape = -static_cast<int>(IsTCoefEscape(entry));
        const int nSign = -(static_cast<int>(r.qwCache >> (kCacheBits - 1 - entry.byLength)) & 1);
        const int nTableLevel = (entry.byLevel ^ nSign) - nSign;
        const int nEscapeLevel = static_cast<signed char>(nFields & 0xFF);
        const int nLast = ((nFields >> (TCOEF_ESCAPE_RUN_BITS + TCOEF_ESCAPE_LEVEL_BITS)) & nEscape & 1) |
                          (entry.byLast & ~nEscape);
        const int nRun = ((nFields >> TCOEF_ESCAPE_LEVEL_BITS) & ((1 << TCOEF_ESCAPE_RUN_BITS) - 1) & nEscape) |
                         (entry.byRun & ~nEscape);
        const int nLevel = (nEscapeLevel & nEscape) | (nTableLevel & ~nEscape);
        const int nBits = entry.byLength + 1 + ((TCOEF_ESCAPE_EVENT_BITS - entry.byLength - 1) & nEscape);
        r.qwCache <<= nBits;
        r.incnt -= nBits;
        r.bitcnt += nBits;
        nPos += nRun;
        if (nPos >= BLOCK_SAMPLES)
            break;
        // sign(L) * (Q * (2|L| + 1) - e), with the sign as a mask; a LEVEL of 0 counts as
        // positive.
        const int nLevelSign = nLevel >> 31;
        const int nMagnitude = nQ * (2 * ((nLevel ^ nLevelSign) - nLevelSign) + 1) - e;
        psBlock[g_byZigZagInverse[nPos]] = static_cast<short>((nMagnitude ^ nLevelSign) - nLevelSign);
        ++nPos;
        if (nLast != 0) {
            bGood = TRUE;
            break;
        }
    }
    *m_pBitReader = r;
    return bGood;
}

// ---------------------------------------------------------------------------
// Picture bodies. A macroblock's six blocks stay in natural order from their
// coefficients to the picture.

BOOL CDecoder::IFrameDecode(const IMAGE& img)
{
    return DecodeBody(img, FALSE, IDCTNatural);
}

BOOL CDecoder::PFrameDecode(const IMAGE& img)
{
    return DecodeBody(img, TRUE, IDCTNatural);
}

BOOL CDecoder::IFrameDecodewithMMX(const IMAGE& img)
{
    return DecodeBody(img, FALSE, m_pKernels->pfnIDCTMMX);
}

BOOL CDecoder::PFrameDecodewithMMX(const IMAGE& img)
{
    return DecodeBody(img, TRUE, m_pKernels->pfnIDCTMMX);
}

BOOL CDecoder::DecodeBody(const IMAGE& img, BOOL bPFrame, IDCTFunction pfnIDCT)
{
    AlignBits();
    int nGroups = static_cast<int>(GetBits(kGroupsBits));
    for (int i = 0; i < m_nMBCount; ++i) {
        if (nGroups > 0 && i == m_nMBCount - kGroupMacroblocks * nGroups) {
            AlignBits();
            --nGroups;
        }
        BOOL bGood = TRUE;
        if (!bPFrame)
            bGood = DecodeIntraMB(img, i, FALSE, pfnIDCT);
        else if (GetBits(1) == 0)   // COD 0: coded
            bGood = GetBits(1) != 0 ? DecodeInterMB(img, i, pfnIDCT) : DecodeIntraMB(img, i, TRUE, pfnIDCT);
        if (!bGood)
            return FALSE;
    }
    return TRUE;
}

BOOL CDecoder::DecodeIntraMB(const IMAGE& img, int nIndex, BOOL bQp, IDCTFunction pfnIDCT)
{
    const int nPattern = (15 - (GetCBPY() & 15)) * 4 + static_cast<int>(GetBits(kCBPCBits));
    alignas(32) short sBlocks[MB_BLOCKS * BLOCK_SAMPLES] = {};
    short* apsBlocks[MB_BLOCKS];
    for (int b = 0; b < MB_BLOCKS; ++b) {
        apsBlocks[b] = sBlocks + BLOCK_SAMPLES * b;
        unsigned nDC = GetBits(kDCBits);
        if (nDC == kForbiddenDC)
            return FALSE;
        if (nDC == kDCStoredFor128)
            nDC = kForbiddenDC;
        apsBlocks[b][0] = static_cast<short>(nDC * INTRA_DC_SCALE);
        if ((nPattern & (1 << (MB_BLOCKS - 1 - b))) != 0 && !DecodeDCTCoeff(apsBlocks[b], FALSE, bQp))
            return FALSE;
    }
    pfnIDCT(apsBlocks, MB_BLOCKS);
    m_pKernels->pfnStoreMB(sBlocks, img, nIndex % m_nMBCols, nIndex / m_nMBCols, m_nWidth);
    return TRUE;
}

// Only the blocks of the pattern are transformed and added: a block without events
// transforms to zeros in both forms and would add nothing.
BOOL CDecoder::DecodeInterMB(const IMAGE& img, int nIndex, IDCTFunction pfnIDCT)
{
    const int nPattern = (GetCBPY() & 15) * 4 + static_cast<int>(GetBits(kCBPCBits));
    if (nPattern == 0)
        return TRUE;
    alignas(32) short sBlocks[MB_BLOCKS * BLOCK_SAMPLES];
    short* apsBlocks[MB_BLOCKS];
    int nBlocks = 0;
    for (int b = 0; b < MB_BLOCKS; ++b) {
        if ((nPattern & (1 << (MB_BLOCKS - 1 - b))) == 0)
            continue;
        short* psBlock = sBlocks + BLOCK_SAMPLES * b;
        std::memset(psBlock, 0, BLOCK_SAMPLES * sizeof(short));
        if (!DecodeDCTCoeff(psBlock, TRUE, TRUE))
            return FALSE;
        apsBlocks[nBlocks++] = psBlock;
    }
    pfnIDCT(apsBlocks, nBlocks);
    m_pKernels->pfnStoreSumMB(sBlocks, nPattern, img, img, nIndex % m_nMBCols, nIndex / m_nMBCols, m_nWidth);
    return TRUE;
}
