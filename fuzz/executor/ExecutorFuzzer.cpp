// NetWorkerApiExecutor's catalogue and extraction against a scripted XBSA library and an
// in-memory file system, all steered by the input: random descriptors, return codes of every
// call, buffer lengths and short deliveries, write failures (a full disk among them), callback
// answers, callbacks that throw, Quit at any callback. Checks what must hold on every path:
// no record handed to the library lacks headroom for a longer one, the catalogue's transaction
// is ended, every extraction ends the object's data and closes its file, a file that was not
// extracted completely is not left behind, a kept file holds the object's bytes from the start,
// and only the expected exceptions leave the executor.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "FakeApiWrapper.h"
#include "FakeExecutorSystem.h"
#include "RecordingLog.h"
#include "common/LastError.h"
#include "executor/NetWorkerApiExecutor.h"
#include "interfaces/NetWorkerStatus.h"

namespace {

void Check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// What a host's callback throws here; nothing else may come out of the executor but this and
// the refused time window.
struct HostGone : std::runtime_error {
    HostGone() : std::runtime_error("the host went away") {}
};

// XBSA return codes: the mapped failures, nothing found, end of data, success and strays.
int32_t PickReturnCode(FuzzedDataProvider& input) {
    static const int32_t kCodes[] = {0,  0,  0,  2,  3,  4,  5,  6,  11, 17, 18, 26,  32,
                                     52, 75, 77, 78, 79, 80, 81, 83, 85, 86, -1, 1000};
    return input.PickValueInArray(kCodes);
}

std::string PickPath(FuzzedDataProvider& input) {
    static const char* const kPaths[] = {
        "/First Storage Group/Mailbox Store (EX01).edb",
        "/First Storage Group/Mailbox Store (EX01).STM",
        "/First Storage Group/E00000101.log",
        "/First Storage Group/E00.chk",
        "/Directory",
        "/private information store",
        "/Second Storage Group/Private Mailboxes/x.edb",
        "a.b",
        "",
    };
    if (input.ConsumeBool()) {
        return input.PickValueInArray(kPaths);
    }
    return input.ConsumeRandomLengthString(40);
}

BSA_ObjectDescriptor PickDescriptor(FuzzedDataProvider& input) {
    BSA_ObjectDescriptor descriptor{};
    const std::string path = PickPath(input);
    std::strncpy(descriptor.objectName.pathName, path.c_str(),
                 sizeof descriptor.objectName.pathName - 1);
    const std::string space = input.ConsumeRandomLengthString(20);
    std::strncpy(descriptor.objectName.objectSpaceName, space.c_str(),
                 sizeof descriptor.objectName.objectSpaceName - 1);
    static const char* const kTypes[] = {"D", "L", "M", "DL", ""};
    std::strcpy(descriptor.resourceType, input.PickValueInArray(kTypes));
    // Unterminated text arrays, as a server may send them.
    if (input.ConsumeBool()) {
        std::memset(descriptor.objectInfo, 'i', sizeof descriptor.objectInfo);
    }
    descriptor.createTime.tm_year = input.ConsumeIntegralInRange(-2000, 30000);
    descriptor.createTime.tm_mon = input.ConsumeIntegralInRange(-1, 12);
    descriptor.createTime.tm_mday = input.ConsumeIntegralInRange(0, 32);
    descriptor.createTime.tm_hour = input.ConsumeIntegralInRange(0, 24);
    descriptor.size.left = input.ConsumeIntegral<uint32_t>();
    descriptor.size.right = input.ConsumeIntegral<uint32_t>();
    descriptor.restoreOrder.right = input.ConsumeIntegral<uint32_t>();
    return descriptor;
}

FILETIME PickBound(FuzzedDataProvider& input) {
    FILETIME bound{};
    bound.dwHighDateTime = input.ConsumeIntegralInRange<uint32_t>(0x01D00000u, 0x01E00000u);
    bound.dwLowDateTime = input.ConsumeIntegral<uint32_t>();
    return bound;
}

// The host's callbacks: answers and throws come from the input; Quit may come from inside.
class Host : public INetWorkerFileFoundCallBack,
             public INetWorkerErrorCallBack,
             public INetWorkerUpdateProgressCallBack {
public:
    Host(FuzzedDataProvider& input, NetWorkerApiExecutor& executor)
        : m_input(input), m_executor(executor) {}

    bool NetWorkerFileFound(const NetWorkerFileInfo* file) override {
        Check(file != nullptr && file->path != nullptr);
        Check(file->index == foundIndexes.size());
        foundIndexes.push_back(file->index);
        return Answer();
    }

    uint32_t NetWorkerError(uint32_t code) override {
        Act();
        static const uint32_t kAnswers[] = {1246, 1246, 0, 1223, 0x80004005u, 7};
        const uint32_t answer = m_input.PickValueInArray(kAnswers);
        if (code == NwErrorDiskFull && answer != 1246) {
            refusedDiskFull = true;
        }
        return answer;
    }

    uint32_t AllocationError(const NetWorkerAllocationInfo* info) override {
        Check(info != nullptr);
        Act();
        return 0;
    }

    bool UpdateProgress(NetWorkerProgressInfo* progress) override {
        Check(progress != nullptr && progress->state == 1);
        return Answer();
    }

    std::vector<uint32_t> foundIndexes;
    bool refusedDiskFull = false;

private:
    // Throws or quits now and then.
    void Act() {
        const uint8_t action = m_input.ConsumeIntegral<uint8_t>();
        if (action < 6) {
            throw HostGone();
        }
        if (action < 12) {
            m_executor.Quit();
        }
    }

    bool Answer() {
        Act();
        return m_input.ConsumeIntegral<uint8_t>() < 20;
    }

    FuzzedDataProvider& m_input;
    NetWorkerApiExecutor& m_executor;
};

size_t Count(const std::vector<std::string>& calls, const char* name) {
    return static_cast<size_t>(std::count(calls.begin(), calls.end(), name));
}

void RunCatalog(FuzzedDataProvider& input, FakeApiWrapper& wrapper, NetWorkerApiExecutor& executor,
                Host& host) {
    wrapper.beginTxnResult = PickReturnCode(input);
    wrapper.queryRc = input.ConsumeBool() ? -1 : PickReturnCode(input);
    wrapper.nextRcAt.clear();
    for (int i = input.ConsumeIntegralInRange(0, 2); i > 0; --i) {
        wrapper.nextRcAt[input.ConsumeIntegralInRange(0, 8)] = PickReturnCode(input);
    }
    const bool withBefore = input.ConsumeBool();
    const bool withAfter = input.ConsumeBool();
    const FILETIME before = PickBound(input);
    const FILETIME after = PickBound(input);
    const bool reversed = withBefore && withAfter &&
                          (uint64_t{after.dwHighDateTime} << 32 | after.dwLowDateTime) >
                              (uint64_t{before.dwHighDateTime} << 32 | before.dwLowDateTime);
    const bool withFileFound = input.ConsumeBool();

    wrapper.calls.clear();
    host.foundIndexes.clear();
    bool threw = false;
    try {
        const int32_t status =
            executor.Catalog(withBefore ? &before : nullptr, withAfter ? &after : nullptr,
                             withFileFound ? &host : nullptr, &host);
        Check(status == NetWorkerStatus::Success);
    } catch (const HostGone&) {
        threw = true;
    } catch (const std::invalid_argument&) {
        Check(reversed);
        threw = true;
    }
    // The transaction is ended on every way out, and last.
    Check(Count(wrapper.calls, "BSABeginTxn") == 1);
    Check(Count(wrapper.calls, "BSAEndTxn") == 1);
    Check(wrapper.calls.back() == "BSAEndTxn");
    if (!threw && withFileFound) {
        Check(host.foundIndexes.size() == executor.CatalogueSize());
    }
}

void RunExtraction(FuzzedDataProvider& input, FakeApiWrapper& wrapper, FakeSystem& system,
                   NetWorkerApiExecutor& executor, Host& host) {
    static const wchar_t* const kDirectories[] = {
        L"C:\\out", L"C:\\out\\",      L"C:\\out\\a\\b",       L"C:",
        L"C:x",     L"\\\\srv\\share", L"\\\\srv\\share\\sub", L"C:\\file.edb",
    };
    static const wchar_t* const kNames[] = {L"db.edb", L"E00.log", L""};
    const std::wstring directory = input.PickValueInArray(kDirectories);
    const std::wstring name = input.PickValueInArray(kNames);
    const std::wstring path =
        directory + (directory.empty() || directory.back() == L'\\' ? L"" : L"\\") + name;
    const uint32_t catalogued = static_cast<uint32_t>(executor.CatalogueSize());
    const uint32_t index = input.ConsumeIntegralInRange<uint32_t>(0, catalogued + 1);

    wrapper.data.assign(input.ConsumeIntegralInRange<size_t>(0, 70000), '\0');
    for (size_t i = 0; i < wrapper.data.size(); ++i) {
        wrapper.data[i] = static_cast<char>(i * 131 + i / 251);
    }
    wrapper.blockLimit =
        input.ConsumeBool() ? 0xFFFFFFFFu : input.ConsumeIntegralInRange<uint32_t>(1, 70000);
    wrapper.bufferLenWanted = input.ConsumeBool() ? 0 : input.ConsumeIntegral<uint32_t>();
    wrapper.getObjectRc = input.ConsumeBool() ? 0 : PickReturnCode(input);
    wrapper.getDataRcAt.clear();
    wrapper.getDataNumBytesAt.clear();
    wrapper.endDataResult = PickReturnCode(input);
    for (int i = input.ConsumeIntegralInRange(0, 2); i > 0; --i) {
        wrapper.getDataRcAt[input.ConsumeIntegralInRange(0, 6)] = PickReturnCode(input);
    }
    if (input.ConsumeIntegral<uint8_t>() < 16) {
        // One more byte than the buffer holds: refused, never written. The executor reads the
        // count as 16 bits (70000 would be 4464, written as such), and its buffer is the
        // server's wish as 16 bits, at least 16384; a 65535-byte buffer cannot be overrun.
        const uint32_t bufferSize =
            std::max<uint32_t>(static_cast<uint16_t>(wrapper.bufferLenWanted), 16384);
        const int call = input.ConsumeIntegralInRange(0, 6);
        if (bufferSize < 0xFFFF) {
            wrapper.getDataNumBytesAt[call] = bufferSize + 1;
        }
    }

    system.failWriteAt.clear();
    system.shortWriteAt.clear();
    system.failDirectory.clear();
    system.failCreate.clear();
    system.failDelete.clear();
    system.writeCalls = 0;
    for (int i = input.ConsumeIntegralInRange(0, 3); i > 0; --i) {
        const int call = input.ConsumeIntegralInRange(0, 6);
        if (input.ConsumeBool()) {
            system.failWriteAt[call] = input.ConsumeBool() ? NetWorkerWinError::DiskFull : 5;
        } else {
            system.shortWriteAt[call] = input.ConsumeIntegralInRange<uint32_t>(0, 20000);
        }
    }
    if (input.ConsumeIntegral<uint8_t>() < 16) {
        system.failDirectory[L"C:\\out"] = input.ConsumeIntegralInRange<uint32_t>(0, 6);
    }
    if (input.ConsumeIntegral<uint8_t>() < 16) {
        system.failCreate[path] = input.ConsumeIntegralInRange<uint32_t>(0, 6);
    }
    const bool deleteFails = input.ConsumeIntegral<uint8_t>() < 16;
    if (deleteFails) {
        system.failDelete[path] = 32;
    }
    for (int i = input.ConsumeIntegralInRange(0, 4); i > 0; --i) {
        system.ticks.push_back(input.ConsumeIntegral<uint32_t>());
    }
    const bool withProgress = input.ConsumeBool();
    const bool withError = input.ConsumeBool();
    // Without an error callback a full disk counts as refused.
    bool diskFullUnanswered = false;
    for (const auto& failure : system.failWriteAt) {
        diskFullUnanswered =
            diskFullUnanswered || (!withError && failure.second == NetWorkerWinError::DiskFull);
    }
    const bool existedBefore = system.FileExists(path);

    wrapper.calls.clear();
    host.refusedDiskFull = false;
    bool threw = false;
    int32_t status = 0;
    try {
        status = executor.ExtractFile(index, directory.c_str(), name.c_str(),
                                      withProgress ? &host : nullptr, withError ? &host : nullptr);
    } catch (const HostGone&) {
        threw = true;
    }
    // The data is ended exactly once, last; no file is left open.
    Check(Count(wrapper.calls, "BSAEndData") == 1);
    Check(wrapper.calls.back() == "BSAEndData");
    Check(system.openFiles.empty());
    if (index >= catalogued) {
        Check(!threw && status == NetWorkerStatus::InvalidArgument);
        Check(system.FileExists(path) == existedBefore);
        return;
    }
    // A host's exception after the object's data had ended leaves the file as the transfer's
    // status did: then it is checked as a kept file below.
    const bool keptAfterThrow = threw && !deleteFails && system.FileExists(path);
    if (keptAfterThrow) {
        Check(wrapper.lastGetDataRc == BSA_RC_NO_MORE_DATA);
    }
    const bool failed =
        (threw && !keptAfterThrow) || status < 0 || status == NetWorkerStatus::Cancelled;
    if (failed) {
        // Not extracted completely: not left behind, unless deleting it was made to fail.
        Check(!system.FileExists(path) || deleteFails);
        return;
    }
    // Kept: the object's bytes from the start; all that the server delivered (it may end the
    // data early with 18) unless a full disk was refused.
    Check(system.FileExists(path));
    const std::string content = system.Content(path);
    Check(content.size() <= wrapper.dataDelivered);
    Check(wrapper.data.compare(0, content.size(), content) == 0);
    if (!host.refusedDiskFull && !diskFullUnanswered) {
        Check(content.size() == wrapper.dataDelivered);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    TestLoggers::Reset();
    FakeApiWrapper wrapper;
    // Every record the executor hands over is read and written 4 KiB beyond our declaration.
    wrapper.oversizedRecords = true;
    FakeSystem system;
    ExecutorSeams seams;
    seams.system = &system;
    NetWorkerApiExecutor executor(&wrapper, seams);
    Host host(input, executor);

    wrapper.initResult = input.ConsumeBool() ? 0 : PickReturnCode(input);
    executor.Initialize("cli", "srv");
    for (int i = input.ConsumeIntegralInRange(0, 8); i > 0; --i) {
        wrapper.objects.push_back(PickDescriptor(input));
    }
    int rounds = input.ConsumeIntegralInRange(1, 6);
    while (rounds-- > 0 && input.remaining_bytes() > 0) {
        if (input.ConsumeIntegral<uint8_t>() < 64) {
            RunCatalog(input, wrapper, executor, host);
        } else {
            RunExtraction(input, wrapper, system, executor, host);
        }
    }
    return 0;
}
