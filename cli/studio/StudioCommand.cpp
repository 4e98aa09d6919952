// wavoryx studio [PATH...] [--port N] [--out DIR] [--no-browser]: the editor
// in the browser, served from 127.0.0.1 until Ctrl-C.
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "Interrupt.h"
#include "OptionChecks.h"
#include "Session.h"
#include "studio/Studio.h"

extern char** environ;

namespace wvcli {
namespace {

struct StudioOptions {
    std::vector<std::string> paths;
    int port = 0;
    std::string out = ".";
    bool noBrowser = false;
};

std::string executableFolder() {
    char buf[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0) return ".";
    std::string path(buf, size_t(n));
    return path.substr(0, path.find_last_of('/'));
}

// The page's files: WAVORYX_STUDIO_WEB, else share/wavoryx/studio beside
// the command's bin folder (the build tree mirrors an install).
std::string webFolder() {
    const char* env = std::getenv("WAVORYX_STUDIO_WEB");
    if (env != nullptr && *env != '\0') return env;
    return executableFolder() + "/../share/wavoryx/studio";
}

std::string absoluteFolder(const std::string& path) {
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    return resolved ? std::string(resolved.get()) : std::string();
}

// xdg-open, when a display is there to show a browser; not waited for.
pid_t openBrowser(const std::string& url) {
    const char* x = std::getenv("DISPLAY");
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    if ((x == nullptr || *x == '\0') && (wayland == nullptr || *wayland == '\0')) return -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::string program = "xdg-open";
    std::string argument = url;
    char* argv[] = {&program[0], &argument[0], nullptr};
    pid_t pid = -1;
    if (posix_spawnp(&pid, "xdg-open", &actions, nullptr, argv, environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

int runStudio(const StudioOptions& options, const GlobalOptions& global) {
    const std::string out = absoluteFolder(options.out);
    struct stat st;
    if (out.empty() || ::stat(out.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        reportError(options.out, "is not a folder");
        return 1;
    }
    wvstudio::FileRegistry files;
    std::vector<std::string> problems;
    files.addPaths(options.paths, problems);
    if (!problems.empty()) {
        for (const std::string& problem : problems) reportLine(problem);
        return 1;
    }
    const std::string token = wvstudio::Access::newToken();
    if (token.empty()) {
        reportError("/dev/urandom", "cannot be read");
        return 1;
    }
    Session session(global);
    if (!session.open()) return interruptSignal() != 0 ? interruptExitStatus() : 1;

    wvstudio::StudioSetup setup;
    setup.webDir = webFolder();
    setup.outDir = out;
    std::unique_ptr<wvstudio::Studio> studio;
    constexpr size_t kMostBody = 1 << 20;
    wvstudio::HttpServer server(
        [&studio](const wvstudio::HttpRequest& request, wvstudio::HttpReply& reply) {
            studio->handle(request, reply);
        },
        kMostBody);
    const int port = server.bind(options.port);
    if (port <= 0) {
        reportError("127.0.0.1:" + std::to_string(options.port), "cannot listen there");
        return 1;
    }
    studio.reset(new wvstudio::Studio(session, files, setup, token, port));
    server.start();
    const std::string line = "wavoryx studio: " + studio->access().url() + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
    pid_t browser = options.noBrowser ? -1 : openBrowser(studio->access().url());

    EngineEvent event;
    while (interruptSignal() == 0) {
        if (session.waitEvent(event, 100)) studio->onEvent(event);
        if (browser > 0 && ::waitpid(browser, nullptr, WNOHANG) == browser) browser = -1;
    }
    studio->shutdown();
    server.stop();
    // The engine's jobs end with the session; its folder goes with it.
    studio.reset();
    return interruptExitStatus();
}

}  // namespace

void addStudioCommand(CLI::App& app, CommandLine& line) {
    auto options = std::make_shared<StudioOptions>();
    CLI::App* studio = app.add_subcommand("studio", "Edit audio files in the browser: a local editor served from 127.0.0.1");
    studio->add_option("PATH", options->paths,
                       "Audio files, or folders whose audio files (not those of their subfolders) are listed");
    studio->add_option("--port", options->port, "Port on 127.0.0.1 (default 0: a free one)")
        ->check(wholeNumberIn(0, 65535));
    studio->add_option("--out", options->out, "Folder the exports are written into (default: the current one)")
        ->type_name("DIR");
    studio->add_flag("--no-browser", options->noBrowser, "Only print the address; open no browser");
    studio->footer(
        "Prints one line, 'wavoryx studio: http://127.0.0.1:PORT/?token=TOKEN', and serves until Ctrl-C.\n"
        "Only requests carrying the token are served; only the files named and those in the folders named are "
        "read.\n"
        "Examples:\n"
        "  wavoryx studio song.mp3\n"
        "  wavoryx studio ~/Music/takes --out ~/Music/edits --port 8080 --no-browser");
    studio->callback([options, &line] { line.run = [options, &line] { return runStudio(*options, line.global); }; });
}

}  // namespace wvcli
