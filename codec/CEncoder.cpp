#include "codec/CEncoder.h"

#include "codec/BitstreamTables.h"
#include "codec/CodecMemory.h"
#include "codec/PixelKernels.h"
#include "codec/TransformKernels.h"
#include "platform/TickClock.h"
#include "platform/WinThreads.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

constexpr int kStartCodeZeroBits = 16;
constexpr unsigned kStartCodeTail = 0x10;   // the five bits 10000 behind sixteen zeros
constexpr int kStartCodeTailBits = 5;
constexpr int kTypeBits = 2;
constexpr int kSizeBits = 10;
constexpr int kQuantBits = 8;
constexpr int kPFrameType = 2;
constexpr int kDCBits = 8;
constexpr int kDCStoredFor128 = 255;
constexpr int kCBPCBits = 2;
constexpr int kGroupsFieldBytes = 2;
constexpr int kDroppedBelowIntraCount = 4;
constexpr int kDefaultIntraThreshold = 3840;
constexpr int kDefaultMoveThreshold = 2048;
constexpr int kMinMovedForDetection = 2;
constexpr int kMinMovedForArea = 3;
constexpr int kMinQuant = 1;
constexpr int kMaxQuant = 31;
// Until the caller sets one, pictures use the encoding parameters' default quantiser,
// never 0.
constexpr int kDefaultQuant = 10;
constexpr int kMaxCodedWidth = 704;
constexpr int kMaxCodedHeight = 576;
constexpr BYTE kBlackLuma = 0;
constexpr BYTE kNeutralChroma = 128;
constexpr int kFirstWindowMs = 30;
constexpr int kSecondWindowMs = 10;
constexpr int kCopMaxMacroblocks = CEncoder::COP_MAX_GROUPS * CEncoder::COP_GROUP_MBS;
// The CPU takes the rest itself once fewer than this many macroblocks remain, so that
// no short group exists.
constexpr int kCopMinRemainder = 12;

// The worst macroblock: an inter macroblock whose 384 coefficients all take ESCAPE
// (22 bits each), behind COD, MODE, the longest CBPY and CBPC.
constexpr int kEscapeBits = TCOEF_ESCAPE_LENGTH + TCOEF_ESCAPE_LAST_BITS + TCOEF_ESCAPE_RUN_BITS +
                            TCOEF_ESCAPE_LEVEL_BITS;
constexpr int kMaxMacroblockBits = 1 + 1 + CBPY_LOOKAHEAD_BITS + kCBPCBits + MB_SAMPLES * kEscapeBits;
// Start code, type, size, quantiser, marker, padding and GROUPS.
constexpr int kMaxHeaderBytes = 10;

struct tag_SIZEENTRY {
    int nAskedWidth;
    int nAskedHeight;
    int nCaptureWidth;
    int nCaptureHeight;
    int nCodedWidth;
    int nCodedHeight;
};

// Frame sizes of revision 0x20020219: what the channel asks for, what the capture
// delivers, and what is coded.
constexpr tag_SIZEENTRY kRevision20020219Sizes[] = {
    {320, 240, 320, 240, 160, 128},
    {640, 240, 320, 240, 320, 240},
    {352, 288, 352, 288, 176, 144},
    {704, 288, 352, 288, 352, 288},
};

std::size_t PlaneSetBytes(int nWidth, int nHeight)
{
    const std::size_t nLuma = static_cast<std::size_t>(nWidth) * nHeight;
    return nLuma + nLuma / 2;
}

// Points img at a plane set at pbyPlanes and clears it to black; returns the byte after
// the set.
BYTE* AssignPlaneSet(IMAGE& img, BYTE* pbyPlanes, int nWidth, int nHeight)
{
    const std::size_t nLuma = static_cast<std::size_t>(nWidth) * nHeight;
    std::memset(pbyPlanes, kBlackLuma, nLuma);
    std::memset(pbyPlanes + nLuma, kNeutralChroma, nLuma / 2);
    img.Y = pbyPlanes;
    img.U = pbyPlanes + nLuma;
    img.V = pbyPlanes + nLuma + nLuma / 4;
    return pbyPlanes + PlaneSetBytes(nWidth, nHeight);
}

void CopyPlaneSet(const IMAGE& imgDst, const IMAGE& imgSrc, int nWidth, int nHeight)
{
    const std::size_t nLuma = static_cast<std::size_t>(nWidth) * nHeight;
    std::memcpy(imgDst.Y, imgSrc.Y, nLuma);
    std::memcpy(imgDst.U, imgSrc.U, nLuma / 4);
    std::memcpy(imgDst.V, imgSrc.V, nLuma / 4);
}

// Plane pointers are exchanged, never the pictures; sets are one allocation each, so
// the three pointers always travel together.
void SwapPlaneSets(IMAGE& imgFirst, IMAGE& imgSecond)
{
    std::swap(imgFirst, imgSecond);
}

bool TickBefore(DWORD dwNow, DWORD dwEnd)
{
    return static_cast<int32_t>(dwNow - dwEnd) < 0;
}

} // namespace

CEncoder::CEncoder() = default;

CEncoder::~CEncoder()
{
    FreeBuffers();
}

std::size_t CEncoder::GetMaxRecordLength(int nWidth, int nHeight)
{
    const std::size_t nMacroblocks = static_cast<std::size_t>(nWidth / MB_LUMA_SIZE) * (nHeight / MB_LUMA_SIZE);
    const std::size_t nBodyBytes = (nMacroblocks * kMaxMacroblockBits + 7) / 8;
    // Every group and the end of the picture can add one word of padding.
    return kMaxHeaderBytes + nBodyBytes + kGroupsFieldBytes * (COP_MAX_GROUPS + 1);
}

BOOL CEncoder::Create(int nWidth, int nHeight, DWORD dwRevision, int nCoprocessor)
{
    FreeBuffers();
    m_dwRevision = dwRevision;
    m_nCaptureWidth = nWidth;
    m_nCaptureHeight = nHeight;
    if (dwRevision == STREAM_REVISION_20020219) {
        const tag_SIZEENTRY* pEntry = std::find_if(
            std::begin(kRevision20020219Sizes), std::end(kRevision20020219Sizes),
            [&](const tag_SIZEENTRY& entry) { return entry.nAskedWidth == nWidth && entry.nAskedHeight == nHeight; });
        if (pEntry == std::end(kRevision20020219Sizes))
            return FALSE;
        m_nCaptureWidth = pEntry->nCaptureWidth;
        m_nCaptureHeight = pEntry->nCaptureHeight;
        m_nWidth = pEntry->nCodedWidth;
        m_nHeight = pEntry->nCodedHeight;
    } else {
        // A picture holds whole macroblocks: a height like 120 is coded as 112, and the
        // rows below are not read.
        m_nWidth = nWidth - nWidth % MB_LUMA_SIZE;
        m_nHeight = nHeight - nHeight % MB_LUMA_SIZE;
        if (nWidth <= 0 || nHeight <= 0 || m_nWidth == 0 || m_nHeight == 0 || m_nWidth > kMaxCodedWidth ||
            m_nHeight > kMaxCodedHeight) {
            m_nWidth = m_nHeight = 0;
            return FALSE;
        }
    }
    m_nMBCount = (m_nWidth * m_nHeight) >> 8;
    m_nMBCols = m_nWidth >> 4;
    m_nMBRows = m_nHeight >> 4;
    if (!AllocateBuffers()) {
        FreeBuffers();
        return FALSE;
    }
    m_nIntraThreshold = kDefaultIntraThreshold;
    m_nMoveThreshold = kDefaultMoveThreshold;
    m_nQi = m_nQp = kDefaultQuant;
    InitBitWriter();
    m_bUseCoprocessor = nCoprocessor != 0;
    m_bUseMMX = HasMMX();
    return TRUE;
}

// One allocation for the plane sets and one for the coprocessor's groups; the records
// point into them.
BOOL CEncoder::AllocateBuffers()
{
    m_pBitBuffer = AllocateArray<BYTE>(GetMaxRecordLength(m_nWidth, m_nHeight));
    m_pMoveMap = AllocateArray<int>(static_cast<std::size_t>(m_nMBCount));
    m_pCopBatch = AllocateArray<BYTE>(COP_BATCH_BYTES);
    m_pCopGroups = AllocateArray<BYTE>(COP_MAX_GROUPS * (COP_GROUP_BITS_BYTES + COP_RECON_BYTES));
    const bool bReduced = m_dwRevision == STREAM_REVISION_20020219 && m_nCaptureHeight != m_nHeight;
    const std::size_t nCaptureBytes = bReduced ? PlaneSetBytes(m_nCaptureWidth, m_nCaptureHeight) : 0;
    m_pPlanes = AllocateArray<BYTE>(nCaptureBytes + 3 * PlaneSetBytes(m_nWidth, m_nHeight));
    if (!m_pBitBuffer || !m_pMoveMap || !m_pCopBatch || !m_pCopGroups || !m_pPlanes)
        return FALSE;
    for (int g = 0; g < COP_MAX_GROUPS; ++g) {
        m_pCopBits[g] = m_pCopGroups.get() + g * (COP_GROUP_BITS_BYTES + COP_RECON_BYTES);
        m_pCopRecon[g] = m_pCopBits[g] + COP_GROUP_BITS_BYTES;
    }
    BYTE* pbyNext = m_pPlanes.get();
    if (bReduced)
        pbyNext = AssignPlaneSet(m_imgCapture, pbyNext, m_nCaptureWidth, m_nCaptureHeight);
    pbyNext = AssignPlaneSet(m_imgPrevious, pbyNext, m_nWidth, m_nHeight);
    pbyNext = AssignPlaneSet(m_imgReference, pbyNext, m_nWidth, m_nHeight);
    AssignPlaneSet(m_imgCurrent, pbyNext, m_nWidth, m_nHeight);
    return TRUE;
}

void CEncoder::FreeBuffers()
{
    m_pBitBuffer.reset();
    m_pMoveMap.reset();
    m_pCopBatch.reset();
    m_pCopGroups.reset();
    m_pPlanes.reset();
    std::fill(std::begin(m_pCopBits), std::end(m_pCopBits), nullptr);
    std::fill(std::begin(m_pCopRecon), std::end(m_pCopRecon), nullptr);
    m_imgCapture = m_imgCurrent = m_imgReference = m_imgPrevious = {};
    m_pBitPtr = nullptr;
}

BOOL CEncoder::SetQi(int nQi)
{
    if (nQi < kMinQuant || nQi > kMaxQuant)
        return FALSE;
    m_nQi = nQi;
    return TRUE;
}

BOOL CEncoder::SetQp(int nQp)
{
    if (nQp < kMinQuant || nQp > kMaxQuant)
        return FALSE;
    m_nQp = nQp;
    return TRUE;
}

void CEncoder::SetIntraThreshold(int nThreshold)
{
    m_nIntraThreshold = nThreshold;
}

void CEncoder::SetMoveThreshold(int nThreshold)
{
    m_nMoveThreshold = nThreshold;
}

int CEncoder::CopFetch(BYTE*, int)
{
    return 0;
}

int CEncoder::CopResultLength()
{
    return 0;
}

int CEncoder::CopFetchDone(BYTE*, int)
{
    return 0;
}

int CEncoder::CopPoll()
{
    return 0;
}

int CEncoder::CopSubmit(BYTE*)
{
    return 0;
}

DWORD CEncoder::CopTickCount()
{
    return GetTickCount();
}

// ---------------------------------------------------------------------------
// Frame driver

ENCODER_RETURN CEncoder::Encode(BYTE* pbyFrame, BOOL bDetectOnly, int nFrameType)
{
    ENCODER_RETURN result = {bDetectOnly, FALSE, nFrameType, 0, m_pBitBuffer.get()};
    if (!m_pBitBuffer)
        return result;
    ClearMoveMap();
    InitBitWriter();
    BringFrameIn(pbyFrame);
    if (bDetectOnly) {
        result.bMoved = nFrameType != 0 ? DetectMove() : FALSE;
        SwapPlaneSets(m_imgCurrent, m_imgPrevious);
    } else {
        result = EncodeOneFrame(m_imgCurrent, nFrameType);
    }
    if (!result.bMoved)
        ClearMoveMap();
    return result;
}

void CEncoder::ClearMoveMap()
{
    std::fill(m_pMoveMap.get(), m_pMoveMap.get() + m_nMBCount, 0);
}

void CEncoder::BringFrameIn(BYTE* pbyFrame)
{
    if (m_dwRevision == STREAM_REVISION_20020219 && m_nCaptureHeight != m_nHeight) {
        UYVYToYUV420(pbyFrame, m_imgCapture, m_nCaptureWidth, m_nCaptureHeight);
        YUVToRGB24(pbyFrame, m_imgCapture, m_nCaptureWidth, m_nCaptureHeight);
        ReduceYUV420(m_imgCapture, m_imgCurrent, m_nCaptureWidth, m_nCaptureHeight, m_nWidth);
    } else {
        UYVYToYUV420(pbyFrame, m_imgCurrent, m_nWidth, m_nHeight);
        YUVToRGB24(pbyFrame, m_imgCurrent, m_nWidth, m_nHeight);
    }
}

BOOL CEncoder::DetectMove()
{
    int nMoved = 0;
    YUV_Block current;
    YUV_Block previous;
    for (int i = 0; i < m_nMBCount; ++i) {
        const int nCol = i % m_nMBCols;
        const int nRow = i / m_nMBCols;
        GetMB(nCol, nRow, m_imgCurrent, m_nWidth, &current);
        GetMB(nCol, nRow, m_imgPrevious, m_nWidth, &previous);
        if (SADMB(&current, &previous) > m_nMoveThreshold) {
            m_pMoveMap[i] = 1;
            ++nMoved;
        }
    }
    return nMoved >= kMinMovedForDetection;
}

ENCODER_RETURN CEncoder::EncodeOneFrame(const IMAGE& imgCurrent, int nFrameType)
{
    ENCODER_RETURN result = {FALSE, FALSE, nFrameType, 0, m_pBitBuffer.get()};
    PutBits(kStartCodeZeroBits, 0);
    PutBits(kStartCodeTailBits, kStartCodeTail);
    if (nFrameType == 0 || nFrameType == 1) {
        PutBits(kTypeBits, static_cast<unsigned>(nFrameType));
        PutBits(kSizeBits, static_cast<unsigned>(m_nWidth));
        PutBits(kSizeBits, static_cast<unsigned>(m_nHeight));
        PutBits(kQuantBits, static_cast<unsigned>(m_nQi));
        PutBits(1, 1);
        if (m_bUseMMX)
            IFrameEncodewithMMX(imgCurrent, m_imgReference, m_nQi);
        else if (m_bUseCoprocessor)
            IFrameEncodeCop(imgCurrent, m_imgReference, m_nQi);
        else
            IFrameEncode(imgCurrent, m_imgReference, m_nQi);
    } else {
        result.nFrameType = kPFrameType;
        PutBits(kTypeBits, kPFrameType);
        const tag_BITWRITERSTATE beforeCoded = SaveBitWriter();
        PutBits(1, 1);
        PutBits(kQuantBits, static_cast<unsigned>(m_nQp));
        if (EncodePFrameBody() < kDroppedBelowIntraCount) {
            RestoreBitWriter(beforeCoded);
            PutBits(1, 0);
            RestoreReference();
        } else {
            result.bMoved = TRUE;
        }
    }
    AlignBits();
    result.nLength = m_nBitLen;
    return result;
}

// Codes the body of a P picture so that the reference before it can be brought back:
// the SIMD body writes into the other plane set, the others work on the reference in
// place after a copy of it.
int CEncoder::EncodePFrameBody()
{
    if (m_bUseMMX) {
        SwapPlaneSets(m_imgReference, m_imgPrevious);
        return PFrameEncodewithMMX(m_imgCurrent, m_imgPrevious, m_imgReference, m_nQp);
    }
    CopyPlaneSet(m_imgPrevious, m_imgReference, m_nWidth, m_nHeight);
    if (m_bUseCoprocessor)
        return PFrameEncodeCop(m_imgCurrent, m_imgReference, m_nQp);
    return PFrameEncode(m_imgCurrent, m_imgReference, m_nQp);
}

void CEncoder::RestoreReference()
{
    if (m_bUseMMX)
        SwapPlaneSets(m_imgReference, m_imgPrevious);
    else
        CopyPlaneSet(m_imgReference, m_imgPrevious, m_nWidth, m_nHeight);
}

BOOL CEncoder::IsAreaMove(int nLeft, int nTop, int nRight, int nBottom) const
{
    if (m_pMoveMap == nullptr)
        return FALSE;
    // Map rows run opposite to rectangle rows.
    const int nFirstCol = std::max(0, nLeft >> 4);
    const int nLastCol = std::min(m_nMBCols - 1, (m_nWidth >> 4) - ((m_nWidth - nRight) >> 4));
    const int nFirstRow = m_nMBRows - (nBottom >> 4);
    const int nLastRow = (m_nHeight - nTop) >> 4;
    if (nFirstRow > nLastRow)
        return FALSE;
    int nMoved = 0;
    for (int nRow = std::max(0, nFirstRow); nRow <= std::min(m_nMBRows - 1, nLastRow); ++nRow) {
        for (int nCol = nFirstCol; nCol <= nLastCol; ++nCol)
            nMoved += m_pMoveMap[nRow * m_nMBCols + nCol] != 0;
    }
    return nMoved >= kMinMovedForArea;
}

// ---------------------------------------------------------------------------
// Bit writer

void CEncoder::InitBitWriter()
{
    m_pBitPtr = m_pBitBuffer.get();
    m_wBitAcc = 0;
    m_nBitsFree = 16;
    m_nBitLen = 0;
}

// Appends the low nBits (1 to 16) of nValue, most significant first, to the 16-bit
// accumulator; a full accumulator goes out high byte first.
void CEncoder::PutBits(int nBits, unsigned nValue)
{
    nValue &= (1u << nBits) - 1;
    if (nBits < m_nBitsFree) {
        m_nBitsFree -= nBits;
        m_wBitAcc = static_cast<WORD>(m_wBitAcc | (nValue << m_nBitsFree));
        return;
    }
    const int nRest = nBits - m_nBitsFree;
    const unsigned nWord = m_wBitAcc | (nValue >> nRest);
    m_pBitPtr[0] = static_cast<BYTE>(nWord >> 8);
    m_pBitPtr[1] = static_cast<BYTE>(nWord);
    m_pBitPtr += 2;
    m_nBitLen += 2;
    m_nBitsFree = 16 - nRest;
    m_wBitAcc = static_cast<WORD>(nRest != 0 ? nValue << m_nBitsFree : 0);
}

int CEncoder::AlignBits()
{
    if (m_nBitsFree == 16)
        return 0;
    const int nPadding = m_nBitsFree;
    PutBits(nPadding, 0);
    return nPadding;
}

CEncoder::tag_BITWRITERSTATE CEncoder::SaveBitWriter() const
{
    return {m_pBitPtr, m_wBitAcc, m_nBitsFree, m_nBitLen};
}

void CEncoder::RestoreBitWriter(const tag_BITWRITERSTATE& state)
{
    m_pBitPtr = state.pBitPtr;
    m_wBitAcc = state.wBitAcc;
    m_nBitsFree = state.nBitsFree;
    m_nBitLen = state.nBitLen;
}

// Two bytes for GROUPS behind an aligned writer; the body fills them in at its end.
BYTE* CEncoder::ReserveGroupsField()
{
    BYTE* pField = m_pBitPtr;
    m_pBitPtr += kGroupsFieldBytes;
    m_nBitLen += kGroupsFieldBytes;
    return pField;
}

void CEncoder::PutCBPY(int nPattern, BOOL bInter)
{
    const tag_VLCCODE& code = g_vlcCBPY[bInter ? 15 - nPattern : nPattern];
    PutBits(code.byLength, code.wCode);
}

int CEncoder::PutDCTCoeff(int nRun, int nAbsLevel, int nLast)
{
    const tag_VLCCODE code = LookupTCoefCode(nLast, nRun, nAbsLevel);
    if (code.byLength != 0)
        PutBits(code.byLength, code.wCode);
    return code.byLength;
}

void CEncoder::PutEvent(int nLast, int nRun, int nLevel)
{
    const int nAbsLevel = nLevel < 0 ? -nLevel : nLevel;
    if (nAbsLevel < TCOEF_LAST0_SHORT_LEVELS && nRun < 64 && PutDCTCoeff(nRun, nAbsLevel, nLast) != 0) {
        PutBits(1, nLevel < 0 ? 1 : 0);
        return;
    }
    PutBits(TCOEF_ESCAPE_LENGTH, TCOEF_ESCAPE_CODE);
    PutBits(TCOEF_ESCAPE_LAST_BITS, static_cast<unsigned>(nLast));
    PutBits(TCOEF_ESCAPE_RUN_BITS, static_cast<unsigned>(nRun));
    PutBits(TCOEF_ESCAPE_LEVEL_BITS, static_cast<unsigned>(nLevel) & 0xFF);
}

// Events are written one step late, so that the last one is known to be last.
void CEncoder::EncodeDCTCoeff(BOOL bInter, const short* psLevel, int nBlock, int nBlockLength)
{
    const short* psBlock = psLevel + nBlock * nBlockLength;
    int nPos = 0;
    if (!bInter) {
        const int nDC = psBlock[0];
        PutBits(kDCBits, static_cast<unsigned>(nDC == 128 ? kDCStoredFor128 : nDC));
        nPos = 1;
    }
    int nRun = 0;
    int nHeldRun = -1;
    int nHeldLevel = 0;
    for (; nPos < nBlockLength; ++nPos) {
        const int nLevel = psBlock[nPos];
        if (nLevel == 0) {
            ++nRun;
            continue;
        }
        if (nHeldRun >= 0)
            PutEvent(0, nHeldRun, nHeldLevel);
        nHeldRun = nRun;
        nHeldLevel = nLevel;
        nRun = 0;
    }
    if (nHeldRun >= 0)
        PutEvent(1, nHeldRun, nHeldLevel);
}

void CEncoder::PutMBHeader(BOOL bPFrame, BOOL bInter, BOOL bSkip, int nPattern)
{
    if (bPFrame) {
        PutBits(1, bSkip ? 1 : 0);
        if (bInter && bSkip)
            return;
        PutBits(1, bInter ? 1 : 0);
    }
    PutCBPY(nPattern >> 2, bInter);
    PutBits(kCBPCBits, static_cast<unsigned>(nPattern & 3));
}

void CEncoder::PutMBBlocks(const short* psLevel, BOOL bInter, int nPattern, int nBlockLength)
{
    for (int b = 0; b < MB_BLOCKS; ++b) {
        if (!bInter || (nPattern & (1 << (MB_BLOCKS - 1 - b))) != 0)
            EncodeDCTCoeff(bInter, psLevel, b, nBlockLength);
    }
}

int CEncoder::GetCBP(const short* psLevel, int nFirst, int nBlockLength)
{
    int nPattern = 0;
    for (int b = 0; b < MB_BLOCKS; ++b) {
        const short* psBlock = psLevel + b * nBlockLength;
        int nAny = 0;   // no early exit: the loop over a whole block vectorises
        for (int n = nFirst; n < nBlockLength; ++n)
            nAny |= psBlock[n];
        if (nAny != 0)
            nPattern |= 1 << (MB_BLOCKS - 1 - b);
    }
    return nPattern;
}

// ---------------------------------------------------------------------------
// Macroblocks

namespace {

constexpr int kIntraFirstPosition = 1;
constexpr int kInterFirstPosition = 0;

} // namespace

void CEncoder::CodeIntraMB(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ,
                           const tag_TRANSFORMPAIR& transforms)
{
    const int nCol = nIndex % m_nMBCols;
    const int nRow = nIndex / m_nMBCols;
    YUV_Block mb;
    short sLevel[MB_BLOCKS * BLOCK_SAMPLES];
    GetMB(nCol, nRow, imgCurrent, m_nWidth, &mb);
    transforms.pfnQuant(sLevel, &mb, nQ, QUANT_MODE_INTRA);
    const int nPattern = GetCBP(sLevel, kIntraFirstPosition, BLOCK_SAMPLES);
    PutMBHeader(FALSE, FALSE, FALSE, nPattern);
    PutMBBlocks(sLevel, FALSE, nPattern, BLOCK_SAMPLES);
    transforms.pfnDequant(sLevel, &mb, nQ, QUANT_MODE_INTRA);
    ClipMB(&mb);
    PutMB(nCol, nRow, imgTarget, m_nWidth, &mb);
}

// One macroblock of a P picture: the co-located macroblock of the reference, or intra
// when the luma SAD against it is above the intra threshold.
void CEncoder::CodePredictedMB(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgReference,
                               const IMAGE& imgTarget, int nQ, int& nIntraCount,
                               const tag_TRANSFORMPAIR& transforms)
{
    const int nCol = nIndex % m_nMBCols;
    const int nRow = nIndex / m_nMBCols;
    YUV_Block current;
    YUV_Block reference;
    short sLevel[MB_BLOCKS * BLOCK_SAMPLES];
    GetMB(nCol, nRow, imgCurrent, m_nWidth, &current);
    GetMB(nCol, nRow, imgReference, m_nWidth, &reference);
    if (SADMB(&current, &reference) <= m_nIntraThreshold) {
        m_pMoveMap[nIndex] = 0;
        SubMB(&current, &reference);
        transforms.pfnQuant(sLevel, &current, nQ, QUANT_MODE_INTER);
        const int nPattern = GetCBP(sLevel, kInterFirstPosition, BLOCK_SAMPLES);
        if (nPattern == 0) {
            // Nothing coded: the macroblock stays the reference, one bit in the stream.
            PutMBHeader(TRUE, TRUE, TRUE, 0);
            if (imgTarget.Y != imgReference.Y)
                PutMB(nCol, nRow, imgTarget, m_nWidth, &reference);
            return;
        }
        PutMBHeader(TRUE, TRUE, FALSE, nPattern);
        PutMBBlocks(sLevel, TRUE, nPattern, BLOCK_SAMPLES);
        transforms.pfnDequant(sLevel, &current, nQ, QUANT_MODE_INTER);
        AddMB(&current, &reference);
    } else {
        m_pMoveMap[nIndex] = 1;
        ++nIntraCount;
        transforms.pfnQuant(sLevel, &current, nQ, QUANT_MODE_INTRA);
        const int nPattern = GetCBP(sLevel, kIntraFirstPosition, BLOCK_SAMPLES);
        PutMBHeader(TRUE, FALSE, FALSE, nPattern);
        PutMBBlocks(sLevel, FALSE, nPattern, BLOCK_SAMPLES);
        transforms.pfnDequant(sLevel, &current, nQ, QUANT_MODE_INTRA);
    }
    ClipMB(&current);
    PutMB(nCol, nRow, imgTarget, m_nWidth, &current);
}

void CEncoder::IFrameEncodeMB(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ)
{
    CodeIntraMB(nIndex, imgCurrent, imgTarget, nQ, {QuantMB, DequantMB});
}

void CEncoder::IFrameEncodeMBwithMMX(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ)
{
    CodeIntraMB(nIndex, imgCurrent, imgTarget, nQ, {QuantMBwithMMX, DequantMBwithMMX});
}

void CEncoder::PFrameEncodeMB(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgReference, int nQ,
                              int& nIntraCount)
{
    CodePredictedMB(nIndex, imgCurrent, imgReference, imgReference, nQ, nIntraCount, {QuantMB, DequantMB});
}

void CEncoder::PFrameEncodeMBwithMMX(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgReference,
                                     const IMAGE& imgTarget, int nQ, int& nIntraCount)
{
    CodePredictedMB(nIndex, imgCurrent, imgReference, imgTarget, nQ, nIntraCount,
                    {QuantMBwithMMX, DequantMBwithMMX});
}

// ---------------------------------------------------------------------------
// Picture bodies. The scalar bodies update the target in place: a macroblock is read
// before it is written, and no macroblock reads another's area.

void CEncoder::IFrameEncode(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ)
{
    AlignBits();
    BYTE* pGroups = ReserveGroupsField();
    for (int i = 0; i < m_nMBCount; ++i)
        IFrameEncodeMB(i, imgCurrent, imgTarget, nQ);
    pGroups[0] = pGroups[1] = 0;
}

int CEncoder::PFrameEncode(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ)
{
    AlignBits();
    BYTE* pGroups = ReserveGroupsField();
    int nIntraCount = 0;
    for (int i = 0; i < m_nMBCount; ++i)
        PFrameEncodeMB(i, imgCurrent, imgTarget, nQ, nIntraCount);
    pGroups[0] = pGroups[1] = 0;
    return nIntraCount;
}

void CEncoder::IFrameEncodewithMMX(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ)
{
    AlignBits();
    BYTE* pGroups = ReserveGroupsField();
    for (int i = 0; i < m_nMBCount; ++i)
        IFrameEncodeMBwithMMX(i, imgCurrent, imgTarget, nQ);
    pGroups[0] = pGroups[1] = 0;
}

int CEncoder::PFrameEncodewithMMX(const IMAGE& imgCurrent, const IMAGE& imgReference, const IMAGE& imgTarget,
                                  int nQ)
{
    AlignBits();
    BYTE* pGroups = ReserveGroupsField();
    int nIntraCount = 0;
    for (int i = 0; i < m_nMBCount; ++i)
        PFrameEncodeMBwithMMX(i, imgCurrent, imgReference, imgTarget, nQ, nIntraCount);
    pGroups[0] = pGroups[1] = 0;
    return nIntraCount;
}

// ---------------------------------------------------------------------------
// Coprocessor bodies: the CPU codes from the first macroblock upward while the
// coprocessor codes groups of ten from the end downward.

void CEncoder::IFrameEncodeCop(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ)
{
    EncodeBodyWithCoprocessor(imgCurrent, imgTarget, nQ, FALSE);
}

int CEncoder::PFrameEncodeCop(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ)
{
    return EncodeBodyWithCoprocessor(imgCurrent, imgTarget, nQ, TRUE);
}

void CEncoder::CodeOnCpu(int& nCpu, const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ, BOOL bPFrame,
                         int& nIntraCount)
{
    if (bPFrame)
        PFrameEncodeMB(nCpu, imgCurrent, imgTarget, nQ, nIntraCount);
    else
        IFrameEncodeMB(nCpu, imgCurrent, imgTarget, nQ);
    ++nCpu;
}

void CEncoder::FillCopBatch(int nGroupStart, const IMAGE& imgCurrent, const IMAGE& imgReference, int nQ,
                            BOOL bPFrame, int& nIntraCount)
{
    m_pCopBatch[0] = bPFrame ? 1 : 0;
    for (int g = 0; g < COP_GROUP_MBS; ++g) {
        const int nIndex = nGroupStart + g;
        const int nCol = nIndex % m_nMBCols;
        const int nRow = nIndex / m_nMBCols;
        BYTE* pRecord = m_pCopBatch.get() + 1 + g * COP_RECORD_BYTES;
        BYTE* pReference = m_pCopBatch.get() + COP_REFERENCE_OFFSET + g * MB_SAMPLES;
        pRecord[0] = static_cast<BYTE>(nQ);
        GetMBBytes(nCol, nRow, imgCurrent, m_nWidth, pRecord + 2);
        bool bInter = false;
        if (bPFrame) {
            GetMBBytes(nCol, nRow, imgReference, m_nWidth, pReference);
            bInter = SADMBBytes(pRecord + 2, pReference) <= m_nIntraThreshold;
            m_pMoveMap[nIndex] = bInter ? 0 : 1;
            nIntraCount += bInter ? 0 : 1;
        }
        pRecord[1] = bInter ? 1 : 0;
        if (!bInter)
            std::memset(pReference, 0, MB_SAMPLES);
    }
}

// Returns the number of intra macroblocks. Finished groups keep their reconstruction
// aside until the picture is complete: a fallback after a finished group then codes
// those macroblocks again against the reference that a decoder holds.
int CEncoder::EncodeBodyWithCoprocessor(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ, BOOL bPFrame)
{
    AlignBits();
    BYTE* pGroups = ReserveGroupsField();
    int nCpu = 0;
    int nCop = 0;
    int nGroups = 0;
    int nGroupStart = m_nMBCount - COP_GROUP_MBS;
    int nTail = 0;
    int nIntraCpu = 0;
    int nIntraCop = 0;
    bool bDone = false;
    bool bFallback = m_nMBCount < COP_GROUP_MBS;
    const auto codeInWindow = [&](int nWindowMs, bool bWaitOut) {
        const DWORD dwEnd = CopTickCount() + static_cast<DWORD>(nWindowMs);
        while (TickBefore(CopTickCount(), dwEnd)) {
            if (!bDone && nCop + nCpu == m_nMBCount)
                bDone = true;
            if (!bDone)
                CodeOnCpu(nCpu, imgCurrent, imgTarget, nQ, bPFrame, nIntraCpu);
            else if (bWaitOut)
                Sleep(1);
            else
                break;
        }
    };
    while (!bFallback) {
        if (nCop == kCopMaxMacroblocks) {
            nTail = m_nMBCount - nCop - nCpu;
            break;
        }
        FillCopBatch(nGroupStart, imgCurrent, imgTarget, nQ, bPFrame, nIntraCop);
        if (CopSubmit(m_pCopBatch.get()) != 0) {
            bFallback = true;
            break;
        }
        nCop += COP_GROUP_MBS;
        codeInWindow(kFirstWindowMs, true);
        if (CopPoll() == 0) {
            bFallback = true;
            break;
        }
        const int nResultLength = CopResultLength();
        const int nBitsLength = nResultLength - COP_RECON_BYTES;
        // Beyond the batch, shorter than the reconstruction, or not whole words.
        if (nResultLength > COP_MAX_RESULT_BYTES || nBitsLength < 0 || nBitsLength % 2 != 0) {
            bFallback = true;
            break;
        }
        CopFetch(m_pCopBatch.get(), nResultLength);
        codeInWindow(kSecondWindowMs, false);
        if (CopFetchDone(m_pCopBatch.get(), nResultLength) != 0) {
            bFallback = true;
            break;
        }
        std::memcpy(m_pCopRecon[nGroups], m_pCopBatch.get(), COP_RECON_BYTES);
        std::memcpy(m_pCopBits[nGroups], m_pCopBatch.get() + COP_RECON_BYTES, static_cast<std::size_t>(nBitsLength));
        m_nCopLength[nGroups] = nBitsLength;
        ++nGroups;
        const int nRemainder = m_nMBCount - nCop - nCpu;
        if (!bDone && nRemainder < kCopMinRemainder) {
            bDone = true;
            nTail = nRemainder;
        }
        nGroupStart -= COP_GROUP_MBS;
        if (bDone)
            break;
    }
    if (bFallback) {
        // The CPU codes everything from its next macroblock on and counts those intra
        // macroblocks itself; nothing of the coprocessor's work is used.
        while (nCpu < m_nMBCount)
            CodeOnCpu(nCpu, imgCurrent, imgTarget, nQ, bPFrame, nIntraCpu);
        pGroups[0] = pGroups[1] = 0;
        return nIntraCpu;
    }
    for (int i = 0; i < nTail; ++i)
        CodeOnCpu(nCpu, imgCurrent, imgTarget, nQ, bPFrame, nIntraCpu);
    AlignBits();
    for (int g = nGroups - 1; g >= 0; --g) {
        std::memcpy(m_pBitPtr, m_pCopBits[g], static_cast<std::size_t>(m_nCopLength[g]));
        m_pBitPtr += m_nCopLength[g];
        m_nBitLen += m_nCopLength[g];
    }
    for (int g = 0; g < nGroups; ++g) {
        const int nFirst = m_nMBCount - COP_GROUP_MBS * (g + 1);
        for (int m = 0; m < COP_GROUP_MBS; ++m) {
            const int nIndex = nFirst + m;
            PutMBBytes(nIndex % m_nMBCols, nIndex / m_nMBCols, imgTarget, m_nWidth, m_pCopRecon[g] + m * MB_SAMPLES);
        }
    }
    pGroups[0] = 0;
    pGroups[1] = static_cast<BYTE>(nGroups);
    return nIntraCpu + nIntraCop;
}
