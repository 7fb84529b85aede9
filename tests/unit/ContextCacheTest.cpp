// The cached contexts, and the thread that cleans up behind them.
#include <future>
#include <memory>
#include <random>

#include "fakes/PlatformTest.h"
#include "fakes/TestClock.h"
#include "fakes/TestContexts.h"
#include "sessions/SessionManager.h"

namespace morwen {
namespace {

using namespace Harrowlib201;
using ThreadPtr = TestCache::Thread;

class ContextCacheTest : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        const Chain settings({{u"SSPI_CTXT_CACHE_EXPIRY", 2, u"600"}});
        SSOHandlerFactory::instance()->GetHandler(u"SSPI")->InitHandler(Parameters(settings));
    }
    CSmartRefCountPtr<TestToken> Add(const char16_t* i_pszKey) {
        auto pToken = MakeCounted<TestToken>();
        SWCharString ssKey;
        EXPECT_TRUE(m_pCache->AddAssociation(m_pCache->Insert(ssKey, pToken), i_pszKey));
        return pToken;
    }
    // Impersonates for each "i" and reverts for each "r": what was thrown.
    std::string Switch(const std::string& i_steps, const SWCharString& i_ssKey) {
        std::string text;
        for (const char cStep : i_steps) {
            text += Thrown([&] {
                ContextManager manager(m_pCache);
                return cStep == 'i' ? manager.Impersonate(i_ssKey) : manager.Revert(i_ssKey), 0;
            });
        }
        return text;
    }

    TestClock m_clock{1000000};
    CSmartRefCountPtr<TestCache> m_pCache =
        MakeCounted<TestCache>([](TestCache&) -> ThreadPtr { throw JTCSystemCallException("no thread"); });
};

TEST_F(ContextCacheTest, KeysAreAddressesUntilTheHostGivesOthers) {
    SWCharString ssFirst, ssSecond;
    auto pFirst = MakeCounted<TestToken>();
    EXPECT_EQ(Utf8(m_pCache->Insert(ssFirst, pFirst)), std::to_string(reinterpret_cast<uintptr_t>(pFirst.get())));
    EXPECT_TRUE(m_pCache->Insert(ssSecond, MakeCounted<TestToken>()) == ssSecond && !(ssFirst == ssSecond));
    EXPECT_FALSE(m_pCache->AddAssociation(u"unknown", u"new"));
    EXPECT_TRUE(m_pCache->AddAssociation(ssFirst, ssFirst) && m_pCache->IsValid(ssFirst));
    EXPECT_TRUE(m_pCache->AddAssociation(ssFirst, u"mine"));
    EXPECT_EQ(Switch("ir", ssFirst), "100/61217100/61211");
    EXPECT_TRUE(m_trace.Said({"AddAssociation() -- Token for unknown is not in cache.", "2 contexts now in cache.",
                              "Impersonate() -- token for " + Utf8(ssFirst) + " not found or expired.",
                              "Revert() -- token for " + Utf8(ssFirst) + " not found."}));
    EXPECT_EQ(Switch("ir", u"mine"), "");
    pFirst = nullptr;
    EXPECT_TRUE(m_pCache->AddAssociation(ssSecond, u"mine"));  // in the first one's place
    EXPECT_EQ(TestToken::s_nAlive, 1);
    StaticTokenPtr pTaken;
    EXPECT_FALSE(m_pCache->Extract(ssSecond, pTaken));
    EXPECT_TRUE(m_pCache->Extract(u"mine", pTaken) && pTaken && !m_pCache->IsValid(u"mine"));
    Add(u"removed");
    EXPECT_TRUE(m_pCache->Remove(u"removed") && !m_pCache->Remove(u"removed"));
    for (int i = 0; i < 600; ++i) {  // more than the clean-up copies at once
        Add((u"cleared" + std::u16string(1, static_cast<char16_t>(i + 1))).c_str());
    }
    EXPECT_EQ(m_pCache->Snapshot().size(), 600U);
    m_pCache->Clear();
    EXPECT_EQ(TestToken::s_nAlive, 1);  // the one that was taken out
    m_pCache->Insert(ssFirst, nullptr);
    EXPECT_FALSE(m_pCache->IsValid(ssFirst) || m_pCache->Extract(ssFirst, pTaken));
    EXPECT_EQ(Switch("ir", ssFirst), "100/61217100/42254");
    m_pCache = nullptr;
    EXPECT_EQ(Switch("i", u"x"), "100/42254");
    EXPECT_TRUE(m_trace.Said({"Shutting down cleanly with 1 cached contexts", "m_pContextCache", "pToken"}));
}

TEST_F(ContextCacheTest, WhatHasExpiredCanOnlyBeReverted) {
    const auto pToken = Add(u"a");
    EXPECT_EQ(Switch("i", u"a"), "");
    m_clock.Set(1000000 + 600001);  // by the settings: the ticket is still good
    EXPECT_TRUE(m_pCache->IsValid(u"a"));
    EXPECT_EQ(Switch("i", u"a"), "100/61217");
    m_clock.Set(1000000);
    pToken->m_bExpired = true;
    EXPECT_FALSE(m_pCache->IsValid(u"a"));
    EXPECT_EQ(Switch("ir", u"a"), "100/61217");
    EXPECT_EQ(pToken->GetImpersonationCount(), 0U);
}

TEST_F(ContextCacheTest, OnlyItsOwnRemovalWaitsForAContextAtWork) {
    std::promise<void> inside, goOn;
    std::atomic<bool> bRemoved = false;
    const auto pSlow = Add(u"a");
    pSlow->m_onImpersonate = [&] {
        inside.set_value();
        goOn.get_future().wait();  // a name service that is slow to say who the user is
        EXPECT_FALSE(bRemoved);
    };
    Add(u"gone")->m_bExpired = true;
    std::thread user([this] { EXPECT_EQ(Switch("i", u"a"), ""); });
    inside.get_future().wait();
    auto others = std::async(std::launch::async, [&, this] {
        const Cleaner cleaner(m_pCache.get());
        cleaner.m_pThread->CleanUp();
        pSlow->m_bExpired = true;
        cleaner.m_pThread->CleanUp();  // acts as the user soon, and only this key can end it
        Add(u"b");
        EXPECT_TRUE(m_pCache->AddAssociation(u"b", u"c") && m_pCache->IsValid(u"c") && !m_pCache->IsValid(u"a"));
        EXPECT_EQ(Switch("ir", u"c"), "");
        EXPECT_TRUE(m_pCache->Remove(u"c"));
    });
    EXPECT_EQ(others.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(m_trace.Said({"gone has been removed.", "a is expired but impersonated -- remove later."}));
    std::thread remover([&, this] {
        EXPECT_TRUE(m_pCache->Remove(u"a"));
        bRemoved = true;
    });
    for (int i = 0; i < 1000 && !m_pCache->Snapshot().empty(); ++i) {  // before Clear() can take the key away
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    SWCharString ssAgain;
    m_pCache->Insert(ssAgain, pSlow);
    Add(u"z");
    std::thread remover2([&, this] {
        m_pCache->Clear();
        bRemoved = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));   // time enough for one that does not wait
    for (int i = 0; i < 1000 && TestToken::s_nAlive != 1; ++i) {  // all but the one at work end
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(TestToken::s_nAlive, 1);
    goOn.set_value();
    user.join();
    remover.join();
    remover2.join();
}

TEST_F(ContextCacheTest, AContextIsInsertedWhileOthersAreUsedWithoutAPause) {
    Add(u"a");
    std::atomic<bool> bStop = false;
    std::vector<std::thread> users;
    users.reserve(8);
    for (int i = 0; i < 8; ++i) {
        users.emplace_back([&, this] {
            while (!bStop) {
                m_pCache->IsValid(u"a");
                Switch("ir", u"a");
            }
        });
    }
    auto inserted = std::async(std::launch::async, [this] {
        for (int i = 0; i < 20; ++i) {
            Add(u"b");
            m_pCache->Remove(u"b");
        }
    });
    EXPECT_EQ(inserted.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    bStop = true;
    for (std::thread& user : users) {
        user.join();
    }
}

TEST_F(ContextCacheTest, ALostContextTakesItsSessionAlong) {
    const auto pManager =
        MakeCounted<SessionManager>(MakeCounted<TestCache>([](TestCache&) -> ThreadPtr { throw std::bad_alloc(); }));
    SWCharString ssKey;
    for (const auto& [pszToken, pszThrown] : {std::pair{"x", ""}, {"", "106/42502"}, {"", "100/42254"}}) {
        void* pvBuffer = nullptr;
        SSOLength nLength = 0;
        Parameters information;  // a context that is gone must not be asked who logged on
        const void* pvToken = *pszToken != '\0' ? pszToken : nullptr;
        LoginStep step{pvToken, pvToken != nullptr, ssKey, &pvBuffer, &nLength, {}};
        EXPECT_EQ(Thrown([&] { return pManager->GenerateServerContext(u"SSPI", step, true, information); }), pszThrown);
        ssKey = step.m_ssKey.isEmpty() ? ssKey : step.m_ssKey;
        SessionManager::FreeExternalBuffer(pvBuffer);
    }
    EXPECT_TRUE(m_trace.Said({"StartUpdateThread() -- Out of memory!", "NULL input buffer.", "0-length input"}));
}

TEST_F(ContextCacheTest, APassRemovesAndRenews) {
    auto cleaner = std::make_unique<Cleaner>(m_pCache.get());
    const auto pExpired = Add(u"a"), pUsed = Add(u"b"), pDue = Add(u"c"), pFresh = Add(u"d"), pLate = Add(u"e"),
               pReplaced = Add(u"f"), pBroken = Add(u"g");
    pExpired->m_bExpired = pUsed->m_bExpired = pLate->m_bExpired = pReplaced->m_bExpired = true;
    pDue->m_bDue = pLate->m_bDue = pBroken->m_bDue = true;
    pUsed->Impersonate();
    pLate->m_onExpired = [&] { pLate->m_bExpired = false; };  // renewed between the two looks
    pReplaced->m_onExpired = [&] { EXPECT_TRUE(m_pCache->AddAssociation(u"d", u"f")); };
    pBroken->m_onRenew = [] { throw 1; };
    for (int i = 1; i <= 2; ++i) {
        cleaner->m_pThread->CleanUp();
        EXPECT_TRUE(m_trace.Said({i == 1 ? "CleanUp() -- a has been removed." : "", "Renegotiate() -- Caught an exc",
                                  "CleanUp() -- b is expired but impersonated -- remove later."}));
        EXPECT_EQ(m_pCache->Snapshot().size(), 5U);
        EXPECT_TRUE(m_pCache->Snapshot()[u"f"] == StaticTokenPtr(pFresh));
        EXPECT_EQ(pDue->m_nRenewals * 100 + pLate->m_nRenewals * 10 + pFresh->m_nRenewals, i * 110);
    }
    std::thread([&] { pUsed->Impersonate(); }).join();  // and ends
    pUsed->Revert();
    for (int i = 0; i < 1000 && m_pCache->Snapshot().size() == 5; ++i) {
        cleaner->m_pThread->CleanUp();  // a thread that has been joined is gone soon
    }
    EXPECT_TRUE(m_trace.Said({"CleanUp() -- b has been removed."}));
    const std::pair<std::function<void()>, std::string> aEnds[] = {
        {[] { throw SSOException(SSO_ERROR); }, "CleanUp() -- Caught an internal exception!"},
        {[] { throw 1; }, "CleanUp() -- Caught an unknown exception!"},
        {[&] { cleaner->m_pThread->stop(); }, "CleanUp() -- Thread has been stopped; aborting cleanup scan"},
    };
    pLate->m_bExpired = true;
    for (const auto& [event, says] : aEnds) {
        cleaner.reset();
        cleaner = std::make_unique<Cleaner>(m_pCache.get());
        pDue->m_onExpired = event;
        cleaner->m_pThread->CleanUp();
        EXPECT_TRUE(m_trace.Said({says}));
        EXPECT_EQ(m_pCache->Snapshot().count(u"e"), 1U);
    }
}

TEST_F(ContextCacheTest, SilentRealmsCostTheirOwnUsersOnly) {
    const Cleaner cleaner(m_pCache.get());
    int64_t nNow = 1000000;
    const auto add = [&](const char16_t* i_pszKey, const char16_t* i_pszRealm, bool i_bAnswers) {
        auto pToken = Add(i_pszKey);
        pToken->m_bDue = true;
        pToken->m_ssAuthority = i_pszRealm;
        pToken->m_bAnswers = i_bAnswers;
        pToken->m_onRenew = [&, i_bAnswers] { m_clock.Set(nNow += i_bAnswers ? 5 : 10000); };
        return pToken;
    };
    const auto pGood = add(u"a1", u"GOOD", true);
    std::vector<CSmartRefCountPtr<TestToken>> silent;
    for (const auto& [pszKey, pszRealm] : std::initializer_list<std::pair<const char16_t*, const char16_t*>>{
             {u"b1", u"B"}, {u"b2", u"B"}, {u"c1", u"C"}, {u"d1", u"D"}, {u"d2", u""}}) {
        silent.push_back(add(pszKey, pszRealm, false));
    }
    const auto pLast = add(u"z1", u"GOOD", true), pStranger = add(u"z2", u"NEW", true);
    // After each pass how often each silent one, the good ones behind them, and a realm of whom nothing is known has
    // been asked.
    const char* const aAfter[] = {
        "1 0 1 0 0, 1 1, 0",  // two in vain, and then only who has answered before
        "1 0 1 1 1, 2 2, 0",  // goes on at the first that was put off for others' sake
        "2 0 2 1 1, 3 3, 1",  // and asks those again whose pause is over
        "2 0 2 2 2, 4 4, 2",
        "3 0 3 2 2, 5 5, 3",  // the pauses grow
        "3 0 3 3 3, 6 6, 4", "3 0 3 3 3, 7 7, 5",
    };
    for (const char* pszAfter : aAfter) {
        const int64_t nBegin = nNow;
        cleaner.m_pThread->CleanUp();
        EXPECT_LE(nNow - nBegin, 30000);
        std::string text;
        for (const auto& pToken : silent) {
            text += std::to_string(pToken->m_nRenewals) + (pToken == silent.back() ? ", " : " ");
        }
        text += std::to_string(pGood->m_nRenewals) + " " + std::to_string(pLast->m_nRenewals) + ", ";
        EXPECT_EQ(text + std::to_string(pStranger->m_nRenewals), pszAfter);
        m_clock.Set(nNow += 60000);
    }
    EXPECT_TRUE(m_trace.Said({"The renewal of b2 is put off: B let one time out.",
                              "The renewal of z2 is put off: other realms let one time out."}));
}

TEST_F(ContextCacheTest, OneThatThrowsTakesNobodysTurn) {
    const Cleaner cleaner(m_pCache.get());
    const auto pFirst = Add(u"a"), pBroken = Add(u"b"), pLast = Add(u"c");
    pFirst->m_bDue = pLast->m_bDue = true;
    for (int i = 1; i <= 3; ++i) {
        pBroken->m_onExpired = [] { throw 1; };
        cleaner.m_pThread->CleanUp();
        EXPECT_EQ(pFirst->m_nRenewals * 10 + pLast->m_nRenewals, i * 11 - 1);
    }
    EXPECT_TRUE(m_trace.Said({"CleanUp() -- Caught an unknown exception!"}));
}

TEST_F(ContextCacheTest, AHostsThreadIsAdoptedForTheStart) {
    EXPECT_THROW(m_pCache->MakeRealThread(), JTCUnknownThreadException);
    const auto pCache = MakeCounted<SecContextCache>(0);
    pCache->StopUpdateThread();
    EXPECT_TRUE(m_trace.Said({"SecContextCache::StopUpdateThread() -- stopping the thread."}));
    for (int i = 0; i < 2; ++i) {  // a stopped one is replaced
        pCache->StartUpdateThread();
        EXPECT_FALSE(JTCAdoptCurrentThread::isKnown());
        const auto begin = std::chrono::steady_clock::now();
        while (!m_trace.Contains("SecContextUpdateThread::run() -- Thread sleeping for 60s.")) {
            ASSERT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
            std::this_thread::yield();
        }
        pCache->StopUpdateThread();
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(40));
        EXPECT_TRUE(
            m_trace.Said({"Starting update thread.", "thread started.", "has been stopped.", "Thread stopped."}));
    }
}

TEST_F(ContextCacheTest, AThreadThatCannotBeMadeIsTriedAgain) {
    // What the first and the second creation throw: the thread is unknown, the system has none, memory is short, ...
    const auto fail = [](char i_cHow) {
        i_cHow == 'u'   ? throw JTCUnknownThreadException()
        : i_cHow == 's' ? throw JTCSystemCallException("no thread")
        : i_cHow == 'm' ? throw std::bad_alloc()
        : i_cHow == 'o' ? throw SSOException(SSO_DENIED, kMsgNoPackage)
                        : throw 1;
    };
    const std::pair<std::string, std::string> aCases[] = {
        {"m", "106/42502"},  {"o", "3/61213"},    {"1", "100/42254"},  {"s", ""},          {"um", "106/42502"},
        {"uo", "100/42254"}, {"u1", "100/42254"}, {"us", "100/42254"}, {"uu", "100/42254"}};
    for (const auto& [how, thrown] : aCases) {
        SCOPED_TRACE(how);
        const auto pCache = MakeCounted<TestCache>([&, &how = how](TestCache& i_cache) -> ThreadPtr {
            const size_t nCall = static_cast<size_t>(i_cache.m_nMade - 1) % how.size();
            EXPECT_EQ(JTCAdoptCurrentThread::isKnown(), nCall == 1);
            return fail(how[nCall]), nullptr;
        });
        for (size_t i = 1; i <= 2; ++i) {  // nothing is left behind that would keep the second one from trying
            EXPECT_EQ(Thrown([&] { return pCache->StartUpdateThread(), 0; }), thrown);
            EXPECT_EQ(pCache->m_nMade, i * how.size());
            EXPECT_TRUE(m_trace.Said({thrown == "106/42502"   ? "StartUpdateThread() -- Out of memory!"
                                      : thrown == "100/42254" ? "StartUpdateThread() -- Unknown exception"
                                                              : ""}));
        }
    }
}

TEST_F(ContextCacheTest, AThreadThatCannotBeStartedIsNotReplaced) {
    const auto pCache = MakeCounted<TestCache>([](TestCache&) -> ThreadPtr {
        const JTCAdoptCurrentThread adopted;
        const auto pUsed = MakeCounted<SecContextUpdateThread>(nullptr);
        pUsed->start();
        while (pUsed->isAlive()) {
            pUsed->join(1000);
        }
        return pUsed;
    });
    EXPECT_EQ(Thrown([&] { return pCache->StartUpdateThread(), 0; }), "100/42254");
    EXPECT_TRUE(m_trace.Said({"Could not start update thread!", "run() -- No cache for this thread to manage!"}));
    pCache->StartUpdateThread();
    EXPECT_EQ(pCache->m_nMade, 1);
    pCache->StopUpdateThread();
}

TEST(KeyIndex, FindsWhatIsThereAndNothingElse) {
    KeyIndex index;
    KeyIndex::Map map;
    std::mt19937 random(1);            // NOLINT(cert-msc32-c,cert-msc51-cpp): the same each time
    for (int i = 0; i < 60000; ++i) {  // parts that grow, crowd and shrink
        std::u16string key(SWCharStringConv::ToString(uint64_t{123401000} + random() % (i < 30000 ? 4000 : 60)));
        if (random() % 4 == 0) {  // nearly a number
            key[random() % key.size()] = static_cast<char16_t>(u' ' + random() % 32);
        }
        key.insert(0, random() % 4, u'0');  // no number's digits, and not the same as one
        const SWCharString ssKey(key);
        const auto found = map.find(ssKey);
        ASSERT_TRUE(index.Find(ssKey.view(), map.end()) == found);
        if (found == map.end()) {
            index.Add(map.emplace(ssKey, nullptr).first);
        } else {
            index.Remove(found);
            map.erase(found);
        }
    }
}

}  // namespace
}  // namespace morwen
