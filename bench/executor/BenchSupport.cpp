#include "BenchSupport.h"

#include <psapi.h>

#include <cstring>

BareXbsa::BareXbsa(const std::wstring& installDirectory)
    : m_module(LoadLibraryW((installDirectory + L"\\libbsa.dll").c_str())) {
    if (!m_module) {
        return;
    }
    auto resolve = [this](auto& target, const char* name) {
        target = reinterpret_cast<std::remove_reference_t<decltype(target)>>(
            reinterpret_cast<void*>(GetProcAddress(m_module.get(), name)));
    };
    resolve(m_init, "BSAInit");
    resolve(beginTxn, "BSABeginTxn");
    resolve(endTxn, "BSAEndTxn");
    resolve(queryObject, "BSAQueryObject");
    resolve(getNextQueryObject, "BSAGetNextQueryObject");
    resolve(getObject, "BSAGetObject");
    resolve(getData, "BSAGetData");
    resolve(endData, "BSAEndData");
}

bool BareXbsa::Open() {
    char client[] = "NSR_CLIENT=cli";
    char debug[] = "NSR_DEBUG_LEVEL=0";
    char server[] = "NSR_SERVER=srv";
    char busy[] = "NSR_NO_BUSY_ERRORS=TRUE";
    char* environment[] = {client, debug, server, busy, nullptr};
    BSA_SecurityToken token{};
    BSA_ObjectOwner owner{};
    std::strcpy(owner.bsa_ObjectOwner, "MSEXCH");
    std::strcpy(owner.app_ObjectOwner, "msexch");
    return m_init != nullptr && m_init(&handle, &token, &owner, environment) == 0;
}

MemoryFigures CurrentMemory() {
    PROCESS_MEMORY_COUNTERS_EX counters{};
    counters.cb = sizeof counters;
    GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                         sizeof counters);
    return MemoryFigures{counters.PrivateUsage, counters.PagefileUsage, counters.WorkingSetSize,
                         counters.PeakWorkingSetSize};
}

double ThreadCpuSeconds() {
    FILETIME creation{};
    FILETIME exit{};
    FILETIME kernel{};
    FILETIME user{};
    GetThreadTimes(GetCurrentThread(), &creation, &exit, &kernel, &user);
    auto ticks = [](const FILETIME& time) {
        return (static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
    };
    return static_cast<double>(ticks(kernel) + ticks(user)) / 1e7;
}
