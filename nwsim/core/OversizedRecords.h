#pragma once
// A library whose XBSA records are longer than ours: published declarations differ, and a
// library reads and writes the whole record that it declares, whatever its caller declared.
// The simulated server's "records=oversized" setting, and the executor's scripted library,
// behave as one whose every record is kOversizeBytes longer than xbsa.h says: each record
// pointer it is given is read over the whole longer record, and the bytes beyond our declaration
// are overwritten with a pattern. A caller without that much room behind each record sees its
// own memory read and overwritten (and AddressSanitizer reports it).

#include <cstddef>
#include <cstdint>

namespace nwsim {

constexpr size_t kOversizeBytes = 4096;
constexpr unsigned char kOversizePattern = 0xA5;

// Reads declaredSize + kOversizeBytes bytes from record, every one (volatile reads). A null
// record reads nothing.
void ReadOversizedRecord(const void* record, size_t declaredSize);
// Reads the record so, then writes the pattern into its last kOversizeBytes; our declared fields
// are left as they were.
void OverrunRecord(void* record, size_t declaredSize);

template <typename Record>
void ReadOversizedRecord(const Record* record) {
    ReadOversizedRecord(static_cast<const void*>(record), sizeof(Record));
}

template <typename Record>
void OverrunRecord(Record* record) {
    OverrunRecord(static_cast<void*>(record), sizeof(Record));
}

}  // namespace nwsim
