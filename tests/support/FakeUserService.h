// A user service of the test's own, found by its class id: it knows whom it is told, and may be locked or missing.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "authpolicy/UserService.h"

class CFakeUserService final : public IClassFactory, public IOVUserNames, public IOVLockPolicy {
  public:
    struct User {
        wstr sam;
        wstr sid;
        bool local;
    };

    CFakeUserService() {
        EXPECT_EQ(CoRegisterClassObject(CLSID_UserService, static_cast<IClassFactory*>(this), CLSCTX_INPROC_SERVER,
                                        REGCLS_MULTIPLEUSE, &m_cookie),
                  S_OK);
    }
    ~CFakeUserService() { CoRevokeClassObject(m_cookie); }

    std::map<wstr, User> users;    // by the name that is asked for, whatever its format
    bool hasNames = true;          // else there is no IOVUserNames
    bool hasAgent = true;          // else there is no IOVLockPolicy
    HRESULT creation = S_OK;       // of an instance
    HRESULT lock = S_FALSE;        // what the agent says
    std::vector<ULONGLONG> masks;  // its list when it says 0

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        *object = nullptr;
        if (iid == IID_IUnknown || iid == IID_IClassFactory) *object = static_cast<IClassFactory*>(this);
        if (iid == IID_IOVUserNames && hasNames) *object = static_cast<IOVUserNames*>(this);
        if (iid == IID_IOVLockPolicy && hasAgent) *object = static_cast<IOVLockPolicy*>(this);
        return *object ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 1; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP CreateInstance(IUnknown*, REFIID iid, void** object) override {
        *object = nullptr;
        return FAILED(creation) ? creation : QueryInterface(iid, object);
    }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }

    STDMETHODIMP TranslateName(LPCWSTR name, DWORD, DWORD count, const DWORD* formats,
                               OV_NAME_RESULT** result) override {
        const auto user = users.find(name);
        if (user == users.end()) return HRESULT_FROM_WIN32(ERROR_NONE_MAPPED);
        EXPECT_EQ(count, 1u);
        auto* block = static_cast<OV_NAME_RESULT*>(CoTaskMemAlloc(sizeof(OV_NAME_RESULT)));
        const wstr& text = formats[0] == kNameSid ? user->second.sid : user->second.sam;
        auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(WCHAR)));
        std::copy_n(text.c_str(), text.size() + 1, copy);
        *block = {1, 0, {{formats[0], S_OK, copy}}};
        *result = block;
        return user->second.local ? S_FALSE : S_OK;
    }
    STDMETHODIMP Reserved() override {
        ADD_FAILURE() << "never called";
        return E_NOTIMPL;
    }
    STDMETHODIMP GetLockPolicyList(DWORD* count, ULONGLONG** list) override {
        if (lock != S_OK) return lock;
        *count = static_cast<DWORD>(masks.size());
        *list = static_cast<ULONGLONG*>(CoTaskMemAlloc(masks.size() * sizeof(ULONGLONG)));
        std::copy(masks.begin(), masks.end(), *list);
        return S_OK;
    }

  private:
    DWORD m_cookie = 0;
};
