// A program started with a pipe to its standard input, without a shell between, so that
// file names need no quoting. Used to hand pictures to ffmpeg.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class CChildProcess {
public:
    CChildProcess() = default;
    ~CChildProcess();
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;

    // Whether the program can be started at all (found on PATH and runs).
    static bool IsInstalled(const std::string& strProgram);

    bool Start(const std::vector<std::string>& arguments);
    // False when the program has stopped reading.
    bool Write(const void* pData, std::size_t nBytes);
    // Closes the pipe and waits: the program's exit status, or -1 if it didn't exit.
    int Finish();

private:
    int m_nPid = -1;
    int m_nPipe = -1;
};
