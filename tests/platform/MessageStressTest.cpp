// Several threads post and send to one window thread, and post to each other's
// thread queues, all at once: every message arrives, in order per sender and kind.
#include "platform/PlatformTestWindows.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>

namespace {

constexpr int kSenders = 4;
constexpr int kMessagesPerSender = 20000;
// One message in kSendEvery goes by SendMessage, the rest by PostMessage.
constexpr int kSendEvery = 8;
constexpr UINT WM_STRESS_POST = WM_USER + 20;
constexpr UINT WM_STRESS_SEND = WM_USER + 21;
constexpr UINT WM_STRESS_PEER = WM_USER + 22;

struct SenderCount {
    int nNextPost = 0;
    int nNextSend = 0;
    int nOutOfOrder = 0;
};

// Checks per sender that posted and sent sequence numbers come in order.
class CCountingWnd : public CWnd {
public:
    CCountingWnd() { CreateEx(0, nullptr, "counting", WS_OVERLAPPED, RECT{}, nullptr, 0); }

    std::array<SenderCount, kSenders> m_counts{};

protected:
    LRESULT WindowProc(UINT message, WPARAM wParam, LPARAM lParam) override
    {
        SenderCount& count = m_counts.at(wParam);
        int& nNext = message == WM_STRESS_SEND ? count.nNextSend : count.nNextPost;
        if (lParam != nNext)
            ++count.nOutOfOrder;
        nNext = static_cast<int>(lParam) + 1;
        return lParam;
    }
};

TEST(MessageStressTest, NothingIsLostOrReorderedUnderLoad)
{
    std::array<SenderCount, kSenders> counts{};
    HWND hTarget = nullptr;
    HANDLE hReady = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    std::array<DWORD, kSenders> senderIds{};
    HANDLE hSendersReady[kSenders];
    for (HANDLE& hEvent : hSendersReady)
        hEvent = CreateEvent(nullptr, TRUE, FALSE, nullptr);

    std::thread receiver([&] {
        CCountingWnd wnd;
        hTarget = wnd.m_hWnd;
        SetEvent(hReady);
        MSG msg;
        while (GetMessage(&msg, nullptr, 0, 0) > 0)
            DispatchMessage(&msg);
        counts = wnd.m_counts;
    });
    WaitForSingleObject(hReady, INFINITE);

    std::array<int, kSenders> nWrongAnswers{};
    std::array<int, kSenders> nPeerReceived{};
    std::vector<std::thread> senders;
    for (int nSender = 0; nSender < kSenders; ++nSender) {
        senders.emplace_back([&, nSender] {
            senderIds[nSender] = GetCurrentThreadId();
            MSG msg;
            PeekMessage(&msg, nullptr, 0, 0, PM_NOREMOVE);
            SetEvent(hSendersReady[nSender]);
            WaitForMultipleObjects(kSenders, hSendersReady, TRUE, INFINITE);
            DWORD dwPeer = senderIds[(nSender + 1) % kSenders];
            for (int i = 0; i < kMessagesPerSender; ++i) {
                if (i % kSendEvery == 0) {
                    if (SendMessage(hTarget, WM_STRESS_SEND, nSender, i / kSendEvery) != i / kSendEvery)
                        ++nWrongAnswers[nSender];
                } else {
                    while (!PostMessage(hTarget, WM_STRESS_POST, nSender, i - i / kSendEvery - 1))
                        std::this_thread::yield();
                }
                PostThreadMessage(dwPeer, WM_STRESS_PEER, nSender, i);
                while (PeekMessage(&msg, nullptr, WM_STRESS_PEER, WM_STRESS_PEER, PM_REMOVE))
                    ++nPeerReceived[nSender];
            }
            // Collect the rest from the peer that posts here, which may still run.
            while (nPeerReceived[nSender] < kMessagesPerSender &&
                   GetMessage(&msg, nullptr, WM_STRESS_PEER, WM_STRESS_PEER) > 0)
                ++nPeerReceived[nSender];
        });
    }
    for (std::thread& sender : senders)
        sender.join();
    PostMessage(hTarget, WM_QUIT, 0, 0);
    receiver.join();

    constexpr int kSends = (kMessagesPerSender + kSendEvery - 1) / kSendEvery;
    for (int nSender = 0; nSender < kSenders; ++nSender) {
        EXPECT_EQ(counts[nSender].nNextSend, kSends);
        EXPECT_EQ(counts[nSender].nNextPost, kMessagesPerSender - kSends);
        EXPECT_EQ(counts[nSender].nOutOfOrder, 0);
        EXPECT_EQ(nWrongAnswers[nSender], 0);
        EXPECT_EQ(nPeerReceived[nSender], kMessagesPerSender);
    }
    CloseHandle(hReady);
    for (HANDLE hEvent : hSendersReady)
        CloseHandle(hEvent);
}

} // namespace
