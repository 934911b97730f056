#pragma once
// The calling thread's last Windows error. Natively (tests, fuzzing) a thread-local stand-in.

#include <cstdint>

uint32_t ReadLastError();
void WriteLastError(uint32_t error);
