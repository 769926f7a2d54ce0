#include "codec/CH263Writer.h"

#include "codec/BitstreamTables.h"
#include "codec/CDecoder.h"
#include "codec/CodecTypes.h"

#include <new>

namespace {

// The picture record's own layers (what CDecoder reads).
constexpr unsigned kRecordStartCode = 0x10;   // sixteen 0 bits, 1, four 0 bits
constexpr int kRecordStartCodeBits = 21;
constexpr int kLastStartCodeOffset = 160;
constexpr int kTypeBits = 2;
constexpr int kSizeBits = 10;
constexpr int kRecordQuantBits = 8;
constexpr int kGroupsBits = 16;
constexpr int kGroupMacroblocks = 10;
constexpr int kRecordAlignBits = 16;
constexpr int kCBPCBits = 2;
constexpr int kDCBits = 8;
constexpr unsigned kForbiddenDC = 128;
constexpr int kMacroblockBlocks = 6;
constexpr int kBlockPositions = 64;

// ITU-T H.263 picture layer.
constexpr unsigned kPictureStartCode = 0x20;   // PSC: sixteen 0 bits, 1, five 0 bits
constexpr int kPictureStartCodeBits = 22;
constexpr int kTemporalReferenceBits = 8;
constexpr unsigned kTemporalReferenceMask = 0xFF;
constexpr unsigned kPTypeLead = 0x10;          // PTYPE bits 1 to 5: 1, 0, no split screen,
constexpr int kPTypeLeadBits = 5;              // no document camera, no freeze release
constexpr unsigned kExtendedPType = 7;         // source format 111: PLUSPTYPE follows
constexpr int kSourceFormatBits = 3;
constexpr int kPQuantBits = 5;
constexpr int kMinQuant = 1;
constexpr int kMaxQuant = 31;
// PLUSPTYPE (Annex-free): UFEP 001, then OPPTYPE with the custom source format 110,
// every optional mode off and the bits 1000 that end it; MPPTYPE with the picture type,
// no RPR, no RRU, rounding 0, then 00 and 1.
constexpr unsigned kUfepWithOpptype = 1;
constexpr int kUfepBits = 3;
constexpr unsigned kCustomSourceFormat = 6;
constexpr int kOptionalModeBits = 11;
constexpr unsigned kOpptypeEnd = 0x8;
constexpr int kOpptypeEndBits = 4;
constexpr int kPictureTypeCodeBits = 3;
constexpr unsigned kMpptypeEnd = 0x01;         // RPR, RRU, rounding type, 00, 1
constexpr int kMpptypeEndBits = 6;
// CPFMT: pixel aspect ratio, (PWI + 1) * 4 wide, a 1, PHI * 4 high.
constexpr unsigned kSquarePixels = 1;
constexpr unsigned kExtendedPixelAspect = 15;
constexpr int kPixelAspectBits = 4;
constexpr int kPictureSizeBits = 9;
constexpr int kPictureSizeUnit = 4;
constexpr int kEparBits = 8;
// 29.97 Hz: a temporal reference counts 1001 / 30 ms.
constexpr unsigned long long kTemporalReferencesPer1001s = 30;
constexpr unsigned long long kMillisecondsPerTemporalReference1001 = 1001;

// Source formats of ITU-T H.263 Table 6 that need no custom format.
struct tag_STANDARDFORMAT {
    int nWidth;
    int nHeight;
    unsigned nCode;
};
constexpr tag_STANDARDFORMAT kStandardFormats[] = {
    {128, 96, 1}, {176, 144, 2}, {352, 288, 3}, {704, 576, 4}, {1408, 1152, 5},
};

// MCBPC, ITU-T H.263 Table 7 (I pictures, type 3 INTRA) and Table 8 (P pictures,
// type 0 INTER and type 3 INTRA), each by CBPC.
constexpr tag_VLCCODE kMcbpcIntraInIPicture[4] = {{1, 1}, {1, 3}, {2, 3}, {3, 3}};
constexpr tag_VLCCODE kMcbpcInterInPPicture[4] = {{1, 1}, {3, 4}, {2, 4}, {5, 6}};
constexpr tag_VLCCODE kMcbpcIntraInPPicture[4] = {{3, 5}, {4, 8}, {3, 8}, {3, 7}};
// MVD 0, ITU-T H.263 Table 14: the records have no motion, each component codes 0.
constexpr tag_VLCCODE kZeroMotionVectorDifference = {1, 1};
constexpr unsigned kPictureTypeI = 0;
constexpr unsigned kPictureTypeP = 1;
constexpr unsigned kNotCoded = 1;

// ESCAPE levels that ITU-T H.263 leaves unused.
constexpr int kForbiddenEscapeLevelZero = 0;
constexpr int kForbiddenEscapeLevelLow = -128;

// The longest H.263 picture: no longer than the longest record it comes from (events and
// DC values keep their length, CBPC grows by at most 5 bits a macroblock into MCBPC and
// MVD), plus the header.
constexpr int kMaxMacroblocks = CDecoder::MAX_WIDTH * CDecoder::MAX_HEIGHT / MB_LUMA_SAMPLES;
constexpr int kOutputBytes = CDecoder::BITSTREAM_BYTES + kMaxMacroblocks + 64;

BOOL IsStandardSize(int nWidth, int nHeight, unsigned& nCode)
{
    for (const tag_STANDARDFORMAT& format : kStandardFormats) {
        if (format.nWidth == nWidth && format.nHeight == nHeight) {
            nCode = format.nCode;
            return TRUE;
        }
    }
    return FALSE;
}

} // namespace

// Reads a record's bits, most significant first; past its end it reads 0 bits, as
// CDecoder does. The position counts from the record's first bit, which is where
// alignment counts from.
struct CH263Writer::tag_BITCURSOR {
    const BYTE* pData;
    long long nBits;
    long long nPos;

    unsigned Show(int nCount) const
    {
        unsigned nValue = 0;
        for (int i = 0; i < nCount; ++i) {
            const long long nBit = nPos + i;
            const unsigned nNext = nBit < nBits ? (pData[nBit >> 3] >> (7 - (nBit & 7))) & 1u : 0u;
            nValue = (nValue << 1) | nNext;
        }
        return nValue;
    }
    void Skip(int nCount) { nPos += nCount; }
    unsigned Get(int nCount)
    {
        const unsigned nValue = Show(nCount);
        Skip(nCount);
        return nValue;
    }
    void Align()
    {
        const int nRest = static_cast<int>(nPos % kRecordAlignBits);
        if (nRest != 0)
            Skip(kRecordAlignBits - nRest);
    }
};

CH263Writer::CH263Writer() = default;
CH263Writer::~CH263Writer() = default;

BOOL CH263Writer::Create()
{
    m_pOut.reset(new (std::nothrow) BYTE[kOutputBytes]);
    return m_pOut != nullptr;
}

const BYTE* CH263Writer::GetPicture() const
{
    return m_pOut.get();
}

int CH263Writer::GetPictureLength() const
{
    return (m_nOutBits + 7) / 8;
}

tag_H263RESULT CH263Writer::Rewrite(const BYTE* pIn, int nInLen, DWORD dwTimeStamp)
{
    m_nOutBits = 0;
    m_bOverflow = FALSE;
    if (m_pOut == nullptr || pIn == nullptr || nInLen < 0 || nInLen > CDecoder::BITSTREAM_BYTES)
        return H263_BAD_RECORD;
    tag_BITCURSOR in{pIn, static_cast<long long>(nInLen) * 8, 0};
    const tag_STREAMSTATE state = m_State;
    const tag_H263RESULT nResult = RewritePicture(in, dwTimeStamp);
    if (nResult != H263_OK || m_bOverflow) {
        // A picture that isn't written leaves the stream as it was.
        m_State = state;
        m_nOutBits = 0;
        return nResult != H263_OK ? nResult : H263_BAD_RECORD;
    }
    // A start code must begin on a byte; the picture ends with zero bits up to it.
    PutBits(0, (8 - m_nOutBits % 8) % 8);
    return H263_OK;
}

tag_H263RESULT CH263Writer::RewritePicture(tag_BITCURSOR& in, DWORD dwTimeStamp)
{
    int nOffset = 0;
    while (in.Show(kRecordStartCodeBits) != kRecordStartCode) {
        if (++nOffset > kLastStartCodeOffset)
            return H263_BAD_RECORD;
        in.Skip(1);
    }
    in.Skip(kRecordStartCodeBits);
    const unsigned nType = in.Get(kTypeBits);
    const BOOL bPPicture = nType >= 2;
    int nQuant = m_State.nLastQuant;
    BOOL bCoded = TRUE;
    if (!bPPicture) {
        const int nWidth = static_cast<int>(in.Get(kSizeBits));
        const int nHeight = static_cast<int>(in.Get(kSizeBits));
        nQuant = static_cast<int>(in.Get(kRecordQuantBits));
        in.Skip(1);   // MARKER
        if (nWidth == 0 || nHeight == 0 || nWidth % MB_LUMA_SIZE != 0 || nHeight % MB_LUMA_SIZE != 0 ||
            nWidth > CDecoder::MAX_WIDTH || nHeight > CDecoder::MAX_HEIGHT)
            return H263_BAD_RECORD;
        m_State.nWidth = nWidth;
        m_State.nHeight = nHeight;
    } else {
        if (m_State.nWidth == 0)
            return H263_NO_PICTURE;
        bCoded = in.Get(1) != 0;
        if (bCoded)
            nQuant = static_cast<int>(in.Get(kRecordQuantBits));
    }
    if (nQuant < kMinQuant || nQuant > kMaxQuant)
        return H263_NOT_EXPRESSIBLE;
    m_State.nLastQuant = nQuant;
    if (!m_State.bStarted) {
        m_State.dwFirstStamp = dwTimeStamp;
        m_State.bStarted = TRUE;
    }
    WritePictureHeader(bPPicture, nQuant, dwTimeStamp);

    const int nMacroblocks = (m_State.nWidth / MB_LUMA_SIZE) * (m_State.nHeight / MB_LUMA_SIZE);
    if (!bCoded) {
        for (int i = 0; i < nMacroblocks; ++i)
            PutBits(kNotCoded, 1);
        return H263_OK;
    }
    in.Align();
    int nGroups = static_cast<int>(in.Get(kGroupsBits));
    for (int i = 0; i < nMacroblocks; ++i) {
        // Tail groups begin on 16-bit boundaries of the record; H.263 has no such padding.
        if (nGroups > 0 && i == nMacroblocks - kGroupMacroblocks * nGroups) {
            in.Align();
            --nGroups;
        }
        tag_H263RESULT nResult = H263_OK;
        if (!bPPicture) {
            nResult = RewriteIntraMacroblock(in, FALSE);
        } else if (in.Get(1) != 0) {
            PutBits(kNotCoded, 1);
        } else {
            PutBits(0, 1);   // COD 0: coded
            nResult = in.Get(1) != 0 ? RewriteInterMacroblock(in) : RewriteIntraMacroblock(in, TRUE);
        }
        if (nResult != H263_OK)
            return nResult;
    }
    return H263_OK;
}

namespace {

// The luma pattern of a CBPY code in the intra column (CBPY(I)). Six bits that start no
// code are taken as the code 11, as CDecoder takes them.
unsigned ReadIntraColumnCBPY(unsigned nNext6Bits, int& nLength)
{
    const tag_CBPYENTRY& entry = g_cbpyRead[nNext6Bits];
    constexpr unsigned kCode11First = 48;
    constexpr int kCode11Length = 2;
    constexpr unsigned kAllBlocks = CBPY_VALUES - 1;
    if (entry.byLength == 0 || nNext6Bits >= kCode11First) {
        nLength = kCode11Length;
        return kAllBlocks;
    }
    nLength = entry.byLength;
    return entry.byIntra;
}

} // namespace

tag_H263RESULT CH263Writer::RewriteIntraMacroblock(tag_BITCURSOR& in, BOOL bInPPicture)
{
    int nLength = 0;
    const unsigned nLuma = ReadIntraColumnCBPY(in.Show(CBPY_LOOKAHEAD_BITS), nLength);
    in.Skip(nLength);
    const unsigned nChroma = in.Get(kCBPCBits);
    const tag_VLCCODE mcbpc = bInPPicture ? kMcbpcIntraInPPicture[nChroma] : kMcbpcIntraInIPicture[nChroma];
    PutBits(mcbpc.wCode, mcbpc.byLength);
    PutBits(g_vlcCBPY[nLuma].wCode, g_vlcCBPY[nLuma].byLength);
    const unsigned nPattern = nLuma << kCBPCBits | nChroma;
    for (int b = 0; b < kMacroblockBlocks; ++b) {
        const unsigned nDC = in.Get(kDCBits);
        if (nDC == kForbiddenDC)
            return H263_BAD_RECORD;
        if (nDC == 0)
            return H263_NOT_EXPRESSIBLE;
        PutBits(nDC, kDCBits);   // 255 stands for 128 in both
        if ((nPattern >> (kMacroblockBlocks - 1 - b) & 1) != 0) {
            const tag_H263RESULT nResult = RewriteBlockEvents(in, 1);
            if (nResult != H263_OK)
                return nResult;
        }
    }
    return H263_OK;
}

// An inter macroblock's luma pattern is 15 minus the intra column's value, in the record
// as in H.263's CBPY(P) column.
tag_H263RESULT CH263Writer::RewriteInterMacroblock(tag_BITCURSOR& in)
{
    int nLength = 0;
    const unsigned nIntraColumn = ReadIntraColumnCBPY(in.Show(CBPY_LOOKAHEAD_BITS), nLength);
    in.Skip(nLength);
    const unsigned nChroma = in.Get(kCBPCBits);
    PutBits(kMcbpcInterInPPicture[nChroma].wCode, kMcbpcInterInPPicture[nChroma].byLength);
    PutBits(g_vlcCBPY[nIntraColumn].wCode, g_vlcCBPY[nIntraColumn].byLength);
    PutBits(kZeroMotionVectorDifference.wCode, kZeroMotionVectorDifference.byLength);
    PutBits(kZeroMotionVectorDifference.wCode, kZeroMotionVectorDifference.byLength);
    const unsigned nPattern = (CBPY_VALUES - 1 - nIntraColumn) << kCBPCBits | nChroma;
    for (int b = 0; b < kMacroblockBlocks; ++b) {
        if ((nPattern >> (kMacroblockBlocks - 1 - b) & 1) != 0) {
            const tag_H263RESULT nResult = RewriteBlockEvents(in, 0);
            if (nResult != H263_OK)
                return nResult;
        }
    }
    return H263_OK;
}

// Coefficient events up to the one with LAST, each written with the table's code where
// it has one and as ESCAPE otherwise.
tag_H263RESULT CH263Writer::RewriteBlockEvents(tag_BITCURSOR& in, int nFirstPosition)
{
    for (int nPos = nFirstPosition;;) {
        const unsigned nNext = in.Show(TCOEF_LOOKAHEAD_BITS);
        const tag_TCOEFENTRY& entry = LookupTCoefEntry(nNext);
        if (nNext < TCOEF_LOWEST_CODE || entry.byLength == 0)
            return H263_BAD_RECORD;
        in.Skip(entry.byLength);
        int nLast;
        int nRun;
        int nLevel;
        if (IsTCoefEscape(entry)) {
            nLast = static_cast<int>(in.Get(TCOEF_ESCAPE_LAST_BITS));
            nRun = static_cast<int>(in.Get(TCOEF_ESCAPE_RUN_BITS));
            nLevel = static_cast<signed char>(in.Get(TCOEF_ESCAPE_LEVEL_BITS));
            if (nLevel == kForbiddenEscapeLevelZero || nLevel == kForbiddenEscapeLevelLow)
                return H263_NOT_EXPRESSIBLE;
        } else {
            nLast = entry.byLast;
            nRun = entry.byRun;
            nLevel = in.Get(1) != 0 ? -entry.byLevel : entry.byLevel;
        }
        nPos += nRun;
        if (nPos >= kBlockPositions)
            return H263_BAD_RECORD;
        ++nPos;
        const tag_VLCCODE code = LookupTCoefCode(nLast, nRun, nLevel < 0 ? -nLevel : nLevel);
        if (code.byLength != 0) {
            PutBits(code.wCode, code.byLength);
            PutBits(nLevel < 0 ? 1u : 0u, 1);
        } else {
            PutBits(TCOEF_ESCAPE_CODE, TCOEF_ESCAPE_LENGTH);
            PutBits(static_cast<unsigned>(nLast), TCOEF_ESCAPE_LAST_BITS);
            PutBits(static_cast<unsigned>(nRun), TCOEF_ESCAPE_RUN_BITS);
            PutBits(static_cast<unsigned>(nLevel) & 0xFFu, TCOEF_ESCAPE_LEVEL_BITS);
        }
        if (nLast != 0)
            return H263_OK;
    }
}

// The picture layer of ITU-T H.263: PSC, TR and PTYPE; for a standard source format
// then PQUANT, CPM and PEI; for any other size PLUSPTYPE, CPM, a custom picture format,
// PQUANT and PEI. Continuous presence and extra insertion stay off.
void CH263Writer::WritePictureHeader(BOOL bPPicture, int nQuant, DWORD dwTimeStamp)
{
    const unsigned long long nTicks =
        (static_cast<unsigned long long>(dwTimeStamp - m_State.dwFirstStamp) * kTemporalReferencesPer1001s +
         kMillisecondsPerTemporalReference1001 / 2) /
        kMillisecondsPerTemporalReference1001;
    PutBits(kPictureStartCode, kPictureStartCodeBits);
    PutBits(static_cast<unsigned>(nTicks) & kTemporalReferenceMask, kTemporalReferenceBits);
    PutBits(kPTypeLead, kPTypeLeadBits);
    unsigned nFormat = 0;
    if (IsStandardSize(m_State.nWidth, m_State.nHeight, nFormat)) {
        PutBits(nFormat, kSourceFormatBits);
        PutBits(bPPicture ? 1u : 0u, 1);
        PutBits(0, 4);   // no unrestricted vectors, arithmetic coding, advanced prediction, PB-frames
        PutBits(static_cast<unsigned>(nQuant), kPQuantBits);
        PutBits(0, 1);   // CPM
    } else {
        PutBits(kExtendedPType, kSourceFormatBits);
        PutBits(kUfepWithOpptype, kUfepBits);
        PutBits(kCustomSourceFormat, kSourceFormatBits);
        PutBits(0, kOptionalModeBits);
        PutBits(kOpptypeEnd, kOpptypeEndBits);
        PutBits(bPPicture ? kPictureTypeP : kPictureTypeI, kPictureTypeCodeBits);
        PutBits(kMpptypeEnd, kMpptypeEndBits);
        PutBits(0, 1);   // CPM
        WriteCustomFormat();
        PutBits(static_cast<unsigned>(nQuant), kPQuantBits);
    }
    PutBits(0, 1);   // PEI
}

// CPFMT. Pictures twice as wide as high are one field of a 4:3 frame, with pixels twice
// as high as wide; all others have square pixels.
void CH263Writer::WriteCustomFormat()
{
    const BOOL bField = m_State.nWidth >= 2 * m_State.nHeight;
    PutBits(bField ? kExtendedPixelAspect : kSquarePixels, kPixelAspectBits);
    PutBits(static_cast<unsigned>(m_State.nWidth / kPictureSizeUnit - 1), kPictureSizeBits);
    PutBits(1, 1);
    PutBits(static_cast<unsigned>(m_State.nHeight / kPictureSizeUnit), kPictureSizeBits);
    if (bField) {
        PutBits(1, kEparBits);
        PutBits(2, kEparBits);
    }
}

void CH263Writer::PutBits(unsigned nValue, int nBits)
{
    if (m_nOutBits + nBits > kOutputBytes * 8) {
        m_bOverflow = TRUE;
        return;
    }
    for (int b = nBits - 1; b >= 0; --b, ++m_nOutBits) {
        BYTE& byOut = m_pOut[static_cast<std::size_t>(m_nOutBits >> 3)];
        const int nShift = 7 - (m_nOutBits & 7);
        if (nShift == 7)
            byOut = 0;
        byOut = static_cast<BYTE>(byOut | ((nValue >> b) & 1u) << nShift);
    }
}
