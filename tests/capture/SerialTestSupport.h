// Helpers of the tests of the settings' byte forms: little-endian values and the
// archive form of an object.
#pragma once

#include "platform/CArchive.h"
#include "platform/CMemFile.h"
#include "platform/WinTypes.h"

#include <vector>

using Bytes = std::vector<BYTE>;

inline void AppendLong(Bytes& aBytes, DWORD dwValue)
{
    for (int i = 0; i < 4; ++i)
        aBytes.push_back(static_cast<BYTE>(dwValue >> (8 * i)));
}

template <typename TObject>
Bytes StoreArchive(TObject& object)
{
    CMemFile file;
    CArchive ar(&file, CArchive::store);
    object.Serialize(ar);
    ar.Close();
    Bytes aBytes(file.GetLength());
    file.Seek(0, CFile::begin);
    file.Read(aBytes.data(), static_cast<UINT>(aBytes.size()));
    return aBytes;
}
