// wavoryx-soak: drives one engine for a given time with loads, renders,
// playback and recordings at once, and checks every job's ending, the files
// left on disk and the memory of the process. Exit status 1 on any
// violation, 2 on bad arguments. scripts/soak makes the source audio.
//
//   wavoryx-soak SECONDS --sources DIR --dir DIR [--seed N] [--slow F]
//                [--round SECONDS] [--rss-limit-mb N] [--command WAVORYX] [--verbose]
//
// With --command, the wavoryx command is also run now and then with one of
// its standard descriptors closed (see SoakCommand.cpp).
//
// WAVORYX_DEVICE_PACE (default here 8) speeds the null output and the
// inputs up; WAVORYX_AUDIO_OUT and WAVORYX_AUDIO_IN are set by the driver.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <wavoryx/platform.h>

#include "SoakDriver.h"

namespace {

int usage() {
    std::fprintf(stderr,
                 "usage: wavoryx-soak SECONDS --sources DIR --dir DIR [--seed N] [--slow F]\n"
                 "                    [--round SECONDS] [--rss-limit-mb N] [--command WAVORYX] [--verbose]\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    soak::Options options;
    options.seed = uint64_t(std::chrono::steady_clock::now().time_since_epoch().count()) % 1000000007u;
    bool haveSeconds = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const char* next = i + 1 < argc ? argv[i + 1] : nullptr;
        if (arg == "--verbose" || arg == "-v") {
            options.verbose = true;
        } else if (next == nullptr && arg.compare(0, 2, "--") == 0) {
            return usage();
        } else if (arg == "--sources") {
            options.sources = argv[++i];
        } else if (arg == "--command") {
            options.command = argv[++i];
        } else if (arg == "--dir") {
            options.dir = argv[++i];
        } else if (arg == "--seed") {
            options.seed = std::strtoull(argv[++i], nullptr, 10);
        } else if (arg == "--slow") {
            options.slow = std::atof(argv[++i]);
        } else if (arg == "--round") {
            options.roundSeconds = std::atof(argv[++i]);
        } else if (arg == "--rss-limit-mb") {
            options.rssLimitKb = std::atol(argv[++i]) * 1024;
        } else if (!haveSeconds && arg[0] != '-') {
            options.seconds = std::atof(arg.c_str());
            haveSeconds = true;
        } else {
            return usage();
        }
    }
    if (!haveSeconds || options.sources.empty() || options.dir.empty() || options.seconds <= 0 || options.slow <= 0 ||
        options.roundSeconds <= 0) {
        return usage();
    }
    if (std::getenv("WAVORYX_DEVICE_PACE") == nullptr) setenv("WAVORYX_DEVICE_PACE", "8", 1);
    options.pace = std::atof(std::getenv("WAVORYX_DEVICE_PACE"));
    if (options.pace <= 0) options.pace = 1;
    // The engine's own error lines would drown the report: the soak provokes
    // failures on purpose and checks them through events.
    if (std::getenv("WAVORYX_LOG") == nullptr) wavoryx_set_log_level(WAVORYX_LOG_FATAL);
    std::printf("wavoryx-soak: seed %llu, %g s\n", static_cast<unsigned long long>(options.seed), options.seconds);
    std::fflush(stdout);
    int violations;
    {
        soak::Driver driver(options);
        violations = driver.run();
        driver.printSummary();
    }
    return violations == 0 ? 0 : 1;
}
