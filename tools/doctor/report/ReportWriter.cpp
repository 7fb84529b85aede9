// A report as text for people and as JSON for machines.
#include "tools/doctor/report/ReportWriter.h"

#include <array>
#include <nlohmann/json.hpp>

#include "harrow/text/HideControls.h"

namespace morwen::doctor {

namespace {

struct Look {
    const char* m_pszWord;  // in JSON
    const char* m_pszLabel;
    const char* m_pszColour;
};

const Look& LookOf(Status i_eStatus) {
    static constexpr std::array<Look, 4> kLooks{{{"ok", "ok     ", "\033[32m"},
                                                 {"skipped", "skipped", "\033[2m"},
                                                 {"warning", "WARNING", "\033[33m"},
                                                 {"error", "ERROR  ", "\033[1;31m"}}};
    return kLooks.at(static_cast<size_t>(i_eStatus));
}

// File names and peers choose parts of the texts; none of them is to steer the terminal.
std::string Harmless(std::string i_text) {
    Harrowlib201::HideControls(i_text);
    return i_text;
}

void WriteLine(std::ostream& o_stream, const char* i_pszLabel, const std::string& i_text) {
    if (!i_text.empty()) {
        o_stream << "          " << i_pszLabel << Harmless(i_text) << '\n';
    }
}

}  // namespace

void WriteText(const Report& i_report, bool i_bColour, std::ostream& o_stream) {
    for (const Finding& finding : i_report.Findings()) {
        const Look& look = LookOf(finding.m_eStatus);
        o_stream << (i_bColour ? look.m_pszColour : "") << look.m_pszLabel << (i_bColour ? "\033[0m" : "") << "   "
                 << finding.m_id << ": " << Harmless(finding.m_lookedAt) << ": " << Harmless(finding.m_found) << '\n';
        WriteLine(o_stream, "It means: ", finding.m_meaning);
        WriteLine(o_stream, "The library says: ", finding.m_library);
        WriteLine(o_stream, "Remedy: ", finding.m_remedy);
    }
    for (const auto& [name, values] : i_report.Told()) {
        o_stream << name << ':';
        for (const std::string& value : values) {
            o_stream << ' ' << Harmless(value);
        }
        o_stream << '\n';
    }
    const size_t nErrors = i_report.Count(Status::Error);
    const size_t nWarnings = i_report.Count(Status::Warning);
    const auto counted = [](size_t i_nCount, const char* i_pszWhat) {
        return std::to_string(i_nCount) + " " + i_pszWhat + (i_nCount == 1 ? "" : "s");
    };
    o_stream << (nErrors == 0 ? "No error" : counted(nErrors, "error"));
    o_stream << (nWarnings == 0 ? "" : (nErrors == 0 ? ", but " : " and ") + counted(nWarnings, "warning")) << ".\n";
}

void WriteJson(const Report& i_report, const std::string& i_command, const std::vector<std::string>& i_trace,
               std::ostream& o_stream) {
    using nlohmann::ordered_json;
    ordered_json report{{"command", i_command}, {"findings", ordered_json::array()}};
    for (const Finding& finding : i_report.Findings()) {
        ordered_json entry{{"id", finding.m_id},
                           {"check", finding.m_check},
                           {"status", LookOf(finding.m_eStatus).m_pszWord},
                           {"looked_at", finding.m_lookedAt},
                           {"found", finding.m_found}};
        for (const auto& [pszName, pText] : {std::pair("meaning", &finding.m_meaning),
                                             {"library", &finding.m_library},
                                             {"remedy", &finding.m_remedy}}) {
            if (!pText->empty()) {
                entry[pszName] = *pText;
            }
        }
        report["findings"].push_back(std::move(entry));
    }
    for (const auto& [name, values] : i_report.Told()) {
        report[name] = values;
    }
    if (!i_trace.empty()) {
        report["trace"] = i_trace;
    }
    report["errors"] = i_report.Count(Status::Error);
    report["warnings"] = i_report.Count(Status::Warning);
    // A name that is not UTF-8 must not cost the whole report; what is not ASCII is escaped, as it may steer a
    // terminal.
    o_stream << report.dump(2, ' ', true, ordered_json::error_handler_t::replace) << '\n';
}

}  // namespace morwen::doctor
