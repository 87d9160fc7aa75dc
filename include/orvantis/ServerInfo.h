// Server Info Provider: the records, interfaces and ids that a client compiles against.
//
// A host loads the module, asks DllGetClassObject for the class object of CLSID_ServerInfo, creates an instance and
// asks it by name. docs/client-guide.md has the whole of it in twenty lines.
//
// Text      16-bit units ending in NUL.
// Memory    whatever a call hands out is one CoTaskMemAlloc block for each string and array, and the caller's to free
//           with CoTaskMemFree (OvFreeServerValue frees a whole value). On Linux such a block is malloc's, so that a
//           client without the layer frees it with free.
// Results   0 for a managed value, 1 (S_FALSE) for one of the local keys, negative for none. Test for negative. Beside
//           those told below: 0x8000FFFF for a pointer that leads nowhere, for want of memory, and for what has no code
//           of its own. A null pointer has the result that its operation tells.
// Threads   an instance is free-threaded; queries of one instance run one at a time.
#pragma once

#include <cstddef>
#include <type_traits>

#include <windows.h>

#include <objbase.h>
#include <unknwn.h>

// A literal of 16-bit text, the same in both homes: OV_TEXT("LogonPolicy").
#define OV_TEXT(literal) OvPickText(L##literal, u##literal)
template <class Wide, class Unicode>
constexpr LPCWSTR OvPickText(Wide wide, Unicode unicode) noexcept {
    if constexpr (std::is_same_v<Wide, LPCWSTR>) {
        return wide;
    } else {
        return unicode;
    }
}

inline constexpr CLSID CLSID_ServerInfo = {
    0x5833D5CB, 0x2254, 0x4F1D, {0x9B, 0x43, 0x03, 0x59, 0xD7, 0x0F, 0x95, 0x96}};
inline constexpr IID IID_IOVComponentInit = {
    0x26AD8067, 0xBEC2, 0x4AAB, {0x92, 0xA9, 0x53, 0x46, 0x75, 0x12, 0xEA, 0x38}};
inline constexpr IID IID_IOVServerInfo = {0xDC6DF02A, 0xE9C8, 0x4115, {0xBA, 0xDB, 0xF8, 0x12, 0xE4, 0xF1, 0x67, 0x3E}};
inline constexpr IID IID_IOVServerInfoExt = {
    0x815ED444, 0xCA7C, 0x4BA6, {0x8C, 0xAB, 0x34, 0xD4, 0xE0, 0xA4, 0x0D, 0x21}};
inline constexpr IID IID_IOVAuthenticationPolicyEx = {
    0x99F038AE, 0x0E79, 0x4FFD, {0xA0, 0x52, 0xE9, 0x22, 0xE9, 0xCF, 0x3B, 0x19}};
inline constexpr IID IID_IOVServerInfoNotify = {
    0x91807E92, 0x23C9, 0x4D5C, {0x8E, 0x40, 0x8D, 0xBF, 0xAD, 0xC5, 0x28, 0x96}};
inline constexpr IID IID_IOVInfoChangeCallback = {
    0xDA17063F, 0x7994, 0x4353, {0x9D, 0xD4, 0x42, 0xF1, 0x74, 0x0C, 0x74, 0xCD}};
inline constexpr IID IID_IOVServerInfo2 = {
    0x33D03C39, 0xEA44, 0x47E3, {0xBF, 0x89, 0xA7, 0x77, 0xF8, 0x7D, 0x9D, 0x82}};

// What a value is. Strings, DWORDs, 64-bit numbers and arrays cross the interfaces; the others stay inside.
enum OV_VALUE_TYPE : DWORD {
    OV_TYPE_NONE = 0,
    OV_TYPE_LONG = 1,      // signed, low 32 bits of data
    OV_TYPE_STRING = 2,    // data points to the text
    OV_TYPE_ULONG = 3,     // low 32 bits of data
    OV_TYPE_DWORD = 4,     // low 32 bits of data
    OV_TYPE_GUID = 5,      // the 16 bytes of data and items
    OV_TYPE_DOUBLE = 6,    // data
    OV_TYPE_FILETIME = 7,  // data
    OV_TYPE_BLOB = 8,      // data is the number of bytes, items points to them
    OV_TYPE_UINT64 = 9,    // data
    OV_TYPE_QWORD = 10,    // data
    OV_TYPE_ARRAY = 11,    // low 32 bits of data are the number of elements, items points to them
};

// A tagged value in client form.
struct OV_SERVER_VALUE {
    DWORD type;              // an OV_VALUE_TYPE
    ULONGLONG data;          // the number, the string's address, or the count
    OV_SERVER_VALUE* items;  // the elements of an array, else null
};

// What `hr` of a record asks for on entry. Anything but the default request is an ordinary query.
inline constexpr HRESULT OV_QUERY = 0;
inline constexpr HRESULT OV_QUERY_DEFAULT = 2;  // the Default key alone; the store and the local key are passed over

// One question of GetInfo, and its answer.
struct OV_SERVER_INFO_EX {
    LPCWSTR name;           // the item; stays the caller's
    HRESULT hr;             // in: what is asked; out: 0 managed, 1 local, negative why there is no value
    OV_SERVER_VALUE value;  // out; what it holds on entry is ignored and overwritten
};

static_assert(sizeof(OV_SERVER_VALUE) == 24 && offsetof(OV_SERVER_VALUE, data) == 8 &&
              offsetof(OV_SERVER_VALUE, items) == 16);
static_assert(sizeof(OV_SERVER_INFO_EX) == 40 && offsetof(OV_SERVER_INFO_EX, hr) == 8 &&
              offsetof(OV_SERVER_INFO_EX, value) == 16);

// Frees what a value owns. The fields stay as they are.
inline void OvFreeServerValue(const OV_SERVER_VALUE& value) noexcept {
    if (value.type == OV_TYPE_STRING) {
        CoTaskMemFree(reinterpret_cast<void*>(static_cast<ULONG_PTR>(value.data)));
    } else if (value.type == OV_TYPE_ARRAY) {
        for (DWORD i = 0; value.items && i < static_cast<DWORD>(value.data); ++i) OvFreeServerValue(value.items[i]);
        CoTaskMemFree(value.items);
    }
}

// The text of a string value; null for none and for every other type.
inline LPCWSTR OvServerValueText(const OV_SERVER_VALUE& value) noexcept {
    return value.type == OV_TYPE_STRING ? reinterpret_cast<LPCWSTR>(static_cast<ULONG_PTR>(value.data)) : nullptr;
}

// The beginning and the end of a component's use, as the suite's hosts have them. Neither call is needed.
struct IOVComponentInit : public IUnknown {
    // Nothing is left to do: 0.
    STDMETHOD(Init)() = 0;
    // Lets go of every subscriber and takes no new ones: RegisterNotification gives 0x80010001 from now on. Questions
    // and changes are served as before. A second call does nothing more.
    STDMETHOD(Term)() = 0;
};

// Questions and changes, by name.
struct IOVServerInfo : public IUnknown {
    // Answers `count` records in place. 0 unless the whole call failed (0x80004003: records is null and count is not
    // 0); each record has its own result in `hr`: 0x80070002 no such item, 0x8007000D a registry value of a type that
    // no record can hold, 0x80070032 a stored value that does not cross the interfaces.
    STDMETHOD(GetInfo)(DWORD count, OV_SERVER_INFO_EX* records) = 0;

    // One DWORD. 0x80070057 for a null or empty name or a null pointer, which leaves *value as it is; every other
    // failure leaves 0 in it, 0x8007000D for an item of another type among them.
    STDMETHOD(GetItemLong)(LPCWSTR name, DWORD* value) = 0;

    // One string, the caller's to free with CoTaskMemFree. Failures as above, with null in *value.
    STDMETHOD(GetItemString)(LPCWSTR name, LPWSTR* value) = 0;

    // Changes of the local key, for callers that the object's access list lets write: the system and administrators.
    // The caller is whoever the call came from or, where it came from nobody, whom this thread acts for; a host that
    // writes on its own account calls ImpersonateSelf(SecurityImpersonation) before and RevertToSelf afterwards.
    // 0x80070005 for a caller who may not, 0x80070006 for a thread that acts for nobody; nothing is changed then.
    //
    // 0 says that the local key holds the value now. Where a managed value is in force, a query goes on giving that.
    // Else subscribers are told of what changed, and the suite's event log component of who changed what. 0x80070057
    // for a null or empty name and for a null pointer; else what the registry says.
    STDMETHOD(SetItemLong)(LPCWSTR name, DWORD value) = 0;
    STDMETHOD(SetItemString)(LPCWSTR name, LPCWSTR value) = 0;
    // Deletes the local value. 0 also where there was none, and where it could not be deleted; the bits form of a
    // policy is not deleted by this.
    STDMETHOD(DeleteItem)(LPCWSTR name) = 0;
    // One of the nine authentication policies: a list of masks (OV_TYPE_ARRAY of OV_TYPE_QWORD), or a number
    // (OV_TYPE_DWORD). Any other item as its type tells: a string or a DWORD; 0x80004001 for 64 bits, 0x80070057 for
    // all else.
    STDMETHOD(SetItem)(LPCWSTR name, const OV_SERVER_VALUE* value) = 0;
};

// The same operations on the same table, under a second id.
struct IOVServerInfo2 : public IOVServerInfo {};

// Which credentials apply to a user, and who is an administrator.
//
// A list is `count` 64-bit masks in one CoTaskMem block, the caller's to free; an empty list is 0 and null. The masks
// are alternatives. A name comes with its form: 3 for DOMAIN\account, 8 for a SID, 0 for the recovery account, other
// numbers as the suite's user service counts them. On a failure the list is empty. 0x80070057: a null or empty name, or
// an output that is missing. 0x80070002: no policy says anything for this user.
struct IOVAuthenticationPolicyEx : public IUnknown {
    // At logon on this computer.
    STDMETHOD(GetUserLogonPolicyList)(LPCWSTR userName, DWORD nameFormat, DWORD* count, ULONGLONG** list) = 0;
    // In the session of the caller of this call, for that caller.
    STDMETHOD(GetSessionPolicyList)(DWORD* count, ULONGLONG** list) = 0;
    // In a session, for a named user.
    STDMETHOD(GetUserSessionPolicyList)(LPCWSTR userName, DWORD nameFormat, DWORD* count, ULONGLONG** list) = 0;
    // 0 for an administrator of this computer, 1 for everybody else and whenever that cannot be found out.
    STDMETHOD(IsAdmin)(LPCWSTR userName, DWORD nameFormat) = 0;
};

// Policy of a computer that no domain manages: files in the folders below its data root.
struct IOVServerInfoExt : public IUnknown {
    // Reads all sources again, the files among them, and tells every subscriber of this object what changed.
    STDMETHOD(SetWorkgroupPolicies)() = 0;

    // Copies the settings of a document into the local policy key, item by item: those of the text, or, when it is null
    // or empty, those of the file OV_WgClient_Data.xml in the folder PluginData. What the key holds beside them stays.
    // 0 also when the document is missing or not well-formed, and nothing was copied; nobody is told of the change.
    STDMETHOD(CopyWorkgroupPoliciesLocally)(LPCWSTR xml) = 0;
};

// Implemented by clients that want to hear of changes.
struct IOVInfoChangeCallback : public IUnknown {
    // `count` changed items. Index i of both arrays speaks of the same item: oldInfo what it was (`hr` 0x80070032 where
    // that is not known or there was nothing), newInfo what it is now (`hr` negative where there is nothing any more).
    // The arrays and all they point to are gone when this returns.
    //
    // Called on the thread that caused the change, under the object's lock: ask and change what you like on this
    // thread, but never wait here for another thread that calls the same object. A failure is noted and changes
    // nothing.
    STDMETHOD(OnInfoChanged)(DWORD count, const OV_SERVER_INFO_EX* oldInfo, const OV_SERVER_INFO_EX* newInfo) = 0;
};

// Changes, as they come.
struct IOVServerInfoNotify : public IUnknown {
    // `name` is the filter: the empty text for every item, else an item or a key, which passes what lies above and
    // below it. Takes a reference on `callback`, and gives a cookie that is never 0. The callback hears at once of what
    // the last load changed; a failure of that first delivery is the result, and the subscription stands all the same.
    // 0x80070057: name or callback is null. 0x80004003: cookie is null. 0x80010001: the object was terminated.
    STDMETHOD(RegisterNotification)(LPCWSTR name, IOVInfoChangeCallback* callback, DWORD* cookie) = 0;

    // Ends a subscription and releases its callback. 0x80070057 for an unknown cookie; 1 for one that Term has ended.
    STDMETHOD(UnregisterNotification)(DWORD cookie) = 0;
};
