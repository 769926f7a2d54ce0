#include "SerialTestSupport.h"

#include "capture/CMaskInfo.h"

#include "platform/CArchive.h"
#include "platform/CMemFile.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <vector>

namespace {

void LoadArchive(CMaskInfo& mask, Bytes aBytes)
{
    CMemFile file(aBytes.data(), static_cast<UINT>(aBytes.size()));
    CArchive ar(&file, CArchive::load);
    mask.Serialize(ar);
}

CMaskInfo MakeMask(int nLeft, int nTop, int nRight, int nBottom, int nWidth, int nHeight)
{
    CRect rc(nLeft, nTop, nRight, nBottom);
    return CMaskInfo(&rc, nWidth, nHeight);
}

TEST(CMaskInfoConstruction, NormalizesTheRectangleStartsClearAndIsCreatedByName)
{
    CMaskInfo mask = MakeMask(200, 150, 10, 20, 352, 288);
    EXPECT_EQ(mask.GetMaskRect(), CRect(10, 20, 200, 150));
    int nWidth = 0;
    int nHeight = 0;
    mask.GetVideoSize(nWidth, nHeight);
    EXPECT_EQ(nWidth, 352);
    EXPECT_EQ(nHeight, 288);
    EXPECT_EQ(mask.IsMove(), 0);
    EXPECT_EQ(mask.IsAlarm(), 0);
    EXPECT_EQ(mask.m_nMoveCount, 0);
    // Created by name: an empty area of the default size.
    std::unique_ptr<CObject> pObject(CRuntimeClass::CreateObject("CMaskInfo"));
    ASSERT_NE(pObject, nullptr);
    ASSERT_TRUE(pObject->IsKindOf(RUNTIME_CLASS(CMaskInfo)));
    EXPECT_EQ(RUNTIME_CLASS(CMaskInfo)->m_wSchema, 0u);
    const auto* pMask = static_cast<const CMaskInfo*>(pObject.get());
    EXPECT_TRUE(pMask->GetMaskRect().IsRectNull());
    EXPECT_EQ(pMask->m_nWidth, 320);
    EXPECT_EQ(pMask->m_nHeight, 240);
}

// Runs of frames and the alarm after each: steady motion alarms once every threshold
// frames, a still frame starts the count again, no motion never alarms, thresholds of
// 0 and 1 alarm in every moving frame, and any nonzero answer counts as motion.
TEST(CMaskInfoAlarm, RunsOfFramesAlarmOnceTheThresholdIsReached)
{
    struct Run {
        std::vector<int> aMoves;
        int nThreshold;
        std::vector<int> aAlarms;
    };
    const Run aRuns[] = {
        {{1, 1, 1, 0}, 3, {0, 0, 1, 0}},
        {{1, 1, 1, 1, 1, 1, 1}, 3, {0, 0, 1, 0, 0, 1, 0}},
        {{1, 1, 0, 1, 1, 1}, 3, {0, 0, 0, 0, 0, 1}},
        {{0, 0, 0, 0}, 1, {0, 0, 0, 0}},
        {{1, 1, 1}, 0, {1, 1, 1}},
        {{1, 1, 1}, 1, {1, 1, 1}},
        {{7, -1}, 2, {0, 1}},
    };
    for (const Run& run : aRuns) {
        CMaskInfo mask;
        std::vector<int> aMove;
        std::vector<int> aAlarm;
        for (int bMove : run.aMoves) {
            mask.SetAreaMove(bMove, run.nThreshold);
            aMove.push_back(mask.IsMove());
            aAlarm.push_back(mask.IsAlarm());
            EXPECT_EQ(aMove.back(), bMove != 0);
        }
        EXPECT_EQ(aAlarm, run.aAlarms) << "threshold " << run.nThreshold;
    }
}

TEST(CMaskInfoScaling, SetVideoSizeScalesEachEdgeRoundingDownAndStoresTheSize)
{
    CMaskInfo mask = MakeMask(101, 51, 303, 479, 640, 480);
    mask.SetVideoSize(320, 240);
    EXPECT_EQ(mask.GetMaskRect(), CRect(50, 25, 151, 239));
    EXPECT_EQ(mask.m_nWidth, 320);
    EXPECT_EQ(mask.m_nHeight, 240);
    // Back up: the stored size names the rectangle's units, so scaling composes.
    mask.SetVideoSize(640, 480);
    EXPECT_EQ(mask.GetMaskRect(), CRect(100, 50, 302, 478));
    // Changing one axis scales that axis only.
    CMaskInfo axis = MakeMask(100, 100, 200, 200, 320, 240);
    axis.SetVideoSize(320, 120);
    EXPECT_EQ(axis.GetMaskRect(), CRect(100, 50, 200, 100));
    // 180 x 112 / 320 is 63 exactly; the display's 180 x (112 / 320) falls just below.
    CMaskInfo product = MakeMask(180, 0, 200, 10, 320, 240);
    CRect rcShown;
    product.GetMaskRect(CRect(0, 0, 112, 240), &rcShown);
    EXPECT_EQ(rcShown.left, 62);
    product.SetVideoSize(112, 240);
    EXPECT_EQ(product.GetMaskRect().left, 63);
}

TEST(CMaskInfoScaling, GetMaskRectScalesToTheDisplayAndMovesToItsOrigin)
{
    CMaskInfo mask = MakeMask(64, 48, 640, 480, 640, 480);
    CRect rcShown;
    mask.GetMaskRect(CRect(100, 50, 420, 290), &rcShown);
    EXPECT_EQ(rcShown, CRect(132, 74, 420, 290));
    EXPECT_EQ(mask.GetMaskRect(), CRect(64, 48, 640, 480));
    mask.GetMaskRect(CRect(0, 0, 10, 10), nullptr);
}

TEST(CMaskInfoScaling, AStoredSizeOfZeroLeavesThatAxisUnscaled)
{
    CMaskInfo mask = MakeMask(10, 20, 30, 40, 0, 240);
    mask.SetVideoSize(640, 480);
    EXPECT_EQ(mask.GetMaskRect(), CRect(10, 40, 30, 80));
    EXPECT_EQ(mask.m_nWidth, 640);

    CMaskInfo unsized = MakeMask(10, 20, 30, 40, 0, 0);
    CRect rcShown;
    unsized.GetMaskRect(CRect(5, 5, 1000, 1000), &rcShown);
    EXPECT_EQ(rcShown, CRect(15, 25, 35, 45));
    unsized.SetVideoSize(320, -240);
    EXPECT_EQ(unsized.GetMaskRect(), CRect(10, 20, 30, 40));
    // A negative stored size is no better a unit than zero.
    unsized.SetVideoSize(640, 480);
    EXPECT_EQ(unsized.GetMaskRect(), CRect(20, 20, 60, 40));

    CMaskInfo unit = MakeMask(0, 0, 1, 1, 1, 1);
    unit.SetVideoSize(320, 240);
    EXPECT_EQ(unit.GetMaskRect(), CRect(0, 0, 320, 240)) << "a stored size of 1 is a size";
}

TEST(CMaskInfoScaling, ExtremeEdgesAndSizesSaturateInsteadOfOverflowing)
{
    CMaskInfo mask = MakeMask(INT_MIN, INT_MIN, INT_MAX, INT_MAX, 1, 1);
    mask.SetVideoSize(INT_MAX, 1000);
    EXPECT_EQ(mask.GetMaskRect(), CRect(INT_MIN, INT_MIN, INT_MAX, INT_MAX));

    CMaskInfo shown = MakeMask(0, 0, INT_MAX, INT_MAX, 1, 1);
    CRect rcShown;
    shown.GetMaskRect(CRect(INT_MAX - 1, INT_MAX - 1, INT_MAX, INT_MAX), &rcShown);
    EXPECT_EQ(rcShown, CRect(INT_MAX - 1, INT_MAX - 1, INT_MAX, INT_MAX));
}

TEST(CMaskInfoCompare, EqualityIsSizeAndRectangleNotState)
{
    CMaskInfo a = MakeMask(1, 2, 3, 4, 320, 240);
    CMaskInfo b = MakeMask(1, 2, 3, 4, 320, 240);
    b.SetAreaMove(1, 0);
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a == MakeMask(1, 2, 3, 4, 352, 240));
    EXPECT_FALSE(a == MakeMask(1, 2, 3, 4, 320, 288));
    EXPECT_FALSE(a == MakeMask(1, 2, 3, 5, 320, 240));
}

TEST(CMaskInfoCompare, AssignmentCopiesTheAreaAndKeepsTheTargetsState)
{
    CMaskInfo target;
    target.SetAreaMove(1, 5);
    target.SetAreaMove(1, 5);
    target = MakeMask(5, 6, 7, 8, 704, 576);
    EXPECT_EQ(target.GetMaskRect(), CRect(5, 6, 7, 8));
    EXPECT_EQ(target.m_nWidth, 704);
    EXPECT_EQ(target.m_nHeight, 576);
    EXPECT_EQ(target.IsMove(), 1);
    EXPECT_EQ(target.m_nMoveCount, 2);
}

class CMaskInfoFlatForm : public ::testing::Test {
protected:
    static Bytes Expected(BYTE byState)
    {
        Bytes aBytes{byState};
        for (LONG lValue : {352, 288, -5, 20, 0x01020304, 220})
            AppendLong(aBytes, lValue);
        return aBytes;
    }

    CMaskInfo m_mask = MakeMask(-5, 20, 0x01020304, 220, 352, 288);
};

TEST_F(CMaskInfoFlatForm, WritesTwentyFiveLittleEndianBytesWithTheStateBits)
{
    Bytes aBytes(CMaskInfo::kFlatSize + 1, 0xEE);
    EXPECT_EQ(m_mask >> aBytes.data(), 25);
    EXPECT_EQ(m_mask.GetSize(), 25);
    Bytes aExpected = Expected(0x00);
    aExpected.push_back(0xEE);
    EXPECT_EQ(aBytes, aExpected);

    m_mask.SetAreaMove(1, 1);
    m_mask >> aBytes.data();
    EXPECT_EQ(aBytes[0], 0x03);
    m_mask.SetAreaMove(1, 2);
    m_mask >> aBytes.data();
    EXPECT_EQ(aBytes[0], 0x01);
}

TEST_F(CMaskInfoFlatForm, ReadsBackAreaSizeAndSetsButNeverClearsStateBits)
{
    Bytes aBytes = Expected(0x03);
    CMaskInfo read;
    EXPECT_EQ(read << aBytes.data(), 25);
    EXPECT_TRUE(read == m_mask);
    EXPECT_EQ(read.IsMove(), 1);
    EXPECT_EQ(read.IsAlarm(), 1);
    EXPECT_EQ(read.m_nMoveCount, 0);
    // Reading never clears state and keeps the move count.
    CMaskInfo live;
    live.SetAreaMove(1, 5);
    live.SetAreaMove(1, 5);
    live.m_bAlarm = 1;
    aBytes = Expected(0xFC);
    live << aBytes.data();
    EXPECT_EQ(live.IsAlarm(), 1);
    EXPECT_EQ(live.IsMove(), 1);
    EXPECT_EQ(live.m_nMoveCount, 2);
    EXPECT_TRUE(live == m_mask);
}

TEST_F(CMaskInfoFlatForm, ArchiveStoresSizeAndEdgesInTwentyFourBytesWithoutState)
{
    m_mask.SetAreaMove(1, 1);
    const Bytes aFlat = Expected(0);
    const Bytes aExpected(aFlat.begin() + 1, aFlat.end());
    EXPECT_EQ(StoreArchive(m_mask), aExpected);
    CMaskInfo loaded;
    LoadArchive(loaded, aExpected);
    EXPECT_TRUE(loaded == m_mask);
    EXPECT_EQ(loaded.IsAlarm(), 0);
}

} // namespace
