#pragma once
// The executor's catalogue: one compact entry per accepted backup object. An entry keeps every
// fixed field of the object's descriptor except Owner, and three exactly-sized heap strings in
// place of the descriptor's large text arrays. Platform-neutral.

#include <cstddef>
#include <ctime>
#include <memory>
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
    char reservedByStandard[BSA_MAX_RESERVED];
    char objectDescription[BSA_MAX_DESC];
    // Owned by the catalogue; freed only by ClearM_smVecObjects.
    char* objectSpaceName;
    char* pathName;
    char* objectInfo;  // at most 256 characters
};

// The catalogue's storage: room is reserved in blocks of kBlockEntries, and a block once
// reserved never moves, so growing by one block neither copies entries nor touches the memory
// of the earlier blocks again (a plain vector grown 10240 entries at a time would copy the whole
// catalogue at every step). clear() keeps the blocks.
class CatalogueEntries {
public:
    static constexpr size_t kBlockEntries = 10240;

    size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    // Entries for which room is reserved: a multiple of kBlockEntries.
    size_t capacity() const { return m_blocks.size() * kBlockEntries; }

    // Adds blocks until capacity() >= count; throws std::bad_alloc when memory runs out.
    void reserve(size_t count);
    // Needs room (reserve first); throws std::length_error when there is none.
    void push_back(const CatalogueEntry& entry);
    void clear() { m_size = 0; }

    CatalogueEntry& operator[](size_t index) {
        return m_blocks[index / kBlockEntries][index % kBlockEntries];
    }
    const CatalogueEntry& operator[](size_t index) const {
        return m_blocks[index / kBlockEntries][index % kBlockEntries];
    }
    CatalogueEntry& back() { return (*this)[m_size - 1]; }

private:
    std::vector<std::unique_ptr<CatalogueEntry[]>> m_blocks;
    size_t m_size = 0;
};

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

// The executor's own: strings are carved from 64 KiB chunks that live as long as the pool, so a
// catalogue of 100,000 entries costs a few hundred heap calls instead of 300,000, and the heap
// is not fragmented under the server library's own allocations. FreeString releases nothing;
// the chunks go with the pool, which is when the executor is destroyed.
class CatalogueStringPool : public CatalogueMemory {
public:
    static constexpr size_t kChunkBytes = size_t{64} * 1024;

    char* AllocateString(size_t bytes) override;
    void FreeString(char* text) override;
    size_t ChunkCount() const { return m_chunks.size(); }

private:
    std::vector<std::unique_ptr<char[]>> m_chunks;
    char* m_next = nullptr;
    size_t m_left = 0;
};

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
