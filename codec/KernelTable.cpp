// The kernel table: what the processor offers, and one table per process.
#include "codec/KernelTable.h"

DWORD GetKernelFeatures()
{
#if ZNDVR_KERNELS_X86
    // Every x86-64 processor has SSE2; AVX2 needs the processor and the system's
    // saving of the wide registers, which the compiler's probe checks both.
    DWORD dwFeatures = KERNEL_FEATURE_SSE2;
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2"))
        dwFeatures |= KERNEL_FEATURE_AVX2;
    return dwFeatures;
#else
    return 0;
#endif
}

void FillKernelTable(tag_KERNELTABLE& table, DWORD dwFeatures)
{
    FillTransformKernels(table);
    FillPixelKernels(table);
#if ZNDVR_KERNELS_X86
    if ((dwFeatures & KERNEL_FEATURE_SSE2) != 0) {
        FillTransformKernelsSSE2(table);
        FillPixelKernelsSSE2(table);
    }
    if ((dwFeatures & KERNEL_FEATURE_SSE2) != 0 && (dwFeatures & KERNEL_FEATURE_AVX2) != 0) {
        FillTransformKernelsAVX2(table);
        FillPixelKernelsAVX2(table);
    }
#else
    static_cast<void>(dwFeatures);
#endif
}

std::vector<tag_KERNELFORM> GetKernelForms()
{
    const struct {
        DWORD dwFeature;
        const char* strName;
    } features[] = {{KERNEL_FEATURE_SSE2, "sse2"}, {KERNEL_FEATURE_AVX2, "avx2"}};
    std::vector<tag_KERNELFORM> forms(1, tag_KERNELFORM{"plain", {}});
    FillKernelTable(forms[0].table, 0);
    DWORD dwFeatures = 0;
    for (const auto& feature : features) {
        if ((GetKernelFeatures() & feature.dwFeature) == 0)
            continue;
        dwFeatures |= feature.dwFeature;
        forms.push_back({feature.strName, {}});
        FillKernelTable(forms.back().table, dwFeatures);
    }
    return forms;
}

const tag_KERNELTABLE& GetKernelTable()
{
    static const tag_KERNELTABLE table = [] {
        tag_KERNELTABLE filled{};
        FillKernelTable(filled, GetKernelFeatures());
        return filled;
    }();
    return table;
}
