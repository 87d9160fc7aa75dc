// Two transcripts beside each other.
#pragma once

#include <string>

// Reads the transcripts of the two homes and the table of what may differ (docs/homes.md, rows "differential":
// operation, the layer's answer, Windows's answer, each a regular expression, and the reason). Writes every difference
// that no row explains, every row that explains nothing where it should, and a closing line. True when there is none of
// either.
bool CompareHomes(const std::string& layerFile, const std::string& windowsFile, const std::string& tableFile);
