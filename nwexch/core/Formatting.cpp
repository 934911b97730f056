#include "Formatting.h"

#include <algorithm>
#include <cstdio>

#include "DateWindow.h"
#include "common/WinError.h"
#include "interfaces/NetWorkerStatus.h"

namespace {

std::wstring PadLeft(const std::wstring& text, size_t width) {
    return text.size() >= width ? text : std::wstring(width - text.size(), L' ') + text;
}

std::wstring PadRight(const std::wstring& text, size_t width) {
    return text.size() >= width ? text : text + std::wstring(width - text.size(), L' ');
}

std::wstring OneDecimal(double value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.1f", value);
    return std::wstring(buffer, buffer + std::char_traits<char>::length(buffer));
}

void AppendHex4(std::string* out, unsigned value) {
    static const char kHex[] = "0123456789abcdef";
    *out += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4) {
        *out += kHex[(value >> shift) & 0xF];
    }
}

}  // namespace

std::wstring FormatCount(uint64_t value) {
    return std::to_wstring(value);
}

std::wstring FormatCatalogueTable(const std::vector<CatalogueRow>& rows) {
    const std::wstring hIndex = L"INDEX", hTime = L"BACKUP TIME", hSize = L"SIZE",
                       hOrder = L"RESTORE ORDER", hPath = L"PATH";
    size_t wIndex = hIndex.size(), wTime = 19, wSize = hSize.size(), wOrder = hOrder.size();
    for (const CatalogueRow& row : rows) {
        wIndex = std::max(wIndex, FormatCount(row.index).size());
        wSize = std::max(wSize, FormatCount(row.size).size());
        wOrder = std::max(wOrder, FormatCount(row.restoreOrder).size());
    }
    std::wstring out = PadLeft(hIndex, wIndex) + L"  " + PadRight(hTime, wTime) + L"  " +
                       PadLeft(hSize, wSize) + L"  " + PadLeft(hOrder, wOrder) + L"  " + hPath +
                       L"\n";
    for (const CatalogueRow& row : rows) {
        out += PadLeft(FormatCount(row.index), wIndex) + L"  " +
               PadRight(FormatBackupTime(row.backupTime), wTime) + L"  " +
               PadLeft(FormatCount(row.size), wSize) + L"  " +
               PadLeft(FormatCount(row.restoreOrder), wOrder) + L"  " + row.path + L"\n";
    }
    return out;
}

std::string JsonEscape(const std::wstring& text) {
    std::string out;
    out.reserve(text.size() + 2);
    for (size_t i = 0; i < text.size(); ++i) {
        const uint32_t c = static_cast<uint32_t>(text[i]);
        switch (c) {
            case '"':
                out += "\\\"";
                continue;
            case '\\':
                out += "\\\\";
                continue;
            case '\b':
                out += "\\b";
                continue;
            case '\f':
                out += "\\f";
                continue;
            case '\n':
                out += "\\n";
                continue;
            case '\r':
                out += "\\r";
                continue;
            case '\t':
                out += "\\t";
                continue;
            default:
                break;
        }
        if (c >= 0x20 && c < 0x7F) {
            out += static_cast<char>(c);
        } else if (c > 0xFFFF) {
            // Only where wchar_t is 32 bits: write the UTF-16 surrogate pair.
            const uint32_t v = c - 0x10000;
            AppendHex4(&out, 0xD800 + (v >> 10));
            AppendHex4(&out, 0xDC00 + (v & 0x3FF));
        } else {
            AppendHex4(&out, c);
        }
    }
    return out;
}

std::string FormatCatalogueJsonLine(const CatalogueRow& row) {
    return "{\"index\":" + std::to_string(row.index) + ",\"backupTime\":\"" +
           JsonEscape(FormatBackupTimeIso(row.backupTime)) +
           "\",\"size\":" + std::to_string(row.size) +
           ",\"restoreOrder\":" + std::to_string(row.restoreOrder) + ",\"path\":\"" +
           JsonEscape(row.path) + "\"}\n";
}

std::wstring FormatSizeTable(const std::vector<SizeRow>& rows) {
    size_t wIndex = 5, wSize = 4, wHuman = 0;
    for (const SizeRow& row : rows) {
        wIndex = std::max(wIndex, FormatCount(row.index).size());
        wSize = std::max(wSize, FormatCount(row.size).size());
        wHuman = std::max(wHuman, FormatBytes(row.size).size());
    }
    std::wstring out = PadLeft(L"INDEX", wIndex) + L"  " + PadLeft(L"SIZE", wSize) + L"  " +
                       PadLeft(L"", wHuman) + L"  PATH\n";
    for (const SizeRow& row : rows) {
        out += PadLeft(FormatCount(row.index), wIndex) + L"  " +
               PadLeft(FormatCount(row.size), wSize) + L"  " +
               PadLeft(FormatBytes(row.size), wHuman) + L"  " + row.path;
        if (!row.note.empty()) {
            out += L"  (" + row.note + L")";
        }
        out += L"\n";
    }
    return out;
}

std::wstring FormatBytes(uint64_t bytes) {
    if (bytes < 1024) {
        return FormatCount(bytes) + L" B";
    }
    static const wchar_t* const kUnits[] = {L"KiB", L"MiB", L"GiB", L"TiB", L"PiB", L"EiB"};
    double value = static_cast<double>(bytes) / 1024.0;
    size_t unit = 0;
    // 1023.96 would print as "1024.0": move up a unit before rounding does.
    while (value >= 1023.95 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
        value /= 1024.0;
        ++unit;
    }
    return OneDecimal(value) + L" " + kUnits[unit];
}

std::wstring FormatRate(double bytesPerSecond) {
    if (bytesPerSecond < 0) {
        bytesPerSecond = 0;
    }
    return FormatBytes(static_cast<uint64_t>(bytesPerSecond)) + L"/s";
}

std::wstring FormatDuration(uint64_t seconds) {
    const uint64_t hours = seconds / 3600;
    const uint64_t minutes = (seconds / 60) % 60;
    const uint64_t secs = seconds % 60;
    auto two = [](uint64_t v) { return (v < 10 ? L"0" : L"") + std::to_wstring(v); };
    if (hours > 0) {
        return std::to_wstring(hours) + L":" + two(minutes) + L":" + two(secs);
    }
    return std::to_wstring(minutes) + L":" + two(secs);
}

void RateMeter::Add(uint64_t nowMs, uint64_t totalBytes) {
    m_samples.emplace_back(nowMs, totalBytes);
    // Keep one sample older than the window so the rate always spans the whole window.
    while (m_samples.size() > 2 && nowMs - m_samples[1].first >= m_windowMs) {
        m_samples.pop_front();
    }
}

double RateMeter::BytesPerSecond() const {
    if (m_samples.size() < 2) {
        return 0;
    }
    const auto& first = m_samples.front();
    const auto& last = m_samples.back();
    if (last.first <= first.first || last.second < first.second) {
        return 0;
    }
    return static_cast<double>(last.second - first.second) * 1000.0 /
           static_cast<double>(last.first - first.first);
}

bool RateMeter::SecondsLeft(uint64_t remaining, uint64_t* seconds) const {
    const double rate = BytesPerSecond();
    if (rate <= 0) {
        return false;
    }
    *seconds = static_cast<uint64_t>(static_cast<double>(remaining) / rate + 0.5);
    return true;
}

namespace {

unsigned Percent(uint64_t done, uint64_t total) {
    if (total == 0) {
        return 0;
    }
    if (done >= total) {
        return 100;
    }
    return static_cast<unsigned>((static_cast<long double>(done) * 100) / total);
}

}  // namespace

std::wstring FormatProgressBar(const ProgressSnapshot& s, size_t width) {
    std::wstring line;
    if (s.total > 0) {
        const size_t cells = 20;
        const size_t filled = static_cast<size_t>(Percent(s.done, s.total)) * cells / 100;
        line = L"[" + std::wstring(filled, L'#') + std::wstring(cells - filled, L'-') + L"] " +
               PadLeft(std::to_wstring(Percent(s.done, s.total)) + L"%", 4) + L"  " +
               FormatBytes(s.done) + L" of " + FormatBytes(s.total);
    } else {
        line = FormatBytes(s.done);
    }
    line += L"  " + FormatRate(s.bytesPerSecond);
    if (s.etaKnown) {
        line += L"  " + FormatDuration(s.secondsLeft) + L" left";
    }
    if (!s.label.empty()) {
        line += L"  " + s.label;
    }
    if (line.size() > width) {
        line.resize(width);
    }
    return line;
}

std::wstring FormatProgressLine(const ProgressSnapshot& s) {
    std::wstring line = L"progress ";
    if (s.total > 0) {
        line += std::to_wstring(Percent(s.done, s.total)) + L"% " + FormatCount(s.done) + L" of " +
                FormatCount(s.total) + L" bytes";
    } else {
        line += FormatCount(s.done) + L" bytes";
    }
    line += L", " + FormatRate(s.bytesPerSecond);
    if (s.etaKnown) {
        line += L", " + FormatDuration(s.secondsLeft) + L" left";
    }
    if (!s.label.empty()) {
        line += L": " + s.label;
    }
    return line;
}

std::wstring DescribeStatus(int32_t status) {
    switch (status) {
        case NetWorkerStatus::Success:
            return L"success";
        case NetWorkerStatus::EntryPointMissing:  // also NetWorkerStatus::QuitDuringGetObject
            return L"an entry point of NetWorker's XBSA library could not be resolved, or a "
                   L"transfer was stopped while it was being opened";
        case NetWorkerStatus::PipeClosed:
            return L"the helper program closed the pipe: it ended unexpectedly";
        case NetWorkerStatus::OpenFailed:
            return L"NetWorker's client is not installed: no \"nsrexecd\" service (or the "
                   L"service control manager could not be opened)";
        case NetWorkerStatus::DllNotFound:
            return L"a NetWorker library could not be loaded";
        case NetWorkerStatus::NoMatch:
            return L"NetWorker found no Exchange objects";
        case NetWorkerStatus::Cancelled:
            return L"cancelled";
        case static_cast<int32_t>(NetWorkerWinError::Continue):
            return L"the write was retried after the disk was full";
        case NetWorkerStatus::FunctionFailed:
            return L"NetWorker's client failed: its service configuration could not be read or "
                   L"nsrinfo.exe failed";
        case NetWorkerStatus::Fail:
            return L"general failure";
        case NetWorkerStatus::AccessDenied:
            return L"access denied: NetWorker refused the authentication or access";
        case NetWorkerStatus::InvalidHandle:
            return L"NetWorker reported a bad session handle";
        case NetWorkerStatus::InvalidArgument:
            return L"NetWorker reported an invalid argument";
        case NetWorkerStatus::InsufficientBuffer:
            return L"NetWorker reported a buffer too small";
        case NetWorkerStatus::BadEnvironment:
            return L"BSAInit failed: bad environment / unknown server or client";
        default:
            break;
    }
    if (IsHResultFromWin32(status)) {
        return L"Windows error " + std::to_wstring(static_cast<uint32_t>(status) & 0xFFFF);
    }
    return L"unknown status";
}

std::wstring FormatStatus(int32_t status) {
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08X", static_cast<unsigned>(static_cast<uint32_t>(status)));
    std::wstring text = L"status " + std::wstring(hex, hex + 10) + L" (";
    if (status > 0) {
        text += std::to_wstring(status) + L": ";
    }
    return text + DescribeStatus(status) + L")";
}

std::wstring FormatRestoreSummary(const std::vector<FileOutcome>& outcomes, uint64_t elapsedMs) {
    size_t restored = 0;
    uint64_t bytes = 0;
    std::wstring details;
    for (const FileOutcome& outcome : outcomes) {
        switch (outcome.result) {
            case FileResult::Restored:
                ++restored;
                bytes += outcome.bytes;
                break;
            case FileResult::Failed:
                details += L"  FAILED     " + outcome.backupPath + L": " + outcome.reason + L"\n";
                break;
            case FileResult::Cancelled:
                details += L"  CANCELLED  " + outcome.backupPath + L": " + outcome.reason + L"\n";
                break;
            case FileResult::NotStarted:
                details += L"  NOT DONE   " + outcome.backupPath + L": " + outcome.reason + L"\n";
                break;
        }
    }
    const double seconds = static_cast<double>(elapsedMs) / 1000.0;
    std::wstring out = L"Restored " + std::to_wstring(restored) + L" of " +
                       std::to_wstring(outcomes.size()) + L" files, " + FormatCount(bytes) +
                       L" bytes (" + FormatBytes(bytes) + L") in " + OneDecimal(seconds) + L" s";
    if (elapsedMs > 0) {
        out += L", " + FormatRate(static_cast<double>(bytes) / seconds);
    }
    out += L"\n";
    if (!details.empty()) {
        out += L"Not restored:\n" + details;
    }
    return out;
}
