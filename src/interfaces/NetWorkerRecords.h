#pragma once
// The records that executors hand to the host's callbacks.

#include <stddef.h>
#include <stdint.h>

#include "WinTypes.h"

// One accepted catalogue object, passed to INetWorkerFileFoundCallBack::NetWorkerFileFound.
struct NetWorkerFileInfo {
    uint32_t index;  // place in the executor's catalogue, from 0
    // Creation time as the server reports it, milliseconds 0. The day of week is 0 from the
    // in-process executor and filled in through the helper (the time crosses the pipe as a
    // FILETIME and is turned back into a SYSTEMTIME).
    SYSTEMTIME backupTime;
    const char* path;       // XBSA pathName; owned by the executor's catalogue
    uint64_t size;          // announced size: 0 for .edb/.stm, 5,242,880 for .log
    uint64_t restoreOrder;  // XBSA restoreOrder, left half high
};

// Passed to INetWorkerUpdateProgressCallBack::UpdateProgress.
struct NetWorkerProgressInfo {
    uint32_t state;      // 1 from the first report of a file on
    uint32_t bytesDone;  // bytes written since the previous report, not a running total
};

// Passed to INetWorkerErrorCallBack::AllocationError.
struct NetWorkerAllocationInfo {
    uint32_t reason;             // NetWorkerAllocationReason
    uint32_t itemsFound;         // objects accepted when memory ran out
    uint64_t catalogueSize;      // entries in the catalogue (growth failures only)
    uint64_t catalogueCapacity;  // entries reserved (growth failures only)
};

enum NetWorkerAllocationReason : uint32_t {
    AllocationReasonCatalogueGrowth = 0,
    AllocationReasonEntryStrings = 4,
};

static_assert(offsetof(NetWorkerFileInfo, index) == 0, "NetWorkerFileInfo layout");
static_assert(offsetof(NetWorkerFileInfo, backupTime) == 4, "NetWorkerFileInfo layout");
static_assert(offsetof(NetWorkerFileInfo, path) == 24, "NetWorkerFileInfo layout");
static_assert(offsetof(NetWorkerFileInfo, size) == 32, "NetWorkerFileInfo layout");
static_assert(offsetof(NetWorkerFileInfo, restoreOrder) == 40, "NetWorkerFileInfo layout");
static_assert(sizeof(NetWorkerFileInfo) == 48, "NetWorkerFileInfo layout");

static_assert(offsetof(NetWorkerProgressInfo, state) == 0, "NetWorkerProgressInfo layout");
static_assert(offsetof(NetWorkerProgressInfo, bytesDone) == 4, "NetWorkerProgressInfo layout");
static_assert(sizeof(NetWorkerProgressInfo) == 8, "NetWorkerProgressInfo layout");

static_assert(offsetof(NetWorkerAllocationInfo, reason) == 0, "NetWorkerAllocationInfo layout");
static_assert(offsetof(NetWorkerAllocationInfo, itemsFound) == 4, "NetWorkerAllocationInfo layout");
static_assert(offsetof(NetWorkerAllocationInfo, catalogueSize) == 8,
              "NetWorkerAllocationInfo layout");
static_assert(offsetof(NetWorkerAllocationInfo, catalogueCapacity) == 16,
              "NetWorkerAllocationInfo layout");
static_assert(sizeof(NetWorkerAllocationInfo) == 24, "NetWorkerAllocationInfo layout");
