#include "ExecutorTestSupport.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "common/CivilTime.h"
#include "common/WideFormat.h"

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

uint32_t FakeSystem::TickCount() {
    if (ticks.empty()) {
        return 0;
    }
    const uint32_t now = ticks.front();
    if (ticks.size() > 1) {
        ticks.pop_front();
    }
    return now;
}

bool FakeSystem::WriteFile(HANDLE file, const void* data, uint32_t size, uint32_t* written) {
    const int call = writeCalls++;
    writeSizes.push_back(size);
    if (beforeWrite) {
        beforeWrite(call);
    }
    auto failure = failWriteAt.find(call);
    if (failure != failWriteAt.end()) {
        *written = 0;
        SetLastError(failure->second);
        return false;
    }
    auto shortWrite = shortWriteAt.find(call);
    if (shortWrite != shortWriteAt.end() && shortWrite->second < size) {
        size = shortWrite->second;
    }
    return KernelExecutorSystem().WriteFile(file, data, size, written);
}

bool FakeSystem::CreateDirectory(const wchar_t* path) {
    directoriesAsked.emplace_back(path);
    auto failure = failDirectory.find(path);
    if (failure != failDirectory.end()) {
        SetLastError(failure->second);
        return false;
    }
    return KernelExecutorSystem().CreateDirectory(path);
}

TempDirectory::TempDirectory() {
    wchar_t temp[MAX_PATH + 1] = {};
    GetTempPathW(MAX_PATH, temp);
    static int counter = 0;
    m_path = FormatWideString(L"%snwx-exec-%lu-%d", temp,
                              static_cast<unsigned long>(GetCurrentProcessId()), ++counter);
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
    std::filesystem::create_directories(m_path);
}

TempDirectory::~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string ReadWholeFile(const std::wstring& path) {
    std::ifstream in(std::filesystem::path(path), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool FileExists(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool DirectoryExists(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

void WriteWholeFile(const std::wstring& path, const std::string& content) {
    std::ofstream out(std::filesystem::path(path), std::ios::binary);
    out << content;
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
    time.wYear = static_cast<WORD>(year);
    time.wMonth = static_cast<WORD>(month);
    time.wDay = static_cast<WORD>(day);
    FILETIME result{};
    SystemTimeToFileTime(&time, &result);
    return result;
}

void ExecutorTest::SetUp() {
    TestLoggers::Reset();
    ExecutorSeams seams;
    seams.memory = m_memory;
    seams.system = &m_system;
    m_executor = std::make_unique<NetWorkerApiExecutor>(&m_wrapper, seams);
}

void ExecutorTest::TearDown() {
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
