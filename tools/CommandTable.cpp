// The table of the host program's commands, in the order --help lists them.
#include "Commands.h"

namespace {

constexpr tag_TOOLCOMMAND kCommands[] = {
    {"volumes", "[DIR...]", "show the volume of each directory and whether it can hold recordings",
     &RunVolumesCommand},
    {"boards", "", "install the default virtual boards and show what the driver finds, with a frame of each camera",
     &RunBoardsCommand},
    {"record", "[-s SECONDS] [-d DIR] [--sound] [--sound-device NAME] [FOOTAGE.y4m...]",
     "record from the virtual boards (default rack, or one camera per Y4M file) into a store of day directories; "
     "with --sound each camera's speech too, from a virtual microphone of its own or the named wave-in device",
     &RunRecordCommand},
    {"disks", "[-d STORE] [add DIR | remove DISK | change DISK] [OPTIONS]",
     "list the disks of a store with their space and days; add, remove or change a disk", &RunDisksCommand},
    {"search",
     "[-d STORE] [--host H] [--disk DISK] [--board B] [--camera C] [--date DAY | --from TIME [--to TIME] | --at TIME] "
     "[--remote] [--size WxH] [--json]",
     "find recordings by host, disk, board, camera, day, span, moment and frame size; a table or JSON",
     &RunSearchCommand},
    {"info", "FILE [--json]",
     "show a recording's head, names, version, blocks and a summary of its frames; also while it is recorded",
     &RunInfoCommand},
    {"devices", "", "list the wave-in and wave-out devices with the sound formats each accepts", &RunDevicesCommand},
    {"play", "FILE [--speed N] [--from HH:MM:SS | --block B --frame F] [--device NAME | --no-sound]",
     "play a recording in real time with a progress line; keys pause, speed up, slow down and quit",
     &RunPlayCommand},
    {"export", "FILE -o OUT [--fps N] [--h263]",
     "write a recording's pictures and sound to OUT: .y4m, .png (with %04d), .wav, .mp4/.mkv through ffmpeg, "
     "or with --h263 an H.263 stream rewritten without loss",
     &RunExportCommand},
    {"wav", "play FILE [--device NAME] | record FILE -s SECONDS [--format N] [--device NAME]",
     "play a WAVE file, or record one (format 5, 8 kHz 16-bit mono, unless --format says otherwise), on the "
     "machine's sound devices or the named one; Ctrl-C stops and keeps what was recorded",
     &RunWavCommand},
};

} // namespace

std::span<const tag_TOOLCOMMAND> GetToolCommands()
{
    return kCommands;
}
