// The public interface in a differential run: what lies in the local keys and in the policy tree is changed beneath the
// object, and the object is asked; from time to time another one is made, which loads anew. As in RegistryActs.h, what
// is drawn never depends on an answer.
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
    void MakeObject();

    void PutPlain();
    void PutMasks();
    void PutBits();
    void Remove();
    void AskMany();
    void AskNumber();
    void AskText();
    void Change();
    void Renew();

    const wstr& DrawName();

    CChoice& m_choice;
    CTranscript& m_transcript;
    HMODULE m_module;
    IOVServerInfo* m_server = nullptr;
};
