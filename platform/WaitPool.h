// The threads on which registered waits run. They come when there is work, and go when there is none for a while or no
// wait is registered any more: a pool that idles costs nothing, and a host that is done with it finds no thread left.
#pragma once

#include <memory>

class CRegisteredWait;

// False when there is no memory or no thread to be had.
bool RunOnWaitPool(std::shared_ptr<CRegisteredWait> wait) noexcept;

// Once for each wait that is registered, and once at its end, with what the first has given: the child of a fork has
// another pool. The last to go waits for the threads that idle. CountWait raises std::bad_alloc.
const void* CountWait();
void ForgetWait(const void* pool) noexcept;
