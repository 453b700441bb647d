#include "DesktopEntry.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace desktop_entry;
using Args = std::vector<std::string>;

TEST(DesktopEntryParse, ReadsOnlyTheFirstDesktopEntryGroupAndFirstKeys) {
    const auto entry = parse(
        "\xEF\xBB\xBF# comment\r\n"
        "Exec=/outside/group\n"
        "[Other Group]\n"
        "Exec=/other\n"
        "[Desktop Entry]\r\n"
        "Type = Application\n"
        "Exec[de]=/localised\n"
        "  Exec =  /first \"arg\"  \n"
        "Exec=/second\n"
        "Hidden=false\n"
        "Hidden=true\n"
        "[Desktop Entry]\n"
        "X-GNOME-Autostart-enabled=false\n");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->type.value_or("?"), "Application");
    EXPECT_EQ(entry->exec.value_or("?"), "/first \"arg\"");
    EXPECT_FALSE(entry->hidden);
    EXPECT_FALSE(entry->autostartDisabled);
}

TEST(DesktopEntryParse, SwitchesAndMissingGroup) {
    const auto hidden = parse("[Desktop Entry]\nHidden=true\nX-GNOME-Autostart-enabled=false\n");
    ASSERT_TRUE(hidden);
    EXPECT_TRUE(hidden->hidden);
    EXPECT_TRUE(hidden->autostartDisabled);
    EXPECT_FALSE(hidden->exec);
    EXPECT_FALSE(parse("Exec=/bin/true\n"));
    EXPECT_FALSE(parse(""));
    EXPECT_FALSE(parse(std::string("\0[Desktop Entry]\n", 17)));
}

TEST(DesktopEntryValue, UnescapeKeepsQuotingEscapesForTheNextStep) {
    EXPECT_EQ(unescapeValue(R"(a\sb\tc\nd\re\\f\"g\$h\)"), "a b\tc\nd\re\\f\\\"g\\$h\\");
    EXPECT_EQ(escapeValue(" a\\b\n\t\r"), "\\sa\\\\b\\n\\t\\r");
}

TEST(DesktopEntryExec, SplitsPlainAndQuotedArguments) {
    EXPECT_EQ(splitExec("/usr/bin/prog  --flag %U"), (Args{"/usr/bin/prog", "--flag", "%U"}));
    EXPECT_EQ(splitExec(R"("/opt/my dir/prog" "a\"b\`c\$d\\e" 100%%)"),
              (Args{"/opt/my dir/prog", "a\"b`c$d\\e", "100%"}));
    EXPECT_EQ(splitExec(R"("" x)"), (Args{"", "x"}));
    EXPECT_EQ(splitExec("   "), Args{});
}

TEST(DesktopEntryExec, RejectsJunkQuoting) {
    for (const char *junk :
         {R"("/unterminated)", R"("/a"b)", R"(/a"b")", R"("\x")", R"("/a\)", R"(/a\ b)"}) {
        EXPECT_FALSE(splitExec(junk)) << junk;
    }
}

TEST(DesktopEntryExec, QuotedArgumentSurvivesTheFileRoundTrip) {
    for (const std::string path :
         {"/plain/bin/prog", "/with space/bin/p", "/q\"uote/`$\\/bin/x", "/per%cent/%f/bin/x",
          "/tab\tnew\nline\rcr/bin/x", "/\\s/bin/x"}) {
        const std::string line = escapeValue(quoteExecArgument(path));
        EXPECT_EQ(line.find('\n'), std::string::npos);
        const auto entry = parse("[Desktop Entry]\nExec=" + line + " --arg\n");
        ASSERT_TRUE(entry);
        EXPECT_EQ(program(*entry).value_or("<none>"), path);
    }
    EXPECT_EQ(escapeValue(quoteExecArgument("/a b/\"c\"\\d%")), R"("/a b/\\"c\\"\\\\d%%")");
}
