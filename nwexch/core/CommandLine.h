#pragma once
// nwexch's command line: commands, options, --help texts and exit codes.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "DateWindow.h"

enum ExitCode : int {
    ExitOk = 0,           // everything asked for was done
    ExitUsage = 1,        // bad arguments, or nothing to do
    ExitNetWorker = 2,    // NetWorker or session failure
    ExitFilesFailed = 3,  // some files were not restored
    ExitCancelled = 4,    // cancelled (Ctrl+C, or disk full answered with cancel)
};

enum class Command { List, Size, Restore };
enum class ExecutorMode { InProcess, Helper };
// Ask: prompt on a terminal, cancel otherwise.
enum class DiskFullPolicy { Ask, Retry, Cancel };

struct Options {
    Command command = Command::List;
    std::wstring server;
    std::wstring client;  // empty: this computer's name
    ExecutorMode mode = ExecutorMode::InProcess;
    bool hardenedPipe = false;  // --hardened-pipe: helper mode only
    std::wstring logFile;
    std::wstring logLevel;
    // list
    std::optional<DateArgument> after;
    std::optional<DateArgument> before;
    bool json = false;
    // size and restore
    std::vector<uint32_t> indexes;  // in the order given, without repeats
    bool exact = false;
    // restore
    std::vector<std::wstring> globs;
    std::wstring to;
    bool flat = false;
    bool overwrite = false;
    DiskFullPolicy onDiskFull = DiskFullPolicy::Ask;
    // --jobs: helper sessions that restore side by side (1: one session, as without it).
    uint32_t jobs = 1;
};

constexpr uint32_t kMaxJobs = 16;

struct ParseOutcome {
    enum class Kind { Run, Help, Error };
    Kind kind = Kind::Error;
    Options options;
    std::wstring text;  // the help text, or the error followed by a usage hint

    int ExitCodeIfNotRun() const { return kind == Kind::Help ? ExitOk : ExitUsage; }
};

// args excludes the program name.
ParseOutcome ParseCommandLine(const std::vector<std::wstring>& args);

std::wstring GeneralHelp();
std::wstring CommandHelp(Command command);
