#include "Catalogue.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <system_error>

namespace nwsim {

namespace {

constexpr size_t kFieldCount = 16;

bool IsLeapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int DaysInMonth(int year, int month) {
    static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return (month == 2 && IsLeapYear(year)) ? 29 : kDays[month - 1];
}

// Days since 1970-01-01 of a proleptic Gregorian date.
int64_t DaysFromCivil(int year, int month, int day) {
    year -= month <= 2 ? 1 : 0;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

bool ParseDigits(std::string_view text, int& out) {
    if (text.empty()) {
        return false;
    }
    int value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + (c - '0');
    }
    out = value;
    return true;
}

bool ParseUnsigned(std::string_view text, uint64_t& out) {
    if (text.empty() || text.size() > 20) {
        return false;
    }
    uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        const uint64_t digit = static_cast<uint64_t>(c - '0');
        if (value > (UINT64_MAX - digit) / 10) {
            return false;
        }
        value = value * 10 + digit;
    }
    out = value;
    return true;
}

bool ParseUnsigned32(std::string_view text, uint32_t& out) {
    uint64_t value = 0;
    if (!ParseUnsigned(text, value) || value > UINT32_MAX) {
        return false;
    }
    out = static_cast<uint32_t>(value);
    return true;
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return -1;
}

std::string FormatContent(const ContentSource& content) {
    if (content.kind == ContentSource::Kind::File) {
        return "file:" + EscapeField(content.fileName);
    }
    return "synthetic:" + std::to_string(content.seed);
}

bool ParseContent(std::string_view text, ContentSource& out) {
    if (text.substr(0, 10) == "synthetic:") {
        out.kind = ContentSource::Kind::Synthetic;
        out.fileName.clear();
        return ParseUnsigned(text.substr(10), out.seed);
    }
    if (text.substr(0, 5) == "file:") {
        out.kind = ContentSource::Kind::File;
        out.seed = 0;
        return UnescapeField(text.substr(5), out.fileName) && !out.fileName.empty();
    }
    return false;
}

}  // namespace

bool ParseDateTime(std::string_view text, CivilDateTime& out) {
    // YYYY-MM-DD HH:MM:SS
    if (text.size() != 19 || text[4] != '-' || text[7] != '-' || text[10] != ' ' ||
        text[13] != ':' || text[16] != ':') {
        return false;
    }
    CivilDateTime t;
    if (!ParseDigits(text.substr(0, 4), t.year) || !ParseDigits(text.substr(5, 2), t.month) ||
        !ParseDigits(text.substr(8, 2), t.day) || !ParseDigits(text.substr(11, 2), t.hour) ||
        !ParseDigits(text.substr(14, 2), t.minute) || !ParseDigits(text.substr(17, 2), t.second)) {
        return false;
    }
    if (t.year < 1900 || t.month < 1 || t.month > 12 || t.day < 1 ||
        t.day > DaysInMonth(t.year, t.month) || t.hour > 23 || t.minute > 59 || t.second > 59) {
        return false;
    }
    out = t;
    return true;
}

std::string FormatDateTime(const CivilDateTime& time) {
    char text[32];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month,
                  time.day, time.hour, time.minute, time.second);
    return text;
}

int DayOfWeek(const CivilDateTime& time) {
    const int64_t days = DaysFromCivil(time.year, time.month, time.day);
    // 1970-01-01 was a Thursday.
    return static_cast<int>(((days % 7) + 7 + 4) % 7);
}

int DayOfYear(const CivilDateTime& time) {
    return static_cast<int>(DaysFromCivil(time.year, time.month, time.day) -
                            DaysFromCivil(time.year, 1, 1));
}

std::string EscapeField(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
            case '%':
                out += "%25";
                break;
            case '\t':
                out += "%09";
                break;
            case '\r':
                out += "%0D";
                break;
            case '\n':
                out += "%0A";
                break;
            default:
                out += c;
                break;
        }
    }
    return out;
}

bool UnescapeField(std::string_view text, std::string& out) {
    out.clear();
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        if (i + 2 >= text.size()) {
            return false;
        }
        const int high = HexValue(text[i + 1]);
        const int low = HexValue(text[i + 2]);
        if (high < 0 || low < 0) {
            return false;
        }
        out += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return true;
}

std::string FormatCatalogueLine(const CatalogueObject& o) {
    std::string line;
    line.reserve(256);
    auto add = [&line](const std::string& field) {
        line += field;
        line += '\t';
    };
    add(std::to_string(o.id));
    add(EscapeField(o.bsaOwner));
    add(EscapeField(o.appOwner));
    add(EscapeField(o.objectSpace));
    add(EscapeField(o.path));
    add(EscapeField(o.resourceType));
    add(FormatDateTime(o.createTime));
    add(std::to_string(o.copyType));
    add(std::to_string(o.copyId));
    add(std::to_string(o.restoreOrder));
    add(std::to_string(o.size));
    add(std::to_string(o.objectType));
    add(std::to_string(o.objectStatus));
    add(EscapeField(o.objectInfo));
    add(EscapeField(o.description));
    line += FormatContent(o.content);
    return line;
}

bool ParseCatalogueLine(std::string_view line, CatalogueObject& out, std::string& error) {
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    std::string_view fields[kFieldCount];
    size_t count = 0;
    size_t start = 0;
    while (true) {
        const size_t tab = line.find('\t', start);
        if (count == kFieldCount) {
            error = "more than 16 fields";
            return false;
        }
        if (tab == std::string_view::npos) {
            fields[count++] = line.substr(start);
            break;
        }
        fields[count++] = line.substr(start, tab - start);
        start = tab + 1;
    }
    if (count != kFieldCount) {
        error = "expected 16 tab-separated fields, found " + std::to_string(count);
        return false;
    }
    CatalogueObject o;
    struct TextField {
        std::string_view text;
        std::string* target;
        const char* name;
    };
    const TextField texts[] = {
        {fields[1], &o.bsaOwner, "bsaOwner"},         {fields[2], &o.appOwner, "appOwner"},
        {fields[3], &o.objectSpace, "objectSpace"},   {fields[4], &o.path, "path"},
        {fields[5], &o.resourceType, "resourceType"}, {fields[13], &o.objectInfo, "objectInfo"},
        {fields[14], &o.description, "description"},
    };
    for (const TextField& field : texts) {
        if (!UnescapeField(field.text, *field.target)) {
            error = std::string("bad escape in ") + field.name;
            return false;
        }
    }
    if (!ParseUnsigned(fields[0], o.id)) {
        error = "bad id";
        return false;
    }
    if (!ParseDateTime(fields[6], o.createTime)) {
        error = "bad createTime (want YYYY-MM-DD HH:MM:SS)";
        return false;
    }
    if (!ParseUnsigned32(fields[7], o.copyType)) {
        error = "bad copyType";
        return false;
    }
    if (!ParseUnsigned(fields[8], o.copyId)) {
        error = "bad copyId";
        return false;
    }
    if (!ParseUnsigned(fields[9], o.restoreOrder)) {
        error = "bad restoreOrder";
        return false;
    }
    if (!ParseUnsigned(fields[10], o.size)) {
        error = "bad size";
        return false;
    }
    if (!ParseUnsigned32(fields[11], o.objectType)) {
        error = "bad objectType";
        return false;
    }
    if (!ParseUnsigned32(fields[12], o.objectStatus)) {
        error = "bad objectStatus";
        return false;
    }
    if (!ParseContent(fields[15], o.content)) {
        error = "bad content (want synthetic:<seed> or file:<name>)";
        return false;
    }
    if (!CheckObjectLimits(o, error)) {
        return false;
    }
    out = std::move(o);
    return true;
}

bool CheckObjectLimits(const CatalogueObject& o, std::string& error) {
    struct Limit {
        const std::string* text;
        size_t max;
        const char* name;
    };
    // One byte of each descriptor field is kept for the terminator.
    const Limit limits[] = {
        {&o.bsaOwner, 63, "bsaOwner"},         {&o.appOwner, 63, "appOwner"},
        {&o.objectSpace, 1023, "objectSpace"}, {&o.path, 1023, "path"},
        {&o.resourceType, 30, "resourceType"}, {&o.description, 99, "description"},
        {&o.objectInfo, 255, "objectInfo"},
    };
    for (const Limit& limit : limits) {
        if (limit.text->size() > limit.max) {
            error = std::string(limit.name) + " longer than " + std::to_string(limit.max) +
                    " characters";
            return false;
        }
    }
    if (o.path.empty()) {
        error = "empty path";
        return false;
    }
    return true;
}

bool IsPreferredCopy(const CatalogueObject& candidate, const CatalogueObject* best) {
    return best == nullptr || (candidate.objectStatus == 1 && best->objectStatus != 1) ||
           (candidate.objectStatus == best->objectStatus &&
            FormatDateTime(candidate.createTime) > FormatDateTime(best->createTime));
}

const CatalogueObject* Catalogue::FindById(uint64_t id) const {
    for (const CatalogueObject& object : objects) {
        if (object.id == id) {
            return &object;
        }
    }
    return nullptr;
}

uint64_t Catalogue::NextId() const {
    uint64_t next = 1;
    for (const CatalogueObject& object : objects) {
        if (object.id >= next) {
            next = object.id + 1;
        }
    }
    return next;
}

bool LoadCatalogue(const std::filesystem::path& file, Catalogue& out, std::string& error) {
    out.objects.clear();
    std::error_code ec;
    if (!std::filesystem::exists(file, ec)) {
        return true;
    }
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        error = "cannot open " + file.string();
        return false;
    }
    std::string line;
    size_t number = 0;
    while (std::getline(in, line)) {
        ++number;
        if (line.empty() || line[0] == '#' || line == "\r") {
            continue;
        }
        CatalogueObject object;
        std::string reason;
        if (!ParseCatalogueLine(line, object, reason)) {
            error = file.string() + " line " + std::to_string(number) + ": " + reason;
            return false;
        }
        out.objects.push_back(std::move(object));
    }
    return true;
}

bool SaveCatalogue(const std::filesystem::path& file, const Catalogue& catalogue,
                   std::string& error) {
    std::error_code ec;
    std::filesystem::create_directories(file.parent_path(), ec);
    std::filesystem::path temporary = file;
    temporary += ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out) {
            error = "cannot write " + temporary.string();
            return false;
        }
        out << "# nwsim catalogue: id, bsaOwner, appOwner, objectSpace, path, resourceType, "
               "createTime, copyType, copyId, restoreOrder, size, objectType, objectStatus, "
               "objectInfo, description, content (tab-separated)\n";
        std::string line;
        for (const CatalogueObject& object : catalogue.objects) {
            line = FormatCatalogueLine(object);
            line += '\n';
            out.write(line.data(), static_cast<std::streamsize>(line.size()));
        }
        out.flush();
        if (!out) {
            error = "cannot write " + temporary.string();
            return false;
        }
    }
    std::filesystem::rename(temporary, file, ec);
    if (ec) {
        error = "cannot replace " + file.string() + ": " + ec.message();
        return false;
    }
    return true;
}

}  // namespace nwsim
