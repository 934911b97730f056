#pragma once
// Fault injection settings of the simulated server, from <root>/faults.txt and NWSIM_FAULTS.
//
// Entries are separated by ';' or line breaks; '#' starts a comment up to the end of the line.
//   <Call>=<code>          the call returns <code> every time (Call: one of the ten BSA calls)
//   <Call>=<code>@<n>      ... only at its n-th call (counting from 1)
//   <Call>=<code>@<n>+     ... at its n-th call and every later one
//   BSAGetObject.bufferLen=<1..65535>   the buffer size BSAGetObject asks for (default 16384)
//   throttle=<bytes per second>         BSAGetData delivers no faster than this (0 = off)
//   records=declared|oversized          oversized: every call behaves as a library whose
//                                       records are 4096 bytes longer than xbsa.h declares
//                                       (OversizedRecords.h)
//   nsrinfo.delay=<milliseconds>        nsrinfo.exe waits this long before it answers
//   nsrinfo.exit=<code>                 nsrinfo.exe prints its normal output and exits <code>
//   nsrinfo.output=normal|spaced|late|long-value|empty|flood
//   <Call>.hold=<n>                     the n-th call (counted as for faults) journals a
//                                       "hold" line, writes <pid>.held into hold.release and
//                                       waits, before doing anything, until a file named
//                                       <pid> is there
//   hold.release=<directory>            where held calls look for that file (needed by holds)
// A later entry for the same setting replaces an earlier one. Call faults add up; when several
// match a call, the last one wins.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nwsim {

enum class XbsaCall {
    Init,
    Terminate,
    BeginTxn,
    EndTxn,
    QueryObject,
    QueryApiVersion,
    GetNextQueryObject,
    GetObject,
    GetData,
    EndData,
};
constexpr int kXbsaCallCount = 10;

const char* XbsaCallName(XbsaCall call);  // "BSAInit" ...
bool XbsaCallFromName(std::string_view name, XbsaCall& out);

enum class NsrinfoOutput { Normal, Spaced, Late, LongValue, Empty, Flood };

const char* NsrinfoOutputName(NsrinfoOutput mode);

struct CallFault {
    XbsaCall call = XbsaCall::Init;
    int32_t code = 0;
    uint64_t atCall = 0;  // 0 = every call
    bool andLater = false;
};

// A call that waits to be released: a test can then act while a process is known to be there.
struct CallHold {
    XbsaCall call = XbsaCall::Init;
    uint64_t atCall = 1;
};

struct FaultPlan {
    std::vector<CallFault> callFaults;
    std::vector<CallHold> holds;
    std::string holdRelease;  // directory; the file named after a held process releases it
    uint32_t bufferLen = 16384;
    uint64_t throttleBytesPerSecond = 0;
    bool oversizedRecords = false;
    uint32_t nsrinfoDelayMs = 0;
    int32_t nsrinfoExit = 0;
    NsrinfoOutput nsrinfoOutput = NsrinfoOutput::Normal;

    // The code forced on the callNumber-th call (from 1), if any; the last matching entry wins.
    std::optional<int32_t> ForcedCode(XbsaCall call, uint64_t callNumber) const;
    // True when the callNumber-th call (from 1) is to be held.
    bool Holds(XbsaCall call, uint64_t callNumber) const;
};

// Adds the entries of text to plan; false with a reason naming the bad entry.
bool ParseFaults(std::string_view text, FaultPlan& plan, std::string& error);

}  // namespace nwsim
