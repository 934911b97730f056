#include "OversizedRecords.h"

namespace nwsim {

uint32_t ReadOversizedRecord(const void* record, size_t declaredSize) {
    if (record == nullptr) {
        return 0;
    }
    // Volatile: the reads are the point, and must not be folded away.
    const volatile unsigned char* bytes = static_cast<const unsigned char*>(record);
    uint32_t sum = 0;
    for (size_t i = 0; i < declaredSize + kOversizeBytes; ++i) {
        sum = sum * 31u + bytes[i];
    }
    return sum;
}

uint32_t OverrunRecord(void* record, size_t declaredSize) {
    const uint32_t sum = ReadOversizedRecord(record, declaredSize);
    if (record != nullptr) {
        volatile unsigned char* bytes = static_cast<unsigned char*>(record);
        for (size_t i = declaredSize; i < declaredSize + kOversizeBytes; ++i) {
            bytes[i] = kOversizePattern;
        }
    }
    return sum;
}

}  // namespace nwsim
