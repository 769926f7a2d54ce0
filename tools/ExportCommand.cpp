// zndvr export: writes a recording's pictures and sound into standard files. Frames go
// through the player in decoder-only mode: pictures into Y4M, numbered PNG files or
// ffmpeg, sound into WAV. With --h263 the picture records are rewritten into an H.263
// stream without being decoded. Video has a steady frame rate on which each recorded
// frame is shown from its stamp on; the sound of each frame ends at that frame's stamp.
#include "Commands.h"
#include "ExportWriters.h"
#include "StopSignals.h"

#include "codec/CH263Writer.h"
#include "playback/CDecodeWnd.h"
#include "platform/TickClock.h"
#include "recording/CZnFile.h"
#include "sound/CAdpcm.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

constexpr int kMaxFramesPerSecond = 50;
constexpr int kDefaultFramesPerSecond = 25;
constexpr DWORD kProgressPeriodMs = 1000;
// A jump of the stamps by more than this, or backwards, counts as the gap before it: a
// damaged stamp must not fill an export with hours of one picture.
constexpr DWORD kMaxStampGapMs = 10000;
// The codec's output is on a 14-bit scale; files get the level of the 16-bit input back.
constexpr int kPcmScale = 4;
constexpr int kSamplesPerMs = CWavWriter::SAMPLES_PER_SECOND / 1000;
// 3 code bytes are 16 bytes of PCM: the most sound one frame record can hold.
constexpr int kMaxFramePcmBytes = ZNFRAME_SOUND_BUFFER_SIZE / CAdpcm::kBytesPerGroup * 16;

enum tag_EXPORTKIND { EXPORT_Y4M, EXPORT_PNG, EXPORT_WAV, EXPORT_FFMPEG, EXPORT_H263 };

struct tag_EXPORTOPTIONS {
    std::string strFile;
    std::string strOut;
    int nFramesPerSecond = 0;   // 0: the recording's own rate
    bool bH263 = false;
    tag_EXPORTKIND nKind = EXPORT_Y4M;
};

constexpr char kUsage[] = "usage: zndvr export FILE -o OUT [--fps N] [--h263]\n"
                          "  OUT.y4m    pictures as YUV4MPEG2\n"
                          "  OUT.png    one PNG a frame; OUT holds a number pattern, e.g. frame%04d.png\n"
                          "  OUT.wav    the sound\n"
                          "  OUT.mp4, .mkv, .mov, .avi   pictures and sound through ffmpeg\n"
                          "  --h263     OUT becomes an H.263 stream of the pictures, rewritten without loss\n"
                          "  --fps N    frame rate of Y4M and ffmpeg output (default: the recording's)\n";

bool EndsWith(const std::string& str, std::string_view strEnd)
{
    return str.size() >= strEnd.size() && str.compare(str.size() - strEnd.size(), strEnd.size(), strEnd) == 0;
}

bool ChooseKind(tag_EXPORTOPTIONS& options)
{
    if (options.bH263) {
        options.nKind = EXPORT_H263;
        return true;
    }
    const struct {
        std::string_view strEnd;
        tag_EXPORTKIND nKind;
    } kinds[] = {{".y4m", EXPORT_Y4M}, {".png", EXPORT_PNG}, {".wav", EXPORT_WAV}, {".mp4", EXPORT_FFMPEG},
                 {".mkv", EXPORT_FFMPEG}, {".mov", EXPORT_FFMPEG}, {".avi", EXPORT_FFMPEG}};
    for (const auto& kind : kinds) {
        if (EndsWith(options.strOut, kind.strEnd)) {
            options.nKind = kind.nKind;
            return true;
        }
    }
    std::fprintf(stderr, "zndvr export: %s: no known format (.y4m, .png, .wav, .mp4, .mkv, .mov, .avi, or --h263)\n",
                 options.strOut.c_str());
    return false;
}

bool ParseOptions(std::span<char* const> args, tag_EXPORTOPTIONS& options)
{
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string_view strArg = args[i];
        const bool bHasValue = i + 1 < args.size();
        if ((strArg == "-o" || strArg == "--output") && bHasValue) {
            options.strOut = args[++i];
        } else if (strArg == "--fps" && bHasValue) {
            options.nFramesPerSecond = std::atoi(args[++i]);
            if (options.nFramesPerSecond < 1 || options.nFramesPerSecond > kMaxFramesPerSecond) {
                std::fprintf(stderr, "zndvr export: --fps %s: a rate from 1 to %d frames a second\n", args[i],
                             kMaxFramesPerSecond);
                return false;
            }
        } else if (strArg == "--h263") {
            options.bH263 = true;
        } else if (options.strFile.empty() && !strArg.empty() && strArg[0] != '-') {
            options.strFile = strArg;
        } else {
            std::fprintf(stderr, "zndvr export: %.*s: unknown or incomplete argument\n", static_cast<int>(strArg.size()),
                         strArg.data());
            return false;
        }
    }
    if (options.strFile.empty() || options.strOut.empty()) {
        std::fputs(kUsage, stderr);
        return false;
    }
    return ChooseKind(options);
}

// A recording read from its start, frame by frame, into buffers of the capacities the
// reader requires.
class CRecordingReader {
public:
    bool Open(const std::string& strFile)
    {
        if (!m_file.Open(strFile.c_str(), nullptr, 0, ZNFILE_READ))
            return false;
        m_video.resize(static_cast<std::size_t>(m_file.GetVideoWidth()) * m_file.GetVideoHeight() * 2);
        m_sound.resize(ZNFRAME_SOUND_BUFFER_SIZE);
        m_frame.pVideo = m_video.data();
        m_frame.pSound = m_sound.data();
        return true;
    }
    bool ReadFirst() { return m_file.ReadOneFrame(&m_frame, 0, 0) == 1; }
    bool ReadNext() { return m_file.ReadOneFrame(&m_frame, -1, 0) == 1; }
    tag_ZNFRAMEDATA& Frame() { return m_frame; }
    CZnFile& File() { return m_file; }
    DWORD GetRevision() const
    {
        return m_file.GetFileVersion() == ZNFILE_VERSION_R2 ? STREAM_REVISION_20020219 : STREAM_REVISION_20020114;
    }

private:
    CZnFile m_file;
    std::vector<BYTE> m_video;
    std::vector<BYTE> m_sound;
    tag_ZNFRAMEDATA m_frame{};
};

// Milliseconds along the export for each frame's stamp, from the first frame on.
class CMediaClock {
public:
    explicit CMediaClock(DWORD dwLead) : m_dwTime(dwLead) {}
    DWORD Advance(DWORD dwStamp)
    {
        if (m_bStarted) {
            const DWORD dwGap = dwStamp - m_dwStamp;
            if (dwGap <= kMaxStampGapMs)
                m_dwGap = dwGap;
            m_dwTime += m_dwGap;
        }
        m_bStarted = true;
        m_dwStamp = dwStamp;
        return m_dwTime;
    }

private:
    DWORD m_dwTime;
    DWORD m_dwStamp = 0;
    DWORD m_dwGap = 0;
    bool m_bStarted = false;
};

// A line on standard error every second of long work.
class CProgress {
public:
    explicit CProgress(DWORD dwTotal) : m_dwTotal(std::max<DWORD>(dwTotal, 1)), m_dwLast(GetTickCount()) {}
    void Step(const char* pWork, DWORD dwDone)
    {
        if (GetTickCount() - m_dwLast < kProgressPeriodMs)
            return;
        m_dwLast = GetTickCount();
        std::fprintf(stderr, "zndvr export: %s %lu of %lu frames (%lu%%)\n", pWork, static_cast<unsigned long>(dwDone),
                     static_cast<unsigned long>(m_dwTotal), static_cast<unsigned long>(100ull * dwDone / m_dwTotal));
    }

private:
    DWORD m_dwTotal;
    DWORD m_dwLast;
};

// The player in decoder-only mode with the host's buffers for one frame.
class CFrameDecoder {
public:
    bool Open(DWORD dwRevision)
    {
        m_picture.assign(CDecodeWnd::DECODE_ONLY_PICTURE_BYTES, 0);
        m_pcm.resize(kMaxFramePcmBytes / 2);
        return m_player.OpenDecodeWnd(nullptr, 1, dwRevision) == 1;
    }
    // A frame whose picture doesn't decode still has its sound: the player gives the
    // sound of a frame without picture, so the frame goes again marked lost.
    bool Decode(const tag_ZNFRAMEDATA& frame, tag_SOUNDFMT nSoundFmt)
    {
        tag_ZNFRAMEDATA copy = frame;
        if (DecodeCopy(copy, nSoundFmt))
            return true;
        copy.wFlags |= ZNFRAME_LOST;
        DecodeCopy(copy, nSoundFmt);
        return false;
    }
    const tag_DECODEINFO& Info() const { return m_info; }
    const BYTE* Picture() const { return m_picture.data(); }
    // The frame's sound brought to the level of the 16-bit input.
    std::size_t TakeSound()
    {
        const std::size_t nSamples = static_cast<std::size_t>(m_info.nSoundLen) / 2;
        for (std::size_t i = 0; i < nSamples; ++i)
            m_pcm[i] = static_cast<std::int16_t>(std::clamp(m_pcm[i] * kPcmScale, -32768, 32767));
        return nSamples;
    }
    const std::int16_t* Sound() const { return m_pcm.data(); }

private:
    bool DecodeCopy(tag_ZNFRAMEDATA& frame, tag_SOUNDFMT nSoundFmt)
    {
        return m_player.DecodeOneFrame(&frame, m_info, m_picture.data(), static_cast<int>(m_picture.size()),
                                       reinterpret_cast<BYTE*>(m_pcm.data()), static_cast<int>(m_pcm.size() * 2),
                                       nSoundFmt) == 1;
    }

    CDecodeWnd m_player;
    tag_DECODEINFO m_info{};
    std::vector<BYTE> m_picture;
    std::vector<std::int16_t> m_pcm;
};

// What the first pass learns of a recording.
struct tag_SURVEY {
    DWORD dwFrames = 0;
    DWORD dwLastTime = 0;
    DWORD dwLeadMs = 0;         // sound of the first frame, which plays before its stamp
    int nWidth = 0;             // of the first picture that decodes
    int nHeight = 0;
    std::uint64_t nSoundSamples = 0;
};

// The first pass over the recording: frames, duration and picture size, and the sound
// into pWav when it is given (each frame's sound ending at its stamp, silence filling
// what falls behind).
bool Survey(CRecordingReader& reader, CWavWriter* pWav, const CStopSignals& stop, tag_SURVEY& survey)
{
    CFrameDecoder decoder;
    if (!decoder.Open(reader.GetRevision()) || !reader.ReadFirst())
        return false;
    const tag_SOUNDFMT nSoundFmt = reader.File().GetSoundFormat();
    const bool bFirstHasSound = (reader.Frame().wFlags & ZNFRAME_SOUND) != 0;
    survey.dwLeadMs = bFirstHasSound ? reader.Frame().dwSoundLen / CAdpcm::kBytesPerGroup * CAdpcm::kSamplesPerGroup / kSamplesPerMs : 0;
    CMediaClock clock(survey.dwLeadMs);
    CProgress progress(reader.File().GetTotalFrameNum());
    do {
        const DWORD dwTime = clock.Advance(reader.Frame().dwTimeStamp);
        if (pWav != nullptr || survey.nWidth == 0) {
            const bool bDecoded = decoder.Decode(reader.Frame(), nSoundFmt);
            if (bDecoded && survey.nWidth == 0 && decoder.Info().nWidth > 0) {
                survey.nWidth = decoder.Info().nWidth;
                survey.nHeight = decoder.Info().nHeight;
            }
            const std::size_t nSamples = decoder.TakeSound();
            const std::uint64_t nEnd = static_cast<std::uint64_t>(dwTime) * kSamplesPerMs;
            if (pWav != nullptr && nSamples > 0) {
                if (pWav->GetSamples() + nSamples < nEnd && !pWav->WriteSilence(nEnd - nSamples - pWav->GetSamples()))
                    return false;
                if (!pWav->Write(decoder.Sound(), nSamples))
                    return false;
            }
        }
        survey.dwLastTime = dwTime;
        progress.Step("read", ++survey.dwFrames);
    } while (!stop.IsStopped() && reader.ReadNext());
    survey.nSoundSamples = pWav != nullptr ? pWav->GetSamples() : 0;
    return true;
}

int ChooseFrameRate(const tag_EXPORTOPTIONS& options, const tag_SURVEY& survey)
{
    if (options.nFramesPerSecond > 0)
        return options.nFramesPerSecond;
    const DWORD dwDuration = survey.dwLastTime - survey.dwLeadMs;
    if (dwDuration == 0)   // a single frame, or stamps that stand still
        return kDefaultFramesPerSecond;
    const std::uint64_t nRate = ((survey.dwFrames - 1) * 1000ull + dwDuration / 2) / dwDuration;
    return static_cast<int>(std::clamp<std::uint64_t>(nRate, 1, kMaxFramesPerSecond));
}

// Where the pictures of the second pass go.
class CPictureSink {
public:
    virtual ~CPictureSink() = default;
    virtual bool Write(const BYTE* pPicture) = 0;
    virtual bool Close() = 0;
    virtual const std::string& GetError() const = 0;
};

template <typename TWriter>
class CWriterSink : public CPictureSink {
public:
    TWriter m_writer;
    bool Write(const BYTE* pPicture) override { return m_writer.Write(pPicture); }
    bool Close() override { return m_writer.Close(); }
    const std::string& GetError() const override { return m_writer.GetError(); }
};

// Numbered PNG files take every frame once, numbered as in the recording from 0.
class CPngSink : public CPictureSink {
public:
    CPngSink(int nWidth, int nHeight) : m_nWidth(nWidth), m_nHeight(nHeight) {}
    CPngWriter m_writer;
    bool Write(const BYTE* pPicture) override { return m_writer.Write(m_nIndex++, pPicture, m_nWidth, m_nHeight); }
    bool Close() override { return true; }
    const std::string& GetError() const override { return m_writer.GetError(); }

private:
    int m_nWidth;
    int m_nHeight;
    int m_nIndex = 0;
};

struct tag_PICTURESTATS {
    DWORD dwWritten = 0;
    DWORD dwUndecoded = 0;
    DWORD dwOtherSize = 0;
};

// The second pass: each frame decoded and written, on the steady rate unless bEveryFrame.
bool WritePictures(CRecordingReader& reader, const CStopSignals& stop, const tag_SURVEY& survey, int nRate, bool bEveryFrame,
                   CPictureSink& sink, tag_PICTURESTATS& stats)
{
    CFrameDecoder decoder;
    if (!decoder.Open(reader.GetRevision()) || !reader.ReadFirst())
        return false;
    const tag_SOUNDFMT nSoundFmt = reader.File().GetSoundFormat();
    std::vector<BYTE> shown(static_cast<std::size_t>(survey.nWidth) * survey.nHeight * 3, 0);
    CMediaClock clock(survey.dwLeadMs);
    CProgress progress(survey.dwFrames);
    std::uint64_t nSlot = 0;
    const auto slotTime = [&](std::uint64_t n) { return n * 1000 / static_cast<std::uint64_t>(nRate); };
    // Shows the last picture in every slot of the steady rate before dwUntil.
    const auto fillSlots = [&](std::uint64_t nUntil) {
        for (; slotTime(nSlot) < nUntil; ++nSlot, ++stats.dwWritten) {
            if (!sink.Write(shown.data()))
                return false;
        }
        return true;
    };
    DWORD dwFrame = 0;
    DWORD dwTime = 0;
    do {
        dwTime = clock.Advance(reader.Frame().dwTimeStamp);
        if (!bEveryFrame && dwFrame > 0 && !fillSlots(dwTime))
            return false;
        const bool bDecoded = decoder.Decode(reader.Frame(), nSoundFmt);
        const tag_DECODEINFO& info = decoder.Info();
        if (!bDecoded) {
            ++stats.dwUndecoded;
        } else if ((info.wFlags & DECODEINFO_LOST) != 0) {
            std::fill(shown.begin(), shown.end(), 0);
        } else if (info.nWidth != survey.nWidth || info.nHeight != survey.nHeight) {
            ++stats.dwOtherSize;
        } else {
            std::copy(decoder.Picture(), decoder.Picture() + shown.size(), shown.begin());
        }
        if (bEveryFrame) {
            if (!sink.Write(shown.data()))
                return false;
            ++stats.dwWritten;
        }
        progress.Step("wrote", ++dwFrame);
    } while (!stop.IsStopped() && reader.ReadNext());
    return bEveryFrame || fillSlots(static_cast<std::uint64_t>(dwTime) + 1000 / static_cast<std::uint64_t>(nRate));
}

// --h263: every picture record rewritten; records that H.263 can't carry are left out
// with the predicted pictures that follow them up to the next key frame.
int ExportH263(CRecordingReader& reader, const tag_EXPORTOPTIONS& options, const CStopSignals& stop)
{
    CH263Writer writer;
    if (!writer.Create() || !reader.ReadFirst()) {
        std::fprintf(stderr, "zndvr export: %s: no frame to rewrite\n", options.strFile.c_str());
        return kExitFailed;
    }
    std::FILE* pOut = std::fopen(options.strOut.c_str(), "wb");
    if (pOut == nullptr) {
        std::fprintf(stderr, "zndvr export: %s: %s\n", options.strOut.c_str(), std::strerror(errno));
        return kExitFailed;
    }
    CProgress progress(reader.File().GetTotalFrameNum());
    DWORD dwFrames = 0;
    DWORD dwPictures = 0;
    DWORD dwLeftOut = 0;
    bool bWaitForKeyFrame = false;
    bool bWritten = true;
    do {
        tag_ZNFRAMEDATA& frame = reader.Frame();
        ++dwFrames;
        if ((frame.wFlags & ZNFRAME_LOST) != 0)
            continue;
        if (bWaitForKeyFrame && frame.wFrameType != ZNFRAME_I) {
            ++dwLeftOut;
            continue;
        }
        const tag_H263RESULT nResult = writer.Rewrite(frame.pVideo, static_cast<int>(frame.dwVideoLen), frame.dwTimeStamp);
        bWaitForKeyFrame = nResult != H263_OK;
        if (nResult != H263_OK) {
            int nBlock = 0;
            int nNext = 0;
            reader.File().GetFilePos(nBlock, nNext);
            std::fprintf(stderr, "zndvr export: %s: block %d frame %d %s; left out up to the next key frame\n",
                         options.strFile.c_str(), nBlock, nNext - 1,
                         nResult == H263_NOT_EXPRESSIBLE ? "holds values H.263 can't carry" : "doesn't decode");
            ++dwLeftOut;
            continue;
        }
        bWritten = std::fwrite(writer.GetPicture(), 1, static_cast<std::size_t>(writer.GetPictureLength()), pOut) ==
                   static_cast<std::size_t>(writer.GetPictureLength());
        ++dwPictures;
        progress.Step("rewrote", dwFrames);
    } while (bWritten && !stop.IsStopped() && reader.ReadNext());
    bWritten = std::fclose(pOut) == 0 && bWritten;
    if (!bWritten) {
        std::fprintf(stderr, "zndvr export: %s: %s\n", options.strOut.c_str(), std::strerror(errno));
        return kExitFailed;
    }
    std::printf("%s: %lu H.263 pictures of %lu frames%s\n", options.strOut.c_str(), static_cast<unsigned long>(dwPictures),
                static_cast<unsigned long>(dwFrames), stop.IsStopped() ? " (interrupted)" : "");
    if (stop.IsStopped())
        return stop.GetExitStatus();
    return dwLeftOut == 0 ? kExitOk : kExitFailed;
}

// The sound alone.
int ExportWav(CRecordingReader& reader, const tag_EXPORTOPTIONS& options, const CStopSignals& stop)
{
    CWavWriter wav;
    tag_SURVEY survey;
    if (!wav.Open(options.strOut)) {
        std::fprintf(stderr, "zndvr export: %s\n", wav.GetError().c_str());
        return kExitFailed;
    }
    const bool bRead = Survey(reader, &wav, stop, survey);
    const bool bClosed = wav.Close();
    if (!bRead || !bClosed) {
        std::fprintf(stderr, "zndvr export: %s\n",
                     wav.GetError().empty() ? (options.strFile + ": can't be read").c_str() : wav.GetError().c_str());
        return kExitFailed;
    }
    if (survey.nSoundSamples == 0) {
        std::remove(options.strOut.c_str());
        std::fprintf(stderr, "zndvr export: %s has no sound\n", options.strFile.c_str());
        return kExitFailed;
    }
    std::printf("%s: %.1f s of sound from %lu frames%s\n", options.strOut.c_str(),
                static_cast<double>(survey.nSoundSamples) / CWavWriter::SAMPLES_PER_SECOND,
                static_cast<unsigned long>(survey.dwFrames), stop.IsStopped() ? " (interrupted)" : "");
    return stop.IsStopped() ? stop.GetExitStatus() : kExitOk;
}

// Pictures into Y4M, PNG or ffmpeg; ffmpeg also takes the sound, from a WAV file made by
// the first pass beside the output.
int ExportPictures(CRecordingReader& reader, const tag_EXPORTOPTIONS& options, const CStopSignals& stop)
{
    if (options.nKind == EXPORT_FFMPEG && !CFFmpegWriter::IsAvailable()) {
        std::fprintf(stderr, "zndvr export: %s needs ffmpeg, which isn't installed (Y4M, PNG and WAV need nothing)\n",
                     options.strOut.c_str());
        return kExitFailed;
    }
    CPngWriter pngNames;
    if (options.nKind == EXPORT_PNG && (!CPngWriter::IsAvailable() || !pngNames.SetPattern(options.strOut))) {
        std::fprintf(stderr, "zndvr export: %s: %s\n", options.strOut.c_str(),
                     CPngWriter::IsAvailable() ? "needs one number pattern such as %04d"
                                               : "this zndvr was built without libpng");
        return kExitUsage;
    }
    const std::string strSound = options.strOut + ".sound.wav";
    const bool bWithSound = options.nKind == EXPORT_FFMPEG && reader.File().GetSoundFormat() == SOUNDFMT_ADPCM;
    CWavWriter wav;
    tag_SURVEY survey;
    if (bWithSound && !wav.Open(strSound)) {
        std::fprintf(stderr, "zndvr export: %s\n", wav.GetError().c_str());
        return kExitFailed;
    }
    const bool bSurveyed = Survey(reader, bWithSound ? &wav : nullptr, stop, survey);
    wav.Close();
    const bool bHasSound = bWithSound && survey.nSoundSamples > 0;
    if (bWithSound && !bHasSound)
        std::remove(strSound.c_str());
    if (!bSurveyed || survey.nWidth == 0) {
        if (bHasSound)
            std::remove(strSound.c_str());
        std::fprintf(stderr, "zndvr export: %s\n",
                     wav.GetError().empty() ? (options.strFile + ": no picture decodes").c_str() : wav.GetError().c_str());
        return kExitFailed;
    }
    const int nRate = ChooseFrameRate(options, survey);
    std::unique_ptr<CPictureSink> pSink;
    bool bOpened = true;
    if (options.nKind == EXPORT_Y4M) {
        auto pY4m = std::make_unique<CWriterSink<CY4mWriter>>();
        bOpened = pY4m->m_writer.Open(options.strOut, survey.nWidth, survey.nHeight, nRate);
        pSink = std::move(pY4m);
    } else if (options.nKind == EXPORT_PNG) {
        auto pPng = std::make_unique<CPngSink>(survey.nWidth, survey.nHeight);
        pPng->m_writer = pngNames;
        pSink = std::move(pPng);
    } else {
        auto pFFmpeg = std::make_unique<CWriterSink<CFFmpegWriter>>();
        bOpened = pFFmpeg->m_writer.Open(options.strOut, survey.nWidth, survey.nHeight, nRate, bHasSound ? strSound : "");
        pSink = std::move(pFFmpeg);
    }
    tag_PICTURESTATS stats;
    const bool bWritten = bOpened && WritePictures(reader, stop, survey, nRate, options.nKind == EXPORT_PNG, *pSink, stats);
    const bool bClosed = pSink->Close();
    if (bHasSound)
        std::remove(strSound.c_str());
    if (!bWritten || !bClosed) {
        std::fprintf(stderr, "zndvr export: %s\n", pSink->GetError().empty() ? "the recording can't be read" : pSink->GetError().c_str());
        return kExitFailed;
    }
    std::printf("%s: %lu pictures of %dx%d%s from %lu frames", options.strOut.c_str(),
                static_cast<unsigned long>(stats.dwWritten), survey.nWidth, survey.nHeight,
                bHasSound ? " with sound" : "", static_cast<unsigned long>(survey.dwFrames));
    if (options.nKind != EXPORT_PNG)
        std::printf(" at %d a second", nRate);
    if (stats.dwUndecoded + stats.dwOtherSize > 0)
        std::printf("; %lu frames didn't decode, %lu had another size", static_cast<unsigned long>(stats.dwUndecoded),
                    static_cast<unsigned long>(stats.dwOtherSize));
    std::printf("%s\n", stop.IsStopped() ? " (interrupted)" : "");
    return stop.IsStopped() ? stop.GetExitStatus() : kExitOk;
}

} // namespace

int RunExportCommand(std::span<char* const> args)
{
    // Before any thread exists, so that all of them leave the stop signals to the one
    // that waits for them.
    CStopSignals stopSignals;
    tag_EXPORTOPTIONS options;
    if (!ParseOptions(args, options))
        return kExitUsage;
    CRecordingReader reader;
    if (!reader.Open(options.strFile)) {
        std::fprintf(stderr, "zndvr export: %s can't be read as a recording\n", options.strFile.c_str());
        return kExitFailed;
    }
    if (!stopSignals.Watch())
        std::fprintf(stderr, "zndvr export: stop signals can't be watched; Ctrl-C ends it at once\n");
    switch (options.nKind) {
    case EXPORT_H263:
        return ExportH263(reader, options, stopSignals);
    case EXPORT_WAV:
        return ExportWav(reader, options, stopSignals);
    default:
        return ExportPictures(reader, options, stopSignals);
    }
}
