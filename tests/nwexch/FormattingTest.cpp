#include <gtest/gtest.h>

#include "Formatting.h"

namespace {

CatalogueRow Row(uint32_t index, uint64_t size, uint64_t order, const std::wstring& path) {
    CatalogueRow row;
    row.index = index;
    row.backupTime.wYear = 2026;
    row.backupTime.wMonth = 11;
    row.backupTime.wDay = 20;
    row.backupTime.wHour = 22;
    row.size = size;
    row.restoreOrder = order;
    row.path = path;
    return row;
}

}  // namespace

TEST(CatalogueTable, AlignsColumns) {
    const std::wstring table = FormatCatalogueTable(
        {Row(0, 0, 1, L"/sg/priv1.edb"), Row(12, 5242880, 4294967296ull, L"/sg/E00.log")});
    EXPECT_EQ(table,
              L"INDEX  BACKUP TIME             SIZE  RESTORE ORDER  PATH\n"
              L"    0  2026-11-20 22:00:00        0              1  /sg/priv1.edb\n"
              L"   12  2026-11-20 22:00:00  5242880     4294967296  /sg/E00.log\n");
}

TEST(CatalogueJson, OneObjectPerLine) {
    EXPECT_EQ(FormatCatalogueJsonLine(Row(3, 5242880, 7, L"/First Storage Group/E00.log")),
              "{\"index\":3,\"backupTime\":\"2026-11-20T22:00:00\",\"size\":5242880,"
              "\"restoreOrder\":7,\"path\":\"/First Storage Group/E00.log\"}\n");
}

TEST(JsonEscape, EscapesQuotesBackslashesControlsAndNonAscii) {
    EXPECT_EQ(JsonEscape(L"a\"b\\c"), "a\\\"b\\\\c");
    EXPECT_EQ(JsonEscape(L"\n\t\x01\x7f"), "\\n\\t\\u0001\\u007f");
    EXPECT_EQ(JsonEscape(L"Gr\u00fc\u00dfe"), "Gr\\u00fc\\u00dfe");
    EXPECT_EQ(JsonEscape(L"\u20ac"), "\\u20ac");
}

TEST(FormatBytes, BinaryUnitsWithOneDecimal) {
    EXPECT_EQ(FormatBytes(0), L"0 B");
    EXPECT_EQ(FormatBytes(1023), L"1023 B");
    EXPECT_EQ(FormatBytes(1536), L"1.5 KiB");
    EXPECT_EQ(FormatBytes(314572800), L"300.0 MiB");
    EXPECT_EQ(FormatBytes(1048573), L"1.0 MiB");
    EXPECT_EQ(FormatBytes(5000000000ull), L"4.7 GiB");
    EXPECT_EQ(FormatRate(1048576.0), L"1.0 MiB/s");
}

TEST(FormatDuration, MinutesAndHours) {
    EXPECT_EQ(FormatDuration(7), L"0:07");
    EXPECT_EQ(FormatDuration(754), L"12:34");
    EXPECT_EQ(FormatDuration(3723), L"1:02:03");
}

TEST(RateMeter, RateOverTheWindowAndTimeLeft) {
    RateMeter meter(5000);
    uint64_t seconds = 0;
    EXPECT_FALSE(meter.SecondsLeft(100, &seconds));
    meter.Add(0, 0);
    meter.Add(1000, 1000000);
    EXPECT_DOUBLE_EQ(meter.BytesPerSecond(), 1000000.0);
    ASSERT_TRUE(meter.SecondsLeft(3000000, &seconds));
    EXPECT_EQ(seconds, 3u);
    // A fast start drops out of the window: the rate follows the recent pace.
    meter.Add(10000, 2000000);
    meter.Add(16000, 2600000);
    EXPECT_DOUBLE_EQ(meter.BytesPerSecond(), 100000.0);
}

TEST(Progress, BarAndLineCarryTheSameFacts) {
    ProgressSnapshot s;
    s.done = 1048576;
    s.total = 2097152;
    s.bytesPerSecond = 1048576;
    s.etaKnown = true;
    s.secondsLeft = 1;
    s.label = L"priv1.edb";
    EXPECT_EQ(FormatProgressBar(s, 200),
              L"[##########----------]  50%  1.0 MiB of 2.0 MiB  1.0 MiB/s  0:01 left  priv1.edb");
    EXPECT_EQ(FormatProgressBar(s, 10), L"[#########");
    EXPECT_EQ(FormatProgressLine(s),
              L"progress 50% 1048576 of 2097152 bytes, 1.0 MiB/s, 0:01 left: priv1.edb");
    s.total = 0;
    s.etaKnown = false;
    EXPECT_EQ(FormatProgressLine(s), L"progress 1048576 bytes, 1.0 MiB/s: priv1.edb");
}

TEST(Status, EveryLibraryStatusHasItsOwnMeaning) {
    EXPECT_EQ(FormatStatus(static_cast<int32_t>(0x8007000A)),
              L"status 0x8007000A (BSAInit failed: bad environment / unknown server or client)");
    EXPECT_EQ(FormatStatus(110),
              L"status 0x0000006E (110: NetWorker's client is not installed: no \"nsrexecd\" "
              L"service (or the service control manager could not be opened))");
    EXPECT_NE(DescribeStatus(1157).find(L"NetWorker library could not be loaded"),
              std::wstring::npos);
    const int32_t statuses[] = {0,
                                1,
                                109,
                                110,
                                1157,
                                1169,
                                1223,
                                1627,
                                static_cast<int32_t>(0x80004005),
                                static_cast<int32_t>(0x80070005),
                                static_cast<int32_t>(0x80070006),
                                static_cast<int32_t>(0x80070057),
                                static_cast<int32_t>(0x8007007A),
                                static_cast<int32_t>(0x8007000A)};
    for (int32_t a : statuses) {
        EXPECT_NE(DescribeStatus(a), L"unknown status") << a;
        for (int32_t b : statuses) {
            if (a != b) {
                EXPECT_NE(DescribeStatus(a), DescribeStatus(b));
            }
        }
    }
    EXPECT_EQ(DescribeStatus(static_cast<int32_t>(0x80070002)), L"Windows error 2");
    EXPECT_EQ(DescribeStatus(4242), L"unknown status");
}

TEST(RestoreSummary, CountsRestoredAndListsTheRest) {
    std::vector<FileOutcome> outcomes(3);
    outcomes[0].backupPath = L"/sg/priv1.edb";
    outcomes[0].result = FileResult::Restored;
    outcomes[0].bytes = 2097152;
    outcomes[1].backupPath = L"/sg/pub1.edb";
    outcomes[1].result = FileResult::Cancelled;
    outcomes[1].reason = L"cancelled by Ctrl+C";
    outcomes[2].backupPath = L"/sg/E00.log";
    outcomes[2].result = FileResult::NotStarted;
    outcomes[2].reason = L"not started";
    EXPECT_EQ(FormatRestoreSummary(outcomes, 2000),
              L"Restored 1 of 3 files, 2097152 bytes (2.0 MiB) in 2.0 s, 1.0 MiB/s\n"
              L"Not restored:\n"
              L"  CANCELLED  /sg/pub1.edb: cancelled by Ctrl+C\n"
              L"  NOT DONE   /sg/E00.log: not started\n");
}
