#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>

#include "ArrayAllocations.h"
#include "ExecutorTestSupport.h"
#include "common/LastError.h"
#include "interfaces/NetWorkerStatus.h"

using LogTexts = std::vector<std::pair<LogLevel, std::wstring>>;

TEST_F(ExecutorTest, ConstructorThrowsWhenTheLoggerIsRefused) {
    m_executor.reset();
    TestLoggers::FailNames({L"NetWorkerApiExecutor"});
    try {
        NetWorkerApiExecutor executor(&m_wrapper);
        FAIL() << "constructed without a logger";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ("Failed to Initialize the logger.", error.what());
    }
    TestLoggers::FailNames({});
}

TEST_F(ExecutorTest, DestructorReleasesTheLogger) {
    EXPECT_EQ(1u, TestLoggers::LiveCount());
    m_executor.reset();
    EXPECT_EQ(0u, TestLoggers::LiveCount());
}

TEST_F(ExecutorTest, InitializeBuildsTheEnvironmentInOrder) {
    ASSERT_EQ(0, m_executor->Initialize("exchange01", "backupsrv"));
    EXPECT_EQ((std::vector<std::string>{"Initialize", "BSAQueryApiVersion", "BSAInit"}),
              m_wrapper.calls);
    EXPECT_EQ((std::vector<std::string>{"NSR_CLIENT=exchange01", "NSR_DEBUG_LEVEL=0",
                                        "NSR_SERVER=backupsrv", "NSR_NO_BUSY_ERRORS=TRUE"}),
              m_wrapper.environment);
    EXPECT_STREQ("MSEXCH", m_wrapper.initOwner.bsa_ObjectOwner);
    EXPECT_STREQ("msexch", m_wrapper.initOwner.app_ObjectOwner);
    const BSA_SecurityToken zeroToken{};
    EXPECT_EQ(0, memcmp(&zeroToken, &m_wrapper.initToken, sizeof zeroToken));
    EXPECT_EQ((LogTexts{{LogLevelInfo, L"Networker API Issue 2 Version 0 level 1\n"}}), Lines());
    EXPECT_EQ((std::vector<std::wstring>{L"NetWorkerApiExecutor::Initialize|Method Start",
                                         L"NetWorkerApiExecutor::Initialize|Method End"}),
              Traces());

    // The session handle from BSAInit is used from now on.
    m_executor->BeginExtract();
    EXPECT_EQ(m_wrapper.handleToGive, m_wrapper.handles.back());
}

TEST_F(ExecutorTest, InitializeTakes254CharacterNames) {
    const std::string client(254, 'c');
    const std::string server(254, 's');
    ASSERT_EQ(0, m_executor->Initialize(client.c_str(), server.c_str()));
    EXPECT_EQ("NSR_CLIENT=" + client, m_wrapper.environment[0]);
    EXPECT_EQ("NSR_SERVER=" + server, m_wrapper.environment[2]);
}

TEST_F(ExecutorTest, InitializeRefusesNamesThatDoNotFit) {
    const std::string tooLong(255, 'x');
    EXPECT_EQ(NetWorkerStatus::InvalidArgument, m_executor->Initialize(tooLong.c_str(), "srv"));
    EXPECT_EQ((LogTexts{{LogLevelError, L"Client name missing or longer than 254 characters"},
                        {LogLevelError, HResultLine(0x80070057, 0)}}),
              Lines());
    ClearLog();
    EXPECT_EQ(NetWorkerStatus::InvalidArgument, m_executor->Initialize("cli", nullptr));
    EXPECT_EQ(L"Server name missing or longer than 254 characters", Lines().at(0).second);
    EXPECT_EQ((std::vector<std::string>{"Initialize", "Initialize"}), m_wrapper.calls);
}

TEST_F(ExecutorTest, InitializeReturnsTheWrapperFailureAsItIs) {
    m_wrapper.initializeResult = 1157;
    WriteLastError(0);
    EXPECT_EQ(1157, m_executor->Initialize("cli", "srv"));
    EXPECT_EQ(std::vector<std::string>{"Initialize"}, m_wrapper.calls);
    EXPECT_EQ(
        (LogTexts{{LogLevelError, L"Initialize failure"}, {LogLevelError, HResultLine(1157, 0)}}),
        Lines());
}

TEST_F(ExecutorTest, EveryBSAInitFailureIsBadEnvironment) {
    for (int32_t rc : {3, 4, 80, 96, -1}) {
        m_wrapper.initResult = rc;
        ClearLog();
        WriteLastError(0);
        EXPECT_EQ(static_cast<int32_t>(0x8007000A), m_executor->Initialize("cli", "srv")) << rc;
        EXPECT_EQ((LogTexts{{LogLevelInfo, L"Networker API Issue 2 Version 0 level 1\n"},
                            {LogLevelError, L"BSAInit Failed"},
                            {LogLevelError, HResultLine(0x8007000A, 0)}}),
                  Lines())
            << rc;
    }
}

TEST_F(ExecutorTest, RetriedInitializeFreesTheEnvironmentEntriesOfTheCallBefore) {
    m_wrapper.initResult = 3;
    EXPECT_EQ(static_cast<int32_t>(0x8007000A), m_executor->Initialize("cli", "srv"));
    {
        // The entries live in arrays of their own: every call allocates two and frees the two
        // of the call before, so the calls leave as many arrays allocated as they found.
        const ArrayAllocationWatch watch;
        for (int retry = 0; retry < 3; ++retry) {
            EXPECT_EQ(static_cast<int32_t>(0x8007000A), m_executor->Initialize("cli", "srv"));
        }
        m_wrapper.initResult = 0;
        ASSERT_EQ(0, m_executor->Initialize("cli", "srv"));
        EXPECT_GE(watch.Sizes().size(), 8u) << "a client and a server entry per call";
        EXPECT_EQ(watch.Sizes().size(), watch.Frees());
    }
    EXPECT_EQ((std::vector<std::string>{"NSR_CLIENT=cli", "NSR_DEBUG_LEVEL=0", "NSR_SERVER=srv",
                                        "NSR_NO_BUSY_ERRORS=TRUE"}),
              m_wrapper.environment);
}

TEST_F(ExecutorTest, NoSessionIsEverTerminated) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\priv1.edb")};
    m_executor->Catalog(nullptr, nullptr, &m_found, &m_error);
    m_executor->Quit();
    m_executor.reset();
    for (const std::string& call : m_wrapper.calls) {
        EXPECT_NE("BSATerminate", call);
    }
}

TEST_F(ExecutorTest, QuitBeforeAnythingReturnsZeroAndCancelsTheNextCatalog) {
    EXPECT_EQ(0, m_executor->Quit());
    EXPECT_EQ((std::vector<std::wstring>{L"NetWorkerApiExecutor::Quit|Method Start",
                                         L"NetWorkerApiExecutor::Quit|Method End"}),
              Traces());
    m_wrapper.objects = {MakeDescriptor("\\sg\\priv1.edb")};
    ClearLog();
    WriteLastError(0);
    EXPECT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));
    EXPECT_EQ((std::vector<std::string>{"BSABeginTxn", "BSAEndTxn"}), m_wrapper.calls);
    EXPECT_TRUE(m_found.files.empty());
    EXPECT_EQ(
        (LogTexts{{LogLevelError, L"User Canceled the extraction process"},
                  {LogLevelError, HResultLine(1223, 0)},
                  {LogLevelInfo, L"Found 0 items. m_smVecObjects  size = 0, capacity = 0.\n"}}),
        Lines());
}

TEST_F(ExecutorTest, InitializeClearsAnEarlierQuit) {
    m_executor->Quit();
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\priv1.edb")};
    m_executor->Catalog(nullptr, nullptr, &m_found, &m_error);
    EXPECT_EQ(1u, m_found.files.size());
}

TEST_F(ExecutorTest, QuitDuringBSAInitMakesInitializeCancelled) {
    m_wrapper.initResult = 0;
    // Quit from "another thread" while BSAInit runs: the flag is looked at right after it.
    struct QuitInInit : FakeApiWrapper {
        NetWorkerApiExecutor* executor = nullptr;
        int32_t BSAInit(BSA_Handle* handle, BSA_SecurityToken* token, BSA_ObjectOwner* owner,
                        char** env) override {
            std::thread([this] { executor->Quit(); }).join();
            return FakeApiWrapper::BSAInit(handle, token, owner, env);
        }
    } wrapper;
    NetWorkerApiExecutor executor(&wrapper);
    wrapper.executor = &executor;
    WriteLastError(0);
    EXPECT_EQ(1223, executor.Initialize("cli", "srv"));
    const std::vector<LogLine> lines = TestLoggers::Find(L"NetWorkerApiExecutor")->NonTraceLines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(L"User Canceled the extraction process", lines[lines.size() - 2].text);
    EXPECT_EQ(HResultLine(1223, 0), lines.back().text);
}

TEST_F(ExecutorTest, TwoQuitsDuringOneBSAGetObjectReturnOneThenZero) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\priv1.edb")};
    CatalogAll();
    const std::wstring directory = UnderRoot(L"quit");
    std::vector<int32_t> answers;
    m_wrapper.duringGetObject = [&] {
        // Quit comes from a second thread while the object is being opened.
        std::thread([&] {
            answers.push_back(m_executor->Quit());
            answers.push_back(m_executor->Quit());
        }).join();
    };
    m_wrapper.data = "content";
    ASSERT_EQ(0, m_executor->BeginExtract());
    EXPECT_EQ(1223, m_executor->ExtractFile(0, directory.c_str(), L"priv1.edb", nullptr, &m_error));
    EXPECT_EQ((std::vector<int32_t>{1, 0}), answers);
    EXPECT_FALSE(m_system.FileExists(directory + L"\\priv1.edb"));
    // After the transfer Quit is plain again; a new BeginExtract re-arms the one-time answer.
    EXPECT_EQ(0, m_executor->Quit());
    m_wrapper.duringGetObject = [&] { answers.push_back(m_executor->Quit()); };
    EXPECT_EQ(1223, m_executor->ExtractFile(0, directory.c_str(), L"priv1.edb", nullptr, &m_error));
    EXPECT_EQ(0, answers.back()) << "not re-armed without BeginExtract";
    ASSERT_EQ(0, m_executor->BeginExtract());
    EXPECT_EQ(1223, m_executor->ExtractFile(0, directory.c_str(), L"priv1.edb", nullptr, &m_error));
    EXPECT_EQ(1, answers.back());
}

TEST_F(ExecutorTest, BeginAndEndExtractMapTheirTransactionCalls) {
    StartSession();
    EXPECT_EQ(0, m_executor->BeginExtract());
    EXPECT_EQ(0, m_executor->EndExtract());
    EXPECT_EQ((std::vector<std::string>{"BSABeginTxn", "BSAEndTxn"}), m_wrapper.calls);
    EXPECT_EQ((std::vector<std::wstring>{L"NetWorkerApiExecutor::BeginExtract|Method Start",
                                         L"NetWorkerApiExecutor::BeginExtract|Method End",
                                         L"NetWorkerApiExecutor::EndExtract|Method Start",
                                         L"NetWorkerApiExecutor::EndExtract|Method End"}),
              Traces());

    m_wrapper.beginTxnResult = 6;
    m_wrapper.endTxnResult = 17;  // not a failure: 1169 is passed back as it is
    ClearLog();
    WriteLastError(0);
    EXPECT_EQ(static_cast<int32_t>(0x80070006), m_executor->BeginExtract());
    EXPECT_EQ(1169, m_executor->EndExtract());
    EXPECT_EQ((LogTexts{{LogLevelError, L"BSA Error 6\n"},
                        {LogLevelError, L"BSABeginTxn failed"},
                        {LogLevelError, HResultLine(0x80070006, 0)}}),
              Lines());
    m_wrapper.endTxnResult = 32;
    ClearLog();
    EXPECT_EQ(static_cast<int32_t>(0x80004005), m_executor->EndExtract());
    EXPECT_EQ(L"BSAEndTxn failed", Lines().at(1).second);
}
