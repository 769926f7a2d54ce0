// The settings of one camera: coding, sound, motion sensitivity and the motion areas,
// with a flat buffer form selected field by field and an archive form. A host fills one;
// each camera channel keeps its own deep copy and uses it on the window thread only (the
// encoder thread gets the values it needs with each frame).
#pragma once

#include "capture/CMaskInfo.h"
#include "platform/CObList.h"
#include "platform/CObject.h"
#include "platform/CRect.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

class CArchive;

// Bits of the mask that selects fields in SetParam and the flat buffer form.
inline constexpr DWORD ENCODEPARAM_QUANTISER = 0x80000000;
inline constexpr DWORD ENCODEPARAM_MODE = 0x40000000;
inline constexpr DWORD ENCODEPARAM_MASKS = 0x20000000;
inline constexpr DWORD ENCODEPARAM_CHECKSEN = 0x10000000;
// SetParam only; the flat buffer doesn't carry it.
inline constexpr DWORD ENCODEPARAM_CHECKVIDEO = 0x08000000;

class ZNDVR_API CEncodeParam : public CObject {
    DECLARE_SERIAL(CEncodeParam)

public:
    // The sound device id that stands for the system's default wave-in device.
    static constexpr DWORD kWaveMapper = 0xFFFFFFFF;

    CEncodeParam();
    ~CEncodeParam() override;

    // Takes every setting and a copy of every area; the new areas start with clear state.
    void operator=(const CEncodeParam& src);

    void DeleteMaskInfo();
    // Appends a copy of pMask taken to the given video size; 0 for a null pMask, else 1.
    int AddMaskInfo(CMaskInfo* pMask, int nWidth, int nHeight);
    // The same for every non-null area of pList; returns 1.
    int AddMaskInfo(CObList* pList, int nWidth, int nHeight);

    // Bytes that WriteToBuf needs for the fields of dwMask.
    DWORD GetSize(DWORD dwMask);
    // Writes the fields of dwMask; returns the bytes written, 0 with nothing written when
    // pBuf is null or dwSize is below GetSize(dwMask).
    DWORD WriteToBuf(BYTE* pBuf, DWORD dwSize, DWORD dwMask);
    // Reads the fields of dwMask; returns the bytes read. A null pBuf, or a buffer
    // shorter than the fields it announces (its area count included), is refused with 0
    // and leaves the object unchanged.
    DWORD ReadFromBuf(BYTE* pBuf, DWORD dwSize, DWORD dwMask);

    // Copies the settings of pParam that dwMask selects; the areas bit copies everything.
    void SetParam(CEncodeParam* pParam, DWORD dwMask);

    // Takes the settings (all but m_bCheckVideo) and the areas of pParam, leaving
    // pParam's list empty. A host sends its whole wish, so the areas afterwards are
    // exactly pParam's list, in its order, with one rule: walking that list in order, an
    // area equal (operator==: same size, same rectangle) to an area that this object
    // already holds, and that no earlier area has claimed, is replaced by this object's
    // area, which keeps its running motion state; pParam's copy is deleted. The other
    // areas of pParam come over as they are, with their state. Areas of this object
    // that pParam's list doesn't hold are deleted. A null pParam, or this object itself,
    // does nothing.
    void SetMaskInfo(CEncodeParam* pParam);

    // The archive form, the same both ways, without class tags. Loading replaces the areas.
    void Serialize(CArchive& ar) override;

    int m_nReserved = 159;
    int m_nQp = 10;
    int m_nQi = 10;
    int m_nAlarmFrameNum = 3;
    int m_bEncodeMode = 1;
    int m_bEncodeSound = 0;
    DWORD m_dwSoundDev = kWaveMapper;
    int m_nCheckSen = 16;
    CObList m_MaskList;
    int m_bCheckVideo = 1;

private:
    // Takes the scalar settings that SetMaskInfo moves over.
    void CopyScalarSettings(const CEncodeParam& src);
    // Replaces each area of newList that equals an unclaimed area of this list by that
    // area, deleting the copy; then deletes the areas of this list that found no partner.
    void KeepMatchingAreas(CObList& newList);
    // Position of the first area of this list equal to mask, or null.
    POSITION FindEqualArea(const CMaskInfo& mask) const;
};
