// Where a KDC listens: from the configuration's words to socket addresses.
#pragma once

#include <sys/socket.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace morwen {

struct KdcAddress {
    sockaddr_storage m_address{};
    socklen_t m_nLength = 0;
};

struct KdcName {
    std::string m_host;
    std::string m_port;
    bool m_bTcp = true;
    bool m_bUdp = true;

    // Reads "host", "host:port", "[address]:port", each with "tcp/" or "udp/" in front when only that will do. An
    // address of version 6 needs no brackets when no port follows. Nothing for what only libkrb5 knows how to reach: an
    // HTTPS proxy, a socket in the file system.
    static std::optional<KdcName> Parse(std::string_view i_text);

    // "host:port", with brackets around an address of version 6.
    std::string Text() const;

    // The addresses of the host; empty when it has none. Numbers are read without asking anybody; for names each name
    // server is asked once and waited for a second, if the system's resolver does the asking. Other name services (nss
    // modules) have deadlines of their own, which nothing here can shorten.
    std::vector<KdcAddress> Resolve() const;
};

}  // namespace morwen
