// NamedPipeConnection between this process and pipe_peer.exe over real named pipes.

#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "RecordingLog.h"
#include "RecordingLoggersTest.h"
#include "common/UniqueHandle.h"
#include "pipe/NamedPipeConnection.h"

namespace {

constexpr DWORD kPeerWaitMilliseconds = 30000;  // a guard against a hung peer, not a timing

std::wstring UniqueName(const wchar_t* purpose) {
    static int counter = 0;
    return L"nwx-pipe-test-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
           std::to_wstring(++counter) + L"-" + purpose;
}

std::wstring PeerPath() {
    wchar_t path[MAX_PATH];
    const DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring self(path, length);
    return self.substr(0, self.find_last_of(L"\\/") + 1) + L"pipe_peer.exe";
}

// pipe_peer.exe running one mode; it signals a named event at its agreed point.
class Peer {
public:
    Peer(const std::string& mode, const std::wstring& pipeName, const std::string& extra = "") {
        const std::wstring eventName = pipeName + L"-event";
        m_event.reset(::CreateEventW(nullptr, TRUE, FALSE, eventName.c_str()));
        std::wstring commandLine = L"\"" + PeerPath() + L"\" " +
                                   std::wstring(mode.begin(), mode.end()) + L" " + pipeName + L" " +
                                   eventName;
        if (!extra.empty()) {
            commandLine += L" " + std::wstring(extra.begin(), extra.end());
        }
        STARTUPINFOW startup = {};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION process = {};
        if (::CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                             &startup, &process) != FALSE) {
            m_process.reset(process.hProcess);
            const UniqueHandle thread(process.hThread);
        }
    }

    bool Started() const { return m_process.valid() && m_event.valid(); }
    bool AwaitSignal() const {
        return ::WaitForSingleObject(m_event.get(), kPeerWaitMilliseconds) == WAIT_OBJECT_0;
    }
    // The peer's exit code, or 999 when it did not end.
    DWORD AwaitExit() const {
        if (::WaitForSingleObject(m_process.get(), kPeerWaitMilliseconds) != WAIT_OBJECT_0) {
            ::TerminateProcess(m_process.get(), 998);
            return 999;
        }
        DWORD code = 0;
        ::GetExitCodeProcess(m_process.get(), &code);
        return code;
    }

private:
    UniqueHandle m_event;
    UniqueHandle m_process;
};

std::vector<unsigned char> Pattern(size_t size, unsigned char seed) {
    std::vector<unsigned char> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(seed + i);
    }
    return bytes;
}

std::vector<unsigned char> Quit() {
    return {'q', 'u', 'i', 't'};
}

void SendBytes(NamedPipeConnection& connection, const std::vector<unsigned char>& bytes) {
    EXPECT_EQ(connection.Send(bytes.data(), static_cast<uint32_t>(bytes.size())), bytes.size());
}

std::vector<unsigned char> ReceiveBytes(NamedPipeConnection& connection) {
    std::vector<unsigned char> buffer(4108);
    uint32_t length = 4108;
    EXPECT_TRUE(connection.Receive(buffer.data(), &length));
    buffer.resize(length);
    return buffer;
}

template <typename Operation>
std::string ThrownText(Operation operation) {
    try {
        operation();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "(nothing thrown)";
}

const wchar_t kReceive[] = L"NamedPipeConnection::Receive";
const wchar_t kSend[] = L"NamedPipeConnection::Send";
const wchar_t kOpenExisting[] = L"NamedPipeConnection::OpenExisting";
const wchar_t kOpenNewPipe[] = L"NamedPipeConnection::OpenNewPipe";
const wchar_t kWait[] = L"NamedPipeConnection::WaitForConnection";
const wchar_t kNotConnected[] = L"NamedPipeConnection::ThrowIfPipeNotConnected";
const wchar_t kClosePipe[] = L"NamedPipeConnection::ClosePipe";

class NamedPipeConnectionTest : public RecordingLoggersTest {
protected:
    // The connection's own logger (the latest one handed out under its class name).
    static RecordingLog& LogOf() { return LatestLog(L"NamedPipeConnection"); }

    // Opens `server` as a new pipe and connects an echoing pipe_peer.exe that has finished
    // opening its end; "quit" ends the peer.
    static std::unique_ptr<Peer> ConnectEchoPeer(NamedPipeConnection& server,
                                                 const wchar_t* purpose) {
        const std::wstring name = UniqueName(purpose);
        server.OpenNewPipe(name.c_str());
        auto peer = std::make_unique<Peer>("client-echo", name);
        EXPECT_TRUE(peer->Started());
        server.WaitForConnection();
        EXPECT_TRUE(peer->AwaitSignal());
        return peer;
    }

    // Starts a pipe_peer.exe server ("disconnect"/"close" and the sizes of the messages it
    // writes) and opens `client` on it.
    static std::unique_ptr<Peer> OpenOnServerPeer(NamedPipeConnection& client,
                                                  const wchar_t* purpose,
                                                  const std::string& script) {
        const std::wstring name = UniqueName(purpose);
        auto peer = std::make_unique<Peer>("server", name, script);
        EXPECT_TRUE(peer->Started());
        EXPECT_TRUE(peer->AwaitSignal());
        client.OpenExisting(name.c_str(), 10000);
        return peer;
    }
};

}  // namespace

TEST_F(NamedPipeConnectionTest, ConstructorThrowsWhenTheLoggerIsRefused) {
    TestLoggers::FailNames({L"NamedPipeConnection"});
    EXPECT_EQ(ThrownText([] { NamedPipeConnection connection; }),
              "Failed to Initialize the logger.");
}

TEST_F(NamedPipeConnectionTest, ReceiveBeforeOpenThrowsWithOneErrorLine) {
    NamedPipeConnection connection;
    RecordingLog& log = LogOf();
    unsigned char buffer[16];
    uint32_t length = sizeof buffer;
    EXPECT_EQ(ThrownText([&] { connection.Receive(buffer, &length); }),
              "Named pipe is not connected!");
    const std::vector<LogLine> expected = {
        {LogLevelTrace, kReceive, L"Method Start"},
        {LogLevelTrace, kNotConnected, L"Method Start"},
        {LogLevelError, kNotConnected, L"Named pipe is not connected!"},
    };
    EXPECT_EQ(log.Lines(), expected);
    EXPECT_EQ(length, sizeof buffer);
}

TEST_F(NamedPipeConnectionTest, SendAndWaitBeforeOpenThrow) {
    NamedPipeConnection connection;
    RecordingLog& log = LogOf();
    const unsigned char byte = 1;
    EXPECT_EQ(ThrownText([&] { connection.Send(&byte, 1); }), "Named pipe is not connected!");
    EXPECT_EQ(log.LinesAt(LogLevelError).size(), 1u);
    EXPECT_EQ(log.LinesAt(LogLevelError)[0].method, kNotConnected);
    EXPECT_FALSE(HasLine(log.Lines(), LogLevelTrace, kSend, L"Method End"));
    log.Clear();
    EXPECT_EQ(ThrownText([&] { connection.WaitForConnection(); }), "Named pipe is not connected!");
    EXPECT_FALSE(HasLine(log.Lines(), LogLevelTrace, kWait, L"Method End"));
}

TEST_F(NamedPipeConnectionTest, OpenExistingOfAMissingPipeFailsAtOnce) {
    NamedPipeConnection connection;
    RecordingLog& log = LogOf();
    EXPECT_EQ(ThrownText([&] { connection.OpenExisting(UniqueName(L"missing").c_str(), 10000); }),
              "Could not open pipe. GetLastError()=2");
    const std::vector<LogLine> expected = {
        {LogLevelTrace, kOpenExisting, L"Method Start"},
        {LogLevelError, kOpenExisting, L"Could not open pipe. GetLastError()=2"},
    };
    EXPECT_EQ(log.Lines(), expected);
}

TEST_F(NamedPipeConnectionTest, RefusedMessageModeClosesThePipeBeforeTheErrorLine) {
    // A byte-mode server end: the client cannot switch its end to message reads.
    const std::wstring name = UniqueName(L"bytemode");
    const UniqueFileHandle byteServer(::CreateNamedPipeW(
        (L"\\\\.\\pipe\\" + name).c_str(), PIPE_ACCESS_DUPLEX,
        PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1, 2048, 2048, 0, nullptr));
    ASSERT_TRUE(byteServer.valid());
    NamedPipeConnection client;
    RecordingLog& log = LogOf();
    EXPECT_EQ(ThrownText([&] { client.OpenExisting(name.c_str(), 10000); }),
              "SetNamedPipeHandleState failed. GetLastError()=87");  // ERROR_INVALID_PARAMETER
    // Closed first, whatever the logger then does.
    const std::vector<LogLine> expected = {
        {LogLevelTrace, kOpenExisting, L"Method Start"},
        {LogLevelTrace, kClosePipe, L"Method Start"},
        {LogLevelTrace, kClosePipe, L"Method End"},
        {LogLevelError, kOpenExisting, L"SetNamedPipeHandleState failed. GetLastError()=87"},
    };
    EXPECT_EQ(log.Lines(), expected);
    const unsigned char byte = 0;
    EXPECT_EQ(ThrownText([&] { client.Send(&byte, 1); }), "Named pipe is not connected!");
}

TEST_F(NamedPipeConnectionTest, ServerEndExchangesMessagesAsMessages) {
    NamedPipeConnection server;
    RecordingLog& log = LogOf();
    const auto peer = ConnectEchoPeer(server, L"echo");
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelDebug, kWait, L"Waiting to ConnectNamedPipe..."));
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelDebug, kWait, L"ConnectNamedPipe completed"));
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelTrace, kWait, L"Method End"));

    // Three writes before any read: each comes back as its own message.
    const auto small = Pattern(8, 1);
    const auto medium = Pattern(518, 2);
    const auto largest = Pattern(4108, 3);
    SendBytes(server, small);
    SendBytes(server, medium);
    SendBytes(server, largest);
    EXPECT_EQ(ReceiveBytes(server), small);
    EXPECT_EQ(ReceiveBytes(server), medium);
    EXPECT_EQ(ReceiveBytes(server), largest);

    // The peer closes its end without more: the server's read reports it closed.
    SendBytes(server, Quit());
    unsigned char buffer[64];
    uint32_t length = 33;
    EXPECT_FALSE(server.Receive(buffer, &length));
    EXPECT_EQ(length, 33u);
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelInfo, kReceive, L"The pipe has been disconnected."));
    EXPECT_EQ(peer->AwaitExit(), 0u);
    EXPECT_TRUE(log.LinesAt(LogLevelError).empty());
}

TEST_F(NamedPipeConnectionTest, ClientConnectingBeforeWaitForConnectionIsAccepted) {
    const std::wstring name = UniqueName(L"early");
    NamedPipeConnection server;
    RecordingLog& log = LogOf();
    server.OpenNewPipe(name.c_str());
    Peer peer("client-echo", name);
    ASSERT_TRUE(peer.Started());
    ASSERT_TRUE(peer.AwaitSignal());  // the peer has opened the pipe: ConnectNamedPipe sees 535
    server.WaitForConnection();
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelDebug, kWait, L"ConnectNamedPipe completed"));
    SendBytes(server, Pattern(12, 9));
    EXPECT_EQ(ReceiveBytes(server), Pattern(12, 9));
    SendBytes(server, Quit());
    EXPECT_EQ(peer.AwaitExit(), 0u);
}

TEST_F(NamedPipeConnectionTest, MessageLongerThanTheBufferFailsWithMoreData) {
    NamedPipeConnection server;
    RecordingLog& log = LogOf();
    const auto peer = ConnectEchoPeer(server, L"moredata");
    SendBytes(server, Pattern(100, 0));
    unsigned char buffer[50];
    uint32_t length = sizeof buffer;
    EXPECT_EQ(ThrownText([&] { server.Receive(buffer, &length); }),
              "ReadFile from pipe failed. GetLastError()=234");
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelError, kReceive,
                        L"ReadFile from pipe failed. GetLastError()=234"));
    EXPECT_FALSE(HasLine(log.Lines(), LogLevelTrace, kReceive, L"Method End"));
    server.ClosePipe();
    EXPECT_EQ(peer->AwaitExit(), 0u);
}

TEST_F(NamedPipeConnectionTest, ClientSeesAServerDisconnectAsClosed) {
    NamedPipeConnection client;
    RecordingLog& log = LogOf();
    const auto peer = OpenOnServerPeer(client, L"disconnect", "disconnect 12 4108");
    EXPECT_EQ(ReceiveBytes(client), Pattern(12, 0));
    EXPECT_EQ(ReceiveBytes(client), Pattern(4108, 0));
    unsigned char buffer[4108];
    uint32_t length = 77;
    EXPECT_FALSE(client.Receive(buffer, &length));  // 233 after flush + disconnect + close
    EXPECT_EQ(length, 77u);
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelInfo, kReceive, L"The pipe has been disconnected."));
    EXPECT_TRUE(log.LinesAt(LogLevelError).empty());
    EXPECT_EQ(peer->AwaitExit(), 0u);
}

TEST_F(NamedPipeConnectionTest, ClientSeesAServerThatOnlyClosesAsClosed) {
    NamedPipeConnection client;
    RecordingLog& log = LogOf();
    const auto peer = OpenOnServerPeer(client, L"close", "close 20");
    EXPECT_EQ(ReceiveBytes(client), Pattern(20, 0));
    unsigned char buffer[4108];
    uint32_t length = 5;
    EXPECT_FALSE(client.Receive(buffer, &length));  // 109
    EXPECT_EQ(length, 5u);
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelInfo, kReceive, L"The pipe has been disconnected."));
    EXPECT_EQ(peer->AwaitExit(), 0u);
}

TEST_F(NamedPipeConnectionTest, WaitForConnectionOnAClientEndReturnsAtOnce) {
    NamedPipeConnection client;
    RecordingLog& log = LogOf();
    const auto peer = OpenOnServerPeer(client, L"clientwait", "disconnect 8");
    log.Clear();
    client.WaitForConnection();
    const std::vector<LogLine> expected = {
        {LogLevelTrace, kWait, L"Method Start"},
        {LogLevelTrace, kNotConnected, L"Method Start"},
        {LogLevelTrace, kNotConnected, L"Method End"},
        {LogLevelInfo, kWait, L"Pipe already open.  Using existing pipe"},
        {LogLevelTrace, kWait, L"Method End"},
    };
    EXPECT_EQ(log.Lines(), expected);
    EXPECT_EQ(ReceiveBytes(client), Pattern(8, 0));
    EXPECT_EQ(peer->AwaitExit(), 0u);
}

TEST_F(NamedPipeConnectionTest, SecondOpenExistingIsRefusedAndKeepsTheFirstPipe) {
    NamedPipeConnection client;
    RecordingLog& log = LogOf();
    const auto peer = OpenOnServerPeer(client, L"twice", "disconnect 16");
    EXPECT_EQ(ThrownText([&] { client.OpenExisting(UniqueName(L"other").c_str(), 10000); }),
              "Pipe has already been opened!");
    EXPECT_TRUE(
        HasLine(log.Lines(), LogLevelError, kOpenExisting, L"Pipe has already been opened!"));
    EXPECT_EQ(ReceiveBytes(client), Pattern(16, 0));
    EXPECT_EQ(peer->AwaitExit(), 0u);
}

TEST_F(NamedPipeConnectionTest, ClosePipeTwiceDoesNothingTheSecondTime) {
    NamedPipeConnection server;
    RecordingLog& log = LogOf();
    const auto peer = ConnectEchoPeer(server, L"closetwice");
    server.ClosePipe();
    EXPECT_EQ(peer->AwaitExit(), 0u);  // the peer's read failed: the server end is gone
    log.Clear();
    server.ClosePipe();
    const std::vector<LogLine> expected = {
        {LogLevelTrace, kClosePipe, L"Method Start"},
        {LogLevelTrace, kClosePipe, L"Method End"},
    };
    EXPECT_EQ(log.Lines(), expected);
    const unsigned char byte = 0;
    EXPECT_EQ(ThrownText([&] { server.Send(&byte, 1); }), "Named pipe is not connected!");
}

TEST_F(NamedPipeConnectionTest, ClosedConnectionCanBeOpenedAgain) {
    const std::wstring first = UniqueName(L"again1");
    const std::wstring second = UniqueName(L"again2");
    NamedPipeConnection server;
    server.OpenNewPipe(first.c_str());
    server.ClosePipe();
    server.OpenNewPipe(second.c_str());
    Peer peer("client-echo", second);
    ASSERT_TRUE(peer.Started());
    server.WaitForConnection();
    SendBytes(server, Pattern(3, 3));
    EXPECT_EQ(ReceiveBytes(server), Pattern(3, 3));
    SendBytes(server, Quit());
    EXPECT_EQ(peer.AwaitExit(), 0u);
}

TEST_F(NamedPipeConnectionTest, SendToAPeerThatHasGoneFails) {
    NamedPipeConnection server;
    RecordingLog& log = LogOf();
    const auto peer = ConnectEchoPeer(server, L"gone");
    SendBytes(server, Quit());
    EXPECT_EQ(peer->AwaitExit(), 0u);
    const auto bytes = Pattern(10, 0);
    const std::string text = ThrownText([&] { server.Send(bytes.data(), 10); });
    EXPECT_EQ(text, "WriteFile to pipe failed. GetLastError()=232");  // ERROR_NO_DATA
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelError, kSend, std::wstring(text.begin(), text.end())));
}

TEST_F(NamedPipeConnectionTest, BusyPipeIsWaitedForUnderItsBareName) {
    const std::wstring name = UniqueName(L"busy");
    Peer peer("server-busy", name);
    ASSERT_TRUE(peer.Started());
    ASSERT_TRUE(peer.AwaitSignal());
    // Take the only instance.
    UniqueFileHandle first(::CreateFileW((L"\\\\.\\pipe\\" + name).c_str(),
                                         GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0,
                                         nullptr));
    ASSERT_TRUE(first.valid());
    NamedPipeConnection client;
    RecordingLog& log = LogOf();
    // CreateFileW reports 231; the wait is then made for the bare name, which names no pipe,
    // so it fails and the open gives up.
    const std::string text = ThrownText([&] { client.OpenExisting(name.c_str(), 10000); });
    EXPECT_EQ(text, "Could not open pipe: timed out.");
    EXPECT_TRUE(
        HasLine(log.Lines(), LogLevelError, kOpenExisting, L"Could not open pipe: timed out."));
    DWORD written = 0;
    ASSERT_TRUE(::WriteFile(first.get(), "quit", 4, &written, nullptr));
    EXPECT_EQ(peer.AwaitExit(), 0u);
}

TEST_F(NamedPipeConnectionTest, ClientThatAlreadyLeftFailsWaitForConnection) {
    const std::wstring name = UniqueName(L"left");
    NamedPipeConnection server;
    RecordingLog& log = LogOf();
    server.OpenNewPipe(name.c_str());
    Peer peer("client-open-close", name);
    ASSERT_TRUE(peer.Started());
    ASSERT_TRUE(peer.AwaitSignal());
    const std::string text = ThrownText([&] { server.WaitForConnection(); });
    EXPECT_EQ(
        text,
        "Something bad happened while waiting for a connection on the pipe. GetLastError()=232");
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelDebug, kWait, L"ConnectNamedPipe completed"));
    EXPECT_TRUE(HasLine(log.Lines(), LogLevelTrace, kClosePipe, L"Method End"));
    // The server end was closed before the throw.
    const unsigned char byte = 0;
    EXPECT_EQ(ThrownText([&] { server.Send(&byte, 1); }), "Named pipe is not connected!");
    EXPECT_EQ(peer.AwaitExit(), 0u);
}

TEST_F(NamedPipeConnectionTest, PipeWithoutAFreeInstanceFailsToCreate) {
    const std::wstring name = UniqueName(L"full");
    Peer peer("server-busy", name);  // created with room for one instance only
    ASSERT_TRUE(peer.Started());
    ASSERT_TRUE(peer.AwaitSignal());
    NamedPipeConnection server;
    RecordingLog& log = LogOf();
    const std::string text = ThrownText([&] { server.OpenNewPipe(name.c_str()); });
    EXPECT_EQ(text, "Failed to create new pipe. GetLastError()=231");  // ERROR_PIPE_BUSY
    EXPECT_TRUE(
        HasLine(log.Lines(), LogLevelError, kOpenNewPipe, std::wstring(text.begin(), text.end())));
    EXPECT_FALSE(HasLine(log.Lines(), LogLevelTrace, kOpenNewPipe, L"Method End"));
    // Let the peer go: connect and say quit.
    NamedPipeConnection client;
    client.OpenExisting(name.c_str(), 10000);
    const std::vector<unsigned char> quit = {'q', 'u', 'i', 't'};
    client.Send(quit.data(), 4);
    EXPECT_EQ(peer.AwaitExit(), 0u);
}
