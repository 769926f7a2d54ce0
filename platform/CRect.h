// Rectangles, points and sizes in pixels: a motion area on a picture, a display area.
// Edges are left/top inclusive and right/bottom exclusive. Value types; reentrant.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

struct tagPOINT {
    LONG x;
    LONG y;
};
using POINT = tagPOINT;

struct tagSIZE {
    LONG cx;
    LONG cy;
};
using SIZE = tagSIZE;

// Arithmetic on edges wraps at 32 bits, as the edges themselves do; it never traps.
class ZNDVR_API CRect : public tagRECT {
public:
    // All four edges 0.
    CRect();
    CRect(int l, int t, int r, int b);
    CRect(const RECT& srcRect);
    // A null pointer gives the all-zero rectangle.
    CRect(LPCRECT lpSrcRect);
    CRect(POINT point, SIZE size);

    int Width() const;
    int Height() const;
    SIZE Size() const;
    POINT TopLeft() const;
    POINT BottomRight() const;

    // Empty: no area (width or height not positive). Null: all four edges 0.
    BOOL IsRectEmpty() const;
    BOOL IsRectNull() const;
    BOOL PtInRect(POINT point) const;

    void SetRect(int x1, int y1, int x2, int y2);
    void SetRectEmpty();
    // Swaps edges so that left <= right and top <= bottom.
    void NormalizeRect();
    void OffsetRect(int x, int y);
    void InflateRect(int x, int y);
    void DeflateRect(int x, int y);
    // The common part of the two; an empty result is stored as all zero and gives FALSE.
    BOOL IntersectRect(LPCRECT lpRect1, LPCRECT lpRect2);

    BOOL EqualRect(LPCRECT lpRect) const;

    operator LPRECT();
    operator LPCRECT() const;
};

ZNDVR_API bool operator==(const CRect& rect1, const CRect& rect2);
ZNDVR_API bool operator!=(const CRect& rect1, const CRect& rect2);
