// The pipeline of one camera: takes raw frames from its stream, has them coded on an
// encoder thread of its own, turns the encoder's motion map into alarms and hands the
// frame record to the host window. Made and owned by its CCaptureStream; the window and
// its handlers live on the window thread, the encoder thread only runs CEncoder::Encode.
#pragma once

#include "platform/PrivateHeader.h"

#include "capture/CEncodeParam.h"
#include "capture/CaptureRecords.h"
#include "capture/CaptureTypes.h"
#include "platform/CRect.h"
#include "platform/CWnd.h"
#include "recording/FileRecords.h"
#include "sound/CWaveCodec.h"

#include <memory>

class CCaptureWnd;
class CEncoder;
class CMaskInfo;

class CCameraWnd : public CWnd {
public:
    // One key frame in this many frames.
    static constexpr int KEY_FRAME_CYCLE = 160;

    CCameraWnd();
    ~CCameraWnd() override;

    // Buffers, encoder and encoder thread for board-wide camera nCamera; 0 when memory
    // can't be had or the encoder refuses the board's frame size.
    int Open(int nCamera, CCaptureWnd* pWnd, CEncodeParam* pParam, DWORD dwRevision);
    // Stops the thread (dropping a frame in work), then frees everything Open made.
    void Close();
    // A frame from the stream: the channel takes pFrame's buffer and leaves its old one
    // there.
    int OnFrame(std::unique_ptr<BYTE[]>& pFrame);
    DWORD GetStatus() const;

    // The quantiser the encoder gets for a setting. A setting outside 1 to 31, which the
    // encoder would refuse and keep its last one, is held to that range on the way (the
    // stored setting stays as the host gave it); revision 0x20020219 then knows four.
    static int MapQuantiser(int nQi, DWORD dwRevision);
    // The threshold the encoder gets for a sensitivity: of moved macroblocks when only
    // analysing, of intra macroblocks when coding.
    static int GetEncoderThreshold(int nCheckSen, BOOL bDetectOnly, DWORD dwRevision);
    // Whether a frame shows a video signal: more than 10 luma samples above 20.
    static bool HasVideoSignal(const BYTE* pFrame, int nWidth, int nHeight);
    // The rectangle of a motion area as the encoder's map of moved macroblocks is asked
    // about it. Under revision 0x20020219 the encoder works at half size, and the width
    // stored with the area picks the working size its rectangle is taken to.
    static CRect GetMotionTestRect(const CMaskInfo& mask, DWORD dwRevision);

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
    void FillRecord();
    void SendToHost();
    // One frame's motion analysis, after the encoder has coded it: each area asks the
    // encoder's map about its rectangle and counts towards its alarm. 1 if any area
    // alarms at this frame.
    int AnalyseMotion();
    bool AllocateBuffers();
    void FreeBuffers();

    tag_CAMERAINFO m_Info{};
    CCaptureWnd* m_pCaptureWnd = nullptr;
    std::unique_ptr<BYTE[]> m_pFrame;
    // The channel's own parameters, made with the object and deleted with it.
    std::unique_ptr<CEncodeParam> m_pParam;
    int m_nStatus = CAMSTATUS_NONE;
    std::unique_ptr<CEncoder> m_pEncoder;
    // The one record for the host, and the one frame record with its two buffers.
    std::unique_ptr<tag_ZNCAPTUREFRAME> m_pRecord;
    std::unique_ptr<tag_ZNFRAMEDATA> m_pFrameData;
    std::unique_ptr<BYTE[]> m_pVideoBuffer;
    std::unique_ptr<BYTE[]> m_pSoundBuffer;
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
};
