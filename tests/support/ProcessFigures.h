#pragma once
// What a long-running process holds, read from inside it: its kernel handles, its memory as
// Windows accounts it, and the bytes in use on its heaps. Windows only.

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

struct ProcessFigures {
    // GetProcessHandleCount; where that reports none (Wine's answer), the process's entries in
    // the system's handle table.
    DWORD handles = 0;
    const char* handleSource = "";
    uint64_t privateBytes = 0;    // PrivateUsage (Wine leaves it 0)
    uint64_t workingSet = 0;      // WorkingSetSize
    uint64_t heapBytesInUse = 0;  // busy blocks of every heap of the process
    size_t heapCount = 0;
};

ProcessFigures MeasureThisProcess();

// The bytes in busy blocks of every heap of this process.
uint64_t HeapBytesInUse();

// `later` minus `earlier`, signed.
int64_t Growth(uint64_t earlier, uint64_t later);

// One line: "<label> handles=... private_bytes=... working_set=... heap_in_use=... heaps=...".
std::string FormatFigures(const std::string& label, const ProcessFigures& figures);
