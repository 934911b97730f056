#include "HostAnswers.h"

#include <cstring>
#include <stdexcept>
#include <string>

void RequireArgument(const void* pointer, const char* text) {
    if (pointer == nullptr) {
        throw std::invalid_argument(text);
    }
}

void RequireServiceParts(const char* owner, const void* connection, const void* executor,
                         const void* log) {
    const std::string prefix(owner);
    RequireArgument(connection, (prefix + " needs a connection").c_str());
    RequireArgument(executor, (prefix + " needs an executor").c_str());
    RequireArgument(log, (prefix + " needs a logger").c_str());
}

uint32_t ReceiveHostAnswer(INamedPipeConnection& connection, HostAnswerBuffer& answer) {
    std::memset(answer.bytes, 0, sizeof answer.bytes);
    uint32_t count = kIpcMaxMessageSize;
    if (!connection.Receive(answer.bytes, &count)) {
        throw std::runtime_error(
            "Other end of pipe disconnected while receiving message from pipe!");
    }
    return count;
}

bool JudgeStopAnswer(const HostAnswerBuffer& answer, uint32_t bytesReceived, ILog* log,
                     const wchar_t* method) {
    const IpcShouldCancel* cancel = IpcView<IpcShouldCancel>(answer.bytes, bytesReceived);
    if (cancel != nullptr) {
        if (cancel->response == eQuit) {
            log->Info(method, L"eQuit received");
            return true;
        }
        return false;
    }
    // A confused conversation stops the operation.
    log->Error(method, L"Wrong message response: %d",
               static_cast<int>(IpcReceivedType(answer.bytes, bytesReceived)));
    return true;
}
