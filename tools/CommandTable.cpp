// The table of the host program's commands, in the order --help lists them.
#include "Commands.h"

int RunVolumesCommand(std::span<char* const> args);
int RunBoardsCommand(std::span<char* const> args);
int RunRecordCommand(std::span<char* const> args);
int RunDevicesCommand(std::span<char* const> args);
int RunWavCommand(std::span<char* const> args);

namespace {

constexpr ToolCommand kCommands[] = {
    {"volumes", "[DIR...]", "show the volume of each directory and whether it can hold recordings",
     &RunVolumesCommand},
    {"boards", "", "install the default virtual boards and show what the driver finds, with a frame of each camera",
     &RunBoardsCommand},
    {"record", "[-s SECONDS] [-d DIR] [--sound] [--sound-device NAME] [Y4M...]",
     "record from the virtual boards (default rack, or one camera per Y4M file) into one file per camera; "
     "with --sound each camera's speech too, from a virtual microphone of its own or the named wave-in device",
     &RunRecordCommand},
    {"devices", "", "list the wave-in and wave-out devices with the sound formats each accepts", &RunDevicesCommand},
    {"wav", "play FILE [--device NAME] | record FILE -s SECONDS [--format N] [--device NAME]",
     "play a WAVE file, or record one (format 5, 8 kHz 16-bit mono, unless --format says otherwise), on the "
     "machine's sound devices or the named one; Ctrl-C stops and keeps what was recorded",
     &RunWavCommand},
};

} // namespace

std::span<const ToolCommand> GetToolCommands()
{
    return kCommands;
}
