#include "Commands.h"

#include "CommandSupport.h"

#include <windows.h>

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "Console.h"
#include "DateWindow.h"
#include "Formatting.h"
#include "Session.h"
#include "interfaces/NetWorkerStatus.h"

void Error(const std::wstring& message) {
    Console().Err(L"nwexch: " + message + L"\n");
}

// Opens the session and takes the whole catalogue (no date window: indexes then mean the
// same in every command). Returns 0 on success or the exit code to end with.
int OpenAndCatalogue(const Options& options, Session* session, CatalogueCollector* collector,
                     unsigned sessionNumber) {
    std::wstring problem;
    int exitCode = ExitOk;
    if (!session->Open(options, &problem, &exitCode, sessionNumber)) {
        Error(problem);
        return exitCode;
    }
    const SessionCall catalogue = CallSession(*session, [&] {
        return session->Executor()->Catalog(nullptr, nullptr, collector, collector);
    });
    if (catalogue.threw) {
        Error(L"the catalogue failed: " + catalogue.thrown);
        return ExitNetWorker;
    }
    const int32_t status = catalogue.status;
    if (RunCancellation().Requested()) {
        Error(L"cancelled while the catalogue was taken");
        return ExitCancelled;
    }
    if (status != 0) {
        Error(L"the catalogue failed: " + FormatStatus(status));
        return ExitNetWorker;
    }
    const std::wstring incomplete = collector->Problem();
    if (!incomplete.empty()) {
        Error(L"the catalogue is incomplete: " + incomplete);
        return ExitNetWorker;
    }
    return ExitOk;
}

namespace {

const CatalogueRow* FindRow(const std::vector<CatalogueRow>& rows, uint32_t index) {
    // Indexes are consecutive from 0, but do not rely on it.
    if (index < rows.size() && rows[index].index == index) {
        return &rows[index];
    }
    for (const CatalogueRow& row : rows) {
        if (row.index == index) {
            return &row;
        }
    }
    return nullptr;
}

}  // namespace

bool ResolveIndexes(const std::vector<CatalogueRow>& rows, const std::vector<uint32_t>& indexes,
                    std::vector<const CatalogueRow*>* chosen) {
    for (uint32_t index : indexes) {
        const CatalogueRow* row = FindRow(rows, index);
        if (row == nullptr) {
            Error(L"index " + std::to_wstring(index) + L" is not in the catalogue (" +
                  (rows.empty() ? std::wstring(L"it is empty")
                                : L"0 to " + std::to_wstring(rows.size() - 1)) +
                  L"); see 'nwexch list'");
            return false;
        }
        chosen->push_back(row);
    }
    return true;
}

int RunList(const Options& options) {
    Session session;
    CatalogueCollector collector;
    const int code = OpenAndCatalogue(options, &session, &collector);
    if (code != ExitOk) {
        return code;
    }
    const DateWindow window(options.after, options.before);
    std::vector<CatalogueRow> shown;
    for (const CatalogueRow& row : collector.Rows()) {
        if (window.Contains(row.backupTime)) {
            shown.push_back(row);
        }
    }
    if (options.json) {
        std::string lines;
        for (const CatalogueRow& row : shown) {
            lines += FormatCatalogueJsonLine(row);
        }
        Console().OutAscii(lines);
    } else {
        Console().Out(FormatCatalogueTable(shown));
    }
    if (collector.Rows().empty()) {
        Error(L"NetWorker has no Exchange files for this client");
    }
    return ExitOk;
}

int RunSize(const Options& options) {
    Session session;
    CatalogueCollector collector;
    const int code = OpenAndCatalogue(options, &session, &collector);
    if (code != ExitOk) {
        return code;
    }
    std::vector<const CatalogueRow*> chosen;
    if (!ResolveIndexes(collector.Rows(), options.indexes, &chosen)) {
        return ExitUsage;
    }
    std::vector<SizeRow> rows;
    int exitCode = ExitOk;
    for (const CatalogueRow* entry : chosen) {
        if (RunCancellation().Requested()) {
            return ExitCancelled;
        }
        uint64_t size = 0;
        const SessionCall call = CallSession(session, [&] {
            return session.Executor()->GetFileSize(entry->index, options.exact, &size);
        });
        SizeRow row;
        row.index = entry->index;
        row.size = call.threw ? entry->size : size;  // a failed lookup reports the catalogue's
        row.path = entry->path;
        if (call.threw || call.status != 0) {
            row.note = L"the exact size is unknown, this is the catalogue's: " + call.Why();
            exitCode = ExitNetWorker;
        } else if (options.exact && size == 0 && session.InHelper()) {
            row.note = L"0 is also what the helper reports when the lookup failed";
        }
        rows.push_back(row);
    }
    Console().Out(FormatSizeTable(rows));
    if (!options.exact) {
        Error(L"these are the catalogue's sizes, right only below 4 GiB; --exact asks NetWorker");
    }
    return exitCode;
}
