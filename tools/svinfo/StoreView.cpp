#include "svinfo/StoreView.h"

#include "svinfo/Failure.h"

namespace {

// Whoever only looks must not touch the cache file, and an object deletes one that is damaged.
class CLooker : public CServerInfo {
  public:
    HRESULT FinalConstruct() {
        Prepare();
        return S_OK;
    }
    void FinalRelease() noexcept { Finish(); }
};

}  // namespace

CStoreView::CStoreView(CLoadObserver* observer) {
    void* made = nullptr;
    HRESULT hr = CreateObject<CLooker>(nullptr, IID_IOVServerInfo2, &made);
    if (SUCCEEDED(hr)) {
        auto* interface2 = static_cast<IOVServerInfo2*>(made);
        m_interface.reset(interface2);
        m_object = static_cast<CServerInfo*>(interface2);
        m_object->Observe(observer);
        hr = interface2->GetInfo(0, nullptr);
        // Complete now, and no later load of this object's touches what the observer holds.
        m_object->Observe(static_cast<CLoadObserver*>(nullptr));
    }
    if (FAILED(hr)) throw CCommandFailure(ExitCode::Failed, FailureOf("load the policy", hr).Line());
}
