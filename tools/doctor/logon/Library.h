// The plug-in as this program uses it.
#pragma once

#include <string>

#include "morwen/host.hpp"
#include "tools/doctor/logon/TraceLog.h"

namespace morwen::doctor {

// Started, with its Kerberos provider ready. Throws host::Error.
class Library {
public:
    explicit Library(bool i_bKeepContexts);

private:
    host::Package m_package;
};

// The security package's words first, then those of the error record.
std::string WordsOf(const host::Error& i_error, TraceLog& io_trace);

}  // namespace morwen::doctor
