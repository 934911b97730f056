#include "networker/NsrInfoOutput.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace {

NsrInfoSize Parse(const std::string& output) {
    return ParseNsrInfoSize(output);
}

void ExpectSize(const std::string& output, uint64_t expected) {
    const NsrInfoSize parsed = Parse(output);
    EXPECT_EQ(NsrInfoSizeOutcome::Parsed, parsed.outcome) << output;
    EXPECT_EQ(expected, parsed.size) << output;
}

void ExpectOutcome(const std::string& output, NsrInfoSizeOutcome expected) {
    const NsrInfoSize parsed = Parse(output);
    EXPECT_EQ(expected, parsed.outcome) << output;
    EXPECT_EQ(0u, parsed.size) << output;
}

}  // namespace

TEST(NsrInfoArgumentsTest, QuotedNameAndArgumentLine) {
    char quoted[kNsrInfoTextCapacity];
    EXPECT_EQ(10u, FormatQuotedObjectName(quoted, sizeof(quoted), "\\IS", "\\DB1"));
    EXPECT_STREQ("\"\\IS:\\DB1\"", quoted);

    char arguments[kNsrInfoTextCapacity];
    FormatNsrInfoArguments(arguments, sizeof(arguments), "srv", quoted, "cli");
    EXPECT_STREQ("-v -V -s srv -n msexch -N \"\\IS:\\DB1\" cli", arguments);
}

TEST(NsrInfoArgumentsTest, TruncatesToTheBufferAndStaysTerminated) {
    const std::string space(1024, 'o');
    const std::string path(1024, 'p');
    char quoted[kNsrInfoTextCapacity];
    EXPECT_EQ(kNsrInfoTextCapacity - 1,
              FormatQuotedObjectName(quoted, sizeof(quoted), space, path));
    EXPECT_EQ('"', quoted[0]);
    EXPECT_EQ(':', quoted[1025]);
    EXPECT_EQ('p', quoted[kNsrInfoTextCapacity - 2]);
    EXPECT_EQ('\0', quoted[kNsrInfoTextCapacity - 1]);

    char small[8];
    EXPECT_EQ(7u, FormatNsrInfoArguments(small, sizeof(small), "srv", "\"a:b\"", "cli"));
    EXPECT_STREQ("-v -V -", small);
}

TEST(NsrInfoParseTest, ValueEndedByCommaOrBlank) {
    ExpectSize("size=777,", 777);
    ExpectSize("name=x\nsize=777, date=1\n", 777);
    ExpectSize("size=777 more", 777);
    ExpectSize("size=5000000000, ", 5000000000ull);
}

TEST(NsrInfoParseTest, SpacedMarkerYieldsZero) {
    ExpectSize("size = 777,", 0);
    ExpectSize("object size = 123456 bytes", 0);
}

TEST(NsrInfoParseTest, FirstUnspacedMarkerWinsOverAnEarlierSpacedOne) {
    ExpectSize("size = 1, size=42,", 42);
    ExpectSize("size=5, size=6,", 5);
}

TEST(NsrInfoParseTest, MarkerFollowedByCommaYieldsZero) {
    ExpectSize("size=,777", 0);
}

TEST(NsrInfoParseTest, MarkerFollowedByBlankYieldsZero) {
    ExpectSize("size= 777,", 0);
}

TEST(NsrInfoParseTest, NineteenCharactersAreTheLimit) {
    ExpectSize("size=1234567890123456789,", 1234567890123456789ull);
    ExpectOutcome("size=12345678901234567890,", NsrInfoSizeOutcome::TooLong);
    ExpectOutcome("size=12345678901234567890 ", NsrInfoSizeOutcome::TooLong);
    ExpectOutcome("size=1234567890123456789012345", NsrInfoSizeOutcome::TooLong);
}

TEST(NsrInfoParseTest, LineBreaksAndTheEndOfOutputDoNotEndTheValue) {
    ExpectSize("size=777\n  next", 777);
    ExpectSize("size=12\r\nx,", 12);
    ExpectOutcome("size=777", NsrInfoSizeOutcome::TooLong);
    ExpectOutcome("size=777\n", NsrInfoSizeOutcome::TooLong);
}

TEST(NsrInfoParseTest, NoMarkerOrNothingRead) {
    ExpectOutcome("", NsrInfoSizeOutcome::NoMarker);
    ExpectOutcome("nsrinfo: no such object\n", NsrInfoSizeOutcome::NoMarker);
    ExpectOutcome("SIZE=777,", NsrInfoSizeOutcome::NoMarker);
    ExpectOutcome("size:777,", NsrInfoSizeOutcome::NoMarker);
}

TEST(NsrInfoParseTest, MarkerAfterTheFirst1024BytesIsNotSeen) {
    ExpectOutcome(std::string(1024, 'x') + "size=777,", NsrInfoSizeOutcome::NoMarker);
    ExpectOutcome(std::string(1020, 'x') + "size=777,", NsrInfoSizeOutcome::NoMarker);
    // The marker fits, and the value's end lies beyond the read: not seen either.
    ExpectOutcome(std::string(1017, 'x') + "size=777,", NsrInfoSizeOutcome::TooLong);
    ExpectSize(std::string(1010, 'x') + "size=777,", 777);
}

TEST(NsrInfoParseTest, MarkersAreSearchedOnlyUpToAZeroByte) {
    ExpectOutcome(std::string("abc\0size=7,", 11), NsrInfoSizeOutcome::NoMarker);
    // A zero byte inside the value ends the number, not the value.
    ExpectSize(std::string("size=12\0"
                           "34,",
                           11),
               12);
}

TEST(NsrInfoParseTest, SignsAndNonDigits) {
    ExpectSize("size=abc,", 0);
    ExpectSize("size=+12,", 12);
    ExpectSize("size=-1,", std::numeric_limits<uint64_t>::max());
    ExpectSize("size=77x7,", 77);
}

TEST(Atoi64Test, CrtRules) {
    EXPECT_EQ(0, ParseAtoi64(""));
    EXPECT_EQ(0, ParseAtoi64("-"));
    EXPECT_EQ(0, ParseAtoi64("=777"));
    EXPECT_EQ(42, ParseAtoi64(" \t\n\v\f\r42"));
    EXPECT_EQ(-42, ParseAtoi64("-42abc"));
    EXPECT_EQ(42, ParseAtoi64("+42"));
    EXPECT_EQ(0, ParseAtoi64("+-42"));
    EXPECT_EQ(0, ParseAtoi64("\x01"
                             "42"));
    EXPECT_EQ(std::numeric_limits<int64_t>::max(), ParseAtoi64("9223372036854775807"));
    EXPECT_EQ(std::numeric_limits<int64_t>::max(), ParseAtoi64("9223372036854775808"));
    EXPECT_EQ(std::numeric_limits<int64_t>::max(), ParseAtoi64("99999999999999999999999"));
    EXPECT_EQ(std::numeric_limits<int64_t>::min(), ParseAtoi64("-9223372036854775808"));
    EXPECT_EQ(std::numeric_limits<int64_t>::min(), ParseAtoi64("-9223372036854775809"));
    EXPECT_EQ(5000000000, ParseAtoi64("0005000000000"));
}
