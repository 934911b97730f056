// bench_executor_catalogue: a catalogue of 100,000 objects through NetWorkerApiExecutor and
// NetWorkerApiWrapper over the simulated server, against a bare loop of BSAQueryObject /
// BSAGetNextQueryObject on the simulator's libbsa.dll; rounds alternate so both see the same
// machine. Also the memory the executor's catalogue holds per entry beyond its strings.
// Logging through TarnLog.dll at its default level (tracing off). Prints one line.

#include <cstdio>
#include <memory>
#include <new>

#include "BenchSupport.h"
#include "SimulatorFixture.h"
#include "executor/ExchangeObjectRules.h"
#include "executor/NetWorkerApiExecutor.h"
#include "networker/NetWorkerApiWrapper.h"

namespace {

constexpr unsigned kObjects = 100000;
constexpr int kRounds = 7;

class SilentErrors : public INetWorkerErrorCallBack {
public:
    uint32_t NetWorkerError(uint32_t code) override {
        std::fprintf(stderr, "NetWorkerError %u\n", code);
        return 0;
    }
    uint32_t AllocationError(const NetWorkerAllocationInfo*) override { return 0; }
};

// The executor's own string pool, counting the bytes of the catalogue's strings.
class CountingMemory : public CatalogueStringPool {
public:
    char* AllocateString(size_t bytes) override {
        stringBytes += bytes;
        return CatalogueStringPool::AllocateString(bytes);
    }
    uint64_t stringBytes = 0;
};

void BareCatalogue(BareXbsa& xbsa, unsigned* count, double* wall, double* cpu) {
    BSA_QueryDescriptor query = ExchangeQueryDescriptor();
    BSA_ObjectDescriptor descriptor{};
    const Stopwatch watch;
    xbsa.beginTxn(xbsa.handle);
    unsigned n = 0;
    int rc = xbsa.queryObject(xbsa.handle, &query, &descriptor);
    while (rc == 0) {
        ++n;
        rc = xbsa.getNextQueryObject(xbsa.handle, &descriptor);
    }
    xbsa.endTxn(xbsa.handle, BSAVote_COMMIT);
    *wall = watch.Wall();
    *cpu = watch.Cpu();
    *count = n;
}

}  // namespace

int main() {
    SimulatorOptions options;
    options.seedExchange = true;
    SimulatorFixture simulator(options);
    if (!simulator.Ready()) {
        std::fprintf(stderr, "simulator: %s\n", simulator.Failure().c_str());
        return 1;
    }
    std::string output;
    if (SimulatorFixture::RunAdmin(L"seed-exchange --root \"" + simulator.StoreRoot() +
                                       L"\" --server srv --client cli --objects " +
                                       std::to_wstring(kObjects),
                                   &output) != 0) {
        std::fprintf(stderr, "seed: %s\n", output.c_str());
        return 1;
    }
    SetEnvironmentVariableW(L"NWSIM_JOURNAL", nullptr);  // no per-call journal lines

    BareXbsa bare(simulator.InstallDirectory());
    if (!bare.Loaded() || !bare.Open()) {
        std::fprintf(stderr, "bare libbsa.dll could not be opened\n");
        return 1;
    }

    NetWorkerApiWrapper wrapper;
    CountingMemory memory;
    ExecutorSeams seams;
    seams.memory = &memory;
    std::unique_ptr<NetWorkerApiExecutor> executor;
    SilentErrors errors;

    double bestBare = 1e30;
    double bestExecutor = 1e30;
    double bestBareCpu = 1e30;
    double bestExecutorCpu = 1e30;
    unsigned bareCount = 0;
    size_t accepted = 0;
    int64_t catalogueBytes = 0;
    int64_t privateDelta = 0;
    uint64_t stringBytes = 0;
    for (int round = 0; round < kRounds; ++round) {
        double wall = 0;
        double cpu = 0;
        BareCatalogue(bare, &bareCount, &wall, &cpu);
        bestBare = std::min(bestBare, wall);
        bestBareCpu = std::min(bestBareCpu, cpu);

        // A fresh executor each round, so the memory delta is that of one catalogue.
        executor.reset();
        memory.stringBytes = 0;
        const MemoryFigures before = CurrentMemory();
        executor = std::make_unique<NetWorkerApiExecutor>(&wrapper, seams);
        if (executor->Initialize("cli", "srv") != 0) {
            std::fprintf(stderr, "Initialize failed\n");
            return 1;
        }
        const Stopwatch watch;
        executor->Catalog(nullptr, nullptr, nullptr, &errors);
        bestExecutor = std::min(bestExecutor, watch.Wall());
        bestExecutorCpu = std::min(bestExecutorCpu, watch.Cpu());
        const MemoryFigures after = CurrentMemory();
        accepted = executor->CatalogueSize();
        if (round == 0) {
            // Later rounds reuse the heap the first one returned; only the first is counted.
            catalogueBytes =
                static_cast<int64_t>(after.workingSet) - static_cast<int64_t>(before.workingSet);
            privateDelta = static_cast<int64_t>(after.privateBytes) -
                           static_cast<int64_t>(before.privateBytes);
            stringBytes = memory.stringBytes;
        }
    }
    const MemoryFigures finalMemory = CurrentMemory();

    const double bareRate = bareCount / bestBareCpu;
    const double executorRate = kObjects / bestExecutorCpu;
    const double perEntry =
        accepted != 0 ? static_cast<double>(catalogueBytes - static_cast<int64_t>(stringBytes)) /
                            static_cast<double>(accepted)
                      : 0.0;
    std::printf(
        "bench_executor_catalogue objects=%u accepted=%zu executor=%.0f objects/s "
        "bare=%.0f objects/s ratio=%.3f (thread CPU time; wall: executor=%.0f bare=%.0f "
        "ratio=%.3f) catalogue_working_set_bytes=%lld private_usage_delta=%lld "
        "string_bytes=%llu "
        "bytes_per_entry_beyond_strings=%.1f entry_size=%zu capacity=%zu "
        "peak_working_set=%llu logger=TarnLog(trace off)\n",
        kObjects, accepted, executorRate, bareRate, executorRate / bareRate,
        kObjects / bestExecutor, bareCount / bestBare,
        (kObjects / bestExecutor) / (bareCount / bestBare), static_cast<long long>(catalogueBytes),
        static_cast<long long>(privateDelta), static_cast<unsigned long long>(stringBytes),
        perEntry, sizeof(CatalogueEntry), executor->CatalogueCapacity(),
        static_cast<unsigned long long>(finalMemory.peakWorkingSet));
    executor.reset();
    return 0;
}
