// Records shared by the codec's kernels, encoder and decoder: the three planes of a
// picture and one macroblock of 16-bit values.
#pragma once

#include "platform/WinTypes.h"

// A 4:2:0 picture in three tightly packed 8-bit planes. The Y plane has a stride of
// the picture width; U and V have half the width and half the height, and a stride of
// half the width. The record owns nothing: whoever allocated the planes frees them.
struct IMAGE {
    BYTE* Y;
    BYTE* U;
    BYTE* V;
};

inline constexpr int MB_LUMA_SIZE = 16;
inline constexpr int MB_CHROMA_SIZE = 8;
inline constexpr int MB_LUMA_SAMPLES = MB_LUMA_SIZE * MB_LUMA_SIZE;
inline constexpr int MB_CHROMA_SAMPLES = MB_CHROMA_SIZE * MB_CHROMA_SIZE;
// Values of a macroblock: 256 luma, 64 U, 64 V; also the byte count of the byte-sample
// macroblock that GetMBBytes and PutMBBytes fill, which has the same order.
inline constexpr int MB_SAMPLES = MB_LUMA_SAMPLES + 2 * MB_CHROMA_SAMPLES;
// Six 8x8 blocks: four luma (upper left, upper right, lower left, lower right), U, V.
inline constexpr int MB_BLOCKS = 6;
inline constexpr int BLOCK_SIZE = 8;
inline constexpr int BLOCK_SAMPLES = BLOCK_SIZE * BLOCK_SIZE;

// One macroblock of signed 16-bit values, each plane row by row: samples, differences
// or a reconstruction alike.
struct YUV_Block {
    short Y[MB_LUMA_SAMPLES];
    short U[MB_CHROMA_SAMPLES];
    short V[MB_CHROMA_SAMPLES];
};

static_assert(sizeof(YUV_Block) == MB_SAMPLES * sizeof(short), "YUV_Block has no padding");

