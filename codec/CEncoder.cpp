#include "codec/CEncoder.h"

#include "codec/BitstreamTables.h"
#include "codec/CodecMemory.h"
#include "codec/KernelTable.h"
#include "codec/PixelKernels.h"
#include "codec/TransformKernels.h"
#include "platform/TickClock.h"
#include "platform/WinThreads.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace {

constexpr int kAccumulatorBits = 64;
// The last write of a picture stores the whole accumulator.
constexpr int kAccumulatorBytes = kAccumulatorBits / 8;
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
constexpr int kIntraFirstPosition = 1;
constexpr int kInterFirstPosition = 0;
constexpr int kAllBlocks = (1 << MB_BLOCKS) - 1;
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

// The worst macroblock: an inter macroblock whose 384 coefficients all take ESCAPE,
// behind COD, MODE, the longest CBPY and CBPC.
constexpr int kMaxMacroblockBits = 1 + 1 + CBPY_LOOKAHEAD_BITS + kCBPCBits + MB_SAMPLES * TCOEF_ESCAPE_EVENT_BITS;
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

// Plane pointers are exchanged, never the pictures; sets are one allocation each, so
// the three pointers always travel together.
void SwapPlaneSets(IMAGE& imgFirst, IMAGE& imgSecond)
{
    std::swap(imgFirst, imgSecond);
}

void StoreBigEndian64(BYTE* p, std::uint64_t qwValue)
{
    if constexpr (std::endian::native == std::endian::little)
        qwValue = __builtin_bswap64(qwValue);
    std::memcpy(p, &qwValue, sizeof qwValue);
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
    m_pKernels = &GetKernelTable();
    return TRUE;
}

// One allocation for the plane sets and one for the coprocessor's groups; the records
// point into them.
BOOL CEncoder::AllocateBuffers()
{
    m_pBitBuffer = AllocateArray<BYTE>(GetMaxRecordLength(m_nWidth, m_nHeight) + kAccumulatorBytes);
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
        m_pKernels->pfnUYVYToYUV420(pbyFrame, m_imgCapture, m_nCaptureWidth, m_nCaptureHeight);
        m_pKernels->pfnYUVToRGB24(pbyFrame, m_imgCapture, m_nCaptureWidth, m_nCaptureHeight);
        ReduceYUV420(m_imgCapture, m_imgCurrent, m_nCaptureWidth, m_nCaptureHeight, m_nWidth);
    } else {
        m_pKernels->pfnUYVYToYUV420(pbyFrame, m_imgCurrent, m_nWidth, m_nHeight);
        m_pKernels->pfnYUVToRGB24(pbyFrame, m_imgCurrent, m_nWidth, m_nHeight);
    }
}

// The luma SAD of macroblock nIndex between two pictures; the same sum as SADMB of the
// widened macroblocks.
int CEncoder::LumaSAD(int nIndex, const IMAGE& imgFirst, const IMAGE& imgSecond) const
{
    const std::ptrdiff_t nOffset = static_cast<std::ptrdiff_t>(nIndex / m_nMBCols) * MB_LUMA_SIZE * m_nWidth +
                                   (nIndex % m_nMBCols) * MB_LUMA_SIZE;
    return m_pKernels->pfnSADLuma(imgFirst.Y + nOffset, imgSecond.Y + nOffset, m_nWidth);
}

BOOL CEncoder::DetectMove()
{
    int nMoved = 0;
    for (int i = 0; i < m_nMBCount; ++i) {
        if (LumaSAD(i, m_imgCurrent, m_imgPrevious) > m_nMoveThreshold) {
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
        // Whether the picture stands depends on the SADs alone, so a picture that will be
        // dropped is decided before anything is coded, and leaves the reference as it is.
        if (CountIntraMacroblocks() < kDroppedBelowIntraCount) {
            PutBits(1, 0);
        } else {
            PutBits(1, 1);
            PutBits(kQuantBits, static_cast<unsigned>(m_nQp));
            EncodePFrameBody();
            result.bMoved = TRUE;
        }
    }
    AlignBits();
    result.nLength = m_nBitLen;
    return result;
}

// The mode decision of every macroblock of a P picture: above the intra threshold it goes
// intra, its map flag is set and the count rises.
int CEncoder::CountIntraMacroblocks()
{
    int nIntraCount = 0;
    for (int i = 0; i < m_nMBCount; ++i) {
        const bool bIntra = LumaSAD(i, m_imgCurrent, m_imgReference) > m_nIntraThreshold;
        m_pMoveMap[i] = bIntra ? 1 : 0;
        nIntraCount += bIntra ? 1 : 0;
    }
    return nIntraCount;
}

// The SIMD body keeps the old reference intact in the other plane set and writes the
// new one beside it; the others update the reference in place. Every body reaches the
// decisions already taken.
void CEncoder::EncodePFrameBody()
{
    if (m_bUseMMX) {
        SwapPlaneSets(m_imgReference, m_imgPrevious);
        PFrameEncodewithMMX(m_imgCurrent, m_imgPrevious, m_imgReference, m_nQp);
    } else if (m_bUseCoprocessor) {
        PFrameEncodeCop(m_imgCurrent, m_imgReference, m_nQp);
    } else {
        PFrameEncode(m_imgCurrent, m_imgReference, m_nQp);
    }
}

BOOL CEncoder::IsAreaMove(int nLeft, int nTop, int nRight, int nBottom) const
{
    if (!m_pMoveMap)
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
// Bit writer: bits gather at the top of a 64-bit accumulator, which goes out whole after
// every write, most significant byte first; the writer then advances by the bytes that
// are complete and keeps the rest, at most 7 bits. The bytes are those of a 16-bit
// accumulator, and the buffer has room for the 8 bytes that the last write stores.

void CEncoder::InitBitWriter()
{
    m_pBitPtr = m_pBitBuffer.get();
    m_qwBitAcc = 0;
    m_nBitsHeld = 0;
    m_nBitLen = 0;
}

// Appends the low nBits (1 to 32) of nValue.
void CEncoder::PutBits(int nBits, unsigned nValue)
{
    tag_BITWRITER writer = TakeBitWriter();
    WriteBits(writer, nBits, nValue);
    KeepBitWriter(writer);
}

// The writer's state as a value, which the compiler can keep in registers while bytes
// go out through a pointer that might, for all it knows, point at the encoder itself.
CEncoder::tag_BITWRITER CEncoder::TakeBitWriter() const
{
    return {m_pBitPtr, m_qwBitAcc, m_nBitsHeld, m_nBitLen};
}

void CEncoder::KeepBitWriter(const tag_BITWRITER& writer)
{
    m_pBitPtr = writer.pBitPtr;
    m_qwBitAcc = writer.qwBitAcc;
    m_nBitsHeld = writer.nBitsHeld;
    m_nBitLen = writer.nBitLen;
}

inline void CEncoder::WriteBits(tag_BITWRITER& writer, int nBits, unsigned nValue)
{
    writer.qwBitAcc |= (nValue & ((std::uint64_t{1} << nBits) - 1)) << (kAccumulatorBits - writer.nBitsHeld - nBits);
    writer.nBitsHeld += nBits;
    StoreBigEndian64(writer.pBitPtr, writer.qwBitAcc);
    const int nBytes = writer.nBitsHeld >> 3;
    writer.pBitPtr += nBytes;
    writer.nBitLen += nBytes;
    writer.qwBitAcc <<= 8 * nBytes;
    writer.nBitsHeld &= 7;
}

// Pads with 0 to the next 16-bit boundary, counted from the start of the record; the
// buffer then holds every bit.
int CEncoder::AlignBits()
{
    const int nPadding = (16 - (8 * m_nBitLen + m_nBitsHeld) % 16) % 16;
    if (nPadding != 0)
        PutBits(nPadding, 0);
    return nPadding;
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

// A table code and its sign bit in one write, or ESCAPE with LAST, RUN and LEVEL. Both
// are formed and one is taken by a mask, as a branch would guess wrong too often on busy
// pictures; |LEVEL| beyond the table looks up column 0, which has no code.
inline void CEncoder::PutEvent(tag_BITWRITER& writer, int nLast, int nRun, int nLevel)
{
    const int nSign = nLevel >> 31;
    const int nAbsLevel = (nLevel ^ nSign) - nSign;
    const tag_VLCCODE& code = g_vlcTCoefWrite[nLast][nRun][nAbsLevel < TCOEF_WRITE_LEVELS ? nAbsLevel : 0];
    const unsigned nEscape = code.byLength == 0 ? ~0u : 0u;
    const unsigned nTableBits = (unsigned{code.wCode} << 1) | static_cast<unsigned>(nSign & 1);
    const unsigned nEscapeBits = (TCOEF_ESCAPE_CODE << (TCOEF_ESCAPE_EVENT_BITS - TCOEF_ESCAPE_LENGTH)) |
                                 (static_cast<unsigned>(nLast) << (TCOEF_ESCAPE_RUN_BITS + TCOEF_ESCAPE_LEVEL_BITS)) |
                                 (static_cast<unsigned>(nRun) << TCOEF_ESCAPE_LEVEL_BITS) |
                                 (static_cast<unsigned>(nLevel) & 0xFF);
    const int nLength = static_cast<int>((static_cast<unsigned>(TCOEF_ESCAPE_EVENT_BITS) & nEscape) |
                                         (static_cast<unsigned>(code.byLength + 1) & ~nEscape));
    WriteBits(writer, nLength, (nEscapeBits & nEscape) | (nTableBits & ~nEscape));
}

// The events of the levels at the scan positions set in qwPositions, which follow
// position nFirst - 1: each event's RUN counts the zero positions before it, and the
// last one carries LAST 1. Only the levels that are not 0 are read.
void CEncoder::PutEvents(const short* psScanLevels, std::uint64_t qwPositions, int nFirst)
{
    tag_BITWRITER writer = TakeBitWriter();
    int nPrevious = nFirst - 1;
    while (qwPositions != 0) {
        const int nPos = std::countr_zero(qwPositions);
        qwPositions &= qwPositions - 1;
        PutEvent(writer, qwPositions == 0 ? 1 : 0, nPos - nPrevious - 1, psScanLevels[nPos]);
        nPrevious = nPos;
    }
    KeepBitWriter(writer);
}

void CEncoder::PutDC(int nDC)
{
    PutBits(kDCBits, static_cast<unsigned>(nDC == 128 ? kDCStoredFor128 : nDC));
}

// One block of scan-order levels: an intra block's DC, then the events from its first
// coded position.
void CEncoder::EncodeDCTCoeff(BOOL bInter, const short* psLevel, int nBlock, int nBlockLength)
{
    const short* psBlock = psLevel + nBlock * nBlockLength;
    const int nFirst = bInter ? kInterFirstPosition : kIntraFirstPosition;
    if (!bInter)
        PutDC(psBlock[0]);
    PutEvents(psBlock, m_pKernels->pfnNonZeroMask(psBlock) & ~((std::uint64_t{1} << nFirst) - 1), nFirst);
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

// The blocks of a macroblock from natural-order levels: an intra macroblock writes all
// six, an inter one those of its pattern. The levels that are not 0 move to their scan
// positions; nothing else is read.
void CEncoder::PutMBBlocks(const tag_MBLEVELS& levels, BOOL bInter, int nPattern)
{
    const int nFirst = bInter ? kInterFirstPosition : kIntraFirstPosition;
    for (int b = 0; b < MB_BLOCKS; ++b) {
        if (bInter && !IsBlockCoded(nPattern, b))
            continue;
        const short* psNatural = levels.sBlocks + BLOCK_SAMPLES * b;
        if (!bInter)
            PutDC(psNatural[0]);
        short sScan[BLOCK_SAMPLES];
        std::uint64_t qwPositions = 0;
        for (std::uint64_t qwMask = levels.qwNonZero[b] & ~((std::uint64_t{1} << nFirst) - 1); qwMask != 0;
             qwMask &= qwMask - 1) {
            const int nNatural = std::countr_zero(qwMask);
            const int nScan = g_byZigZag[nNatural];
            sScan[nScan] = psNatural[nNatural];
            qwPositions |= std::uint64_t{1} << nScan;
        }
        PutEvents(sScan, qwPositions, nFirst);
    }
}

// Bit 5 - b for each block b with a level that is not 0 from the first position on.
int CEncoder::GetCBP(const tag_MBLEVELS& levels, int nFirst)
{
    int nPattern = 0;
    for (int b = 0; b < MB_BLOCKS; ++b) {
        if ((levels.qwNonZero[b] >> nFirst) != 0)
            nPattern |= 1 << (MB_BLOCKS - 1 - b);
    }
    return nPattern;
}

bool CEncoder::IsBlockCoded(int nPattern, int nBlock)
{
    return (nPattern & (1 << (MB_BLOCKS - 1 - nBlock))) != 0;
}

// ---------------------------------------------------------------------------
// Macroblocks. The six blocks of a macroblock stay in natural order through transform,
// quantiser and reconstruction; the quantisers treat every position alike but the DC,
// which is position 0 in either order, so the levels are those of the scan-order steps.

// The forward transform and the quantiser of all six blocks, and where their levels
// are not 0.
void CEncoder::QuantizeMB(tag_MBLEVELS& levels, int nQ, int nMode, const tag_TRANSFORMPAIR& transforms) const
{
    short* apsBlocks[MB_BLOCKS];
    for (int b = 0; b < MB_BLOCKS; ++b)
        apsBlocks[b] = levels.sBlocks + BLOCK_SAMPLES * b;
    transforms.pfnForward(apsBlocks, MB_BLOCKS);
    for (int b = 0; b < MB_BLOCKS; ++b) {
        m_pKernels->pfnQuantBlock(apsBlocks[b], apsBlocks[b], nQ, nMode);
        levels.qwNonZero[b] = m_pKernels->pfnNonZeroMask(apsBlocks[b]);
    }
}

// The inverse quantiser and the inverse transform of the blocks in the pattern, in place.
void CEncoder::ReconstructMB(tag_MBLEVELS& levels, int nPattern, int nQ, int nMode,
                             const tag_TRANSFORMPAIR& transforms) const
{
    short* apsBlocks[MB_BLOCKS];
    int nBlocks = 0;
    for (int b = 0; b < MB_BLOCKS; ++b) {
        if (!IsBlockCoded(nPattern, b))
            continue;
        apsBlocks[nBlocks] = levels.sBlocks + BLOCK_SAMPLES * b;
        m_pKernels->pfnDequantBlock(apsBlocks[nBlocks], apsBlocks[nBlocks], nQ, nMode);
        ++nBlocks;
    }
    transforms.pfnInverse(apsBlocks, nBlocks);
}

void CEncoder::CodeIntraMB(int nIndex, BOOL bPFrame, const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ,
                           const tag_TRANSFORMPAIR& transforms)
{
    const int nCol = nIndex % m_nMBCols;
    const int nRow = nIndex / m_nMBCols;
    tag_MBLEVELS levels;
    m_pKernels->pfnLoadMB(imgCurrent, nCol, nRow, m_nWidth, levels.sBlocks);
    QuantizeMB(levels, nQ, QUANT_MODE_INTRA, transforms);
    const int nPattern = GetCBP(levels, kIntraFirstPosition);
    PutMBHeader(bPFrame, FALSE, FALSE, nPattern);
    PutMBBlocks(levels, FALSE, nPattern);
    ReconstructMB(levels, kAllBlocks, nQ, QUANT_MODE_INTRA, transforms);
    m_pKernels->pfnStoreMB(levels.sBlocks, imgTarget, nCol, nRow, m_nWidth);
}

// One macroblock of a P picture: the co-located macroblock of the reference, or intra
// when the luma SAD against it is above the intra threshold. A block without levels
// reconstructs to the reference exactly, as its transform is all zeros.
void CEncoder::CodePredictedMB(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgReference,
                               const IMAGE& imgTarget, int nQ, const tag_TRANSFORMPAIR& transforms)
{
    if (LumaSAD(nIndex, imgCurrent, imgReference) > m_nIntraThreshold) {
        m_pMoveMap[nIndex] = 1;
        CodeIntraMB(nIndex, TRUE, imgCurrent, imgTarget, nQ, transforms);
        return;
    }
    m_pMoveMap[nIndex] = 0;
    const int nCol = nIndex % m_nMBCols;
    const int nRow = nIndex / m_nMBCols;
    tag_MBLEVELS levels;
    m_pKernels->pfnLoadDifferenceMB(imgCurrent, imgReference, nCol, nRow, m_nWidth, levels.sBlocks);
    QuantizeMB(levels, nQ, QUANT_MODE_INTER, transforms);
    const int nPattern = GetCBP(levels, kInterFirstPosition);
    // Nothing coded: the macroblock stays the reference, one bit in the stream.
    PutMBHeader(TRUE, TRUE, nPattern == 0, nPattern);
    if (nPattern != 0) {
        PutMBBlocks(levels, TRUE, nPattern);
        ReconstructMB(levels, nPattern, nQ, QUANT_MODE_INTER, transforms);
    }
    m_pKernels->pfnStoreSumMB(levels.sBlocks, nPattern, imgReference, imgTarget, nCol, nRow, m_nWidth);
}

void CEncoder::IFrameEncodeMB(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ)
{
    CodeIntraMB(nIndex, FALSE, imgCurrent, imgTarget, nQ, ScalarTransforms());
}

void CEncoder::IFrameEncodeMBwithMMX(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ)
{
    CodeIntraMB(nIndex, FALSE, imgCurrent, imgTarget, nQ, SIMDTransforms());
}

void CEncoder::PFrameEncodeMB(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgReference, int nQ)
{
    CodePredictedMB(nIndex, imgCurrent, imgReference, imgReference, nQ, ScalarTransforms());
}

void CEncoder::PFrameEncodeMBwithMMX(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgReference,
                                     const IMAGE& imgTarget, int nQ)
{
    CodePredictedMB(nIndex, imgCurrent, imgReference, imgTarget, nQ, SIMDTransforms());
}

CEncoder::tag_TRANSFORMPAIR CEncoder::ScalarTransforms()
{
    return {FDCTNatural, IDCTNatural};
}

CEncoder::tag_TRANSFORMPAIR CEncoder::SIMDTransforms() const
{
    return {m_pKernels->pfnFDCTMMX, m_pKernels->pfnIDCTMMX};
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

void CEncoder::PFrameEncode(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ)
{
    AlignBits();
    BYTE* pGroups = ReserveGroupsField();
    for (int i = 0; i < m_nMBCount; ++i)
        PFrameEncodeMB(i, imgCurrent, imgTarget, nQ);
    pGroups[0] = pGroups[1] = 0;
}

void CEncoder::IFrameEncodewithMMX(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ)
{
    AlignBits();
    BYTE* pGroups = ReserveGroupsField();
    for (int i = 0; i < m_nMBCount; ++i)
        IFrameEncodeMBwithMMX(i, imgCurrent, imgTarget, nQ);
    pGroups[0] = pGroups[1] = 0;
}

void CEncoder::PFrameEncodewithMMX(const IMAGE& imgCurrent, const IMAGE& imgReference, const IMAGE& imgTarget,
                                   int nQ)
{
    AlignBits();
    BYTE* pGroups = ReserveGroupsField();
    for (int i = 0; i < m_nMBCount; ++i)
        PFrameEncodeMBwithMMX(i, imgCurrent, imgReference, imgTarget, nQ);
    pGroups[0] = pGroups[1] = 0;
}

// ---------------------------------------------------------------------------
// Coprocessor bodies: the CPU codes from the first macroblock upward while the
// coprocessor codes groups of ten from the end downward.

void CEncoder::IFrameEncodeCop(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ)
{
    EncodeBodyWithCoprocessor(imgCurrent, imgTarget, nQ, FALSE);
}

void CEncoder::PFrameEncodeCop(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ)
{
    EncodeBodyWithCoprocessor(imgCurrent, imgTarget, nQ, TRUE);
}

void CEncoder::CodeOnCpu(int& nCpu, const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ, BOOL bPFrame)
{
    if (bPFrame)
        PFrameEncodeMB(nCpu, imgCurrent, imgTarget, nQ);
    else
        IFrameEncodeMB(nCpu, imgCurrent, imgTarget, nQ);
    ++nCpu;
}

void CEncoder::FillCopBatch(int nGroupStart, const IMAGE& imgCurrent, const IMAGE& imgReference, int nQ,
                            BOOL bPFrame)
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
        }
        pRecord[1] = bInter ? 1 : 0;
        if (!bInter)
            std::memset(pReference, 0, MB_SAMPLES);
    }
}

// Finished groups keep their reconstruction aside until the picture is complete: a
// fallback after a finished group then codes those macroblocks again against the
// reference that a decoder holds.
void CEncoder::EncodeBodyWithCoprocessor(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ, BOOL bPFrame)
{
    AlignBits();
    BYTE* pGroups = ReserveGroupsField();
    int nCpu = 0;
    int nCop = 0;
    int nGroups = 0;
    int nGroupStart = m_nMBCount - COP_GROUP_MBS;
    int nTail = 0;
    bool bDone = false;
    bool bFallback = m_nMBCount < COP_GROUP_MBS;
    const auto codeInWindow = [&](int nWindowMs, bool bWaitOut) {
        const DWORD dwEnd = CopTickCount() + static_cast<DWORD>(nWindowMs);
        while (TickBefore(CopTickCount(), dwEnd)) {
            if (!bDone && nCop + nCpu == m_nMBCount)
                bDone = true;
            if (!bDone)
                CodeOnCpu(nCpu, imgCurrent, imgTarget, nQ, bPFrame);
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
        FillCopBatch(nGroupStart, imgCurrent, imgTarget, nQ, bPFrame);
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
        // The CPU codes everything from its next macroblock on; nothing of the
        // coprocessor's work is used.
        while (nCpu < m_nMBCount)
            CodeOnCpu(nCpu, imgCurrent, imgTarget, nQ, bPFrame);
        pGroups[0] = pGroups[1] = 0;
        return;
    }
    for (int i = 0; i < nTail; ++i)
        CodeOnCpu(nCpu, imgCurrent, imgTarget, nQ, bPFrame);
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
}
