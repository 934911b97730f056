#pragma once
// FILETIME and SYSTEMTIME for code that must also build without Windows headers.
// On Windows these are the system's own types; elsewhere, layout-identical stand-ins.

#ifdef _WIN32
#include <windef.h>
#include <minwinbase.h>
#else
#include <cstdint>

struct FILETIME {
    uint32_t dwLowDateTime;
    uint32_t dwHighDateTime;
};

struct SYSTEMTIME {
    uint16_t wYear;
    uint16_t wMonth;
    uint16_t wDayOfWeek;
    uint16_t wDay;
    uint16_t wHour;
    uint16_t wMinute;
    uint16_t wSecond;
    uint16_t wMilliseconds;
};
#endif

static_assert(sizeof(FILETIME) == 8, "FILETIME is two 32-bit words");
static_assert(sizeof(SYSTEMTIME) == 16, "SYSTEMTIME is eight 16-bit fields");
