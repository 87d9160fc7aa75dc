// Who hears what, when, and what a callback may do meanwhile.
#include <gtest/gtest.h>

#include <deque>

#include "support/Recorder.h"
#include "support/Registry.h"
#include "support/StoreDoor.h"
#include "support/TestRoot.h"

namespace {

using namespace testreg;
using Lines = std::vector<std::string>;

constexpr LPCWSTR kPolicy = W("SOFTWARE\\Policies\\Orvantis");
constexpr LPCWSTR kLocal = W("SOFTWARE\\Orvantis\\Policies");

class Subscribers : public RootTest {
  protected:
    DWORD Register(CRecorder& recorder, LPCWSTR filter = W("")) {
        DWORD cookie = 0;
        EXPECT_EQ(m_object->RegisterNotification(filter, &recorder, &cookie), S_OK);
        EXPECT_NE(cookie, 0u);
        return cookie;
    }
    CRecorder& NewRecorder() { return m_recorders.emplace_back(); }
    void Load() { StoreDoor::LoadAndNotify(*m_object); }
    void Query() { EXPECT_EQ(m_object->GetInfo(0, nullptr), S_OK); }

    std::deque<CRecorder> m_recorders;  // outlive the object that holds them
    CTestInstance m_object;
};

TEST_F(Subscribers, ArgumentsAndCookies) {
    CRecorder& recorder = NewRecorder();
    DWORD cookie = 0xEE;
    EXPECT_EQ(m_object->RegisterNotification(nullptr, &recorder, &cookie), E_INVALIDARG);
    EXPECT_EQ(m_object->RegisterNotification(W(""), nullptr, &cookie), E_INVALIDARG);
    EXPECT_EQ(cookie, 0xEEu) << "not touched";
    EXPECT_EQ(m_object->RegisterNotification(W(""), &recorder, nullptr), E_POINTER);
    EXPECT_EQ(recorder.references, 1u);

    const DWORD first = Register(recorder);
    const DWORD second = Register(recorder);
    EXPECT_NE(first, second);
    EXPECT_EQ(recorder.references, 3u);
    EXPECT_EQ(m_object->UnregisterNotification(first), S_OK);
    EXPECT_EQ(m_object->UnregisterNotification(first), E_INVALIDARG);
    EXPECT_EQ(m_object->UnregisterNotification(0), E_INVALIDARG);
    EXPECT_EQ(recorder.references, 2u);
    CTestInstance other;
    EXPECT_EQ(other->UnregisterNotification(second), E_INVALIDARG) << "a cookie is good for its own object only";
}

TEST_F(Subscribers, HearEachLoadsDifferencesWithOldAndNewValues) {
    PutDword(kPolicy, W("A"), 1);
    PutString(kPolicy, W("S"), W("text"));
    CRecorder& early = NewRecorder();
    CRecorder& late = NewRecorder();
    Register(early);
    EXPECT_EQ(early.Batches(), 0) << "there was no load yet";
    Query();
    EXPECT_EQ(early.Take(), (Lines{"A: nothing -> dword 1", "S: nothing -> string 'text'"}));
    Query();
    EXPECT_EQ(early.Batches(), 1) << "a query loads once";
    Register(late);
    EXPECT_EQ(late.Take(), (Lines{"A: nothing -> dword 1", "S: nothing -> string 'text'"})) << "news to whoever comes";

    PutDword(kPolicy, W("A"), 2);
    PutDword(kPolicy, W("B\\C"), 3);
    PutString(kPolicy, W("S"), W("TEXT"));
    Load();
    EXPECT_EQ(early.Take(), (Lines{"A: dword 1 -> dword 2", "B\\C: nothing -> dword 3"}));
    EXPECT_EQ(late.Batches(), 2);

    ASSERT_EQ(Make(kPolicy).DeleteTree(W("")), ERROR_SUCCESS);
    PutDword(kLocal, W("A"), 7);
    Load();
    EXPECT_EQ(early.Take(),
              (Lines{"A: dword 2 -> dword 7 local", "B\\C: dword 3 -> gone", "S: string 'TEXT' -> gone"}));
    Load();
    EXPECT_EQ(early.Batches(), 3) << "a load that changes nothing calls nobody";
    CRecorder& latest = NewRecorder();
    Register(latest);
    EXPECT_EQ(latest.Batches(), 0) << "and leaves nothing to tell";
}

TEST_F(Subscribers, FiltersPassWhatLiesAboveAndBelow) {
    for (LPCWSTR name : {W("A"), W("A\\B"), W("A\\B\\C"), W("A\\BC")}) PutDword(kPolicy, name, 1);
    const struct {
        LPCWSTR filter;
        int passed;
    } rows[] = {{W(""), 4}, {W("a\\b"), 3}, {W("A"), 4}, {W("A\\BC"), 2}, {W("A\\B\\C\\D"), 3}, {W("X"), 0}};
    Query();
    for (const auto& row : rows) {
        CRecorder& recorder = NewRecorder();
        const DWORD cookie = Register(recorder, row.filter);
        EXPECT_EQ(recorder.Take().size(), static_cast<std::size_t>(row.passed));
        EXPECT_EQ(recorder.Batches(), row.passed ? 1 : 0);
        m_object->UnregisterNotification(cookie);
    }
}

TEST_F(Subscribers, AFailingOrThrowingCallbackCostsNobodyElseAnything) {
    CRecorder& failing = NewRecorder();
    CRecorder& throwing = NewRecorder();
    CRecorder& raising = NewRecorder();
    CRecorder& sound = NewRecorder();
    failing.then = [] { return E_FAIL; };
    throwing.then = []() -> HRESULT { throw 5; };
    raising.then = []() -> HRESULT { throw _com_error(E_ACCESSDENIED); };
    for (CRecorder* recorder : {&failing, &throwing, &raising, &sound}) Register(*recorder);
    PutDword(kPolicy, W("A"), 1);
    Query();
    for (CRecorder* recorder : {&failing, &throwing, &raising, &sound}) EXPECT_EQ(recorder->Batches(), 1);
    DWORD cookie = 0;
    EXPECT_EQ(m_object->RegisterNotification(W(""), &raising, &cookie), E_ACCESSDENIED);
    EXPECT_NE(cookie, 0u);
    EXPECT_EQ(m_object->UnregisterNotification(cookie), S_OK) << "the subscription stands all the same";
    EXPECT_EQ(m_object->RegisterNotification(W(""), &throwing, &cookie), E_UNEXPECTED);
}

TEST_F(Subscribers, CallbacksMayChangeTheTableTheyAreCalledFrom) {
    CRecorder& first = NewRecorder();
    CRecorder& second = NewRecorder();
    CRecorder& third = NewRecorder();
    CRecorder& added = NewRecorder();
    DWORD firstCookie = 0, secondCookie = 0;
    first.then = [&] {
        EXPECT_EQ(m_object->UnregisterNotification(firstCookie), S_OK) << "itself";
        EXPECT_EQ(m_object->UnregisterNotification(secondCookie), S_OK) << "another one, whose turn has not come";
        Register(added);
        DWORD number = 0;
        EXPECT_EQ(m_object->GetItemLong(W("A"), &number), S_OK);
        return S_OK;
    };
    firstCookie = Register(first);
    secondCookie = Register(second);
    Register(third);
    PutDword(kPolicy, W("A"), 1);
    Query();
    EXPECT_EQ(first.Batches(), 1);
    EXPECT_EQ(second.Batches(), 0);
    EXPECT_EQ(third.Batches(), 1);
    EXPECT_EQ(added.Batches(), 1) << "by its registration, not by the delivery too";
    EXPECT_EQ(first.references, 1u);
}

TEST_F(Subscribers, ALoadInsideADeliveryTakesNothingFromTheOthers) {
    CRecorder& first = NewRecorder();
    CRecorder& second = NewRecorder();
    first.then = [&, once = false]() mutable {
        if (std::exchange(once, true)) return S_OK;
        PutDword(kPolicy, W("A"), 2);
        Load();
        return S_OK;
    };
    Register(first);
    Register(second);
    PutDword(kPolicy, W("A"), 1);
    PutDword(kPolicy, W("B"), 1);
    Query();
    EXPECT_EQ(first.Batches(), 2);
    EXPECT_EQ(second.Take(), (Lines{"A: dword 1 -> dword 2", "A: nothing -> dword 2", "B: nothing -> dword 1"}));
}

TEST_F(Subscribers, AreGoneAfterTheEndOfUse) {
    PutDword(kPolicy, W("A"), 1);
    void* found = nullptr;
    ASSERT_EQ(static_cast<IOVServerInfo2*>(&*m_object)->QueryInterface(IID_IOVComponentInit, &found), S_OK);
    auto* const life = static_cast<IOVComponentInit*>(found);
    EXPECT_EQ(life->Init(), S_OK);
    CRecorder& first = NewRecorder();
    CRecorder& second = NewRecorder();
    first.then = [&] { return life->Term(); };  // in the middle of a delivery
    const DWORD cookie = Register(first);
    Register(second);
    Query();
    EXPECT_EQ(first.Batches(), 1);
    EXPECT_EQ(second.Batches(), 0);
    EXPECT_EQ(first.references, 1u);
    EXPECT_EQ(second.references, 1u);
    EXPECT_EQ(m_object->UnregisterNotification(cookie), S_FALSE);
    DWORD none = 0;
    EXPECT_EQ(m_object->RegisterNotification(W(""), &second, &none), static_cast<HRESULT>(0x80010001u));
    EXPECT_EQ(none, 0u);
    EXPECT_EQ(life->Term(), S_OK);
    PutDword(kPolicy, W("A"), 2);
    Load();
    DWORD number = 0;
    EXPECT_EQ(m_object->GetItemLong(W("A"), &number), S_OK);
    EXPECT_EQ(number, 2u) << "questions and loads go on";
    EXPECT_EQ(second.Batches(), 0);
    life->Release();
}

}  // namespace
