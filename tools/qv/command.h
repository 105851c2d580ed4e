// What a subcommand is made of, and how it ends.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tool {

/// What the program tells the caller's script.
enum class Exit {
    done = 0,
    negative = 1,   ///< a check, comparison or look-up came out negative; the output exists
    usage = 2,      ///< the command line is wrong
    wrongKind = 3,  ///< not the expected kind of file
    damaged = 4,    ///< the right kind, but broken
    io = 5,         ///< input or output error
    outside = 6,    ///< an outside program failed or ran out of time
};

/// Ends a subcommand: one sentence for standard error, and the exit code.
class Failure : public std::runtime_error {
public:
    Failure(Exit exitCode, const std::string& message) : std::runtime_error(message), m_exit(exitCode) {}
    Exit exitCode() const { return m_exit; }

private:
    Exit m_exit;
};

/// A failure whose reason is the library's last diagnostic on this thread; `otherwise` where it left none.
Failure diagnosed(Exit exitCode, const std::string& file, const std::string& otherwise);

/// Options that every subcommand has.
struct Common {
    bool quiet = false;  ///< No progress and no remarks.
};
Common& common();

/// A remark on standard error, unless --quiet.
void remark(const std::string& sentence);

/// Adds a subcommand whose help opens with `examples` (lines of shell), and which runs `body` when it is chosen.
/// Options are added to the result by the caller and live in what `body` captures.
CLI::App* addCommand(CLI::App& parent, const std::string& name, const std::string& summary, const std::string& examples,
                     std::function<Exit()> body);

/// Adds an option that takes one of a few words, in any case; help and errors list them.
template <class T>
CLI::Option* addChoice(CLI::App& command, const std::string& name, T& choice,
                       const std::vector<std::pair<std::string, T>>& words, const std::string& help) {
    std::string list;
    for (const auto& [word, value] : words) list += (list.empty() ? "" : "|") + word;
    const auto take = [&choice, words, name, list](const std::string& given) {
        for (const auto& [word, value] : words) {
            if (CLI::detail::to_lower(word) != CLI::detail::to_lower(given)) continue;
            choice = value;
            return;
        }
        throw CLI::ValidationError(name, "\"" + given + "\" is not one of " + list);
    };
    return command.add_option_function<std::string>(name, take, help)->type_name(list);
}

/// The parts of "NAME=VALUE", cut at the first equals sign. Fails with a sentence that begins with `option` where
/// there is none, or no name.
std::pair<std::string, std::string> splitTag(const std::string& tag, const std::string& option);

/// The examples that a subcommand's help opens with; empty for the program itself.
std::string examplesOf(const CLI::App& command);

/// The outcome of the chosen subcommand.
Exit& outcome();

/// Runs another subcommand inside this one, as a command line without the program's name would. Throws as that does.
Exit runCommand(std::vector<std::string> arguments);

// One for each source file.
void addInfo(CLI::App& root);
void addTags(CLI::App& root);
void addDict(CLI::App& root);
void addRcal(CLI::App& root);
void addConfig(CLI::App& root);
void addNorm(CLI::App& root);
void addImport(CLI::App& root);
void addCalibrate(CLI::App& root);
void addRender(CLI::App& root);
void addWatch(CLI::App& root);
void addPack(CLI::App& root);
void addGz(CLI::App& root);
void addCrc(CLI::App& root);
void addTable(CLI::App& root);
void addAtm(CLI::App& root);
void addDemo(CLI::App& root);
void addReference(CLI::App& root);

}  // namespace tool
