// Where a configuration file is wrong, which libkrb5 does not say.
#include "tools/doctor/case/SyntaxFault.h"

#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <system_error>

#include "platform/linux/contexts/SystemProfile.h"

namespace morwen::doctor {

namespace {

constexpr int kMostIncludes = 8;  // one inside the other
constexpr size_t kMostLines = 5000;

// What libkrb5's parser makes of the beginning of a file: an open brace at the end is no fault for it, so the first
// beginning that it refuses ends with the line that is wrong.
long Parsed(const std::string& i_beginning) {
    const int nFile = memfd_create("beginning", MFD_CLOEXEC);
    if (nFile < 0) {
        return 0;
    }
    long nCode = 0;
    if (write(nFile, i_beginning.data(), i_beginning.size()) == static_cast<ssize_t>(i_beginning.size())) {
        const std::string path = "/proc/self/fd/" + std::to_string(nFile);
        const_profile_filespec_t aFiles[] = {path.c_str(), nullptr};
        profile_t profile = nullptr;
        nCode = profile_init_flags(aFiles, PROFILE_INIT_ALLOW_MODULE, &profile);
        if (nCode == 0) {
            profile_release(profile);
        }
    }
    close(nFile);
    return nCode;
}

const char* WordsFor(long i_nCode) {
    switch (i_nCode) {
        case PROF_SECTION_NOTOP:
            return "a [section] inside braces: a } is missing above";
        case PROF_SECTION_SYNTAX:
            return "a section that does not end with ]";
        case PROF_EXTRA_CBRACE:
            return "a } that nothing opens";
        case PROF_MISSING_OBRACE:
            return "a { was expected here";
        case PROF_FAIL_INCLUDE_FILE:
        case PROF_FAIL_INCLUDE_DIR:
            return "what it includes cannot be read";
        default:
            return "neither [section] nor name = value";
    }
}

std::string Trimmed(const std::string& i_text) {
    const size_t nBegin = i_text.find_first_not_of(" \t\r");
    return nBegin == std::string::npos ? "" : i_text.substr(nBegin, i_text.find_last_not_of(" \t\r") + 1 - nBegin);
}

// Which files of a folder libkrb5 reads: copies that editors and packages leave beside them may be as faulty as they
// like.
bool IsIncluded(const std::string& i_name) {
    return (i_name.ends_with(".conf") && !i_name.starts_with('.')) ||
           i_name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_") ==
               std::string::npos;
}

std::string FaultIn(const std::string& i_file, int i_nDepth);

// The fault in what a line includes; empty when there is none to be found.
std::string FaultBehind(const std::string& i_line, int i_nDepth) {
    const bool bFolder = i_line.starts_with("includedir");
    if (!i_line.starts_with("include") || i_nDepth >= kMostIncludes) {
        return {};
    }
    const std::string path = Trimmed(i_line.substr(bFolder ? 10 : 7));
    if (!bFolder) {
        return FaultIn(path, i_nDepth + 1);
    }
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(path, ignored)) {
        if (std::string fault = IsIncluded(entry.path().filename()) ? FaultIn(entry.path(), i_nDepth + 1) : "";
            !fault.empty()) {
            return fault;
        }
    }
    return {};
}

std::string FaultIn(const std::string& i_file, int i_nDepth) {
    std::ifstream file(i_file);
    std::string beginning;
    size_t nLine = 0;
    for (std::string line; nLine < kMostLines && std::getline(file, line);) {
        ++nLine;
        beginning.append(line).push_back('\n');
        if (const long nCode = Parsed(beginning); nCode != 0) {
            line = Trimmed(line);
            std::string fault = FaultBehind(line, i_nDepth);
            if (fault.empty()) {
                fault.append(i_file).append(", line ").append(std::to_string(nLine));
                fault.append(": \"").append(line).append("\": ").append(WordsFor(nCode));
            }
            return fault;
        }
    }
    return {};
}

}  // namespace

std::string SyntaxFault(const std::string& i_file) {
    return FaultIn(i_file, 0);
}

}  // namespace morwen::doctor
