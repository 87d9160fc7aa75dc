// Security identifiers as text.
#pragma once

#include "win/account.h"
