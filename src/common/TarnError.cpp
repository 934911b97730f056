#include "TarnError.h"

#include <cstdarg>
#include <memory>

#include "../interfaces/ILog.h"
#include "../interfaces/NetWorkerStatus.h"
#include "LastError.h"
#include "WideFormat.h"

void RaiseTarnError(ILog* log, int32_t code, const wchar_t* method, const wchar_t* format, ...) {
    if (log != nullptr && log->IsErrorEnabled()) {
        // Read before anything else can overwrite it.
        const uint32_t lastError = ReadLastError();
        wchar_t hresultLine[100];
        FormatWide(hresultLine, 100, L"HRESULT %08lx GetLastError() %d",
                   static_cast<unsigned long>(static_cast<uint32_t>(code)),
                   static_cast<int>(lastError));

        va_list args;
        va_start(args, format);
        const size_t length = FormatWideV(nullptr, 0, format, args);
        std::unique_ptr<wchar_t[]> message(new wchar_t[length + 1]);
        FormatWideV(message.get(), length + 1, format, args);
        va_end(args);

        // The finished message is handed on as the logger's format, its percent signs
        // doubled so that it is written as it stands (kept on purpose: docs/compatibility.md,
        // "double formatting").
        log->Error(method, AsLiteralFormat(message.get()).c_str());
        log->Error(method, hresultLine);
    }
    throw TarnError(code);
}

int32_t BSAError2HResult(int32_t rc, ILog* log) {
    if (rc < 3 || rc > 85) {
        return NetWorkerStatus::Success;
    }
    int32_t status = NetWorkerStatus::Success;
    switch (rc) {
        case 3:
        case 5:
        case 32:
        case 52:
        case 75:
        case 79:
            status = NetWorkerStatus::Fail;
            break;
        case 4:
        case 77:
            status = NetWorkerStatus::AccessDenied;
            break;
        case 6:
            status = NetWorkerStatus::InvalidHandle;
            break;
        case 11:
        case 81:
        case 83:
        case 85:
            status = NetWorkerStatus::InvalidArgument;
            break;
        case 17:
        case 26:
            return NetWorkerStatus::NoMatch;
        case 78:
            status = NetWorkerStatus::InsufficientBuffer;
            break;
        case 80:
            status = NetWorkerStatus::BadEnvironment;
            break;
        default:
            return NetWorkerStatus::Success;
    }
    if (log != nullptr) {
        log->Error(L"BSAError2HResult", L"BSA Error %d\n", rc);
    }
    return status;
}
