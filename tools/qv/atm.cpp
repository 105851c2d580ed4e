// qv atm: decks of the atmosphere program, its runs, and its output tables.
#include "atm_commands.h"
#include "command.h"

namespace tool {

void addAtm(CLI::App& root) {
    CLI::App* atm = addCommand(root, "atm", "The atmosphere program: its input decks, its runs, its output tables.",
                               "  qv atm new path.tape5 --preset lwir\n"
                               "  qv atm run path.tape5 --exe /opt/modtran/mod4v3r1\n"
                               "  qv atm plot path.tape7 -o path.svg",
                               nullptr);
    atm->require_subcommand(1);
    addAtmDeck(*atm);
    addAtmRun(*atm);
    addAtmOutput(*atm);
}

}  // namespace tool
