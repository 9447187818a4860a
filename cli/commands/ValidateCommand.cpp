#include "commands/Command.h"

#include "files/RunInOrder.h"
#include "terminal/JsonOutput.h"
#include <kel/convert/OpenSrc.h>

#include <kel/src/SrcValidator.h>

#include <algorithm>
#include <array>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <numeric>
#include <optional>
#include <set>
#include <thread>
#include <utility>

namespace kelsrc::cli {

namespace {

using kel::src::Severity;
using kel::src::SrcCode;
using kel::src::SrcFinding;
using kel::src::ValidationReport;

/// Findings of a file that are held at a time, of which filters choose and the worst are shown. What lies
/// beyond is counted; with a filter it counts as found, so that no filter hides it.
constexpr std::size_t FINDINGS_HELD = 200000;
/// Findings shown without --max.
constexpr std::size_t SHOWN_TO_PEOPLE = 20, SHOWN_TO_PROGRAMS = 1000;

struct ValidateArguments {
    std::vector<std::string> paths;
    std::vector<std::string> only, ignore;
    std::optional<std::size_t> max;
    std::size_t threads = 0;
    bool strict = false, json = false, quiet = false;
};

struct Filter {
    std::set<SrcCode> only, ignore;

    bool isActive() const { return !only.empty() || !ignore.empty(); }
    bool keeps(SrcCode code) const {
        // Nobody has looked into a file that cannot be opened, so no filter may call it good.
        if (code == SrcCode::UNREADABLE || code == SrcCode::NOT_A_FILE) return true;
        if (ignore.count(code) != 0) return false;
        return only.empty() || only.count(code) != 0 || kel::src::infoOf(code).refused;
    }
};

enum class Verdict { VALID, WARNINGS, BROKEN, UNREADABLE };

struct VerdictRow {
    const char *name, *ansi; ///< for programs; its colour
    const char* counted;     ///< behind the number of such files
};
constexpr VerdictRow VERDICTS[] = {{"valid", "1;32", " valid"},
                                   {"warnings", "1;33", " with warnings"},
                                   {"broken", "1;31", " broken"},
                                   {"unreadable", "1;31", " unreadable"}};

constexpr const VerdictRow& rowOf(Verdict verdict) {
    return VERDICTS[static_cast<std::size_t>(verdict)];
}

struct FileVerdict : ValidationReport {
    std::uint64_t unseen = 0; ///< found, but not looked at by the filter
    Verdict verdict = Verdict::VALID;
    std::string fault; ///< why the file could not be checked at all
};

std::set<SrcCode> codesOf(const std::vector<std::string>& names) {
    std::set<SrcCode> codes;
    for (const auto& name : names) {
        const auto* found = std::find_if(std::begin(kel::src::SRC_CODES), std::end(kel::src::SRC_CODES),
                                         [&](const auto& info) { return info.name == name; });
        if (found != std::end(kel::src::SRC_CODES)) {
            codes.insert(found->code);
            continue;
        }
        std::vector<std::string> known;
        for (const auto& info : kel::src::SRC_CODES)
            known.emplace_back(info.name);
        const std::string nearest = nearestWord(name, known);
        throw Failure(STATUS_USAGE, "", "unknown code \"" + name + '"',
                      nearest.empty() ? "docs/errors.md lists the codes."
                                      : "Did you mean \"" + nearest + "\"?");
    }
    return codes;
}

/// The files that are meant: a folder stands for every file below it that ends in ".src".
std::vector<std::string> filesOf(const std::vector<std::string>& paths) {
    namespace fs = std::filesystem;
    std::vector<std::string> files;
    for (const auto& path : paths) {
        std::error_code error;
        if (path == "-" || !fs::is_directory(path, error)) {
            files.push_back(path);
            continue;
        }
        std::vector<std::string> found;
        fs::recursive_directory_iterator entry(path, error);
        for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
            std::error_code gone;
            if (entry->path().extension() == ".src" && !entry->is_directory(gone))
                found.push_back(entry->path().string());
        }
        if (error)
            throw Failure(STATUS_INPUT, path, "the folder cannot be read: " + error.message(),
                          "Check the permissions of what is in it.");
        if (found.empty())
            throw Failure(STATUS_INPUT, path, "no file in this folder ends in \".src\"", "Name the files.");
        std::sort(found.begin(), found.end());
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

Verdict verdictOf(const FileVerdict& result) {
    for (const auto& finding : result.findings) {
        if (finding.code == SrcCode::UNREADABLE || finding.code == SrcCode::NOT_A_FILE)
            return Verdict::UNREADABLE;
    }
    return result.errors() != 0 || result.unseen != 0 ? Verdict::BROKEN
           : result.warnings() != 0                   ? Verdict::WARNINGS
                                                      : Verdict::VALID;
}

FileVerdict check(const std::string& path, std::istream& in, const Filter& filter, std::size_t max) {
    kel::src::ValidateOptions options;
    options.maxFindings = std::max(FINDINGS_HELD, max);
    FileVerdict result;
    ValidationReport report;
    try {
        report = path == "-" ? kel::src::validateSrc(in, options) : kel::src::validateSrc(path, options);
    } catch (const std::bad_alloc&) {
        result.fault = "checking it needs more memory than there is";
    } catch (const std::exception& error) {
        result.fault = error.what();
    }
    if (!result.fault.empty()) {
        result.verdict = Verdict::UNREADABLE;
        return result;
    }
    if (filter.isActive()) {
        result.unseen = report.errors() + report.warnings() + report.hints() - report.findings.size();
        for (auto& finding : report.findings) {
            if (!filter.keeps(finding.code)) continue;
            ++result.counts[static_cast<std::size_t>(finding.severity())];
            result.findings.push_back(std::move(finding));
        }
    } else {
        static_cast<ValidationReport&>(result) = std::move(report);
    }
    result.verdict = verdictOf(result);
    std::stable_sort(result.findings.begin(), result.findings.end(),
                     [](const SrcFinding& a, const SrcFinding& b) { return a.severity() < b.severity(); });
    if (result.findings.size() > max)
        result.findings.erase(result.findings.begin() + static_cast<std::ptrdiff_t>(max),
                              result.findings.end());
    return result;
}

// ---- For people -----------------------------------------------------------------------------------------

std::string countsText(const FileVerdict& result) {
    std::string text;
    const auto add = [&](std::uint64_t count, const char* one, const char* many) {
        if (count != 0) text += (text.empty() ? "" : ", ") + counted(count, one, many);
    };
    add(result.errors(), "error", "errors");
    add(result.warnings(), "warning", "warnings");
    add(result.hints(), "hint", "hints");
    add(result.unseen, "finding that was not looked at", "findings that were not looked at");
    return text;
}

std::string verdictText(const FileVerdict& result) {
    const std::string counts = countsText(result);
    if (result.verdict == Verdict::UNREADABLE) return "cannot be checked";
    if (result.verdict == Verdict::BROKEN) return "broken: " + counts;
    return counts.empty() ? "valid" : "valid, with " + counts;
}

class Printer {
public:
    Printer(std::ostream& out, bool colour, bool quiet) : out(out), colour(colour), quiet(quiet) {}

    void print(const std::string& path, const FileVerdict& result) {
        const std::string name = printable(inputName(path));
        if (!quiet || result.verdict == Verdict::UNREADABLE) {
            for (const auto& finding : result.findings)
                print(name, finding);
            if (!result.fault.empty()) out << name << ": " << printable(result.fault) << '\n';
            const std::uint64_t all = result.errors() + result.warnings() + result.hints();
            if (all > result.findings.size())
                out << name << ": and "
                    << counted(all - result.findings.size(), "more finding", "more findings")
                    << "; --max shows them\n";
        }
        out << name << ": " << coloured(verdictText(result), rowOf(result.verdict).ansi) << '\n';
    }

private:
    std::string coloured(const std::string& text, const char* ansi) const {
        return colour ? std::string("\x1b[") + ansi + 'm' + text + "\x1b[0m" : text;
    }

    void print(const std::string& name, const SrcFinding& finding) {
        const auto& info = kel::src::infoOf(finding.code);
        const char* ansi = info.severity == Severity::ERROR     ? "31"
                           : info.severity == Severity::WARNING ? "33"
                                                                : "36";
        out << name << ": " << coloured(std::string(kel::src::severityName(info.severity)), ansi) << ' '
            << info.name;
        if (!finding.path.empty()) out << " at " << printable(finding.path);
        if (finding.byteOffset != kel::src::SrcError::NO_OFFSET)
            out << (finding.path.empty() ? " at" : ",") << " byte " << finding.byteOffset;
        out << ": " << info.sentence;
        if (!finding.detail.empty()) out << " (" << printable(finding.detail) << ')';
        out << '\n';
        if (explained.insert(finding.code).second) out << "  " << info.remedy << '\n';
    }

    std::ostream& out;
    const bool colour, quiet;
    std::set<SrcCode> explained; ///< a remedy is told once
};

// ---- For programs ---------------------------------------------------------------------------------------

picojson::value toJson(const SrcFinding& finding) {
    const auto& info = kel::src::infoOf(finding.code);
    return picojson::value(picojson::object{{"code", jsonText(info.name)},
                                            {"severity", jsonText(kel::src::severityName(info.severity))},
                                            {"path", jsonText(finding.path)},
                                            {"byteOffset", finding.byteOffset == kel::src::SrcError::NO_OFFSET
                                                               ? picojson::value()
                                                               : jsonCount(finding.byteOffset)},
                                            {"sentence", jsonText(info.sentence)},
                                            {"detail", jsonText(finding.detail)},
                                            {"remedy", jsonText(info.remedy)},
                                            {"count", jsonCount(finding.count)}});
}

picojson::value toJson(const std::string& path, const FileVerdict& result) {
    picojson::object object;
    object["file"] = jsonText(inputName(path));
    object["verdict"] = picojson::value(rowOf(result.verdict).name);
    object["errors"] = jsonCount(result.errors());
    object["warnings"] = jsonCount(result.warnings());
    object["hints"] = jsonCount(result.hints());
    object["unseen"] = jsonCount(result.unseen);
    if (!result.fault.empty()) object["fault"] = jsonText(result.fault);
    object["findings"] = jsonList(result.findings, [](const SrcFinding& finding) { return toJson(finding); });
    return picojson::value(std::move(object));
}

struct Totals {
    std::array<std::size_t, std::size(VERDICTS)> of{};

    std::size_t& operator[](Verdict verdict) { return of[static_cast<std::size_t>(verdict)]; }
    std::size_t files() const { return std::accumulate(of.begin(), of.end(), std::size_t(0)); }
    Status status(bool strict) {
        if ((*this)[Verdict::UNREADABLE] != 0) return STATUS_INPUT;
        const bool isBad = (*this)[Verdict::BROKEN] != 0 || (strict && (*this)[Verdict::WARNINGS] != 0);
        return isBad ? STATUS_FINDINGS : STATUS_OK;
    }
    std::string text() const {
        std::string result = counted(files(), "file", "files") + ": ";
        for (std::size_t i = 0; i < of.size(); ++i) {
            if (i == 0 || of[i] != 0)
                result += (i == 0 ? "" : ", ") + std::to_string(of[i]) + VERDICTS[i].counted;
        }
        return result;
    }
    picojson::value toJson() const {
        picojson::object object{{"files", jsonCount(files())}};
        for (std::size_t i = 0; i < of.size(); ++i)
            object[VERDICTS[i].name] = jsonCount(of[i]);
        return picojson::value(std::move(object));
    }
};

int runValidate(const ValidateArguments& arguments, const Streams& streams) {
    Filter filter;
    filter.only = codesOf(arguments.only);
    filter.ignore = codesOf(arguments.ignore);
    const std::vector<std::string> files = filesOf(arguments.paths);
    if (std::count(files.begin(), files.end(), "-") > 1)
        throw Failure(STATUS_USAGE, "", "\"-\" is named twice", "Standard input can be read once.");
    const std::size_t threads =
        arguments.threads != 0 ? arguments.threads : std::max(1u, std::thread::hardware_concurrency());

    Printer printer(streams.out, terminalOf(streams.out).colour, arguments.quiet);
    picojson::array reports;
    Totals totals;
    const std::size_t max = arguments.max.value_or(arguments.json ? SHOWN_TO_PROGRAMS : SHOWN_TO_PEOPLE);
    const auto work = [&](std::size_t i) { return check(files[i], streams.in, filter, max); };
    runInOrder(files.size(), threads, work, [&](std::size_t i, const FileVerdict& result) {
        ++totals[result.verdict];
        if (arguments.json) {
            reports.push_back(toJson(files[i], result));
        } else if (!arguments.quiet || result.verdict != Verdict::VALID) {
            printer.print(files[i], result);
        }
    });
    if (arguments.json) {
        picojson::object report;
        report["files"] = picojson::value(std::move(reports));
        report["summary"] = totals.toJson();
        streams.out << picojson::value(std::move(report)).serialize(true);
    } else if (files.size() > 1 && !arguments.quiet) {
        streams.out << totals.text() << '\n';
    }
    return totals.status(arguments.strict);
}

} // namespace

Action addValidate(CLI::App& app) {
    const auto arguments = std::make_shared<ValidateArguments>();
    CLI::App* verb = app.add_subcommand("validate", "Check SRC files and say what is wrong with them");
    verb->add_option("PATH", arguments->paths,
                     "SRC files, folders whose files *.src are meant, or - for standard input")
        ->required();
    verb->add_flag("--strict", arguments->strict, "Warnings give status 1, too");
    verb->add_option(
            "--only", arguments->only,
            "Look for this code only, and for all that keeps a file from being read; may be repeated")
        ->option_text("CODE")
        ->allow_extra_args(false);
    verb->add_option("--ignore", arguments->ignore, "Do not look for this code; may be repeated")
        ->option_text("CODE")
        ->allow_extra_args(false);
    verb->add_option(
            "--max", arguments->max,
            "Findings shown per file, the worst first; all are counted (default: 20, with --json 1000)")
        ->option_text("N");
    verb->add_option("-j,--jobs", arguments->threads, "Files checked at a time (default: one per processor)")
        ->option_text("N")
        ->check(CLI::Range(1, 256));
    auto* json = addJson(*verb, arguments->json);
    addQuiet(*verb, arguments->quiet, "Print the verdicts on files that are not valid, only")->excludes(json);
    verb->footer(R"(
The last line on a file is its verdict: "valid", "valid, with ..." or "broken: ...". Status 0: no file has errors;
1: a file has errors, or warnings with --strict; 3: a file cannot be opened or read.

Errors break the file for some reader, warnings are what its writer can hardly have meant, hints cost bytes or
time. docs/errors.md explains every code.)");
    return [arguments](const Streams& streams) { return runValidate(*arguments, streams); };
}

} // namespace kelsrc::cli
