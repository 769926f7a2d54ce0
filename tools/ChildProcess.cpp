#include "ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kExecFailed = 127;

int WaitForExit(int nPid)
{
    int nStatus = 0;
    while (waitpid(nPid, &nStatus, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
}

} // namespace

CChildProcess::~CChildProcess()
{
    Finish();
}

bool CChildProcess::IsInstalled(const std::string& strProgram)
{
    CChildProcess probe;
    if (!probe.Start({strProgram, "-version"}))
        return false;
    return probe.Finish() == 0;
}

bool CChildProcess::Start(const std::vector<std::string>& arguments)
{
    int pipeEnds[2];
    if (arguments.empty() || pipe2(pipeEnds, O_CLOEXEC) != 0)
        return false;
    // A program that stops reading must give a write error, not end this process.
    std::signal(SIGPIPE, SIG_IGN);
    std::vector<char*> argv;
    for (const std::string& strArgument : arguments)
        argv.push_back(const_cast<char*>(strArgument.c_str()));
    argv.push_back(nullptr);
    m_nPid = fork();
    if (m_nPid == 0) {
        dup2(pipeEnds[0], STDIN_FILENO);
        const int nNull = open("/dev/null", O_WRONLY);
        if (nNull >= 0)
            dup2(nNull, STDOUT_FILENO);
        execvp(argv[0], argv.data());
        _exit(kExecFailed);
    }
    close(pipeEnds[0]);
    if (m_nPid < 0) {
        close(pipeEnds[1]);
        return false;
    }
    m_nPipe = pipeEnds[1];
    return true;
}

bool CChildProcess::Write(const void* pData, std::size_t nBytes)
{
    const char* p = static_cast<const char*>(pData);
    while (nBytes > 0) {
        const ssize_t nWritten = write(m_nPipe, p, nBytes);
        if (nWritten < 0 && errno == EINTR)
            continue;
        if (nWritten <= 0)
            return false;
        p += nWritten;
        nBytes -= static_cast<std::size_t>(nWritten);
    }
    return true;
}

int CChildProcess::Finish()
{
    if (m_nPipe >= 0) {
        close(m_nPipe);
        m_nPipe = -1;
    }
    if (m_nPid <= 0)
        return -1;
    const int nStatus = WaitForExit(m_nPid);
    m_nPid = -1;
    return nStatus;
}
