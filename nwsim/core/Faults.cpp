#include "Faults.h"

namespace nwsim {

namespace {

const char* const kCallNames[kXbsaCallCount] = {
    "BSAInit",        "BSATerminate",       "BSABeginTxn",           "BSAEndTxn",
    "BSAQueryObject", "BSAQueryApiVersion", "BSAGetNextQueryObject", "BSAGetObject",
    "BSAGetData",     "BSAEndData",
};

std::string_view Trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == '\r')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    return text;
}

bool ParseNumber(std::string_view text, uint64_t& out) {
    if (text.empty() || text.size() > 19) {
        return false;
    }
    uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    out = value;
    return true;
}

bool ParseSigned32(std::string_view text, int32_t& out) {
    bool negative = false;
    if (!text.empty() && text.front() == '-') {
        negative = true;
        text.remove_prefix(1);
    }
    uint64_t value = 0;
    if (!ParseNumber(text, value) || value > (negative ? 2147483648ull : 2147483647ull)) {
        return false;
    }
    out =
        static_cast<int32_t>(negative ? -static_cast<int64_t>(value) : static_cast<int64_t>(value));
    return true;
}

bool ParseEntry(std::string_view entry, FaultPlan& plan, std::string& error) {
    const size_t equals = entry.find('=');
    if (equals == std::string_view::npos) {
        error = "fault entry without '=': " + std::string(entry);
        return false;
    }
    const std::string_view key = Trim(entry.substr(0, equals));
    const std::string_view value = Trim(entry.substr(equals + 1));
    const std::string bad = "bad fault entry: " + std::string(entry);

    XbsaCall call;
    if (XbsaCallFromName(key, call)) {
        CallFault fault;
        fault.call = call;
        std::string_view code = value;
        const size_t at = value.find('@');
        if (at != std::string_view::npos) {
            code = value.substr(0, at);
            std::string_view count = value.substr(at + 1);
            if (!count.empty() && count.back() == '+') {
                fault.andLater = true;
                count.remove_suffix(1);
            }
            if (!ParseNumber(count, fault.atCall) || fault.atCall == 0) {
                error = bad + " (the call number counts from 1)";
                return false;
            }
        }
        if (!ParseSigned32(code, fault.code)) {
            error = bad;
            return false;
        }
        plan.callFaults.push_back(fault);
        return true;
    }
    const size_t dot = key.rfind('.');
    if (dot != std::string_view::npos && key.substr(dot) == ".hold" &&
        XbsaCallFromName(key.substr(0, dot), call)) {
        CallHold hold;
        hold.call = call;
        if (!ParseNumber(value, hold.atCall) || hold.atCall == 0) {
            error = bad + " (the call number counts from 1)";
            return false;
        }
        plan.holds.push_back(hold);
        return true;
    }
    if (key == "hold.release") {
        if (value.empty()) {
            error = bad + " (a directory)";
            return false;
        }
        plan.holdRelease = std::string(value);
        return true;
    }
    uint64_t number = 0;
    if (key == "BSAGetObject.bufferLen") {
        if (!ParseNumber(value, number) || number == 0 || number > 65535) {
            error = bad + " (1..65535)";
            return false;
        }
        plan.bufferLen = static_cast<uint32_t>(number);
        return true;
    }
    if (key == "throttle") {
        if (!ParseNumber(value, number)) {
            error = bad;
            return false;
        }
        plan.throttleBytesPerSecond = number;
        return true;
    }
    if (key == "records") {
        if (value == "declared" || value == "oversized") {
            plan.oversizedRecords = value == "oversized";
            return true;
        }
        error = bad + " (declared|oversized)";
        return false;
    }
    if (key == "nsrinfo.delay") {
        if (!ParseNumber(value, number) || number > 600000) {
            error = bad + " (0..600000 milliseconds)";
            return false;
        }
        plan.nsrinfoDelayMs = static_cast<uint32_t>(number);
        return true;
    }
    if (key == "nsrinfo.exit") {
        if (!ParseSigned32(value, plan.nsrinfoExit)) {
            error = bad;
            return false;
        }
        return true;
    }
    if (key == "nsrinfo.output") {
        static const NsrinfoOutput kModes[] = {NsrinfoOutput::Normal, NsrinfoOutput::Spaced,
                                               NsrinfoOutput::Late,   NsrinfoOutput::LongValue,
                                               NsrinfoOutput::Empty,  NsrinfoOutput::Flood};
        for (NsrinfoOutput mode : kModes) {
            if (value == NsrinfoOutputName(mode)) {
                plan.nsrinfoOutput = mode;
                return true;
            }
        }
        error = bad + " (normal|spaced|late|long-value|empty|flood)";
        return false;
    }
    error = "unknown fault setting: " + std::string(key);
    return false;
}

}  // namespace

const char* XbsaCallName(XbsaCall call) {
    return kCallNames[static_cast<int>(call)];
}

bool XbsaCallFromName(std::string_view name, XbsaCall& out) {
    for (int i = 0; i < kXbsaCallCount; ++i) {
        if (name == kCallNames[i]) {
            out = static_cast<XbsaCall>(i);
            return true;
        }
    }
    return false;
}

const char* NsrinfoOutputName(NsrinfoOutput mode) {
    switch (mode) {
        case NsrinfoOutput::Normal:
            return "normal";
        case NsrinfoOutput::Spaced:
            return "spaced";
        case NsrinfoOutput::Late:
            return "late";
        case NsrinfoOutput::LongValue:
            return "long-value";
        case NsrinfoOutput::Empty:
            return "empty";
        case NsrinfoOutput::Flood:
            return "flood";
    }
    return "normal";
}

std::optional<int32_t> FaultPlan::ForcedCode(XbsaCall call, uint64_t callNumber) const {
    // The last matching entry wins, so NWSIM_FAULTS overrides the store's faults.txt.
    for (auto it = callFaults.rbegin(); it != callFaults.rend(); ++it) {
        const CallFault& fault = *it;
        if (fault.call != call) {
            continue;
        }
        if (fault.atCall == 0 || fault.atCall == callNumber ||
            (fault.andLater && callNumber >= fault.atCall)) {
            return fault.code;
        }
    }
    return std::nullopt;
}

bool FaultPlan::Holds(XbsaCall call, uint64_t callNumber) const {
    for (const CallHold& hold : holds) {
        if (hold.call == call && hold.atCall == callNumber) {
            return true;
        }
    }
    return false;
}

bool ParseFaults(std::string_view text, FaultPlan& plan, std::string& error) {
    size_t lineStart = 0;
    while (lineStart <= text.size()) {
        size_t lineEnd = text.find('\n', lineStart);
        if (lineEnd == std::string_view::npos) {
            lineEnd = text.size();
        }
        std::string_view line = text.substr(lineStart, lineEnd - lineStart);
        const size_t hash = line.find('#');
        if (hash != std::string_view::npos) {
            line = line.substr(0, hash);
        }
        size_t start = 0;
        while (start <= line.size()) {
            size_t end = line.find(';', start);
            if (end == std::string_view::npos) {
                end = line.size();
            }
            const std::string_view entry = Trim(line.substr(start, end - start));
            if (!entry.empty() && !ParseEntry(entry, plan, error)) {
                return false;
            }
            start = end + 1;
        }
        lineStart = lineEnd + 1;
    }
    // A hold that nothing could release would stop its process for good.
    if (!plan.holds.empty() && plan.holdRelease.empty()) {
        error = "a hold needs hold.release=<directory>";
        return false;
    }
    return true;
}

}  // namespace nwsim
