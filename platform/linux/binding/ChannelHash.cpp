#include "platform/linux/binding/ChannelHash.h"

#include <algorithm>
#include <vector>

#include "platform/linux/krb5/SspiFailure.h"

namespace morwen {

ChannelHash HashChannel(krb5_context i_context, const Channel& i_channel) {
    // Numbers of four bytes, the lowest first: type and length of both addresses, and the length of the data.
    constexpr size_t kInitiatorAt = 0;
    constexpr size_t kAcceptorAt = 8;
    constexpr size_t kLengthAt = 16;
    std::vector<uint8_t> input(kLengthAt);
    input[kInitiatorAt] = input[kAcceptorAt] = static_cast<uint8_t>(i_channel.m_eAddresses);
    for (unsigned nShift = 0; nShift < 32; nShift += 8) {
        input.push_back(static_cast<uint8_t>(i_channel.m_applicationData.size() >> nShift));
    }
    input.insert(input.end(), i_channel.m_applicationData.begin(), i_channel.m_applicationData.end());
    krb5_data data{};
    data.data = reinterpret_cast<char*>(input.data());
    data.length = static_cast<unsigned>(input.size());
    krb5_checksum checksum{};
    if (const krb5_error_code nCode = krb5_c_make_checksum(i_context, CKSUMTYPE_RSA_MD5, nullptr, 0, &data, &checksum);
        nCode != 0) {
        FailKrb5(i_context, nCode, "hashing the channel bindings (MD5)");
    }
    ChannelHash hash{};
    std::copy_n(checksum.contents, std::min<size_t>(checksum.length, hash.size()), hash.begin());
    krb5_free_checksum_contents(i_context, &checksum);
    return hash;
}

}  // namespace morwen
