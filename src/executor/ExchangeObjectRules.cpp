#include "ExchangeObjectRules.h"

#include <cstring>
#include <stdexcept>

#include "common/CivilTime.h"

namespace {

bool EqualsIgnoringAsciiCase(std::string_view left, std::string_view right) {
    if (left.size() != right.size()) {
        return false;
    }
    for (size_t i = 0; i < left.size(); ++i) {
        unsigned char a = static_cast<unsigned char>(left[i]);
        unsigned char b = static_cast<unsigned char>(right[i]);
        if (a >= 'A' && a <= 'Z') {
            a = static_cast<unsigned char>(a - 'A' + 'a');
        }
        if (b >= 'A' && b <= 'Z') {
            b = static_cast<unsigned char>(b - 'A' + 'a');
        }
        if (a != b) {
            return false;
        }
    }
    return true;
}

bool Contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

template <size_t N>
std::string_view BoundedView(const char (&text)[N]) {
    const void* end = std::memchr(text, '\0', N);
    return std::string_view(text, end != nullptr ? static_cast<const char*>(end) - text : N);
}

}  // namespace

BSA_QueryDescriptor ExchangeQueryDescriptor() {
    BSA_QueryDescriptor query{};
    std::strcpy(query.owner.bsa_ObjectOwner, "MSEXCH");
    std::strcpy(query.owner.app_ObjectOwner, "msexch");
    query.copyType = BSA_CopyType_BACKUP;
    query.objectType = BSA_ObjectType_FILE;
    query.status = BSA_ObjectStatus_MOST_RECENT;
    return query;
}

bool IsExchangeFile(std::string_view resourceType, std::string_view pathName) {
    if (pathName.size() < 4) {
        return false;
    }
    if (resourceType != "D" && resourceType != "L") {
        return false;
    }
    // The storage group's container objects are not files.
    if (EqualsIgnoringAsciiCase(pathName, "/Private Information Store") ||
        EqualsIgnoringAsciiCase(pathName, "/Public Information Store") ||
        EqualsIgnoringAsciiCase(pathName, "/Directory")) {
        return false;
    }
    if (Contains(pathName, "Private Mailboxes")) {
        return false;
    }
    return pathName[pathName.size() - 4] == '.';
}

bool IsExchangeFile(const BSA_ObjectDescriptor& descriptor) {
    return IsExchangeFile(BoundedView(descriptor.resourceType),
                          BoundedView(descriptor.objectName.pathName));
}

uint64_t JoinUInt64(BSA_UInt64 value) {
    return (static_cast<uint64_t>(value.left) << 32) | value.right;
}

uint64_t AnnouncedSize(std::string_view pathName, BSA_UInt64 size) {
    struct Rule {
        std::string_view marker;
        uint64_t size;
    };
    // First match wins, in this order (kept on purpose: docs/compatibility.md, "announced sizes").
    static constexpr Rule kRules[] = {
        {".edb", 0},
        {".EDB", 0},
        {".STM", 0},
        {".stm", 0},
        {".log", kAnnouncedLogSize},
        {".LOG", kAnnouncedLogSize},
    };
    for (const Rule& rule : kRules) {
        if (Contains(pathName, rule.marker)) {
            return rule.size;
        }
    }
    return JoinUInt64(size);
}

FILETIME CreationDateAsFileTime(const std::tm& createTime) {
    SYSTEMTIME day{};
    day.wYear = static_cast<uint16_t>(createTime.tm_year + 1900);
    day.wMonth = static_cast<uint16_t>(createTime.tm_mon + 1);
    day.wDay = static_cast<uint16_t>(createTime.tm_mday);
    FILETIME result{};
    if (!CivilSystemTimeToFileTime(day, &result)) {
        result = FILETIME{};
    }
    return result;
}

bool PassesTimeWindow(const std::tm& createTime, const FILETIME* timeBefore,
                      const FILETIME* timeAfter) {
    if (timeBefore == nullptr && timeAfter == nullptr) {
        return true;
    }
    if (timeBefore != nullptr && timeAfter != nullptr &&
        FileTimeToTicks(*timeAfter) > FileTimeToTicks(*timeBefore)) {
        throw std::invalid_argument("timeAfter cannot be later than timeBefore");
    }
    const uint64_t created = FileTimeToTicks(CreationDateAsFileTime(createTime));
    const bool afterLowerBound = timeAfter == nullptr || created >= FileTimeToTicks(*timeAfter);
    const bool beforeUpperBound = timeBefore == nullptr || created <= FileTimeToTicks(*timeBefore);
    return afterLowerBound && beforeUpperBound;
}

SYSTEMTIME BackupTimeOf(const std::tm& createTime) {
    SYSTEMTIME time{};
    time.wYear = static_cast<uint16_t>(createTime.tm_year + 1900);
    time.wMonth = static_cast<uint16_t>(createTime.tm_mon + 1);
    time.wDay = static_cast<uint16_t>(createTime.tm_mday);
    time.wHour = static_cast<uint16_t>(createTime.tm_hour);
    time.wMinute = static_cast<uint16_t>(createTime.tm_min);
    time.wSecond = static_cast<uint16_t>(createTime.tm_sec);
    return time;
}
