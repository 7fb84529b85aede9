// The two halves of a real logon, through the library's exports.
#pragma once

#include <chrono>
#include <string>

#include "tools/doctor/report/Report.h"

namespace morwen::doctor {

struct LogonOptions {
    std::string m_spn;   // login
    std::string m_peer;  // login: where to connect to; accept: where to listen. Empty: standard input and output
    bool m_bImpersonate = false;
    std::chrono::seconds m_wait{300};  // for all of it
};

// Both add to the report what came of it, and throw std::bad_alloc alone.
void LogIn(const LogonOptions& i_options, Report& io_report);
void AcceptLogon(const LogonOptions& i_options, Report& io_report);

}  // namespace morwen::doctor
