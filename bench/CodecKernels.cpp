// Time per call of every form of the codec kernels, each taken from a kernel table filled
// for that form: the scalar transforms, the SIMD transform form in its portable
// emulation ("plain") and in SIMD code, the quantiser, the macroblock operations and the
// colour conversions. After the usual table it prints each form's speed-up over the plain
// form of the same kernel (for the SIMD transform form, over the scalar transform).
#include "codec/KernelTable.h"
#include "codec/PixelKernels.h"
#include "codec/TransformKernels.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kBlocks = 64;
constexpr int kBenchQp = 8;

// A form of every kernel: its name and a table filled for it.
struct tag_FORM {
    const char* strName;
    tag_KERNELTABLE table;
};

// The plain forms, then one per feature that this build and processor offer.
std::vector<tag_FORM> AvailableForms()
{
    std::vector<tag_FORM> forms(1, tag_FORM{"plain", {}});
    FillKernelTable(forms[0].table, 0);
    if ((GetKernelFeatures() & KERNEL_FEATURE_SSE2) != 0) {
        forms.push_back({"sse2", {}});
        FillKernelTable(forms.back().table, KERNEL_FEATURE_SSE2);
    }
    return forms;
}

std::vector<short> PictureLikeBlocks(int nLow, int nHigh)
{
    std::mt19937 engine(12345);
    std::uniform_int_distribution<int> distribution(nLow, nHigh);
    std::vector<short> values(kBlocks * BLOCK_SAMPLES);
    for (short& v : values)
        v = static_cast<short>(distribution(engine));
    return values;
}

void BenchForward(benchmark::State& state, void (*pfnForward)(short*, short*))
{
    const std::vector<short> input = PictureLikeBlocks(0, 255);
    short block[BLOCK_SAMPLES], coeff[BLOCK_SAMPLES];
    int n = 0;
    for (auto _ : state) {
        std::memcpy(block, &input[BLOCK_SAMPLES * n], sizeof block);
        pfnForward(block, coeff);
        benchmark::DoNotOptimize(coeff);
        n = (n + 1) % kBlocks;
    }
}

void BenchInverse(benchmark::State& state, void (*pfnInverse)(const short*, short*))
{
    const std::vector<short> input = PictureLikeBlocks(-300, 300);
    short block[BLOCK_SAMPLES];
    int n = 0;
    for (auto _ : state) {
        pfnInverse(&input[BLOCK_SAMPLES * n], block);
        benchmark::DoNotOptimize(block);
        n = (n + 1) % kBlocks;
    }
}

// Inter coefficients of prediction differences, as QuantBlock sees them in a P picture.
std::vector<short> DifferenceCoefficients()
{
    std::vector<short> values = PictureLikeBlocks(-24, 24);
    for (int n = 0; n < kBlocks; ++n) {
        short block[BLOCK_SAMPLES];
        std::memcpy(block, &values[BLOCK_SAMPLES * n], sizeof block);
        FDCTBlock(block, &values[BLOCK_SAMPLES * n]);
    }
    return values;
}

void BenchQuantBlock(benchmark::State& state, const tag_KERNELTABLE& table)
{
    const std::vector<short> input = DifferenceCoefficients();
    short levels[BLOCK_SAMPLES];
    int n = 0;
    for (auto _ : state) {
        table.pfnQuantBlock(&input[BLOCK_SAMPLES * n], levels, kBenchQp, QUANT_MODE_INTER);
        benchmark::DoNotOptimize(levels);
        n = (n + 1) % kBlocks;
    }
}

void BenchDequantBlock(benchmark::State& state, const tag_KERNELTABLE& table)
{
    const std::vector<short> coeff = DifferenceCoefficients();
    std::vector<short> levels(coeff.size());
    for (int b = 0; b < kBlocks; ++b)
        QuantBlock(&coeff[BLOCK_SAMPLES * b], &levels[BLOCK_SAMPLES * b], kBenchQp, QUANT_MODE_INTER);
    short output[BLOCK_SAMPLES];
    int n = 0;
    for (auto _ : state) {
        table.pfnDequantBlock(&levels[BLOCK_SAMPLES * n], output, kBenchQp, QUANT_MODE_INTER);
        benchmark::DoNotOptimize(output);
        n = (n + 1) % kBlocks;
    }
}

YUV_Block MacroblockOf(int nSeed)
{
    std::mt19937 engine(nSeed);
    YUV_Block mb;
    for (short* ps : {mb.Y, mb.U, mb.V}) {
        for (int k = 0; k < (ps == mb.Y ? MB_LUMA_SAMPLES : MB_CHROMA_SAMPLES); ++k)
            ps[k] = static_cast<short>(engine() % 256);
    }
    return mb;
}

void BenchQuantMB(benchmark::State& state, void (*pfnQuant)(short*, const YUV_Block*, int, int))
{
    const YUV_Block mb = MacroblockOf(1);
    short levels[MB_BLOCKS * BLOCK_SAMPLES];
    for (auto _ : state) {
        pfnQuant(levels, &mb, kBenchQp, QUANT_MODE_INTRA);
        benchmark::DoNotOptimize(levels);
    }
}

void BenchDequantMB(benchmark::State& state, void (*pfnDequant)(const short*, YUV_Block*, int, int))
{
    const YUV_Block mb = MacroblockOf(2);
    short levels[MB_BLOCKS * BLOCK_SAMPLES];
    QuantMB(levels, &mb, kBenchQp, QUANT_MODE_INTRA);
    YUV_Block out;
    for (auto _ : state) {
        pfnDequant(levels, &out, kBenchQp, QUANT_MODE_INTRA);
        benchmark::DoNotOptimize(out);
    }
}

// Planes of a CIF picture filled with a pattern.
struct tag_PLANES {
    static constexpr int kWidth = 352;
    static constexpr int kHeight = 288;
    std::vector<BYTE> y = std::vector<BYTE>(kWidth * kHeight);
    std::vector<BYTE> u = std::vector<BYTE>(kWidth * kHeight / 4);
    std::vector<BYTE> v = std::vector<BYTE>(kWidth * kHeight / 4);

    tag_PLANES()
    {
        for (std::size_t n = 0; n < y.size(); ++n)
            y[n] = static_cast<BYTE>(n * 7 + n / kWidth);
        for (std::size_t n = 0; n < u.size(); ++n) {
            u[n] = static_cast<BYTE>(n * 3);
            v[n] = static_cast<BYTE>(255 - n * 5);
        }
    }

    IMAGE Image() { return {y.data(), u.data(), v.data()}; }
};

void BenchGetMB(benchmark::State& state)
{
    tag_PLANES planes;
    YUV_Block mb;
    int n = 0;
    for (auto _ : state) {
        GetMB(n % 22, n / 22 % 18, planes.Image(), tag_PLANES::kWidth, &mb);
        benchmark::DoNotOptimize(mb);
        ++n;
    }
}

void BenchPutMB(benchmark::State& state, const tag_KERNELTABLE& table)
{
    tag_PLANES planes;
    const YUV_Block mb = MacroblockOf(3);
    int n = 0;
    for (auto _ : state) {
        table.pfnPutMB(n % 22, n / 22 % 18, planes.Image(), tag_PLANES::kWidth, &mb);
        benchmark::ClobberMemory();
        ++n;
    }
}

void BenchSADMB(benchmark::State& state, const tag_KERNELTABLE& table)
{
    const YUV_Block a = MacroblockOf(4), b = MacroblockOf(5);
    for (auto _ : state)
        benchmark::DoNotOptimize(table.pfnSADMB(&a, &b));
}

void BenchSADMBBytes(benchmark::State& state)
{
    BYTE a[MB_SAMPLES], b[MB_SAMPLES];
    for (int n = 0; n < MB_SAMPLES; ++n) {
        a[n] = static_cast<BYTE>(n * 13);
        b[n] = static_cast<BYTE>(n * 29);
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(SADMBBytes(a, b));
}

void BenchYUVToRGB24(benchmark::State& state, const tag_KERNELTABLE& table)
{
    tag_PLANES planes;
    std::vector<BYTE> rgb(tag_PLANES::kWidth * tag_PLANES::kHeight * 3);
    for (auto _ : state) {
        table.pfnYUVToRGB24(rgb.data(), planes.Image(), tag_PLANES::kWidth, tag_PLANES::kHeight);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * tag_PLANES::kWidth * tag_PLANES::kHeight);
}

void BenchUYVYToYUV420(benchmark::State& state)
{
    tag_PLANES planes;
    std::vector<BYTE> frame(tag_PLANES::kWidth * tag_PLANES::kHeight * 2, 77);
    for (auto _ : state) {
        UYVYToYUV420(frame.data(), planes.Image(), tag_PLANES::kWidth, tag_PLANES::kHeight);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * tag_PLANES::kWidth * tag_PLANES::kHeight);
}

// Collects the time of each run by name for the speed-up table.
class CSpeedupReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        // With repetitions the median stands for the kernel, else the single run.
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration || run.aggregate_name == "median")
                m_times[run.run_name.str()] = run.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // Every "<kernel>/<form>" against "<base>/plain", where base is the kernel's name
    // without a trailing MMX or withMMX.
    void PrintSpeedups() const
    {
        std::printf("\n%-34s %12s %10s\n", "kernel/form", "CPU ns per call", "speed-up");
        for (const auto& [strName, dTime] : m_times) {
            const auto plain = m_times.find(PlainFormOf(strName));
            if (plain == m_times.end())
                std::printf("%-34s %12.1f\n", strName.c_str(), dTime);
            else
                std::printf("%-34s %12.1f %9.2fx\n", strName.c_str(), dTime, plain->second / dTime);
        }
    }

private:
    static std::string PlainFormOf(const std::string& strName)
    {
        std::string_view strBase = std::string_view(strName).substr(0, strName.find('/'));
        for (std::string_view strSuffix : {"withMMX", "MMX"}) {
            if (strBase.ends_with(strSuffix)) {
                strBase.remove_suffix(strSuffix.size());
                break;
            }
        }
        std::string strPlain(strBase);
        strPlain.append("/plain");
        return strPlain;
    }

    std::map<std::string, double> m_times;
};

void Register(const std::string& strKernel, const char* strForm, std::function<void(benchmark::State&)> fn)
{
    benchmark::RegisterBenchmark((strKernel + "/" + strForm).c_str(), [fn](benchmark::State& state) { fn(state); })
        ->Unit(benchmark::kNanosecond);
}

void RegisterAll()
{
    static const std::vector<tag_FORM> forms = AvailableForms();
    Register("FDCTBlock", "plain", [](auto& state) { BenchForward(state, FDCTBlock); });
    Register("IDCTBlock", "plain", [](auto& state) { BenchInverse(state, IDCTBlock); });
    Register("GetMB", "plain", [](auto& state) { BenchGetMB(state); });
    Register("SADMBBytes", "plain", [](auto& state) { BenchSADMBBytes(state); });
    Register("UYVYToYUV420_352x288", "plain", [](auto& state) { BenchUYVYToYUV420(state); });
    for (const tag_FORM& form : forms) {
        const tag_KERNELTABLE* pTable = &form.table;
        Register("FDCTBlockMMX", form.strName, [pTable](auto& state) { BenchForward(state, pTable->pfnFDCTBlockMMX); });
        Register("IDCTBlockMMX", form.strName, [pTable](auto& state) { BenchInverse(state, pTable->pfnIDCTBlockMMX); });
        Register("QuantMB", form.strName, [pTable](auto& state) { BenchQuantMB(state, pTable->pfnQuantMB); });
        Register("DequantMB", form.strName, [pTable](auto& state) { BenchDequantMB(state, pTable->pfnDequantMB); });
        Register("QuantMBwithMMX", form.strName,
                 [pTable](auto& state) { BenchQuantMB(state, pTable->pfnQuantMBwithMMX); });
        Register("DequantMBwithMMX", form.strName,
                 [pTable](auto& state) { BenchDequantMB(state, pTable->pfnDequantMBwithMMX); });
        Register("QuantBlock", form.strName, [pTable](auto& state) { BenchQuantBlock(state, *pTable); });
        Register("DequantBlock", form.strName, [pTable](auto& state) { BenchDequantBlock(state, *pTable); });
        Register("PutMB", form.strName, [pTable](auto& state) { BenchPutMB(state, *pTable); });
        Register("SADMB", form.strName, [pTable](auto& state) { BenchSADMB(state, *pTable); });
        Register("YUVToRGB24_352x288", form.strName, [pTable](auto& state) { BenchYUVToRGB24(state, *pTable); });
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
