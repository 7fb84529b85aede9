// What a check has found, and the catalogue of what can be found.
#pragma once

#include <span>
#include <string>

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

// Identifiers are a contract with scripts: they are not renamed. docs/doctor.md has a section for each.
struct Problem {
    const char* m_pszId;
    const char* m_pszCheck;
    const char* m_pszMeaning;
};

// All of them, in the order in which the checks run.
std::span<const Problem> Problems() noexcept;

}  // namespace morwen::doctor
