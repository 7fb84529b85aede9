// Collects what the checks find.
#include "tools/doctor/report/Report.h"

#include <algorithm>
#include <stdexcept>

namespace morwen::doctor {

void Report::Ok(std::string_view i_check, std::string i_lookedAt, std::string i_found) {
    m_findings.push_back({std::string(i_check),
                          std::string(i_check),
                          Status::Ok,
                          std::move(i_lookedAt),
                          std::move(i_found),
                          {},
                          {},
                          {}});
}

void Report::Skip(std::string_view i_check, std::string i_lookedAt, std::string i_why) {
    Ok(i_check, std::move(i_lookedAt), std::move(i_why));
    m_findings.back().m_eStatus = Status::Skipped;
}

void Report::Warn(std::string_view i_id, std::string i_lookedAt, std::string i_found, std::string i_remedy) {
    Add(Status::Warning, i_id, std::move(i_lookedAt), std::move(i_found), std::move(i_remedy));
}

void Report::Fail(std::string_view i_id, std::string i_lookedAt, std::string i_found, std::string i_remedy) {
    Add(Status::Error, i_id, std::move(i_lookedAt), std::move(i_found), std::move(i_remedy));
}

void Report::Add(Status i_eStatus, std::string_view i_id, std::string i_lookedAt, std::string i_found,
                 std::string i_remedy) {
    const auto problems = Problems();
    const auto it =
        std::find_if(problems.begin(), problems.end(), [i_id](const Problem& i_p) { return i_id == i_p.m_pszId; });
    if (it == problems.end()) {
        throw std::logic_error("no such finding: " + std::string(i_id));
    }
    m_findings.push_back({it->m_pszId,
                          it->m_pszCheck,
                          i_eStatus,
                          std::move(i_lookedAt),
                          std::move(i_found),
                          it->m_pszMeaning,
                          std::move(i_remedy),
                          {}});
}

void Report::Tell(std::string i_name, std::vector<std::string> i_values) {
    m_told.emplace_back(std::move(i_name), std::move(i_values));
}

void Report::SetLibraryWords(std::string i_words) {
    const auto it = std::find_if(m_findings.begin(), m_findings.end(),
                                 [](const Finding& i_finding) { return i_finding.m_eStatus == Status::Error; });
    if (it != m_findings.end()) {
        it->m_library = std::move(i_words);
    }
}

bool Report::Has(std::string_view i_id) const noexcept {
    return std::any_of(m_findings.begin(), m_findings.end(),
                       [i_id](const Finding& i_finding) { return i_finding.m_id == i_id; });
}

size_t Report::Count(Status i_eStatus) const noexcept {
    return static_cast<size_t>(
        std::count_if(m_findings.begin(), m_findings.end(),
                      [i_eStatus](const Finding& i_finding) { return i_finding.m_eStatus == i_eStatus; }));
}

}  // namespace morwen::doctor
