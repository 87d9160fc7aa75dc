// The policy engine's signals and its critical section. The module binds them by name from "Userenv.dll".
#pragma once

#include "win/types.h"

#define RP_FORCE 1

// From now on the event is set each time the policy of the machine (of the users, when `machine` is FALSE) has been
// applied, by whatever process. 87 for a null handle, 6 for one that is no event. Unregister before closing the event.
OVLAYER_API BOOL WINAPI RegisterGPNotification(HANDLE event, BOOL machine);
OVLAYER_API BOOL WINAPI UnregisterGPNotification(HANDLE event);

// One holder at a time, in all processes; a holder that dies gives it up. Null when it cannot be had.
OVLAYER_API HANDLE WINAPI EnterCriticalPolicySection(BOOL machine);
OVLAYER_API BOOL WINAPI LeaveCriticalPolicySection(HANDLE section);

// Tells every process that registered. There is no engine behind it that would apply policy first. `options` 0 or
// RP_FORCE.
OVLAYER_API BOOL WINAPI RefreshPolicyEx(BOOL machine, DWORD options);
