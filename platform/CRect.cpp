#include "platform/CRect.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace {

// Edge arithmetic in 32 bits that wraps instead of overflowing.
LONG WrappingAdd(LONG lLeft, LONG lRight)
{
    return static_cast<LONG>(static_cast<std::uint32_t>(lLeft) + static_cast<std::uint32_t>(lRight));
}

LONG WrappingSubtract(LONG lLeft, LONG lRight)
{
    return static_cast<LONG>(static_cast<std::uint32_t>(lLeft) - static_cast<std::uint32_t>(lRight));
}

// Extents compared as true differences, so that a wrapped width never looks positive.
bool HasArea(const RECT& rect)
{
    return rect.left < rect.right && rect.top < rect.bottom;
}

} // namespace

CRect::CRect() : tagRECT{0, 0, 0, 0}
{
}

CRect::CRect(int l, int t, int r, int b) : tagRECT{l, t, r, b}
{
}

CRect::CRect(const RECT& srcRect) : tagRECT(srcRect)
{
}

CRect::CRect(LPCRECT lpSrcRect) : tagRECT(lpSrcRect != nullptr ? *lpSrcRect : RECT{0, 0, 0, 0})
{
}

CRect::CRect(POINT point, SIZE size)
    : tagRECT{point.x, point.y, WrappingAdd(point.x, size.cx), WrappingAdd(point.y, size.cy)}
{
}

int CRect::Width() const
{
    return WrappingSubtract(right, left);
}

int CRect::Height() const
{
    return WrappingSubtract(bottom, top);
}

SIZE CRect::Size() const
{
    return SIZE{Width(), Height()};
}

POINT CRect::TopLeft() const
{
    return POINT{left, top};
}

POINT CRect::BottomRight() const
{
    return POINT{right, bottom};
}

BOOL CRect::IsRectEmpty() const
{
    return HasArea(*this) ? FALSE : TRUE;
}

BOOL CRect::IsRectNull() const
{
    return (left == 0 && top == 0 && right == 0 && bottom == 0) ? TRUE : FALSE;
}

BOOL CRect::PtInRect(POINT point) const
{
    return (point.x >= left && point.x < right && point.y >= top && point.y < bottom) ? TRUE : FALSE;
}

void CRect::SetRect(int x1, int y1, int x2, int y2)
{
    left = x1;
    top = y1;
    right = x2;
    bottom = y2;
}

void CRect::SetRectEmpty()
{
    SetRect(0, 0, 0, 0);
}

void CRect::NormalizeRect()
{
    if (left > right)
        std::swap(left, right);
    if (top > bottom)
        std::swap(top, bottom);
}

void CRect::OffsetRect(int x, int y)
{
    left = WrappingAdd(left, x);
    right = WrappingAdd(right, x);
    top = WrappingAdd(top, y);
    bottom = WrappingAdd(bottom, y);
}

void CRect::InflateRect(int x, int y)
{
    left = WrappingSubtract(left, x);
    right = WrappingAdd(right, x);
    top = WrappingSubtract(top, y);
    bottom = WrappingAdd(bottom, y);
}

void CRect::DeflateRect(int x, int y)
{
    left = WrappingAdd(left, x);
    right = WrappingSubtract(right, x);
    top = WrappingAdd(top, y);
    bottom = WrappingSubtract(bottom, y);
}

BOOL CRect::IntersectRect(LPCRECT lpRect1, LPCRECT lpRect2)
{
    if (lpRect1 == nullptr || lpRect2 == nullptr) {
        SetRectEmpty();
        return FALSE;
    }
    RECT common{std::max(lpRect1->left, lpRect2->left), std::max(lpRect1->top, lpRect2->top),
                std::min(lpRect1->right, lpRect2->right), std::min(lpRect1->bottom, lpRect2->bottom)};
    if (!HasArea(*lpRect1) || !HasArea(*lpRect2) || !HasArea(common)) {
        SetRectEmpty();
        return FALSE;
    }
    *static_cast<RECT*>(this) = common;
    return TRUE;
}

BOOL CRect::EqualRect(LPCRECT lpRect) const
{
    if (lpRect == nullptr)
        return FALSE;
    return (left == lpRect->left && top == lpRect->top && right == lpRect->right &&
            bottom == lpRect->bottom) ? TRUE : FALSE;
}

CRect::operator LPRECT()
{
    return this;
}

CRect::operator LPCRECT() const
{
    return this;
}

bool operator==(const CRect& rect1, const CRect& rect2)
{
    return rect1.EqualRect(rect2) != FALSE;
}

bool operator!=(const CRect& rect1, const CRect& rect2)
{
    return !(rect1 == rect2);
}
