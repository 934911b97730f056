// A host as Visual C++ builds one with C++ exceptions on: compiled by clang for
// x86_64-pc-windows-msvc with -fexceptions, linked by lld-link against the SDK's import libraries
// and Wine's vcruntime140.dll (the Visual C++ runtime's exception handling), no C runtime. Its
// std::exception family is declared here as Visual C++'s standard library lays it out, so its
// catch clauses are those of a real host. It runs one case per process and prints what it saw,
// one fact per line, for msvc_host_tests to check; a GCC exception reaching its frames would end
// it unhandled (the test then sees no "exit 0").
//
// usage: msvc_exception_host.exe <case> <mode> <restore directory>
//   modes:  in-process | helper | helper-launcher
//   cases:
//   reversed-window   Catalog with timeAfter later than timeBefore, caught four ways; then a
//                     whole catalogue on the same executor
//   helper-killed     (helper modes) the helper is killed during an extraction; ExtractFile's
//                     status, EndExtract's exception caught three ways; then a new session
//                     restores a file
//   progress-throws   the progress callback throws this program's own exception at its third
//                     report; then, in the same session, the catalogue again, another object
//                     without a progress callback, and the same object again
//   progress-stops    the same with the progress callback answering "stop" at its third report
//   keep-exception    twenty rounds: the reversed window's exception kept with
//                     std::exception_ptr inside the catch, other work done once the catch has
//                     ended, a second copy made, the copies destroyed in either order and
//                     rethrown and caught by type; the process heap validated after each round
//   filefound-throws  the file-found callback throws at the third file; the catalogue again

#include "MsvcRuntime.h"
#include "NetWorkerXbsa.h"

// --- what a Visual C++ host gets from its runtime and standard library ---

// type_info as Visual C++'s <vcruntime_typeinfo.h> lays it out; name() undecorates through
// vcruntime140.dll into a list that a real host links from the runtime's static part.
struct alignas(16) __type_info_node {
    void* header[2];
};
extern "C" __type_info_node __type_info_root_node = {};

struct __std_type_info_data {
    const char* undecoratedName;
    const char decoratedName[1];
};
extern "C" __declspec(dllimport) const
    char* __std_type_info_name(__std_type_info_data* data, __type_info_node* root);

class type_info {
public:
    virtual ~type_info() noexcept;  // its vftable is nwx_type_info_vftable below
    const char* name() const noexcept {
        return __std_type_info_name(&m_data, &__type_info_root_node);
    }
    type_info(const type_info&) = delete;
    type_info& operator=(const type_info&) = delete;

private:
    mutable __std_type_info_data m_data;
};

namespace std {
using ::type_info;
}

// The vftable of type_info, referred to by the type descriptors of the catch clauses; a real
// host links it from the runtime's import library.
extern "C" const void* const nwx_type_info_vftable[2] __asm__("??_7type_info@@6B@") = {nullptr,
                                                                                       nullptr};

namespace std {

// As Visual C++'s <exception> and <stdexcept> lay them out: the vftable pointer (deleting
// destructor, what), the text and whether the destructor frees it.
class exception {
public:
    exception() noexcept : m_what(nullptr), m_doFree(false) {}
    explicit exception(const char* what) noexcept : m_what(what), m_doFree(false) {}
    exception(const exception& other) noexcept : m_what(other.m_what), m_doFree(false) {}
    exception& operator=(const exception& other) noexcept {
        m_what = other.m_what;
        return *this;
    }
    virtual ~exception() noexcept {}
    virtual const char* what() const noexcept { return m_what != nullptr ? m_what : "Unknown"; }

private:
    const char* m_what;
    [[maybe_unused]] bool m_doFree;  // never set: this program frees no text
};

class logic_error : public exception {
public:
    explicit logic_error(const char* what) : exception(what) {}
};

class invalid_argument : public logic_error {
public:
    explicit invalid_argument(const char* what) : logic_error(what) {}
};

class runtime_error : public exception {
public:
    explicit runtime_error(const char* what) : exception(what) {}
};

}  // namespace std

static_assert(sizeof(std::exception) == 24, "std::exception as Visual C++ lays it out");

// What Visual C++'s <exception> builds std::exception_ptr on: msvcp140.dll's functions over a
// two-pointer object.
struct ExceptionPtr {
    void* data[2];
};
__declspec(dllimport) void __ExceptionPtrCreate(void* pointer);
__declspec(dllimport) void __ExceptionPtrDestroy(void* pointer);
__declspec(dllimport) void __ExceptionPtrCopy(void* target, const void* source);
__declspec(dllimport) void __ExceptionPtrCurrentException(void* pointer);
[[noreturn]] __declspec(dllimport) void __ExceptionPtrRethrow(const void* pointer);

extern "C" {
typedef DWORD(__stdcall* ThreadStart)(void* parameter);

struct PROCESSENTRY32W {
    DWORD dwSize;
    DWORD cntUsage;
    DWORD th32ProcessID;
    uintptr_t th32DefaultHeapID;
    DWORD th32ModuleID;
    DWORD cntThreads;
    DWORD th32ParentProcessID;
    int32_t pcPriClassBase;
    DWORD dwFlags;
    wchar_t szExeFile[260];
};
static_assert(sizeof(PROCESSENTRY32W) == 568, "PROCESSENTRY32W layout");

__declspec(dllimport) HANDLE CreateThread(void* security, size_t stackSize, ThreadStart start,
                                          void* parameter, DWORD flags, DWORD* threadId);
__declspec(dllimport) void Sleep(DWORD milliseconds);
__declspec(dllimport) HANDLE OpenProcess(DWORD access, BOOL inherit, DWORD processId);
__declspec(dllimport) BOOL TerminateProcess(HANDLE process, unsigned int exitCode);
__declspec(dllimport) HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD processId);
__declspec(dllimport) BOOL Process32FirstW(HANDLE snapshot, PROCESSENTRY32W* entry);
__declspec(dllimport) BOOL Process32NextW(HANDLE snapshot, PROCESSENTRY32W* entry);
__declspec(dllimport) DWORD GetFileAttributesW(const wchar_t* path);
}

using msvcrt::Print;

namespace {

constexpr DWORD kSnapProcesses = 0x00000002;
constexpr DWORD kProcessTerminate = 0x0001;
constexpr DWORD kSynchronize = 0x00100000;
constexpr DWORD kInvalidAttributes = 0xFFFFFFFF;
constexpr uint32_t kNotFound = 0xFFFFFFFFu;

// 2,097,153 bytes: long enough, with the simulator's throttle, to be interrupted.
const char* const kDatabasePath = "/Second Storage Group/Mailbox Store 2 (EX01).edb";
const wchar_t* const kDatabaseFile = L"Mailbox Store 2 (EX01).edb";
const char* const kLogPath = "/Second Storage Group/E01000A2.log";
const wchar_t* const kLogFile = L"E01000A2.log";

// This program's own exception type, thrown from its callbacks.
struct HostError {
    int code;
};

class FileFound : public INetWorkerFileFoundCallBack {
public:
    uint32_t count = 0;
    uint32_t firstIndex = kNotFound;
    uint32_t databaseIndex = kNotFound;
    uint32_t logIndex = kNotFound;
    uint32_t throwAt = 0;  // the file (from 1) at which to throw; 0: never

    bool NetWorkerFileFound(const NetWorkerFileInfo* file) override {
        ++count;
        if (firstIndex == kNotFound) {
            firstIndex = file->index;
        }
        if (msvcrt::NarrowEquals(file->path, kDatabasePath)) {
            databaseIndex = file->index;
        } else if (msvcrt::NarrowEquals(file->path, kLogPath)) {
            logIndex = file->index;
        }
        if (count == throwAt) {
            throw HostError{7};
        }
        return false;
    }
};

class Progress : public INetWorkerUpdateProgressCallBack {
public:
    uint64_t bytes = 0;
    uint32_t reports = 0;
    uint32_t throwAt = 0;  // the report (from 1) at which to throw; 0: never
    uint32_t stopAt = 0;   // the report (from 1) answered "stop"; 0: never
    void (*onFirstReport)() = nullptr;

    bool UpdateProgress(NetWorkerProgressInfo* progress) override {
        ++reports;
        bytes += progress->bytesDone;
        if (reports == 1 && onFirstReport != nullptr) {
            onFirstReport();
        }
        if (reports == throwAt) {
            throw HostError{42};
        }
        return reports == stopAt;
    }
};

bool FileExists(const wchar_t* directory, const wchar_t* name) {
    wchar_t path[600];
    msvcrt::WideCopy(path, 600, directory);
    msvcrt::WideAppend(path, 600, L"\\");
    msvcrt::WideAppend(path, 600, name);
    return GetFileAttributesW(path) != kInvalidAttributes;
}

// The host's own launcher: NetWorker64BitClient.exe beside this program.
long LaunchHelper(const wchar_t* pipeName) {
    return msvcrt::StartHelperBesideProgram(pipeName) ? 0 : -1;
}

// Kills this program's helper, found among the running processes by its parent.
DWORD __stdcall KillHelperSoon(void*) {
    Sleep(300);
    HANDLE snapshot = CreateToolhelp32Snapshot(kSnapProcesses, 0);
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    int killed = 0;
    for (BOOL more = Process32FirstW(snapshot, &entry); more;
         more = Process32NextW(snapshot, &entry)) {
        if (entry.th32ParentProcessID == GetCurrentProcessId() &&
            msvcrt::WideEquals(entry.szExeFile, L"NetWorker64BitClient.exe")) {
            HANDLE helper = OpenProcess(kProcessTerminate | kSynchronize, 0, entry.th32ProcessID);
            if (helper != nullptr && TerminateProcess(helper, 9)) {
                WaitForSingleObject(helper, msvcrt::Infinite);
                ++killed;
            }
            if (helper != nullptr) {
                CloseHandle(helper);
            }
        }
    }
    CloseHandle(snapshot);
    Print("helper killed count=%d\n", killed);
    return 0;
}

void KillHelperFromAThread() {
    HANDLE thread = CreateThread(nullptr, 0, &KillHelperSoon, nullptr, 0, nullptr);
    if (thread != nullptr) {
        CloseHandle(thread);
    }
}

// The objects of one session, freed in reverse order of creation.
class Session {
public:
    Session(const wchar_t* mode, int number) {
        if (msvcrt::WideEquals(mode, L"in-process")) {
            m_ready = AllocateNetWorkerApiWrapper(&m_wrapper) &&
                      AllocateNetWorkerApiExecutor(&m_executor, m_wrapper);
            return;
        }
        wchar_t pipeName[96];
        msvcrt::UniquePipeName(pipeName, 96, L"nwx-msvc-exceptions-",
                               static_cast<uint32_t>(number));
        if (!AllocateNamedPipeConnection(&m_connection)) {
            return;
        }
        m_ready = msvcrt::WideEquals(mode, L"helper-launcher")
                      ? AllocateNetWorkerNamedPipeExecutor(&m_executor, pipeName, m_connection,
                                                           &LaunchHelper)
                      : AllocateNetWorkerNamedPipeExecutor(&m_executor, pipeName, m_connection);
    }
    ~Session() {
        FreeNetWorkerExecutor(m_executor);
        FreeNetWorkerApiWrapper(m_wrapper);
        FreeNamedPipeConnection(m_connection);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    bool Ready() const { return m_ready; }
    INetWorkerExecutor* operator->() { return m_executor; }

    // Initialize and a whole catalogue; false (after saying why) when either failed.
    bool Start(FileFound* found) {
        const int32_t status = m_executor->Initialize("cli", "srv");
        Print("initialize status=%d\n", status);
        if (status != 0) {
            return false;
        }
        Print("catalog status=%d files=%u\n", m_executor->Catalog(nullptr, nullptr, found, nullptr),
              found->count);
        return found->databaseIndex != kNotFound && found->logIndex != kNotFound;
    }

private:
    bool m_ready = false;
    INetWorkerApiWrapper* m_wrapper = nullptr;
    INamedPipeConnection* m_connection = nullptr;
    INetWorkerExecutor* m_executor = nullptr;
};

FILETIME Day(uint32_t daysAfter2024) {
    // 2024-01-01 00:00 UTC in 100-ns ticks since 1601, plus whole days.
    const uint64_t ticks = 133485408000000000ull + daysAfter2024 * 864000000000ull;
    FILETIME time;
    time.dwLowDateTime = static_cast<DWORD>(ticks);
    time.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return time;
}

int ReversedWindow(const wchar_t* mode) {
    Session session(mode, 1);
    FileFound found;
    if (!session.Ready() || !session.Start(&found)) {
        return 2;
    }
    const FILETIME early = Day(100);
    const FILETIME late = Day(200);
    FileFound ignored;
    try {
        session->Catalog(&early, &late, &ignored, nullptr);
        Print("no exception\n");
    } catch (const std::invalid_argument& e) {
        Print("caught invalid_argument by reference what=%s\n", e.what());
    }
    try {
        session->Catalog(&early, &late, &ignored, nullptr);
        Print("no exception\n");
    } catch (std::logic_error e) {
        Print("caught logic_error by value what=%s\n", e.what());
    }
    try {
        session->Catalog(&early, &late, &ignored, nullptr);
        Print("no exception\n");
    } catch (const std::exception& e) {
        Print("caught exception by reference what=%s\n", e.what());
    }
    try {
        session->Catalog(&early, &late, &ignored, nullptr);
        Print("no exception\n");
    } catch (...) {
        Print("caught with ellipsis\n");
    }
    try {
        session->Catalog(&early, &late, &ignored, nullptr);
        Print("no exception\n");
    } catch (const std::exception& e) {
        // The object's RTTI, as the runtime reads it behind typeid and dynamic_cast.
        Print("typeid name=%s\n", typeid(e).name());
        Print("dynamic_cast logic_error=%d runtime_error=%d\n",
              dynamic_cast<const std::logic_error*>(&e) != nullptr ? 1 : 0,
              dynamic_cast<const std::runtime_error*>(&e) != nullptr ? 1 : 0);
    }
    FileFound again;
    const int32_t status = session->Catalog(nullptr, nullptr, &again, nullptr);
    Print("catalog after status=%d files=%u first=%u\n", status, again.count, again.firstIndex);
    return 0;
}

// One round: the exception kept inside the catch, the catch ended, the session used, a second
// copy made, one destroyed (which one by `firstGoesFirst`), the other rethrown and caught by
// type. True when the kept copy still reads the library's text.
bool KeepOneException(Session& session, bool firstGoesFirst) {
    const FILETIME early = Day(100);
    const FILETIME late = Day(200);
    ExceptionPtr kept;
    ExceptionPtr second;
    __ExceptionPtrCreate(&kept);
    __ExceptionPtrCreate(&second);
    FileFound ignored;
    try {
        session->Catalog(&early, &late, &ignored, nullptr);
    } catch (const std::invalid_argument&) {
        __ExceptionPtrCurrentException(&kept);
    }
    // Other work once the catch has ended: the library and the simulated server allocate and
    // write, where a freed exception object would be overwritten.
    FileFound listed;
    session->Catalog(nullptr, nullptr, &listed, nullptr);
    __ExceptionPtrCopy(&second, &kept);
    ExceptionPtr& destroyed = firstGoesFirst ? kept : second;
    ExceptionPtr& rethrown = firstGoesFirst ? second : kept;
    __ExceptionPtrDestroy(&destroyed);
    bool right = false;
    try {
        __ExceptionPtrRethrow(&rethrown);
    } catch (const std::invalid_argument& e) {
        right = msvcrt::NarrowEquals(e.what(), "timeAfter cannot be later than timeBefore");
    } catch (...) {
    }
    __ExceptionPtrDestroy(&rethrown);
    return right && listed.count == 14;
}

int KeepException(const wchar_t* mode) {
    Session session(mode, 1);
    FileFound found;
    if (!session.Ready() || !session.Start(&found)) {
        return 2;
    }
    int right = 0;
    int heapValid = 0;
    const int rounds = 20;
    for (int round = 0; round < rounds; ++round) {
        right += KeepOneException(session, round % 2 == 0) ? 1 : 0;
        heapValid += HeapValidate(GetProcessHeap(), 0, nullptr) ? 1 : 0;
    }
    Print("kept exceptions rounds=%d right=%d heap-valid=%d\n", rounds, right, heapValid);
    return 0;
}

int HelperKilled(const wchar_t* mode, const wchar_t* directory) {
    {
        Session session(mode, 1);
        FileFound found;
        if (!session.Ready() || !session.Start(&found)) {
            return 2;
        }
        Print("begin-extract status=%d\n", session->BeginExtract());
        Progress progress;
        progress.onFirstReport = &KillHelperFromAThread;
        const int32_t status =
            session->ExtractFile(found.databaseIndex, directory, kDatabaseFile, &progress, nullptr);
        Print("extract status=%d\n", status);
        try {
            session->EndExtract();
            Print("no exception\n");
        } catch (const std::runtime_error& e) {
            Print("caught runtime_error by reference what=%s\n", e.what());
        }
        try {
            session->EndExtract();
            Print("no exception\n");
        } catch (std::exception e) {
            Print("caught exception by value what=%s\n", e.what());
        }
        try {
            session->EndExtract();
            Print("no exception\n");
        } catch (...) {
            Print("caught with ellipsis\n");
        }
    }
    Session next(mode, 2);
    FileFound found;
    if (!next.Ready() || !next.Start(&found)) {
        return 2;
    }
    Print("next begin-extract status=%d\n", next->BeginExtract());
    Progress progress;
    Print("next extract status=%d\n",
          next->ExtractFile(found.logIndex, directory, kLogFile, &progress, nullptr));
    Print("next end-extract status=%d\n", next->EndExtract());
    return 0;
}

// After a fault ended one extraction: the same session lists, restores another object without a
// progress callback, and restores the interrupted object again.
void SessionGoesOn(Session& session, const FileFound& found, const wchar_t* directory) {
    // A catalogue has a transaction of its own: the extraction's is ended first.
    Print("end-extract after fault status=%d\n", session->EndExtract());
    FileFound again;
    const int32_t catalog = session->Catalog(nullptr, nullptr, &again, nullptr);
    Print("catalog after status=%d files=%u first=%u\n", catalog, again.count, again.firstIndex);
    Print("begin-extract again status=%d\n", session->BeginExtract());
    Print("extract without progress status=%d\n",
          session->ExtractFile(found.logIndex, directory, kLogFile, nullptr, nullptr));
    Progress progress;
    const int32_t status =
        session->ExtractFile(found.databaseIndex, directory, kDatabaseFile, &progress, nullptr);
    Print("extract again status=%d bytes=%I64u\n", status, progress.bytes);
    Print("end-extract status=%d\n", session->EndExtract());
}

// The progress callback throws (`stop` false) or answers "stop" at its third report.
int ProgressFault(const wchar_t* mode, const wchar_t* directory, bool stop) {
    Session session(mode, 1);
    FileFound found;
    if (!session.Ready() || !session.Start(&found)) {
        return 2;
    }
    Print("begin-extract status=%d\n", session->BeginExtract());
    Progress faulty;
    (stop ? faulty.stopAt : faulty.throwAt) = 3;
    try {
        const int32_t status =
            session->ExtractFile(found.databaseIndex, directory, kDatabaseFile, &faulty, nullptr);
        Print("extract status=%d reports=%u\n", status, faulty.reports);
    } catch (const HostError& e) {
        Print("caught host-error code=%d reports=%u\n", e.code, faulty.reports);
    }
    Print("file after fault exists=%d\n", FileExists(directory, kDatabaseFile) ? 1 : 0);
    SessionGoesOn(session, found, directory);
    return 0;
}

int FileFoundThrows(const wchar_t* mode) {
    Session session(mode, 1);
    if (!session.Ready()) {
        return 2;
    }
    Print("initialize status=%d\n", session->Initialize("cli", "srv"));
    FileFound throwing;
    throwing.throwAt = 3;
    try {
        session->Catalog(nullptr, nullptr, &throwing, nullptr);
        Print("no exception\n");
    } catch (const HostError& e) {
        Print("caught host-error code=%d files=%u\n", e.code, throwing.count);
    }
    FileFound again;
    const int32_t status = session->Catalog(nullptr, nullptr, &again, nullptr);
    Print("catalog after status=%d files=%u first=%u\n", status, again.count, again.firstIndex);
    return 0;
}

}  // namespace

extern "C" void HostEntry() {
    wchar_t buffer[2048];
    wchar_t* arguments[5] = {};
    const int count = msvcrt::SplitCommandLine(buffer, 2048, arguments, 5);
    if (count < 4) {
        Print("usage: msvc_exception_host.exe <case> <mode> <restore directory>\n");
        ExitProcess(64);
    }
    const wchar_t* which = arguments[1];
    const wchar_t* mode = arguments[2];
    const wchar_t* directory = arguments[3];
    int result = 64;
    if (msvcrt::WideEquals(which, L"reversed-window")) {
        result = ReversedWindow(mode);
    } else if (msvcrt::WideEquals(which, L"helper-killed")) {
        result = HelperKilled(mode, directory);
    } else if (msvcrt::WideEquals(which, L"progress-throws")) {
        result = ProgressFault(mode, directory, false);
    } else if (msvcrt::WideEquals(which, L"keep-exception")) {
        result = KeepException(mode);
    } else if (msvcrt::WideEquals(which, L"progress-stops")) {
        result = ProgressFault(mode, directory, true);
    } else if (msvcrt::WideEquals(which, L"filefound-throws")) {
        result = FileFoundThrows(mode);
    } else {
        Print("unknown case %S\n", which);
    }
    Print("exit %d\n", result);
    ExitProcess(static_cast<unsigned int>(result));
}
