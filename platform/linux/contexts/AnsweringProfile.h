// A profile of libprofile whose answers an object gives.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "platform/linux/contexts/SystemProfile.h"

namespace morwen {

// Values come from the derived object; what libkrb5 walks through comes from the system's profile. Profile and object
// live as long as the last copy of the profile; all copies belong to one context, and so to one thread at a time.
class AnsweringProfile {
public:
    AnsweringProfile(const AnsweringProfile&) = delete;
    AnsweringProfile& operator=(const AnsweringProfile&) = delete;

    // Lets go of the maker's hold on the object.
    void Release() noexcept;

protected:
    AnsweringProfile() = default;
    virtual ~AnsweringProfile() = default;

    // On success o_profile, which goes back through profile_release, holds the object too. libprofile's code.
    long Publish(profile_t& o_profile) noexcept;

    // The values, which stay until the next question, or libprofile's code. Throws std::bad_alloc.
    virtual long Answer(const char* const* i_names, const std::vector<std::string>*& o_pValues) = 0;

    SystemProfile m_system;

private:
    std::atomic<int> m_nUsers{1};
};

}  // namespace morwen
