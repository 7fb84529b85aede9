#include "platform/linux/wire/GssChecksum.h"

#include <algorithm>

namespace morwen {

namespace {

// Offsets in the checksum; numbers have their lowest byte first.
constexpr size_t kChannelLengthAt = 0;
constexpr size_t kChannelAt = 4;
constexpr size_t kChannelLength = 16;
constexpr size_t kFlagsAt = kChannelAt + kChannelLength;
constexpr size_t kOptionAt = kFlagsAt + 4;
constexpr size_t kDelegationLengthAt = kOptionAt + 2;
constexpr size_t kDelegationAt = kDelegationLengthAt + 2;
constexpr uint32_t kDelegationOption = 1;

uint32_t ReadNumber(std::span<const uint8_t> i_bytes, size_t i_nAt, size_t i_nLength) noexcept {
    uint32_t nValue = 0;
    for (size_t i = i_nLength; i-- > 0;) {
        nValue = (nValue << 8) | i_bytes[i_nAt + i];
    }
    return nValue;
}

void AppendNumber(uint32_t i_nValue, size_t i_nLength, std::vector<uint8_t>& io_bytes) {
    for (size_t i = 0; i < i_nLength; ++i) {
        io_bytes.push_back(static_cast<uint8_t>(i_nValue >> (8 * i)));
    }
}

}  // namespace

std::optional<uint32_t> ReadGssFlags(std::span<const uint8_t> i_bytes) noexcept {
    if (i_bytes.size() < kOptionAt || ReadNumber(i_bytes, kChannelLengthAt, 4) != kChannelLength) {
        return std::nullopt;
    }
    return ReadNumber(i_bytes, kFlagsAt, 4);
}

std::optional<GssChecksum> ReadGssChecksum(std::span<const uint8_t> i_bytes) noexcept {
    const auto nFlags = ReadGssFlags(i_bytes);
    if (!nFlags) {
        return std::nullopt;
    }
    GssChecksum checksum{*nFlags};
    std::copy_n(i_bytes.begin() + kChannelAt, kChannelLength, checksum.m_channel.begin());
    if ((checksum.m_nFlags & kGssDelegate) == 0) {
        return checksum;
    }
    if (i_bytes.size() < kDelegationAt || ReadNumber(i_bytes, kOptionAt, 2) != kDelegationOption) {
        return std::nullopt;
    }
    const size_t nLength = ReadNumber(i_bytes, kDelegationLengthAt, 2);
    if (nLength > i_bytes.size() - kDelegationAt) {
        return std::nullopt;
    }
    checksum.m_delegation = i_bytes.subspan(kDelegationAt, nLength);
    return checksum;
}

std::vector<uint8_t> MakeGssChecksum(const GssChecksum& i_checksum) {
    std::vector<uint8_t> bytes;
    bytes.reserve(kDelegationAt + i_checksum.m_delegation.size());
    AppendNumber(kChannelLength, 4, bytes);
    bytes.insert(bytes.end(), i_checksum.m_channel.begin(), i_checksum.m_channel.end());
    AppendNumber(i_checksum.m_nFlags, 4, bytes);
    if ((i_checksum.m_nFlags & kGssDelegate) != 0) {
        AppendNumber(kDelegationOption, 2, bytes);
        AppendNumber(static_cast<uint32_t>(i_checksum.m_delegation.size()), 2, bytes);
        bytes.insert(bytes.end(), i_checksum.m_delegation.begin(), i_checksum.m_delegation.end());
    }
    return bytes;
}

}  // namespace morwen
