#include "ExecutorTestSupport.h"

#include "common/CivilTime.h"
#include "common/WideFormat.h"

const wchar_t kTestRoot[] = L"C:\\nwx-exec";

bool RecordingFileFound::NetWorkerFileFound(const NetWorkerFileInfo* file) {
    files.push_back(FoundFile{*file, file->path != nullptr ? file->path : ""});
    return answer ? answer(*file) : false;
}

uint32_t RecordingError::NetWorkerError(uint32_t code) {
    codes.push_back(code);
    if (code == NwErrorDiskFull && onDiskFull) {
        onDiskFull();
    }
    if (answers.empty()) {
        return 0;
    }
    const uint32_t next = answers.front();
    answers.pop_front();
    return next;
}

uint32_t RecordingError::AllocationError(const NetWorkerAllocationInfo* info) {
    allocations.push_back(*info);
    return 0;
}

bool RecordingProgress::UpdateProgress(NetWorkerProgressInfo* progress) {
    reports.push_back(*progress);
    records.push_back(progress);
    return answer ? answer(reports.size() - 1) : false;
}

std::string PatternData(size_t size, uint32_t seed) {
    std::string data(size, '\0');
    uint32_t state = seed * 2654435761u + 1;
    for (char& c : data) {
        state = state * 1664525u + 1013904223u;
        c = static_cast<char>(state >> 24);
    }
    return data;
}

FILETIME MidnightOf(int year, int month, int day) {
    SYSTEMTIME time{};
    time.wYear = static_cast<uint16_t>(year);
    time.wMonth = static_cast<uint16_t>(month);
    time.wDay = static_cast<uint16_t>(day);
    FILETIME result{};
    EXPECT_TRUE(CivilSystemTimeToFileTime(time, &result));
    return result;
}

std::wstring ExecutorTest::UnderRoot(const std::wstring& name) {
    return std::wstring(kTestRoot) + L"\\" + name;
}

void ExecutorTest::SetUp() {
    TestLoggers::Reset();
    m_system.AddDirectory(kTestRoot);
    ExecutorSeams seams;
    seams.memory = m_memory;
    seams.system = &m_system;
    m_executor = std::make_unique<NetWorkerApiExecutor>(&m_wrapper, seams);
}

void ExecutorTest::TearDown() {
    EXPECT_TRUE(m_system.openFiles.empty()) << "a destination file was left open";
    m_executor.reset();
}

RecordingLog& ExecutorTest::Log() {
    RecordingLog* log = TestLoggers::Find(L"NetWorkerApiExecutor");
    EXPECT_NE(nullptr, log);
    return *log;
}

std::vector<std::pair<LogLevel, std::wstring>> ExecutorTest::Lines() {
    std::vector<std::pair<LogLevel, std::wstring>> lines;
    for (const LogLine& line : Log().NonTraceLines()) {
        lines.emplace_back(line.level, line.text);
    }
    return lines;
}

std::vector<std::wstring> ExecutorTest::Traces() {
    std::vector<std::wstring> traces;
    for (const LogLine& line : Log().LinesAt(LogLevelTrace)) {
        traces.push_back(line.method + L"|" + line.text);
    }
    return traces;
}

void ExecutorTest::StartSession() {
    ASSERT_EQ(0, m_executor->Initialize("cli", "srv"));
    m_wrapper.calls.clear();
    m_wrapper.handles.clear();
    ClearLog();
}

void ExecutorTest::CatalogAll() {
    ASSERT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));
    m_wrapper.calls.clear();
    m_wrapper.handles.clear();
    ClearLog();
}

std::wstring HResultLine(uint32_t code, uint32_t lastError) {
    return FormatWideString(L"HRESULT %08lx GetLastError() %d", static_cast<unsigned long>(code),
                            static_cast<int>(lastError));
}
