// One source for every fake library; FAKE_LIBRARY_NAME and the FAKE_* switches choose what a
// build exports.
#include "FakeNetWorker.h"

#include <windows.h>

#include <cstdio>
#include <cstring>

#include "interfaces/xbsa.h"

#define FAKE_EXPORT extern "C" __declspec(dllexport)

namespace {

FakeCall g_calls[kFakeMaxCalls];
int g_callCount = 0;
int32_t g_result = 0;

[[maybe_unused]] FakeCall* Record(const char* name, int argumentCount) {
    if (g_callCount >= kFakeMaxCalls) {
        return nullptr;
    }
    FakeCall* call = &g_calls[g_callCount++];
    *call = FakeCall{};
    std::snprintf(call->name, sizeof(call->name), "%s", name);
    call->argumentCount = argumentCount;
    return call;
}

// Appends this library's name to the file named by FAKE_NETWORKER_UNLOAD_LOG, if set.
void NoteUnload() {
    char path[MAX_PATH] = {};
    if (GetEnvironmentVariableA("FAKE_NETWORKER_UNLOAD_LOG", path, MAX_PATH) == 0) {
        return;
    }
    HANDLE file = CreateFileA(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return;
    }
    const char line[] = FAKE_LIBRARY_NAME "\n";
    DWORD written = 0;
    WriteFile(file, line, sizeof(line) - 1, &written, nullptr);
    CloseHandle(file);
}

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved) {
    // Only an explicit FreeLibrary, not the end of the process, counts as an unload.
    if (reason == DLL_PROCESS_DETACH && reserved == nullptr) {
        NoteUnload();
    }
    return TRUE;
}

FAKE_EXPORT void FakeReset() {
    g_callCount = 0;
    g_result = 0;
}
FAKE_EXPORT void FakeSetResult(int32_t result) {
    g_result = result;
}
FAKE_EXPORT int FakeCallCount() {
    return g_callCount;
}
FAKE_EXPORT const FakeCall* FakeGetCall(int index) {
    return index >= 0 && index < g_callCount ? &g_calls[index] : nullptr;
}

#ifdef FAKE_EXPORT_LGINIT
FAKE_EXPORT int _lginit(const char* program, void* reserved1, void* reserved2) {
    if (FakeCall* call = Record("_lginit", 3)) {
        std::snprintf(call->text, sizeof(call->text), "%s", program != nullptr ? program : "");
        call->pointers[0] = program;
        call->pointers[1] = reserved1;
        call->pointers[2] = reserved2;
    }
    return g_result;
}
#endif

#ifdef FAKE_EXPORT_NSRLIB_INIT
FAKE_EXPORT int nsrlib_init(void** context) {
    if (FakeCall* call = Record("nsrlib_init", 1)) {
        call->pointers[0] = context;
        call->valueAtPointer =
            context != nullptr ? reinterpret_cast<uintptr_t>(*context) : ~uintptr_t{0};
    }
    return g_result;
}
#endif

#ifdef FAKE_EXPORT_XBSA
FAKE_EXPORT BSA_Int32 BSAInit(BSA_Handle* handle, BSA_SecurityToken* token, BSA_ObjectOwner* owner,
                              char** environment) {
    if (FakeCall* call = Record("BSAInit", 4)) {
        call->pointers[0] = handle;
        call->pointers[1] = token;
        call->pointers[2] = owner;
        call->pointers[3] = environment;
    }
    if (handle != nullptr) {
        *handle = 0x1234567890ull;
    }
    return g_result;
}

#define FAKE_HANDLE_ONLY(entryPoint)                      \
    FAKE_EXPORT BSA_Int32 entryPoint(BSA_Handle handle) { \
        if (FakeCall* call = Record(#entryPoint, 1)) {    \
            call->handle = handle;                        \
        }                                                 \
        return g_result;                                  \
    }

FAKE_HANDLE_ONLY(BSATerminate)
FAKE_HANDLE_ONLY(BSABeginTxn)

FAKE_EXPORT BSA_Int32 BSAEndTxn(BSA_Handle handle, BSA_Vote vote) {
    if (FakeCall* call = Record("BSAEndTxn", 2)) {
        call->handle = handle;
        call->vote = vote;
    }
    return g_result;
}

FAKE_EXPORT BSA_Int32 BSAQueryObject(BSA_Handle handle, BSA_QueryDescriptor* query,
                                     BSA_ObjectDescriptor* descriptor) {
    if (FakeCall* call = Record("BSAQueryObject", 3)) {
        call->handle = handle;
        call->pointers[0] = query;
        call->pointers[1] = descriptor;
    }
    return g_result;
}

FAKE_EXPORT BSA_Int32 BSAQueryApiVersion(BSA_ApiVersion* version) {
    if (FakeCall* call = Record("BSAQueryApiVersion", 1)) {
        call->pointers[0] = version;
    }
    if (version != nullptr) {
        version->issue = 1;
        version->version = 2;
        version->level = 3;
    }
    return g_result;
}

FAKE_EXPORT BSA_Int32 BSAGetNextQueryObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor) {
    if (FakeCall* call = Record("BSAGetNextQueryObject", 2)) {
        call->handle = handle;
        call->pointers[0] = descriptor;
    }
    return g_result;
}

FAKE_EXPORT BSA_Int32 BSAGetObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor,
                                   BSA_DataBlock32* dataBlock) {
    if (FakeCall* call = Record("BSAGetObject", 3)) {
        call->handle = handle;
        call->pointers[0] = descriptor;
        call->pointers[1] = dataBlock;
    }
    return g_result;
}

#ifndef FAKE_WITHOUT_GETDATA
FAKE_EXPORT BSA_Int32 BSAGetData(BSA_Handle handle, BSA_DataBlock32* dataBlock) {
    if (FakeCall* call = Record("BSAGetData", 2)) {
        call->handle = handle;
        call->pointers[0] = dataBlock;
    }
    return g_result;
}

// Leaving BSAEndData out too shows that resolution stops at the first missing export.
FAKE_HANDLE_ONLY(BSAEndData)
#endif
#endif
