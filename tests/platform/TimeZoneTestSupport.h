// A test's own local time zone: set for the test's lifetime, the process's zone put back
// afterwards; and the central European zone with both changes of the clocks.
#pragma once

#include "platform/WinTypes.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>

class ScopedTimeZone {
public:
    explicit ScopedTimeZone(LPCSTR pszZone)
    {
        if (LPCSTR pszOld = std::getenv("TZ"); pszOld != nullptr)
            m_strOldZone = pszOld;
        setenv("TZ", pszZone, 1);
        tzset();
    }

    ~ScopedTimeZone()
    {
        if (m_strOldZone)
            setenv("TZ", m_strOldZone->c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }

    ScopedTimeZone(const ScopedTimeZone&) = delete;
    ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

private:
    std::optional<std::string> m_strOldZone;
};

// Central European time from the zone database, or the same rules written out where the
// machine has no zone database.
inline LPCSTR BerlinZone()
{
    return std::filesystem::exists("/usr/share/zoneinfo/Europe/Berlin") ? "Europe/Berlin"
                                                                        : "CET-1CEST,M3.5.0,M10.5.0/3";
}
