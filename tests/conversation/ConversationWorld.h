#pragma once
// The world that one conversation scenario runs in, for the conversation fault explorer: a
// scripted XBSA server, an in-memory file system, the host's recording callbacks, and a pipe
// that injects one fault into the messages of the operation under test. Both modes run the
// real library: the in-process NetWorkerApiExecutor alone, or the host's
// NetWorkerNamedPipeExecutor against the helper's NetWorkerNamedPipeClient and its own
// NetWorkerApiExecutor over an in-memory pipe. Platform-neutral.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

enum class Operation {
    Initialize,
    Catalog,
    GetFileSizeCatalogued,
    GetFileSizeCorrected,
    BeginExtract,
    ExtractFile,
    EndExtract,
};

// The operation under test, and what the server holds: three objects of 0, 1 and 3 data blocks
// (a Catalog plan may hold 0 or 1 instead).
struct Plan {
    std::string name;
    Operation operation = Operation::Catalog;
    int objects = 3;
    uint32_t index = 0;  // the object that GetFileSize or ExtractFile addresses
};

// The situation the operation meets, the same in both modes.
struct Conditions {
    int xbsaFailsAtCall = -1;  // the operation's n-th XBSA call fails
    int diskFullAtWrite = -1;  // the n-th write of the operation's file fails with 112
    uint32_t diskFullAnswer = 1246;
    int stringsFailAt = -1;  // the n-th catalogue string allocation throws std::bad_alloc
    bool reserveFails = false;
    std::string Name() const;
};

// What the host's callbacks do, counted by callback of the operation (0 = the first).
struct HostFault {
    int throwAt = -1;
    int stopAt = -1;  // a file found or progress callback answers "stop"
    int quitAt = -1;  // Quit from a second thread while that callback runs
    // Reference runs only: what a wire fault turns that callback into.
    int refuseAt = -1;    // the callback is not called; its question is answered with a refusal
    int overrideAt = -1;  // the callback is called, but its answer is replaced by the helper's
                          // reading of an answer it cannot read
    std::string Name() const;
};

// A fault on the pipe, at one message of the operation's conversation (0 = the request).
struct WireFault {
    enum class Kind {
        None,
        WrongSize,     // the message's size field is not its type's
        Stray,         // a message of `strayType` comes first
        Short,         // a 4-byte message comes first (helper's side) or instead (host's answers)
        ReplaceType,   // the host's answer comes as another answer type
        HelperDies,    // the helper's end closes instead of this message
        HostDies,      // the host's end closes instead of this message
        QuitMeanwhile  // the host's Quit from a second thread while this message is on its way
    };
    Kind kind = Kind::None;
    int position = -1;
    uint32_t strayType = 0;
    std::string Name() const;
};

// What a host observes of one operation and of the follow-up after it, and what the helper left.
struct Observation {
    bool finished = true;  // no side waited beyond the time bound
    std::string outcome;   // "status 0x00000000", "status 0x... size N", "exception: ..."
    std::vector<std::string> callbacks;
    std::map<std::wstring, std::string> files;  // the executor's file system afterwards
    size_t openFiles = 0;
    std::vector<std::string> xbsaCalls;  // the operation's own
    std::vector<std::string> followUp;
    std::string stepProblem;  // empty when both sides were in step
    std::string helperFailure;
    bool helperEnded = true;
    // The conversation as it crossed the pipe: "host 4", "helper 5", ...
    std::vector<std::string> conversation;
};

// How an in-process run differs from a plain one.
struct InProcessRun {
    bool skipOperation = false;       // the operation under test is not called
    bool quitBeforeFollowUp = false;  // a Quit between the operation and the follow-up
    int quitAtXbsaCall = -1;          // a Quit from a second thread inside that XBSA call
};

// Runs the plan in process.
Observation RunInProcess(const Plan& plan, const Conditions& conditions, const HostFault& host,
                         const InProcessRun& run = InProcessRun());
// Runs the plan through the helper with the given faults.
Observation RunThroughPipe(const Plan& plan, const Conditions& conditions, const HostFault& host,
                           const WireFault& wire);

// Whether a message type is one of the helper's questions, and the kind of stop question
// an operation relays (0 for none).
uint32_t StopQuestionOf(Operation operation);
uint32_t FinalTypeOf(Operation operation);
