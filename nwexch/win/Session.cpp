#include "Session.h"

#include <windows.h>

#include <exception>

#include "Console.h"
#include "Formatting.h"
#include "HelperLauncher.h"
#include "common/UniqueHandle.h"
#include "interfaces/NetWorkerStatus.h"

namespace {

// The library copies names into 255-character buffers, terminator included.
constexpr size_t kMaxNameLength = 254;

std::wstring ComputerName() {
    wchar_t buffer[MAX_COMPUTERNAME_LENGTH + 1];
    DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
    if (!GetComputerNameW(buffer, &size)) {
        return std::wstring();
    }
    return std::wstring(buffer, size);
}

// "nwexch-PID-TICKS", and "-N" after it for the further sessions of a restore with --jobs.
std::wstring UniquePipeName(unsigned sessionNumber) {
    std::wstring name = L"nwexch-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                        std::to_wstring(GetTickCount64());
    if (sessionNumber != 0) {
        name += L"-" + std::to_wstring(sessionNumber);
    }
    return name;
}

bool CheckName(const wchar_t* option, const std::wstring& name, std::string* narrow,
               std::wstring* problem) {
    if (!ToNarrow(name, narrow)) {
        *problem = std::wstring(option) + L" \"" + name +
                   L"\" cannot be written in this system's code page";
        return false;
    }
    if (narrow->size() > kMaxNameLength) {
        *problem = std::wstring(option) + L" is longer than " + std::to_wstring(kMaxNameLength) +
                   L" characters";
        return false;
    }
    return true;
}

// The library carries on without the "nsrexecd" service and then fails to load NetWorker's
// libraries from an empty directory (1157), so the host asks the service manager itself.
bool NsrexecdServiceExists() {
    UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        return true;  // cannot tell; do not claim anything
    }
    UniqueServiceHandle service(OpenServiceW(manager.get(), L"nsrexecd", SERVICE_QUERY_CONFIG));
    return service || GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST;
}

}  // namespace

bool ToNarrow(const std::wstring& text, std::string* narrow) {
    narrow->clear();
    if (text.empty()) {
        return true;
    }
    BOOL usedDefault = FALSE;
    const int size =
        WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, text.data(),
                            static_cast<int>(text.size()), nullptr, 0, nullptr, &usedDefault);
    if (size <= 0 || usedDefault) {
        return false;
    }
    narrow->resize(static_cast<size_t>(size));
    WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, text.data(), static_cast<int>(text.size()),
                        &(*narrow)[0], size, nullptr, &usedDefault);
    return !usedDefault;
}

std::wstring FromNarrow(const char* text) {
    if (text == nullptr || *text == '\0') {
        return std::wstring();
    }
    const int size = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    if (size <= 1) {
        return std::wstring();
    }
    std::wstring wide(static_cast<size_t>(size), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text, -1, &wide[0], size);
    wide.resize(static_cast<size_t>(size - 1));
    return wide;
}

bool Session::Open(const Options& options, std::wstring* problem, int* exitCode,
                   unsigned sessionNumber) {
    *exitCode = ExitUsage;
    std::string server;
    std::string client;
    const std::wstring clientName = options.client.empty() ? ComputerName() : options.client;
    if (clientName.empty()) {
        *problem = L"this computer's name is unknown; give --client";
        return false;
    }
    if (!CheckName(L"--server", options.server, &server, problem) ||
        !CheckName(L"--client", clientName, &client, problem)) {
        return false;
    }

    *exitCode = ExitNetWorker;
    m_helper = options.mode == ExecutorMode::Helper;
    if (m_helper) {
        if (!AllocateNamedPipeConnection(&m_connection)) {
            *problem = L"could not create the pipe connection (is TarnLog.dll working?)";
            return false;
        }
        m_pipeName = UniquePipeName(sessionNumber);
        if (!AllocateNetWorkerNamedPipeExecutor(&m_executor, m_pipeName.c_str(), m_connection,
                                                &LaunchHelperFromOwnDirectory)) {
            *problem = L"could not create the out-of-process executor";
            return false;
        }
    } else {
        if (!AllocateNetWorkerApiWrapper(&m_wrapper)) {
            *problem = L"could not create the NetWorker API wrapper (is TarnLog.dll working?)";
            return false;
        }
        if (!AllocateNetWorkerApiExecutor(&m_executor, m_wrapper)) {
            *problem = L"could not create the executor";
            return false;
        }
        RunCancellation().SetQuitTarget(m_executor);
    }

    const SessionCall initialize =
        CallSession(*this, [&] { return m_executor->Initialize(client.c_str(), server.c_str()); });
    const int32_t status = initialize.status;
    const std::wstring failure = initialize.thrown;
    if (m_helper) {
        helper_process::MarkConnected(m_pipeName);
        DWORD exitStatus = 0;
        if (helper_process::StartError(m_pipeName) != 0) {
            *problem =
                L"could not start " + helper_process::HelperPath() + L": " + FormatStatus(status);
            return false;
        }
        // A helper that answered did connect, even if it has ended since: one whose session
        // failed to open ends right after its answer, and its status is the reason to report.
        const bool answered = failure.empty() && status != NetWorkerStatus::PipeClosed;
        if (!answered && helper_process::EndedBeforeConnecting(m_pipeName, &exitStatus)) {
            *problem = L"the helper program " + helper_process::HelperPath() +
                       L" ended (exit code " + std::to_wstring(exitStatus) +
                       L") before it connected";
            return false;
        }
    }
    if (!failure.empty()) {
        *problem = failure;
        return false;
    }
    if (RunCancellation().Requested()) {
        *problem = L"cancelled while the session was opened";
        *exitCode = ExitCancelled;
        return false;
    }
    // 1, 110, 1157 and 1627 are positive: any status but 0 means no session.
    if (status != 0) {
        if (status > 0 && !NsrexecdServiceExists()) {
            *problem =
                L"NetWorker's client is not installed on this computer: there is no "
                L"\"nsrexecd\" service (" +
                FormatStatus(status) + L")";
            return false;
        }
        *problem = L"could not open a NetWorker session for client \"" + clientName +
                   L"\" on server \"" + options.server + L"\": " + FormatStatus(status);
        return false;
    }
    return true;
}

namespace {

// Runs one step of closing a session; what it throws is added to *problem.
template <typename Step>
void CloseStep(const Session& session, const wchar_t* what, Step&& step, std::wstring* problem) {
    try {
        step();
    } catch (...) {
        *problem += (problem->empty() ? L"" : L"; ") + std::wstring(what) + L": " +
                    DescribeException(session, std::current_exception());
    }
}

}  // namespace

std::wstring Session::Close() noexcept {
    if (m_closed) {
        return std::wstring();
    }
    m_closed = true;
    std::wstring problem;
    try {
        if (!m_helper) {
            RunCancellation().SetQuitTarget(nullptr);
        }
        if (m_executor != nullptr) {
            CloseStep(
                *this, L"freeing the executor", [this] { FreeNetWorkerExecutor(m_executor); },
                &problem);
            m_executor = nullptr;
        }
        if (m_connection != nullptr) {
            // Closing the pipe is what ends the helper program.
            CloseStep(
                *this, L"closing the pipe", [this] { FreeNamedPipeConnection(m_connection); },
                &problem);
            m_connection = nullptr;
        }
        if (m_wrapper != nullptr) {
            CloseStep(
                *this, L"freeing the NetWorker API wrapper",
                [this] { FreeNetWorkerApiWrapper(m_wrapper); }, &problem);
            m_wrapper = nullptr;
        }
        if (m_helper && !m_pipeName.empty()) {
            CloseStep(
                *this, L"waiting for the helper program to end",
                [this] { helper_process::WaitForExit(m_pipeName); }, &problem);
        }
    } catch (...) {
        // Only building the text above can throw here (out of memory): the session is closed.
        problem = L"the session could not be closed cleanly";
    }
    return problem;
}

bool SessionCall::Lost() const {
    return threw || status == NetWorkerStatus::PipeClosed;
}

std::wstring SessionCall::Why() const {
    return threw ? thrown : FormatStatus(status);
}

std::wstring DescribeException(const Session& session, const std::exception_ptr& thrown) {
    const std::wstring where = session.InHelper() ? L"the pipe to the helper program failed: "
                                                  : L"the library raised an exception: ";
    try {
        std::rethrow_exception(thrown);
    } catch (const std::exception& e) {
        const std::wstring what = FromNarrow(e.what());
        return where + (what.empty() ? std::wstring(L"no reason given") : what);
    } catch (...) {
        return where + L"an exception that is not a standard one";
    }
}
