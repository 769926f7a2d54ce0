#include "SerialTestSupport.h"

#include "capture/CEncodeParam.h"

#include "platform/CArchive.h"
#include "platform/CMemFile.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr DWORD kAllFlatFields = 0xF0000000;

void AppendArea(Bytes& aBytes, BYTE byState, const std::vector<DWORD>& aFields)
{
    aBytes.push_back(byState);
    for (DWORD dwValue : aFields)
        AppendLong(aBytes, dwValue);
}

CMaskInfo* NewMask(int nLeft, int nTop, int nRight, int nBottom, int nWidth = 320,
                   int nHeight = 240)
{
    CRect rc(nLeft, nTop, nRight, nBottom);
    return new CMaskInfo(&rc, nWidth, nHeight);
}

CMaskInfo* MaskAt(CEncodeParam& param, int nIndex)
{
    return static_cast<CMaskInfo*>(param.m_MaskList.GetAt(param.m_MaskList.FindIndex(nIndex)));
}

std::vector<CRect> Rects(const CEncodeParam& param)
{
    std::vector<CRect> aRects;
    for (POSITION pos = param.m_MaskList.GetHeadPosition(); pos != nullptr;)
        aRects.push_back(static_cast<const CMaskInfo*>(param.m_MaskList.GetNext(pos))->GetMaskRect());
    return aRects;
}

// Every scalar away from its default, and two areas, the second in alarm.
void FillDistinct(CEncodeParam& param)
{
    param.m_nReserved = 7;
    param.m_nQp = 21;
    param.m_nQi = 22;
    param.m_nAlarmFrameNum = 5;
    param.m_bEncodeMode = 0;
    param.m_bEncodeSound = 1;
    param.m_dwSoundDev = 2;
    param.m_nCheckSen = 30;
    param.m_bCheckVideo = 0;
    param.m_MaskList.AddTail(NewMask(1, 2, 3, 4));
    CMaskInfo* pAlarmed = NewMask(10, 20, 30, 40, 352, 288);
    pAlarmed->SetAreaMove(1, 1);
    param.m_MaskList.AddTail(pAlarmed);
}

// Loads param from exactly these bytes; returns the cause of an archive exception, or -1.
int LoadArchive(CEncodeParam& param, Bytes aBytes)
{
    CMemFile file(aBytes.data(), static_cast<UINT>(aBytes.size()));
    CArchive ar(&file, CArchive::load);
    try {
        param.Serialize(ar);
    } catch (CArchiveException* pException) {
        const int nCause = pException->m_cause;
        pException->Delete();
        return nCause;
    }
    return -1;
}

TEST(CEncodeParamDefaults, HoldTheDocumentedSettingsAndNoArea)
{
    CEncodeParam param;
    EXPECT_EQ(std::vector<long>({param.m_nReserved, param.m_nQp, param.m_nQi, param.m_nAlarmFrameNum,
                                 param.m_bEncodeMode, param.m_bEncodeSound, static_cast<long>(param.m_dwSoundDev),
                                 param.m_nCheckSen, param.m_bCheckVideo}),
              std::vector<long>({159, 10, 10, 3, 1, 0, 0xFFFFFFFFL, 16, 1}));
    EXPECT_TRUE(param.m_MaskList.IsEmpty());
    std::unique_ptr<CObject> pMade(CRuntimeClass::CreateObject("CEncodeParam"));
    ASSERT_NE(pMade, nullptr);
    EXPECT_TRUE(pMade->IsKindOf(RUNTIME_CLASS(CEncodeParam)));
}

// Four bytes a field and twenty-five an area after the area count; the signal check
// bit has no flat form.
TEST(CEncodeParamFlatBuffer, WritesAllFieldsInWireOrderWithExactBytes)
{
    CEncodeParam param;
    EXPECT_EQ(param.GetSize(kAllFlatFields), 16u);
    EXPECT_EQ(param.GetSize(0x08000000), 0u);
    FillDistinct(param);
    EXPECT_EQ(param.GetSize(0x20000000), 54u);
    EXPECT_EQ(param.GetSize(0xF8000000), 66u);
    Bytes aExpected;
    AppendLong(aExpected, 22);
    AppendLong(aExpected, 0x2);
    AppendLong(aExpected, 30);
    AppendLong(aExpected, 2);
    AppendArea(aExpected, 0x00, {320, 240, 1, 2, 3, 4});
    AppendArea(aExpected, 0x03, {352, 288, 10, 20, 30, 40});

    Bytes aBytes(aExpected.size() + 1, 0xEE);
    EXPECT_EQ(param.WriteToBuf(aBytes.data(), static_cast<DWORD>(aBytes.size()), 0xF8000000),
              aExpected.size());
    aExpected.push_back(0xEE);
    EXPECT_EQ(aBytes, aExpected);
}

// The two flags travel as bits 0 and 1 and come back as exactly one or zero.
TEST(CEncodeParamFlatBuffer, FlagsAreBitsAndComeBackAsOneOrZero)
{
    CEncodeParam param;
    param.m_bEncodeMode = 5;
    param.m_bEncodeSound = -3;
    BYTE aBuf[4] = {};
    param.WriteToBuf(aBuf, sizeof(aBuf), 0x40000000);
    CEncodeParam read;
    read.m_bEncodeMode = 9;
    EXPECT_EQ(read.ReadFromBuf(aBuf, 4, 0x40000000), 4u);
    EXPECT_EQ(std::vector<int>({read.m_bEncodeMode, read.m_bEncodeSound}), std::vector<int>({1, 1}));
    const BYTE aOnlyHighBits[4] = {0xFC, 0xFF, 0xFF, 0xFF};
    std::memcpy(aBuf, aOnlyHighBits, 4);
    EXPECT_EQ(read.ReadFromBuf(aBuf, 4, 0x40000000), 4u);
    EXPECT_EQ(std::vector<int>({read.m_bEncodeMode, read.m_bEncodeSound}), std::vector<int>({0, 0}));
}

// Each pattern of the four flat-buffer bits: the selected fields travel, the others
// keep the reader's defaults, and the reader consumes exactly what the writer wrote.
TEST(CEncodeParamFlatBuffer, EveryMaskPatternRoundTripsItsFieldsOnly)
{
    for (DWORD dwPattern = 0; dwPattern < 16; ++dwPattern) {
        const DWORD dwMask = dwPattern << 28;
        SCOPED_TRACE(dwMask);
        CEncodeParam source;
        FillDistinct(source);
        const DWORD dwSize = source.GetSize(dwMask);
        Bytes aBuf(dwSize + 1);
        ASSERT_EQ(source.WriteToBuf(aBuf.data(), dwSize + 1, dwMask), dwSize);

        CEncodeParam read;
        read.m_MaskList.AddTail(NewMask(7, 7, 9, 9));
        EXPECT_EQ(read.ReadFromBuf(aBuf.data(), dwSize + 1, dwMask), dwSize);
        const CEncodeParam defaults;
        const bool bQuantiser = (dwMask & 0x80000000) != 0;
        const bool bMode = (dwMask & 0x40000000) != 0;
        const bool bAreas = (dwMask & 0x20000000) != 0;
        const bool bSensitivity = (dwMask & 0x10000000) != 0;
        EXPECT_EQ(read.m_nQi, bQuantiser ? 22 : defaults.m_nQi);
        EXPECT_EQ(read.m_nQp, bQuantiser ? 22 : defaults.m_nQp);
        EXPECT_EQ(read.m_bEncodeMode, bMode ? 0 : defaults.m_bEncodeMode);
        EXPECT_EQ(read.m_bEncodeSound, bMode ? 1 : defaults.m_bEncodeSound);
        EXPECT_EQ(read.m_nCheckSen, bSensitivity ? 30 : defaults.m_nCheckSen);
        EXPECT_EQ(read.m_nAlarmFrameNum, defaults.m_nAlarmFrameNum);
        EXPECT_EQ(read.m_dwSoundDev, defaults.m_dwSoundDev);
        EXPECT_EQ(read.m_bCheckVideo, defaults.m_bCheckVideo);
        if (bAreas) {
            ASSERT_EQ(read.m_MaskList.GetCount(), 2);
            EXPECT_TRUE(*MaskAt(read, 0) == *MaskAt(source, 0));
            EXPECT_TRUE(*MaskAt(read, 1) == *MaskAt(source, 1));
            EXPECT_EQ(MaskAt(read, 0)->IsAlarm(), 0);
            EXPECT_EQ(MaskAt(read, 1)->IsAlarm(), 1);
            EXPECT_EQ(MaskAt(read, 1)->IsMove(), 1);
        } else {
            EXPECT_EQ(Rects(read), (std::vector<CRect>{CRect(7, 7, 9, 9)}));
        }
    }
}

// A buffer is refused whole, with nothing changed, when it ends before the fields that
// the mask and its own area count announce; a write refuses a buffer below its size.
TEST(CEncodeParamFlatBuffer, ShortOrHostileBuffersAreRefusedWithoutChange)
{
    CEncodeParam source;
    FillDistinct(source);
    const DWORD dwSize = source.GetSize(kAllFlatFields);
    Bytes aBuf(dwSize, 0xEE);
    EXPECT_EQ(source.WriteToBuf(aBuf.data(), dwSize - 1, kAllFlatFields), 0u);
    EXPECT_EQ(aBuf, Bytes(dwSize, 0xEE));
    EXPECT_EQ(source.WriteToBuf(nullptr, dwSize, kAllFlatFields), 0u);
    source.WriteToBuf(aBuf.data(), dwSize, kAllFlatFields);
    {
        CEncodeParam read;
        EXPECT_EQ(read.ReadFromBuf(nullptr, dwSize, kAllFlatFields), 0u);
        EXPECT_EQ(read.ReadFromBuf(aBuf.data(), 0, kAllFlatFields), 0u);
        EXPECT_EQ(read.ReadFromBuf(aBuf.data(), dwSize, 0), 0u);
        EXPECT_EQ(read.m_nQi, 10);
    }

    for (DWORD dwShort = 1; dwShort < dwSize; ++dwShort) {
        Bytes aExact(aBuf.begin(), aBuf.begin() + dwShort);
        CEncodeParam read;
        read.m_MaskList.AddTail(NewMask(7, 7, 9, 9));
        EXPECT_EQ(read.ReadFromBuf(aExact.data(), dwShort, kAllFlatFields), 0u) << dwShort;
        EXPECT_EQ(read.m_nQi, 10);
        EXPECT_EQ(Rects(read), (std::vector<CRect>{CRect(7, 7, 9, 9)}));
    }

    // An area count of zero takes the areas away; a count beyond the buffer is refused.
    CEncodeParam emptied;
    emptied.m_MaskList.AddTail(NewMask(1, 1, 2, 2));
    BYTE aZeroCount[4] = {};
    EXPECT_EQ(emptied.ReadFromBuf(aZeroCount, sizeof(aZeroCount), 0x20000000), 4u);
    EXPECT_TRUE(emptied.m_MaskList.IsEmpty());
    for (DWORD dwCount : {0xFFFFFFFFu, 0x0A3D70A4u, 3u}) {
        Bytes aHuge;
        AppendLong(aHuge, dwCount);
        AppendArea(aHuge, 0, {320, 240, 0, 0, 8, 8});
        AppendArea(aHuge, 0, {320, 240, 0, 0, 8, 8});
        CEncodeParam read;
        EXPECT_EQ(read.ReadFromBuf(aHuge.data(), static_cast<DWORD>(aHuge.size()), 0x20000000), 0u);
        EXPECT_TRUE(read.m_MaskList.IsEmpty());
    }
}

TEST(CEncodeParamArchive, StoresNineFieldsThenTheAreasWithExactBytes)
{
    CEncodeParam param;
    FillDistinct(param);
    Bytes aExpected;
    for (DWORD dwValue : {21u, 22u, 5u, 0u, 1u, 2u, 30u, 2u, 0u})
        AppendLong(aExpected, dwValue);
    for (DWORD dwValue : {320u, 240u, 1u, 2u, 3u, 4u, 352u, 288u, 10u, 20u, 30u, 40u})
        AppendLong(aExpected, dwValue);
    EXPECT_EQ(StoreArchive(param), aExpected);
}

TEST(CEncodeParamArchive, LoadingReplacesSettingsAndAreasWithClearState)
{
    CEncodeParam source;
    FillDistinct(source);
    CEncodeParam loaded;
    loaded.m_MaskList.AddTail(NewMask(7, 7, 9, 9));
    EXPECT_EQ(LoadArchive(loaded, StoreArchive(source)), -1);
    EXPECT_EQ(StoreArchive(loaded), StoreArchive(source));
    EXPECT_EQ(loaded.m_nReserved, 159);
    ASSERT_EQ(loaded.m_MaskList.GetCount(), 2);
    EXPECT_EQ(MaskAt(loaded, 1)->IsAlarm(), 0);
}

TEST(CEncodeParamArchive, ShortOrOvercountedArchivesThrowWithoutLeaking)
{
    CEncodeParam source;
    FillDistinct(source);
    Bytes aStored = StoreArchive(source);
    for (std::size_t nCut : {std::size_t{0}, std::size_t{20}, std::size_t{36}, aStored.size() - 1}) {
        CEncodeParam loaded;
        EXPECT_EQ(LoadArchive(loaded, Bytes(aStored.begin(), aStored.begin() + nCut)),
                  CArchiveException::endOfFile)
            << nCut;
    }
    aStored[28] = 0xFF;
    aStored[29] = 0xFF;
    aStored[30] = 0xFF;
    aStored[31] = 0xFF;
    CEncodeParam loaded;
    EXPECT_EQ(LoadArchive(loaded, aStored), CArchiveException::endOfFile);
    EXPECT_EQ(loaded.m_MaskList.GetCount(), 3);
}

TEST(CEncodeParamCopy, AssignmentIsDeepAndStartsAreasClear)
{
    CEncodeParam source;
    FillDistinct(source);
    CEncodeParam copy;
    copy.m_MaskList.AddTail(NewMask(7, 7, 9, 9));
    copy = source;
    EXPECT_EQ(StoreArchive(copy), StoreArchive(source));
    EXPECT_EQ(copy.m_nReserved, 7);
    EXPECT_EQ(copy.m_bCheckVideo, 0);
    ASSERT_EQ(copy.m_MaskList.GetCount(), 2);
    EXPECT_NE(MaskAt(copy, 1), MaskAt(source, 1));
    EXPECT_EQ(MaskAt(copy, 1)->IsAlarm(), 0);

    MaskAt(source, 0)->m_rcMask = CRect(100, 100, 200, 200);
    source.DeleteMaskInfo();
    EXPECT_EQ(Rects(copy), (std::vector<CRect>{CRect(1, 2, 3, 4), CRect(10, 20, 30, 40)}));

    const CEncodeParam& alias = copy;
    copy = alias;
    EXPECT_EQ(copy.m_MaskList.GetCount(), 2);
}

TEST(CEncodeParamCopy, AddMaskInfoAppendsScaledCopies)
{
    CEncodeParam param;
    CMaskInfo mask(nullptr, 352, 288);
    mask.m_rcMask = CRect(176, 144, 352, 288);
    mask.SetAreaMove(1, 1);
    EXPECT_EQ(param.AddMaskInfo(&mask, 704, 576), 1);
    EXPECT_EQ(param.AddMaskInfo(static_cast<CMaskInfo*>(nullptr), 704, 576), 0);
    ASSERT_EQ(param.m_MaskList.GetCount(), 1);
    CMaskInfo* pAdded = MaskAt(param, 0);
    EXPECT_NE(pAdded, &mask);
    EXPECT_EQ(pAdded->GetMaskRect(), CRect(352, 288, 704, 576));
    EXPECT_EQ(pAdded->m_nWidth, 704);
    EXPECT_EQ(pAdded->IsAlarm(), 0);
    EXPECT_EQ(mask.GetMaskRect(), CRect(176, 144, 352, 288));

    CObList list;
    list.AddTail(&mask);
    list.AddTail(static_cast<CObject*>(nullptr));
    list.AddTail(&mask);
    EXPECT_EQ(param.AddMaskInfo(&list, 352, 288), 1);
    EXPECT_EQ(param.m_MaskList.GetCount(), 3);
}

TEST(CEncodeParamSetParam, EachBitCopiesItsFieldsAndTheAreasBitEverything)
{
    CEncodeParam source;
    FillDistinct(source);

    CEncodeParam target;
    target.SetParam(nullptr, 0xFFFFFFFF);
    target.SetParam(&source, 0x10000000);
    EXPECT_EQ(target.m_nCheckSen, 30);
    EXPECT_EQ(target.m_nQi, 10);
    target.SetParam(&source, 0x80000000);
    EXPECT_EQ(target.m_nQp, 21);
    EXPECT_EQ(target.m_nQi, 22);
    EXPECT_EQ(target.m_bEncodeMode, 1);

    CEncodeParam channel;
    channel.m_MaskList.AddTail(NewMask(7, 7, 9, 9));
    channel.SetParam(&source, 0xD8000000);
    EXPECT_EQ(channel.m_nQi, 22);
    EXPECT_EQ(channel.m_bEncodeSound, 1);
    EXPECT_EQ(channel.m_nCheckSen, 30);
    EXPECT_EQ(channel.m_bCheckVideo, 0);
    EXPECT_EQ(channel.m_nAlarmFrameNum, 3);
    EXPECT_EQ(Rects(channel), (std::vector<CRect>{CRect(7, 7, 9, 9)}));

    // The areas bit copies everything, and leaves the source its areas.
    CEncodeParam whole;
    whole.SetParam(&source, 0x20000000);
    EXPECT_EQ(StoreArchive(whole), StoreArchive(source));
    EXPECT_EQ(whole.m_nReserved, 7);
    EXPECT_EQ(source.m_MaskList.GetCount(), 2);
}

class CEncodeParamSetMaskInfo : public ::testing::Test {
protected:
    CEncodeParamSetMaskInfo()
    {
        m_pKept = NewMask(0, 0, 10, 10);
        m_pDropped = NewMask(20, 20, 30, 30);
        m_channel.m_MaskList.AddTail(m_pDropped);
        m_channel.m_MaskList.AddTail(m_pKept);
        m_pKept->SetAreaMove(1, 3);
        m_pKept->SetAreaMove(1, 3);
    }

    CEncodeParam m_channel;
    CMaskInfo* m_pKept;
    CMaskInfo* m_pDropped;
};

// Null or the object itself changes nothing; a host takes its settings over, all but
// the signal check, and a host without areas clears the channel's.
TEST_F(CEncodeParamSetMaskInfo, TakesSettingsButNotTheSignalCheck)
{
    m_channel.SetMaskInfo(nullptr);
    m_channel.SetMaskInfo(&m_channel);
    ASSERT_EQ(m_channel.m_MaskList.GetCount(), 2);
    EXPECT_EQ(MaskAt(m_channel, 1), m_pKept);
    CEncodeParam host;
    FillDistinct(host);
    host.DeleteMaskInfo();
    m_channel.SetMaskInfo(&host);
    EXPECT_TRUE(m_channel.m_MaskList.IsEmpty());
    EXPECT_EQ(m_channel.m_nReserved, 7);
    EXPECT_EQ(m_channel.m_nQp, 21);
    EXPECT_EQ(m_channel.m_nAlarmFrameNum, 5);
    EXPECT_EQ(m_channel.m_dwSoundDev, 2u);
    EXPECT_EQ(m_channel.m_bCheckVideo, 1);
}

// The channel ends with the host's list in the host's order; an area it already had
// keeps its object and with it the running count, and an area the host left out goes.
TEST_F(CEncodeParamSetMaskInfo, ResultIsTheHostsListKeepingLiveState)
{
    CEncodeParam host;
    CMaskInfo* pNew = NewMask(50, 50, 60, 60);
    host.m_MaskList.AddTail(pNew);
    host.m_MaskList.AddTail(NewMask(0, 0, 10, 10));
    m_channel.SetMaskInfo(&host);

    EXPECT_TRUE(host.m_MaskList.IsEmpty());
    ASSERT_EQ(m_channel.m_MaskList.GetCount(), 2);
    EXPECT_EQ(MaskAt(m_channel, 0), pNew);
    EXPECT_EQ(MaskAt(m_channel, 1), m_pKept);
    m_pKept->SetAreaMove(1, 3);
    EXPECT_EQ(m_pKept->IsAlarm(), 1);
}

TEST_F(CEncodeParamSetMaskInfo, EachLiveAreaServesOneEqualAreaOfTheHost)
{
    CEncodeParam host;
    host.m_MaskList.AddTail(NewMask(0, 0, 10, 10));
    CMaskInfo* pSecond = NewMask(0, 0, 10, 10);
    pSecond->SetAreaMove(1, 1);
    host.m_MaskList.AddTail(pSecond);
    host.m_MaskList.AddTail(NewMask(20, 20, 30, 30, 640, 480));
    m_channel.SetMaskInfo(&host);

    ASSERT_EQ(m_channel.m_MaskList.GetCount(), 3);
    EXPECT_EQ(MaskAt(m_channel, 0), m_pKept);
    EXPECT_EQ(MaskAt(m_channel, 1), pSecond);
    EXPECT_EQ(MaskAt(m_channel, 1)->IsAlarm(), 1);
    EXPECT_EQ(MaskAt(m_channel, 2)->m_nWidth, 640);
}

} // namespace
