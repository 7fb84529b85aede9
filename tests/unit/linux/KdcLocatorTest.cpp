// Are the name service's answers read as they are meant, and odd ones without harm?
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "platform/linux/kdc/KdcLocator.h"

namespace morwen {
namespace {

void Append(std::vector<uint8_t>& io_bytes, std::initializer_list<int> i_more) {
    for (const int nByte : i_more) {
        io_bytes.push_back(static_cast<uint8_t>(nByte));
    }
}

// An answer with SRV records for the root name: {priority, weight, port, host of one letter, 0 for no host}.
std::vector<uint8_t> Answer(const std::vector<std::array<int, 4>>& i_records) {
    std::vector<uint8_t> answer;
    Append(answer, {0, 1, 0x81, 0x80, 0, 0, 0, static_cast<int>(i_records.size()), 0, 0, 0, 0});
    for (const auto& [nPriority, nWeight, nPort, nHost] : i_records) {
        Append(answer, {0, 0, 33, 0, 1, 0, 0, 0, 60, 0, nHost != 0 ? 9 : 7});
        Append(answer, {0, nPriority, 0, nWeight, 0, nPort});
        if (nHost != 0) {
            Append(answer, {1, nHost});
        }
        Append(answer, {0});
    }
    return answer;
}

TEST(KdcLocator, OrdersAndFilters) {
    const std::vector<uint8_t> answer =
        Answer({{20, 0, 88, 'c'}, {10, 1, 88, 'b'}, {10, 9, 89, 'a'}, {0, 0, 88, 0}, {0, 0, 0, 'x'}, {0, 0, 88, '/'}});
    EXPECT_EQ(ReadKdcs(answer), (std::vector<std::string>{"a:89", "b:88", "c:88"}));
    for (size_t nLength = 0; nLength < answer.size(); ++nLength) {
        const std::vector<uint8_t> cut(answer.begin(), answer.begin() + static_cast<std::ptrdiff_t>(nLength));
        EXPECT_LT(ReadKdcs(cut).size(), 3U + (nLength > 12 + 3 * 20)) << nLength;
    }
}

// In a process that has not asked before: the resolver opens its configuration.
TEST(KdcLocator, LeavesTheHostsDescriptorsAlone) {
    const auto findWithout = [] {
        const rlimit none = {3, 3};
        std::vector<std::string> kdcs;
        const bool bTold =
            setrlimit(RLIMIT_NOFILE, &none) == 0 && FindKdcs("kerberos", "HERE.TEST", kdcs) == KdcSearch::Silent;
        _exit(bTold && fcntl(STDIN_FILENO, F_GETFD) >= 0 ? 0 : 1);
    };
    EXPECT_EXIT(findWithout(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace morwen
