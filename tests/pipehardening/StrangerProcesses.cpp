#include "StrangerProcesses.h"

#include "../exports/ExportsTestSupport.h"

namespace {

constexpr DWORD kProcessWaitMilliseconds = 30000;

}  // namespace

Program::Program(const std::wstring& file, const std::wstring& arguments, bool programNameFirst) {
    const std::wstring directory = TestProgramDirectory();
    const std::wstring path = directory + L"\\" + file;
    std::wstring commandLine = programNameFirst ? L"\"" + path + L"\" " + arguments : arguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (::CreateProcessW(path.c_str(), &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr,
                         directory.c_str(), &startup, &process) != FALSE) {
        m_process.reset(process.hProcess);
        const UniqueHandle thread(process.hThread);
        m_id = process.dwProcessId;
    }
}

Program::~Program() {
    if (m_process.valid()) {
        ::TerminateProcess(m_process.get(), 999);
    }
}

DWORD Program::AwaitExit() {
    if (::WaitForSingleObject(m_process.get(), kProcessWaitMilliseconds) != WAIT_OBJECT_0) {
        ::TerminateProcess(m_process.get(), 998);
        return 999;
    }
    DWORD code = 0;
    ::GetExitCodeProcess(m_process.get(), &code);
    return code;
}

Event::Event(const std::wstring& name)
    : m_name(name), m_event(::CreateEventW(nullptr, TRUE, FALSE, name.c_str())) {}

bool Event::Await() const {
    return ::WaitForSingleObject(m_event.get(), kProcessWaitMilliseconds) == WAIT_OBJECT_0;
}

void Event::Set() const {
    ::SetEvent(m_event.get());
}

Squatter::Squatter(const std::wstring& pipeName, int instances)
    : m_ready(pipeName + L"-ready"),
      m_end(pipeName + L"-end"),
      m_program(L"pipe_stranger.exe", L"squat " + pipeName + L" " + m_ready.Name() + L" " +
                                          m_end.Name() + L" " + std::to_wstring(instances)) {}

Squatter::~Squatter() {
    m_end.Set();
    m_program.AwaitExit();
}

bool Squatter::Holds() const {
    return m_program.Started() && m_ready.Await();
}

Knocker::Knocker(const std::wstring& pipeName)
    : m_in(pipeName + L"-stranger-in"),
      m_program(L"pipe_stranger.exe", L"knock " + pipeName + L" " + m_in.Name()) {}
