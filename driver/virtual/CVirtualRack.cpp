#include "driver/virtual/CVirtualRack.h"

#include <mutex>
#include <vector>

namespace {

struct tag_RACK {
    std::mutex mutexBoards;
    std::vector<std::shared_ptr<CVirtualBoard>> boards;
};

// Never destroyed, so that boards still installed at exit don't outlive the platform
// objects they hold in an unknown order.
tag_RACK& TheRack()
{
    static tag_RACK* pRack = new tag_RACK;
    return *pRack;
}

} // namespace

int CVirtualRack::InstallBoard(const tag_VIRTUALBOARD& setup, std::string* pstrError)
{
    std::shared_ptr<CVirtualBoard> pBoard = CVirtualBoard::Create(setup, pstrError);
    if (pBoard == nullptr)
        return -1;
    tag_RACK& rack = TheRack();
    std::lock_guard lock(rack.mutexBoards);
    rack.boards.push_back(std::move(pBoard));
    return static_cast<int>(rack.boards.size()) - 1;
}

void CVirtualRack::InstallDefault()
{
    Clear();
    InstallBoard(tag_VIRTUALBOARD{});
}

void CVirtualRack::Clear()
{
    tag_RACK& rack = TheRack();
    std::lock_guard lock(rack.mutexBoards);
    rack.boards.clear();
}

int CVirtualRack::GetDeviceNum()
{
    tag_RACK& rack = TheRack();
    std::lock_guard lock(rack.mutexBoards);
    return static_cast<int>(rack.boards.size());
}

std::shared_ptr<CVirtualBoard> CVirtualRack::GetBoard(int nDevice)
{
    tag_RACK& rack = TheRack();
    std::lock_guard lock(rack.mutexBoards);
    if (nDevice < 0 || nDevice >= static_cast<int>(rack.boards.size()))
        return nullptr;
    return rack.boards[nDevice];
}
