// Who is told when a policy's stamp changes: events, set by one thread for each root in which something is registered.
// It sleeps in the kernel until then.
#pragma once

#include <memory>

#include "Event.h"

// Until it is removed the event is set at each change; the handle is only its name here. Raises std::bad_alloc and
// std::system_error.
void AddPolicyListener(HANDLE handle, std::shared_ptr<CEvent> event, bool machine);
// False for one that is not there.
bool RemovePolicyListener(HANDLE handle) noexcept;
