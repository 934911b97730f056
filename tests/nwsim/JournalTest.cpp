#include <gtest/gtest.h>

#include "Journal.h"

namespace {

using namespace nwsim;

TEST(Journal, LineFormat) {
    JournalLine line("BSAInit");
    line.Number("handle", 1).Text("env0", "NSR_CLIENT=cli").Signed("rc", -5);
    EXPECT_EQ(line.Str(), "BSAInit handle=1 env0=\"NSR_CLIENT=cli\" rc=-5");
}

TEST(Journal, TextIsEscapedAndParsedBack) {
    JournalLine line("nsrinfo");
    line.Text("cmdline", "-N \"\\IS:/a b\" cli\t\r\n").Pointer("p", nullptr).Number("exit", 0);
    ParsedJournalLine parsed;
    ASSERT_TRUE(ParseJournalLine(line.Str() + "\n", parsed));
    EXPECT_EQ(parsed.call, "nsrinfo");
    ASSERT_EQ(parsed.fields.size(), 3u);
    EXPECT_EQ(*parsed.Find("cmdline"), "-N \"\\IS:/a b\" cli\t\r\n");
    EXPECT_EQ(*parsed.Find("p"), "0x0");
    EXPECT_EQ(*parsed.Find("exit"), "0");
    EXPECT_EQ(parsed.Find("absent"), nullptr);
}

TEST(Journal, FixedFieldStopsAtItsCapacity) {
    const char unterminated[4] = {'a', 'b', 'c', 'd'};
    JournalLine line("x");
    line.Field("f", unterminated, sizeof(unterminated));
    EXPECT_EQ(line.Str(), "x f=\"abcd\"");
    const char terminated[8] = "ab";
    JournalLine second("x");
    second.Field("f", terminated, sizeof(terminated));
    EXPECT_EQ(second.Str(), "x f=\"ab\"");
}

TEST(Journal, MalformedLinesAreRefused) {
    ParsedJournalLine parsed;
    EXPECT_FALSE(ParseJournalLine("", parsed));
    EXPECT_FALSE(ParseJournalLine("call key", parsed));
    EXPECT_FALSE(ParseJournalLine("call key=\"open", parsed));
    EXPECT_TRUE(ParseJournalLine("call", parsed));
    EXPECT_TRUE(parsed.fields.empty());
}

}  // namespace
