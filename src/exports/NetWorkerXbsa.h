#pragma once
// The one header a host includes: the ten exported factories of NetWorkerXbsa.dll and the
// interfaces and records they hand out. Objects are created only by the Allocate functions
// and destroyed only by the Free functions (the library's heap is not the host's). An object
// passed to another factory is borrowed: free in reverse order of creation.
// No exported function throws: a failed Allocate returns false and stores null.

#include "interfaces/InterfaceAbi.h"
#include "interfaces/ILog.h"
#include "interfaces/INamedPipeConnection.h"
#include "interfaces/INetWorkerApiWrapper.h"
#include "interfaces/INetWorkerCallBacks.h"
#include "interfaces/INetWorkerExecutor.h"
#include "interfaces/INetWorkerNamedPipeClient.h"
#include "interfaces/NetWorkerRecords.h"

// NETWORKERXBSA_BUILDING_DLL: compiling the DLL itself. NETWORKERXBSA_STATIC: the factories
// are linked in statically (tests). Otherwise a host imports them from the DLL.
#if defined(_WIN32) && defined(NETWORKERXBSA_BUILDING_DLL)
#define NETWORKERXBSA_API __declspec(dllexport)
#elif defined(_WIN32) && !defined(NETWORKERXBSA_STATIC)
#define NETWORKERXBSA_API __declspec(dllimport)
#else
#define NETWORKERXBSA_API
#endif

// C++ linkage on purpose: hosts bind to the decorated names, which encode these exact
// argument types. The DLL exports each function under both manglings: Visual C++'s
// ("?AllocateNetWorkerApiWrapper@@YA_NPEAPEAVINetWorkerApiWrapper@@@Z", and for the three with
// a wide string also the /Zc:wchar_t- spelling) and GCC's, for MinGW programs.
NETWORKERXBSA_API bool AllocateNamedPipeConnection(INamedPipeConnection** connection);
NETWORKERXBSA_API bool AllocateNetWorkerApiExecutor(INetWorkerExecutor** executor,
                                                    INetWorkerApiWrapper* wrapper);
NETWORKERXBSA_API bool AllocateNetWorkerApiWrapper(INetWorkerApiWrapper** wrapper);
// The only Allocate function that takes its out-pointer last. The log stays the caller's.
NETWORKERXBSA_API bool AllocateNetWorkerNamedPipeClient(const wchar_t* pipeName,
                                                        INamedPipeConnection* connection,
                                                        INetWorkerExecutor* executor, ILog* log,
                                                        INetWorkerNamedPipeClient** client);
// Starts NetWorker64BitClient.exe from the current directory at Initialize.
NETWORKERXBSA_API bool AllocateNetWorkerNamedPipeExecutor(INetWorkerExecutor** executor,
                                                          const wchar_t* pipeName,
                                                          INamedPipeConnection* connection);
// Calls launchClient(pipeName) at Initialize instead; a negative result fails Initialize.
NETWORKERXBSA_API bool AllocateNetWorkerNamedPipeExecutor(INetWorkerExecutor** executor,
                                                          const wchar_t* pipeName,
                                                          INamedPipeConnection* connection,
                                                          long (*launchClient)(const wchar_t*));
NETWORKERXBSA_API void FreeNamedPipeConnection(INamedPipeConnection* connection);
NETWORKERXBSA_API void FreeNetWorkerApiWrapper(INetWorkerApiWrapper* wrapper);
// Destroys either executor.
NETWORKERXBSA_API void FreeNetWorkerExecutor(INetWorkerExecutor* executor);
NETWORKERXBSA_API void FreeNetWorkerNamedPipeClient(INetWorkerNamedPipeClient* client);
