// The texts that reach the hardened pipe mode from the environment: the switch's value, the
// server's process id that a launcher hands its helper, and the environment block the launcher
// builds around that id. Each is checked against a plain restatement of what it must do.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/AsciiText.h"
#include "common/EnvironmentBlock.h"
#include "pipe/PipeHardening.h"

namespace {

void Check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// UTF-16 code units, two bytes each (little-endian, from the front of the input, so that the
// dictionary's words appear as they are), as Windows hands out environment strings; a null
// unit becomes '=', which no parser here treats as an end.
std::wstring WideText(FuzzedDataProvider& input, size_t maxUnits) {
    const size_t units = input.ConsumeIntegralInRange<size_t>(0, maxUnits);
    const std::vector<uint8_t> bytes = input.ConsumeBytes<uint8_t>(units * 2);
    std::wstring text;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const auto unit = static_cast<wchar_t>(bytes[i] | bytes[i + 1] << 8);
        text.push_back(unit == L'\0' ? L'=' : unit);
    }
    return text;
}

void CheckPipeHardening(const std::wstring& value) {
    const PipeHardening parsed = ParsePipeHardening(value.c_str());
    // Blanks around the value never change what it means.
    Check(ParsePipeHardening((L" \t" + value + L"\t ").c_str()) == parsed);
    const size_t first = value.find_first_not_of(L" \t");
    std::wstring core = first == std::wstring::npos
                            ? L""
                            : value.substr(first, value.find_last_not_of(L" \t") + 1 - first);
    for (wchar_t& c : core) {
        c = AsciiLower(c);
    }
    PipeHardening expected = PipeHardening::Unrecognised;
    if (core.empty() || core == L"0" || core == L"false" || core == L"no" || core == L"off") {
        expected = PipeHardening::Off;
    } else if (core == L"1" || core == L"true" || core == L"yes" || core == L"on") {
        expected = PipeHardening::On;
    }
    Check(parsed == expected);
    Check(IsHardened(parsed) == (expected != PipeHardening::Off));
}

void CheckProcessId(const std::wstring& text) {
    uint32_t id = 0xDEADBEEF;
    const bool parsed = ParseDecimalUint32(text.c_str(), &id);
    bool digitsOnly = !text.empty();
    for (wchar_t c : text) {
        digitsOnly = digitsOnly && c >= L'0' && c <= L'9';
    }
    if (!digitsOnly) {
        Check(!parsed && id == 0xDEADBEEF);
        return;
    }
    const size_t firstNonZero = text.find_first_not_of(L'0');
    const std::wstring significant =
        firstNonZero == std::wstring::npos ? L"0" : text.substr(firstNonZero);
    const bool fits =
        significant.size() < 10 || (significant.size() == 10 && significant <= L"4294967295");
    Check(parsed == fits);
    if (parsed) {
        Check(std::to_wstring(id) == significant);
    } else {
        Check(id == 0xDEADBEEF);
    }
}

bool NamesVariable(const std::wstring& entry, const std::wstring& name) {
    if (entry.size() <= name.size() || entry[name.size()] != L'=') {
        return false;
    }
    for (size_t i = 0; i < name.size(); ++i) {
        if (AsciiLower(entry[i]) != AsciiLower(name[i])) {
            return false;
        }
    }
    return true;
}

void CheckEnvironmentBlock(FuzzedDataProvider& input) {
    // The name of an environment variable has no '=' and is not empty.
    std::wstring name = WideText(input, 12);
    for (wchar_t& c : name) {
        c = c == L'=' ? L'_' : c;
    }
    if (name.empty()) {
        name = L"NWX_PIPE_SERVER_PROCESS";
    }
    const std::wstring value = WideText(input, 12);
    const bool withCurrent = input.ConsumeBool();
    std::vector<std::wstring> entries;
    for (int i = input.ConsumeIntegralInRange(0, 8); i > 0; --i) {
        std::wstring entry = WideText(input, 24);
        if (entry.empty()) {
            continue;  // an empty entry would end the block
        }
        if (input.ConsumeBool()) {
            // The same variable in another case, as an old value to be replaced.
            std::wstring spelled = name;
            for (wchar_t& c : spelled) {
                c = c >= L'a' && c <= L'z' && input.ConsumeBool()
                        ? static_cast<wchar_t>(c - L'a' + L'A')
                        : c;
            }
            spelled += L'=';
            entry.insert(0, spelled);
        }
        entries.push_back(entry);
    }
    std::wstring current;
    for (const std::wstring& entry : entries) {
        current += entry;
        current.push_back(L'\0');
    }
    current.push_back(L'\0');

    const std::wstring block =
        EnvironmentBlockWith(withCurrent ? current.c_str() : nullptr, name, value);

    std::vector<std::wstring> expected;
    if (withCurrent) {
        for (const std::wstring& entry : entries) {
            if (!NamesVariable(entry, name)) {
                expected.push_back(entry);
            }
        }
    }
    expected.push_back(name + L"=" + value);
    std::wstring expectedBlock;
    for (const std::wstring& entry : expected) {
        expectedBlock += entry;
        expectedBlock.push_back(L'\0');
    }
    expectedBlock.push_back(L'\0');
    Check(block == expectedBlock);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    switch (input.ConsumeIntegralInRange(0, 2)) {
        case 0:
            CheckPipeHardening(WideText(input, 16));
            break;
        case 1:
            CheckProcessId(WideText(input, 16));
            break;
        default:
            CheckEnvironmentBlock(input);
            break;
    }
    return 0;
}
