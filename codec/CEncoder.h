// The software video encoder: turns a camera's raw frames into picture records, leaves
// a BGR preview in the frame buffer and keeps the map of moved macroblocks. Each camera
// channel owns one and calls it from the channel's encoder thread only.
#pragma once

#include "platform/PrivateHeader.h"

#include "codec/CodecTypes.h"
#include "codec/KernelTable.h"
#include "platform/CObject.h"
#include "platform/WinTypes.h"
#include "vocabulary/StreamRevision.h"

#include <cstddef>
#include <cstdint>
#include <memory>

// What Encode produced for one frame.
struct ENCODER_RETURN {
    BOOL bDetectOnly;   // the argument of that name, echoed
    BOOL bMoved;        // the frame counted as showing movement
    int nFrameType;     // type of the coded picture; meaningless on detection frames
    int nLength;        // bytes of the picture record, even
    BYTE* pBuffer;      // the record inside the encoder, valid until the next Encode
};

class CEncoder : public CObject {
public:
    // Coprocessor batch: a kind byte, then ten records of Q, mode and the macroblock to
    // code, then ten reference macroblocks; the result comes back in the same buffer as
    // ten reconstructed macroblocks followed by the coded bits of the group.
    static constexpr int COP_GROUP_MBS = 10;
    static constexpr int COP_MAX_GROUPS = 20;
    static constexpr int COP_BATCH_BYTES = 15402;
    static constexpr int COP_RECORD_BYTES = 2 + MB_SAMPLES;
    static constexpr int COP_REFERENCE_OFFSET = 1 + COP_GROUP_MBS * COP_RECORD_BYTES;
    static constexpr int COP_RECON_BYTES = COP_GROUP_MBS * MB_SAMPLES;
    static constexpr int COP_MAX_RESULT_BYTES = 9840;
    static constexpr int COP_GROUP_BITS_BYTES = 7680;

    CEncoder();
    ~CEncoder() override;
    CEncoder(const CEncoder&) = delete;
    CEncoder& operator=(const CEncoder&) = delete;

    BOOL Create(int nWidth, int nHeight, DWORD dwRevision, int nCoprocessor);
    ENCODER_RETURN Encode(BYTE* pbyFrame, BOOL bDetectOnly, int nFrameType);

    // A quantiser of 0 would code the picture unquantised, which the record's reader
    // cannot follow: the setters refuse it, and any value outside 1..31, keeping the
    // quantiser in force (10 after Create) and returning FALSE.
    BOOL SetQi(int nQi);
    BOOL SetQp(int nQp);
    void SetIntraThreshold(int nThreshold);
    void SetMoveThreshold(int nThreshold);
    BOOL IsAreaMove(int nLeft, int nTop, int nRight, int nBottom) const;

    int GetWidth() const { return m_nWidth; }
    int GetHeight() const { return m_nHeight; }
    // The longest record a picture of this coded size can take: every coefficient
    // coded as an escape. The bit buffer has this size, so no picture is ever cut.
    static std::size_t GetMaxRecordLength(int nWidth, int nHeight);

protected:
    // Hooks of a coprocessor that codes groups of ten macroblocks from the end of the
    // picture; the class's own bodies do nothing and return 0.
    virtual int CopFetch(BYTE* pbyBatch, int nLength);
    virtual int CopResultLength();
    virtual int CopFetchDone(BYTE* pbyBatch, int nLength);
    virtual int CopPoll();
    virtual int CopSubmit(BYTE* pbyBatch);
    // Millisecond clock of the coprocessor's waiting windows: the platform's tick count,
    // replaceable so that a test can pace the windows deterministically.
    virtual DWORD CopTickCount();

    int m_nWidth = 0;
    int m_nHeight = 0;
    int m_nQi = 0;
    int m_nQp = 0;
    int m_nMBCount = 0;
    int m_nMBCols = 0;
    int m_nMBRows = 0;
    std::unique_ptr<int[]> m_pMoveMap;
    std::unique_ptr<BYTE[]> m_pBitBuffer;
    // Bit writer: next byte, bits not yet complete at the top of the accumulator, how
    // many, and the bytes complete so far.
    BYTE* m_pBitPtr = nullptr;
    std::uint64_t m_qwBitAcc = 0;
    int m_nBitsHeld = 0;
    int m_nBitLen = 0;
    int m_nIntraThreshold = 3840;
    int m_nMoveThreshold = 2048;
    IMAGE m_imgCapture = {};
    IMAGE m_imgCurrent = {};
    IMAGE m_imgReference = {};
    IMAGE m_imgPrevious = {};
    int m_nCaptureWidth = 0;
    int m_nCaptureHeight = 0;
    std::unique_ptr<BYTE[]> m_pCopBatch;
    int m_nCopLength[COP_MAX_GROUPS] = {};
    BYTE* m_pCopBits[COP_MAX_GROUPS] = {};   // in m_pCopGroups
    BOOL m_bUseCoprocessor = FALSE;
    BOOL m_bUseMMX = FALSE;
    DWORD m_dwRevision = STREAM_REVISION_20020114;
    // Reconstructions of the coprocessor's finished groups, held back from the reference
    // until the picture is complete, so that a fallback codes against the true reference.
    BYTE* m_pCopRecon[COP_MAX_GROUPS] = {};   // in m_pCopGroups
    // The memory behind the four plane sets, and behind the coprocessor's groups.
    std::unique_ptr<BYTE[]> m_pPlanes;
    std::unique_ptr<BYTE[]> m_pCopGroups;

    // The kernels the encoder runs, the process's table from Create on.
    const tag_KERNELTABLE* m_pKernels = nullptr;

    // Bit writer.
    void InitBitWriter();
    void PutBits(int nBits, unsigned nValue);
    int AlignBits();
    void PutCBPY(int nPattern, BOOL bInter);
    void EncodeDCTCoeff(BOOL bInter, const short* psLevel, int nBlock, int nBlockLength);
    void PutMBHeader(BOOL bPFrame, BOOL bInter, BOOL bSkip, int nPattern);

    // Macroblocks and picture bodies.
    void IFrameEncodeMB(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ);
    void PFrameEncodeMB(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgReference, int nQ);
    void IFrameEncodeMBwithMMX(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ);
    void PFrameEncodeMBwithMMX(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgReference,
                               const IMAGE& imgTarget, int nQ);
    void IFrameEncode(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ);
    void PFrameEncode(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ);
    void IFrameEncodewithMMX(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ);
    void PFrameEncodewithMMX(const IMAGE& imgCurrent, const IMAGE& imgReference,
                             const IMAGE& imgTarget, int nQ);
    void IFrameEncodeCop(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ);
    void PFrameEncodeCop(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ);

private:
    // The transform pair of a body on natural-order blocks, in place: scalar or SIMD form.
    struct tag_TRANSFORMPAIR {
        void (*pfnForward)(short* const* ppsBlocks, int nBlocks);
        void (*pfnInverse)(short* const* ppsBlocks, int nBlocks);
    };
    struct tag_BITWRITER {
        BYTE* pBitPtr;
        std::uint64_t qwBitAcc;
        int nBitsHeld;
        int nBitLen;
    };
    // The six blocks of a macroblock in natural order, and where their values are not 0.
    struct tag_MBLEVELS {
        alignas(32) short sBlocks[MB_BLOCKS * BLOCK_SAMPLES];
        std::uint64_t qwNonZero[MB_BLOCKS];
    };

    BOOL AllocateBuffers();
    void FreeBuffers();
    void ClearMoveMap();
    void BringFrameIn(BYTE* pbyFrame);
    int LumaSAD(int nIndex, const IMAGE& imgFirst, const IMAGE& imgSecond) const;
    BOOL DetectMove();
    ENCODER_RETURN EncodeOneFrame(const IMAGE& imgCurrent, int nFrameType);
    int CountIntraMacroblocks();
    void EncodePFrameBody();
    tag_BITWRITER TakeBitWriter() const;
    void KeepBitWriter(const tag_BITWRITER& writer);
    static void WriteBits(tag_BITWRITER& writer, int nBits, unsigned nValue);
    static void PutEvent(tag_BITWRITER& writer, int nLast, int nRun, int nLevel);
    void PutEvents(const short* psScanLevels, std::uint64_t qwPositions, int nFirst);
    void PutDC(int nDC);
    void PutMBBlocks(const tag_MBLEVELS& levels, BOOL bInter, int nPattern);
    static int GetCBP(const tag_MBLEVELS& levels, int nFirst);
    static bool IsBlockCoded(int nPattern, int nBlock);
    BYTE* ReserveGroupsField();
    static tag_TRANSFORMPAIR ScalarTransforms();
    tag_TRANSFORMPAIR SIMDTransforms() const;
    void QuantizeMB(tag_MBLEVELS& levels, int nQ, int nMode, const tag_TRANSFORMPAIR& transforms) const;
    void ReconstructMB(tag_MBLEVELS& levels, int nPattern, int nQ, int nMode,
                       const tag_TRANSFORMPAIR& transforms) const;
    void CodeIntraMB(int nIndex, BOOL bPFrame, const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ,
                     const tag_TRANSFORMPAIR& transforms);
    void CodePredictedMB(int nIndex, const IMAGE& imgCurrent, const IMAGE& imgReference,
                         const IMAGE& imgTarget, int nQ, const tag_TRANSFORMPAIR& transforms);
    void EncodeBodyWithCoprocessor(const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ,
                                   BOOL bPFrame);
    void FillCopBatch(int nGroupStart, const IMAGE& imgCurrent, const IMAGE& imgReference, int nQ,
                      BOOL bPFrame);
    void CodeOnCpu(int& nCpu, const IMAGE& imgCurrent, const IMAGE& imgTarget, int nQ, BOOL bPFrame);
};
