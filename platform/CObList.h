// A doubly linked list of CObject pointers, walked by POSITION. The list never owns the
// objects it points to. Nodes are allocated nBlockSize at a time, reused, and given back
// when the list becomes empty. A POSITION that names no live node of this list (null,
// removed, or from another list and out of range here) is refused; running out of memory
// throws CMemoryException. Thread-bound.
#pragma once

#include "platform/CObject.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <memory>
#include <vector>

// An opaque handle on a node of a list; null means none.
struct tag_POSITION;
using POSITION = tag_POSITION*;

class ZNDVR_API CObList : public CObject {
    DECLARE_DYNAMIC(CObList)

public:
    // A block size below 1 counts as the default, 10.
    explicit CObList(int nBlockSize = 10);
    ~CObList() override;

    int GetCount() const;
    BOOL IsEmpty() const;

    // On an empty list the head and tail read as null.
    CObject*& GetHead();
    CObject* GetHead() const;
    CObject*& GetTail();
    CObject* GetTail() const;

    // Null on an empty list.
    CObject* RemoveHead();
    CObject* RemoveTail();

    POSITION AddHead(CObject* newElement);
    POSITION AddTail(CObject* newElement);
    void AddHead(CObList* pNewList);
    void AddTail(CObList* pNewList);
    void RemoveAll();

    // Iteration: GetNext (GetPrev) returns the element at rPosition and moves rPosition
    // to the next (previous) node, null past the end. An invalid rPosition reads as null
    // and becomes null.
    POSITION GetHeadPosition() const;
    POSITION GetTailPosition() const;
    CObject*& GetNext(POSITION& rPosition);
    CObject* GetNext(POSITION& rPosition) const;
    CObject*& GetPrev(POSITION& rPosition);
    CObject* GetPrev(POSITION& rPosition) const;

    // An invalid position reads as null; SetAt and RemoveAt ignore it.
    CObject*& GetAt(POSITION position);
    CObject* GetAt(POSITION position) const;
    void SetAt(POSITION pos, CObject* newElement);
    void RemoveAt(POSITION position);

    // A null or invalid position inserts at the head (InsertBefore) or the tail
    // (InsertAfter).
    POSITION InsertBefore(POSITION position, CObject* newElement);
    POSITION InsertAfter(POSITION position, CObject* newElement);

    // Position of the first node holding searchValue after startAfter (from the head
    // when startAfter is null), or null.
    POSITION Find(CObject* searchValue, POSITION startAfter = nullptr) const;
    // Position of the zero-based nIndex-th node, or null.
    POSITION FindIndex(int nIndex) const;

private:
    struct tag_NODE {
        int m_nNext;
        int m_nPrev;
        BOOL m_bInUse;
        CObject* m_pData;
    };

    static constexpr int kNoNode = -1;

    tag_NODE* NodeAt(POSITION position);
    const tag_NODE* NodeAt(POSITION position) const;
    tag_NODE& Node(int nNode);
    const tag_NODE& Node(int nNode) const;
    static POSITION PositionOf(int nNode);
    static int NodeIndexOf(POSITION position);
    void AddBlock();
    int NewNode(int nPrev, int nNext, CObject* pData);
    void FreeNode(int nNode);
    CObject*& Scratch();

    int m_nBlockSize;
    int m_nCount = 0;
    int m_nHead = kNoNode;
    int m_nTail = kNoNode;
    int m_nFree = kNoNode;
    int m_nNodesMade = 0;
    std::vector<std::unique_ptr<tag_NODE[]>> m_vecBlocks;
    CObject* m_pScratch = nullptr;
};
