#pragma once
// The objects that the Visual C++ names of the exported factories hand out. A host built by
// Visual C++ cannot catch GCC's exceptions, so each of these stands in front of the library's
// own object and, at every operation, turns what would leave it as a GCC exception into the
// same exception raised the Visual C++ way (MsvcException.h). Objects from the GCC names (for
// nwexch, the helper, our tests) are the library's own and throw as they always did.

#include <exception>
#include <memory>
#include <new>
#include <stdexcept>

#include "MsvcException.h"
#include "common/ForeignUnwind.h"
#include "interfaces/INamedPipeConnection.h"
#include "interfaces/INetWorkerApiWrapper.h"
#include "interfaces/INetWorkerExecutor.h"
#include "interfaces/INetWorkerNamedPipeClient.h"

// Runs one operation of a Visual C++ host's object. A GCC exception is caught here, in the
// outermost frame of the library, and raised again as the Visual C++ exception of the same type
// and text only after the catch block has ended. The boundary marks where the host entered, for
// the clean-ups of a Visual C++ exception coming back from the host's own callbacks.
template <typename Call>
auto CallForMsvcHost(Call&& call) -> decltype(call()) {
    PendingMsvcException pending;
    {
        const ForeignUnwindBoundary boundary;
        try {
            return call();
        } catch (const std::invalid_argument& e) {
            pending = PendingMsvcException::Of(MsvcExceptionType::InvalidArgument, e.what());
        } catch (const std::logic_error& e) {
            pending = PendingMsvcException::Of(MsvcExceptionType::LogicError, e.what());
        } catch (const std::runtime_error& e) {
            pending = PendingMsvcException::Of(MsvcExceptionType::RuntimeError, e.what());
        } catch (const std::bad_alloc&) {
            pending = PendingMsvcException::Of(MsvcExceptionType::BadAlloc, nullptr);
        } catch (const std::exception& e) {
            pending = PendingMsvcException::Of(MsvcExceptionType::Exception, e.what());
        } catch (...) {
            pending = PendingMsvcException::Of(MsvcExceptionType::Exception, nullptr);
        }
    }
    RaiseMsvcException(pending);
}

// The library's own object behind one handed to a Visual C++ host; the object itself when it
// is not one of those (a host's own implementation).
INetWorkerExecutor* LibraryObjectOf(INetWorkerExecutor* object);
INetWorkerApiWrapper* LibraryObjectOf(INetWorkerApiWrapper* object);
INamedPipeConnection* LibraryObjectOf(INamedPipeConnection* object);

std::unique_ptr<INetWorkerExecutor> ForMsvcHost(std::unique_ptr<INetWorkerExecutor> executor);
// `hostWrapper`, when given, is a host's own wrapper that `executor` calls through a guard;
// the host's executor object owns it.
std::unique_ptr<INetWorkerExecutor> ForMsvcHost(std::unique_ptr<INetWorkerExecutor> executor,
                                                std::unique_ptr<INetWorkerApiWrapper> hostWrapper);
std::unique_ptr<INetWorkerApiWrapper> ForMsvcHost(std::unique_ptr<INetWorkerApiWrapper> wrapper);
std::unique_ptr<INamedPipeConnection> ForMsvcHost(std::unique_ptr<INamedPipeConnection> connection);
std::unique_ptr<INetWorkerNamedPipeClient> ForMsvcHost(
    std::unique_ptr<INetWorkerNamedPipeClient> client);

// A host's own wrapper, every call of the library into it through the host-call guard
// (HostCallGuard.h). Borrows the host's object.
std::unique_ptr<INetWorkerApiWrapper> GuardedHostWrapper(INetWorkerApiWrapper* hostWrapper);
