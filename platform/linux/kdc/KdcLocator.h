// The KDCs that the name service knows for a realm.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace morwen {

enum class KdcSearch { Found, None, Silent };

// Looks up the SRV records _SERVICE._tcp.REALM, and _SERVICE._udp.REALM when there are none. Each name server is asked
// once and waited for a second, so each of the two takes at most three seconds (the resolver has three servers at
// most). Silent when none has answered, or none of what was left in an answer that is cut names a KDC: not worth
// another search right away, which might wait without end. The KDCs come as "host:port", the preferred first. Throws
// std::bad_alloc.
KdcSearch FindKdcs(const std::string& i_service, const std::string& i_realm, std::vector<std::string>& o_kdcs);

// The KDCs in a name server's answer, the preferred first. What is malformed is left out. Throws std::bad_alloc.
std::vector<std::string> ReadKdcs(const std::vector<uint8_t>& i_answer);

}  // namespace morwen
