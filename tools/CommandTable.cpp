// The table of the host program's commands, in the order --help lists them.
#include "Commands.h"

std::span<const ToolCommand> GetToolCommands()
{
    return {};
}
