// Helpers of the search tests: the head of a recording written byte by byte as the file
// format lays it out (independent of the library's own layout code), and a store of quota
// disks with day directories at a fixed "now".
#pragma once

#include "StorageTestSupport.h"

#include "storage/CZnDatabase.h"

#include <string>

// The head of a recording and what follows it up to the data.
struct TestHead {
    WORD wVersion = 0x0101;
    BYTE byFrameSize = 2;
    BYTE byBoard = 1;
    BYTE byCamera = 3;
    DWORD dwBeginTime = 0;
    DWORD dwEndTime = 0;
    BYTE bySoundFormat = 0;
    std::string strBoardName = "board";
    std::string strCameraName = "camera";
    std::string strHostName = "host";
    DWORD dwHostNameLength = 0xFFFFFFFF;  // the real length unless set
    int nGmt = 3600;

    std::string Bytes() const
    {
        std::string strBytes(36, '\0');
        auto put16 = [&](std::size_t nAt, DWORD dwValue) {
            strBytes[nAt] = static_cast<char>(dwValue);
            strBytes[nAt + 1] = static_cast<char>(dwValue >> 8);
        };
        auto put32 = [&](std::size_t nAt, DWORD dwValue) {
            put16(nAt, dwValue & 0xFFFF);
            put16(nAt + 2, dwValue >> 16);
        };
        strBytes[0] = 'Z';
        strBytes[1] = 'N';
        put16(2, wVersion);
        strBytes[4] = static_cast<char>(byFrameSize);
        strBytes[5] = static_cast<char>(byBoard);
        strBytes[6] = static_cast<char>(byCamera);
        strBytes[7] = static_cast<char>(160);
        put32(8, dwBeginTime);
        put32(12, dwEndTime);
        put16(20, static_cast<DWORD>(strBoardName.size()));
        put16(22, static_cast<DWORD>(strCameraName.size()));
        strBytes[24] = static_cast<char>(bySoundFormat);
        strBytes[25] = 0x55;  // reserved bytes that a summary never takes
        strBytes += strBoardName + strCameraName;
        std::string strField(4, '\0');
        if (wVersion >= 0x0100) {
            const DWORD dwLength = dwHostNameLength != 0xFFFFFFFF ? dwHostNameLength : static_cast<DWORD>(strHostName.size());
            for (int i = 0; i < 4; ++i)
                strField[i] = static_cast<char>(dwLength >> (8 * i));
            strBytes += strField + strHostName;
        }
        if (wVersion >= 0x0101) {
            for (int i = 0; i < 4; ++i)
                strField[i] = static_cast<char>(static_cast<DWORD>(nGmt) >> (8 * i));
            strBytes += strField;
        }
        return strBytes + std::string(16, '\xFF');  // an empty block record behind it
    }
};

inline constexpr DWORD kRevision2 = 0x20020219;
inline constexpr DWORD kRevision1 = 0x20020114;

// A local time of the test zone as a 32-bit time.
inline DWORD LocalTime(int nYear, int nMonth, int nDay, int nHour, int nMinute = 0)
{
    return static_cast<DWORD>(CTime(nYear, nMonth, nDay, nHour, nMinute, 0, -1).GetTime());
}
