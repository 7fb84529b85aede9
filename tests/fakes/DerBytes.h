// Bytes in DER, as a client or a KDC would write them.
#pragma once

#include <cstdint>
#include <vector>

namespace morwen {

using Bytes = std::vector<uint8_t>;

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

// Lists within lists, as many as there is room for.
inline Bytes Nested(size_t i_nBytes) {
    Bytes data = Within({}, 99);
    while (data.size() < i_nBytes) {
        data = Within(data);
    }
    return data;
}

}  // namespace morwen
