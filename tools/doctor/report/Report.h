// What the checks find: findings, the catalogue of what can be found, and the report that collects them.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace morwen::doctor {

enum class Status { Ok, Skipped, Warning, Error };

// Texts are UTF-8, for people.
struct Finding {
    std::string m_id;     // of a problem; of what is well or was skipped: the check's name
    std::string m_check;  // which check speaks
    Status m_eStatus = Status::Ok;
    std::string m_lookedAt;
    std::string m_found;
    std::string m_meaning;
    std::string m_remedy;   // commands, for warnings and errors
    std::string m_library;  // the words with which the library itself fails, when it was asked
};

// Identifiers are a contract with scripts: they are not renamed. docs/doctor.md has a row for each.
struct Problem {
    const char* m_pszId;
    const char* m_pszCheck;
    const char* m_pszMeaning;
};

// All of them, in the order in which the checks run.
std::span<const Problem> Problems() noexcept;

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
