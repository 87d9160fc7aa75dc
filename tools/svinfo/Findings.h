// What is odd about a source, as the verbs tell it.
#pragma once

#include "svinfo/Output.h"
#include "svinfo/SourceLedger.h"

// Damage, or anything that was passed over.
bool HasFindings(const CSourceEntry& entry) noexcept;

// One line each, "FILE:LINE:COLUMN: what", to standard error. Past the first twenty only their number is told, unless
// more is asked for (-v).
void TellFindings(const CSourceEntry& entry, COutput& output);

// The members "damage" (or null) and "findings".
void AddFindings(json& object, const CSourceEntry& entry);
