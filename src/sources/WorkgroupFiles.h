// Where policy files lie: in folders below the data root, the value OrvantisPath of SOFTWARE\Orvantis.
#pragma once

#include "Platform.h"
#include "sources/PolicySources.h"

// The full path of a data folder (kPluginData, kGpoData, kTesselData). `size` is the room in 16-bit characters, at
// least MAX_PATH. False for another kind, without a data root, or when the path does not fit.
bool GetDataFolder(int kind, LPWSTR buffer, DWORD size) noexcept;

// The full path of a file in such a folder; empty when there is none.
wstr BuildDataFilePath(int kind, LPCWSTR fileName);
