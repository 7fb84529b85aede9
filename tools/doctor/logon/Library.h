// The plug-in as this program uses it.
#pragma once

#include <string>

#include "morwen/host.hpp"

namespace morwen::doctor {

// Started, with its Kerberos provider ready. Throws host::Error.
class Library {
public:
    explicit Library(bool i_bKeepContexts);

private:
    host::Package m_package;
};

// The reason, with the numbers of code and message.
std::string WordsOf(const host::Error& i_error);

}  // namespace morwen::doctor
