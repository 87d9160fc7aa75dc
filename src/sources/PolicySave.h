// What CServerInfo::SavePolicies leaves out.
#pragma once

#include "Platform.h"

// Which authentication domains are disabled is a matter of each computer: the item is never saved.
bool IsNeverSaved(LPCWSTR itemName) noexcept;
