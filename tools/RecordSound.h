// Sound for zndvr record: which wave-in device each camera records from (a virtual
// microphone of its own by default, or one named device), and the check that what a
// recording holds is its microphone's signal.
#pragma once

#include "driver/virtual/CVirtualBoard.h"
#include "platform/WinTypes.h"

#include <string>
#include <vector>

// Cameras below this number take the board's own sound.
inline constexpr int BOARD_SOUND_CAMERAS = 2;

// Gives the board its sound inputs, coded as a real board codes them: input c hears
// the virtual microphone of camera c.
void AddBoardSound(tag_VIRTUALBOARD& board);

// The device id for each of nCameras cameras. Without a name every camera gets a
// virtual microphone of its own; with one, every camera asks for that device and the
// first that opens it keeps it. false, with strError, for a name no device has.
bool ChooseSoundDevices(const std::string& strDevice, int nCameras, std::vector<DWORD>& devices,
                        std::string& strError);

// Describes a camera's recorded sound (its code bytes in order): its length and, for a
// virtual microphone of ChooseSoundDevices, how closely it decodes to that signal.
// false when a virtual microphone's sound isn't its signal.
bool DescribeRecordedSound(int nCamera, bool bVirtual, const std::vector<BYTE>& code, std::string& strText);
