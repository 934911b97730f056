// The helper's service loop: handshake, dispatch, end conditions and failures.

#include "PipeClientFixture.h"

namespace {

const wchar_t kRun[] = L"NetWorkerNamedPipeClient::Run";
const wchar_t kHandleMessage[] = L"NetWorkerNamedPipeClient::HandleMessage";
const wchar_t kHandleCancel[] = L"NetWorkerNamedPipeClient::HandleCancelMessage";

using Lines = std::vector<LogLine>;

LogLine Trace(const wchar_t* method, const wchar_t* text) {
    return {LogLevelTrace, method, text};
}
LogLine Debug(const wchar_t* method, const wchar_t* text) {
    return {LogLevelDebug, method, text};
}

// The last line that Run's scope wrote: the one before the destructor's trace pair.
LogLine LastLineOfRun(const Lines& lines) {
    EXPECT_GE(lines.size(), 3u);
    EXPECT_EQ(lines.back().method, L"NetWorkerNamedPipeClient::~NetWorkerNamedPipeClient");
    return lines.at(lines.size() - 3);
}

}  // namespace

using NetWorkerNamedPipeClientTest = PipeClientTest;

TEST_F(NetWorkerNamedPipeClientTest, ConstructorAndDestructorOnlyTrace) {
    { NetWorkerNamedPipeClient client(L"pipe-1", &pipe.ClientEnd(), &executor, &log); }
    const Lines expected = {
        Trace(L"NetWorkerNamedPipeClient::NetWorkerNamedPipeClient", L"Method Start"),
        Trace(L"NetWorkerNamedPipeClient::NetWorkerNamedPipeClient", L"Method End"),
        Trace(L"NetWorkerNamedPipeClient::~NetWorkerNamedPipeClient", L"Method Start"),
        Trace(L"NetWorkerNamedPipeClient::~NetWorkerNamedPipeClient", L"Method End"),
    };
    EXPECT_EQ(log.Lines(), expected);
    EXPECT_TRUE(pipe.ClientEnd().OpenExistingNames().empty());
    EXPECT_TRUE(executor.calls.empty());
}

TEST_F(NetWorkerNamedPipeClientTest, NullArgumentsAreRefused) {
    EXPECT_THROW(NetWorkerNamedPipeClient(nullptr, &pipe.ClientEnd(), &executor, &log),
                 std::invalid_argument);
    EXPECT_THROW(NetWorkerNamedPipeClient(L"p", nullptr, &executor, &log), std::invalid_argument);
    EXPECT_THROW(NetWorkerNamedPipeClient(L"p", &pipe.ClientEnd(), nullptr, &log),
                 std::invalid_argument);
    EXPECT_THROW(NetWorkerNamedPipeClient(L"p", &pipe.ClientEnd(), &executor, nullptr),
                 std::invalid_argument);
}

TEST_F(NetWorkerNamedPipeClientTest, HandshakeThenHostClosingEndsRunNormally) {
    executor.initializeStatus = 0;
    HostSendsBeginInitialize();
    RunClient();

    EXPECT_EQ(pipe.ClientEnd().OpenExistingNames(), std::vector<std::wstring>{L"pipe-1"});
    EXPECT_EQ(pipe.ClientEnd().OpenExistingTimeouts(), std::vector<uint32_t>{10000});
    ASSERT_EQ(executor.initializeNames.size(), 1u);
    EXPECT_EQ(executor.initializeNames[0].first, "client-A");
    EXPECT_EQ(executor.initializeNames[0].second, "server-B");

    const auto sent = Sent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(TypeOf(sent[0]), 2u);
    EXPECT_EQ(+As<IpcFinishInitialize>(sent[0]).result, 0);

    const Lines expected = {
        Trace(L"NetWorkerNamedPipeClient::NetWorkerNamedPipeClient", L"Method Start"),
        Trace(L"NetWorkerNamedPipeClient::NetWorkerNamedPipeClient", L"Method End"),
        Trace(kRun, L"Method Start"),
        Debug(kRun, L"Opening named pipe named 'pipe-1'"),
        Debug(kRun, L"Pipe opened...waiting for IpcBeginInitialize message"),
        Debug(kRun, L"IpcBeginInitialize received...calling initialize on executor."),
        Debug(kRun, L"Sending IpcFinishInitialize message"),
        Debug(kRun, L"Waiting for next message..."),
        Debug(kRun, L"Pipe connection was closed...exiting..."),
        Trace(kRun, L"Method End"),
        Trace(L"NetWorkerNamedPipeClient::~NetWorkerNamedPipeClient", L"Method Start"),
        Trace(L"NetWorkerNamedPipeClient::~NetWorkerNamedPipeClient", L"Method End"),
    };
    EXPECT_EQ(log.Lines(), expected);
}

TEST_F(NetWorkerNamedPipeClientTest, NamesFillingTheWholeFieldReachTheExecutorTerminated) {
    IpcBeginInitialize begin = IpcMakeMessage<IpcBeginInitialize>();
    std::memset(begin.serverName, 's', sizeof begin.serverName);
    std::memset(begin.clientName, 'c', sizeof begin.clientName);
    PipeBytes bytes = BytesOf(begin);
    bytes.resize(600, 'x');  // more bytes than the size field says: still taken
    HostSends(bytes);
    RunClient();
    ASSERT_EQ(executor.initializeNames.size(), 1u);
    EXPECT_EQ(executor.initializeNames[0].first, std::string(255, 'c'));
    EXPECT_EQ(executor.initializeNames[0].second, std::string(255, 's'));
}

TEST_F(NetWorkerNamedPipeClientTest, OpenFailurePassesUnchanged) {
    pipe.ClientEnd().FailNextOpenExisting("Could not open pipe. GetLastError()=2");
    EXPECT_EQ(RunClientExpectingThrow<std::runtime_error>(),
              "Could not open pipe. GetLastError()=2");
    EXPECT_TRUE(executor.calls.empty());
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelTrace, kRun, L"Method End"));
}

TEST_F(NetWorkerNamedPipeClientTest, ClosedBeforeTheFirstMessage) {
    EXPECT_EQ(RunClientExpectingThrow<std::runtime_error>(), "NamedPipe connection closed ");
    EXPECT_TRUE(Sent().empty());
    EXPECT_TRUE(executor.calls.empty());
}

TEST_F(NetWorkerNamedPipeClientTest, FirstMessageOfAnotherTypeIsRefusedWithoutReply) {
    HostSendsMessage(IpcBuildBeginCatalog(nullptr, nullptr));
    EXPECT_EQ(RunClientExpectingThrow<std::runtime_error>(),
              "Was expecting to receive BeginInitialize, but something else was received.");
    EXPECT_TRUE(Sent().empty());
    EXPECT_TRUE(executor.calls.empty());
}

TEST_F(NetWorkerNamedPipeClientTest, FirstMessageTooShortIsRefused) {
    PipeBytes bytes = BytesOf(IpcBuildBeginInitialize("c", "s"));
    bytes.resize(7);
    HostSends(bytes);
    EXPECT_EQ(RunClientExpectingThrow<std::runtime_error>(),
              "Was expecting to receive BeginInitialize, but something else was received.");
    EXPECT_TRUE(Sent().empty());
}

TEST_F(NetWorkerNamedPipeClientTest, BeginInitializeWithAWrongSizeFieldIsRefused) {
    HostSends(WithSizeField(IpcBuildBeginInitialize("c", "s"), 517));
    EXPECT_EQ(RunClientExpectingThrow<std::runtime_error>(),
              "Was expecting to receive BeginInitialize, but something else was received.");
    EXPECT_TRUE(Sent().empty());
    EXPECT_TRUE(executor.calls.empty());
}

TEST_F(NetWorkerNamedPipeClientTest, FailedInitializeIsReportedThenThrown) {
    executor.initializeStatus = static_cast<int32_t>(0x8007000A);
    HostSendsBeginInitialize();
    HostSendsMessage(IpcMakeMessage<IpcBeginExtract>());  // never read
    EXPECT_EQ(RunClientExpectingThrow<std::runtime_error>(),
              "INetWorkerExecutor::Initialize failed.");
    const auto sent = Sent();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(+As<IpcFinishInitialize>(sent[0]).result, static_cast<int32_t>(0x8007000A));
    EXPECT_EQ(executor.calls, std::vector<std::string>{"Initialize"});
    EXPECT_EQ(LastLineOfRun(log.Lines()), Trace(kRun, L"Method End"));
}

TEST_F(NetWorkerNamedPipeClientTest, PositiveInitializeStatusCountsAsSuccess) {
    executor.initializeStatus = 1157;
    HostSendsBeginInitialize();
    HostSendsMessage(IpcMakeMessage<IpcBeginExtract>());
    RunClient();
    EXPECT_EQ(executor.calls, (std::vector<std::string>{"Initialize", "BeginExtract"}));
    EXPECT_EQ(+As<IpcFinishInitialize>(Sent().at(0)).result, 1157);
}

TEST_F(NetWorkerNamedPipeClientTest, QuitAnswerBetweenRequestsEndsRun) {
    HostSendsBeginInitialize();
    HostSendsMessage(IpcBuildShouldCancel(eQuit));
    HostSendsMessage(IpcMakeMessage<IpcBeginExtract>());  // left unread
    RunClient();
    EXPECT_EQ(pipe.ClientEnd().PendingCount(), 1u);
    EXPECT_EQ(executor.calls, std::vector<std::string>{"Initialize"});
    const auto lines = log.Lines();
    EXPECT_TRUE(HasLine(lines, LogLevelDebug, kHandleMessage, L"Received message of type 3"));
    EXPECT_TRUE(HasLine(lines, LogLevelDebug, kHandleCancel,
                        L"Handling IpcShouldCancel message with response=0"));
    EXPECT_TRUE(HasLine(lines, LogLevelDebug, kRun, L"Message processed.  Exiting=true"));
    EXPECT_FALSE(HasLine(lines, LogLevelDebug, kRun, L"Pipe connection was closed...exiting..."));
    EXPECT_EQ(CountMethod(lines, kHandleCancel), 3u);  // Start, the line, End
}

TEST_F(NetWorkerNamedPipeClientTest, OtherCancelResponsesAreLoggedAndIgnored) {
    HostSendsBeginInitialize();
    HostSendsMessage(IpcBuildShouldCancel(1));
    HostSendsMessage(IpcBuildShouldCancel(0xFFFFFFFF));
    RunClient();
    const auto lines = log.Lines();
    EXPECT_TRUE(HasLine(lines, LogLevelDebug, kHandleCancel,
                        L"Handling IpcShouldCancel message with response=1"));
    EXPECT_TRUE(HasLine(lines, LogLevelDebug, kHandleCancel,
                        L"Handling IpcShouldCancel message with response=-1"));
    EXPECT_TRUE(HasLine(lines, LogLevelDebug, kRun, L"Message processed.  Exiting=false"));
    EXPECT_TRUE(HasLine(lines, LogLevelDebug, kRun, L"Pipe connection was closed...exiting..."));
    EXPECT_EQ(SentAfterInitialize().size(), 0u);
}

class UnservedTypeTest : public PipeClientTest, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(UnservedTypeTest, IsRefusedWithMethodEndLines) {
    HostSendsBeginInitialize();
    IpcShouldCancel message = IpcBuildShouldCancel(1);
    message.header.messageType = GetParam();
    HostSendsMessage(message);
    EXPECT_EQ(RunClientExpectingThrow<std::runtime_error>(), "Invalid message type received!");
    EXPECT_EQ(SentAfterInitialize().size(), 0u);
    EXPECT_EQ(executor.calls, std::vector<std::string>{"Initialize"});
    const auto lines = log.Lines();
    EXPECT_TRUE(
        HasLine(lines, LogLevelDebug, kHandleMessage,
                L"Received message of type " + std::to_wstring(static_cast<int>(GetParam()))));
    EXPECT_TRUE(HasLine(lines, LogLevelTrace, kHandleMessage, L"Method End"));
    EXPECT_EQ(LastLineOfRun(lines), Trace(kRun, L"Method End"));
}

INSTANTIATE_TEST_SUITE_P(EveryTypeTheHelperDoesNotServe, UnservedTypeTest,
                         ::testing::Values(1u, 2u, 5u, 6u, 8u, 10u, 12u, 13u, 15u, 16u, 17u, 18u,
                                           19u, 20u, 1000u, 0xFFFFFFFFu));

TEST_F(NetWorkerNamedPipeClientTest, SevenByteMessageIsInvalid) {
    HostSendsBeginInitialize();
    PipeBytes bytes = BytesOf(IpcBuildShouldCancel(0));
    bytes.resize(7);
    HostSends(bytes);
    EXPECT_EQ(RunClientExpectingThrow<std::runtime_error>(), "Invalid message received!");
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelTrace, kHandleMessage, L"Method End"));
    EXPECT_FALSE(
        HasLine(log.Lines(), LogLevelDebug, kHandleMessage, L"Received message of type 3"));
}

TEST_F(NetWorkerNamedPipeClientTest, TypeZeroIsInvalid) {
    HostSendsBeginInitialize();
    IpcShouldCancel message = IpcBuildShouldCancel(0);
    message.header.messageType = 0;
    HostSendsMessage(message);
    EXPECT_EQ(RunClientExpectingThrow<std::runtime_error>(), "Invalid message received!");
}

TEST_F(NetWorkerNamedPipeClientTest, EmptyMessageIsInvalid) {
    HostSendsBeginInitialize();
    HostSends(PipeBytes{});
    EXPECT_EQ(RunClientExpectingThrow<std::runtime_error>(), "Invalid message received!");
}

struct WrongSize {
    PipeBytes message;
    const char* name;
};

class WrongSizeFieldTest : public PipeClientTest, public ::testing::WithParamInterface<int> {};

// A served type whose size field is not its own is never read: a request is answered with its
// operation's final message carrying E_FAIL (size 0 for a size request), an IpcShouldCancel is
// dropped, and the session goes on.
TEST_P(WrongSizeFieldTest, ServedTypeWithAWrongSizeFieldIsRefusedUnreadAndTheSessionGoesOn) {
    struct Case {
        PipeBytes message;
        uint32_t replyType;  // 0: none
    };
    const std::vector<Case> cases = {
        {WithSizeField(IpcBuildShouldCancel(eQuit), 16), 0},
        {WithSizeField(IpcBuildBeginCatalog(nullptr, nullptr), 16), IpcTypeFinishCatalog},
        {WithSizeField(IpcBuildBeginGetFileSize(1, true), 12), IpcTypeFinishGetFileSize},
        {WithSizeField(IpcMakeMessage<IpcBeginExtract>(), 12), IpcTypeFinishBeginExtract},
        {WithSizeField(IpcBuildBeginExtractFile(1, L"d", L"f"), 4107), IpcTypeFinishExtractFile},
        {WithSizeField(IpcMakeMessage<IpcEndExtract>(), 0), IpcTypeFinishEndExtract},
    };
    const Case& refused = cases.at(static_cast<size_t>(GetParam()));
    HostSendsBeginInitialize();
    HostSends(refused.message);
    HostSendsMessage(IpcBuildBeginGetFileSize(2, false));  // the next request is served
    RunClient();
    EXPECT_EQ(executor.calls, (std::vector<std::string>{"Initialize", "GetFileSize"}));
    const auto sent = SentAfterInitialize();
    ASSERT_EQ(sent.size(), refused.replyType != 0 ? 2u : 1u);
    if (refused.replyType != 0) {
        EXPECT_EQ(TypeOf(sent[0]), refused.replyType);
        if (refused.replyType == IpcTypeFinishGetFileSize) {
            EXPECT_EQ(As<IpcFinishGetFileSize>(sent[0]).size, 0u);
        } else {
            EXPECT_EQ(As<IpcFinishCatalog>(sent[0]).result, static_cast<int32_t>(0x80004005));
        }
    }
    EXPECT_EQ(TypeOf(sent.back()), static_cast<uint32_t>(IpcTypeFinishGetFileSize));
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelError, kHandleMessage,
                        L"Refused a message of type " + std::to_wstring(TypeOf(refused.message)) +
                            L" whose size field is not its own. Error: 80004005."));
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(ServedTypes, WrongSizeFieldTest, ::testing::Range(0, 6));

TEST_F(NetWorkerNamedPipeClientTest, MoreBytesThanTheSizeFieldAreStillServed) {
    HostSendsBeginInitialize();
    PipeBytes bytes = BytesOf(IpcBuildBeginGetFileSize(4, false));
    bytes.resize(40, 0xAB);
    HostSends(bytes);
    RunClient();
    ASSERT_EQ(executor.getFileSizeCalls.size(), 1u);
    EXPECT_EQ(executor.getFileSizeCalls[0].index, 4u);
}

TEST_F(NetWorkerNamedPipeClientTest, RequestsAreServedInOrderEachWithAFreshLogger) {
    HostSendsBeginInitialize();
    HostSendsMessage(IpcMakeMessage<IpcBeginExtract>());
    HostSendsMessage(IpcBuildBeginExtractFile(2, L"C:\\out", L"a.edb"));
    HostSendsMessage(IpcMakeMessage<IpcEndExtract>());
    HostSendsMessage(IpcBuildBeginGetFileSize(2, false));
    HostSendsMessage(IpcBuildBeginCatalog(nullptr, nullptr));
    RunClient();
    EXPECT_EQ(executor.calls, (std::vector<std::string>{"Initialize", "BeginExtract", "ExtractFile",
                                                        "EndExtract", "GetFileSize", "Catalog"}));
    std::vector<uint32_t> types;
    for (const auto& message : SentAfterInitialize()) {
        types.push_back(TypeOf(message));
    }
    EXPECT_EQ(types, (std::vector<uint32_t>{10, 12, 15, 8, 6}));
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
    // Three extraction requests: three handlers, each constructed and destroyed once.
    EXPECT_EQ(
        CountMethod(TestLoggers::History(L"ExtractHandler"), L"ExtractHandler::ExtractHandler"),
        6u);
    EXPECT_EQ(CountMethod(TestLoggers::History(L"FindFileSizeHandler"),
                          L"FindFileSizeHandler::FindFileSizeHandler"),
              2u);
    EXPECT_EQ(
        CountMethod(TestLoggers::History(L"CatalogHandler"), L"CatalogHandler::CatalogHandler"),
        2u);
    EXPECT_TRUE(
        HasLine(log.Lines(), LogLevelDebug, kHandleMessage, L"Received message of type 11"));
}

class LoggerFailureTest : public PipeClientTest,
                          public ::testing::WithParamInterface<std::pair<const wchar_t*, int>> {
protected:
    // The request of this parameter, whose handler gets no logger: the session ends without a
    // reply, and the next request is left unread.
    void ExpectRunToEndWithoutReply() {
        const std::vector<PipeBytes> requests = {
            BytesOf(IpcBuildBeginCatalog(nullptr, nullptr)),
            BytesOf(IpcBuildBeginGetFileSize(0, false)),
            BytesOf(IpcMakeMessage<IpcBeginExtract>()),
            BytesOf(IpcBuildBeginExtractFile(0, L"d", L"f")),
            BytesOf(IpcMakeMessage<IpcEndExtract>()),
        };
        HostSendsBeginInitialize();
        HostSends(requests.at(static_cast<size_t>(GetParam().second)));
        HostSendsMessage(IpcMakeMessage<IpcBeginExtract>());  // left unread
        RunClient();
        EXPECT_EQ(SentAfterInitialize().size(), 0u);
        EXPECT_EQ(executor.calls, std::vector<std::string>{"Initialize"});
        EXPECT_EQ(pipe.ClientEnd().PendingCount(), 1u);
        const auto lines = log.Lines();
        EXPECT_TRUE(HasLine(lines, LogLevelDebug, kRun, L"Message processed.  Exiting=true"));
        EXPECT_TRUE(HasLine(lines, LogLevelTrace, kHandleMessage, L"Method End"));
        EXPECT_TRUE(TestLoggers::History(GetParam().first).empty());
    }
};

TEST_P(LoggerFailureTest, EndsRunWithoutReply) {
    TestLoggers::FailNames({GetParam().first});
    ExpectRunToEndWithoutReply();
}

// A logging library that answers 0 without a logger has refused it all the same.
TEST_P(LoggerFailureTest, NullLoggerReportedAsSuccessEndsRunWithoutReply) {
    TestLoggers::NullNames({GetParam().first});
    ExpectRunToEndWithoutReply();
}

INSTANTIATE_TEST_SUITE_P(EveryHandler, LoggerFailureTest,
                         ::testing::Values(std::make_pair(L"CatalogHandler", 0),
                                           std::make_pair(L"FindFileSizeHandler", 1),
                                           std::make_pair(L"ExtractHandler", 2),
                                           std::make_pair(L"ExtractHandler", 3),
                                           std::make_pair(L"ExtractHandler", 4)));
