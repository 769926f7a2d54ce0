// Helpers of the encoder and decoder tests: synthetic camera frames, and subclasses
// that open the codec objects' state to the tests.
#pragma once

#include "codec/CDecoder.h"
#include "codec/CEncoder.h"
#include "codec/KernelTable.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace codec_test {

// A small deterministic generator (xorshift), so that every run sees the same frames.
class CRandom {
public:
    explicit CRandom(std::uint32_t dwSeed) : m_dwState(dwSeed != 0 ? dwSeed : 1) {}
    std::uint32_t Next()
    {
        m_dwState ^= m_dwState << 13;
        m_dwState ^= m_dwState >> 17;
        m_dwState ^= m_dwState << 5;
        return m_dwState;
    }
    int Uniform(int nMin, int nMax) { return nMin + static_cast<int>(Next() % static_cast<std::uint32_t>(nMax - nMin + 1)); }

private:
    std::uint32_t m_dwState;
};

inline BYTE ClipByte(int n)
{
    return static_cast<BYTE>(n < 0 ? 0 : n > 255 ? 255 : n);
}

// Planes of one picture, 4:2:0.
struct CPlanes {
    int nWidth = 0;
    int nHeight = 0;
    std::vector<BYTE> Y, U, V;

    CPlanes(int nW, int nH, BYTE byLuma = 0, BYTE byChroma = 128)
        : nWidth(nW), nHeight(nH), Y(static_cast<std::size_t>(nW) * nH, byLuma),
          U(static_cast<std::size_t>(nW) * nH / 4, byChroma), V(static_cast<std::size_t>(nW) * nH / 4, byChroma)
    {
    }
    BYTE& Luma(int x, int y) { return Y[static_cast<std::size_t>(y) * nWidth + x]; }
    // Adds nDelta to the luma of macroblock (nCol, nRow) on its first nSamples samples.
    void RaiseMacroblock(int nCol, int nRow, int nDelta, int nSamples = 256)
    {
        for (int k = 0; k < nSamples; ++k)
            Luma(nCol * 16 + k % 16, nRow * 16 + k / 16) = ClipByte(Luma(nCol * 16 + k % 16, nRow * 16 + k / 16) + nDelta);
    }
};

// A capture frame buffer: UYVY at the front, room for the BGR preview (3 bytes a pixel).
inline std::vector<BYTE> MakeFrame(const CPlanes& planes)
{
    std::vector<BYTE> frame(static_cast<std::size_t>(planes.nWidth) * planes.nHeight * 3);
    for (int y = 0; y < planes.nHeight; ++y) {
        for (int x = 0; x < planes.nWidth; x += 2) {
            BYTE* p = frame.data() + (static_cast<std::size_t>(y) * planes.nWidth + x) * 2;
            const std::size_t nChroma = static_cast<std::size_t>(y / 2) * (planes.nWidth / 2) + x / 2;
            p[0] = planes.U[nChroma];
            p[1] = planes.Y[static_cast<std::size_t>(y) * planes.nWidth + x];
            p[2] = planes.V[nChroma];
            p[3] = planes.Y[static_cast<std::size_t>(y) * planes.nWidth + x + 1];
        }
    }
    return frame;
}

// A camera scene: a gradient background, objects that move from frame to frame, and
// sensor noise of the given amplitude on every sample.
class CScene {
public:
    CScene(int nWidth, int nHeight, int nNoise, std::uint32_t dwSeed, int nObjects = 3)
        : m_nWidth(nWidth), m_nHeight(nHeight), m_nNoise(nNoise), m_random(dwSeed), m_nObjects(nObjects)
    {
    }

    CPlanes Next()
    {
        CPlanes planes(m_nWidth, m_nHeight);
        std::vector<int> objectX(static_cast<std::size_t>(m_nObjects));
        std::vector<int> objectY(static_cast<std::size_t>(m_nObjects));
        for (int o = 0; o < m_nObjects; ++o) {
            const int nSize = ObjectSize(o);
            objectX[o] = (m_nFrame * (3 + 2 * o) + 37 * o) % (m_nWidth + nSize) - nSize;
            objectY[o] = (m_nFrame * (1 + o) + 23 * o) % (m_nHeight + nSize) - nSize;
        }
        std::vector<int> columnLuma(static_cast<std::size_t>(m_nWidth));
        for (int x = 0; x < m_nWidth; ++x)
            columnLuma[x] = 40 + (x * 120) / m_nWidth;
        for (int y = 0; y < m_nHeight; ++y) {
            const int nRowLuma = (y * 60) / m_nHeight;
            for (int x = 0; x < m_nWidth; ++x) {
                int nLuma = columnLuma[x] + nRowLuma;
                for (int o = 0; o < m_nObjects; ++o) {
                    if (x >= objectX[o] && x < objectX[o] + ObjectSize(o) && y >= objectY[o] && y < objectY[o] + ObjectSize(o))
                        nLuma = 200 - 50 * o + ((x + y) & 8) * 3;
                }
                planes.Luma(x, y) = Noisy(nLuma);
            }
        }
        for (std::size_t i = 0; i < planes.U.size(); ++i) {
            const int x = static_cast<int>(i % static_cast<std::size_t>(m_nWidth / 2));
            planes.U[i] = Noisy(110 + x % 40);
            planes.V[i] = Noisy(140 - static_cast<int>(i / static_cast<std::size_t>(m_nWidth / 2)) % 30);
        }
        ++m_nFrame;
        return planes;
    }

private:
    static int ObjectSize(int nObject) { return 12 + 8 * nObject; }
    BYTE Noisy(int n) { return ClipByte(m_nNoise == 0 ? n : n + m_random.Uniform(-m_nNoise, m_nNoise)); }

    int m_nWidth;
    int m_nHeight;
    int m_nNoise;
    CRandom m_random;
    int m_nObjects;
    int m_nFrame = 0;
};

// The encoder with its reference planes, writer and transform form open to tests.
class CTestEncoder : public CEncoder {
public:
    using CEncoder::EncodeDCTCoeff;
    using CEncoder::InitBitWriter;
    using CEncoder::m_bUseMMX;
    using CEncoder::m_bUseCoprocessor;
    using CEncoder::m_imgReference;
    using CEncoder::m_nBitLen;
    using CEncoder::m_nBitsHeld;
    using CEncoder::m_nQi;
    using CEncoder::m_nQp;
    using CEncoder::m_pBitBuffer;
    using CEncoder::m_pKernels;
    using CEncoder::m_pMoveMap;
    using CEncoder::AlignBits;
    using CEncoder::PutBits;

    int MoveMapCount() const
    {
        int n = 0;
        for (int i = 0; i < GetWidth() * GetHeight() / 256; ++i)
            n += m_pMoveMap[i] != 0;
        return n;
    }
    CPlanes Reference() const { return Copy(m_imgReference, GetWidth(), GetHeight()); }

    static CPlanes Copy(const IMAGE& img, int nWidth, int nHeight)
    {
        CPlanes planes(nWidth, nHeight);
        std::memcpy(planes.Y.data(), img.Y, planes.Y.size());
        std::memcpy(planes.U.data(), img.U, planes.U.size());
        std::memcpy(planes.V.data(), img.V, planes.V.size());
        return planes;
    }
};

// The decoder with its planes and transform form open to tests.
class CTestDecoder : public CDecoder {
public:
    using CDecoder::m_bUseMMX;
    using CDecoder::m_imgDecoded;
    using CDecoder::m_nQi;
    using CDecoder::m_nQp;
    using CDecoder::m_pKernels;

    CPlanes Decoded(int nWidth, int nHeight) const { return CTestEncoder::Copy(m_imgDecoded, nWidth, nHeight); }
    // The whole capacity of the planes, to prove that a refused record changed nothing.
    std::vector<BYTE> AllPlanes() const
    {
        const std::size_t nLuma = static_cast<std::size_t>(MAX_WIDTH) * MAX_HEIGHT;
        std::vector<BYTE> all(nLuma + nLuma / 2);
        std::memcpy(all.data(), m_imgDecoded.Y, nLuma);
        std::memcpy(all.data() + nLuma, m_imgDecoded.U, nLuma / 4);
        std::memcpy(all.data() + nLuma + nLuma / 4, m_imgDecoded.V, nLuma / 4);
        return all;
    }
};

// Bit strings: "0011" + Bits(100, 8) + ..., packed most significant first and padded
// with zeros to a whole number of 16-bit words, as records are.
inline std::string Bits(unsigned nValue, int nBits)
{
    std::string str;
    for (int b = nBits - 1; b >= 0; --b)
        str += (nValue >> b) & 1 ? '1' : '0';
    return str;
}

inline std::vector<BYTE> PackBits(std::string strBits)
{
    while (strBits.size() % 16 != 0)
        strBits += '0';
    std::vector<BYTE> bytes(strBits.size() / 8);
    for (std::size_t i = 0; i < strBits.size(); ++i)
        bytes[i / 8] = static_cast<BYTE>(bytes[i / 8] | (strBits[i] == '1' ? 0x80 >> (i % 8) : 0));
    return bytes;
}

// The header of an I picture as bits.
inline std::string IHeader(int nWidth, int nHeight, int nQ)
{
    return Bits(0, 16) + "10000" + "00" + Bits(static_cast<unsigned>(nWidth), 10) + Bits(static_cast<unsigned>(nHeight), 10) +
           Bits(static_cast<unsigned>(nQ), 8) + "1" + Bits(0, 12) + Bits(0, 16);
}

// An I macroblock without AC: CBPY 0, CBPC 0, four luma DCs and two chroma DCs.
inline std::string FlatMacroblock(unsigned nLumaDC, unsigned nChromaDC = 255)
{
    return "0011" "00" + Bits(nLumaDC, 8) + Bits(nLumaDC, 8) + Bits(nLumaDC, 8) + Bits(nLumaDC, 8) +
           Bits(nChromaDC, 8) + Bits(nChromaDC, 8);
}

inline bool SamePlanes(const CPlanes& a, const CPlanes& b)
{
    return a.Y == b.Y && a.U == b.U && a.V == b.V;
}

} // namespace codec_test
