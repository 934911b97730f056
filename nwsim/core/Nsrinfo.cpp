#include "Nsrinfo.h"

#include <cctype>
#include <cstdio>

namespace nwsim {

namespace {

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

std::string ObjectLine(const CatalogueObject& o, const std::string& sizeText) {
    return o.objectSpace + ":" + o.path + ", date=" + FormatDateTime(o.createTime) + ", " +
           sizeText + ", off=0, app=" + o.appOwner + ", copyid=" + std::to_string(o.copyId) +
           ", resource=" + o.resourceType + ", status=" + std::to_string(o.objectStatus) + "\r\n";
}

}  // namespace

std::vector<std::string> SplitCommandLine(std::string_view line) {
    std::vector<std::string> words;
    size_t i = 0;
    while (true) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) {
            ++i;
        }
        if (i >= line.size()) {
            break;
        }
        std::string word;
        bool quoted = false;
        while (i < line.size()) {
            const char c = line[i];
            if (!quoted && (c == ' ' || c == '\t')) {
                break;
            }
            if (c == '\\') {
                size_t count = 0;
                while (i < line.size() && line[i] == '\\') {
                    ++count;
                    ++i;
                }
                if (i < line.size() && line[i] == '"') {
                    word.append(count / 2, '\\');
                    if (count % 2 == 1) {
                        word += '"';
                        ++i;
                    }
                } else {
                    word.append(count, '\\');
                }
                continue;
            }
            if (c == '"') {
                if (quoted && i + 1 < line.size() && line[i + 1] == '"') {
                    word += '"';
                    i += 2;
                    continue;
                }
                quoted = !quoted;
                ++i;
                continue;
            }
            word += c;
            ++i;
        }
        words.push_back(std::move(word));
    }
    return words;
}

bool ParseNsrinfoArguments(const std::vector<std::string>& words, NsrinfoRequest& out,
                           std::string& error) {
    out = NsrinfoRequest();
    size_t i = 0;
    if (!words.empty() && (words[0].empty() || words[0][0] != '-')) {
        i = 1;  // the program name
    }
    std::vector<std::string> positional;
    for (; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word == "-v" || word == "-V") {
            continue;
        }
        if (word == "-s" || word == "-n" || word == "-N") {
            if (i + 1 >= words.size()) {
                error = "option " + word + " needs a value";
                return false;
            }
            const std::string& value = words[++i];
            (word == "-s" ? out.server : word == "-n" ? out.nameSpace : out.name) = value;
            continue;
        }
        if (!word.empty() && word[0] == '-') {
            error = "unknown option " + word;
            return false;
        }
        positional.push_back(word);
    }
    if (positional.size() != 1) {
        error = "expected exactly one client name";
        return false;
    }
    out.client = positional[0];
    if (out.server.empty()) {
        error = "missing -s server";
        return false;
    }
    if (out.name.empty()) {
        error = "missing -N name";
        return false;
    }
    return true;
}

const CatalogueObject* FindNsrinfoObject(const Catalogue& catalogue,
                                         const NsrinfoRequest& request) {
    const CatalogueObject* best = nullptr;
    for (const CatalogueObject& o : catalogue.objects) {
        if (o.objectSpace.size() + 1 + o.path.size() != request.name.size() ||
            request.name.compare(0, o.objectSpace.size(), o.objectSpace) != 0 ||
            request.name[o.objectSpace.size()] != ':' ||
            request.name.compare(o.objectSpace.size() + 1, std::string::npos, o.path) != 0) {
            continue;
        }
        if (!request.nameSpace.empty() && !EqualsIgnoringCase(request.nameSpace, o.appOwner)) {
            continue;
        }
        if (IsPreferredCopy(o, best)) {
            best = &o;
        }
    }
    return best;
}

std::string FormatNsrinfoOutput(const CatalogueObject& object, const NsrinfoRequest& request,
                                NsrinfoOutput mode) {
    if (mode == NsrinfoOutput::Empty) {
        return std::string();
    }
    const std::string header = "scanning client `" + request.client +
                               "' for all savetimes from the " +
                               (request.nameSpace.empty() ? "backup" : request.nameSpace) +
                               " namespace on server " + request.server + "\r\n";
    std::string sizeText = "size=" + std::to_string(object.size);
    if (mode == NsrinfoOutput::Spaced) {
        sizeText = "size = " + std::to_string(object.size);
    } else if (mode == NsrinfoOutput::LongValue) {
        char digits[32];
        std::snprintf(digits, sizeof(digits), "size=%020llu",
                      static_cast<unsigned long long>(object.size));
        sizeText = digits;
    }
    std::string text = header;
    if (mode == NsrinfoOutput::Late) {
        // Padding lines without the marker push it past the first 1,024 bytes.
        while (text.size() <= 1100) {
            text += "volume pool Default, media type file, status ok, no savetime marker here\r\n";
        }
    }
    text += ObjectLine(object, sizeText);
    text += "1 objects found\r\n";
    if (mode == NsrinfoOutput::Flood) {
        // More than any pipe buffer: 1 MiB of trailing detail lines.
        const std::string filler =
            "    detail: block map entry, fragment ok, checksum verified, no errors reported\r\n";
        while (text.size() < 1048576) {
            text += filler;
        }
    }
    return text;
}

}  // namespace nwsim
