#pragma once
// An INetWorkerExecutor for tests and fuzzers: records every call with its arguments and
// answers with scripted statuses; Catalog, GetFileSize and ExtractFile run a scripted function
// that may make callbacks. Platform-neutral, header-only.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "interfaces/INetWorkerExecutor.h"

class ScriptedExecutor final : public INetWorkerExecutor {
public:
    struct CatalogCall {
        std::optional<uint64_t> timeBefore;  // nothing for a null pointer
        std::optional<uint64_t> timeAfter;
        bool hasFileFound;
        bool hasError;
    };
    struct GetFileSizeCall {
        uint32_t index;
        bool correctSize;
    };
    struct ExtractFileCall {
        uint32_t index;
        std::wstring directory;
        std::wstring fileName;
        bool hasProgress;
        bool hasError;
    };

    using CatalogScript =
        std::function<int32_t(INetWorkerFileFoundCallBack*, INetWorkerErrorCallBack*)>;
    using GetFileSizeScript =
        std::function<int32_t(uint32_t index, bool correctSize, uint64_t* size)>;
    using ExtractFileScript =
        std::function<int32_t(INetWorkerUpdateProgressCallBack*, INetWorkerErrorCallBack*)>;

    // Scripted answers.
    int32_t initializeStatus = 0;
    int32_t beginExtractStatus = 0;
    int32_t endExtractStatus = 0;
    int32_t quitStatus = 0;
    CatalogScript onCatalog;          // default: returns 0 without callbacks
    GetFileSizeScript onGetFileSize;  // default: stores 0, returns 0
    ExtractFileScript onExtractFile;  // default: returns 0 without callbacks

    // Recorded calls, in order ("Initialize", "Catalog", "GetFileSize", ...).
    std::vector<std::string> calls;
    std::vector<std::pair<std::string, std::string>> initializeNames;  // (client, server)
    std::vector<CatalogCall> catalogCalls;
    std::vector<GetFileSizeCall> getFileSizeCalls;
    std::vector<ExtractFileCall> extractFileCalls;

    int32_t Initialize(const char* clientName, const char* serverName) override {
        calls.push_back("Initialize");
        initializeNames.emplace_back(clientName, serverName);
        return initializeStatus;
    }

    int32_t Catalog(const FILETIME* timeBefore, const FILETIME* timeAfter,
                    INetWorkerFileFoundCallBack* fileFound,
                    INetWorkerErrorCallBack* error) override {
        calls.push_back("Catalog");
        catalogCalls.push_back(
            {Ticks(timeBefore), Ticks(timeAfter), fileFound != nullptr, error != nullptr});
        return onCatalog ? onCatalog(fileFound, error) : 0;
    }

    int32_t GetFileSize(uint32_t index, bool correctSize, uint64_t* size) override {
        calls.push_back("GetFileSize");
        getFileSizeCalls.push_back({index, correctSize});
        *size = 0;
        return onGetFileSize ? onGetFileSize(index, correctSize, size) : 0;
    }

    int32_t BeginExtract() override {
        calls.push_back("BeginExtract");
        return beginExtractStatus;
    }

    int32_t ExtractFile(uint32_t index, const wchar_t* directory, const wchar_t* fileName,
                        INetWorkerUpdateProgressCallBack* progress,
                        INetWorkerErrorCallBack* error) override {
        calls.push_back("ExtractFile");
        extractFileCalls.push_back(
            {index, directory, fileName, progress != nullptr, error != nullptr});
        return onExtractFile ? onExtractFile(progress, error) : 0;
    }

    int32_t EndExtract() override {
        calls.push_back("EndExtract");
        return endExtractStatus;
    }

    int32_t Quit() override {
        calls.push_back("Quit");
        return quitStatus;
    }

private:
    static std::optional<uint64_t> Ticks(const FILETIME* time) {
        if (time == nullptr) {
            return std::nullopt;
        }
        return (static_cast<uint64_t>(time->dwHighDateTime) << 32) | time->dwLowDateTime;
    }
};
