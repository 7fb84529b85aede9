// Bytes in DER, as a client or a KDC would write them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace morwen {

using Bytes = std::vector<uint8_t>;

// What SPNEGO calls the mechanisms.
inline const Bytes kKerberosObject = {0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x12, 0x01, 0x02, 0x02};
inline const Bytes kNtlmObject = {0x06, 0x0A, 0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37, 0x02, 0x02, 0x0A};

inline Bytes operator+(Bytes i_left, const Bytes& i_right) {
    i_left.insert(i_left.end(), i_right.begin(), i_right.end());
    return i_left;
}

inline Bytes Der(uint8_t i_nTag, const Bytes& i_content) {
    Bytes head = {i_nTag, static_cast<uint8_t>(i_content.size())};
    if (i_content.size() >= 0x80) {
        head[1] = 0x80;
        for (int nShift = 24; nShift >= 0; nShift -= 8) {
            if (i_content.size() >> nShift != 0) {
                ++head[1];
                head.push_back(static_cast<uint8_t>(i_content.size() >> nShift));
            }
        }
    }
    return head + i_content;
}

// A list of one element of authorization data, which of type 1 is itself a list.
inline Bytes Within(const Bytes& i_content, uint8_t i_nType = 1) {
    const Bytes type = {2, 2, 0, i_nType};
    return Der(0x30, Der(0x30, Der(0xA0, i_nType < 0x80 ? Bytes{2, 1, i_nType} : type) + Der(0xA1, Der(4, i_content))));
}

// The list in as many of those as given, or as there is room for. From the inside out: each head depends on what it
// holds.
inline Bytes Nested(const Bytes& i_list, std::size_t i_nTimes, std::size_t i_nMostBytes) {
    Bytes heads;  // backwards
    std::size_t nBytes = i_list.size();
    const auto put = [&](uint8_t i_nTag) {
        std::size_t nLength = nBytes;
        const std::size_t nBefore = heads.size();
        for (; nLength > 0x7F || (nLength > 0 && heads.size() > nBefore); nLength >>= 8) {
            heads.push_back(static_cast<uint8_t>(nLength));
        }
        const std::size_t nMore = heads.size() - nBefore;
        heads.push_back(static_cast<uint8_t>(nMore > 0 ? 0x80 + nMore : nLength));
        heads.push_back(i_nTag);
        nBytes += nMore + 2;
    };
    for (; i_nTimes > 0 && nBytes < i_nMostBytes; --i_nTimes) {
        put(0x04);
        put(0xA1);
        heads.insert(heads.end(), {1, 1, 2, 3, 0xA0});
        nBytes += 5;
        put(0x30);
        put(0x30);
    }
    return Bytes(heads.rbegin(), heads.rend()) + i_list;
}

}  // namespace morwen
