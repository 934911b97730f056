// Feeds message sequences from the fuzzer's input to NetWorkerNamedPipeClient::Run over the
// in-memory pipe, with an executor whose callbacks are scripted by the input too.
//
// Input layout:
//   byte 0: bit 0 = start with a valid IpcBeginInitialize; bit 1 = Initialize fails;
//           bit 2 = GetFileSize fails
//   byte 1: callbacks per operation (low 3 bits); byte 2: kinds of those callbacks (2 bits each)
//   then messages, each: one flag byte (bit 0 = set the size field to the type's exact size,
//   bit 1 = also cut or pad the message to that size), two length bytes (little-endian), and
//   that many bytes.
// The standard exceptions that Run documents are expected; anything else, a malformed message
// from the helper, or a logger left unreleased is a finding.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "InMemoryPipe.h"
#include "RecordingLog.h"
#include "ScriptedExecutor.h"
#include "pipe/PipeMessageBuilders.h"
#include "pipeclient/NetWorkerNamedPipeClient.h"

namespace {

uint32_t ExactSize(uint32_t type) {
    static const uint32_t sizes[] = {0,  518,  12, 12, 24, 1060, 12, 16, 16, 8,
                                     12, 4108, 12, 16, 8,  12,   12, 12, 32, 12};
    return type < sizeof sizes / sizeof sizes[0] ? sizes[type] : 0;
}

class Input {
public:
    Input(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
    bool Empty() const { return m_offset >= m_size; }
    uint8_t Byte() { return Empty() ? 0 : m_data[m_offset++]; }
    PipeBytes Bytes(size_t count) {
        const size_t available = m_size - m_offset < count ? m_size - m_offset : count;
        PipeBytes bytes(m_data + m_offset, m_data + m_offset + available);
        m_offset += available;
        return bytes;
    }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_offset = 0;
};

PipeBytes ShapeMessage(PipeBytes message, uint8_t flags) {
    if ((flags & 1) == 0 || message.size() < kIpcHeaderSize) {
        return message;
    }
    uint32_t type = 0;
    std::memcpy(&type, message.data(), 4);
    const uint32_t size = ExactSize(type);
    if (size == 0) {
        return message;
    }
    std::memcpy(message.data() + 4, &size, 4);
    if ((flags & 2) != 0) {
        message.resize(size, 0);
    }
    return message;
}

[[noreturn]] void Finding(const char* what) {
    std::fprintf(stderr, "finding: %s\n", what);
    std::abort();
}

// Every message the helper sends is one of its own types, whole and with the exact size.
void CheckHelperMessages(const std::vector<PipeBytes>& sent) {
    for (const PipeBytes& message : sent) {
        if (message.size() < kIpcHeaderSize) {
            Finding("helper sent a message shorter than a header");
        }
        IpcHeader header;
        std::memcpy(&header, message.data(), sizeof header);
        switch (header.messageType) {
            case 2:
            case 5:
            case 6:
            case 8:
            case 10:
            case 12:
            case 13:
            case 15:
            case 16:
            case 18:
                break;
            default:
                Finding("helper sent a type it must not send");
        }
        if (header.messageSize != ExactSize(header.messageType) ||
            message.size() != header.messageSize) {
            Finding("helper sent a message of the wrong size");
        }
    }
}

struct CallbackScript {
    unsigned count;
    uint8_t kinds;
    std::string path;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const uint8_t control = input.Byte();
    CallbackScript script;
    script.count = input.Byte() & 7;
    script.kinds = input.Byte();
    script.path = std::string(1000 + (script.kinds & 0x3F), 'p');  // beyond 1023 for some inputs

    InMemoryPipe pipe;
    InMemoryPipeEnd& host = pipe.ServerEnd();
    if ((control & 1) != 0) {
        host.SendMessage(IpcBuildBeginInitialize("client", "server"));
    }
    while (!input.Empty()) {
        const uint8_t flags = input.Byte();
        const size_t length = (input.Byte() | (static_cast<size_t>(input.Byte()) << 8)) % 4300;
        host.SendBytes(ShapeMessage(input.Bytes(length), flags));
    }
    host.CloseWhenDrained();

    ScriptedExecutor executor;
    executor.initializeStatus = (control & 2) != 0 ? static_cast<int32_t>(0x8007000A) : 0;
    executor.onGetFileSize = [&](uint32_t index, bool, uint64_t* fileSize) {
        *fileSize = index * 3ull;
        return (control & 4) != 0 ? static_cast<int32_t>(0x80004005) : 0;
    };
    executor.onCatalog = [&](INetWorkerFileFoundCallBack* fileFound,
                             INetWorkerErrorCallBack* error) {
        for (unsigned i = 0; i < script.count; ++i) {
            switch ((script.kinds >> (2 * (i % 4))) & 3) {
                case 0: {
                    NetWorkerFileInfo file = {};
                    file.index = i;
                    file.backupTime = {2020, 1, 0, 1, 0, 0, 0, 0};
                    file.path = script.path.c_str();
                    if (fileFound->NetWorkerFileFound(&file)) {
                        return 1223;
                    }
                    break;
                }
                case 1:
                    error->NetWorkerError(17);
                    break;
                case 2: {
                    const NetWorkerAllocationInfo info = {0, i, i, i};
                    error->AllocationError(&info);
                    break;
                }
                default:
                    return 0;
            }
        }
        return 0;
    };
    executor.onExtractFile = [&](INetWorkerUpdateProgressCallBack* progress,
                                 INetWorkerErrorCallBack* error) {
        for (unsigned i = 0; i < script.count; ++i) {
            switch ((script.kinds >> (2 * (i % 4))) & 3) {
                case 0: {
                    NetWorkerProgressInfo info = {1, i};
                    if (progress->UpdateProgress(&info)) {
                        return 1223;
                    }
                    break;
                }
                case 1:
                    if (error->NetWorkerError(11) != 1246) {
                        return 1223;
                    }
                    break;
                case 2: {
                    const NetWorkerAllocationInfo info = {4, i, 0, 0};
                    error->AllocationError(&info);
                    break;
                }
                default:
                    return 0;
            }
        }
        return 0;
    };

    {
        RecordingLog log(L"NetWorkerNamedPipeClient");
        NetWorkerNamedPipeClient client(L"fuzz", &pipe.ClientEnd(), &executor, &log);
        try {
            client.Run();
        } catch (const std::exception&) {
            // The documented failures of Run: standard exceptions with a fixed text.
        }
    }
    CheckHelperMessages(pipe.ClientEnd().Sent());
    if (TestLoggers::LiveCount() != 0) {
        Finding("a handler logger was not released");
    }
    TestLoggers::Reset();
    return 0;
}
