#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "RecordingLog.h"
#include "common/MethodTracer.h"
#include "common/TarnError.h"

namespace {

const LogLine kStart{LogLevelTrace, L"Sample::Run", L"Method Start"};
const LogLine kEnd{LogLevelTrace, L"Sample::Run", L"Method End"};

void TracedReturn(ILog* log) {
    NWX_TRACE_METHOD(log, L"Sample::Run");
}

void TracedThrow(ILog* log, MethodEndOnUnwind onUnwind) {
    ScopedMethodTracer tracer(log, L"Sample::Run", onUnwind);
    throw std::runtime_error("leaving");
}

void TracedRaise(ILog* log) {
    NWX_TRACE_METHOD(log, L"Sample::Run");
    RaiseTarnError(log, static_cast<int32_t>(0x80004005), L"Sample::Run", L"failed");
}

// Traces from a destructor that runs while another exception is already unwinding.
struct TracesWhileUnwinding {
    ILog* log;
    ~TracesWhileUnwinding() {
        try {
            ScopedMethodTracer tracer(log, L"Cleanup::Run", MethodEndOnUnwind::Skip);
        } catch (...) {
        }
    }
};

}  // namespace

TEST(MethodTracer, StartAndEndOnNormalReturn) {
    RecordingLog log;
    TracedReturn(&log);
    EXPECT_EQ(log.Lines(), (std::vector<LogLine>{kStart, kEnd}));
}

TEST(MethodTracer, EndIsWrittenWhileAnExceptionPassesThrough) {
    RecordingLog log;
    EXPECT_THROW(TracedThrow(&log, MethodEndOnUnwind::Write), std::runtime_error);
    EXPECT_EQ(log.Lines(), (std::vector<LogLine>{kStart, kEnd}));
}

TEST(MethodTracer, TarnErrorLinesComeBetweenStartAndEnd) {
    RecordingLog log;
    EXPECT_THROW(TracedRaise(&log), TarnError);
    const std::vector<LogLine> lines = log.Lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], kStart);
    EXPECT_EQ(lines[1].text, L"failed");
    EXPECT_EQ(lines[2].text.rfind(L"HRESULT 80004005 GetLastError() ", 0), 0u);
    EXPECT_EQ(lines[3], kEnd);
}

TEST(MethodTracer, SkipPolicyWritesNoEndWhenAnExceptionLeaves) {
    RecordingLog log;
    EXPECT_THROW(TracedThrow(&log, MethodEndOnUnwind::Skip), std::runtime_error);
    EXPECT_EQ(log.Lines(), (std::vector<LogLine>{kStart}));
}

TEST(MethodTracer, SkipPolicyWritesEndOnNormalReturn) {
    RecordingLog log;
    { ScopedMethodTracer tracer(&log, L"Sample::Run", MethodEndOnUnwind::Skip); }
    EXPECT_EQ(log.Lines(), (std::vector<LogLine>{kStart, kEnd}));
}

TEST(MethodTracer, SkipPolicyInsideCleanupDuringUnwindingStillWritesEnd) {
    // The exception was already in flight when the method began; it does not leave the method.
    RecordingLog log;
    try {
        TracesWhileUnwinding cleanup{&log};
        throw std::runtime_error("outer");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(log.Lines(), (std::vector<LogLine>{{LogLevelTrace, L"Cleanup::Run", L"Method Start"},
                                                 {LogLevelTrace, L"Cleanup::Run", L"Method End"}}));
}

TEST(MethodTracer, NestedMethodsCloseInReverseOrder) {
    RecordingLog log;
    {
        NWX_TRACE_METHOD(&log, L"Outer::Run");
        NWX_TRACE_METHOD(&log, L"Inner::Run");
    }
    EXPECT_EQ(log.Lines(), (std::vector<LogLine>{
                               {LogLevelTrace, L"Outer::Run", L"Method Start"},
                               {LogLevelTrace, L"Inner::Run", L"Method Start"},
                               {LogLevelTrace, L"Inner::Run", L"Method End"},
                               {LogLevelTrace, L"Outer::Run", L"Method End"},
                           }));
}

TEST(MethodTracer, KeepsTheQualifiedName) {
    ScopedMethodTracer tracer(nullptr, L"NetWorkerApiExecutor::Catalog");
    EXPECT_STREQ(tracer.Method(), L"NetWorkerApiExecutor::Catalog");
}
