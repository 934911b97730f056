#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <vector>

#include "ExchangeSeed.h"
#include "StoreOps.h"
#include "SyntheticContent.h"
#include "OversizedRecords.h"
#include "TestFiles.h"
#include "XbsaServer.h"
#include "executor/PaddedXbsaRecord.h"

namespace {

using namespace nwsim;

class FakeHost final : public ServerHost {
public:
    ServerSettings LoadSettings() override { return settings; }
    bool JournalEnabled() override { return true; }
    void Append(const std::string& line) override { lines.push_back(line); }
    Clock::time_point Now() override { return now; }
    void WaitUntil(Clock::time_point due) override { waits.push_back(due - now); }

    ParsedJournalLine Last() const {
        ParsedJournalLine parsed;
        EXPECT_TRUE(ParseJournalLine(lines.back(), parsed)) << lines.back();
        return parsed;
    }

    ServerSettings settings;
    std::vector<std::string> lines;
    Clock::time_point now{};
    std::vector<Clock::duration> waits;  // each wait, measured from the fixed "now"
};

class XbsaServerTest : public ::testing::Test {
protected:
    void SetUp() override {
        host.settings.storeRoot = dir.Path() / "store";
        uint64_t written = 0;
        std::string error;
        ASSERT_TRUE(SeedExchange(StoreLayout{host.settings.storeRoot}, "srv", "cli",
                                 ExchangeSeedOptions(), written, error))
            << error;
        std::strcpy(owner.bsa_ObjectOwner, "MSEXCH");
        std::strcpy(owner.app_ObjectOwner, "msexch");
    }

    BSA_Int32 Init(std::vector<const char*> environment, BSA_Handle& handle) {
        environment.push_back(nullptr);
        return server.Init(&handle, &token, &owner, const_cast<char**>(environment.data()));
    }

    BSA_Handle Open() {
        BSA_Handle handle = 0;
        EXPECT_EQ(Init({"NSR_CLIENT=cli", "NSR_DEBUG_LEVEL=0", "NSR_SERVER=srv",
                        "NSR_NO_BUSY_ERRORS=TRUE"},
                       handle),
                  BSA_RC_SUCCESS);
        EXPECT_NE(handle, 0u);
        return handle;
    }

    static BSA_QueryDescriptor ExchangeQuery() {
        BSA_QueryDescriptor query;
        std::memset(&query, 0, sizeof(query));
        std::strcpy(query.owner.bsa_ObjectOwner, "MSEXCH");
        std::strcpy(query.owner.app_ObjectOwner, "msexch");
        query.copyType = BSA_CopyType_BACKUP;
        query.objectType = BSA_ObjectType_FILE;
        query.status = BSA_ObjectStatus_MOST_RECENT;
        return query;
    }

    std::vector<std::string> QueryPaths(BSA_Handle handle, BSA_QueryDescriptor query) {
        std::vector<std::string> paths;
        BSA_ObjectDescriptor descriptor;
        BSA_Int32 rc = server.QueryObject(handle, &query, &descriptor);
        while (rc == BSA_RC_SUCCESS) {
            paths.push_back(descriptor.objectName.pathName);
            rc = server.GetNextQueryObject(handle, &descriptor);
        }
        EXPECT_TRUE(rc == BSA_RC_NO_MORE_DATA || rc == BSA_RC_NO_MATCH) << rc;
        return paths;
    }

    static BSA_ObjectDescriptor Named(const char* space, const char* path, uint64_t copyId = 0) {
        BSA_ObjectDescriptor descriptor;
        std::memset(&descriptor, 0, sizeof(descriptor));
        std::strcpy(descriptor.objectName.objectSpaceName, space);
        std::strcpy(descriptor.objectName.pathName, path);
        descriptor.copyId.left = static_cast<BSA_UInt32>(copyId >> 32);
        descriptor.copyId.right = static_cast<BSA_UInt32>(copyId);
        return descriptor;
    }

    // Reads a whole object with the given room per call; returns the bytes and the codes.
    std::vector<char> ReadAll(BSA_Handle handle, uint32_t room, std::vector<BSA_Int32>& codes) {
        std::vector<char> bytes;
        std::vector<char> buffer(room);
        BSA_DataBlock32 block{};
        while (true) {
            block.bufferLen = room;
            block.numBytes = room;
            block.bufferPtr = buffer.data();
            const BSA_Int32 rc = server.GetData(handle, &block);
            codes.push_back(rc);
            if (rc != BSA_RC_SUCCESS && rc != BSA_RC_NO_MORE_DATA) {
                return bytes;
            }
            EXPECT_LE(block.numBytes, room);
            bytes.insert(bytes.end(), buffer.data(), buffer.data() + block.numBytes);
            if (rc == BSA_RC_NO_MORE_DATA) {
                return bytes;
            }
        }
    }

    TempDirectory dir{"nwsim"};
    FakeHost host;
    XbsaServer server{host};
    BSA_SecurityToken token{};
    BSA_ObjectOwner owner{};
};

TEST_F(XbsaServerTest, ApiVersion) {
    BSA_ApiVersion version{};
    EXPECT_EQ(server.QueryApiVersion(&version), BSA_RC_SUCCESS);
    EXPECT_EQ(version.issue, 1);
    EXPECT_EQ(version.version, 2);
    EXPECT_EQ(version.level, 3);
    EXPECT_EQ(server.QueryApiVersion(nullptr), 85);  // BSA_RC_NULL_ARGUMENT
}

TEST_F(XbsaServerTest, InitRecordsEnvironmentAndOwner) {
    const BSA_Handle handle = Open();
    const ParsedJournalLine line = host.Last();
    EXPECT_EQ(line.call, "BSAInit");
    EXPECT_EQ(*line.Find("handle"), std::to_string(handle));
    EXPECT_EQ(*line.Find("env0"), "NSR_CLIENT=cli");
    EXPECT_EQ(*line.Find("env1"), "NSR_DEBUG_LEVEL=0");
    EXPECT_EQ(*line.Find("env2"), "NSR_SERVER=srv");
    EXPECT_EQ(*line.Find("env3"), "NSR_NO_BUSY_ERRORS=TRUE");
    EXPECT_EQ(*line.Find("envCount"), "4");
    EXPECT_EQ(*line.Find("bsaOwner"), "MSEXCH");
    EXPECT_EQ(*line.Find("appOwner"), "msexch");
    EXPECT_EQ(*line.Find("rc"), "0");
    EXPECT_NE(Open(), handle);
}

TEST_F(XbsaServerTest, InitRefusesMissingAndUnknownNames) {
    BSA_Handle handle = 0;
    EXPECT_EQ(Init({"NSR_SERVER=srv"}, handle), kInitMissingEnvironment);
    EXPECT_EQ(Init({"NSR_CLIENT=cli"}, handle), kInitMissingEnvironment);
    EXPECT_EQ(Init({"NSR_CLIENT=", "NSR_SERVER=srv"}, handle), kInitMissingEnvironment);
    EXPECT_EQ(Init({"NSR_CLIENT=cli", "NSR_SERVER=other"}, handle), kInitUnknownServer);
    EXPECT_EQ(Init({"NSR_CLIENT=nobody", "NSR_SERVER=srv"}, handle), kInitUnknownClient);
    EXPECT_EQ(server.Init(&handle, &token, &owner, nullptr), kInitMissingEnvironment);
    const char* environment[] = {"NSR_CLIENT=cli", "NSR_SERVER=srv", nullptr};
    EXPECT_EQ(server.Init(nullptr, &token, &owner, const_cast<char**>(environment)),
              BSA_RC_NULL_ARGUMENT);
    EXPECT_EQ(handle, 0u);
    host.settings.storeRoot.clear();
    EXPECT_EQ(Init({"NSR_CLIENT=cli", "NSR_SERVER=srv"}, handle), kConfigurationError);
}

TEST_F(XbsaServerTest, EveryCallChecksItsHandle) {
    const BSA_Handle open = Open();
    for (BSA_Handle bad : {BSA_Handle(0), open + 100}) {
        BSA_QueryDescriptor query = ExchangeQuery();
        BSA_ObjectDescriptor descriptor{};
        BSA_DataBlock32 block{};
        EXPECT_EQ(server.BeginTxn(bad), BSA_RC_INVALID_HANDLE);
        EXPECT_EQ(server.EndTxn(bad, BSAVote_COMMIT), BSA_RC_INVALID_HANDLE);
        EXPECT_EQ(server.QueryObject(bad, &query, &descriptor), BSA_RC_INVALID_HANDLE);
        EXPECT_EQ(server.GetNextQueryObject(bad, &descriptor), BSA_RC_INVALID_HANDLE);
        EXPECT_EQ(server.OpenObject(bad, &descriptor, &block), BSA_RC_INVALID_HANDLE);
        EXPECT_EQ(server.GetData(bad, &block), BSA_RC_INVALID_HANDLE);
        EXPECT_EQ(server.EndData(bad), BSA_RC_INVALID_HANDLE);
        EXPECT_EQ(server.Terminate(bad), BSA_RC_INVALID_HANDLE);
    }
    EXPECT_EQ(server.Terminate(open), BSA_RC_SUCCESS);
    EXPECT_EQ(server.BeginTxn(open), BSA_RC_INVALID_HANDLE);
}

TEST_F(XbsaServerTest, CallSequenceIsEnforced) {
    const BSA_Handle handle = Open();
    BSA_QueryDescriptor query = ExchangeQuery();
    BSA_ObjectDescriptor descriptor{};
    BSA_ObjectDescriptor named = Named("\\IS", "/First Storage Group/E00.chk");
    BSA_DataBlock32 block{};
    // Outside a transaction.
    EXPECT_EQ(server.QueryObject(handle, &query, &descriptor), BSA_RC_INVALID_CALL_SEQUENCE);
    EXPECT_EQ(server.GetNextQueryObject(handle, &descriptor), BSA_RC_INVALID_CALL_SEQUENCE);
    EXPECT_EQ(server.OpenObject(handle, &named, &block), BSA_RC_INVALID_CALL_SEQUENCE);
    EXPECT_EQ(server.GetData(handle, &block), BSA_RC_INVALID_CALL_SEQUENCE);
    EXPECT_EQ(server.EndData(handle), BSA_RC_INVALID_CALL_SEQUENCE);
    EXPECT_EQ(server.EndTxn(handle, BSAVote_COMMIT), BSA_RC_INVALID_CALL_SEQUENCE);
    // Inside one.
    EXPECT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    EXPECT_EQ(server.BeginTxn(handle), BSA_RC_INVALID_CALL_SEQUENCE);
    EXPECT_EQ(server.GetNextQueryObject(handle, &descriptor), BSA_RC_INVALID_CALL_SEQUENCE);
    EXPECT_EQ(server.OpenObject(handle, &named, &block), BSA_RC_SUCCESS);
    EXPECT_EQ(server.OpenObject(handle, &named, &block), BSA_RC_INVALID_CALL_SEQUENCE);
    EXPECT_EQ(server.QueryObject(handle, &query, &descriptor), BSA_RC_INVALID_CALL_SEQUENCE);
    EXPECT_EQ(server.EndTxn(handle, BSAVote_COMMIT), BSA_RC_INVALID_CALL_SEQUENCE);
    std::vector<BSA_Int32> codes;
    EXPECT_EQ(ReadAll(handle, 16384, codes).size(), 8192u);
    EXPECT_EQ(server.GetData(handle, &block), BSA_RC_INVALID_CALL_SEQUENCE);
    EXPECT_EQ(server.EndData(handle), BSA_RC_SUCCESS);
    EXPECT_EQ(server.EndData(handle), BSA_RC_INVALID_CALL_SEQUENCE);
    EXPECT_EQ(server.EndTxn(handle, BSAVote_COMMIT), BSA_RC_SUCCESS);
}

TEST_F(XbsaServerTest, LibraryQueryReturnsTheMostRecentExchangeFilesInOrder) {
    const BSA_Handle handle = Open();
    ASSERT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    const std::vector<std::string> paths = QueryPaths(handle, ExchangeQuery());
    ASSERT_EQ(paths.size(), 19u);  // objects 9 to 27
    EXPECT_EQ(paths.front(), "/Private Information Store");
    EXPECT_EQ(paths[3], "/First Storage Group/Mailbox Store (EX01).edb");
    EXPECT_EQ(paths.back(), "/First Storage Group/EX01.xml");
    const ParsedJournalLine line = host.Last();
    EXPECT_EQ(line.call, "BSAGetNextQueryObject");
    EXPECT_EQ(*line.Find("rc"), "18");
}

TEST_F(XbsaServerTest, QueryFiltersEachFieldAndZeroMeansAny) {
    const BSA_Handle handle = Open();
    ASSERT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    BSA_QueryDescriptor any;
    std::memset(&any, 0, sizeof(any));
    EXPECT_EQ(QueryPaths(handle, any).size(), 31u);
    BSA_QueryDescriptor older = any;
    older.status = BSA_ObjectStatus_NOT_MOST_RECENT;
    EXPECT_EQ(QueryPaths(handle, older).size(), 8u);
    BSA_QueryDescriptor archive = any;
    archive.copyType = BSA_CopyType_ARCHIVE;
    EXPECT_EQ(QueryPaths(handle, archive),
              std::vector<std::string>{"/First Storage Group/Archive (EX01).edb"});
    BSA_QueryDescriptor directories = any;
    directories.objectType = BSA_ObjectType_DIRECTORY;
    EXPECT_EQ(QueryPaths(handle, directories), std::vector<std::string>{"/First Storage Group"});
    BSA_QueryDescriptor sql = any;
    std::strcpy(sql.owner.bsa_ObjectOwner, "MSSQL");
    EXPECT_EQ(QueryPaths(handle, sql), std::vector<std::string>{"/SQL/master.edb"});
    BSA_QueryDescriptor logs = ExchangeQuery();
    std::strcpy(logs.objectName.pathName, "/Second Storage Group/*.log");
    EXPECT_EQ(QueryPaths(handle, logs).size(), 3u);
    BSA_QueryDescriptor none = ExchangeQuery();
    std::strcpy(none.owner.app_ObjectOwner, "nobody");
    BSA_ObjectDescriptor untouched;
    std::memset(&untouched, 0x5A, sizeof(untouched));
    EXPECT_EQ(server.QueryObject(handle, &none, &untouched), BSA_RC_NO_MATCH);
    EXPECT_EQ(static_cast<unsigned char>(untouched.objectName.pathName[0]), 0x5Au);
    EXPECT_EQ(server.GetNextQueryObject(handle, &untouched), BSA_RC_INVALID_CALL_SEQUENCE);
}

TEST_F(XbsaServerTest, DescriptorCarriesEveryField) {
    const BSA_Handle handle = Open();
    ASSERT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    BSA_QueryDescriptor query = ExchangeQuery();
    std::strcpy(query.objectName.pathName, "/First Storage Group/Mailbox Store (EX01).edb");
    BSA_ObjectDescriptor d;
    ASSERT_EQ(server.QueryObject(handle, &query, &d), BSA_RC_SUCCESS);
    EXPECT_STREQ(d.Owner.bsa_ObjectOwner, "MSEXCH");
    EXPECT_STREQ(d.Owner.app_ObjectOwner, "msexch");
    EXPECT_STREQ(d.objectName.objectSpaceName, "\\IS");
    EXPECT_EQ(d.createTime.tm_year, 124);
    EXPECT_EQ(d.createTime.tm_mon, 4);
    EXPECT_EQ(d.createTime.tm_mday, 8);
    EXPECT_EQ(d.createTime.tm_hour, 23);
    EXPECT_EQ(d.createTime.tm_min, 59);
    EXPECT_EQ(d.createTime.tm_sec, 30);
    EXPECT_EQ(d.copyType, BSA_CopyType_BACKUP);
    EXPECT_EQ(d.copyId.left, 3u);
    EXPECT_EQ(d.copyId.right, 4u);
    EXPECT_EQ(d.restoreOrder.left, 0u);
    EXPECT_EQ(d.restoreOrder.right, 3000004u);
    EXPECT_EQ(d.size.left, 1u);
    EXPECT_EQ(d.size.right, 705032704u);
    EXPECT_STREQ(d.resourceType, "D");
    EXPECT_EQ(d.objectType, BSA_ObjectType_FILE);
    EXPECT_EQ(d.objectStatus, BSA_ObjectStatus_MOST_RECENT);
    EXPECT_STREQ(d.objectDescription, "Exchange database");
    EXPECT_STREQ(d.objectInfo, "EX01 backup 3");
    EXPECT_EQ(server.GetNextQueryObject(handle, &d), BSA_RC_NO_MORE_DATA);
}

TEST_F(XbsaServerTest, DataComesInBlocksAndTheLastOneCarriesEighteen) {
    const BSA_Handle handle = Open();
    ASSERT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    // Object 23: 1,048,573 bytes.
    BSA_ObjectDescriptor named = Named("\\IS", "/Second Storage Group/E01000A1.log");
    BSA_DataBlock32 block{};
    block.bufferLen = 16384;
    ASSERT_EQ(server.OpenObject(handle, &named, &block), BSA_RC_SUCCESS);
    EXPECT_EQ(block.bufferLen, 16384u);
    std::vector<BSA_Int32> codes;
    const std::vector<char> bytes = ReadAll(handle, 16384, codes);
    ASSERT_EQ(bytes.size(), 1048573u);
    ASSERT_EQ(codes.size(), 64u);  // 63 full blocks and a last one of 16,381 bytes
    EXPECT_EQ(codes.back(), BSA_RC_NO_MORE_DATA);
    EXPECT_EQ(codes[62], BSA_RC_SUCCESS);
    std::vector<char> expected(bytes.size());
    SyntheticContent((3ull << 32) | 15).Fill(0, expected.data(), expected.size());
    EXPECT_EQ(bytes, expected);
    ParsedJournalLine last = host.Last();
    EXPECT_EQ(last.call, "BSAGetData");
    EXPECT_EQ(*last.Find("numBytesIn"), "16384");
    EXPECT_EQ(*last.Find("numBytesOut"), "16381");
    EXPECT_EQ(*last.Find("offset"), "1032192");
    EXPECT_EQ(*last.Find("rc"), "18");
    EXPECT_EQ(server.EndData(handle), BSA_RC_SUCCESS);
}

TEST_F(XbsaServerTest, ExactMultipleAndEmptyObjects) {
    const BSA_Handle handle = Open();
    ASSERT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    BSA_ObjectDescriptor exact = Named("\\IS", "/Second Storage Group/E01000A2.log");
    BSA_DataBlock32 block{};
    ASSERT_EQ(server.OpenObject(handle, &exact, &block), BSA_RC_SUCCESS);
    std::vector<BSA_Int32> codes;
    EXPECT_EQ(ReadAll(handle, 16384, codes).size(), 65536u);
    EXPECT_EQ(codes, (std::vector<BSA_Int32>{0, 0, 0, 18}));
    ASSERT_EQ(server.EndData(handle), BSA_RC_SUCCESS);

    BSA_ObjectDescriptor empty = Named("\\IS", "/Second Storage Group/E01tmp.log");
    ASSERT_EQ(server.OpenObject(handle, &empty, &block), BSA_RC_SUCCESS);
    codes.clear();
    EXPECT_EQ(ReadAll(handle, 16384, codes).size(), 0u);
    EXPECT_EQ(codes, std::vector<BSA_Int32>{18});
    EXPECT_EQ(server.EndData(handle), BSA_RC_SUCCESS);
}

TEST_F(XbsaServerTest, RoomIsRespectedAndCheckedAndCopyIdPicksTheCopy) {
    const BSA_Handle handle = Open();
    ASSERT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    // The older copy of the SG2 database: backup 1, 1,900,009 bytes.
    BSA_ObjectDescriptor older =
        Named("\\IS", "/Second Storage Group/Mailbox Store 2 (EX01).edb", (1ull << 32) | 4);
    BSA_DataBlock32 block{};
    ASSERT_EQ(server.OpenObject(handle, &older, &block), BSA_RC_SUCCESS);
    EXPECT_EQ(*host.Last().Find("size"), "1900009");
    char buffer[1000];
    block.bufferPtr = buffer;
    block.numBytes = 0;
    EXPECT_EQ(server.GetData(handle, &block), 78);  // BSA_RC_BUFFER_TOO_SMALL
    block.bufferPtr = nullptr;
    block.numBytes = 1000;
    EXPECT_EQ(server.GetData(handle, &block), 85);  // BSA_RC_NULL_ARGUMENT
    block.bufferPtr = buffer;
    block.numBytes = 777;
    EXPECT_EQ(server.GetData(handle, &block), BSA_RC_SUCCESS);
    EXPECT_EQ(block.numBytes, 777u);
    ASSERT_EQ(server.EndData(handle), BSA_RC_SUCCESS);
    BSA_ObjectDescriptor missing = Named("\\IS", "/Second Storage Group/none.edb");
    EXPECT_EQ(server.OpenObject(handle, &missing, &block), BSA_RC_OBJECT_NOT_FOUND);
    BSA_ObjectDescriptor wrongCopy =
        Named("\\IS", "/Second Storage Group/Mailbox Store 2 (EX01).edb", 99);
    EXPECT_EQ(server.OpenObject(handle, &wrongCopy, &block), BSA_RC_OBJECT_NOT_FOUND);
    BSA_ObjectDescriptor latest = Named("\\IS", "/Second Storage Group/Mailbox Store 2 (EX01).edb");
    ASSERT_EQ(server.OpenObject(handle, &latest, &block), BSA_RC_SUCCESS);
    EXPECT_EQ(*host.Last().Find("size"), "2097153");
}

TEST_F(XbsaServerTest, EndTxnTakesCommitOrAbortAndRefusesAnyOtherVote) {
    const BSA_Handle handle = Open();
    ASSERT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    EXPECT_EQ(server.EndTxn(handle, static_cast<BSA_Vote>(3)), BSA_RC_INVALID_VOTE);
    EXPECT_EQ(*host.Last().Find("vote"), "3");
    EXPECT_EQ(server.EndTxn(handle, BSAVote_ABORT), BSA_RC_SUCCESS);
    EXPECT_EQ(*host.Last().Find("vote"), "2");
    ASSERT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    EXPECT_EQ(server.EndTxn(handle, BSAVote_COMMIT), BSA_RC_SUCCESS);
    EXPECT_EQ(*host.Last().Find("vote"), "1");
}

namespace {

template <typename Record>
bool HeadroomHolds(const PaddedXbsaRecord<Record>& record, unsigned char value) {
    const unsigned char* tail = record.Headroom();
    return std::all_of(tail, tail + kOversizeBytes, [&](unsigned char b) { return b == value; });
}

}  // namespace

TEST_F(XbsaServerTest, OversizedRecordsAreReadAndWrittenBeyondOurDeclaration) {
    host.settings.faultText = "records=oversized";
    const BSA_Handle handle = Open();
    ASSERT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    PaddedXbsaRecord<BSA_QueryDescriptor> query(ExchangeQuery());
    PaddedXbsaRecord<BSA_ObjectDescriptor> descriptor;
    ASSERT_EQ(server.QueryObject(handle, query.get(), descriptor.get()), BSA_RC_SUCCESS);
    EXPECT_STREQ(descriptor->objectName.pathName, "/Private Information Store");
    EXPECT_TRUE(HeadroomHolds(query, kOversizePattern));
    EXPECT_TRUE(HeadroomHolds(descriptor, kOversizePattern));

    PaddedXbsaRecord<BSA_ObjectDescriptor> named(
        Named("\\IS", "/First Storage Group/E00000101.log"));
    PaddedXbsaRecord<BSA_DataBlock32> block;
    ASSERT_EQ(server.OpenObject(handle, named.get(), block.get()), BSA_RC_SUCCESS);
    EXPECT_EQ(block->bufferLen, 16384u);
    EXPECT_TRUE(HeadroomHolds(named, kOversizePattern));
    EXPECT_TRUE(HeadroomHolds(block, kOversizePattern));
}

TEST_F(XbsaServerTest, DeclaredRecordsAreTheDefaultAndLeaveTheHeadroomAlone) {
    const BSA_Handle handle = Open();
    ASSERT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    PaddedXbsaRecord<BSA_QueryDescriptor> query(ExchangeQuery());
    PaddedXbsaRecord<BSA_ObjectDescriptor> descriptor;
    ASSERT_EQ(server.QueryObject(handle, query.get(), descriptor.get()), BSA_RC_SUCCESS);
    EXPECT_TRUE(HeadroomHolds(query, 0));
    EXPECT_TRUE(HeadroomHolds(descriptor, 0));
}

TEST_F(XbsaServerTest, ForcedCodesAtTheNthCall) {
    host.settings.faultText = "BSAGetData=3@2;BSABeginTxn=79";
    const BSA_Handle handle = Open();
    EXPECT_EQ(server.BeginTxn(handle), 79);
    EXPECT_EQ(*host.Last().Find("fault"), "1");
    host.settings.faultText = "BSAGetData=3@2";
    const BSA_Handle second = Open();
    ASSERT_EQ(server.BeginTxn(second), BSA_RC_SUCCESS);
    BSA_ObjectDescriptor named = Named("\\IS", "/Second Storage Group/E01000A2.log");
    BSA_DataBlock32 block{};
    ASSERT_EQ(server.OpenObject(second, &named, &block), BSA_RC_SUCCESS);
    std::vector<BSA_Int32> codes;
    ReadAll(second, 16384, codes);
    EXPECT_EQ(codes, (std::vector<BSA_Int32>{0, 3}));
    // The forced call did nothing: the rest of the object follows from offset 16384.
    codes.clear();
    EXPECT_EQ(ReadAll(second, 16384, codes).size(), 49152u);
    EXPECT_EQ(codes, (std::vector<BSA_Int32>{0, 0, 18}));
}

TEST_F(XbsaServerTest, EveryCallCanBeForced) {
    for (int i = 0; i < kXbsaCallCount; ++i) {
        const XbsaCall call = static_cast<XbsaCall>(i);
        FakeHost faulty;
        faulty.settings = host.settings;
        faulty.settings.faultText = std::string(XbsaCallName(call)) + "=42";
        XbsaServer forced(faulty);
        BSA_Handle handle = 0;
        const char* environment[] = {"NSR_CLIENT=cli", "NSR_SERVER=srv", nullptr};
        BSA_Int32 rc = forced.Init(&handle, &token, &owner, const_cast<char**>(environment));
        if (call == XbsaCall::Init) {
            EXPECT_EQ(rc, 42);
            continue;
        }
        BSA_QueryDescriptor query = ExchangeQuery();
        BSA_ObjectDescriptor descriptor = Named("\\IS", "/First Storage Group/E00.chk");
        BSA_DataBlock32 block{};
        BSA_ApiVersion version{};
        switch (call) {
            case XbsaCall::Terminate:
                rc = forced.Terminate(handle);
                break;
            case XbsaCall::BeginTxn:
                rc = forced.BeginTxn(handle);
                break;
            case XbsaCall::EndTxn:
                rc = forced.EndTxn(handle, BSAVote_COMMIT);
                break;
            case XbsaCall::QueryObject:
                rc = forced.QueryObject(handle, &query, &descriptor);
                break;
            case XbsaCall::QueryApiVersion:
                rc = forced.QueryApiVersion(&version);
                break;
            case XbsaCall::GetNextQueryObject:
                rc = forced.GetNextQueryObject(handle, &descriptor);
                break;
            case XbsaCall::GetObject:
                rc = forced.OpenObject(handle, &descriptor, &block);
                break;
            case XbsaCall::GetData:
                rc = forced.GetData(handle, &block);
                break;
            case XbsaCall::EndData:
                rc = forced.EndData(handle);
                break;
            case XbsaCall::Init:
                break;
        }
        EXPECT_EQ(rc, 42) << XbsaCallName(call);
        ParsedJournalLine line;
        ASSERT_TRUE(ParseJournalLine(faulty.lines.back(), line));
        EXPECT_EQ(line.call, XbsaCallName(call));
        EXPECT_EQ(*line.Find("rc"), "42");
    }
}

TEST_F(XbsaServerTest, BadFaultSettingsFailEveryCall) {
    host.settings.faultText = "BSAGetData=banana";
    BSA_Handle handle = 0;
    EXPECT_EQ(Init({"NSR_CLIENT=cli", "NSR_SERVER=srv"}, handle), kConfigurationError);
    EXPECT_NE(host.Last().Find("error")->find("BSAGetData=banana"), std::string::npos);
    BSA_ApiVersion version{};
    EXPECT_EQ(server.QueryApiVersion(&version), kConfigurationError);
}

TEST_F(XbsaServerTest, BufferLengthIsConfigurable) {
    host.settings.faultText = "BSAGetObject.bufferLen=32768";
    const BSA_Handle handle = Open();
    ASSERT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    BSA_ObjectDescriptor named = Named("\\IS", "/Second Storage Group/E01000A2.log");
    BSA_DataBlock32 block{};
    block.bufferLen = 16384;
    ASSERT_EQ(server.OpenObject(handle, &named, &block), BSA_RC_SUCCESS);
    EXPECT_EQ(block.bufferLen, 32768u);
    const ParsedJournalLine line = host.Last();
    EXPECT_EQ(*line.Find("bufferLenIn"), "16384");
    EXPECT_EQ(*line.Find("bufferLenOut"), "32768");
    std::vector<BSA_Int32> codes;
    EXPECT_EQ(ReadAll(handle, 32768, codes).size(), 65536u);
    EXPECT_EQ(codes, (std::vector<BSA_Int32>{0, 18}));
}

TEST_F(XbsaServerTest, ThrottleHoldsEachBlockBackToTheRate) {
    host.settings.faultText = "throttle=262144";
    const BSA_Handle handle = Open();
    ASSERT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    BSA_ObjectDescriptor named = Named("\\IS", "/Second Storage Group/E01000A2.log");
    BSA_DataBlock32 block{};
    ASSERT_EQ(server.OpenObject(handle, &named, &block), BSA_RC_SUCCESS);
    std::vector<BSA_Int32> codes;
    EXPECT_EQ(ReadAll(handle, 16384, codes).size(), 65536u);
    // At 262,144 bytes per second, block k of 16,384 bytes is due k * 62.5 ms after the open.
    using std::chrono::microseconds;
    ASSERT_EQ(host.waits.size(), 4u);
    EXPECT_EQ(std::chrono::duration_cast<microseconds>(host.waits[0]), microseconds(62500));
    EXPECT_EQ(std::chrono::duration_cast<microseconds>(host.waits[1]), microseconds(125000));
    EXPECT_EQ(std::chrono::duration_cast<microseconds>(host.waits[2]), microseconds(187500));
    EXPECT_EQ(std::chrono::duration_cast<microseconds>(host.waits[3]), microseconds(250000));
}

TEST_F(XbsaServerTest, NoThrottleNoWaiting) {
    const BSA_Handle handle = Open();
    ASSERT_EQ(server.BeginTxn(handle), BSA_RC_SUCCESS);
    BSA_ObjectDescriptor named = Named("\\IS", "/Second Storage Group/E01000A2.log");
    BSA_DataBlock32 block{};
    ASSERT_EQ(server.OpenObject(handle, &named, &block), BSA_RC_SUCCESS);
    std::vector<BSA_Int32> codes;
    EXPECT_EQ(ReadAll(handle, 16384, codes).size(), 65536u);
    EXPECT_TRUE(host.waits.empty());
}

TEST_F(XbsaServerTest, CountsStartAgainAtEveryInit) {
    host.settings.faultText = "BSABeginTxn=3@1";
    const BSA_Handle first = Open();
    EXPECT_EQ(server.BeginTxn(first), 3);
    EXPECT_EQ(server.BeginTxn(first), BSA_RC_SUCCESS);
    const BSA_Handle second = Open();
    EXPECT_EQ(server.BeginTxn(second), 3);
}

}  // namespace
