// Feeds arbitrary bytes to the two readers of camera settings: the flat buffer, with a
// field mask taken from the input's first byte, and the archive form. A flat buffer is
// either refused or read within its length, and what was read writes back in as many
// bytes and reads again as the same settings; an archive either loads and stores back
// to the bytes it took, or ends with the archive's exception.
#include "capture/CEncodeParam.h"
#include "platform/CArchive.h"
#include "platform/CMemFile.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr DWORD kFlatMaskBits = 0xF8000000;

void ReadFlatBuffer(DWORD dwMask, const BYTE* pData, std::size_t nSize)
{
    // Copied to a block of exactly the input's size so that a read past its end is caught.
    std::unique_ptr<BYTE[]> pCopy(new BYTE[nSize]);
    std::memcpy(pCopy.get(), pData, nSize);
    CEncodeParam param;
    const DWORD dwRead = param.ReadFromBuf(pCopy.get(), static_cast<DWORD>(nSize), dwMask);
    if (dwRead > nSize)
        __builtin_trap();
    if (dwRead == 0)
        return;
    // What was read must write back to a buffer that reads as the same settings.
    std::unique_ptr<BYTE[]> pFirst(new BYTE[dwRead]);
    if (param.WriteToBuf(pFirst.get(), dwRead, dwMask) != dwRead)
        __builtin_trap();
    CEncodeParam again;
    if (again.ReadFromBuf(pFirst.get(), dwRead, dwMask) != dwRead)
        __builtin_trap();
    std::unique_ptr<BYTE[]> pSecond(new BYTE[dwRead]);
    again.WriteToBuf(pSecond.get(), dwRead, dwMask);
    if (std::memcmp(pFirst.get(), pSecond.get(), dwRead) != 0)
        __builtin_trap();
}

void LoadArchive(const BYTE* pData, std::size_t nSize)
{
    std::unique_ptr<BYTE[]> pCopy(new BYTE[nSize]);
    std::memcpy(pCopy.get(), pData, nSize);
    CMemFile file(pCopy.get(), static_cast<UINT>(nSize));
    CEncodeParam param;
    try {
        CArchive ar(&file, CArchive::load);
        param.Serialize(ar);
    } catch (CException* pException) {
        pException->Delete();
        return;
    }
    // Every field of the archive form is stored as it was read, so storing the loaded
    // settings gives back the bytes that were taken.
    CMemFile stored;
    CArchive ar(&stored, CArchive::store);
    param.Serialize(ar);
    ar.Close();
    const DWORD dwLength = stored.GetLength();
    BYTE* pStored = stored.Detach();
    const bool bSame = dwLength <= nSize && std::memcmp(pStored, pData, dwLength) == 0;
    std::free(pStored);
    if (!bSame)
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    if (nSize < 1 || nSize > 1u << 16)
        return 0;
    const DWORD dwMask = (static_cast<DWORD>(pData[0]) << 24) & kFlatMaskBits;
    ReadFlatBuffer(dwMask, pData + 1, nSize - 1);
    LoadArchive(pData + 1, nSize - 1);
    return 0;
}
