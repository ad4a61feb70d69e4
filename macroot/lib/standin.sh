# shellcheck shell=bash
# What every stand-in for a Mac tool begins with. Sourcing it logs the call and does what the tool's control file says.
#
# The log, /var/log/macroot/tools.log, has one line a call: "uid=501 /usr/bin/killall -HUP mDNSResponder", each
# argument quoted for the shell.
#
# The control file, /etc/macroot/behaviour/NAME, holds directives, one a line, done in order before the tool's own work.
# A second one, NAME@WORD, counts only for calls that have the argument WORD (with _ in place of /).
#   print TEXT          prints TEXT
#   flood MIB           prints MIB megabytes of lines
#   invalid-utf8        prints bytes that are no UTF-8 between "before" and "after"
#   grandchild SECONDS  leaves a process behind that keeps the output open
#   ignore-term         is deaf to SIGTERM from here on
#   ignore-hup          goes on when its terminal is gone
#   hang                never ends
#   signal NAME         ends by that signal
#   exit STATUS         ends with that status
#   close-output        closes its standard streams and goes on
#   hold                logs "holding NAME", and waits until somebody opens /run/macroot/hold for writing
#   at POINT DIRECTIVE  does the directive later, when the tool reaches the point of that name
# A directive of another name makes the tool end with 99, so that a misspelt one shows. A tool may have directives and
# points of its own (standin_own, standin_point).

standin_later=()

# Does one directive $1 with its argument $2.
standin_do() {
  case $1 in
    print) printf '%s\n' "$2" ;;
    flood) yes 'The quick brown fox jumps over the lazy dog, and over it again.' | head -c "$(($2 << 20))" ;;
    invalid-utf8) printf 'before \xff\xfe\xc0\xaf\xed\xa0\x80 after\n' ;;
    grandchild) (trap '' HUP; exec sleep "$2") & ;;
    ignore-term) trap '' TERM ;;
    ignore-hup) trap '' HUP ;;
    hang) exec sleep infinity ;;
    signal) kill -s "$2" "$$" ;;
    exit) exit "$2" ;;
    close-output) exec </dev/null >/dev/null 2>&1 ;;
    hold)
      printf 'holding %s\n' "$standin_name" >>/var/log/macroot/tools.log
      # Opening waits for the other end; nothing need be said.
      : </run/macroot/hold
      ;;
    at) standin_later+=("$2") ;;
    '' | '#'*) ;;
    *)
      if declare -F standin_own >/dev/null && standin_own "$1" "$2"; then return; fi
      echo "$standin_name: unknown behaviour $1" >&2
      exit 99
      ;;
  esac
}

standin_behave() {
  local directive argument
  while read -r directive argument; do standin_do "$directive" "$argument"; done
}

# Does what is to be done at the point $1.
standin_point() {
  local entry point directive argument
  for entry in "${standin_later[@]}"; do
    read -r point directive argument <<<"$entry"
    if [ "$point" = "$1" ]; then standin_do "$directive" "$argument"; fi
  done
}

# Ends the tool as it ends when it does not understand its arguments: the usage $1 on standard error, status $2.
usage() {
  printf '%s\n' "$1" >&2
  exit "${2:-64}"
}

require_root() {
  if [ "$EUID" -ne 0 ]; then
    printf '%s\n' "$1" >&2
    exit "${2:-1}"
  fi
}

standin_name=${0##*/}
printf -v standin_call ' %q' "$0" "$@"
printf 'uid=%d%s\n' "$EUID" "$standin_call" >>/var/log/macroot/tools.log
for standin_word in '' "${@/#/@}"; do
  standin_file=/etc/macroot/behaviour/$standin_name${standin_word//\//_}
  if [ -e "$standin_file" ]; then standin_behave <"$standin_file"; fi
done
