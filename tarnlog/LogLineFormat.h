#pragma once
// The platform-neutral half of TarnLog: configuration parsing and the layout of one log line.
// No Windows headers here, so this is built and tested natively too.

#include <cstdint>
#include <string>
#include <vector>

#include "interfaces/ILog.h"

namespace tarnlog {

// "trace", "debug", "info", "warning", "error", "off" (any case, surrounding blanks ignored).
// False for anything else, *level untouched.
bool ParseLogLevel(const std::wstring& text, int* level);

// "TRACE", "DEBUG", "INFO", "WARNING", "ERROR"; "OFF" for LogLevelOff and "?" out of range.
const char* LevelLabel(int level);

// Splits "a, b,,c" into {"a", "b", "c"}: blanks around each name are dropped, empty names too.
std::vector<std::wstring> ParseNameList(const std::wstring& text);

// Appends text as UTF-8 with carriage return and line feed written as the two characters
// "\r" and "\n", so that one call is always one physical line. Unpaired UTF-16 surrogates
// become U+FFFD.
void AppendEscapedUtf8(std::string& out, const wchar_t* text);
void AppendEscapedUtf8(std::string& out, const wchar_t* text, size_t length);

struct LocalTimestamp {
    uint16_t year;
    uint16_t month;
    uint16_t day;
    uint16_t hour;
    uint16_t minute;
    uint16_t second;
    uint16_t milliseconds;
};

// "2026-11-21T14:05:09.042": ISO-8601 local time with milliseconds.
void AppendTimestamp(std::string& out, const LocalTimestamp& time);

// <time>\t<LEVEL>\t<logger>\t<method>\t<text>\n, all of it UTF-8 and escaped.
std::string BuildLogLine(const LocalTimestamp& time, int level, const wchar_t* logger,
                         const wchar_t* method, const wchar_t* text, size_t textLength);

// The name of the mutex that every process writing to one log file takes around each line:
// "Local\\TarnLogFile-" and 16 hexadecimal digits of a 64-bit FNV-1a hash of fileKey (the
// file's full path, upper-cased). A hash, because kernel object names may not contain '\\'
// and are limited in length.
std::wstring LogFileLockName(const std::wstring& fileKey);

}  // namespace tarnlog
