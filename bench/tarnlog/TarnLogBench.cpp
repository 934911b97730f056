// What a TarnLog call costs: a Trace with tracing off (every traced method pays it twice), a
// Trace and a formatted Info written to a file. Prints one line.

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "interfaces/LoggerApi.h"

namespace {

template <typename Body>
double NanosecondsPerCall(int calls, Body body) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; ++i) {
        body(i);
    }
    const auto elapsed = std::chrono::steady_clock::now() - start;
    return std::chrono::duration<double, std::nano>(elapsed).count() / calls;
}

std::wstring TemporaryLogPath() {
    wchar_t directory[MAX_PATH];
    const DWORD length = GetTempPathW(MAX_PATH, directory);
    return std::wstring(directory, length) + L"bench-tarnlog-" +
           std::to_wstring(GetCurrentProcessId()) + L".log";
}

}  // namespace

int main() {
    const std::wstring path = TemporaryLogPath();
    DeleteFileW(path.c_str());
    SetEnvironmentVariableW(L"TARNLOG_FILE", path.c_str());
    SetEnvironmentVariableW(L"TARNLOG_LEVEL", L"info");
    SetEnvironmentVariableW(L"TARNLOG_FAIL_NAMES", nullptr);

    ILog* log = nullptr;
    if (GetLogger(L"Bench", &log) != 0) {
        std::fprintf(stderr, "bench_tarnlog: GetLogger failed\n");
        return 1;
    }
    constexpr int kDisabledCalls = 20000000;
    constexpr int kWrittenCalls = 20000;
    // The floor: a virtual call into the DLL that does nothing but read the level.
    const double floor = NanosecondsPerCall(kDisabledCalls, [log](int) { (void)log->GetLevel(); });
    const double traceOff = NanosecondsPerCall(
        kDisabledCalls, [log](int) { log->Trace(L"Bench::Run", L"Method Start"); });
    const double debugOff = NanosecondsPerCall(kDisabledCalls, [log](int i) {
        log->Debug(L"Bench::Run", L"Cataloging file index %lu, path: %S",
                   static_cast<unsigned long>(i), "/EXCH/db.edb");
    });
    log->SetLevel(LogLevelTrace);
    const double traceOn = NanosecondsPerCall(
        kWrittenCalls, [log](int) { log->Trace(L"Bench::Run", L"Method Start"); });
    const double infoOn = NanosecondsPerCall(kWrittenCalls, [log](int i) {
        log->Info(L"Bench::Run", L"Found %u items. m_smVecObjects  size = %u, capacity = %u.\n",
                  static_cast<unsigned>(i), static_cast<unsigned>(i), 1024u);
    });
    FreeLogger(log);
    DeleteFileW(path.c_str());

    std::printf(
        "bench_tarnlog: GetLevel %.1f ns/call, trace off %.1f ns/call, debug off %.1f ns/call; "
        "written to file: trace %.0f ns/line, formatted info %.0f ns/line\n",
        floor, traceOff, debugOff, traceOn, infoOn);
    return 0;
}
