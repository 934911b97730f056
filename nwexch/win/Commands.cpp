#include "Commands.h"

#include <windows.h>

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "Console.h"
#include "DateWindow.h"
#include "Formatting.h"
#include "Glob.h"
#include "RestorePlan.h"
#include "Session.h"
#include "CatalogueCollector.h"
#include "RestoreCallbacks.h"
#include "interfaces/NetWorkerStatus.h"

namespace {

// What ExtractFile returns when a retry after a full disk succeeded on the last block.
constexpr int32_t kRetriedAfterDiskFull = static_cast<int32_t>(NetWorkerWinError::Continue);

void Error(const std::wstring& message) {
    Console().Err(L"nwexch: " + message + L"\n");
}

// Opens the session and takes the whole catalogue (no date window: indexes then mean the
// same in every command). Returns 0 on success or the exit code to end with.
int OpenAndCatalogue(const Options& options, Session* session, CatalogueCollector* collector) {
    std::wstring problem;
    int exitCode = ExitOk;
    if (!session->Open(options, &problem, &exitCode)) {
        Error(problem);
        return exitCode;
    }
    int32_t status = 0;
    try {
        status = session->Executor()->Catalog(nullptr, nullptr, collector, collector);
    } catch (const std::exception& e) {
        Error(L"the catalogue failed: " + FromNarrow(e.what()));
        return ExitNetWorker;
    }
    if (RunCancellation().Requested()) {
        Error(L"cancelled while the catalogue was taken");
        return ExitCancelled;
    }
    if (status != 0) {
        Error(L"the catalogue failed: " + FormatStatus(status));
        return ExitNetWorker;
    }
    const std::wstring incomplete = collector->Problem();
    if (!incomplete.empty()) {
        Error(L"the catalogue is incomplete: " + incomplete);
        return ExitNetWorker;
    }
    return ExitOk;
}

const CatalogueRow* FindRow(const std::vector<CatalogueRow>& rows, uint32_t index) {
    // Indexes are consecutive from 0, but do not rely on it.
    if (index < rows.size() && rows[index].index == index) {
        return &rows[index];
    }
    for (const CatalogueRow& row : rows) {
        if (row.index == index) {
            return &row;
        }
    }
    return nullptr;
}

bool ResolveIndexes(const std::vector<CatalogueRow>& rows, const std::vector<uint32_t>& indexes,
                    std::vector<const CatalogueRow*>* chosen) {
    for (uint32_t index : indexes) {
        const CatalogueRow* row = FindRow(rows, index);
        if (row == nullptr) {
            Error(L"index " + std::to_wstring(index) + L" is not in the catalogue (" +
                  (rows.empty() ? std::wstring(L"it is empty")
                                : L"0 to " + std::to_wstring(rows.size() - 1)) +
                  L"); see 'nwexch list'");
            return false;
        }
        chosen->push_back(row);
    }
    return true;
}

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
                 bool overwrite, ProgressReporter* progress, DiskFullHandler* diskFull,
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

}  // namespace

int RunList(const Options& options) {
    Session session;
    CatalogueCollector collector;
    const int code = OpenAndCatalogue(options, &session, &collector);
    if (code != ExitOk) {
        return code;
    }
    const DateWindow window(options.after, options.before);
    std::vector<CatalogueRow> shown;
    for (const CatalogueRow& row : collector.Rows()) {
        if (window.Contains(row.backupTime)) {
            shown.push_back(row);
        }
    }
    if (options.json) {
        std::string lines;
        for (const CatalogueRow& row : shown) {
            lines += FormatCatalogueJsonLine(row);
        }
        Console().OutAscii(lines);
    } else {
        Console().Out(FormatCatalogueTable(shown));
    }
    if (collector.Rows().empty()) {
        Error(L"NetWorker has no Exchange files for this client");
    }
    return ExitOk;
}

int RunSize(const Options& options) {
    Session session;
    CatalogueCollector collector;
    const int code = OpenAndCatalogue(options, &session, &collector);
    if (code != ExitOk) {
        return code;
    }
    std::vector<const CatalogueRow*> chosen;
    if (!ResolveIndexes(collector.Rows(), options.indexes, &chosen)) {
        return ExitUsage;
    }
    std::vector<SizeRow> rows;
    int exitCode = ExitOk;
    for (const CatalogueRow* entry : chosen) {
        if (RunCancellation().Requested()) {
            return ExitCancelled;
        }
        uint64_t size = 0;
        const int32_t status = session.Executor()->GetFileSize(entry->index, options.exact, &size);
        SizeRow row;
        row.index = entry->index;
        row.size = size;
        row.path = entry->path;
        if (status != 0) {
            row.note =
                L"the exact size is unknown, this is the catalogue's: " + FormatStatus(status);
            exitCode = ExitNetWorker;
        } else if (options.exact && size == 0 && session.InHelper()) {
            row.note = L"0 is also what the helper reports when the lookup failed";
        }
        rows.push_back(row);
    }
    Console().Out(FormatSizeTable(rows));
    if (!options.exact) {
        Error(L"these are the catalogue's sizes, right only below 4 GiB; --exact asks NetWorker");
    }
    return exitCode;
}

namespace {

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

// Extracts the planned files one by one between BeginExtract and EndExtract, recording each
// outcome. Returns ExitOk, or ExitNetWorker when the extraction could not begin; *sessionLost
// tells whether the session to NetWorker was lost on the way.
int ExtractPlannedFiles(Session& session, const Options& options, const RestorePlan& plan,
                        const std::vector<uint64_t>& expected, ProgressReporter* progress,
                        std::vector<FileOutcome>* outcomes, bool* sessionLost) {
    *sessionLost = false;
    if (RunCancellation().Requested()) {
        return ExitOk;
    }
    DiskFullHandler diskFull(options.onDiskFull);
    const int32_t begin = session.Executor()->BeginExtract();
    if (begin != 0) {
        Error(L"NetWorker could not start the extraction: " + FormatStatus(begin));
        return ExitNetWorker;
    }
    for (size_t i = 0; i < plan.files.size(); ++i) {
        const PlannedFile& file = plan.files[i];
        FileOutcome& outcome = (*outcomes)[i];
        if (RunCancellation().Requested()) {
            outcome.result = FileResult::NotStarted;
            outcome.reason = RunCancellation().Reason() + L" before it started";
            continue;
        }
        if (!RestoreFile(session.Executor(), file, expected[i], options.overwrite, progress,
                         &diskFull, &outcome)) {
            *sessionLost = true;
            break;
        }
    }
    if (!*sessionLost) {
        const int32_t end = session.Executor()->EndExtract();
        if (end != 0) {
            Error(L"NetWorker could not end the extraction cleanly: " + FormatStatus(end));
        }
    }
    return ExitOk;
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
    Session session;
    CatalogueCollector collector;
    int code = OpenAndCatalogue(options, &session, &collector);
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
    const std::vector<uint64_t> expected = ExactSizes(session, plan, &total);
    std::vector<FileOutcome> outcomes = InitialOutcomes(plan);

    ProgressReporter progress(total, CancelAfterBytesHook());
    bool sessionLost = false;
    code =
        ExtractPlannedFiles(session, options, plan, expected, &progress, &outcomes, &sessionLost);
    if (code != ExitOk) {
        return code;
    }
    progress.Finish();
    return ReportRestore(outcomes, sessionLost, progress.ElapsedMs());
}
