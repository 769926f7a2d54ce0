#include "codec/CDecoder.h"

#include "codec/BitstreamTables.h"
#include "codec/PixelKernels.h"
#include "codec/TransformKernels.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr DWORD kRevision20020219 = 0x20020219;
constexpr int kLumaCapacity = CDecoder::MAX_WIDTH * CDecoder::MAX_HEIGHT;
constexpr int kChromaCapacity = kLumaCapacity / 4;
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
constexpr int kWindowBytes = 16;
constexpr int kKeptBytes = 4;
constexpr int kFetchBytes = 8;
constexpr int kAlignBits = 16;

// Display scaling of the coded sizes of revision 0x20020219.
constexpr int kWideSourceRows = 120;   // a 160x128 picture shows its first 120 rows

unsigned LoadBigEndian32(const BYTE* p)
{
    return (unsigned{p[0]} << 24) | (unsigned{p[1]} << 16) | (unsigned{p[2]} << 8) | p[3];
}

std::uint64_t LoadBigEndian64(const BYTE* p)
{
    return (std::uint64_t{LoadBigEndian32(p)} << 32) | LoadBigEndian32(p + 4);
}

BYTE* AllocatePlanes(IMAGE& img)
{
    BYTE* pPlanes = new (std::nothrow) BYTE[kLumaCapacity + 2 * kChromaCapacity];
    if (pPlanes == nullptr)
        return nullptr;
    std::memset(pPlanes, kBlackLuma, kLumaCapacity);
    std::memset(pPlanes + kLumaCapacity, kNeutralChroma, 2 * kChromaCapacity);
    img.Y = pPlanes;
    img.U = pPlanes + kLumaCapacity;
    img.V = pPlanes + kLumaCapacity + kChromaCapacity;
    return pPlanes;
}

void FreePlanes(IMAGE& img)
{
    delete[] img.Y;   // one allocation, starting at Y
    img = {};
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
    m_pBitStream = new (std::nothrow) BYTE[BITSTREAM_BYTES]();
    m_pBitReader = new (std::nothrow) tag_BITREADER();
    if (m_pBitStream == nullptr || m_pBitReader == nullptr || AllocatePlanes(m_imgDisplay) == nullptr ||
        AllocatePlanes(m_imgDecoded) == nullptr) {
        FreeAllMemory();
        return FALSE;
    }
    m_nBitStreamLen = 0;
    m_bUseMMX = HasMMX();
    return TRUE;
}

void CDecoder::FreeAllMemory()
{
    delete[] m_pBitStream;
    delete m_pBitReader;
    m_pBitStream = nullptr;
    m_pBitReader = nullptr;
    FreePlanes(m_imgDisplay);
    FreePlanes(m_imgDecoded);
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
// Bit reader

void CDecoder::InitBitStreamBuf()
{
    tag_BITREADER& r = *m_pBitReader;
    r.rdptr = m_pBitStream;
    std::memset(r.inbfr, 0, sizeof r.inbfr);
    r.incnt = 0;
    r.bitcnt = 0;
    r.dwKept = 0;
    r.qwFetched = 0;
}

// Keeps the last 4 bytes of the window and fetches 8 more. Past the end of the private
// copy the fetch yields zeros, so no record can lead the reader outside it.
void CDecoder::FillWindow(tag_BITREADER& r, const BYTE* pEnd)
{
    std::memcpy(r.inbfr + kKeptBytes, r.inbfr + kWindowBytes - kKeptBytes, kKeptBytes);
    if (r.rdptr + kFetchBytes <= pEnd) {
        std::memcpy(r.inbfr + kKeptBytes + kKeptBytes, r.rdptr, kFetchBytes);
        r.rdptr += kFetchBytes;
    } else {
        std::memset(r.inbfr + kKeptBytes + kKeptBytes, 0, kFetchBytes);
    }
    r.dwKept = static_cast<DWORD>(r.qwFetched);
    r.qwFetched = LoadBigEndian64(r.inbfr + kKeptBytes + kKeptBytes);
    r.incnt += 8 * kFetchBytes;
}

// The unread bits are the low incnt bits of the 96-bit window inbfr[4..15].
inline unsigned CDecoder::ShowWindowBits(tag_BITREADER& r, int nBits, const BYTE* pEnd)
{
    if (r.incnt < nBits)
        FillWindow(r, pEnd);
    const int nBelow = r.incnt - nBits;
    const unsigned nMask = (1u << nBits) - 1;
    if (nBelow >= 64)
        return (r.dwKept >> (nBelow - 64)) & nMask;
    std::uint64_t qwBits = r.qwFetched >> nBelow;
    if (r.incnt > 64)
        qwBits |= std::uint64_t{r.dwKept} << (64 - nBelow);
    return static_cast<unsigned>(qwBits) & nMask;
}

inline void CDecoder::FlushWindowBits(tag_BITREADER& r, int nBits, const BYTE* pEnd)
{
    r.bitcnt += nBits;
    r.incnt -= nBits;
    if (r.incnt < 0)
        FillWindow(r, pEnd);
}

void CDecoder::FillBitStreamBuffer()
{
    FillWindow(*m_pBitReader, m_pBitStream + BITSTREAM_BYTES);
}

inline unsigned CDecoder::ShowBits(int nBits)
{
    return ShowWindowBits(*m_pBitReader, nBits, m_pBitStream + BITSTREAM_BYTES);
}

inline void CDecoder::FlushBits(int nBits)
{
    FlushWindowBits(*m_pBitReader, nBits, m_pBitStream + BITSTREAM_BYTES);
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
    if (m_pBitStream == nullptr || nInLen < 0 || nInLen > BITSTREAM_BYTES || (pIn == nullptr && nInLen > 0)) {
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
        std::memcpy(m_pBitStream, pIn, static_cast<std::size_t>(nInLen));
    if (m_nBitStreamLen > nInLen)
        std::memset(m_pBitStream + nInLen, 0, static_cast<std::size_t>(m_nBitStreamLen - nInLen));
    m_nBitStreamLen = nInLen;
}

void CDecoder::WriteOutput(BYTE* pOut, BOOL bKeepSize, DECODER_RETURN& result)
{
    if (m_dwRevision == kRevision20020219) {
        int nWidth = m_nWidth;
        int nHeight = m_nHeight;
        IQImage(m_imgDisplay, m_imgDecoded, nWidth, nHeight, bKeepSize);
        YUVToRGB24(pOut, m_imgDisplay, nWidth, nHeight);
        result.nWidth = nWidth;
        result.nHeight = nHeight;
    } else {
        YUVToRGB24(pOut, m_imgDecoded, m_nWidth, m_nHeight);
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
    if (m_dwRevision == kRevision20020219) {
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

// Coefficient events of one block into scan order, inverse quantised. A table code
// has at most 12 bits, so its sign bit is mostly among the 12 bits already shown.
BOOL CDecoder::DecodeDCTCoeff(short* psBlock, BOOL bInter, BOOL bQp)
{
    const int nQ = bQp ? m_nQp : m_nQi;
    const int e = nQ % 2 == 0 ? 1 : 0;
    const BYTE* pEnd = m_pBitStream + BITSTREAM_BYTES;
    tag_BITREADER r = *m_pBitReader;
    BOOL bGood = FALSE;
    for (int nPos = bInter ? 0 : 1;;) {
        const unsigned nNext = ShowWindowBits(r, TCOEF_LOOKAHEAD_BITS, pEnd);
        if (nNext < TCOEF_READ12_FIRST)
            break;
        const tag_TCOEFENTRY& entry = nNext >= TCOEF_READ7_FIRST    ? g_tcoefRead7[nNext >> 5]
                                      : nNext >= TCOEF_READ10_FIRST ? g_tcoefRead10[nNext >> 2]
                                                                    : g_tcoefRead12[nNext];
        if (entry.byLength == 0)
            break;
        int nLast;
        int nRun;
        int nLevel;
        if (IsTCoefEscape(entry)) {
            FlushWindowBits(r, entry.byLength, pEnd);
            nLast = static_cast<int>(ShowWindowBits(r, TCOEF_ESCAPE_LAST_BITS, pEnd));
            FlushWindowBits(r, TCOEF_ESCAPE_LAST_BITS, pEnd);
            nRun = static_cast<int>(ShowWindowBits(r, TCOEF_ESCAPE_RUN_BITS, pEnd));
            FlushWindowBits(r, TCOEF_ESCAPE_RUN_BITS, pEnd);
            nLevel = static_cast<signed char>(ShowWindowBits(r, TCOEF_ESCAPE_LEVEL_BITS, pEnd));
            FlushWindowBits(r, TCOEF_ESCAPE_LEVEL_BITS, pEnd);
        } else {
            nLast = entry.byLast;
            nRun = entry.byRun;
            unsigned nSign;
            if (entry.byLength < TCOEF_LOOKAHEAD_BITS) {
                nSign = (nNext >> (TCOEF_LOOKAHEAD_BITS - 1 - entry.byLength)) & 1;
                FlushWindowBits(r, entry.byLength + 1, pEnd);
            } else {
                FlushWindowBits(r, entry.byLength, pEnd);
                nSign = ShowWindowBits(r, 1, pEnd);
                FlushWindowBits(r, 1, pEnd);
            }
            nLevel = nSign != 0 ? -entry.byLevel : entry.byLevel;
        }
        nPos += nRun;
        if (nPos >= BLOCK_SAMPLES)
            break;
        const int nMagnitude = nQ * (2 * (nLevel < 0 ? -nLevel : nLevel) + 1) - e;
        psBlock[nPos] = static_cast<short>(nLevel < 0 ? -nMagnitude : nMagnitude);
        ++nPos;
        if (nLast != 0) {
            bGood = TRUE;
            break;
        }
    }
    *m_pBitReader = r;
    return bGood;
}

void CDecoder::FillMBFromSubMB(int nBlock, YUV_Block* pMB, const short* psBlock)
{
    if (nBlock >= 4) {
        std::memcpy(nBlock == 4 ? pMB->U : pMB->V, psBlock, BLOCK_SAMPLES * sizeof(short));
        return;
    }
    short* psDst = pMB->Y + BLOCK_SIZE * (nBlock / 2) * MB_LUMA_SIZE + BLOCK_SIZE * (nBlock % 2);
    for (int y = 0; y < BLOCK_SIZE; ++y)
        std::memcpy(psDst + y * MB_LUMA_SIZE, psBlock + y * BLOCK_SIZE, BLOCK_SIZE * sizeof(short));
}

// ---------------------------------------------------------------------------
// Picture bodies

BOOL CDecoder::IFrameDecode(const IMAGE& img)
{
    return DecodeBody(img, FALSE, IDCTBlock);
}

BOOL CDecoder::PFrameDecode(const IMAGE& img)
{
    return DecodeBody(img, TRUE, IDCTBlock);
}

BOOL CDecoder::IFrameDecodewithMMX(const IMAGE& img)
{
    return DecodeBody(img, FALSE, IDCTBlockMMX);
}

BOOL CDecoder::PFrameDecodewithMMX(const IMAGE& img)
{
    return DecodeBody(img, TRUE, IDCTBlockMMX);
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
    YUV_Block mb;
    for (int b = 0; b < MB_BLOCKS; ++b) {
        short sCoeff[BLOCK_SAMPLES] = {};
        short sBlock[BLOCK_SAMPLES];
        unsigned nDC = GetBits(kDCBits);
        if (nDC == kForbiddenDC)
            return FALSE;
        if (nDC == kDCStoredFor128)
            nDC = kForbiddenDC;
        sCoeff[0] = static_cast<short>(nDC * INTRA_DC_SCALE);
        if ((nPattern & (1 << (MB_BLOCKS - 1 - b))) != 0 && !DecodeDCTCoeff(sCoeff, FALSE, bQp))
            return FALSE;
        pfnIDCT(sCoeff, sBlock);
        FillMBFromSubMB(b, &mb, sBlock);
    }
    ClipMB(&mb);
    PutMB(nIndex % m_nMBCols, nIndex / m_nMBCols, img, m_nWidth, &mb);
    return TRUE;
}

// A block without events transforms to zeros in both forms, so it adds nothing and its
// transform is left out.
BOOL CDecoder::DecodeInterMB(const IMAGE& img, int nIndex, IDCTFunction pfnIDCT)
{
    const int nPattern = (GetCBPY() & 15) * 4 + static_cast<int>(GetBits(kCBPCBits));
    if (nPattern == 0)
        return TRUE;
    YUV_Block difference;
    for (int b = 0; b < MB_BLOCKS; ++b) {
        short sBlock[BLOCK_SAMPLES] = {};
        if ((nPattern & (1 << (MB_BLOCKS - 1 - b))) != 0) {
            short sCoeff[BLOCK_SAMPLES] = {};
            if (!DecodeDCTCoeff(sCoeff, TRUE, TRUE))
                return FALSE;
            pfnIDCT(sCoeff, sBlock);
        }
        FillMBFromSubMB(b, &difference, sBlock);
    }
    const int nCol = nIndex % m_nMBCols;
    const int nRow = nIndex / m_nMBCols;
    YUV_Block mb;
    GetMB(nCol, nRow, img, m_nWidth, &mb);
    AddMB(&mb, &difference);
    ClipMB(&mb);
    PutMB(nCol, nRow, img, m_nWidth, &mb);
    return TRUE;
}
