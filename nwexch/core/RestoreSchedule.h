#pragma once
// How a restore with several sessions shares out its files: the order they are taken in, the
// queue that hands them to whichever session is free, the check that every session sees the
// catalogue the first one saw, the label of the files in flight, and the exit code of the run.
// Platform-neutral.

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "Formatting.h"

// Positions 0..n-1 of the planned files, largest first by their exact size, so the big
// databases start at once; files of the same size keep the plan's own order (restore order).
std::vector<size_t> LargestFirst(const std::vector<uint64_t>& sizes);

// Why another session's catalogue cannot be used with the first one's indexes: empty when both
// list the same files, that is the same count and the same path at every index.
std::wstring CatalogueDifference(const std::vector<CatalogueRow>& first,
                                 const std::vector<CatalogueRow>& other);

// Hands out the positions of an order one at a time, to whichever session asks first. A session
// that loses its helper before a file reached it gives the file back, and another one takes it;
// so a session that finds the queue empty waits while files are still taken, since one of them
// may come back.
class FileQueue {
public:
    explicit FileQueue(const std::vector<size_t>& order) : m_pending(order.begin(), order.end()) {}
    FileQueue(const FileQueue&) = delete;
    FileQueue& operator=(const FileQueue&) = delete;

    // The next file's position, to be ended with Finished or GiveBack; false once no file is
    // left to hand out and none is taken.
    bool Next(size_t* position);
    // A taken file is done with, whatever its outcome.
    void Finished();
    // The taken file was not started: it goes back to the front, for the next session that asks.
    void GiveBack(size_t position);

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<size_t> m_pending;
    size_t m_taken = 0;  // handed out and neither finished nor given back
};

// The progress line's label: the one file in flight as it is, several as "N files: a, b, c"
// with each file's name (the last part of its backup path).
std::wstring InFlightLabel(const std::vector<std::wstring>& backupPaths);

// The exit code of a restore through `sessions` sessions of which `lost` were lost: 4 when it
// was cancelled; 2 when every session was lost; 3 when a file was not restored or a session
// was lost while another one carried on; 0 when everything was restored.
int RestoreExitCode(const std::vector<FileOutcome>& outcomes, size_t sessions, size_t lost,
                    bool cancelled);
