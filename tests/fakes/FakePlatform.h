// A platform that does what a test tells it, and knows what was not given back.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Platform.h"

namespace morwen {

// One answer in place of what a call would do by itself.
struct FakeAnswer {
    enum Handle { kByStatus, kNever, kAlways };  // whether the call hands out what it makes

    SECURITY_STATUS m_nStatus = SEC_E_OK;      // of a call that returns BOOL: its last error, 0 for success
    std::optional<std::string> m_output = "";  // the output token; nothing: buffer and length stay as they were
    Handle m_eHandle = kByStatus;              // with a success only
    int64_t m_nStart = 0;                      // times in 100 ns since 1601
    int64_t m_nExpiry = INT64_C(132223104000000000);
};

// Every handle has a new value, so that an old one is never taken for a new one. A call that is given a handle that is
// not alive fails, and is a fault of the test. Calls are logged as text with all that the system would see. Without
// scripted answers a client's context takes two steps and a server's one, and every other call succeeds. May be used by
// many threads at once.
class FakePlatform {
public:
    FakePlatform();
    ~FakePlatform();
    FakePlatform(const FakePlatform&) = delete;
    FakePlatform& operator=(const FakePlatform&) = delete;

    PlatformCalls Calls();

    // The next call of this name gives this answer; answers queue up. One that is never used is a fault.
    void Script(const std::string& i_call, const FakeAnswer& i_answer);
    // What the calls of this name were given, in order.
    std::vector<std::string> Log(const std::string& i_call) const;
    bool IsImpersonating() const;  // the calling thread
    // Everything that is wrong: handles alive, threads impersonating, misuse of handles, answers not used. Empty is
    // good.
    std::string Faults() const;

    // A security identifier as it lies in memory; the authority has six bytes.
    static std::string MakeSid(const std::string& i_authority, const std::vector<DWORD>& i_subAuthorities);

    uint32_t m_nMaxToken = 64;
    std::string m_userSid = MakeSid({0, 0, 0, 0, 0, 5}, {18});
    std::vector<std::string> m_groupSids;
    std::u16string m_systemText = u"The fake failed. \r\n";  // what every error means; empty: no text

private:
    class Calling;
    std::unique_ptr<Calling> m_pCalling;
};

}  // namespace morwen
