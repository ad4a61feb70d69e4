# shellcheck shell=bash
# What every stand-in for a Mac tool begins with. Sourcing it logs the call and does what the tool's control file says.
#
# The log, /var/log/macroot/tools.log, has one line a call: "uid=501 /usr/bin/killall -HUP mDNSResponder", each
# argument quoted for the shell.
#
# The control file, /etc/macroot/behaviour/NAME, holds directives, one a line, done in order before the tool's own work:
#   print TEXT          prints TEXT
#   flood MIB           prints MIB megabytes of lines
#   invalid-utf8        prints bytes that are no UTF-8 between "before" and "after"
#   grandchild SECONDS  leaves a process behind that keeps the output open
#   ignore-term         is deaf to SIGTERM from here on
#   hang                never ends
#   signal NAME         ends by that signal
#   exit STATUS         ends with that status
# A directive of another name makes the tool end with 99, so that a misspelt one shows.

standin_behave() {
  local directive argument
  while read -r directive argument; do
    case $directive in
      print) printf '%s\n' "$argument" ;;
      flood) yes 'The quick brown fox jumps over the lazy dog, and over it again.' | head -c "$((argument << 20))" ;;
      invalid-utf8) printf 'before \xff\xfe\xc0\xaf\xed\xa0\x80 after\n' ;;
      grandchild) sleep "$argument" & ;;
      ignore-term) trap '' TERM ;;
      hang) exec sleep infinity ;;
      signal) kill -s "$argument" "$$" ;;
      exit) exit "$argument" ;;
      '' | '#'*) ;;
      *) echo "$standin_name: unknown behaviour $directive" >&2; exit 99 ;;
    esac
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
if [ -e "/etc/macroot/behaviour/$standin_name" ]; then
  standin_behave <"/etc/macroot/behaviour/$standin_name"
fi
