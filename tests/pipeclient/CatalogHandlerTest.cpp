// Catalogue requests served over the pipe: bounds, relayed callbacks and their answers.

#include "PipeClientFixture.h"
#include "pipeclient/CatalogHandler.h"

namespace {

const wchar_t kTransaction[] = L"CatalogHandler::HandleTransaction";
const wchar_t kFileFound[] = L"CatalogHandler::NetWorkerFileFound";
const wchar_t kNetWorkerError[] = L"CatalogHandler::NetWorkerError";
const wchar_t kAllocationError[] = L"CatalogHandler::AllocationError";

NetWorkerFileInfo SampleFile(uint32_t index, const char* path) {
    NetWorkerFileInfo file = {};
    file.index = index;
    file.backupTime = {2020, 2, 0, 29, 23, 59, 58, 0};
    file.path = path;
    file.size = 5242880;
    file.restoreOrder = 0x0000000100000002ull;
    return file;
}

}  // namespace

class CatalogHandlerTest : public PipeClientTest {
protected:
    void SetUp() override {
        PipeClientTest::SetUp();
        HostSendsBeginInitialize();
    }
    std::vector<LogLine> HandlerLines() { return TestLoggers::History(L"CatalogHandler"); }
};

TEST_F(CatalogHandlerTest, ZeroBoundsBecomeNullAndTheStatusIsReplied) {
    executor.onCatalog = [](INetWorkerFileFoundCallBack*, INetWorkerErrorCallBack*) { return 0; };
    HostSendsMessage(IpcBuildBeginCatalog(nullptr, nullptr));
    RunClient();
    ASSERT_EQ(executor.catalogCalls.size(), 1u);
    EXPECT_FALSE(executor.catalogCalls[0].timeBefore.has_value());
    EXPECT_FALSE(executor.catalogCalls[0].timeAfter.has_value());
    EXPECT_TRUE(executor.catalogCalls[0].hasFileFound);
    EXPECT_TRUE(executor.catalogCalls[0].hasError);
    const auto sent = SentAfterInitialize();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(TypeOf(sent[0]), 6u);
    EXPECT_EQ(+As<IpcFinishCatalog>(sent[0]).result, 0);

    const std::vector<LogLine> expected = {
        {LogLevelTrace, L"CatalogHandler::CatalogHandler", L"Method Start"},
        {LogLevelTrace, L"CatalogHandler::CatalogHandler", L"Method End"},
        {LogLevelTrace, kTransaction, L"Method Start"},
        {LogLevelDebug, kTransaction, L"Finished cataloging...sending IpcFinishCatalog"},
        {LogLevelTrace, kTransaction, L"Method End"},
        {LogLevelTrace, L"CatalogHandler::~CatalogHandler", L"Method Start"},
        {LogLevelTrace, L"CatalogHandler::~CatalogHandler", L"Method End"},
    };
    EXPECT_EQ(HandlerLines(), expected);
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(CatalogHandlerTest, OnlyTimeAfterSetPassesNullTimeBefore) {
    const FILETIME after = {0x89ABCDEF, 0x01D70000};
    HostSendsMessage(IpcBuildBeginCatalog(nullptr, &after));
    RunClient();
    ASSERT_EQ(executor.catalogCalls.size(), 1u);
    EXPECT_FALSE(executor.catalogCalls[0].timeBefore.has_value());
    EXPECT_EQ(executor.catalogCalls[0].timeAfter, 0x01D7000089ABCDEFull);
}

TEST_F(CatalogHandlerTest, BothBoundsArePassedAsSent) {
    const FILETIME before = {2, 1};
    const FILETIME after = {1, 0};
    HostSendsMessage(IpcBuildBeginCatalog(&before, &after));
    RunClient();
    ASSERT_EQ(executor.catalogCalls.size(), 1u);
    EXPECT_EQ(executor.catalogCalls[0].timeBefore, 0x100000002ull);
    EXPECT_EQ(executor.catalogCalls[0].timeAfter, 1u);
}

TEST_F(CatalogHandlerTest, FailureStatusIsStillReplied) {
    executor.onCatalog = [](INetWorkerFileFoundCallBack*, INetWorkerErrorCallBack*) {
        return static_cast<int32_t>(0x80004005);
    };
    HostSendsMessage(IpcBuildBeginCatalog(nullptr, nullptr));
    HostSendsMessage(IpcBuildBeginCatalog(nullptr, nullptr));
    RunClient();
    const auto sent = SentAfterInitialize();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(+As<IpcFinishCatalog>(sent[0]).result, static_cast<int32_t>(0x80004005));
    EXPECT_EQ(+As<IpcFinishCatalog>(sent[1]).result, static_cast<int32_t>(0x80004005));
}

TEST_F(CatalogHandlerTest, FileFoundIsRelayedAndTheAnswersJudged) {
    std::vector<bool> answers;
    executor.onCatalog = [&](INetWorkerFileFoundCallBack* fileFound, INetWorkerErrorCallBack*) {
        const NetWorkerFileInfo first = SampleFile(0, "\\SG1\\priv1.edb");
        const NetWorkerFileInfo second = SampleFile(1, "\\SG1\\E00.log");
        answers.push_back(fileFound->NetWorkerFileFound(&first));
        answers.push_back(fileFound->NetWorkerFileFound(&second));
        return 0;
    };
    HostSendsMessage(IpcBuildBeginCatalog(nullptr, nullptr));
    HostSendsMessage(IpcBuildShouldCancel(eContinue));
    HostSendsMessage(IpcBuildShouldCancel(eQuit));
    RunClient();
    EXPECT_EQ(answers, (std::vector<bool>{false, true}));

    const auto sent = SentAfterInitialize();
    ASSERT_EQ(sent.size(), 3u);
    const IpcFileFound first = As<IpcFileFound>(sent[0]);
    EXPECT_EQ(+first.index, 0u);
    EXPECT_EQ(std::string(first.path), "\\SG1\\priv1.edb");
    EXPECT_EQ(+first.size, 5242880u);
    EXPECT_EQ(+first.restoreOrder, 0x0000000100000002ull);
    // 2020-02-29 23:59:58 UTC.
    EXPECT_EQ(+first.backupTime, 132274943980000000ull);
    EXPECT_EQ(+As<IpcFileFound>(sent[1]).index, 1u);
    EXPECT_EQ(TypeOf(sent[2]), 6u);

    const auto lines = HandlerLines();
    EXPECT_TRUE(HasLine(lines, LogLevelDebug, kFileFound,
                        L"Cataloging file index 0, path: \\SG1\\priv1.edb"));
    EXPECT_TRUE(HasLine(lines, LogLevelDebug, kFileFound,
                        L"Cataloging file index 1, path: \\SG1\\E00.log"));
    EXPECT_TRUE(HasLine(lines, LogLevelInfo, kFileFound, L"eQuit received"));
    EXPECT_EQ(CountMethod(lines, kFileFound), 2u * 3u + 1u);  // two Start/Debug/End, one eQuit
}

class FileFoundWrongAnswerTest : public CatalogHandlerTest,
                                 public ::testing::WithParamInterface<int> {};

TEST_P(FileFoundWrongAnswerTest, StopsWithAnErrorLine) {
    struct Case {
        PipeBytes answer;
        const wchar_t* line;
    };
    const std::vector<Case> cases = {
        {BytesOf(IpcBuildNetWorkerErrorResponse(0)), L"Wrong message response: 17"},
        {Truncated(BytesOf(IpcBuildShouldCancel(1)), 7), L"Wrong message response: 0"},
        {WithSizeField(IpcBuildShouldCancel(1), 16), L"Wrong message response: 3"},
        {BytesOf(IpcBuildBeginCatalog(nullptr, nullptr)), L"Wrong message response: 4"},
    };
    const Case& c = cases.at(static_cast<size_t>(GetParam()));
    bool answer = false;
    executor.onCatalog = [&](INetWorkerFileFoundCallBack* fileFound, INetWorkerErrorCallBack*) {
        const NetWorkerFileInfo file = SampleFile(3, "a.stm");
        answer = fileFound->NetWorkerFileFound(&file);
        return 0;
    };
    HostSendsMessage(IpcBuildBeginCatalog(nullptr, nullptr));
    HostSends(c.answer);
    RunClient();
    EXPECT_TRUE(answer);
    EXPECT_TRUE(HasLine(HandlerLines(), LogLevelError, kFileFound, c.line));
    EXPECT_FALSE(HasLine(HandlerLines(), LogLevelInfo, kFileFound, L"eQuit received"));
    EXPECT_EQ(TypeOf(SentAfterInitialize().back()), 6u);
}

INSTANTIATE_TEST_SUITE_P(Answers, FileFoundWrongAnswerTest, ::testing::Range(0, 4));

TEST_F(CatalogHandlerTest, NetWorkerErrorReturnsTheHostsValue) {
    std::vector<uint32_t> answers;
    executor.onCatalog = [&](INetWorkerFileFoundCallBack*, INetWorkerErrorCallBack* error) {
        answers.push_back(error->NetWorkerError(NwErrorQuery));
        answers.push_back(error->NetWorkerError(NwErrorQueryAccess));
        return 0;
    };
    HostSendsMessage(IpcBuildBeginCatalog(nullptr, nullptr));
    HostSendsMessage(IpcBuildNetWorkerErrorResponse(1246));
    HostSendsMessage(IpcBuildShouldCancel(eQuit));  // wrong answer
    RunClient();
    EXPECT_EQ(answers, (std::vector<uint32_t>{1246, 0}));
    const auto sent = SentAfterInitialize();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(+As<IpcNetWorkerError>(sent[0]).code, 17u);
    EXPECT_EQ(+As<IpcNetWorkerError>(sent[1]).code, 18u);
    const auto lines = HandlerLines();
    EXPECT_TRUE(HasLine(lines, LogLevelError, kNetWorkerError, L"Wrong message response: 3"));
    EXPECT_TRUE(HasLine(lines, LogLevelTrace, kNetWorkerError, L"Method Start"));
    EXPECT_EQ(CountMethod(lines, kNetWorkerError), 5u);  // two trace pairs and the error line
}

TEST_F(CatalogHandlerTest, AllocationErrorCopiesTheRecordAndReturnsTheHostsValue) {
    std::vector<uint32_t> answers;
    executor.onCatalog = [&](INetWorkerFileFoundCallBack*, INetWorkerErrorCallBack* error) {
        const NetWorkerAllocationInfo info = {0, 1000, 999, 1000};
        answers.push_back(error->AllocationError(&info));
        answers.push_back(error->AllocationError(&info));
        return 0;
    };
    HostSendsMessage(IpcBuildBeginCatalog(nullptr, nullptr));
    HostSendsMessage(IpcBuildAllocationErrorResponse(5));
    HostSendsMessage(IpcBuildNetWorkerErrorResponse(5));  // wrong answer
    RunClient();
    EXPECT_EQ(answers, (std::vector<uint32_t>{5, 0}));
    const IpcAllocationError message = As<IpcAllocationError>(SentAfterInitialize().at(0));
    EXPECT_EQ(+message.reason, 0u);
    EXPECT_EQ(+message.itemsFound, 1000u);
    EXPECT_EQ(+message.catalogueSize, 999u);
    EXPECT_EQ(+message.catalogueCapacity, 1000u);
    EXPECT_TRUE(
        HasLine(HandlerLines(), LogLevelError, kAllocationError, L"Wrong message response: 17"));
}

TEST_F(CatalogHandlerTest, ClosedPipeDuringACallbackLeavesRunWithMethodEndLines) {
    executor.onCatalog = [&](INetWorkerFileFoundCallBack* fileFound, INetWorkerErrorCallBack*) {
        const NetWorkerFileInfo file = SampleFile(0, "a.edb");
        fileFound->NetWorkerFileFound(&file);
        ADD_FAILURE() << "the callback returned";
        return 0;
    };
    HostSendsMessage(IpcBuildBeginCatalog(nullptr, nullptr));
    EXPECT_EQ(RunClientExpectingThrow<std::runtime_error>(),
              "Other end of pipe disconnected while receiving message from pipe!");
    const auto sent = SentAfterInitialize();
    ASSERT_EQ(sent.size(), 1u);  // the IpcFileFound, no IpcFinishCatalog
    EXPECT_EQ(TypeOf(sent[0]), 5u);

    const auto lines = HandlerLines();
    EXPECT_TRUE(HasLine(lines, LogLevelTrace, kFileFound, L"Method End"));
    EXPECT_TRUE(HasLine(lines, LogLevelTrace, kTransaction, L"Method End"));
    EXPECT_TRUE(HasLine(lines, LogLevelTrace, L"CatalogHandler::~CatalogHandler", L"Method End"));
    EXPECT_FALSE(HasLine(lines, LogLevelDebug, kTransaction,
                         L"Finished cataloging...sending IpcFinishCatalog"));
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelTrace, L"NetWorkerNamedPipeClient::HandleMessage",
                        L"Method End"));
    EXPECT_TRUE(
        HasLine(log.Lines(), LogLevelTrace, L"NetWorkerNamedPipeClient::Run", L"Method End"));
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(CatalogHandlerTest, OverLongPathIsRefusedBeforeAnythingIsSent) {
    const std::string path(1024, 'q');
    executor.onCatalog = [&](INetWorkerFileFoundCallBack* fileFound, INetWorkerErrorCallBack*) {
        const NetWorkerFileInfo file = SampleFile(0, path.c_str());
        fileFound->NetWorkerFileFound(&file);
        return 0;
    };
    HostSendsMessage(IpcBuildBeginCatalog(nullptr, nullptr));
    EXPECT_EQ(RunClientExpectingThrow<std::length_error>(),
              "path does not fit its pipe field: at most 1023 characters are allowed");
    EXPECT_TRUE(SentAfterInitialize().empty());
}

TEST_F(CatalogHandlerTest, PathOf1023CharactersIsSent) {
    const std::string path(1023, 'q');
    executor.onCatalog = [&](INetWorkerFileFoundCallBack* fileFound, INetWorkerErrorCallBack*) {
        const NetWorkerFileInfo file = SampleFile(0, path.c_str());
        fileFound->NetWorkerFileFound(&file);
        return 0;
    };
    HostSendsMessage(IpcBuildBeginCatalog(nullptr, nullptr));
    HostSendsMessage(IpcBuildShouldCancel(eContinue));
    RunClient();
    const PipeBytes fileFound = SentAfterInitialize().at(0);
    EXPECT_EQ(fileFound.at(1042), 'q');
    EXPECT_EQ(fileFound.at(1043), 0);
}

TEST(CatalogHandlerDirect, RefusesNullArguments) {
    InMemoryPipe pipe;
    ScriptedExecutor executor;
    RecordingLog log;
    EXPECT_THROW(CatalogHandler(nullptr, &executor, &log), std::invalid_argument);
    EXPECT_THROW(CatalogHandler(&pipe.ClientEnd(), nullptr, &log), std::invalid_argument);
    EXPECT_THROW(CatalogHandler(&pipe.ClientEnd(), &executor, nullptr), std::invalid_argument);
}
