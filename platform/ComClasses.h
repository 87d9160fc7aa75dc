// The classes that the layer has itself.
#pragma once

#include "unknwn.h"

// {F6D90F11-9C73-11D3-B32E-00C04F990BB4}, "Msxml2.DOMDocument".
inline constexpr CLSID kXmlDocumentClass = {
    0xF6D90F11, 0x9C73, 0x11D3, {0xB3, 0x2E, 0x00, 0xC0, 0x4F, 0x99, 0x0B, 0xB4}};

HRESULT CreateXmlDocument(REFIID iid, void** object) noexcept;
