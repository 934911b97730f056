#pragma once
// How a restore with several sessions shares out its files: the order they are taken in, the
// queue that hands them to whichever session is free, the check that every session sees the
// catalogue the first one saw, and the label of the files in flight. Platform-neutral.

#include <cstddef>
#include <cstdint>
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

// Hands out the positions of an order one at a time, to whichever session asks first.
class FileQueue {
public:
    explicit FileQueue(std::vector<size_t> order) : m_order(std::move(order)) {}
    FileQueue(const FileQueue&) = delete;
    FileQueue& operator=(const FileQueue&) = delete;

    // The next file's position; false when every file has been handed out.
    bool Next(size_t* position);

private:
    std::mutex m_mutex;
    std::vector<size_t> m_order;
    size_t m_next = 0;
};

// The progress line's label: the one file in flight as it is, several as "N files: a, b, c"
// with each file's name (the last part of its backup path).
std::wstring InFlightLabel(const std::vector<std::wstring>& backupPaths);
