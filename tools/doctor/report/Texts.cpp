#include "tools/doctor/report/Texts.h"

#include <pwd.h>
#include <unistd.h>

namespace morwen::doctor {

std::string ThisAccount() {
    const passwd* const pRecord = getpwuid(geteuid());
    return (pRecord != nullptr ? std::string(pRecord->pw_name) : "an account without a name") + " (uid " +
           std::to_string(geteuid()) + ")";
}

void Enumerate(std::string& io_list, std::string_view i_item, std::string_view i_separator) {
    io_list.append(io_list.empty() ? std::string_view() : i_separator).append(i_item);
}

std::string Quoted(const std::string& i_text) {
    constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_@%+=:,./-";
    if (!i_text.empty() && i_text.find_first_not_of(kPlain) == std::string::npos) {
        return i_text;
    }
    std::string quoted = "'";
    for (const char c : i_text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

}  // namespace morwen::doctor
