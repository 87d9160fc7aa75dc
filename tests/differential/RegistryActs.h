// The registry calls of a differential run.
//
// Each act draws a call and its parameters, makes the call, and writes both with the answer. What it draws depends on
// the dice alone and never on an answer, so that both homes are asked the same questions to the end.
//
// Left out is what the platform leaves open: the order of values (they are enumerated whole and written sorted), names
// whose order depends on whether case is folded up or down ('[' to '`'), both views asked for at once, and a view that
// is not the one of the handle.
#pragma once

#include <array>
#include <string>

#include "differential/Choice.h"
#include "differential/Transcript.h"

class CRegistryActs {
  public:
    CRegistryActs(CChoice& choice, CTranscript& transcript) noexcept : m_choice(choice), m_transcript(transcript) {}
    ~CRegistryActs();
    CRegistryActs(const CRegistryActs&) = delete;
    CRegistryActs& operator=(const CRegistryActs&) = delete;

    void Act();

  private:
    struct Held {
        HKEY key = nullptr;  // null is a handle like any other: it is refused
        REGSAM access = 0;
        bool narrow = false;  // asked for in the 32-bit view
    };
    // A key to start from: a predefined one, with the rest of the path to put before every name, or a held one.
    struct Start {
        HKEY key;
        wstr prefix;
        bool narrow;  // a held key of the 32-bit view
        bool held;
        std::string shown;
    };

    void Open();
    void Create();
    void OpenUser();
    void Close();
    void Set();
    void Query();
    void DeleteValue();
    void DeleteKey();
    void EnumKeys();
    void EnumValues();
    void Info();

    Start DrawStart();
    REGSAM DrawView(const Start& start);
    wstr DrawPath();
    Held& DrawHeld(std::string& shown);
    std::vector<BYTE> DrawData(DWORD type);
    std::string Hold(HKEY key, REGSAM access, bool narrow);

    CChoice& m_choice;
    CTranscript& m_transcript;
    std::array<Held, 5> m_held;
};
