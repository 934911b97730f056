#include "LogFileReader.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>

#include "common/UniqueHandle.h"
#include "interfaces/LoggerApi.h"

std::wstring UniqueLogPath(const char* tag) {
    static std::atomic<int> counter{0};
    wchar_t directory[MAX_PATH];
    const DWORD length = GetTempPathW(MAX_PATH, directory);
    EXPECT_GT(length, 0u);
    std::wstring path(directory, length);
    path += L"tarnlog-test-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
            std::wstring(tag, tag + strlen(tag)) + L"-" + std::to_wstring(counter++) + L".log";
    DeleteFileW(path.c_str());
    return path;
}

bool FileExists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::string ReadWholeFile(const std::wstring& path) {
    UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::string content;
    if (!file.valid()) {
        return content;
    }
    char buffer[65536];
    DWORD read = 0;
    while (ReadFile(file.get(), buffer, sizeof buffer, &read, nullptr) && read > 0) {
        content.append(buffer, read);
    }
    return content;
}

std::vector<LogRecord> ReadLogRecords(const std::wstring& path) {
    const std::string content = ReadWholeFile(path);
    std::vector<LogRecord> records;
    if (content.empty()) {
        return records;
    }
    EXPECT_EQ(content.back(), '\n') << "the last line is not complete";
    size_t start = 0;
    while (start < content.size()) {
        size_t end = content.find('\n', start);
        if (end == std::string::npos) {
            end = content.size();
        }
        const std::string line = content.substr(start, end - start);
        std::vector<std::string> fields;
        size_t fieldStart = 0;
        for (;;) {
            const size_t tab = line.find('\t', fieldStart);
            fields.push_back(line.substr(fieldStart, tab - fieldStart));
            if (tab == std::string::npos) {
                break;
            }
            fieldStart = tab + 1;
        }
        EXPECT_EQ(fields.size(), 5u) << "torn or malformed line: " << line;
        if (fields.size() == 5) {
            records.push_back(LogRecord{fields[0], fields[1], fields[2], fields[3], fields[4]});
        }
        start = end + 1;
    }
    return records;
}

std::string Utf8(const std::wstring& text) {
    if (text.empty()) {
        return std::string();
    }
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                           nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], length,
                        nullptr, nullptr);
    return out;
}

TarnLogger::~TarnLogger() {
    Free();
}

void TarnLogger::Free() {
    if (m_log != nullptr) {
        FreeLogger(m_log);
        m_log = nullptr;
    }
}

TarnLogger OpenLogger(const wchar_t* name) {
    ILog* log = nullptr;
    const int status = GetLogger(name, &log);
    EXPECT_EQ(status, 0) << "GetLogger refused " << Utf8(name);
    EXPECT_NE(log, nullptr);
    return TarnLogger(status == 0 ? log : nullptr);
}

void TarnLogFileTest::TearDown() {
    m_failNames.reset();
    m_level.reset();
    m_file.reset();
    DeleteFileW(m_path.c_str());
}
