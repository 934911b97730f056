// Several writers on one TarnLog file: threads sharing a logger, loggers sharing a file, and
// processes sharing a file. Every line must come out whole, and nothing may be lost.

#include <windows.h>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "LogFileReader.h"
#include "common/UniqueHandle.h"
#include "interfaces/LoggerApi.h"

namespace {

// Long enough that a torn write would show: every line carries the same filler.
const std::wstring kFiller(300, L'x');

std::string ExpectedText(const std::string& writer, int line) {
    return writer + " line " + std::to_string(line) + " " + Utf8(kFiller);
}

void WriteNumberedLines(ILog* log, const std::wstring& writer, int count) {
    for (int i = 0; i < count; ++i) {
        log->Info(L"Writer::Run", L"%s line %d %s", writer.c_str(), i, kFiller.c_str());
    }
}

// Every writer's lines are present exactly once, whole, and in its own order.
void ExpectCompleteSequences(const std::vector<LogRecord>& records,
                             const std::vector<std::string>& writers, int linesEach) {
    std::map<std::string, int> next;
    for (const LogRecord& record : records) {
        const size_t space = record.text.find(' ');
        ASSERT_NE(space, std::string::npos) << record.text;
        const std::string writer = record.text.substr(0, space);
        const int expected = next[writer]++;
        ASSERT_EQ(record.text, ExpectedText(writer, expected));
        EXPECT_EQ(record.level, "INFO");
        EXPECT_EQ(record.method, "Writer::Run");
    }
    ASSERT_EQ(next.size(), writers.size());
    for (const std::string& writer : writers) {
        EXPECT_EQ(next[writer], linesEach) << writer;
    }
}

}  // namespace

using TarnLogSharingTest = TarnLogFileTest;

TEST_F(TarnLogSharingTest, ThreadsSharingOneLoggerNeverTearLines) {
    constexpr int kThreads = 8;
    constexpr int kLines = 300;
    std::vector<std::string> writers;
    {
        TarnLogger log = OpenLogger(L"Shared");
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            const std::wstring writer = L"thread" + std::to_wstring(t);
            writers.push_back(Utf8(writer));
            threads.emplace_back([&log, writer] { WriteNumberedLines(log.get(), writer, kLines); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    const std::vector<LogRecord> records = Records();
    EXPECT_EQ(records.size(), static_cast<size_t>(kThreads * kLines));
    for (const LogRecord& record : records) {
        EXPECT_EQ(record.logger, "Shared");
    }
    ExpectCompleteSequences(records, writers, kLines);
}

TEST_F(TarnLogSharingTest, TwoLoggersOnOneFileKeepTheOrderOfCalls) {
    {
        TarnLogger executor = OpenLogger(L"NetWorkerApiExecutor");
        TarnLogger wrapper = OpenLogger(L"NetWorkerApiWrapper");
        executor->Info(L"NetWorkerApiExecutor::Initialize", L"one");
        wrapper->Error(L"NetWorkerApiWrapper::Init", L"two");
        executor->Warning(L"NetWorkerApiExecutor::Initialize", L"three");
    }
    const std::vector<LogRecord> records = Records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].logger, "NetWorkerApiExecutor");
    EXPECT_EQ(records[0].text, "one");
    EXPECT_EQ(records[1].logger, "NetWorkerApiWrapper");
    EXPECT_EQ(records[1].level, "ERROR");
    EXPECT_EQ(records[1].text, "two");
    EXPECT_EQ(records[2].logger, "NetWorkerApiExecutor");
    EXPECT_EQ(records[2].text, "three");
}

TEST_F(TarnLogSharingTest, TwoLoggersOnOneFileFromManyThreads) {
    constexpr int kLines = 400;
    {
        TarnLogger first = OpenLogger(L"First");
        TarnLogger second = OpenLogger(L"Second");
        std::thread a([&first] { WriteNumberedLines(first.get(), L"a", kLines); });
        std::thread b([&second] { WriteNumberedLines(second.get(), L"b", kLines); });
        std::thread c([&first] { WriteNumberedLines(first.get(), L"c", kLines); });
        a.join();
        b.join();
        c.join();
    }
    ExpectCompleteSequences(Records(), {"a", "b", "c"}, kLines);
}

TEST_F(TarnLogSharingTest, DifferentSpellingsOfOnePathShareTheFile) {
    std::wstring shouted = m_path;
    CharUpperBuffW(&shouted[0], static_cast<DWORD>(shouted.size()));
    {
        TarnLogger first = OpenLogger(L"Plain");
        SetFileVariable(shouted.c_str());
        TarnLogger second = OpenLogger(L"Shouted");
        first->Info(L"Plain::Run", L"one");
        second->Info(L"Shouted::Run", L"two");
        first->Info(L"Plain::Run", L"three");
    }
    const std::vector<LogRecord> records = Records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].text, "one");
    EXPECT_EQ(records[1].text, "two");
    EXPECT_EQ(records[2].text, "three");
}

TEST_F(TarnLogSharingTest, FileIsReleasedWhenItsLastLoggerIsFreed) {
    {
        TarnLogger log = OpenLogger(L"Brief");
        log->Info(L"Brief::Run", L"written");
    }
    EXPECT_TRUE(DeleteFileW(m_path.c_str())) << GetLastError();
    {
        TarnLogger log = OpenLogger(L"Again");
        log->Info(L"Again::Run", L"fresh file");
    }
    const std::vector<LogRecord> records = Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "fresh file");
}

// A host and its helper program append to the same file at once.
TEST_F(TarnLogSharingTest, ProcessesAppendingToOneFileNeverTearLines) {
    constexpr int kLines = 300;
    wchar_t self[MAX_PATH];
    ASSERT_GT(GetModuleFileNameW(nullptr, self, MAX_PATH), 0u);

    std::vector<UniqueHandle> children;
    for (const wchar_t* writer : {L"childA", L"childB"}) {
        std::wstring commandLine = L"\"" + std::wstring(self) + L"\" --append-child " + writer +
                                   L" " + std::to_wstring(kLines);
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION process{};
        ASSERT_TRUE(CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr,
                                   nullptr, &startup, &process))
            << GetLastError();
        UniqueHandle thread(process.hThread);
        children.emplace_back(process.hProcess);
    }
    {
        TarnLogger log = OpenLogger(L"parent");
        WriteNumberedLines(log.get(), L"parent", kLines);
    }
    for (UniqueHandle& child : children) {
        ASSERT_EQ(WaitForSingleObject(child.get(), INFINITE), WAIT_OBJECT_0);
        DWORD exitCode = 1;
        ASSERT_TRUE(GetExitCodeProcess(child.get(), &exitCode));
        EXPECT_EQ(exitCode, 0u);
    }
    ExpectCompleteSequences(Records(), {"parent", "childA", "childB"}, kLines);
}

// The child side of the test above: "--append-child <writer> <count>", logging to the file
// named by the inherited TARNLOG_FILE.
int RunAppendChild(int argc, wchar_t** argv) {
    if (argc != 4) {
        return 2;
    }
    const std::wstring writer = argv[2];
    const int count = _wtoi(argv[3]);
    ILog* log = nullptr;
    if (GetLogger(writer.c_str(), &log) != 0) {
        return 3;
    }
    WriteNumberedLines(log, writer, count);
    FreeLogger(log);
    return 0;
}
