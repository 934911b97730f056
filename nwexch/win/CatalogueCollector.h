#pragma once
// Collects the catalogue that the executor reports, and what went wrong while it was taken.

#include <cstdint>
#include <string>
#include <vector>

#include "Console.h"
#include "Formatting.h"
#include "Session.h"
#include "exports/NetWorkerXbsa.h"

class CatalogueCollector : public INetWorkerFileFoundCallBack, public INetWorkerErrorCallBack {
public:
    bool NetWorkerFileFound(const NetWorkerFileInfo* file) override {
        CatalogueRow row;
        row.index = file->index;
        row.backupTime = file->backupTime;
        row.size = file->size;
        row.restoreOrder = file->restoreOrder;
        row.path = FromNarrow(file->path);
        m_rows.push_back(row);
        return RunCancellation().Requested();
    }

    uint32_t NetWorkerError(uint32_t code) override {
        if (m_errorCode == 0) {
            m_errorCode = code;
        }
        return 0;
    }

    uint32_t AllocationError(const NetWorkerAllocationInfo* info) override {
        m_allocationFailed = true;
        m_itemsBeforeAllocationFailure = info->itemsFound;
        return 0;
    }

    std::vector<CatalogueRow>& Rows() { return m_rows; }

    // Empty when the catalogue is complete.
    std::wstring Problem() const {
        switch (m_errorCode) {
            case 0:
                break;
            case NwErrorBeginTxn:
                return L"NetWorker could not start a transaction";
            case NwErrorQuery:
                return L"NetWorker's query for Exchange objects failed";
            case NwErrorQueryAccess:
                return L"NetWorker refused the query: authentication failed for this client";
            default:
                return L"NetWorker reported error " + std::to_wstring(m_errorCode);
        }
        if (m_allocationFailed) {
            return L"out of memory after " + std::to_wstring(m_itemsBeforeAllocationFailure) +
                   L" catalogue entries";
        }
        return std::wstring();
    }

private:
    std::vector<CatalogueRow> m_rows;
    uint32_t m_errorCode = 0;
    bool m_allocationFailed = false;
    uint32_t m_itemsBeforeAllocationFailure = 0;
};
