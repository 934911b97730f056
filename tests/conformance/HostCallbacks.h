#pragma once
// A host's callbacks that record what the library reports, for the tests and measurements that
// run whole sessions through the exported factories.

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "exports/NetWorkerXbsa.h"

struct ReportedFile {
    uint32_t index;
    SYSTEMTIME backupTime;
    std::string path;
    uint64_t size;
    uint64_t restoreOrder;
};

class RecordingFileFound : public INetWorkerFileFoundCallBack {
public:
    bool NetWorkerFileFound(const NetWorkerFileInfo* file) override {
        found.push_back(ReportedFile{file->index, file->backupTime, file->path, file->size,
                                     file->restoreOrder});
        return stopAfter != 0 && found.size() == stopAfter;
    }
    std::vector<ReportedFile> found;
    size_t stopAfter = 0;  // 0: never stop
};

class RecordingErrors : public INetWorkerErrorCallBack {
public:
    uint32_t NetWorkerError(uint32_t code) override {
        codes.push_back(code);
        return answer ? answer(code) : 0;
    }
    uint32_t AllocationError(const NetWorkerAllocationInfo* info) override {
        allocations.push_back(*info);
        return 0;
    }
    std::vector<uint32_t> codes;
    std::vector<NetWorkerAllocationInfo> allocations;
    std::function<uint32_t(uint32_t)> answer;
};

class RecordingProgress : public INetWorkerUpdateProgressCallBack {
public:
    bool UpdateProgress(NetWorkerProgressInfo* progress) override {
        reports.push_back(*progress);
        if (onReport) {
            onReport(reports.size());
        }
        return cancelAt != 0 && reports.size() == cancelAt;
    }
    uint64_t BytesDone() const {
        uint64_t total = 0;
        for (const auto& report : reports) {
            total += report.bytesDone;
        }
        return total;
    }
    std::vector<NetWorkerProgressInfo> reports;
    size_t cancelAt = 0;  // 0: never cancel
    std::function<void(size_t)> onReport;
};
