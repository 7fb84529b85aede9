// The host in the service's name.
#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>

#include <set>

#include "tools/doctor/checks/Checks.h"

namespace morwen::doctor {

namespace {

std::string TextOf(const void* i_pvAddress, int i_nFamily) {
    const socklen_t nLength = i_nFamily == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    char aText[NI_MAXHOST]{};
    const int nError = getnameinfo(static_cast<const sockaddr*>(i_pvAddress), nLength, aText, sizeof aText, nullptr, 0,
                                   NI_NUMERICHOST);
    return nError == 0 ? aText : "";
}

std::set<std::string> OwnAddresses() {
    std::set<std::string> addresses;
    ifaddrs* pList = nullptr;
    if (getifaddrs(&pList) != 0) {
        return addresses;
    }
    for (const ifaddrs* p = pList; p != nullptr; p = p->ifa_next) {
        if (p->ifa_addr != nullptr && (p->ifa_addr->sa_family == AF_INET || p->ifa_addr->sa_family == AF_INET6)) {
            addresses.insert(TextOf(p->ifa_addr, p->ifa_addr->sa_family));
        }
    }
    freeifaddrs(pList);
    return addresses;
}

}  // namespace

void CheckHost(Case& io_case) {
    const Krb5Principal service = ServiceOf(io_case);
    if (!service) {
        io_case.m_report.Skip("host", "the service's host", "no principal to take it from (--spn)");
        return;
    }
    const std::string host(service->data[1].data, service->data[1].length);
    const std::string lookedAt = "the addresses of " + host;
    // Resolved as a KDC's name is, because that does not wait long for a name server.
    const std::vector<KdcAddress> addresses = KdcName{.m_host = host, .m_port = "88"}.Resolve();
    if (addresses.empty()) {
        io_case.m_report.Warn("host-unresolvable", lookedAt, "none",
                              "getent hosts " + Quoted(host) + " must answer: add the name to DNS or to /etc/hosts");
        return;
    }
    const std::set<std::string> own = OwnAddresses();
    std::string found;
    bool bHere = false;
    for (const KdcAddress& address : addresses) {
        const std::string text = TextOf(&address.m_address, address.m_address.ss_family);
        Enumerate(found, text);
        bHere = bHere || own.contains(text) || text.starts_with("127.");
    }
    if (io_case.m_options.m_bServer && !bHere) {
        io_case.m_report.Warn("host-elsewhere", lookedAt, found + ", none of which is this machine's",
                              "correct the name in DNS, or register the service under this machine's own name "
                              "(hostname -f)");
        return;
    }
    io_case.m_report.Ok("host", lookedAt, found);
}

}  // namespace morwen::doctor
