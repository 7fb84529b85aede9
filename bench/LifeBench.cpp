// What a user of a client program waits for: the program's whole life around its first token.
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

#include "bench/Bench.h"
#include "bench/Krb5Logon.h"

namespace morwen::bench {

namespace {

// The program beside this one. The libraries are found as those of the system are, in no folder of a build:
// scripts/bench has put them into one of their own, stripped and without a search path.
void RegisterLife(const std::string& i_kind, const std::vector<std::string>& i_libraries) {
    Register("life/" + i_kind, [i_kind, i_libraries](benchmark::State& io_state) {
        const Krb5Logon ticketAtHand{Target()};
        const std::string program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "first_token";
        std::vector<std::string> words = {program, i_kind, "morwen", "localhost"};
        words.insert(words.end(), i_libraries.begin(), i_libraries.end());
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        rusage used{};
        for ([[maybe_unused]] auto _ : io_state) {
            pid_t nProcess = 0;
            int nStatus = 0;
            Require(posix_spawn(&nProcess, program.c_str(), nullptr, nullptr, arguments.data(), environ) == 0 &&
                        wait4(nProcess, &nStatus, 0, &used) == nProcess && nStatus == 0,
                    "the program has failed");
        }
        io_state.counters["pages"] = static_cast<double>(used.ru_minflt);
    });
}

}  // namespace

void RegisterLives() {
    const char* const pszFolder = std::getenv("MORWEN_BENCH_LIBRARIES");
    if (pszFolder != nullptr) {
        const std::string folder = pszFolder;
        RegisterLife("exports", {folder + "/libharrowlog.so.1", folder + "/libmorwenplugin.so.1"});
        RegisterLife("gss", {"libgssapi_krb5.so.2"});
    }
}

}  // namespace morwen::bench
