// exit_test RUNS [WAY] [MODULE]: so many hosts for each way to end while threads are anywhere in the library, which is
// linked to this program or comes with the module; each must end in time and with its status.
#include <dlfcn.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>
#include <thread>

namespace {

constexpr int kStatus = 7;
constexpr const char* kWays[] = {"exit", "ended", "ending", "restarting", "static", "thread", "sink"};

int RunHost(const char* i_pszWay, const char* i_pszModule) {
    void* const pvModule = dlopen(i_pszModule, RTLD_NOW);
    const auto pfnRun =
        reinterpret_cast<void (*)(const char*)>(pvModule != nullptr ? dlsym(pvModule, "RunHost") : nullptr);
    if (pfnRun == nullptr) {
        std::cerr << dlerror() << '\n';
        return 1;
    }
    pfnRun(i_pszWay);
    return 1;
}

// Its status, or that of a shell when a signal ended it; 0 when it had to be ended.
int StatusOfHost(std::string i_way, std::string i_module) {
    std::string words[] = {"exit_test", "run"};
    char* const arguments[] = {words[0].data(), words[1].data(), i_way.data(),
                               i_module.empty() ? nullptr : i_module.data(), nullptr};
    pid_t nHost = 0;
    if (posix_spawn(&nHost, "/proc/self/exe", nullptr, nullptr, arguments, environ) != 0) {
        return 1;
    }
    int nStatus = 0;
    for (int i = 0; waitpid(nHost, &nStatus, WNOHANG) == 0; ++i) {
        if (i == 30000) {
            kill(nHost, SIGKILL);
            waitpid(nHost, &nStatus, 0);
            return 0;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : 128 + WTERMSIG(nStatus);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string first = argc > 1 ? argv[1] : "", only = argc > 2 ? argv[2] : "", module = argc > 3 ? argv[3] : "";
    if (first == "run") {
        return RunHost(only.c_str(), module.empty() ? nullptr : module.c_str());
    }
    const long nRuns = std::strtol(first.c_str(), nullptr, 10);
    bool bGood = nRuns > 0;
    for (const char* const pszWay : kWays) {
        if (!only.empty() && only != "all" && only != pszWay) {
            continue;
        }
        std::map<int, long> ends;
        for (long i = 0; i < nRuns; ++i) {
            ++ends[StatusOfHost(pszWay, module)];
        }
        std::cout << pszWay << ':';
        for (const auto& [nStatus, nCount] : ends) {
            std::cout << ' ' << nCount << " with status " << nStatus;
        }
        std::cout << std::endl;
        bGood = bGood && ends[kStatus] == nRuns;
    }
    return bGood ? 0 : 1;
}
