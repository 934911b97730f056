// A day of use in one host process: hundreds of sessions in process and through the helper
// program against the simulated NetWorker, each one allocate, Initialize, Catalog, restore one
// small file, Free. After them the host must hold no more handles than after the first few, its
// memory must not have grown by a mebibyte, and no helper program may still be running.
// A second test proves that the same checks see sessions that a host forgets to free.

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "../conformance/HostCallbacks.h"
#include "../conformance/HostSessions.h"
#include "../exports/ExportsTestSupport.h"
#include "Catalogue.h"
#include "ProcessFigures.h"
#include "ScopedEnvironment.h"
#include "SimulatorEnvironment.h"
#include "TestFiles.h"
#include "common/UniqueHandle.h"

namespace {

const auto* const g_simulator = ::testing::AddGlobalTestEnvironment(new SimulatorEnvironment);

constexpr wchar_t kHelperProgram[] = L"NetWorker64BitClient.exe";

// The seeded client's catalogue holds 14 Exchange files; index 4 is a small one.
constexpr size_t kSeededEntries = 14;
constexpr uint32_t kRestoredIndex = 4;
constexpr char kRestoredPath[] = "/First Storage Group/E00.chk";
constexpr wchar_t kRestoredObjectId[] = L"16";
constexpr wchar_t kRestoredFileName[] = L"E00.chk";
constexpr uint64_t kRestoredBytes = 8192;

// Sessions of each kind before the figures are first taken: by then every code path has run,
// every lazily created object of the process exists and the heaps have reached their working
// size.
constexpr int kWarmUpInProcess = 20;
constexpr int kWarmUpHelper = 20;
// The rest of the day, interleaved as a host would see them: 40 rounds of 7 in-process and 2
// helper sessions, 300 and 100 sessions in all with the warm-up.
constexpr int kRounds = 40;
constexpr int kInProcessPerRound = 7;
constexpr int kHelperPerRound = 2;
constexpr int kRoundsPerSample = 10;
// Each session lists the catalogue once.
constexpr int kCataloguesPerSession = 1;

constexpr int64_t kMemoryTolerance = int64_t{1024} * 1024;
// How long helpers get to notice that their host closed the pipe and end.
constexpr DWORD kHelperExitWaitMs = 30000;

enum class Mode { InProcess, Helper };

std::unique_ptr<HostSession> OpenSession(Mode mode) {
    if (mode == Mode::InProcess) {
        return std::make_unique<DirectSession>();
    }
    return std::make_unique<PipeSession>(UniquePipeName(L"soak"));
}

// Disk-full questions and allocation failures alike.
size_t ErrorCount(const RecordingErrors& errors) {
    return errors.codes.size() + errors.allocations.size();
}

uint64_t SizeOfFile(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) {
        return UINT64_MAX;
    }
    return (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

// Initialize, Catalog and the restore of one small file into `directory`, on a session the
// caller frees. `catalogue` receives what Catalog reported.
::testing::AssertionResult Work(HostSession& session, const std::wstring& directory,
                                RecordingFileFound* catalogue) {
    const int32_t initialized = session.Initialize("cli", "srv");
    if (initialized != 0) {
        return ::testing::AssertionFailure() << "Initialize returned " << initialized;
    }
    INetWorkerExecutor* executor = session.Executor();
    RecordingErrors errors;
    const int32_t catalogued = executor->Catalog(nullptr, nullptr, catalogue, &errors);
    if (catalogued != 0 || ErrorCount(errors) != 0 || catalogue->found.size() != kSeededEntries) {
        return ::testing::AssertionFailure()
               << "Catalog returned " << catalogued << " with " << catalogue->found.size()
               << " files and " << ErrorCount(errors) << " errors";
    }
    if (catalogue->found[kRestoredIndex].path != kRestoredPath) {
        return ::testing::AssertionFailure() << "catalogue index " << kRestoredIndex << " is "
                                             << catalogue->found[kRestoredIndex].path;
    }

    RecordingProgress progress;
    const int32_t begun = executor->BeginExtract();
    const int32_t extracted = executor->ExtractFile(kRestoredIndex, directory.c_str(),
                                                    kRestoredFileName, &progress, &errors);
    const int32_t ended = executor->EndExtract();
    if (begun != 0 || extracted != 0 || ended != 0 || ErrorCount(errors) != 0) {
        return ::testing::AssertionFailure()
               << "BeginExtract " << begun << ", ExtractFile " << extracted << ", EndExtract "
               << ended << ", " << ErrorCount(errors) << " errors";
    }
    const uint64_t written = SizeOfFile(directory + L"\\" + kRestoredFileName);
    if (written != kRestoredBytes || progress.BytesDone() != kRestoredBytes) {
        return ::testing::AssertionFailure()
               << "restored " << written << " bytes, progress told " << progress.BytesDone();
    }
    return ::testing::AssertionSuccess();
}

// One whole session, from allocation to Free, whose restored file is then deleted. With
// `verify`, the file is first compared with the simulator's object byte for byte.
::testing::AssertionResult RunSession(Mode mode, const std::wstring& directory,
                                      RecordingFileFound* catalogue = nullptr,
                                      bool verify = false) {
    RecordingFileFound ownCatalogue;
    RecordingFileFound* recorder = catalogue != nullptr ? catalogue : &ownCatalogue;
    ::testing::AssertionResult result = ::testing::AssertionSuccess();
    {
        std::unique_ptr<HostSession> session = OpenSession(mode);
        result = Work(*session, directory, recorder);
    }
    const std::wstring restored = directory + L"\\" + kRestoredFileName;
    if (result && verify) {
        std::string output;
        if (!SimulatorEnvironment::Get().Verify(kRestoredObjectId, restored, &output)) {
            result = ::testing::AssertionFailure() << "restored file differs: " << output;
        }
    }
    DeleteFileW(restored.c_str());
    return result;
}

// Heap bytes that the catalogue of one session holds in its three strings per entry (object
// space, path, and object information cut to 256 characters, each with its terminator), from
// the objects the simulator's store holds for the entries reported.
uint64_t CatalogueStringBytes(const std::vector<ReportedFile>& entries) {
    nwsim::Catalogue store;
    std::string error;
    const nwsim::StoreLayout layout{std::filesystem::path(SimulatorEnvironment::Get().StoreRoot())};
    if (!nwsim::LoadCatalogue(layout.CatalogueFile("srv", "cli"), store, error)) {
        ADD_FAILURE() << "cannot read the simulator's catalogue: " << error;
        return 0;
    }
    uint64_t bytes = 0;
    for (const ReportedFile& entry : entries) {
        const auto object = std::find_if(
            store.objects.begin(), store.objects.end(), [&](const nwsim::CatalogueObject& o) {
                return o.path == entry.path && o.restoreOrder == entry.restoreOrder;
            });
        if (object == store.objects.end()) {
            ADD_FAILURE() << "no object in the store for " << entry.path;
            continue;
        }
        bytes += object->objectSpace.size() + 1;
        bytes += object->path.size() + 1;
        bytes += std::min<size_t>(object->objectInfo.size(), 256) + 1;
    }
    return bytes;
}

struct Cost {
    int64_t handles = 0;
    int64_t bytes = 0;
};

// What grew between two readings beyond what is allowed: handles beyond `allowance.handles`,
// each memory figure by a mebibyte or more beyond `allowance.bytes`. Empty when nothing did.
std::vector<std::string> Leaks(const ProcessFigures& before, const ProcessFigures& after,
                               const Cost& allowance) {
    std::vector<std::string> leaks;
    const int64_t handleGrowth = Growth(before.handles, after.handles);
    if (handleGrowth > allowance.handles) {
        leaks.push_back("handles grew by " + std::to_string(handleGrowth) + ", allowed " +
                        std::to_string(allowance.handles));
    }
    const int64_t limit = kMemoryTolerance + allowance.bytes;
    const struct {
        const char* name;
        uint64_t before;
        uint64_t after;
    } memory[] = {
        {"private bytes", before.privateBytes, after.privateBytes},
        {"working set", before.workingSet, after.workingSet},
        {"heap in use", before.heapBytesInUse, after.heapBytesInUse},
    };
    for (const auto& figure : memory) {
        const int64_t growth = Growth(figure.before, figure.after);
        if (growth >= limit) {
            leaks.push_back(std::string(figure.name) + " grew by " + std::to_string(growth) +
                            " bytes, limit " + std::to_string(limit));
        }
    }
    return leaks;
}

// Waits until no helper started by this process is running; returns those still running.
std::vector<DWORD> WaitForHelpersToEnd(const std::vector<DWORD>& runningBefore) {
    const DWORD start = GetTickCount();
    for (;;) {
        std::vector<DWORD> running;
        for (DWORD id : ChildProcessesNamed(GetCurrentProcessId(), kHelperProgram)) {
            if (std::find(runningBefore.begin(), runningBefore.end(), id) == runningBefore.end()) {
                running.push_back(id);
            }
        }
        if (running.empty() || GetTickCount() - start > kHelperExitWaitMs) {
            return running;
        }
        Sleep(100);
    }
}

void Print(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

class SoakTest : public ::testing::Test {
protected:
    // Neither the host nor its helpers write a log: a log file's growth is not the library's.
    ScopedEnvironment m_noLogFile{L"TARNLOG_FILE", nullptr};
    TempDirectory m_restoreDirectory{"soak"};
    std::wstring m_directory = m_restoreDirectory.Path().wstring();
    std::vector<DWORD> m_helpersBefore = ChildProcessesNamed(GetCurrentProcessId(), kHelperProgram);
};

TEST_F(SoakTest, SessionsLeaveNoHandlesMemoryOrHelpersBehind) {
    RecordingFileFound firstCatalogue;
    ASSERT_TRUE(RunSession(Mode::InProcess, m_directory, &firstCatalogue, true))
        << "in-process session 1";
    ASSERT_TRUE(RunSession(Mode::Helper, m_directory, nullptr, true)) << "helper session 1";
    for (int i = 1; i < kWarmUpInProcess; ++i) {
        ASSERT_TRUE(RunSession(Mode::InProcess, m_directory)) << "in-process session " << i + 1;
    }
    for (int i = 1; i < kWarmUpHelper; ++i) {
        ASSERT_TRUE(RunSession(Mode::Helper, m_directory)) << "helper session " << i + 1;
    }
    const ProcessFigures warmUp = MeasureThisProcess();
    Print(FormatFigures("soak warm-up (20 in-process + 20 helper sessions):", warmUp));

    int inProcessSessions = kWarmUpInProcess;
    int helperSessions = kWarmUpHelper;
    for (int round = 1; round <= kRounds; ++round) {
        for (int i = 0; i < kInProcessPerRound; ++i) {
            ++inProcessSessions;
            ASSERT_TRUE(RunSession(Mode::InProcess, m_directory))
                << "in-process session " << inProcessSessions;
        }
        for (int i = 0; i < kHelperPerRound; ++i) {
            ++helperSessions;
            ASSERT_TRUE(RunSession(Mode::Helper, m_directory))
                << "helper session " << helperSessions;
        }
        if (round % kRoundsPerSample == 0 && round != kRounds) {
            Print(FormatFigures("soak after " + std::to_string(inProcessSessions) +
                                    " in-process + " + std::to_string(helperSessions) +
                                    " helper sessions:",
                                MeasureThisProcess()));
        }
    }
    const ProcessFigures end = MeasureThisProcess();
    Print(FormatFigures("soak end (" + std::to_string(inProcessSessions) + " in-process + " +
                            std::to_string(helperSessions) + " helper sessions):",
                        end));
    EXPECT_GE(inProcessSessions, 300);
    EXPECT_GE(helperSessions, 100);

    // Kept on purpose, per in-process session after the warm-up (a helper session's are the
    // helper's, and go with it): the catalogue's strings of every Catalog but the last on one
    // executor. They stay while the executor lives and leave with it at Free, so with one
    // catalogue per session none is left. Nothing else may grow: not a handle.
    const int64_t measuredSessions = inProcessSessions - kWarmUpInProcess;
    const uint64_t stringBytesPerCatalogue = CatalogueStringBytes(firstCatalogue.found);
    const int64_t stringBytesKept = static_cast<int64_t>(stringBytesPerCatalogue) *
                                    (kCataloguesPerSession - 1) * measuredSessions;
    Cost allowance;
    allowance.bytes = stringBytesKept;
    EXPECT_GT(stringBytesPerCatalogue, 0u);

    char line[512];
    std::snprintf(
        line, sizeof line,
        "soak kept on purpose: catalogue strings %zu entries, %llu bytes per "
        "catalogue, %lld kept (%d catalogue per session); allowance over %lld "
        "sessions: %lld handles, %lld bytes",
        firstCatalogue.found.size(), static_cast<unsigned long long>(stringBytesPerCatalogue),
        static_cast<long long>(stringBytesKept), kCataloguesPerSession,
        static_cast<long long>(measuredSessions), static_cast<long long>(allowance.handles),
        static_cast<long long>(allowance.bytes));
    Print(line);
    std::snprintf(line, sizeof line,
                  "soak growth: handles %lld, private bytes %lld, working set %lld, heap in use "
                  "%lld (memory limit %lld bytes)",
                  static_cast<long long>(Growth(warmUp.handles, end.handles)),
                  static_cast<long long>(Growth(warmUp.privateBytes, end.privateBytes)),
                  static_cast<long long>(Growth(warmUp.workingSet, end.workingSet)),
                  static_cast<long long>(Growth(warmUp.heapBytesInUse, end.heapBytesInUse)),
                  static_cast<long long>(kMemoryTolerance + allowance.bytes));
    Print(line);
    for (const std::string& leak : Leaks(warmUp, end, allowance)) {
        ADD_FAILURE() << leak;
    }

    const std::vector<DWORD> leftOver = WaitForHelpersToEnd(m_helpersBefore);
    Print("soak helpers still running: " + std::to_string(leftOver.size()));
    EXPECT_TRUE(leftOver.empty()) << leftOver.size() << " helper programs still running";
}

// The checks above must be able to fail: sessions that a host never frees hold the pipe's
// handle (helper sessions) and the catalogue's storage (in-process sessions).
TEST_F(SoakTest, ChecksSeeSessionsThatAreNotFreed) {
    for (Mode mode : {Mode::InProcess, Mode::Helper}) {
        ASSERT_TRUE(RunSession(mode, m_directory));
    }
    const ProcessFigures before = MeasureThisProcess();
    std::vector<std::unique_ptr<HostSession>> kept;
    for (Mode mode : {Mode::InProcess, Mode::InProcess, Mode::Helper, Mode::Helper}) {
        kept.push_back(OpenSession(mode));
        RecordingFileFound catalogue;
        ASSERT_TRUE(Work(*kept.back(), m_directory, &catalogue));
        DeleteFileW((m_directory + L"\\" + kRestoredFileName).c_str());
    }
    const ProcessFigures after = MeasureThisProcess();
    Print(FormatFigures("soak check, before sessions kept open:", before));
    Print(FormatFigures("soak check, with 2 + 2 sessions open:", after));
    EXPECT_EQ(ChildProcessesNamed(GetCurrentProcessId(), kHelperProgram).size(),
              m_helpersBefore.size() + 2);

    const std::vector<std::string> leaks = Leaks(before, after, Cost());
    const auto found = [&](const std::string& start) {
        return std::any_of(leaks.begin(), leaks.end(), [&](const std::string& leak) {
            return leak.compare(0, start.size(), start) == 0;
        });
    };
    EXPECT_TRUE(found("handles grew")) << "handles " << before.handles << " -> " << after.handles;
    EXPECT_TRUE(found("heap in use grew"))
        << "heap in use " << before.heapBytesInUse << " -> " << after.heapBytesInUse;

    kept.clear();
    EXPECT_TRUE(WaitForHelpersToEnd(m_helpersBefore).empty());
}

}  // namespace
