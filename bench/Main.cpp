// The benchmark program. To be run inside a realm: scripts/bench does so, and makes a page of the results.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <utility>

#include "bench/Bench.h"
#include "bench/ExportLogon.h"
#include "bench/Krb5Logon.h"
#include "morwen/morwenplugin.h"

namespace morwen::bench {

namespace {

// One line that is overwritten, or now and then a line where nothing can be.
void ShowProgress(const std::string& i_name) {
    using Clock = std::chrono::steady_clock;
    static const Clock::time_point s_started = Clock::now();
    static Clock::time_point s_shown = s_started;
    static int s_nRuns = 0;
    static const bool s_bTerminal = isatty(STDERR_FILENO) != 0;
    ++s_nRuns;
    const Clock::time_point now = Clock::now();
    if (!s_bTerminal && now - s_shown < std::chrono::seconds(10)) {
        return;
    }
    s_shown = now;
    static_cast<void>(
        std::fprintf(stderr, s_bTerminal ? "\rbench: %4d s, run %4d: %-50.50s" : "bench: %4d s, run %4d: %.50s\n",
                     static_cast<int>(std::chrono::duration_cast<std::chrono::seconds>(now - s_started).count()),
                     s_nRuns, i_name.c_str()));
}

}  // namespace

benchmark::internal::Benchmark* Register(const std::string& i_name, std::function<void(benchmark::State&)> i_run) {
    return benchmark::RegisterBenchmark(i_name.c_str(),
                                        [i_name, run = std::move(i_run)](benchmark::State& io_state) {
                                            if (io_state.thread_index() == 0) {
                                                ShowProgress(i_name);
                                            }
                                            try {
                                                run(io_state);
                                            } catch (const std::exception& exception) {
                                                io_state.SkipWithError(exception.what());
                                            }
                                        })
        ->UseRealTime();
}

}  // namespace morwen::bench

int main(int i_nArguments, char** i_ppszArguments) {
    using namespace morwen::bench;
    benchmark::Initialize(&i_nArguments, i_ppszArguments);
    if (benchmark::ReportUnrecognizedArguments(i_nArguments, i_ppszArguments)) {
        return EXIT_FAILURE;
    }
    if (std::getenv("MORWEN_REALM_DIR") == nullptr) {
        static_cast<void>(std::fputs("bench: scripts/realm must run this program\n", stderr));
        return EXIT_FAILURE;
    }
    try {
        const Package package;
        RegisterMemory();
        RegisterWaits();
        RegisterLives();
        RegisterLogons();
        RegisterIdentities();
        RegisterCalls();
        RegisterCaches();
        benchmark::AddCustomContext("keytab_keys", std::to_string(CountKeys()));
        RegisterHops();
        benchmark::RunSpecifiedBenchmarks();
        return EXIT_SUCCESS;
    } catch (const std::exception& exception) {
        static_cast<void>(std::fprintf(stderr, "bench: %s\n", exception.what()));
        return EXIT_FAILURE;
    }
}
