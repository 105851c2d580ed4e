// The qv program: one subcommand for each job. Results go to standard output, everything else to standard error.
#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <iostream>
#include <utility>

#include "command.h"
#include "places.h"
#include "qv/api.h"
#include "qv/diagnostic.h"
#include "text.h"

namespace tool {

Failure diagnosed(Exit exitCode, const std::string& file, const std::string& otherwise) {
    qv::CDiagnostic diagnostic = qv::LastDiagnostic();
    qv::ClearDiagnostic();
    if (!diagnostic.IsSet()) return Failure(exitCode, file + ": " + otherwise);
    diagnostic.file = wide(file);
    return Failure(exitCode, narrow(diagnostic.ToString()));
}

Common& common() {
    static Common options;
    return options;
}

Exit& outcome() {
    static Exit code = Exit::done;
    return code;
}

void remark(const std::string& sentence) {
    if (!common().quiet) std::cerr << sentence << '\n';
}

namespace {

/// Puts a subcommand's examples in front of its help.
class ExamplesFirst : public CLI::Formatter {
public:
    explicit ExamplesFirst(std::string examples) : m_examples(std::move(examples)) {}
    const std::string& examples() const { return m_examples; }
    std::string make_description(const CLI::App* app) const override {
        return "Examples:\n" + m_examples + "\n\n" + CLI::Formatter::make_description(app);
    }

private:
    std::string m_examples;
};

}  // namespace

std::string examplesOf(const CLI::App& command) {
    const auto formatter = std::dynamic_pointer_cast<ExamplesFirst>(command.get_formatter());
    return formatter == nullptr ? std::string() : formatter->examples();
}

CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& summary, const std::string& examples,
                     std::function<Exit()> body) {
    CLI::App* command = parent.add_subcommand(name, summary);
    command->formatter(std::make_shared<ExamplesFirst>(examples));
    command->add_flag("-q,--quiet", common().quiet, "No progress and no remarks");
    if (body) command->callback([body = std::move(body)] { outcome() = body(); });
    return command;
}

std::pair<std::string, std::string> splitTag(const std::string& tag, const std::string& option) {
    const size_t equals = tag.find('=');
    if (equals == 0 || equals == std::string::npos) {
        throw Failure(Exit::usage, option + ": \"" + tag + "\" is not of the form NAME=VALUE");
    }
    return {tag.substr(0, equals), tag.substr(equals + 1)};
}

namespace {

constexpr char summary[] = "Thermal-infrared recordings and calibrations";

std::string versions() {
    return "qv " QV_VERSION_STRING " (zlib " + std::string(zlibVersion()) +
           ", libpng " PNG_LIBPNG_VER_STRING ", CLI11 " CLI11_VERSION ")";
}

void describe(CLI::App& root) {
    root.name("qv");
    root.set_version_flag("--version", versions());
    root.require_subcommand(1);
    addInfo(root);
    addTags(root);
    addDict(root);
    addRcal(root);
    addConfig(root);
    addTable(root);
    addNorm(root);
    addImport(root);
    addCalibrate(root);
    addRender(root);
    addWatch(root);
    addPack(root);
    addGz(root);
    addCrc(root);
    addAtm(root);
    addDemo(root);
    addReference(root);
}

/// What stands where a command should, with the commands in front of it: "tags frob".
std::string unknownWord(const CLI::App& app) {
    for (const CLI::App* verb : app.get_subcommands()) {
        const std::string deeper = unknownWord(*verb);
        return deeper.empty() ? "" : verb->get_name() + " " + deeper;
    }
    if (app.get_subcommands([](const CLI::App*) { return true; }).empty()) return "";
    const std::vector<std::string> left = app.remaining();
    return left.empty() ? "" : left.front();
}

int run(int argc, char** argv) {
    CLI::App root(summary);
    describe(root);
    try {
        root.parse(argc, argv);
        saveContainers();
    } catch (const CLI::RequiredError& error) {
        if (const std::string word = unknownWord(root); !word.empty()) {
            std::cerr << "qv: there is no command " << word << "\nRun with --help for more information.\n";
            return static_cast<int>(Exit::usage);
        }
        root.exit(error);
        return static_cast<int>(Exit::usage);
    } catch (const CLI::ParseError& error) {
        return root.exit(error) == 0 ? 0 : static_cast<int>(Exit::usage);
    } catch (const Failure& failure) {
        std::cerr << "qv: " << failure.what() << '\n';
        return static_cast<int>(failure.exitCode());
    } catch (const std::bad_alloc&) {
        std::cerr << "qv: out of memory\n";
        return static_cast<int>(Exit::io);
    } catch (const std::exception& error) {  // the standard library's own: no thread to be had, a folder that vanished
        std::cerr << "qv: " << error.what() << '\n';
        return static_cast<int>(Exit::io);
    }
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "qv: standard output cannot be written\n";
        return static_cast<int>(Exit::io);
    }
    return static_cast<int>(outcome());
}

}  // namespace

Exit runCommand(std::vector<std::string> arguments) {
    CLI::App root(summary);
    describe(root);
    const Exit before = outcome();
    std::reverse(arguments.begin(), arguments.end());  // the parser takes them from the back
    root.parse(arguments);
    return std::exchange(outcome(), before);
}

}  // namespace tool

int main(int argc, char** argv) { return tool::run(argc, argv); }
