#include "CommandLine.h"

#include <algorithm>
#include <cwctype>

#include "common/AsciiText.h"

namespace {

const wchar_t kCommonOptions[] =
    L"Common options:\n"
    L"  --server NAME          NetWorker server that holds the backups (required)\n"
    L"  --client NAME          NetWorker client whose backups are used (default: this computer)\n"
    L"  --mode in-process|helper\n"
    L"                         run NetWorker's library in this process (default) or in\n"
    L"                         NetWorker64BitClient.exe beside nwexch.exe\n"
    L"  --hardened-pipe        with --mode helper: the pipe to the helper is this user's alone\n"
    L"                         and serves only the helper that nwexch started\n"
    L"                         (NWX_PIPE_HARDENING=1; see docs/security.md)\n"
    L"  --log FILE             write the library's log to FILE\n"
    L"  --log-level LEVEL      trace, debug, info, warning, error or off\n"
    L"  --help                 show this help\n";

const wchar_t kExitCodes[] =
    L"Exit codes:\n"
    L"  0  all done\n"
    L"  1  usage: bad arguments, unknown index, a pattern that matches nothing\n"
    L"  2  NetWorker or session failure (the status is printed in hexadecimal with its meaning)\n"
    L"  3  some files failed\n"
    L"  4  cancelled (Ctrl+C, or a full disk answered with cancel)\n";

std::wstring Lower(std::wstring text) {
    for (wchar_t& c : text) {
        if (c >= L'A' && c <= L'Z') {
            c = static_cast<wchar_t>(c - L'A' + L'a');
        }
    }
    return text;
}

bool ParseIndex(const std::wstring& text, uint32_t* index) {
    return text.size() <= 10 && ParseDecimalUint32(text.c_str(), index);
}

const wchar_t* CommandName(Command command) {
    switch (command) {
        case Command::List:
            return L"list";
        case Command::Size:
            return L"size";
        case Command::Restore:
            return L"restore";
    }
    return L"";
}

ParseOutcome Fail(const std::wstring& message, const wchar_t* command) {
    ParseOutcome outcome;
    outcome.kind = ParseOutcome::Kind::Error;
    outcome.text = L"nwexch: " + message + L"\n" + L"Try 'nwexch " +
                   (command ? std::wstring(command) + L" " : std::wstring()) + L"--help'.\n";
    return outcome;
}

}  // namespace

std::wstring GeneralHelp() {
    return std::wstring(
               L"Usage: nwexch COMMAND [options]\n"
               L"Finds and restores Exchange database files that NetWorker holds in its "
               L"backups.\n\n"
               L"Commands:\n"
               L"  list      show the catalogue of Exchange files of a client's latest backups\n"
               L"  size      show the size of catalogued files\n"
               L"  restore   restore catalogued files to a directory\n\n"
               L"'nwexch COMMAND --help' describes each command; 'nwexch --version' prints "
               L"the version.\n\n") +
           kCommonOptions + L"\n" + kExitCodes;
}

std::wstring CommandHelp(Command command) {
    std::wstring text;
    switch (command) {
        case Command::List:
            text =
                L"Usage: nwexch list --server NAME [--client NAME] [--after DATE] [--before DATE] "
                L"[--json]\n"
                L"Shows the catalogue: index, backup time, announced size, restore order and "
                L"path.\n"
                L"Databases (.edb, .stm) are announced with size 0 and logs with 5242880 bytes;\n"
                L"'nwexch size --exact' tells their real size.\n\n"
                L"  --after DATE           only files backed up at or after DATE\n"
                L"  --before DATE          only files backed up at or before DATE\n"
                L"  --json                 one JSON object per line instead of a table\n\n"
                L"DATE is YYYY-MM-DD (the whole day counts) or an ISO-8601 time such as\n"
                L"2026-11-20T22:00:00, 2026-11-20T22:00Z or 2026-11-20T23:00+01:00. Times are\n"
                L"compared with backup times as the server reports them; an offset is turned\n"
                L"into UTC. Indexes do not depend on the filter: an index shown here can be\n"
                L"given to size and restore.\n";
            break;
        case Command::Size:
            text =
                L"Usage: nwexch size --server NAME [--client NAME] INDEX... [--exact]\n"
                L"Shows the size of the catalogued files INDEX... (see 'nwexch list').\n\n"
                L"  --exact                ask NetWorker's own tool (nsrinfo.exe) for the true "
                L"size;\n"
                L"                         without it the catalogue's size is shown, which is "
                L"only\n"
                L"                         right below 4 GiB\n";
            break;
        case Command::Restore:
            text =
                L"Usage: nwexch restore --server NAME [--client NAME] (INDEX... | --match "
                L"GLOB...)\n"
                L"                      --to DIR [--flat] [--overwrite] [--on-disk-full "
                L"retry|cancel]\n"
                L"                      [--mode helper --jobs N]\n"
                L"Restores the chosen files under DIR, each in the directories of its backup path\n"
                L"(\"/First Storage Group/priv1.edb\" becomes DIR\\First Storage "
                L"Group\\priv1.edb),\n"
                L"in one extraction. A file is written as NAME.nwexch-partial and gets its name\n"
                L"only when it is complete; a cancelled or failed file is removed.\n\n"
                L"  INDEX...               catalogue indexes (see 'nwexch list')\n"
                L"  --match GLOB...        files whose backup path matches a pattern: * any "
                L"text\n"
                L"                         (/ included), ? one character, [a-z] and [!a-z] "
                L"classes;\n"
                L"                         case does not matter, / and \\ are the same\n"
                L"  --to DIR               destination directory (required)\n"
                L"  --flat                 put every file straight into DIR\n"
                L"  --overwrite            replace files that already exist (refused otherwise)\n"
                L"  --on-disk-full retry|cancel\n"
                L"                         what to answer when the disk is full and nobody is at "
                L"a\n"
                L"                         terminal to ask (default cancel); retry waits 5 "
                L"seconds\n"
                L"                         before each new try, 60 tries at most per file\n"
                L"  --jobs N               with --mode helper: N sessions (1 to 16), each with "
                L"its own\n"
                L"                         helper, restore side by side, largest files first; "
                L"helps\n"
                L"                         when the server can feed several streams (a disk, "
                L"not one\n"
                L"                         tape drive)\n\n"
                L"Ctrl+C cancels cleanly: the file being written is removed and the summary\n"
                L"says what was restored. On a terminal a progress bar is drawn; otherwise\n"
                L"progress lines are written to the error output.\n";
            break;
    }
    return text + L"\n" + kCommonOptions + L"\n" + kExitCodes;
}

ParseOutcome ParseCommandLine(const std::vector<std::wstring>& args) {
    ParseOutcome outcome;
    if (args.empty()) {
        return Fail(L"no command given", nullptr);
    }
    const std::wstring& first = args[0];
    if (first == L"--help" || first == L"-h" || first == L"/?" || first == L"help") {
        if (first == L"help" && args.size() > 1) {
            std::vector<std::wstring> rest = {args[1], L"--help"};
            return ParseCommandLine(rest);
        }
        outcome.kind = ParseOutcome::Kind::Help;
        outcome.text = GeneralHelp();
        return outcome;
    }
    Options& options = outcome.options;
    if (first == L"list") {
        options.command = Command::List;
    } else if (first == L"size") {
        options.command = Command::Size;
    } else if (first == L"restore") {
        options.command = Command::Restore;
    } else {
        return Fail(L"unknown command '" + first + L"'", nullptr);
    }
    const wchar_t* command = CommandName(options.command);

    std::vector<std::wstring> positionals;
    bool matchSeen = false;
    for (size_t i = 1; i < args.size(); ++i) {
        std::wstring arg = args[i];
        std::optional<std::wstring> inlineValue;
        if (arg.size() > 2 && arg.compare(0, 2, L"--") == 0) {
            const size_t equals = arg.find(L'=');
            if (equals != std::wstring::npos) {
                inlineValue = arg.substr(equals + 1);
                arg = arg.substr(0, equals);
            }
        }
        auto value = [&](std::wstring* out) -> bool {
            if (inlineValue) {
                *out = *inlineValue;
                return true;
            }
            if (i + 1 >= args.size()) {
                return false;
            }
            *out = args[++i];
            return true;
        };
        auto flag = [&](bool* out) -> bool {
            if (inlineValue) {
                return false;
            }
            *out = true;
            return true;
        };
        const bool forList = options.command == Command::List;
        const bool forSize = options.command == Command::Size;
        const bool forRestore = options.command == Command::Restore;
        std::wstring text;
        if (arg == L"--help" || arg == L"-h" || arg == L"/?") {
            ParseOutcome help;
            help.kind = ParseOutcome::Kind::Help;
            help.text = CommandHelp(options.command);
            return help;
        } else if (arg == L"--server" || arg == L"--client" || arg == L"--log" ||
                   arg == L"--log-level" || arg == L"--mode" || arg == L"--to" ||
                   arg == L"--on-disk-full" || arg == L"--jobs" ||
                   ((arg == L"--after" || arg == L"--before") && forList)) {
            if (!value(&text)) {
                return Fail(L"option " + arg + L" needs a value", command);
            }
            if (text.empty()) {
                return Fail(L"option " + arg + L" needs a non-empty value", command);
            }
            if (arg == L"--server") {
                options.server = text;
            } else if (arg == L"--client") {
                options.client = text;
            } else if (arg == L"--log") {
                options.logFile = text;
            } else if (arg == L"--log-level") {
                const std::wstring level = Lower(text);
                static const wchar_t* const kLevels[] = {L"trace",   L"debug", L"info",
                                                         L"warning", L"error", L"off"};
                if (std::none_of(std::begin(kLevels), std::end(kLevels),
                                 [&](const wchar_t* l) { return level == l; })) {
                    return Fail(L"unknown log level '" + text +
                                    L"' (trace, debug, info, warning, error or off)",
                                command);
                }
                options.logLevel = level;
            } else if (arg == L"--mode") {
                const std::wstring mode = Lower(text);
                if (mode == L"in-process") {
                    options.mode = ExecutorMode::InProcess;
                } else if (mode == L"helper") {
                    options.mode = ExecutorMode::Helper;
                } else {
                    return Fail(L"unknown mode '" + text + L"' (in-process or helper)", command);
                }
            } else if (arg == L"--to") {
                if (!forRestore) {
                    return Fail(L"option --to belongs to restore", command);
                }
                options.to = text;
            } else if (arg == L"--jobs") {
                if (!forRestore) {
                    return Fail(L"option --jobs belongs to restore", command);
                }
                uint32_t jobs = 0;
                if (!ParseIndex(text, &jobs) || jobs < 1 || jobs > kMaxJobs) {
                    return Fail(L"--jobs takes a number from 1 to " + std::to_wstring(kMaxJobs) +
                                    L", got '" + text + L"'",
                                command);
                }
                options.jobs = jobs;
            } else if (arg == L"--on-disk-full") {
                if (!forRestore) {
                    return Fail(L"option --on-disk-full belongs to restore", command);
                }
                const std::wstring policy = Lower(text);
                if (policy == L"retry") {
                    options.onDiskFull = DiskFullPolicy::Retry;
                } else if (policy == L"cancel") {
                    options.onDiskFull = DiskFullPolicy::Cancel;
                } else {
                    return Fail(L"unknown --on-disk-full answer '" + text + L"' (retry or cancel)",
                                command);
                }
            } else {
                std::wstring error;
                auto date = ParseDateArgument(text, &error);
                if (!date) {
                    return Fail(L"bad " + arg + L": " + error, command);
                }
                (arg == L"--after" ? options.after : options.before) = date;
            }
        } else if (arg == L"--hardened-pipe") {
            if (!flag(&options.hardenedPipe)) {
                return Fail(L"option --hardened-pipe takes no value", command);
            }
        } else if (arg == L"--json" && forList) {
            if (!flag(&options.json)) {
                return Fail(L"option --json takes no value", command);
            }
        } else if (arg == L"--exact" && forSize) {
            if (!flag(&options.exact)) {
                return Fail(L"option --exact takes no value", command);
            }
        } else if ((arg == L"--flat" || arg == L"--overwrite") && forRestore) {
            if (!flag(arg == L"--flat" ? &options.flat : &options.overwrite)) {
                return Fail(L"option " + arg + L" takes no value", command);
            }
        } else if (arg == L"--match" && forRestore) {
            matchSeen = true;
            if (inlineValue) {
                if (inlineValue->empty()) {
                    return Fail(L"option --match needs a pattern", command);
                }
                options.globs.push_back(*inlineValue);
            }
        } else if (arg.size() > 1 && arg[0] == L'-' && !(arg.size() > 1 && iswdigit(arg[1]))) {
            return Fail(L"unknown option '" + args[i] + L"' for " + command, command);
        } else {
            positionals.push_back(arg);
        }
    }

    if (options.server.empty()) {
        return Fail(L"--server is required", command);
    }
    if (options.hardenedPipe && options.mode != ExecutorMode::Helper) {
        return Fail(L"--hardened-pipe needs --mode helper: only the helper is reached by a pipe",
                    command);
    }
    if (options.jobs > 1 && options.mode != ExecutorMode::Helper) {
        return Fail(L"--jobs " + std::to_wstring(options.jobs) +
                        L" needs --mode helper: in process the sessions' threads would share "
                        L"NetWorker's libraries, which are not made for that; each helper "
                        L"session has them in a process of its own",
                    command);
    }
    switch (options.command) {
        case Command::List:
            if (!positionals.empty()) {
                return Fail(L"list takes no arguments, got '" + positionals[0] + L"'", command);
            }
            if (!DateWindow(options.after, options.before).IsConsistent()) {
                return Fail(L"--after lies later than --before", command);
            }
            break;
        case Command::Size:
        case Command::Restore:
            if (matchSeen) {
                for (const std::wstring& p : positionals) {
                    if (p.empty()) {
                        return Fail(L"empty pattern", command);
                    }
                    options.globs.push_back(p);
                }
                if (options.globs.empty()) {
                    return Fail(L"--match needs at least one pattern", command);
                }
            } else {
                for (const std::wstring& p : positionals) {
                    uint32_t index = 0;
                    if (!ParseIndex(p, &index)) {
                        return Fail(L"'" + p + L"' is not a catalogue index", command);
                    }
                    if (std::find(options.indexes.begin(), options.indexes.end(), index) ==
                        options.indexes.end()) {
                        options.indexes.push_back(index);
                    }
                }
                if (options.indexes.empty()) {
                    return Fail(options.command == Command::Size
                                    ? L"size needs at least one INDEX"
                                    : L"restore needs INDEX... or --match GLOB...",
                                command);
                }
            }
            if (options.command == Command::Restore && options.to.empty()) {
                return Fail(L"restore needs --to DIR", command);
            }
            break;
    }
    outcome.kind = ParseOutcome::Kind::Run;
    return outcome;
}
