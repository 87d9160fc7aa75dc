// A store of the items that are measured.
#pragma once

#include <vector>

#include "Items.h"
#include "Measure.h"
#include "store/PolicyMap.h"

namespace bench {

inline CPolicyMap MapOf(const std::vector<Item>& items) {
    CPolicyMap map;
    for (const Item& item : items) {
        CPolicyItem entry{Wide(item.name), {}};
        if (item.isString) {
            entry.value.SetString(Wide(item.text).c_str());
        } else {
            entry.value.SetNumber(OV_TYPE_DWORD, item.number);
        }
        Must(map.Insert(std::move(entry)), "insert");
    }
    return map;
}

}  // namespace bench
