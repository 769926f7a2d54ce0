// Run-time choice between the SIMD code of the kernels and their plain forms, so that
// a test can run both on the same input and compare. The choice never changes a result:
// with SIMD code disabled, FDCTBlockMMX and IDCTBlockMMX run their portable emulation,
// which gives the same bits, and every other kernel its reference loop. In a build with
// ZNDVR_PORTABLE no SIMD code exists and enabling does nothing.
#pragma once

#include "platform/PrivateHeader.h"

#include "platform/WinTypes.h"

// The kernels' SIMD code is written with SSE2 intrinsics; a portable build leaves it out.
#if !defined(ZNDVR_PORTABLE) && defined(__SSE2__)
#define ZNDVR_KERNELS_SSE2 1
#else
#define ZNDVR_KERNELS_SSE2 0
#endif

// Whether this build contains SIMD code for the processor it runs on.
BOOL HasSIMDKernels();
// Process-wide switch, on by default; safe to flip from any thread, but meant for tests
// and benchmarks that flip it while no other kernel call is running.
void EnableSIMDKernels();
void DisableSIMDKernels();
BOOL IsSIMDKernelsEnabled();
