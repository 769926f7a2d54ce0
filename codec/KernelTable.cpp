// The kernel table: the processor's features, and one table per process.
#include "codec/KernelTable.h"

DWORD GetKernelFeatures()
{
#if ZNDVR_KERNELS_X86
    // Every x86-64 processor has SSE2.
    return KERNEL_FEATURE_SSE2;
#else
    return 0;
#endif
}

void FillKernelTable(tag_KERNELTABLE& table, DWORD dwFeatures)
{
    FillTransformKernels(table, dwFeatures);
    FillPixelKernels(table, dwFeatures);
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
