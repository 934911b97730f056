#pragma once
// The callbacks of a restore: progress of the whole run (with the cancellation test hook), each
// session's progress callback, and the answer to a full disk.

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Console.h"
#include "Formatting.h"
#include "RestoreSchedule.h"
#include "exports/NetWorkerXbsa.h"
#include "interfaces/NetWorkerStatus.h"

// Progress of the whole restore, shared by its sessions: bytes done of the total, the
// aggregate rate, the time left and the files in flight. Thread-safe.
class ProgressBoard {
public:
    ProgressBoard(uint64_t total, uint64_t cancelAfterBytes)
        : m_total(total), m_cancelAfterBytes(cancelAfterBytes), m_start(GetTickCount64()) {}
    ProgressBoard(const ProgressBoard&) = delete;
    ProgressBoard& operator=(const ProgressBoard&) = delete;

    void StartFile(const std::wstring& label, uint64_t size) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_inFlight.push_back(label);
        if (Console().ErrIsTerminal()) {
            ShowLocked(true);
        } else {
            Console().Err(L"restoring " + label + L" (" + FormatCount(size) + L" bytes)\n");
        }
    }

    void Add(uint64_t bytes) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_done += bytes;
        if (m_cancelAfterBytes != 0 && m_done >= m_cancelAfterBytes) {
            RunCancellation().Request(L"cancelled by NWEXCH_CANCEL_AFTER_BYTES");
        }
        ShowLocked(false);
    }

    void FileDone(const std::wstring& label) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = std::find(m_inFlight.begin(), m_inFlight.end(), label);
        if (found != m_inFlight.end()) {
            m_inFlight.erase(found);
        }
        if (Console().ErrIsTerminal()) {
            ShowLocked(true);
        }
    }

    uint64_t ElapsedMs() const { return GetTickCount64() - m_start; }
    void Finish() { Console().DrawProgress(std::wstring()); }

private:
    void ShowLocked(bool force) {
        const uint64_t now = GetTickCount64();
        m_meter.Add(now - m_start, m_done);
        const bool terminal = Console().ErrIsTerminal();
        const uint64_t interval = terminal ? 200 : 2000;
        if (!force && now - m_lastShown < interval) {
            return;
        }
        m_lastShown = now;
        ProgressSnapshot snapshot;
        snapshot.done = m_done;
        snapshot.total = m_total;
        snapshot.bytesPerSecond = m_meter.BytesPerSecond();
        snapshot.etaKnown =
            m_total > m_done && m_meter.SecondsLeft(m_total - m_done, &snapshot.secondsLeft);
        snapshot.label = m_inFlight.empty() ? std::wstring() : InFlightLabel(m_inFlight);
        if (terminal) {
            Console().DrawProgress(FormatProgressBar(snapshot, Console().ErrWidth()));
        } else {
            Console().Err(FormatProgressLine(snapshot) + L"\n");
        }
    }

    std::mutex m_mutex;
    uint64_t m_total;
    uint64_t m_cancelAfterBytes;
    uint64_t m_start;
    uint64_t m_done = 0;
    uint64_t m_lastShown = 0;
    std::vector<std::wstring> m_inFlight;  // backup paths, in the order they started
    RateMeter m_meter;
};

// One session's progress callback: its reports go to the board, and once the run is cancelled
// (Ctrl+C, the test hook, a full disk answered with cancel) it answers "stop".
class SessionProgress : public INetWorkerUpdateProgressCallBack {
public:
    explicit SessionProgress(ProgressBoard& board) : m_board(board) {}

    void StartFile(const std::wstring& label, uint64_t size) {
        m_label = label;
        m_reported = false;
        m_board.StartFile(label, size);
    }

    bool UpdateProgress(NetWorkerProgressInfo* progress) override {
        // bytesDone counts the bytes since the previous report, not a running total.
        m_reported = true;
        m_board.Add(progress->bytesDone);
        return RunCancellation().Requested();
    }

    void FileDone() { m_board.FileDone(m_label); }

    // Whether the current file has been reported on. The first report comes once NetWorker has
    // opened the object, before its first byte: without one, nothing of the file was written.
    bool Reported() const { return m_reported; }

private:
    ProgressBoard& m_board;
    std::wstring m_label;
    bool m_reported = false;
};

// Answers the executor's questions during extraction: only a full disk needs an answer.
class DiskFullHandler : public INetWorkerErrorCallBack {
public:
    static constexpr uint32_t kRetry = NetWorkerWinError::Continue;  // space freed: write again
    static constexpr uint32_t kCancel = 0;
    static constexpr int kMaxUnattendedRetries = 60;

    explicit DiskFullHandler(DiskFullPolicy policy) : m_policy(policy) {}

    void StartFile(const std::wstring& destination) {
        m_destination = destination;
        m_cancelledForDiskFull = false;
        m_retries = 0;
    }
    bool CancelledForDiskFull() const { return m_cancelledForDiskFull; }

    uint32_t NetWorkerError(uint32_t code) override {
        if (code != NwErrorDiskFull) {
            return 0;
        }
        const uint32_t answer = Decide();
        if (answer != kRetry) {
            m_cancelledForDiskFull = true;
        }
        return answer;
    }

    uint32_t AllocationError(const NetWorkerAllocationInfo*) override { return 0; }

private:
    uint32_t Decide() {
        // The sessions of a restore with --jobs ask one at a time; the answer that one of them
        // cancels with is then every later one's too.
        static std::mutex questions;
        const std::lock_guard<std::mutex> lock(questions);
        if (RunCancellation().Requested()) {
            return kCancel;
        }
        if (m_policy == DiskFullPolicy::Ask && Console().CanAsk()) {
            for (;;) {
                Console().Err(L"\nThe disk is full while writing " + m_destination +
                              L".\nFree some space, then type R to retry or C to cancel [R/C]: ");
                const std::wstring answer = Console().ReadLine();
                if (RunCancellation().Requested()) {
                    return kCancel;
                }
                if (answer == L"r" || answer == L"R") {
                    return kRetry;
                }
                if (answer == L"c" || answer == L"C" || answer.empty()) {
                    return kCancel;
                }
            }
        }
        if (m_policy != DiskFullPolicy::Retry) {
            Console().Err(L"nwexch: the disk is full while writing " + m_destination +
                          L"; cancelling (--on-disk-full cancel)\n");
            return kCancel;
        }
        if (++m_retries > kMaxUnattendedRetries) {
            Console().Err(L"nwexch: the disk is still full after " +
                          std::to_wstring(kMaxUnattendedRetries) + L" tries; cancelling\n");
            return kCancel;
        }
        Console().Err(L"nwexch: the disk is full while writing " + m_destination +
                      L"; trying again in 5 seconds (" + std::to_wstring(m_retries) + L" of " +
                      std::to_wstring(kMaxUnattendedRetries) + L")\n");
        for (int i = 0; i < 50 && !RunCancellation().Requested(); ++i) {
            Sleep(100);
        }
        return RunCancellation().Requested() ? kCancel : kRetry;
    }

    DiskFullPolicy m_policy;
    std::wstring m_destination;
    bool m_cancelledForDiskFull = false;
    int m_retries = 0;
};

inline uint64_t CancelAfterBytesHook() {
    // Test hook: behave exactly as if Ctrl+C came once this many bytes were restored.
    wchar_t buffer[32];
    const DWORD length = GetEnvironmentVariableW(L"NWEXCH_CANCEL_AFTER_BYTES", buffer, 32);
    if (length == 0 || length >= 32) {
        return 0;
    }
    return wcstoull(buffer, nullptr, 10);
}
