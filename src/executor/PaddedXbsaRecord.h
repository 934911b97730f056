#pragma once
// An XBSA record handed to the library, in zero-filled storage kHeadroomBytes longer than our
// declaration. Published declarations of the standard's records differ in size, and a library
// writes and reads the whole record that it declares; with this headroom, a library whose record
// is longer than ours (by up to 4 KiB) overwrites and reads our own spare bytes, never the
// caller's stack beside the record. Every record the executor gives the library lives in one.
// Platform-neutral.

#include <cstddef>
#include <new>
#include <type_traits>

template <typename Record>
class PaddedXbsaRecord {
    static_assert(std::is_trivially_copyable_v<Record>, "XBSA records are plain C structures");

public:
    static constexpr size_t kHeadroomBytes = 4096;

    PaddedXbsaRecord() : m_storage{} { new (m_storage) Record(); }
    explicit PaddedXbsaRecord(const Record& record) : m_storage{} {
        new (m_storage) Record(record);
    }
    PaddedXbsaRecord(const PaddedXbsaRecord&) = delete;
    PaddedXbsaRecord& operator=(const PaddedXbsaRecord&) = delete;

    Record* get() { return std::launder(reinterpret_cast<Record*>(m_storage)); }
    const Record* get() const { return std::launder(reinterpret_cast<const Record*>(m_storage)); }
    Record* operator->() { return get(); }
    const Record* operator->() const { return get(); }
    Record& operator*() { return *get(); }
    const Record& operator*() const { return *get(); }

    // The bytes beyond our declaration, for tests that look at what a library left there.
    const unsigned char* Headroom() const { return m_storage + sizeof(Record); }

private:
    alignas(Record) unsigned char m_storage[sizeof(Record) + kHeadroomBytes];
};
