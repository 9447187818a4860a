// The manual shows the command's own help texts, word by word.

#include "CommandRun.h"
#include "commands/Verbs.h"

#include <gmock/gmock.h>

#include <map>

namespace {

using namespace kel::tests;

/// The blocks "```text" of the manual, by the command line in their first line, which begins with "$ kelsrc".
std::map<std::string, std::string> shownOutputs() {
    const std::string manual = contentOf(KELSRC_MANUAL);
    const std::string opening = "```text\n$ kelsrc ";
    std::map<std::string, std::string> blocks;
    for (std::size_t start = 0; (start = manual.find(opening, start)) != std::string::npos;) {
        start += opening.size();
        const std::size_t line = manual.find('\n', start) + 1;
        const std::size_t end = manual.find("```", line);
        blocks[manual.substr(start, line - 1 - start)] = manual.substr(line, end - line);
        start = end;
    }
    return blocks;
}

TEST(Manual, ShowsTheHelpOfTheCommandAsItIs) {
    const auto blocks = shownOutputs();
    ASSERT_EQ(blocks.count("--help"), 1u);
    EXPECT_EQ(blocks.at("--help"), runCommand({"--help"}).out);
}

TEST(Manual, ShowsTheHelpOfEveryVerbAsItIs) {
    const auto blocks = shownOutputs();
#define KELSRC_VERB(name, add) #name,
    for (const char* verb : {KELSRC_VERBS(KELSRC_VERB)}) {
#undef KELSRC_VERB
        const std::string line = std::string(verb) + " --help";
        ASSERT_EQ(blocks.count(line), 1u) << "the manual lacks a block \"$ kelsrc " << line << '"';
        EXPECT_EQ(blocks.at(line), runCommand({verb, "--help"}).out);
    }
}

} // namespace
