// Time per call of every form of the codec kernels, each taken from a kernel table filled
// for that form ("plain", then one form per instruction-set feature this processor has),
// and of the scalar transforms. After the usual table it prints each form's speed-up
// over the plain form of the same kernel.
#include "codec/KernelTable.h"
#include "codec/TransformKernels.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kBenchQp = 8;
constexpr int kWidth = 352;
constexpr int kHeight = 288;
constexpr int kMacroblocks = (kWidth / MB_LUMA_SIZE) * (kHeight / MB_LUMA_SIZE);

// A CIF picture of a noisy gradient, its packed frame and a second picture beside it.
struct tag_PICTURES {
    std::vector<BYTE> frame = std::vector<BYTE>(kWidth * kHeight * 3);
    std::vector<BYTE> current = std::vector<BYTE>(kWidth * kHeight * 3 / 2);
    std::vector<BYTE> reference = std::vector<BYTE>(kWidth * kHeight * 3 / 2);

    tag_PICTURES()
    {
        std::mt19937 engine(12345);
        for (std::size_t n = 0; n < current.size(); ++n) {
            current[n] = static_cast<BYTE>(n % kWidth / 2 + engine() % 16);
            reference[n] = static_cast<BYTE>(current[n] + engine() % 9 - 4);
        }
        for (std::size_t n = 0; n < kWidth * kHeight * 2; ++n)
            frame[n] = static_cast<BYTE>(n * 7 + engine() % 8);
    }

    static IMAGE Image(std::vector<BYTE>& planes)
    {
        BYTE* pby = planes.data();
        return {pby, pby + kWidth * kHeight, pby + kWidth * kHeight * 5 / 4};
    }
};

// Six blocks of the differences between the two pictures, as a P macroblock has them.
std::vector<short> DifferenceBlocks(const tag_KERNELTABLE& table, tag_PICTURES& pictures)
{
    std::vector<short> blocks(MB_BLOCKS * BLOCK_SAMPLES);
    table.pfnLoadDifferenceMB(tag_PICTURES::Image(pictures.current), tag_PICTURES::Image(pictures.reference), 3, 2,
                              kWidth, blocks.data());
    return blocks;
}

void Transform(benchmark::State& state, void (*pfnTransform)(short* const*, int))
{
    tag_PICTURES pictures;
    tag_KERNELTABLE plain{};
    FillKernelTable(plain, 0);
    const std::vector<short> input = DifferenceBlocks(plain, pictures);
    std::vector<short> work(input.size());
    short* apsBlocks[MB_BLOCKS];
    for (int b = 0; b < MB_BLOCKS; ++b)
        apsBlocks[b] = work.data() + BLOCK_SAMPLES * b;
    for (auto _ : state) {
        std::memcpy(work.data(), input.data(), input.size() * sizeof(short));
        pfnTransform(apsBlocks, MB_BLOCKS);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * MB_BLOCKS);
}

void Quantiser(benchmark::State& state, const tag_KERNELTABLE& table)
{
    tag_PICTURES pictures;
    std::vector<short> blocks = DifferenceBlocks(table, pictures);
    short* apsBlocks[MB_BLOCKS];
    for (int b = 0; b < MB_BLOCKS; ++b)
        apsBlocks[b] = blocks.data() + BLOCK_SAMPLES * b;
    FDCTNatural(apsBlocks, MB_BLOCKS);
    short levels[BLOCK_SAMPLES];
    short coeff[BLOCK_SAMPLES];
    for (auto _ : state) {
        for (int b = 0; b < MB_BLOCKS; ++b) {
            table.pfnQuantBlock(apsBlocks[b], levels, kBenchQp, QUANT_MODE_INTER);
            benchmark::DoNotOptimize(table.pfnNonZeroMask(levels));
            table.pfnDequantBlock(levels, coeff, kBenchQp, QUANT_MODE_INTER);
            benchmark::DoNotOptimize(coeff);
        }
    }
    state.SetItemsProcessed(state.iterations() * MB_BLOCKS);
}

// Loads, transforms and stores of every macroblock of a P picture, with its SADs.
void Macroblocks(benchmark::State& state, const tag_KERNELTABLE& table)
{
    tag_PICTURES pictures;
    std::vector<BYTE> target(pictures.reference.size());
    const IMAGE current = tag_PICTURES::Image(pictures.current);
    const IMAGE reference = tag_PICTURES::Image(pictures.reference);
    const IMAGE output = tag_PICTURES::Image(target);
    alignas(32) short blocks[MB_BLOCKS * BLOCK_SAMPLES];
    for (auto _ : state) {
        for (int i = 0; i < kMacroblocks; ++i) {
            const int nCol = i % (kWidth / MB_LUMA_SIZE);
            const int nRow = i / (kWidth / MB_LUMA_SIZE);
            const int nOffset = nRow * MB_LUMA_SIZE * kWidth + nCol * MB_LUMA_SIZE;
            benchmark::DoNotOptimize(table.pfnSADLuma(current.Y + nOffset, reference.Y + nOffset, kWidth));
            table.pfnLoadDifferenceMB(current, reference, nCol, nRow, kWidth, blocks);
            table.pfnStoreSumMB(blocks, 0x3F, reference, output, nCol, nRow, kWidth);
        }
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kMacroblocks);
}

void PackedFrameToPlanes(benchmark::State& state, const tag_KERNELTABLE& table)
{
    tag_PICTURES pictures;
    for (auto _ : state) {
        table.pfnUYVYToYUV420(pictures.frame.data(), tag_PICTURES::Image(pictures.current), kWidth, kHeight);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

void PlanesToBGR(benchmark::State& state, const tag_KERNELTABLE& table)
{
    tag_PICTURES pictures;
    for (auto _ : state) {
        table.pfnYUVToRGB24(pictures.frame.data(), tag_PICTURES::Image(pictures.current), kWidth, kHeight);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

// Collects the time of each run by name for the speed-up table.
class CSpeedupReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration || run.aggregate_name == "median")
                m_times[run.run_name.str()] = run.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // Every "<kernel>/<form>" against "<kernel>/plain".
    void PrintSpeedups() const
    {
        std::printf("\n%-34s %14s %10s\n", "kernel/form", "CPU ns a call", "speed-up");
        for (const auto& [strName, dTime] : m_times) {
            const auto plain = m_times.find(strName.substr(0, strName.rfind('/')) + "/plain");
            if (plain == m_times.end())
                std::printf("%-34s %14.1f\n", strName.c_str(), dTime);
            else
                std::printf("%-34s %14.1f %9.2fx\n", strName.c_str(), dTime, plain->second / dTime);
        }
    }

private:
    std::map<std::string, double> m_times;
};

void Register(const std::string& strName, std::function<void(benchmark::State&)> fn)
{
    benchmark::RegisterBenchmark(strName.c_str(), [fn](benchmark::State& state) { fn(state); })
        ->Unit(benchmark::kNanosecond);
}

void RegisterAll()
{
    static const std::vector<tag_KERNELFORM> forms = GetKernelForms();
    Register("FDCTNatural6/scalar", [](auto& state) { Transform(state, FDCTNatural); });
    Register("IDCTNatural6/scalar", [](auto& state) { Transform(state, IDCTNatural); });
    for (const tag_KERNELFORM& form : forms) {
        const tag_KERNELTABLE* pTable = &form.table;
        const std::string strForm = "/" + form.strName;
        Register("FDCTMMX6" + strForm, [pTable](auto& state) { Transform(state, pTable->pfnFDCTMMX); });
        Register("IDCTMMX6" + strForm, [pTable](auto& state) { Transform(state, pTable->pfnIDCTMMX); });
        Register("QuantMaskDequant6" + strForm, [pTable](auto& state) { Quantiser(state, *pTable); });
        Register("SADLoadStoreMB_352x288" + strForm, [pTable](auto& state) { Macroblocks(state, *pTable); });
        Register("UYVYToYUV420_352x288" + strForm, [pTable](auto& state) { PackedFrameToPlanes(state, *pTable); });
        Register("YUVToRGB24_352x288" + strForm, [pTable](auto& state) { PlanesToBGR(state, *pTable); });
    }
}

} // namespace

int main(int argc, char** argv)
{
    RegisterAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    CSpeedupReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintSpeedups();
    benchmark::Shutdown();
    return 0;
}
