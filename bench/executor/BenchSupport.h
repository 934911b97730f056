#pragma once
// Shared pieces of the executor benchmarks: the simulator's XBSA library called directly (the
// bare loops the executor is measured against), memory counters and a clock.

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "common/UniqueHandle.h"
#include "interfaces/xbsa.h"

using BenchClock = std::chrono::steady_clock;

inline double SecondsSince(BenchClock::time_point start) {
    return std::chrono::duration<double>(BenchClock::now() - start).count();
}

// CPU seconds (user + kernel) of the calling thread. Everything measured here runs on one
// thread, the simulated server included, so this stays steady on a loaded machine where wall
// time does not.
double ThreadCpuSeconds();

// Wall and CPU time of one measured stretch.
class Stopwatch {
public:
    Stopwatch() : m_wall(BenchClock::now()), m_cpu(ThreadCpuSeconds()) {}
    double Wall() const { return SecondsSince(m_wall); }
    double Cpu() const { return ThreadCpuSeconds() - m_cpu; }

private:
    BenchClock::time_point m_wall;
    double m_cpu;
};

// The image's libbsa.dll, loaded on its own; a session for cli/srv opened with the same
// environment and owner the executor uses.
class BareXbsa {
public:
    explicit BareXbsa(const std::wstring& installDirectory);
    bool Open();  // BSAInit
    bool Loaded() const { return m_module.valid() && getData != nullptr; }

    BSA_Handle handle = 0;
    BSABeginTxnFn beginTxn = nullptr;
    BSAEndTxnFn endTxn = nullptr;
    BSAQueryObjectFn queryObject = nullptr;
    BSAGetNextQueryObjectFn getNextQueryObject = nullptr;
    BSAGetObjectFn getObject = nullptr;
    BSAEndDataFn endData = nullptr;
    BSAGetDataFn getData = nullptr;

private:
    UniqueModule m_module;
    BSAInitFn m_init = nullptr;
};

// Private bytes and peak working set of this process.
struct MemoryFigures {
    uint64_t privateBytes;   // PrivateUsage
    uint64_t pagefileBytes;  // PagefileUsage (committed private memory)
    uint64_t workingSet;
    uint64_t peakWorkingSet;
};
MemoryFigures CurrentMemory();
