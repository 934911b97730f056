#pragma once
// What the Visual C++ names of the ten exported functions are bound to: the same factories as
// the GCC names, each handing out the object that stands in front of the library's own for a
// Visual C++ host (MsvcHostObjects.h). The Free functions are the GCC names' own: slot 0 of a
// stand-in frees it and the object behind it. cmake/msvc-export-names.sh pairs the names by
// the order of MsvcHostAnchors.cpp, which is that of ExportAnchors.cpp.

#include "exports/NetWorkerXbsa.h"

namespace msvc_host {

bool AllocateNamedPipeConnection(INamedPipeConnection** connection);
bool AllocateNetWorkerApiExecutor(INetWorkerExecutor** executor, INetWorkerApiWrapper* wrapper);
bool AllocateNetWorkerApiWrapper(INetWorkerApiWrapper** wrapper);
bool AllocateNetWorkerNamedPipeClient(const wchar_t* pipeName, INamedPipeConnection* connection,
                                      INetWorkerExecutor* executor, ILog* log,
                                      INetWorkerNamedPipeClient** client);
bool AllocateNetWorkerNamedPipeExecutor(INetWorkerExecutor** executor, const wchar_t* pipeName,
                                        INamedPipeConnection* connection);
bool AllocateNetWorkerNamedPipeExecutor(INetWorkerExecutor** executor, const wchar_t* pipeName,
                                        INamedPipeConnection* connection,
                                        long (*launchClient)(const wchar_t*));

}  // namespace msvc_host
