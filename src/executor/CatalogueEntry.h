#pragma once
// The executor's catalogue: one compact entry per accepted backup object. An entry keeps every
// fixed field of the object's descriptor except Owner, and three exactly-sized heap strings in
// place of the descriptor's large text arrays. Platform-neutral.

#include <cstddef>
#include <ctime>
#include <vector>

#include "interfaces/xbsa.h"

class ILog;

struct CatalogueEntry {
    BSA_UInt32 version;
    BSA_CopyType copyType;
    BSA_ObjectType objectType;
    BSA_ObjectStatus objectStatus;
    std::tm createTime;
    BSA_UInt64 copyId;
    BSA_UInt64 restoreOrder;
    BSA_UInt64 size;
    char lGName[BSA_MAX_LG_NAME];
    char cGName[BSA_MAX_CG_NAME];
    char resourceType[BSA_MAX_RESOURCETYPE];
    char objectDescription[BSA_MAX_DESC];
    // Owned by the catalogue; freed only by ClearM_smVecObjects.
    char* objectSpaceName;
    char* pathName;
    char* objectInfo;  // at most 256 characters
};

using CatalogueEntries = std::vector<CatalogueEntry>;

// Where catalogue memory comes from. The defaults use the global heap; tests substitute
// failures to prove what the host is told when memory runs out.
class CatalogueMemory {
public:
    virtual ~CatalogueMemory() = default;
    // Throws std::bad_alloc when no memory is left.
    virtual char* AllocateString(size_t bytes);
    virtual void FreeString(char* text);
    // Throws std::bad_alloc when the catalogue cannot grow.
    virtual void Reserve(CatalogueEntries& entries, size_t count);
};

CatalogueMemory& DefaultCatalogueMemory();

// Fills `entry` from `descriptor`. Returns 1, or 0 when one of the three strings could not be
// allocated (the strings allocated before it are released again; `entry` then holds none).
// Traces under "NetWorkerApiExecutor::LoadSmVecObjects".
int LoadSmVecObjects(ILog* log, CatalogueMemory& memory, const BSA_ObjectDescriptor& descriptor,
                     CatalogueEntry* entry);

// The reverse: fills a descriptor from an entry, leaving its Owner as the caller set it.
// Traces under "NetWorkerApiExecutor::LoadLrgVecObjects".
void LoadLrgVecObjects(ILog* log, const CatalogueEntry& entry, BSA_ObjectDescriptor* descriptor);

// Frees the strings of every entry and nulls them; the number of entries stays. Returns 1 when
// every string was present, else 0. Traces under "NetWorkerApiExecutor::ClearM_smVecObjects".
int ClearM_smVecObjects(ILog* log, CatalogueMemory& memory, CatalogueEntries& entries);
