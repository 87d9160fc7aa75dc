// A policy document on its own, read as the component reads it, into a map beside the store.
#pragma once

#include <string>

#include "store/PolicyMap.h"
#include "svinfo/SourceLedger.h"

struct CPolicyDocument {
    PolicyForm form = PolicyForm::kSettings;  // told from the content: only a settings document has Items
    CPolicyMap items;
    CSourceLedger ledger;  // of the one file
    const CSourceEntry& Entry() const { return ledger.Sources().back(); }
    // Throws CCommandFailure (4) when the document is damaged.
    void RequireSound() const;
    // A settings document with these items and nothing else.
    wstr SettingsText() const;
};

// `path` is UTF-8. `settingsOnly` leaves the domains of a settings document out. Throws CCommandFailure (4) when the
// file cannot be read.
CPolicyDocument ReadPolicyDocument(const std::string& path, bool settingsOnly);
