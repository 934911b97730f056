#pragma once
// The array allocations (new T[n]) of executor_tests, which replaces the array forms of the
// global operator new and delete (ArrayAllocations.cpp). The executor allocates its transfer
// buffer and its "NSR_CLIENT="/"NSR_SERVER=" entries that way, so a test can see when they are
// made and freed, and can make one fail. Nothing else about the allocations changes: they come
// from malloc and go back to free, also under the sanitizers.

#include <cstddef>
#include <vector>

// Watches the array allocations while it lives; one at a time, on the test's thread.
class ArrayAllocationWatch {
public:
    ArrayAllocationWatch();
    ~ArrayAllocationWatch();
    ArrayAllocationWatch(const ArrayAllocationWatch&) = delete;
    ArrayAllocationWatch& operator=(const ArrayAllocationWatch&) = delete;

    // From now on an array allocation of at least `bytes` throws std::bad_alloc.
    void FailFrom(size_t bytes);
    // The size of every array allocation since the watch began, in order (failed ones too).
    std::vector<size_t> Sizes() const;
    // The sizes of at least `bytes`.
    std::vector<size_t> SizesFrom(size_t bytes) const;
    // Blocks freed since the watch began, whenever they were allocated.
    size_t Frees() const;
};
