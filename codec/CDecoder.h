// The video decoder: turns one picture record into a packed 24-bit picture and keeps
// the planes of the last picture as the reference of the next. A playback window or a
// host owns one and uses it from one thread at a time.
#pragma once

#include "codec/CodecTypes.h"
#include "platform/CObject.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"
#include "vocabulary/StreamRevision.h"

#include <memory>

struct tag_KERNELTABLE;

// What DecodeOneFrame did with one record.
struct DECODER_RETURN {
    BOOL bError;         // the record could not be decoded to its end, or was refused
    BOOL bSizeChanged;   // this I picture changed the coded size
    int nWidth;          // size of the picture now in the output
    int nHeight;
    int nFrameType;      // TYPE as read (0 or 1 for I), 2 for any P picture
    BOOL bNotCoded;      // a P picture that repeats the previous one
};

class ZNDVR_API CDecoder : public CObject {
public:
    // Capacities: the longest record taken, and the largest coded picture (704x576).
    static constexpr int BITSTREAM_BYTES = 811008;
    static constexpr int MAX_WIDTH = 704;
    static constexpr int MAX_HEIGHT = 576;
    static constexpr int MAX_OUTPUT_BYTES = MAX_WIDTH * MAX_HEIGHT * 3;

    CDecoder();
    ~CDecoder() override;
    CDecoder(const CDecoder&) = delete;
    CDecoder& operator=(const CDecoder&) = delete;

    BOOL Create(DWORD dwRevision);
    // pOut must hold width x height x 3 bytes at the size reported. A record longer than
    // BITSTREAM_BYTES, or an I picture whose size is 0, no multiple of 16 or beyond
    // MAX_WIDTH x MAX_HEIGHT, is refused with bError 1 and leaves planes and output
    // untouched; so is a picture whose output would not fit the output capacity.
    DECODER_RETURN DecodeOneFrame(const BYTE* pIn, int nInLen, BYTE* pOut, BOOL bKeepSize);
    // The bytes that the caller's output area holds, known before any record is read:
    // the largest picture (MAX_OUTPUT_BYTES) unless the caller says less.
    void SetOutputCapacity(int nBytes);

protected:
    // The reader: the next bytes to fetch, a cache whose incnt bits from the top are
    // still unread, and the bits consumed since the start of the record, which is what
    // alignment counts from.
    struct tag_BITREADER {
        const BYTE* rdptr;
        unsigned long long qwCache;
        int incnt;
        int bitcnt;
    };

    int m_nHeight = 0;
    int m_nWidth = 0;
    int m_nMBRows = 0;
    int m_nMBCols = 0;
    int m_nMBCount = 0;
    int m_nQi = 0;
    int m_nQp = 0;
    std::unique_ptr<BYTE[]> m_pBitStream;
    int m_nBitStreamLen = 0;
    std::unique_ptr<tag_BITREADER> m_pBitReader;
    IMAGE m_imgDecoded = {};
    IMAGE m_imgDisplay = {};
    DWORD m_dwRevision = STREAM_REVISION_20020114;
    BOOL m_bUseMMX = FALSE;
    int m_nOutputCapacity = MAX_OUTPUT_BYTES;
    // The memory behind both plane sets, which the records point into.
    std::unique_ptr<BYTE[]> m_pPlanes;

    // The kernels the decoder runs, the process's table from Create on.
    const tag_KERNELTABLE* m_pKernels = nullptr;

private:
    // An inverse transform form on natural-order blocks, in place.
    using IDCTFunction = void (*)(short* const* ppsBlocks, int nBlocks);

    static inline void FillCache(tag_BITREADER& r, const BYTE* pEnd);
    void InitBitStreamBuf();
    void FillBitStreamBuffer();
    inline unsigned ShowBits(int nBits);
    inline void FlushBits(int nBits);
    inline unsigned GetBits(int nBits);
    void AlignBits();
    BOOL GetStartBitStream();
    int GetCBPY();
    BOOL DecodeDCTCoeff(short* psBlock, BOOL bInter, BOOL bQp);
    BOOL IFrameDecode(const IMAGE& img);
    BOOL PFrameDecode(const IMAGE& img);
    BOOL IFrameDecodewithMMX(const IMAGE& img);
    BOOL PFrameDecodewithMMX(const IMAGE& img);
    void IQImage(const IMAGE& imgDst, const IMAGE& imgSrc, int& nWidth, int& nHeight, BOOL bKeepSize);
    void SetDecoderPara(int nHeight, int nWidth, int nQi, int nQp);
    void SetPicSize(int nWidth, int nHeight);
    void SetQi(int nQi);
    void SetQp(int nQp);
    void FreeAllMemory();

    void CopyInput(const BYTE* pIn, int nInLen);
    BOOL DecodeIntraMB(const IMAGE& img, int nIndex, BOOL bQp, IDCTFunction pfnIDCT);
    BOOL DecodeInterMB(const IMAGE& img, int nIndex, IDCTFunction pfnIDCT);
    BOOL DecodeBody(const IMAGE& img, BOOL bPFrame, IDCTFunction pfnIDCT);
    void WriteOutput(BYTE* pOut, BOOL bKeepSize, DECODER_RETURN& result);
    BOOL FitsOutput(int nWidth, int nHeight, BOOL bKeepSize) const;
};
