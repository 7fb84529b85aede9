// Many logins at once.
#include <barrier>
#include <thread>

#include "realm/PluginTest.h"

namespace morwen {
namespace {

class Concurrency : public PluginTest {};

TEST_F(Concurrency, GoodAndRefusedLoginsDoNotMeet) {
    const LoginResult taken = HalfLogin();
    EXPECT_EQ(CloseLogin(AcceptLogin(taken.m_token).m_key).m_verdict, "2");
    const std::pair<Client, const char*> kCases[] = {
        {{}, kLoggedOn},
        {{"", "", "fwd/localhost"}, kLoggedOn},
        {{"MORWEN\\bob", "bob-secret"}, kLoggedOn},
        {{"MORWEN\\bob", "not-his"}, "3/50054"},
        {{"bob", "bob-secret"}, "100/47702"},
    };
    EXPECT_EQ(SSOAssociateSecurityContext(u"1", u"2"), 103U);  // leaves a record

    constexpr size_t kThreads = 8;
    std::barrier start(kThreads);
    std::vector<std::jthread> threads;
    for (size_t nThread = 0; nThread < kThreads; ++nThread) {
        threads.emplace_back([&, nThread] {
            const bool bMixed = nThread % 2 != 0;
            start.arrive_and_wait();
            for (size_t i = 0; i < 40; ++i) {
                const auto& [client, pszVerdict] = kCases[bMixed ? (nThread + i) % std::size(kCases) : 0];
                EXPECT_EQ(LogOn(client).m_verdict, pszVerdict);
                EXPECT_EQ(bMixed ? AcceptLogin(taken.m_token).m_verdict : "", bMixed ? "3/61215" : "");
            }
            EXPECT_EQ(TakenRecord(100), "/none");  // each failure's record has been taken, or none was made
        });
    }
    threads.clear();  // waits for them
    EXPECT_EQ(TakenRecord(103), "/61211");
}

}  // namespace
}  // namespace morwen
