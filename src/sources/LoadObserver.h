// Who looks on while policy is loaded: the tools of this tree, which tell what came from where and what was passed
// over. The module has none, and a load without one pays a test of a pointer.
//
// An observer changes nothing of what is loaded, and is told of nothing that the load would not find out itself, but
// for what lies behind the point where a walk ends. What it raises counts as the source's failure.
#pragma once

#include "Platform.h"
#include "sources/PolicySources.h"
#include "store/PolicyValue.h"

// Where something lies: a node of a document, or a registry key.
struct CLoadPlace {
    IXMLDOMNode* node = nullptr;
    LPCWSTR key = nullptr;        // below HKEY_LOCAL_MACHINE
    IXMLDOMNode* item = nullptr;  // the item that the node is a part of, where that is not the node itself
};

enum class Oddity {
    kItemsMissing,   // a settings document without an `Items` element, which gives nothing
    kItemsRepeated,  // or with another one, at the place; it gives nothing either
    kGroupMissing,   // no group of the name in the detail
    kGroupRepeated,  // another one, which is not read
    kIncomplete,     // an item without the children in the detail
    kUnknownType,    // the detail is no type; the walk ends here
    kNotReached,     // behind the end of the walk
    kNotAPolicy,     // neither of the forms of an authentication policy
    kEmptyList,      // a list without an entry, which is no policy
    kNotBoolean,     // a domain of another type, in the detail
    kNumberCut,      // not all of the text in the detail is a number; what there is of one counts
    kRegistryType,   // a registry value, in the detail, that no item can hold
};

class CLoadObserver {
  public:
    // The turn of a source. `place` is its key, or the path of its file, which is empty where there is no data root;
    // `present` whether it is there to be read.
    virtual void Source(const PolicySource& source, LPCWSTR place, bool present) = 0;
    // A document was loaded, or failed to.
    virtual void Document(IXMLDOMDocument* document, HRESULT hr) = 0;
    // An item, and whether it went into the store or a stronger one was there.
    virtual void Delivered(const CPolicyItem& item, bool kept, const CLoadPlace& place) = 0;
    virtual void PassedOver(Oddity oddity, LPCWSTR detail, const CLoadPlace& place) = 0;

  protected:
    ~CLoadObserver() = default;
};
