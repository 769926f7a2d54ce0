// Fuzz target of the speech codec. The input is taken as code bytes for Decode and as
// 16-bit PCM for Encode, cut into calls whose lengths come from its first two bytes,
// with lengths the codec must refuse mixed in. Every output buffer has exactly the size
// a call may fill, so that a write past it is caught. The encoder's code, decoded,
// must give the samples of the per-sample functions run side by side.
#include "sound/CAdpcm.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

void Check(bool bCondition)
{
    if (!bCondition)
        std::abort();
}

void DecodeInCalls(const std::uint8_t* pData, int nSize, int nCallBytes)
{
    CAdpcm decoder;
    Check(decoder.Init(CAdpcm::kModeDecoder) == 1);
    // The whole input in one call: refused unless it is whole groups within the limit.
    {
        int nSamples = nSize / CAdpcm::kBytesPerGroup * CAdpcm::kSamplesPerGroup;
        auto pcm = std::make_unique<short[]>(static_cast<std::size_t>(nSamples));
        bool bAcceptable = nSize % CAdpcm::kBytesPerGroup == 0 && nSize <= CAdpcm::kMaxCodeBytes;
        Check(decoder.Decode(pData, pcm.get(), nSize, 0) == (bAcceptable ? 1 : 0));
    }
    for (int nDone = 0; nDone < nSize; nDone += nCallBytes) {
        int nBytes = std::min(nCallBytes, nSize - nDone);
        int nSamples = nBytes / CAdpcm::kBytesPerGroup * CAdpcm::kSamplesPerGroup;
        auto pcm = std::make_unique<short[]>(static_cast<std::size_t>(nSamples));
        Check(decoder.Decode(pData + nDone, pcm.get(), nBytes, 0) == (nBytes % CAdpcm::kBytesPerGroup == 0 ? 1 : 0));
    }
}

void EncodeInCalls(const std::vector<short>& pcm, int nCallSamples)
{
    CAdpcm encoder;
    CAdpcm decoder;
    Check(encoder.Init(CAdpcm::kModeEncoder) == 1);
    Check(decoder.Init(CAdpcm::kModeDecoder) == 1);
    tag_G72XSTATE encoderState;
    tag_G72XSTATE decoderState;
    CAdpcm::InitState(encoderState);
    CAdpcm::InitState(decoderState);
    int nTotal = static_cast<int>(pcm.size());
    for (int nDone = 0; nDone < nTotal; nDone += nCallSamples) {
        int nSamples = std::min(nCallSamples, nTotal - nDone);
        int nBytes = nSamples / CAdpcm::kSamplesPerGroup * CAdpcm::kBytesPerGroup;
        auto code = std::make_unique<BYTE[]>(static_cast<std::size_t>(nBytes));
        if (nSamples % CAdpcm::kSamplesPerGroup != 0) {
            Check(encoder.Encode(pcm.data() + nDone, code.get(), nSamples, 0) == 0);
            continue;
        }
        Check(encoder.Encode(pcm.data() + nDone, code.get(), nSamples, 0) == 1);
        auto decoded = std::make_unique<short[]>(static_cast<std::size_t>(nSamples));
        Check(decoder.Decode(code.get(), decoded.get(), nBytes, 0) == 1);
        for (int n = 0; n < nSamples; ++n) {
            int nCode = CAdpcm::EncodeSample(pcm[static_cast<std::size_t>(nDone + n)], encoderState);
            Check(decoded[static_cast<std::size_t>(n)] == CAdpcm::DecodeSample(nCode, decoderState));
            Check(encoderState == decoderState);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    if (nSize < 2 || nSize > 4 * CAdpcm::kMaxCodeBytes)
        return 0;
    int nCallGroups = 1 + pData[0] % 128;
    // Lengths that are not whole groups now and then, which the codec must refuse.
    int nRagged = (pData[0] & 128) ? pData[1] % 8 : 0;
    int nSize32 = static_cast<int>(nSize);

    DecodeInCalls(pData, nSize32, nCallGroups * CAdpcm::kBytesPerGroup + nRagged % CAdpcm::kBytesPerGroup);

    std::vector<short> pcm(nSize / sizeof(short));
    std::memcpy(pcm.data(), pData, pcm.size() * sizeof(short));
    EncodeInCalls(pcm, nCallGroups * CAdpcm::kSamplesPerGroup + nRagged);
    return 0;
}
