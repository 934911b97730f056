#pragma once
// The one service the library offers a host, in process or through the helper program.
// The slot order is part of the host's binary interface.

#include <stdint.h>

#include "INetWorkerCallBacks.h"
#include "InterfaceAbi.h"
#include "WinTypes.h"

class INetWorkerExecutor {
public:
    // Slot 0: the deleting destructor.
    NWX_DESTRUCTOR_SLOT(INetWorkerExecutor)
    // Slot 1. Opens the backup session; names are used up to 254 characters.
    virtual int32_t Initialize(const char* clientName, const char* serverName) = 0;
    // Slot 2. Lists Exchange objects created on dates within [timeAfter, timeBefore].
    virtual int32_t Catalog(const FILETIME* timeBefore, const FILETIME* timeAfter,
                            INetWorkerFileFoundCallBack* fileFound,
                            INetWorkerErrorCallBack* error) = 0;
    // Slot 3.
    virtual int32_t GetFileSize(uint32_t index, bool correctSize, uint64_t* size) = 0;
    // Slot 4.
    virtual int32_t BeginExtract() = 0;
    // Slot 5. Writes catalogue entry `index` to directory\fileName.
    virtual int32_t ExtractFile(uint32_t index, const wchar_t* directory, const wchar_t* fileName,
                                INetWorkerUpdateProgressCallBack* progress,
                                INetWorkerErrorCallBack* error) = 0;
    // Slot 6.
    virtual int32_t EndExtract() = 0;
    // Slot 7. May be called from a second thread while an operation runs.
    virtual int32_t Quit() = 0;

    NWX_DESTRUCTOR_AFTER_OPERATIONS(INetWorkerExecutor)
};
