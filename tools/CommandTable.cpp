// The table of the host program's commands, in the order --help lists them.
#include "Commands.h"

int RunVolumesCommand(std::span<char* const> args);

namespace {

constexpr ToolCommand kCommands[] = {
    {"volumes", "[DIR...]", "show the volume of each directory and whether it can hold recordings",
     &RunVolumesCommand},
};

} // namespace

std::span<const ToolCommand> GetToolCommands()
{
    return kCommands;
}
