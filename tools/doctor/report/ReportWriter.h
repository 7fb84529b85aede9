// A report as text for people and as JSON for machines.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tools/doctor/report/Report.h"

namespace morwen::doctor {

void WriteText(const Report& i_report, bool i_bColour, std::ostream& o_stream);

// One object. The trace is left out when it is empty.
void WriteJson(const Report& i_report, const std::string& i_command, const std::vector<std::string>& i_trace,
               std::ostream& o_stream);

}  // namespace morwen::doctor
