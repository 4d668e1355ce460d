// nomsoi: the command-line host of the NOMVGXGenBase module.
#include <malloc.h>

#include "commands.h"

int main(int argc, char** argv) {
  // One malloc arena: the main thread plans (the preflight) and then waits while the module's
  // thread runs, so what the preflight freed is reused by the run instead of staying resident
  // beside a second arena. The copying thread beside the module allocates little; a second arena
  // for it measured no faster.
  mallopt(M_ARENA_MAX, 1);
  return nomsoi::RunCommandLine(argc, argv);
}
