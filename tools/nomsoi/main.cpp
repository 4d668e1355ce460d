// nomsoi: the command-line host of the NOMVGXGenBase module.
#include <malloc.h>

#include "commands.h"

int main(int argc, char** argv) {
  // One thread works at a time (the module's thread while the main thread waits for it), so one
  // malloc arena serves both: what the preflight freed is reused by the run instead of staying
  // resident beside a second arena.
  mallopt(M_ARENA_MAX, 1);
  return nomsoi::RunCommandLine(argc, argv);
}
