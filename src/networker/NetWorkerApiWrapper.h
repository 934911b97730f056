#pragma once
// The binding to NetWorker's own client libraries: finds the installation through the
// "nsrexecd" service, loads the six libraries, resolves the twelve entry points, forwards the
// XBSA calls and reads a file's true size from nsrinfo.exe. Windows only.

#include <cstdint>
#include <string>

#include "common/UniqueLogger.h"
#include "common/UniqueHandle.h"
#include "interfaces/INetWorkerApiWrapper.h"
#include "interfaces/xbsa.h"

class NetWorkerApiWrapper final : public INetWorkerApiWrapper {
public:
    // Obtains the logger "NetWorkerApiWrapper"; throws std::runtime_error
    // "Failed to Initialize the logger." when the logging library refuses. Loads nothing.
    NetWorkerApiWrapper();
    ~NetWorkerApiWrapper() override;

    NetWorkerApiWrapper(const NetWorkerApiWrapper&) = delete;
    NetWorkerApiWrapper& operator=(const NetWorkerApiWrapper&) = delete;

    int32_t Initialize() override;
    int32_t BSAInit(BSA_Handle* handle, BSA_SecurityToken* token, BSA_ObjectOwner* owner,
                    char** environment) override;
    int32_t BSATerminate(BSA_Handle handle) override;
    int32_t BSABeginTxn(BSA_Handle handle) override;
    int32_t BSAEndTxn(BSA_Handle handle) override;
    int32_t BSAQueryObject(BSA_Handle handle, BSA_QueryDescriptor* query,
                           BSA_ObjectDescriptor* descriptor) override;
    int32_t BSAQueryApiVersion(BSA_ApiVersion* version) override;
    int32_t BSAGetNextQueryObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor) override;
    int32_t BSAGetObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor,
                         BSA_DataBlock32* dataBlock) override;
    int32_t BSAGetData(BSA_Handle handle, BSA_DataBlock32* dataBlock) override;
    int32_t BSAEndData(BSA_Handle handle) override;
    int32_t CorrectFileSize(const BSA_ObjectDescriptor* desc, uint64_t* size,
                            const char* serverName, const char* clientName) override;

private:
    int32_t GetInstallDirectory(std::wstring& dir);
    void LoadNetWorkerLibraries(std::wstring dir);
    void GetNetWorkerProcAddresses();
    void InitializeNetWorkerApi();
    void FreeNetWorkerLibraries();

    ILog* Log() const { return m_log.get(); }

    // Entry-point table, in resolution order.
    LgInitFn m_lginit = nullptr;
    NsrLibInitFn m_nsrlib_init = nullptr;
    BSAInitFn m_BSAInit = nullptr;
    BSATerminateFn m_BSATerminate = nullptr;
    BSABeginTxnFn m_BSABeginTxn = nullptr;
    BSAEndTxnFn m_BSAEndTxn = nullptr;
    BSAQueryObjectFn m_BSAQueryObject = nullptr;
    BSAQueryApiVersionFn m_BSAQueryApiVersion = nullptr;
    BSAGetNextQueryObjectFn m_BSAGetNextQueryObject = nullptr;
    BSAGetObjectFn m_BSAGetObject = nullptr;
    BSAGetDataFn m_BSAGetData = nullptr;
    BSAEndDataFn m_BSAEndData = nullptr;

    // Without a trailing backslash: the directory holding the service's program file.
    std::wstring m_installDir;
    bool m_initialized = false;

    // Module handles, in load order; the last one is libbsa.dll or libnsrbsa.dll.
    UniqueModule m_liblocal;
    UniqueModule m_librpc;
    UniqueModule m_librap;
    UniqueModule m_libnsr;
    UniqueModule m_libasm;
    UniqueModule m_libbsa;

    // Declared last, so it is released after FreeNetWorkerLibraries has traced.
    UniqueLogger m_log;
};
