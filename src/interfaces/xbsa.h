#pragma once
/*
 * Our own declarations of the Open Group XBSA (Backup Services API) types, written from the
 * published standard. Numeric values follow what the backup server returns where they differ
 * from the standard's sample header: copy type backup = 1, object type file = 1 and object
 * status most recent = 1. The session handle is 64-bit.
 */

#include <stddef.h>
#include <stdint.h>
#if !defined(__has_include) || __has_include(<time.h>)
#include <time.h>
#else
/* A host compiled without a C runtime: struct tm as every C runtime lays it out. */
struct tm {
    int tm_sec;
    int tm_min;
    int tm_hour;
    int tm_mday;
    int tm_mon;
    int tm_year;
    int tm_wday;
    int tm_yday;
    int tm_isdst;
};
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef uint16_t BSA_UInt16;
typedef uint32_t BSA_UInt32;
typedef int32_t BSA_Int32;
typedef uint64_t BSA_Handle;

typedef struct {
    BSA_UInt32 left;  /* high 32 bits */
    BSA_UInt32 right; /* low 32 bits */
} BSA_UInt64;

#define BSA_MAX_APPOBJECT_OWNER 64
#define BSA_MAX_BSAOBJECT_OWNER 64
#define BSA_MAX_OSNAME 1024
#define BSA_MAX_PATHNAME 1024
#define BSA_MAX_CG_NAME 31
#define BSA_MAX_LG_NAME 31
#define BSA_MAX_RESOURCETYPE 31
#define BSA_MAX_RESERVED 31 /* the unnamed reserved member of the object descriptor */
#define BSA_MAX_DESC 100
#define BSA_MAX_OBJINFO 256
#define BSA_MAX_TOKEN_SIZE 64

/* Return codes, named and numbered as the Open Group standard (C425) has them. */
#define BSA_RC_SUCCESS 0
#define BSA_RC_ABORT_SYSTEM_ERROR 3
#define BSA_RC_AUTHENTICATION_FAILURE 4
#define BSA_RC_INVALID_CALL_SEQUENCE 5
#define BSA_RC_INVALID_HANDLE 6
#define BSA_RC_INVALID_VOTE 11
#define BSA_RC_NO_MATCH 17
#define BSA_RC_NO_MORE_DATA 18
#define BSA_RC_OBJECT_NOT_FOUND 26
#define BSA_RC_TRANSACTION_ABORTED 32
#define BSA_RC_INVALID_DATABLOCK 52
#define BSA_RC_VERSION_NOT_SUPPORTED 75
#define BSA_RC_ACCESS_FAILURE 77
#define BSA_RC_BUFFER_TOO_SMALL 78
#define BSA_RC_INVALID_COPYID 79
#define BSA_RC_INVALID_ENV 80
#define BSA_RC_INVALID_OBJECTDESCRIPTOR 81
#define BSA_RC_INVALID_QUERYDESCRIPTOR 83
#define BSA_RC_NULL_ARGUMENT 85

typedef enum {
    BSA_CopyType_ANY = 0,
    BSA_CopyType_BACKUP = 1,
    BSA_CopyType_ARCHIVE = 2
} BSA_CopyType;

typedef enum {
    BSA_ObjectType_ANY = 0,
    BSA_ObjectType_FILE = 1,
    BSA_ObjectType_DIRECTORY = 2,
    BSA_ObjectType_OTHER = 3
} BSA_ObjectType;

typedef enum {
    BSA_ObjectStatus_ANY = 0,
    BSA_ObjectStatus_MOST_RECENT = 1,
    BSA_ObjectStatus_NOT_MOST_RECENT = 2
} BSA_ObjectStatus;

typedef enum { BSAVote_COMMIT = 1, BSAVote_ABORT = 2 } BSA_Vote;

typedef struct {
    BSA_UInt16 issue;
    BSA_UInt16 version;
    BSA_UInt16 level;
} BSA_ApiVersion;

typedef struct {
    char token[BSA_MAX_TOKEN_SIZE];
} BSA_SecurityToken;

typedef struct {
    char bsa_ObjectOwner[BSA_MAX_BSAOBJECT_OWNER];
    char app_ObjectOwner[BSA_MAX_APPOBJECT_OWNER];
} BSA_ObjectOwner;

typedef struct {
    char objectSpaceName[BSA_MAX_OSNAME];
    char pathName[BSA_MAX_PATHNAME];
} BSA_ObjectName;

typedef struct {
    BSA_UInt32 version;
    BSA_ObjectOwner Owner;
    BSA_ObjectName objectName;
    struct tm createTime; /* tm_year since 1900, tm_mon from 0 */
    BSA_CopyType copyType;
    BSA_UInt64 copyId;
    BSA_UInt64 restoreOrder;
    char lGName[BSA_MAX_LG_NAME];
    char cGName[BSA_MAX_CG_NAME];
    BSA_UInt64 size;
    char resourceType[BSA_MAX_RESOURCETYPE];
    BSA_ObjectType objectType;
    BSA_ObjectStatus objectStatus;
    /* Reserved by the standard (its "rsv4"); libraries write it, so it is kept and handed back
     * as the query returned it. */
    char reservedByStandard[BSA_MAX_RESERVED];
    char objectDescription[BSA_MAX_DESC];
    char objectInfo[BSA_MAX_OBJINFO];
} BSA_ObjectDescriptor;

typedef struct {
    BSA_ObjectOwner owner;
    BSA_ObjectName objectName;
    struct tm createTimeLB;
    struct tm createTimeUB;
    struct tm expireTimeLB;
    struct tm expireTimeUB;
    BSA_CopyType copyType;
    char lGName[BSA_MAX_LG_NAME];
    char cGName[BSA_MAX_CG_NAME];
    char resourceType[BSA_MAX_RESOURCETYPE];
    BSA_ObjectType objectType;
    BSA_ObjectStatus status;
    char description[BSA_MAX_DESC];
} BSA_QueryDescriptor;

typedef struct {
    BSA_UInt32 bufferLen; /* in: size of the buffer; after BSAGetObject: size wanted */
    BSA_UInt32 numBytes;  /* in: room in the buffer; out: bytes delivered */
    BSA_UInt32 headerBytes;
    BSA_UInt32 shareId;
    BSA_UInt32 shareOffset;
    void* bufferPtr;
} BSA_DataBlock32;

/* Entry points of the XBSA library, resolved at run time. */
typedef BSA_Int32 (*BSAInitFn)(BSA_Handle* handle, BSA_SecurityToken* token, BSA_ObjectOwner* owner,
                               char** environment);
typedef BSA_Int32 (*BSATerminateFn)(BSA_Handle handle);
typedef BSA_Int32 (*BSABeginTxnFn)(BSA_Handle handle);
/* Always called with BSAVote_COMMIT: on x64 a library that declares the handle alone never reads
 * the second argument, and one that declares the vote gets a defined one. */
typedef BSA_Int32 (*BSAEndTxnFn)(BSA_Handle handle, BSA_Vote vote);
typedef BSA_Int32 (*BSAQueryObjectFn)(BSA_Handle handle, BSA_QueryDescriptor* query,
                                      BSA_ObjectDescriptor* descriptor);
typedef BSA_Int32 (*BSAQueryApiVersionFn)(BSA_ApiVersion* version);
typedef BSA_Int32 (*BSAGetNextQueryObjectFn)(BSA_Handle handle, BSA_ObjectDescriptor* descriptor);
typedef BSA_Int32 (*BSAGetObjectFn)(BSA_Handle handle, BSA_ObjectDescriptor* descriptor,
                                    BSA_DataBlock32* dataBlock);
typedef BSA_Int32 (*BSAGetDataFn)(BSA_Handle handle, BSA_DataBlock32* dataBlock);
typedef BSA_Int32 (*BSAEndDataFn)(BSA_Handle handle);

/* The two start-up calls of the server's support libraries. */
typedef int (*LgInitFn)(const char* program, void* reserved1, void* reserved2);
typedef int (*NsrLibInitFn)(void** context);

#ifdef __cplusplus
}
#endif

#include "XbsaLayout.h"
