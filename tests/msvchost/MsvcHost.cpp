// A host as Visual C++ would build it: compiled by clang for x86_64-pc-windows-msvc against the
// SDK header only, linked by lld-link against the SDK's NetWorkerXbsa.lib and TarnLog.lib, no C
// runtime. It drives whole sessions through the library's interfaces and prints what it saw, one
// fact per line, for msvc_host_tests to check.
//
// usage: msvc_host.exe <mode> <restore directory>
//   in-process        wrapper + executor from the DLL
//   wrapper-double    the executor over this program's own INetWorkerApiWrapper, which forwards
//                     to the DLL's wrapper and counts the calls at each slot
//   helper            the pipe executor with the built-in launcher (NetWorker64BitClient.exe
//                     from the current directory)
//   helper-launcher   the pipe executor with this program's own launcher
//   catalog-error     in process, Initialize and Catalog only (the test injects an XBSA fault)
//   delete-slot0      every kind of library object destroyed by `delete` through slot 0

#include "MsvcRuntime.h"
#include "NetWorkerXbsa.h"
#include "interfaces/LoggerApi.h"

using msvcrt::Print;

namespace {

const char* const kClient = "cli";
const char* const kServer = "srv";
// The two files restored in every session: a streaming file, announced with size 0, and a log.
const char* const kStreamingPath = "/Second Storage Group/Mailbox Store 2 (EX01).stm";
const wchar_t* const kStreamingFile = L"Mailbox Store 2 (EX01).stm";
const char* const kLogPath = "/Second Storage Group/E01000A2.log";
const wchar_t* const kLogFile = L"E01000A2.log";
constexpr uint32_t kNotFound = 0xFFFFFFFFu;

class FileFound : public INetWorkerFileFoundCallBack {
public:
    uint32_t streamingIndex = kNotFound;
    uint32_t logIndex = kNotFound;
    uint32_t count = 0;

    bool NetWorkerFileFound(const NetWorkerFileInfo* file) override {
        ++count;
        const SYSTEMTIME& t = file->backupTime;
        Print(
            "file index=%u time=%04u-%02u-%02u %02u:%02u:%02u wday=%u ms=%u size=%I64u "
            "restoreOrder=%I64u path=%s\n",
            file->index, t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond, t.wDayOfWeek,
            t.wMilliseconds, file->size, file->restoreOrder, file->path);
        if (msvcrt::NarrowEquals(file->path, kStreamingPath)) {
            streamingIndex = file->index;
        } else if (msvcrt::NarrowEquals(file->path, kLogPath)) {
            logIndex = file->index;
        }
        return false;
    }
};

class Errors : public INetWorkerErrorCallBack {
public:
    uint32_t NetWorkerError(uint32_t code) override {
        Print("error code=%u\n", code);
        return 0;
    }
    uint32_t AllocationError(const NetWorkerAllocationInfo* info) override {
        Print("allocation-error reason=%u items=%u\n", info->reason, info->itemsFound);
        return 0;
    }
};

class Progress : public INetWorkerUpdateProgressCallBack {
public:
    uint64_t bytes = 0;
    uint32_t reports = 0;
    uint32_t badStates = 0;

    bool UpdateProgress(NetWorkerProgressInfo* progress) override {
        ++reports;
        if (progress->state != 1) {
            ++badStates;
        }
        bytes += progress->bytesDone;
        return false;
    }
};

// Forwards every operation to the library's own wrapper and counts the calls per slot. Slot 0,
// its deleting destructor, is this program's: only this program deletes it.
class CountingWrapper : public INetWorkerApiWrapper {
public:
    explicit CountingWrapper(INetWorkerApiWrapper* real) : m_real(real) {}
    ~CountingWrapper() override { Print("wrapper-double destroyed\n"); }

    uint32_t calls[13] = {};

    int32_t Initialize() override {
        ++calls[1];
        return m_real->Initialize();
    }
    int32_t BSAInit(BSA_Handle* handle, BSA_SecurityToken* token, BSA_ObjectOwner* owner,
                    char** environment) override {
        ++calls[2];
        return m_real->BSAInit(handle, token, owner, environment);
    }
    int32_t BSATerminate(BSA_Handle handle) override {
        ++calls[3];
        return m_real->BSATerminate(handle);
    }
    int32_t BSABeginTxn(BSA_Handle handle) override {
        ++calls[4];
        return m_real->BSABeginTxn(handle);
    }
    int32_t BSAEndTxn(BSA_Handle handle) override {
        ++calls[5];
        return m_real->BSAEndTxn(handle);
    }
    int32_t BSAQueryObject(BSA_Handle handle, BSA_QueryDescriptor* query,
                           BSA_ObjectDescriptor* descriptor) override {
        ++calls[6];
        return m_real->BSAQueryObject(handle, query, descriptor);
    }
    int32_t BSAQueryApiVersion(BSA_ApiVersion* version) override {
        ++calls[7];
        return m_real->BSAQueryApiVersion(version);
    }
    int32_t BSAGetNextQueryObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor) override {
        ++calls[8];
        return m_real->BSAGetNextQueryObject(handle, descriptor);
    }
    int32_t BSAGetObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor,
                         BSA_DataBlock32* dataBlock) override {
        ++calls[9];
        return m_real->BSAGetObject(handle, descriptor, dataBlock);
    }
    int32_t BSAGetData(BSA_Handle handle, BSA_DataBlock32* dataBlock) override {
        ++calls[10];
        return m_real->BSAGetData(handle, dataBlock);
    }
    int32_t BSAEndData(BSA_Handle handle) override {
        ++calls[11];
        return m_real->BSAEndData(handle);
    }
    int32_t CorrectFileSize(const BSA_ObjectDescriptor* desc, uint64_t* size,
                            const char* serverName, const char* clientName) override {
        ++calls[12];
        return m_real->CorrectFileSize(desc, size, serverName, clientName);
    }

private:
    INetWorkerApiWrapper* m_real;
};

void Extract(INetWorkerExecutor* executor, uint32_t index, const wchar_t* directory,
             const wchar_t* fileName, Errors* errors) {
    Progress progress;
    const int32_t status = executor->ExtractFile(index, directory, fileName, &progress, errors);
    Print("extract index=%u status=%d bytes=%I64u reports=%u badStates=%u file=%S\n", index, status,
          progress.bytes, progress.reports, progress.badStates, fileName);
}

// One whole session: Initialize, Catalog, sizes, two files restored, EndExtract, Quit.
void InitializeAndCatalog(INetWorkerExecutor* executor, FileFound* found, Errors* errors) {
    Print("initialize status=%d\n", executor->Initialize(kClient, kServer));
    const int32_t catalogStatus = executor->Catalog(nullptr, nullptr, found, errors);
    Print("catalog status=%d files=%u\n", catalogStatus, found->count);
}

int RunSession(INetWorkerExecutor* executor, const wchar_t* directory) {
    FileFound found;
    Errors errors;
    InitializeAndCatalog(executor, &found, &errors);
    if (found.streamingIndex == kNotFound || found.logIndex == kNotFound) {
        Print("session: the two files to restore are not in the catalogue\n");
        return 3;
    }
    uint64_t size = 1;
    int32_t status = executor->GetFileSize(found.streamingIndex, true, &size);
    Print("size index=%u correct=1 status=%d size=%I64u\n", found.streamingIndex, status, size);
    size = 1;
    status = executor->GetFileSize(found.logIndex, false, &size);
    Print("size index=%u correct=0 status=%d size=%I64u\n", found.logIndex, status, size);

    Print("begin-extract status=%d\n", executor->BeginExtract());
    Extract(executor, found.streamingIndex, directory, kStreamingFile, &errors);
    Extract(executor, found.logIndex, directory, kLogFile, &errors);
    Print("end-extract status=%d\n", executor->EndExtract());
    Print("quit status=%d\n", executor->Quit());
    return 0;
}

int CatalogOnly(INetWorkerExecutor* executor, const wchar_t*) {
    FileFound found;
    Errors errors;
    InitializeAndCatalog(executor, &found, &errors);
    return 0;
}

// `run` on an executor over the DLL's own wrapper.
int RunInProcess(int (*run)(INetWorkerExecutor*, const wchar_t*), const wchar_t* directory) {
    INetWorkerApiWrapper* wrapper = nullptr;
    INetWorkerExecutor* executor = nullptr;
    if (!AllocateNetWorkerApiWrapper(&wrapper) ||
        !AllocateNetWorkerApiExecutor(&executor, wrapper)) {
        Print("allocation failed\n");
        return 2;
    }
    const int result = run(executor, directory);
    FreeNetWorkerExecutor(executor);
    FreeNetWorkerApiWrapper(wrapper);
    return result;
}

int RunWrapperDouble(const wchar_t* directory) {
    INetWorkerApiWrapper* real = nullptr;
    if (!AllocateNetWorkerApiWrapper(&real)) {
        Print("allocation failed\n");
        return 2;
    }
    auto* counting = new CountingWrapper(real);
    INetWorkerExecutor* executor = nullptr;
    if (!AllocateNetWorkerApiExecutor(&executor, counting)) {
        Print("allocation failed\n");
        return 2;
    }
    const int result = RunSession(executor, directory);
    FreeNetWorkerExecutor(executor);
    for (int slot = 1; slot <= 12; ++slot) {
        Print("wrapper-slot %d calls=%u\n", slot, counting->calls[slot]);
    }
    delete counting;  // this program's own deleting destructor
    FreeNetWorkerApiWrapper(real);
    return result;
}

// The pipe name of a helper session: unique per process.
void PipeName(wchar_t* name, size_t capacity, const wchar_t* purpose) {
    wchar_t prefix[64];
    msvcrt::WideCopy(prefix, 64, L"nwx-msvc-host-");
    msvcrt::WideAppend(prefix, 64, purpose);
    msvcrt::WideAppend(prefix, 64, L"-");
    msvcrt::UniquePipeName(name, capacity, prefix, 0);
}

uint32_t g_launcherCalls = 0;

// The host's own launcher: NetWorker64BitClient.exe beside this program, the bare pipe name as
// its command line.
long LaunchHelper(const wchar_t* pipeName) {
    ++g_launcherCalls;
    Print("launcher pipe=%S\n", pipeName);
    if (!msvcrt::StartHelperBesideProgram(pipeName)) {
        Print("launcher CreateProcessW failed %u\n", GetLastError());
        return -1;
    }
    return 0;
}

int RunHelper(const wchar_t* directory, bool ownLauncher) {
    wchar_t pipeName[96];
    PipeName(pipeName, 96, ownLauncher ? L"launcher" : L"builtin");
    INamedPipeConnection* connection = nullptr;
    INetWorkerExecutor* executor = nullptr;
    if (!AllocateNamedPipeConnection(&connection)) {
        Print("allocation failed\n");
        return 2;
    }
    const bool allocated =
        ownLauncher
            ? AllocateNetWorkerNamedPipeExecutor(&executor, pipeName, connection, &LaunchHelper)
            : AllocateNetWorkerNamedPipeExecutor(&executor, pipeName, connection);
    if (!allocated) {
        Print("allocation failed\n");
        return 2;
    }
    const int result = RunSession(executor, directory);
    Print("launcher calls=%u\n", g_launcherCalls);
    FreeNetWorkerExecutor(executor);
    FreeNamedPipeConnection(connection);
    return result;
}

// Every kind of object the library hands out, destroyed with `delete`: Visual C++ code calls
// slot 0 with flags 1, the library's deleting destructor frees the object on its own heap.
int RunDeleteThroughSlot0() {
    ILog* log = nullptr;
    if (GetLogger(L"MsvcHost", &log) != 0 || log == nullptr) {
        Print("GetLogger failed\n");
        return 2;
    }
    INamedPipeConnection* serverEnd = nullptr;
    INamedPipeConnection* clientConnection = nullptr;
    INetWorkerApiWrapper* wrapper = nullptr;
    INetWorkerExecutor* direct = nullptr;
    INetWorkerExecutor* piped = nullptr;
    INetWorkerNamedPipeClient* client = nullptr;
    wchar_t pipeName[96];
    PipeName(pipeName, 96, L"delete");
    if (!AllocateNamedPipeConnection(&serverEnd) ||
        !AllocateNamedPipeConnection(&clientConnection) || !AllocateNetWorkerApiWrapper(&wrapper) ||
        !AllocateNetWorkerApiExecutor(&direct, wrapper) ||
        !AllocateNetWorkerNamedPipeExecutor(&piped, pipeName, clientConnection) ||
        !AllocateNetWorkerNamedPipeClient(pipeName, clientConnection, direct, log, &client)) {
        Print("allocation failed\n");
        return 2;
    }

    // The server end of a pipe exists while its connection lives and is gone after the delete.
    serverEnd->OpenNewPipe(pipeName);
    wchar_t fullName[128];
    msvcrt::WideCopy(fullName, 128, L"\\\\.\\pipe\\");
    msvcrt::WideAppend(fullName, 128, pipeName);
    const BOOL before = WaitNamedPipeW(fullName, 1);
    delete serverEnd;
    const BOOL after = WaitNamedPipeW(fullName, 1);
    const DWORD afterError = after ? 0 : GetLastError();
    Print("delete connection pipe-before=%d pipe-after=%d error-after=%u\n", before, after,
          afterError);

    delete client;
    delete piped;
    delete direct;
    delete wrapper;
    delete clientConnection;
    Print("delete all done\n");
    FreeLogger(log);
    return 0;
}

}  // namespace

extern "C" void HostEntry() {
    wchar_t buffer[2048];
    wchar_t* arguments[4] = {};
    const int count = msvcrt::SplitCommandLine(buffer, 2048, arguments, 4);
    if (count < 2) {
        Print("usage: msvc_host.exe <mode> [restore directory]\n");
        ExitProcess(64);
    }
    const wchar_t* mode = arguments[1];
    const wchar_t* directory = count > 2 ? arguments[2] : L"";
    int result = 64;
    if (msvcrt::WideEquals(mode, L"in-process")) {
        result = RunInProcess(&RunSession, directory);
    } else if (msvcrt::WideEquals(mode, L"wrapper-double")) {
        result = RunWrapperDouble(directory);
    } else if (msvcrt::WideEquals(mode, L"helper")) {
        result = RunHelper(directory, false);
    } else if (msvcrt::WideEquals(mode, L"helper-launcher")) {
        result = RunHelper(directory, true);
    } else if (msvcrt::WideEquals(mode, L"catalog-error")) {
        result = RunInProcess(&CatalogOnly, directory);
    } else if (msvcrt::WideEquals(mode, L"delete-slot0")) {
        result = RunDeleteThroughSlot0();
    } else {
        Print("unknown mode %S\n", mode);
    }
    Print("exit %d\n", result);
    ExitProcess(static_cast<unsigned int>(result));
}
