// RIFF chunks written and found again: created chunks get their true size and pad byte
// on ascending, a search passes over other chunks and stops at its parent's end, and
// files and memory images fail with the reason.
#include "platform/WinMmio.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr FOURCC kWave = mmioFOURCC('W', 'A', 'V', 'E');
constexpr FOURCC kFmt = mmioFOURCC('f', 'm', 't', ' ');
constexpr FOURCC kData = mmioFOURCC('d', 'a', 't', 'a');
constexpr FOURCC kInfo = mmioFOURCC('I', 'N', 'F', 'O');

std::vector<BYTE> ReadAll(const std::string& strFile)
{
    std::vector<BYTE> bytes(4096);
    std::FILE* pFile = std::fopen(strFile.c_str(), "rb");
    bytes.resize(pFile != nullptr ? std::fread(bytes.data(), 1, bytes.size(), pFile) : 0);
    if (pFile != nullptr)
        std::fclose(pFile);
    return bytes;
}

DWORD DwordAt(const std::vector<BYTE>& bytes, std::size_t nPos)
{
    return bytes[nPos] | bytes[nPos + 1] << 8 | bytes[nPos + 2] << 16 | static_cast<DWORD>(bytes[nPos + 3]) << 24;
}

TEST(WinMmio, WrittenChunksAreFoundAmongOthersWithTheirTrueSizes)
{
    const std::string strFile =
        (std::filesystem::temp_directory_path() / ("zndvr-mmio-" + std::to_string(::getpid()) + ".riff")).string();
    std::filesystem::remove(strFile);
    HMMIO hOut = mmioOpen(strFile.c_str(), nullptr, MMIO_CREATE | MMIO_WRITE);
    ASSERT_NE(hOut, nullptr);
    MMCKINFO ckRiff{0, 0, kWave, 0, 0};
    ASSERT_EQ(mmioCreateChunk(hOut, &ckRiff, MMIO_CREATERIFF), MMSYSERR_NOERROR);
    MMCKINFO ckList{0, 0, kInfo, 0, 0};
    ASSERT_EQ(mmioCreateChunk(hOut, &ckList, MMIO_CREATELIST), MMSYSERR_NOERROR);
    ASSERT_EQ(mmioWrite(hOut, "abc", 3), 3);
    ASSERT_EQ(mmioWrite(hOut, "abc", 0), 0);
    ASSERT_EQ(mmioAscend(hOut, &ckList, 0), MMSYSERR_NOERROR);
    MMCKINFO ck{kFmt, 5, 0, 0, 0};
    ASSERT_EQ(mmioCreateChunk(hOut, &ck, 0), MMSYSERR_NOERROR);
    ASSERT_EQ(mmioWrite(hOut, "12345", 5), 5);
    ASSERT_EQ(mmioAscend(hOut, &ck, 0), MMSYSERR_NOERROR);
    ck = MMCKINFO{kData, 0, 0, 0, 0};
    ASSERT_EQ(mmioCreateChunk(hOut, &ck, 0), MMSYSERR_NOERROR);
    ASSERT_EQ(mmioWrite(hOut, "xy", 2), 2);
    ASSERT_EQ(mmioAscend(hOut, &ck, 0), MMSYSERR_NOERROR);
    ASSERT_EQ(mmioAscend(hOut, &ckRiff, 0), MMSYSERR_NOERROR);
    EXPECT_EQ(mmioFlush(hOut, 0), MMSYSERR_NOERROR);
    ASSERT_EQ(mmioClose(hOut, 0), MMSYSERR_NOERROR);

    // RIFF(4) + LIST head 12 + 3 + pad + fmt head 8 + 5 + pad + data head 8 + 2.
    const std::vector<BYTE> bytes = ReadAll(strFile);
    ASSERT_EQ(bytes.size(), 8u + 4 + 12 + 4 + 8 + 6 + 8 + 2);
    EXPECT_EQ(DwordAt(bytes, 4), bytes.size() - 8);
    EXPECT_EQ(DwordAt(bytes, 16), 7u) << "the form and 3 bytes";
    EXPECT_EQ(bytes[27], 0) << "the LIST chunk's pad byte";
    EXPECT_EQ(DwordAt(bytes, 32), 5u) << "the size given at creation stays when it was right";
    EXPECT_EQ(DwordAt(bytes, 46), 2u);

    const auto perms = std::filesystem::status(strFile).permissions();
    EXPECT_NE(perms & std::filesystem::perms::owner_read, std::filesystem::perms::none);
    EXPECT_NE(perms & std::filesystem::perms::owner_write, std::filesystem::perms::none);

    // Read back from the file and from a memory image of it: the search passes the LIST
    // and fmt chunks, and a chunk searched within fmt's data isn't found beyond it.
    MMIOINFO info{0, FOURCC_MEM, 99, static_cast<LONG>(bytes.size()), reinterpret_cast<char*>(const_cast<BYTE*>(bytes.data()))};
    for (HMMIO hIn : {mmioOpen(strFile.c_str(), nullptr, MMIO_READ), mmioOpen(nullptr, &info, MMIO_READ)}) {
        ASSERT_NE(hIn, nullptr);
        EXPECT_EQ(mmioSeek(hIn, 0, SEEK_END), static_cast<LONG>(bytes.size()));
        EXPECT_EQ(mmioSeek(hIn, 0, SEEK_SET), 0);
        MMCKINFO ckFound{0, 0, 0, 0, MMIO_DIRTY};
        ASSERT_EQ(mmioDescend(hIn, &ckFound, nullptr, 0), MMSYSERR_NOERROR);
        EXPECT_EQ(ckFound.ckid, FOURCC_RIFF);
        EXPECT_EQ(ckFound.fccType, kWave);
        EXPECT_EQ(ckFound.dwFlags, 0u) << "a chunk found isn't one written to";
        ckRiff = ckFound;
        ckFound.fccType = kInfo;
        ASSERT_EQ(mmioDescend(hIn, &ckFound, &ckRiff, MMIO_FINDLIST), MMSYSERR_NOERROR);
        EXPECT_EQ(ckFound.cksize, 7u);
        ASSERT_EQ(mmioSeek(hIn, 12, SEEK_SET), 12);
        ckFound.ckid = kData;
        ASSERT_EQ(mmioDescend(hIn, &ckFound, &ckRiff, MMIO_FINDCHUNK), MMSYSERR_NOERROR);
        EXPECT_EQ(ckFound.dwDataOffset, 50u);
        char szData[4] = {};
        EXPECT_EQ(mmioRead(hIn, szData, 0), 0);
        EXPECT_EQ(mmioRead(hIn, szData, 4), 2) << "the file ends";
        EXPECT_EQ(mmioRead(hIn, szData + 2, 1), 0);
        EXPECT_STREQ(szData, "xy");
        EXPECT_EQ(mmioWrite(hIn, "z", 1), -1) << "opened to read";
        ASSERT_EQ(mmioSeek(hIn, 36, SEEK_SET), 36);
        MMCKINFO ckFmt{kFmt, 5, 0, 36, 0};
        ckFound.ckid = kData;
        EXPECT_EQ(mmioDescend(hIn, &ckFound, &ckFmt, MMIO_FINDCHUNK), MMIOERR_CHUNKNOTFOUND);
        EXPECT_EQ(mmioClose(hIn, 0), MMSYSERR_NOERROR);
    }

    MMIOINFO missing{};
    EXPECT_EQ(mmioOpen((strFile + ".missing").c_str(), &missing, MMIO_READ), nullptr);
    EXPECT_EQ(missing.wErrorRet, MMIOERR_FILENOTFOUND);
    EXPECT_EQ(mmioOpen(nullptr, &info, MMIO_WRITE), nullptr);
    EXPECT_EQ(info.wErrorRet, MMSYSERR_INVALPARAM);
    std::filesystem::remove(strFile);
}

} // namespace
