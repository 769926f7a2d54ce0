// Macroblock loads and stores, macroblock arithmetic and the colour conversions of the
// codec, and the test that chooses the transform form. Free functions over
// plain arrays: they hold no state, allocate nothing and may run on many threads at
// once. Widths and heights are even; macroblock positions lie inside the picture.
#pragma once

#include "platform/PrivateHeader.h"

#include "codec/CodecTypes.h"

// Copies the macroblock at (nCol, nRow), luma at (16 * nCol, 16 * nRow) and chroma at
// (8 * nCol, 8 * nRow), of a picture nWidth samples wide, widening samples to 16 bits.
void GetMB(int nCol, int nRow, const IMAGE& img, int nWidth, YUV_Block* pMB);
// Writes the low byte of each value of the macroblock back into the planes.
void PutMB(int nCol, int nRow, const IMAGE& img, int nWidth, const YUV_Block* pMB);
// The same with a byte-sample macroblock of MB_SAMPLES bytes in YUV_Block order.
void GetMBBytes(int nCol, int nRow, const IMAGE& img, int nWidth, BYTE* pbyMB);
void PutMBBytes(int nCol, int nRow, const IMAGE& img, int nWidth, const BYTE* pbyMB);

// Each of the 384 values to 0..255.
void ClipMB(YUV_Block* pMB);
// pFirst = pFirst - pSecond, and pFirst = pFirst + pSecond, wrapping in 16 bits.
void SubMB(YUV_Block* pFirst, const YUV_Block* pSecond);
void AddMB(YUV_Block* pFirst, const YUV_Block* pSecond);
// Sum over the 256 luma values of the absolute difference; chroma takes no part.
int SADMB(const YUV_Block* pFirst, const YUV_Block* pSecond);
int SADMBBytes(const BYTE* pbyFirst, const BYTE* pbySecond);

// Packed U Y V Y frame, 2 * nWidth bytes a row, to planes: luma as it is, chroma the
// truncating mean of each pair of lines.
void UYVYToYUV420(const BYTE* pbyFrame, const IMAGE& img, int nWidth, int nHeight);
// Halves all three planes both ways, each output sample the truncating mean of a 2x2
// square. The destination has a luma stride of nDstWidth; rows below nSrcHeight / 2
// stay untouched.
void ReduceYUV420(const IMAGE& imgSrc, const IMAGE& imgDst, int nSrcWidth, int nSrcHeight,
                  int nDstWidth);
// Planes to 3 bytes a pixel, blue, green, red, rows in plane order without padding.
void YUVToRGB24(BYTE* pbyDst, const IMAGE& img, int nWidth, int nHeight);

// Non-zero if the SIMD transform form may run here, which it may on every processor:
// the codec then takes it.
BOOL HasMMX();
