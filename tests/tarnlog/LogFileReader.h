#pragma once
// Helpers for tests that read what TarnLog.dll wrote: temporary log paths and the file split
// into lines and fields (ScopedEnvironment.h sets variables for the duration of a test).

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ScopedEnvironment.h"
#include "interfaces/ILog.h"

// A path in the temporary directory that no other test uses; the file does not exist yet.
std::wstring UniqueLogPath(const char* tag);

// The file's bytes; empty when it does not exist.
std::string ReadWholeFile(const std::wstring& path);
bool FileExists(const std::wstring& path);

struct LogRecord {
    std::string timestamp;
    std::string level;
    std::string logger;
    std::string method;
    std::string text;
};

// Splits the file into records. A line that does not have exactly five tab-separated fields,
// or a file that does not end in a line feed, fails the calling test.
std::vector<LogRecord> ReadLogRecords(const std::wstring& path);

std::string Utf8(const std::wstring& text);

// Owns a logger from TarnLog.dll and frees it with FreeLogger.
class TarnLogger {
public:
    TarnLogger() = default;
    explicit TarnLogger(ILog* log) : m_log(log) {}
    ~TarnLogger();
    TarnLogger(TarnLogger&& other) noexcept : m_log(other.m_log) { other.m_log = nullptr; }
    TarnLogger(const TarnLogger&) = delete;
    TarnLogger& operator=(const TarnLogger&) = delete;

    ILog* operator->() const { return m_log; }
    ILog* get() const { return m_log; }
    void Free();

private:
    ILog* m_log = nullptr;
};

// GetLogger that fails the calling test when TarnLog refuses.
TarnLogger OpenLogger(const wchar_t* name);

// Every test starts with TARNLOG_FILE naming a fresh file of its own and TARNLOG_LEVEL and
// TARNLOG_FAIL_NAMES unset; the variables are restored and the file deleted afterwards.
class TarnLogFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_path = UniqueLogPath(::testing::UnitTest::GetInstance()->current_test_info()->name());
        SetVariable(m_file, L"TARNLOG_FILE", m_path.c_str());
        SetVariable(m_level, L"TARNLOG_LEVEL", nullptr);
        SetVariable(m_failNames, L"TARNLOG_FAIL_NAMES", nullptr);
    }
    void TearDown() override;

    void SetLevelVariable(const wchar_t* value) { SetVariable(m_level, L"TARNLOG_LEVEL", value); }
    void SetFailNamesVariable(const wchar_t* value) {
        SetVariable(m_failNames, L"TARNLOG_FAIL_NAMES", value);
    }
    void SetFileVariable(const wchar_t* value) { SetVariable(m_file, L"TARNLOG_FILE", value); }

    std::vector<LogRecord> Records() const { return ReadLogRecords(m_path); }

    std::wstring m_path;

private:
    static void SetVariable(std::unique_ptr<ScopedEnvironment>& slot, const wchar_t* name,
                            const wchar_t* value) {
        slot.reset();
        slot = std::make_unique<ScopedEnvironment>(name, value);
    }

    std::unique_ptr<ScopedEnvironment> m_file;
    std::unique_ptr<ScopedEnvironment> m_level;
    std::unique_ptr<ScopedEnvironment> m_failNames;
};
