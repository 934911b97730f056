#pragma once
// The host logging library's two functions (TarnLog.dll by default).

#include "ILog.h"

// Returns 0 and a logger on success; anything else leaves *log null.
int GetLogger(const wchar_t* name, ILog** log);
void FreeLogger(ILog* log);
