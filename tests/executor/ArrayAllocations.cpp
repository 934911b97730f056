#include "ArrayAllocations.h"

#include <cstdlib>
#include <mutex>
#include <new>

namespace {

struct WatchState {
    std::mutex mutex;
    bool active = false;
    size_t failFrom = 0;  // 0: nothing fails
    std::vector<size_t> sizes;
    size_t frees = 0;
};

WatchState& State() {
    static WatchState state;
    return state;
}

void* AllocateArray(size_t size) {
    WatchState& state = State();
    {
        // The recording allocates through the scalar operator new, which is not replaced.
        const std::lock_guard<std::mutex> lock(state.mutex);
        if (state.active) {
            state.sizes.push_back(size);
            if (state.failFrom != 0 && size >= state.failFrom) {
                return nullptr;
            }
        }
    }
    return std::malloc(size != 0 ? size : 1);
}

void FreeArray(void* block) {
    if (block == nullptr) {
        return;
    }
    WatchState& state = State();
    {
        const std::lock_guard<std::mutex> lock(state.mutex);
        if (state.active) {
            ++state.frees;
        }
    }
    std::free(block);
}

}  // namespace

ArrayAllocationWatch::ArrayAllocationWatch() {
    WatchState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.active = true;
    state.failFrom = 0;
    state.sizes.clear();
    state.frees = 0;
}

ArrayAllocationWatch::~ArrayAllocationWatch() {
    WatchState& state = State();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.active = false;
    state.failFrom = 0;
}

void ArrayAllocationWatch::FailFrom(size_t bytes) {
    const std::lock_guard<std::mutex> lock(State().mutex);
    State().failFrom = bytes;
}

std::vector<size_t> ArrayAllocationWatch::Sizes() const {
    const std::lock_guard<std::mutex> lock(State().mutex);
    return State().sizes;
}

std::vector<size_t> ArrayAllocationWatch::SizesFrom(size_t bytes) const {
    std::vector<size_t> large;
    for (const size_t size : Sizes()) {
        if (size >= bytes) {
            large.push_back(size);
        }
    }
    return large;
}

size_t ArrayAllocationWatch::Frees() const {
    const std::lock_guard<std::mutex> lock(State().mutex);
    return State().frees;
}

// The replaced array forms; every delete[] form frees what the new[] forms allocate.
void* operator new[](size_t size) {
    if (void* block = AllocateArray(size)) {
        return block;
    }
    throw std::bad_alloc();
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return AllocateArray(size);
}

void operator delete[](void* block) noexcept {
    FreeArray(block);
}

void operator delete[](void* block, size_t) noexcept {
    FreeArray(block);
}

void operator delete[](void* block, const std::nothrow_t&) noexcept {
    FreeArray(block);
}
