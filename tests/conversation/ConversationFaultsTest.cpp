// The conversation fault explorer: for every operation, every message of its conversation and
// every fault, runs the real host executor against the real helper service and executor over an
// in-memory pipe, runs the in-process executor on the same script as the reference, and checks
//   - no mutual wait: each scenario ends within its time bound, the helper too;
//   - in step: when the host's operation returns, the helper has finished it, and a follow-up
//     (a catalogue, a size, another object's extraction) is served normally;
//   - parity: the host sees the same status, callbacks and exceptions, the same files are left,
//     the same XBSA calls are made (BSAEndData, BSAEndTxn included) and the follow-up gives the
//     same results as in process; where a fault exists only on the pipe, as in process when the
//     host had answered what the helper made of it.
// It prints "conversation faults: N scenarios, V violations" and fails unless V is 0.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "ConversationWorld.h"
#include "RecordingLog.h"
#include "pipe/PipeMessages.h"

namespace {

// What the pipe run must show, measured against its reference run.
enum class Expect {
    SameAsReference,
    Failed,          // E_FAIL instead of the reference's status, all else the same
    RequestRefused,  // the helper answered without running the operation
    HelperGone,      // 109, and 109 for every later operation
    HostGone,        // the helper ended and left what the reference left
};

struct Scenario {
    std::string name;
    Plan plan;
    Conditions conditions;
    HostFault host;
    WireFault wire;
    HostFault reference;
    bool skipInReference = false;
    Expect expect = Expect::SameAsReference;
};

Scenario MakeScenario(const Plan& plan, const Conditions& conditions) {
    Scenario scenario;
    scenario.plan = plan;
    scenario.conditions = conditions;
    return scenario;
}

WireFault Wire(WireFault::Kind kind, int position, uint32_t strayType = 0) {
    WireFault wire;
    wire.kind = kind;
    wire.position = position;
    wire.strayType = strayType;
    return wire;
}

std::vector<Plan> Plans() {
    return {
        {"Initialize", Operation::Initialize, 3, 0},
        {"Catalog of 0 objects", Operation::Catalog, 0, 0},
        {"Catalog of 1 object", Operation::Catalog, 1, 0},
        {"Catalog of 3 objects", Operation::Catalog, 3, 0},
        {"GetFileSize catalogued", Operation::GetFileSizeCatalogued, 3, 2},
        {"GetFileSize corrected", Operation::GetFileSizeCorrected, 3, 2},
        {"BeginExtract", Operation::BeginExtract, 3, 0},
        {"ExtractFile of 0 blocks", Operation::ExtractFile, 3, 0},
        {"ExtractFile of 1 block", Operation::ExtractFile, 3, 1},
        {"ExtractFile of 3 blocks", Operation::ExtractFile, 3, 2},
        {"EndExtract", Operation::EndExtract, 3, 0},
    };
}

uint32_t TypeAt(const std::vector<std::string>& conversation, size_t position) {
    const std::string& entry = conversation[position];
    return static_cast<uint32_t>(std::stoul(entry.substr(entry.find(' ') + 1)));
}

bool FromHost(const std::vector<std::string>& conversation, size_t position) {
    return conversation[position].rfind("host", 0) == 0;
}

// The number of the host's callback that the question at `position` is (the questions before it).
int QuestionNumber(const std::vector<std::string>& conversation, size_t position) {
    int number = 0;
    for (size_t i = 0; i < position; ++i) {
        if (!FromHost(conversation, i) && IpcIsQuestion(TypeAt(conversation, i))) {
            ++number;
        }
    }
    return number;
}

// A question of a kind this operation does not relay, in place of `type`.
uint32_t ForeignQuestion(Operation operation, uint32_t type) {
    const uint32_t other =
        operation == Operation::Catalog ? IpcTypeUpdateProgress : IpcTypeFileFound;
    return type == other ? StopQuestionOf(operation) : other;
}

// The conditions worth running a plan under: none, each XBSA call failing, a full disk at each
// write (answered 1246, 0 or another value), memory running out in the catalogue.
std::vector<Conditions> ConditionsOf(const Plan& plan) {
    std::vector<Conditions> all{Conditions{}};
    const Observation clean = RunInProcess(plan, Conditions{}, HostFault{});
    for (size_t call = 0; call < clean.xbsaCalls.size(); ++call) {
        Conditions failing;
        failing.xbsaFailsAtCall = static_cast<int>(call);
        all.push_back(failing);
    }
    if (plan.operation == Operation::ExtractFile) {
        const int writes = plan.index == 0 ? 0 : plan.index == 1 ? 1 : 3;
        for (int write = 0; write < writes; ++write) {
            for (uint32_t answer : {1246u, 0u, 7u}) {
                Conditions full;
                full.diskFullAtWrite = write;
                full.diskFullAnswer = answer;
                all.push_back(full);
            }
        }
    }
    if (plan.operation == Operation::Catalog) {
        for (int string = 0; string < 3 * plan.objects; string += 3) {
            Conditions memory;
            memory.stringsFailAt = string;
            all.push_back(memory);
        }
        Conditions growth;
        growth.reserveFails = true;
        all.push_back(growth);
    }
    return all;
}

void AddHostFaults(const Plan& plan, const Conditions& conditions,
                   const std::vector<std::string>& conversation, std::vector<Scenario>* out) {
    for (size_t position = 0; position < conversation.size(); ++position) {
        const uint32_t type = TypeAt(conversation, position);
        if (FromHost(conversation, position) || !IpcIsQuestion(type)) {
            continue;
        }
        const int q = QuestionNumber(conversation, position);
        Scenario throws = MakeScenario(plan, conditions);
        throws.host.throwAt = q;
        throws.reference = throws.host;
        out->push_back(throws);
        if (type == IpcTypeFileFound || type == IpcTypeUpdateProgress) {
            Scenario stops = MakeScenario(plan, conditions);
            stops.host.stopAt = q;
            stops.reference = stops.host;
            out->push_back(stops);
        }
        // Quit sends nothing through the pipe: the operation runs as if it had not been called.
        Scenario quits = MakeScenario(plan, conditions);
        quits.host.quitAt = q;
        out->push_back(quits);
    }
}

void AddHelperMessageFaults(const Plan& plan, const Conditions& conditions, size_t position,
                            uint32_t type, int question, std::vector<Scenario>* out) {
    const bool isQuestion = IpcIsQuestion(type);
    const bool catalogOrExtract = StopQuestionOf(plan.operation) != 0;
    const Expect confused =
        plan.operation == Operation::ExtractFile ? Expect::SameAsReference : Expect::Failed;
    const int at = static_cast<int>(position);

    Scenario wrongSize = MakeScenario(plan, conditions);
    wrongSize.wire = Wire(WireFault::Kind::WrongSize, at);
    if (isQuestion) {
        wrongSize.reference.refuseAt = question;  // refused unasked
        wrongSize.expect = confused;
    } else {
        wrongSize.expect = Expect::Failed;  // a final message that cannot be read ends it
    }
    out->push_back(wrongSize);

    if (isQuestion && catalogOrExtract) {
        Scenario foreign = MakeScenario(plan, conditions);
        foreign.wire =
            Wire(WireFault::Kind::ReplaceType, at, ForeignQuestion(plan.operation, type));
        foreign.reference.refuseAt = question;
        foreign.expect = confused;
        out->push_back(foreign);
    }
    const uint32_t otherFinal = FinalTypeOf(plan.operation) == IpcTypeFinishInitialize
                                    ? IpcTypeFinishCatalog
                                    : IpcTypeFinishInitialize;
    for (uint32_t strayType : {otherFinal, 99u}) {
        Scenario stray = MakeScenario(plan, conditions);
        stray.wire = Wire(WireFault::Kind::Stray, at, strayType);
        stray.expect = confused;
        out->push_back(stray);
    }
    Scenario shortMessage = MakeScenario(plan, conditions);
    shortMessage.wire = Wire(WireFault::Kind::Short, at);
    shortMessage.expect = confused;
    out->push_back(shortMessage);

    Scenario dies = MakeScenario(plan, conditions);
    dies.wire = Wire(WireFault::Kind::HelperDies, at);
    dies.expect = Expect::HelperGone;
    out->push_back(dies);
}

void AddHostMessageFaults(const Plan& plan, const Conditions& conditions, size_t position,
                          int answered, std::vector<Scenario>* out) {
    const int at = static_cast<int>(position);
    if (position == 0) {  // the request
        Scenario wrongSize = MakeScenario(plan, conditions);
        wrongSize.wire = Wire(WireFault::Kind::WrongSize, at);
        wrongSize.skipInReference = true;
        // The helper's very first message must be IpcBeginInitialize as sent: it ends otherwise.
        wrongSize.expect =
            plan.operation == Operation::Initialize ? Expect::HelperGone : Expect::RequestRefused;
        out->push_back(wrongSize);
        Scenario dies = MakeScenario(plan, conditions);
        dies.wire = Wire(WireFault::Kind::HostDies, at);
        dies.skipInReference = true;
        dies.expect = Expect::HostGone;
        out->push_back(dies);
        return;
    }
    for (WireFault::Kind kind :
         {WireFault::Kind::WrongSize, WireFault::Kind::ReplaceType, WireFault::Kind::Short}) {
        Scenario unreadable = MakeScenario(plan, conditions);
        unreadable.wire = Wire(kind, at);
        unreadable.reference.overrideAt = answered;  // the helper's reading of it stands
        out->push_back(unreadable);
    }
    Scenario dies = MakeScenario(plan, conditions);
    dies.wire = Wire(WireFault::Kind::HostDies, at);
    dies.reference.throwAt = answered;  // in process the operation ends where the host went
    dies.expect = Expect::HostGone;
    out->push_back(dies);
}

std::vector<Scenario> ScenariosOf(const Plan& plan) {
    std::vector<Scenario> all;
    for (const Conditions& conditions : ConditionsOf(plan)) {
        const Observation clean = RunThroughPipe(plan, conditions, HostFault{}, WireFault{});
        const std::vector<std::string>& conversation = clean.conversation;
        all.push_back(MakeScenario(plan, conditions));
        AddHostFaults(plan, conditions, conversation, &all);
        int lastQuestion = -1;
        for (size_t position = 0; position < conversation.size(); ++position) {
            const uint32_t type = TypeAt(conversation, position);
            if (FromHost(conversation, position)) {
                AddHostMessageFaults(plan, conditions, position, lastQuestion, &all);
            } else {
                if (IpcIsQuestion(type)) {
                    lastQuestion = QuestionNumber(conversation, position);
                }
                AddHelperMessageFaults(plan, conditions, position, type,
                                       QuestionNumber(conversation, position), &all);
            }
            Scenario quit = MakeScenario(plan, conditions);
            quit.wire = Wire(WireFault::Kind::QuitMeanwhile, static_cast<int>(position));
            all.push_back(quit);
        }
    }
    for (Scenario& scenario : all) {
        scenario.name = scenario.plan.name + scenario.conditions.Name() + scenario.host.Name() +
                        scenario.wire.Name();
    }
    return all;
}

// ---------------------------------------------------------------------------------------------

std::string Join(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += (text.empty() ? "" : " | ") + line;
    }
    return text;
}

class Checker {
public:
    explicit Checker(std::vector<std::string>* violations) : m_violations(violations) {}

    void Expect(bool holds, const std::string& scenario, const std::string& what) {
        if (!holds) {
            m_violations->push_back(scenario + ": " + what);
        }
    }

    template <typename T>
    void Same(const T& pipe, const T& reference, const std::string& scenario,
              const std::string& what) {
        Expect(pipe == reference, scenario, what);
    }

private:
    std::vector<std::string>* m_violations;
};

std::string FailedOutcome(const Plan& plan, const std::string& status) {
    const bool size = plan.operation == Operation::GetFileSizeCatalogued ||
                      plan.operation == Operation::GetFileSizeCorrected;
    return "status " + status + (size ? " size 77" : "");
}

// Every extraction ends its data, and a catalogue that began its transaction ends it.
bool XbsaEnded(const Plan& plan, const std::vector<std::string>& calls) {
    if (calls.empty()) {
        return true;  // the operation never ran
    }
    if (plan.operation == Operation::ExtractFile) {
        return !calls.empty() && calls.back() == "BSAEndData";
    }
    if (plan.operation == Operation::Catalog &&
        std::find(calls.begin(), calls.end(), "BSABeginTxn") != calls.end()) {
        return calls.back() == "BSAEndTxn";
    }
    return true;
}

// A lost helper reaches the host as 109 when it is waited for, or as the pipe's exception when a
// request cannot be written to it (kept on purpose: docs/compatibility.md, "positive 109").
bool SeesTheHelperGone(const std::string& outcome) {
    return outcome.find("0x0000006d") != std::string::npos ||
           outcome.find("WriteFile to pipe failed. GetLastError()=232") != std::string::npos;
}

void CheckHelperGone(const Scenario& s, const Observation& pipe, Checker& check) {
    check.Expect(SeesTheHelperGone(pipe.outcome), s.name,
                 "the host should see the lost helper, saw " + pipe.outcome);
    for (size_t i = 0; i < pipe.followUp.size() && i < 6; ++i) {
        check.Expect(SeesTheHelperGone(pipe.followUp[i]), s.name,
                     "after the helper is gone every operation sees it, saw " + pipe.followUp[i]);
    }
}

// What the host sees of the in-process follow-up through the pipe: a failed size lookup is
// size 0 with status 0, the reply has no status (kept on purpose: docs/compatibility.md,
// "failed size lookup through the pipe").
std::vector<std::string> AsThroughThePipe(std::vector<std::string> followUp) {
    for (std::string& line : followUp) {
        if (line.rfind("size 0x8", 0) == 0) {
            line = "size 0x00000000 0";
        }
    }
    return followUp;
}

void CheckScenario(const Scenario& s, Checker& check) {
    const Observation pipe = RunThroughPipe(s.plan, s.conditions, s.host, s.wire);
    check.Expect(pipe.finished, s.name, "the host waited beyond the time bound");
    check.Expect(pipe.helperEnded, s.name, "the helper waited beyond the time bound");
    if (!pipe.finished || !pipe.helperEnded) {
        return;
    }
    check.Expect(pipe.openFiles == 0, s.name, "a file was left open");
    if (s.expect == Expect::HelperGone) {
        CheckHelperGone(s, pipe, check);
        return;
    }
    InProcessRun referenceRun;
    referenceRun.skipOperation = s.skipInReference;
    const Observation reference = RunInProcess(s.plan, s.conditions, s.reference, referenceRun);
    check.Same(pipe.files, reference.files, s.name, "the files left differ from in process");
    // After a host's callback threw, the helper's catalogue still fetches the object after the
    // one it was told to stop at, as after any "stop" answer, where the in-process catalogue
    // fetches nothing more (kept on purpose: docs/compatibility.md, "one more fetch").
    const bool hostWent = s.host.throwAt >= 0 || s.expect == Expect::HostGone;
    const auto comparable = [&](std::vector<std::string> calls) {
        if (hostWent) {
            calls.erase(std::remove(calls.begin(), calls.end(), "BSAGetNextQueryObject"),
                        calls.end());
        }
        return calls;
    };
    check.Same(
        comparable(pipe.xbsaCalls), comparable(reference.xbsaCalls), s.name,
        "XBSA calls differ: " + Join(pipe.xbsaCalls) + " against " + Join(reference.xbsaCalls));
    check.Expect(XbsaEnded(s.plan, pipe.xbsaCalls), s.name, "the XBSA data or transaction is open");
    if (s.expect == Expect::HostGone) {
        // A host gone before the handshake's first message ends the helper's wait for it.
        check.Expect(
            pipe.helperFailure.find("Other end of pipe disconnected") != std::string::npos ||
                pipe.helperFailure == "NamedPipe connection closed " || pipe.helperFailure.empty(),
            s.name, "the helper ended otherwise than on the closed pipe: " + pipe.helperFailure);
        return;
    }
    const bool initializeFailed =
        s.plan.operation == Operation::Initialize && reference.outcome != "status 0x00000000";
    check.Expect(pipe.stepProblem.empty(), s.name, pipe.stepProblem);
    check.Expect(
        pipe.helperFailure.empty() ||
            (initializeFailed && pipe.helperFailure == "INetWorkerExecutor::Initialize failed."),
        s.name, "the helper ended: " + pipe.helperFailure);
    check.Same(
        pipe.callbacks, reference.callbacks, s.name,
        "callbacks differ: " + Join(pipe.callbacks) + " against " + Join(reference.callbacks));
    std::string expected = reference.outcome;
    const bool sizeRequest = s.plan.operation == Operation::GetFileSizeCatalogued ||
                             s.plan.operation == Operation::GetFileSizeCorrected;
    if (sizeRequest && reference.outcome.rfind("status 0x8", 0) == 0) {
        expected = "status 0x00000000 size 0";  // "failed size lookup through the pipe"
    }
    if (s.expect == Expect::Failed) {
        expected = FailedOutcome(s.plan, "0x80004005");
    } else if (s.expect == Expect::RequestRefused) {
        const bool size = s.plan.operation == Operation::GetFileSizeCatalogued ||
                          s.plan.operation == Operation::GetFileSizeCorrected;
        expected = size ? "status 0x00000000 size 0" : "status 0x80004005";
    }
    check.Same(pipe.outcome, expected, s.name,
               "the host saw " + pipe.outcome + ", expected " + expected);
    if (!initializeFailed) {
        const std::vector<std::string> expectedFollowUp = AsThroughThePipe(reference.followUp);
        check.Same(
            pipe.followUp, expectedFollowUp, s.name,
            "the follow-up differs: " + Join(pipe.followUp) + " against " + Join(expectedFollowUp));
    }
}

// In process, a Quit from a second thread at any point: it ends at most this operation, leaves
// no incomplete file and no open XBSA data, and the session goes on as after a Quit between
// operations, or as if nothing happened.
void CheckInProcessQuit(const Plan& plan, const Observation& quit, const std::string& name,
                        Checker& check) {
    const Observation clean = RunInProcess(plan, Conditions{}, HostFault{});
    InProcessRun quitBetween;
    quitBetween.quitBeforeFollowUp = true;
    const Observation pending = RunInProcess(plan, Conditions{}, HostFault{}, quitBetween);
    check.Expect(quit.openFiles == 0, name, "a file was left open");
    for (const auto& file : quit.files) {
        const auto found = clean.files.find(file.first);
        check.Expect(found != clean.files.end() && found->second == file.second, name,
                     "an incomplete file was kept");
    }
    check.Expect(XbsaEnded(plan, quit.xbsaCalls), name, "the XBSA data or transaction is open");
    check.Expect(quit.followUp == clean.followUp || quit.followUp == pending.followUp, name,
                 "the session did not go on after the Quit: " + Join(quit.followUp));
}

int InProcessQuits(Checker& check) {
    int scenarios = 0;
    for (const Plan& plan : Plans()) {
        const Observation clean = RunInProcess(plan, Conditions{}, HostFault{});
        for (size_t call = 0; call < clean.xbsaCalls.size(); ++call) {
            InProcessRun quitInCall;
            quitInCall.quitAtXbsaCall = static_cast<int>(call);
            CheckInProcessQuit(
                plan, RunInProcess(plan, Conditions{}, HostFault{}, quitInCall),
                plan.name + " in process quit-during-xbsa-call-" + std::to_string(call), check);
            ++scenarios;
        }
        for (size_t callback = 0; callback < clean.callbacks.size(); ++callback) {
            HostFault quit;
            quit.quitAt = static_cast<int>(callback);
            CheckInProcessQuit(
                plan, RunInProcess(plan, Conditions{}, quit),
                plan.name + " in process quit-during-callback-" + std::to_string(callback), check);
            ++scenarios;
        }
    }
    return scenarios;
}

TEST(ConversationFaults, EveryFaultAtEveryMessageKeepsBothSidesInStepAndAlike) {
    std::vector<std::string> violations;
    Checker check(&violations);
    size_t scenarios = 0;
    for (const Plan& plan : Plans()) {
        for (const Scenario& scenario : ScenariosOf(plan)) {
            CheckScenario(scenario, check);
            ++scenarios;
            TestLoggers::Reset();
        }
    }
    scenarios += static_cast<size_t>(InProcessQuits(check));
    std::printf("conversation faults: %zu scenarios, %zu violations\n", scenarios,
                violations.size());
    for (size_t i = 0; i < violations.size() && i < 60; ++i) {
        std::printf("  %s\n", violations[i].c_str());
    }
    if (const char* all = std::getenv("NWX_EXPLORER_ALL_VIOLATIONS")) {
        if (FILE* out = std::fopen(all, "w")) {
            for (const std::string& violation : violations) {
                std::fprintf(out, "%s\n", violation.c_str());
            }
            std::fclose(out);
        }
    }
    EXPECT_GT(scenarios, 1000u);
    EXPECT_EQ(violations.size(), 0u);
}

}  // namespace
