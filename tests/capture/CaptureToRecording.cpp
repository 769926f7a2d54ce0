// From virtual boards to recording files: the host writes every record it gets with
// CZnFile inside its frame handler, and the files decode to the previews it was shown,
// within the codec's loss. One board of each generation, one to four cameras per
// stream and two streams at once.
#include "CaptureTestSupport.h"

#include "codec/CDecoder.h"
#include "platform/TickClock.h"
#include "recording/CZnFile.h"

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <unistd.h>
#include <vector>

namespace {

class CStoreDir {
public:
    CStoreDir()
    {
        std::string strTemplate = (std::filesystem::temp_directory_path() / "zndvr-capture-XXXXXX").string();
        if (mkdtemp(strTemplate.data()) != nullptr)
            m_path = strTemplate;
    }
    ~CStoreDir() { std::filesystem::remove_all(m_path); }
    std::string Path(int nCamera) const { return (m_path / ("camera" + std::to_string(nCamera) + ".zn")).string(); }

private:
    std::filesystem::path m_path;
};

// A host that records: one file per camera, and a copy of each preview it showed.
class CRecordingHost {
public:
    CRecordingHost(CHostWindow& host, CTestClock& clock, const CStoreDir& store, DWORD dwRevision)
    {
        host.m_pfnOnFrame = [&clock, &store, dwRevision, this](HWND, tag_ZNCAPTUREFRAME* pFrame) {
            clock.Advance(40);
            const int nCamera = pFrame->pInfo->nCamera;
            std::unique_ptr<CZnFile>& pFile = m_files[nCamera];
            if (pFile == nullptr) {
                pFile = std::make_unique<CZnFile>();
                m_bOpened &= pFile->Open(store.Path(nCamera).c_str(), pFrame->pInfo, dwRevision, ZNFILE_WRITE) == 1;
            }
            if (pFile->WriteOneFrame(pFrame->pData) == 1) {
                int nWidth = 0;
                int nHeight = 0;
                CaptureSize(*pFrame, dwRevision, nWidth, nHeight);
                m_previews[nCamera].emplace_back(pFrame->pRaw, pFrame->pRaw + nWidth * nHeight * 3);
            }
        };
    }

    void CloseFiles()
    {
        for (auto& [nCamera, pFile] : m_files)
            pFile->Close();
    }

    // The size of the picture the encoder worked on, which is the preview's.
    static void CaptureSize(const tag_ZNCAPTUREFRAME& frame, DWORD dwRevision, int& nWidth, int& nHeight)
    {
        nWidth = frame.pInfo->nWidth;
        nHeight = frame.pInfo->nHeight;
        if (dwRevision == STREAM_REVISION_20020219) {
            nWidth = frame.pInfo->nStandard == STANDARD_PAL ? 352 : 320;
            nHeight = frame.pInfo->nStandard == STANDARD_PAL ? 288 : 240;
        }
    }

    bool m_bOpened = true;
    std::map<int, std::unique_ptr<CZnFile>> m_files;
    std::map<int, std::vector<std::vector<BYTE>>> m_previews;
};

// Mean absolute difference of two pictures of the same size.
double MeanDifference(const BYTE* pA, const BYTE* pB, std::size_t nBytes)
{
    long long nSum = 0;
    for (std::size_t i = 0; i < nBytes; ++i)
        nSum += std::abs(static_cast<int>(pA[i]) - static_cast<int>(pB[i]));
    return static_cast<double>(nSum) / static_cast<double>(nBytes);
}

// Reads the file of a camera back, decodes every frame and compares it with the
// preview that the host saw for it.
void ExpectFileDecodesToPreviews(const std::string& strFile, const std::vector<std::vector<BYTE>>& previews,
                                 DWORD dwRevision)
{
    CZnFile file;
    tag_CAMERAINFO info{};
    ASSERT_EQ(file.Open(strFile.c_str(), &info, 0, ZNFILE_READ), 1) << strFile;
    ASSERT_EQ(file.GetTotalFrameNum(), previews.size());
    std::vector<BYTE> video(static_cast<std::size_t>(file.GetVideoWidth()) * file.GetVideoHeight() * 2);
    std::vector<BYTE> sound(ZNFRAME_SOUND_BUFFER_SIZE);
    std::vector<BYTE> picture(static_cast<std::size_t>(CDecoder::MAX_WIDTH) * CDecoder::MAX_HEIGHT * 3);
    CDecoder decoder;
    ASSERT_TRUE(decoder.Create(dwRevision));
    for (std::size_t i = 0; i < previews.size(); ++i) {
        tag_ZNFRAMEDATA frame{};
        frame.pVideo = video.data();
        frame.pSound = sound.data();
        ASSERT_EQ(file.ReadOneFrame(&frame, -1, 0), 1) << i;
        const DECODER_RETURN result = decoder.DecodeOneFrame(frame.pVideo, static_cast<int>(frame.dwVideoLen),
                                                             picture.data(), TRUE);
        ASSERT_FALSE(result.bError) << i;
        const std::size_t nBytes = static_cast<std::size_t>(result.nWidth) * result.nHeight * 3;
        ASSERT_EQ(nBytes, previews[i].size()) << i;
        EXPECT_LT(MeanDifference(picture.data(), previews[i].data(), nBytes), 12.0) << strFile << " frame " << i;
    }
}

class CaptureToRecording : public CCaptureTest {
protected:
    void RecordAndCheck(BYTE byChannels, BYTE byGeneration, tag_FRAMESIZE nSize, const std::vector<int>& cameras,
                        std::size_t nFramesPerCamera)
    {
        SCOPED_TRACE(static_cast<int>(byGeneration));
        CVirtualRack::Clear();
        const DWORD dwRevision = RevisionOf(byGeneration);
        CTestClock clock(5000);
        CHostWindow host;
        CStoreDir store;
        CRecordingHost recorder(host, clock, store, dwRevision);
        {
            CVideo video;
            ASSERT_TRUE(OpenOn(video, host, MakeCaptureBoard(byChannels, byGeneration), nSize));
            CEncodeParam param;
            for (int nCamera : cameras)
                ASSERT_EQ(video.OpenCamera(0, nCamera, &param, nullptr), ZNRET_OK) << nCamera;
            ASSERT_TRUE(PumpUntil([&] {
                for (int nCamera : cameras) {
                    if (host.CountFrames(nCamera) < static_cast<int>(nFramesPerCamera))
                        return false;
                }
                return true;
            }));
            // The last CVideo closes whatever is still open.
        }
        recorder.CloseFiles();
        ASSERT_TRUE(recorder.m_bOpened);
        for (int nCamera : cameras)
            ExpectFileDecodesToPreviews(store.Path(nCamera), recorder.m_previews[nCamera], dwRevision);
    }
};

// One board of each generation: one camera, four on one stream, two streams at once, and
// the wide PAL size.
TEST_F(CaptureToRecording, EveryGenerationsFilesDecodeToThePreviews)
{
    RecordAndCheck(4, 1, FRAMESIZE_160X112, {2}, 12);
    RecordAndCheck(4, 1, FRAMESIZE_176X144, {0, 1, 2, 3}, 6);
    RecordAndCheck(2, 0, FRAMESIZE_320X240, {0, 1}, 5);
    RecordAndCheck(4, 2, FRAMESIZE_320X240_R2, {0, 1, 2, 3}, 5);
    RecordAndCheck(2, 2, FRAMESIZE_704X288_R2, {0, 1}, 4);
}

} // namespace
