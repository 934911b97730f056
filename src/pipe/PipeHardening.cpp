#include "PipeHardening.h"

#include "common/AsciiText.h"

PipeHardening ParsePipeHardening(const wchar_t* value) {
    if (value == nullptr) {
        return PipeHardening::Off;
    }
    const std::wstring text = KeywordAsTyped(value);
    if (text.empty() || text == L"0" || text == L"false" || text == L"no" || text == L"off") {
        return PipeHardening::Off;
    }
    if (text == L"1" || text == L"true" || text == L"yes" || text == L"on") {
        return PipeHardening::On;
    }
    // A misspelt switch for a security setting errs on the safe side.
    return PipeHardening::Unrecognised;
}

std::wstring CurrentUserOnlyPipeSddl(const std::wstring& userSid) {
    // P: inherited entries never widen it; GA: everything, creating new instances included.
    return L"D:P(A;;GA;;;SY)(A;;GA;;;" + userSid + L")";
}
