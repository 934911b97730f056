#pragma once
// The simulated backup server behind libbsa.dll: sessions, transactions, queries and data
// transfers over a store, following the Open Group XBSA call rules. Platform-neutral; the
// image's DLL forwards its ten exports here and supplies settings and the journal.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Catalogue.h"
#include "ContentReader.h"
#include "Faults.h"
#include "Journal.h"
#include "OversizedRecords.h"
#include "interfaces/xbsa.h"

namespace nwsim {

// Return codes of BSAInit for a missing or unknown server or client (documented for hosts).
constexpr BSA_Int32 kInitMissingEnvironment = BSA_RC_INVALID_ENV;        // 80
constexpr BSA_Int32 kInitUnknownServer = BSA_RC_ABORT_SYSTEM_ERROR;      // 3
constexpr BSA_Int32 kInitUnknownClient = BSA_RC_AUTHENTICATION_FAILURE;  // 4
// Any call while the store or the fault settings cannot be read.
constexpr BSA_Int32 kConfigurationError = BSA_RC_ABORT_SYSTEM_ERROR;  // 3
// A held call goes on by itself after this long, so that a forgotten hold ends eventually.
constexpr std::chrono::milliseconds kLongestHold{600000};

constexpr BSA_UInt16 kApiIssue = 1;
constexpr BSA_UInt16 kApiVersion = 2;
constexpr BSA_UInt16 kApiLevel = 3;

struct ServerSettings {
    std::filesystem::path storeRoot;  // empty when none is configured
    std::string faultText;            // faults.txt of the store, then NWSIM_FAULTS
    std::string error;                // why the settings could not be read, if so
};

class ServerHost : public JournalSink {
public:
    using Clock = std::chrono::steady_clock;

    virtual ServerSettings LoadSettings() = 0;
    virtual bool JournalEnabled() = 0;
    // The throttle's clock: the real one in the image, a controlled one in tests.
    virtual Clock::time_point Now() { return Clock::now(); }
    virtual void WaitUntil(Clock::time_point due) { std::this_thread::sleep_until(due); }
    // The process the server runs in: a held call names it, so that a test knows whom it holds.
    virtual uint64_t ProcessId() { return 0; }
    // A held call's wait: until the file exists, or at most `limit`.
    virtual void AwaitFile(const std::filesystem::path& file, std::chrono::milliseconds limit);

protected:
    ~ServerHost() = default;
};

// True when the object passes the query's filters: owner (each half, empty or "*" = any),
// object space and path (empty or "*" = any, otherwise a pattern with '*' and '?'), copy type,
// object type and status (0 = any), resource type (empty = any).
bool QueryMatches(const BSA_QueryDescriptor& query, const CatalogueObject& object);
bool PatternMatches(std::string_view pattern, std::string_view text);
void FillDescriptor(const CatalogueObject& object, BSA_ObjectDescriptor& descriptor);

class XbsaServer {
public:
    explicit XbsaServer(ServerHost& host) : m_host(host) {}

    BSA_Int32 Init(BSA_Handle* handle, BSA_SecurityToken* token, BSA_ObjectOwner* owner,
                   char** environment);
    BSA_Int32 Terminate(BSA_Handle handle);
    BSA_Int32 BeginTxn(BSA_Handle handle);
    // Any vote but BSAVote_COMMIT or BSAVote_ABORT is refused with BSA_RC_INVALID_VOTE.
    BSA_Int32 EndTxn(BSA_Handle handle, BSA_Vote vote);
    BSA_Int32 QueryObject(BSA_Handle handle, BSA_QueryDescriptor* query,
                          BSA_ObjectDescriptor* descriptor);
    BSA_Int32 QueryApiVersion(BSA_ApiVersion* version);
    BSA_Int32 GetNextQueryObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor);
    BSA_Int32 OpenObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor,  // BSAGetObject
                         BSA_DataBlock32* dataBlock);
    BSA_Int32 GetData(BSA_Handle handle, BSA_DataBlock32* dataBlock);
    BSA_Int32 EndData(BSA_Handle handle);

private:
    struct Transfer {
        ContentReader reader;
        bool finished = false;
        std::chrono::steady_clock::time_point started;
    };
    struct Session {
        std::string server;
        std::string client;
        BSA_ObjectOwner owner{};
        bool inTransaction = false;
        std::shared_ptr<Catalogue> catalogue;
        bool queryActive = false;
        std::vector<size_t> matches;
        size_t nextMatch = 0;
        std::unique_ptr<Transfer> transfer;
    };

    // Reads settings if never read or when forced; resets call counts when the faults changed.
    void RefreshSettings(bool force);
    // Before the call is counted: when its number is held, journals a "hold" line and waits
    // for the release, outside the lock so that the process's other sessions go on.
    void HoldIfAsked(XbsaCall call);
    // Counts the call; the code a fault forces on it, or a configuration error, if any.
    std::optional<BSA_Int32> Intercept(XbsaCall call);
    Session* Find(BSA_Handle handle);
    // Under "records=oversized": reads and writes the record as a library with longer records.
    template <typename Record>
    void OverrunIfOversized(Record* record) {
        if (m_faults.oversizedRecords) {
            OverrunRecord(record);
        }
    }
    bool LoadSessionCatalogue(Session& session);
    void Journal(const JournalLine& line);
    // Adds the fault marker and the return code, journals the line and returns rc.
    BSA_Int32 Finish(JournalLine& line, const std::optional<BSA_Int32>& forced, BSA_Int32 rc);

    ServerHost& m_host;
    std::mutex m_mutex;
    bool m_loaded = false;
    ServerSettings m_settings;
    FaultPlan m_faults;
    std::string m_faultError;
    uint64_t m_callCounts[kXbsaCallCount] = {};
    std::map<BSA_Handle, Session> m_sessions;
    BSA_Handle m_nextHandle = 1;
};

}  // namespace nwsim
