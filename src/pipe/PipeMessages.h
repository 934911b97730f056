#pragma once
// The messages that cross the helper pipe: fixed-size packed little-endian records behind an
// 8-byte header. One message is one write and one read. Platform-neutral.

#include <cstddef>
#include <cstdint>
#include <cstring>

// UTF-16 code unit of the wire's wide strings (wchar_t is 16-bit on Windows only).
#ifdef _WIN32
using WireWideChar = wchar_t;
#else
using WireWideChar = char16_t;
#endif
static_assert(sizeof(WireWideChar) == 2, "wire wide strings are UTF-16");

constexpr uint32_t kIpcMaxMessageSize = 4108;  // IpcBeginExtractFile, the largest message
constexpr uint32_t kIpcHeaderSize = 8;
constexpr size_t kIpcNameFieldSize = 255;   // narrow server and client names
constexpr size_t kIpcPathFieldSize = 1024;  // narrow catalogued path
constexpr size_t kIpcWideFieldSize = 1024;  // UTF-16 directory and file name

// Answers carried by IpcShouldCancel::response.
enum IpcCancelResponse : uint32_t {
    eQuit = 0,      // stop
    eContinue = 1,  // go on (any non-zero value is read as go on)
};

enum IpcMessageType : uint32_t {
    IpcTypeBeginInitialize = 1,
    IpcTypeFinishInitialize = 2,
    IpcTypeShouldCancel = 3,
    IpcTypeBeginCatalog = 4,
    IpcTypeFileFound = 5,
    IpcTypeFinishCatalog = 6,
    IpcTypeBeginGetFileSize = 7,
    IpcTypeFinishGetFileSize = 8,
    IpcTypeBeginExtract = 9,
    IpcTypeFinishBeginExtract = 10,
    IpcTypeBeginExtractFile = 11,
    IpcTypeFinishExtractFile = 12,
    IpcTypeUpdateProgress = 13,
    IpcTypeEndExtract = 14,
    IpcTypeFinishEndExtract = 15,
    IpcTypeNetWorkerError = 16,
    IpcTypeNetWorkerErrorResponse = 17,
    IpcTypeAllocationError = 18,
    IpcTypeAllocationErrorResponse = 19,
};

#pragma pack(push, 1)

struct IpcHeader {
    uint32_t messageType;
    uint32_t messageSize;  // whole message, header included
};

#define NWX_IPC_MESSAGE(TypeNumber)               \
    static constexpr uint32_t kType = TypeNumber; \
    IpcHeader header

struct IpcBeginInitialize {
    NWX_IPC_MESSAGE(IpcTypeBeginInitialize);
    char serverName[kIpcNameFieldSize];  // Initialize's second argument comes first on the wire
    char clientName[kIpcNameFieldSize];
};

struct IpcFinishInitialize {
    NWX_IPC_MESSAGE(IpcTypeFinishInitialize);
    int32_t result;
};

struct IpcShouldCancel {
    NWX_IPC_MESSAGE(IpcTypeShouldCancel);
    uint32_t response;  // IpcCancelResponse
};

struct IpcBeginCatalog {
    NWX_IPC_MESSAGE(IpcTypeBeginCatalog);
    uint64_t timeAfter;   // FILETIME ticks; 0 = no bound
    uint64_t timeBefore;  // FILETIME ticks; 0 = no bound
};

struct IpcFileFound {
    NWX_IPC_MESSAGE(IpcTypeFileFound);
    uint32_t index;
    uint64_t backupTime;  // FILETIME ticks
    char path[kIpcPathFieldSize];
    uint64_t size;
    uint64_t restoreOrder;
};

struct IpcFinishCatalog {
    NWX_IPC_MESSAGE(IpcTypeFinishCatalog);
    int32_t result;
};

struct IpcBeginGetFileSize {
    NWX_IPC_MESSAGE(IpcTypeBeginGetFileSize);
    uint32_t index;
    uint32_t correctSize;  // 1 or 0 when sent; any non-zero value reads as true
};

struct IpcFinishGetFileSize {
    NWX_IPC_MESSAGE(IpcTypeFinishGetFileSize);
    uint64_t size;  // 0 when the lookup failed: no status travels
};

struct IpcBeginExtract {
    NWX_IPC_MESSAGE(IpcTypeBeginExtract);
};

struct IpcFinishBeginExtract {
    NWX_IPC_MESSAGE(IpcTypeFinishBeginExtract);
    int32_t result;
};

struct IpcBeginExtractFile {
    NWX_IPC_MESSAGE(IpcTypeBeginExtractFile);
    uint32_t index;
    WireWideChar directory[kIpcWideFieldSize];
    WireWideChar fileName[kIpcWideFieldSize];
};

struct IpcFinishExtractFile {
    NWX_IPC_MESSAGE(IpcTypeFinishExtractFile);
    int32_t result;
};

struct IpcUpdateProgress {
    NWX_IPC_MESSAGE(IpcTypeUpdateProgress);
    uint32_t state;
    uint32_t bytesDone;
};

struct IpcEndExtract {
    NWX_IPC_MESSAGE(IpcTypeEndExtract);
};

struct IpcFinishEndExtract {
    NWX_IPC_MESSAGE(IpcTypeFinishEndExtract);
    int32_t result;
};

struct IpcNetWorkerError {
    NWX_IPC_MESSAGE(IpcTypeNetWorkerError);
    uint32_t code;
};

struct IpcNetWorkerErrorResponse {
    NWX_IPC_MESSAGE(IpcTypeNetWorkerErrorResponse);
    uint32_t answer;
};

struct IpcAllocationError {
    NWX_IPC_MESSAGE(IpcTypeAllocationError);
    uint32_t reason;
    uint32_t itemsFound;
    uint64_t catalogueSize;
    uint64_t catalogueCapacity;
};

struct IpcAllocationErrorResponse {
    NWX_IPC_MESSAGE(IpcTypeAllocationErrorResponse);
    uint32_t answer;
};

#undef NWX_IPC_MESSAGE
#pragma pack(pop)

// Layout checks: every offset and size of the wire format.
static_assert(sizeof(IpcHeader) == 8 && offsetof(IpcHeader, messageType) == 0 &&
                  offsetof(IpcHeader, messageSize) == 4,
              "IpcHeader");
static_assert(sizeof(IpcBeginInitialize) == 518, "IpcBeginInitialize");
static_assert(offsetof(IpcBeginInitialize, serverName) == 8, "IpcBeginInitialize");
static_assert(offsetof(IpcBeginInitialize, clientName) == 263, "IpcBeginInitialize");
static_assert(sizeof(IpcFinishInitialize) == 12 && offsetof(IpcFinishInitialize, result) == 8,
              "IpcFinishInitialize");
static_assert(sizeof(IpcShouldCancel) == 12 && offsetof(IpcShouldCancel, response) == 8,
              "IpcShouldCancel");
static_assert(sizeof(IpcBeginCatalog) == 24, "IpcBeginCatalog");
static_assert(offsetof(IpcBeginCatalog, timeAfter) == 8, "IpcBeginCatalog");
static_assert(offsetof(IpcBeginCatalog, timeBefore) == 16, "IpcBeginCatalog");
static_assert(sizeof(IpcFileFound) == 1060, "IpcFileFound");
static_assert(offsetof(IpcFileFound, index) == 8, "IpcFileFound");
static_assert(offsetof(IpcFileFound, backupTime) == 12, "IpcFileFound");
static_assert(offsetof(IpcFileFound, path) == 20, "IpcFileFound");
static_assert(offsetof(IpcFileFound, size) == 1044, "IpcFileFound");
static_assert(offsetof(IpcFileFound, restoreOrder) == 1052, "IpcFileFound");
static_assert(sizeof(IpcFinishCatalog) == 12 && offsetof(IpcFinishCatalog, result) == 8,
              "IpcFinishCatalog");
static_assert(sizeof(IpcBeginGetFileSize) == 16, "IpcBeginGetFileSize");
static_assert(offsetof(IpcBeginGetFileSize, index) == 8, "IpcBeginGetFileSize");
static_assert(offsetof(IpcBeginGetFileSize, correctSize) == 12, "IpcBeginGetFileSize");
static_assert(sizeof(IpcFinishGetFileSize) == 16 && offsetof(IpcFinishGetFileSize, size) == 8,
              "IpcFinishGetFileSize");
static_assert(sizeof(IpcBeginExtract) == 8, "IpcBeginExtract");
static_assert(sizeof(IpcFinishBeginExtract) == 12 && offsetof(IpcFinishBeginExtract, result) == 8,
              "IpcFinishBeginExtract");
static_assert(sizeof(IpcBeginExtractFile) == 4108, "IpcBeginExtractFile");
static_assert(offsetof(IpcBeginExtractFile, index) == 8, "IpcBeginExtractFile");
static_assert(offsetof(IpcBeginExtractFile, directory) == 12, "IpcBeginExtractFile");
static_assert(offsetof(IpcBeginExtractFile, fileName) == 2060, "IpcBeginExtractFile");
static_assert(sizeof(IpcFinishExtractFile) == 12 && offsetof(IpcFinishExtractFile, result) == 8,
              "IpcFinishExtractFile");
static_assert(sizeof(IpcUpdateProgress) == 16, "IpcUpdateProgress");
static_assert(offsetof(IpcUpdateProgress, state) == 8, "IpcUpdateProgress");
static_assert(offsetof(IpcUpdateProgress, bytesDone) == 12, "IpcUpdateProgress");
static_assert(sizeof(IpcEndExtract) == 8, "IpcEndExtract");
static_assert(sizeof(IpcFinishEndExtract) == 12 && offsetof(IpcFinishEndExtract, result) == 8,
              "IpcFinishEndExtract");
static_assert(sizeof(IpcNetWorkerError) == 12 && offsetof(IpcNetWorkerError, code) == 8,
              "IpcNetWorkerError");
static_assert(sizeof(IpcNetWorkerErrorResponse) == 12 &&
                  offsetof(IpcNetWorkerErrorResponse, answer) == 8,
              "IpcNetWorkerErrorResponse");
static_assert(sizeof(IpcAllocationError) == 32, "IpcAllocationError");
static_assert(offsetof(IpcAllocationError, reason) == 8, "IpcAllocationError");
static_assert(offsetof(IpcAllocationError, itemsFound) == 12, "IpcAllocationError");
static_assert(offsetof(IpcAllocationError, catalogueSize) == 16, "IpcAllocationError");
static_assert(offsetof(IpcAllocationError, catalogueCapacity) == 24, "IpcAllocationError");
static_assert(sizeof(IpcAllocationErrorResponse) == 12 &&
                  offsetof(IpcAllocationErrorResponse, answer) == 8,
              "IpcAllocationErrorResponse");
static_assert(sizeof(IpcBeginExtractFile) == kIpcMaxMessageSize, "largest message");

// The type of a received message: 0 when fewer than 8 bytes arrived.
inline uint32_t IpcReceivedType(const unsigned char* buffer, uint32_t bytesRead) {
    if (bytesRead < kIpcHeaderSize) {
        return 0;
    }
    IpcHeader header{};
    std::memcpy(&header, buffer, sizeof header);
    return header.messageType;
}

// A typed view of a received message, or null unless at least 8 bytes arrived, the type is
// Message's and the header's size field is exactly sizeof(Message). The buffer must be a
// zero-filled receive buffer of kIpcMaxMessageSize bytes; bytes read beyond the header are
// not compared with the size field.
template <typename Message>
const Message* IpcView(const unsigned char* buffer, uint32_t bytesRead) {
    if (bytesRead < kIpcHeaderSize) {
        return nullptr;
    }
    IpcHeader header{};
    std::memcpy(&header, buffer, sizeof header);
    if (header.messageType != Message::kType || header.messageSize != sizeof(Message)) {
        return nullptr;
    }
    return reinterpret_cast<const Message*>(buffer);
}

// The fixed size of a message type; 0 for a number that is no message type.
constexpr uint32_t IpcFixedSize(uint32_t type) {
    switch (type) {
        case IpcTypeBeginInitialize:
            return sizeof(IpcBeginInitialize);
        case IpcTypeFinishInitialize:
            return sizeof(IpcFinishInitialize);
        case IpcTypeShouldCancel:
            return sizeof(IpcShouldCancel);
        case IpcTypeBeginCatalog:
            return sizeof(IpcBeginCatalog);
        case IpcTypeFileFound:
            return sizeof(IpcFileFound);
        case IpcTypeFinishCatalog:
            return sizeof(IpcFinishCatalog);
        case IpcTypeBeginGetFileSize:
            return sizeof(IpcBeginGetFileSize);
        case IpcTypeFinishGetFileSize:
            return sizeof(IpcFinishGetFileSize);
        case IpcTypeBeginExtract:
            return sizeof(IpcBeginExtract);
        case IpcTypeFinishBeginExtract:
            return sizeof(IpcFinishBeginExtract);
        case IpcTypeBeginExtractFile:
            return sizeof(IpcBeginExtractFile);
        case IpcTypeFinishExtractFile:
            return sizeof(IpcFinishExtractFile);
        case IpcTypeUpdateProgress:
            return sizeof(IpcUpdateProgress);
        case IpcTypeEndExtract:
            return sizeof(IpcEndExtract);
        case IpcTypeFinishEndExtract:
            return sizeof(IpcFinishEndExtract);
        case IpcTypeNetWorkerError:
            return sizeof(IpcNetWorkerError);
        case IpcTypeNetWorkerErrorResponse:
            return sizeof(IpcNetWorkerErrorResponse);
        case IpcTypeAllocationError:
            return sizeof(IpcAllocationError);
        case IpcTypeAllocationErrorResponse:
            return sizeof(IpcAllocationErrorResponse);
        default:
            return 0;
    }
}

// Whether a received message's size field is the fixed size of its type (false for fewer
// than 8 bytes and for numbers that are no message type).
inline bool IpcHasExactSize(const unsigned char* buffer, uint32_t bytesRead) {
    if (bytesRead < kIpcHeaderSize) {
        return false;
    }
    IpcHeader header{};
    std::memcpy(&header, buffer, sizeof header);
    const uint32_t size = IpcFixedSize(header.messageType);
    return size != 0 && header.messageSize == size;
}

// The helper's questions: each waits for exactly one answer from the host, whatever the host
// makes of it.
constexpr bool IpcIsQuestion(uint32_t type) {
    return type == IpcTypeFileFound || type == IpcTypeUpdateProgress ||
           type == IpcTypeNetWorkerError || type == IpcTypeAllocationError;
}

// A zero-filled message with its header set, ready for its fields.
template <typename Message>
Message IpcMakeMessage() {
    Message message{};
    message.header.messageType = Message::kType;
    message.header.messageSize = static_cast<uint32_t>(sizeof(Message));
    return message;
}
