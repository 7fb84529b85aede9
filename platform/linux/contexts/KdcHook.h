// What libkrb5 is told of a realm's KDCs, and who asks them in its place.
#pragma once

#include <krb5/krb5.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/contexts/SystemProfile.h"

namespace morwen {

// libkrb5 looks a realm's KDCs up in its configuration, then sends each request through a hook; this stands at both
// ends. Left to itself the library searches DNS and waits for KDCs without a bound.
//
// When the configuration names no KDCs and DNS may be asked, those of the realm's SRV records are told. Where the name
// service was silent, the library's own search in DNS is switched off until the next question, so that it does not wait
// once more; where there are no SRV records, it may still find URI records. A realm's primary KDC that has answered
// already is not told again.
//
// Belongs to one context, and so to one thread at a time.
class KdcHook {
public:
    KdcHook() = default;
    KdcHook(const KdcHook&) = delete;
    KdcHook& operator=(const KdcHook&) = delete;

    // From now on the context's requests are sent here, and answered within ten seconds: for all KDCs of a realm
    // together, the search for them included. The context must not outlive this object.
    void Install(krb5_context i_context) noexcept;

    // The KDCs to be told when the context asks for them under this relation (kdc, primary_kdc or master_kdc) and the
    // configuration says these; stays until the next question. Throws std::bad_alloc.
    const std::vector<std::string>& Locate(const SystemProfile& i_system, const std::string& i_realm,
                                           std::string_view i_relation, const std::vector<std::string>& i_configured);

    // Whether the library's own search in DNS would find nothing new, or only cost time.
    bool IsDnsOff() const noexcept { return m_bDnsOff; }

    struct ToldKdcs {
        std::vector<std::string> m_kdcs;
        std::chrono::steady_clock::time_point m_askedAt;
    };
    // What was told last. Gives it once: none if the library has not asked for this realm since, because a locate
    // plug-in told it.
    ToldKdcs TakeToldKdcs(std::string_view i_realm);
    // Which of these KDCs has answered, as KdcName's Text.
    void NoteAnswer(std::string i_kdc) noexcept;

private:
    static krb5_error_code OnSend(krb5_context i_context, void* i_pvHook, const krb5_data* i_realm,
                                  const krb5_data* i_request, krb5_data** o_ppNewRequest, krb5_data** o_ppReply);
    krb5_error_code Send(krb5_context i_context, const std::string& i_realm, const krb5_data& i_request,
                         krb5_data** o_ppReply);

    std::string m_toldRealm;
    ToldKdcs m_told;
    std::string m_answeredBy;         // since the context last asked for "kdc"
    bool m_bPrimaryAnswered = false;  // since then
    bool m_bDnsOff = false;
};

}  // namespace morwen
