#pragma once
// Callback interfaces that the host implements. They have no destructor slot: the executor
// never owns or deletes a callback object, so the destructor is protected and non-virtual.

#include <stdint.h>

#include "NetWorkerRecords.h"

// Codes passed to INetWorkerErrorCallBack::NetWorkerError.
enum NetWorkerErrorCode : uint32_t {
    NwErrorBeginTxn = 9,      // Catalog could not start its XBSA transaction
    NwErrorDiskFull = 11,     // ExtractFile could not write: destination disk full
    NwErrorQuery = 17,        // Catalog's query or fetch of the next object failed
    NwErrorQueryAccess = 18,  // Catalog's query failed with XBSA code 4 (authentication)
};

class INetWorkerFileFoundCallBack {
public:
    // Slot 0. Returns true to stop the catalogue now.
    virtual bool NetWorkerFileFound(const NetWorkerFileInfo* file) = 0;

protected:
    ~INetWorkerFileFoundCallBack() = default;
};

class INetWorkerErrorCallBack {
public:
    // Slot 0. For NwErrorDiskFull, 1246 (ERROR_CONTINUE) asks for a retry; anything else cancels.
    virtual uint32_t NetWorkerError(uint32_t code) = 0;
    // Slot 1. The answer is ignored by the executor.
    virtual uint32_t AllocationError(const NetWorkerAllocationInfo* info) = 0;

protected:
    ~INetWorkerErrorCallBack() = default;
};

class INetWorkerUpdateProgressCallBack {
public:
    // Slot 0. Returns true to cancel the extraction.
    virtual bool UpdateProgress(NetWorkerProgressInfo* progress) = 0;

protected:
    ~INetWorkerUpdateProgressCallBack() = default;
};
