#include "LastError.h"

#ifdef _WIN32
#include <windows.h>

uint32_t ReadLastError() { return GetLastError(); }
void WriteLastError(uint32_t error) { SetLastError(error); }
#else
namespace {
thread_local uint32_t t_lastError = 0;
}

uint32_t ReadLastError() { return t_lastError; }
void WriteLastError(uint32_t error) { t_lastError = error; }
#endif
