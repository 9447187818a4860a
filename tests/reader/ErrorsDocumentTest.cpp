// docs/errors.md is written from the table of codes; this keeps the two the same.

#include <kel/src/SrcCodes.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace {

using namespace kel::src;

std::string document() {
    std::string text =
        "# Errors, warnings and hints\n"
        "\n"
        "Everything that the reader refuses and the validator finds in an SRC file. Codes never change. "
        "This page is\n"
        "written from `include/kel/src/SrcCodes.h` and compared with it by a test; to write it anew, run\n"
        "`KELSRC_WRITE_DOCUMENTS=1 build/release/bin/test_reader --gtest_filter='ErrorsDocument.*'`.\n"
        "\n"
        "*Refused* means that the reader throws `SrcError` with the code; all other codes are told by the "
        "validator only.\n";
    for (const Severity severity : {Severity::ERROR, Severity::WARNING, Severity::HINT}) {
        static const char* const TITLES[] = {"Errors: the file is broken",
                                             "Warnings: it reads, but its writer can hardly have meant this",
                                             "Hints: the file is fine, this costs bytes or time"};
        text += std::string("\n## ") + TITLES[static_cast<std::size_t>(severity)] + "\n\n";
        text += severity == Severity::ERROR ? "| Code | Meaning | Remedy | Refused |\n|---|---|---|---|\n"
                                            : "| Code | Meaning | Remedy |\n|---|---|---|\n";
        for (const SrcCodeInfo& info : SRC_CODES) {
            if (info.severity != severity) continue;
            text += "| `" + std::string(info.name) + "` | " + std::string(info.sentence) + " | " +
                    std::string(info.remedy) + " |";
            if (severity == Severity::ERROR) text += info.refused ? " yes |" : " no |";
            text += "\n";
        }
    }
    return text;
}

TEST(ErrorsDocument, IsTheTable) {
    if (std::getenv("KELSRC_WRITE_DOCUMENTS")) std::ofstream(KELSRC_ERRORS_DOCUMENT) << document();
    std::ifstream in(KELSRC_ERRORS_DOCUMENT);
    std::stringstream stored;
    stored << in.rdbuf();
    EXPECT_EQ(stored.str(), document()) << "write docs/errors.md anew, as it says itself";
}

} // namespace
