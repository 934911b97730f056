// The clean-ups that a Visual C++ exception from a host's callback would otherwise skip: what
// registers, in which order a foreign unwind runs them, and where it stops. The guard that calls
// RunAllForForeignUnwind while such an exception passes is exercised by a Visual C++ host
// (msvc_host_tests: MsvcHostExceptions.*); here the unwinding is played by calling it directly.
#include "common/ForeignUnwind.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "RecordingLog.h"
#include "common/HostCallGuard.h"
#include "common/MethodTracer.h"
#include "common/ScopeExit.h"

TEST(ForeignUnwind, ScopeGuardsAndTracersRegisterWhileTheyLive) {
    const int before = ForeignUnwindCleanup::RegisteredOnThisThread();
    {
        ScopeExit cleanUp([] {});
        NWX_TRACE_METHOD(nullptr, L"Test::Method");
        EXPECT_EQ(ForeignUnwindCleanup::RegisteredOnThisThread(), before + 2);
    }
    EXPECT_EQ(ForeignUnwindCleanup::RegisteredOnThisThread(), before);
}

TEST(ForeignUnwind, RunsEveryCleanUpInnermostFirstOnceAndWritesMethodEnd) {
    RecordingLog log;
    std::vector<std::string> order;
    const int before = ForeignUnwindCleanup::RegisteredOnThisThread();
    {
        NWX_TRACE_METHOD(&log, L"Test::Outer");
        ScopeExit outer([&] { order.push_back("outer"); });
        ScopeExit inner([&] { order.push_back("inner"); });
        ForeignUnwindCleanup::RunAllForForeignUnwind();
        EXPECT_EQ(order, (std::vector<std::string>{"inner", "outer"}));
        EXPECT_EQ(ForeignUnwindCleanup::RegisteredOnThisThread(), before);
        // The frames' destructors, had they run after all, run nothing a second time.
        inner.RunNow();
    }
    EXPECT_EQ(order, (std::vector<std::string>{"inner", "outer"}));
    EXPECT_EQ(log.TextsAt(LogLevelTrace),
              (std::vector<std::wstring>{L"Method Start", L"Method End"}));
    EXPECT_EQ(ForeignUnwindCleanup::RegisteredOnThisThread(), before);
}

TEST(ForeignUnwind, TheTransportsTracerWritesNoMethodEndOnUnwind) {
    RecordingLog log;
    {
        NWX_TRACE_METHOD(&log, L"Test::Pipe", MethodEndOnUnwind::Skip);
        ForeignUnwindCleanup::RunAllForForeignUnwind();
    }
    EXPECT_EQ(log.TextsAt(LogLevelTrace), (std::vector<std::wstring>{L"Method Start"}));
}

TEST(ForeignUnwind, StopsAtTheHostsEntryAndForgetsIt) {
    std::vector<std::string> order;
    const int before = ForeignUnwindCleanup::RegisteredOnThisThread();
    {
        const ForeignUnwindBoundary outerEntry;
        ScopeExit outer([&] { order.push_back("outer call"); });
        {
            // The host called in again from inside a callback.
            const ForeignUnwindBoundary innerEntry;
            ScopeExit inner([&] { order.push_back("inner call"); });
            ForeignUnwindCleanup::RunAllForForeignUnwind();
            EXPECT_EQ(order, std::vector<std::string>{"inner call"});
            EXPECT_EQ(ForeignUnwindCleanup::RegisteredOnThisThread(), before + 2);
        }
        // The host caught it in its callback; the outer call ends normally.
    }
    EXPECT_EQ(order, (std::vector<std::string>{"inner call", "outer call"}));
    EXPECT_EQ(ForeignUnwindCleanup::RegisteredOnThisThread(), before);
}

TEST(ForeignUnwind, CleanUpThatThrowsIsDroppedAndTheRestRun) {
    std::vector<std::string> order;
    {
        ScopeExit outer([&] { order.push_back("outer"); });
        ScopeExit inner([&] {
            order.push_back("inner");
            throw std::runtime_error("clean-up failed");
        });
        ForeignUnwindCleanup::RunAllForForeignUnwind();
    }
    EXPECT_EQ(order, (std::vector<std::string>{"inner", "outer"}));
}

TEST(ForeignUnwind, CleanUpsMadeWhileOneRunsEndBeforeItsOuterOnes) {
    std::vector<std::string> order;
    const int before = ForeignUnwindCleanup::RegisteredOnThisThread();
    {
        ScopeExit outer([&] { order.push_back("outer"); });
        ScopeExit inner([&] {
            ScopeExit nested([&] { order.push_back("made by inner"); });
            order.push_back("inner");
        });
        ForeignUnwindCleanup::RunAllForForeignUnwind();
    }
    EXPECT_EQ(order, (std::vector<std::string>{"inner", "made by inner", "outer"}));
    EXPECT_EQ(ForeignUnwindCleanup::RegisteredOnThisThread(), before);
}

// Our own compiler's exceptions pass the host-call guard as they always did: the clean-ups run
// once, through the destructors, and the exception arrives unchanged.
TEST(HostCallGuard, GccExceptionsPassThroughTheirDestructors) {
    int runs = 0;
    try {
        ScopeExit cleanUp([&] { ++runs; });
        CallHost([]() -> bool { throw std::invalid_argument("the host's own"); });
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "the host's own");
    }
    EXPECT_EQ(runs, 1);
}

TEST(HostCallGuard, ReturnsTheHostsAnswer) {
    EXPECT_EQ(CallHost([] { return 1246u; }), 1246u);
    bool called = false;
    CallHost([&] { called = true; });
    EXPECT_TRUE(called);
}
