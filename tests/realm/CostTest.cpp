// What a token costs the service at most, beside a plain logon.
#include <krb5/krb5.h>
#include <malloc.h>
#include <pthread.h>

#include <ctime>
#include <functional>
#include <regex>
#include <sstream>

#include "bench/ForgedService.h"
#include "fakes/DerBytes.h"
#include "realm/PluginTest.h"

namespace morwen {
namespace {

Bytes NestedTo(size_t i_nBytes) {
    return Nested(Within({}, 99), i_nBytes, i_nBytes);
}

Bytes ManyIn(size_t i_nBytes) {
    const Bytes one = Der(0x30, Der(0xA0, {2, 1, 99}) + Der(0xA1, Der(4, {})));
    Bytes all;
    while (all.size() < i_nBytes) {
        all = all + one;
    }
    return Der(0x30, all);
}

Bytes Framed(const Bytes& i_message) {
    return Der(0x60, kKerberosObject + Bytes{1, 0} + i_message);
}

// An AP-REQ of a stranger for a service whose name has as many parts as there is room for.
Bytes Strangest(size_t i_nBytes) {
    Bytes parts;
    while (parts.size() < i_nBytes) {
        parts = parts + Bytes{0x1B, 0};
    }
    const Bytes number = {2, 1, 5};
    const Bytes sealed = Der(0x30, Der(0xA0, number) + Der(0xA2, Der(4, Bytes(64))));
    const Bytes name = Der(0x30, Der(0xA0, number) + Der(0xA1, Der(0x30, parts)));
    const Bytes ticket = Der(0xA0, number) + Der(0xA1, Der(0x1B, {'R'})) + Der(0xA2, name) + Der(0xA3, sealed);
    return Framed(Der(0x6E, Der(0x30, Der(0xA0, number) + Der(0xA1, {2, 1, 14}) + Der(0xA2, {3, 5, 0, 0, 0, 0, 0}) +
                                          Der(0xA3, Der(0x61, Der(0x30, ticket))) + Der(0xA4, sealed))));
}

// A KRB-CRED with one ticket and that much about it, encrypted with no key.
Bytes Delegated(size_t i_nBytes) {
    const Bytes part = Der(0xA0, {2, 1, ENCTYPE_AES256_CTS_HMAC_SHA1_96}) + Der(0xA2, Der(4, Bytes(i_nBytes)));
    return Der(0x76, Der(0x30, Der(0xA0, {2, 1, 5}) + Der(0xA1, {2, 1, 22}) + Der(0xA2, Der(0x30, Der(0x61, {}))) +
                                   Der(0xA3, Der(0x30, part))));
}

class TokenCost : public PluginTest {
protected:
    struct Cost {
        double m_nMicroseconds;  // of processor time
        size_t m_nKiB;           // more than before, at most
        std::string m_verdict;
    };

    // A client's token as the system's library makes it, with data that the KDC copies into the ticket and such that
    // the client puts into the authenticator.
    static Bytes Token(const std::string& i_service, Bytes i_inTicket, Bytes i_inAuthenticator,
                       const Bytes& i_delegated = {}) {
        krb5_context context = nullptr;
        krb5_ccache cache = nullptr;
        krb5_creds wanted{};
        krb5_creds* pTicket = nullptr;
        krb5_auth_context exchange = nullptr;
        krb5_data message{};
        const auto check = [](krb5_error_code i_nCode) { ASSERT_EQ(i_nCode, 0); };
        check(krb5_init_context(&context));
        check(krb5_cc_default(context, &cache));
        check(krb5_cc_get_principal(context, cache, &wanted.client));
        check(krb5_parse_name(context, (i_service + "@MORWEN.TEST").c_str(), &wanted.server));
        krb5_authdata element{KV5M_AUTHDATA, 1, static_cast<unsigned>(i_inTicket.size()), i_inTicket.data()};
        krb5_authdata* list[] = {&element, nullptr};
        wanted.authdata = i_inTicket.empty() ? nullptr : list;
        check(krb5_get_credentials(context, i_inTicket.empty() ? KRB5_GC_CACHED : KRB5_GC_NO_STORE, cache, &wanted,
                                   &pTicket));
        element = {KV5M_AUTHDATA, 1, static_cast<unsigned>(i_inAuthenticator.size()), i_inAuthenticator.data()};
        krb5_authdata** const pOwn = std::exchange(pTicket->authdata, i_inAuthenticator.empty() ? nullptr : list);
        Bytes flags(24);  // after RFC 4121
        flags[0] = 16;
        if (!i_delegated.empty()) {
            flags[20] = 1;
            flags = flags + Bytes{1, 0, static_cast<uint8_t>(i_delegated.size()),
                                  static_cast<uint8_t>(i_delegated.size() >> 8)};
            flags = flags + i_delegated;
        }
        krb5_data checksum{0, static_cast<unsigned>(flags.size()), reinterpret_cast<char*>(flags.data())};
        check(krb5_auth_con_init(context, &exchange));
        krb5_auth_con_set_req_cksumtype(context, exchange, 0x8003);
        check(krb5_mk_req_extended(context, &exchange, AP_OPTS_USE_SUBKEY, &checksum, pTicket, &message));
        pTicket->authdata = pOwn;
        Bytes token = Framed(Bytes(message.data, message.data + message.length));
        krb5_free_data_contents(context, &message);
        krb5_auth_con_free(context, exchange);
        krb5_free_creds(context, pTicket);
        krb5_free_principal(context, wanted.client);
        krb5_free_principal(context, wanted.server);
        krb5_cc_close(context, cache);
        krb5_free_context(context);
        return token;
    }

    // 20,000 keys of other services, and behind them the service's own under a name of six letters.
    static std::string ManyKeys(const std::string& i_service) {
        const auto counted = [](const auto& i_bytes) {
            return Bytes{static_cast<uint8_t>(i_bytes.size() >> 8), static_cast<uint8_t>(i_bytes.size())} +
                   Bytes(i_bytes.begin(), i_bytes.end());
        };
        std::ostringstream own;
        own << std::ifstream(RealmPath("service.keytab"), std::ios::binary).rdbuf();
        std::string file = own.str().substr(0, 2);
        for (int i = 0; i < 20000; ++i) {
            const Bytes key = {0, ENCTYPE_AES256_CTS_HMAC_SHA1_96};
            Bytes entry = Bytes{0, 2} + counted(std::string("MORWEN.TEST"));
            entry = entry + counted("other" + std::to_string(i)) + counted(std::string("localhost"));
            entry = entry + Bytes{0, 0, 0, 1, 0, 0, 0, 0, 2} + key + counted(Bytes(32, 7));
            entry = Bytes{0, 0} + counted(entry);
            file.append(entry.begin(), entry.end());
        }
        WriteFile(i_service + ".keytab",
                  file + std::regex_replace(own.str().substr(2), std::regex("morwen"), i_service));
        return "FILE:" + RealmPath(i_service + ".keytab");
    }

    static size_t KiB(const std::string& i_field) {
        std::ifstream file("/proc/self/status");
        for (std::string word; file >> word;) {
            if (size_t nValue = 0; word == i_field && file >> nValue) {
                return nValue;
            }
        }
        return 0;
    }

    static Cost CostOf(const std::function<std::string()>& i_work) {
        malloc_trim(0);
        std::ofstream("/proc/self/clear_refs") << 5;  // the peak is now
        const size_t nBefore = KiB("VmRSS:");
        const clock_t nStart = clock();
        Cost cost{0, 0, i_work()};
        cost.m_nMicroseconds = static_cast<double>(clock() - nStart) * 1e6 / CLOCKS_PER_SEC;
        cost.m_nKiB = KiB("VmHWM:") - std::min(nBefore, KiB("VmHWM:"));
        return cost;
    }

    Cost CostOfAccepting(const Bytes& i_token) {
        Cost best{1e9, 0, {}};
        EXPECT_EQ(AcceptLogin(Bytes{1}).m_verdict, kUnusable);  // the keys are in memory now
        for (int i = 0; i < 3; ++i) {
            const Cost cost = CostOf([&] {
                const size_t nKept = mallinfo2().uordblks;  // the sanitizers' allocators report nothing
                const LoginResult accepted = AcceptLogin(i_token, {}, Information::NotWanted);
                m_trace.Said({});
                EXPECT_LT(mallinfo2().uordblks, nKept + i_token.size() + 8192);
                m_nHalfDone += accepted.m_key.empty() ? 0U : 1U;
                return i == 0 ? accepted.m_verdict : best.m_verdict;
            });
            best = {std::min(best.m_nMicroseconds, cost.m_nMicroseconds), std::max(best.m_nKiB, cost.m_nKiB),
                    cost.m_verdict};
        }
        return best;
    }
};

TEST_F(TokenCost, IsBounded) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr double kMostPlainLogons = 100;  // the sanitizers slow down this library's walks and not libkrb5
#else
    constexpr double kMostPlainLogons = 20;
#endif
    const double nPlain = CostOf([] {
                              for (int i = 0; i < 100; ++i) {
                                  LogOn();
                              }
                              return std::string();
                          }).m_nMicroseconds /
                          100;
    bench::ForgeService("big/localhost@MORWEN.TEST", ENCTYPE_AES256_CTS_HMAC_SHA1_96, 6000);
    const auto inTicket = [](const Bytes& i_data) { return Token("morwen/localhost", i_data, {}); };
    const auto inAuthenticator = [](const Bytes& i_data) { return Token("morwen/localhost", {}, i_data); };
    const auto altered = [](Bytes i_token, size_t i_nAt) {
        i_token[i_nAt] ^= 1;
        return i_token;
    };
    const Bytes big = Token("big/localhost", {}, {});
    const Bytes small = inTicket({});
    const Bytes opaque = inTicket(Within(Bytes(50000), 99));
    const std::string keytab = "FILE:" + RealmPath("service.keytab");
    Bytes mechanisms;  // SPNEGO's list, as long as a token may be
    while (mechanisms.size() < 1000000) {
        mechanisms.insert(mechanisms.end(), {6, 0});
    }
    const std::string others = ManyKeys("others");
    const std::string last = ManyKeys("morwen");
    const std::tuple<const char*, Bytes, std::string, const char*> kCases[] = {
        {"a user in 6,000 groups", big, keytab, "1"},
        {"the last of 20,000 services", small, last, "1"},
        {"the same in capitals", inTicket({}), ManyKeys("MORWEN"), "1"},
        {"a ticket with a changed byte for the last of 20,000", altered(small, small.size() / 2), last, kUnusable},
        {"3 KB nested in the ticket", inTicket(NestedTo(2900)), keytab, "1"},
        {"3 KB nested in the authenticator", inAuthenticator(NestedTo(2900)), keytab, "1"},
        {"50 KB nested in the ticket", inTicket(NestedTo(50000)), keytab, kUnusable},
        {"50 KB nested in the authenticator", inAuthenticator(NestedTo(50000)), keytab, kUnusable},
        {"50 KB side by side in the ticket", inTicket(ManyIn(50000)), keytab, kUnusable},
        {"50 KB side by side in the authenticator", inAuthenticator(ManyIn(50000)), keytab, kUnusable},
        {"50 KB as one in the ticket", opaque, keytab, "1"},
        {"50 KB as one in the authenticator", inAuthenticator(Within(Bytes(50000), 99)), keytab, "1"},
        {"50 KB about delegated tickets", Token("morwen/localhost", {}, {}, Delegated(49000)), keytab, kUnusable},
        {"250 KB nested in the ticket", inTicket(NestedTo(250000)), keytab, kUnusable},
        {"a ticket of 50 KB that no key opens", altered(opaque, 25000), keytab, kUnusable},
        {"and 20,000 keys for others", opaque, others, kUnusable},
        {"a ticket that a key of 20,000 opens, for a service that none is for", inTicket({}), others, kUnusable},
        {"50 KB of names", Strangest(50000), keytab, kUnusable},
        {"1 MB of mechanisms", Der(0xA0, Der(0x30, Der(0xA0, Der(0x30, mechanisms)))), keytab, kUnusable},
    };
    for (const auto& [pszWhat, token, name, pszVerdict] : kCases) {
        UseKeytab(name);
        const Cost cost = CostOfAccepting(token);
        EXPECT_EQ(cost.m_verdict, pszVerdict) << pszWhat;
        printf("%s (%zu bytes): %.0f us, %.1f plain logons, %zu KiB\n", pszWhat, token.size(), cost.m_nMicroseconds,
               cost.m_nMicroseconds / nPlain, cost.m_nKiB);
        // A usual one costs as much as with few keys.
        const double nMost = name != keytab && token.size() < 1000 ? 3 : kMostPlainLogons;
        EXPECT_LT(cost.m_nMicroseconds, nMost * nPlain) << pszWhat;
        EXPECT_LT(cost.m_nKiB, 8192U) << pszWhat;
    }
}

// Hosts give their threads small stacks; the sanitizers need more of one. What reaches libkrb5's decoders unseen takes
// less than half of it.
TEST_F(TokenCost, FitsASmallStack) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr size_t kStack = size_t{1} << 20;
#else
    constexpr size_t kStack = size_t{64} << 10;
#endif
    Bytes token = Token("morwen/localhost", NestedTo(3300), {});
    EXPECT_GT(token.size(), 4000U);
    pthread_attr_t attributes;
    pthread_t thread = 0;
    ASSERT_EQ(pthread_attr_init(&attributes) + pthread_attr_setstacksize(&attributes, kStack), 0);
    const auto run = [](void* io_pvToken) -> void* {
        const LoginResult accepted = AcceptLogin(*static_cast<Bytes*>(io_pvToken));
        EXPECT_EQ(CloseLogin(accepted.m_key).m_verdict, "2");
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &token), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

}  // namespace
}  // namespace morwen
