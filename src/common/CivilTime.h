#pragma once
// Our own proleptic-Gregorian arithmetic between SYSTEMTIME and FILETIME (100-ns ticks since
// 1601-01-01), with the same validation and results as the Windows functions of those names.

#include <cstdint>

#include "../interfaces/WinTypes.h"

// False (and *fileTime untouched) for fields Windows rejects: year outside 1601..30827, month
// outside 1..12, a day not in the month, hour > 23, minute or second > 59, ms > 999.
// The day of week is ignored.
bool CivilSystemTimeToFileTime(const SYSTEMTIME& systemTime, FILETIME* fileTime);

// False for values above 0x7FFFFFFFFFFFFFFF. Fills the day of week.
bool CivilFileTimeToSystemTime(const FILETIME& fileTime, SYSTEMTIME* systemTime);

inline uint64_t FileTimeToTicks(const FILETIME& fileTime) {
    return (static_cast<uint64_t>(fileTime.dwHighDateTime) << 32) | fileTime.dwLowDateTime;
}

inline FILETIME TicksToFileTime(uint64_t ticks) {
    FILETIME fileTime{};
    fileTime.dwLowDateTime = static_cast<uint32_t>(ticks);
    fileTime.dwHighDateTime = static_cast<uint32_t>(ticks >> 32);
    return fileTime;
}
