// Speed of the speech codec in samples a second, for one board block (960 samples, 360
// code bytes) and for the largest call (24000 samples, 9000 bytes). A real-time channel
// needs 8000 samples a second; "realtime" says how many channels one core could carry.
#include "sound/CAdpcm.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

namespace {

constexpr double kChannelSamplesPerSecond = 8000.0;

// Voiced sound with some noise, so that the predictor and the quantizer work as on speech.
std::vector<short> SpeechSignal(int nSamples)
{
    std::mt19937 generator(1);
    std::vector<short> pcm(static_cast<std::size_t>(nSamples));
    for (int n = 0; n < nSamples; ++n) {
        double dPhase = 2.0 * std::numbers::pi * 140.0 * n / kChannelSamplesPerSecond;
        double dValue = 0.0;
        for (int h = 1; h <= 10; ++h)
            dValue += std::sin(h * dPhase) / h;
        dValue = 8000.0 * dValue + static_cast<double>(generator() % 2001) - 1000.0;
        pcm[static_cast<std::size_t>(n)] = static_cast<short>(dValue);
    }
    return pcm;
}

void ReportSamples(benchmark::State& state, int nSamplesPerCall)
{
    double dSamples = static_cast<double>(state.iterations()) * nSamplesPerCall;
    state.SetItemsProcessed(static_cast<std::int64_t>(dSamples));
    state.counters["realtime"] =
        benchmark::Counter(dSamples / kChannelSamplesPerSecond, benchmark::Counter::kIsRate);
}

void EncodeSpeed(benchmark::State& state)
{
    int nSamples = static_cast<int>(state.range(0));
    std::vector<short> pcm = SpeechSignal(nSamples);
    std::vector<BYTE> code(static_cast<std::size_t>(nSamples / CAdpcm::kSamplesPerGroup * CAdpcm::kBytesPerGroup));
    CAdpcm encoder;
    encoder.Init(CAdpcm::kModeEncoder);
    for (auto _ : state) {
        encoder.Encode(pcm.data(), code.data(), nSamples, 0);
        benchmark::DoNotOptimize(code.data());
    }
    ReportSamples(state, nSamples);
}

void DecodeSpeed(benchmark::State& state)
{
    int nSamples = static_cast<int>(state.range(0));
    int nBytes = nSamples / CAdpcm::kSamplesPerGroup * CAdpcm::kBytesPerGroup;
    std::vector<short> pcm = SpeechSignal(nSamples);
    std::vector<BYTE> code(static_cast<std::size_t>(nBytes));
    CAdpcm encoder;
    encoder.Init(CAdpcm::kModeEncoder);
    encoder.Encode(pcm.data(), code.data(), nSamples, 0);
    CAdpcm decoder;
    decoder.Init(CAdpcm::kModeDecoder);
    for (auto _ : state) {
        decoder.Decode(code.data(), pcm.data(), nBytes, 0);
        benchmark::DoNotOptimize(pcm.data());
    }
    ReportSamples(state, nSamples);
}

} // namespace

BENCHMARK(EncodeSpeed)->Arg(960)->Arg(CAdpcm::kMaxSamples);
BENCHMARK(DecodeSpeed)->Arg(960)->Arg(CAdpcm::kMaxSamples);

BENCHMARK_MAIN();
