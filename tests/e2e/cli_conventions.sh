#!/usr/bin/env bash
# nomsoi's command-line conventions, run on the built program: --version gives the project's
# version, the "Example:" line of every --help runs as written on a copy of the examples, verify
# accepts the example package once packed and names what breaks it before, -q keeps a successful
# run silent, and the generated manual page and bash completion script are current, list every
# option --help lists, render without warnings and install where man and bash look for them.
set -euo pipefail
. "$(dirname "$0")/host_lib.bash"

bindir=$(dirname "$NOMSOI")
man_page="$bindir/nomsoi.1"
completion="$bindir/nomsoi.bash-completion"
[ -f "$man_page" ] || fail "no generated manual page $man_page"
[ -f "$completion" ] || fail "no generated completion script $completion"

# --version: "nomsoi" and the version project() gives in the top-level CMakeLists.txt.
version=$(sed -n 's/^project([A-Za-z]* VERSION \([0-9.]*\).*/\1/p' "$NOMSOI_SOURCE_DIR/CMakeLists.txt")
[ -n "$version" ] || fail "no project version in CMakeLists.txt"
status=0
"$NOMSOI" --version >"$WORK/version" 2>"$WORK/version.err" || status=$?
expect_status 0 "$status" "nomsoi --version"
expect_text "nomsoi --version" "nomsoi $version
" "$WORK/version"
expect_text "nomsoi --version: standard error" "" "$WORK/version.err"

# The commands, from the program's own --help.
commands=$("$NOMSOI" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
[ "$(echo "$commands" | wc -w)" -eq 7 ] || fail "nomsoi --help lists: $commands"

# Every --help ends with a real invocation: run each on a copy of the examples, the database made
# before the commands that need it.
copy_examples
export NOMZUB_CACHE="$WORK/cache"
run_example() {
  local example words status=0
  example=$("$NOMSOI" "$1" --help | tail -n 1)
  case $example in "Example: nomsoi $1 "*) ;; *) fail "nomsoi $1 --help ends with: $example" ;; esac
  read -ra words <<<"${example#Example: nomsoi }"
  (cd "$WORK/ex" && "$NOMSOI" --log "$WORK/examples.log" "${words[@]}") \
    >"$WORK/example.$1.out" 2>"$WORK/example.$1.err" || status=$?
  expect_status 0 "$status" "$example ($(cat "$WORK/example.$1.err"))"
}
# Before Pack & Go the example package names its products by paths: verify lists them.
status=0
"$NOMSOI" verify "$WORK/ex/package" 2>"$WORK/verify.err" || status=$?
expect_status 3 "$status" "verify of the example package before Pack & Go"
expect_grep "verify before Pack & Go" \
  "document 'SOI.vgxXml' references '../library/Frame.vgxXml': not a bare name" "$WORK/verify.err"
expect_grep "verify before Pack & Go" \
  "document 'SOI.vgxView' references 'AssemblyLine.vgxXml': missing" "$WORK/verify.err"
for command in db connect dump pack verify preview odt; do
  # Matched in the shell: no pipe whose writer could outlive an early-exiting grep -q.
  [[ $'\n'"$commands"$'\n' == *$'\n'"$command"$'\n'* ]] || fail "no command $command in: $commands"
  run_example "$command"
done
for command in $commands; do
  case " db connect dump pack verify preview odt " in *" $command "*) ;; *) fail "no example run for $command" ;; esac
done
# The pack example made the package self-contained; verify said so in one line.
expect_text "verify after Pack & Go" \
  "nomsoi verify: '$WORK/ex/package' is self-contained: 11 documents, 25 references (11 geometry files) checked
" "$WORK/example.verify.err"

# -q: a successful run says nothing, a log on standard error included.
status=0
"$NOMSOI" -q pack --main "$WORK/ex/package/SOI.vgxXml" --out "$WORK/quiet" \
  >"$WORK/quiet.out" 2>"$WORK/quiet.err" || status=$?
expect_status 0 "$status" "pack -q"
expect_text "pack -q: standard error" "" "$WORK/quiet.err"
expect_text "pack -q: standard output" "" "$WORK/quiet.out"
status=0
"$NOMSOI" -q verify "$WORK/quiet" 2>"$WORK/quiet.err" || status=$?
expect_status 0 "$status" "verify -q of the packed copy"
expect_text "verify -q: standard error" "" "$WORK/quiet.err"

# The generated files are what the generator makes of the program's definitions now.
"$bindir/nomsoi-docgen" "$WORK/nomsoi.1" "$WORK/nomsoi.bash-completion"
cmp "$WORK/nomsoi.1" "$man_page" || fail "$man_page is not current"
cmp "$WORK/nomsoi.bash-completion" "$completion" || fail "$completion is not current"

# Every option --help lists, of nomsoi and of each command, is in the manual page and offered by
# the completion script.
options_of() {
  "$NOMSOI" "$@" --help | sed -n 's/^  \(-[^ ]*\).*/\1/p' | tr ',' '\n'
}
for command in "" $commands; do
  # shellcheck disable=SC2086  # no command: nomsoi's own options
  for option in $(options_of $command); do
    roff=${option//-/\\-}
    grep -qF -- "\\fB$roff\\fR" "$man_page" || fail "nomsoi(1) lacks ${command:+$command }$option"
    grep -qE -- "[' \"]$option[' \"]" "$completion" || fail "completion lacks ${command:+$command }$option"
  done
done

# The manual page renders without a warning.
if command -v groff >/dev/null; then
  groff -man -Tutf8 -ww "$man_page" 2>"$WORK/groff.err" | sed 's/.\x08//g' >"$WORK/man.txt"
  expect_text "groff warnings" "" "$WORK/groff.err"
  for heading in NAME SYNOPSIS DESCRIPTION OPTIONS "EXIT STATUS" ENVIRONMENT EXAMPLES; do
    grep -qx "$heading" "$WORK/man.txt" || fail "the rendered manual page has no $heading"
  done
else
  echo "cli_conventions: groff is not installed; the rendering is not checked"
fi

# The completion script registers itself and completes commands, options and values.
registered=$(bash -c 'source "$1" && complete -p nomsoi' _ "$completion")
[ "$registered" = "complete -F _nomsoi nomsoi" ] || fail "complete -p nomsoi: $registered"
complete_words() {
  # shellcheck disable=SC2016  # expanded by the inner shell
  (cd "$WORK/ex" && bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1));
    _nomsoi; printf "%s\n" "${COMPREPLY[@]}"' _ "$completion" "$@")
}
complete_words nomsoi pa >"$WORK/words"
expect_text "nomsoi pa<TAB>" "pack
" "$WORK/words"
complete_words nomsoi pack --ma >"$WORK/words"
expect_text "nomsoi pack --ma<TAB>" "--main
--max-visits
--max-depth
" "$WORK/words"
complete_words nomsoi --log-format "" >"$WORK/words"
expect_text "nomsoi --log-format <TAB>" "text
raw
jsonl
" "$WORK/words"
complete_words nomsoi dump --position "" >"$WORK/words"
expect_text "nomsoi dump --position <TAB>" "3D_States
Simulation_Positions
" "$WORK/words"
complete_words nomsoi verify pack >"$WORK/words"
expect_text "nomsoi verify pack<TAB>" "package
" "$WORK/words"

# Installed where man and bash-completion look.
cmake --install "$NOMSOI_BINARY_DIR" --prefix "$WORK/prefix" >/dev/null
cmp "$man_page" "$WORK/prefix/share/man/man1/nomsoi.1" || fail "nomsoi.1 is not installed"
cmp "$completion" "$WORK/prefix/share/bash-completion/completions/nomsoi" ||
  fail "the completion script is not installed"
echo "cli_conventions: ok"
