#!/usr/bin/env bash
# Every text the module can write, against the catalogue tests/golden/module_texts.txt: a text
# added, removed or changed in the module's sources shows up here as a difference.
set -euo pipefail
: "${NOMSOI_SOURCE_DIR:?NOMSOI_SOURCE_DIR must name the source tree}"
python3 "$NOMSOI_SOURCE_DIR/tests/golden/module_texts.py" "$NOMSOI_SOURCE_DIR"
echo "module_texts: ok"
