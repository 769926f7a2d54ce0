#include "platform/CObList.h"

#include <gtest/gtest.h>

#include <iterator>
#include <list>
#include <memory>
#include <random>
#include <vector>

namespace {

class CTestItem : public CObject {
public:
    explicit CTestItem(int nValue) : m_nValue(nValue) {}
    int m_nValue;
};

// Items owned by the test; the lists only point at them.
class CObListTest : public ::testing::Test {
protected:
    CObListTest()
    {
        for (int i = 0; i < 8; ++i)
            m_vecItems.push_back(std::make_unique<CTestItem>(i));
    }

    CObject* Item(int nIndex) { return m_vecItems[static_cast<std::size_t>(nIndex)].get(); }

    static std::vector<int> ValuesForward(const CObList& list)
    {
        std::vector<int> vecValues;
        for (POSITION pos = list.GetHeadPosition(); pos != nullptr;)
            vecValues.push_back(static_cast<const CTestItem*>(list.GetNext(pos))->m_nValue);
        return vecValues;
    }

    static std::vector<int> ValuesBackward(const CObList& list)
    {
        std::vector<int> vecValues;
        for (POSITION pos = list.GetTailPosition(); pos != nullptr;)
            vecValues.push_back(static_cast<const CTestItem*>(list.GetPrev(pos))->m_nValue);
        return vecValues;
    }

    std::vector<std::unique_ptr<CTestItem>> m_vecItems;
};

TEST_F(CObListTest, RemovingTheCurrentNodeWhileIteratingVisitsEveryOtherNode)
{
    CObList list(3);
    for (int i = 0; i < 8; ++i)
        list.AddTail(Item(i));
    int nVisited = 0;
    for (POSITION pos = list.GetHeadPosition(); pos != nullptr;) {
        POSITION posCurrent = pos;
        CTestItem* pItem = static_cast<CTestItem*>(list.GetNext(pos));
        ++nVisited;
        if (pItem->m_nValue % 2 == 1)
            list.RemoveAt(posCurrent);
    }
    EXPECT_EQ(nVisited, 8);
    EXPECT_EQ(ValuesForward(list), (std::vector<int>{0, 2, 4, 6}));
    EXPECT_EQ(ValuesBackward(list), (std::vector<int>{6, 4, 2, 0}));

    for (POSITION pos = list.GetHeadPosition(); pos != nullptr;) {
        POSITION posCurrent = pos;
        list.GetNext(pos);
        list.RemoveAt(posCurrent);
    }
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(list.GetHeadPosition(), nullptr);
}

TEST_F(CObListTest, RemovedStaleAndForeignPositionsAreRefused)
{
    CObList list(2);
    POSITION pos0 = list.AddTail(Item(0));
    POSITION pos1 = list.AddTail(Item(1));
    list.AddTail(Item(2));
    list.RemoveAt(pos1);
    list.RemoveAt(pos1);
    EXPECT_EQ(ValuesForward(list), (std::vector<int>{0, 2}));

    POSITION posStale = pos1;
    EXPECT_EQ(list.GetAt(posStale), nullptr);
    EXPECT_EQ(list.GetNext(posStale), nullptr);
    EXPECT_EQ(posStale, nullptr);
    list.SetAt(pos1, Item(7));
    EXPECT_EQ(ValuesForward(list), (std::vector<int>{0, 2}));

    CObList listOther;
    for (int i = 0; i < 8; ++i)
        listOther.AddTail(Item(i));
    POSITION posForeign = listOther.FindIndex(7);
    list.RemoveAt(posForeign);
    EXPECT_EQ(list.GetCount(), 2);
    list.RemoveAt(nullptr);
    EXPECT_EQ(list.GetAt(pos0), Item(0));

    list.RemoveAll();
    EXPECT_EQ(list.GetAt(pos0), nullptr);
    list.RemoveAt(pos0);
    EXPECT_EQ(list.GetCount(), 0);
}

TEST_F(CObListTest, EmptyListReadsAsNull)
{
    CObList list;
    EXPECT_EQ(list.RemoveHead(), nullptr);
    EXPECT_EQ(list.RemoveTail(), nullptr);
    EXPECT_EQ(list.GetHead(), nullptr);
    EXPECT_EQ(list.GetTail(), nullptr);
    const CObList& listConst = list;
    EXPECT_EQ(listConst.GetHead(), nullptr);
    POSITION pos = nullptr;
    EXPECT_EQ(list.GetNext(pos), nullptr);
    EXPECT_EQ(list.GetPrev(pos), nullptr);
    // Writing through the reference of an empty list changes nothing in it.
    list.GetHead() = Item(3);
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(list.GetHead(), nullptr);
}

TEST_F(CObListTest, InsertsLandNextToTheirPosition)
{
    CObList list(1);
    POSITION pos2 = list.AddTail(Item(2));
    list.InsertBefore(pos2, Item(1));
    list.InsertAfter(pos2, Item(4));
    list.InsertAfter(pos2, Item(3));
    list.InsertBefore(nullptr, Item(0));
    list.InsertAfter(nullptr, Item(5));
    EXPECT_EQ(ValuesForward(list), (std::vector<int>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(ValuesBackward(list), (std::vector<int>{5, 4, 3, 2, 1, 0}));
    EXPECT_EQ(list.GetHead(), Item(0));
    EXPECT_EQ(list.GetTail(), Item(5));
}

TEST_F(CObListTest, FindAndFindIndexLocateNodes)
{
    CObList list;
    list.AddTail(Item(0));
    POSITION posFirst = list.AddTail(Item(1));
    list.AddTail(Item(2));
    POSITION posSecond = list.AddTail(Item(1));
    EXPECT_EQ(list.Find(Item(1)), posFirst);
    EXPECT_EQ(list.Find(Item(1), posFirst), posSecond);
    EXPECT_EQ(list.Find(Item(1), posSecond), nullptr);
    EXPECT_EQ(list.Find(Item(5)), nullptr);
    EXPECT_EQ(list.FindIndex(1), posFirst);
    EXPECT_EQ(list.FindIndex(3), posSecond);
    EXPECT_EQ(list.FindIndex(4), nullptr);
    EXPECT_EQ(list.FindIndex(-1), nullptr);
}

TEST_F(CObListTest, WholeListsAppendInOrderAlsoToThemselves)
{
    CObList list;
    CObList listMore;
    list.AddTail(Item(1));
    list.AddTail(Item(2));
    listMore.AddTail(Item(3));
    listMore.AddTail(Item(4));
    list.AddTail(&listMore);
    list.AddHead(&listMore);
    EXPECT_EQ(ValuesForward(list), (std::vector<int>{3, 4, 1, 2, 3, 4}));
    list.AddTail(&list);
    EXPECT_EQ(list.GetCount(), 12);
    list.AddHead(&list);
    EXPECT_EQ(list.GetCount(), 24);
    EXPECT_EQ(ValuesForward(listMore), (std::vector<int>{3, 4}));
    list.AddTail(static_cast<CObList*>(nullptr));
    EXPECT_EQ(list.GetCount(), 24);
}

TEST_F(CObListTest, NodesAreReusedAcrossManyBlocks)
{
    CObList list(0);
    for (int nRound = 0; nRound < 3; ++nRound) {
        for (int i = 0; i < 1000; ++i)
            list.AddTail(Item(i % 8));
        for (int i = 0; i < 500; ++i)
            list.RemoveHead();
        EXPECT_EQ(list.GetCount(), 500 * (nRound + 1));
    }
    EXPECT_EQ(list.GetHead(), Item(4));
    EXPECT_TRUE(list.IsKindOf(RUNTIME_CLASS(CObList)));
}

TEST_F(CObListTest, RandomEditsMatchAStandardList)
{
    std::mt19937 random(20020301);
    CObList list(4);
    std::list<int> model;
    for (int nStep = 0; nStep < 5000; ++nStep) {
        int nValue = static_cast<int>(random() % 8);
        int nIndex = model.empty() ? 0 : static_cast<int>(random() % model.size());
        auto itModel = std::next(model.begin(), nIndex);
        POSITION pos = list.FindIndex(nIndex);
        switch (random() % 7) {
        case 0:
            list.AddHead(Item(nValue));
            model.push_front(nValue);
            break;
        case 1:
            list.AddTail(Item(nValue));
            model.push_back(nValue);
            break;
        case 2:
            list.InsertBefore(pos, Item(nValue));
            model.insert(itModel, nValue);
            break;
        case 3:
            list.InsertAfter(pos, Item(nValue));
            model.insert(model.empty() ? model.end() : std::next(itModel), nValue);
            break;
        default:
            list.RemoveAt(pos);
            if (!model.empty())
                model.erase(itModel);
            break;
        }
        ASSERT_EQ(list.GetCount(), static_cast<int>(model.size())) << "step " << nStep;
    }
    EXPECT_EQ(ValuesForward(list), std::vector<int>(model.begin(), model.end()));
    EXPECT_EQ(ValuesBackward(list), std::vector<int>(model.rbegin(), model.rend()));
}

} // namespace
