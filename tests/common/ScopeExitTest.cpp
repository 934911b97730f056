#include "common/ScopeExit.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

TEST(ScopeExit, RunsAtTheEndOfTheScope) {
    int runs = 0;
    {
        ScopeExit cleanUp([&] { ++runs; });
        EXPECT_EQ(runs, 0);
    }
    EXPECT_EQ(runs, 1);
}

TEST(ScopeExit, RunsWhileAnExceptionOfAnyTypeLeavesAndLetsItThrough) {
    int runs = 0;
    try {
        ScopeExit cleanUp([&] { ++runs; });
        throw 42;
    } catch (int value) {
        EXPECT_EQ(value, 42);
    }
    EXPECT_EQ(runs, 1);
}

TEST(ScopeExit, RunNowRunsOnceAndDismissRunsNothing) {
    std::vector<std::string> order;
    {
        ScopeExit first([&] { order.push_back("first"); });
        ScopeExit second([&] { order.push_back("second"); });
        ScopeExit dismissed([&] { order.push_back("dismissed"); });
        dismissed.Dismiss();
        first.RunNow();
        first.RunNow();
        order.push_back("body");
    }
    EXPECT_EQ(order, (std::vector<std::string>{"first", "body", "second"}));
}

TEST(ScopeExit, AThrowingCleanUpDoesNotReplaceTheExceptionInFlight) {
    try {
        ScopeExit cleanUp([] { throw std::logic_error("from the clean-up"); });
        throw std::runtime_error("the first");
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "the first");
    } catch (...) {
        ADD_FAILURE() << "the clean-up's exception replaced the first one";
    }
}

TEST(ScopeExit, AThrowingCleanUpOnTheNormalPathIsReported) {
    ScopeExit cleanUp([] { throw std::logic_error("from the clean-up"); });
    EXPECT_THROW(cleanUp.RunNow(), std::logic_error);
}

TEST(ScopeExit, AThrowingCleanUpAtTheEndOfTheScopeIsDropped) {
    bool ran = false;
    {
        ScopeExit cleanUp([&] {
            ran = true;
            throw std::logic_error("clean-up");
        });
    }
    EXPECT_TRUE(ran);
}
