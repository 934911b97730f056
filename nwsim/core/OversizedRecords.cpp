#include "OversizedRecords.h"

namespace nwsim {

void ReadOversizedRecord(const void* record, size_t declaredSize) {
    if (record == nullptr) {
        return;
    }
    // Volatile: the reads are the point, and must not be folded away.
    const volatile unsigned char* bytes = static_cast<const unsigned char*>(record);
    for (size_t i = 0; i < declaredSize + kOversizeBytes; ++i) {
        (void)bytes[i];
    }
}

void OverrunRecord(void* record, size_t declaredSize) {
    if (record == nullptr) {
        return;
    }
    ReadOversizedRecord(record, declaredSize);
    volatile unsigned char* bytes = static_cast<unsigned char*>(record);
    for (size_t i = declaredSize; i < declaredSize + kOversizeBytes; ++i) {
        bytes[i] = kOversizePattern;
    }
}

}  // namespace nwsim
