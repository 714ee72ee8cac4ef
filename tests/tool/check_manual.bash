#!/usr/bin/env bash
# The manual page is well-formed and tells of every verb and option that --help lists.
#   check_manual.bash TOOL MANUAL
set -euo pipefail
tool=$1 manual=$2
source "${BASH_SOURCE[0]%/*}/help_words.bash"

command -v mandoc >/dev/null || complain "mandoc is missing (Debian: mandoc)"
mandoc -T lint -W warning "$manual" || complain "the manual page is not well-formed"

# What the page says of a verb: from its own entries up to the next verb's or the next heading.
section() {
  awk -v verb="$1" '/^\.It Cm / { on = $3 == verb } /^\.S[sh] / { on = 0 } on' "$manual"
}
common=$(awk '/^\.Ss Options of/ { on = 1 } /^\.Sh / { on = 0 } on' "$manual")

verbs=$(help_verbs)
[[ $(wc -w <<<"$verbs") -ge 18 ]] || complain "--help lists too few verbs: $verbs"
for verb in $verbs; do
  text=$(section "$verb")
  [[ -n $text ]] || complain "no entry for $verb"
  for option in $(help_options "$verb"); do
    grep -qE "Fl ${option#-}( |\$)" <<<"$text
$common" || complain "$verb: nothing of $option"
    # Of the common ones an entry names those that not every verb has.
    [[ $option =~ ^(-h|--help|--color)$ ]] || grep -qE "Fl ${option#-}( |\$)" <<<"$text" ||
      complain "$verb: $option is not in its entry"
  done
done
exit "$failed"
