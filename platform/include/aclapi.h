// Access lists and trustees.
#pragma once

#include "win/security.h"
