#pragma once
// The x64 layout of the XBSA records that a standard-conforming library writes and reads whole.
// A library fills every byte of the record it declares, so a field that moves or a record that
// shrinks here corrupts the caller's memory at run time; these checks make that a build error
// instead, for GCC and for Visual C++ alike (xbsa.h includes this file at its end). Windows'
// struct tm is nine ints; other C runtimes add members, so the records holding one are checked
// on Windows only.

#include <stddef.h>

#ifdef __cplusplus
#define NWX_XBSA_LAYOUT(condition, what) static_assert(condition, what)
#else
#define NWX_XBSA_LAYOUT(condition, what) /* checked by every C++ translation unit */
#endif

#if defined(_WIN64)
NWX_XBSA_LAYOUT(sizeof(struct tm) == 36, "struct tm is nine ints");

NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, version) == 0, "version");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, Owner) == 4, "Owner");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, objectName) == 132, "objectName");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, objectName.pathName) == 1156, "pathName");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, createTime) == 2180, "createTime");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, copyType) == 2216, "copyType");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, copyId) == 2220, "copyId");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, restoreOrder) == 2228, "restoreOrder");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, lGName) == 2236, "lGName");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, cGName) == 2267, "cGName");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, size) == 2300, "size");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, resourceType) == 2308, "resourceType");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, objectType) == 2340, "objectType");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, objectStatus) == 2344, "objectStatus");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, reservedByStandard) == 2348, "reservedByStandard");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, objectDescription) == 2379, "objectDescription");
NWX_XBSA_LAYOUT(offsetof(BSA_ObjectDescriptor, objectInfo) == 2479, "objectInfo");
NWX_XBSA_LAYOUT(sizeof(BSA_ObjectDescriptor) == 2736, "BSA_ObjectDescriptor");

NWX_XBSA_LAYOUT(offsetof(BSA_QueryDescriptor, owner) == 0, "owner");
NWX_XBSA_LAYOUT(offsetof(BSA_QueryDescriptor, objectName) == 128, "objectName");
NWX_XBSA_LAYOUT(offsetof(BSA_QueryDescriptor, createTimeLB) == 2176, "createTimeLB");
NWX_XBSA_LAYOUT(offsetof(BSA_QueryDescriptor, createTimeUB) == 2212, "createTimeUB");
NWX_XBSA_LAYOUT(offsetof(BSA_QueryDescriptor, expireTimeLB) == 2248, "expireTimeLB");
NWX_XBSA_LAYOUT(offsetof(BSA_QueryDescriptor, expireTimeUB) == 2284, "expireTimeUB");
NWX_XBSA_LAYOUT(offsetof(BSA_QueryDescriptor, copyType) == 2320, "copyType");
NWX_XBSA_LAYOUT(offsetof(BSA_QueryDescriptor, lGName) == 2324, "lGName");
NWX_XBSA_LAYOUT(offsetof(BSA_QueryDescriptor, cGName) == 2355, "cGName");
NWX_XBSA_LAYOUT(offsetof(BSA_QueryDescriptor, resourceType) == 2386, "resourceType");
NWX_XBSA_LAYOUT(offsetof(BSA_QueryDescriptor, objectType) == 2420, "objectType");
NWX_XBSA_LAYOUT(offsetof(BSA_QueryDescriptor, status) == 2424, "status");
NWX_XBSA_LAYOUT(offsetof(BSA_QueryDescriptor, description) == 2428, "description");
NWX_XBSA_LAYOUT(sizeof(BSA_QueryDescriptor) == 2528, "BSA_QueryDescriptor");
#endif

#if defined(_WIN64) || defined(__x86_64__) || defined(__aarch64__)
NWX_XBSA_LAYOUT(offsetof(BSA_DataBlock32, bufferLen) == 0, "bufferLen");
NWX_XBSA_LAYOUT(offsetof(BSA_DataBlock32, numBytes) == 4, "numBytes");
NWX_XBSA_LAYOUT(offsetof(BSA_DataBlock32, headerBytes) == 8, "headerBytes");
NWX_XBSA_LAYOUT(offsetof(BSA_DataBlock32, shareId) == 12, "shareId");
NWX_XBSA_LAYOUT(offsetof(BSA_DataBlock32, shareOffset) == 16, "shareOffset");
NWX_XBSA_LAYOUT(offsetof(BSA_DataBlock32, bufferPtr) == 24, "bufferPtr");
NWX_XBSA_LAYOUT(sizeof(BSA_DataBlock32) == 32, "BSA_DataBlock32");

NWX_XBSA_LAYOUT(sizeof(BSA_ApiVersion) == 6, "BSA_ApiVersion");
NWX_XBSA_LAYOUT(sizeof(BSA_SecurityToken) == 64, "BSA_SecurityToken");
NWX_XBSA_LAYOUT(sizeof(BSA_ObjectOwner) == 128, "BSA_ObjectOwner");
#endif

#undef NWX_XBSA_LAYOUT
