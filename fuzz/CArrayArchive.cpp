// Loads arbitrary bytes as the archive form of a DWORD array and of an array of 12-byte
// records. Whatever the count claims, loading ends with the array holding only elements
// that arrived, or with the archive's exception.
#include "platform/CArray.h"
#include "platform/CMemFile.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace {

struct tag_FUZZRECORD {
    DWORD dwFirst;
    DWORD dwSecond;
    DWORD dwThird;
};

template <typename TArray> void LoadArray(const std::uint8_t* pData, std::size_t nSize)
{
    // Copied to a block of exactly the input's size so that a read past its end is caught.
    std::unique_ptr<BYTE[]> pCopy(new BYTE[nSize]);
    std::memcpy(pCopy.get(), pData, nSize);
    CMemFile file(pCopy.get(), static_cast<UINT>(nSize));
    TArray array;
    try {
        CArchive ar(&file, CArchive::load);
        array.Serialize(ar);
    } catch (CException* pException) {
        pException->Delete();
    }
    if (static_cast<std::size_t>(array.GetSize()) * sizeof(array[0]) > nSize)
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    if (nSize == 0 || nSize > 1u << 20)
        return 0;
    LoadArray<CDWordArray>(pData, nSize);
    LoadArray<CArray<tag_FUZZRECORD, tag_FUZZRECORD&>>(pData, nSize);
    return 0;
}
