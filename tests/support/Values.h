// Values as tests write them down.
#pragma once

#include <initializer_list>

#include "store/PolicyValue.h"

inline CPolicyValue Number(DWORD type, ULONGLONG data) {
    CPolicyValue value;
    value.SetNumber(type, data);
    return value;
}

inline CPolicyValue Text(LPCWSTR text) {
    CPolicyValue value;
    value.SetString(text);
    return value;
}

inline CPolicyValue List(std::initializer_list<CPolicyValue> elements) {
    CPolicyValue value = Number(OV_TYPE_ARRAY, 0);
    for (const CPolicyValue& element : elements) value.Append(element);
    return value;
}
