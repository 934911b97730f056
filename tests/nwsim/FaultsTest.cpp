#include <gtest/gtest.h>

#include "Faults.h"

namespace {

using namespace nwsim;

TEST(Faults, CallCodeAtTheNthCallOnly) {
    FaultPlan plan;
    std::string error;
    ASSERT_TRUE(ParseFaults("BSAGetData=3@5", plan, error)) << error;
    EXPECT_FALSE(plan.ForcedCode(XbsaCall::GetData, 4));
    ASSERT_TRUE(plan.ForcedCode(XbsaCall::GetData, 5));
    EXPECT_EQ(*plan.ForcedCode(XbsaCall::GetData, 5), 3);
    EXPECT_FALSE(plan.ForcedCode(XbsaCall::GetData, 6));
    EXPECT_FALSE(plan.ForcedCode(XbsaCall::GetObject, 5));
}

TEST(Faults, AlwaysAndFromThenOn) {
    FaultPlan plan;
    std::string error;
    ASSERT_TRUE(ParseFaults("BSAInit=80; BSAEndData=79@2+", plan, error)) << error;
    EXPECT_EQ(*plan.ForcedCode(XbsaCall::Init, 1), 80);
    EXPECT_EQ(*plan.ForcedCode(XbsaCall::Init, 1000), 80);
    EXPECT_FALSE(plan.ForcedCode(XbsaCall::EndData, 1));
    EXPECT_EQ(*plan.ForcedCode(XbsaCall::EndData, 2), 79);
    EXPECT_EQ(*plan.ForcedCode(XbsaCall::EndData, 9), 79);
}

TEST(Faults, EveryCallNameIsKnown) {
    for (int i = 0; i < kXbsaCallCount; ++i) {
        const XbsaCall call = static_cast<XbsaCall>(i);
        FaultPlan plan;
        std::string error;
        ASSERT_TRUE(ParseFaults(std::string(XbsaCallName(call)) + "=17", plan, error)) << error;
        EXPECT_EQ(*plan.ForcedCode(call, 1), 17);
    }
}

TEST(Faults, SettingsLinesAndComments) {
    FaultPlan plan;
    std::string error;
    ASSERT_TRUE(
        ParseFaults("# store faults\nBSAGetObject.bufferLen=32768\r\nthrottle=1048576\n"
                    "nsrinfo.exit=2 # exit code\nnsrinfo.output=long-value\n",
                    plan, error))
        << error;
    EXPECT_EQ(plan.bufferLen, 32768u);
    EXPECT_EQ(plan.throttleBytesPerSecond, 1048576u);
    EXPECT_EQ(plan.nsrinfoExit, 2);
    EXPECT_EQ(plan.nsrinfoOutput, NsrinfoOutput::LongValue);
    for (const char* mode : {"normal", "spaced", "late", "long-value", "empty", "flood"}) {
        FaultPlan each;
        ASSERT_TRUE(ParseFaults(std::string("nsrinfo.output=") + mode, each, error)) << mode;
        EXPECT_STREQ(NsrinfoOutputName(each.nsrinfoOutput), mode);
    }
}

TEST(Faults, LaterEntriesWin) {
    FaultPlan plan;
    std::string error;
    ASSERT_TRUE(
        ParseFaults("nsrinfo.exit=2\nnsrinfo.exit=0;BSAGetObject.bufferLen=100", plan, error));
    EXPECT_EQ(plan.nsrinfoExit, 0);
    EXPECT_EQ(plan.bufferLen, 100u);
}

TEST(Faults, TheLastMatchingCallFaultWins) {
    FaultPlan plan;
    std::string error;
    ASSERT_TRUE(ParseFaults("BSAGetData=3\nBSAGetData=26@2", plan, error)) << error;
    EXPECT_EQ(*plan.ForcedCode(XbsaCall::GetData, 1), 3);
    EXPECT_EQ(*plan.ForcedCode(XbsaCall::GetData, 2), 26);
    EXPECT_EQ(*plan.ForcedCode(XbsaCall::GetData, 3), 3);
}

TEST(Faults, BadEntriesAreRefusedWithTheirText) {
    const char* const bad[] = {"BSAGetData",
                               "BSAGetData=x",
                               "BSAGetData=3@0",
                               "BSAGetData=3@",
                               "BSAFoo=3",
                               "BSAGetObject.bufferLen=65536",
                               "BSAGetObject.bufferLen=0",
                               "throttle=-1",
                               "nsrinfo.output=loud",
                               "nsrinfo.exit=abc"};
    for (const char* text : bad) {
        FaultPlan plan;
        std::string error;
        EXPECT_FALSE(ParseFaults(text, plan, error)) << text;
        EXPECT_FALSE(error.empty()) << text;
    }
}

TEST(Faults, EmptyTextMeansNoFaults) {
    FaultPlan plan;
    std::string error;
    ASSERT_TRUE(ParseFaults("\n ; \n# nothing; BSAGetData=3\n", plan, error));
    EXPECT_TRUE(plan.callFaults.empty());
    EXPECT_EQ(plan.bufferLen, 16384u);
    EXPECT_EQ(plan.nsrinfoOutput, NsrinfoOutput::Normal);
}

}  // namespace

TEST(Faults, RecordsAndNsrinfoDelaySettings) {
    FaultPlan plan;
    std::string error;
    EXPECT_FALSE(plan.oversizedRecords);
    EXPECT_EQ(plan.nsrinfoDelayMs, 0u);
    ASSERT_TRUE(ParseFaults("records=oversized;nsrinfo.delay=2500", plan, error)) << error;
    EXPECT_TRUE(plan.oversizedRecords);
    EXPECT_EQ(plan.nsrinfoDelayMs, 2500u);
    ASSERT_TRUE(ParseFaults("records=declared", plan, error)) << error;
    EXPECT_FALSE(plan.oversizedRecords);
    for (const char* bad : {"records=larger", "nsrinfo.delay=-1", "nsrinfo.delay=600001"}) {
        FaultPlan refused;
        EXPECT_FALSE(ParseFaults(bad, refused, error)) << bad;
    }
}
