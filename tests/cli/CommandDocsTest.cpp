// The manual and completions made from a small command's CLI11 tree: what
// is read from the definitions, and text that would break roff or a shell
// if written as it stands.
#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "CommandDocs.h"
#include "OptionChecks.h"
#include "TestSupport.h"

using namespace wvcli;

namespace {

struct Tool {
    CLI::App app{"Test the docs.", "wavoryx"};
    std::string text;
    int number = 0;
    bool flag = false;

    Tool() {
        app.add_option("--work-dir", text, "Where")->type_name("DIR");
        app.add_option("--secret", text, "Hidden")->group("");
        CLI::App* cut = app.add_subcommand("cut", "Cut things.");
        cut->add_option("SOURCE", text, ".starts with a dot, has a \\ and a - sign")->required()->expected(1, 9);
        cut->add_option("-o,--output", text, "Where [it] goes: it's here")->required()->type_name("OUT");
        cut->add_option("--kind", text, "Kind")->check(oneOf({"a", "b-c"}));
        cut->add_option("--count", number, "Count")->check(wholeNumberIn(1, 3));
        cut->add_flag("--loud,!--quiet-one", flag, "Loudness");
        cut->footer("One line of prose.\nExamples:\n  wavoryx cut x -o y\n  wavoryx cut 'z' -o w");
    }
};

const OptionDoc& named(const CommandDoc& command, const std::string& name) {
    for (const OptionDoc& option : command.options) {
        for (const std::string& n : option.names) {
            if (n == name) return option;
        }
    }
    static const OptionDoc none;
    ADD_FAILURE() << name << " not found";
    return none;
}

}  // namespace

TEST(CommandDocsTest, ReadsTheDefinitions) {
    Tool tool;
    const ProgramDoc doc = describeProgram(tool.app, "1.2.3");
    ASSERT_EQ(doc.commands.size(), 1u);
    const CommandDoc& cut = doc.commands[0];
    EXPECT_EQ(cut.name, "cut");
    EXPECT_EQ(cut.prose, (std::vector<std::string>{"One line of prose."}));
    EXPECT_EQ(cut.examples, (std::vector<std::string>{"wavoryx cut x -o y", "wavoryx cut 'z' -o w"}));
    ASSERT_EQ(cut.positionals.size(), 1u);
    EXPECT_TRUE(cut.positionals[0].repeats);
    EXPECT_EQ(cut.positionals[0].value, ValueKind::File);

    EXPECT_EQ(named(cut, "--output").names, (std::vector<std::string>{"-o", "--output"}));
    EXPECT_EQ(named(cut, "--output").value, ValueKind::File);
    EXPECT_TRUE(named(cut, "--output").required);
    EXPECT_EQ(named(cut, "--kind").choices, (std::vector<std::string>{"a", "b-c"}));
    EXPECT_EQ(named(cut, "--kind").valueName, "TEXT");
    EXPECT_EQ(named(cut, "--count").valueName, "INT");
    EXPECT_EQ(named(cut, "--count").value, ValueKind::Other);
    EXPECT_TRUE(named(cut, "--count").choices.empty());
    EXPECT_EQ(named(cut, "--loud").names, (std::vector<std::string>{"--loud", "--quiet-one"}));
    EXPECT_EQ(named(cut, "--loud").value, ValueKind::None);
    EXPECT_EQ(named(doc.program, "--work-dir").value, ValueKind::Folder);
    for (const OptionDoc& option : doc.program.options) EXPECT_NE(option.names.back(), "--secret");
}

TEST(CommandDocsTest, ManualEscapesWhatRoffWouldRead) {
    Tool tool;
    const std::string page = manPage(describeProgram(tool.app, "1.2.3"));
    EXPECT_NE(page.find(".TH WAVORYX 1 \"\" \"wavoryx 1.2.3\""), std::string::npos);
    // A description starting with a dot would be read as a request.
    EXPECT_NE(page.find("\n\\&.starts with a dot, has a \\e and a \\- sign"), std::string::npos) << page;
    EXPECT_EQ(page.find("\n.starts"), std::string::npos);
    EXPECT_NE(page.find("\\fB\\-o\\fR, \\fB\\-\\-output\\fR \\fIOUT\\fR"), std::string::npos);
    EXPECT_NE(page.find(".SH \"WAVORYX CUT\""), std::string::npos);
    EXPECT_EQ(page.find("secret"), std::string::npos);
}

TEST(CommandDocsTest, ManualNamesTheGlobalOptionsInEachCommandsSection) {
    Tool tool;
    const std::string page = manPage(describeProgram(tool.app, "1.2.3"));
    const size_t section = page.find(".SH \"WAVORYX CUT\"");
    ASSERT_NE(section, std::string::npos);
    const size_t line = page.find("The global options apply too: ", section);
    ASSERT_NE(line, std::string::npos) << page;
    const std::string names = page.substr(line, page.find('\n', line) - line);
    EXPECT_NE(names.find("\\%\\fB\\-\\-work\\-dir\\fR"), std::string::npos) << names;
    EXPECT_EQ(names.find("help"), std::string::npos) << names;
    EXPECT_EQ(names.find("secret"), std::string::npos) << names;
}

TEST(CommandDocsTest, CompletionsQuoteForTheShell) {
    Tool tool;
    const ProgramDoc doc = describeProgram(tool.app, "1");
    const std::string bash = bashCompletion(doc);
    EXPECT_NE(bash.find("--kind) _wavoryx_words 'a b-c'; return ;;"), std::string::npos) << bash;
    EXPECT_NE(bash.find("-o|--output) _wavoryx_files; return ;;"), std::string::npos);
    EXPECT_NE(bash.find("--work-dir) _wavoryx_folders; return ;;"), std::string::npos);
    EXPECT_EQ(bash.find("secret"), std::string::npos);
    const std::string zsh = zshCompletion(doc);
    // ' would close the quoting and ] the explanation.
    EXPECT_NE(zsh.find("'(-o --output)--output=[Where (it) goes: it'\\''s here]:OUT:_files'"), std::string::npos)
        << zsh;
    EXPECT_NE(zsh.find("'(-o --output)-o+["), std::string::npos);
    EXPECT_NE(zsh.find("--kind=[Kind]:TEXT:(a b-c)'"), std::string::npos);
    EXPECT_NE(zsh.find("'*:SOURCE:_files'"), std::string::npos);
    // _arguments refuses an option given twice: -h of cut is the program's.
    const size_t first = zsh.find("--help[");
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(zsh.find("--help[", first + 1), std::string::npos);
}

TEST(CommandDocsTest, WritesAllFilesOrReportsWhichFailed) {
    Tool tool;
    const ProgramDoc doc = describeProgram(tool.app, "1");
    wvtest::TempDir dir;
    std::string failed;
    std::string why;
    ASSERT_TRUE(writeDocs(doc, dir.path(), failed, why)) << failed << ": " << why;
    for (const char* name : {"wavoryx.1", "wavoryx.bash", "_wavoryx"}) {
        const std::vector<char> bytes = wvtest::readFile(dir.file(name));
        EXPECT_FALSE(bytes.empty()) << name;
    }
    // Written again over the old ones, nothing is left beside them.
    ASSERT_TRUE(writeDocs(doc, dir.path(), failed, why)) << why;
    std::vector<std::string> names;
    DIR* folder = ::opendir(dir.path().c_str());
    while (dirent* entry = ::readdir(folder)) {
        if (entry->d_name[0] != '.') names.push_back(entry->d_name);
    }
    ::closedir(folder);
    EXPECT_EQ(names.size(), 3u);
    EXPECT_FALSE(writeDocs(doc, dir.file("missing"), failed, why));
    EXPECT_EQ(failed, dir.file("missing") + "/wavoryx.1");
    EXPECT_FALSE(why.empty());
}
