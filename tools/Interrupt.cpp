#include "Interrupt.h"

#include <csignal>

namespace {

volatile std::sig_atomic_t g_bInterrupted = 0;

void OnInterrupt(int)
{
    g_bInterrupted = 1;
    std::signal(SIGINT, SIG_DFL);
}

} // namespace

void InstallInterruptHandler()
{
    g_bInterrupted = 0;
    std::signal(SIGINT, &OnInterrupt);
}

bool IsInterrupted()
{
    return g_bInterrupted != 0;
}
