// ITU-T G.726 at 24 kbit/s in 16-bit fixed point. Every intermediate value is kept in a
// short, so that results are cut to 16 bits where they are stored: the encoder's and the
// decoder's states must stay equal, and the board's signal processor decodes the same
// code with the same arithmetic.
#include "sound/CAdpcm.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

namespace {

// ITU-T G.726, 24 kbit/s quantizer: decision levels of log2|d| - y, scaled by 128.
constexpr short qtab[] = {8, 218, 331};
constexpr int kQtabSize = 3;
// ITU-T G.726, 24 kbit/s: log2|dq| - y for each code I, scaled by 128 (-2048 stands
// for minus infinity).
constexpr short dqlntab[] = {-2048, 135, 273, 373, 373, 273, 135, -2048};
// ITU-T G.726, 24 kbit/s: scale factor multiplier W(I), scaled by 512.
constexpr short witab[] = {-128, 960, 4384, 18624, 18624, 4384, 960, -128};
// ITU-T G.726, 24 kbit/s: rate function F(I), scaled by 512.
constexpr short fitab[] = {0, 512, 1024, 3584, 3584, 1024, 512, 0};
// Thresholds for the integer part of a base-2 logarithm of a 15-bit magnitude.
constexpr short power2[] = {1, 2, 4, 8, 0x10, 0x20, 0x40, 0x80, 0x100, 0x200, 0x400, 0x800, 0x1000, 0x2000, 0x4000};
constexpr int kPower2Size = 15;

// The 3-bit code: its top bit is the sign of the difference.
constexpr int kCodeBits = 3;
constexpr int kCodeMask = 7;
constexpr int kCodeSignBit = 4;

// Floating form of zero and of negative zero (-1024 + 32).
constexpr short kFloatZero = 32;
constexpr short kFloatNegativeZero = static_cast<short>(0xFC20);
constexpr int kFloatNegativeOffset = 1024;

// Initial values of the scale factors (ITU-T G.726 reset state).
constexpr int kInitialYl = 34816;
constexpr short kInitialYu = 544;

// Limits of the fast scale factor yu.
constexpr int kYuMin = 544;
constexpr int kYuMax = 5120;

} // namespace

CAdpcm::~CAdpcm()
{
    delete[] m_pOutBuf;
    delete[] m_pInBuf;
}

int CAdpcm::Quan(int val, const short* table, int size)
{
    int i = 0;
    while (i < size && val >= table[i])
        ++i;
    return i;
}

short CAdpcm::FMult(int an, int srn)
{
    short anmag = (an > 0) ? an : ((-an) & 0x1FFF);
    short anexp = Quan(anmag, power2, kPower2Size) - 6;
    short anmant;
    if (anmag == 0)
        anmant = 32;
    else
        anmant = (anexp >= 0) ? anmag >> anexp : anmag << -anexp;
    short wanexp = anexp + ((srn >> 6) & 15) - 13;
    short wanmant = (anmant * (srn & 63) + 48) >> 4;
    short retval = (wanexp >= 0) ? ((wanmant << wanexp) & 0x7FFF) : (wanmant >> -wanexp);
    return ((an ^ srn) < 0) ? -retval : retval;
}

void CAdpcm::InitState(tag_G72XSTATE& state)
{
    state = tag_G72XSTATE{};
    state.yl = kInitialYl;
    state.yu = kInitialYu;
    std::fill(std::begin(state.dq), std::end(state.dq), kFloatZero);
    std::fill(std::begin(state.sr), std::end(state.sr), kFloatZero);
}

int CAdpcm::PredictorZero(const tag_G72XSTATE& state)
{
    int sezi = 0;
    for (int i = 0; i < 6; ++i)
        sezi += FMult(state.b[i] >> 2, state.dq[i]);
    return sezi;
}

int CAdpcm::PredictorPole(const tag_G72XSTATE& state)
{
    return FMult(state.a[1] >> 2, state.sr[1]) + FMult(state.a[0] >> 2, state.sr[0]);
}

int CAdpcm::StepSize(const tag_G72XSTATE& state)
{
    if (state.ap >= 256)
        return state.yu;
    short y = state.yl >> 6;
    short dif = state.yu - y;
    short al = state.ap >> 2;
    if (dif > 0)
        y += (dif * al) >> 6;
    else if (dif < 0)
        y += (dif * al + 63) >> 6;
    return y;
}

int CAdpcm::Quantize(int d, int y)
{
    short dqm = std::abs(d);
    short exp = Quan(dqm >> 1, power2, kPower2Size);
    short mant = ((dqm << 7) >> exp) & 127;
    short dl = (exp << 7) + mant;
    short dln = dl - (y >> 2);
    int i = Quan(dln, qtab, kQtabSize);
    if (d < 0)
        return kCodeMask - i;
    if (i == 0)
        return kCodeMask;
    return i;
}

int CAdpcm::Reconstruct(int sign, int dqln, int y)
{
    short dql = dqln + (y >> 2);
    if (dql < 0)
        return sign ? -32768 : 0;
    short dex = (dql >> 7) & 15;
    short dqt = 128 + (dql & 127);
    short dq = (dqt << 7) >> (14 - dex);
    return sign ? dq - 32768 : dq;
}

// Floating form of a positive magnitude: the exponent above a 6-bit mantissa.
short CAdpcm::FloatForm(int mag)
{
    short exp = Quan(mag, power2, kPower2Size);
    return (exp << 6) + ((mag << 6) >> exp);
}

// Transition detector: a difference far above the slow scale factor while a tone was
// detected marks a change of signal, after which the predictor starts afresh.
bool CAdpcm::IsTransition(int mag, const tag_G72XSTATE& state)
{
    short ylint = state.yl >> 15;
    short ylfrac = (state.yl >> 10) & 31;
    short thr = (ylint > 9) ? 31 << 10 : (32 + ylfrac) << ylint;
    short dqthr = (thr + (thr >> 1)) >> 1;
    return state.td != 0 && mag > dqthr;
}

// Pole coefficients a[1] and a[0], each moved towards the correlation of the signs of the
// partial signal estimate, and kept inside the stability triangle. Gives the new a[1].
short CAdpcm::UpdatePoles(int pk0, int dqsez, tag_G72XSTATE& state)
{
    short pks1 = pk0 ^ state.pk[0];
    short a2p = state.a[1] - (state.a[1] >> 7);
    if (dqsez != 0) {
        short fa1 = pks1 ? state.a[0] : -state.a[0];
        if (fa1 < -8191)
            a2p -= 256;
        else if (fa1 > 8191)
            a2p += 255;
        else
            a2p += fa1 >> 5;

        if (pk0 ^ state.pk[1]) {
            if (a2p <= -12160)
                a2p = -12288;
            else if (a2p >= 12416)
                a2p = 12288;
            else
                a2p -= 128;
        } else {
            if (a2p <= -12416)
                a2p = -12288;
            else if (a2p >= 12160)
                a2p = 12288;
            else
                a2p += 128;
        }
    }
    state.a[1] = a2p;

    state.a[0] -= state.a[0] >> 8;
    if (dqsez != 0)
        state.a[0] += (pks1 == 0) ? 192 : -192;
    short a1ul = 15360 - a2p;
    state.a[0] = std::clamp<short>(state.a[0], -a1ul, a1ul);
    return a2p;
}

// Zero coefficients: each leaks, and moves by the agreement of the signs of the new
// difference and of the delayed one it weighs.
void CAdpcm::UpdateZeros(int dq, int mag, tag_G72XSTATE& state)
{
    for (int i = 0; i < 6; ++i) {
        state.b[i] -= state.b[i] >> 8;
        if (mag != 0)
            state.b[i] += ((dq ^ state.dq[i]) >= 0) ? 128 : -128;
    }
}

// The delay lines of the quantized difference and of the reconstructed signal, in
// floating form, and of the signs of the partial signal estimate.
void CAdpcm::PushDelays(int dq, int mag, int sr, int pk0, tag_G72XSTATE& state)
{
    std::copy_backward(state.dq, state.dq + 5, state.dq + 6);
    if (mag == 0)
        state.dq[0] = (dq >= 0) ? kFloatZero : kFloatNegativeZero;
    else
        state.dq[0] = FloatForm(mag) - ((dq < 0) ? kFloatNegativeOffset : 0);

    state.sr[1] = state.sr[0];
    if (sr == 0)
        state.sr[0] = kFloatZero;
    else if (sr > 0)
        state.sr[0] = FloatForm(sr);
    else if (sr > -32768)
        state.sr[0] = FloatForm(-sr) - kFloatNegativeOffset;
    else
        state.sr[0] = kFloatNegativeZero;

    state.pk[1] = state.pk[0];
    state.pk[0] = pk0;
}

// Adaptation speed control: ap moves towards 512, which selects the fast scale factor,
// while the signal changes or is quiet, and towards 0, the slow one, while it is steady.
void CAdpcm::UpdateSpeedControl(int y, int fi, bool tr, tag_G72XSTATE& state)
{
    state.dms += (fi - state.dms) >> 5;
    state.dml += ((fi << 2) - state.dml) >> 7;
    if (tr)
        state.ap = 256;
    else if (y < 1536 || state.td == 1 || std::abs((state.dms << 2) - state.dml) >= (state.dml >> 3))
        state.ap += (512 - state.ap) >> 4;
    else
        state.ap += (-state.ap) >> 4;
}

void CAdpcm::Update(int y, int wi, int fi, int dq, int sr, int dqsez, tag_G72XSTATE& state)
{
    short pk0 = (dqsez < 0) ? 1 : 0;
    short mag = dq & 0x7FFF;
    bool tr = IsTransition(mag, state);

    // Quantizer scale factors: the fast one follows W(I), the slow one follows the fast.
    state.yu = std::clamp(y + ((wi - y) >> 5), kYuMin, kYuMax);
    state.yl += state.yu + ((-state.yl) >> 6);

    short a2p = 0;
    if (tr) {
        std::fill(std::begin(state.a), std::end(state.a), 0);
        std::fill(std::begin(state.b), std::end(state.b), 0);
    } else {
        a2p = UpdatePoles(pk0, dqsez, state);
        UpdateZeros(dq, mag, state);
    }
    PushDelays(dq, mag, sr, pk0, state);

    // Tone detector: a strongly negative second pole coefficient suggests a tone.
    state.td = (!tr && a2p < -11776) ? 1 : 0;

    UpdateSpeedControl(y, fi, tr, state);
}

int CAdpcm::EncodeSample(short s, tag_G72XSTATE& state)
{
    short sezi = PredictorZero(state);
    short sez = sezi >> 1;
    short sei = sezi + PredictorPole(state);
    short se = sei >> 1;

    // The codec works on a 14-bit scale.
    short d = (s >> 2) - se;

    short y = StepSize(state);
    short i = Quantize(d, y);
    short dq = Reconstruct(i & kCodeSignBit, dqlntab[i], y);
    short sr = (dq < 0) ? se - (dq & 0x3FFF) : se + dq;
    short dqsez = sr + sez - se;
    Update(y, witab[i], fitab[i], dq, sr, dqsez, state);
    return i;
}

short CAdpcm::DecodeSample(int i, tag_G72XSTATE& state)
{
    i &= kCodeMask;
    short sezi = PredictorZero(state);
    short sez = sezi >> 1;
    short sei = sezi + PredictorPole(state);
    short se = sei >> 1;

    short y = StepSize(state);
    short dq = Reconstruct(i & kCodeSignBit, dqlntab[i], y);
    short sr = (dq < 0) ? se - (dq & 0x3FFF) : se + dq;
    short dqsez = sr + sez - se;
    Update(y, witab[i], fitab[i], dq, sr, dqsez, state);
    return sr;
}

bool CAdpcm::IsEncoder() const
{
    return m_nMode == kModeEncoder && m_pOutBuf != nullptr;
}

bool CAdpcm::IsDecoder() const
{
    return m_nMode == kModeDecoder && m_pInBuf != nullptr;
}

// Codes are packed from the low bit upward: the first code of a group takes bits 0-2
// of its first byte.
void CAdpcm::PutCode(int code)
{
    m_wOutBuffer |= code << m_nOutBits;
    m_nOutBits += kCodeBits;
    if (m_nOutBits >= 8) {
        *m_pOutPos++ = static_cast<BYTE>(m_wOutBuffer);
        ++m_nOutBytes;
        m_wOutBuffer >>= 8;
        m_nOutBits -= 8;
    }
}

int CAdpcm::GetCode()
{
    if (m_nInBits < kCodeBits) {
        if (m_nInBytes <= 0)
            return 0;
        m_wInBuffer |= *m_pInPos++ << m_nInBits;
        --m_nInBytes;
        m_nInBits += 8;
    }
    int code = m_wInBuffer & kCodeMask;
    m_wInBuffer >>= kCodeBits;
    m_nInBits -= kCodeBits;
    return code;
}

void CAdpcm::ResetBits()
{
    if (m_nMode == kModeEncoder) {
        m_wOutBuffer = 0;
        m_nOutBits = 0;
        m_nOutBytes = 0;
        m_pOutPos = m_pOutBuf;
        std::memset(m_pOutBuf, 0, kMaxCodeBytes);
    } else {
        m_wInBuffer = 0;
        m_nInBits = 0;
        m_nInBytes = 0;
        m_pInPos = m_pInBuf;
        std::memset(m_pInBuf, 0, kMaxCodeBytes);
    }
}

int CAdpcm::Init(int nMode)
{
    if (nMode != kModeDecoder && nMode != kModeEncoder)
        return 0;
    m_nMode = nMode;
    BYTE*& pBuf = (nMode == kModeEncoder) ? m_pOutBuf : m_pInBuf;
    if (pBuf != nullptr)
        return 0;
    pBuf = new (std::nothrow) BYTE[kMaxCodeBytes];
    if (pBuf == nullptr)
        return 0;
    InitState((nMode == kModeEncoder) ? m_EncodeState : m_DecodeState);
    ResetBits();
    return 1;
}

int CAdpcm::Encode(const short* pPcm, BYTE* pCode, int nSamples, int /*nReserved*/)
{
    if (!IsEncoder() || nSamples < 0 || nSamples > kMaxSamples || nSamples % kSamplesPerGroup != 0)
        return 0;
    if (nSamples > 0 && (pPcm == nullptr || pCode == nullptr))
        return 0;
    ResetBits();
    for (int n = 0; n < nSamples; ++n)
        PutCode(EncodeSample(pPcm[n], m_EncodeState));
    std::copy_n(m_pOutBuf, nSamples / kSamplesPerGroup * kBytesPerGroup, pCode);
    return 1;
}

int CAdpcm::Decode(const BYTE* pCode, short* pPcm, int nBytes, int /*nReserved*/)
{
    if (!IsDecoder() || nBytes < 0 || nBytes > kMaxCodeBytes || nBytes % kBytesPerGroup != 0)
        return 0;
    if (nBytes > 0 && (pCode == nullptr || pPcm == nullptr))
        return 0;
    ResetBits();
    std::copy_n(pCode, nBytes, m_pInBuf);
    m_nInBytes = nBytes;
    int nSamples = nBytes / kBytesPerGroup * kSamplesPerGroup;
    for (int n = 0; n < nSamples; ++n)
        pPcm[n] = DecodeSample(GetCode(), m_DecodeState);
    return 1;
}
