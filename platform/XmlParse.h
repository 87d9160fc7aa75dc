// Documents become trees.
#pragma once

#include <string>
#include <string_view>

#include "XmlTree.h"

inline constexpr std::size_t kLargestXmlDocument = std::size_t{64} << 20;  // bytes

// What a load came to.
struct XmlOutcome {
    HRESULT hr = S_OK;   // S_FALSE for a document that did not load, or E_OUTOFMEMORY
    std::string reason;  // empty when it loaded
    LONG line = 0;       // from 1; 0 where no place is to blame
    LONG column = 0;
};

// `source` of the tree holds the bytes of the file.
XmlOutcome ParseXmlFile(CXmlTree& tree) noexcept;
XmlOutcome ParseXmlText(CXmlTree& tree, std::u16string_view text) noexcept;
