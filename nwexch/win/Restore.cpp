#include "Commands.h"

#include <windows.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "CommandSupport.h"
#include "Console.h"
#include "Formatting.h"
#include "Glob.h"
#include "RestoreCallbacks.h"
#include "RestorePlan.h"
#include "RestoreSchedule.h"
#include "Session.h"
#include "interfaces/NetWorkerStatus.h"

namespace {

// What ExtractFile returns when a retry after a full disk succeeded on the last block.
constexpr int32_t kRetriedAfterDiskFull = static_cast<int32_t>(NetWorkerWinError::Continue);

uint64_t FileSizeOnDisk(const std::wstring& path, bool* exists) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    *exists = GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) != 0;
    if (!*exists) {
        return 0;
    }
    return (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

bool PathExists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void RemoveIfPresent(const std::wstring& path) {
    if (PathExists(path)) {
        DeleteFileW(path.c_str());
    }
}

std::wstring WindowsErrorText(DWORD error) {
    return L"Windows error " + std::to_wstring(error);
}

// Progress of the whole restore, fed by the executor's per-report byte counts.

std::wstring AbsoluteDirectory(const std::wstring& directory) {
    const DWORD needed = GetFullPathNameW(directory.c_str(), 0, nullptr, nullptr);
    if (needed == 0) {
        return std::wstring();
    }
    std::wstring full(needed, L'\0');
    const DWORD length = GetFullPathNameW(directory.c_str(), needed, &full[0], nullptr);
    if (length == 0 || length >= needed) {
        return std::wstring();
    }
    full.resize(length);
    while (full.size() > 3 && (full.back() == L'\\' || full.back() == L'/')) {
        full.pop_back();
    }
    return full;
}

// Extracts one file under its partial name, checks it and gives it its name. Every outcome is
// recorded; false only when the session to NetWorker is lost and nothing more can be done.
bool RestoreFile(INetWorkerExecutor* executor, const PlannedFile& file, uint64_t expected,
                 bool overwrite, SessionProgress* progress, DiskFullHandler* diskFull,
                 FileOutcome* outcome) {
    const std::wstring partial = JoinWindowsPath(file.directory, file.PartialName());
    const std::wstring destination = file.FullPath();
    progress->StartFile(file.backupPath, expected);
    diskFull->StartFile(destination);
    int32_t status = 0;
    try {
        status = executor->ExtractFile(file.index, file.directory.c_str(),
                                       file.PartialName().c_str(), progress, diskFull);
    } catch (const std::exception& e) {
        outcome->result = FileResult::Failed;
        outcome->reason = L"the pipe to the helper program failed: " + FromNarrow(e.what());
        RemoveIfPresent(partial);
        return false;
    }
    progress->FileDone();
    bool exists = false;
    const uint64_t written = FileSizeOnDisk(partial, &exists);
    if (diskFull->CancelledForDiskFull()) {
        // Even a status of 0 leaves a short file when the last block did not fit.
        outcome->result = FileResult::Cancelled;
        outcome->reason = L"the disk is full";
        RemoveIfPresent(partial);
        RunCancellation().Request(L"cancelled because the disk is full");
        return true;
    }
    if (status == NetWorkerStatus::Cancelled) {
        outcome->result = FileResult::Cancelled;
        outcome->reason =
            RunCancellation().Requested() ? RunCancellation().Reason() : std::wstring(L"cancelled");
        RemoveIfPresent(partial);
        return true;
    }
    if (status < 0 || (status != 0 && status != kRetriedAfterDiskFull)) {
        outcome->result = FileResult::Failed;
        outcome->reason = FormatStatus(status);
        RemoveIfPresent(partial);
        // The helper program is gone: nothing more can be restored.
        return status != NetWorkerStatus::PipeClosed;
    }
    // kRetriedAfterDiskFull: a retry after a full disk succeeded on the last block; the file
    // is whole. A cancellation that came after the last block leaves a whole file too: it is
    // kept (after the checks below) and only the files after it are skipped.
    if (!exists) {
        outcome->result = FileResult::Failed;
        outcome->reason = L"NetWorker reported success but no file was written";
        return true;
    }
    if (expected != 0 && written != expected) {
        outcome->result = FileResult::Failed;
        outcome->reason = L"the restored file has " + FormatCount(written) +
                          L" bytes, the backup " + FormatCount(expected);
        RemoveIfPresent(partial);
        return true;
    }
    const DWORD flags = MOVEFILE_WRITE_THROUGH | (overwrite ? MOVEFILE_REPLACE_EXISTING : 0);
    if (!MoveFileExW(partial.c_str(), destination.c_str(), flags)) {
        const DWORD error = GetLastError();
        outcome->result = FileResult::Failed;
        outcome->reason = L"could not name it " + destination + L": " + WindowsErrorText(error);
        RemoveIfPresent(partial);
        return true;
    }
    outcome->result = FileResult::Restored;
    outcome->bytes = written;
    outcome->reason.clear();
    return true;
}

// The rows to restore, by glob or by index, in NetWorker's restore order and then the
// catalogue's. Returns ExitOk or the exit code to end with.
int ChooseRestoreRows(const Options& options, const std::vector<CatalogueRow>& rows,
                      std::vector<const CatalogueRow*>* chosen) {
    if (!options.globs.empty()) {
        std::vector<bool> taken(rows.size(), false);  // catalogues can be large: no searching
        for (const std::wstring& glob : options.globs) {
            bool any = false;
            for (size_t i = 0; i < rows.size(); ++i) {
                if (GlobMatch(glob, rows[i].path)) {
                    any = true;
                    if (!taken[i]) {
                        taken[i] = true;
                        chosen->push_back(&rows[i]);
                    }
                }
            }
            if (!any) {
                Error(L"no catalogued file matches \"" + glob + L"\"; see 'nwexch list'");
                return ExitUsage;
            }
        }
    } else if (!ResolveIndexes(rows, options.indexes, chosen)) {
        return ExitUsage;
    }
    std::stable_sort(
        chosen->begin(), chosen->end(), [](const CatalogueRow* a, const CatalogueRow* b) {
            return a->restoreOrder != b->restoreOrder ? a->restoreOrder < b->restoreOrder
                                                      : a->index < b->index;
        });
    return ExitOk;
}

// Where each chosen file goes under --to; refuses problems and, without --overwrite, files
// that exist already. Returns ExitOk or the exit code to end with.
int PlanRestoreDestinations(const Options& options, const std::vector<const CatalogueRow*>& chosen,
                            RestorePlan* plan) {
    const std::wstring root = AbsoluteDirectory(options.to);
    if (root.empty()) {
        Error(L"--to \"" + options.to + L"\" is not a usable directory path");
        return ExitUsage;
    }
    std::vector<RestoreSource> sources;
    for (const CatalogueRow* row : chosen) {
        sources.push_back({row->index, row->path});
    }
    *plan = PlanRestore(root, sources, options.flat);
    if (!plan->Ok()) {
        for (const std::wstring& problem : plan->problems) {
            Error(L"cannot restore: " + problem);
        }
        return ExitUsage;
    }
    if (!options.overwrite) {
        bool clash = false;
        for (const PlannedFile& file : plan->files) {
            if (PathExists(file.FullPath())) {
                Error(L"already exists: " + file.FullPath());
                clash = true;
            }
        }
        if (clash) {
            Error(L"nothing was restored; remove those files or give --overwrite");
            return ExitUsage;
        }
    }
    return ExitOk;
}

// The exact size of every planned file (0: unknown), for the progress total and the check of
// each restored file.
std::vector<uint64_t> ExactSizes(Session& session, const RestorePlan& plan, uint64_t* total) {
    std::vector<uint64_t> expected(plan.files.size(), 0);
    *total = 0;
    for (size_t i = 0; i < plan.files.size(); ++i) {
        if (RunCancellation().Requested()) {
            break;
        }
        uint64_t size = 0;
        const int32_t status = session.Executor()->GetFileSize(plan.files[i].index, true, &size);
        if (status == 0) {
            expected[i] = size;  // 0 also when the helper's lookup failed: then unknown
        } else {
            Error(L"the exact size of " + plan.files[i].backupPath + L" is unknown (" +
                  FormatStatus(status) + L"); it is restored without a size check");
        }
        *total += size;
    }
    return expected;
}

// What one session of a restore did.
struct SessionRun {
    bool began = false;  // BeginExtract succeeded
    bool lost = false;   // the session ended before the queue was empty: its helper is gone
};

// Takes files from the queue and extracts them through one session, between BeginExtract and
// EndExtract, until the queue is empty or the session is lost; records each file's outcome. A
// cancelled run takes the rest of the queue too, marking each file as not started.
SessionRun ExtractThroughSession(Session& session, const Options& options, const RestorePlan& plan,
                                 const std::vector<uint64_t>& expected, FileQueue& queue,
                                 ProgressBoard& board, std::vector<FileOutcome>* outcomes) {
    SessionRun run;
    if (RunCancellation().Requested()) {
        run.began = true;  // nothing to begin: the files stay "not started"
        return run;
    }
    const int32_t begin = session.Executor()->BeginExtract();
    if (begin != 0) {
        Error(L"NetWorker could not start the extraction: " + FormatStatus(begin));
        run.lost = true;
        return run;
    }
    run.began = true;
    SessionProgress progress(board);
    DiskFullHandler diskFull(options.onDiskFull);
    size_t position = 0;
    while (queue.Next(&position)) {
        FileOutcome& outcome = (*outcomes)[position];
        if (RunCancellation().Requested()) {
            outcome.result = FileResult::NotStarted;
            outcome.reason = RunCancellation().Reason() + L" before it started";
            continue;
        }
        if (!RestoreFile(session.Executor(), plan.files[position], expected[position],
                         options.overwrite, &progress, &diskFull, &outcome)) {
            run.lost = true;
            return run;
        }
    }
    const int32_t end = session.Executor()->EndExtract();
    if (end != 0) {
        Error(L"NetWorker could not end the extraction cleanly: " + FormatStatus(end));
    }
    session.Executor()->Quit();
    return run;
}

// Opens sessions 1 to count - 1 side by side, each with its own helper, and takes each one's
// catalogue; every catalogue must list the files the first one lists, at the same indexes.
// Returns ExitOk or the exit code to end with, after the error line.
int OpenFurtherSessions(const Options& options, const std::vector<CatalogueRow>& first,
                        size_t count, std::vector<std::unique_ptr<Session>>* sessions) {
    struct Opening {
        std::unique_ptr<Session> session = std::make_unique<Session>();
        CatalogueCollector collector;
        int code = ExitOk;
    };
    std::vector<Opening> openings(count - 1);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < openings.size(); ++i) {
        threads.emplace_back([&options, &openings, i] {
            Opening& opening = openings[i];
            opening.code = OpenAndCatalogue(options, opening.session.get(), &opening.collector,
                                            static_cast<unsigned>(i + 1));
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    int code = ExitOk;
    for (size_t i = 0; i < openings.size(); ++i) {
        Opening& opening = openings[i];
        if (opening.code != ExitOk) {
            code = code == ExitOk || opening.code == ExitCancelled ? opening.code : code;
            continue;
        }
        const std::wstring difference = CatalogueDifference(first, opening.collector.Rows());
        if (!difference.empty()) {
            Error(L"session " + std::to_wstring(i + 1) +
                  L" sees another catalogue than the first one (" + difference +
                  L"): the backup changed between the sessions' queries; nothing was restored, "
                  L"run the restore again");
            code = code == ExitOk ? static_cast<int>(ExitNetWorker) : code;
            continue;
        }
        sessions->push_back(std::move(opening.session));
    }
    return code;
}

// Every planned file, not started yet (or not at all, when the run was cancelled before).
std::vector<FileOutcome> InitialOutcomes(const RestorePlan& plan) {
    std::vector<FileOutcome> outcomes;
    for (const PlannedFile& file : plan.files) {
        FileOutcome outcome;
        outcome.index = file.index;
        outcome.backupPath = file.backupPath;
        outcome.destination = file.FullPath();
        outcome.reason = L"not started";
        outcomes.push_back(outcome);
    }
    if (RunCancellation().Requested()) {
        for (FileOutcome& outcome : outcomes) {
            outcome.reason = RunCancellation().Reason() + L" before it started";
        }
    }
    return outcomes;
}

// One line per restored file, then the summary; returns the exit code of the run.
int ReportRestore(std::vector<FileOutcome>& outcomes, bool sessionLost, uint64_t elapsedMs) {
    if (sessionLost) {
        for (FileOutcome& outcome : outcomes) {
            if (outcome.result == FileResult::NotStarted) {
                outcome.reason = L"the session to NetWorker was lost";
            }
        }
    }
    for (const FileOutcome& outcome : outcomes) {
        if (outcome.result == FileResult::Restored) {
            Console().Out(L"restored " + outcome.backupPath + L" -> " + outcome.destination +
                          L" (" + FormatCount(outcome.bytes) + L" bytes)\n");
        }
    }
    Console().Out(FormatRestoreSummary(outcomes, elapsedMs));

    if (RunCancellation().Requested()) {
        return ExitCancelled;
    }
    if (sessionLost) {
        return ExitNetWorker;
    }
    const bool allRestored =
        std::all_of(outcomes.begin(), outcomes.end(),
                    [](const FileOutcome& o) { return o.result == FileResult::Restored; });
    return allRestored ? ExitOk : ExitFilesFailed;
}

}  // namespace

int RunRestore(const Options& options) {
    Session first;
    CatalogueCollector collector;
    int code = OpenAndCatalogue(options, &first, &collector);
    if (code != ExitOk) {
        return code;
    }
    std::vector<const CatalogueRow*> chosen;
    code = ChooseRestoreRows(options, collector.Rows(), &chosen);
    if (code != ExitOk) {
        return code;
    }
    RestorePlan plan;
    code = PlanRestoreDestinations(options, chosen, &plan);
    if (code != ExitOk) {
        return code;
    }
    uint64_t total = 0;
    const std::vector<uint64_t> expected = ExactSizes(first, plan, &total);
    std::vector<FileOutcome> outcomes = InitialOutcomes(plan);

    // No more sessions than files. With one, the files go in restore order as always; with
    // several, the largest first, so that the big databases start at once.
    const size_t sessionCount =
        std::max<size_t>(1, std::min<size_t>(options.jobs, plan.files.size()));
    std::vector<std::unique_ptr<Session>> further;
    if (sessionCount > 1) {
        code = OpenFurtherSessions(options, collector.Rows(), sessionCount, &further);
        if (code != ExitOk) {
            return code;
        }
    }
    std::vector<size_t> order(plan.files.size());
    for (size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    if (sessionCount > 1) {
        order = LargestFirst(expected);
    }
    FileQueue queue(std::move(order));

    ProgressBoard board(total, CancelAfterBytesHook());
    std::vector<Session*> sessions = {&first};
    for (const std::unique_ptr<Session>& session : further) {
        sessions.push_back(session.get());
    }
    std::vector<SessionRun> runs(sessions.size());
    if (sessions.size() == 1) {
        runs[0] = ExtractThroughSession(first, options, plan, expected, queue, board, &outcomes);
    } else {
        std::vector<std::thread> threads;
        for (size_t i = 0; i < sessions.size(); ++i) {
            threads.emplace_back([&, i] {
                runs[i] = ExtractThroughSession(*sessions[i], options, plan, expected, queue, board,
                                                &outcomes);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    if (std::none_of(runs.begin(), runs.end(), [](const SessionRun& run) { return run.began; })) {
        return ExitNetWorker;
    }
    // Files are left over only when every session was lost.
    const bool allLost =
        std::all_of(runs.begin(), runs.end(), [](const SessionRun& run) { return run.lost; });
    board.Finish();
    return ReportRestore(outcomes, allLost, board.ElapsedMs());
}
