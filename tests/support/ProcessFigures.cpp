#include "ProcessFigures.h"

#include <psapi.h>

#include <cstddef>
#include <cstdio>

#include "common/UniqueHandle.h"

namespace {

// NtQuerySystemInformation's class 16, SystemHandleInformation: a count, then one record per
// open handle of the system, as ntdll lays them out on 64-bit Windows.
constexpr ULONG kSystemHandleInformation = 16;
constexpr LONG kStatusInfoLengthMismatch = static_cast<LONG>(0xC0000004);

struct SystemHandleEntry {
    ULONG ownerProcessId;
    BYTE objectType;
    BYTE flags;
    USHORT handleValue;
    void* object;
    ACCESS_MASK grantedAccess;
};
static_assert(offsetof(SystemHandleEntry, ownerProcessId) == 0, "SystemHandleEntry layout");
static_assert(offsetof(SystemHandleEntry, objectType) == 4, "SystemHandleEntry layout");
static_assert(offsetof(SystemHandleEntry, flags) == 5, "SystemHandleEntry layout");
static_assert(offsetof(SystemHandleEntry, handleValue) == 6, "SystemHandleEntry layout");
static_assert(offsetof(SystemHandleEntry, object) == 8, "SystemHandleEntry layout");
static_assert(offsetof(SystemHandleEntry, grantedAccess) == 16, "SystemHandleEntry layout");
static_assert(sizeof(SystemHandleEntry) == 24, "SystemHandleEntry layout");

struct SystemHandleTable {
    ULONG count;
    SystemHandleEntry entries[1];
};
static_assert(offsetof(SystemHandleTable, count) == 0, "SystemHandleTable layout");
static_assert(offsetof(SystemHandleTable, entries) == 8, "SystemHandleTable layout");

using NtQuerySystemInformationFunction = LONG(WINAPI*)(ULONG, void*, ULONG, ULONG*);

// The handles of this process in the system's handle table; 0 when it cannot be read.
DWORD HandlesInSystemTable() {
    const auto query = reinterpret_cast<NtQuerySystemInformationFunction>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    if (query == nullptr) {
        return 0;
    }
    std::vector<unsigned char> buffer(256 * 1024);
    for (;;) {
        ULONG needed = 0;
        const LONG status = query(kSystemHandleInformation, buffer.data(),
                                  static_cast<ULONG>(buffer.size()), &needed);
        if (status == kStatusInfoLengthMismatch) {
            buffer.resize(buffer.size() * 2 > needed ? buffer.size() * 2 : needed + 4096);
            continue;
        }
        if (status < 0) {
            return 0;
        }
        break;
    }
    const auto* table = reinterpret_cast<const SystemHandleTable*>(buffer.data());
    const DWORD self = GetCurrentProcessId();
    DWORD count = 0;
    for (ULONG i = 0; i < table->count; ++i) {
        if (table->entries[i].ownerProcessId == self) {
            ++count;
        }
    }
    return count;
}

// Sums the busy blocks of one heap. The heap is locked while it is walked, so no thread can
// change it under the walk.
uint64_t BytesInUse(HANDLE heap) {
    if (!HeapLock(heap)) {
        return 0;
    }
    uint64_t total = 0;
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(heap, &entry)) {
        if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) {
            total += entry.cbData;
        }
    }
    HeapUnlock(heap);
    return total;
}

std::vector<HANDLE> ProcessHeaps() {
    // Heaps may be created between the two calls; ask again until the list fits.
    std::vector<HANDLE> heaps(16);
    for (;;) {
        const DWORD count = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
        if (count <= heaps.size()) {
            heaps.resize(count);
            return heaps;
        }
        heaps.resize(count + 8);
    }
}

}  // namespace

uint64_t HeapBytesInUse() {
    uint64_t total = 0;
    for (HANDLE heap : ProcessHeaps()) {
        total += BytesInUse(heap);
    }
    return total;
}

ProcessFigures MeasureThisProcess() {
    ProcessFigures figures;
    DWORD handles = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &handles) && handles != 0) {
        figures.handles = handles;
        figures.handleSource = "GetProcessHandleCount";
    } else {
        // A running process always holds some handles: none means the count is not kept.
        figures.handles = HandlesInSystemTable();
        figures.handleSource = "system handle table";
    }

    PROCESS_MEMORY_COUNTERS_EX counters{};
    counters.cb = sizeof counters;
    if (GetProcessMemoryInfo(GetCurrentProcess(),
                             reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                             sizeof counters)) {
        figures.privateBytes = counters.PrivateUsage;
        figures.workingSet = counters.WorkingSetSize;
    }

    // The walk's own vector is freed before the sum is taken, so it does not count.
    figures.heapCount = ProcessHeaps().size();
    figures.heapBytesInUse = HeapBytesInUse();
    return figures;
}

int64_t Growth(uint64_t earlier, uint64_t later) {
    return static_cast<int64_t>(later) - static_cast<int64_t>(earlier);
}

std::string FormatFigures(const std::string& label, const ProcessFigures& figures) {
    char line[256];
    std::snprintf(line, sizeof line,
                  " handles=%lu (%s) private_bytes=%llu working_set=%llu heap_in_use=%llu "
                  "heaps=%zu",
                  static_cast<unsigned long>(figures.handles), figures.handleSource,
                  static_cast<unsigned long long>(figures.privateBytes),
                  static_cast<unsigned long long>(figures.workingSet),
                  static_cast<unsigned long long>(figures.heapBytesInUse), figures.heapCount);
    return label + line;
}
