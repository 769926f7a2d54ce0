#include "RecordSound.h"

#include "platform/CVirtualWave.h"
#include "sound/CAdpcm.h"
#include "sound/CAdpcmSpeechEncoder.h"
#include "sound/CWaveCodec.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// Speech decoded from a recording is this close to what was recorded, at least: the
// codec alone reaches about 19 dB on speech-like sound.
constexpr double kMinSnrDb = 15.0;
constexpr double kCodeBytesPerSecond = 3000.0;

tag_WAVESIGNAL MicrophoneOf(int nCamera)
{
    tag_WAVESIGNAL signal;
    signal.nKind = WAVESIGNAL_SPEECH;
    signal.dwSeed = static_cast<DWORD>(nCamera + 1);
    return signal;
}

// Decodes the code and compares it with the signal from its start, on the 16-bit scale.
double SnrDb(const tag_WAVESIGNAL& signal, const std::vector<BYTE>& code)
{
    const std::size_t nGroups = code.size() / CAdpcm::kBytesPerGroup;
    std::vector<short> original(nGroups * CAdpcm::kSamplesPerGroup);
    std::vector<short> decoded(original.size());
    WAVEFORMATEX format{};
    CWaveCodec::GetSoundFmt(SOUNDFMT_ADPCM, &format);
    CWaveSignal reference;
    CAdpcm decoder;
    if (!reference.Open(signal, format) || !decoder.Init(CAdpcm::kModeDecoder))
        return 0.0;
    reference.Generate(reinterpret_cast<BYTE*>(original.data()), static_cast<DWORD>(original.size()));
    constexpr std::size_t kGroupsPerCall = CAdpcm::kMaxCodeBytes / CAdpcm::kBytesPerGroup;
    for (std::size_t nGroup = 0; nGroup < nGroups; nGroup += kGroupsPerCall) {
        const std::size_t nCall = std::min(kGroupsPerCall, nGroups - nGroup);
        decoder.Decode(&code[nGroup * CAdpcm::kBytesPerGroup], &decoded[nGroup * CAdpcm::kSamplesPerGroup],
                       static_cast<int>(nCall * CAdpcm::kBytesPerGroup), 0);
    }
    double dSignal = 0.0;
    double dNoise = 0.0;
    for (std::size_t n = 0; n < original.size(); ++n) {
        // Decoded speech is on the codec's 14-bit scale.
        const double dError = original[n] - 4.0 * decoded[n];
        dSignal += static_cast<double>(original[n]) * original[n];
        dNoise += dError * dError;
    }
    return 10.0 * std::log10(std::max(dSignal, 1.0) / std::max(dNoise, 1.0));
}

} // namespace

void AddBoardSound(tag_VIRTUALBOARD& board)
{
    for (int nInput = 0; nInput < BOARD_SOUND_CAMERAS; ++nInput)
        board.sound.inputs[nInput] = MicrophoneOf(nInput);
    board.sound.pfnCreateEncoder = &CAdpcmSpeechEncoder::Create;
}

bool ChooseSoundDevices(const std::string& strDevice, int nCameras, std::vector<DWORD>& devices,
                        std::string& strError)
{
    devices.assign(static_cast<std::size_t>(std::max(nCameras, 0)), CWaveCodec::ANY_DEVICE);
    if (!strDevice.empty()) {
        const DWORD dwID = CWaveCodec::GetWaveInID(strDevice.c_str());
        if (dwID == CWaveCodec::ANY_DEVICE) {
            strError = "no wave-in device is called '" + strDevice + "' (zndvr devices lists them)";
            return false;
        }
        std::fill(devices.begin(), devices.end(), dwID);
        return true;
    }
    // Virtual inputs come first in the list: camera c records input c.
    CVirtualWave::Clear();
    for (int nCamera = 0; nCamera < nCameras; ++nCamera) {
        tag_VIRTUALWAVEDEVICE microphone;
        microphone.strName = nCamera == 0 ? "virtual-in" : "virtual-in" + std::to_string(nCamera);
        microphone.signal = MicrophoneOf(nCamera);
        devices[static_cast<std::size_t>(nCamera)] = CVirtualWave::AddInput(microphone);
    }
    return true;
}

bool DescribeRecordedSound(int nCamera, bool bVirtual, const std::vector<BYTE>& code, std::string& strText)
{
    if (code.empty()) {
        strText = "no sound";
        return true;
    }
    char szText[128];
    std::snprintf(szText, sizeof(szText), "sound %.1f s", static_cast<double>(code.size()) / kCodeBytesPerSecond);
    strText = szText;
    if (!bVirtual)
        return true;
    const double dSnr = SnrDb(MicrophoneOf(nCamera), code);
    std::snprintf(szText, sizeof(szText), ", %.1f dB from its microphone's signal", dSnr);
    strText += szText;
    return dSnr >= kMinSnrDb;
}
