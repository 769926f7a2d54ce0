// zndvr: the command-line host of the library. It runs a command by name; without
// a command it runs the built-in default.
#include "Commands.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr std::string_view kDefaultCommand = "record";

void PrintHelp()
{
    std::printf("usage: zndvr [--help | --version | COMMAND [ARGS...]]\n\n"
                "Without a command, zndvr runs '%.*s' with its defaults: the virtual boards, a\n"
                "store in the working directory.\n\nCommands:\n",
                static_cast<int>(kDefaultCommand.size()), kDefaultCommand.data());
    for (const tag_TOOLCOMMAND& command : GetToolCommands()) {
        std::printf("  %-12.*s %.*s\n      %.*s\n", static_cast<int>(command.strName.size()),
                    command.strName.data(), static_cast<int>(command.strUsage.size()),
                    command.strUsage.data(), static_cast<int>(command.strSummary.size()),
                    command.strSummary.data());
    }
}

const tag_TOOLCOMMAND* FindCommand(std::string_view strName)
{
    for (const tag_TOOLCOMMAND& command : GetToolCommands()) {
        if (command.strName == strName)
            return &command;
    }
    return nullptr;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        const tag_TOOLCOMMAND* pDefault = FindCommand(kDefaultCommand);
        if (pDefault == nullptr) {
            PrintHelp();
            return 0;
        }
        return pDefault->pfnRun(std::span<char* const>());
    }
    std::string_view strFirst = argv[1];
    if (strFirst == "--help" || strFirst == "-h" || strFirst == "help") {
        PrintHelp();
        return 0;
    }
    if (strFirst == "--version") {
        std::printf("zndvr %s\n", ZNDVR_VERSION);
        return 0;
    }
    const tag_TOOLCOMMAND* pCommand = FindCommand(strFirst);
    if (pCommand == nullptr) {
        std::fprintf(stderr, "zndvr: unknown command '%s' (try --help)\n", argv[1]);
        return 2;
    }
    return pCommand->pfnRun(std::span<char* const>(argv + 2, static_cast<std::size_t>(argc - 2)));
}
