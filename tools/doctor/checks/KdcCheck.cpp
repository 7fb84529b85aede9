// Each KDC of the realms concerned, and the clock against it.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <new>
#include <optional>
#include <set>

#include "platform/linux/contexts/Policy.h"
#include "platform/linux/kdc/KdcLocator.h"
#include "tools/doctor/case/KdcQuestion.h"
#include "tools/doctor/checks/Checks.h"

namespace morwen::doctor {

namespace {

constexpr krb5_ui_4 kWrongRealm = 68;  // the protocol's own number
constexpr int kUsualSkew = 300;        // seconds, libkrb5's default

// The names of the realms in the configuration: a misspelt realm often stands beside the right one.
std::vector<std::string> KnownRealms(const Case& i_case) {
    const char* aNames[] = {"realms", nullptr};  // the call takes no const array
    char** ppszRealms = nullptr;
    std::vector<std::string> realms;
    if (profile_get_subsection_names(i_case.m_system.get(), aNames, &ppszRealms) == 0) {
        for (char** ppsz = ppszRealms; *ppsz != nullptr; ++ppsz) {
            realms.emplace_back(*ppsz);
        }
        profile_free_list(ppszRealms);
    }
    return realms;
}

std::string Upper(std::string i_text) {
    std::transform(i_text.begin(), i_text.end(), i_text.begin(),
                   [](unsigned char i_c) { return static_cast<char>(std::toupper(i_c)); });
    return i_text;
}

void SayCase(Case& io_case, const std::string& i_realm, const std::string& i_right, const std::string& i_found) {
    io_case.m_report.Fail("realm-case", "the name of the realm " + i_realm, i_found,
                          "write " + i_right +
                              " wherever the realm is named: default_realm, [realms], [domain_realm], and in the "
                              "programs' settings");
}

std::vector<std::string> KdcsOf(Case& io_case, const std::string& i_realm) {
    const char* const aNames[] = {"realms", i_realm.c_str(), "kdc", nullptr};
    std::vector<std::string> kdcs;
    if (io_case.m_system.Values(aNames, kdcs) == 0) {
        return kdcs;
    }
    const std::vector<std::string> known = KnownRealms(io_case);
    for (const std::string& realm : known) {
        if (Upper(realm) == Upper(i_realm)) {
            SayCase(io_case, i_realm, Upper(realm), "[realms] of the configuration has it as " + realm);
            return {};
        }
    }
    std::string found = "none in the configuration, and asking DNS is switched off (dns_lookup_kdc)";
    if (MayAskDns(io_case.m_system)) {
        switch (FindKdcs("kerberos", i_realm, kdcs)) {
            case KdcSearch::Found:
                return kdcs;
            case KdcSearch::None:
                found = "none in the configuration, and no record _kerberos._tcp." + i_realm + " in DNS";
                break;
            case KdcSearch::Silent:
                found = "none in the configuration, and no name server answers";
                break;
        }
    }
    for (const std::string& realm : known) {
        found += (&realm == known.data() ? "; the configuration has " : ", ") + realm;
    }
    io_case.m_report.Fail("kdc-unknown", "the KDCs of the realm " + i_realm, found,
                          "check the realm's spelling (usually capital letters); write [realms] " + i_realm +
                              " = { kdc = HOST } to the configuration, or publish _kerberos._tcp." + i_realm +
                              " in DNS");
    return {};
}

// A question that every KDC answers with an error, which tells its time: who asks is no user of the realm, so that no
// account is touched, and the KDC's log says who it was. Or, with the instance: who asks is the realm's own principal,
// which every KDC of the realm knows.
std::vector<uint8_t> Question(Case& io_case, const std::string& i_realm, bool i_bAsRealm = false) {
    Krb5Principal client(io_case.Context());
    krb5_init_creds_context pState = nullptr;
    Krb5Data request(io_case.Context());
    Krb5Data realm(io_case.Context());
    krb5_data none{};
    unsigned nFlags = 0;
    krb5_error_code nCode = krb5_build_principal(
        io_case.Context(), client.Receive(), static_cast<unsigned>(i_realm.size()), i_realm.c_str(),
        i_bAsRealm ? KRB5_TGS_NAME : "morwen-doctor", i_bAsRealm ? i_realm.c_str() : nullptr, nullptr);
    if (nCode == 0) {
        nCode = krb5_init_creds_init(io_case.Context(), client.get(), nullptr, nullptr, 0, nullptr, &pState);
    }
    if (nCode == 0) {
        nCode = krb5_init_creds_step(io_case.Context(), pState, &none, request.Receive(), realm.Receive(), &nFlags);
    }
    krb5_init_creds_free(io_case.Context(), pState);
    return nCode == 0 ? std::vector<uint8_t>(request->data, request->data + request->length) : std::vector<uint8_t>();
}

// What all the protocols of one KDC came to.
struct Verdict {
    const char* m_pszProblem = nullptr;
    std::string m_words;
    std::optional<int64_t> m_offset;
    int m_nAnswers = 0;
    int m_nAsked = 0;
    bool m_bTcp = false;
};

// The answer's error number, and how far its clock is ahead.
std::optional<krb5_ui_4> ReadAnswer(Case& io_case, const std::vector<uint8_t>& i_answer, Verdict& io_verdict) {
    const krb5_data data = DataOf(i_answer);
    Krb5ErrorRecord record(io_case.Context());
    if (krb5_rd_error(io_case.Context(), &data, record.Receive()) == 0) {
        io_verdict.m_offset = SecondsOf(record->stime) - std::time(nullptr);
        return record->error;
    }
    constexpr uint8_t kAsReply = 0x6B;  // somebody has made an account of that name; no time can be read then
    return i_answer[0] == kAsReply ? std::optional<krb5_ui_4>(0) : std::nullopt;
}

Verdict Judge(Case& io_case, const std::vector<KdcReply>& i_replies, size_t i_nKdc) {
    Verdict verdict;
    bool bRefused = false;
    for (const KdcReply& reply : i_replies) {
        if (reply.m_nKdc != i_nKdc) {
            continue;
        }
        ++verdict.m_nAsked;
        const char* const pszProtocol = reply.m_eProtocol == KdcAttempt::Protocol::Tcp ? "TCP" : "UDP";
        bRefused = bRefused || reply.m_bRefused;
        std::string words = reply.m_words;
        if (!reply.m_answer.empty()) {
            const auto number = ReadAnswer(io_case, reply.m_answer, verdict);
            if (!number) {
                verdict.m_pszProblem = "kdc-not-kerberos";
                words = "an answer that is not Kerberos";
            } else if (*number == kWrongRealm) {
                verdict.m_pszProblem = "kdc-wrong-realm";
                words = "not its realm";
            } else {
                ++verdict.m_nAnswers;
                verdict.m_bTcp = verdict.m_bTcp || reply.m_eProtocol == KdcAttempt::Protocol::Tcp;
                words = "answers";
            }
        }
        Enumerate(verdict.m_words, std::string(pszProtocol) + ": " + words, "; ");
    }
    if (verdict.m_nAsked == 0) {
        verdict.m_pszProblem = "kdc-unresolvable";
        verdict.m_words = "the host name has no address";
    } else if (verdict.m_nAnswers == 0 && verdict.m_pszProblem == nullptr) {
        verdict.m_pszProblem = bRefused ? "kdc-refused" : "kdc-silent";
    } else if (verdict.m_nAnswers > 0) {
        verdict.m_pszProblem = verdict.m_nAnswers < verdict.m_nAsked ? "kdc-one-protocol" : nullptr;
    }
    return verdict;
}

std::string RemedyFor(const std::string& i_problem, const KdcName& i_kdc, const std::string& i_realm) {
    if (i_problem == "kdc-unresolvable") {
        return "getent hosts " + Quoted(i_kdc.m_host) + " must answer: correct the kdc line of [realms] " + i_realm +
               ", the SRV record, or DNS";
    }
    if (i_problem == "kdc-refused") {
        return "start the KDC on " + i_kdc.m_host + " (systemctl start krb5-kdc), or correct the port " + i_kdc.m_port +
               " in the kdc line of [realms] " + i_realm;
    }
    if (i_problem == "kdc-wrong-realm" || i_problem == "kdc-not-kerberos") {
        return "correct the kdc line of [realms] " + i_realm + " or the record _kerberos._tcp." + i_realm + " in DNS";
    }
    return "check that the machine is up (ping " + Quoted(i_kdc.m_host) + ") and that firewalls let TCP and UDP port " +
           i_kdc.m_port + " through";
}

int ClockLimit(const Case& i_case) {
    int nLimit = kUsualSkew;
    profile_get_integer(i_case.m_system.get(), "libdefaults", "clockskew", nullptr, kUsualSkew, &nLimit);
    return nLimit;
}

void CheckClock(Case& io_case, const std::string& i_kdc, int64_t i_nOffset) {
    const int nLimit = ClockLimit(io_case);
    const std::string lookedAt = "the clock against the KDC " + i_kdc;
    const int64_t nDistance = std::abs(i_nOffset);
    const std::string found = nDistance == 0 ? std::string("they agree")
                                             : "the KDC is " + std::to_string(nDistance) + " s " +
                                                   (i_nOffset > 0 ? "ahead" : "behind") + "; the limit is " +
                                                   std::to_string(nLimit) + " s";
    const char* const pszRemedy = "on the machine that is wrong: timedatectl set-ntp true (date -u compares)";
    if (nDistance > nLimit) {
        io_case.m_report.Fail("clock-skew", lookedAt, found, pszRemedy);
    } else if (nDistance > nLimit / 5) {
        io_case.m_report.Warn("clock-skew", lookedAt, found, pszRemedy);
    } else {
        io_case.m_report.Ok("clock", lookedAt, found);
    }
}

// Whether one of the KDCs serves the realm under exactly this name.
bool IsServed(Case& io_case, const std::vector<KdcName>& i_kdcs, const std::string& i_realm) {
    constexpr krb5_ui_4 kUnknownClient = 6;
    const std::vector<uint8_t> question = Question(io_case, i_realm, true);
    const std::vector<KdcReply> replies = AskKdcs(i_kdcs, question, io_case.m_options.m_wait, true);
    return std::any_of(replies.begin(), replies.end(), [&](const KdcReply& i_reply) {
        Verdict unused;
        const auto number = i_reply.m_answer.empty() ? std::nullopt : ReadAnswer(io_case, i_reply.m_answer, unused);
        return number && *number != kUnknownClient && *number != kWrongRealm;
    });
}

std::string NameOf(const std::string& i_kdc, const std::string& i_realm) {
    return "the KDC " + i_kdc + " of " + i_realm;
}

void CheckRealm(Case& io_case, const std::string& i_realm) {
    std::vector<KdcName> kdcs;
    for (const std::string& text : KdcsOf(io_case, i_realm)) {
        if (const auto name = KdcName::Parse(text)) {
            kdcs.push_back(*name);
        } else {
            io_case.m_report.Skip("kdc", NameOf(text, i_realm), "only libkrb5 can reach this kind");
        }
    }
    const std::string upper = Upper(i_realm);
    const bool bUnconfirmed = upper != i_realm && !IsServed(io_case, kdcs, i_realm);
    if (bUnconfirmed && IsServed(io_case, kdcs, upper)) {
        SayCase(io_case, i_realm, upper, "its KDCs serve " + upper);
        return;
    }
    const std::vector<uint8_t> question = Question(io_case, i_realm);
    const std::vector<KdcReply> replies = AskKdcs(kdcs, question, io_case.m_options.m_wait, false);
    std::vector<Verdict> verdicts;
    std::vector<KdcName> answering;
    const auto isLate = [nLimit = ClockLimit(io_case)](const Verdict& i_verdict) {
        return std::abs(i_verdict.m_offset.value_or(0)) > nLimit;
    };
    for (size_t i = 0; i < kdcs.size(); ++i) {
        verdicts.push_back(Judge(io_case, replies, i));
    }
    // A KDC whose clock is wrong refuses what the checks ask: only where there is no other do they stop at that.
    const bool bInTime = std::any_of(verdicts.begin(), verdicts.end(), [&](const Verdict& i_verdict) {
        return i_verdict.m_nAnswers > 0 && !isLate(i_verdict);
    });
    for (size_t i = 0; i < kdcs.size(); ++i) {
        const Verdict& verdict = verdicts[i];
        if (verdict.m_nAnswers > 0 && isLate(verdict) && !bInTime) {
            io_case.m_nClockOffset = *verdict.m_offset;
        }
        if (verdict.m_nAnswers > 0 && !(isLate(verdict) && bInTime)) {
            answering.push_back(kdcs[i]);
            // Over UDP a KDC may only say that its answer is too large.
            answering.back().m_bUdp = !verdict.m_bTcp;
            answering.back().m_bTcp = verdict.m_bTcp;
        }
    }
    for (size_t i = 0; i < kdcs.size(); ++i) {
        const Verdict& verdict = verdicts[i];
        const std::string lookedAt = NameOf(kdcs[i].Text(), i_realm);
        if (verdict.m_pszProblem == nullptr) {
            io_case.m_report.Ok("kdc", lookedAt, verdict.m_words);
        } else if (answering.empty()) {
            io_case.m_report.Fail(verdict.m_pszProblem, lookedAt, verdict.m_words,
                                  RemedyFor(verdict.m_pszProblem, kdcs[i], i_realm));
        } else {
            io_case.m_report.Warn(verdict.m_pszProblem, lookedAt, verdict.m_words,
                                  RemedyFor(verdict.m_pszProblem, kdcs[i], i_realm));
        }
        if (verdict.m_offset && verdict.m_nAnswers > 0) {
            CheckClock(io_case, kdcs[i].Text(), *verdict.m_offset);
        }
    }
    if (bUnconfirmed && !answering.empty()) {  // a directory's KDC answers to any spelling, with tickets of its own
        SayCase(io_case, i_realm, upper, "its KDCs do not say that they serve it in this spelling");
    }
    if (!answering.empty()) {
        io_case.m_answering[i_realm] = std::move(answering);
    }
}

// So that the checks wait for no KDC that has not answered. No reply and no error leave other realms to libkrb5.
krb5_error_code OnSend(krb5_context i_context, void* i_pvCase, const krb5_data* i_realm, const krb5_data* i_request,
                       krb5_data** o_ppNewRequest, krb5_data** o_ppReply) {
    *o_ppNewRequest = nullptr;
    *o_ppReply = nullptr;
    try {
        const Case& subject = *static_cast<const Case*>(i_pvCase);
        const auto it = subject.m_answering.find(std::string(i_realm->data, i_realm->length));
        if (it == subject.m_answering.end()) {
            return 0;
        }
        const auto* const pRequest = reinterpret_cast<const uint8_t*>(i_request->data);
        for (const KdcReply& reply :
             AskKdcs(it->second, {pRequest, i_request->length}, subject.m_options.m_wait, true)) {
            if (!reply.m_answer.empty()) {
                const krb5_data answer = DataOf(reply.m_answer);
                return krb5_copy_data(i_context, &answer, o_ppReply);
            }
        }
        return KRB5_KDC_UNREACH;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

}  // namespace

void CheckKdcs(Case& io_case) {
    std::set<std::string> realms;
    if (!io_case.m_realm.empty()) {
        realms.insert(io_case.m_realm);
    }
    if (const Krb5Principal service = ServiceOf(io_case); service && service->realm.length != 0) {
        realms.emplace(service->realm.data, service->realm.length);
    }
    Krb5CacheOwner cache(io_case.Context());
    Krb5Principal client(io_case.Context());
    if (krb5_cc_default(io_case.Context(), cache.Receive()) == 0 &&
        krb5_cc_get_principal(io_case.Context(), cache.get(), client.Receive()) == 0) {
        realms.emplace(client->realm.data, client->realm.length);
    }
    for (const std::string& realm : realms) {
        CheckRealm(io_case, realm);
    }
    krb5_set_kdc_send_hook(io_case.Context(), OnSend, &io_case);
}

}  // namespace morwen::doctor
