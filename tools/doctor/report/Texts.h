// Pieces of the texts for people.
#pragma once

#include <string>
#include <string_view>

namespace morwen::doctor {

// "user (uid 0)" of this process: whose rights the findings are about.
std::string ThisAccount();

// Adds an item to a list for people.
void Enumerate(std::string& io_list, std::string_view i_item, std::string_view i_separator = ", ");

// As a shell takes it.
std::string Quoted(const std::string& i_text);

}  // namespace morwen::doctor
