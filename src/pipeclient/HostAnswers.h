#pragma once
// What the helper's service and handlers share: argument checks, and the helper side of one
// callback round trip (send a callback message to the host, then wait for and judge the
// host's answer), used by CatalogHandler and ExtractHandler.

#include <cstdint>

#include "interfaces/ILog.h"
#include "interfaces/INamedPipeConnection.h"
#include "pipe/PipeMessages.h"

// Refuses a null connection, executor or logger with std::invalid_argument
// ("<owner> needs a connection", "... an executor", "... a logger").
void RequireServiceParts(const char* owner, const void* connection, const void* executor,
                         const void* log);
// Refuses a null pointer with std::invalid_argument(text).
void RequireArgument(const void* pointer, const char* text);

// A handler's own answer buffer, so that answers never overwrite the request that the service
// still holds in its receive buffer.
struct HostAnswerBuffer {
    alignas(8) unsigned char bytes[kIpcMaxMessageSize];
};

// Zero-fills the buffer and receives one answer. Throws std::runtime_error("Other end of pipe
// disconnected while receiving message from pipe!") when the host has closed the pipe.
// Returns the number of bytes received.
uint32_t ReceiveHostAnswer(INamedPipeConnection& connection, HostAnswerBuffer& answer);

// Judges the answer to a stop question (file found, progress): true means stop. An
// IpcShouldCancel with response eQuit logs Info "eQuit received"; any other response goes on.
// Anything else (including an IpcShouldCancel with a wrong size field) logs Error
// "Wrong message response: %d" with the type received and stops.
bool JudgeStopAnswer(const HostAnswerBuffer& answer, uint32_t bytesReceived, ILog* log,
                     const wchar_t* method);

// Judges the answer to an error callback: the host's value when the answer is an `Response`
// of the exact size, otherwise Error "Wrong message response: %d" and `unreadable`.
template <typename Response>
uint32_t JudgeValueAnswer(const HostAnswerBuffer& answer, uint32_t bytesReceived, ILog* log,
                          const wchar_t* method, uint32_t unreadable = 0) {
    const Response* response = IpcView<Response>(answer.bytes, bytesReceived);
    if (response != nullptr) {
        return response->answer;
    }
    log->Error(method, L"Wrong message response: %d",
               static_cast<int>(IpcReceivedType(answer.bytes, bytesReceived)));
    return unreadable;
}
