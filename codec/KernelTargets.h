// Regions of a kernel file whose functions may use an instruction-set extension beyond
// the build's baseline. The kernel table enters them only on processors that have the
// extension. Everything that the region uses from elsewhere is included before it, so
// that only the region's own code, which has internal linkage, is compiled for the
// extension and no shared inline function can carry its instructions to another caller.
#pragma once

#include "platform/PrivateHeader.h"

#if defined(__clang__)
#define ZNDVR_BEGIN_TARGET_AVX2 _Pragma("clang attribute push(__attribute__((target(\"avx2\"))), apply_to = function)")
#define ZNDVR_END_TARGET _Pragma("clang attribute pop")
#else
#define ZNDVR_BEGIN_TARGET_AVX2 _Pragma("GCC push_options") _Pragma("GCC target(\"avx2\")")
#define ZNDVR_END_TARGET _Pragma("GCC pop_options")
#endif
