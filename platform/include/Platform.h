// The one door to the system: every source of this tree includes this header and never asks which home it is in.
//
// Here it opens on the layer; in platform/windows/ stands its twin, which opens on the real thing.
#pragma once

#include <string>

#include <windows.h>

#include <aclapi.h>
#include <comdef.h>
#include <lm.h>
#include <msxml.h>
#include <objbase.h>
#include <oleauto.h>
#include <sddl.h>
#include <shlwapi.h>
#include <wincrypt.h>
#include <winternl.h>
#include <winver.h>

#include "Home.h"

using wstr = std::basic_string<WCHAR>;
using wstr_view = std::basic_string_view<WCHAR>;
