#include "NetWorkerApiWrapper.h"

#include <cstring>
#include <string_view>
#include <type_traits>

#include "InstallDirectory.h"
#include "NsrInfoOutput.h"
#include "common/MethodTracer.h"
#include "common/TarnError.h"
#include "common/WideFormat.h"
#include "interfaces/NetWorkerStatus.h"

namespace {

// The service configuration buffer, and the smaller size announced for it (kept on purpose:
// docs/compatibility.md, "4086 of 4096 bytes").
constexpr DWORD kServiceConfigCapacity = 4096;
constexpr DWORD kServiceConfigAnnounced = 4086;

// GetProcAddress result to a typed entry point; void (*)() converts to any function type.
template <typename Fn>
Fn AsEntryPoint(FARPROC proc) {
    return reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(proc));
}

// A fixed-capacity narrow field of an XBSA record, which may fill its array without a zero.
template <size_t N>
std::string_view BoundedField(const char (&field)[N]) {
    return std::string_view(field, strnlen(field, N));
}

// A module field gets a new load. A retried Initialize overwrites handles of an earlier
// partial load without freeing them (kept on purpose: docs/compatibility.md, "libraries of a
// partial load stay").
void StoreModule(UniqueModule& field, HMODULE module) {
    LeakOnPurpose(field);
    field.reset(module);
}

// The five pipe handles of one nsrinfo.exe run, closed in their fixed order.
struct NsrInfoPipes {
    UniqueHandle outputRead;
    UniqueHandle outputWrite;
    UniqueHandle errorWrite;  // duplicate of outputWrite: the child's standard error
    UniqueHandle inputRead;
    UniqueHandle inputWrite;  // nothing is ever written to it

    ~NsrInfoPipes() {
        outputRead.reset();
        outputWrite.reset();
        inputRead.reset();
        inputWrite.reset();
        errorWrite.reset();
    }
};

// The trace name of CorrectFileSize, under which its helpers below also log.
constexpr wchar_t kCorrectFileSizeMethod[] = L"NetWorkerApiWrapper::CorrectFileSize";

// One nsrinfo.exe run: the program and the argument line, narrow for CreateProcessA and wide
// for the log.
struct NsrInfoCommand {
    char program[kNsrInfoTextCapacity] = {};
    wchar_t wideProgram[kNsrInfoTextCapacity] = {};
    char arguments[kNsrInfoTextCapacity] = {};
    wchar_t wideArguments[kNsrInfoTextCapacity] = {};
};

// "<install directory>\nsrinfo.exe", or the bare name without an installation directory (the
// system's search then finds the tool), and "-v -V -s <server> -n msexch -N "<space>:<path>"
// <client>".
void BuildNsrInfoCommand(const std::wstring& installDir, const BSA_ObjectDescriptor& desc,
                         const char* serverName, const char* clientName, NsrInfoCommand* command) {
    char quotedName[kNsrInfoTextCapacity] = {};
    FormatQuotedObjectName(quotedName, sizeof(quotedName),
                           BoundedField(desc.objectName.objectSpaceName),
                           BoundedField(desc.objectName.pathName));
    if (!installDir.empty()) {
        FormatWide(command->wideProgram, kNsrInfoTextCapacity, L"%ls\\nsrinfo.exe",
                   installDir.c_str());
        WideCharToMultiByte(CP_ACP, 0, command->wideProgram, -1, command->program,
                            static_cast<int>(kNsrInfoTextCapacity), nullptr, nullptr);
    } else {
        std::strcpy(command->program, "nsrinfo.exe");
        MultiByteToWideChar(CP_ACP, 0, command->program, -1, command->wideProgram,
                            static_cast<int>(kNsrInfoTextCapacity));
    }
    FormatNsrInfoArguments(command->arguments, sizeof(command->arguments), serverName, quotedName,
                           clientName);
    MultiByteToWideChar(CP_ACP, 0, command->arguments, -1, command->wideArguments,
                        static_cast<int>(kNsrInfoTextCapacity));
}

// What one run gave: its exit code and the first bytes of its output, terminated.
struct NsrInfoRun {
    DWORD exitCode = 0;
    char output[kNsrInfoReadLimit + 1] = {};
    DWORD bytesRead = 0;
};

// Starts the tool with its standard output and error on one pipe (writing its command to the
// log once the pipes exist), waits for it to end and reads its output once. A pipe or the
// process that cannot be made raises 1627.
void RunNsrInfo(ILog* log, NsrInfoCommand& command, NsrInfoRun* run) {
    NsrInfoPipes pipes;
    SECURITY_ATTRIBUTES inheritable = {};
    inheritable.nLength = sizeof(inheritable);
    inheritable.lpSecurityDescriptor = nullptr;
    inheritable.bInheritHandle = TRUE;

    if (!CreatePipe(pipes.outputRead.put(), pipes.outputWrite.put(), &inheritable, 0)) {
        RaiseTarnError(log, NetWorkerStatus::FunctionFailed, kCorrectFileSizeMethod,
                       L"CreatePipe stdout failed");
    }
    const HANDLE self = GetCurrentProcess();
    if (!DuplicateHandle(self, pipes.outputWrite.get(), self, pipes.errorWrite.put(), 0, TRUE,
                         DUPLICATE_SAME_ACCESS)) {
        RaiseTarnError(log, NetWorkerStatus::FunctionFailed, kCorrectFileSizeMethod,
                       L"DuplicateHandle failed");
    }
    if (!CreatePipe(pipes.inputRead.put(), pipes.inputWrite.put(), &inheritable, 0)) {
        RaiseTarnError(log, NetWorkerStatus::FunctionFailed, kCorrectFileSizeMethod,
                       L"CreatePipe stdin failed");
    }

    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = pipes.inputRead.get();
    startup.hStdOutput = pipes.outputWrite.get();
    startup.hStdError = pipes.errorWrite.get();

    log->Info(kCorrectFileSizeMethod, L"%ls %ls", command.wideProgram, command.wideArguments);
    // The argument line alone, without the program name (kept on purpose:
    // docs/compatibility.md, "nsrinfo.exe without its name").
    PROCESS_INFORMATION child = {};
    if (!CreateProcessA(command.program, command.arguments, nullptr, nullptr, TRUE,
                        CREATE_NO_WINDOW, nullptr, nullptr, &startup, &child)) {
        RaiseTarnError(log, NetWorkerStatus::FunctionFailed, kCorrectFileSizeMethod,
                       L"CreateProcess failed: %ls", command.wideProgram);
    }
    UniqueHandle childProcess(child.hProcess);
    UniqueHandle childThread(child.hThread);
    // The child's handles are never closed (kept on purpose: docs/compatibility.md, "kept child
    // handles").
    const HANDLE process = LeakOnPurpose(childProcess);
    LeakOnPurpose(childThread);

    // Wait first, read after, without a limit (kept on purpose: docs/compatibility.md,
    // "unbounded wait for nsrinfo.exe").
    WaitForSingleObject(process, INFINITE);

    if (!GetExitCodeProcess(process, &run->exitCode)) {
        log->Error(kCorrectFileSizeMethod, L"GetExitCodeProcess failed. GetLastError() 0x%08lx",
                   static_cast<unsigned long>(GetLastError()));
    }
    if (!ReadFile(pipes.outputRead.get(), run->output, static_cast<DWORD>(kNsrInfoReadLimit),
                  &run->bytesRead, nullptr)) {
        run->bytesRead = 0;
    }
    run->output[run->bytesRead] = '\0';
}

}  // namespace

NetWorkerApiWrapper::NetWorkerApiWrapper() : m_log(AcquireLoggerOrThrow(L"NetWorkerApiWrapper")) {}

NetWorkerApiWrapper::~NetWorkerApiWrapper() {
    // Frees while the logger still takes the trace lines; m_log goes next, m_installDir last.
    FreeNetWorkerLibraries();
}

int32_t NetWorkerApiWrapper::Initialize() {
    static const wchar_t kMethod[] = L"NetWorkerApiWrapper::Initialize";
    NWX_TRACE_METHOD(Log(), kMethod);
    if (m_initialized) {
        return NetWorkerStatus::Success;
    }

    return RunAsStatus([&] {
        const int32_t status = GetInstallDirectory(m_installDir);
        // Only a negative status stops here: after the lookup's own positive 110 or 1627
        // loading carries on with the directory as it stood (kept on purpose:
        // docs/compatibility.md, "positive failure codes").
        if (status < 0) {
            RaiseTarnError(Log(), status, kMethod, L"GetInstallDirectory Failed");
        }
        LoadNetWorkerLibraries(m_installDir);
        GetNetWorkerProcAddresses();
        InitializeNetWorkerApi();
        m_initialized = true;
        return status;
    });
}

int32_t NetWorkerApiWrapper::GetInstallDirectory(std::wstring& dir) {
    static const wchar_t kMethod[] = L"NetWorkerApiWrapper::GetInstallDirectory";
    NWX_TRACE_METHOD(Log(), kMethod);
    return RunAsStatus([&] {
        UniqueServiceHandle manager(
            OpenSCManagerW(nullptr, SERVICES_ACTIVE_DATABASEW, GENERIC_READ));
        if (!manager) {
            RaiseTarnError(Log(), NetWorkerStatus::OpenFailed, kMethod,
                           L"Could not open SCManager");
        }
        // Closed on every way out: a host that starts a session every few minutes must not
        // collect one per session, here and in the service control manager.
        UniqueServiceHandle service(OpenServiceW(manager.get(), L"nsrexecd", SERVICE_QUERY_CONFIG));
        if (!service) {
            RaiseTarnError(Log(), NetWorkerStatus::OpenFailed, kMethod,
                           L"Could not open service nsrexecd");
        }

        alignas(QUERY_SERVICE_CONFIGW) BYTE buffer[kServiceConfigCapacity] = {};
        auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer);
        DWORD needed = 0;
        if (!QueryServiceConfigW(service.get(), config, kServiceConfigAnnounced, &needed)) {
            // Left open (kept on purpose: docs/compatibility.md, "kept service handle").
            LeakOnPurpose(service);
            RaiseTarnError(Log(), NetWorkerStatus::FunctionFailed, kMethod,
                           L"QueryServiceConfig failed");
        }

        dir = config->lpBinaryPathName != nullptr ? config->lpBinaryPathName : L"";
        if (!dir.empty()) {
            dir = StripBeforeDriveLetter(dir);
        }
        dir = CutAtLastBackslash(dir);
        return NetWorkerStatus::Success;
    });
}

void NetWorkerApiWrapper::LoadNetWorkerLibraries(std::wstring dir) {
    static const wchar_t kMethod[] = L"NetWorkerApiWrapper::LoadNetWorkerLibraries";
    NWX_TRACE_METHOD(Log(), kMethod);

    struct LibraryRow {
        const char* name;
        UniqueModule NetWorkerApiWrapper::*module;
    };
    static const LibraryRow kLibraries[] = {
        {"\\liblocal.dll", &NetWorkerApiWrapper::m_liblocal},
        {"\\librpc.dll", &NetWorkerApiWrapper::m_librpc},
        {"\\librap.dll", &NetWorkerApiWrapper::m_librap},
        {"\\libnsr.dll", &NetWorkerApiWrapper::m_libnsr},
        {"\\libasm.dll", &NetWorkerApiWrapper::m_libasm},
        {"\\libbsa.dll", &NetWorkerApiWrapper::m_libbsa},
    };

    const auto load = [&dir](const char* name) {
        wchar_t wideName[MAX_PATH] = {};
        MultiByteToWideChar(CP_ACP, 0, name, -1, wideName, MAX_PATH);
        return LoadLibraryW((dir + wideName).c_str());
    };

    for (const LibraryRow& row : kLibraries) {
        UniqueModule& field = this->*row.module;
        StoreModule(field, load(row.name));
        if (field) {
            continue;
        }
        if (row.module == &NetWorkerApiWrapper::m_libbsa) {
            StoreModule(field, load("\\libnsrbsa.dll"));
            if (field) {
                Log()->Info(kMethod, L"Loaded 'libnsrbsa.dll'");
                continue;
            }
        }
        // Names the first file of the row, libbsa.dll, even when libnsrbsa.dll was tried last.
        RaiseTarnError(Log(), NetWorkerStatus::DllNotFound, kMethod, L"LoadLibrary Failed: %S",
                       row.name + 1);
    }
}

void NetWorkerApiWrapper::GetNetWorkerProcAddresses() {
    static const wchar_t kMethod[] = L"NetWorkerApiWrapper::GetNetWorkerProcAddresses";
    NWX_TRACE_METHOD(Log(), kMethod);

    const auto resolve = [this](const UniqueModule& module, const char* name, auto& entryPoint) {
        using Fn = std::remove_reference_t<decltype(entryPoint)>;
        entryPoint = AsEntryPoint<Fn>(GetProcAddress(module.get(), name));
        if (entryPoint == nullptr) {
            RaiseTarnError(Log(), NetWorkerStatus::EntryPointMissing, kMethod,
                           L"GetProcAddress Failed: %S", name);
        }
    };

    resolve(m_liblocal, "_lginit", m_lginit);
    resolve(m_libnsr, "nsrlib_init", m_nsrlib_init);
    resolve(m_libbsa, "BSAInit", m_BSAInit);
    resolve(m_libbsa, "BSATerminate", m_BSATerminate);
    resolve(m_libbsa, "BSABeginTxn", m_BSABeginTxn);
    resolve(m_libbsa, "BSAEndTxn", m_BSAEndTxn);
    resolve(m_libbsa, "BSAQueryObject", m_BSAQueryObject);
    resolve(m_libbsa, "BSAQueryApiVersion", m_BSAQueryApiVersion);
    resolve(m_libbsa, "BSAGetNextQueryObject", m_BSAGetNextQueryObject);
    resolve(m_libbsa, "BSAGetObject", m_BSAGetObject);
    resolve(m_libbsa, "BSAGetData", m_BSAGetData);
    resolve(m_libbsa, "BSAEndData", m_BSAEndData);
}

void NetWorkerApiWrapper::InitializeNetWorkerApi() {
    NWX_TRACE_METHOD(Log(), L"NetWorkerApiWrapper::InitializeNetWorkerApi");
    // Both results are ignored: NetWorker reports its own start-up trouble later, in BSAInit.
    m_lginit("nsr", nullptr, nullptr);
    void* context = nullptr;
    m_nsrlib_init(&context);
}

void NetWorkerApiWrapper::FreeNetWorkerLibraries() {
    NWX_TRACE_METHOD(Log(), L"NetWorkerApiWrapper::FreeNetWorkerLibraries");
    // Load order, not reversed (kept on purpose: docs/compatibility.md, "load order on unload").
    m_liblocal.reset();
    m_librpc.reset();
    m_librap.reset();
    m_libnsr.reset();
    m_libasm.reset();
    m_libbsa.reset();
}

int32_t NetWorkerApiWrapper::BSAInit(BSA_Handle* handle, BSA_SecurityToken* token,
                                     BSA_ObjectOwner* owner, char** environment) {
    NWX_TRACE_METHOD(Log(), L"NetWorkerApiWrapper::BSAInit");
    return m_BSAInit(handle, token, owner, environment);
}

int32_t NetWorkerApiWrapper::BSATerminate(BSA_Handle handle) {
    NWX_TRACE_METHOD(Log(), L"NetWorkerApiWrapper::BSATerminate");
    return m_BSATerminate(handle);
}

int32_t NetWorkerApiWrapper::BSABeginTxn(BSA_Handle handle) {
    NWX_TRACE_METHOD(Log(), L"NetWorkerApiWrapper::BSABeginTxn");
    return m_BSABeginTxn(handle);
}

int32_t NetWorkerApiWrapper::BSAEndTxn(BSA_Handle handle) {
    NWX_TRACE_METHOD(Log(), L"NetWorkerApiWrapper::BSAEndTxn");
    // Always a commit: nothing is ever written, and a library that declares the standard's vote
    // must not read whatever the register held (docs/compatibility.md, "BSAEndTxn's vote").
    return m_BSAEndTxn(handle, BSAVote_COMMIT);
}

int32_t NetWorkerApiWrapper::BSAQueryObject(BSA_Handle handle, BSA_QueryDescriptor* query,
                                            BSA_ObjectDescriptor* descriptor) {
    NWX_TRACE_METHOD(Log(), L"NetWorkerApiWrapper::BSAQueryObject");
    return m_BSAQueryObject(handle, query, descriptor);
}

int32_t NetWorkerApiWrapper::BSAQueryApiVersion(BSA_ApiVersion* version) {
    NWX_TRACE_METHOD(Log(), L"NetWorkerApiWrapper::BSAQueryApiVersion");
    return m_BSAQueryApiVersion(version);
}

int32_t NetWorkerApiWrapper::BSAGetNextQueryObject(BSA_Handle handle,
                                                   BSA_ObjectDescriptor* descriptor) {
    NWX_TRACE_METHOD(Log(), L"NetWorkerApiWrapper::BSAGetNextQueryObject");
    return m_BSAGetNextQueryObject(handle, descriptor);
}

int32_t NetWorkerApiWrapper::BSAGetObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor,
                                          BSA_DataBlock32* dataBlock) {
    NWX_TRACE_METHOD(Log(), L"NetWorkerApiWrapper::BSAGetObject");
    return m_BSAGetObject(handle, descriptor, dataBlock);
}

int32_t NetWorkerApiWrapper::BSAGetData(BSA_Handle handle, BSA_DataBlock32* dataBlock) {
    NWX_TRACE_METHOD(Log(), L"NetWorkerApiWrapper::BSAGetData");
    return m_BSAGetData(handle, dataBlock);
}

int32_t NetWorkerApiWrapper::BSAEndData(BSA_Handle handle) {
    NWX_TRACE_METHOD(Log(), L"NetWorkerApiWrapper::BSAEndData");
    return m_BSAEndData(handle);
}

int32_t NetWorkerApiWrapper::CorrectFileSize(const BSA_ObjectDescriptor* desc, uint64_t* size,
                                             const char* serverName, const char* clientName) {
    NWX_TRACE_METHOD(Log(), kCorrectFileSizeMethod);
    if (size != nullptr) {
        *size = 0;
    }
    return RunAsStatus([&] {
        if (desc == nullptr || size == nullptr || serverName == nullptr || clientName == nullptr) {
            RaiseTarnError(Log(), NetWorkerStatus::InvalidArgument, kCorrectFileSizeMethod,
                           L"CorrectFileSize called with a null argument");
        }
        NsrInfoCommand command;
        BuildNsrInfoCommand(m_installDir, *desc, serverName, clientName, &command);
        NsrInfoRun run;
        RunNsrInfo(Log(), command, &run);
        if (run.exitCode != 0) {
            Log()->Info(kCorrectFileSizeMethod, L"%ls %ls", command.wideProgram,
                        command.wideArguments);
            Log()->Info(kCorrectFileSizeMethod, L"%S", run.output);
            RaiseTarnError(Log(), NetWorkerStatus::FunctionFailed, kCorrectFileSizeMethod,
                           L"nsrinfo.exe failed: 0x%08lx",
                           static_cast<unsigned long>(run.exitCode));
        }

        // No marker, an empty read or a failed read: reported like an unreadable value.
        const NsrInfoSize parsed = ParseNsrInfoSize(std::string_view(run.output, run.bytesRead));
        if (parsed.outcome != NsrInfoSizeOutcome::Parsed) {
            RaiseTarnError(Log(), NetWorkerStatus::FunctionFailed, kCorrectFileSizeMethod,
                           L"Invalid file size");
        }
        *size = parsed.size;
        return NetWorkerStatus::Success;
    });
}
