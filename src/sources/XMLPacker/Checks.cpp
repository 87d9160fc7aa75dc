#include "sources/XMLPacker/Checks.h"

#include "diagnostics/TraceScope.h"

void OVXMLCheck::Fail(const char* expression, ULONG code, int line) {
    {
        OVTraceNS::CTraceScope scope("---", 0);
        scope.Print("%s, result: 0x%08X", expression, static_cast<DWORD>(code));
        scope.Print("( file %s, line %d )", "XMLPacker", line);
    }
    throw code;
}
