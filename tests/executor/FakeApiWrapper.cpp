#include "FakeApiWrapper.h"

#include <algorithm>
#include <cstring>

#include "OversizedRecords.h"

void FakeApiWrapper::Record(const char* name, BSA_Handle handle) {
    calls.emplace_back(name);
    handles.push_back(handle);
}

int32_t FakeApiWrapper::Initialize() {
    calls.emplace_back("Initialize");
    return initializeResult;
}

int32_t FakeApiWrapper::BSAInit(BSA_Handle* handle, BSA_SecurityToken* token,
                                BSA_ObjectOwner* owner, char** env) {
    calls.emplace_back("BSAInit");
    environment.clear();
    for (char** entry = env; entry != nullptr && *entry != nullptr; ++entry) {
        environment.emplace_back(*entry);
    }
    initOwner = *owner;
    initToken = *token;
    if (initResult == 0) {
        *handle = handleToGive;
    }
    return initResult;
}

int32_t FakeApiWrapper::BSATerminate(BSA_Handle handle) {
    Record("BSATerminate", handle);
    return 0;
}

int32_t FakeApiWrapper::BSABeginTxn(BSA_Handle handle) {
    Record("BSABeginTxn", handle);
    return beginTxnResult;
}

template <typename XbsaRecord>
void FakeApiWrapper::ActAsOversized(XbsaRecord* record) {
    if (oversizedRecords) {
        nwsim::OverrunRecord(record);
    }
}

int32_t FakeApiWrapper::BSAEndTxn(BSA_Handle handle) {
    Record("BSAEndTxn", handle);
    return endTxnResult;
}

int32_t FakeApiWrapper::BSAQueryObject(BSA_Handle handle, BSA_QueryDescriptor* queryDescriptor,
                                       BSA_ObjectDescriptor* descriptor) {
    Record("BSAQueryObject", handle);
    ActAsOversized(queryDescriptor);
    ActAsOversized(descriptor);
    query = *queryDescriptor;
    m_nextCalls = 0;
    if (queryRc >= 0) {
        return queryRc;
    }
    if (objects.empty()) {
        return BSA_RC_NO_MATCH;
    }
    *descriptor = objects[0];
    return 0;
}

int32_t FakeApiWrapper::BSAQueryApiVersion(BSA_ApiVersion* apiVersion) {
    calls.emplace_back("BSAQueryApiVersion");
    *apiVersion = version;
    return 0;
}

int32_t FakeApiWrapper::BSAGetNextQueryObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor) {
    Record("BSAGetNextQueryObject", handle);
    ActAsOversized(descriptor);
    const int call = m_nextCalls++;
    auto scripted = nextRcAt.find(call);
    if (scripted != nextRcAt.end()) {
        return scripted->second;
    }
    const size_t next = static_cast<size_t>(call) + 1;
    if (next >= objects.size()) {
        return BSA_RC_NO_MORE_DATA;
    }
    *descriptor = objects[next];
    return 0;
}

int32_t FakeApiWrapper::BSAGetObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor,
                                     BSA_DataBlock32* dataBlock) {
    Record("BSAGetObject", handle);
    ActAsOversized(descriptor);
    ActAsOversized(dataBlock);
    gotObjects.push_back(*descriptor);
    m_getDataCalls = 0;
    lastGetDataRc = -1;
    dataDelivered = 0;
    if (duringGetObject) {
        duringGetObject();
    }
    if (bufferLenWanted != 0) {
        dataBlock->bufferLen = bufferLenWanted;
    }
    return getObjectRc;
}

int32_t FakeApiWrapper::BSAGetData(BSA_Handle handle, BSA_DataBlock32* dataBlock) {
    Record("BSAGetData", handle);
    ActAsOversized(dataBlock);
    const int call = m_getDataCalls++;
    getDataBufferLens.push_back(dataBlock->bufferLen);
    if (duringGetData) {
        duringGetData(call);
    }
    auto scripted = getDataRcAt.find(call);
    if (scripted != getDataRcAt.end()) {
        dataBlock->numBytes = 0;
        lastGetDataRc = scripted->second;
        return scripted->second;
    }
    const size_t room = std::min<size_t>(dataBlock->numBytes, blockLimit);
    const size_t count = std::min(room, data.size() - dataDelivered);
    std::memcpy(dataBlock->bufferPtr, data.data() + dataDelivered, count);
    dataDelivered += count;
    dataBlock->numBytes = static_cast<uint32_t>(count);
    auto forced = getDataNumBytesAt.find(call);
    if (forced != getDataNumBytesAt.end()) {
        dataBlock->numBytes = forced->second;
    }
    lastGetDataRc = dataDelivered == data.size() ? BSA_RC_NO_MORE_DATA : 0;
    return lastGetDataRc;
}

int32_t FakeApiWrapper::BSAEndData(BSA_Handle handle) {
    Record("BSAEndData", handle);
    return endDataResult;
}

int32_t FakeApiWrapper::CorrectFileSize(const BSA_ObjectDescriptor* desc, uint64_t* size,
                                        const char* serverName, const char* clientName) {
    calls.emplace_back("CorrectFileSize");
    if (oversizedRecords) {
        nwsim::ReadOversizedRecord(desc);
    }
    correctDescriptor = *desc;
    correctServer = serverName;
    correctClient = clientName;
    *size = correctedSize;
    return correctResult;
}

BSA_ObjectDescriptor MakeDescriptor(const std::string& path, const char* resourceType,
                                    uint64_t size, int year, int month, int day, int hour,
                                    int minute, int second) {
    BSA_ObjectDescriptor descriptor{};
    descriptor.version = 1;
    std::strcpy(descriptor.Owner.bsa_ObjectOwner, "MSEXCH");
    std::strcpy(descriptor.Owner.app_ObjectOwner, "msexch");
    std::strcpy(descriptor.objectName.objectSpaceName, "\\Microsoft Information Store");
    std::strncpy(descriptor.objectName.pathName, path.c_str(),
                 sizeof descriptor.objectName.pathName - 1);
    descriptor.createTime.tm_year = year - 1900;
    descriptor.createTime.tm_mon = month - 1;
    descriptor.createTime.tm_mday = day;
    descriptor.createTime.tm_hour = hour;
    descriptor.createTime.tm_min = minute;
    descriptor.createTime.tm_sec = second;
    descriptor.copyType = BSA_CopyType_BACKUP;
    descriptor.copyId = BSA_UInt64{0, 42};
    descriptor.restoreOrder = BSA_UInt64{7, 9};
    descriptor.size = BSA_UInt64{static_cast<uint32_t>(size >> 32), static_cast<uint32_t>(size)};
    std::strcpy(descriptor.resourceType, resourceType);
    descriptor.objectType = BSA_ObjectType_FILE;
    descriptor.objectStatus = BSA_ObjectStatus_MOST_RECENT;
    std::strcpy(descriptor.objectDescription, "Exchange file");
    std::memset(descriptor.reservedByStandard, 'r', sizeof descriptor.reservedByStandard);
    std::strcpy(descriptor.objectInfo, "saveset info");
    return descriptor;
}
