#!/usr/bin/env bash
# Forty random packages (fixed seeds) laid out for the ODT mode, through `nomsoi odt` and through
# the reference model (tests/oracle): the module's log lines, the exit status (0 complete, 1 a copy
# or save failed, 2 refused by the preflight, 3 files missing), the files copied into the output
# directory and the main document saved there (or in place when the output directory is the
# package's folder) must agree. Any difference is printed with its seed, the command line, the
# expected and actual lines and the files that differ.
# More seeds by hand: python3 tests/oracle/run.py --nomsoi PATH --mode odt --seeds 1000-1999
set -euo pipefail
: "${NOMSOI:?NOMSOI must name the nomsoi binary}"
: "${NOMSOI_SOURCE_DIR:?NOMSOI_SOURCE_DIR must name the source tree}"
unset ADL_ODT_IN NOMZUB_LOG NOMZUB_LOG_FORMAT NOMZUB_DRIVES NOMZUB_SHARES NOMZUB_CODE_PAGE
exec python3 "$NOMSOI_SOURCE_DIR/tests/oracle/run.py" --nomsoi "$NOMSOI" --mode odt --seeds 1-40
