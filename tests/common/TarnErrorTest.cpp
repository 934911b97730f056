#include <gtest/gtest.h>

#include <cstdint>
#include <exception>
#include <map>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "RecordingLog.h"
#include "common/LastError.h"
#include "common/TarnError.h"
#include "common/WideFormat.h"
#include "interfaces/NetWorkerStatus.h"

namespace {

constexpr int32_t kFail = static_cast<int32_t>(0x80004005);

// Every XBSA return code that maps to something other than 0.
const std::map<int32_t, int32_t>& MappedCodes() {
    static const std::map<int32_t, int32_t> table = {
        {3, kFail},
        {5, kFail},
        {32, kFail},
        {52, kFail},
        {75, kFail},
        {79, kFail},
        {4, static_cast<int32_t>(0x80070005)},
        {77, static_cast<int32_t>(0x80070005)},
        {6, static_cast<int32_t>(0x80070006)},
        {11, static_cast<int32_t>(0x80070057)},
        {81, static_cast<int32_t>(0x80070057)},
        {83, static_cast<int32_t>(0x80070057)},
        {85, static_cast<int32_t>(0x80070057)},
        {17, 1169},
        {26, 1169},
        {78, static_cast<int32_t>(0x8007007A)},
        {80, static_cast<int32_t>(0x8007000A)},
    };
    return table;
}

int32_t RaiseAndCatch(ILog* log, int32_t code, const wchar_t* method, const wchar_t* format,
                      const wchar_t* argument = nullptr) {
    try {
        RaiseTarnError(log, code, method, format, argument);
    } catch (TarnError error) {
        return error.code;
    }
    ADD_FAILURE() << "RaiseTarnError returned";
    return 0;
}

// Forwards to a RecordingLog but lets a test disturb the thread's last error from inside the
// logger's own calls, the way a real logging library's file I/O would.
class DisturbingLog final : public ILog {
public:
    const wchar_t* GetName() override { return L"DisturbingLog"; }
    void SetLevel(int level) override { m_inner.SetLevel(level); }
    int GetLevel() override { return m_inner.GetLevel(); }
    bool IsTraceEnabled() override { return true; }
    void Trace(const wchar_t* method, const wchar_t* text) override { m_inner.Trace(method, text); }
    bool IsInfoEnabled() override { return true; }
    void Info(const wchar_t* method, const wchar_t* format, ...) override {
        m_inner.Info(method, L"%s", format);
    }
    bool IsWarningEnabled() override { return true; }
    void Warning(const wchar_t* method, const wchar_t* format, ...) override {
        m_inner.Warning(method, L"%s", format);
    }
    bool IsDebugEnabled() override { return true; }
    void Debug(const wchar_t* method, const wchar_t* format, ...) override {
        m_inner.Debug(method, L"%s", format);
    }
    bool IsErrorEnabled() override {
        if (m_errorOnAnswer != 0) {
            WriteLastError(m_errorOnAnswer);
        }
        return true;
    }
    void Error(const wchar_t* method, const wchar_t* format, ...) override {
        WriteLastError(m_errorOnWrite);
        // RaiseTarnError passes finished texts without arguments: recorded as given.
        m_inner.Error(method, L"%s", format);
    }

    uint32_t m_errorOnAnswer = 0;  // set by IsErrorEnabled before it answers (0: leave alone)
    uint32_t m_errorOnWrite = 0;   // set by every Error call
    RecordingLog m_inner;
};

}  // namespace

static_assert(!std::is_base_of<std::exception, TarnError>::value,
              "handlers for standard exceptions must not catch TarnError");
static_assert(sizeof(TarnError) == sizeof(int32_t), "TarnError carries the status only");

TEST(BSAError2HResult, EveryReturnCodeFromMinusOneToOneHundred) {
    for (int32_t rc = -1; rc <= 100; ++rc) {
        SCOPED_TRACE(rc);
        const auto mapped = MappedCodes().find(rc);
        const int32_t expected = mapped == MappedCodes().end() ? 0 : mapped->second;
        RecordingLog log;
        EXPECT_EQ(BSAError2HResult(rc, &log), expected);
        EXPECT_EQ(BSAError2HResult(rc, nullptr), expected);
        const std::vector<LogLine> lines = log.Lines();
        if (expected < 0) {
            ASSERT_EQ(lines.size(), 1u);
            EXPECT_EQ(lines[0].level, LogLevelError);
            EXPECT_EQ(lines[0].method, L"BSAError2HResult");
            EXPECT_EQ(lines[0].text, FormatWideString(L"BSA Error %d\n", rc));
        } else {
            EXPECT_TRUE(lines.empty());
        }
    }
}

TEST(BSAError2HResult, NothingFoundIsPositiveAndSilent) {
    for (int32_t rc : {17, 26}) {
        RecordingLog log;
        EXPECT_EQ(BSAError2HResult(rc, &log), NetWorkerStatus::NoMatch);
        EXPECT_TRUE(log.Lines().empty());
    }
}

TEST(BSAError2HResult, SuccessEndOfDataAndCodesOutsideTheTableAreSilentZero) {
    for (int32_t rc : {0, 2, 18, 86, -5, 1000}) {
        RecordingLog log;
        EXPECT_EQ(BSAError2HResult(rc, &log), 0) << rc;
        EXPECT_TRUE(log.Lines().empty()) << rc;
    }
}

TEST(BSAError2HResult, AuthenticationFailureIsLoggedUnderTheBareFunctionName) {
    RecordingLog log;
    EXPECT_EQ(BSAError2HResult(4, &log), NetWorkerStatus::AccessDenied);
    EXPECT_EQ(log.Lines(),
              (std::vector<LogLine>{{LogLevelError, L"BSAError2HResult", L"BSA Error 4\n"}}));
}

TEST(RaiseTarnError, WritesMessageThenHResultLineAndThrowsTheCode) {
    RecordingLog log;
    WriteLastError(0);
    EXPECT_EQ(
        RaiseAndCatch(&log, kFail, L"NetWorkerApiExecutor::ExtractFile", L"Could not Create File"),
        kFail);
    EXPECT_EQ(log.Lines(),
              (std::vector<LogLine>{
                  {LogLevelError, L"NetWorkerApiExecutor::ExtractFile", L"Could not Create File"},
                  {LogLevelError, L"NetWorkerApiExecutor::ExtractFile",
                   L"HRESULT 80004005 GetLastError() 0"},
              }));
}

TEST(RaiseTarnError, FormatsTheMessageWithItsArguments) {
    RecordingLog log;
    WriteLastError(5);
    EXPECT_EQ(RaiseAndCatch(&log, NetWorkerStatus::AccessDenied, L"X::Y", L"Unable to open %s.",
                            L"C:\\data\\db1.edb"),
              NetWorkerStatus::AccessDenied);
    EXPECT_EQ(log.TextsAt(LogLevelError),
              (std::vector<std::wstring>{L"Unable to open C:\\data\\db1.edb.",
                                         L"HRESULT 80070005 GetLastError() 5"}));
}

TEST(RaiseTarnError, HResultLineShowsPositiveCodesAndTheLastError) {
    RecordingLog log;
    WriteLastError(112);
    EXPECT_EQ(RaiseAndCatch(&log, NetWorkerStatus::FunctionFailed, L"X::Y", L"m"), 1627);
    EXPECT_EQ(log.TextsAt(LogLevelError).at(1), L"HRESULT 0000065b GetLastError() 112");
}

TEST(RaiseTarnError, LastErrorIsReadBeforeTheLoggerWrites) {
    DisturbingLog log;
    log.m_errorOnWrite = 31337;
    WriteLastError(2);
    RaiseAndCatch(&log, kFail, L"X::Y", L"first");
    EXPECT_EQ(log.m_inner.TextsAt(LogLevelError),
              (std::vector<std::wstring>{L"first", L"HRESULT 80004005 GetLastError() 2"}));
}

TEST(RaiseTarnError, LastErrorIsReadAfterIsErrorEnabledAnswered) {
    DisturbingLog log;
    log.m_errorOnAnswer = 77;
    WriteLastError(2);
    RaiseAndCatch(&log, kFail, L"X::Y", L"first");
    EXPECT_EQ(log.m_inner.TextsAt(LogLevelError).at(1), L"HRESULT 80004005 GetLastError() 77");
}

TEST(RaiseTarnError, DisabledErrorsWriteNothingButStillThrow) {
    RecordingLog log;
    log.SetErrorEnabled(false);
    WriteLastError(1234);
    EXPECT_EQ(RaiseAndCatch(&log, kFail, L"X::Y", L"hidden"), kFail);
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(log.IsErrorEnabledCalls(), 1);
    EXPECT_EQ(ReadLastError(), 1234u);
}

TEST(RaiseTarnError, NullLoggerStillThrows) {
    EXPECT_EQ(RaiseAndCatch(nullptr, NetWorkerStatus::Cancelled, L"X::Y", L"quiet"), 1223);
}

TEST(RaiseTarnError, DataWithPercentSignsIsWrittenAsItStands) {
    // A path with conversions in it: read as a format, "%s" would take an argument that does
    // not exist and "%n" would write through one.
    RecordingLog log;
    const wchar_t* const path = L"C:\\Program Files\\nw%s%n%%%d\\nsrinfo.exe";
    RaiseAndCatch(&log, NetWorkerStatus::FunctionFailed, L"X::Y", L"CreateProcess failed: %ls",
                  path);
    EXPECT_EQ(log.TextsAt(LogLevelError).at(0), std::wstring(L"CreateProcess failed: ") + path);
}

TEST(RaiseTarnError, TheLoggerStillReceivesTheMessageAsItsFormat) {
    // The message goes to Error as the format, with no arguments, its percent signs doubled.
    DisturbingLog log;
    RaiseAndCatch(&log, kFail, L"X::Y", L"%s", L"100% sure, 50%% off");
    EXPECT_EQ(log.m_inner.TextsAt(LogLevelError).at(0), L"100%% sure, 50%%%% off");
}

TEST(RaiseTarnError, LongMessagesAreWrittenWhole) {
    RecordingLog log;
    const std::wstring longText(1000, L'q');
    RaiseAndCatch(&log, kFail, L"X::Y", L"<%s>", longText.c_str());
    EXPECT_EQ(log.TextsAt(LogLevelError).at(0), L"<" + longText + L">");
}

TEST(RaiseTarnError, StandardExceptionHandlersDoNotCatchIt) {
    int32_t caught = 0;
    try {
        try {
            RaiseTarnError(nullptr, kFail, L"X::Y", L"m");
        } catch (const std::exception&) {
            ADD_FAILURE() << "caught as a standard exception";
        }
    } catch (TarnError error) {
        caught = error.code;
    }
    EXPECT_EQ(caught, kFail);
}

TEST(RunAsStatus, ReturnsTheOperationsStatusOrTheRaisedCode) {
    EXPECT_EQ(RunAsStatus([] { return 1169; }), 1169);
    EXPECT_EQ(RunAsStatus([]() -> int32_t {
                  RaiseTarnError(nullptr, NetWorkerStatus::Cancelled, L"X::Y", L"m");
              }),
              NetWorkerStatus::Cancelled);
}

TEST(RunAsStatus, OtherExceptionsPassThrough) {
    EXPECT_THROW(RunAsStatus([]() -> int32_t { throw std::runtime_error("pipe"); }),
                 std::runtime_error);
}
