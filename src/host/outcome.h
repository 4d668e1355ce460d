// The summary of a run's outcome on standard error.
#ifndef NOM_HOST_OUTCOME_H_
#define NOM_HOST_OUTCOME_H_

#include <string>

#include "host_internal.h"

namespace nomsoi {

// "nomsoi <command>: 3 documents, 3 geometry files, 0 resources, 1234 bytes copied; 0 missing,
// 0 failed; output DIR[; module result 0x%08X]" on standard error, then each missing and failed
// file on a line of its own.
void PrintSummary(const std::string& command, const Outcome& outcome, const std::string& output,
                  const HRESULT* module_result);

}  // namespace nomsoi

#endif  // NOM_HOST_OUTCOME_H_
