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

// What every session of one restore shares.
struct RestoreRun {
    const Options& options;
    const RestorePlan& plan;
    const std::vector<uint64_t>& expected;  // exact sizes, 0 when unknown
    FileQueue& queue;
    ProgressBoard& board;
    std::vector<FileOutcome>& outcomes;  // by plan position; each written by one session at a time
    size_t sessionCount;
};

// "the session to NetWorker" on its own, "session 2 of 4" among several (numbered from 1).
std::wstring SessionName(size_t number, size_t count) {
    if (count == 1) {
        return L"the session to NetWorker";
    }
    return L"session " + std::to_wstring(number + 1) + L" of " + std::to_wstring(count);
}

// An error line about one session; among several, it names the session.
void SessionError(const std::wstring& session, const RestoreRun& run, const std::wstring& text) {
    Error(run.sessionCount == 1 ? text : session + L": " + text);
}

// The error line of a session that is lost, saying when and why.
void ReportLoss(const std::wstring& session, const std::wstring& when, const std::wstring& why) {
    Error(session + L" is lost " + when + L": " + why);
}

// How the extraction of one file through a session ended.
enum class FileEnd {
    Settled,         // its outcome is recorded and the session goes on
    LostDuringFile,  // the session was lost with the file under way: it is recorded as failed
    LostBeforeFile,  // the session was lost before a byte of the file came: nothing is recorded
};

// Where a planned file is written until it is complete.
std::wstring PartialPath(const PlannedFile& file) {
    return JoinWindowsPath(file.directory, file.PartialName());
}

// Extracts one file under its partial name, checks it and gives it its name. Removes the
// partial file of every outcome it records; when the session is lost, *loss says how, and the
// partial file (which the helper may still hold open) is the caller's to remove.
FileEnd RestoreFile(Session& session, const RestoreRun& run, size_t position,
                    SessionProgress& progress, DiskFullHandler& diskFull, SessionCall* loss) {
    const PlannedFile& file = run.plan.files[position];
    const uint64_t expected = run.expected[position];
    FileOutcome& outcome = run.outcomes[position];
    const std::wstring partial = PartialPath(file);
    const std::wstring destination = file.FullPath();
    progress.StartFile(file.backupPath, expected);
    diskFull.StartFile(destination);
    const SessionCall call = CallSession(session, [&] {
        return session.Executor()->ExtractFile(file.index, file.directory.c_str(),
                                               file.PartialName().c_str(), &progress, &diskFull);
    });
    progress.FileDone();
    if (call.Lost()) {
        *loss = call;
        if (!progress.Reported()) {
            return FileEnd::LostBeforeFile;
        }
        outcome.result = FileResult::Failed;
        outcome.reason = call.Why();
        return FileEnd::LostDuringFile;
    }
    const int32_t status = call.status;
    bool exists = false;
    const uint64_t written = FileSizeOnDisk(partial, &exists);
    if (diskFull.CancelledForDiskFull()) {
        // Even a status of 0 leaves a short file when the last block did not fit.
        outcome.result = FileResult::Cancelled;
        outcome.reason = L"the disk is full";
        RemoveIfPresent(partial);
        RunCancellation().Request(L"cancelled because the disk is full");
        return FileEnd::Settled;
    }
    if (status == NetWorkerStatus::Cancelled) {
        outcome.result = FileResult::Cancelled;
        outcome.reason =
            RunCancellation().Requested() ? RunCancellation().Reason() : std::wstring(L"cancelled");
        RemoveIfPresent(partial);
        return FileEnd::Settled;
    }
    if (status < 0 || (status != 0 && status != kRetriedAfterDiskFull)) {
        outcome.result = FileResult::Failed;
        outcome.reason = FormatStatus(status);
        RemoveIfPresent(partial);
        return FileEnd::Settled;
    }
    // kRetriedAfterDiskFull: a retry after a full disk succeeded on the last block; the file
    // is whole. A cancellation that came after the last block leaves a whole file too: it is
    // kept (after the checks below) and only the files after it are skipped.
    if (!exists) {
        outcome.result = FileResult::Failed;
        outcome.reason = L"NetWorker reported success but no file was written";
        return FileEnd::Settled;
    }
    if (expected != 0 && written != expected) {
        outcome.result = FileResult::Failed;
        outcome.reason = L"the restored file has " + FormatCount(written) + L" bytes, the backup " +
                         FormatCount(expected);
        RemoveIfPresent(partial);
        return FileEnd::Settled;
    }
    const DWORD flags =
        MOVEFILE_WRITE_THROUGH | (run.options.overwrite ? MOVEFILE_REPLACE_EXISTING : 0);
    if (!MoveFileExW(partial.c_str(), destination.c_str(), flags)) {
        const DWORD error = GetLastError();
        outcome.result = FileResult::Failed;
        outcome.reason = L"could not name it " + destination + L": " + WindowsErrorText(error);
        RemoveIfPresent(partial);
        return FileEnd::Settled;
    }
    outcome.result = FileResult::Restored;
    outcome.bytes = written;
    outcome.reason.clear();
    return FileEnd::Settled;
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
// each restored file. *lost is set when the session is lost on the way: the sizes not asked for
// stay unknown.
std::vector<uint64_t> ExactSizes(Session& session, const std::wstring& sessionName,
                                 const RestorePlan& plan, uint64_t* total, bool* lost) {
    std::vector<uint64_t> expected(plan.files.size(), 0);
    *total = 0;
    *lost = false;
    for (size_t i = 0; i < plan.files.size(); ++i) {
        if (RunCancellation().Requested()) {
            break;
        }
        uint64_t size = 0;
        const SessionCall call = CallSession(session, [&] {
            return session.Executor()->GetFileSize(plan.files[i].index, true, &size);
        });
        if (call.Lost()) {
            ReportLoss(sessionName, L"while the exact sizes were asked for", call.Why());
            *lost = true;
            break;
        }
        if (call.status == 0) {
            expected[i] = size;  // 0 also when the helper's lookup failed: then unknown
        } else {
            Error(L"the exact size of " + plan.files[i].backupPath + L" is unknown (" +
                  FormatStatus(call.status) + L"); it is restored without a size check");
        }
        *total += size;
    }
    return expected;
}

// Closes the session, reporting what went wrong on the way; false when something did.
bool CloseSession(Session& session, const std::wstring& name) noexcept {
    const std::wstring problem = session.Close();
    if (problem.empty()) {
        return true;
    }
    ReportLoss(name, L"while it was closed", problem);
    return false;
}

// A file taken from the queue, handed back to it on every way out: finished, unless it is given
// back for another session.
class TakenFile {
public:
    TakenFile(FileQueue& queue, size_t position) : m_queue(queue), m_position(position) {}
    ~TakenFile() {
        if (!m_givenBack) {
            m_queue.Finished();
        }
    }
    TakenFile(const TakenFile&) = delete;
    TakenFile& operator=(const TakenFile&) = delete;

    void GiveBack() {
        m_givenBack = true;
        m_queue.GiveBack(m_position);
    }

private:
    FileQueue& m_queue;
    size_t m_position;
    bool m_givenBack = false;
};

// Takes files from the queue and extracts them through one session, between BeginExtract and
// EndExtract, until no file is left or the session is lost; records each file's outcome. A
// cancelled run takes the rest of the queue too, marking each file as not started. Returns
// true when the session was lost, after its error line.
bool ExtractThroughSession(Session& session, const std::wstring& name, const RestoreRun& run) {
    if (RunCancellation().Requested()) {
        return false;  // the files stay "not started"
    }
    const SessionCall begin =
        CallSession(session, [&] { return session.Executor()->BeginExtract(); });
    if (begin.Lost()) {
        ReportLoss(name, L"before the extraction began", begin.Why());
        return true;
    }
    if (begin.status != 0) {
        SessionError(name, run, L"NetWorker could not start the extraction: " + begin.Why());
        return true;
    }
    SessionProgress progress(run.board);
    DiskFullHandler diskFull(run.options.onDiskFull);
    size_t position = 0;
    while (run.queue.Next(&position)) {
        TakenFile taken(run.queue, position);
        FileOutcome& outcome = run.outcomes[position];
        if (RunCancellation().Requested()) {
            outcome.result = FileResult::NotStarted;
            outcome.reason = RunCancellation().Reason() + L" before it started";
            continue;
        }
        SessionCall loss;
        const FileEnd end = RestoreFile(session, run, position, progress, diskFull, &loss);
        if (end == FileEnd::Settled) {
            continue;
        }
        const PlannedFile& file = run.plan.files[position];
        const bool reached = end == FileEnd::LostDuringFile;
        ReportLoss(
            name, reached ? L"during " + file.backupPath : L"before " + file.backupPath + L" began",
            loss.Why());
        // The helper may have created the file, and its handle on it goes only with its
        // process, which closing the session waits for.
        CloseSession(session, name);
        RemoveIfPresent(PartialPath(file));
        if (!reached) {
            // Nothing of it was written: another session restores it.
            taken.GiveBack();
        }
        return true;
    }
    const SessionCall end = CallSession(session, [&] { return session.Executor()->EndExtract(); });
    if (end.Lost()) {
        ReportLoss(name, L"while the extraction was ended", end.Why());
        return true;
    }
    if (end.status != 0) {
        SessionError(name, run, L"NetWorker could not end the extraction cleanly: " + end.Why());
    }
    const SessionCall quit = CallSession(session, [&] { return session.Executor()->Quit(); });
    if (quit.threw) {
        ReportLoss(name, L"when it was told to quit", quit.Why());
        return true;
    }
    return false;
}

// One session's whole part of a restore, on a thread of its own or the main one, ending with the
// session closed. Nothing in it ends the process: whatever the session throws is reported, and
// the session counts as lost. Returns true when it was lost.
bool RunSession(Session& session, const std::wstring& name, const RestoreRun& run) noexcept {
    bool lost = false;
    try {
        lost = ExtractThroughSession(session, name, run);
    } catch (...) {
        ReportLoss(name, L"after an unexpected failure",
                   DescribeException(session, std::current_exception()));
        lost = true;
    }
    if (!CloseSession(session, name)) {
        lost = true;
    }
    return lost;
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
        threads.emplace_back([&options, &openings, count, i] {
            Opening& opening = openings[i];
            try {
                opening.code = OpenAndCatalogue(options, opening.session.get(), &opening.collector,
                                                static_cast<unsigned>(i + 1));
            } catch (...) {
                // Nothing that a session throws may end the process from this thread.
                Error(L"could not open " + SessionName(i + 1, count) + L": " +
                      DescribeException(*opening.session, std::current_exception()));
                opening.code = ExitNetWorker;
            }
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
            Error(SessionName(i + 1, count) + L" sees another catalogue than the first one (" +
                  difference +
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
int ReportRestore(std::vector<FileOutcome>& outcomes, size_t sessions, size_t lost,
                  uint64_t elapsedMs) {
    if (lost == sessions) {
        // Files are left over only when every session was lost.
        for (FileOutcome& outcome : outcomes) {
            if (outcome.result == FileResult::NotStarted) {
                outcome.reason = sessions == 1 ? L"the session to NetWorker was lost"
                                               : L"every session to NetWorker was lost";
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
    return RestoreExitCode(outcomes, sessions, lost, RunCancellation().Requested());
}

// The positions of the planned files in the order the sessions take them: with one session in
// restore order as always; with several the largest first, so that the big databases start at
// once.
std::vector<size_t> TakingOrder(const std::vector<uint64_t>& expected, size_t sessionCount) {
    if (sessionCount > 1) {
        return LargestFirst(expected);
    }
    std::vector<size_t> order(expected.size());
    for (size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    return order;
}

// Runs every session that is still usable side by side (the first on this thread when it is
// alone); returns how many were lost, counting those in `lostBefore`.
size_t RunSessions(const std::vector<Session*>& sessions, const std::vector<bool>& lostBefore,
                   const RestoreRun& run) {
    std::vector<char> lost(sessions.size(), 0);  // not vector<bool>: each thread writes its own
    auto runOne = [&](size_t i) {
        const std::wstring name = SessionName(i, sessions.size());
        if (lostBefore[i]) {
            CloseSession(*sessions[i], name);  // its loss is reported already
            lost[i] = 1;
            return;
        }
        lost[i] = RunSession(*sessions[i], name, run) ? 1 : 0;
    };
    if (sessions.size() == 1) {
        runOne(0);
    } else {
        std::vector<std::thread> threads;
        for (size_t i = 0; i < sessions.size(); ++i) {
            threads.emplace_back(runOne, i);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    return static_cast<size_t>(std::count(lost.begin(), lost.end(), 1));
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
    // No more sessions than files.
    const size_t sessionCount =
        std::max<size_t>(1, std::min<size_t>(options.jobs, plan.files.size()));
    uint64_t total = 0;
    bool firstLost = false;
    const std::vector<uint64_t> expected =
        ExactSizes(first, SessionName(0, sessionCount), plan, &total, &firstLost);
    std::vector<FileOutcome> outcomes = InitialOutcomes(plan);

    std::vector<std::unique_ptr<Session>> further;
    if (sessionCount > 1) {
        code = OpenFurtherSessions(options, collector.Rows(), sessionCount, &further);
        if (code != ExitOk) {
            return code;
        }
    }
    std::vector<Session*> sessions = {&first};
    for (const std::unique_ptr<Session>& session : further) {
        sessions.push_back(session.get());
    }
    std::vector<bool> lostBefore(sessions.size(), false);
    lostBefore[0] = firstLost;

    FileQueue queue(TakingOrder(expected, sessionCount));
    ProgressBoard board(total, CancelAfterBytesHook());
    const RestoreRun run{options, plan, expected, queue, board, outcomes, sessions.size()};
    const size_t lost = RunSessions(sessions, lostBefore, run);
    board.Finish();
    return ReportRestore(outcomes, sessions.size(), lost, board.ElapsedMs());
}
