#pragma once
// The transport of the out-of-process mode: a synchronous, message-mode named pipe.
// Failures are thrown as standard exceptions carrying a narrow text.

#include <stdint.h>

#include "InterfaceAbi.h"

class INamedPipeConnection {
public:
    NWX_DESTRUCTOR_SLOT(INamedPipeConnection)                              // 0
    virtual void OpenNewPipe(const wchar_t* name) = 0;                     // 1: server end
    virtual void WaitForConnection() = 0;                                  // 2
    virtual void OpenExisting(const wchar_t* name, uint32_t timeout) = 0;  // 3: client end
    // 4: reads one message; false when the other end has closed (*length then unchanged).
    virtual bool Receive(unsigned char* buffer, uint32_t* length) = 0;
    virtual uint32_t Send(const unsigned char* buffer, uint32_t length) = 0;  // 5

    NWX_DESTRUCTOR_AFTER_OPERATIONS(INamedPipeConnection)
};
