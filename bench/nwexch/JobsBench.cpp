// bench_nwexch_jobs: what `nwexch restore --jobs N` gains when the server's streams are the
// limit. The simulated server delivers each stream no faster than 32 MiB/s (its throttle, far
// below this machine's disk) and holds eight databases of 64 MiB; nwexch.exe restores all
// eight through the helper with N = 1, 2, 4 and 8 sessions, and, without the throttle, with
// N = 1 and 4. Prints the wall time of each run and the speed-up against N = 1.

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "../../tests/conformance/TestPrograms.h"
#include "SimulatorFixture.h"
#include "TestFiles.h"

namespace {

constexpr int kDatabases = 8;
constexpr uint64_t kDatabaseBytes = 64ull << 20;
constexpr uint64_t kStreamBytesPerSecond = 32ull << 20;

// Runs nwexch.exe with these arguments and NWSIM_FAULTS (for it and its helpers); returns its
// exit code, or -1 when it could not start. Its output goes nowhere.
int RunNwexch(const std::wstring& arguments, const std::wstring& faults) {
    SetEnvironmentVariableW(L"NWSIM_FAULTS", faults.empty() ? nullptr : faults.c_str());
    const int exitCode = RunTestProgram(L"nwexch.exe", arguments, true);
    SetEnvironmentVariableW(L"NWSIM_FAULTS", nullptr);
    return exitCode;
}

// Wall seconds of one whole restore of the eight databases into a new directory, or -1 when
// nwexch did not succeed; the restored files are removed afterwards.
double RestoreSeconds(const TempDirectory& scratch, unsigned jobs, const std::wstring& faults) {
    const std::wstring to =
        scratch.Child(L"jobs-" + std::to_wstring(jobs) + L"-" + std::to_wstring(GetTickCount64()));
    const auto start = std::chrono::steady_clock::now();
    const int exitCode = RunNwexch(
        L"restore --server srv --client cli --mode helper --match "
        L"\"/Bench Storage Group/*\" --flat --to \"" +
            to + L"\" --jobs " + std::to_wstring(jobs),
        faults);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    for (const std::wstring& file : FilesBelow(to)) {
        DeleteFileW(file.c_str());
    }
    RemoveDirectoryW(to.c_str());
    if (exitCode != 0) {
        std::printf("bench_nwexch_jobs: nwexch exited %d with --jobs %u\n", exitCode, jobs);
        return -1;
    }
    return seconds;
}

void Series(const TempDirectory& scratch, const char* name, const std::wstring& faults,
            const std::vector<unsigned>& jobs) {
    double single = 0;
    for (unsigned n : jobs) {
        const double seconds = RestoreSeconds(scratch, n, faults);
        if (n == 1) {
            single = seconds;
        }
        std::printf("bench_nwexch_jobs %s objects=%dx%lluMiB jobs=%u wall=%.2fs speedup=%.2f\n",
                    name, kDatabases, static_cast<unsigned long long>(kDatabaseBytes >> 20), n,
                    seconds, seconds > 0 && single > 0 ? single / seconds : 0.0);
        std::fflush(stdout);
    }
}

}  // namespace

int wmain() {
    SimulatorOptions options;
    const SimulatorFixture simulator(options);
    if (!simulator.Ready()) {
        std::printf("bench_nwexch_jobs: simulator: %s\n", simulator.Failure().c_str());
        return 1;
    }
    for (int i = 1; i <= kDatabases; ++i) {
        std::string output;
        const int added = SimulatorFixture::RunAdmin(
            L"add --root \"" + simulator.StoreRoot() +
                L"\" --server srv --client cli --path \"/Bench Storage Group/Database " +
                std::to_wstring(i) + L".edb\" --size " + std::to_wstring(kDatabaseBytes) +
                L" --resource-type D --create-time \"2024-05-08 23:59:30\"",
            &output);
        if (added != 0) {
            std::printf("bench_nwexch_jobs: nwsim-admin add: %s\n", output.c_str());
            return 1;
        }
    }
    const TempDirectory scratch("bench-jobs");
    Series(scratch, "throttle=32MiB/s", L"throttle=" + std::to_wstring(kStreamBytesPerSecond),
           {1, 2, 4, 8});
    Series(scratch, "throttle=off", L"", {1, 4});
    return 0;
}
