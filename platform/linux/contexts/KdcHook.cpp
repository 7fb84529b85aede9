#include "platform/linux/contexts/KdcHook.h"

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

#include "harrow/log/STrace.h"
#include "platform/linux/contexts/Policy.h"
#include "platform/linux/kdc/KdcAddress.h"
#include "platform/linux/kdc/KdcLocator.h"
#include "platform/linux/kdc/KdcTransport.h"
#include "platform/linux/krb5/Krb5Words.h"
#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

namespace {

constexpr std::chrono::milliseconds kDeadline(10'000);

// The KDCs to be asked; empty when one of them can be reached by libkrb5 only, or none is known here.
std::vector<KdcName> KdcsOf(const std::vector<std::string>& i_texts) {
    std::vector<KdcName> kdcs;
    for (const std::string& text : i_texts) {
        std::optional<KdcName> name = KdcName::Parse(text);
        if (!name) {
            return {};
        }
        kdcs.push_back(std::move(*name));
    }
    return kdcs;
}

}  // namespace

void KdcHook::Install(krb5_context i_context) noexcept {
    krb5_set_kdc_send_hook(i_context, OnSend, this);
}

const std::vector<std::string>& KdcHook::Locate(const SystemProfile& i_system, const std::string& i_realm,
                                                std::string_view i_relation,
                                                const std::vector<std::string>& i_configured) {
    const bool bPrimary = i_relation != "kdc";
    if (!bPrimary || m_toldRealm != i_realm) {
        m_answeredBy.clear();
        m_bPrimaryAnswered = false;
    }
    m_toldRealm = i_realm;
    m_told = {i_configured, std::chrono::steady_clock::now()};
    m_bDnsOff = false;
    // libkrb5 asks for the primary KDC under its new name first, then under its old one: one search is enough.
    if (m_told.m_kdcs.empty() && i_relation != "primary_kdc" && !m_bPrimaryAnswered && MayAskDns(i_system)) {
        m_bDnsOff = FindKdcs(bPrimary ? "kerberos-master" : "kerberos", i_realm, m_told.m_kdcs) == KdcSearch::Silent;
    }
    const auto hasAnswered = [this](const std::string& i_kdc) {
        const std::optional<KdcName> name = KdcName::Parse(i_kdc);
        return name && name->Text() == m_answeredBy;
    };
    m_bPrimaryAnswered =
        m_bPrimaryAnswered || (bPrimary && std::any_of(m_told.m_kdcs.begin(), m_told.m_kdcs.end(), hasAnswered));
    if (m_bPrimaryAnswered) {
        m_told.m_kdcs.clear();
        m_bDnsOff = true;
    }
    return m_told.m_kdcs;
}

KdcHook::ToldKdcs KdcHook::TakeToldKdcs(std::string_view i_realm) {
    ToldKdcs told = std::exchange(m_told, {});
    return m_toldRealm == i_realm ? told : ToldKdcs();
}

void KdcHook::NoteAnswer(std::string i_kdc) noexcept {
    m_answeredBy = std::move(i_kdc);
}

// libkrb5 calls this for each request, after it has located the KDCs and before it would ask them. No reply and no
// error tell it to go on by itself.
krb5_error_code KdcHook::OnSend(krb5_context i_context, void* i_pvHook, const krb5_data* i_realm,
                                const krb5_data* i_request, krb5_data** o_ppNewRequest, krb5_data** o_ppReply) {
    *o_ppNewRequest = nullptr;
    *o_ppReply = nullptr;
    try {
        return static_cast<KdcHook*>(i_pvHook)->Send(i_context, std::string(i_realm->data, i_realm->length), *i_request,
                                                     o_ppReply);
    } catch (const std::bad_alloc&) {
        return NoteNoMemory();
    }
}

krb5_error_code KdcHook::Send(krb5_context i_context, const std::string& i_realm, const krb5_data& i_request,
                              krb5_data** o_ppReply) {
    const ToldKdcs told = TakeToldKdcs(i_realm);
    const std::vector<KdcName> kdcs = KdcsOf(told.m_kdcs);
    if (kdcs.empty()) {
        S_TRACE("ssoplugin: KdcHook::Send() -- The KDCs of %1 are for libkrb5 to ask, with no deadline.", i_realm);
        return 0;
    }
    KdcOutcome outcome;
    const krb5_error_code nCode =
        ExchangeWithKdcs(i_context, kdcs, BytesOf(i_request), told.m_askedAt + kDeadline, outcome);
    if (nCode != 0) {
        krb5_set_error_message(i_context, nCode, "No KDC of the realm %s has answered (deadline %lld ms): %s",
                               i_realm.c_str(), static_cast<long long>(kDeadline.count()), outcome.m_failures.c_str());
        return nCode;
    }
    NoteAnswer(std::move(outcome.m_answeredBy));
    const krb5_data reply = DataOf(outcome.m_answer);
    return krb5_copy_data(i_context, &reply, o_ppReply);
}

}  // namespace morwen
