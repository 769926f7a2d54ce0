#include "platform/CRect.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

TEST(CRectTest, NormalizingSwapsReversedEdgesAndEmptyMeansNoArea)
{
    CRect rect(100, 80, 20, 10);
    EXPECT_EQ(rect.Width(), -80);
    EXPECT_TRUE(rect.IsRectEmpty());
    rect.NormalizeRect();
    EXPECT_EQ(rect, CRect(20, 10, 100, 80));
    EXPECT_EQ(rect.Height(), 70);
    EXPECT_FALSE(rect.IsRectEmpty());
    rect.NormalizeRect();
    EXPECT_EQ(rect, CRect(20, 10, 100, 80));

    EXPECT_TRUE(CRect(5, 5, 5, 50).IsRectEmpty());
    EXPECT_FALSE(CRect(5, 5, 5, 50).IsRectNull());
    EXPECT_EQ(CRect(static_cast<LPCRECT>(nullptr)), CRect());
    rect.SetRectEmpty();
    EXPECT_TRUE(rect.IsRectNull());
    EXPECT_TRUE(CRect(0, 0, 320, 240) != CRect(0, 0, 320, 241));
    EXPECT_TRUE(CRect(0, 0, 320, 240) != CRect(1, 0, 320, 240));
    EXPECT_FALSE(rect.EqualRect(nullptr));
}

TEST(CRectTest, LeftAndTopAreInsideRightAndBottomOutside)
{
    CRect rect(10, 20, 30, 40);
    EXPECT_TRUE(rect.PtInRect(POINT{10, 20}));
    EXPECT_TRUE(rect.PtInRect(POINT{29, 39}));
    EXPECT_FALSE(rect.PtInRect(POINT{30, 39}));
    EXPECT_FALSE(rect.PtInRect(POINT{29, 40}));
    EXPECT_FALSE(rect.PtInRect(POINT{9, 25}));
    EXPECT_EQ(CRect(POINT{10, 20}, SIZE{20, 20}), rect);

    CRect rectCommon;
    EXPECT_TRUE(rectCommon.IntersectRect(CRect(0, 0, 15, 25), rect));
    EXPECT_EQ(rectCommon, CRect(10, 20, 15, 25));
    EXPECT_FALSE(rectCommon.IntersectRect(CRect(0, 0, 10, 20), rect));
    EXPECT_TRUE(rectCommon.IsRectNull());
    EXPECT_FALSE(rectCommon.IntersectRect(nullptr, rect));
}

TEST(CRectTest, EdgesAtTheLimitsWrapWithoutTrapping)
{
    CRect rect(INT_MIN, INT_MIN, INT_MAX, INT_MAX);
    EXPECT_EQ(rect.Width(), -1);
    EXPECT_FALSE(rect.IsRectEmpty());
    EXPECT_TRUE(rect.PtInRect(POINT{0, 0}));
    rect.OffsetRect(1, 1);
    EXPECT_EQ(rect.right, INT_MIN);
    EXPECT_TRUE(rect.IsRectEmpty());
    rect.InflateRect(INT_MAX, INT_MIN);
    rect.NormalizeRect();
    EXPECT_LE(rect.left, rect.right);
    EXPECT_LE(rect.top, rect.bottom);
}

} // namespace
