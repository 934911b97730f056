#pragma once
// The service that runs inside NetWorker64BitClient.exe and serves the pipe.

#include "InterfaceAbi.h"

class INetWorkerNamedPipeClient {
public:
    NWX_DESTRUCTOR_SLOT(INetWorkerNamedPipeClient)  // 0
    virtual void Run() = 0;                         // 1

    NWX_DESTRUCTOR_AFTER_OPERATIONS(INetWorkerNamedPipeClient)
};
