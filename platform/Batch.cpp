#include "Batch.h"

#include <memory>

#include "Hives.h"
#include "Home.h"
#include "RegistryCall.h"

namespace {

thread_local std::unique_ptr<CBatch> t_batch;

}  // namespace

CBatch::CBatch() {
    CHives::Get().EnterBatch();
}

CBatch::~CBatch() {
    Close(false);
    CHives::Get().LeaveBatch();
}

CBatch* CBatch::Current() noexcept {
    return t_batch.get();
}

DWORD CBatch::Begin() {
    if (t_batch) return ERROR_BUSY;
    t_batch = std::make_unique<CBatch>();
    return ERROR_SUCCESS;
}

DWORD CBatch::End(bool commit) {
    if (!t_batch) return ERROR_INVALID_PARAMETER;
    const DWORD error = t_batch->Close(commit);
    t_batch.reset();
    return error;
}

void CBatch::ForgetInChild() noexcept {
    static_cast<void>(t_batch.release());
}

DWORD CBatch::Close(bool commit) noexcept {
    DWORD error = commit ? m_failure : static_cast<DWORD>(ERROR_SUCCESS);
    for (CHive* hive : m_hives) {
        const DWORD ended = hive->EndBatch(commit && !error);
        if (!error) error = ended;
    }
    m_hives.clear();
    return error;
}

LSTATUS WINAPI OvBeginRegistryBatch() {
    return RegistryCall([] { return CBatch::Begin(); });
}

LSTATUS WINAPI OvEndRegistryBatch(BOOL commit) {
    return RegistryCall([commit] { return CBatch::End(commit != FALSE); });
}
