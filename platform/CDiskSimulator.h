// A disk that fails and loses power on demand, for tests of the code that writes files.
// While one is installed (one per process, made and destroyed by the test), every write,
// length change and sync of a CFile open for writing is numbered, can be made to fail
// (reads can be made to fail too),
// and is recorded until the next sync of its file, so that the file can be shown as a
// power cut would leave it: what was synced, plus any subset of what wasn't, torn at
// sector boundaries and in any order. Thread-safe.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

class ZNDVR_API CDiskSimulator {
public:
    // The kinds of operation, for InjectFailures.
    enum : UINT {
        opWrite = 0x1,      // Write and SetLength
        opSync = 0x2,       // Flush and FlushDirectory
        opRead = 0x4,       // Read, of any file; reads can fail but aren't numbered
    };
    // A power cut keeps or loses each sector of an unsynced write as a whole.
    static constexpr DWORD kSectorSize = 512;

    CDiskSimulator();
    ~CDiskSimulator();
    CDiskSimulator(const CDiskSimulator&) = delete;
    CDiskSimulator& operator=(const CDiskSimulator&) = delete;

    // After dwSkip more operations of the kinds in nKinds, the next dwCount of them fail
    // with nErrno. A failing write stores the first half of its bytes first, as a disk
    // that fills up part-way does.
    void InjectFailures(UINT nKinds, DWORD dwSkip, DWORD dwCount, int nErrno);
    // Called before every operation with its number, counted from 0 since installation,
    // on the thread that makes it and without the simulator's lock held.
    void SetOperationHook(std::function<void(DWORD dwOperation)> hook);
    DWORD GetOperationCount() const;

    // The bytes that the file at lpszPath could hold after a power cut at this moment,
    // random choosing which unsynced writes and sectors survive. FALSE when the file's
    // name could be lost too: it was created and its directory hasn't been synced since.
    // A file that was never open for writing under the simulator is given as it stands;
    // one opened for writing starts from what it holds then.
    BOOL MakeCrashImage(LPCSTR lpszPath, std::mt19937& random, std::vector<BYTE>& image) const;

    // Called by CFile, which asks first whether a simulator is installed; each answers the errno that the operation is to fail with, or 0.
    static BOOL IsInstalled();
    static void OnOpenForWriting(LPCSTR lpszPath, BOOL bCreated);
    // nStored, nCount when called, becomes how many bytes the write stores before failing.
    static int OnWrite(LPCSTR lpszPath, DWORD dwPos, const BYTE* pBytes, UINT nCount, UINT& nStored);
    static int OnSetLength(LPCSTR lpszPath, DWORD dwNewLen);
    static int OnSync(LPCSTR lpszPath);
    static int OnRead();
    static int OnSyncDirectory(LPCSTR lpszDirectory);

private:
    // One write or length change since the file's last sync.
    struct tag_PENDINGWRITE {
        DWORD dwPos;
        std::vector<BYTE> bytes;
        BOOL bSetLength;        // a length change to dwPos; bytes empty
    };
    struct tag_SIMULATEDFILE {
        std::vector<BYTE> durable;      // the bytes as of the last sync
        std::vector<tag_PENDINGWRITE> pending;
        BOOL bNameDurable;
    };

    int StartOperation(UINT nKind);
    int TakeFailure(UINT nKind);
    tag_SIMULATEDFILE& FindFile(const std::string& strPath);
    static void ApplyWrite(std::vector<BYTE>& bytes, const tag_PENDINGWRITE& write);

    mutable std::mutex m_mutex;
    std::map<std::string, tag_SIMULATEDFILE> m_files;
    std::function<void(DWORD)> m_hook;
    DWORD m_dwOperations = 0;
    UINT m_nFailKinds = 0;
    DWORD m_dwFailSkip = 0;
    DWORD m_dwFailCount = 0;
    int m_nFailErrno = 0;
};
