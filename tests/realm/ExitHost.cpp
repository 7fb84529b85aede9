// exit_host RUNS [WAY]: so many hosts for each way to end while threads are anywhere in the library; each must end in
// time and with its status.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <random>
#include <thread>

#include "morwen/harrow_log.h"
#include "morwen/host.hpp"

namespace {

using namespace morwen::host;

constexpr int kStatus = 7;

// Not destroyed when the process ends, as the threads go on.
std::atomic<int> s_nLogons, s_nSaid;

void Listen(uint32_t, const char*, int, const char*, void*) {
    ++s_nSaid;
}

void LogOnAndAct() {
    ClientLogin client("morwen/localhost");
    ServerLogin server;
    while (!client.IsDone()) {
        client.Continue(server.Accept(client.NextToken()));
    }
    server.Close();
    const Context context = server.TakeContext();
    const auto key = Wide(context.Key());
    if (SSOImpersonate(key.c_str()) == SSO_OK) {
        SSORevert(key.c_str());
    }
    context.IsAlive();
    ++s_nLogons;
}

void FailAndConfigure() {
    SSOError* pError = nullptr;
    SSORevert(u"nothing");
    SSOGetError(SSO_ERROR, &pError);
    SSOFreeError(pError);
    SSOInitProvider(u"SSPI", Parameters().Set(SSO_KEY_CACHE_CONTEXTS, true).Chain());
}

void StartAndEnd() {
    if (SSOInitPackage() == SSO_OK) {
        SSOTermPackage();
    }
}

// For ever, each on a thread of its own.
void Keep(void (*i_pfnWork)()) {
    std::thread([i_pfnWork] {
        for (;;) {
            try {
                i_pfnWork();
            } catch (const Error&) {
                // The package, or the process, has ended.
            }
        }
    }).detach();
}

const std::map<std::string, void (*)()> kWays = {
    {"exit", [] { std::exit(kStatus); }},
    {"ended",
     [] {
         SSOTermPackage();
         std::exit(kStatus);
     }},
    {"ending",
     [] {
         std::thread([] { SSOTermPackage(); }).detach();
         std::exit(kStatus);
     }},
    {"restarting",
     [] {
         Keep(StartAndEnd);
         SSOTermPackage();
         Keep(StartAndEnd);
         std::exit(kStatus);
     }},
    {"thread",
     [] {
         std::thread([] { std::exit(kStatus); }).detach();
         for (;;) {
             FailAndConfigure();
         }
     }},
    {"static",
     [] {
         SSOTermPackage();
         static const Package s_package;  // ends among the host's static objects
         std::exit(kStatus);
     }},
    {"sink",
     [] {
         const auto end = [](uint32_t, const char*, int, const char*, void*) {
             static std::atomic<bool> s_bEnding;
             if (!s_bEnding.exchange(true)) {  // one thread at a time may end the process
                 std::exit(kStatus);
             }
         };
         HarrowLogSetSink(end, nullptr, HARROW_LOG_TRACE);
         pause();
     }},
};

int RunHost(const std::string& i_way) {
    HarrowLogSetSink(Listen, nullptr, HARROW_LOG_TRACE | HARROW_LOG_ASSERTION);
    SSOInitPackage();
    FailAndConfigure();
    Keep(LogOnAndAct);
    Keep(LogOnAndAct);
    Keep(FailAndConfigure);
    Keep(StartAndEnd);
    while (s_nLogons == 0) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(std::chrono::microseconds(std::random_device{}() % 3000));
    kWays.at(i_way)();
    return 1;
}

// Its status, or that of a shell when a signal ended it; 0 when it had to be ended.
int StatusOfHost(char* i_pszProgram, const std::string& i_way) {
    std::string words[] = {"run", i_way};
    char* const arguments[] = {i_pszProgram, words[0].data(), words[1].data(), nullptr};
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
    if (argc == 3 && std::strcmp(argv[1], "run") == 0) {
        return RunHost(argv[2]);
    }
    const int nRuns = argc > 1 ? std::atoi(argv[1]) : 0;
    bool bGood = nRuns > 0;
    for (const auto& [way, pfnEnd] : kWays) {
        if (argc > 2 && way != argv[2]) {
            continue;
        }
        std::map<int, int> ends;
        for (int i = 0; i < nRuns; ++i) {
            ++ends[StatusOfHost(argv[0], way)];
        }
        std::cout << way << ':';
        for (const auto& [nStatus, nCount] : ends) {
            std::cout << ' ' << nCount << " with status " << nStatus;
        }
        std::cout << std::endl;
        bGood = bGood && ends[kStatus] == nRuns;
    }
    return bGood ? 0 : 1;
}
