#include "XbsaServer.h"

#include <cstring>
#include <fstream>

namespace nwsim {

namespace {

std::string_view FixedText(const char* field, size_t capacity) {
    const void* zero = std::memchr(field, 0, capacity);
    return std::string_view(
        field, zero ? static_cast<size_t>(static_cast<const char*>(zero) - field) : capacity);
}

template <size_t N>
std::string_view FixedText(const char (&field)[N]) {
    return FixedText(field, N);
}

template <size_t N>
void CopyText(char (&field)[N], const std::string& text) {
    const size_t length = text.size() < N - 1 ? text.size() : N - 1;
    std::memcpy(field, text.data(), length);
    field[length] = 0;
}

BSA_UInt64 Split(uint64_t value) {
    BSA_UInt64 result;
    result.left = static_cast<BSA_UInt32>(value >> 32);
    result.right = static_cast<BSA_UInt32>(value);
    return result;
}

uint64_t Join(const BSA_UInt64& value) {
    return (static_cast<uint64_t>(value.left) << 32) | value.right;
}

bool AnyText(std::string_view pattern) {
    return pattern.empty() || pattern == "*";
}

// The value of the first "NAME=value" entry for name, if any.
bool FindEnvironment(char** environment, std::string_view name, std::string& value) {
    for (char** entry = environment; *entry != nullptr; ++entry) {
        std::string_view text(*entry);
        if (text.size() > name.size() && text.substr(0, name.size()) == name &&
            text[name.size()] == '=') {
            value = std::string(text.substr(name.size() + 1));
            return true;
        }
    }
    return false;
}

bool DirectoryExists(const std::filesystem::path& path) {
    std::error_code ec;
    return !path.empty() && std::filesystem::is_directory(path, ec);
}

// Picks the object a descriptor names: object space and path, then the copy id when it is
// not zero; without a copy id the most recent copy (status 1), else the latest one.
const CatalogueObject* FindNamedObject(const Catalogue& catalogue,
                                       const BSA_ObjectDescriptor& descriptor) {
    const std::string_view space = FixedText(descriptor.objectName.objectSpaceName);
    const std::string_view path = FixedText(descriptor.objectName.pathName);
    const uint64_t copyId = Join(descriptor.copyId);
    const CatalogueObject* best = nullptr;
    for (const CatalogueObject& object : catalogue.objects) {
        if (object.objectSpace != space || object.path != path) {
            continue;
        }
        if (copyId != 0) {
            if (object.copyId == copyId) {
                return &object;
            }
            continue;
        }
        if (best == nullptr ||
            (object.objectStatus == BSA_ObjectStatus_MOST_RECENT &&
             best->objectStatus != BSA_ObjectStatus_MOST_RECENT) ||
            (object.objectStatus == best->objectStatus &&
             FormatDateTime(object.createTime) > FormatDateTime(best->createTime))) {
            best = &object;
        }
    }
    return best;
}

}  // namespace

bool PatternMatches(std::string_view pattern, std::string_view text) {
    // Iterative wildcard match: '*' any run, '?' any one character.
    size_t p = 0;
    size_t t = 0;
    size_t starP = std::string_view::npos;
    size_t starT = 0;
    while (t < text.size()) {
        if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
            ++p;
            ++t;
        } else if (p < pattern.size() && pattern[p] == '*') {
            starP = p++;
            starT = t;
        } else if (starP != std::string_view::npos) {
            p = starP + 1;
            t = ++starT;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') {
        ++p;
    }
    return p == pattern.size();
}

bool QueryMatches(const BSA_QueryDescriptor& query, const CatalogueObject& object) {
    const std::string_view bsaOwner = FixedText(query.owner.bsa_ObjectOwner);
    const std::string_view appOwner = FixedText(query.owner.app_ObjectOwner);
    const std::string_view space = FixedText(query.objectName.objectSpaceName);
    const std::string_view path = FixedText(query.objectName.pathName);
    const std::string_view resourceType = FixedText(query.resourceType);
    if (!AnyText(bsaOwner) && !PatternMatches(bsaOwner, object.bsaOwner)) {
        return false;
    }
    if (!AnyText(appOwner) && !PatternMatches(appOwner, object.appOwner)) {
        return false;
    }
    if (!AnyText(space) && !PatternMatches(space, object.objectSpace)) {
        return false;
    }
    if (!AnyText(path) && !PatternMatches(path, object.path)) {
        return false;
    }
    if (!resourceType.empty() && resourceType != object.resourceType) {
        return false;
    }
    if (query.copyType != BSA_CopyType_ANY &&
        static_cast<uint32_t>(query.copyType) != object.copyType) {
        return false;
    }
    if (query.objectType != BSA_ObjectType_ANY &&
        static_cast<uint32_t>(query.objectType) != object.objectType) {
        return false;
    }
    if (query.status != BSA_ObjectStatus_ANY &&
        static_cast<uint32_t>(query.status) != object.objectStatus) {
        return false;
    }
    return true;
}

void FillDescriptor(const CatalogueObject& object, BSA_ObjectDescriptor& d) {
    std::memset(&d, 0, sizeof(d));
    d.version = 1;
    CopyText(d.Owner.bsa_ObjectOwner, object.bsaOwner);
    CopyText(d.Owner.app_ObjectOwner, object.appOwner);
    CopyText(d.objectName.objectSpaceName, object.objectSpace);
    CopyText(d.objectName.pathName, object.path);
    d.createTime.tm_year = object.createTime.year - 1900;
    d.createTime.tm_mon = object.createTime.month - 1;
    d.createTime.tm_mday = object.createTime.day;
    d.createTime.tm_hour = object.createTime.hour;
    d.createTime.tm_min = object.createTime.minute;
    d.createTime.tm_sec = object.createTime.second;
    d.createTime.tm_wday = DayOfWeek(object.createTime);
    d.createTime.tm_yday = DayOfYear(object.createTime);
    d.createTime.tm_isdst = 0;
    d.copyType = static_cast<BSA_CopyType>(object.copyType);
    d.copyId = Split(object.copyId);
    d.restoreOrder = Split(object.restoreOrder);
    d.size = Split(object.size);
    CopyText(d.resourceType, object.resourceType);
    d.objectType = static_cast<BSA_ObjectType>(object.objectType);
    d.objectStatus = static_cast<BSA_ObjectStatus>(object.objectStatus);
    CopyText(d.objectDescription, object.description);
    CopyText(d.objectInfo, object.objectInfo);
}

void XbsaServer::RefreshSettings(bool force) {
    if (m_loaded && !force) {
        return;
    }
    ServerSettings settings = m_host.LoadSettings();
    const bool faultsChanged = !m_loaded || settings.faultText != m_settings.faultText;
    m_settings = std::move(settings);
    m_loaded = true;
    m_faults = FaultPlan();
    m_faultError.clear();
    if (!ParseFaults(m_settings.faultText, m_faults, m_faultError)) {
        m_faults = FaultPlan();
    }
    // Every BSAInit starts the counts of the session calls again; BSAInit's own count starts
    // again only when the fault settings changed.
    const uint64_t initCount = m_callCounts[static_cast<int>(XbsaCall::Init)];
    std::fill(std::begin(m_callCounts), std::end(m_callCounts), 0);
    if (!faultsChanged) {
        m_callCounts[static_cast<int>(XbsaCall::Init)] = initCount;
    }
}

void ServerHost::AwaitFile(const std::filesystem::path& file, std::chrono::milliseconds limit) {
    const Clock::time_point until = Clock::now() + limit;
    std::error_code ec;
    while (!std::filesystem::exists(file, ec) && Clock::now() < until) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

void XbsaServer::HoldIfAsked(XbsaCall call) {
    std::filesystem::path directory;
    uint64_t number = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        // BSAInit reads the settings again itself; it is the one call that may count anew.
        RefreshSettings(call == XbsaCall::Init);
        number = m_callCounts[static_cast<int>(call)] + 1;
        if (!m_faultError.empty() || !m_faults.Holds(call, number)) {
            return;
        }
        directory = std::filesystem::path(m_faults.holdRelease);
    }
    const std::string pid = std::to_string(m_host.ProcessId());
    JournalLine line("hold");
    line.Text("call", XbsaCallName(call))
        .Number("number", number)
        .Number("pid", m_host.ProcessId());
    Journal(line);
    // A file of its own says "held" for certain: lines that several processes append to the
    // journal at the same moment may overwrite each other under Wine.
    std::ofstream(directory / (pid + ".held"), std::ios::binary) << line.Str() << "\n";
    m_host.AwaitFile(directory / pid, kLongestHold);
}

std::optional<BSA_Int32> XbsaServer::Intercept(XbsaCall call) {
    const uint64_t number = ++m_callCounts[static_cast<int>(call)];
    if (!m_faultError.empty()) {
        return kConfigurationError;
    }
    return m_faults.ForcedCode(call, number);
}

XbsaServer::Session* XbsaServer::Find(BSA_Handle handle) {
    auto it = m_sessions.find(handle);
    return it == m_sessions.end() ? nullptr : &it->second;
}

bool XbsaServer::LoadSessionCatalogue(Session& session) {
    auto catalogue = std::make_shared<Catalogue>();
    std::string error;
    const StoreLayout layout{m_settings.storeRoot};
    if (!LoadCatalogue(layout.CatalogueFile(session.server, session.client), *catalogue, error)) {
        return false;
    }
    session.catalogue = std::move(catalogue);
    return true;
}

void XbsaServer::Journal(const JournalLine& line) {
    if (m_host.JournalEnabled()) {
        m_host.Append(line.Str());
    }
}

BSA_Int32 XbsaServer::Finish(JournalLine& line, const std::optional<BSA_Int32>& forced,
                             BSA_Int32 rc) {
    if (forced) {
        line.Number("fault", 1);
    }
    Journal(line.Signed("rc", rc));
    return rc;
}

BSA_Int32 XbsaServer::Init(BSA_Handle* handle, BSA_SecurityToken* /*token*/, BSA_ObjectOwner* owner,
                           char** environment) {
    HoldIfAsked(XbsaCall::Init);
    std::lock_guard<std::mutex> lock(m_mutex);
    RefreshSettings(true);
    const std::optional<BSA_Int32> forced = Intercept(XbsaCall::Init);
    std::string error;
    BSA_Int32 rc = BSA_RC_SUCCESS;
    BSA_Handle opened = 0;
    std::string server;
    std::string client;
    if (forced) {
        rc = *forced;
        error = m_faultError;
    } else if (handle == nullptr || owner == nullptr) {
        rc = BSA_RC_NULL_ARGUMENT;
    } else if (environment == nullptr) {
        rc = kInitMissingEnvironment;
        error = "no environment";
    } else if (!FindEnvironment(environment, "NSR_SERVER", server) || server.empty()) {
        rc = kInitMissingEnvironment;
        error = "NSR_SERVER= missing";
    } else if (!FindEnvironment(environment, "NSR_CLIENT", client) || client.empty()) {
        rc = kInitMissingEnvironment;
        error = "NSR_CLIENT= missing";
    } else if (m_settings.storeRoot.empty()) {
        rc = kConfigurationError;
        error = m_settings.error.empty() ? "no store root" : m_settings.error;
    } else if (!DirectoryExists(StoreLayout{m_settings.storeRoot}.ServerDir(server))) {
        rc = kInitUnknownServer;
        error = "unknown server " + server;
    } else if (!DirectoryExists(StoreLayout{m_settings.storeRoot}.ClientDir(server, client))) {
        rc = kInitUnknownClient;
        error = "unknown client " + client + " of server " + server;
    } else {
        opened = m_nextHandle++;
        Session& session = m_sessions[opened];
        session.server = server;
        session.client = client;
        session.owner = *owner;
        *handle = opened;
    }

    JournalLine line("BSAInit");
    line.Number("handle", opened);
    size_t count = 0;
    if (environment != nullptr) {
        for (char** entry = environment; *entry != nullptr && count < 64; ++entry, ++count) {
            line.Text("env" + std::to_string(count), *entry);
        }
    }
    line.Number("envCount", count);
    if (owner != nullptr) {
        line.Field("bsaOwner", owner->bsa_ObjectOwner, sizeof(owner->bsa_ObjectOwner));
        line.Field("appOwner", owner->app_ObjectOwner, sizeof(owner->app_ObjectOwner));
    }
    if (!error.empty()) {
        line.Text("error", error);
    }
    return Finish(line, forced, rc);
}

BSA_Int32 XbsaServer::Terminate(BSA_Handle handle) {
    HoldIfAsked(XbsaCall::Terminate);
    std::lock_guard<std::mutex> lock(m_mutex);
    RefreshSettings(false);
    const std::optional<BSA_Int32> forced = Intercept(XbsaCall::Terminate);
    BSA_Int32 rc = BSA_RC_SUCCESS;
    if (forced) {
        rc = *forced;
    } else if (Find(handle) == nullptr) {
        rc = BSA_RC_INVALID_HANDLE;
    } else {
        m_sessions.erase(handle);
    }
    JournalLine line("BSATerminate");
    line.Number("handle", handle);
    return Finish(line, forced, rc);
}

BSA_Int32 XbsaServer::BeginTxn(BSA_Handle handle) {
    HoldIfAsked(XbsaCall::BeginTxn);
    std::lock_guard<std::mutex> lock(m_mutex);
    RefreshSettings(false);
    const std::optional<BSA_Int32> forced = Intercept(XbsaCall::BeginTxn);
    BSA_Int32 rc = BSA_RC_SUCCESS;
    Session* session = Find(handle);
    if (forced) {
        rc = *forced;
    } else if (session == nullptr) {
        rc = BSA_RC_INVALID_HANDLE;
    } else if (session->inTransaction) {
        rc = BSA_RC_INVALID_CALL_SEQUENCE;
    } else if (!LoadSessionCatalogue(*session)) {
        rc = kConfigurationError;
    } else {
        session->inTransaction = true;
    }
    JournalLine line("BSABeginTxn");
    line.Number("handle", handle);
    return Finish(line, forced, rc);
}

BSA_Int32 XbsaServer::EndTxn(BSA_Handle handle, BSA_Vote vote) {
    HoldIfAsked(XbsaCall::EndTxn);
    std::lock_guard<std::mutex> lock(m_mutex);
    RefreshSettings(false);
    const std::optional<BSA_Int32> forced = Intercept(XbsaCall::EndTxn);
    BSA_Int32 rc = BSA_RC_SUCCESS;
    Session* session = Find(handle);
    if (forced) {
        rc = *forced;
    } else if (session == nullptr) {
        rc = BSA_RC_INVALID_HANDLE;
    } else if (vote != BSAVote_COMMIT && vote != BSAVote_ABORT) {
        rc = BSA_RC_INVALID_VOTE;
    } else if (!session->inTransaction || session->transfer) {
        rc = BSA_RC_INVALID_CALL_SEQUENCE;
    } else {
        // Nothing is ever written, so a commit and an abort end the transaction alike.
        session->inTransaction = false;
        session->queryActive = false;
        session->matches.clear();
        session->catalogue.reset();
    }
    JournalLine line("BSAEndTxn");
    line.Number("handle", handle).Signed("vote", vote);
    return Finish(line, forced, rc);
}

BSA_Int32 XbsaServer::QueryObject(BSA_Handle handle, BSA_QueryDescriptor* query,
                                  BSA_ObjectDescriptor* descriptor) {
    HoldIfAsked(XbsaCall::QueryObject);
    std::lock_guard<std::mutex> lock(m_mutex);
    RefreshSettings(false);
    const std::optional<BSA_Int32> forced = Intercept(XbsaCall::QueryObject);
    OverrunIfOversized(query);
    OverrunIfOversized(descriptor);
    BSA_Int32 rc = BSA_RC_SUCCESS;
    Session* session = Find(handle);
    if (forced) {
        rc = *forced;
    } else if (session == nullptr) {
        rc = BSA_RC_INVALID_HANDLE;
    } else if (query == nullptr || descriptor == nullptr) {
        rc = BSA_RC_NULL_ARGUMENT;
    } else if (!session->inTransaction || session->transfer) {
        rc = BSA_RC_INVALID_CALL_SEQUENCE;
    } else {
        session->matches.clear();
        session->nextMatch = 0;
        const std::vector<CatalogueObject>& objects = session->catalogue->objects;
        for (size_t i = 0; i < objects.size(); ++i) {
            if (QueryMatches(*query, objects[i])) {
                session->matches.push_back(i);
            }
        }
        session->queryActive = !session->matches.empty();
        if (session->matches.empty()) {
            rc = BSA_RC_NO_MATCH;
        } else {
            FillDescriptor(objects[session->matches[0]], *descriptor);
            session->nextMatch = 1;
        }
    }
    JournalLine line("BSAQueryObject");
    line.Number("handle", handle);
    if (query != nullptr) {
        line.Field("qBsaOwner", query->owner.bsa_ObjectOwner, BSA_MAX_BSAOBJECT_OWNER)
            .Field("qAppOwner", query->owner.app_ObjectOwner, BSA_MAX_APPOBJECT_OWNER)
            .Field("qObjectSpace", query->objectName.objectSpaceName, BSA_MAX_OSNAME)
            .Field("qPath", query->objectName.pathName, BSA_MAX_PATHNAME)
            .Signed("copyType", query->copyType)
            .Signed("objectType", query->objectType)
            .Signed("status", query->status);
    }
    if (rc == BSA_RC_SUCCESS) {
        line.Number("matches", session->matches.size())
            .Field("objectSpace", descriptor->objectName.objectSpaceName, BSA_MAX_OSNAME)
            .Field("path", descriptor->objectName.pathName, BSA_MAX_PATHNAME);
    }
    return Finish(line, forced, rc);
}

BSA_Int32 XbsaServer::QueryApiVersion(BSA_ApiVersion* version) {
    HoldIfAsked(XbsaCall::QueryApiVersion);
    std::lock_guard<std::mutex> lock(m_mutex);
    RefreshSettings(false);
    const std::optional<BSA_Int32> forced = Intercept(XbsaCall::QueryApiVersion);
    BSA_Int32 rc = BSA_RC_SUCCESS;
    if (forced) {
        rc = *forced;
    } else if (version == nullptr) {
        rc = BSA_RC_NULL_ARGUMENT;
    } else {
        version->issue = kApiIssue;
        version->version = kApiVersion;
        version->level = kApiLevel;
    }
    JournalLine line("BSAQueryApiVersion");
    if (rc == BSA_RC_SUCCESS) {
        line.Number("issue", kApiIssue).Number("version", kApiVersion).Number("level", kApiLevel);
    }
    return Finish(line, forced, rc);
}

BSA_Int32 XbsaServer::GetNextQueryObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor) {
    HoldIfAsked(XbsaCall::GetNextQueryObject);
    std::lock_guard<std::mutex> lock(m_mutex);
    RefreshSettings(false);
    const std::optional<BSA_Int32> forced = Intercept(XbsaCall::GetNextQueryObject);
    OverrunIfOversized(descriptor);
    BSA_Int32 rc = BSA_RC_SUCCESS;
    Session* session = Find(handle);
    if (forced) {
        rc = *forced;
    } else if (session == nullptr) {
        rc = BSA_RC_INVALID_HANDLE;
    } else if (descriptor == nullptr) {
        rc = BSA_RC_NULL_ARGUMENT;
    } else if (!session->inTransaction || !session->queryActive) {
        rc = BSA_RC_INVALID_CALL_SEQUENCE;
    } else if (session->nextMatch >= session->matches.size()) {
        rc = BSA_RC_NO_MORE_DATA;
    } else {
        FillDescriptor(session->catalogue->objects[session->matches[session->nextMatch++]],
                       *descriptor);
    }
    JournalLine line("BSAGetNextQueryObject");
    line.Number("handle", handle);
    if (rc == BSA_RC_SUCCESS) {
        line.Field("objectSpace", descriptor->objectName.objectSpaceName, BSA_MAX_OSNAME)
            .Field("path", descriptor->objectName.pathName, BSA_MAX_PATHNAME);
    }
    return Finish(line, forced, rc);
}

BSA_Int32 XbsaServer::OpenObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor,
                                 BSA_DataBlock32* dataBlock) {
    HoldIfAsked(XbsaCall::GetObject);
    std::lock_guard<std::mutex> lock(m_mutex);
    RefreshSettings(false);
    const std::optional<BSA_Int32> forced = Intercept(XbsaCall::GetObject);
    OverrunIfOversized(descriptor);
    OverrunIfOversized(dataBlock);
    BSA_Int32 rc = BSA_RC_SUCCESS;
    Session* session = Find(handle);
    const uint32_t bufferLenIn = dataBlock != nullptr ? dataBlock->bufferLen : 0;
    const CatalogueObject* object = nullptr;
    std::string error;
    if (forced) {
        rc = *forced;
    } else if (session == nullptr) {
        rc = BSA_RC_INVALID_HANDLE;
    } else if (descriptor == nullptr || dataBlock == nullptr) {
        rc = BSA_RC_NULL_ARGUMENT;
    } else if (!session->inTransaction || session->transfer) {
        rc = BSA_RC_INVALID_CALL_SEQUENCE;
    } else if ((object = FindNamedObject(*session->catalogue, *descriptor)) == nullptr) {
        rc = BSA_RC_OBJECT_NOT_FOUND;
    } else {
        auto transfer = std::make_unique<Transfer>();
        const StoreLayout layout{m_settings.storeRoot};
        if (!transfer->reader.Open(*object, layout.ContentDir(session->server, session->client),
                                   error)) {
            rc = BSA_RC_ABORT_SYSTEM_ERROR;
        } else {
            transfer->started = m_host.Now();
            session->transfer = std::move(transfer);
            dataBlock->bufferLen = m_faults.bufferLen;
            dataBlock->numBytes = 0;
        }
    }
    JournalLine line("BSAGetObject");
    line.Number("handle", handle);
    if (descriptor != nullptr) {
        line.Field("objectSpace", descriptor->objectName.objectSpaceName, BSA_MAX_OSNAME)
            .Field("path", descriptor->objectName.pathName, BSA_MAX_PATHNAME)
            .Number("copyId", Join(descriptor->copyId));
    }
    line.Number("bufferLenIn", bufferLenIn);
    if (rc == BSA_RC_SUCCESS) {
        line.Number("bufferLenOut", dataBlock->bufferLen)
            .Number("id", object->id)
            .Number("size", object->size);
    }
    if (!error.empty()) {
        line.Text("error", error);
    }
    return Finish(line, forced, rc);
}

BSA_Int32 XbsaServer::GetData(BSA_Handle handle, BSA_DataBlock32* dataBlock) {
    HoldIfAsked(XbsaCall::GetData);
    std::unique_lock<std::mutex> lock(m_mutex);
    RefreshSettings(false);
    const std::optional<BSA_Int32> forced = Intercept(XbsaCall::GetData);
    OverrunIfOversized(dataBlock);
    BSA_Int32 rc = BSA_RC_SUCCESS;
    Session* session = Find(handle);
    const uint32_t bufferLen = dataBlock != nullptr ? dataBlock->bufferLen : 0;
    const uint32_t numBytesIn = dataBlock != nullptr ? dataBlock->numBytes : 0;
    uint64_t offset = 0;
    std::string error;
    std::chrono::steady_clock::time_point due;
    bool throttled = false;
    if (forced) {
        rc = *forced;
    } else if (session == nullptr) {
        rc = BSA_RC_INVALID_HANDLE;
    } else if (dataBlock == nullptr) {  // NOLINT(bugprone-branch-clone): see the buffer below
        rc = BSA_RC_NULL_ARGUMENT;
    } else if (!session->transfer || session->transfer->finished) {
        rc = BSA_RC_INVALID_CALL_SEQUENCE;
    } else if (dataBlock->bufferPtr == nullptr) {
        // A missing buffer is looked at only once the call comes in its right order.
        rc = BSA_RC_NULL_ARGUMENT;
    } else if (numBytesIn == 0 && session->transfer->reader.Remaining() != 0) {
        rc = BSA_RC_BUFFER_TOO_SMALL;
    } else {
        Transfer& transfer = *session->transfer;
        offset = transfer.reader.Offset();
        size_t delivered = 0;
        if (!transfer.reader.Read(dataBlock->bufferPtr, numBytesIn, delivered, error)) {
            rc = BSA_RC_ABORT_SYSTEM_ERROR;
            dataBlock->numBytes = 0;
        } else {
            dataBlock->numBytes = static_cast<BSA_UInt32>(delivered);
            if (transfer.reader.Remaining() == 0) {
                transfer.finished = true;
                rc = BSA_RC_NO_MORE_DATA;
            }
            if (m_faults.throttleBytesPerSecond != 0) {
                const double seconds = static_cast<double>(transfer.reader.Offset()) /
                                       static_cast<double>(m_faults.throttleBytesPerSecond);
                due = transfer.started + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                             std::chrono::duration<double>(seconds));
                throttled = true;
            }
        }
    }
    JournalLine line("BSAGetData");
    line.Number("handle", handle)
        .Number("bufferLen", bufferLen)
        .Number("numBytesIn", numBytesIn)
        .Number("numBytesOut", dataBlock != nullptr ? dataBlock->numBytes : 0);
    if (rc == BSA_RC_SUCCESS || rc == BSA_RC_NO_MORE_DATA) {
        line.Number("offset", offset);
    }
    if (!error.empty()) {
        line.Text("error", error);
    }
    if (forced) {
        line.Number("fault", 1);
    }
    line.Signed("rc", rc);
    lock.unlock();
    // Sleep outside the lock so other sessions are not held up.
    if (throttled) {
        m_host.WaitUntil(due);
    }
    Journal(line);
    return rc;
}

BSA_Int32 XbsaServer::EndData(BSA_Handle handle) {
    HoldIfAsked(XbsaCall::EndData);
    std::lock_guard<std::mutex> lock(m_mutex);
    RefreshSettings(false);
    const std::optional<BSA_Int32> forced = Intercept(XbsaCall::EndData);
    BSA_Int32 rc = BSA_RC_SUCCESS;
    Session* session = Find(handle);
    if (forced) {
        rc = *forced;
    } else if (session == nullptr) {
        rc = BSA_RC_INVALID_HANDLE;
    } else if (!session->transfer) {
        rc = BSA_RC_INVALID_CALL_SEQUENCE;
    } else {
        session->transfer.reset();
    }
    JournalLine line("BSAEndData");
    line.Number("handle", handle);
    return Finish(line, forced, rc);
}

}  // namespace nwsim
