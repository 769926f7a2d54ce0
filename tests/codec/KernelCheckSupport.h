// Helpers of the kernel checks: the kernel tables of every form that this build and
// processor offer, a seeded generator whose seed is printed and can be set from the
// environment, buffers with guard bytes on both sides, and the timing mode.
#pragma once

#include "codec/KernelTable.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace kernelcheck {

// The seed of a run: ZNDVR_CHECK_SEED if set, a fixed default otherwise, so that a
// failure seen once can be repeated.
inline std::uint32_t CheckSeed()
{
    const char* strSeed = std::getenv("ZNDVR_CHECK_SEED");
    const std::uint32_t nSeed = strSeed != nullptr ? static_cast<std::uint32_t>(std::strtoul(strSeed, nullptr, 0))
                                                   : 0x5EED1234u;
    return nSeed;
}

// Uniform integers in [nLow, nHigh] from the raw output of mt19937, which is the same on
// every platform (the standard distributions are not).
class CRandom {
public:
    explicit CRandom(std::uint32_t nSeed) : m_engine(nSeed) {}

    int Between(int nLow, int nHigh)
    {
        const std::uint64_t nSpan = static_cast<std::uint64_t>(static_cast<std::int64_t>(nHigh) - nLow + 1);
        return static_cast<int>(nLow + static_cast<std::int64_t>(m_engine() % nSpan));
    }

private:
    std::mt19937 m_engine;
};

inline constexpr std::uint8_t kGuardByte = 0xA5;
inline constexpr std::size_t kGuardBytes = 64;

// A buffer of nCount elements with guard bytes before and after; the payload starts
// filled with a pattern so that a kernel that leaves part of its output unwritten
// shows up in the comparison too.
template <class T>
class CGuarded {
public:
    explicit CGuarded(std::size_t nCount, std::uint8_t byFill = 0x3C)
        : m_nCount(nCount), m_bytes(nCount * sizeof(T) + 2 * kGuardBytes, kGuardByte)
    {
        std::memset(m_bytes.data() + kGuardBytes, byFill, nCount * sizeof(T));
    }

    T* Data() { return reinterpret_cast<T*>(m_bytes.data() + kGuardBytes); }
    std::size_t Count() const { return m_nCount; }
    std::size_t Bytes() const { return m_nCount * sizeof(T); }

    bool GuardsIntact() const
    {
        for (std::size_t n = 0; n < kGuardBytes; ++n) {
            if (m_bytes[n] != kGuardByte || m_bytes[kGuardBytes + Bytes() + n] != kGuardByte)
                return false;
        }
        return true;
    }

    bool SameAs(CGuarded& other) { return Bytes() == other.Bytes() && std::memcmp(Data(), other.Data(), Bytes()) == 0; }

private:
    std::size_t m_nCount;
    std::vector<std::uint8_t> m_bytes;
};

// With ZNDVR_CHECK_BENCH=1 set, each check also times every form on its inputs and
// prints the time per call; it asserts nothing about speed.
inline bool IsTimingMode()
{
    const char* strMode = std::getenv("ZNDVR_CHECK_BENCH");
    return strMode != nullptr && std::strcmp(strMode, "1") == 0;
}

// Times run(table) for every form, nCalls kernel calls per run, and prints the time
// per call with the speed-up over the plain form.
template <class Run>
void TimeForms(const char* strKernel, const std::vector<tag_KERNELFORM>& forms, long nCalls, Run run)
{
    if (!IsTimingMode())
        return;
    constexpr int kRepeats = 20;
    double dPlainNs = 0;
    for (const tag_KERNELFORM& form : forms) {
        double dBestNs = 0;
        for (int r = 0; r < kRepeats; ++r) {
            const auto start = std::chrono::steady_clock::now();
            run(form.table);
            const double dNs = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
            dBestNs = r == 0 || dNs < dBestNs ? dNs : dBestNs;
        }
        const double dPerCall = dBestNs / static_cast<double>(nCalls);
        if (dPlainNs == 0)
            dPlainNs = dPerCall;
        std::printf("%-24s %-8s %10.1f ns %7.2fx\n", strKernel, form.strName.c_str(), dPerCall, dPlainNs / dPerCall);
    }
}

} // namespace kernelcheck
