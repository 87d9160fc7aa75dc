// The layer's door under the name of the platform's.
#pragma once

#include "win/types.h"

#include "win/account.h"
#include "win/file.h"
#include "win/module.h"
#include "win/probe.h"
#include "win/registry.h"
#include "win/resource.h"
#include "win/security.h"
#include "win/sync.h"
#include "win/system.h"
#include "win/text.h"
#include "win/time.h"
