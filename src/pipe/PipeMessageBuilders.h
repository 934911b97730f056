#pragma once
// Builders for the pipe messages: each returns a zero-filled message with its header set and
// its fields filled. String fields are zeroed first; an over-long string is refused with
// std::length_error (a null one with std::invalid_argument), never truncated.
// Platform-neutral.

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "PipeMessages.h"
#include "interfaces/INamedPipeConnection.h"
#include "interfaces/NetWorkerRecords.h"
#include "interfaces/WinTypes.h"

// The server name goes first on the wire although it is Initialize's second argument.
IpcBeginInitialize IpcBuildBeginInitialize(const char* clientName, const char* serverName);

// A null bound travels as 0.
IpcBeginCatalog IpcBuildBeginCatalog(const FILETIME* timeBefore, const FILETIME* timeAfter);

// backupTime is converted with SystemTimeToFileTime; a calendar value it rejects travels as 0.
IpcFileFound IpcBuildFileFound(const NetWorkerFileInfo& file);

IpcShouldCancel IpcBuildShouldCancel(uint32_t response);
IpcBeginGetFileSize IpcBuildBeginGetFileSize(uint32_t index, bool correctSize);
IpcFinishGetFileSize IpcBuildFinishGetFileSize(uint64_t size);
IpcBeginExtractFile IpcBuildBeginExtractFile(uint32_t index, const wchar_t* directory,
                                             const wchar_t* fileName);
IpcUpdateProgress IpcBuildUpdateProgress(const NetWorkerProgressInfo& progress);
IpcNetWorkerError IpcBuildNetWorkerError(uint32_t code);
IpcNetWorkerErrorResponse IpcBuildNetWorkerErrorResponse(uint32_t answer);
IpcAllocationError IpcBuildAllocationError(const NetWorkerAllocationInfo& info);
IpcAllocationErrorResponse IpcBuildAllocationErrorResponse(uint32_t answer);

// The five 12-byte status replies (IpcFinishInitialize, IpcFinishCatalog,
// IpcFinishBeginExtract, IpcFinishExtractFile, IpcFinishEndExtract).
template <typename Reply>
Reply IpcBuildStatusReply(int32_t result) {
    static_assert(sizeof(Reply) == 12 && offsetof(Reply, result) == 8, "a status reply");
    Reply reply = IpcMakeMessage<Reply>();
    reply.result = result;
    return reply;
}

// The wide string fields of IpcBeginExtractFile, addressed through bytes: the packed record
// gives them no alignment guarantee of their own.
const void* IpcDirectoryField(const IpcBeginExtractFile& message);
const void* IpcFileNameField(const IpcBeginExtractFile& message);

// The bytes of a message, for Send.
template <typename Message>
const unsigned char* IpcBytes(const Message& message) {
    static_assert(std::is_trivially_copyable<Message>::value, "messages are plain records");
    return reinterpret_cast<const unsigned char*>(&message);
}

// Writes one whole message in one Send.
template <typename Message>
uint32_t IpcSend(INamedPipeConnection& connection, const Message& message) {
    return connection.Send(IpcBytes(message), static_cast<uint32_t>(sizeof(Message)));
}
