#pragma once
// INetWorkerExecutor for hosts that keep the XBSA library out of their process: starts
// NetWorker64BitClient.exe and turns every operation into one strictly alternating
// conversation over an INamedPipeConnection. Callback messages from the helper are relayed to
// the host's callback objects on the calling thread and their answers sent back.
//
// Differences a host can see against the in-process executor, all kept on purpose
// (docs/compatibility.md): a closed pipe gives the positive 109 ("positive 109"); a failed
// size lookup gives size 0 and status 0, and *size is left alone when GetFileSize fails
// itself ("failed size lookup through the pipe"); Quit sends nothing ("Quit through the
// pipe").
// Catalog refuses a window whose timeAfter is later than its timeBefore with the same
// std::invalid_argument as the in-process executor, before anything is sent, so the helper's
// session survives it.
// A null fileFound, progress or error callback is tolerated here (the in-process executor
// tolerates a null fileFound and progress): a missing fileFound or progress answers "go on",
// a missing error callback answers 0, which cancels a disk-full retry like any value but 1246.

#include <cstdint>
#include <stdexcept>
#include <string>

#include "common/UniqueLogger.h"
#include "interfaces/INamedPipeConnection.h"
#include "interfaces/INetWorkerExecutor.h"
#include "pipe/PipeMessages.h"

// Starts the helper program for a pipe name; returns 0 or a negative status.
using LaunchClientFunction = long (*)(const wchar_t* pipeName);

class NetWorkerNamedPipeExecutor final : public INetWorkerExecutor {
public:
    // Throws std::runtime_error("Failed to Initialize the logger.") when GetLogger refuses,
    // and std::invalid_argument for a null pipe name, connection or launcher.
    NetWorkerNamedPipeExecutor(const wchar_t* pipeName, INamedPipeConnection* connection,
                               LaunchClientFunction launchClient);
    ~NetWorkerNamedPipeExecutor() override;

    NetWorkerNamedPipeExecutor(const NetWorkerNamedPipeExecutor&) = delete;
    NetWorkerNamedPipeExecutor& operator=(const NetWorkerNamedPipeExecutor&) = delete;

    int32_t Initialize(const char* clientName, const char* serverName) override;
    int32_t Catalog(const FILETIME* timeBefore, const FILETIME* timeAfter,
                    INetWorkerFileFoundCallBack* fileFound,
                    INetWorkerErrorCallBack* error) override;
    int32_t GetFileSize(uint32_t index, bool correctSize, uint64_t* size) override;
    int32_t BeginExtract() override;
    int32_t ExtractFile(uint32_t index, const wchar_t* directory, const wchar_t* fileName,
                        INetWorkerUpdateProgressCallBack* progress,
                        INetWorkerErrorCallBack* error) override;
    int32_t EndExtract() override;
    int32_t Quit() override;

    static constexpr wchar_t kClientProgram[] = L"NetWorker64BitClient.exe";

    // The default launcher (Windows only): CreateProcessW of kClientProgram (bare name, so it
    // is found in the host's current directory) with the pipe name alone as command line.
    static long StartClientProcess(const wchar_t* pipeName);

private:
    // How the conversation of one operation ended.
    enum class ConversationEnd { Final, UnreadableFinal, PipeClosed };
    // What one operation relays to the host. `stopQuestion` is the kind of stop question it
    // expects (IpcTypeFileFound for Catalog, IpcTypeUpdateProgress for ExtractFile; 0 for the
    // operations that expect no question at all, which also refuse error questions).
    struct Relay {
        uint32_t stopQuestion = 0;
        INetWorkerFileFoundCallBack* fileFound = nullptr;
        INetWorkerUpdateProgressCallBack* progress = nullptr;
        INetWorkerErrorCallBack* error = nullptr;
    };

    // Sends one fixed-size message in one write.
    template <typename Message>
    void SendToHelper(const Message& message);
    // Zero-fills m_buffer and receives one message into it, its length into m_replyLength;
    // false when the pipe closed.
    bool ReceiveIntoBuffer();
    // ReceiveIntoBuffer, with the Error line when the pipe closed.
    bool ReceiveReply(const wchar_t* method);
    // Reads the helper's messages until the final one of type `finalType`, answering every
    // question on the way: the host's callback for a readable question of this operation, a
    // refusal for any other. Any other message is logged and read past: the helper is still
    // inside the operation until it sends its final message. `confused` tells whether anything
    // but the operation's own readable messages came. The final message is left in m_buffer.
    ConversationEnd Converse(const wchar_t* method, uint32_t finalType, const Relay& relay,
                             bool* confused);
    // Answers one question with the host's callback; false (nothing sent) when the question is
    // not one this operation relays, or cannot be read.
    bool AnswerQuestion(uint32_t finalType, const Relay& relay);
    bool AnswerErrorQuestion(uint32_t finalType, const Relay& relay);
    // Calls the host's callback for the question of kind `type` through the host-call guard.
    // If the callback does not come back (it throws, whatever compiled it), the conversation is
    // abandoned on the way out, and the exception goes on to the host.
    template <typename Ask>
    auto AskHost(uint32_t type, uint32_t finalType, Ask&& ask) -> decltype(ask());
    // The answer to a question that the host is not asked: "stop" for a file found or a
    // progress report, 1223 (cancelled) for an error question, so that a disk-full question
    // ends the extraction without keeping its file, 0 for an allocation question.
    void SendRefusal(uint32_t type);
    // After a host's callback threw: refuses the question still open and every further one of
    // the operation and reads to its final message, so that the helper ends the operation
    // (ending the transaction or the transfer, deleting an incomplete file) and waits for the
    // next request.
    void AbandonConversation(uint32_t pendingType, uint32_t finalType) noexcept;
    // The status of Catalog's or ExtractFile's conversation: the final message's, 109 for a
    // closed pipe, E_FAIL for a final message it cannot read, and E_FAIL when
    // `failWhenConfused` and the conversation held a message it could not use.
    template <typename Final>
    int32_t RelayedStatus(const wchar_t* method, const Relay& relay, bool failWhenConfused);
    // The reply of a one-reply operation (Initialize, GetFileSize, BeginExtract, EndExtract),
    // or null with the status to return.
    template <typename Reply>
    const Reply* AwaitReply(const wchar_t* method, int32_t* failure);
    // One request answered by one status reply (BeginExtract, EndExtract).
    template <typename Request, typename Reply>
    int32_t StatusConversation(const wchar_t* method);
    int32_t UnexpectedReply(const wchar_t* method, uint32_t expected, uint32_t actual);
    int32_t InvalidMessageType(const wchar_t* method);
    // An argument that cannot travel (null, or too long for its field): E_INVALIDARG.
    int32_t RefuseArgument(const wchar_t* method, const std::logic_error& refused);

    LaunchClientFunction m_launchClient;
    std::wstring m_pipeName;
    INamedPipeConnection* m_connection;  // borrowed: the host frees it after this executor
    UniqueLogger m_log;
    alignas(8) unsigned char m_buffer[kIpcMaxMessageSize];
    uint32_t m_replyLength = 0;
};
