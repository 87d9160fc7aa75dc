// The public interface in a differential run: what lies in the local keys is changed beneath the object, and the object
// is asked. As in RegistryActs.h, what is drawn never depends on an answer.
#pragma once

#include <orvantis/ServerInfo.h>

#include <string>

#include "differential/Choice.h"
#include "differential/Transcript.h"

class CServerActs {
  public:
    // Loads the module and makes the object. Both failing, every question is answered "no object".
    CServerActs(CChoice& choice, CTranscript& transcript);
    ~CServerActs();
    CServerActs(const CServerActs&) = delete;
    CServerActs& operator=(const CServerActs&) = delete;

    void Act();

  private:
    void PutPlain();
    void PutMasks();
    void PutBits();
    void Remove();
    void AskMany();
    void AskNumber();
    void AskText();
    void Change();

    const wstr& DrawName();

    CChoice& m_choice;
    CTranscript& m_transcript;
    HMODULE m_module;
    IOVServerInfo* m_server = nullptr;
};
