// Extraction and file-size requests served over the pipe.

#include "PipeClientFixture.h"
#include "pipeclient/ExtractHandler.h"

namespace {

const wchar_t kProgress[] = L"ExtractHandler::UpdateProgress";
const wchar_t kFileSize[] = L"FindFileSizeHandler::HandleFileSizeMessage";

}  // namespace

class ExtractHandlerTest : public PipeClientTest {
protected:
    void SetUp() override {
        PipeClientTest::SetUp();
        HostSendsBeginInitialize();
    }
    std::vector<LogLine> HandlerLines() { return TestLoggers::History(L"ExtractHandler"); }
};

TEST_F(ExtractHandlerTest, BeginAndEndExtractReplyTheirStatus) {
    executor.beginExtractStatus = static_cast<int32_t>(0x80070006);
    executor.endExtractStatus = 1223;
    HostSendsMessage(IpcMakeMessage<IpcBeginExtract>());
    HostSendsMessage(IpcMakeMessage<IpcEndExtract>());
    RunClient();
    const auto sent = SentAfterInitialize();
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(TypeOf(sent[0]), 10u);
    EXPECT_EQ(+As<IpcFinishBeginExtract>(sent[0]).result, static_cast<int32_t>(0x80070006));
    EXPECT_EQ(TypeOf(sent[1]), 15u);
    EXPECT_EQ(+As<IpcFinishEndExtract>(sent[1]).result, 1223);

    const std::vector<LogLine> expected = {
        {LogLevelTrace, L"ExtractHandler::ExtractHandler", L"Method Start"},
        {LogLevelTrace, L"ExtractHandler::ExtractHandler", L"Method End"},
        {LogLevelTrace, L"ExtractHandler::HandleBeginExtract", L"Method Start"},
        {LogLevelTrace, L"ExtractHandler::HandleBeginExtract", L"Method End"},
        {LogLevelTrace, L"ExtractHandler::~ExtractHandler", L"Method Start"},
        {LogLevelTrace, L"ExtractHandler::~ExtractHandler", L"Method End"},
        {LogLevelTrace, L"ExtractHandler::ExtractHandler", L"Method Start"},
        {LogLevelTrace, L"ExtractHandler::ExtractHandler", L"Method End"},
        {LogLevelTrace, L"ExtractHandler::HandleEndExtract", L"Method Start"},
        {LogLevelTrace, L"ExtractHandler::HandleEndExtract", L"Method End"},
        {LogLevelTrace, L"ExtractHandler::~ExtractHandler", L"Method Start"},
        {LogLevelTrace, L"ExtractHandler::~ExtractHandler", L"Method End"},
    };
    EXPECT_EQ(HandlerLines(), expected);
}

TEST_F(ExtractHandlerTest, ExtractFilePassesIndexDirectoryAndFileName) {
    executor.onExtractFile = [](INetWorkerUpdateProgressCallBack*, INetWorkerErrorCallBack*) {
        return static_cast<int32_t>(0x80004005);
    };
    const std::wstring directory = L"C:\\R\u00e9stor\u00e9\\SG1";
    HostSendsMessage(IpcBuildBeginExtractFile(12, directory.c_str(), L"priv1.edb"));
    RunClient();
    ASSERT_EQ(executor.extractFileCalls.size(), 1u);
    EXPECT_EQ(executor.extractFileCalls[0].index, 12u);
    EXPECT_EQ(executor.extractFileCalls[0].directory, directory);
    EXPECT_EQ(executor.extractFileCalls[0].fileName, L"priv1.edb");
    EXPECT_TRUE(executor.extractFileCalls[0].hasProgress);
    EXPECT_TRUE(executor.extractFileCalls[0].hasError);
    const auto sent = SentAfterInitialize();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(TypeOf(sent[0]), 12u);
    EXPECT_EQ(+As<IpcFinishExtractFile>(sent[0]).result, static_cast<int32_t>(0x80004005));
    EXPECT_TRUE(HasLine(HandlerLines(), LogLevelTrace, L"ExtractHandler::HandleExtractFile",
                        L"Method End"));
}

TEST_F(ExtractHandlerTest, EmptyStringFieldsArePassedAsEmptyStrings) {
    HostSendsMessage(IpcBuildBeginExtractFile(0, L"", L""));
    RunClient();
    ASSERT_EQ(executor.extractFileCalls.size(), 1u);
    EXPECT_EQ(executor.extractFileCalls[0].directory, L"");
    EXPECT_EQ(executor.extractFileCalls[0].fileName, L"");
}

TEST_F(ExtractHandlerTest, LongestFieldsArePassedWhole) {
    const std::wstring directory(1023, L'd');
    const std::wstring fileName(1023, L'f');
    HostSendsMessage(IpcBuildBeginExtractFile(0, directory.c_str(), fileName.c_str()));
    RunClient();
    ASSERT_EQ(executor.extractFileCalls.size(), 1u);
    EXPECT_EQ(executor.extractFileCalls[0].directory, directory);
    EXPECT_EQ(executor.extractFileCalls[0].fileName, fileName);
}

TEST_F(ExtractHandlerTest, UnterminatedFieldIsRefusedWithoutCallingTheExecutor) {
    IpcBeginExtractFile request = IpcBuildBeginExtractFile(0, L"d", L"f");
    unsigned char* bytes = reinterpret_cast<unsigned char*>(&request);
    for (size_t i = 0; i < kIpcWideFieldSize; ++i) {
        bytes[offsetof(IpcBeginExtractFile, fileName) + 2 * i] = 'x';
    }
    HostSendsMessage(request);
    RunClient();
    EXPECT_TRUE(executor.extractFileCalls.empty());
    // Answered unserved with E_INVALIDARG: the host's extraction ends, the session goes on.
    const auto sent = SentAfterInitialize();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(As<IpcFinishExtractFile>(sent[0]).result, static_cast<int32_t>(0x80070057));
    EXPECT_TRUE(HasLine(HandlerLines(), LogLevelError, L"ExtractHandler::HandleExtractFile",
                        L"IpcBeginExtractFile fileName has no terminator. Error: 80070057."));
}

TEST_F(ExtractHandlerTest, ProgressIsRelayedAndTheAnswersJudged) {
    std::vector<bool> answers;
    executor.onExtractFile = [&](INetWorkerUpdateProgressCallBack* progress,
                                 INetWorkerErrorCallBack*) {
        NetWorkerProgressInfo info = {1, 65536};
        answers.push_back(progress->UpdateProgress(&info));
        info.bytesDone = 100;
        answers.push_back(progress->UpdateProgress(&info));
        answers.push_back(progress->UpdateProgress(&info));
        return 1223;
    };
    HostSendsMessage(IpcBuildBeginExtractFile(0, L"d", L"f"));
    HostSendsMessage(IpcBuildShouldCancel(2));
    HostSendsMessage(IpcBuildShouldCancel(eQuit));
    HostSendsMessage(IpcBuildNetWorkerErrorResponse(0));
    RunClient();
    EXPECT_EQ(answers, (std::vector<bool>{false, true, true}));
    const auto sent = SentAfterInitialize();
    ASSERT_EQ(sent.size(), 4u);
    const IpcUpdateProgress first = As<IpcUpdateProgress>(sent[0]);
    EXPECT_EQ(+first.state, 1u);
    EXPECT_EQ(+first.bytesDone, 65536u);
    EXPECT_EQ(+As<IpcUpdateProgress>(sent[1]).bytesDone, 100u);
    EXPECT_EQ(+As<IpcFinishExtractFile>(sent[3]).result, 1223);
    const auto lines = HandlerLines();
    EXPECT_TRUE(HasLine(lines, LogLevelInfo, kProgress, L"eQuit received"));
    EXPECT_TRUE(HasLine(lines, LogLevelError, kProgress, L"Wrong message response: 17"));
    EXPECT_EQ(CountMethod(lines, kProgress), 3u * 2u + 2u);
}

TEST_F(ExtractHandlerTest, ErrorCallbacksReturnTheHostsValueWithoutTracing) {
    std::vector<uint32_t> answers;
    executor.onExtractFile = [&](INetWorkerUpdateProgressCallBack*,
                                 INetWorkerErrorCallBack* error) {
        answers.push_back(error->NetWorkerError(NwErrorDiskFull));
        const NetWorkerAllocationInfo info = {4, 1, 2, 3};
        answers.push_back(error->AllocationError(&info));
        return 0;
    };
    HostSendsMessage(IpcBuildBeginExtractFile(0, L"d", L"f"));
    HostSendsMessage(IpcBuildNetWorkerErrorResponse(5));
    HostSendsMessage(IpcBuildAllocationErrorResponse(7));
    RunClient();
    EXPECT_EQ(answers, (std::vector<uint32_t>{5, 7}));
    const auto sent = SentAfterInitialize();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(+As<IpcNetWorkerError>(sent[0]).code, 11u);
    EXPECT_EQ(+As<IpcAllocationError>(sent[1]).reason, 4u);
    const auto lines = HandlerLines();
    EXPECT_EQ(CountMethod(lines, L"ExtractHandler::NetWorkerError"), 0u);
    EXPECT_EQ(CountMethod(lines, L"ExtractHandler::AllocationError"), 0u);
}

// An answer it cannot read: a full disk counts as cancelled (1223), so that no file without its
// last block is kept; an allocation question, whose answer nothing uses, as 0.
TEST_F(ExtractHandlerTest, WrongAnswersToErrorCallbacksYieldCancelledAndZeroWithAnErrorLine) {
    std::vector<uint32_t> answers;
    executor.onExtractFile = [&](INetWorkerUpdateProgressCallBack*,
                                 INetWorkerErrorCallBack* error) {
        answers.push_back(error->NetWorkerError(NwErrorDiskFull));
        const NetWorkerAllocationInfo info = {};
        answers.push_back(error->AllocationError(&info));
        return 0;
    };
    HostSendsMessage(IpcBuildBeginExtractFile(0, L"d", L"f"));
    HostSendsMessage(IpcBuildShouldCancel(1246));
    HostSends(WithSizeField(IpcBuildAllocationErrorResponse(7), 13));
    RunClient();
    EXPECT_EQ(answers, (std::vector<uint32_t>{1223, 0}));
    const auto lines = HandlerLines();
    EXPECT_TRUE(HasLine(lines, LogLevelError, L"ExtractHandler::NetWorkerError",
                        L"Wrong message response: 3"));
    EXPECT_TRUE(HasLine(lines, LogLevelError, L"ExtractHandler::AllocationError",
                        L"Wrong message response: 19"));
}

TEST_F(ExtractHandlerTest, ClosedPipeDuringProgressLeavesRunWithoutAFinalReply) {
    executor.onExtractFile = [&](INetWorkerUpdateProgressCallBack* progress,
                                 INetWorkerErrorCallBack*) {
        NetWorkerProgressInfo info = {1, 10};
        progress->UpdateProgress(&info);
        return 0;
    };
    HostSendsMessage(IpcBuildBeginExtractFile(0, L"d", L"f"));
    EXPECT_EQ(RunClientExpectingThrow<std::runtime_error>(),
              "Other end of pipe disconnected while receiving message from pipe!");
    const auto sent = SentAfterInitialize();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(TypeOf(sent[0]), 13u);
    const auto lines = HandlerLines();
    EXPECT_TRUE(HasLine(lines, LogLevelTrace, kProgress, L"Method End"));
    EXPECT_TRUE(HasLine(lines, LogLevelTrace, L"ExtractHandler::HandleExtractFile", L"Method End"));
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(ExtractHandlerTest, ClosedPipeDuringAnErrorCallbackThrowsTheSameText) {
    executor.onExtractFile = [&](INetWorkerUpdateProgressCallBack*,
                                 INetWorkerErrorCallBack* error) {
        error->NetWorkerError(NwErrorDiskFull);
        return 0;
    };
    HostSendsMessage(IpcBuildBeginExtractFile(0, L"d", L"f"));
    EXPECT_EQ(RunClientExpectingThrow<std::runtime_error>(),
              "Other end of pipe disconnected while receiving message from pipe!");
}

TEST(ExtractHandlerDirect, NetWorkerErrorWritesNothingToTheLog) {
    InMemoryPipe pipe;
    ScriptedExecutor executor;
    RecordingLog log;
    pipe.ServerEnd().SendMessage(IpcBuildNetWorkerErrorResponse(5));
    ExtractHandler handler(&pipe.ClientEnd(), &executor, &log);
    log.Clear();
    EXPECT_EQ(handler.NetWorkerError(NwErrorDiskFull), 5u);
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_THROW(ExtractHandler(&pipe.ClientEnd(), &executor, nullptr), std::invalid_argument);
}

class FindFileSizeHandlerTest : public PipeClientTest {
protected:
    void SetUp() override {
        PipeClientTest::SetUp();
        HostSendsBeginInitialize();
    }
    std::vector<LogLine> HandlerLines() { return TestLoggers::History(L"FindFileSizeHandler"); }
};

TEST_F(FindFileSizeHandlerTest, FoundSizeIsRepliedAndLogged) {
    executor.onGetFileSize = [](uint32_t, bool, uint64_t* size) {
        *size = 0x123456789ull;
        return 0;
    };
    HostSendsMessage(IpcBuildBeginGetFileSize(9, true));
    RunClient();
    ASSERT_EQ(executor.getFileSizeCalls.size(), 1u);
    EXPECT_EQ(executor.getFileSizeCalls[0].index, 9u);
    EXPECT_TRUE(executor.getFileSizeCalls[0].correctSize);
    const auto sent = SentAfterInitialize();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(TypeOf(sent[0]), 8u);
    EXPECT_EQ(+As<IpcFinishGetFileSize>(sent[0]).size, 0x123456789ull);
    const std::vector<LogLine> expected = {
        {LogLevelTrace, L"FindFileSizeHandler::FindFileSizeHandler", L"Method Start"},
        {LogLevelTrace, L"FindFileSizeHandler::FindFileSizeHandler", L"Method End"},
        {LogLevelTrace, kFileSize, L"Method Start"},
        {LogLevelInfo, kFileSize, L"File size found: 4886718345"},
        {LogLevelTrace, kFileSize, L"Method End"},
        {LogLevelTrace, L"FindFileSizeHandler::~FindFileSizeHandler", L"Method Start"},
        {LogLevelTrace, L"FindFileSizeHandler::~FindFileSizeHandler", L"Method End"},
    };
    EXPECT_EQ(HandlerLines(), expected);
}

TEST_F(FindFileSizeHandlerTest, FailedLookupRepliesZeroWithoutTheInfoLine) {
    executor.onGetFileSize = [](uint32_t, bool, uint64_t* size) {
        *size = 777;  // whatever was stored: a failure sends 0
        return static_cast<int32_t>(0x80004005);
    };
    HostSendsMessage(IpcBuildBeginGetFileSize(1, false));
    RunClient();
    EXPECT_FALSE(executor.getFileSizeCalls.at(0).correctSize);
    EXPECT_EQ(+As<IpcFinishGetFileSize>(SentAfterInitialize().at(0)).size, 0u);
    EXPECT_EQ(HandlerLines().size(), 6u);  // three trace pairs only
    for (const auto& line : HandlerLines()) {
        EXPECT_EQ(line.level, LogLevelTrace);
    }
}

TEST_F(FindFileSizeHandlerTest, PositiveStatusIsNotAFailure) {
    executor.onGetFileSize = [](uint32_t, bool, uint64_t* size) {
        *size = 42;
        return 1627;
    };
    HostSendsMessage(IpcBuildBeginGetFileSize(1, false));
    RunClient();
    EXPECT_EQ(+As<IpcFinishGetFileSize>(SentAfterInitialize().at(0)).size, 42u);
}

TEST_F(FindFileSizeHandlerTest, ZeroSizeFoundIsLogged) {
    HostSendsMessage(IpcBuildBeginGetFileSize(1, false));
    RunClient();
    EXPECT_EQ(+As<IpcFinishGetFileSize>(SentAfterInitialize().at(0)).size, 0u);
    EXPECT_TRUE(HasLine(HandlerLines(), LogLevelInfo, kFileSize, L"File size found: 0"));
}

TEST_F(FindFileSizeHandlerTest, AnyNonZeroCorrectSizeCountsAsTrue) {
    IpcBeginGetFileSize request = IpcBuildBeginGetFileSize(3, true);
    request.correctSize = 2;
    HostSendsMessage(request);
    request.correctSize = 0x80000000u;
    HostSendsMessage(request);
    RunClient();
    ASSERT_EQ(executor.getFileSizeCalls.size(), 2u);
    EXPECT_TRUE(executor.getFileSizeCalls[0].correctSize);
    EXPECT_TRUE(executor.getFileSizeCalls[1].correctSize);
}
