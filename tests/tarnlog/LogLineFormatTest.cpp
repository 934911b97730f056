#include <gtest/gtest.h>

#include "LogLineFormat.h"

using tarnlog::AppendEscapedUtf8;
using tarnlog::BuildLogLine;
using tarnlog::LocalTimestamp;
using tarnlog::ParseLogLevel;
using tarnlog::ParseNameList;

TEST(LogLevelParsing, KnowsEveryLevelInAnyCase) {
    const struct {
        const wchar_t* text;
        int level;
    } cases[] = {
        {L"trace", LogLevelTrace},       {L"DEBUG", LogLevelDebug}, {L"Info", LogLevelInfo},
        {L" warning ", LogLevelWarning}, {L"error", LogLevelError}, {L"OFF", LogLevelOff},
    };
    for (const auto& c : cases) {
        int level = -1;
        EXPECT_TRUE(ParseLogLevel(c.text, &level)) << c.text;
        EXPECT_EQ(level, c.level) << c.text;
    }
}

TEST(LogLevelParsing, RejectsUnknownWordsAndLeavesLevelAlone) {
    for (const wchar_t* text : {L"", L"verbose", L"warn", L"2", L"info x"}) {
        int level = 42;
        EXPECT_FALSE(ParseLogLevel(text, &level)) << text;
        EXPECT_EQ(level, 42);
    }
}

TEST(LogLevelParsing, LabelsAreUpperCase) {
    EXPECT_STREQ(tarnlog::LevelLabel(LogLevelTrace), "TRACE");
    EXPECT_STREQ(tarnlog::LevelLabel(LogLevelDebug), "DEBUG");
    EXPECT_STREQ(tarnlog::LevelLabel(LogLevelInfo), "INFO");
    EXPECT_STREQ(tarnlog::LevelLabel(LogLevelWarning), "WARNING");
    EXPECT_STREQ(tarnlog::LevelLabel(LogLevelError), "ERROR");
}

TEST(NameList, SplitsOnCommasAndDropsBlanksAndEmptyNames) {
    EXPECT_EQ(ParseNameList(L"NetWorkerApiExecutor, NamedPipeConnection,,  CatalogHandler "),
              (std::vector<std::wstring>{L"NetWorkerApiExecutor", L"NamedPipeConnection",
                                         L"CatalogHandler"}));
    EXPECT_TRUE(ParseNameList(L"").empty());
    EXPECT_TRUE(ParseNameList(L" , ,").empty());
    EXPECT_EQ(ParseNameList(L"One"), (std::vector<std::wstring>{L"One"}));
}

TEST(Escaping, LineBreaksBecomeTwoCharacters) {
    std::string out;
    AppendEscapedUtf8(out, L"first\nsecond\r\nthird\n");
    EXPECT_EQ(out, "first\\nsecond\\r\\nthird\\n");
}

TEST(Escaping, EncodesUtf8) {
    std::string out;
    AppendEscapedUtf8(out, L"Gr\u00fc\u00dfe \u20ac");
    EXPECT_EQ(out,
              "Gr\xc3\xbc\xc3\x9f"
              "e \xe2\x82\xac");
}

TEST(Escaping, EncodesCharactersOutsideTheBasicPlane) {
    // U+1F600 as UTF-16 surrogates on Windows, one wchar_t elsewhere.
    std::wstring text;
    if (sizeof(wchar_t) == 2) {
        text = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
    } else {
        text = {static_cast<wchar_t>(0x1F600)};
    }
    std::string out;
    AppendEscapedUtf8(out, text.c_str(), text.size());
    EXPECT_EQ(out, "\xf0\x9f\x98\x80");
}

TEST(Escaping, UnpairedSurrogatesBecomeReplacementCharacters) {
    const wchar_t text[] = {L'a', static_cast<wchar_t>(0xD800), L'b', static_cast<wchar_t>(0xDC00),
                            0};
    std::string out;
    AppendEscapedUtf8(out, text);
    EXPECT_EQ(out,
              "a\xef\xbf\xbd"
              "b\xef\xbf\xbd");
}

TEST(Escaping, NullTextAppendsNothing) {
    std::string out = "x";
    AppendEscapedUtf8(out, nullptr);
    EXPECT_EQ(out, "x");
}

TEST(Timestamp, IsoLocalTimeWithMilliseconds) {
    std::string out;
    tarnlog::AppendTimestamp(out, LocalTimestamp{2026, 1, 2, 3, 4, 5, 6});
    EXPECT_EQ(out, "2026-01-02T03:04:05.006");
    out.clear();
    tarnlog::AppendTimestamp(out, LocalTimestamp{1999, 12, 31, 23, 59, 59, 999});
    EXPECT_EQ(out, "1999-12-31T23:59:59.999");
}

TEST(LogLine, FiveTabSeparatedFieldsAndOneLineFeed) {
    const std::wstring text = L"Found 3 items.\n";
    EXPECT_EQ(BuildLogLine(LocalTimestamp{2026, 11, 21, 14, 5, 9, 42}, LogLevelInfo,
                           L"NetWorkerApiExecutor", L"NetWorkerApiExecutor::Catalog", text.c_str(),
                           text.size()),
              "2026-11-21T14:05:09.042\tINFO\tNetWorkerApiExecutor\t"
              "NetWorkerApiExecutor::Catalog\tFound 3 items.\\n\n");
}

TEST(LogLine, UsesOnlyTheGivenLengthOfText) {
    EXPECT_EQ(BuildLogLine(LocalTimestamp{2026, 1, 1, 0, 0, 0, 0}, LogLevelError, L"L", L"M",
                           L"abcdef", 3),
              "2026-01-01T00:00:00.000\tERROR\tL\tM\tabc\n");
}

TEST(LogFileLockName, IsTheFnv1aHashOfTheUtf16Key) {
    EXPECT_EQ(tarnlog::LogFileLockName(L""), L"Local\\TarnLogFile-CBF29CE484222325");
    EXPECT_EQ(tarnlog::LogFileLockName(L"C:\\LOGS\\A.LOG"), L"Local\\TarnLogFile-33E4BEB795074F90");
}

TEST(LogFileLockName, DiffersForDifferentFilesAndHasNoFurtherBackslash) {
    const std::wstring a = tarnlog::LogFileLockName(L"C:\\LOGS\\A.LOG");
    const std::wstring b = tarnlog::LogFileLockName(L"C:\\LOGS\\B.LOG");
    EXPECT_NE(a, b);
    EXPECT_EQ(a.find(L'\\', 6), std::wstring::npos);
    EXPECT_EQ(tarnlog::LogFileLockName(L"\u00C4"), L"Local\\TarnLogFile-0AB17007B70A4209");
}
