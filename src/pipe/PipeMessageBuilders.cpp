#include "PipeMessageBuilders.h"

#include <stdexcept>

#include "WireStrings.h"
#include "common/CivilTime.h"

namespace {

uint64_t BoundTicks(const FILETIME* bound) {
    return bound != nullptr ? FileTimeToTicks(*bound) : 0;
}

unsigned char* BytesOf(IpcBeginExtractFile& message) {
    return reinterpret_cast<unsigned char*>(&message);
}

}  // namespace

IpcBeginInitialize IpcBuildBeginInitialize(const char* clientName, const char* serverName) {
    IpcBeginInitialize message = IpcMakeMessage<IpcBeginInitialize>();
    CopyNarrowToField(serverName, message.serverName, sizeof message.serverName, "serverName");
    CopyNarrowToField(clientName, message.clientName, sizeof message.clientName, "clientName");
    return message;
}

IpcBeginCatalog IpcBuildBeginCatalog(const FILETIME* timeBefore, const FILETIME* timeAfter) {
    IpcBeginCatalog message = IpcMakeMessage<IpcBeginCatalog>();
    message.timeAfter = BoundTicks(timeAfter);
    message.timeBefore = BoundTicks(timeBefore);
    return message;
}

IpcFileFound IpcBuildFileFound(const NetWorkerFileInfo& file) {
    IpcFileFound message = IpcMakeMessage<IpcFileFound>();
    message.index = file.index;
    FILETIME backupTime = {0, 0};
    // The conversion's result is not examined: a rejected calendar value travels as 0.
    (void)CivilSystemTimeToFileTime(file.backupTime, &backupTime);
    message.backupTime = FileTimeToTicks(backupTime);
    CopyNarrowToField(file.path, message.path, sizeof message.path, "path");
    message.size = file.size;
    message.restoreOrder = file.restoreOrder;
    return message;
}

IpcShouldCancel IpcBuildShouldCancel(uint32_t response) {
    IpcShouldCancel message = IpcMakeMessage<IpcShouldCancel>();
    message.response = response;
    return message;
}

IpcBeginGetFileSize IpcBuildBeginGetFileSize(uint32_t index, bool correctSize) {
    IpcBeginGetFileSize message = IpcMakeMessage<IpcBeginGetFileSize>();
    message.index = index;
    message.correctSize = correctSize ? 1 : 0;
    return message;
}

IpcFinishGetFileSize IpcBuildFinishGetFileSize(uint64_t size) {
    IpcFinishGetFileSize message = IpcMakeMessage<IpcFinishGetFileSize>();
    message.size = size;
    return message;
}

IpcBeginExtractFile IpcBuildBeginExtractFile(uint32_t index, const wchar_t* directory,
                                             const wchar_t* fileName) {
    IpcBeginExtractFile message = IpcMakeMessage<IpcBeginExtractFile>();
    message.index = index;
    CopyWideToField(directory, BytesOf(message) + offsetof(IpcBeginExtractFile, directory),
                    kIpcWideFieldSize, "directory");
    CopyWideToField(fileName, BytesOf(message) + offsetof(IpcBeginExtractFile, fileName),
                    kIpcWideFieldSize, "fileName");
    return message;
}

IpcUpdateProgress IpcBuildUpdateProgress(const NetWorkerProgressInfo& progress) {
    IpcUpdateProgress message = IpcMakeMessage<IpcUpdateProgress>();
    message.state = progress.state;
    message.bytesDone = progress.bytesDone;
    return message;
}

IpcNetWorkerError IpcBuildNetWorkerError(uint32_t code) {
    IpcNetWorkerError message = IpcMakeMessage<IpcNetWorkerError>();
    message.code = code;
    return message;
}

IpcNetWorkerErrorResponse IpcBuildNetWorkerErrorResponse(uint32_t answer) {
    IpcNetWorkerErrorResponse message = IpcMakeMessage<IpcNetWorkerErrorResponse>();
    message.answer = answer;
    return message;
}

IpcAllocationError IpcBuildAllocationError(const NetWorkerAllocationInfo& info) {
    IpcAllocationError message = IpcMakeMessage<IpcAllocationError>();
    message.reason = info.reason;
    message.itemsFound = info.itemsFound;
    message.catalogueSize = info.catalogueSize;
    message.catalogueCapacity = info.catalogueCapacity;
    return message;
}

IpcAllocationErrorResponse IpcBuildAllocationErrorResponse(uint32_t answer) {
    IpcAllocationErrorResponse message = IpcMakeMessage<IpcAllocationErrorResponse>();
    message.answer = answer;
    return message;
}

const void* IpcDirectoryField(const IpcBeginExtractFile& message) {
    return reinterpret_cast<const unsigned char*>(&message) +
           offsetof(IpcBeginExtractFile, directory);
}

const void* IpcFileNameField(const IpcBeginExtractFile& message) {
    return reinterpret_cast<const unsigned char*>(&message) +
           offsetof(IpcBeginExtractFile, fileName);
}
