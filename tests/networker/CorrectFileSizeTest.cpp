// CorrectFileSize under Wine with a fake nsrinfo.exe (tests/networker/fakes/FakeNsrInfo.cpp)
// that prints what the test chose and records the command line it was given.

#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "RecordingLog.h"
#include "ScopedEnvironment.h"
#include "TestFiles.h"
#include "WinTestPaths.h"
#include "interfaces/NetWorkerStatus.h"
#include "networker/NetWorkerApiWrapper.h"

namespace {

const wchar_t kLogger[] = L"NetWorkerApiWrapper";
const wchar_t kMethod[] = L"NetWorkerApiWrapper::CorrectFileSize";
const char kArguments[] = "-v -V -s srv -n msexch -N \"\\IS:\\DB1\" cli";

BSA_ObjectDescriptor Descriptor(const char* objectSpace, const char* path) {
    BSA_ObjectDescriptor desc = {};
    strcpy_s(desc.objectName.objectSpaceName, objectSpace);
    strcpy_s(desc.objectName.pathName, path);
    return desc;
}

std::wstring Widen(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

class CorrectFileSizeTest : public ::testing::Test {
protected:
    void SetUp() override {
        TestLoggers::Reset();
        m_dir = FakeInstallation(L"full");
        m_service = std::make_unique<ScopedNsrexecdService>(L"\"" + m_dir + L"\\nsrexecd.exe\"");
        m_wrapper = std::make_unique<NetWorkerApiWrapper>();
        ASSERT_EQ(0, m_wrapper->Initialize());
        m_record = std::make_unique<ScopedEnvironment>(L"FAKE_NSRINFO_RECORD",
                                                       m_temp.Child(L"command.txt"));
        Log()->Clear();
    }

    void TearDown() override {
        m_variables.clear();
        m_record.reset();
        m_wrapper.reset();
        m_service.reset();
    }

    RecordingLog* Log() { return TestLoggers::Find(kLogger); }

    // What the fake tool prints and how it ends.
    void Tool(const std::string& standardOutput, const std::string& standardError = "",
              int exitCode = 0) {
        ASSERT_TRUE(WriteWholeFile(m_temp.Child(L"stdout.txt"), standardOutput));
        ASSERT_TRUE(WriteWholeFile(m_temp.Child(L"stderr.txt"), standardError));
        m_variables.clear();
        m_variables.push_back(std::make_unique<ScopedEnvironment>(L"FAKE_NSRINFO_STDOUT",
                                                                  m_temp.Child(L"stdout.txt")));
        m_variables.push_back(std::make_unique<ScopedEnvironment>(L"FAKE_NSRINFO_STDERR",
                                                                  m_temp.Child(L"stderr.txt")));
        m_variables.push_back(
            std::make_unique<ScopedEnvironment>(L"FAKE_NSRINFO_EXIT", std::to_wstring(exitCode)));
    }

    int32_t Run(uint64_t* size) {
        const BSA_ObjectDescriptor desc = Descriptor("\\IS", "\\DB1");
        return m_wrapper->CorrectFileSize(&desc, size, "srv", "cli");
    }

    std::wstring CommandLogLine() const { return m_dir + L"\\nsrinfo.exe " + Widen(kArguments); }

    TempDirectory m_temp{"networker"};
    std::wstring m_dir;
    std::unique_ptr<ScopedNsrexecdService> m_service;
    std::unique_ptr<NetWorkerApiWrapper> m_wrapper;
    std::unique_ptr<ScopedEnvironment> m_record;
    std::vector<std::unique_ptr<ScopedEnvironment>> m_variables;
};

}  // namespace

TEST_F(CorrectFileSizeTest, SizeFollowedByCommaAndTheExactCommandLine) {
    Tool("name=\\IS:\\DB1\nsize=777, date=1\n");
    uint64_t size = 123;
    EXPECT_EQ(0, Run(&size));
    EXPECT_EQ(777u, size);

    // One line: the program path, one blank, the argument line.
    const std::vector<LogLine> lines = Log()->NonTraceLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ((LogLine{LogLevelInfo, kMethod, CommandLogLine()}), lines[0]);
    EXPECT_EQ((std::vector<LogLine>{{LogLevelTrace, kMethod, L"Method Start"},
                                    {LogLevelTrace, kMethod, L"Method End"}}),
              Log()->LinesAt(LogLevelTrace));

    // The child gets the argument line alone, without its own name in front.
    EXPECT_EQ(kArguments, ReadWholeFile(m_temp.Child(L"command.txt")));
}

TEST_F(CorrectFileSizeTest, SizeFollowedByBlank) {
    Tool("size=777 bytes\n");
    uint64_t size = 0;
    EXPECT_EQ(0, Run(&size));
    EXPECT_EQ(777u, size);
}

TEST_F(CorrectFileSizeTest, FiveGigabytes) {
    Tool("size=5000000000,\n");
    uint64_t size = 0;
    EXPECT_EQ(0, Run(&size));
    EXPECT_EQ(5000000000ull, size);
}

TEST_F(CorrectFileSizeTest, SpacedMarkerYieldsZeroAndSuccess) {
    Tool("size = 777, date=1\n");
    uint64_t size = 9;
    EXPECT_EQ(0, Run(&size));
    EXPECT_EQ(0u, size);
    EXPECT_TRUE(Log()->TextsAt(LogLevelError).empty());
}

TEST_F(CorrectFileSizeTest, StandardErrorIsReadToo) {
    Tool("", "size=9,\n");
    uint64_t size = 0;
    EXPECT_EQ(0, Run(&size));
    EXPECT_EQ(9u, size);
}

TEST_F(CorrectFileSizeTest, NonZeroExitFailsAfterLoggingCommandAndOutput) {
    Tool("size=5, but broken\n", "", 3);
    uint64_t size = 1;
    EXPECT_EQ(NetWorkerStatus::FunctionFailed, Run(&size));
    EXPECT_EQ(0u, size);
    const std::vector<LogLine> lines = Log()->NonTraceLines();
    ASSERT_EQ(5u, lines.size());
    EXPECT_EQ((LogLine{LogLevelInfo, kMethod, CommandLogLine()}), lines[0]);
    EXPECT_EQ((LogLine{LogLevelInfo, kMethod, CommandLogLine()}), lines[1]);
    EXPECT_EQ((LogLine{LogLevelInfo, kMethod, L"size=5, but broken\n"}), lines[2]);
    EXPECT_EQ((LogLine{LogLevelError, kMethod, L"nsrinfo.exe failed: 0x00000003"}), lines[3]);
    EXPECT_EQ(LogLevelError, lines[4].level);
    EXPECT_EQ(0u, lines[4].text.find(L"HRESULT 0000065b GetLastError() "));
}

TEST_F(CorrectFileSizeTest, TwentyCharacterValueIsInvalid) {
    Tool("size=12345678901234567890, \n");
    uint64_t size = 1;
    EXPECT_EQ(NetWorkerStatus::FunctionFailed, Run(&size));
    EXPECT_EQ(0u, size);
    EXPECT_EQ(L"Invalid file size", Log()->TextsAt(LogLevelError).at(0));
}

TEST_F(CorrectFileSizeTest, NoMarkerIsInvalid) {
    Tool("nsrinfo: nothing\n");
    uint64_t size = 1;
    EXPECT_EQ(NetWorkerStatus::FunctionFailed, Run(&size));
    EXPECT_EQ(0u, size);
    const std::vector<std::wstring> errors = Log()->TextsAt(LogLevelError);
    ASSERT_EQ(2u, errors.size());
    EXPECT_EQ(L"Invalid file size", errors[0]);
}

TEST_F(CorrectFileSizeTest, MarkerAfterTheFirst1024BytesIsNotSeen) {
    Tool(std::string(1100, 'x') + "size=7,\n");
    uint64_t size = 1;
    EXPECT_EQ(NetWorkerStatus::FunctionFailed, Run(&size));
    EXPECT_EQ(L"Invalid file size", Log()->TextsAt(LogLevelError).at(0));
}

TEST_F(CorrectFileSizeTest, NullArgumentsAreRejected) {
    uint64_t size = 4;
    const BSA_ObjectDescriptor desc = Descriptor("\\IS", "\\DB1");
    EXPECT_EQ(NetWorkerStatus::InvalidArgument,
              m_wrapper->CorrectFileSize(nullptr, &size, "s", "c"));
    EXPECT_EQ(0u, size);
    EXPECT_EQ(NetWorkerStatus::InvalidArgument,
              m_wrapper->CorrectFileSize(&desc, nullptr, "s", "c"));
    EXPECT_EQ(NetWorkerStatus::InvalidArgument,
              m_wrapper->CorrectFileSize(&desc, &size, nullptr, "c"));
    EXPECT_EQ(NetWorkerStatus::InvalidArgument,
              m_wrapper->CorrectFileSize(&desc, &size, "s", nullptr));
}

TEST(CorrectFileSizeWithoutInstallationTest, BareToolNameIsFoundInTheCurrentDirectory) {
    TestLoggers::Reset();
    TempDirectory temp("networker");
    ASSERT_TRUE(CopyFileW((FakeInstallation(L"full") + L"\\nsrinfo.exe").c_str(),
                          temp.Child(L"nsrinfo.exe").c_str(), FALSE));
    ASSERT_TRUE(WriteWholeFile(temp.Child(L"stdout.txt"), "size=31,\n"));
    ScopedEnvironment output(L"FAKE_NSRINFO_STDOUT", temp.Child(L"stdout.txt"));
    wchar_t previous[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, previous);
    ASSERT_TRUE(SetCurrentDirectoryW(temp.Path().c_str()));

    NetWorkerApiWrapper wrapper;  // never initialised: no installation directory
    const BSA_ObjectDescriptor desc = Descriptor("\\IS", "\\DB1");
    uint64_t size = 0;
    const int32_t status = wrapper.CorrectFileSize(&desc, &size, "srv", "cli");
    SetCurrentDirectoryW(previous);

    EXPECT_EQ(0, status);
    EXPECT_EQ(31u, size);
    EXPECT_EQ(std::vector<std::wstring>{L"nsrinfo.exe " + Widen(kArguments)},
              TestLoggers::Find(kLogger)->TextsAt(LogLevelInfo));
}

TEST(CorrectFileSizeWithoutInstallationTest, MissingToolFailsToStart) {
    TestLoggers::Reset();
    TempDirectory temp("networker");
    wchar_t previous[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, previous);
    ASSERT_TRUE(SetCurrentDirectoryW(temp.Path().c_str()));

    NetWorkerApiWrapper wrapper;
    const BSA_ObjectDescriptor desc = Descriptor("\\IS", "\\DB1");
    uint64_t size = 8;
    const int32_t status = wrapper.CorrectFileSize(&desc, &size, "srv", "cli");
    SetCurrentDirectoryW(previous);

    EXPECT_EQ(NetWorkerStatus::FunctionFailed, status);
    EXPECT_EQ(0u, size);
    const std::vector<std::wstring> errors = TestLoggers::Find(kLogger)->TextsAt(LogLevelError);
    ASSERT_EQ(2u, errors.size());
    EXPECT_EQ(L"CreateProcess failed: nsrinfo.exe", errors[0]);
}

TEST(CorrectFileSizeInstallationTest, InstallationDirectoryWithConversionsIsLoggedAsItStands) {
    // NetWorker installed under a directory whose name holds "%s" and "%n", without its
    // nsrinfo.exe: the failure's message carries that path.
    TestLoggers::Reset();
    TempDirectory temp("networker");
    const std::wstring directory = temp.Child(L"nw %s%n%d");
    ASSERT_TRUE(CreateDirectoryW(directory.c_str(), nullptr));
    for (const wchar_t* file : {L"liblocal.dll", L"librpc.dll", L"librap.dll", L"libnsr.dll",
                                L"libasm.dll", L"libbsa.dll"}) {
        ASSERT_TRUE(CopyFileW((FakeInstallation(L"full") + L"\\" + file).c_str(),
                              (directory + L"\\" + file).c_str(), FALSE))
            << GetLastError();
    }
    ScopedNsrexecdService service(L"\"" + directory + L"\\nsrexecd.exe\"");
    auto wrapper = std::make_unique<NetWorkerApiWrapper>();
    ASSERT_EQ(0, wrapper->Initialize());
    const BSA_ObjectDescriptor desc = Descriptor("\\IS", "\\DB1");
    uint64_t size = 8;
    EXPECT_EQ(NetWorkerStatus::FunctionFailed,
              wrapper->CorrectFileSize(&desc, &size, "srv", "cli"));
    const std::vector<std::wstring> errors = TestLoggers::Find(kLogger)->TextsAt(LogLevelError);
    ASSERT_EQ(2u, errors.size());
    EXPECT_EQ(L"CreateProcess failed: " + directory + L"\\nsrinfo.exe", errors[0]);
    EXPECT_EQ(L"HRESULT 0000065b GetLastError() 2", errors[1]);
    // The wrapper's own formats take the path as an argument, as they always did.
    EXPECT_EQ(directory + L"\\nsrinfo.exe " + Widen(kArguments),
              TestLoggers::Find(kLogger)->TextsAt(LogLevelInfo).at(0));
    wrapper.reset();  // the libraries go before the directory does
}
