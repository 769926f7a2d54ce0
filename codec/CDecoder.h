// The video decoder: turns one picture record into a packed 24-bit picture and keeps
// the planes of the last picture as the reference of the next. A playback window or a
// host owns one and uses it from one thread at a time.
#pragma once

#include "codec/CodecTypes.h"
#include "platform/CObject.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

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
    // The reader's window: 16 bytes, of which the last 12 are live (4 kept from the
    // previous fetch and 8 fetched), incnt bits of them still unread; bitcnt counts
    // the bits consumed since the start of the record. The live bytes are also held
    // as big-endian numbers, so that reading bits is shifting and masking.
    struct tag_BITREADER {
        const BYTE* rdptr;
        BYTE inbfr[16];
        int incnt;
        int bitcnt;
        DWORD dwKept;            // inbfr[4..7]
        unsigned long long qwFetched;   // inbfr[8..15]
    };

    int m_nHeight = 0;
    int m_nWidth = 0;
    int m_nMBRows = 0;
    int m_nMBCols = 0;
    int m_nMBCount = 0;
    int m_nQi = 0;
    int m_nQp = 0;
    BYTE* m_pBitStream = nullptr;
    int m_nBitStreamLen = 0;
    tag_BITREADER* m_pBitReader = nullptr;
    IMAGE m_imgDecoded = {};
    IMAGE m_imgDisplay = {};
    DWORD m_dwRevision = 0x20020114;
    BOOL m_bUseMMX = FALSE;
    int m_nOutputCapacity = MAX_OUTPUT_BYTES;

private:
    using IDCTFunction = void (*)(const short*, short*);

    // The reader's operations on a given state: the members below apply them to
    // m_pBitReader, and the coefficient loop to a copy that stays in registers.
    static void FillWindow(tag_BITREADER& r, const BYTE* pEnd);
    static inline unsigned ShowWindowBits(tag_BITREADER& r, int nBits, const BYTE* pEnd);
    static inline void FlushWindowBits(tag_BITREADER& r, int nBits, const BYTE* pEnd);

    void InitBitStreamBuf();
    void FillBitStreamBuffer();
    inline unsigned ShowBits(int nBits);
    inline void FlushBits(int nBits);
    inline unsigned GetBits(int nBits);
    void AlignBits();
    BOOL GetStartBitStream();
    int GetCBPY();
    BOOL DecodeDCTCoeff(short* psBlock, BOOL bInter, BOOL bQp);
    static void FillMBFromSubMB(int nBlock, YUV_Block* pMB, const short* psBlock);
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
