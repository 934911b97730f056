// nwexch.exe: lists, sizes and restores Exchange files from NetWorker backups.

#include <windows.h>

#include <exception>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "Console.h"
#include "Session.h"

#define NWX_WIDEN_INNER(text) L##text
#define NWX_WIDEN(text) NWX_WIDEN_INNER(text)
#define NWX_VERSION_WIDE NWX_WIDEN(NWX_VERSION)

int wmain(int argc, wchar_t** argv) {
    std::vector<std::wstring> args(argv + 1, argv + argc);
    if (args.size() == 1 && (args[0] == L"--version" || args[0] == L"version")) {
        // The version the build stamps into every binary of the product.
        Console().Out(L"nwexch " NWX_VERSION_WIDE L" (NetWorkerXbsa)\n");
        return ExitOk;
    }
    const ParseOutcome parsed = ParseCommandLine(args);
    if (parsed.kind != ParseOutcome::Kind::Run) {
        if (parsed.kind == ParseOutcome::Kind::Help) {
            Console().Out(parsed.text);
        } else {
            Console().Err(parsed.text);
        }
        return parsed.ExitCodeIfNotRun();
    }
    const Options& options = parsed.options;
    // TarnLog reads its configuration at every GetLogger, so this must precede the first
    // object of the library. The helper program inherits both.
    if (!options.logFile.empty()) {
        SetEnvironmentVariableW(L"TARNLOG_FILE", options.logFile.c_str());
    }
    if (!options.logLevel.empty()) {
        SetEnvironmentVariableW(L"TARNLOG_LEVEL", options.logLevel.c_str());
    }
    // Both ends of the pipe read the switch; nwexch's own launcher starts the helper, so it names
    // itself as the process that the helper must find at the other end.
    if (options.hardenedPipe) {
        SetEnvironmentVariableW(L"NWX_PIPE_HARDENING", L"1");
        SetEnvironmentVariableW(L"NWX_PIPE_SERVER_PROCESS",
                                std::to_wstring(GetCurrentProcessId()).c_str());
    }
    RunCancellation().Install();
    try {
        switch (options.command) {
            case Command::List:
                return RunList(options);
            case Command::Size:
                return RunSize(options);
            case Command::Restore:
                return RunRestore(options);
        }
    } catch (const std::exception& e) {
        Console().Err(L"nwexch: unexpected failure: " + FromNarrow(e.what()) + L"\n");
        return ExitNetWorker;
    }
    return ExitNetWorker;
}
