#include "ConversationWorld.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <thread>

#include "FakeApiWrapper.h"
#include "FakeExecutorSystem.h"
#include "InMemoryPipe.h"
#include "RecordingLog.h"
#include "executor/NetWorkerApiExecutor.h"
#include "interfaces/NetWorkerStatus.h"
#include "pipe/PipeMessages.h"
#include "pipeclient/NetWorkerNamedPipeClient.h"
#include "pipeexecutor/NetWorkerNamedPipeExecutor.h"

namespace {

using namespace std::chrono_literals;

// Long enough for a loaded machine under the sanitizers or Wine; a scenario takes milliseconds.
// NWX_EXPLORER_TIME_BOUND_MS shortens it, to list the hangs of a build that has many quickly.
std::chrono::milliseconds TimeBound() {
    const char* setting = std::getenv("NWX_EXPLORER_TIME_BOUND_MS");
    return setting != nullptr ? std::chrono::milliseconds(std::atoi(setting))
                              : std::chrono::milliseconds(10000);
}
constexpr uint32_t kBlockBytes = 100;
constexpr int32_t kXbsaFailure = BSA_RC_ABORT_SYSTEM_ERROR;  // E_FAIL once mapped
constexpr char kHostThrew[] = "the host's callback threw";

std::string Hex(int32_t status) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(status));
    return text;
}

// The dead end of a peer that died: unwinds its thread without running anything more.
struct PeerDied {};

// ---------------------------------------------------------------------------------------------
// The server: three objects (or fewer), each with its own bytes, and one failing call on demand.

class ScriptedServer final : public INetWorkerApiWrapper {
public:
    ScriptedServer(int objects, const Conditions& conditions) : m_conditions(conditions) {
        const char* paths[] = {"\\SG1\\E00.log", "\\SG1\\priv1.edb", "\\SG1\\priv1.stm"};
        const uint32_t sizes[] = {0, kBlockBytes, 3 * kBlockBytes};
        for (int i = 0; i < objects; ++i) {
            m_objects.push_back(MakeDescriptor(paths[i], "D", sizes[i], 2026, 11, 20 + i));
            std::string data(sizes[i], '\0');
            for (uint32_t b = 0; b < sizes[i]; ++b) {
                data[b] = static_cast<char>('a' + (b * 7 + i) % 26);
            }
            m_data.push_back(data);
        }
    }

    void Arm(std::function<void()> duringCall) {
        m_armed = true;
        m_calls.clear();
        m_duringCall = std::move(duringCall);
    }
    void QuitAtCall(int call) { m_quitAtCall = call; }
    void Disarm() { m_armed = false; }
    const std::vector<std::string>& Calls() const { return m_calls; }

    int32_t Initialize() override { return Call("Initialize") ? NetWorkerStatus::Fail : 0; }
    int32_t BSAInit(BSA_Handle* handle, BSA_SecurityToken*, BSA_ObjectOwner*, char**) override {
        if (Call("BSAInit")) {
            return kXbsaFailure;
        }
        *handle = 0x5eed;
        return 0;
    }
    int32_t BSATerminate(BSA_Handle) override { return Call("BSATerminate") ? kXbsaFailure : 0; }
    int32_t BSABeginTxn(BSA_Handle) override { return Call("BSABeginTxn") ? kXbsaFailure : 0; }
    int32_t BSAEndTxn(BSA_Handle) override { return Call("BSAEndTxn") ? kXbsaFailure : 0; }
    int32_t BSAQueryApiVersion(BSA_ApiVersion* version) override {
        Call("BSAQueryApiVersion");
        *version = BSA_ApiVersion{2, 0, 1};
        return 0;
    }
    int32_t BSAQueryObject(BSA_Handle, BSA_QueryDescriptor*,
                           BSA_ObjectDescriptor* descriptor) override {
        if (Call("BSAQueryObject")) {
            return kXbsaFailure;
        }
        m_cursor = 0;
        if (m_objects.empty()) {
            return BSA_RC_NO_MATCH;
        }
        *descriptor = m_objects[0];
        return 0;
    }
    int32_t BSAGetNextQueryObject(BSA_Handle, BSA_ObjectDescriptor* descriptor) override {
        if (Call("BSAGetNextQueryObject")) {
            return kXbsaFailure;
        }
        if (++m_cursor >= m_objects.size()) {
            return BSA_RC_NO_MORE_DATA;
        }
        *descriptor = m_objects[m_cursor];
        return 0;
    }
    int32_t BSAGetObject(BSA_Handle, BSA_ObjectDescriptor* descriptor, BSA_DataBlock32*) override {
        if (Call("BSAGetObject")) {
            return kXbsaFailure;
        }
        m_current = -1;
        for (size_t i = 0; i < m_objects.size(); ++i) {
            if (std::strcmp(m_objects[i].objectName.pathName, descriptor->objectName.pathName) ==
                0) {
                m_current = static_cast<int>(i);
            }
        }
        m_offset = 0;
        return m_current >= 0 ? 0 : BSA_RC_OBJECT_NOT_FOUND;
    }
    int32_t BSAGetData(BSA_Handle, BSA_DataBlock32* block) override {
        if (Call("BSAGetData")) {
            return kXbsaFailure;
        }
        const std::string& data = m_data.at(static_cast<size_t>(m_current));
        const size_t count = std::min<size_t>(kBlockBytes, data.size() - m_offset);
        std::memcpy(block->bufferPtr, data.data() + m_offset, count);
        block->numBytes = static_cast<uint32_t>(count);
        m_offset += count;
        return m_offset == data.size() ? BSA_RC_NO_MORE_DATA : 0;
    }
    int32_t BSAEndData(BSA_Handle) override { return Call("BSAEndData") ? kXbsaFailure : 0; }
    int32_t CorrectFileSize(const BSA_ObjectDescriptor* descriptor, uint64_t* size, const char*,
                            const char*) override {
        if (Call("CorrectFileSize")) {
            return NetWorkerStatus::Fail;
        }
        for (size_t i = 0; i < m_objects.size(); ++i) {
            if (std::strcmp(m_objects[i].objectName.pathName, descriptor->objectName.pathName) ==
                0) {
                *size = m_data[i].size() + 5000000000ull;
            }
        }
        return 0;
    }

private:
    // Records an armed call; true when it is the one that fails.
    bool Call(const char* name) {
        if (!m_armed) {
            return false;
        }
        const int number = static_cast<int>(m_calls.size());
        m_calls.emplace_back(name);
        if (number == m_quitAtCall && m_duringCall) {
            m_duringCall();
        }
        return number == m_conditions.xbsaFailsAtCall;
    }

    Conditions m_conditions;
    std::vector<BSA_ObjectDescriptor> m_objects;
    std::vector<std::string> m_data;
    size_t m_cursor = 0;
    int m_current = -1;
    size_t m_offset = 0;
    bool m_armed = false;
    int m_quitAtCall = -1;
    std::function<void()> m_duringCall;
    std::vector<std::string> m_calls;
};

// Catalogue memory that runs out on demand during the operation.
class ScriptedMemory final : public CatalogueMemory {
public:
    explicit ScriptedMemory(const Conditions& conditions) : m_conditions(conditions) {}
    void Arm() { m_armed = true; }
    void Disarm() { m_armed = false; }

    // The strings live as long as this object, as in the executor's own pool: a repeated
    // catalogue does not free the earlier entries' strings.
    char* AllocateString(size_t bytes) override {
        if (m_armed && m_strings++ == m_conditions.stringsFailAt) {
            throw std::bad_alloc();
        }
        m_owned.emplace_back(new char[bytes]);
        return m_owned.back().get();
    }
    void FreeString(char*) override {}
    void Reserve(CatalogueEntries& entries, size_t count) override {
        if (m_armed && m_conditions.reserveFails) {
            throw std::bad_alloc();
        }
        CatalogueMemory::Reserve(entries, count);
    }

private:
    Conditions m_conditions;
    bool m_armed = false;
    int m_strings = 0;
    std::vector<std::unique_ptr<char[]>> m_owned;
};

// ---------------------------------------------------------------------------------------------
// The host's callbacks: record what they are told and answer as the fault says.

class RecordingHost final : public INetWorkerFileFoundCallBack,
                            public INetWorkerErrorCallBack,
                            public INetWorkerUpdateProgressCallBack {
public:
    RecordingHost(const HostFault& fault, const Conditions& conditions)
        : m_fault(fault), m_conditions(conditions) {}

    void Arm(std::function<void()> quit) {
        m_armed = true;
        m_next = 0;
        m_quit = std::move(quit);
    }
    void Disarm() { m_armed = false; }
    std::vector<std::string> seen;

    bool NetWorkerFileFound(const NetWorkerFileInfo* info) override {
        char line[1200];
        std::snprintf(line, sizeof line, "found %u %s size %llu order %llu %04u-%02u-%02u",
                      info->index, info->path, static_cast<unsigned long long>(info->size),
                      static_cast<unsigned long long>(info->restoreOrder), info->backupTime.wYear,
                      info->backupTime.wMonth, info->backupTime.wDay);
        return Answer(line, true, false, true) != 0;
    }
    bool UpdateProgress(NetWorkerProgressInfo* progress) override {
        return Answer("progress " + std::to_string(progress->state) + " " +
                          std::to_string(progress->bytesDone),
                      true, false, true) != 0;
    }
    uint32_t NetWorkerError(uint32_t code) override {
        const uint32_t normal = code == NwErrorDiskFull ? m_conditions.diskFullAnswer : 0;
        const uint32_t refused = code == NwErrorDiskFull ? NetWorkerWinError::Cancelled : 0;
        return Answer("error " + std::to_string(code), false, normal, refused);
    }
    uint32_t AllocationError(const NetWorkerAllocationInfo* info) override {
        return Answer(
            "allocation " + std::to_string(info->reason) + " " + std::to_string(info->itemsFound),
            false, 0, 0);
    }

private:
    // `normal` is the answer without a fault, `refused` what a refusal or an unreadable answer
    // stands for (stop for the stop questions).
    uint32_t Answer(const std::string& line, bool stopQuestion, uint32_t normal, uint32_t refused) {
        if (!m_armed) {
            return normal;
        }
        const int n = m_next++;
        if (n == m_fault.refuseAt) {
            return refused;
        }
        seen.push_back(line);
        if (n == m_fault.quitAt && m_quit) {
            m_quit();
        }
        if (n == m_fault.throwAt) {
            throw std::runtime_error(kHostThrew);
        }
        if (n == m_fault.stopAt && stopQuestion) {
            return 1;
        }
        if (n == m_fault.overrideAt) {
            return refused;
        }
        return normal;
    }

    HostFault m_fault;
    Conditions m_conditions;
    bool m_armed = false;
    int m_next = 0;
    std::function<void()> m_quit;
};

void CallFromSecondThread(const std::function<void()>& call) {
    std::thread second(call);
    second.join();
}

// ---------------------------------------------------------------------------------------------
// The pipe: both ends over an InMemoryPipe, with one fault in the operation's conversation.

class WireInjector {
public:
    WireInjector(InMemoryPipe& pipe, const WireFault& fault) : m_pipe(pipe), m_fault(fault) {}

    void Arm(std::function<void()> quit) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_armed = true;
        m_quit = std::move(quit);
    }
    void Disarm() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_armed = false;
    }
    std::vector<std::string> Conversation() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_conversation;
    }

    uint32_t Send(bool fromHost, InMemoryPipeEnd& end, const unsigned char* bytes,
                  uint32_t length) {
        WireFault::Kind kind = WireFault::Kind::None;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_armed) {
                const int position = m_position++;
                m_conversation.push_back(std::string(fromHost ? "host " : "helper ") +
                                         std::to_string(IpcReceivedType(bytes, length)));
                if (position == m_fault.position) {
                    kind = m_fault.kind;
                }
            }
        }
        PipeBytes message(bytes, bytes + length);
        switch (kind) {
            case WireFault::Kind::None:
                break;
            case WireFault::Kind::WrongSize:
                SetSizeField(message, static_cast<uint32_t>(message.size()) + 4);
                break;
            case WireFault::Kind::Stray: {
                PipeBytes stray(
                    IpcFixedSize(m_fault.strayType) != 0 ? IpcFixedSize(m_fault.strayType) : 12, 0);
                SetTypeField(stray, m_fault.strayType);
                SetSizeField(stray, static_cast<uint32_t>(stray.size()));
                end.SendBytes(stray);
                break;
            }
            case WireFault::Kind::Short:
                if (fromHost) {
                    message.resize(4);
                } else {
                    end.SendBytes(PipeBytes{5, 0, 0, 0});
                }
                break;
            case WireFault::Kind::ReplaceType:
                if (m_fault.strayType != 0) {
                    // A readable message of the given type in its place.
                    message.assign(IpcFixedSize(m_fault.strayType), 0);
                    SetTypeField(message, m_fault.strayType);
                    SetSizeField(message, IpcFixedSize(m_fault.strayType));
                } else {
                    SetTypeField(message, IpcReceivedType(bytes, length) == IpcTypeShouldCancel
                                              ? IpcTypeNetWorkerErrorResponse
                                              : IpcTypeShouldCancel);
                }
                break;
            case WireFault::Kind::HelperDies:
                m_pipe.ClientEnd().Close();
                throw PeerDied();
            case WireFault::Kind::HostDies:
                m_pipe.ServerEnd().Close();
                throw PeerDied();
            case WireFault::Kind::QuitMeanwhile:
                CallFromSecondThread(m_quit);
                break;
        }
        return end.Send(message.data(), static_cast<uint32_t>(message.size()));
    }

private:
    static void SetTypeField(PipeBytes& message, uint32_t type) {
        std::memcpy(message.data(), &type, sizeof type);
    }
    static void SetSizeField(PipeBytes& message, uint32_t size) {
        std::memcpy(message.data() + 4, &size, sizeof size);
    }

    InMemoryPipe& m_pipe;
    WireFault m_fault;
    mutable std::mutex m_mutex;
    bool m_armed = false;
    int m_position = 0;
    std::function<void()> m_quit;
    std::vector<std::string> m_conversation;
};

class FaultyEnd final : public INamedPipeConnection {
public:
    FaultyEnd(InMemoryPipeEnd& end, WireInjector& injector, bool host)
        : m_end(end), m_injector(injector), m_host(host) {}
    void OpenNewPipe(const wchar_t* name) override { m_end.OpenNewPipe(name); }
    void WaitForConnection() override { m_end.WaitForConnection(); }
    void OpenExisting(const wchar_t* name, uint32_t timeout) override {
        m_end.OpenExisting(name, timeout);
    }
    bool Receive(unsigned char* buffer, uint32_t* length) override {
        return m_end.Receive(buffer, length);
    }
    uint32_t Send(const unsigned char* buffer, uint32_t length) override {
        return m_injector.Send(m_host, m_end, buffer, length);
    }

private:
    InMemoryPipeEnd& m_end;
    WireInjector& m_injector;
    bool m_host;
};

// The helper's executor, watched: whether an operation is running inside it.
class WatchedExecutor final : public INetWorkerExecutor {
public:
    explicit WatchedExecutor(INetWorkerExecutor& inner) : m_inner(inner) {}
    bool Inside() const { return m_inside.load() != 0; }

    int32_t Initialize(const char* c, const char* s) override {
        return Watch([&] { return m_inner.Initialize(c, s); });
    }
    int32_t Catalog(const FILETIME* b, const FILETIME* a, INetWorkerFileFoundCallBack* f,
                    INetWorkerErrorCallBack* e) override {
        return Watch([&] { return m_inner.Catalog(b, a, f, e); });
    }
    int32_t GetFileSize(uint32_t i, bool c, uint64_t* s) override {
        return Watch([&] { return m_inner.GetFileSize(i, c, s); });
    }
    int32_t BeginExtract() override {
        return Watch([&] { return m_inner.BeginExtract(); });
    }
    int32_t ExtractFile(uint32_t i, const wchar_t* d, const wchar_t* f,
                        INetWorkerUpdateProgressCallBack* p, INetWorkerErrorCallBack* e) override {
        return Watch([&] { return m_inner.ExtractFile(i, d, f, p, e); });
    }
    int32_t EndExtract() override {
        return Watch([&] { return m_inner.EndExtract(); });
    }
    int32_t Quit() override { return m_inner.Quit(); }

private:
    template <typename Call>
    int32_t Watch(Call call) {
        ++m_inside;
        struct Leave {
            std::atomic<int>& inside;
            ~Leave() { --inside; }
        } leave{m_inside};
        return call();
    }

    INetWorkerExecutor& m_inner;
    std::atomic<int> m_inside{0};
};

// ---------------------------------------------------------------------------------------------
// One session's sequence: the operations before the one under test, the operation, the
// follow-up.

constexpr wchar_t kDirectory[] = L"C:\\restore\\sg1";

std::wstring FileNameOf(uint32_t index) {
    return L"object" + std::to_wstring(index) + L".dat";
}

uint32_t FollowUpIndex(const Plan& plan) {
    return plan.operation == Operation::Catalog ? 0u : (plan.index + 1) % 3;
}

struct Preamble {
    bool catalog = false;
    bool beginExtract = false;
};

Preamble PreambleOf(Operation operation) {
    Preamble preamble;
    preamble.catalog = operation != Operation::Initialize && operation != Operation::Catalog;
    preamble.beginExtract =
        operation == Operation::ExtractFile || operation == Operation::EndExtract;
    return preamble;
}

// The operations before the one under test, without faults: a session opened, a catalogue taken
// and an extraction begun, as the operation needs.
void RunPreamble(INetWorkerExecutor& executor, Operation operation) {
    const Preamble preamble = PreambleOf(operation);
    RecordingHost quiet(HostFault{}, Conditions{});
    if (operation != Operation::Initialize) {
        executor.Initialize("exchange01", "backup01");
    }
    if (preamble.catalog) {
        executor.Catalog(nullptr, nullptr, &quiet, &quiet);
    }
    if (preamble.beginExtract) {
        executor.BeginExtract();
    }
}

std::string ExceptionText(const std::exception_ptr& thrown) {
    try {
        std::rethrow_exception(thrown);
    } catch (const PeerDied&) {
        return "peer died";
    } catch (const std::exception& e) {
        return std::string("exception: ") + e.what();
    } catch (...) {
        return "exception of another type";
    }
}

// Runs the operation under test on `executor` and describes its outcome.
std::string RunOperation(INetWorkerExecutor& executor, const Plan& plan, RecordingHost& host) {
    switch (plan.operation) {
        case Operation::Initialize:
            return "status " + Hex(executor.Initialize("exchange01", "backup01"));
        case Operation::Catalog:
            return "status " + Hex(executor.Catalog(nullptr, nullptr, &host, &host));
        case Operation::GetFileSizeCatalogued:
        case Operation::GetFileSizeCorrected: {
            uint64_t size = 77;
            const int32_t status = executor.GetFileSize(
                plan.index, plan.operation == Operation::GetFileSizeCorrected, &size);
            return "status " + Hex(status) + " size " + std::to_string(size);
        }
        case Operation::BeginExtract:
            return "status " + Hex(executor.BeginExtract());
        case Operation::ExtractFile:
            return "status " +
                   Hex(executor.ExtractFile(plan.index, kDirectory, FileNameOf(plan.index).c_str(),
                                            &host, &host));
        case Operation::EndExtract:
            return "status " + Hex(executor.EndExtract());
    }
    return "";
}

std::string Guarded(const std::function<std::string()>& run) {
    try {
        return run();
    } catch (...) {
        return ExceptionText(std::current_exception());
    }
}

// The follow-up: a catalogue, a size, and the extraction of another object, each described with
// what the host was told.
std::vector<std::string> RunFollowUp(INetWorkerExecutor& executor, const Plan& plan,
                                     const FakeSystem& system) {
    std::vector<std::string> lines;
    RecordingHost host(HostFault{}, Conditions{});
    host.Arm(nullptr);
    const uint32_t other = FollowUpIndex(plan);
    lines.push_back("catalog " +
                    Guarded([&] { return Hex(executor.Catalog(nullptr, nullptr, &host, &host)); }));
    lines.push_back("size " + Guarded([&] {
                        uint64_t size = 77;
                        const int32_t status = executor.GetFileSize(other, false, &size);
                        return Hex(status) + " " + std::to_string(size);
                    }));
    lines.push_back("begin " + Guarded([&] { return Hex(executor.BeginExtract()); }));
    lines.push_back("extract " + Guarded([&] {
                        return Hex(executor.ExtractFile(other, kDirectory,
                                                        FileNameOf(other).c_str(), &host, &host));
                    }));
    // Without a progress callback nothing replaces a stop left over from the operation.
    lines.push_back("extract without progress " + Guarded([&] {
                        return Hex(
                            executor.ExtractFile(other, kDirectory, L"again.dat", nullptr, &host));
                    }));
    lines.push_back("end " + Guarded([&] { return Hex(executor.EndExtract()); }));
    lines.insert(lines.end(), host.seen.begin(), host.seen.end());
    for (const std::wstring& name : {FileNameOf(other), std::wstring(L"again.dat")}) {
        const std::wstring path = std::wstring(kDirectory) + L"\\" + name;
        lines.push_back("file " + std::string(system.FileExists(path) ? "" : "missing ") +
                        std::to_string(system.Content(path).size()));
    }
    return lines;
}

FakeSystem MakeSystem(const Conditions& conditions) {
    FakeSystem system;
    for (uint32_t tick = 1; tick <= 200; ++tick) {
        system.ticks.push_back(tick * 1000);  // every block is reported
    }
    if (conditions.diskFullAtWrite >= 0) {
        system.failWriteAt[conditions.diskFullAtWrite] = NetWorkerWinError::DiskFull;
    }
    return system;
}

void RecordFiles(const FakeSystem& system, Observation* observation) {
    observation->files = system.files;
    observation->openFiles = system.openFiles.size();
}

// The executor's side of a run, in either mode: the scripted server, catalogue memory and file
// system, and the real executor over them.
class ExecutorWorld {
public:
    ExecutorWorld(const Plan& plan, const Conditions& conditions)
        : server(plan.objects, conditions),
          memory(conditions),
          system(MakeSystem(conditions)),
          executor(&server, Seams()) {}

    // The operation under test begins: its XBSA calls are counted and recorded (`duringCall`
    // runs inside the one that QuitAtCall names), its memory may run out.
    void Arm(std::function<void()> duringCall = nullptr) {
        server.Arm(std::move(duringCall));
        memory.Arm();
    }
    void Disarm() {
        memory.Disarm();
        server.Disarm();
    }

    ScriptedServer server;
    ScriptedMemory memory;
    FakeSystem system;
    NetWorkerApiExecutor executor;

private:
    ExecutorSeams Seams() {
        ExecutorSeams seams;
        seams.memory = &memory;
        seams.system = &system;
        return seams;
    }
};

}  // namespace

// ---------------------------------------------------------------------------------------------

Observation RunInProcess(const Plan& plan, const Conditions& conditions, const HostFault& fault,
                         const InProcessRun& run) {
    Observation observation;
    ExecutorWorld world(plan, conditions);
    NetWorkerApiExecutor& executor = world.executor;
    RecordingHost host(fault, conditions);

    RunPreamble(executor, plan.operation);
    const auto quit = [&] { CallFromSecondThread([&] { executor.Quit(); }); };
    world.Arm(quit);
    world.server.QuitAtCall(run.quitAtXbsaCall);
    host.Arm(quit);
    if (!run.skipOperation) {
        observation.outcome = Guarded([&] { return RunOperation(executor, plan, host); });
    }
    host.Disarm();
    world.Disarm();
    observation.callbacks = host.seen;
    observation.xbsaCalls = world.server.Calls();
    RecordFiles(world.system, &observation);
    if (run.quitBeforeFollowUp) {
        executor.Quit();
    }
    observation.followUp = RunFollowUp(executor, plan, world.system);
    return observation;
}

namespace {

long NoLaunch(const wchar_t*) {
    return 0;
}

// Waits for `done` within the time bound.
bool WaitFor(std::future<void>& done) {
    return done.wait_for(TimeBound()) == std::future_status::ready;
}

}  // namespace

Observation RunThroughPipe(const Plan& plan, const Conditions& conditions, const HostFault& fault,
                           const WireFault& wire) {
    Observation observation;
    InMemoryPipe pipe;
    WireInjector injector(pipe, wire);
    FaultyEnd hostEnd(pipe.ServerEnd(), injector, true);
    FaultyEnd helperEnd(pipe.ClientEnd(), injector, false);

    ExecutorWorld world(plan, conditions);
    WatchedExecutor watched(world.executor);
    RecordingLog helperLog(L"NetWorker64BitClient");
    helperLog.SetLevel(LogLevelError);

    std::promise<void> helperEnded;
    std::future<void> helperDone = helperEnded.get_future();
    std::thread helper([&] {
        try {
            NetWorkerNamedPipeClient client(L"explorer", &helperEnd, &watched, &helperLog);
            client.Run();
        } catch (const PeerDied&) {
            observation.helperFailure = "died";
        } catch (const std::exception& e) {
            observation.helperFailure = e.what();
        } catch (...) {
            observation.helperFailure = "exception of another type";
        }
        pipe.ClientEnd().Close();  // the helper program ends, and its end of the pipe with it
        helperEnded.set_value();
    });

    NetWorkerNamedPipeExecutor executor(L"explorer", &hostEnd, NoLaunch);
    RecordingHost host(fault, conditions);
    bool filesRecorded = false;
    std::promise<void> hostEnded;
    std::future<void> hostDone = hostEnded.get_future();
    std::thread hostThread([&] {
        const auto quit = [&] { CallFromSecondThread([&] { executor.Quit(); }); };
        try {
            RunPreamble(executor, plan.operation);
        } catch (...) {
            observation.outcome = "preamble failed: " + ExceptionText(std::current_exception());
            hostEnded.set_value();
            return;
        }
        world.Arm();
        host.Arm(quit);
        injector.Arm(quit);
        observation.outcome = Guarded([&] { return RunOperation(executor, plan, host); });
        // The helper must have finished the operation too, and sent nothing more.
        if (watched.Inside()) {
            observation.stepProblem = "the helper was still inside the operation";
        } else if (pipe.ServerEnd().PendingCount() != 0) {
            observation.stepProblem = "the helper sent more after the final message";
        }
        injector.Disarm();
        host.Disarm();
        // Only a helper that waits for the next request may be looked at from here.
        const bool helperIdle = observation.outcome != "peer died" &&
                                observation.stepProblem.empty() &&
                                wire.kind != WireFault::Kind::HelperDies;
        if (helperIdle) {
            world.Disarm();
            // The helper waits for the next request: its files are the operation's result.
            RecordFiles(world.system, &observation);
            filesRecorded = true;
            observation.followUp = RunFollowUp(executor, plan, world.system);
        }
        hostEnded.set_value();
    });

    observation.finished = WaitFor(hostDone);
    // The host frees its connection: the helper's loop ends (or, after a hang, both unblock).
    pipe.ServerEnd().Close();
    if (!observation.finished) {
        pipe.ClientEnd().Close();
    }
    observation.helperEnded = WaitFor(helperDone);
    if (!observation.helperEnded) {
        pipe.ClientEnd().Close();
    }
    hostThread.join();
    helper.join();
    world.Disarm();
    observation.callbacks = host.seen;
    observation.xbsaCalls = world.server.Calls();
    observation.conversation = injector.Conversation();
    if (!filesRecorded) {
        RecordFiles(world.system, &observation);  // what the helper left when its host went
    }
    return observation;
}

uint32_t StopQuestionOf(Operation operation) {
    switch (operation) {
        case Operation::Catalog:
            return IpcTypeFileFound;
        case Operation::ExtractFile:
            return IpcTypeUpdateProgress;
        default:
            return 0;
    }
}

uint32_t FinalTypeOf(Operation operation) {
    switch (operation) {
        case Operation::Initialize:
            return IpcTypeFinishInitialize;
        case Operation::Catalog:
            return IpcTypeFinishCatalog;
        case Operation::GetFileSizeCatalogued:
        case Operation::GetFileSizeCorrected:
            return IpcTypeFinishGetFileSize;
        case Operation::BeginExtract:
            return IpcTypeFinishBeginExtract;
        case Operation::ExtractFile:
            return IpcTypeFinishExtractFile;
        case Operation::EndExtract:
            return IpcTypeFinishEndExtract;
    }
    return 0;
}

std::string Conditions::Name() const {
    std::string name;
    if (xbsaFailsAtCall >= 0) {
        name += " xbsa-call-" + std::to_string(xbsaFailsAtCall) + "-fails";
    }
    if (diskFullAtWrite >= 0) {
        name += " disk-full-at-write-" + std::to_string(diskFullAtWrite) + "-answered-" +
                std::to_string(diskFullAnswer);
    }
    if (stringsFailAt >= 0) {
        name += " string-" + std::to_string(stringsFailAt) + "-out-of-memory";
    }
    if (reserveFails) {
        name += " catalogue-growth-out-of-memory";
    }
    return name;
}

std::string HostFault::Name() const {
    std::string name;
    if (throwAt >= 0) {
        name += " callback-" + std::to_string(throwAt) + "-throws";
    }
    if (stopAt >= 0) {
        name += " callback-" + std::to_string(stopAt) + "-answers-stop";
    }
    if (quitAt >= 0) {
        name += " quit-during-callback-" + std::to_string(quitAt);
    }
    return name;
}

std::string WireFault::Name() const {
    const char* names[] = {"",           "wrong-size-field", "stray-type-", "short-message",
                           "other-type", "helper-dies",      "host-dies",   "quit-meanwhile"};
    std::string name = names[static_cast<int>(kind)];
    if (kind == Kind::Stray) {
        name += std::to_string(strayType);
    }
    return kind == Kind::None ? "" : " " + name + "-at-message-" + std::to_string(position);
}
