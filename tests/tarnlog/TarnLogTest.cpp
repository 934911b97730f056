// TarnLog.dll through its file output: line layout, level filter, format directives and fault
// injection. The process's main also serves as the child that TarnLogFileTest.cpp starts.

#include <windows.h>

#include <shellapi.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "LogFileReader.h"
#include "interfaces/LoggerApi.h"

namespace {

bool AllDigits(const std::string& text, size_t from, size_t count) {
    for (size_t i = from; i < from + count; ++i) {
        if (i >= text.size() || text[i] < '0' || text[i] > '9') {
            return false;
        }
    }
    return true;
}

// "YYYY-MM-DDTHH:MM:SS.mmm"
bool IsIsoLocalTimestamp(const std::string& text) {
    return text.size() == 23 && AllDigits(text, 0, 4) && text[4] == '-' && AllDigits(text, 5, 2) &&
           text[7] == '-' && AllDigits(text, 8, 2) && text[10] == 'T' && AllDigits(text, 11, 2) &&
           text[13] == ':' && AllDigits(text, 14, 2) && text[16] == ':' && AllDigits(text, 17, 2) &&
           text[19] == '.' && AllDigits(text, 20, 3);
}

void WriteOneOfEachLevel(ILog* log) {
    log->Trace(L"Levels::Write", L"trace line");
    log->Debug(L"Levels::Write", L"debug line");
    log->Info(L"Levels::Write", L"info line");
    log->Warning(L"Levels::Write", L"warning line");
    log->Error(L"Levels::Write", L"error line");
}

std::vector<std::string> LevelsOf(const std::vector<LogRecord>& records) {
    std::vector<std::string> levels;
    for (const LogRecord& record : records) {
        levels.push_back(record.level);
    }
    return levels;
}

}  // namespace

using TarnLogLineTest = TarnLogFileTest;

TEST_F(TarnLogLineTest, OneLineWithTimestampLevelLoggerMethodAndText) {
    {
        TarnLogger log = OpenLogger(L"NetWorkerApiExecutor");
        log->Info(L"NetWorkerApiExecutor::Catalog", L"Found %u items.", 3u);
    }
    const std::vector<LogRecord> records = Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(IsIsoLocalTimestamp(records[0].timestamp)) << records[0].timestamp;
    EXPECT_EQ(records[0].level, "INFO");
    EXPECT_EQ(records[0].logger, "NetWorkerApiExecutor");
    EXPECT_EQ(records[0].method, "NetWorkerApiExecutor::Catalog");
    EXPECT_EQ(records[0].text, "Found 3 items.");
}

TEST_F(TarnLogLineTest, TimestampIsTodaysLocalDate) {
    SYSTEMTIME before;
    GetLocalTime(&before);
    {
        TarnLogger log = OpenLogger(L"Clock");
        log->Error(L"Clock::Now", L"now");
    }
    SYSTEMTIME after;
    GetLocalTime(&after);
    const std::vector<LogRecord> records = Records();
    ASSERT_EQ(records.size(), 1u);
    char dateBefore[16];
    char dateAfter[16];
    snprintf(dateBefore, sizeof dateBefore, "%04u-%02u-%02u", before.wYear, before.wMonth,
             before.wDay);
    snprintf(dateAfter, sizeof dateAfter, "%04u-%02u-%02u", after.wYear, after.wMonth, after.wDay);
    const std::string date = records[0].timestamp.substr(0, 10);
    EXPECT_TRUE(date == dateBefore || date == dateAfter) << records[0].timestamp;
}

TEST_F(TarnLogLineTest, LineBreaksInsideTheTextAreWrittenAsBackslashSequences) {
    {
        TarnLogger log = OpenLogger(L"Breaks");
        log->Info(L"Breaks::Info", L"BSA Error %d\n", 4);
        log->Error(L"Breaks::Error", L"first\r\nsecond");
    }
    const std::vector<LogRecord> records = Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].text, "BSA Error 4\\n");
    EXPECT_EQ(records[1].text, "first\\r\\nsecond");
}

TEST_F(TarnLogLineTest, TextIsUtf8) {
    {
        TarnLogger log = OpenLogger(L"Unicode");
        log->Info(L"Unicode::Info", L"Stra\u00dfe %s", L"\u20ac\u00e9");
    }
    const std::vector<LogRecord> records = Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text,
              "Stra\xc3\x9f"
              "e \xe2\x82\xac\xc3\xa9");
}

TEST_F(TarnLogLineTest, TraceTextIsWrittenAsItIsNotFormatted) {
    SetLevelVariable(L"trace");
    {
        TarnLogger log = OpenLogger(L"Tracer");
        log->Trace(L"Tracer::Run", L"Method Start");
        log->Trace(L"Tracer::Run", L"100% %d %s");
        log->Trace(L"Tracer::Run", L"Method End");
    }
    const std::vector<LogRecord> records = Records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].level, "TRACE");
    EXPECT_EQ(records[0].text, "Method Start");
    EXPECT_EQ(records[1].text, "100% %d %s");
    EXPECT_EQ(records[2].text, "Method End");
}

TEST_F(TarnLogLineTest, LinesAreAppendedToAnExistingFile) {
    {
        TarnLogger log = OpenLogger(L"First");
        log->Info(L"First::Run", L"one");
    }
    {
        TarnLogger log = OpenLogger(L"Second");
        log->Info(L"Second::Run", L"two");
    }
    const std::vector<LogRecord> records = Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].text, "one");
    EXPECT_EQ(records[1].text, "two");
}

TEST_F(TarnLogLineTest, WithoutLogFileNothingIsWritten) {
    SetFileVariable(nullptr);
    TarnLogger log = OpenLogger(L"Silent");
    // The file is chosen when the logger is made: naming one afterwards changes nothing.
    SetFileVariable(m_path.c_str());
    log->Error(L"Silent::Run", L"not written");
    log->Info(L"Silent::Run", L"not written");
    log.Free();
    EXPECT_FALSE(FileExists(m_path));
}

TEST_F(TarnLogLineTest, EmptyLogFileVariableWritesNothing) {
    SetFileVariable(L"");
    TarnLogger log = OpenLogger(L"Silent");
    log->Error(L"Silent::Run", L"not written");
    SetFileVariable(m_path.c_str());
    log.Free();
    EXPECT_FALSE(FileExists(m_path));
}

TEST_F(TarnLogLineTest, LoggingKeepsTheCallersLastError) {
    {
        TarnLogger first = OpenLogger(L"First");
        first->Info(L"First::Run", L"the file exists from now on");
    }
    SetLevelVariable(L"trace");
    // Opening an existing file sets ERROR_ALREADY_EXISTS inside TarnLog; the caller must not
    // see it.
    SetLastError(1234);
    TarnLogger log = OpenLogger(L"Careful");
    EXPECT_EQ(GetLastError(), 1234u);
    log->Error(L"Careful::Run", L"failure %d", 5);
    EXPECT_EQ(GetLastError(), 1234u);
    log->Trace(L"Careful::Run", L"Method End");
    EXPECT_EQ(GetLastError(), 1234u);
    log.Free();
    EXPECT_EQ(GetLastError(), 1234u);
    EXPECT_EQ(Records().size(), 3u);
}

using TarnLogLevelTest = TarnLogFileTest;

TEST_F(TarnLogLevelTest, DefaultLevelIsInfo) {
    {
        TarnLogger log = OpenLogger(L"Default");
        EXPECT_EQ(log->GetLevel(), LogLevelInfo);
        EXPECT_FALSE(log->IsTraceEnabled());
        EXPECT_FALSE(log->IsDebugEnabled());
        EXPECT_TRUE(log->IsInfoEnabled());
        EXPECT_TRUE(log->IsWarningEnabled());
        EXPECT_TRUE(log->IsErrorEnabled());
        WriteOneOfEachLevel(log.get());
    }
    EXPECT_EQ(LevelsOf(Records()), (std::vector<std::string>{"INFO", "WARNING", "ERROR"}));
}

TEST_F(TarnLogLevelTest, EachLevelLetsThroughItselfAndAbove) {
    const struct {
        const wchar_t* variable;
        int level;
        std::vector<std::string> written;
    } cases[] = {
        {L"trace", LogLevelTrace, {"TRACE", "DEBUG", "INFO", "WARNING", "ERROR"}},
        {L"debug", LogLevelDebug, {"DEBUG", "INFO", "WARNING", "ERROR"}},
        {L"info", LogLevelInfo, {"INFO", "WARNING", "ERROR"}},
        {L"warning", LogLevelWarning, {"WARNING", "ERROR"}},
        {L"ERROR", LogLevelError, {"ERROR"}},
        {L"off", LogLevelOff, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(Utf8(c.variable));
        DeleteFileW(m_path.c_str());
        SetLevelVariable(c.variable);
        {
            TarnLogger log = OpenLogger(L"Levels");
            EXPECT_EQ(log->GetLevel(), c.level);
            EXPECT_EQ(log->IsTraceEnabled(), c.level <= LogLevelTrace);
            EXPECT_EQ(log->IsDebugEnabled(), c.level <= LogLevelDebug);
            EXPECT_EQ(log->IsInfoEnabled(), c.level <= LogLevelInfo);
            EXPECT_EQ(log->IsWarningEnabled(), c.level <= LogLevelWarning);
            EXPECT_EQ(log->IsErrorEnabled(), c.level <= LogLevelError);
            WriteOneOfEachLevel(log.get());
        }
        EXPECT_EQ(LevelsOf(Records()), c.written);
    }
}

TEST_F(TarnLogLevelTest, UnknownLevelFallsBackToInfoAndSaysSo) {
    SetLevelVariable(L"verbose");
    {
        TarnLogger log = OpenLogger(L"Confused");
        EXPECT_EQ(log->GetLevel(), LogLevelInfo);
        log->Debug(L"Confused::Run", L"dropped");
        log->Info(L"Confused::Run", L"kept");
    }
    const std::vector<LogRecord> records = Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].level, "WARNING");
    EXPECT_EQ(records[0].logger, "Confused");
    EXPECT_EQ(records[0].method, "GetLogger");
    EXPECT_EQ(records[0].text, "Unknown TARNLOG_LEVEL \"verbose\"; using info.");
    EXPECT_EQ(records[1].text, "kept");
}

TEST_F(TarnLogLevelTest, EmptyLevelMeansTheDefaultWithoutWarning) {
    SetLevelVariable(L"");
    {
        TarnLogger log = OpenLogger(L"Blank");
        EXPECT_EQ(log->GetLevel(), LogLevelInfo);
        WriteOneOfEachLevel(log.get());
    }
    EXPECT_EQ(LevelsOf(Records()), (std::vector<std::string>{"INFO", "WARNING", "ERROR"}));
}

TEST_F(TarnLogLineTest, TextsLongerThanTheFirstFormattingBufferAreWrittenWhole) {
    const std::wstring longText(5000, L'w');
    {
        TarnLogger log = OpenLogger(L"Long");
        log->Info(L"Long::Run", L"<%s>", longText.c_str());
    }
    const std::vector<LogRecord> records = Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "<" + Utf8(longText) + ">");
}

TEST_F(TarnLogLevelTest, SetLevelChangesOnlyThatLogger) {
    {
        TarnLogger chatty = OpenLogger(L"Chatty");
        TarnLogger quiet = OpenLogger(L"Quiet");
        chatty->SetLevel(LogLevelTrace);
        quiet->SetLevel(LogLevelError);
        EXPECT_EQ(chatty->GetLevel(), LogLevelTrace);
        EXPECT_EQ(quiet->GetLevel(), LogLevelError);
        EXPECT_TRUE(chatty->IsTraceEnabled());
        EXPECT_FALSE(quiet->IsWarningEnabled());
        chatty->Trace(L"Chatty::Run", L"Method Start");
        quiet->Trace(L"Quiet::Run", L"Method Start");
        quiet->Info(L"Quiet::Run", L"dropped");
        quiet->Error(L"Quiet::Run", L"kept");
    }
    const std::vector<LogRecord> records = Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].logger, "Chatty");
    EXPECT_EQ(records[0].level, "TRACE");
    EXPECT_EQ(records[1].logger, "Quiet");
    EXPECT_EQ(records[1].level, "ERROR");
}

TEST_F(TarnLogLevelTest, SetLevelIgnoresValuesOutsideTheLevels) {
    TarnLogger log = OpenLogger(L"Stubborn");
    log->SetLevel(LogLevelWarning);
    log->SetLevel(-1);
    log->SetLevel(LogLevelOff + 1);
    EXPECT_EQ(log->GetLevel(), LogLevelWarning);
}

TEST_F(TarnLogLevelTest, OffWritesNothingAtAll) {
    SetLevelVariable(L"off");
    {
        TarnLogger log = OpenLogger(L"Off");
        WriteOneOfEachLevel(log.get());
    }
    EXPECT_TRUE(ReadWholeFile(m_path).empty());
}

// Each directive through a real logger and the file it writes.
class TarnLogFormatTest : public TarnLogFileTest {
protected:
    template <typename... Args>
    std::string Written(const wchar_t* format, Args... args) {
        DeleteFileW(m_path.c_str());
        {
            TarnLogger log = OpenLogger(L"Formats");
            log->Info(L"Formats::Info", format, args...);
        }
        const std::vector<LogRecord> records = Records();
        EXPECT_EQ(records.size(), 1u);
        return records.empty() ? std::string("<nothing written>") : records[0].text;
    }
};

TEST_F(TarnLogFormatTest, UpperCaseSIsNarrowLowerCaseSIsWide) {
    EXPECT_EQ(Written(L"[%s]", L"wide"), "[wide]");
    EXPECT_EQ(Written(L"[%S]", "narrow"), "[narrow]");
    EXPECT_EQ(Written(L"Cataloging file index %lu, path: %S", 7UL, "/EXCH/db1.edb"),
              "Cataloging file index 7, path: /EXCH/db1.edb");
}

TEST_F(TarnLogFormatTest, ExplicitWidthLetters) {
    EXPECT_EQ(Written(L"[%ls]", L"long"), "[long]");
    EXPECT_EQ(Written(L"[%hs]", "short"), "[short]");
}

TEST_F(TarnLogFormatTest, SignedIntegers) {
    EXPECT_EQ(Written(L"%d", -42), "-42");
    EXPECT_EQ(Written(L"%i", 2147483647), "2147483647");
    EXPECT_EQ(Written(L"%ld", -2147483647L - 1), "-2147483648");
}

TEST_F(TarnLogFormatTest, UnsignedIntegers) {
    EXPECT_EQ(Written(L"%u", 4294967295u), "4294967295");
    EXPECT_EQ(Written(L"%lu", 4294967295UL), "4294967295");
}

TEST_F(TarnLogFormatTest, HexadecimalWithZeroPaddingAndAlternateForm) {
    EXPECT_EQ(Written(L"HRESULT %08lx", 0x80004005UL), "HRESULT 80004005");
    EXPECT_EQ(Written(L"%08lx", 0x7AUL), "0000007a");
    EXPECT_EQ(Written(L"GetLastError() = %#08lx.", 5UL), "GetLastError() = 0x000005.");
    EXPECT_EQ(Written(L"%#08lx", 0x80070005UL), "0x80070005");
}

TEST_F(TarnLogFormatTest, SixtyFourBitIntegers) {
    EXPECT_EQ(Written(L"%I64u", 18446744073709551615ULL), "18446744073709551615");
    EXPECT_EQ(Written(L"%I64d", -9223372036854775807LL - 1), "-9223372036854775808");
    EXPECT_EQ(Written(L"size=%I64u bytes", 5242880ULL), "size=5242880 bytes");
}

TEST_F(TarnLogFormatTest, PointerIsSixteenUpperCaseHexDigits) {
    EXPECT_EQ(Written(L"%p", reinterpret_cast<void*>(static_cast<uintptr_t>(0xABC123))),
              "0000000000ABC123");
    EXPECT_EQ(Written(L"%p", static_cast<void*>(nullptr)), "0000000000000000");
}

TEST_F(TarnLogFormatTest, PercentPercentIsOnePercentSign) {
    EXPECT_EQ(Written(L"100%% done"), "100% done");
}

TEST_F(TarnLogFormatTest, AllTogetherInOneLine) {
    EXPECT_EQ(Written(L"%s|%S|%d|%u|%08lx|%I64u|%%", L"a", "b", -1, 2u, 0xbeefUL, 3ULL),
              "a|b|-1|2|0000beef|3|%");
}

using TarnLogFaultTest = TarnLogFileTest;

TEST_F(TarnLogFaultTest, NamesInFailListAreRefused) {
    SetFailNamesVariable(L"NetWorkerApiWrapper, NamedPipeConnection");
    for (const wchar_t* name : {L"NetWorkerApiWrapper", L"NamedPipeConnection"}) {
        ILog* log = reinterpret_cast<ILog*>(static_cast<uintptr_t>(1));
        EXPECT_NE(GetLogger(name, &log), 0) << Utf8(name);
        EXPECT_EQ(log, nullptr);
    }
    TarnLogger other = OpenLogger(L"NetWorkerApiExecutor");
    EXPECT_NE(other.get(), nullptr);
}

TEST_F(TarnLogFaultTest, FailListIsReadAtEveryGetLogger) {
    SetFailNamesVariable(L"CatalogHandler");
    ILog* log = nullptr;
    EXPECT_NE(GetLogger(L"CatalogHandler", &log), 0);
    SetFailNamesVariable(nullptr);
    TarnLogger accepted = OpenLogger(L"CatalogHandler");
    EXPECT_NE(accepted.get(), nullptr);
}

TEST_F(TarnLogFaultTest, LongFailListIsReadWhole) {
    std::wstring names;
    for (int i = 0; i < 100; ++i) {
        names += L"SomeOtherLogger" + std::to_wstring(i) + L",";
    }
    names += L"LastInTheList";
    ASSERT_GT(names.size(), 1000u);
    SetFailNamesVariable(names.c_str());
    ILog* log = nullptr;
    EXPECT_NE(GetLogger(L"LastInTheList", &log), 0);
    EXPECT_EQ(log, nullptr);
    TarnLogger other = OpenLogger(L"NotInTheList");
    EXPECT_NE(other.get(), nullptr);
}

TEST_F(TarnLogFaultTest, FailListMatchesWholeNamesOnly) {
    SetFailNamesVariable(L"Catalog");
    TarnLogger log = OpenLogger(L"CatalogHandler");
    EXPECT_NE(log.get(), nullptr);
}

TEST_F(TarnLogFaultTest, NullArgumentsAreRefused) {
    ILog* log = reinterpret_cast<ILog*>(static_cast<uintptr_t>(1));
    EXPECT_NE(GetLogger(nullptr, &log), 0);
    EXPECT_EQ(log, nullptr);
    EXPECT_NE(GetLogger(L"NoOut", nullptr), 0);
}

TEST_F(TarnLogFaultTest, UnopenableFileIsRefused) {
    const std::wstring path = m_path + L".missing-directory\\file.log";
    SetFileVariable(path.c_str());
    ILog* log = reinterpret_cast<ILog*>(static_cast<uintptr_t>(1));
    EXPECT_NE(GetLogger(L"Homeless", &log), 0);
    EXPECT_EQ(log, nullptr);
}

namespace {

// An ILog that TarnLog did not make; FreeLogger must leave it alone.
class ForeignLog final : public ILog {
public:
    const wchar_t* GetName() override { return L"Foreign"; }
    void SetLevel(int) override {}
    int GetLevel() override { return LogLevelOff; }
    bool IsTraceEnabled() override { return false; }
    void Trace(const wchar_t*, const wchar_t*) override {}
    bool IsInfoEnabled() override { return false; }
    void Info(const wchar_t*, const wchar_t*, ...) override {}
    bool IsWarningEnabled() override { return false; }
    void Warning(const wchar_t*, const wchar_t*, ...) override {}
    bool IsDebugEnabled() override { return false; }
    void Debug(const wchar_t*, const wchar_t*, ...) override {}
    bool IsErrorEnabled() override { return false; }
    void Error(const wchar_t*, const wchar_t*, ...) override {}
};

}  // namespace

TEST_F(TarnLogFaultTest, FreeLoggerIgnoresPointersItDidNotHandOut) {
    ForeignLog foreign;  // on the stack: deleting it would crash the test
    FreeLogger(&foreign);
    FreeLogger(nullptr);
    EXPECT_STREQ(foreign.GetName(), L"Foreign");
}

TEST_F(TarnLogFaultTest, SecondFreeOfTheSameLoggerIsIgnored) {
    ILog* log = nullptr;
    ASSERT_EQ(GetLogger(L"Twice", &log), 0);
    log->Info(L"Twice::Run", L"before");
    FreeLogger(log);
    FreeLogger(log);  // a heap double free without the registry of live loggers
    TarnLogger after = OpenLogger(L"After");
    after->Info(L"After::Run", L"still working");
    after.Free();
    const std::vector<LogRecord> records = Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[1].text, "still working");
}

int RunAppendChild(int argc, wchar_t** argv);

int main() {
    int argc = 0;
    wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    if (argc >= 2 && std::wstring(argv[1]) == L"--append-child") {
        return RunAppendChild(argc, argv);
    }
    int narrowArgc = __argc;
    ::testing::InitGoogleTest(&narrowArgc, __argv);
    return RUN_ALL_TESTS();
}
