// The hardened pipe against other processes of the same user: a squatter that created the
// name first, a stranger that connects before the host's helper, and a helper pointed at a
// foreign server. Real processes (pipe_stranger.exe and the helper program) on real pipes.

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "RecordingLog.h"
#include "RecordingLoggersTest.h"
#include "ScopedEnvironment.h"
#include "StrangerProcesses.h"
#include "../exports/ExportsTestSupport.h"
#include "common/UniqueHandle.h"
#include "pipe/NamedPipeConnection.h"
#include "pipe/PipeHardening.h"
#include "pipe/PipeSecurity.h"

namespace {

const wchar_t kOpenNewPipe[] = L"NamedPipeConnection::OpenNewPipe";
const wchar_t kWait[] = L"NamedPipeConnection::WaitForConnection";

class PipeHardeningTest : public RecordingLoggersTest {
protected:
    static RecordingLog& LogOf() { return LatestLog(L"NamedPipeConnection"); }
};

// Opens the server end and lets a stranger take its only instance; null (after a failure) when
// the stranger did not get in.
std::unique_ptr<Knocker> OpenWithStrangerIn(NamedPipeConnection& server, const std::wstring& name) {
    server.OpenNewPipe(name.c_str());
    auto stranger = std::make_unique<Knocker>(name);
    if (!stranger->Started() || !stranger->IsIn()) {
        ADD_FAILURE() << "the stranger did not take the pipe's instance";
        return nullptr;
    }
    return stranger;
}

class HardenedPipeTest : public PipeHardeningTest {
protected:
    ScopedEnvironment m_hardening{kPipeHardeningVariable, L"1"};
};

}  // namespace

TEST_F(PipeHardeningTest, DefaultPipeIsServedBesideASquatterAsItAlwaysWas) {
    const std::wstring name = UniquePipeName(L"default-squat");
    const Squatter squatter(name, PIPE_UNLIMITED_INSTANCES);
    ASSERT_TRUE(squatter.Holds());
    NamedPipeConnection server;
    EXPECT_NO_THROW(server.OpenNewPipe(name.c_str()));
}

TEST_F(HardenedPipeTest, NameTakenBySquatterWithFreeInstancesIsRefused) {
    const std::wstring name = UniquePipeName(L"squat-many");
    const Squatter squatter(name, PIPE_UNLIMITED_INSTANCES);
    ASSERT_TRUE(squatter.Holds());
    NamedPipeConnection server;
    try {
        server.OpenNewPipe(name.c_str());
        FAIL() << "a hardened pipe was served beside a squatter";
    } catch (const PipeNameTakenError& refused) {
        EXPECT_EQ(std::string(refused.what()), "Failed to create new pipe. GetLastError()=" +
                                                   std::to_string(refused.WindowsError()));
    }
    EXPECT_TRUE(HasLine(LogOf().Lines(), LogLevelError, kOpenNewPipe,
                        L"The pipe name '" + name +
                            L"' is already taken by another process; a hardened pipe is not "
                            L"served beside it."));
    const unsigned char oneByte = 0;
    EXPECT_THROW(server.Send(&oneByte, 1), std::runtime_error) << "no server end may be left open";
}

TEST_F(HardenedPipeTest, NameTakenBySquatterWithItsOnlyInstanceIsRefused) {
    const std::wstring name = UniquePipeName(L"squat-one");
    const Squatter squatter(name, 1);
    ASSERT_TRUE(squatter.Holds());
    NamedPipeConnection server;
    EXPECT_THROW(server.OpenNewPipe(name.c_str()), PipeNameTakenError);
}

namespace {

// Opens a server end as the current setting makes it, then lets another process try to create
// one more instance: its exit code (0 when it could).
DWORD AddInstanceFromAnotherProcess(const wchar_t* purpose) {
    const std::wstring name = UniquePipeName(purpose);
    NamedPipeConnection server;
    server.OpenNewPipe(name.c_str());
    Program create(L"pipe_stranger.exe", L"create " + name);
    EXPECT_TRUE(create.Started());
    return create.AwaitExit();
}

}  // namespace

TEST_F(HardenedPipeTest, NoOtherProcessCanAddAnInstance) {
    const DWORD result = AddInstanceFromAnotherProcess(L"only");
    EXPECT_NE(result, 0u) << "another process created a second instance";
    EXPECT_TRUE(result == ERROR_PIPE_BUSY || result == ERROR_ACCESS_DENIED) << result;
}

TEST_F(PipeHardeningTest, DefaultPipeLetsAnotherInstanceBeAdded) {
    EXPECT_EQ(AddInstanceFromAnotherProcess(L"default-many"), 0u);
}

TEST_F(PipeHardeningTest, UnrecognisedValueHardensThePipeWithAnErrorLine) {
    const ScopedEnvironment misspelt(kPipeHardeningVariable, L"ture");
    const DWORD result = AddInstanceFromAnotherProcess(L"misspelt");
    EXPECT_NE(result, 0u) << "another process created a second instance";
    const std::vector<LogLine> lines = TestLoggers::History(L"NamedPipeConnection");
    EXPECT_TRUE(HasLine(lines, LogLevelError, kOpenNewPipe,
                        L"NWX_PIPE_HARDENING has a value that is neither on nor off; the pipe is "
                        L"hardened."));
    // The library writes through Trace, Info, Debug and Error only: never through Warning.
    for (const LogLine& line : lines) {
        EXPECT_NE(line.level, LogLevelWarning) << std::string(line.text.begin(), line.text.end());
    }
}

namespace {

// What the built-in launcher of a hardened host leaves behind for the pipe: the helper to wait
// for, here a program of the test.
bool ExpectAsHelper(const std::wstring& pipeName, const Program& helper) {
    HANDLE duplicate = nullptr;
    if (!::DuplicateHandle(::GetCurrentProcess(), helper.Handle(), ::GetCurrentProcess(),
                           &duplicate, SYNCHRONIZE, FALSE, 0)) {
        return false;
    }
    ExpectPipeClient(pipeName, ExpectedPipeClient{UniqueHandle(duplicate), helper.Id()});
    return true;
}

struct DaclEntry {
    std::wstring sid;
    ACCESS_MASK mask;
};

// The pipe's protection flag and DACL entries as Windows reports them, read through a client
// handle of the pipe.
bool ReadPipeDacl(const std::wstring& name, bool* isProtected, std::vector<DaclEntry>* entries) {
    const UniqueFileHandle client(::CreateFileW((L"\\\\.\\pipe\\" + name).c_str(),
                                                GENERIC_READ | READ_CONTROL, 0, nullptr,
                                                OPEN_EXISTING, 0, nullptr));
    if (!client.valid()) {
        ADD_FAILURE() << "cannot open the pipe: " << ::GetLastError();
        return false;
    }
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR rawDescriptor = nullptr;
    const DWORD read = ::GetSecurityInfo(client.get(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION,
                                         nullptr, nullptr, &dacl, nullptr, &rawDescriptor);
    if (read != ERROR_SUCCESS) {
        ADD_FAILURE() << "GetSecurityInfo: " << read;
        return false;
    }
    const UniqueLocalMemory descriptor(rawDescriptor);
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    ::GetSecurityDescriptorControl(descriptor.get(), &control, &revision);
    *isProtected = (control & SE_DACL_PROTECTED) != 0;
    entries->clear();
    for (DWORD i = 0; dacl != nullptr && i < dacl->AceCount; ++i) {
        void* ace = nullptr;
        if (!::GetAce(dacl, i, &ace)) {
            return false;
        }
        const auto* header = static_cast<ACE_HEADER*>(ace);
        if (header->AceType != ACCESS_ALLOWED_ACE_TYPE) {
            entries->push_back({L"(not an allow entry)", 0});
            continue;
        }
        auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
        wchar_t* text = nullptr;
        ::ConvertSidToStringSidW(&allowed->SidStart, &text);
        const UniqueLocalMemory ownedText(text);
        entries->push_back({text != nullptr ? text : L"?", allowed->Mask});
    }
    return true;
}

struct PipeDacl {
    std::wstring user;  // the current user's SID
    bool isProtected = false;
    std::vector<DaclEntry> entries;
};

// Opens a server end as the current setting makes it and reads its DACL back.
bool ServerEndDacl(const wchar_t* purpose, PipeDacl* dacl) {
    const std::wstring name = UniquePipeName(purpose);
    NamedPipeConnection server;
    server.OpenNewPipe(name.c_str());
    DWORD error = 0;
    if (!CurrentUserSid(&dacl->user, &error)) {
        ADD_FAILURE() << "no SID for the current user: " << error;
        return false;
    }
    return ReadPipeDacl(name, &dacl->isProtected, &dacl->entries);
}

// GENERIC_ALL, or what it maps to for a pipe.
bool GrantsEverything(ACCESS_MASK mask) {
    return mask == GENERIC_ALL || (mask & FILE_ALL_ACCESS) == FILE_ALL_ACCESS;
}

}  // namespace

TEST_F(HardenedPipeTest, OnlyTheCurrentUserAndLocalSystemMayOpenThePipe) {
    PipeDacl dacl;
    ASSERT_TRUE(ServerEndDacl(L"dacl", &dacl));
    EXPECT_TRUE(dacl.isProtected) << "inherited entries could widen it";
    ASSERT_EQ(dacl.entries.size(), 2u);
    EXPECT_EQ(dacl.entries[0].sid, L"S-1-5-18");
    EXPECT_TRUE(GrantsEverything(dacl.entries[0].mask)) << std::hex << dacl.entries[0].mask;
    EXPECT_EQ(dacl.entries[1].sid, dacl.user);
    EXPECT_TRUE(GrantsEverything(dacl.entries[1].mask)) << std::hex << dacl.entries[1].mask;
}

TEST_F(PipeHardeningTest, DefaultPipeKeepsTheDefaultDacl) {
    PipeDacl dacl;
    ASSERT_TRUE(ServerEndDacl(L"default-dacl", &dacl));
    const bool currentUserOnly = dacl.isProtected && dacl.entries.size() == 2 &&
                                 dacl.entries[0].sid == L"S-1-5-18" &&
                                 dacl.entries[1].sid == dacl.user;
    EXPECT_FALSE(currentUserOnly);
}

TEST_F(HardenedPipeTest, StrangerThatConnectsBeforeTheHelperIsTurnedAway) {
    const std::wstring name = UniquePipeName(L"stranger");
    NamedPipeConnection server;
    const std::unique_ptr<Knocker> strangerOwner = OpenWithStrangerIn(server, name);
    ASSERT_TRUE(strangerOwner);
    Knocker& stranger = *strangerOwner;
    // The process the host is waiting for, as the built-in launcher leaves it behind.
    Program helper(L"pipe_stranger.exe", L"client " + name);
    ASSERT_TRUE(helper.Started());
    ASSERT_TRUE(ExpectAsHelper(name, helper));

    server.WaitForConnection();

    EXPECT_EQ(stranger.AwaitExit(), 0u) << "the stranger must be let go without any data";
    std::vector<unsigned char> buffer(16);
    uint32_t length = 16;
    ASSERT_TRUE(server.Receive(buffer.data(), &length));
    ASSERT_EQ(std::string(buffer.begin(), buffer.begin() + length), "hello");
    EXPECT_EQ(server.Send(buffer.data(), length), length);
    EXPECT_EQ(helper.AwaitExit(), 0u);
    EXPECT_TRUE(HasLine(LogOf().Lines(), LogLevelError, kWait,
                        L"Refused a connection from process " + std::to_wstring(stranger.Id()) +
                            L": this pipe serves only the helper process " +
                            std::to_wstring(helper.Id()) + L"."));
}

TEST_F(HardenedPipeTest, HelperThatEndsBeforeConnectingEndsTheWait) {
    const std::wstring name = UniquePipeName(L"gone");
    NamedPipeConnection server;
    const std::unique_ptr<Knocker> strangerOwner = OpenWithStrangerIn(server, name);
    ASSERT_TRUE(strangerOwner);
    Knocker& stranger = *strangerOwner;
    // A "helper" that has already ended: the host must not wait for it for ever.
    Program helper(L"pipe_stranger.exe", L"unknown-mode");
    ASSERT_TRUE(helper.Started());
    ASSERT_EQ(helper.AwaitExit(), 10u);
    ASSERT_TRUE(ExpectAsHelper(name, helper));
    try {
        server.WaitForConnection();
        FAIL() << "the wait went on after the helper had ended";
    } catch (const std::runtime_error& failure) {
        EXPECT_EQ(std::string(failure.what()), "The helper process " + std::to_string(helper.Id()) +
                                                   " ended before it connected.");
    }
    EXPECT_EQ(stranger.AwaitExit(), 0u);
}

TEST_F(PipeHardeningTest, DefaultPipeServesWhoeverConnectsFirst) {
    const std::wstring name = UniquePipeName(L"default-stranger");
    NamedPipeConnection server;
    const std::unique_ptr<Knocker> strangerOwner = OpenWithStrangerIn(server, name);
    ASSERT_TRUE(strangerOwner);
    Knocker& stranger = *strangerOwner;
    server.WaitForConnection();
    const unsigned char oneByte = 'x';
    EXPECT_EQ(server.Send(&oneByte, 1), 1u);
    EXPECT_EQ(stranger.AwaitExit(), 1u) << "the stranger was served";
}

namespace {

// The helper program started as the built-in launcher starts it (the bare pipe name as its
// whole command line), by this process, with the environment of this process.
DWORD RunHelperAgainstStrangerServer(const std::wstring& name, DWORD* serverExit) {
    const Event ready(name + L"-ready");
    Program server(L"pipe_stranger.exe", L"serve " + name + L" " + ready.Name());
    if (!server.Started() || !ready.Await()) {
        ADD_FAILURE() << "the stranger's server did not start";
        return 999;
    }
    Program helper(L"NetWorker64BitClient.exe", name, false);
    if (!helper.Started()) {
        ADD_FAILURE() << "the helper program did not start";
        return 999;
    }
    *serverExit = server.AwaitExit();
    return helper.AwaitExit();
}

}  // namespace

TEST_F(HardenedPipeTest, HelperRefusesToServeAServerThatIsNotItsParent) {
    const ScopedEnvironment starter(kPipeServerProcessVariable,
                                    std::to_wstring(::GetCurrentProcessId()));
    DWORD serverExit = 999;
    const DWORD helperExit =
        RunHelperAgainstStrangerServer(UniquePipeName(L"foreign"), &serverExit);
    EXPECT_EQ(serverExit, 0u) << "the foreign server got a reply";
    EXPECT_EQ(helperExit, 1u) << "the helper's session must end as failed";
}

TEST_F(HardenedPipeTest, HelperRefusesWhenItsStarterIsNotItsParent) {
    // Announced as started by the stranger's server itself, but its parent is this process.
    const std::wstring name = UniquePipeName(L"announced");
    const Event ready(name + L"-ready");
    Program server(L"pipe_stranger.exe", L"serve " + name + L" " + ready.Name());
    ASSERT_TRUE(server.Started());
    ASSERT_TRUE(ready.Await());
    const ScopedEnvironment starter(kPipeServerProcessVariable, std::to_wstring(server.Id()));
    Program helper(L"NetWorker64BitClient.exe", name, false);
    ASSERT_TRUE(helper.Started());
    EXPECT_EQ(server.AwaitExit(), 0u) << "the foreign server got a reply";
    EXPECT_EQ(helper.AwaitExit(), 1u);
}

TEST_F(PipeHardeningTest, DefaultHelperServesWhicheverServerItFinds) {
    DWORD serverExit = 999;
    RunHelperAgainstStrangerServer(UniquePipeName(L"default-foreign"), &serverExit);
    EXPECT_EQ(serverExit, 1u) << "without hardening the helper answers any server";
}

TEST_F(HardenedPipeTest, HelperWithAnUnreadableStarterServesNoOne) {
    const ScopedEnvironment starter(kPipeServerProcessVariable, L"not-a-process");
    DWORD serverExit = 999;
    const DWORD helperExit =
        RunHelperAgainstStrangerServer(UniquePipeName(L"garbled"), &serverExit);
    EXPECT_EQ(serverExit, 0u) << "the server got a reply";
    EXPECT_EQ(helperExit, 1u);
}
