#include "platform/CDiskSimulator.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

std::atomic<CDiskSimulator*> g_pSimulator{nullptr};

std::vector<BYTE> ReadWholeFile(const std::string& strPath)
{
    std::ifstream stream(strPath, std::ios::binary);
    return std::vector<BYTE>((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
}

std::string GetDirectoryOf(const std::string& strPath)
{
    return std::filesystem::path(strPath).parent_path().string();
}

} // namespace

CDiskSimulator::CDiskSimulator()
{
    g_pSimulator.store(this);
}

CDiskSimulator::~CDiskSimulator()
{
    g_pSimulator.store(nullptr);
}

BOOL CDiskSimulator::IsInstalled()
{
    return g_pSimulator.load() != nullptr;
}

void CDiskSimulator::InjectFailures(UINT nKinds, DWORD dwSkip, DWORD dwCount, int nErrno)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_nFailKinds = nKinds;
    m_dwFailSkip = dwSkip;
    m_dwFailCount = dwCount;
    m_nFailErrno = nErrno;
}

void CDiskSimulator::SetOperationHook(std::function<void(DWORD dwOperation)> hook)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_hook = std::move(hook);
}

DWORD CDiskSimulator::GetOperationCount() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_dwOperations;
}

BOOL CDiskSimulator::MakeCrashImage(LPCSTR lpszPath, std::mt19937& random, std::vector<BYTE>& image) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_files.find(lpszPath);
    if (found == m_files.end()) {
        image = ReadWholeFile(lpszPath);
        return std::filesystem::exists(lpszPath);
    }
    const tag_SIMULATEDFILE& file = found->second;
    if (!file.bNameDurable)
        return FALSE;

    // Each crash keeps its own share of the unsynced sectors, from none to all of them.
    std::bernoulli_distribution keep(static_cast<double>(random() % 5) / 4);
    std::vector<tag_PENDINGWRITE> survivors;
    for (const tag_PENDINGWRITE& write : file.pending) {
        if (write.bSetLength) {
            if (keep(random))
                survivors.push_back(write);
            continue;
        }
        DWORD dwDone = 0;
        while (dwDone < write.bytes.size()) {
            const DWORD dwPos = write.dwPos + dwDone;
            const DWORD dwPiece = std::min<DWORD>(kSectorSize - dwPos % kSectorSize,
                                                  static_cast<DWORD>(write.bytes.size()) - dwDone);
            if (keep(random)) {
                const auto pFirst = write.bytes.begin() + dwDone;
                survivors.push_back(tag_PENDINGWRITE{dwPos, std::vector<BYTE>(pFirst, pFirst + dwPiece), FALSE});
            }
            dwDone += dwPiece;
        }
    }
    std::shuffle(survivors.begin(), survivors.end(), random);
    image = file.durable;
    for (const tag_PENDINGWRITE& write : survivors)
        ApplyWrite(image, write);
    return TRUE;
}

void CDiskSimulator::OnOpenForWriting(LPCSTR lpszPath, BOOL bCreated)
{
    CDiskSimulator* pSimulator = g_pSimulator.load();
    if (pSimulator == nullptr)
        return;
    std::lock_guard<std::mutex> lock(pSimulator->m_mutex);
    pSimulator->m_files[lpszPath] = tag_SIMULATEDFILE{ReadWholeFile(lpszPath), {}, !bCreated};
}

int CDiskSimulator::OnWrite(LPCSTR lpszPath, DWORD dwPos, const BYTE* pBytes, UINT nCount, UINT& nStored)
{
    CDiskSimulator* pSimulator = g_pSimulator.load();
    if (pSimulator == nullptr)
        return 0;
    const int nErrno = pSimulator->StartOperation(opWrite);
    if (nErrno != 0)
        nStored = nCount / 2;
    std::lock_guard<std::mutex> lock(pSimulator->m_mutex);
    tag_SIMULATEDFILE& file = pSimulator->FindFile(lpszPath);
    file.pending.push_back(tag_PENDINGWRITE{dwPos, std::vector<BYTE>(pBytes, pBytes + nStored), FALSE});
    return nErrno;
}

int CDiskSimulator::OnSetLength(LPCSTR lpszPath, DWORD dwNewLen)
{
    CDiskSimulator* pSimulator = g_pSimulator.load();
    if (pSimulator == nullptr)
        return 0;
    const int nErrno = pSimulator->StartOperation(opWrite);
    if (nErrno != 0)
        return nErrno;
    std::lock_guard<std::mutex> lock(pSimulator->m_mutex);
    pSimulator->FindFile(lpszPath).pending.push_back(tag_PENDINGWRITE{dwNewLen, {}, TRUE});
    return 0;
}

int CDiskSimulator::OnSync(LPCSTR lpszPath)
{
    CDiskSimulator* pSimulator = g_pSimulator.load();
    if (pSimulator == nullptr)
        return 0;
    const int nErrno = pSimulator->StartOperation(opSync);
    if (nErrno != 0)
        return nErrno;
    std::lock_guard<std::mutex> lock(pSimulator->m_mutex);
    tag_SIMULATEDFILE& file = pSimulator->FindFile(lpszPath);
    for (const tag_PENDINGWRITE& write : file.pending)
        ApplyWrite(file.durable, write);
    file.pending.clear();
    return 0;
}

int CDiskSimulator::OnRead()
{
    CDiskSimulator* pSimulator = g_pSimulator.load();
    return pSimulator != nullptr ? pSimulator->TakeFailure(opRead) : 0;
}

int CDiskSimulator::OnSyncDirectory(LPCSTR lpszDirectory)
{
    CDiskSimulator* pSimulator = g_pSimulator.load();
    if (pSimulator == nullptr)
        return 0;
    const int nErrno = pSimulator->StartOperation(opSync);
    if (nErrno != 0)
        return nErrno;
    std::lock_guard<std::mutex> lock(pSimulator->m_mutex);
    for (auto& [strPath, file] : pSimulator->m_files) {
        if (GetDirectoryOf(strPath) == lpszDirectory)
            file.bNameDurable = TRUE;
    }
    return 0;
}

// Numbers the operation, lets the hook see the disk before it, and decides its failure.
int CDiskSimulator::StartOperation(UINT nKind)
{
    std::function<void(DWORD)> hook;
    DWORD dwOperation = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        dwOperation = m_dwOperations++;
        hook = m_hook;
    }
    if (hook)
        hook(dwOperation);
    return TakeFailure(nKind);
}

// The errno that an operation of this kind is to fail with, or 0.
int CDiskSimulator::TakeFailure(UINT nKind)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if ((m_nFailKinds & nKind) == 0)
        return 0;
    if (m_dwFailSkip > 0) {
        --m_dwFailSkip;
        return 0;
    }
    if (m_dwFailCount == 0)
        return 0;
    --m_dwFailCount;
    return m_nFailErrno;
}

// A file first met in a write was opened before the simulator came: what it holds now
// counts as synced.
CDiskSimulator::tag_SIMULATEDFILE& CDiskSimulator::FindFile(const std::string& strPath)
{
    const auto found = m_files.find(strPath);
    if (found != m_files.end())
        return found->second;
    return m_files[strPath] = tag_SIMULATEDFILE{ReadWholeFile(strPath), {}, TRUE};
}

void CDiskSimulator::ApplyWrite(std::vector<BYTE>& bytes, const tag_PENDINGWRITE& write)
{
    if (write.bSetLength) {
        bytes.resize(write.dwPos);
        return;
    }
    const std::size_t nEnd = static_cast<std::size_t>(write.dwPos) + write.bytes.size();
    if (bytes.size() < nEnd)
        bytes.resize(nEnd);
    std::copy(write.bytes.begin(), write.bytes.end(), bytes.begin() + write.dwPos);
}
