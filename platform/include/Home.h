// What the home must be told, and no Win32 call says: by tools and tests where the computer's state lies, by whoever
// writes that several registry writes belong together.
#pragma once

#include "win/types.h"

// Points this process at another root (UTF-8 path of a folder; it need not exist, the first write makes it). Keys that
// are open stay closed to everything but RegCloseKey. 87 for an empty path. Privileged hosts that must not be steered
// simply do not call it.
OVLAYER_API DWORD WINAPI OvSetRoot(const char* path);

// The root in force, UTF-8, valid until the next OvSetRoot: $OV_ROOT (ignored for privileged programs), else
// /var/lib/orvantis.
OVLAYER_API const char* WINAPI OvRoot();

// Between the two, what this thread writes to the registry is one transaction per hive; other threads and processes
// wait with their writes and read what was there before. Ends with commit, or with everything taken back. Not nested:
// 170 for a second begin. Where the home has no transactions, the writes happen one by one and `commit` FALSE gives 50.
OVLAYER_API LSTATUS WINAPI OvBeginRegistryBatch();
OVLAYER_API LSTATUS WINAPI OvEndRegistryBatch(BOOL commit);

// For tests: takes a built-in module away from LoadLibraryW and GetModuleHandleW, or one of its exports from
// GetProcAddress, or gives it back. `name` null means the whole module. What was found before stays of use. A home
// whose modules are the system's own ignores it.
OVLAYER_API void WINAPI OvHideExport(const char* module, const char* name, BOOL hide);

// When the policy of the machine (of the users, when `machine` is FALSE) was last signalled, in local time. FALSE when
// it never was, or where the home does not tell.
OVLAYER_API BOOL WINAPI OvLastPolicySignal(BOOL machine, SYSTEMTIME* time);

// A host that serves others declares on its thread, for the length of one call into a component, whom it serves; that
// is whom CoImpersonateClient takes on. Not nested: 170. What the host declares is believed: it must know it from the
// system, as from the peer of a connected Unix socket. The identity is taken at once, with its groups. 50 where the
// home has callers of its own; 6 for what is no socket, 87 for one without a peer on this computer. What the callee
// took on and did not give back, OvEndCall takes from the thread.
OVLAYER_API DWORD WINAPI OvBeginCallOfPeer(int socket);
OVLAYER_API DWORD WINAPI OvBeginCallOfUser(DWORD uid, DWORD session);
// For tests: a user's SID, then those of its groups, the primary group first; S-1-16-<level> behind that declares the
// integrity, which is medium otherwise. No SID at all is a caller who refuses to be impersonated.
OVLAYER_API DWORD WINAPI OvBeginCallOfSids(const LPCWSTR* sids, DWORD count, DWORD session);
OVLAYER_API void WINAPI OvEndCall();

// One line (UTF-8) to the system's own log, under the name of the suite, as an authority's message; `failed` makes a
// warning of it. Past 2,000 bytes it is cut.
OVLAYER_API void WINAPI OvSystemLog(const char* line, BOOL failed);

// How a pointer of a client that leads nowhere is found (IsBadReadPtr and its like): by touching it, and by a handler
// of SIGSEGV and SIGBUS, set up at the first such question, that knows the three instructions which may fault. Every
// other fault goes to what handled it before, in the same mask and stack. FALSE takes the handler back, or keeps it
// from being set up: such pointers end the process then. Where another handler has been set up since, it stays behind
// that one and passes everything on. TRUE sets it up again. For hosts that will have nobody's handler but their own; at
// any time, from any thread. A home that needs no handler ignores it.
OVLAYER_API void WINAPI OvGuardFaults(BOOL guard);

// Where a node stands in the text that it was loaded from, both from 1, the column in characters. FALSE for a node that
// was not loaded from a file, and where the home does not tell.
struct IXMLDOMNode;
OVLAYER_API BOOL WINAPI OvNodePosition(IXMLDOMNode* node, DWORD* line, DWORD* column);

// Removes what a root keeps outside of its folder, and leaves it. Here that is nothing: whoever removes the folder has
// removed the root.
inline DWORD OvForgetRoot(const char*) {
    return ERROR_SUCCESS;
}

// Which home this is: for tests, and for the table of what differs (docs/homes.md).
inline constexpr char kOvHomeName[] = "layer";
