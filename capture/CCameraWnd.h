// The pipeline of one camera: takes raw frames from its stream, has them coded on an
// encoder thread of its own, turns the encoder's motion map into alarms and hands the
// frame record to the host window. Made and owned by its CCaptureStream; the window and
// its handlers live on the window thread, the encoder thread only runs CEncoder::Encode.
#pragma once

#include "capture/CEncodeParam.h"
#include "capture/CaptureRecords.h"
#include "capture/CaptureTypes.h"
#include "platform/CWnd.h"
#include "recording/FileRecords.h"
#include "sound/CWaveCodec.h"

#include <memory>

class CCaptureWnd;
class CEncoder;

class CCameraWnd : public CWnd {
public:
    // One key frame in this many frames.
    static constexpr int KEY_FRAME_CYCLE = 160;

    CCameraWnd();
    ~CCameraWnd() override;

    // Buffers, encoder and encoder thread for board-wide camera nCamera; 0 when the
    // frame buffer can't be had or the encoder refuses the board's frame size.
    int Open(int nCamera, CCaptureWnd* pWnd, CEncodeParam* pParam, DWORD dwRevision);
    // Stops the thread (dropping a frame in work), then frees everything Open made.
    void Close();
    // A frame from the stream: the channel takes *ppFrame and leaves its old buffer there.
    int OnFrame(BYTE** ppFrame);
    DWORD GetStatus() const;

    // The quantiser the encoder gets for a setting: revision 0x20020219 knows four.
    static int MapQuantiser(int nQi, DWORD dwRevision);
    // Whether a frame shows a video signal: more than 10 luma samples above 20.
    static bool HasVideoSignal(const BYTE* pFrame, int nWidth, int nHeight);

protected:
    LRESULT OnEncoded(WPARAM bDetectOnly, LPARAM nUnused);
    LRESULT OnFrameDone(WPARAM wUnused, LPARAM lUnused);
    LRESULT OnSetParam(WPARAM nOperation, LPARAM nValue);
    LRESULT OnGetParam(WPARAM nOperation, LPARAM pResult);
    // A filled buffer of the wave-in device (MM_WIM_DATA), for the sound source.
    LRESULT OnWaveInData(WPARAM hWaveIn, LPARAM pHdr);
    DECLARE_MESSAGE_MAP()

private:
    // What the window thread decides for one frame before it hands it to the thread.
    struct tag_ENCODESETTINGS {
        int nQuantiser;
        int nThreshold;
    };

    static DWORD EncoderThreadMain(LPVOID pParam);
    void RunEncoderThread();
    void EncodeFrame(BOOL bDetectOnly, int nFrameType);
    void StartThread();
    void StopThread();
    void PostFrameToThread();
    void PrepareEncodeSettings();
    bool IsVideoLost() const;
    void DeliverLostFrame(DWORD dwTime);
    void AdvanceCadence();
    void RestartCadence();
    void AttachSound();
    void OpenSound();
    void CloseSound();
    void FillRecord(int bVideoLost);
    void SendToHost();
    void FreeBuffers();

    tag_CAMERAINFO m_Info{};
    CCaptureWnd* m_pCaptureWnd = nullptr;
    BYTE* m_pFrame = nullptr;
    CEncodeParam* m_pParam;
    int m_nStatus = CAMSTATUS_NONE;
    CEncoder* m_pEncoder = nullptr;
    tag_ZNCAPTUREFRAME* m_pRecord = nullptr;
    tag_ZNFRAMEDATA* m_pFrameData = nullptr;
    HANDLE m_hThread = nullptr;
    DWORD m_dwThreadId = 0;
    HANDLE m_hThreadEnd = nullptr;
    // Set by the thread once its queue exists; kept only while the thread starts.
    HANDLE m_hThreadReady = nullptr;
    // The sound source (wave-in or board); a channel without one runs silent.
    std::unique_ptr<CWaveCodec> m_pSound;
    int m_nFrameCount = 0;
    int m_nFrameType = ZNFRAME_I;
    DWORD m_dwRevision = 0;

    DWORD m_dwVideoCapacity = 0;
    // Width and height of the frames the driver delivers, for the signal test.
    int m_nSignalWidth = 0;
    int m_nSignalHeight = 0;
    // Handed from the window thread to the encoder thread with each frame message.
    tag_ENCODESETTINGS m_encodeSettings{};
    CEncodeParam::AreaMoveTest m_areaMoveTest;
};
