#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "RecordingLog.h"
#include "ScriptedConnection.h"
#include "pipe/PipeMessageBuilders.h"
#include "pipe/PipeMessages.h"
#include "pipe/WireStrings.h"
#include "pipeexecutor/NetWorkerNamedPipeExecutor.h"

using ::testing::_;
using ::testing::ElementsAre;
using ::testing::Return;

namespace {

constexpr int32_t kFail = static_cast<int32_t>(0x80004005);
constexpr wchar_t kLogger[] = L"NetWorkerNamedPipeExecutor";

// The launcher the tests hand to the executor.
struct LauncherRecord {
    std::vector<std::wstring> names;
    long status = 0;
};
LauncherRecord g_launcher;

long RecordingLauncher(const wchar_t* pipeName) {
    g_launcher.names.push_back(pipeName);
    return g_launcher.status;
}

class MockFileFound : public INetWorkerFileFoundCallBack {
public:
    MOCK_METHOD(bool, NetWorkerFileFound, (const NetWorkerFileInfo*), (override));
};

class MockError : public INetWorkerErrorCallBack {
public:
    MOCK_METHOD(uint32_t, NetWorkerError, (uint32_t), (override));
    MOCK_METHOD(uint32_t, AllocationError, (const NetWorkerAllocationInfo*), (override));
};

class MockProgress : public INetWorkerUpdateProgressCallBack {
public:
    MOCK_METHOD(bool, UpdateProgress, (NetWorkerProgressInfo*), (override));
};

template <typename Message>
Message StatusReply(int32_t result) {
    auto message = IpcMakeMessage<Message>();
    message.result = result;
    return message;
}

IpcFileFound FileFoundMessage(uint32_t index, uint64_t ticks, const char* path, uint64_t size,
                              uint64_t restoreOrder) {
    auto message = IpcMakeMessage<IpcFileFound>();
    message.index = index;
    message.backupTime = ticks;
    std::strcpy(message.path, path);
    message.size = size;
    message.restoreOrder = restoreOrder;
    return message;
}

uint32_t TypeOf(const Bytes& bytes) {
    return FromBytes<IpcHeader>(bytes).messageType;
}

uint32_t ShouldCancelResponse(const Bytes& bytes) {
    EXPECT_EQ(bytes.size(), sizeof(IpcShouldCancel));
    EXPECT_EQ(TypeOf(bytes), IpcTypeShouldCancel);
    return FromBytes<IpcShouldCancel>(bytes).response;
}

class PipeExecutorTest : public ::testing::Test {
protected:
    void SetUp() override {
        TestLoggers::Reset();
        g_launcher = LauncherRecord{};
        m_executor = std::make_unique<NetWorkerNamedPipeExecutor>(L"nwx-test", &m_connection,
                                                                  RecordingLauncher);
        m_log = TestLoggers::Find(kLogger);
        ASSERT_NE(m_log, nullptr);
    }

    std::vector<std::wstring> Errors() const { return m_log->TextsAt(LogLevelError); }

    std::vector<std::wstring> TracesOf(const std::wstring& method) const {
        std::vector<std::wstring> texts;
        for (const LogLine& line : m_log->Lines()) {
            if (line.level == LogLevelTrace && line.method == method) {
                texts.push_back(line.text);
            }
        }
        return texts;
    }

    ScriptedConnection m_connection;
    std::unique_ptr<NetWorkerNamedPipeExecutor> m_executor;
    RecordingLog* m_log = nullptr;
};

TEST_F(PipeExecutorTest, InitializeOpensLaunchesWaitsAndSendsServerFirst) {
    m_connection.Queue(StatusReply<IpcFinishInitialize>(0));
    EXPECT_EQ(m_executor->Initialize("exchange01", "backupserver"), 0);

    EXPECT_THAT(m_connection.Calls(), ElementsAre(L"OpenNewPipe:nwx-test", L"WaitForConnection"));
    EXPECT_THAT(g_launcher.names, ElementsAre(L"nwx-test"));
    ASSERT_EQ(m_connection.Sent().size(), 1u);
    const Bytes& sent = m_connection.Sent()[0];
    ASSERT_EQ(sent.size(), 518u);
    EXPECT_EQ(TypeOf(sent), 1u);
    EXPECT_EQ(FromBytes<IpcHeader>(sent).messageSize, 518u);
    EXPECT_STREQ(reinterpret_cast<const char*>(&sent[8]), "backupserver");
    EXPECT_STREQ(reinterpret_cast<const char*>(&sent[263]), "exchange01");
    // Unused bytes of both fields are zero.
    for (size_t i = 8 + std::strlen("backupserver"); i < 263; ++i) {
        ASSERT_EQ(sent[i], 0) << i;
    }
    for (size_t i = 263 + std::strlen("exchange01"); i < 518; ++i) {
        ASSERT_EQ(sent[i], 0) << i;
    }
    EXPECT_EQ(m_connection.LastReceiveCapacity(), 4108u);
    EXPECT_THAT(TracesOf(L"NetWorkerNamedPipeExecutor::Initialize"),
                ElementsAre(L"Method Start", L"Method End"));
}

TEST_F(PipeExecutorTest, InitializeReturnsTheHelpersStatusUnchanged) {
    m_connection.Queue(StatusReply<IpcFinishInitialize>(static_cast<int32_t>(0x8007000A)));
    EXPECT_EQ(m_executor->Initialize("c", "s"), static_cast<int32_t>(0x8007000A));
    EXPECT_TRUE(Errors().empty());
}

TEST_F(PipeExecutorTest, InitializeNameOf254CharactersFitsAnd255IsRefused) {
    const std::string longest(254, 'n');
    m_connection.Queue(StatusReply<IpcFinishInitialize>(0));
    EXPECT_EQ(m_executor->Initialize(longest.c_str(), longest.c_str()), 0);
    const Bytes& sent = m_connection.Sent()[0];
    EXPECT_EQ(sent[8 + 253], 'n');
    EXPECT_EQ(sent[8 + 254], 0);
    EXPECT_EQ(sent[263 + 254 - 1], 'n');

    ScriptedConnection other;
    NetWorkerNamedPipeExecutor executor(L"other", &other, RecordingLauncher);
    const std::string tooLong(255, 'n');
    EXPECT_EQ(executor.Initialize(tooLong.c_str(), "s"), static_cast<int32_t>(0x80070057));
    EXPECT_EQ(executor.Initialize("c", nullptr), static_cast<int32_t>(0x80070057));
    EXPECT_TRUE(other.Calls().empty());
    EXPECT_TRUE(other.Sent().empty());
}

TEST_F(PipeExecutorTest, FailingLauncherReturnsItsStatusAndNeverWaits) {
    g_launcher.status = static_cast<int32_t>(0x80070002);
    EXPECT_EQ(m_executor->Initialize("c", "s"), static_cast<int32_t>(0x80070002));
    EXPECT_THAT(m_connection.Calls(), ElementsAre(L"OpenNewPipe:nwx-test"));
    EXPECT_TRUE(m_connection.Sent().empty());
    EXPECT_THAT(
        Errors(),
        ElementsAre(L"Failed to create 'NetWorker64BitClient.exe' process. Error: 80070002."));
}

TEST_F(PipeExecutorTest, PositiveLauncherStatusCountsAsStarted) {
    g_launcher.status = 5;
    m_connection.Queue(StatusReply<IpcFinishInitialize>(0));
    EXPECT_EQ(m_executor->Initialize("c", "s"), 0);
    EXPECT_THAT(m_connection.Calls(), ElementsAre(L"OpenNewPipe:nwx-test", L"WaitForConnection"));
}

TEST_F(PipeExecutorTest, InitializeWithUnexpectedReplyFailsOnceTheHelperHasAnswered) {
    m_connection.Queue(StatusReply<IpcFinishCatalog>(0));
    m_connection.Queue(StatusReply<IpcFinishInitialize>(0));
    // The stray message is logged and read past: the helper's own reply still ends Initialize,
    // so that the next request is read as a request.
    EXPECT_EQ(m_executor->Initialize("c", "s"), kFail);
    EXPECT_EQ(m_connection.PendingIncoming(), 0u);
    EXPECT_THAT(Errors(), ElementsAre(L"The client was unable to initialize. Expected messageType "
                                      L"'2'. Actual messageType '6'. Error: 80004005."));
}

TEST_F(PipeExecutorTest, InitializeWithShortReplyReportsTypeZero) {
    m_connection.Queue(Bytes{2, 0, 0, 0, 12, 0, 0});
    m_connection.Queue(StatusReply<IpcFinishInitialize>(0));
    EXPECT_EQ(m_executor->Initialize("c", "s"), kFail);
    EXPECT_EQ(m_connection.PendingIncoming(), 0u);
    EXPECT_THAT(Errors(), ElementsAre(L"The client was unable to initialize. Expected messageType "
                                      L"'2'. Actual messageType '0'. Error: 80004005."));
}

TEST_F(PipeExecutorTest, InitializeReplyWithWrongSizeFieldIsRejected) {
    auto reply = StatusReply<IpcFinishInitialize>(0);
    reply.header.messageSize = 16;
    m_connection.Queue(reply);
    EXPECT_EQ(m_executor->Initialize("c", "s"), kFail);
    EXPECT_THAT(Errors(), ElementsAre(L"The client was unable to initialize. Expected messageType "
                                      L"'2'. Actual messageType '2'. Error: 80004005."));
}

TEST_F(PipeExecutorTest, InitializeOnClosedPipeReturnsPositive109) {
    m_connection.QueueClose();
    EXPECT_EQ(m_executor->Initialize("c", "s"), 109);
    EXPECT_THAT(Errors(), ElementsAre(L"Failed to receive correctly from the pipe. Other end of "
                                      L"pipe disconnected while receiving message from pipe! "
                                      L"Error: 0000006d."));
}

TEST_F(PipeExecutorTest, CatalogSendsTimeAfterAt8AndTimeBeforeAt16) {
    FILETIME before{0x11223344u, 0x01D00000u};
    FILETIME after{0x55667788u, 0x01C00000u};
    m_connection.Queue(StatusReply<IpcFinishCatalog>(0));
    MockError error;
    EXPECT_EQ(m_executor->Catalog(&before, &after, nullptr, &error), 0);
    ASSERT_EQ(m_connection.Sent().size(), 1u);
    const Bytes& sent = m_connection.Sent()[0];
    ASSERT_EQ(sent.size(), 24u);
    EXPECT_EQ(TypeOf(sent), 4u);
    const auto request = FromBytes<IpcBeginCatalog>(sent);
    EXPECT_EQ(request.timeAfter, 0x01C0000055667788ull);
    EXPECT_EQ(request.timeBefore, 0x01D0000011223344ull);
    // Low word first on the wire.
    EXPECT_EQ(sent[8], 0x88);
    EXPECT_EQ(sent[16], 0x44);
}

TEST_F(PipeExecutorTest, CatalogRefusesAReversedWindowBeforeSending) {
    FILETIME before{0, 0x01C00000u};
    FILETIME after{1, 0x01C00000u};
    try {
        m_executor->Catalog(&before, &after, nullptr, nullptr);
        FAIL() << "expected std::invalid_argument";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "timeAfter cannot be later than timeBefore");
    }
    EXPECT_TRUE(m_connection.Sent().empty());
    // Equal bounds are a valid one-instant window.
    m_connection.Queue(StatusReply<IpcFinishCatalog>(0));
    EXPECT_EQ(m_executor->Catalog(&before, &before, nullptr, nullptr), 0);
}

TEST_F(PipeExecutorTest, CatalogSendsZeroForNullBounds) {
    m_connection.Queue(StatusReply<IpcFinishCatalog>(1169));
    EXPECT_EQ(m_executor->Catalog(nullptr, nullptr, nullptr, nullptr), 1169);
    const auto request = FromBytes<IpcBeginCatalog>(m_connection.Sent()[0]);
    EXPECT_EQ(request.timeAfter, 0u);
    EXPECT_EQ(request.timeBefore, 0u);
}

TEST_F(PipeExecutorTest, CatalogRelaysEveryFileAndAnswersGoOn) {
    // 2024-03-05 06:07:08 UTC, a Tuesday, in 100-ns ticks since 1601.
    const uint64_t wireTicks = 0x01DA6EC35AAFCE00ull;
    m_connection.Queue(FileFoundMessage(0, wireTicks, "/Exchange/First Storage Group/priv1.edb", 0,
                                        0x0000000100000002ull));
    m_connection.Queue(FileFoundMessage(1, wireTicks, "/Exchange/E00.log", 5242880, 7));
    m_connection.Queue(StatusReply<IpcFinishCatalog>(0));

    MockFileFound found;
    std::vector<std::string> paths;
    std::vector<NetWorkerFileInfo> infos;
    EXPECT_CALL(found, NetWorkerFileFound(_))
        .Times(2)
        .WillRepeatedly([&](const NetWorkerFileInfo* info) {
            infos.push_back(*info);
            paths.push_back(info->path);
            return false;
        });
    MockError error;
    EXPECT_EQ(m_executor->Catalog(nullptr, nullptr, &found, &error), 0);

    ASSERT_EQ(infos.size(), 2u);
    EXPECT_EQ(infos[0].index, 0u);
    EXPECT_EQ(infos[0].backupTime.wYear, 2024);
    EXPECT_EQ(infos[0].backupTime.wMonth, 3);
    EXPECT_EQ(infos[0].backupTime.wDayOfWeek, 2);  // filled in by the conversion
    EXPECT_EQ(infos[0].backupTime.wDay, 5);
    EXPECT_EQ(infos[0].backupTime.wHour, 6);
    EXPECT_EQ(infos[0].backupTime.wMinute, 7);
    EXPECT_EQ(infos[0].backupTime.wSecond, 8);
    EXPECT_EQ(infos[0].backupTime.wMilliseconds, 0);
    EXPECT_EQ(infos[0].size, 0u);
    EXPECT_EQ(infos[0].restoreOrder, 0x0000000100000002ull);
    EXPECT_EQ(infos[1].index, 1u);
    EXPECT_EQ(infos[1].size, 5242880u);
    EXPECT_EQ(infos[1].restoreOrder, 7u);
    EXPECT_THAT(paths, ElementsAre("/Exchange/First Storage Group/priv1.edb", "/Exchange/E00.log"));

    ASSERT_EQ(m_connection.Sent().size(), 3u);
    EXPECT_EQ(ShouldCancelResponse(m_connection.Sent()[1]), 1u);
    EXPECT_EQ(ShouldCancelResponse(m_connection.Sent()[2]), 1u);
}

TEST_F(PipeExecutorTest, FileFoundThatStopsAnswersQuitAndStillWaitsForTheFinish) {
    m_connection.Queue(FileFoundMessage(0, 0, "a.edb", 0, 0));
    m_connection.Queue(StatusReply<IpcFinishCatalog>(0));
    MockFileFound found;
    EXPECT_CALL(found, NetWorkerFileFound(_)).WillOnce(Return(true));
    EXPECT_EQ(m_executor->Catalog(nullptr, nullptr, &found, nullptr), 0);
    ASSERT_EQ(m_connection.Sent().size(), 2u);
    EXPECT_EQ(ShouldCancelResponse(m_connection.Sent()[1]), 0u);
    EXPECT_EQ(m_connection.PendingIncoming(), 0u);
}

TEST_F(PipeExecutorTest, PathOf1023CharactersReachesTheCallbackWhole) {
    auto message = IpcMakeMessage<IpcFileFound>();
    std::memset(message.path, 'p', 1023);
    m_connection.Queue(message);
    m_connection.Queue(StatusReply<IpcFinishCatalog>(0));
    MockFileFound found;
    size_t length = 0;
    EXPECT_CALL(found, NetWorkerFileFound(_)).WillOnce([&](const NetWorkerFileInfo* info) {
        length = std::strlen(info->path);
        return false;
    });
    EXPECT_EQ(m_executor->Catalog(nullptr, nullptr, &found, nullptr), 0);
    EXPECT_EQ(length, 1023u);
}

TEST_F(PipeExecutorTest, CatalogWithoutFileFoundCallbackAnswersGoOn) {
    m_connection.Queue(FileFoundMessage(0, 0, "a.edb", 0, 0));
    m_connection.Queue(StatusReply<IpcFinishCatalog>(0));
    EXPECT_EQ(m_executor->Catalog(nullptr, nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(m_connection.Sent().size(), 2u);
    EXPECT_EQ(ShouldCancelResponse(m_connection.Sent()[1]), 1u);
}

TEST_F(PipeExecutorTest, HelperClosingDuringCatalogReturns109AfterOneErrorLine) {
    m_connection.Queue(FileFoundMessage(0, 0, "a.edb", 0, 0));
    m_connection.QueueClose();
    MockFileFound found;
    EXPECT_CALL(found, NetWorkerFileFound(_)).WillOnce(Return(false));
    EXPECT_EQ(m_executor->Catalog(nullptr, nullptr, &found, nullptr), 109);
    EXPECT_THAT(Errors(), ElementsAre(L"Failed to receive correctly from the pipe. Other end of "
                                      L"pipe disconnected while receiving message from pipe! "
                                      L"Error: 0000006d."));
    EXPECT_THAT(TracesOf(L"NetWorkerNamedPipeExecutor::Catalog"),
                ElementsAre(L"Method Start", L"Method End"));
}

TEST_F(PipeExecutorTest, FinishCatalogWithTrailingGarbageIsAccepted) {
    Bytes reply = ToBytes(StatusReply<IpcFinishCatalog>(1223));
    reply.insert(reply.end(), {0xDE, 0xAD, 0xBE, 0xEF});
    m_connection.Queue(reply);
    EXPECT_EQ(m_executor->Catalog(nullptr, nullptr, nullptr, nullptr), 1223);
    EXPECT_TRUE(Errors().empty());
}

TEST_F(PipeExecutorTest, CatalogFailsOnAnUnexpectedMessageOnceTheHelperHasFinished) {
    m_connection.Queue(StatusReply<IpcFinishExtractFile>(0));
    m_connection.Queue(StatusReply<IpcFinishCatalog>(0));
    EXPECT_EQ(m_executor->Catalog(nullptr, nullptr, nullptr, nullptr), kFail);
    EXPECT_THAT(Errors(), ElementsAre(L"Invalid messageType recieved. Error: 80004005."));
    // Read to the helper's final message: the session stays in step.
    EXPECT_EQ(m_connection.PendingIncoming(), 0u);
}

TEST_F(PipeExecutorTest, CatalogRefusesAFileFoundWithAWrongSizeFieldAndReadsToTheEnd) {
    auto message = FileFoundMessage(0, 0, "a.edb", 0, 0);
    message.header.messageSize = 1059;
    m_connection.Queue(message);
    m_connection.Queue(StatusReply<IpcFinishCatalog>(0));
    MockFileFound found;
    EXPECT_CALL(found, NetWorkerFileFound(_)).Times(0);
    EXPECT_EQ(m_executor->Catalog(nullptr, nullptr, &found, nullptr), kFail);
    EXPECT_THAT(Errors(), ElementsAre(L"Invalid messageType recieved. Error: 80004005."));
    // The helper waited for an answer: it got "stop", unasked.
    ASSERT_EQ(m_connection.Sent().size(), 2u);
    EXPECT_EQ(m_connection.Sent()[1], ToBytes(IpcBuildShouldCancel(eQuit)));
    EXPECT_EQ(m_connection.PendingIncoming(), 0u);
}

TEST_F(PipeExecutorTest, CatalogRefusesWronglySizedErrorQuestionsWithoutAskingTheHost) {
    auto networkerError = IpcMakeMessage<IpcNetWorkerError>();
    networkerError.code = NwErrorQuery;
    networkerError.header.messageSize = 16;
    auto allocation = IpcMakeMessage<IpcAllocationError>();
    allocation.header.messageSize = 12;
    m_connection.Queue(networkerError);
    m_connection.Queue(allocation);
    m_connection.Queue(StatusReply<IpcFinishCatalog>(0));
    MockError error;
    EXPECT_CALL(error, NetWorkerError(_)).Times(0);
    EXPECT_CALL(error, AllocationError(_)).Times(0);
    EXPECT_EQ(m_executor->Catalog(nullptr, nullptr, nullptr, &error), kFail);
    ASSERT_EQ(m_connection.Sent().size(), 3u);
    EXPECT_EQ(m_connection.Sent()[1], ToBytes(IpcBuildNetWorkerErrorResponse(1223)));
    EXPECT_EQ(m_connection.Sent()[2], ToBytes(IpcBuildAllocationErrorResponse(0)));
    EXPECT_EQ(m_connection.PendingIncoming(), 0u);
}

TEST_F(PipeExecutorTest, CatalogRelaysErrorAndAllocationCallbacks) {
    auto networkerError = IpcMakeMessage<IpcNetWorkerError>();
    networkerError.code = NwErrorQuery;
    auto allocation = IpcMakeMessage<IpcAllocationError>();
    allocation.reason = 0;
    allocation.itemsFound = 12;
    allocation.catalogueSize = 12;
    allocation.catalogueCapacity = 0x100000000ull;
    m_connection.Queue(networkerError);
    m_connection.Queue(allocation);
    m_connection.Queue(StatusReply<IpcFinishCatalog>(0));

    MockError error;
    NetWorkerAllocationInfo seen{};
    EXPECT_CALL(error, NetWorkerError(17u)).WillOnce(Return(77u));
    EXPECT_CALL(error, AllocationError(_)).WillOnce([&](const NetWorkerAllocationInfo* info) {
        seen = *info;
        return 5u;
    });
    EXPECT_EQ(m_executor->Catalog(nullptr, nullptr, nullptr, &error), 0);
    EXPECT_EQ(seen.reason, 0u);
    EXPECT_EQ(seen.itemsFound, 12u);
    EXPECT_EQ(seen.catalogueSize, 12u);
    EXPECT_EQ(seen.catalogueCapacity, 0x100000000ull);

    ASSERT_EQ(m_connection.Sent().size(), 3u);
    EXPECT_EQ(m_connection.Sent()[1].size(), 12u);
    EXPECT_EQ(TypeOf(m_connection.Sent()[1]), 17u);
    EXPECT_EQ(FromBytes<IpcNetWorkerErrorResponse>(m_connection.Sent()[1]).answer, 77u);
    EXPECT_EQ(m_connection.Sent()[2].size(), 12u);
    EXPECT_EQ(TypeOf(m_connection.Sent()[2]), 19u);
    EXPECT_EQ(FromBytes<IpcAllocationErrorResponse>(m_connection.Sent()[2]).answer, 5u);
}

TEST_F(PipeExecutorTest, GetFileSizeSendsIndexAndFlag) {
    auto reply = IpcMakeMessage<IpcFinishGetFileSize>();
    reply.size = 0x123456789ull;
    m_connection.Queue(reply);
    m_connection.Queue(reply);
    uint64_t size = 0;
    EXPECT_EQ(m_executor->GetFileSize(42, true, &size), 0);
    EXPECT_EQ(size, 0x123456789ull);
    EXPECT_EQ(m_executor->GetFileSize(43, false, &size), 0);
    ASSERT_EQ(m_connection.Sent().size(), 2u);
    const Bytes& first = m_connection.Sent()[0];
    ASSERT_EQ(first.size(), 16u);
    EXPECT_EQ(TypeOf(first), 7u);
    EXPECT_EQ(FromBytes<IpcBeginGetFileSize>(first).index, 42u);
    EXPECT_EQ(first[12], 1);
    EXPECT_EQ(FromBytes<IpcBeginGetFileSize>(m_connection.Sent()[1]).correctSize, 0u);
}

TEST_F(PipeExecutorTest, GetFileSizeReportsAFailedLookupAsSizeZero) {
    m_connection.Queue(IpcMakeMessage<IpcFinishGetFileSize>());
    uint64_t size = 99;
    EXPECT_EQ(m_executor->GetFileSize(0, true, &size), 0);
    EXPECT_EQ(size, 0u);
}

TEST_F(PipeExecutorTest, GetFileSizeWithUnexpectedReplyLeavesSizeAlone) {
    m_connection.Queue(StatusReply<IpcFinishCatalog>(0));
    m_connection.Queue(IpcBuildFinishGetFileSize(5));
    uint64_t size = 99;
    EXPECT_EQ(m_executor->GetFileSize(0, false, &size), kFail);
    EXPECT_EQ(size, 99u);
    EXPECT_THAT(Errors(), ElementsAre(L"The client was unable to initialize. Expected messageType "
                                      L"'8'. Actual messageType '6'. Error: 80004005."));
}

TEST_F(PipeExecutorTest, GetFileSizeOnClosedPipeReturns109) {
    m_connection.QueueClose();
    uint64_t size = 99;
    EXPECT_EQ(m_executor->GetFileSize(0, false, &size), 109);
    EXPECT_EQ(size, 99u);
}

TEST_F(PipeExecutorTest, BeginAndEndExtractReturnTheHelpersStatus) {
    m_connection.Queue(StatusReply<IpcFinishBeginExtract>(static_cast<int32_t>(0x80070006)));
    m_connection.Queue(StatusReply<IpcFinishEndExtract>(0));
    EXPECT_EQ(m_executor->BeginExtract(), static_cast<int32_t>(0x80070006));
    EXPECT_EQ(m_executor->EndExtract(), 0);
    ASSERT_EQ(m_connection.Sent().size(), 2u);
    EXPECT_EQ(m_connection.Sent()[0], ToBytes(IpcMakeMessage<IpcBeginExtract>()));
    EXPECT_EQ(m_connection.Sent()[1], ToBytes(IpcMakeMessage<IpcEndExtract>()));
    EXPECT_EQ(m_connection.Sent()[0].size(), 8u);
}

TEST_F(PipeExecutorTest, BeginAndEndExtractShareTheInitializeWording) {
    m_connection.Queue(StatusReply<IpcFinishEndExtract>(0));
    m_connection.Queue(StatusReply<IpcFinishBeginExtract>(0));
    m_connection.Queue(StatusReply<IpcFinishBeginExtract>(0));
    m_connection.Queue(StatusReply<IpcFinishEndExtract>(0));
    EXPECT_EQ(m_executor->BeginExtract(), kFail);
    EXPECT_EQ(m_executor->EndExtract(), kFail);
    EXPECT_EQ(m_connection.PendingIncoming(), 0u);
    EXPECT_THAT(Errors(),
                ElementsAre(L"The client was unable to initialize. Expected messageType '10'. "
                            L"Actual messageType '15'. Error: 80004005.",
                            L"The client was unable to initialize. Expected messageType '15'. "
                            L"Actual messageType '10'. Error: 80004005."));
}

TEST_F(PipeExecutorTest, ExtractFileSendsIndexDirectoryAndFileName) {
    m_connection.Queue(StatusReply<IpcFinishExtractFile>(0));
    EXPECT_EQ(m_executor->ExtractFile(3, L"C:\\restore\\sg1", L"priv1.edb", nullptr, nullptr), 0);
    ASSERT_EQ(m_connection.Sent().size(), 1u);
    const Bytes& sent = m_connection.Sent()[0];
    ASSERT_EQ(sent.size(), 4108u);
    EXPECT_EQ(TypeOf(sent), 11u);
    const auto request = FromBytes<IpcBeginExtractFile>(sent);
    EXPECT_EQ(request.index, 3u);
    EXPECT_EQ(WideFieldToString(request.directory, kIpcWideFieldSize), L"C:\\restore\\sg1");
    EXPECT_EQ(WideFieldToString(request.fileName, kIpcWideFieldSize), L"priv1.edb");
    EXPECT_EQ(sent[12], 'C');
    EXPECT_EQ(sent[2060], 'p');
    for (size_t i = 2060 + 2 * std::wcslen(L"priv1.edb"); i < 4108; ++i) {
        ASSERT_EQ(sent[i], 0) << i;
    }
}

TEST_F(PipeExecutorTest, ExtractFileRefusesNamesThatDoNotFit) {
    const std::wstring tooLong(1024, L'd');
    EXPECT_EQ(m_executor->ExtractFile(0, tooLong.c_str(), L"f", nullptr, nullptr),
              static_cast<int32_t>(0x80070057));
    EXPECT_EQ(m_executor->ExtractFile(0, L"d", nullptr, nullptr, nullptr),
              static_cast<int32_t>(0x80070057));
    EXPECT_TRUE(m_connection.Sent().empty());
    EXPECT_THAT(Errors(), ElementsAre(L"directory does not fit its pipe field: at most 1023 "
                                      L"UTF-16 units are allowed Error: 80070057.",
                                      L"fileName must not be null Error: 80070057."));
}

TEST_F(PipeExecutorTest, ExtractFileRelaysProgressAndCancellation) {
    auto first = IpcMakeMessage<IpcUpdateProgress>();
    first.state = 1;
    first.bytesDone = 0;
    auto second = IpcMakeMessage<IpcUpdateProgress>();
    second.state = 1;
    second.bytesDone = 65536;
    m_connection.Queue(first);
    m_connection.Queue(second);
    m_connection.Queue(StatusReply<IpcFinishExtractFile>(1223));

    MockProgress progress;
    std::vector<uint32_t> done;
    EXPECT_CALL(progress, UpdateProgress(_))
        .WillOnce([&](NetWorkerProgressInfo* info) {
            EXPECT_EQ(info->state, 1u);
            done.push_back(info->bytesDone);
            return false;
        })
        .WillOnce([&](NetWorkerProgressInfo* info) {
            done.push_back(info->bytesDone);
            return true;
        });
    EXPECT_EQ(m_executor->ExtractFile(0, L"C:\\r", L"f.edb", &progress, nullptr), 1223);
    EXPECT_THAT(done, ElementsAre(0u, 65536u));
    ASSERT_EQ(m_connection.Sent().size(), 3u);
    EXPECT_EQ(ShouldCancelResponse(m_connection.Sent()[1]), 1u);
    EXPECT_EQ(ShouldCancelResponse(m_connection.Sent()[2]), 0u);
}

TEST_F(PipeExecutorTest, ExtractFileWithoutProgressCallbackAnswersGoOn) {
    m_connection.Queue(IpcMakeMessage<IpcUpdateProgress>());
    m_connection.Queue(StatusReply<IpcFinishExtractFile>(0));
    EXPECT_EQ(m_executor->ExtractFile(0, L"C:\\r", L"f.edb", nullptr, nullptr), 0);
    ASSERT_EQ(m_connection.Sent().size(), 2u);
    EXPECT_EQ(ShouldCancelResponse(m_connection.Sent()[1]), 1u);
}

TEST_F(PipeExecutorTest, ExtractFileLogsAStrayMessageOnceAndGoesOn) {
    m_connection.Queue(StatusReply<IpcFinishInitialize>(0));
    m_connection.Queue(StatusReply<IpcFinishExtractFile>(0));
    EXPECT_EQ(m_executor->ExtractFile(0, L"C:\\r", L"f.edb", nullptr, nullptr), 0);
    EXPECT_THAT(Errors(), ElementsAre(L"Invalid messageType recieved. Error: 80004005."));
    EXPECT_EQ(m_connection.Sent().size(), 1u);
}

namespace {

// A question whose size field says four bytes less than its kind has: what a helper of another
// build, or a damaged one, might send.
template <typename Message>
Bytes WronglySized(Message message) {
    message.header.messageSize -= 4;
    Bytes bytes = ToBytes(message);
    bytes.resize(bytes.size() - 4);
    return bytes;
}

struct HostGone : std::runtime_error {
    HostGone() : std::runtime_error("the host's callback gave up") {}
};

}  // namespace

// The helper waits for an answer to every question, whatever its size: each wrongly sized one
// is answered as a refusal without asking the host, so the extraction ends (cancelled) instead
// of both sides waiting for each other.
TEST_F(PipeExecutorTest, ExtractFileRefusesWronglySizedQuestionsWithoutAskingTheHost) {
    m_connection.Queue(WronglySized(IpcMakeMessage<IpcUpdateProgress>()));
    m_connection.Queue(WronglySized(IpcMakeMessage<IpcNetWorkerError>()));
    m_connection.Queue(WronglySized(IpcMakeMessage<IpcAllocationError>()));
    m_connection.Queue(StatusReply<IpcFinishExtractFile>(1223));
    ::testing::StrictMock<MockProgress> progress;  // never asked
    ::testing::StrictMock<MockError> error;        // never asked
    EXPECT_EQ(m_executor->ExtractFile(0, L"C:\\r", L"f.edb", &progress, &error), 1223);
    const std::vector<Bytes>& sent = m_connection.Sent();
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_EQ(FromBytes<IpcShouldCancel>(sent[1]).response, static_cast<uint32_t>(eQuit));
    EXPECT_EQ(FromBytes<IpcNetWorkerErrorResponse>(sent[2]).header.messageType,
              static_cast<uint32_t>(IpcTypeNetWorkerErrorResponse));
    EXPECT_EQ(FromBytes<IpcNetWorkerErrorResponse>(sent[2]).answer, 1223u);
    EXPECT_EQ(FromBytes<IpcAllocationErrorResponse>(sent[3]).header.messageType,
              static_cast<uint32_t>(IpcTypeAllocationErrorResponse));
    EXPECT_EQ(FromBytes<IpcAllocationErrorResponse>(sent[3]).answer, 0u);
    EXPECT_THAT(Errors(), ElementsAre(L"Invalid messageType recieved. Error: 80004005.",
                                      L"Invalid messageType recieved. Error: 80004005.",
                                      L"Invalid messageType recieved. Error: 80004005."));
    EXPECT_EQ(m_connection.PendingIncoming(), 0u);
}

// A progress callback that throws: the helper is told to stop, every further question of the
// extraction is refused unasked, the final message is read, and the exception goes on.
TEST_F(PipeExecutorTest, ProgressCallbackThatThrowsAbandonsTheExtractionAndPassesTheException) {
    m_connection.Queue(IpcMakeMessage<IpcUpdateProgress>());
    auto diskFull = IpcMakeMessage<IpcNetWorkerError>();
    diskFull.code = NwErrorDiskFull;
    m_connection.Queue(diskFull);
    m_connection.Queue(StatusReply<IpcFinishExtractFile>(1223));
    m_connection.Queue(StatusReply<IpcFinishEndExtract>(0));
    MockProgress progress;
    EXPECT_CALL(progress, UpdateProgress(_)).WillOnce([](NetWorkerProgressInfo*) -> bool {
        throw HostGone();
    });
    ::testing::StrictMock<MockError> error;  // not asked once the host has gone
    EXPECT_THROW(m_executor->ExtractFile(0, L"C:\\r", L"f.edb", &progress, &error), HostGone);
    const std::vector<Bytes>& sent = m_connection.Sent();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(FromBytes<IpcShouldCancel>(sent[1]).response, static_cast<uint32_t>(eQuit));
    // A full disk is refused as cancelled, so the helper keeps no file without its last block.
    EXPECT_EQ(FromBytes<IpcNetWorkerErrorResponse>(sent[2]).answer, 1223u);
    // In step: the session goes on with the next request.
    EXPECT_EQ(m_executor->EndExtract(), 0);
}

// A file-found callback that throws: the helper is told to stop there, as the in-process
// catalogue stops there, any further question is refused, and the exception goes on. The stop
// ends that catalogue only.
TEST_F(PipeExecutorTest, FileFoundCallbackThatThrowsStopsTheCatalogueAndPassesTheException) {
    m_connection.Queue(IpcMakeMessage<IpcFileFound>());
    m_connection.Queue(IpcMakeMessage<IpcFileFound>());
    m_connection.Queue(StatusReply<IpcFinishCatalog>(0));
    MockFileFound found;
    EXPECT_CALL(found, NetWorkerFileFound(_)).WillOnce([](const NetWorkerFileInfo*) -> bool {
        throw HostGone();
    });
    EXPECT_THROW(m_executor->Catalog(nullptr, nullptr, &found, nullptr), HostGone);
    const std::vector<Bytes>& sent = m_connection.Sent();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(FromBytes<IpcShouldCancel>(sent[1]).response, static_cast<uint32_t>(eQuit));
    EXPECT_EQ(FromBytes<IpcShouldCancel>(sent[2]).response, static_cast<uint32_t>(eQuit));
    EXPECT_EQ(m_connection.PendingIncoming(), 0u);
}

TEST_F(PipeExecutorTest, ExtractFileAnswersDiskFullWithTheHostsAnswer) {
    auto diskFull = IpcMakeMessage<IpcNetWorkerError>();
    diskFull.code = NwErrorDiskFull;
    m_connection.Queue(diskFull);
    m_connection.Queue(StatusReply<IpcFinishExtractFile>(0));
    MockError error;
    EXPECT_CALL(error, NetWorkerError(11u)).WillOnce(Return(1246u));
    EXPECT_EQ(m_executor->ExtractFile(0, L"C:\\r", L"f.edb", nullptr, &error), 0);
    ASSERT_EQ(m_connection.Sent().size(), 2u);
    EXPECT_EQ(FromBytes<IpcNetWorkerErrorResponse>(m_connection.Sent()[1]).answer, 1246u);
}

TEST_F(PipeExecutorTest, ExtractFileWithoutErrorCallbackAnswersZero) {
    auto diskFull = IpcMakeMessage<IpcNetWorkerError>();
    diskFull.code = NwErrorDiskFull;
    m_connection.Queue(diskFull);
    m_connection.Queue(StatusReply<IpcFinishExtractFile>(1223));
    EXPECT_EQ(m_executor->ExtractFile(0, L"C:\\r", L"f.edb", nullptr, nullptr), 1223);
    EXPECT_EQ(FromBytes<IpcNetWorkerErrorResponse>(m_connection.Sent()[1]).answer, 0u);
}

TEST_F(PipeExecutorTest, ExtractFileOnClosedPipeReturns109) {
    m_connection.QueueClose();
    EXPECT_EQ(m_executor->ExtractFile(0, L"C:\\r", L"f.edb", nullptr, nullptr), 109);
    EXPECT_EQ(Errors().size(), 1u);
}

TEST_F(PipeExecutorTest, QuitSendsNothing) {
    EXPECT_EQ(m_executor->Quit(), 0);
    EXPECT_TRUE(m_connection.Sent().empty());
    EXPECT_TRUE(m_connection.Calls().empty());
    EXPECT_THAT(TracesOf(L"NetWorkerNamedPipeExecutor::Quit"),
                ElementsAre(L"Method Start", L"Method End"));
}

TEST_F(PipeExecutorTest, TransportExceptionPassesThroughWithoutMethodEnd) {
    m_connection.FailNextSend("WriteFile to pipe failed. GetLastError()=232");
    try {
        m_executor->BeginExtract();
        FAIL() << "expected the transport's exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "WriteFile to pipe failed. GetLastError()=232");
    }
    EXPECT_THAT(TracesOf(L"NetWorkerNamedPipeExecutor::BeginExtract"),
                ElementsAre(L"Method Start"));
}

TEST_F(PipeExecutorTest, CallbackExceptionPassesThroughWithoutMethodEnd) {
    m_connection.Queue(FileFoundMessage(0, 0, "a.edb", 0, 0));
    MockFileFound found;
    EXPECT_CALL(found, NetWorkerFileFound(_)).WillOnce([](const NetWorkerFileInfo*) -> bool {
        throw std::logic_error("host callback failed");
    });
    EXPECT_THROW(m_executor->Catalog(nullptr, nullptr, &found, nullptr), std::logic_error);
    EXPECT_THAT(TracesOf(L"NetWorkerNamedPipeExecutor::Catalog"), ElementsAre(L"Method Start"));
}

TEST(PipeExecutorConstruction, FailedLoggerThrowsTheFixedText) {
    TestLoggers::Reset();
    TestLoggers::FailNames({L"NetWorkerNamedPipeExecutor"});
    ScriptedConnection connection;
    try {
        NetWorkerNamedPipeExecutor executor(L"x", &connection, RecordingLauncher);
        FAIL() << "expected the logger failure";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Failed to Initialize the logger.");
    }
    TestLoggers::FailNames({});
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST(PipeExecutorConstruction, DestructionReleasesTheLoggerAndLeavesTheConnection) {
    TestLoggers::Reset();
    ScriptedConnection connection;
    {
        NetWorkerNamedPipeExecutor executor(L"x", &connection, RecordingLauncher);
        EXPECT_EQ(TestLoggers::LiveCount(), 1u);
    }
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
    EXPECT_TRUE(connection.Calls().empty());
}

}  // namespace
