// Which of the tickets that a user hands over are kept?
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <thread>
#include <vector>

#include "platform/linux/contexts/Krb5ContextPool.h"
#include "platform/linux/keys/InitiatorTickets.h"
#include "platform/linux/krb5/Krb5Owners.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"
#include "platform/linux/logon/Delegation.h"
#include "platform/linux/wire/CredMessage.h"
#include "platform/linux/wire/GssChecksum.h"

// libkrb5 exports it, but its header does not declare it.
extern "C" krb5_error_code encode_krb5_ticket(const krb5_ticket* i_pTicket, krb5_data** o_ppData);

namespace morwen {
namespace {

struct Handed {
    const char* m_pszClient;
    const char* m_pszServer;
};

class Delegation : public ::testing::Test {
protected:
    // An unencrypted KRB-CRED.
    std::vector<uint8_t> Message(const std::vector<Handed>& i_tickets) {
        std::vector<Krb5Credentials> owners;
        std::vector<krb5_creds*> tickets;
        for (const Handed& handed : i_tickets) {
            owners.push_back(Ticket(handed));
            tickets.push_back(owners.back().get());
        }
        tickets.push_back(nullptr);
        Krb5Owner<krb5_data*, krb5_free_data> message(m_context);
        EXPECT_EQ(krb5_mk_ncred(m_context, Exchange().get(), tickets.data(), message.Receive(), nullptr), 0);
        const auto bytes = BytesOf(*message.get());
        return {bytes.begin(), bytes.end()};
    }

    // The servers of the tickets that are kept, or how the message is refused.
    std::string KeptOf(const std::vector<uint8_t>& i_message, const char* i_pszUser) {
        try {
            const auto pKept = ReceivedTickets(m_context, Exchange().get(), i_message, Principal(i_pszUser).get());
            return pKept == nullptr ? "none" : ServersIn(pKept->Tickets().OpenCache(m_context).get());
        } catch (const SspiFailure& failure) {
            return failure.Status() == SEC_E_LOGON_DENIED ? "denied" : "failed";
        }
    }
    std::string KeptOf(const std::vector<Handed>& i_tickets, const char* i_pszUser) {
        return KeptOf(Message(i_tickets), i_pszUser);
    }

    // A file with one user's ticket for a service, which puts itself in the place of the one before.
    void WriteCache(const std::string& i_path, const char* i_pszUser) {
        Krb5CacheOwner cache(m_context);
        EXPECT_EQ(krb5_cc_resolve(m_context, ("FILE:" + i_path + ".new").c_str(), cache.Receive()), 0);
        EXPECT_EQ(krb5_cc_initialize(m_context, cache.get(), Principal(i_pszUser).get()), 0);
        const Krb5Credentials ticket = Ticket({i_pszUser, "svc/host@HERE"});
        ticket->times.endtime = INT32_MAX;
        EXPECT_EQ(krb5_cc_store_cred(m_context, cache.get(), ticket.get()), 0);
        std::filesystem::rename(i_path + ".new", i_path);
    }
    krb5_context Context() const { return m_context; }

private:
    Krb5AuthContext Exchange() {
        Krb5AuthContext exchange(m_context);
        EXPECT_EQ(krb5_auth_con_init(m_context, exchange.Receive()), 0);
        EXPECT_EQ(krb5_auth_con_setflags(m_context, exchange.get(), 0), 0);
        return exchange;
    }

    Krb5Principal Principal(const char* i_pszName) {
        Krb5Principal principal(m_context);
        EXPECT_EQ(krb5_parse_name(m_context, i_pszName, principal.Receive()), 0);
        return principal;
    }

    // Nobody looks into what is encrypted of it.
    Krb5Credentials Ticket(const Handed& i_handed) {
        const Krb5Principal client = Principal(i_handed.m_pszClient), server = Principal(i_handed.m_pszServer);
        krb5_ticket ticket{};
        ticket.server = server.get();
        Krb5Owner<krb5_data*, krb5_free_data> encoded(m_context);
        EXPECT_EQ(encode_krb5_ticket(&ticket, encoded.Receive()), 0);
        krb5_creds source{};
        source.client = client.get();
        source.server = server.get();
        source.ticket = *encoded.get();
        krb5_octet aKey[32] = {};
        source.keyblock = {0, ENCTYPE_AES256_CTS_HMAC_SHA1_96, sizeof aKey, aKey};
        Krb5Credentials credentials(m_context);
        EXPECT_EQ(krb5_copy_creds(m_context, &source, credentials.Receive()), 0);
        return credentials;
    }

    std::string ServersIn(krb5_ccache i_cache) {
        std::string servers;
        krb5_cc_cursor cursor = nullptr;
        EXPECT_EQ(krb5_cc_start_seq_get(m_context, i_cache, &cursor), 0);
        for (krb5_creds ticket; krb5_cc_next_cred(m_context, i_cache, &cursor, &ticket) == 0;) {
            servers += PrincipalText(m_context, ticket.server) + " ";
            krb5_free_cred_contents(m_context, &ticket);
        }
        krb5_cc_end_seq_get(m_context, i_cache, &cursor);
        return servers;
    }

    const Krb5ContextLease m_lease = LendKrb5Context();
    const krb5_context m_context = m_lease.get();
};

TEST_F(Delegation, KeepsOneTicketForTheUsersOwnKdc) {
    const char* const pszUser = "alice@HERE";
    const Handed own = {pszUser, "krbtgt/HERE@HERE"};
    EXPECT_EQ(KeptOf({own}, pszUser), "krbtgt/HERE@HERE ");
    EXPECT_EQ(KeptOf({{pszUser, "host/x@HERE"}, own, own}, pszUser), "krbtgt/HERE@HERE ");
    // Whoever holds a ticket for these would be asked, or believed, in another's place.
    for (const char* pszServer :
         {"host/x@HERE", "krbtgt/THERE@THERE", "krbtgt/THERE@HERE", "krbtgt/HERE@THERE", "krbtgt/HERE/x@HERE",
          "krbtgt@HERE", "krbtgt/HERE\\0@HERE", "krb5_ccache_conf_data/start_realm@X-CACHECONF:"}) {
        EXPECT_EQ(KeptOf({{pszUser, pszServer}}, pszUser), "none") << pszServer;
    }
    EXPECT_EQ(KeptOf({own, {"bob@HERE", "krbtgt/HERE@HERE"}}, pszUser), "denied");
    EXPECT_EQ(KeptOf({{"alice@THERE", "krbtgt/THERE@THERE"}}, pszUser), "denied");
}

// libkrb5 follows a null pointer where the description of a ticket is missing or names nobody.
TEST_F(Delegation, DescribesEachTicketOrIsRefused) {
    const Handed own = {"alice@HERE", "krbtgt/HERE@HERE"};
    const std::vector<uint8_t> one = Message({own}), two = Message({own, own});
    const auto ofOne = CredMessage::Read(one), ofTwo = CredMessage::Read(two);
    ASSERT_TRUE(ofOne && ofTwo);
    EXPECT_TRUE(ofOne->IsDescribedBy(ofOne->EncryptedPart()) && ofTwo->IsDescribedBy(ofTwo->EncryptedPart()));
    EXPECT_FALSE(ofOne->IsDescribedBy(ofTwo->EncryptedPart()) || ofTwo->IsDescribedBy(ofOne->EncryptedPart()));
    // Where the service's realm and name begin.
    for (const std::vector<uint8_t>& field : {std::vector<uint8_t>{0xA8, 6, 0x1B, 4}, {0xA9, 25, 0x30, 23}}) {
        for (const int nTag : {0xAA, 0xAB, 0xB4, 0x04}) {
            std::vector<uint8_t> changed = one;
            const auto found = std::find_end(changed.begin(), changed.end(), field.begin(), field.end());
            ASSERT_NE(found, changed.end());
            *found = static_cast<uint8_t>(nTag);
            EXPECT_EQ(KeptOf(changed, "alice@HERE"), "failed") << int{field[0]} << " " << nTag;
        }
    }
}

// A ticket that was read while the user's file was replaced is not held for who comes next.
TEST_F(Delegation, TicketsOfAReplacedFileAreNotHeld) {
    const std::string path = std::filesystem::temp_directory_path() / ("tickets" + std::to_string(getpid()));
    WriteCache(path, "alice@HERE");
    InitiatorTickets tickets("FILE:" + path);
    const Krb5ContextLease other = LendKrb5Context();
    const auto userOf = [&](krb5_context i_context) {
        return PrincipalText(i_context, tickets.Get(i_context, "svc/host@HERE")->m_credentials.get()->client);
    };
    std::string inBetween;
    std::function<void()> replace = [&] {
        WriteCache(path, "bob@HERE");
        std::this_thread::sleep_for(std::chrono::milliseconds(60));  // until the file's time is past
        inBetween = userOf(other.get());
    };
    const auto onTrace = [](krb5_context, const krb5_trace_info* i_pInfo, void* i_pvReplace) {
        auto& once = *static_cast<std::function<void()>*>(i_pvReplace);
        if (i_pInfo != nullptr &&
            std::string_view(i_pInfo->message).find("Retrieving alice@HERE -> svc/") != std::string_view::npos &&
            once) {
            std::exchange(once, nullptr)();
        }
    };
    ASSERT_EQ(krb5_set_trace_callback(Context(), onTrace, &replace), 0);
    EXPECT_EQ(userOf(Context()), "alice@HERE");
    krb5_set_trace_callback(Context(), nullptr, nullptr);
    EXPECT_EQ(inBetween, "bob@HERE");
    EXPECT_EQ(userOf(Context()), "bob@HERE");
    std::filesystem::remove(path);
}

// What one thread calls so may be another's tickets on the next.
TEST_F(Delegation, TicketsOfAThreadsKeyringAreNotShared) {
    for (const auto& [pszName, bShared] : {std::pair{"FILE:/nowhere/cc", true},
                                           {"KEYRING:user:x", true},
                                           {"KEYRING:process:x", true},
                                           {"KEYRING:persistent:1", true},
                                           {"KEYRING:thread:x", false},
                                           {"KEYRING:session:x", false},
                                           {"KEYRING:x", false}}) {
        setenv("KRB5CCNAME", pszName, 1);
        EXPECT_EQ(InitiatorTickets::Default(Context()) == InitiatorTickets::Default(Context()), bShared) << pszName;
    }
    unsetenv("KRB5CCNAME");
}

TEST(GssChecksum, IsReadToItsLastByte) {
    const std::vector<uint8_t> delegation = {1, 2, 3};
    const std::vector<uint8_t> good = MakeGssChecksum({kGssMutual | kGssDelegate, delegation});
    std::vector<uint8_t> extended = good;
    extended.push_back(9);
    for (const auto& bytes : {good, extended}) {
        const auto checksum = ReadGssChecksum(bytes);
        ASSERT_TRUE(checksum && checksum->m_nFlags == 3);
        EXPECT_TRUE(std::equal(delegation.begin(), delegation.end(), checksum->m_delegation.begin()));
        EXPECT_EQ(checksum->m_delegation.size(), delegation.size());
    }
    // Which byte is changed, and whether the flags can be read all the same.
    for (const auto& [nAt, bFlags] :
         {std::pair<size_t, bool>{0, false}, {3, false}, {24, true}, {25, true}, {26, true}}) {
        std::vector<uint8_t> changed = good;
        ++changed[nAt];
        EXPECT_FALSE(ReadGssChecksum(changed)) << nAt;
        EXPECT_EQ(ReadGssFlags(changed).has_value(), bFlags) << nAt;
    }
    for (size_t nLength = 0; nLength < good.size(); ++nLength) {
        EXPECT_FALSE(ReadGssChecksum(std::span(good).first(nLength))) << nLength;
        EXPECT_EQ(ReadGssFlags(std::span(good).first(nLength)).has_value(), nLength >= 24) << nLength;
    }
    EXPECT_TRUE(ReadGssChecksum(MakeGssChecksum({kGssMutual, {}}))->m_delegation.empty());
}

}  // namespace
}  // namespace morwen
