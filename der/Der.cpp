#include "der/Der.h"

namespace morwen {

std::optional<DerElement> TakeDer(std::span<const uint8_t>& io_bytes) noexcept {
    constexpr uint8_t kTagOfMoreBytes = 0x1F;
    constexpr size_t kMostLengthBytes = 4;
    if (io_bytes.size() < 2 || (io_bytes[0] & kTagOfMoreBytes) == kTagOfMoreBytes) {
        return std::nullopt;
    }
    size_t nHeader = 2;
    uint64_t nLength = io_bytes[1];
    if (nLength >= 0x80) {
        const size_t nLengthBytes = nLength & 0x7F;
        if (nLengthBytes == 0 || nLengthBytes > kMostLengthBytes || io_bytes.size() < nHeader + nLengthBytes) {
            return std::nullopt;
        }
        nLength = 0;
        for (size_t i = 0; i < nLengthBytes; ++i) {
            nLength = (nLength << 8) | io_bytes[nHeader + i];
        }
        const bool bShortest = nLength >= 0x80 && io_bytes[nHeader] != 0;
        if (!bShortest) {
            return std::nullopt;
        }
        nHeader += nLengthBytes;
    }
    if (nLength > io_bytes.size() - nHeader) {
        return std::nullopt;
    }
    const DerElement element{io_bytes[0], io_bytes.subspan(nHeader, nLength)};
    io_bytes = io_bytes.subspan(nHeader + nLength);
    return element;
}

std::optional<std::span<const uint8_t>> OnlyDer(std::span<const uint8_t> i_bytes, uint8_t i_nTag) noexcept {
    const auto element = TakeDer(i_bytes);
    if (!element || element->m_nTag != i_nTag || !i_bytes.empty()) {
        return std::nullopt;
    }
    return element->m_content;
}

std::optional<std::span<const uint8_t>> TakeDerField(std::span<const uint8_t>& io_bytes, uint8_t i_nField,
                                                     uint8_t i_nTag) noexcept {
    auto rest = io_bytes;
    const auto field = TakeDer(rest);
    if (!field || field->m_nTag != kDerField + i_nField) {
        return std::nullopt;
    }
    io_bytes = rest;
    return OnlyDer(field->m_content, i_nTag);
}

void AppendDerHeader(uint8_t i_nTag, size_t i_nLength, std::vector<uint8_t>& io_bytes) {
    io_bytes.push_back(i_nTag);
    if (i_nLength < 0x80) {
        io_bytes.push_back(static_cast<uint8_t>(i_nLength));
        return;
    }
    uint8_t nBytes = 1;
    while (nBytes < sizeof(size_t) && (i_nLength >> (8 * nBytes)) != 0) {
        ++nBytes;
    }
    io_bytes.push_back(static_cast<uint8_t>(0x80 | nBytes));
    for (uint8_t i = nBytes; i-- > 0;) {
        io_bytes.push_back(static_cast<uint8_t>(i_nLength >> (8 * i)));
    }
}

std::vector<uint8_t> MakeDer(uint8_t i_nTag, std::span<const uint8_t> i_content) {
    constexpr size_t kMostHeader = 2 + sizeof(size_t);
    std::vector<uint8_t> element;
    element.reserve(kMostHeader + i_content.size());
    AppendDerHeader(i_nTag, i_content.size(), element);
    element.insert(element.end(), i_content.begin(), i_content.end());
    return element;
}

}  // namespace morwen
