// CAdpcm: software codec for the speech of recordings, ITU-T G.726 at 24 kbit/s over
// linear 16-bit PCM at 8000 samples a second. Owned by the wave device wrapper or the
// player that made it; used from its owner's thread only, without locks.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <cstdint>

// The delayed variables of the G.726 coder, named as in the Recommendation, in fixed
// point. dq and sr hold values in floating form: 4-bit exponent, 6-bit mantissa, and
// a negative sign as an offset of -1024.
struct tag_G72XSTATE {
    std::int32_t yl;    // slow (locked) quantizer scale factor, 6 more fraction bits
    std::int16_t yu;    // fast (unlocked) quantizer scale factor
    std::int16_t dms;   // short-term average of the rate function F
    std::int16_t dml;   // long-term average of F
    std::int16_t ap;    // speed control
    std::int16_t a[2];  // pole predictor coefficients
    std::int16_t b[6];  // zero predictor coefficients
    std::int16_t pk[2]; // delayed signs of the partial signal estimate
    std::int16_t dq[6]; // delayed quantized differences, floating form
    std::int16_t sr[2]; // delayed reconstructed signal, floating form
    BYTE td;            // tone detected

    bool operator==(const tag_G72XSTATE&) const = default;
};

class ZNDVR_API CAdpcm {
public:
    // 3 bytes carry 8 codes of 3 bits: a call always holds whole groups.
    static constexpr int kSamplesPerGroup = 8;
    static constexpr int kBytesPerGroup = 3;
    // Size of the code buffer, and so the most that one call takes: 3 seconds.
    static constexpr int kMaxCodeBytes = 9000;
    static constexpr int kMaxSamples = kMaxCodeBytes / kBytesPerGroup * kSamplesPerGroup;

    static constexpr int kModeDecoder = 0;
    static constexpr int kModeEncoder = 1;

    CAdpcm() = default;
    ~CAdpcm();
    CAdpcm(const CAdpcm&) = delete;
    CAdpcm& operator=(const CAdpcm&) = delete;

    // Chooses the direction and makes its buffer and state. 1 on success; 0 if that
    // direction was made before (its state is kept), for an unknown direction, or when
    // the buffer can't be allocated.
    int Init(int nMode);

    // Compresses nSamples samples (whole groups of 8, at most kMaxSamples) into
    // nSamples / 8 * 3 bytes of pCode. 0, with nothing written and the state
    // untouched, for any other length or on an object that isn't an encoder.
    int Encode(const short* pPcm, BYTE* pCode, int nSamples, int nReserved);

    // Expands nBytes code bytes (whole groups of 3, at most kMaxCodeBytes) into
    // nBytes / 3 * 8 samples of pPcm, on the codec's 14-bit scale: a quarter of the
    // amplitude that was encoded. 0, with nothing written and the state untouched,
    // for any other length or on an object that isn't a decoder.
    int Decode(const BYTE* pCode, short* pPcm, int nBytes, int nReserved);

    // One sample through the coder's blocks, advancing the given state.
    static void InitState(tag_G72XSTATE& state);
    static int EncodeSample(short s, tag_G72XSTATE& state);
    static short DecodeSample(int i, tag_G72XSTATE& state);

private:
    static int Quan(int val, const short* table, int size);
    static short FMult(int an, int srn);
    static int PredictorZero(const tag_G72XSTATE& state);
    static int PredictorPole(const tag_G72XSTATE& state);
    static int StepSize(const tag_G72XSTATE& state);
    static int Quantize(int d, int y);
    static int Reconstruct(int sign, int dqln, int y);
    static void Update(int y, int wi, int fi, int dq, int sr, int dqsez, tag_G72XSTATE& state);
    static bool IsTransition(int mag, const tag_G72XSTATE& state);
    static short UpdatePoles(int pk0, int dqsez, tag_G72XSTATE& state);
    static void UpdateZeros(int dq, int mag, tag_G72XSTATE& state);
    static void PushDelays(int dq, int mag, int sr, int pk0, tag_G72XSTATE& state);
    static void UpdateSpeedControl(int y, int fi, bool tr, tag_G72XSTATE& state);
    static short FloatForm(int mag);

    bool IsEncoder() const;
    bool IsDecoder() const;
    void PutCode(int code);
    int GetCode();
    void ResetBits();

    int m_nMode = kModeDecoder;
    int m_nOutBits = 0;
    BYTE* m_pOutPos = nullptr;
    BYTE* m_pOutBuf = nullptr;
    int m_nOutBytes = 0;
    WORD m_wOutBuffer = 0;
    int m_nInBits = 0;
    BYTE* m_pInPos = nullptr;
    BYTE* m_pInBuf = nullptr;
    int m_nInBytes = 0;
    WORD m_wInBuffer = 0;
    tag_G72XSTATE m_EncodeState{};
    tag_G72XSTATE m_DecodeState{};
};
