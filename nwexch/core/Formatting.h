#pragma once
// Everything nwexch prints, as text the program only has to write out: the catalogue as a
// table or JSON lines, sizes, progress, statuses and the restore summary.

#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "interfaces/WinTypes.h"

struct CatalogueRow {
    uint32_t index = 0;
    SYSTEMTIME backupTime{};
    uint64_t size = 0;  // as announced by the catalogue (0 for databases: ask for the size)
    uint64_t restoreOrder = 0;
    std::wstring path;
};

// Header plus one line per row, columns aligned, numbers right-aligned; ends with a newline.
std::wstring FormatCatalogueTable(const std::vector<CatalogueRow>& rows);

// One JSON object per line: {"index":0,"backupTime":"2026-11-20T22:00:00","size":0,
// "restoreOrder":1,"path":"/First Storage Group/priv1.edb"}. Pure ASCII: everything outside
// it is written as \u escapes, so the output survives any console code page.
std::string FormatCatalogueJsonLine(const CatalogueRow& row);
std::string JsonEscape(const std::wstring& text);

struct SizeRow {
    uint32_t index = 0;
    uint64_t size = 0;
    std::wstring path;
    std::wstring note;  // empty, or why the size may not be right
};
std::wstring FormatSizeTable(const std::vector<SizeRow>& rows);

// 1536 -> "1.5 KiB"; below 1024 plain bytes ("512 B").
std::wstring FormatBytes(uint64_t bytes);
// 1048576.0 -> "1.0 MiB/s".
std::wstring FormatRate(double bytesPerSecond);
// Seconds as "0:07", "12:34" or "1:02:03".
std::wstring FormatDuration(uint64_t seconds);
// "1234567" with no grouping: exact and easy to parse.
std::wstring FormatCount(uint64_t value);

// Throughput over the last few seconds, from (milliseconds, running total) samples.
class RateMeter {
public:
    explicit RateMeter(uint64_t windowMs = 5000) : m_windowMs(windowMs) {}
    void Add(uint64_t nowMs, uint64_t totalBytes);
    // Bytes per second over the window (0 until two samples span some time).
    double BytesPerSecond() const;
    // Seconds left for `remaining` bytes at the current rate; false while the rate is unknown.
    bool SecondsLeft(uint64_t remaining, uint64_t* seconds) const;

private:
    uint64_t m_windowMs;
    std::deque<std::pair<uint64_t, uint64_t>> m_samples;
};

struct ProgressSnapshot {
    uint64_t done = 0;   // bytes restored so far, all files
    uint64_t total = 0;  // exact total of all files (0 when unknown)
    double bytesPerSecond = 0;
    bool etaKnown = false;
    uint64_t secondsLeft = 0;
    std::wstring label;  // the file being restored
};

// "[##########----------]  50%  1.0 MiB of 2.0 MiB  1.0 MiB/s  0:01 left  priv1.edb",
// cut to `width` characters so it never wraps a terminal line.
std::wstring FormatProgressBar(const ProgressSnapshot& snapshot, size_t width);
// The same facts for logs and pipes: "progress 50% 1048576 of 2097152 bytes, 1.0 MiB/s,
// 0:01 left: /First Storage Group/priv1.edb".
std::wstring FormatProgressLine(const ProgressSnapshot& snapshot);

// What a status of the library means, for people: "BSAInit failed: bad environment / unknown
// server or client".
std::wstring DescribeStatus(int32_t status);
// "status 0x8007000A (BSAInit failed: ...)"; positive Windows numbers also in decimal.
std::wstring FormatStatus(int32_t status);

enum class FileResult { Restored, Failed, Cancelled, NotStarted };

struct FileOutcome {
    uint32_t index = 0;
    std::wstring backupPath;
    std::wstring destination;
    FileResult result = FileResult::NotStarted;
    uint64_t bytes = 0;
    std::wstring reason;  // for everything but Restored
};

// Closing report: one line per file that was not restored, then the totals.
std::wstring FormatRestoreSummary(const std::vector<FileOutcome>& outcomes, uint64_t elapsedMs);
