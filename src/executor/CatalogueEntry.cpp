#include "CatalogueEntry.h"

#include <cstring>
#include <new>
#include <stdexcept>

#include "common/MethodTracer.h"

namespace {

template <size_t N>
size_t BoundedLength(const char (&text)[N]) {
    const void* end = std::memchr(text, '\0', N);
    return end != nullptr ? static_cast<size_t>(static_cast<const char*>(end) - text) : N;
}

char* CopyText(CatalogueMemory& memory, const char* text, size_t length) {
    char* copy = memory.AllocateString(length + 1);
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

// Copies back into a fixed array; a text that filled the array unterminated comes back so.
template <size_t N>
void RestoreText(char (&target)[N], const char* text) {
    std::memset(target, 0, N);
    if (text != nullptr) {
        std::memcpy(target, text, strnlen(text, N));
    }
}

// Every fixed field but Owner, in either direction: descriptor and entry name them alike.
template <typename From, typename To>
void CopyFixedFields(const From& from, To* to) {
    to->version = from.version;
    to->copyType = from.copyType;
    to->objectType = from.objectType;
    to->objectStatus = from.objectStatus;
    to->createTime = from.createTime;
    to->copyId = from.copyId;
    to->restoreOrder = from.restoreOrder;
    to->size = from.size;
    static_assert(sizeof to->lGName == sizeof from.lGName, "same group name size");
    static_assert(sizeof to->objectDescription == sizeof from.objectDescription,
                  "same description size");
    static_assert(sizeof to->reservedByStandard == sizeof from.reservedByStandard,
                  "same reserved size");
    std::memcpy(to->lGName, from.lGName, sizeof to->lGName);
    std::memcpy(to->cGName, from.cGName, sizeof to->cGName);
    std::memcpy(to->resourceType, from.resourceType, sizeof to->resourceType);
    std::memcpy(to->reservedByStandard, from.reservedByStandard, sizeof to->reservedByStandard);
    std::memcpy(to->objectDescription, from.objectDescription, sizeof to->objectDescription);
}

}  // namespace

void CatalogueEntries::reserve(size_t count) {
    while (capacity() < count) {
        // Default-initialised: the pages are touched only as entries are written.
        std::unique_ptr<CatalogueEntry[]> block(new CatalogueEntry[kBlockEntries]);
        m_blocks.push_back(std::move(block));
    }
}

void CatalogueEntries::push_back(const CatalogueEntry& entry) {
    if (m_size == capacity()) {
        throw std::length_error("catalogue has no reserved room");
    }
    (*this)[m_size] = entry;
    ++m_size;
}

char* CatalogueMemory::AllocateString(size_t bytes) {
    return new char[bytes];
}

void CatalogueMemory::FreeString(char* text) {
    delete[] text;
}

void CatalogueMemory::Reserve(CatalogueEntries& entries, size_t count) {
    entries.reserve(count);
}

char* CatalogueStringPool::AllocateString(size_t bytes) {
    if (bytes > m_left) {
        // A string longer than a chunk gets a chunk of its own; the current one goes on.
        const size_t chunkBytes = bytes > kChunkBytes ? bytes : kChunkBytes;
        m_chunks.reserve(m_chunks.size() + 1);  // may throw before anything is taken
        std::unique_ptr<char[]> chunk(new char[chunkBytes]);
        char* start = chunk.get();
        m_chunks.push_back(std::move(chunk));
        if (chunkBytes != kChunkBytes) {
            return start;
        }
        m_next = start;
        m_left = chunkBytes;
    }
    char* text = m_next;
    m_next += bytes;
    m_left -= bytes;
    return text;
}

void CatalogueStringPool::FreeString(char*) {}

CatalogueMemory& DefaultCatalogueMemory() {
    static CatalogueMemory memory;
    return memory;
}

int LoadSmVecObjects(ILog* log, CatalogueMemory& memory, const BSA_ObjectDescriptor& descriptor,
                     CatalogueEntry* entry) {
    NWX_TRACE_METHOD(log, L"NetWorkerApiExecutor::LoadSmVecObjects");
    const size_t spaceLength = BoundedLength(descriptor.objectName.objectSpaceName);
    const size_t pathLength = BoundedLength(descriptor.objectName.pathName);
    const size_t infoLength = BoundedLength(descriptor.objectInfo);  // never above 256

    char* objectSpaceName = nullptr;
    char* pathName = nullptr;
    char* objectInfo = nullptr;
    try {
        objectSpaceName = CopyText(memory, descriptor.objectName.objectSpaceName, spaceLength);
        pathName = CopyText(memory, descriptor.objectName.pathName, pathLength);
        objectInfo = CopyText(memory, descriptor.objectInfo, infoLength);
    } catch (const std::bad_alloc&) {
        if (pathName != nullptr) {
            memory.FreeString(pathName);
        }
        if (objectSpaceName != nullptr) {
            memory.FreeString(objectSpaceName);
        }
        return 0;
    }

    CopyFixedFields(descriptor, entry);
    entry->objectSpaceName = objectSpaceName;
    entry->pathName = pathName;
    entry->objectInfo = objectInfo;
    return 1;
}

void LoadLrgVecObjects(ILog* log, const CatalogueEntry& entry, BSA_ObjectDescriptor* descriptor) {
    NWX_TRACE_METHOD(log, L"NetWorkerApiExecutor::LoadLrgVecObjects");
    CopyFixedFields(entry, descriptor);
    RestoreText(descriptor->objectName.objectSpaceName, entry.objectSpaceName);
    RestoreText(descriptor->objectName.pathName, entry.pathName);
    RestoreText(descriptor->objectInfo, entry.objectInfo);
}

int ClearM_smVecObjects(ILog* log, CatalogueMemory& memory, CatalogueEntries& entries) {
    NWX_TRACE_METHOD(log, L"NetWorkerApiExecutor::ClearM_smVecObjects");
    int allPresent = 1;
    for (size_t i = 0; i < entries.size(); ++i) {
        CatalogueEntry& entry = entries[i];
        for (char** text : {&entry.objectSpaceName, &entry.pathName, &entry.objectInfo}) {
            if (*text != nullptr) {
                memory.FreeString(*text);
                *text = nullptr;
            } else {
                allPresent = 0;
            }
        }
    }
    return allPresent;
}
