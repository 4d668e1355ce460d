// nomsoi: the command-line host of the NOMVGXGenBase module.
#include "commands.h"

int main(int argc, char** argv) { return nomsoi::RunCommandLine(argc, argv); }
