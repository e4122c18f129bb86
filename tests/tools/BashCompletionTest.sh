#!/usr/bin/env bash
# Drives orvan's bash completion as bash does on TAB: sets COMP_WORDS and
# COMP_CWORD, calls the function the script registered for orvan and reads
# COMPREPLY. The expected words come from the program's help, read here
# apart from the script, with the words every version has written out.
#
#   BashCompletionTest.sh PROGRAM COMPLETION_SCRIPT WORK_DIR
set -uo pipefail

program=$1
script=$2
work=$3
failures=0

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

# shellcheck source=/dev/null
source "$script" || fail "sourcing $script failed"
registered=$(complete -p orvan 2>/dev/null)
function=$(sed -n -E 's/.*-F ([^ ]+) .*/\1/p' <<<"$registered")
[ -n "$function" ] || { echo "FAILED: $script registers no completion function for orvan"; exit 1; }

# The words offered for the command line "orvan WORDS...", the last word
# being the one completed; one per line, sorted.
offered() {
  COMP_WORDS=("$program" "$@")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMP_LINE="${COMP_WORDS[*]}"
  COMP_POINT=${#COMP_LINE}
  COMPREPLY=()
  "$function" orvan "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}" >/dev/null 2>&1
  printf '%s\n' "${COMPREPLY[@]}" | sed '/^$/d' | sort -u
}

expect() {
  local line=$1 expected actual
  expected=$(printf '%s\n' "$2" | tr ' ' '\n' | sed '/^$/d' | sort -u)
  actual=$3
  [ "$actual" = "$expected" ] ||
    fail "orvan $line<TAB> offered [$(paste -sd ' ' <<<"$actual")], expected [$(paste -sd ' ' <<<"$expected")]"
}

expect_containing() {
  local line=$1 word
  for word in $2; do
    grep -qxF -- "$word" <<<"$3" || fail "orvan $line<TAB> did not offer $word: [$(paste -sd ' ' <<<"$3")]"
  done
}

commands=$("$program" --help | awk '/^Commands:/ { listing = 1; next }
                                      listing && /^[^ ]/ { exit }
                                      listing && /^  [a-z]/ { print $1 }')
fetch_long_options=$("$program" help fetch | grep -E '^  -' | grep -oE -- '--[a-z][a-z-]*' | sort -u)

# orvan f<TAB>: the commands that start with f.
actual=$(offered f)
expect "f" "$(grep '^f' <<<"$commands")" "$actual"
expect_containing "f" "fetch" "$actual"

# orvan fetch --<TAB>: every long option of fetch.
actual=$(offered fetch --)
expect "fetch --" "$fetch_long_options" "$actual"
expect_containing "fetch --" "--output --force --timeout --idle-timeout --max-time --log --quiet --verbose --help" "$actual"

# orvan help <TAB>: every command.
actual=$(offered help "")
expect "help " "$commands" "$actual"
expect_containing "help " "fetch serve run memory demo" "$actual"

# orvan <TAB>: the commands and help; orvan --<TAB>: the program's options.
expect "" "$commands help" "$(offered "")"
expect "--" "--help --version" "$(offered --)"

# File names for -o, also as --output=; directories only for --cwd.
rm -rf "$work"
mkdir -p "$work/subdir"
touch "$work/copy.bin" "$work/other.txt"
cd "$work" || exit 1
expect "fetch data.bin -o " "copy.bin other.txt subdir" "$(offered fetch data.bin -o "")"
expect "fetch data.bin -o c" "copy.bin" "$(offered fetch data.bin -o c)"
expect "fetch data.bin --output=c" "copy.bin" "$(offered fetch data.bin --output = c)"
expect "run --cwd " "subdir" "$(offered run --cwd "")"
# A value that is a number gets nothing; the word after it is the operand.
expect "fetch --timeout " "" "$(offered fetch --timeout "")"
expect "fetch --timeout 5 c" "copy.bin" "$(offered fetch --timeout 5 c)"
cd / && rm -rf "$work"

if [ "$failures" -ne 0 ]; then
  echo "$failures completion(s) wrong"
  exit 1
fi
echo "the completion offers the commands, options and file names expected"
