// Where a KDC listens: from the configuration's words to socket addresses.
#include "platform/linux/kdc/KdcAddress.h"

#include <arpa/nameser.h>
#include <netdb.h>
#include <netinet/in.h>
#include <resolv.h>

#include <array>
#include <cstring>
#include <memory>

namespace morwen {

namespace {

constexpr std::string_view kDefaultPort = "88";

// Shortens the waits of this thread's resolver for a scope; the settings are per thread.
class ShortResolverWait {
public:
    ShortResolverWait() {
        // Asks nobody. resolv.conf is read here if it has changed: not by a look-up whose settings are not the file's.
        std::array<unsigned char, NS_PACKETSZ> aQuery{};
        static_cast<void>(res_mkquery(ns_o_query, "", ns_c_in, ns_t_a, nullptr, 0, nullptr, aQuery.data(),
                                      static_cast<int>(aQuery.size())));
        m_nRetransmit = _res.retrans;
        m_nRetry = _res.retry;
        m_nOptions = _res.options;
        _res.retrans = 1;
        _res.retry = 1;
        // A cut answer is used as it is: the repetition over TCP would have no deadline.
        _res.options |= kOptions;
    }
    ~ShortResolverWait() {
        _res.retrans = m_nRetransmit;
        _res.retry = m_nRetry;
        _res.options = (_res.options & ~kOptions) | (m_nOptions & kOptions);
    }
    ShortResolverWait(const ShortResolverWait&) = delete;
    ShortResolverWait& operator=(const ShortResolverWait&) = delete;

private:
    static constexpr unsigned long kOptions = RES_IGNTC | RES_USE_EDNS0;

    int m_nRetransmit;
    int m_nRetry;
    unsigned long m_nOptions;
};

bool TakePrefix(std::string_view& io_text, std::string_view i_prefix) {
    if (!io_text.starts_with(i_prefix)) {
        return false;
    }
    io_text.remove_prefix(i_prefix.size());
    return true;
}

std::vector<KdcAddress> LookUp(const KdcName& i_name, int i_nFlags) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;  // one answer for each address, not one for each protocol
    hints.ai_flags = i_nFlags;
    addrinfo* pList = nullptr;
    std::vector<KdcAddress> addresses;
    if (getaddrinfo(i_name.m_host.c_str(), i_name.m_port.c_str(), &hints, &pList) != 0) {
        return addresses;
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> pOwner(pList, freeaddrinfo);
    for (const addrinfo* pInfo = pList; pInfo != nullptr; pInfo = pInfo->ai_next) {
        KdcAddress& address = addresses.emplace_back();
        std::memcpy(&address.m_address, pInfo->ai_addr, pInfo->ai_addrlen);
        address.m_nLength = pInfo->ai_addrlen;
    }
    return addresses;
}

}  // namespace

std::optional<KdcName> KdcName::Parse(std::string_view i_text) {
    KdcName name;
    if (TakePrefix(i_text, "tcp/")) {
        name.m_bUdp = false;
    } else if (TakePrefix(i_text, "udp/")) {
        name.m_bTcp = false;
    }
    std::string_view port = kDefaultPort;
    if (TakePrefix(i_text, "[")) {
        const size_t nEnd = i_text.find(']');
        if (nEnd == std::string_view::npos) {
            return std::nullopt;
        }
        std::string_view rest = i_text.substr(nEnd + 1);
        i_text = i_text.substr(0, nEnd);
        if (TakePrefix(rest, ":")) {
            port = rest;
        }
    } else if (const size_t nColon = i_text.find(':');
               nColon != std::string_view::npos && nColon == i_text.rfind(':')) {
        port = i_text.substr(nColon + 1);
        i_text = i_text.substr(0, nColon);
    }
    if (i_text.empty() || port.empty() || i_text.find('/') != std::string_view::npos ||
        port.find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    name.m_host = i_text;
    name.m_port = port;
    return name;
}

std::string KdcName::Text() const {
    return (m_host.find(':') != std::string::npos ? "[" + m_host + "]:" : m_host + ":") + m_port;
}

std::vector<KdcAddress> KdcName::Resolve() const {
    std::vector<KdcAddress> addresses = LookUp(*this, AI_NUMERICHOST | AI_NUMERICSERV);
    if (addresses.empty()) {
        const ShortResolverWait wait;
        addresses = LookUp(*this, AI_NUMERICSERV | AI_ADDRCONFIG);
    }
    return addresses;
}

}  // namespace morwen
