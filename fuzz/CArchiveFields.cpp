// Loads arbitrary bytes as a run of archive fields: strings with their length prefix,
// counts and numbers, in an order the input's first byte chooses. Every field either
// arrives whole, from bytes that were really there, or ends the run with the archive's
// exception.
#include "platform/CArchive.h"
#include "platform/CMemFile.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace {

constexpr int kFieldKinds = 4;

void LoadFields(BYTE byOrder, const BYTE* pData, std::size_t nSize)
{
    // Copied to a block of exactly the input's size so that a read past its end is caught.
    std::unique_ptr<BYTE[]> pCopy(new BYTE[nSize]);
    std::memcpy(pCopy.get(), pData, nSize);
    CMemFile file(pCopy.get(), static_cast<UINT>(nSize));
    std::size_t nTaken = 0;
    try {
        CArchive ar(&file, CArchive::load);
        for (int nField = 0;; ++nField) {
            switch ((byOrder >> (2 * (nField % kFieldKinds))) & 3) {
            case 0: {
                CString strText;
                ar >> strText;
                nTaken += static_cast<std::size_t>(strText.GetLength()) + 1;
                break;
            }
            case 1:
                ar.ReadCount();
                nTaken += 2;
                break;
            case 2: {
                DWORD dwValue = 0;
                ar >> dwValue;
                nTaken += 4;
                break;
            }
            default: {
                BYTE aRaw[7];
                UINT nRead = ar.Read(aRaw, sizeof(aRaw));
                if (nRead == 0)
                    return;
                nTaken += nRead;
                break;
            }
            }
            if (nTaken > nSize)
                __builtin_trap();
        }
    } catch (CException* pException) {
        pException->Delete();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    if (nSize < 2 || nSize > 1u << 20)
        return 0;
    LoadFields(pData[0], pData + 1, nSize - 1);
    return 0;
}
