// Growable arrays: CArray of any default-constructible TYPE and CDWordArray of DWORD.
// New elements are value-initialised (zero for plain records). Indices are int; an
// out-of-range index or a negative size never touches memory outside the array.
// Thread-bound.
#pragma once

#include "platform/CArchive.h"
#include "platform/CMemoryException.h"
#include "platform/CObject.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstddef>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <vector>

template <class TYPE, class ARG_TYPE = const TYPE&>
class CArray : public CObject {
public:
    CArray() = default;
    ~CArray() override = default;

    int GetSize() const { return static_cast<int>(m_vecData.size()); }
    int GetUpperBound() const { return GetSize() - 1; }

    // Sets the number of elements. nGrowBy, when not -1, becomes the number of elements
    // to reserve beyond the size whenever the array must grow; 0 picks a step from the
    // size. A negative nNewSize is refused: the array stays as it is. Running out of
    // memory throws CMemoryException.
    void SetSize(int nNewSize, int nGrowBy = -1);
    // Gives back the memory reserved beyond the size.
    void FreeExtra() { m_vecData.shrink_to_fit(); }
    void RemoveAll() { std::vector<TYPE>().swap(m_vecData); }

    // An out-of-range index reads a value-initialised element and writes nowhere: the
    // reference then is to a scratch element of this array.
    TYPE GetAt(int nIndex) const { return IsValidIndex(nIndex) ? m_vecData[nIndex] : TYPE(); }
    void SetAt(int nIndex, ARG_TYPE newElement);
    TYPE& ElementAt(int nIndex);
    const TYPE& ElementAt(int nIndex) const;
    TYPE& operator[](int nIndex) { return ElementAt(nIndex); }
    const TYPE& operator[](int nIndex) const { return ElementAt(nIndex); }

    // The elements in order; null when the array is empty.
    TYPE* GetData() { return m_vecData.empty() ? nullptr : m_vecData.data(); }
    const TYPE* GetData() const { return m_vecData.empty() ? nullptr : m_vecData.data(); }

    // Stores at nIndex, growing the array to nIndex + 1 first if needed; a negative
    // index is ignored.
    void SetAtGrow(int nIndex, ARG_TYPE newElement);
    // Appends; returns the new element's index.
    int Add(ARG_TYPE newElement);
    // Appends the elements of src; returns the index of the first, or -1 if the array
    // would hold more than INT_MAX elements.
    int Append(const CArray& src);
    void Copy(const CArray& src);

    // Inserts nCount copies at nIndex (beyond the end: the array grows with zeroed
    // elements up to it). A negative index or a count below 1 is ignored.
    void InsertAt(int nIndex, ARG_TYPE newElement, int nCount = 1);
    // Removes up to nCount elements from nIndex on; what lies outside the array is
    // ignored.
    void RemoveAt(int nIndex, int nCount = 1);

    // The element count in WriteCount form, then the elements as raw bytes in memory
    // order (little-endian). Loading replaces the content. An archive that ends early
    // throws CArchiveException endOfFile and leaves the whole elements that arrived; a
    // count above INT_MAX throws badIndex and leaves the array empty.
    void Serialize(CArchive& ar) override;

private:
    static constexpr int kMaxAutoGrowBy = 1024;
    static constexpr int kMinAutoGrowBy = 4;
    // Elements moved through the archive in one call: at most 64 KiB, at least one.
    static constexpr std::size_t kChunkElements = std::max<std::size_t>(1, 65536 / sizeof(TYPE));

    bool IsValidIndex(int nIndex) const { return nIndex >= 0 && nIndex < GetSize(); }
    void GrowTo(std::size_t nNewSize);

    std::vector<TYPE> m_vecData;
    int m_nGrowBy = 0;
    TYPE m_scratch{};
};

// An array of 32-bit unsigned numbers, such as date values; creatable by name.
class ZNDVR_API CDWordArray : public CArray<DWORD, DWORD> {
    DECLARE_SERIAL(CDWordArray)

public:
    CDWordArray() = default;
    ~CDWordArray() override;
};

template <class TYPE, class ARG_TYPE>
void CArray<TYPE, ARG_TYPE>::GrowTo(std::size_t nNewSize)
{
    try {
        if (nNewSize > m_vecData.capacity()) {
            std::size_t nGrowBy = static_cast<std::size_t>(m_nGrowBy);
            if (nGrowBy == 0) {
                nGrowBy = std::clamp<std::size_t>(m_vecData.size() / 8, kMinAutoGrowBy,
                                                  kMaxAutoGrowBy);
            }
            m_vecData.reserve(std::max(nNewSize, m_vecData.capacity() + nGrowBy));
        }
        m_vecData.resize(nNewSize);
    } catch (const std::bad_alloc&) {
        AfxThrowMemoryException();
    } catch (const std::length_error&) {
        AfxThrowMemoryException();
    }
}

template <class TYPE, class ARG_TYPE>
void CArray<TYPE, ARG_TYPE>::SetSize(int nNewSize, int nGrowBy)
{
    if (nGrowBy >= 0)
        m_nGrowBy = nGrowBy;
    if (nNewSize < 0)
        return;
    if (nNewSize == 0) {
        RemoveAll();
        return;
    }
    GrowTo(static_cast<std::size_t>(nNewSize));
}

template <class TYPE, class ARG_TYPE>
void CArray<TYPE, ARG_TYPE>::SetAt(int nIndex, ARG_TYPE newElement)
{
    if (IsValidIndex(nIndex))
        m_vecData[nIndex] = newElement;
}

template <class TYPE, class ARG_TYPE>
TYPE& CArray<TYPE, ARG_TYPE>::ElementAt(int nIndex)
{
    if (IsValidIndex(nIndex))
        return m_vecData[nIndex];
    m_scratch = TYPE();
    return m_scratch;
}

template <class TYPE, class ARG_TYPE>
const TYPE& CArray<TYPE, ARG_TYPE>::ElementAt(int nIndex) const
{
    static const TYPE s_empty{};
    return IsValidIndex(nIndex) ? m_vecData[nIndex] : s_empty;
}

template <class TYPE, class ARG_TYPE>
void CArray<TYPE, ARG_TYPE>::SetAtGrow(int nIndex, ARG_TYPE newElement)
{
    if (nIndex < 0)
        return;
    if (nIndex >= GetSize()) {
        // The argument may refer into this array, which growing can move.
        TYPE element = newElement;
        GrowTo(static_cast<std::size_t>(nIndex) + 1);
        m_vecData[nIndex] = std::move(element);
        return;
    }
    m_vecData[nIndex] = newElement;
}

template <class TYPE, class ARG_TYPE>
int CArray<TYPE, ARG_TYPE>::Add(ARG_TYPE newElement)
{
    int nIndex = GetSize();
    if (nIndex == INT_MAX)
        AfxThrowMemoryException();
    SetAtGrow(nIndex, newElement);
    return nIndex;
}

template <class TYPE, class ARG_TYPE>
int CArray<TYPE, ARG_TYPE>::Append(const CArray& src)
{
    int nOldSize = GetSize();
    if (src.GetSize() > INT_MAX - nOldSize)
        return -1;
    if (&src == this) {
        GrowTo(static_cast<std::size_t>(nOldSize) * 2);
        std::copy_n(m_vecData.begin(), nOldSize, m_vecData.begin() + nOldSize);
        return nOldSize;
    }
    GrowTo(static_cast<std::size_t>(nOldSize) + src.m_vecData.size());
    std::copy(src.m_vecData.begin(), src.m_vecData.end(), m_vecData.begin() + nOldSize);
    return nOldSize;
}

template <class TYPE, class ARG_TYPE>
void CArray<TYPE, ARG_TYPE>::Copy(const CArray& src)
{
    if (&src == this)
        return;
    try {
        m_vecData = src.m_vecData;
    } catch (const std::bad_alloc&) {
        AfxThrowMemoryException();
    }
}

template <class TYPE, class ARG_TYPE>
void CArray<TYPE, ARG_TYPE>::InsertAt(int nIndex, ARG_TYPE newElement, int nCount)
{
    if (nIndex < 0 || nCount < 1)
        return;
    if (nIndex > INT_MAX - nCount || GetSize() > INT_MAX - nCount)
        AfxThrowMemoryException();
    TYPE element = newElement;
    if (nIndex >= GetSize()) {
        GrowTo(static_cast<std::size_t>(nIndex) + nCount);
        std::fill_n(m_vecData.begin() + nIndex, nCount, element);
        return;
    }
    try {
        m_vecData.insert(m_vecData.begin() + nIndex, static_cast<std::size_t>(nCount), element);
    } catch (const std::bad_alloc&) {
        AfxThrowMemoryException();
    }
}

template <class TYPE, class ARG_TYPE>
void CArray<TYPE, ARG_TYPE>::RemoveAt(int nIndex, int nCount)
{
    if (nIndex < 0 || nCount < 1 || nIndex >= GetSize())
        return;
    int nRemove = std::min(nCount, GetSize() - nIndex);
    m_vecData.erase(m_vecData.begin() + nIndex, m_vecData.begin() + nIndex + nRemove);
}

template <class TYPE, class ARG_TYPE>
void CArray<TYPE, ARG_TYPE>::Serialize(CArchive& ar)
{
    static_assert(std::is_trivially_copyable_v<TYPE>,
                  "the archive form holds elements as their raw bytes");
    static_assert(std::endian::native == std::endian::little,
                  "the archive form is little-endian and the elements are written as they lie");
    CObject::Serialize(ar);
    if (ar.IsStoring()) {
        ar.WriteCount(static_cast<DWORD>(m_vecData.size()));
        for (std::size_t nDone = 0; nDone < m_vecData.size(); nDone += kChunkElements) {
            std::size_t nChunk = std::min(m_vecData.size() - nDone, kChunkElements);
            ar.Write(m_vecData.data() + nDone, static_cast<UINT>(nChunk * sizeof(TYPE)));
        }
        return;
    }
    // Read chunk by chunk, so that a count that the data don't back costs no memory
    // beyond what actually arrives.
    DWORD dwCount = ar.ReadCount();
    RemoveAll();
    if (dwCount > static_cast<DWORD>(INT_MAX))
        AfxThrowArchiveException(CArchiveException::badIndex);
    std::size_t nDone = 0;
    while (nDone < dwCount) {
        std::size_t nChunk = std::min(dwCount - nDone, kChunkElements);
        GrowTo(nDone + nChunk);
        UINT nBytes = static_cast<UINT>(nChunk * sizeof(TYPE));
        UINT nGot = ar.Read(m_vecData.data() + nDone, nBytes);
        if (nGot != nBytes) {
            m_vecData.resize(nDone + nGot / sizeof(TYPE));
            AfxThrowArchiveException(CArchiveException::endOfFile);
        }
        nDone += nChunk;
    }
}
