// What is odd about a source, as the verbs tell it.
#pragma once

#include "svinfo/Output.h"
#include "svinfo/SourceLedger.h"

// Damage, or anything that was passed over.
bool HasFindings(const CSourceEntry& entry) noexcept;

// "FILE: line" for each of the lines, to standard error. Past the first twenty only their number is told, unless more
// is asked for (-v).
void TellLines(const std::string& file, const std::vector<std::string>& lines, COutput& output);

// The same of a source's findings, each with its own place: "FILE:LINE:COLUMN: what".
void TellFindings(const CSourceEntry& entry, COutput& output);

// The members "damage" (or null) and "findings".
void AddFindings(json& object, const CSourceEntry& entry);
