// The simulated terminal server shared between processes: the end-to-end double of
// wtsapi32.dll (inside the service and the in-session monitors) and the controlling program (the
// end-to-end test, the demo).
//
// The session table and the records are the in-process simulator's own state record
// (support/SimTerminalCore.h), kept in a file mapping so that every process of the Wine prefix
// sees the same table. The file lives in the prefix's Windows folder (Temp\VantrelSimTerminal.bin):
// each prefix has its own, it outlives the short-lived controller commands, and it needs no
// process to hold it open while nothing runs. A named mutex serialises every call over the
// record, as the in-process simulator's critical section does.
//
// Beside the core record the shared block keeps two records of its own: the user tokens the
// service asked for (the step right before it starts a program in a session) and the processes
// that loaded the double (the in-session monitors load it to register for session
// notifications), with their command lines.
#pragma once
#include <windows.h>

#include "support/SimTerminalCore.h"

namespace simshared {

const DWORD kMagic = 0x56534D31;   // "VSM1": a block that has been set up
const DWORD kVersion = 1;

enum {
    kMaxTokenRequests = 1024,
    kMaxAttaches = 256,
    kCmdLineChars = 1024,
};

// One WTSQueryUserToken call: the service starts a program in the session right after it.
struct TokenRequest {
    DWORD nSeq;
    DWORD dwSession;
    DWORD dwPid;        // the caller (the service)
    DWORD dwError;      // 0 when a token was handed out
};

// One process that loaded the double.
struct Attach {
    DWORD nSeq;
    DWORD dwPid;
    int bDetached;      // it unloaded the double (a process that ends normally does)
    DWORD nRegistered;    // its session notification registrations
    DWORD nRegistrations; // its registrations minus removals
    wchar_t szCmdLine[kCmdLineChars];
};

struct Block {
    DWORD dwMagic;
    DWORD dwVersion;
    DWORD cbBlock;
    DWORD dwResets;     // how many times the controller emptied the block
    simts::SimState state;
    DWORD nTokenRequests;
    TokenRequest tokenRequests[kMaxTokenRequests];
    DWORD nAttaches;
    Attach attaches[kMaxAttaches];
};

// The mapped block of this prefix, created (and set up) on first use. One per process.
class Shared {
public:
    Shared();
    ~Shared();
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    // Maps the block; nonzero when it is ready. The reason of a failure stays in the last error.
    int Open();
    Block* Get() { return pBlock; }

    // Takes the table's mutex (an abandoned mutex counts as taken: a controller killed halfway
    // leaves the record as it was, which is still a valid record). 0 after timeoutMs.
    int Lock(DWORD timeoutMs = 10000);
    void Unlock();

    // Empties the table and every record.
    void ResetAll();

    // The path of the block's file in this prefix.
    static int GetPath(wchar_t* path, unsigned cch);

private:
    HANDLE hFile;
    HANDLE hMapping;
    HANDLE hMutex;
    Block* pBlock;
};

// Holds the table's mutex for a scope.
class Locked {
public:
    explicit Locked(Shared& s, DWORD timeoutMs = 10000) : shared(s), bLocked(s.Lock(timeoutMs)) {}
    ~Locked()
    {
        if (bLocked)
            shared.Unlock();
    }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;
    explicit operator bool() const { return bLocked != 0; }

private:
    Shared& shared;
    int bLocked;
};

// The sequence number shared by every record of the block.
inline DWORD NextSeq(Block& b) { return ++b.state.nSeq; }

} // namespace simshared
