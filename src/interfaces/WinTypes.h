#pragma once
// FILETIME and SYSTEMTIME for code that must also build without Windows headers.
// Where the Windows headers exist these are the system's own types; elsewhere (the native build,
// or a Visual C++ host compiled without the Windows SDK) layout-identical stand-ins under the
// same names.

#if defined(_WIN32) && defined(__MINGW32__)
#include <windef.h>
#include <minwinbase.h>
#elif defined(_WIN32) && defined(__has_include) && __has_include(<windows.h>)
#include <windows.h>
#else
#include <stdint.h>

typedef struct _FILETIME {
    uint32_t dwLowDateTime;
    uint32_t dwHighDateTime;
} FILETIME;

typedef struct _SYSTEMTIME {
    uint16_t wYear;
    uint16_t wMonth;
    uint16_t wDayOfWeek;
    uint16_t wDay;
    uint16_t wHour;
    uint16_t wMinute;
    uint16_t wSecond;
    uint16_t wMilliseconds;
} SYSTEMTIME;
#endif

static_assert(sizeof(FILETIME) == 8, "FILETIME is two 32-bit words");
static_assert(sizeof(SYSTEMTIME) == 16, "SYSTEMTIME is eight 16-bit fields");
