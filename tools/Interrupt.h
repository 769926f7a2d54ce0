// Ctrl-C for the long commands: the first SIGINT asks the command to stop at its next
// frame, so that what it writes is finished cleanly; a second one ends the process.
#pragma once

void InstallInterruptHandler();
bool IsInterrupted();
