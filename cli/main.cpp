// wavoryx: the command-line face of the engine. It uses the library only
// through its public API and callback, as any application would.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <wavoryx/platform.h>

#include "CommandDocs.h"
#include "CommandWords.h"
#include "Commands.h"
#include "Interrupt.h"
#include "Session.h"
#include "StandardInput.h"
#include "UsageErrors.h"

namespace {

constexpr int kUsageStatus = 2;

// Usage lines of subcommands read "wavoryx edit ...", not "edit ...".
class UsageFormatter : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* app, std::string name) const override {
        if (app->get_parent() != nullptr && name.rfind("wavoryx ", 0) != 0) name = "wavoryx " + name;
        return CLI::Formatter::make_usage(app, name);
    }
    // A command takes the global options too (they fall through), so its
    // help lists them.
    std::string make_subcommands(const CLI::App* app, CLI::AppFormatMode mode) const override {
        const CLI::App* parent = app->get_parent();
        if (parent == nullptr) return CLI::Formatter::make_subcommands(app, mode);
        const std::vector<const CLI::Option*> globals = parent->get_options([parent](const CLI::Option* option) {
            return !option->get_group().empty() && option != parent->get_help_ptr();
        });
        return CLI::Formatter::make_subcommands(app, mode) +
               make_group("Global options (before or after the command)", false, globals);
    }
};

}  // namespace

int main(int argc, char** argv) {
    // A closed standard stream must not lend its number to an output file.
    wavoryx_keep_standard_descriptors();
    CLI::App app("Load, cut, render and draw audio with the Wavoryx engine.", "wavoryx");
    app.set_version_flag("--version", "wavoryx " WAVORYX_CLI_VERSION);
    app.formatter(std::make_shared<UsageFormatter>());
    app.require_subcommand(1);
    // Global options may come after the subcommand as well.
    app.fallthrough();
    app.footer(
        "Examples:\n"
        "  wavoryx info song.mp3\n"
        "  wavoryx edit song.mp3@0:10-0:20 song.mp3@1:00- -o cut.mp3\n"
        "  wavoryx waveform song.mp3 --png song.png --width 800 --height 200\n"
        "Run 'wavoryx COMMAND --help' for the options of a command.");

    wvcli::CommandLine line;
    app.add_flag("-q,--quiet", line.global.quiet, "No progress and no result lines");
    app.add_flag("-v,--verbose", line.global.verbose, "Show the engine's log on standard error");
    CLI::Option* yes = app.add_flag_callback(
        "-y,--overwrite", [&line] { line.global.overwrite = wvcli::Overwrite::kAlways; },
        "Replace an existing output file without asking");
    CLI::Option* no = app.add_flag_callback(
        "-n,--no-overwrite", [&line] { line.global.overwrite = wvcli::Overwrite::kNever; },
        "Never replace an existing output file: exit 1 instead (default: ask on a terminal, refuse without one)");
    yes->excludes(no);
    app.add_option("--work-dir", line.global.workDir,
                   "Folder in which the private working folder is made (default $TMPDIR or /tmp)")
        ->type_name("DIR");
    app.add_option_function<std::string>(
           "--max-input-size",
           [](const std::string& text) {
               uint64_t bytes = 0;
               wvcli::parseByteSize(text, bytes);
               wvcli::setMaxInputSize(bytes, text);
           },
           std::string("Most bytes of standard input kept in the working folder (default ") +
               wvcli::kDefaultMaxInputSize +
               "; K, M, G suffixes). edit decodes MP3, AAC, Ogg, FLAC and WAV as they arrive and keeps nothing; "
               "other formats (MP4, M4A must seek) and the other commands' standard input are kept whole. 2G "
               "holds about 35 hours of 128 kbit/s audio without letting an endless pipe fill $TMPDIR")
        ->check(CLI::Validator(
            [](std::string& input) -> std::string {
                uint64_t bytes = 0;
                return wvcli::parseByteSize(input, bytes) ? std::string()
                                                          : "'" + input + "' is no size: use bytes or 512K, 100M, 2G";
            },
            ""))
        ->type_name("SIZE");

    wvcli::addInfoCommand(app, line);
    wvcli::addEditCommand(app, line);
    wvcli::addWaveformCommand(app, line);
    wvcli::addPlayCommand(app, line);
    wvcli::addRecordCommand(app, line);
    wvcli::addStudioCommand(app, line);

    // Run by the build: the manual and completions, from the options above.
    if (argc == 3 && std::string(argv[1]) == "--write-docs") {
        std::string failed;
        std::string why;
        if (wvcli::writeDocs(wvcli::describeProgram(app, WAVORYX_CLI_VERSION), argv[2], failed, why)) return 0;
        wvcli::reportError(failed, why);
        return 1;
    }

    wvcli::revealNames(app);
    std::vector<std::string> args = wvcli::parserWords(app, std::vector<std::string>(argv + 1, argv + argc));
    try {
        app.parse(args);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
        return wvcli::reportUsageError(app, error);
    }
    if (!line.run) return kUsageStatus;
    wvcli::installInterruptHandlers();
    return line.run();
}
