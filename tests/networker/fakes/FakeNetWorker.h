#pragma once
// Test doubles of NetWorker's client libraries: every entry point records its call so a test
// can see exactly what the wrapper passed, and returns a result the test chose.

#include <cstdint>

constexpr int kFakeMaxCalls = 64;

struct FakeCall {
    char name[32];
    int argumentCount;
    uint64_t handle;           // the session handle, where the entry point takes one
    const void* pointers[4];   // the pointer arguments, in order
    char text[16];             // _lginit's program name
    uintptr_t valueAtPointer;  // nsrlib_init: what its argument pointed to
    int32_t vote;              // BSAEndTxn's second argument
};

// Exported by every fake library.
using FakeResetFn = void (*)();
using FakeSetResultFn = void (*)(int32_t result);
using FakeCallCountFn = int (*)();
using FakeGetCallFn = const FakeCall* (*)(int index);
