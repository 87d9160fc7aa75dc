#include "svinfo/StoreView.h"

#include "svinfo/Failure.h"

CStoreView::CStoreView(CLoadObserver* observer) {
    void* made = nullptr;
    HRESULT hr = CreateObject<CServerInfo>(nullptr, IID_IOVServerInfo2, &made);
    if (SUCCEEDED(hr)) {
        auto* interface2 = static_cast<IOVServerInfo2*>(made);
        m_interface.reset(interface2);
        m_object = static_cast<CServerInfo*>(interface2);
        m_object->LeaveCache();
        m_object->Observe(observer);
        hr = interface2->GetInfo(0, nullptr);
        // Complete now, and no later load of this object's touches what the observer holds.
        m_object->Observe(static_cast<CLoadObserver*>(nullptr));
    }
    if (FAILED(hr)) throw CCommandFailure(ExitCode::Failed, FailureOf("load the policy", hr).Line());
}
