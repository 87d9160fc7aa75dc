// What an access list allows somebody.
#pragma once

#include "Acl.h"
#include "Identity.h"

// Of a list that is whole. In the order of the list: what one entry denies, no later one allows, and the other way
// round. Entries of other kinds neither allow nor deny.
DWORD RightsIn(const CAclReader& list, const CIdentity& who) noexcept;
