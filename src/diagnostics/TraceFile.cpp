#include "diagnostics/TraceFile.h"

#include "diagnostics/TraceCipher.h"
#include "diagnostics/TraceFileName.h"
#include "diagnostics/TraceHeader.h"
#include "diagnostics/TraceSettings.h"

namespace OVTraceNS {

CFileOutput::CFileOutput() noexcept {
    CRegistryKey key;
    OpenTracingKey(key);
    if (!BuildTraceFileName(key, m_path)) return;
    DWORD anew = 1;
    if (key) key.QueryDword(W("NewFileAlways"), anew);
    m_file = CFileHandle(CreateFileW(m_path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                     anew != 0 ? CREATE_ALWAYS : OPEN_ALWAYS,
                                     FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!m_file) return;
    if (GetFileSize(m_file.Get(), nullptr) == 0) {
        WriteTraceHeader(m_file.Get());
    } else {
        WriteReopened();
    }
}

// Between the records of two processes that wrote to one file, one after the other.
void CFileOutput::WriteReopened() noexcept {
    SYSTEMTIME now;
    GetLocalTime(&now);
    char date[kReopenedText];
    PutLongDate(now, date);
    TraceRecordBuffer buffer;
    const DWORD size = buffer.Fill(TraceTag::kReopened, date, sizeof date);
    Write(&buffer.record, size, nullptr);
}

void CFileOutput::Write(TraceRecord* record, DWORD size, CTraceScope*) noexcept {
    if (!m_file) return;
    SetFilePointer(m_file.Get(), 0, nullptr, FILE_END);
    if (record->length != 0) EncipherTraceText(reinterpret_cast<char*>(record + 1), record->length);
    DWORD written = 0;
    WriteFile(m_file.Get(), record, size, &written, nullptr);
}

}  // namespace OVTraceNS
