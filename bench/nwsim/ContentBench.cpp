// Synthetic content generation rate: fills 4 GiB in 64 KiB blocks (the largest block a
// BSAGetData hands out) and prints one line with the rate in GB/s.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "SyntheticContent.h"

int main() {
    constexpr uint64_t kTotal = 4ull << 30;
    constexpr size_t kBlock = 65536;
    std::vector<unsigned char> buffer(kBlock);
    const nwsim::SyntheticContent content(0x5EED);
    uint64_t checksum = 0;
    const auto start = std::chrono::steady_clock::now();
    for (uint64_t offset = 0; offset < kTotal; offset += kBlock) {
        content.Fill(offset, buffer.data(), kBlock);
        checksum += buffer[offset % kBlock];  // keeps the work observable
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    std::printf(
        "bench_nwsim_content: synthetic content %.2f GB/s (%llu bytes in %.3f s, "
        "checksum %llu)\n",
        static_cast<double>(kTotal) / elapsed.count() / 1e9,
        static_cast<unsigned long long>(kTotal), elapsed.count(),
        static_cast<unsigned long long>(checksum));
    return 0;
}
