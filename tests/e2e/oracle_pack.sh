#!/usr/bin/env bash
# Forty random packages (fixed seeds) through `nomsoi pack` and through the reference model of
# Pack & Go and the host (tests/oracle): the module's log lines, the exit status (0 complete,
# 1 a copy or save failed and the main document and view file put back, 2 refused by the
# preflight: a reference cycle, or two files on one name for the seeds run without --force,
# 3 files missing), every file copied into the SOI directory and every document saved there or
# in place must agree. Any difference is printed with its seed, the command line, the expected
# and actual lines and the files that differ.
# More seeds by hand: python3 tests/oracle/run.py --nomsoi PATH --mode pack --seeds 1000-1999
set -euo pipefail
: "${NOMSOI:?NOMSOI must name the nomsoi binary}"
: "${NOMSOI_SOURCE_DIR:?NOMSOI_SOURCE_DIR must name the source tree}"
unset ADL_ODT_IN NOMZUB_LOG NOMZUB_LOG_FORMAT NOMZUB_DRIVES NOMZUB_SHARES NOMZUB_CODE_PAGE
exec python3 "$NOMSOI_SOURCE_DIR/tests/oracle/run.py" --nomsoi "$NOMSOI" --mode pack --seeds 1-40
