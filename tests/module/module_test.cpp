// The module as a host meets it: loaded by name, spoken to through its exports.
#include <gtest/gtest.h>
#include <orvantis/ServerInfo.h>

#include <thread>
#include <vector>

#include "module/Library.h"
#include "support/TestRoot.h"

namespace {

using GetClassObjectProc = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, LPVOID*);
using CanUnloadProc = HRESULT(STDAPICALLTYPE*)();

class Module : public RootTest {
  protected:
    void SetUp() override {
        m_module = LoadLibraryW(W("OvSvInfo"));
        ASSERT_NE(m_module, nullptr) << GetLastError();
        m_getClassObject = FindExport<GetClassObjectProc>(m_module, "DllGetClassObject");
        m_canUnload = FindExport<CanUnloadProc>(m_module, "DllCanUnloadNow");
        ASSERT_TRUE(m_getClassObject && m_canUnload);
    }
    void TearDown() override {
        if (!m_module) return;
        EXPECT_EQ(m_canUnload(), S_OK) << "a case must leave nothing behind";
        EXPECT_TRUE(FreeLibrary(m_module));
    }
    IClassFactory* Factory() {
        void* factory = nullptr;
        EXPECT_EQ(m_getClassObject(CLSID_ServerInfo, IID_IClassFactory, &factory), S_OK);
        return static_cast<IClassFactory*>(factory);
    }

    HMODULE m_module = nullptr;
    GetClassObjectProc m_getClassObject = nullptr;
    CanUnloadProc m_canUnload = nullptr;
};

TEST_F(Module, ServesItsOneClass) {
    void* object = reinterpret_cast<void*>(0xEE);
    EXPECT_EQ(m_getClassObject(IID_IUnknown, IID_IClassFactory, &object), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(object, nullptr);
    object = reinterpret_cast<void*>(0xEE);
    EXPECT_EQ(m_getClassObject(CLSID_ServerInfo, IID_IOVServerInfo, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(m_getClassObject(CLSID_ServerInfo, IID_IClassFactory, nullptr), E_POINTER);
}

TEST_F(Module, OneClassObjectForAllAndNoLockWhileIdle) {
    std::vector<void*> made(4);
    std::vector<std::thread> racers;
    for (void*& slot : made) {
        racers.emplace_back([this, &slot] { m_getClassObject(CLSID_ServerInfo, IID_IUnknown, &slot); });
    }
    for (std::thread& racer : racers) racer.join();
    for (void* object : made) EXPECT_EQ(object, made[0]);
    EXPECT_EQ(m_canUnload(), S_FALSE) << "somebody holds the class object";
    for (void* object : made) static_cast<IUnknown*>(object)->Release();
    EXPECT_EQ(m_canUnload(), S_OK) << "the module's own reference does not count";
}

TEST_F(Module, LockServerCounts) {
    IClassFactory* factory = Factory();
    factory->LockServer(TRUE);
    factory->LockServer(TRUE);
    factory->LockServer(FALSE);
    factory->Release();
    EXPECT_EQ(m_canUnload(), S_FALSE);
    factory = Factory();
    factory->LockServer(FALSE);
    factory->Release();
    EXPECT_EQ(m_canUnload(), S_OK);
}

TEST_F(Module, InstancesAnswerAndKeepTheModule) {
    IClassFactory* factory = Factory();
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IOVServerInfo, nullptr), E_POINTER);
    void* object = reinterpret_cast<void*>(0xEE);
    EXPECT_EQ(factory->CreateInstance(nullptr, CLSID_ServerInfo, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);

    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IOVServerInfo, &object), S_OK);
    factory->Release();
    EXPECT_EQ(m_canUnload(), S_FALSE);
    auto* server = static_cast<IOVServerInfo*>(object);
    void* second = nullptr;
    ASSERT_EQ(server->QueryInterface(IID_IOVServerInfo2, &second), S_OK);
    EXPECT_EQ(second, object) << "both ids name the same table";
    void* identity = nullptr;
    ASSERT_EQ(static_cast<IUnknown*>(second)->QueryInterface(IID_IUnknown, &identity), S_OK);

    DWORD number = 1;
    EXPECT_EQ(server->GetItemLong(W("nothing"), &number), static_cast<HRESULT>(0x80070002));
    EXPECT_TRUE(FAILED(server->SetItemLong(W("nothing"), 1))) << "a thread that acts for nobody";
    EXPECT_EQ(server->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    static_cast<IUnknown*>(identity)->Release();
    static_cast<IUnknown*>(second)->Release();
    EXPECT_EQ(server->Release(), 0u);
}

// A host's object with one of ours inside.
class COuter : public IUnknown {
  public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (iid == IID_IUnknown) {
            AddRef();
            *object = static_cast<IUnknown*>(this);
            return S_OK;
        }
        return inner->QueryInterface(iid, object);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++references; }
    STDMETHODIMP_(ULONG) Release() override { return --references; }

    IUnknown* inner = nullptr;
    ULONG references = 1;
};

TEST_F(Module, CanBeAggregated) {
    IClassFactory* factory = Factory();
    COuter outer;
    void* object = reinterpret_cast<void*>(0xEE);
    EXPECT_EQ(factory->CreateInstance(&outer, IID_IOVServerInfo, &object), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(object, nullptr);
    ASSERT_EQ(factory->CreateInstance(&outer, IID_IUnknown, &object), S_OK);
    factory->Release();
    outer.inner = static_cast<IUnknown*>(object);

    void* server = nullptr;
    ASSERT_EQ(outer.QueryInterface(IID_IOVServerInfo, &server), S_OK);
    EXPECT_EQ(outer.references, 2u) << "the interface counts on the outer object";
    void* identity = nullptr;
    ASSERT_EQ(static_cast<IUnknown*>(server)->QueryInterface(IID_IUnknown, &identity), S_OK);
    EXPECT_EQ(identity, static_cast<IUnknown*>(&outer)) << "and has its identity";
    DWORD number = 0;
    EXPECT_EQ(static_cast<IOVServerInfo*>(server)->GetItemLong(W("x"), &number), static_cast<HRESULT>(0x80070002));
    outer.Release();
    static_cast<IUnknown*>(server)->Release();
    EXPECT_EQ(outer.references, 1u);
    EXPECT_EQ(m_canUnload(), S_FALSE);
    EXPECT_EQ(outer.inner->Release(), 0u);
}

TEST_F(Module, ManyThreadsMayAskOneInstance) {
    IClassFactory* factory = Factory();
    void* object = nullptr;
    ASSERT_EQ(factory->CreateInstance(nullptr, IID_IOVServerInfo, &object), S_OK);
    factory->Release();
    auto* server = static_cast<IOVServerInfo*>(object);
    std::vector<std::thread> clients;
    for (int client = 0; client < 4; ++client) {
        clients.emplace_back([server] {
            for (int i = 0; i < 200; ++i) {
                OV_SERVER_INFO_EX records[2] = {{W("LogonPolicy"), 0, {}}, {W("A\\B"), 0, {}}};
                ASSERT_EQ(server->GetInfo(2, records), S_OK);
                ASSERT_EQ(records[0].hr, static_cast<HRESULT>(0x80070002));
                server->AddRef();
                server->Release();
            }
        });
    }
    for (std::thread& client : clients) client.join();
    EXPECT_EQ(server->Release(), 0u);
}

}  // namespace
