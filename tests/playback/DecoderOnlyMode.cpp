// The player in decoder-only mode: single frames from the host into the host's buffers,
// pictures held to the buffers' sizes, and the sound of a frame however long it is.
#include "PlaybackTestSupport.h"

#include "codec/CDecoder.h"

#include <cstring>

using namespace playback_test;

namespace {

constexpr BYTE kGuard = 0xCD;
constexpr int kPictureBytes = 160 * 112 * 3;

class DecoderOnlyTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(player.OpenDecodeWnd(nullptr, 1, STREAM_REVISION_20020114), 1); }

    int Decode(tag_ZNFRAMEDATA& frame, int nPictureSize = kPictureBytes, int nSoundSize = 0,
               tag_SOUNDFMT nFmt = SOUNDFMT_ADPCM)
    {
        info = tag_DECODEINFO{-1, -1, -1, -1, -1, 0xFFFF};
        picture.assign(static_cast<std::size_t>(nPictureSize) + 16, kGuard);
        pcm.assign(static_cast<std::size_t>(nSoundSize) + 1, kGuard);
        // The sound buffer starts at an odd address: the host owes no alignment.
        return player.DecodeOneFrame(&frame, info, picture.data(), nPictureSize,
                                     nSoundSize > 0 ? pcm.data() + 1 : nullptr, nSoundSize, nFmt);
    }

    bool PictureUntouched() const
    {
        return std::all_of(picture.begin(), picture.end(), [](BYTE b) { return b == kGuard; });
    }

    CDecodeWnd player;
    tag_DECODEINFO info{};
    std::vector<BYTE> picture;
    std::vector<BYTE> pcm;
};

tag_ZNFRAMEDATA MakeFrame(std::vector<BYTE>& video, WORD wFlags = 0, std::vector<BYTE>* pSound = nullptr)
{
    return tag_ZNFRAMEDATA{ZNFRAME_I, wFlags, 0, static_cast<DWORD>(video.size()), video.data(),
                           pSound != nullptr ? static_cast<DWORD>(pSound->size()) : 0,
                           pSound != nullptr ? pSound->data() : nullptr};
}

} // namespace

TEST_F(DecoderOnlyTest, PicturesFlagsAndRefusals)
{
    std::vector<BYTE> flat = MakeFlatPicture(160, 112, 90);
    tag_ZNFRAMEDATA frame = MakeFrame(flat, ZNFRAME_ALARM | 0x0004 | ZNFRAME_SOUND);
    ASSERT_EQ(Decode(frame), 1);
    EXPECT_EQ(info.wFlags, DECODEINFO_ALARM | DECODEINFO_FLAG4);
    EXPECT_EQ(info.nWidth * info.nHeight, 160 * 112);
    EXPECT_EQ(info.bError, 0);
    EXPECT_EQ(info.nFrameType, 0);
    EXPECT_EQ(info.nSoundLen, 0);
    CDecoder reference;
    ASSERT_TRUE(reference.Create(STREAM_REVISION_20020114));
    std::vector<BYTE> expected(kPictureBytes);
    reference.DecodeOneFrame(flat.data(), static_cast<int>(flat.size()), expected.data(), TRUE);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), picture.begin()));
    EXPECT_EQ(picture[kPictureBytes], kGuard);

    EXPECT_EQ(Decode(frame, kPictureBytes - 1), 0);   // the host's picture buffer is too small
    EXPECT_TRUE(PictureUntouched());
    std::vector<BYTE> empty;
    tag_ZNFRAMEDATA lost = MakeFrame(empty, ZNFRAME_LOST);
    EXPECT_EQ(Decode(lost), 1);
    EXPECT_EQ(info.wFlags, DECODEINFO_LOST);
    EXPECT_EQ(info.nWidth + info.nHeight + info.bError, 0);
    EXPECT_TRUE(PictureUntouched());
    tag_ZNFRAMEDATA broken = MakeFrame(empty);
    EXPECT_EQ(Decode(broken), 0);
    EXPECT_EQ(info.bError, 1);
    // 704 x 576 is more than the player's 640 x 480 area: refused before decoding.
    std::vector<BYTE> large = MakeFlatPicture(704, 576, 90);
    tag_ZNFRAMEDATA tooLarge = MakeFrame(large);
    EXPECT_EQ(Decode(tooLarge, 704 * 576 * 3), 0);
    EXPECT_TRUE(PictureUntouched());
    EXPECT_EQ(player.DecodeOneFrame(&frame, info, nullptr, 0, nullptr, 0, SOUNDFMT_ADPCM), 1);
    EXPECT_EQ(player.DecodeOneFrame(nullptr, info, picture.data(), kPictureBytes, nullptr, 0, SOUNDFMT_ADPCM), 0);

    CDecodeWnd windowMode;
    EXPECT_EQ(windowMode.DecodeOneFrame(&frame, info, picture.data(), kPictureBytes, nullptr, 0, SOUNDFMT_ADPCM), 0);
}

TEST_F(DecoderOnlyTest, SoundOfAnyLengthRestartingAfterAGap)
{
    std::vector<BYTE> flat = MakeFlatPicture(160, 112, 90);
    // Longer than one CAdpcm call takes: it goes in pieces with one decoder state.
    std::vector<BYTE> code = MakeToneCode(24000);
    const std::vector<short> expected = DecodeCode(code);
    tag_ZNFRAMEDATA withSound = MakeFrame(flat, ZNFRAME_SOUND, &code);
    const int nPcmBytes = 24000 / 3 * 16;

    EXPECT_EQ(Decode(withSound, kPictureBytes, nPcmBytes - 1), 0);   // the host's buffer is too small
    EXPECT_EQ(info.nSoundLen, nPcmBytes);
    EXPECT_EQ(Decode(withSound, kPictureBytes, nPcmBytes, SOUNDFMT_8K_16BIT_MONO), 1);
    EXPECT_EQ(info.nSoundLen, 0);
    EXPECT_EQ(player.DecodeOneFrame(&withSound, info, nullptr, 0, pcm.data(), 0, SOUNDFMT_ADPCM), 1);
    EXPECT_EQ(info.nSoundLen, 0);
    // The refused calls left the decoder state alone, and a gap starts a fresh one.
    for (int nRound = 0; nRound < 2; ++nRound) {
        ASSERT_EQ(Decode(withSound, kPictureBytes, nPcmBytes), 1);
        EXPECT_EQ(info.nSoundLen, nPcmBytes);
        EXPECT_EQ(std::memcmp(expected.data(), pcm.data() + 1, expected.size() * 2), 0);
        tag_ZNFRAMEDATA silent = MakeFrame(flat);
        ASSERT_EQ(Decode(silent, kPictureBytes, nPcmBytes), 1);
        EXPECT_EQ(info.nSoundLen, 0);
    }
    // A length that ends inside a group of 3 bytes: the length is told, nothing written.
    std::vector<BYTE> ragged(code.begin(), code.begin() + 10);
    tag_ZNFRAMEDATA raggedFrame = MakeFrame(flat, ZNFRAME_SOUND, &ragged);
    EXPECT_EQ(Decode(raggedFrame, kPictureBytes, 1000), 1);
    EXPECT_EQ(info.nSoundLen, 48);
    EXPECT_TRUE(std::all_of(pcm.begin(), pcm.end(), [](BYTE b) { return b == kGuard; }));
}
