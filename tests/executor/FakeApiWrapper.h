#pragma once
// A scripted INetWorkerApiWrapper that records every call in order.

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "interfaces/INetWorkerApiWrapper.h"

class FakeApiWrapper : public INetWorkerApiWrapper {
public:
    // --- script ---
    int32_t initializeResult = 0;
    int32_t initResult = 0;
    BSA_Handle handleToGive = 0x5eed;
    BSA_ApiVersion version{2, 0, 1};
    int32_t beginTxnResult = 0;
    int32_t endTxnResult = 0;
    int32_t endDataResult = 0;
    // Objects the query yields in order: BSAQueryObject returns the first (17 when none),
    // each BSAGetNextQueryObject the next, then 18.
    std::vector<BSA_ObjectDescriptor> objects;
    int32_t queryRc = -1;             // >= 0: returned instead of the scripted answer
    std::map<int, int32_t> nextRcAt;  // by BSAGetNextQueryObject call, from 0
    // Extraction: the object's bytes; each BSAGetData delivers up to numBytes (or blockLimit),
    // the last block with 18.
    std::string data;
    uint32_t blockLimit = 0xffffffffu;
    uint32_t bufferLenWanted = 0;  // written to bufferLen by BSAGetObject when non-zero
    int32_t getObjectRc = 0;
    std::map<int, int32_t> getDataRcAt;         // by BSAGetData call, from 0: returned without data
    std::map<int, uint32_t> getDataNumBytesAt;  // forced numBytes answer
    std::function<void()> duringGetObject;
    std::function<void(int call)> duringGetData;
    int32_t correctResult = 0;
    uint64_t correctedSize = 0;
    // Acts as a library whose records are 4 KiB longer than ours (nwsim's OversizedRecords.h):
    // every record it is given is read whole and its tail overwritten.
    bool oversizedRecords = false;

    // --- record ---
    std::vector<std::string> calls;
    std::vector<BSA_Handle> handles;  // handle passed with each call that takes one
    std::vector<std::string> environment;
    BSA_ObjectOwner initOwner{};
    BSA_SecurityToken initToken{};
    BSA_QueryDescriptor query{};
    std::vector<BSA_ObjectDescriptor> gotObjects;
    std::vector<uint32_t> getDataBufferLens;
    // Bytes of `data` handed out since the last BSAGetObject: the object as the server ended it
    // (a scripted 18 ends it early).
    size_t dataDelivered = 0;
    int32_t lastGetDataRc = -1;  // what the last BSAGetData returned; -1 before any
    BSA_ObjectDescriptor correctDescriptor{};
    std::string correctServer;
    std::string correctClient;

    int32_t Initialize() override;
    int32_t BSAInit(BSA_Handle* handle, BSA_SecurityToken* token, BSA_ObjectOwner* owner,
                    char** env) override;
    int32_t BSATerminate(BSA_Handle handle) override;
    int32_t BSABeginTxn(BSA_Handle handle) override;
    int32_t BSAEndTxn(BSA_Handle handle) override;
    int32_t BSAQueryObject(BSA_Handle handle, BSA_QueryDescriptor* queryDescriptor,
                           BSA_ObjectDescriptor* descriptor) override;
    int32_t BSAQueryApiVersion(BSA_ApiVersion* apiVersion) override;
    int32_t BSAGetNextQueryObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor) override;
    int32_t BSAGetObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor,
                         BSA_DataBlock32* dataBlock) override;
    int32_t BSAGetData(BSA_Handle handle, BSA_DataBlock32* dataBlock) override;
    int32_t BSAEndData(BSA_Handle handle) override;
    int32_t CorrectFileSize(const BSA_ObjectDescriptor* desc, uint64_t* size,
                            const char* serverName, const char* clientName) override;

private:
    void Record(const char* name, BSA_Handle handle);
    template <typename XbsaRecord>
    void ActAsOversized(XbsaRecord* record);
    int m_nextCalls = 0;
    int m_getDataCalls = 0;
};

// A descriptor as the server reports one: owner MSEXCH, given path, resource type, size and
// creation time.
BSA_ObjectDescriptor MakeDescriptor(const std::string& path, const char* resourceType = "D",
                                    uint64_t size = 1000, int year = 2026, int month = 11,
                                    int day = 21, int hour = 10, int minute = 30, int second = 15);
