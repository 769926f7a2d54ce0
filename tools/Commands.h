// The commands of the zndvr host program. Each command lives in a file of its own
// and takes the arguments that follow its name; it returns the process exit code.
#pragma once

#include <span>
#include <string_view>

struct tag_TOOLCOMMAND {
    std::string_view strName;
    std::string_view strUsage;
    std::string_view strSummary;
    int (*pfnRun)(std::span<char* const> args);
};

std::span<const tag_TOOLCOMMAND> GetToolCommands();

int RunVolumesCommand(std::span<char* const> args);
int RunBoardsCommand(std::span<char* const> args);
int RunRecordCommand(std::span<char* const> args);
int RunDisksCommand(std::span<char* const> args);
int RunDevicesCommand(std::span<char* const> args);
int RunPlayCommand(std::span<char* const> args);
int RunExportCommand(std::span<char* const> args);
int RunSearchCommand(std::span<char* const> args);
int RunInfoCommand(std::span<char* const> args);
int RunWavCommand(std::span<char* const> args);
