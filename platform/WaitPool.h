// The threads on which registered waits run. They come when there is work and go when there is none for a while, so
// that a pool that idles costs nothing.
#pragma once

#include <memory>

class CRegisteredWait;

// False when there is no memory or no thread to be had.
bool RunOnWaitPool(std::shared_ptr<CRegisteredWait> wait) noexcept;
