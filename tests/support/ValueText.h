// A record's answer as one short line, and its memory freed: "1 dword 5", "0x80070002 none".
#pragma once

#include <orvantis/ServerInfo.h>

#include <cstdio>
#include <string>

#include "Platform.h"

inline std::string ValueText(const OV_SERVER_VALUE& value) {
    char buffer[32];
    switch (value.type) {
        case OV_TYPE_STRING: {
            std::string text = "string ";
            LPCWSTR units = OvServerValueText(value);
            if (!units) return text + "null";
            text += '\'';
            for (; *units; ++units) text += *units < 0x80 ? static_cast<char>(*units) : '?';
            return text + '\'';
        }
        case OV_TYPE_DWORD:
            return "dword " + std::to_string(static_cast<DWORD>(value.data));
        case OV_TYPE_QWORD:
            std::snprintf(buffer, sizeof buffer, "qword %016llX", static_cast<unsigned long long>(value.data));
            return buffer;
        case OV_TYPE_ARRAY: {
            std::string text = "array [";
            for (DWORD i = 0; i < static_cast<DWORD>(value.data); ++i) {
                std::string element = ValueText(value.items[i]);
                if (element.starts_with("qword ")) element.erase(0, 6);
                text += (i ? " " : "") + element;
            }
            return text + ']';
        }
        default:
            return "none";
    }
}

inline std::string TextAndFree(OV_SERVER_INFO_EX& record) {
    char result[16];
    std::snprintf(result, sizeof result, record.hr < 0 ? "0x%08X" : "%X", static_cast<unsigned>(record.hr));
    const std::string text = std::string(result) + ' ' + ValueText(record.value);
    if (SUCCEEDED(record.hr)) OvFreeServerValue(record.value);
    return text;
}
