#!/usr/bin/env bash
# Checks that the manual page and the program's help name the same things:
# - the commands of "orvan help" are the page's subsections "orvan COMMAND";
# - for each command, the options "orvan help COMMAND" lists are those the
#   tagged paragraphs (.TP) of its subsection name, and the program's own
#   options ("orvan --help") those of the section OPTIONS;
# - every exit status a help names is a tag of the section EXIT STATUS.
# A command or an option added to the program and not to the page, or the
# other way round, fails it with the difference.
#
#   ManPageTest.sh PROGRAM PAGE
set -uo pipefail

program=$1
page=$2
failures=0

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

# The page's text with the escapes that matter here made plain: "\-" is "-",
# font changes and "\%" go.
plain_page() {
  sed -e 's/\\-/-/g' -e 's/\\f[BIRP]//g' -e 's/\\%//g' -e 's/\\&//g' "$page"
}

# The option names of the lines of a help that define options
# ("  -o, --output PATH   where to write").
help_options() {
  awk '/^  -/ { sub(/^  /, ""); sub(/  .*/, ""); gsub(/,/, " ")
                for (i = 1; i <= NF; i++) if ($i ~ /^--?[A-Za-z]/) print $i }' | sort -u
}

# The option names on the tags of the page's part that starts at the line
# matching $1 and ends at the next line matching $2.
page_options() {
  plain_page | awk -v start="$1" -v stop="$2" '
    $0 ~ start { inside = 1; next }
    inside && $0 ~ stop { exit }
    inside && tag { gsub(/"/, " "); gsub(/,/, " ")
                    for (i = 1; i <= NF; i++) if ($i ~ /^--?[A-Za-z]/) print $i
                    tag = 0; next }
    inside && /^\.TP/ { tag = 1 }' | sort -u
}

# Reports the words of list $2 missing from list $3, and the other way round.
compare() {
  local what=$1 from_help=$2 from_page=$3 missing extra
  missing=$(comm -23 <(echo "$from_help") <(echo "$from_page") | paste -sd ' ')
  extra=$(comm -13 <(echo "$from_help") <(echo "$from_page") | paste -sd ' ')
  [ -z "$missing" ] || fail "$what: in the help, not in the manual page: $missing"
  [ -z "$extra" ] || fail "$what: in the manual page, not in the help: $extra"
  [ -n "$from_help" ] || fail "$what: the help names none"
}

main_help=$("$program" --help) || fail "orvan --help failed"
commands=$(awk '/^Commands:/ { listing = 1; next }
                listing && /^[^ ]/ { exit }
                listing && /^  [a-z]/ { print $1 }' <<<"$main_help" | sort -u)
page_commands=$(plain_page | sed -n -E 's/^\.SS "?orvan ([a-z]+).*/\1/p' | sort -u)
compare "commands" "$commands" "$page_commands"
compare "orvan --help" "$(help_options <<<"$main_help")" "$(page_options '^\.SH OPTIONS' '^\.S[HS] ')"

# The sentence of a help that names its exit codes, from "Exit codes:" (or
# "Exit codes, as ...:") to the full stop that ends it: a decimal point, as in
# the durations ("0.5") that may follow in the same paragraph, ends nothing.
exit_code_sentence() {
  tr '\n' ' ' | grep -oE 'Exit codes[,:]([^.]|\.[^ ])*\.'
}

exit_codes=$(exit_code_sentence <<<"$main_help")
for command in $commands; do
  help=$("$program" help "$command") || fail "orvan help $command failed"
  compare "orvan help $command" "$(help_options <<<"$help")" \
    "$(page_options "^\\.SS \"?orvan $command( |\")" '^\.S[HS] ')"
  exit_codes+=$'\n'$(exit_code_sentence <<<"$help")
done

# Every number of those sentences ("128 + N" gives 128).
codes=$(grep -oE '\b[0-9]+\b' <<<"$exit_codes" | sort -u)
page_codes=$(plain_page | awk '/^\.SH "?EXIT STATUS/ { inside = 1; next }
                               inside && /^\.SH/ { exit }
                               inside && tag { for (i = 1; i <= NF; i++) if ($i ~ /^[0-9]+$/) print $i; tag = 0; next }
                               inside && /^\.TP/ { tag = 1 }' | sort -u)
missing=$(comm -23 <(echo "$codes") <(echo "$page_codes") | paste -sd ' ')
[ -z "$missing" ] || fail "exit codes named by a help and missing from EXIT STATUS: $missing"
[ -n "$codes" ] || fail "no help names an exit code"

if [ "$failures" -ne 0 ]; then
  echo "$failures difference(s) between $page and the help of $program"
  exit 1
fi
echo "the manual page names the $(wc -w <<<"$commands") commands, their options and exit codes as the help does"
