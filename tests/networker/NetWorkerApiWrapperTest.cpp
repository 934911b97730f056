// The wrapper under Wine against fake NetWorker installations (tests/networker/fakes) found
// through a real "nsrexecd" service registration in the test's Wine prefix.

#include "networker/NetWorkerApiWrapper.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "RecordingLog.h"
#include "ScopedEnvironment.h"
#include "TestFiles.h"
#include "WinTestPaths.h"
#include "fakes/FakeNetWorker.h"
#include "interfaces/NetWorkerStatus.h"

namespace {

const wchar_t kLogger[] = L"NetWorkerApiWrapper";

LogLine TraceLine(const std::wstring& method, const wchar_t* text) {
    return LogLine{LogLevelTrace, L"NetWorkerApiWrapper::" + method, text};
}

std::vector<LogLine> Traced(const std::wstring& method) {
    return {TraceLine(method, L"Method Start"), TraceLine(method, L"Method End")};
}

std::vector<LogLine> Concat(std::initializer_list<std::vector<LogLine>> parts) {
    std::vector<LogLine> all;
    for (const auto& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

std::vector<LogLine> Only(const std::vector<LogLine>& lines, LogLevel level) {
    std::vector<LogLine> result;
    for (const LogLine& line : lines) {
        if (line.level == level) {
            result.push_back(line);
        }
    }
    return result;
}

std::vector<std::wstring> Texts(const std::vector<LogLine>& lines) {
    std::vector<std::wstring> texts;
    for (const LogLine& line : lines) {
        texts.push_back(line.text);
    }
    return texts;
}

std::vector<LogLine> NonTrace(const std::vector<LogLine>& lines) {
    std::vector<LogLine> result;
    for (const LogLine& line : lines) {
        if (line.level != LogLevelTrace) {
            result.push_back(line);
        }
    }
    return result;
}

// A loaded fake library, seen from the test.
class FakeLibrary {
public:
    explicit FakeLibrary(const std::wstring& path) : m_module(GetModuleHandleW(path.c_str())) {}

    bool Loaded() const { return m_module != nullptr; }
    void Reset() const { Get<FakeResetFn>("FakeReset")(); }
    void SetResult(int32_t result) const { Get<FakeSetResultFn>("FakeSetResult")(result); }
    std::vector<FakeCall> Calls() const {
        std::vector<FakeCall> calls;
        const int count = Get<FakeCallCountFn>("FakeCallCount")();
        for (int i = 0; i < count; ++i) {
            calls.push_back(*Get<FakeGetCallFn>("FakeGetCall")(i));
        }
        return calls;
    }

private:
    template <typename Fn>
    Fn Get(const char* name) const {
        FARPROC proc = m_module != nullptr ? GetProcAddress(m_module, name) : nullptr;
        if (proc == nullptr) {
            throw std::runtime_error("fake library not loaded");
        }
        return reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(proc));
    }

    HMODULE m_module;
};

bool IsLoaded(const std::wstring& path) {
    return GetModuleHandleW(path.c_str()) != nullptr;
}

std::wstring QuotedProgram(const std::wstring& directory) {
    return L"\"" + directory + L"\\nsrexecd.exe\"";
}

const wchar_t* const kLibraries[] = {L"liblocal.dll", L"librpc.dll", L"librap.dll",
                                     L"libnsr.dll",   L"libasm.dll", L"libbsa.dll"};

class NetWorkerApiWrapperTest : public ::testing::Test {
protected:
    void SetUp() override { TestLoggers::Reset(); }
    void TearDown() override { TestLoggers::FailNames({}); }

    static std::vector<LogLine> History() { return TestLoggers::History(kLogger); }
};

std::vector<LogLine> SuccessfulInitializeTrace() {
    return {TraceLine(L"Initialize", L"Method Start"),
            TraceLine(L"GetInstallDirectory", L"Method Start"),
            TraceLine(L"GetInstallDirectory", L"Method End"),
            TraceLine(L"LoadNetWorkerLibraries", L"Method Start"),
            TraceLine(L"LoadNetWorkerLibraries", L"Method End"),
            TraceLine(L"GetNetWorkerProcAddresses", L"Method Start"),
            TraceLine(L"GetNetWorkerProcAddresses", L"Method End"),
            TraceLine(L"InitializeNetWorkerApi", L"Method Start"),
            TraceLine(L"InitializeNetWorkerApi", L"Method End"),
            TraceLine(L"Initialize", L"Method End")};
}

}  // namespace

TEST_F(NetWorkerApiWrapperTest, ConstructionTakesItsOwnLoggerAndLoadsNothing) {
    {
        NetWorkerApiWrapper wrapper;
        EXPECT_NE(nullptr, TestLoggers::Find(kLogger));
        EXPECT_TRUE(History().empty());
    }
    EXPECT_EQ(nullptr, TestLoggers::Find(kLogger));
    EXPECT_EQ(0u, TestLoggers::LiveCount());
    EXPECT_EQ(Traced(L"FreeNetWorkerLibraries"), History());
}

TEST_F(NetWorkerApiWrapperTest, RefusedLoggerThrowsTheStandardException) {
    TestLoggers::FailNames({kLogger});
    try {
        NetWorkerApiWrapper wrapper;
        FAIL() << "constructed without a logger";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ("Failed to Initialize the logger.", error.what());
    }
}

TEST_F(NetWorkerApiWrapperTest, QuotedServicePathLoadsEveryLibraryAndStartsNetWorker) {
    const std::wstring dir = FakeInstallation(L"full");
    ScopedNsrexecdService service(QuotedProgram(dir));
    {
        NetWorkerApiWrapper wrapper;
        ASSERT_EQ(0, wrapper.Initialize());
        for (const wchar_t* library : kLibraries) {
            EXPECT_TRUE(IsLoaded(dir + L"\\" + library)) << library;
        }
        EXPECT_EQ(SuccessfulInitializeTrace(), History());

        const std::vector<FakeCall> lginit = FakeLibrary(dir + L"\\liblocal.dll").Calls();
        ASSERT_EQ(1u, lginit.size());
        EXPECT_STREQ("_lginit", lginit[0].name);
        EXPECT_STREQ("nsr", lginit[0].text);
        EXPECT_EQ(nullptr, lginit[0].pointers[1]);
        EXPECT_EQ(nullptr, lginit[0].pointers[2]);

        const std::vector<FakeCall> nsrlib = FakeLibrary(dir + L"\\libnsr.dll").Calls();
        ASSERT_EQ(1u, nsrlib.size());
        EXPECT_STREQ("nsrlib_init", nsrlib[0].name);
        EXPECT_NE(nullptr, nsrlib[0].pointers[0]);
        EXPECT_EQ(0u, nsrlib[0].valueAtPointer);
        EXPECT_TRUE(FakeLibrary(dir + L"\\libbsa.dll").Calls().empty());
    }
    for (const wchar_t* library : kLibraries) {
        EXPECT_FALSE(IsLoaded(dir + L"\\" + library)) << library;
    }
}

TEST_F(NetWorkerApiWrapperTest, SecondInitializeReturnsZeroAndLoadsNothing) {
    const std::wstring dir = FakeInstallation(L"full");
    ScopedNsrexecdService service(QuotedProgram(dir));
    NetWorkerApiWrapper wrapper;
    ASSERT_EQ(0, wrapper.Initialize());
    TestLoggers::Find(kLogger)->Clear();

    EXPECT_EQ(0, wrapper.Initialize());
    EXPECT_EQ(Traced(L"Initialize"), TestLoggers::Find(kLogger)->Lines());
    EXPECT_EQ(1u, FakeLibrary(dir + L"\\liblocal.dll").Calls().size());
    EXPECT_EQ(1u, FakeLibrary(dir + L"\\libnsr.dll").Calls().size());
}

TEST_F(NetWorkerApiWrapperTest, LibrariesAreFreedInLoadOrder) {
    TempDirectory temp("networker");
    const std::wstring unloadLog = temp.Child(L"unloads.txt");
    ScopedEnvironment variable(L"FAKE_NETWORKER_UNLOAD_LOG", unloadLog);
    ScopedNsrexecdService service(QuotedProgram(FakeInstallation(L"full")));
    {
        NetWorkerApiWrapper wrapper;
        ASSERT_EQ(0, wrapper.Initialize());
        TestLoggers::Find(kLogger)->Clear();
    }
    EXPECT_EQ("liblocal\nlibrpc\nlibrap\nlibnsr\nlibasm\nlibbsa\n", ReadWholeFile(unloadLog));
    const std::vector<LogLine> history = History();
    ASSERT_GE(history.size(), 2u);
    EXPECT_EQ(Traced(L"FreeNetWorkerLibraries"),
              std::vector<LogLine>(history.end() - 2, history.end()));
}

TEST_F(NetWorkerApiWrapperTest, MissingServiceCarriesOnAndFailsOnTheFirstLibrary) {
    ASSERT_TRUE(RemoveNsrexecdService());
    NetWorkerApiWrapper wrapper;
    EXPECT_EQ(NetWorkerStatus::DllNotFound, wrapper.Initialize());

    const std::vector<LogLine> history = History();
    const std::vector<LogLine> errors = Only(history, LogLevelError);
    ASSERT_EQ(4u, errors.size());
    EXPECT_EQ(L"NetWorkerApiWrapper::GetInstallDirectory", errors[0].method);
    EXPECT_EQ(L"Could not open service nsrexecd", errors[0].text);
    EXPECT_EQ(L"HRESULT 0000006e GetLastError() 1060", errors[1].text);
    EXPECT_EQ(L"NetWorkerApiWrapper::LoadNetWorkerLibraries", errors[2].method);
    EXPECT_EQ(L"LoadLibrary Failed: liblocal.dll", errors[2].text);
    EXPECT_EQ(0u, errors[3].text.find(L"HRESULT 00000485 GetLastError() "));

    EXPECT_EQ(Concat({{TraceLine(L"Initialize", L"Method Start")},
                      Traced(L"GetInstallDirectory"),
                      Traced(L"LoadNetWorkerLibraries"),
                      {TraceLine(L"Initialize", L"Method End")}}),
              Only(history, LogLevelTrace));
}

TEST_F(NetWorkerApiWrapperTest, ConfigurationUpTo4086BytesIsRead) {
    ScopedNsrexecdService service(L"C:\\placeholder.exe");
    ASSERT_FALSE(BinaryPathNeeding(service, 4086).empty());
    NetWorkerApiWrapper wrapper;
    EXPECT_EQ(0, wrapper.Initialize());
}

TEST_F(NetWorkerApiWrapperTest, ProgramInTheDriveRootGivesTheDriveAlone) {
    ScopedNsrexecdService service(L"C:\\nsrexecd.exe");
    NetWorkerApiWrapper wrapper;
    EXPECT_EQ(NetWorkerStatus::DllNotFound, wrapper.Initialize());

    // The directory stays set although loading failed; the size lookup shows it.
    TestLoggers::Find(kLogger)->Clear();
    BSA_ObjectDescriptor desc = {};
    uint64_t size = 5;
    EXPECT_EQ(NetWorkerStatus::FunctionFailed, wrapper.CorrectFileSize(&desc, &size, "s", "c"));
    EXPECT_EQ(0u, size);
    const std::vector<LogLine> lines = NonTrace(TestLoggers::Find(kLogger)->Lines());
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(L"C:\\nsrinfo.exe -v -V -s s -n msexch -N \":\" c", lines[0].text);
    EXPECT_EQ(L"CreateProcess failed: C:\\nsrinfo.exe", lines[1].text);
}

TEST_F(NetWorkerApiWrapperTest, BinaryPathWithoutBackslashGivesAnEmptyDirectory) {
    ScopedNsrexecdService service(L"nsrexecd.exe");
    NetWorkerApiWrapper wrapper;
    EXPECT_EQ(NetWorkerStatus::DllNotFound, wrapper.Initialize());
    const std::vector<LogLine> errors = Only(History(), LogLevelError);
    ASSERT_EQ(2u, errors.size());
    EXPECT_EQ(L"LoadLibrary Failed: liblocal.dll", errors[0].text);

    TestLoggers::Find(kLogger)->Clear();
    BSA_ObjectDescriptor desc = {};
    uint64_t size = 0;
    EXPECT_EQ(NetWorkerStatus::FunctionFailed, wrapper.CorrectFileSize(&desc, &size, "s", "c"));
    EXPECT_EQ(L"nsrinfo.exe -v -V -s s -n msexch -N \":\" c",
              TestLoggers::Find(kLogger)->TextsAt(LogLevelInfo).at(0));
}

TEST_F(NetWorkerApiWrapperTest, OnlyLibnsrbsaPresentLoadsItAndSaysSoOnce) {
    const std::wstring dir = FakeInstallation(L"nsrbsa");
    ScopedNsrexecdService service(QuotedProgram(dir));
    NetWorkerApiWrapper wrapper;
    ASSERT_EQ(0, wrapper.Initialize());
    EXPECT_TRUE(IsLoaded(dir + L"\\libnsrbsa.dll"));

    const std::vector<LogLine> lines = NonTrace(History());
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ((LogLine{LogLevelInfo, L"NetWorkerApiWrapper::LoadNetWorkerLibraries",
                       L"Loaded 'libnsrbsa.dll'"}),
              lines[0]);

    BSA_ApiVersion version = {};
    EXPECT_EQ(0, wrapper.BSAQueryApiVersion(&version));
    EXPECT_EQ(2, version.version);
    EXPECT_EQ(1u, FakeLibrary(dir + L"\\libnsrbsa.dll").Calls().size());
}

TEST_F(NetWorkerApiWrapperTest, NeitherXbsaLibraryNamesLibbsa) {
    const std::wstring dir = FakeInstallation(L"nobsa");
    ScopedNsrexecdService service(QuotedProgram(dir));
    {
        NetWorkerApiWrapper wrapper;
        EXPECT_EQ(NetWorkerStatus::DllNotFound, wrapper.Initialize());
        const std::vector<LogLine> lines = NonTrace(History());
        ASSERT_EQ(2u, lines.size());
        EXPECT_EQ((LogLine{LogLevelError, L"NetWorkerApiWrapper::LoadNetWorkerLibraries",
                           L"LoadLibrary Failed: libbsa.dll"}),
                  lines[0]);
        // The libraries loaded before the failure stay loaded until destruction.
        EXPECT_TRUE(IsLoaded(dir + L"\\libasm.dll"));
    }
    EXPECT_FALSE(IsLoaded(dir + L"\\liblocal.dll"));
    EXPECT_FALSE(IsLoaded(dir + L"\\libasm.dll"));
}

TEST_F(NetWorkerApiWrapperTest, MissingLibraryStopsLoading) {
    const std::wstring dir = FakeInstallation(L"nolibasm");
    ScopedNsrexecdService service(QuotedProgram(dir));
    NetWorkerApiWrapper wrapper;
    EXPECT_EQ(NetWorkerStatus::DllNotFound, wrapper.Initialize());
    const std::vector<std::wstring> errors = Texts(Only(History(), LogLevelError));
    ASSERT_EQ(2u, errors.size());
    EXPECT_EQ(L"LoadLibrary Failed: libasm.dll", errors[0]);
    EXPECT_EQ(0u, errors[1].find(L"HRESULT 00000485 GetLastError() "));
    EXPECT_TRUE(IsLoaded(dir + L"\\libnsr.dll"));
    EXPECT_FALSE(IsLoaded(dir + L"\\libbsa.dll"));
}

TEST_F(NetWorkerApiWrapperTest, MissingExportStopsResolutionThere) {
    const std::wstring dir = FakeInstallation(L"nogetdata");
    ScopedNsrexecdService service(QuotedProgram(dir));
    NetWorkerApiWrapper wrapper;
    EXPECT_EQ(NetWorkerStatus::EntryPointMissing, wrapper.Initialize());

    const std::vector<LogLine> history = History();
    const std::vector<LogLine> errors = Only(history, LogLevelError);
    // The fake lacks BSAEndData as well: only the first miss is reported.
    ASSERT_EQ(2u, errors.size());
    EXPECT_EQ(L"NetWorkerApiWrapper::GetNetWorkerProcAddresses", errors[0].method);
    EXPECT_EQ(L"GetProcAddress Failed: BSAGetData", errors[0].text);
    EXPECT_EQ(0u, errors[1].text.find(L"HRESULT 00000001 GetLastError() "));
    EXPECT_EQ(Concat({{TraceLine(L"Initialize", L"Method Start")},
                      Traced(L"GetInstallDirectory"),
                      Traced(L"LoadNetWorkerLibraries"),
                      Traced(L"GetNetWorkerProcAddresses"),
                      {TraceLine(L"Initialize", L"Method End")}}),
              Only(history, LogLevelTrace));
    // NetWorker's start-up calls are not made.
    EXPECT_TRUE(FakeLibrary(dir + L"\\liblocal.dll").Calls().empty());
}

TEST_F(NetWorkerApiWrapperTest, RetriedInitializeKeepsTheEarlierPartialLoad) {
    const std::wstring partial = FakeInstallation(L"nolibasm");
    const std::wstring full = FakeInstallation(L"full");
    ScopedNsrexecdService service(QuotedProgram(partial));
    {
        NetWorkerApiWrapper wrapper;
        EXPECT_EQ(NetWorkerStatus::DllNotFound, wrapper.Initialize());
        service.ChangeBinaryPath(QuotedProgram(full));
        EXPECT_EQ(0, wrapper.Initialize());
    }
    EXPECT_FALSE(IsLoaded(full + L"\\liblocal.dll"));
    const wchar_t* const leaked[] = {L"liblocal.dll", L"librpc.dll", L"librap.dll", L"libnsr.dll"};
    for (const wchar_t* library : leaked) {
        const std::wstring path = partial + L"\\" + library;
        EXPECT_TRUE(IsLoaded(path)) << library;
        // Give the reference back so later tests start clean.
        FreeLibrary(GetModuleHandleW(path.c_str()));
        EXPECT_FALSE(IsLoaded(path)) << library;
    }
}

class NetWorkerForwarderTest : public NetWorkerApiWrapperTest {
protected:
    void SetUp() override {
        NetWorkerApiWrapperTest::SetUp();
        m_dir = FakeInstallation(L"full");
        m_service = std::make_unique<ScopedNsrexecdService>(QuotedProgram(m_dir));
        m_wrapper = std::make_unique<NetWorkerApiWrapper>();
        ASSERT_EQ(0, m_wrapper->Initialize());
        m_bsa = std::make_unique<FakeLibrary>(m_dir + L"\\libbsa.dll");
        ASSERT_TRUE(m_bsa->Loaded());
    }
    void TearDown() override {
        m_wrapper.reset();
        m_service.reset();
        NetWorkerApiWrapperTest::TearDown();
    }

    // Runs one forwarder against a fake that answers `result`; checks the result and the two
    // trace lines, and returns the fake's one recorded call.
    template <typename Call>
    FakeCall Forward(const wchar_t* method, const char* entryPoint, int32_t result, Call call) {
        m_bsa->Reset();
        m_bsa->SetResult(result);
        TestLoggers::Find(kLogger)->Clear();
        EXPECT_EQ(result, call(*m_wrapper)) << entryPoint;
        EXPECT_EQ(Traced(method), TestLoggers::Find(kLogger)->Lines()) << entryPoint;
        const std::vector<FakeCall> calls = m_bsa->Calls();
        EXPECT_EQ(1u, calls.size()) << entryPoint;
        if (calls.empty()) {
            return FakeCall{};
        }
        EXPECT_STREQ(entryPoint, calls[0].name);
        return calls[0];
    }

    std::wstring m_dir;
    std::unique_ptr<ScopedNsrexecdService> m_service;
    std::unique_ptr<NetWorkerApiWrapper> m_wrapper;
    std::unique_ptr<FakeLibrary> m_bsa;
};

constexpr BSA_Handle kHandle = 0xABCDEF0123456789ull;

TEST_F(NetWorkerForwarderTest, BSAInitPassesEverythingThrough) {
    BSA_Handle handle = 0;
    BSA_SecurityToken token = {};
    BSA_ObjectOwner owner = {};
    char first[] = "NSR_CLIENT=cli";
    char* environment[] = {first, nullptr};
    const FakeCall call = Forward(L"BSAInit", "BSAInit", 0, [&](NetWorkerApiWrapper& w) {
        return w.BSAInit(&handle, &token, &owner, environment);
    });
    EXPECT_EQ(&handle, call.pointers[0]);
    EXPECT_EQ(&token, call.pointers[1]);
    EXPECT_EQ(&owner, call.pointers[2]);
    EXPECT_EQ(environment, call.pointers[3]);
    EXPECT_EQ(0x1234567890ull, handle);
}

TEST_F(NetWorkerForwarderTest, HandleOnlyForwardersReturnTheCodeUnchanged) {
    EXPECT_EQ(kHandle, Forward(L"BSATerminate", "BSATerminate", 3, [](NetWorkerApiWrapper& w) {
                           return w.BSATerminate(kHandle);
                       }).handle);
    EXPECT_EQ(kHandle, Forward(L"BSABeginTxn", "BSABeginTxn", 6, [](NetWorkerApiWrapper& w) {
                           return w.BSABeginTxn(kHandle);
                       }).handle);
    EXPECT_EQ(kHandle, Forward(L"BSAEndData", "BSAEndData", -7, [](NetWorkerApiWrapper& w) {
                           return w.BSAEndData(kHandle);
                       }).handle);
}

TEST_F(NetWorkerForwarderTest, BSAEndTxnPassesTheHandleAndTheCommitVote) {
    static_assert(std::is_same_v<BSAEndTxnFn, BSA_Int32 (*)(BSA_Handle, BSA_Vote)>,
                  "BSAEndTxn's entry point takes the handle and the vote");
    const FakeCall call = Forward(L"BSAEndTxn", "BSAEndTxn", 32,
                                  [](NetWorkerApiWrapper& w) { return w.BSAEndTxn(kHandle); });
    EXPECT_EQ(2, call.argumentCount);
    EXPECT_EQ(kHandle, call.handle);
    EXPECT_EQ(BSAVote_COMMIT, call.vote);
}

TEST_F(NetWorkerForwarderTest, QueryForwarders) {
    BSA_QueryDescriptor query = {};
    BSA_ObjectDescriptor descriptor = {};
    FakeCall call = Forward(L"BSAQueryObject", "BSAQueryObject", 17, [&](NetWorkerApiWrapper& w) {
        return w.BSAQueryObject(kHandle, &query, &descriptor);
    });
    EXPECT_EQ(kHandle, call.handle);
    EXPECT_EQ(&query, call.pointers[0]);
    EXPECT_EQ(&descriptor, call.pointers[1]);

    call = Forward(
        L"BSAGetNextQueryObject", "BSAGetNextQueryObject", 18,
        [&](NetWorkerApiWrapper& w) { return w.BSAGetNextQueryObject(kHandle, &descriptor); });
    EXPECT_EQ(kHandle, call.handle);
    EXPECT_EQ(&descriptor, call.pointers[0]);
}

TEST_F(NetWorkerForwarderTest, BSAQueryApiVersionTakesNoHandle) {
    static_assert(std::is_same_v<decltype(&INetWorkerApiWrapper::BSAQueryApiVersion),
                                 int32_t (INetWorkerApiWrapper::*)(BSA_ApiVersion*)>,
                  "no session handle");
    BSA_ApiVersion version = {};
    const FakeCall call =
        Forward(L"BSAQueryApiVersion", "BSAQueryApiVersion", 0,
                [&](NetWorkerApiWrapper& w) { return w.BSAQueryApiVersion(&version); });
    EXPECT_EQ(&version, call.pointers[0]);
    EXPECT_EQ(1, version.issue);
    EXPECT_EQ(2, version.version);
    EXPECT_EQ(3, version.level);
}

TEST_F(NetWorkerForwarderTest, DataForwarders) {
    BSA_ObjectDescriptor descriptor = {};
    BSA_DataBlock32 block = {};
    FakeCall call = Forward(L"BSAGetObject", "BSAGetObject", 0, [&](NetWorkerApiWrapper& w) {
        return w.BSAGetObject(kHandle, &descriptor, &block);
    });
    EXPECT_EQ(kHandle, call.handle);
    EXPECT_EQ(&descriptor, call.pointers[0]);
    EXPECT_EQ(&block, call.pointers[1]);

    call = Forward(L"BSAGetData", "BSAGetData", 18,
                   [&](NetWorkerApiWrapper& w) { return w.BSAGetData(kHandle, &block); });
    EXPECT_EQ(kHandle, call.handle);
    EXPECT_EQ(&block, call.pointers[0]);
}
