#include "platform/CObList.h"

#include "platform/CMemoryException.h"

#include <cstdint>
#include <new>

IMPLEMENT_DYNAMIC(CObList, CObject)

namespace {

constexpr int kDefaultBlockSize = 10;

} // namespace

// A POSITION is the node's index plus one, so that null stays "none" and every value
// can be checked against the node blocks before it is used.
POSITION CObList::PositionOf(int nNode)
{
    return nNode == kNoNode ? nullptr
                            : reinterpret_cast<POSITION>(static_cast<std::uintptr_t>(nNode) + 1);
}

int CObList::NodeIndexOf(POSITION position)
{
    std::uintptr_t nValue = reinterpret_cast<std::uintptr_t>(position);
    if (nValue == 0 || nValue > static_cast<std::uintptr_t>(INT32_MAX))
        return kNoNode;
    return static_cast<int>(nValue - 1);
}

CObList::CObList(int nBlockSize) : m_nBlockSize(nBlockSize > 0 ? nBlockSize : kDefaultBlockSize)
{
}

CObList::~CObList() = default;

CObList::tag_NODE& CObList::Node(int nNode)
{
    return m_vecBlocks[static_cast<std::size_t>(nNode / m_nBlockSize)][nNode % m_nBlockSize];
}

const CObList::tag_NODE& CObList::Node(int nNode) const
{
    return m_vecBlocks[static_cast<std::size_t>(nNode / m_nBlockSize)][nNode % m_nBlockSize];
}

CObList::tag_NODE* CObList::NodeAt(POSITION position)
{
    int nNode = NodeIndexOf(position);
    if (nNode == kNoNode || nNode >= m_nNodesMade || !Node(nNode).m_bInUse)
        return nullptr;
    return &Node(nNode);
}

const CObList::tag_NODE* CObList::NodeAt(POSITION position) const
{
    int nNode = NodeIndexOf(position);
    if (nNode == kNoNode || nNode >= m_nNodesMade || !Node(nNode).m_bInUse)
        return nullptr;
    return &Node(nNode);
}

CObject*& CObList::Scratch()
{
    m_pScratch = nullptr;
    return m_pScratch;
}

void CObList::AddBlock()
{
    try {
        m_vecBlocks.push_back(std::make_unique<tag_NODE[]>(static_cast<std::size_t>(m_nBlockSize)));
    } catch (const std::bad_alloc&) {
        AfxThrowMemoryException();
    }
}

int CObList::NewNode(int nPrev, int nNext, CObject* pData)
{
    int nNode = m_nFree;
    if (nNode != kNoNode) {
        m_nFree = Node(nNode).m_nNext;
    } else {
        if (m_nNodesMade == INT32_MAX - 1)
            AfxThrowMemoryException();
        if (m_nNodesMade % m_nBlockSize == 0)
            AddBlock();
        nNode = m_nNodesMade++;
    }
    Node(nNode) = tag_NODE{nNext, nPrev, TRUE, pData};
    if (nPrev != kNoNode)
        Node(nPrev).m_nNext = nNode;
    else
        m_nHead = nNode;
    if (nNext != kNoNode)
        Node(nNext).m_nPrev = nNode;
    else
        m_nTail = nNode;
    ++m_nCount;
    return nNode;
}

void CObList::FreeNode(int nNode)
{
    tag_NODE& node = Node(nNode);
    if (node.m_nPrev != kNoNode)
        Node(node.m_nPrev).m_nNext = node.m_nNext;
    else
        m_nHead = node.m_nNext;
    if (node.m_nNext != kNoNode)
        Node(node.m_nNext).m_nPrev = node.m_nPrev;
    else
        m_nTail = node.m_nPrev;
    node = tag_NODE{m_nFree, kNoNode, FALSE, nullptr};
    m_nFree = nNode;
    // The blocks go back once the list is empty, as with RemoveAll.
    if (--m_nCount == 0)
        RemoveAll();
}

int CObList::GetCount() const
{
    return m_nCount;
}

BOOL CObList::IsEmpty() const
{
    return m_nCount == 0 ? TRUE : FALSE;
}

CObject*& CObList::GetHead()
{
    return m_nHead == kNoNode ? Scratch() : Node(m_nHead).m_pData;
}

CObject* CObList::GetHead() const
{
    return m_nHead == kNoNode ? nullptr : Node(m_nHead).m_pData;
}

CObject*& CObList::GetTail()
{
    return m_nTail == kNoNode ? Scratch() : Node(m_nTail).m_pData;
}

CObject* CObList::GetTail() const
{
    return m_nTail == kNoNode ? nullptr : Node(m_nTail).m_pData;
}

CObject* CObList::RemoveHead()
{
    if (m_nHead == kNoNode)
        return nullptr;
    CObject* pData = Node(m_nHead).m_pData;
    FreeNode(m_nHead);
    return pData;
}

CObject* CObList::RemoveTail()
{
    if (m_nTail == kNoNode)
        return nullptr;
    CObject* pData = Node(m_nTail).m_pData;
    FreeNode(m_nTail);
    return pData;
}

POSITION CObList::AddHead(CObject* newElement)
{
    return PositionOf(NewNode(kNoNode, m_nHead, newElement));
}

POSITION CObList::AddTail(CObject* newElement)
{
    return PositionOf(NewNode(m_nTail, kNoNode, newElement));
}

void CObList::AddHead(CObList* pNewList)
{
    if (pNewList == nullptr)
        return;
    // Walking backwards from the tail keeps the order, also when the list is this one:
    // the nodes added in front are never reached by the walk.
    for (POSITION pos = pNewList->GetTailPosition(), posEnd = pNewList->GetHeadPosition(); pos != nullptr;) {
        POSITION posThis = pos;
        CObject* pData = pNewList->GetPrev(pos);
        AddHead(pData);
        if (posThis == posEnd)
            break;
    }
}

void CObList::AddTail(CObList* pNewList)
{
    if (pNewList == nullptr)
        return;
    for (POSITION pos = pNewList->GetHeadPosition(), posEnd = pNewList->GetTailPosition(); pos != nullptr;) {
        POSITION posThis = pos;
        CObject* pData = pNewList->GetNext(pos);
        AddTail(pData);
        if (posThis == posEnd)
            break;
    }
}

void CObList::RemoveAll()
{
    m_vecBlocks.clear();
    m_nCount = 0;
    m_nHead = kNoNode;
    m_nTail = kNoNode;
    m_nFree = kNoNode;
    m_nNodesMade = 0;
}

POSITION CObList::GetHeadPosition() const
{
    return PositionOf(m_nHead);
}

POSITION CObList::GetTailPosition() const
{
    return PositionOf(m_nTail);
}

CObject*& CObList::GetNext(POSITION& rPosition)
{
    tag_NODE* pNode = NodeAt(rPosition);
    if (pNode == nullptr) {
        rPosition = nullptr;
        return Scratch();
    }
    rPosition = PositionOf(pNode->m_nNext);
    return pNode->m_pData;
}

CObject* CObList::GetNext(POSITION& rPosition) const
{
    const tag_NODE* pNode = NodeAt(rPosition);
    if (pNode == nullptr) {
        rPosition = nullptr;
        return nullptr;
    }
    rPosition = PositionOf(pNode->m_nNext);
    return pNode->m_pData;
}

CObject*& CObList::GetPrev(POSITION& rPosition)
{
    tag_NODE* pNode = NodeAt(rPosition);
    if (pNode == nullptr) {
        rPosition = nullptr;
        return Scratch();
    }
    rPosition = PositionOf(pNode->m_nPrev);
    return pNode->m_pData;
}

CObject* CObList::GetPrev(POSITION& rPosition) const
{
    const tag_NODE* pNode = NodeAt(rPosition);
    if (pNode == nullptr) {
        rPosition = nullptr;
        return nullptr;
    }
    rPosition = PositionOf(pNode->m_nPrev);
    return pNode->m_pData;
}

CObject*& CObList::GetAt(POSITION position)
{
    tag_NODE* pNode = NodeAt(position);
    return pNode == nullptr ? Scratch() : pNode->m_pData;
}

CObject* CObList::GetAt(POSITION position) const
{
    const tag_NODE* pNode = NodeAt(position);
    return pNode == nullptr ? nullptr : pNode->m_pData;
}

void CObList::SetAt(POSITION pos, CObject* newElement)
{
    tag_NODE* pNode = NodeAt(pos);
    if (pNode != nullptr)
        pNode->m_pData = newElement;
}

void CObList::RemoveAt(POSITION position)
{
    int nNode = NodeIndexOf(position);
    if (NodeAt(position) != nullptr)
        FreeNode(nNode);
}

POSITION CObList::InsertBefore(POSITION position, CObject* newElement)
{
    const tag_NODE* pNode = NodeAt(position);
    if (pNode == nullptr)
        return AddHead(newElement);
    int nNode = NodeIndexOf(position);
    return PositionOf(NewNode(pNode->m_nPrev, nNode, newElement));
}

POSITION CObList::InsertAfter(POSITION position, CObject* newElement)
{
    const tag_NODE* pNode = NodeAt(position);
    if (pNode == nullptr)
        return AddTail(newElement);
    int nNode = NodeIndexOf(position);
    return PositionOf(NewNode(nNode, pNode->m_nNext, newElement));
}

POSITION CObList::Find(CObject* searchValue, POSITION startAfter) const
{
    int nNode = m_nHead;
    if (startAfter != nullptr) {
        const tag_NODE* pStart = NodeAt(startAfter);
        if (pStart == nullptr)
            return nullptr;
        nNode = pStart->m_nNext;
    }
    for (; nNode != kNoNode; nNode = Node(nNode).m_nNext) {
        if (Node(nNode).m_pData == searchValue)
            return PositionOf(nNode);
    }
    return nullptr;
}

POSITION CObList::FindIndex(int nIndex) const
{
    if (nIndex < 0 || nIndex >= m_nCount)
        return nullptr;
    int nNode = m_nHead;
    while (nIndex-- > 0)
        nNode = Node(nNode).m_nNext;
    return PositionOf(nNode);
}
