// bench_pipe_catalogue: the catalogue of 100,000 objects through the pipe executor (helper
// program, real pipe, simulated NetWorker) against the same catalogue in process, and
// against a bare ping-pong over the same kind of pipe: 1,060-byte messages from the client end
// (where the helper sits), 12-byte answers from the server end (where the host sits), between
// two processes. The ping-pong is the floor of a strictly alternating protocol; it runs in the
// protocol's own direction so that both measure the same round trip. Prints one line.
//
// Started as "bench_pipe_catalogue.exe --send <pipe> <rounds>" it is the ping-pong's client end.

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "../../tests/conformance/HostSessions.h"
#include "SimulatorFixture.h"
#include "../../tests/exports/ExportsTestSupport.h"
#include "common/UniqueHandle.h"

namespace {

constexpr unsigned kObjects = 100000;
constexpr DWORD kRequestSize = 1060;  // IpcFileFound
constexpr DWORD kAnswerSize = 12;     // IpcShouldCancel

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The ping-pong's client end plays the helper: it sends `rounds` 1,060-byte messages, each
// answered by the host with 12 bytes, in the direction the catalogue's messages travel.
int SendRounds(const wchar_t* name, unsigned rounds) {
    const std::wstring path = std::wstring(L"\\\\.\\pipe\\") + name;
    UniqueFileHandle pipe(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                      OPEN_EXISTING, 0, nullptr));
    if (!pipe) {
        return 1;
    }
    DWORD mode = PIPE_READMODE_MESSAGE;
    SetNamedPipeHandleState(pipe.get(), &mode, nullptr, nullptr);
    std::vector<unsigned char> request(kRequestSize, 0x5A);
    std::vector<unsigned char> buffer(4108);
    DWORD count = 0;
    for (unsigned i = 0; i < rounds; ++i) {
        if (!WriteFile(pipe.get(), request.data(), kRequestSize, &count, nullptr) ||
            !ReadFile(pipe.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &count,
                      nullptr)) {
            return 1;
        }
    }
    return 0;
}

// Host end of the ping-pong, with the pipe parameters of the library's connection: it reads
// each message and answers it, as the pipe executor does for every catalogue entry.
double PingPongMilliseconds(unsigned rounds) {
    const std::wstring name = UniquePipeName(L"pingpong");
    const std::wstring path = L"\\\\.\\pipe\\" + name;
    UniqueFileHandle pipe(CreateNamedPipeW(path.c_str(), PIPE_ACCESS_DUPLEX,
                                           PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
                                           PIPE_UNLIMITED_INSTANCES, 2048, 2048, 0, nullptr));
    if (!pipe) {
        return -1;
    }
    wchar_t self[MAX_PATH];
    GetModuleFileNameW(nullptr, self, MAX_PATH);
    std::wstring commandLine =
        L"\"" + std::wstring(self) + L"\" --send " + name + L" " + std::to_wstring(rounds);
    std::vector<wchar_t> writable(commandLine.begin(), commandLine.end());
    writable.push_back(L'\0');
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(self, writable.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &info)) {
        return -1;
    }
    UniqueHandle process(info.hProcess);
    UniqueHandle thread(info.hThread);
    if (!ConnectNamedPipe(pipe.get(), nullptr) && GetLastError() != ERROR_PIPE_CONNECTED) {
        return -1;
    }
    const unsigned char answer[kAnswerSize] = {3, 0, 0, 0, 12, 0, 0, 0, 1, 0, 0, 0};
    std::vector<unsigned char> buffer(4108);
    DWORD count = 0;
    unsigned answered = 0;
    Clock::time_point start;
    while (answered < rounds) {
        if (!ReadFile(pipe.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &count,
                      nullptr)) {
            return -1;
        }
        if (answered == 0) {
            start = Clock::now();  // from the first message on, like the catalogue's clock
        }
        if (!WriteFile(pipe.get(), answer, kAnswerSize, &count, nullptr)) {
            return -1;
        }
        ++answered;
    }
    const double elapsed = MillisecondsSince(start);
    WaitForSingleObject(process.get(), 10000);
    DWORD exitCode = 1;
    GetExitCodeProcess(process.get(), &exitCode);
    return exitCode == 0 ? elapsed : -1;
}

class CountFiles : public INetWorkerFileFoundCallBack {
public:
    bool NetWorkerFileFound(const NetWorkerFileInfo*) override {
        ++files;
        return false;
    }
    unsigned files = 0;
};

class IgnoreErrors : public INetWorkerErrorCallBack {
public:
    uint32_t NetWorkerError(uint32_t) override { return 0; }
    uint32_t AllocationError(const NetWorkerAllocationInfo*) override { return 0; }
};

// Catalogue time only; the session start is not counted.
double CatalogueMilliseconds(HostSession& session, unsigned* files) {
    if (session.Initialize("cli", "srv") != 0) {
        return -1;
    }
    CountFiles found;
    IgnoreErrors errors;
    const Clock::time_point start = Clock::now();
    const int32_t status = session.Executor()->Catalog(nullptr, nullptr, &found, &errors);
    const double elapsed = MillisecondsSince(start);
    *files = found.files;
    return status == 0 ? elapsed : -1;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc == 4 && std::wcscmp(argv[1], L"--send") == 0) {
        return SendRounds(argv[2], static_cast<unsigned>(std::wcstoul(argv[3], nullptr, 10)));
    }
    SimulatorOptions options;
    options.objects = kObjects;
    const SimulatorFixture simulator(options);
    if (!simulator.Ready()) {
        std::fprintf(stderr, "bench_pipe_catalogue: %s\n", simulator.Failure().c_str());
        return 1;
    }
    SetEnvironmentVariableW(L"NWSIM_JOURNAL", nullptr);  // no per-call journal lines
    unsigned directFiles = 0;
    unsigned pipeFiles = 0;
    double direct = -1;
    double piped = -1;
    {
        DirectSession session;
        direct = CatalogueMilliseconds(session, &directFiles);
    }
    const double before = PingPongMilliseconds(directFiles);
    {
        PipeSession session(UniquePipeName(L"benchcat"));
        piped = CatalogueMilliseconds(session, &pipeFiles);
    }
    // The floor is the faster of two ping-pong runs, one before and one after the pipe's run:
    // the lower floor keeps the ratio on the safe side when the machine is busy.
    const double after = PingPongMilliseconds(pipeFiles);
    const double pingPong = before < after ? before : after;
    if (direct < 0 || piped < 0 || before <= 0 || after <= 0 || directFiles != pipeFiles) {
        std::fprintf(stderr, "bench_pipe_catalogue: a run failed (files %u/%u)\n", directFiles,
                     pipeFiles);
        return 1;
    }
    std::printf(
        "bench_pipe_catalogue: %u catalogue entries; in process %.0f ms, through the pipe %.0f "
        "ms, bare ping-pong (1060/12 bytes, %u rounds) %.0f ms; pipe/ping-pong %.2f (target "
        "<= 1.25)\n",
        pipeFiles, direct, piped, pipeFiles, pingPong, piped / pingPong);
    return 0;
}
