#include "platform/linux/contexts/Policy.h"

namespace morwen {

std::string PermittedCiphers(const SystemProfile& i_system) {
    std::string ciphers = "DEFAULT";
    if (!i_system.IsSet("allow_weak_crypto")) {
        ciphers += i_system.IsSet("allow_rc4") ? "" : " -rc4";
        ciphers += i_system.IsSet("allow_des3") ? "" : " -des3";
    }
    return ciphers;
}

bool MayAskDns(const SystemProfile& i_system) noexcept {
    return i_system.IsSet("dns_lookup_kdc", i_system.IsSet("dns_fallback", true));
}

}  // namespace morwen
