// Where managed policy comes from, the strongest source first: for a name that several deliver, the first one counts.
#pragma once

#include "Platform.h"

enum class PolicyForm {
    kRegistry,      // the machine's Group Policy tree
    kSettings,      // a settings document: its items, then its domains
    kAuthPolicies,  // an authentication-policy document
};

struct PolicySource {
    const char* kind;  // a word for it, as the tools say it
    PolicyForm form;
    int folder;       // which data folder; 0 for the registry
    LPCWSTR file;     // the name in it
    bool withEngine;  // only where Userenv.dll could be loaded
};

inline constexpr LPCWSTR kGroupPolicyKey = W("SOFTWARE\\Policies\\Orvantis");
inline constexpr LPCWSTR kSettingsFile = W("OV_WgClient_Data.xml");
inline constexpr LPCWSTR kAuthPolicyFile = W("{5ED04F3F-AC3E-4BE0-A157-782B204E2B8C}.XML");

// The data folders, below the data root.
inline constexpr int kPluginData = 1;
inline constexpr int kGpoData = 2;
inline constexpr int kTesselData = 3;

inline constexpr PolicySource kPolicySources[] = {
    {"group-policy", PolicyForm::kRegistry, 0, nullptr, true},
    {"gpo-auth", PolicyForm::kAuthPolicies, kGpoData, kAuthPolicyFile, true},
    {"plugin-settings", PolicyForm::kSettings, kPluginData, kSettingsFile, false},
    {"plugin-auth", PolicyForm::kAuthPolicies, kPluginData, kAuthPolicyFile, false},
    {"tessel-settings", PolicyForm::kSettings, kTesselData, kSettingsFile, false},
    {"tessel-auth", PolicyForm::kAuthPolicies, kTesselData, kAuthPolicyFile, false},
};
