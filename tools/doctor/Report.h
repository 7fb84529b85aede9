// Collects what the checks find.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/doctor/Finding.h"

namespace morwen::doctor {

class Report {
public:
    void Ok(std::string_view i_check, std::string i_lookedAt, std::string i_found);
    void Skip(std::string_view i_check, std::string i_lookedAt, std::string i_why);
    // Both throw std::logic_error for an identifier that the catalogue does not have.
    void Warn(std::string_view i_id, std::string i_lookedAt, std::string i_found, std::string i_remedy);
    void Fail(std::string_view i_id, std::string i_lookedAt, std::string i_found, std::string i_remedy);

    // What a logon told, beside the findings: "user", "groups".
    void Tell(std::string i_name, std::vector<std::string> i_values);
    // Goes with the first error, whose consequence it is.
    void SetLibraryWords(std::string i_words);

    bool Has(std::string_view i_id) const noexcept;
    size_t Count(Status i_eStatus) const noexcept;
    const std::vector<Finding>& Findings() const noexcept { return m_findings; }
    const std::vector<std::pair<std::string, std::vector<std::string>>>& Told() const noexcept { return m_told; }

private:
    void Add(Status i_eStatus, std::string_view i_id, std::string i_lookedAt, std::string i_found,
             std::string i_remedy);

    std::vector<Finding> m_findings;
    std::vector<std::pair<std::string, std::vector<std::string>>> m_told;
};

}  // namespace morwen::doctor
