// CWnd: message maps with their argument conversions and base-class fall-through,
// creation as a hidden child, handles, and destruction.
#include "platform/CWnd.h"
#include "platform/PlatformTestWindows.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

namespace {

constexpr UINT WM_PAIR = WM_USER + 1;
constexpr UINT WM_NARROW = WM_USER + 2;
constexpr UINT WM_POINTER = WM_USER + 3;
constexpr UINT WM_BARE = WM_USER + 4;
constexpr UINT WM_OVERRIDDEN = WM_USER + 5;
constexpr UINT WM_UNLISTED = WM_USER + 6;

struct tag_PAYLOAD {
    int nValue;
};

class CBaseMapWnd : public CWnd {
public:
    CBaseMapWnd() { CreateEx(0, nullptr, "base", WS_OVERLAPPED, RECT{}, nullptr, 0); }

    std::vector<UINT> m_defaulted;
    int m_nBaseOverridden = 0;

protected:
    LRESULT OnPair(WPARAM wParam, LPARAM lParam) { return static_cast<LRESULT>(wParam) * lParam; }
    LRESULT OnOverridden(WPARAM, LPARAM)
    {
        ++m_nBaseOverridden;
        return 1;
    }
    LRESULT DefWindowProc(UINT message, WPARAM wParam, LPARAM lParam) override
    {
        m_defaulted.push_back(message);
        return CWnd::DefWindowProc(message, wParam, lParam);
    }

    DECLARE_MESSAGE_MAP()
};

BEGIN_MESSAGE_MAP(CBaseMapWnd, CWnd)
    ON_MESSAGE(WM_PAIR, OnPair)
    ON_MESSAGE(WM_OVERRIDDEN, OnOverridden)
END_MESSAGE_MAP()

class CDerivedMapWnd : public CBaseMapWnd {
public:
    int m_nBare = 0;
    int m_nPayload = 0;

protected:
    int OnNarrow(UINT nValue, LONG lSigned) { return static_cast<int>(nValue) + lSigned; }
    void OnPointer(WPARAM, tag_PAYLOAD* pPayload) { m_nPayload = pPayload->nValue; }
    void OnBare() { ++m_nBare; }
    LRESULT OnOverridden(WPARAM, LPARAM) { return 2; }

    DECLARE_MESSAGE_MAP()
};

BEGIN_MESSAGE_MAP(CDerivedMapWnd, CBaseMapWnd)
    ON_WM_TIMER()
    ON_MESSAGE(WM_NARROW, OnNarrow)
    ON_MESSAGE(WM_POINTER, OnPointer)
    ON_MESSAGE(WM_BARE, OnBare)
    ON_MESSAGE(WM_OVERRIDDEN, OnOverridden)
END_MESSAGE_MAP()

TEST(CWndTest, MessageMapCallsHandlersWithTheirOwnArgumentTypes)
{
    CDerivedMapWnd wnd;
    EXPECT_EQ(wnd.SendMessage(WM_NARROW, 5, static_cast<LPARAM>(-8)), -3);
    tag_PAYLOAD payload{1234};
    EXPECT_EQ(wnd.SendMessage(WM_POINTER, 0, reinterpret_cast<LPARAM>(&payload)), 0);
    EXPECT_EQ(wnd.m_nPayload, 1234);
    EXPECT_EQ(wnd.SendMessage(WM_BARE), 0);
    EXPECT_EQ(wnd.m_nBare, 1);
    EXPECT_TRUE(wnd.m_defaulted.empty());
}

TEST(CWndTest, TheDerivedMapGoesFirstThenTheBaseMapThenDefaultHandling)
{
    CDerivedMapWnd wnd;
    EXPECT_EQ(wnd.SendMessage(WM_OVERRIDDEN), 2);
    EXPECT_EQ(wnd.m_nBaseOverridden, 0);
    EXPECT_EQ(wnd.SendMessage(WM_PAIR, 6, 7), 42);
    EXPECT_EQ(wnd.SendMessage(WM_UNLISTED, 1, 1), 0);
    // A timer listed without a handler of the class's own gets default handling.
    EXPECT_EQ(wnd.SendMessage(WM_TIMER, 9, 0), 0);
    EXPECT_EQ(wnd.m_defaulted, (std::vector<UINT>{WM_UNLISTED, WM_TIMER}));

    CBaseMapWnd base;
    EXPECT_EQ(base.SendMessage(WM_OVERRIDDEN), 1);
    EXPECT_EQ(base.SendMessage(WM_NARROW, 1, 1), 0);
    EXPECT_EQ(base.m_defaulted, (std::vector<UINT>{WM_NARROW}));
}

TEST(CWndTest, CreateMakesAHiddenChildWithItsNameRectangleAndId)
{
    CRecordingWnd host;
    LPCSTR lpszClass = AfxRegisterWndClass(CS_VREDRAW | CS_HREDRAW | CS_NOCLOSE);
    EXPECT_STREQ(lpszClass, AfxRegisterWndClass(515));
    CWnd child;
    ASSERT_TRUE(child.Create(lpszClass, "capture window", WS_CHILD, RECT{0, 0, 100, 100}, &host, 301));
    EXPECT_TRUE(IsWindow(child.GetSafeHwnd()));
    EXPECT_EQ(child.GetParent(), &host);
    EXPECT_EQ(child.GetDlgCtrlID(), 301);
    EXPECT_EQ(child.GetStyle(), WS_CHILD);
    RECT rect{};
    child.GetWindowRect(&rect);
    EXPECT_EQ(rect.right, 100);
    char szName[8];
    EXPECT_EQ(child.GetWindowText(szName, sizeof(szName)), 7);
    EXPECT_STREQ(szName, "capture");
    EXPECT_EQ(CWnd::FromHandle(child.m_hWnd), &child);
    EXPECT_EQ(GetWindowThreadProcessId(child.m_hWnd, nullptr), GetCurrentThreadId());
    EXPECT_FALSE(child.Create(lpszClass, "again", WS_CHILD, RECT{}, &host, 302));
}

TEST(CWndTest, CreateRefusesAChildWithoutParentAndUnknownClasses)
{
    CWnd orphan;
    EXPECT_FALSE(orphan.Create(nullptr, "orphan", WS_CHILD, RECT{}, nullptr, 1));
    CRecordingWnd host;
    EXPECT_FALSE(orphan.Create("NoSuchClass", "unknown", WS_CHILD, RECT{}, &host, 1));
    CWnd deadParent;
    EXPECT_FALSE(orphan.Create(nullptr, "dead parent", WS_CHILD, RECT{}, &deadParent, 1));
    EXPECT_EQ(orphan.m_hWnd, nullptr);
    EXPECT_EQ(CWnd::FromHandle(nullptr), nullptr);
}

TEST(CWndTest, HandlesAreNeverReused)
{
    std::set<HWND> seen;
    for (int i = 0; i < 200; ++i) {
        CRecordingWnd wnd;
        EXPECT_TRUE(seen.insert(wnd.m_hWnd).second);
    }
    for (HWND hWnd : seen)
        EXPECT_FALSE(IsWindow(hWnd));
}

// Records its destruction, and the order of it among several windows.
class CDestroyProbeWnd : public CWnd {
public:
    explicit CDestroyProbeWnd(std::vector<std::string>& log, const char* pszName) : m_log(log), m_pszName(pszName) {}

    std::vector<std::string>& m_log;
    const char* m_pszName;

protected:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override
    {
        if (message == WM_DESTROY)
            m_log.push_back(std::string("destroy ") + m_pszName);
        return CWnd::WindowProc(message, wParam, lParam);
    }
    void PostNcDestroy() override { m_log.push_back(std::string("gone ") + m_pszName); }
};

TEST(CWndTest, DestroyingAParentDestroysItsChildrenFirstAndOnlyOnTheOwnerThread)
{
    std::vector<std::string> log;
    CDestroyProbeWnd parent(log, "parent");
    CDestroyProbeWnd child(log, "child");
    ASSERT_TRUE(parent.CreateEx(0, nullptr, "parent", WS_OVERLAPPED, RECT{}, nullptr, 0));
    ASSERT_TRUE(child.Create(nullptr, "child", WS_CHILD, RECT{}, &parent, 1));

    BOOL bForeign = TRUE;
    std::thread([&] { bForeign = parent.DestroyWindow(); }).join();
    EXPECT_FALSE(bForeign);
    EXPECT_TRUE(log.empty());

    HWND hChild = child.m_hWnd;
    ASSERT_TRUE(parent.DestroyWindow());
    EXPECT_EQ(log, (std::vector<std::string>{"destroy parent", "destroy child", "gone child",
                                             "gone parent"}));
    EXPECT_FALSE(IsWindow(hChild));
    EXPECT_EQ(child.m_hWnd, nullptr);
    EXPECT_FALSE(child.DestroyWindow());
    EXPECT_FALSE(parent.DestroyWindow());
}

TEST(CWndTest, DeletingTheObjectTakesItsWindowAway)
{
    HWND hWnd = nullptr;
    {
        CRecordingWnd wnd;
        hWnd = wnd.m_hWnd;
        SetTimer(hWnd, 1, 10, nullptr);
        PostMessage(hWnd, WM_USER, 0, 0);
    }
    EXPECT_FALSE(IsWindow(hWnd));
    EXPECT_TRUE(TakeQueuedMessages().empty());
}

} // namespace
