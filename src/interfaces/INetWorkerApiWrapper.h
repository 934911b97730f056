#pragma once
// The interface over NetWorker's XBSA library. The executor calls through these slots.

#include <stdint.h>

#include "InterfaceAbi.h"
#include "xbsa.h"

class INetWorkerApiWrapper {
public:
    NWX_DESTRUCTOR_SLOT(INetWorkerApiWrapper)                              // 0
    virtual int32_t Initialize() = 0;                                      // 1
    virtual int32_t BSAInit(BSA_Handle* handle, BSA_SecurityToken* token,  // 2
                            BSA_ObjectOwner* owner, char** environment) = 0;
    virtual int32_t BSATerminate(BSA_Handle handle) = 0;                           // 3
    virtual int32_t BSABeginTxn(BSA_Handle handle) = 0;                            // 4
    virtual int32_t BSAEndTxn(BSA_Handle handle) = 0;                              // 5
    virtual int32_t BSAQueryObject(BSA_Handle handle, BSA_QueryDescriptor* query,  // 6
                                   BSA_ObjectDescriptor* descriptor) = 0;
    virtual int32_t BSAQueryApiVersion(BSA_ApiVersion* version) = 0;  // 7
    virtual int32_t BSAGetNextQueryObject(BSA_Handle handle,          // 8
                                          BSA_ObjectDescriptor* descriptor) = 0;
    virtual int32_t BSAGetObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor,  // 9
                                 BSA_DataBlock32* dataBlock) = 0;
    virtual int32_t BSAGetData(BSA_Handle handle, BSA_DataBlock32* dataBlock) = 0;     // 10
    virtual int32_t BSAEndData(BSA_Handle handle) = 0;                                 // 11
    virtual int32_t CorrectFileSize(const BSA_ObjectDescriptor* desc, uint64_t* size,  // 12
                                    const char* serverName, const char* clientName) = 0;

    NWX_DESTRUCTOR_AFTER_OPERATIONS(INetWorkerApiWrapper)
};
