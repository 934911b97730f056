#include <gtest/gtest.h>

#include "CommandLine.h"

namespace {

ParseOutcome Parse(std::vector<std::wstring> args) {
    return ParseCommandLine(args);
}

void ExpectUsageError(std::vector<std::wstring> args, const std::wstring& fragment) {
    const ParseOutcome outcome = Parse(args);
    EXPECT_EQ(outcome.kind, ParseOutcome::Kind::Error);
    EXPECT_EQ(outcome.ExitCodeIfNotRun(), ExitUsage);
    EXPECT_NE(outcome.text.find(fragment), std::wstring::npos)
        << std::string(outcome.text.begin(), outcome.text.end());
}

}  // namespace

TEST(CommandLine, ListWithEveryOption) {
    const ParseOutcome o = Parse({L"list", L"--server", L"backup1", L"--client=exch1", L"--after",
                                  L"2026-11-01", L"--before=2026-11-20T10:00", L"--json", L"--mode",
                                  L"helper", L"--log", L"C:\\l.txt", L"--log-level", L"DEBUG"});
    ASSERT_EQ(o.kind, ParseOutcome::Kind::Run);
    EXPECT_EQ(o.options.command, Command::List);
    EXPECT_EQ(o.options.server, L"backup1");
    EXPECT_EQ(o.options.client, L"exch1");
    EXPECT_TRUE(o.options.json);
    EXPECT_EQ(o.options.mode, ExecutorMode::Helper);
    ASSERT_TRUE(o.options.after.has_value());
    EXPECT_TRUE(o.options.after->dateOnly);
    ASSERT_TRUE(o.options.before.has_value());
    EXPECT_FALSE(o.options.before->dateOnly);
    EXPECT_EQ(o.options.logFile, L"C:\\l.txt");
    EXPECT_EQ(o.options.logLevel, L"debug");
}

TEST(CommandLine, DefaultsAreInProcessAndAsk) {
    const ParseOutcome o = Parse({L"restore", L"--server", L"s", L"1", L"2", L"1", L"--to", L"X"});
    ASSERT_EQ(o.kind, ParseOutcome::Kind::Run);
    EXPECT_EQ(o.options.mode, ExecutorMode::InProcess);
    EXPECT_EQ(o.options.onDiskFull, DiskFullPolicy::Ask);
    EXPECT_EQ(o.options.indexes, (std::vector<uint32_t>{1, 2}));
    EXPECT_TRUE(o.options.client.empty());
}

TEST(CommandLine, RestoreByGlobs) {
    const ParseOutcome o =
        Parse({L"restore", L"--server", L"s", L"--match", L"/sg/*", L"*.stm", L"--match=*.chk",
               L"--to", L"D:\\r", L"--flat", L"--on-disk-full", L"retry", L"--overwrite"});
    ASSERT_EQ(o.kind, ParseOutcome::Kind::Run);
    EXPECT_EQ(o.options.globs, (std::vector<std::wstring>{L"*.chk", L"/sg/*", L"*.stm"}));
    EXPECT_TRUE(o.options.indexes.empty());
    EXPECT_TRUE(o.options.flat);
    EXPECT_TRUE(o.options.overwrite);
    EXPECT_EQ(o.options.onDiskFull, DiskFullPolicy::Retry);
}

TEST(CommandLine, SizeExact) {
    const ParseOutcome o = Parse({L"size", L"--server", L"s", L"0", L"4294967295", L"--exact"});
    ASSERT_EQ(o.kind, ParseOutcome::Kind::Run);
    EXPECT_TRUE(o.options.exact);
    EXPECT_EQ(o.options.indexes, (std::vector<uint32_t>{0, 4294967295u}));
}

TEST(CommandLine, HelpForEachCommandMentionsExitCodes) {
    for (const wchar_t* command : {L"list", L"size", L"restore"}) {
        const ParseOutcome o = Parse({command, L"--help"});
        EXPECT_EQ(o.kind, ParseOutcome::Kind::Help);
        EXPECT_EQ(o.ExitCodeIfNotRun(), ExitOk);
        EXPECT_NE(o.text.find(std::wstring(L"Usage: nwexch ") + command), std::wstring::npos);
        EXPECT_NE(o.text.find(L"4  cancelled"), std::wstring::npos);
    }
    EXPECT_EQ(Parse({L"--help"}).text, GeneralHelp());
    EXPECT_EQ(Parse({L"help", L"restore"}).text, CommandHelp(Command::Restore));
}

TEST(CommandLine, UsageErrors) {
    ExpectUsageError({}, L"no command given");
    ExpectUsageError({L"explode"}, L"unknown command 'explode'");
    ExpectUsageError({L"list"}, L"--server is required");
    ExpectUsageError({L"list", L"--server"}, L"option --server needs a value");
    ExpectUsageError({L"list", L"--server="}, L"needs a non-empty value");
    ExpectUsageError({L"list", L"--server", L"s", L"--after", L"yesterday"}, L"bad --after");
    ExpectUsageError(
        {L"list", L"--server", L"s", L"--after", L"2026-11-21", L"--before", L"2026-11-20"},
        L"--after lies later than --before");
    ExpectUsageError({L"list", L"--server", L"s", L"3"}, L"list takes no arguments");
    ExpectUsageError({L"list", L"--server", L"s", L"--frobnicate"},
                     L"unknown option '--frobnicate'");
    ExpectUsageError({L"list", L"--server", L"s", L"--json=yes"}, L"takes no value");
    ExpectUsageError({L"list", L"--server", L"s", L"--mode", L"remote"}, L"unknown mode 'remote'");
    ExpectUsageError({L"list", L"--server", L"s", L"--log-level", L"loud"}, L"unknown log level");
    ExpectUsageError({L"size", L"--server", L"s"}, L"size needs at least one INDEX");
    ExpectUsageError({L"size", L"--server", L"s", L"4294967296"}, L"is not a catalogue index");
    ExpectUsageError({L"size", L"--server", L"s", L"-1"}, L"'-1' is not a catalogue index");
    ExpectUsageError({L"restore", L"--server", L"s", L"1"}, L"restore needs --to DIR");
    ExpectUsageError({L"restore", L"--server", L"s", L"--to", L"X"}, L"restore needs INDEX...");
    ExpectUsageError({L"restore", L"--server", L"s", L"--match", L"--to", L"X"},
                     L"--match needs at least one pattern");
    ExpectUsageError(
        {L"restore", L"--server", L"s", L"1", L"--to", L"X", L"--on-disk-full", L"ask"},
        L"unknown --on-disk-full answer");
    ExpectUsageError({L"size", L"--server", L"s", L"1", L"--to", L"X"}, L"--to belongs to restore");
    ExpectUsageError({L"list", L"--server", L"s", L"--exact"}, L"unknown option '--exact'");
}

TEST(CommandLine, HardenedPipeWithHelperMode) {
    const ParseOutcome o =
        Parse({L"list", L"--server", L"s", L"--hardened-pipe", L"--mode", L"helper"});
    ASSERT_EQ(o.kind, ParseOutcome::Kind::Run);
    EXPECT_TRUE(o.options.hardenedPipe);
    EXPECT_FALSE(Parse({L"list", L"--server", L"s", L"--mode", L"helper"}).options.hardenedPipe);
}

TEST(CommandLine, HardenedPipeNeedsHelperModeAndTakesNoValue) {
    ExpectUsageError({L"list", L"--server", L"s", L"--hardened-pipe"}, L"needs --mode helper");
    ExpectUsageError({L"list", L"--server", L"s", L"--mode", L"helper", L"--hardened-pipe=1"},
                     L"takes no value");
}
