#include "platform/linux/kdc/KdcLocator.h"

#include <arpa/nameser.h>
#include <netdb.h>
#include <netinet/in.h>
#include <resolv.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <map>
#include <utility>

namespace morwen {

namespace {

// Whether the server has left something out for want of room. It would be asked for over TCP, with no deadline.
bool IsCut(const std::vector<uint8_t>& i_answer) {
    constexpr size_t kFlags = 2;
    constexpr uint8_t kCut = 0x02;
    return i_answer.size() > kFlags && (i_answer[kFlags] & kCut) != 0;
}

// A resolver of its own, so that neither the host's settings nor another thread's are touched.
class Resolver {
public:
    Resolver() : m_bReady(res_ninit(&m_state) == 0) {
        m_state.retrans = 1;
        m_state.retry = 1;
        // A cut answer is used as it is.
        m_state.options |= RES_IGNTC | RES_USE_EDNS0;
    }
    ~Resolver() {
        if (m_bReady) {
            res_nclose(&m_state);  // of one that never began it would close descriptor 0
        }
    }
    Resolver(const Resolver&) = delete;
    Resolver& operator=(const Resolver&) = delete;

    KdcSearch Query(const std::string& i_name, std::vector<uint8_t>& o_answer) {
        o_answer.assign(NS_MAXMSG, 0);
        const int nLength = m_bReady ? res_nquery(&m_state, i_name.c_str(), ns_c_in, ns_t_srv, o_answer.data(),
                                                  static_cast<int>(o_answer.size()))
                                     : -1;
        if (nLength < 0) {
            return m_bReady && m_state.res_h_errno != TRY_AGAIN && !IsCut(o_answer) ? KdcSearch::None
                                                                                    : KdcSearch::Silent;
        }
        o_answer.resize(std::min(static_cast<size_t>(nLength), o_answer.size()));
        return KdcSearch::Found;
    }

private:
    struct __res_state m_state {};
    bool m_bReady;
};

}  // namespace

KdcSearch FindKdcs(const std::string& i_service, const std::string& i_realm, std::vector<std::string>& o_kdcs) {
    Resolver resolver;
    std::vector<uint8_t> answer;
    for (const char* const pszProtocol : {"._tcp.", "._udp."}) {
        // The final dot keeps the search domains out.
        std::string name = "_";
        name.append(i_service).append(pszProtocol).append(i_realm).append(".");
        const KdcSearch eResult = resolver.Query(name, answer);
        if (eResult == KdcSearch::Silent) {
            return eResult;
        }
        if (eResult == KdcSearch::Found) {
            o_kdcs = ReadKdcs(answer);
        }
        if (!o_kdcs.empty()) {
            return KdcSearch::Found;
        }
        if (IsCut(answer)) {
            return KdcSearch::Silent;
        }
    }
    return KdcSearch::None;
}

std::vector<std::string> ReadKdcs(const std::vector<uint8_t>& i_answer) {
    constexpr size_t kFixedBytes = 6;  // priority, weight, port
    // By priority and then by weight, the heaviest first; of equals the first one stays it.
    std::multimap<std::pair<int, int>, std::string> servers;
    ns_msg message{};
    if (ns_initparse(i_answer.data(), static_cast<int>(i_answer.size()), &message) != 0) {
        return {};
    }
    for (int i = 0; i < ns_msg_count(message, ns_s_an); ++i) {
        ns_rr record{};
        std::array<char, NS_MAXDNAME> target{};
        if (ns_parserr(&message, ns_s_an, i, &record) != 0 || ns_rr_type(record) != ns_t_srv ||
            ns_rr_rdlen(record) <= kFixedBytes ||
            dn_expand(ns_msg_base(message), ns_msg_end(message), ns_rr_rdata(record) + kFixedBytes, target.data(),
                      static_cast<int>(target.size())) < 0) {
            continue;
        }
        const auto number = [&record](size_t i_nOffset) {
            return static_cast<int>(ns_get16(ns_rr_rdata(record) + i_nOffset));
        };
        // An empty target says that the service is decidedly not there; libkrb5 would take others for paths or
        // addresses of proxies.
        const std::string host = target.data();
        const bool bHost = std::all_of(host.begin(), host.end(), [](unsigned char i_c) {
            return std::isalnum(i_c) != 0 || i_c == '-' || i_c == '_' || i_c == '.';
        });
        if (!host.empty() && bHost && number(4) != 0) {
            servers.emplace(std::pair(number(0), -number(2)), host + ":" + std::to_string(number(4)));
        }
    }
    std::vector<std::string> kdcs;
    kdcs.reserve(servers.size());
    for (auto& [order, server] : servers) {
        kdcs.push_back(std::move(server));
    }
    return kdcs;
}

}  // namespace morwen
