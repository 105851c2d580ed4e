// qv man, qv completion: what the parser's own tables say, as manual pages and as a shell's completion.
#include <algorithm>
#include <iostream>
#include <memory>

#include "command.h"

namespace tool {

namespace {

std::vector<const CLI::App*> verbsOf(const CLI::App& command) {
    return command.get_subcommands([](const CLI::App*) { return true; });
}

/// "-o,--output" as its parts.
std::vector<std::string> optionNames(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
    return names;
}

/// "qv tags set"
std::string fullName(const CLI::App& command) {
    return command.get_parent() == nullptr ? command.get_name()
                                           : fullName(*command.get_parent()) + " " + command.get_name();
}

// Manual pages -------------------------------------------------------------------------------------------------------

/// Text for roff: a backslash, a dash, and a dot or quote at a line's beginning have meanings of their own there.
std::string roff(const std::string& text) {
    std::string out;
    for (const char c : text) {
        const bool lineBegins = out.empty() || out.back() == '\n';
        if (lineBegins && (c == '.' || c == '\'')) out += "\\&";
        if (c == '\\') out += "\\e";
        if (c == '-') out += "\\-";
        if (c != '\\' && c != '-') out += c;
    }
    return out;
}

std::string joined(const std::vector<std::string>& names, const std::string& between) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : between) + name;
    return text;
}

void printOption(const CLI::Option& option, std::ostream& out) {
    const std::vector<std::string> names = optionNames(option);
    const std::string name = names.empty() ? option.get_name(true) : joined(names, ", ");
    const bool takesValue = !names.empty() && option.get_items_expected_max() > 0;
    const std::string type = option.get_type_name();
    const std::string value = type.find('|') == type.npos ? "VALUE" : type;  // or the words that it takes
    out << ".TP\n\\fB" << roff(name) << "\\fR" << (takesValue ? " \\fI" + roff(value) + "\\fR" : "") << '\n'
        << roff(option.get_description()) << (option.get_required() ? " (required)" : "") << '\n';
}

void printManual(const CLI::App& command, std::ostream& out) {
    const std::string name = fullName(command);
    std::string title = name;
    std::replace(title.begin(), title.end(), ' ', '-');
    out << ".TH " << roff(title) << " 1\n.SH NAME\n"
        << roff(title) << " \\- " << roff(command.get_description()) << '\n';
    out << ".SH SYNOPSIS\n\\fB" << roff(name) << "\\fR [\\fIOPTIONS\\fR]";
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_positional()) out << " \\fI" << roff(option->get_name(true)) << "\\fR";
    }
    const std::vector<const CLI::App*> verbs = verbsOf(command);
    out << (verbs.empty() ? "\n" : " \\fICOMMAND\\fR\n") << ".SH OPTIONS\n";
    for (const CLI::Option* option : command.get_options()) printOption(*option, out);
    if (!verbs.empty()) out << ".SH COMMANDS\n";
    for (const CLI::App* verb : verbs) {
        out << ".TP\n\\fB" << roff(verb->get_name()) << "\\fR\n" << roff(verb->get_description()) << '\n';
    }
    const std::string examples = examplesOf(command);
    if (!examples.empty()) out << ".SH EXAMPLES\n.nf\n" << roff(examples) << "\n.fi\n";
    if (command.get_parent() == nullptr) {
        out << ".SH EXIT STATUS\n0 done, 1 a check, comparison or look\\-up came out negative, 2 usage, 3 not the "
               "expected "
               "kind of file, 4 damaged file, 5 input or output error, 6 an outside program failed or ran out of "
               "time.\n";
    }
}

Exit manual(const CLI::App& root, const std::vector<std::string>& path) {
    const CLI::App* command = &root;
    for (const std::string& name : path) {
        const std::vector<const CLI::App*> verbs = verbsOf(*command);
        const auto found = std::ranges::find(verbs, name, &CLI::App::get_name);
        if (found == verbs.end()) throw Failure(Exit::usage, "there is no command " + fullName(*command) + " " + name);
        command = *found;
    }
    printManual(*command, std::cout);
    return Exit::done;
}

// Completion ---------------------------------------------------------------------------------------------------------

/// One line of the shell's case for each command: the words that may follow it.
void printCases(const CLI::App& command, std::ostream& out) {
    std::vector<std::string> words;
    for (const CLI::App* verb : verbsOf(command)) words.push_back(verb->get_name());
    for (const CLI::Option* option : command.get_options()) {
        const std::vector<std::string> names = optionNames(*option);
        words.insert(words.end(), names.begin(), names.end());
    }
    out << "        \"" << fullName(command) << "\") words=\"" << joined(words, " ") << "\" ;;\n";
    for (const CLI::App* verb : verbsOf(command)) printCases(*verb, out);
}

void printCommandNames(const CLI::App& command, std::ostream& out) {
    for (const CLI::App* verb : verbsOf(command)) {
        out << (command.get_parent() == nullptr && verb == verbsOf(command).front() ? "" : "|") << '"'
            << fullName(*verb) << '"';
        printCommandNames(*verb, out);
    }
}

Exit bashCompletion(const CLI::App& root) {
    std::cout << "# Completion of qv for bash: source <(qv completion bash)\n"
                 "_qv() {\n"
                 "    local word=\"${COMP_WORDS[COMP_CWORD]}\" command=qv words= i\n"
                 "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
                 "        case \"$command ${COMP_WORDS[i]}\" in\n"
                 "        ";
    printCommandNames(root, std::cout);
    std::cout << ") command=\"$command ${COMP_WORDS[i]}\" ;;\n"
                 "        esac\n"
                 "    done\n"
                 "    case \"$command\" in\n";
    printCases(root, std::cout);
    std::cout << "    esac\n"
                 "    COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
                 "}\n"
                 "complete -o default -F _qv qv\n";
    return Exit::done;
}

}  // namespace

void addReference(CLI::App& root) {
    auto path = std::make_shared<std::vector<std::string>>();
    CLI::App* man =
        addCommand(root, "man", "Print a manual page, for man(1) to show.",
                   "  qv man | man -l -\n  qv man tags set | man -l -", [path, &root] { return manual(root, *path); });
    man->add_option("command", *path, "Command; the program as a whole without one");

    auto shell = std::make_shared<std::string>();
    CLI::App* completion =
        addCommand(root, "completion", "Print what a shell needs to complete command lines.",
                   "  source <(qv completion bash)\n  qv completion bash > /etc/bash_completion.d/qv",
                   [shell, &root] { return bashCompletion(root); });
    completion->add_option("shell", *shell, "bash")->required()->check(CLI::IsMember({"bash"}));
}

}  // namespace tool
