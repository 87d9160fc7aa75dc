#include "ComClasses.h"

#include "objbase.h"
#include "win/text.h"

namespace {

constexpr struct {
    LPCOLESTR name;
    const CLSID& id;
    HRESULT (*create)(REFIID iid, void** object) noexcept;
} kClasses[] = {
    {u"Msxml2.DOMDocument", kXmlDocumentClass, CreateXmlDocument},
};

}  // namespace

HRESULT WINAPI CLSIDFromProgID(LPCOLESTR name, LPCLSID id) {
    if (!name || !id) return E_INVALIDARG;
    *id = CLSID{};
    for (const auto& known : kClasses) {
        if (_wcsicmp(known.name, name) != 0) continue;
        *id = known.id;
        return S_OK;
    }
    return CO_E_CLASSSTRING;
}

HRESULT WINAPI CoCreateInstance(REFCLSID id, IUnknown* outer, DWORD context, REFIID iid, LPVOID* object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    for (const auto& known : kClasses) {
        if (known.id != id || (context & CLSCTX_INPROC_SERVER) == 0) continue;
        return outer ? CLASS_E_NOAGGREGATION : known.create(iid, object);
    }
    return REGDB_E_CLASSNOTREG;
}
