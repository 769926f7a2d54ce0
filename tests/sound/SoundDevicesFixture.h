// The virtual sound devices of the sound tests: a speaker, a phone that plays mono 8 kHz
// only, and the given inputs; no devices of the machine. Restores the default set after.
#pragma once

#include "platform/CVirtualWave.h"

#include <gtest/gtest.h>

#include <initializer_list>

class SoundDevicesFixture : public ::testing::Test {
protected:
    // Inputs named as given, each with the signal of dwSeed.
    static void InstallDevices(std::initializer_list<const char*> inputs, DWORD dwSeed)
    {
        CVirtualWave::Clear();
        CVirtualWave::EnableSystemDevices(false);
        tag_VIRTUALWAVEDEVICE device;
        device.strName = "speaker";
        CVirtualWave::AddOutput(device);
        device.strName = "phone";
        device.wMaxChannels = 1;
        device.dwMaxRate = 8000;
        CVirtualWave::AddOutput(device);
        for (const char* pszName : inputs) {
            device = tag_VIRTUALWAVEDEVICE{};
            device.strName = pszName;
            device.signal.dwSeed = dwSeed;
            CVirtualWave::AddInput(device);
        }
    }

    void TearDown() override { CVirtualWave::InstallDefault(); }
};
