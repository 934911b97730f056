#pragma once
// The host logging library's two functions (TarnLog.dll by default).

#include "ILog.h"

// A logging library defines LOGGER_API as __declspec(dllexport) before it includes this header;
// everyone else leaves it alone.
#ifndef LOGGER_API
#define LOGGER_API
#endif

// Returns 0 and a logger on success; anything else leaves *log null.
LOGGER_API int GetLogger(const wchar_t* name, ILog** log);
LOGGER_API void FreeLogger(ILog* log);
