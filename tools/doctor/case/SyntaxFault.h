// Where a configuration file is wrong, which libkrb5 does not say.
#pragma once

#include <string>

namespace morwen::doctor {

// "/etc/krb5.conf, line 7: "kdc kdc.example.org": neither [section] nor name = value"; the file may be one that is
// included. Empty when libkrb5's own parser takes the file.
std::string SyntaxFault(const std::string& i_file);

}  // namespace morwen::doctor
