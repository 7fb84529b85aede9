// A connection to the other half of a logon.
#include "tools/doctor/logon/PeerSocket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <memory>
#include <syncstream>
#include <system_error>

#include "tools/doctor/logon/PeerChannel.h"

namespace morwen::doctor {

namespace {

using Clock = std::chrono::steady_clock;
using Addresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

std::string Words(int i_nError) {
    return std::generic_category().message(i_nError);
}

Addresses Find(const std::string& i_peer, int i_nFlags) {
    const size_t nColon = i_peer.rfind(':');
    std::string host = i_peer.substr(0, nColon == std::string::npos ? 0 : nColon);
    if (host.starts_with('[') && host.ends_with(']')) {
        host = host.substr(1, host.size() - 2);
    }
    const std::string port = i_peer.substr(nColon + 1);
    const bool bNumber = port.find_first_not_of("0123456789") == std::string::npos;
    if (host.empty() || port.empty() || (bNumber && (port.size() > 5 || std::stoi(port) > 65535))) {  // it would wrap
        throw PeerError("\"" + i_peer + "\" is not HOST:PORT");
    }
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = i_nFlags;
    addrinfo* pList = nullptr;
    if (const int nError = getaddrinfo(host.c_str(), port.c_str(), &hints, &pList); nError != 0) {
        throw PeerError(i_peer + ": " + gai_strerror(nError));
    }
    return {pList, freeaddrinfo};
}

// 0, or an errno.
int Await(int i_nSocket, short i_nEvents, Clock::time_point i_deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(i_deadline - Clock::now());
        pollfd wait{i_nSocket, i_nEvents, 0};
        const int nReady = poll(&wait, 1, std::max(0, static_cast<int>(left.count())));
        if (nReady >= 0 || errno != EINTR) {
            return nReady > 0 ? 0 : nReady == 0 ? ETIMEDOUT : errno;
        }
    }
}

int ConnectTo(int i_nSocket, const addrinfo& i_address, Clock::time_point i_deadline) {
    if (connect(i_nSocket, i_address.ai_addr, i_address.ai_addrlen) == 0) {
        return 0;
    }
    int nError = errno;
    socklen_t nSize = sizeof nError;
    if (nError == EINPROGRESS && (nError = Await(i_nSocket, POLLOUT, i_deadline)) == 0 &&
        getsockopt(i_nSocket, SOL_SOCKET, SO_ERROR, &nError, &nSize) != 0) {
        nError = errno;
    }
    return nError;
}

}  // namespace

Descriptor::~Descriptor() {
    if (m_nDescriptor >= 0) {
        close(m_nDescriptor);
    }
}

Descriptor Connect(const std::string& i_peer, Clock::time_point i_deadline) {
    const Addresses addresses = Find(i_peer, 0);
    int nError = 0;
    for (const addrinfo* p = addresses.get(); p != nullptr; p = p->ai_next) {
        Descriptor connection(socket(p->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        nError = connection.get() < 0 ? errno : ConnectTo(connection.get(), *p, i_deadline);
        if (nError == 0) {
            return connection;
        }
    }
    throw PeerError(i_peer + ": " + Words(nError));
}

Descriptor AcceptOne(const std::string& i_address, Clock::time_point i_deadline) {
    const Addresses addresses = Find(i_address, AI_NUMERICHOST | AI_PASSIVE);
    const Descriptor listener(socket(addresses->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int nOn = 1;
    sockaddr_storage bound{};
    socklen_t nLength = sizeof bound;
    if (listener.get() < 0 || setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof nOn) != 0 ||
        bind(listener.get(), addresses->ai_addr, addresses->ai_addrlen) != 0 || listen(listener.get(), 1) != 0 ||
        getsockname(listener.get(), reinterpret_cast<sockaddr*>(&bound), &nLength) != 0) {
        throw PeerError("listening on " + i_address + ": " + Words(errno));
    }
    const uint16_t nPort = bound.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6&>(bound).sin6_port
                                                       : reinterpret_cast<const sockaddr_in&>(bound).sin_port;
    // Whole, since the library's threads may be tracing to the same place.
    std::osyncstream(std::cerr) << "listening on " << i_address.substr(0, i_address.rfind(':')) << ":" << ntohs(nPort)
                                << "; now run: morwen-doctor login --spn SERVICE/HOST --connect HOST:" << ntohs(nPort)
                                << '\n';
    int nError = Await(listener.get(), POLLIN, i_deadline);
    Descriptor connection(nError == 0 ? accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK) : -1);
    if (connection.get() < 0) {
        throw PeerError("waiting for a client on " + i_address + ": " + Words(nError != 0 ? nError : errno));
    }
    return connection;
}

}  // namespace morwen::doctor
