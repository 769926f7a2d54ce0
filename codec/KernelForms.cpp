// The process-wide switch between the kernels' SIMD code and their plain forms.
#include "codec/KernelForms.h"

#include <atomic>

namespace {

std::atomic<bool> g_bSIMDKernelsEnabled{true};

} // namespace

BOOL HasSIMDKernels()
{
    return ZNDVR_KERNELS_SSE2 ? TRUE : FALSE;
}

void EnableSIMDKernels()
{
    g_bSIMDKernelsEnabled.store(true, std::memory_order_relaxed);
}

void DisableSIMDKernels()
{
    g_bSIMDKernelsEnabled.store(false, std::memory_order_relaxed);
}

BOOL IsSIMDKernelsEnabled()
{
    return ZNDVR_KERNELS_SSE2 && g_bSIMDKernelsEnabled.load(std::memory_order_relaxed) ? TRUE : FALSE;
}
