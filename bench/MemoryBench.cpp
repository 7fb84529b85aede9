// How much memory an open session and a kept context take.
#include <malloc.h>

#include <algorithm>
#include <array>
#include <functional>
#include <vector>

#include "bench/Bench.h"
#include "bench/ExportLogon.h"
#include "bench/ForgedService.h"
#include "platform/linux/krb5/Krb5Owners.h"

namespace morwen::bench {

namespace {

constexpr size_t kObjects = 2000;

// What a host keeps of a login, outside the memory that is measured.
struct Slot {
    std::array<SSOChar, 64> m_szKey{};
    std::array<uint8_t, 4096> m_aToken{};
    SSOLength m_nLength = 0;

    void Keep(const Output& i_output) {
        const std::u16string_view key(i_output.m_pszKey);
        Require(key.size() < m_szKey.size() && i_output.m_nLength <= m_aToken.size(), "too long for the slot");
        *std::copy(key.begin(), key.end(), m_szKey.begin()) = u'\0';
        m_nLength = i_output.m_nLength;
        std::copy_n(static_cast<const uint8_t*>(i_output.m_pvToken), m_nLength, m_aToken.begin());
    }
};

// Made, looked at, and ended again, so that the rest of the run finds the plug-in as it was.
struct Kind {
    std::function<void(Slot&)> m_make;
    std::function<void(Slot&)> m_end;
};

size_t AllocatedBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void Run(benchmark::State& io_state, const Kind& i_kind) {
    std::vector<Slot> slots(kObjects);
    i_kind.m_make(slots[0]);  // with what is allocated only once
    i_kind.m_end(slots[0]);
    double nBytes = 0;
    for ([[maybe_unused]] auto _ : io_state) {
        const size_t nBefore = AllocatedBytes();
        std::for_each(slots.begin(), slots.end(), i_kind.m_make);
        nBytes = static_cast<double>(AllocatedBytes() - nBefore) / static_cast<double>(kObjects);
        std::for_each(slots.begin(), slots.end(), i_kind.m_end);
    }
    io_state.counters["bytes"] = nBytes;
}

void Finish(const Slot& i_client, Output& o_server) {
    ExportLogon::Accept(i_client.m_aToken.data(), i_client.m_nLength, o_server);
    ExportLogon::Continue(i_client.m_szKey.data(), o_server);
}

Kind ClientSession() {
    return {[logon = ExportLogon({})](Slot& o_slot) {
                Output client;
                logon.Start(client);
                o_slot.Keep(client);
            },
            [](Slot& io_slot) {
                Output server;
                Output context;
                Finish(io_slot, server);
                ExportLogon::Close(server.m_pszKey, context);
                SSOReleaseSecurityContext(context.m_pszKey);
            }};
}

Kind ServerSession() {
    return {[start = ClientSession().m_make](Slot& o_slot) {
                Output server;
                start(o_slot);
                Finish(o_slot, server);
                o_slot.Keep(server);
            },
            [](Slot& io_slot) {
                Output context;
                ExportLogon::Close(io_slot.m_szKey.data(), context);
                SSOReleaseSecurityContext(context.m_pszKey);
            }};
}

Kind KeptContext(const std::string& i_service) {
    return {[logon = ExportLogon({i_service})](Slot& o_slot) {
                Output context;
                logon.Keep(context);
                o_slot.Keep(context);
            },
            [](Slot& io_slot) { SSOReleaseSecurityContext(io_slot.m_szKey.data()); }};
}

// What libkrb5 itself allocates in each kept context: the user's name.
void RunPrincipal(benchmark::State& io_state) {
    Krb5Owner<krb5_context, [](krb5_context, krb5_context i_context) { krb5_free_context(i_context); }> context(
        nullptr);
    Require(krb5_init_context(context.Receive()) == 0, "krb5_init_context");
    Krb5Principal name(context.get());
    Require(krb5_parse_name(context.get(), "alice@MORWEN.TEST", name.Receive()) == 0, "krb5_parse_name");
    std::vector<krb5_principal> copies(kObjects);
    for ([[maybe_unused]] auto _ : io_state) {
        const size_t nBefore = AllocatedBytes();
        for (krb5_principal& copy : copies) {
            Require(krb5_copy_principal(context.get(), name.get(), &copy) == 0, "krb5_copy_principal");
        }
        io_state.counters["bytes"] = static_cast<double>(AllocatedBytes() - nBefore) / static_cast<double>(kObjects);
        for (const krb5_principal copy : copies) {
            krb5_free_principal(context.get(), copy);
        }
    }
}

}  // namespace

void RegisterMemory() {
    const auto add = [](const std::string& i_name, const std::function<void(benchmark::State&)>& i_run) {
        Register("memory/" + i_name, i_run)->Iterations(1)->Repetitions(3);
    };
    const auto addKind = [&add](const std::string& i_name, Kind i_kind) {
        add(i_name, [kind = std::move(i_kind)](benchmark::State& io_state) { Run(io_state, kind); });
    };
    addKind("client-session", ClientSession());
    addKind("server-session", ServerSession());
    // One whose ticket is of no use but for this logon, and one that is kept with its ticket for second hops.
    constexpr const char *kWithout = "kept-1/localhost", *kWith = "kept-2/localhost";
    ForgeService(kWithout, ENCTYPE_AES256_CTS_HMAC_SHA1_96, 0);
    const size_t nTicket =
        ForgeService(kWith, ENCTYPE_AES256_CTS_HMAC_SHA1_96, 0, TKT_FLG_PRE_AUTH | TKT_FLG_FORWARDABLE);
    addKind("kept-context", KeptContext(kWithout));
    addKind("kept-context-and-ticket", KeptContext(kWith));
    add("ticket", [nTicket](benchmark::State& io_state) {
        for ([[maybe_unused]] auto _ : io_state) {
            io_state.counters["bytes"] = static_cast<double>(nTicket);
        }
    });
    add("krb5-principal", RunPrincipal);
}

}  // namespace morwen::bench
