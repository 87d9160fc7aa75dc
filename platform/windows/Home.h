// What the home must be told, and no Win32 call says. The other home's platform/include/Home.h has the
// contract; here stands what it means where the registry is the system's own.
//
// A root is a place below HKEY_CURRENT_USER\Software\OrvantisRoots, named after the folder, to which this process's
// predefined keys are turned: HKEY_LOCAL_MACHINE, HKEY_USERS, HKEY_CURRENT_USER and HKEY_CLASSES_ROOT. It is made when
// it is set, with the keys that every system has: SOFTWARE, its Classes, and the caller's hive. The 32-bit view of a
// turned HKEY_LOCAL_MACHINE is the system's affair: it is kept apart under Wine, and is the same as the 64-bit view on
// a system that ties views to the hive's own path.
#pragma once

#include <windows.h>

// Turns this process to another root. 87 for an empty path or one that is no UTF-8, 206 for one of more than 255 units;
// else the error of the registry, and then nothing is turned. Keys that are open stay open where they are.
DWORD OvSetRoot(const char* path);

// The root in force, UTF-8, valid until the next OvSetRoot; empty while the registry is the system's own.
const char* OvRoot();

// Turns to the root that the variable OV_ROOT names, if it names one. The entry of a program calls it, so that a module
// never turns its host. As OvSetRoot.
DWORD OvUseRootOfEnvironment();

// Turns back to the system's own registry and deletes the root of that folder with all that it holds. As OvSetRoot; 0
// also when there is none. The folder itself is the caller's.
DWORD OvForgetRoot(const char* path);

// There are no transactions here: what is written between the two is written one by one. 170 for a second begin; 50
// when `commit` is FALSE, for nothing can be taken back; 87 for an end without a begin.
LSTATUS OvBeginRegistryBatch();
LSTATUS OvEndRegistryBatch(BOOL commit);

// The modules are the system's own and stay in sight.
inline void OvHideExport(const char*, const char*, BOOL) {}

// The system does not tell.
inline BOOL OvLastPolicySignal(BOOL, SYSTEMTIME*) {
    return FALSE;
}

// Callers are those of the system's own remote calls.
inline DWORD OvBeginCallOfPeer(int) {
    return ERROR_NOT_SUPPORTED;
}
inline DWORD OvBeginCallOfUser(DWORD, DWORD) {
    return ERROR_NOT_SUPPORTED;
}
inline DWORD OvBeginCallOfSids(const LPCWSTR*, DWORD, DWORD) {
    return ERROR_NOT_SUPPORTED;
}
inline void OvEndCall() {}

// The system's own log takes messages of registered sources alone; who debugs sees the line.
inline void OvSystemLog(const char* line, BOOL) {
    OutputDebugStringA(line);
}

// The system finds pointers that lead nowhere by itself.
inline void OvGuardFaults(BOOL) {}

// Nor does it tell where a node stood.
struct IXMLDOMNode;
inline BOOL OvNodePosition(IXMLDOMNode*, DWORD*, DWORD*) {
    return FALSE;
}

// Which home this is: for tests, and for the table of what differs (docs/homes.md).
inline constexpr char kOvHomeName[] = "windows";
