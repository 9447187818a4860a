#include "Cli.h"

#include "Version.h"
#include "commands/Command.h"
#include "terminal/Signals.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <map>
#include <memory>
#include <sstream>

namespace kelsrc::cli {

namespace {

constexpr const char* FOOTER = R"(
Exit status:
  0  done
  1  done, but not all is well: a check has findings, or some files of several failed
  2  wrong command line
  3  the input cannot be read, is empty or invalid
  4  the output was not written, or cannot be served; an older file is still as it was
  128 + n  ended by signal n

Data goes to standard output, everything else to standard error. Colours and progress are only shown on a terminal;
NO_COLOR=1 takes the colours away.)";

constexpr const char* SHORT_USAGE = "usage: kelsrc convert MODEL -o OUT.src [OPTIONS]\n"
                                    "Try \"kelsrc --help\" or \"kelsrc convert --help\".\n";

constexpr std::size_t TEXT_WIDTH = 66;

std::string wrapped(const std::string& text) {
    std::istringstream words(text);
    std::string result, word;
    std::size_t used = 0;
    while (words >> word) {
        if (used != 0 && used + 1 + word.size() > TEXT_WIDTH) {
            result += '\n';
            used = 0;
        } else if (used != 0) {
            result += ' ';
            ++used;
        }
        result += word;
        used += word.size();
    }
    return result;
}

/// Help texts within 100 columns: descriptions are wrapped, options show their value and nothing else.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() { column_width(32); }

    std::string make_option_opts(const CLI::Option* option) const override {
        if (option->get_type_size() == 0 || option->get_positional()) return "";
        return ' ' + option->get_option_text();
    }
    std::string make_option_desc(const CLI::Option* option) const override {
        std::string text = option->get_description();
        if (option->get_required() && !option->get_positional()) text += " (required)";
        if (!option->get_default_str().empty()) text += " (default: " + option->get_default_str() + ')';
        return wrapped(text);
    }
};

void tell(std::ostream& err, const Failure& failure) {
    Messages(err, Messages::NORMAL, terminalOf(err).colour).error(failure);
}

std::vector<std::string> optionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const auto& name : option->get_lnames())
            names.push_back("--" + name);
        for (const auto& name : option->get_snames())
            names.push_back("-" + name);
    }
    return names;
}

bool isKnown(const CLI::App& app, const std::string& argument) {
    const bool isLong = argument.compare(0, 2, "--") == 0;
    return app.get_option_no_throw(argument.substr(0, isLong ? argument.find('=') : 2)) != nullptr;
}

/// Why a command line was not understood, with what was probably meant.
Failure usageFailure(CLI::App& app, const std::vector<std::string>& args, const CLI::ParseError& error) {
    const CLI::App* verb = nullptr;
    std::vector<std::string> verbs;
    for (const CLI::App* known : app.get_subcommands(nullptr)) {
        verbs.push_back(known->get_name());
        if (!args.empty() && args[0] == known->get_name()) verb = known;
    }
    if (!verb && !args.empty() && args[0].compare(0, 1, "-") != 0) {
        const std::string nearest = nearestWord(args[0], verbs);
        return Failure(STATUS_USAGE, "", "unknown command \"" + args[0] + "\"",
                       nearest.empty() ? "\"kelsrc --help\" lists the commands."
                                       : "Did you mean \"" + nearest + "\"?");
    }
    const CLI::App& scope = verb ? *verb : app;
    const std::string help = verb ? "kelsrc " + verb->get_name() + " --help" : "kelsrc --help";
    for (std::size_t i = verb ? 1 : 0; i < args.size(); ++i) {
        if (args[i] == "--") break;
        if (args[i].size() < 2 || args[i][0] != '-' || isKnown(scope, args[i])) continue;
        const std::string name = args[i].substr(0, args[i].find('='));
        const std::string nearest = nearestWord(name, optionNames(scope));
        return Failure(STATUS_USAGE, "", "unknown option \"" + name + "\"",
                       nearest.empty() ? "\"" + help + "\" lists the options."
                                       : "Did you mean \"" + nearest + "\"?");
    }
    return Failure(STATUS_USAGE, "", error.what(), "See \"" + help + "\".");
}

int dispatch(const std::vector<std::string>& args, const Streams& streams) {
    CLI::App app("Turns 3D models into SRC files for the web.", "kelsrc");
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", "kelsrc " KELSRC_VERSION, "Print the version and exit");
    app.formatter(std::make_shared<HelpFormatter>());
    app.footer(FOOTER);
    app.require_subcommand(1);
    std::map<std::string, Action> actions;
#define KELSRC_VERB(name, add) actions[#name] = add(app);
    KELSRC_VERBS(KELSRC_VERB)
#undef KELSRC_VERB

    if (args.empty()) {
        streams.err << SHORT_USAGE;
        return STATUS_USAGE;
    }
    try {
        // The parser takes its arguments last first.
        app.parse(std::vector<std::string>(args.rbegin(), args.rend()));
    } catch (const CLI::CallForVersion& version) {
        streams.out << version.what() << '\n';
        return STATUS_OK;
    } catch (const CLI::CallForHelp&) {
        streams.out << app.help();
        return STATUS_OK;
    } catch (const CLI::ParseError& error) {
        tell(streams.err, usageFailure(app, args, error));
        return STATUS_USAGE;
    }
    return actions.at(app.get_subcommands().front()->get_name())(streams);
}

} // namespace

int run(const std::vector<std::string>& args, std::istream& in, std::ostream& out, std::ostream& err) {
    const SignalGuard signals;
    const Streams streams{in, out, err};
    int status = STATUS_OK;
    try {
        status = dispatch(args, streams);
    } catch (...) {
        const Failure failure = currentFailure("");
        tell(err, failure);
        status = failure.status();
    }
    if (!out.flush() && status == STATUS_OK) {
        tell(err, Failure(STATUS_NOT_WRITTEN, "standard output", "cannot be written"));
        status = STATUS_NOT_WRITTEN;
    }
    return status;
}

} // namespace kelsrc::cli
