#pragma once
// The processes of the pipe hardening tests: programs of the test program's directory started
// and awaited, named events shared with them, and a squatter that holds a pipe name
// (pipe_stranger.exe squat). Windows only.

#include <windows.h>

#include <string>

#include "common/UniqueHandle.h"

// A program of the test program's directory, started in that directory with these arguments
// (after its quoted path, or, with programNameFirst false, as the whole command line);
// terminated if it is still running when the object goes.
class Program {
public:
    Program(const std::wstring& file, const std::wstring& arguments, bool programNameFirst = true);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    bool Started() const { return m_process.valid(); }
    DWORD Id() const { return m_id; }
    HANDLE Handle() const { return m_process.get(); }
    // The exit code, or 999 when it did not end in time (it is then terminated).
    DWORD AwaitExit();

private:
    UniqueHandle m_process;
    DWORD m_id = 0;
};

// A named manual-reset event that the test's programs set or wait for.
class Event {
public:
    explicit Event(const std::wstring& name);
    const std::wstring& Name() const { return m_name; }
    bool Await() const;
    void Set() const;

private:
    std::wstring m_name;
    UniqueHandle m_event;
};

// pipe_stranger.exe holding the pipe name (with 1 or PIPE_UNLIMITED_INSTANCES instances) until
// the object goes.
class Squatter {
public:
    Squatter(const std::wstring& pipeName, int instances);
    ~Squatter();
    Squatter(const Squatter&) = delete;
    Squatter& operator=(const Squatter&) = delete;
    // True once the squatter has created the name.
    bool Holds() const;

private:
    Event m_ready;
    Event m_end;
    Program m_program;
};

// pipe_stranger.exe knocking on the pipe: it opens it as soon as it exists and reports what
// the server did with it (see PipeStranger.cpp, "knock").
class Knocker {
public:
    explicit Knocker(const std::wstring& pipeName);
    Knocker(const Knocker&) = delete;
    Knocker& operator=(const Knocker&) = delete;
    bool Started() const { return m_program.Started(); }
    // True once it holds the pipe's instance.
    bool IsIn() const { return m_in.Await(); }
    DWORD Id() const { return m_program.Id(); }
    DWORD AwaitExit() { return m_program.AwaitExit(); }

private:
    Event m_in;
    Program m_program;
};
