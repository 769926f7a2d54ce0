// The 8x8 transforms and the quantiser that encoder and decoder share. Encoder and
// decoder stay in step only because both reconstruct with the same inverse quantisation
// and inverse transform, so the arithmetic here is part of the picture format.
// Free functions over plain arrays: they hold no state, allocate nothing and may run on
// many threads at once. Those with faster forms call the form of the process's kernel
// table (KernelTable.h); every form gives the same bits.
#pragma once

#include "platform/PrivateHeader.h"

#include "codec/CodecTypes.h"

// Quantiser mode: 0 intra (position 0 is the DC), any other value inter.
inline constexpr int QUANT_MODE_INTRA = 0;
inline constexpr int QUANT_MODE_INTER = 1;
// Levels are limited to what the coefficient layer's escape can carry.
inline constexpr int QUANT_MAX_LEVEL = 127;
// Quantised intra DC: never 0 or 128 in the stream, 128 travels as 255.
inline constexpr int INTRA_DC_MIN = 1;
inline constexpr int INTRA_DC_MAX = 254;
inline constexpr int INTRA_DC_SCALE = 8;

// Forward and inverse 8-point transform of the 8 values psData[0], psData[nStride], ...
// psData[7 * nStride], in place.
void FDCT1D(short* psData, int nStride);
void IDCT1D(short* psData, int nStride);

// The scalar transforms of nBlocks natural-order blocks at ppsBlocks, in place: rows,
// then columns. The SIMD form on natural-order blocks is in the kernel table.
void FDCTNatural(short* const* ppsBlocks, int nBlocks);
void IDCTNatural(short* const* ppsBlocks, int nBlocks);

// Forward transform of a natural-order 8x8 block (rows, then columns; psBlock is
// destroyed), written to psCoeff in scan order.
void FDCTBlock(short* psBlock, short* psCoeff);
// Inverse transform of scan-order coefficients into a natural-order block.
void IDCTBlock(const short* psCoeff, short* psBlock);

// The SIMD forms of the two transforms: four columns at a time in 16-bit lanes, with
// two fractional bits between the passes. They differ from the scalar forms by +-1 on
// a few samples, and equal themselves on every processor: the SSE2 form and the
// portable emulation give the same bits.
void FDCTBlockMMX(short* psBlock, short* psCoeff);
void IDCTBlockMMX(const short* psCoeff, short* psBlock);

// Quantisation of 64 scan-order values; nQp 0 copies the block unchanged.
void QuantBlock(const short* psCoeff, short* psLevel, int nQp, int nMode);
// Inverse quantisation of 64 scan-order levels; nQp 0 copies the block unchanged.
void DequantBlock(const short* psLevel, short* psCoeff, int nQp, int nMode);

// For blocks 0 to 5 of the macroblock: forward transform, then QuantBlock, into
// psLevel, six scan-order blocks of 64 one after the other.
void QuantMB(short* psLevel, const YUV_Block* pMB, int nQp, int nMode);
void QuantMBwithMMX(short* psLevel, const YUV_Block* pMB, int nQp, int nMode);
// For blocks 0 to 5: DequantBlock, then the inverse transform, written into place.
void DequantMB(const short* psLevel, YUV_Block* pMB, int nQp, int nMode);
void DequantMBwithMMX(const short* psLevel, YUV_Block* pMB, int nQp, int nMode);
