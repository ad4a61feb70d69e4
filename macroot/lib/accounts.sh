# shellcheck shell=bash
# shellcheck disable=SC2034 # the stand-ins use what stands here
# What the stand-ins for the account tools share: the directory of accounts, and how a secret is asked for and kept.
# It sources standin.sh.
#
# An account is its line in the root's own user database, its hash in the shadow file, and a folder in $records with a
# file for each thing that Linux has no place for:
#   RealName       the display name, which may hold what a line of the user database cannot
#   IsHidden       what dscl was told
#   SecureToken    it can unlock FileVault
#   DisabledUser   it cannot log in
# A hash is that of crypt(3), SHA-512. crypt takes 511 bytes at most; of what is longer, the SHA-512 in hexadecimal
# digits stands for it.
#
# Besides standin.sh's directives a tool that asks for secrets takes:
#   ask N            asks for a new password N times instead of twice
#   prompt TEXT      asks for it with TEXT
#   patience N FROM  gives up when prompt FROM, or a later one, is not answered within N seconds
#   slow-prompt      writes its prompts byte by byte
#   echo             leaves the terminal's echo on
#   tell             prints the new password
#   tell-split       prints it in two writes
# and one that changes something:
#   no-effect        changes nothing and says it did
# The points of standin_point are "typed" (the new password is known), "asked" (all is, nothing has been changed),
# "recorded" (a new account is in the user database, without a password) and "changed".

PATH=/usr/sbin:/usr/bin:/sbin:/bin
export LC_ALL=C
umask 022
records=/var/db/dslocal/nodes/Default/users

new_password_asks=2
new_password_prompt=
patience=
patience_from=
prompts=0
slow_prompt=
leave_echo=
tell=
no_effect=

# shellcheck disable=SC2317 # standin.sh calls it
standin_own() {
  case $1 in
    ask) new_password_asks=$2 ;;
    prompt) new_password_prompt=$2 ;;
    patience) read -r patience patience_from <<<"$2" ;;
    slow-prompt) slow_prompt=yes ;;
    echo) leave_echo=yes ;;
    tell) tell='whole' ;;
    tell-split) tell='split' ;;
    no-effect) no_effect=yes ;;
    *) return 1 ;;
  esac
}

# Keeps for the tests what anybody could see of every process: its arguments and its environment.
record_processes() {
  cat /proc/[0-9]*/cmdline /proc/[0-9]*/environ 2>/dev/null | tr '\0' '\n' >>/var/log/macroot/processes.log
}

# shellcheck source=macroot/lib/standin.sh
. /usr/local/lib/macroot/standin.sh
if [ "$EUID" -eq 0 ]; then record_processes; fi

# Ends the tool with status $2 (1) after saying $1.
fail() {
  printf '%s\n' "$1" >&2
  exit "${2:-1}"
}

# Takes the directory for this process alone, until unlock.
lock() {
  exec 9>/var/db/dslocal/lock
  flock 9
}
unlock() { exec 9>&-; }

exists() { getent passwd -- "$1" >/dev/null; }

is_admin() {
  local members
  members=$(getent group admin)
  [[ ,${members##*:}, == *,"$1",* ]]
}

# Asks on the terminal with the prompt $1 and puts the answer into `secret`.
ask() {
  local tty saved i
  if ! { exec {tty}<>/dev/tty; } 2>/dev/null; then fail "$standin_name: Error: a password has to be typed on a terminal"; fi
  saved=$(stty -g <&"$tty")
  # Before the prompt, so that nobody who waits for it is too early.
  if [ -z "$leave_echo" ]; then stty -echo <&"$tty"; fi
  if [ -n "$slow_prompt" ]; then
    for ((i = 0; i < ${#1}; ++i)); do
      printf '%s' "${1:i:1}" >&"$tty"
      sleep 0.002
    done
  else
    printf '%s' "$1" >&"$tty"
  fi
  secret=
  prompts=$((prompts + 1))
  if [ -z "$patience" ] || [ "$prompts" -lt "$patience_from" ]; then
    IFS= read -r secret <&"$tty"
  elif ! IFS= read -r -t "$patience" secret <&"$tty"; then
    fail "$standin_name: Error: prompt $prompts was not answered"
  fi
  stty "$saved" <&"$tty"
  printf '\n' >&"$tty"
  exec {tty}>&-
}

# Asks for a new password, again until all is as told, and puts it into `secret`.
ask_new_password() {
  local first i
  ask "${new_password_prompt:-New password:}"
  first=$secret
  for ((i = 1; i < new_password_asks; ++i)); do
    ask "${new_password_prompt:-Retype new password:}"
    if [ "$secret" != "$first" ]; then fail "$standin_name: Error: the passwords do not match"; fi
  done
  if [ -z "$secret" ]; then fail "$standin_name: Error: no password was given"; fi
  case $tell in
    whole) printf 'The password is %s.\n' "$secret" ;;
    split)
      printf 'The password is %s' "${secret:0:${#secret}/2}"
      sleep 0.02
      printf '%s.\n' "${secret:${#secret}/2}"
      ;;
  esac
  standin_point typed
}

# Prints what crypt makes of the password $1 with the setting $2. Neither stands on a command line.
crypted() {
  local password=$1
  if [ "${#password}" -gt 511 ]; then
    password=$(printf '%s' "$password" | sha512sum)
    password=${password%% *}
  fi
  printf '%s\n%s' "$2" "$password" |
    perl -e 'local $/; my ($setting, $password) = split /\n/, <STDIN>, 2; print crypt($password, $setting);'
}

# Whether $2 is the password of the account $1.
is_password() {
  local entry hash
  entry=$(getent shadow -- "$1") || return 1
  hash=${entry#*:}
  hash=${hash%%:*}
  hash=${hash#!}
  [[ $hash == '$'* ]] && [ "$(crypted "$2" "$hash")" = "$hash" ]
}

# Gives the account $1 the password $2.
set_password() {
  local salt hash mark=
  salt=$(head -c 12 /dev/urandom | base64 | tr '+/' './')
  hash=$(crypted "$2" "\$6\$$salt\$")
  if [ -e "$records/$1/DisabledUser" ]; then mark='!'; fi
  printf '%s:%s%s\n' "$1" "$mark" "$hash" | chpasswd --encrypted
}
