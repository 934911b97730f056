#pragma once
// The service that runs inside NetWorker64BitClient.exe and serves the pipe.

class INetWorkerNamedPipeClient {
public:
    virtual ~INetWorkerNamedPipeClient() = default;  // 0
    virtual void Run() = 0;                          // 1
};
